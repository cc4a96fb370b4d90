// The page: takes what the watch sends once a second, and hands it to the view that the address names.
import { followLinks, onAddress, readAddress } from "./address.js";
import { askHistory, askIncidents, askPairs, askStreams, listen, pauseAsking, poll } from "./api.js";
import { compare, needsPairs, referenceIds } from "./compare.js";
import { showControls, showNavigation, titleOf } from "./controls.js";
import { element, setAttribute, setText } from "./dom.js";
import { makeEventsView } from "./events-view.js";
import * as format from "./format.js";
import { verdictOf } from "./health.js";
import { showIncidents } from "./incidents.js";
import { findStream, streamsOf, toModel } from "./model.js";
import { makeOverview } from "./overview.js";
import { makePairsView } from "./pairs-view.js";
import { makeStreamView } from "./stream-view.js";
import { remember, traceOf } from "./traces.js";
import { outdated, showVerdict } from "./verdict.js";

const place = (id) => document.getElementById(id);

let model = null;
let pairs = null;
let incidents = [];
let shown = null; // { key, view }
let link = { state: "live", sinceMs: Date.now() };
let pausedMs = null; // since when updates are paused
let left = null; // the link that gets the focus once it is there again

function makeView(state) {
  const make = { overview: makeOverview, pairs: makePairsView, events: makeEventsView }[state.view];
  return make ? make() : makeStreamView(state.stream);
}

const linkTexts = {
  live: () => "live",
  late: (time) => `the watch is late: nothing since ${time} UTC`,
  gone: (time) => `the watch is gone since ${time} UTC`,
  paused: (time) => `updates are paused since ${time} UTC`,
};

// { state, text } of the connection; a pause is a choice, but what is shown is old all the same.
function linkNow() {
  const state = pausedMs !== null && link.state === "live" ? "paused" : link.state;
  return { state, text: linkTexts[state](format.utcTime(state === "paused" ? pausedMs : link.sinceMs)) };
}

function capital(text) {
  return text[0].toUpperCase() + text.slice(1);
}

function showVerdictAndTitle(state) {
  const { state: linkState, text } = linkNow();
  const judged = verdictOf(model);
  const verdict = linkState === "live" ? judged : outdated(judged, capital(text));
  showVerdict(place("verdict"), verdict);
  document.title = `${verdict.text.replaceAll("\u00a0", " ").replaceAll("\u2011", "-")} – ${titleOf(state)} – Video watch, ${model.host}`;
}

function showLink() {
  const { state, text } = linkNow();
  setAttribute(place("link"), "class", `link is-${state}`);
  setText(place("link"), text);
  document.body.classList.toggle("is-stale", state !== "live");
}

function showBadges() {
  const badges = [
    model.simulated && ["Simulated board", "these figures are not of real signals"],
    model.costs?.store_failing && ["Store failing", "the history is not being written at present"],
    model.costs?.journal_failing && ["Journal failing", "the journal is not being written at present"],
  ].filter(Boolean);
  const key = badges.join();
  if (place("badges").dataset.key !== key) {
    place("badges").dataset.key = key;
    place("badges").replaceChildren(...badges.map(([text, title]) => element("span", { class: "badge", title }, text)));
  }
}

const isLocalUtc = new Date().getTimezoneOffset() === 0;

function showFooter() {
  const local = isLocalUtc ? "" : ` · ${format.localDateTime(model.ms)} ${format.localZone}`;
  setText(place("clock"), `${format.utcDateTime(model.ms)} UTC${local}`);
  const unseen = streamsOf(model).reduce((sum, one) => sum + one.unobserved, 0);
  const overruns = model.costs?.ring_overruns ?? 0;
  const late = unseen + overruns === 0 ? "has missed nothing" : `was late for ${format.counted(unseen, "field")}`;
  const full = overruns > 0 ? `, ${format.counted(overruns, "record")} found no room` : "";
  setText(place("watcher"), `the watcher ${late}${full}`);
}

function compareAll(state) {
  const references = referenceIds(model, state);
  return new Map(streamsOf(model).map((stream) => [stream, compare(stream, model, references, pairs)]));
}

// Whoever comes back finds the focus where it was; it is tried until the view has fetched what it shows.
function restoreFocus() {
  const found = left && place("main").querySelector(`a[href="${CSS.escape(left)}"]`);
  if (found) {
    found.focus();
    left = null;
  }
}

function showView(state, compared) {
  const key = state.view === "stream" ? `stream ${state.stream}` : state.view;
  const isOther = shown?.key !== key;
  if (isOther) {
    const hadFocus = place("main").contains(document.activeElement);
    shown?.view.close();
    shown = { key, view: makeView(state) };
    place("main").replaceChildren(shown.view.root);
    if (hadFocus) {
      place("main").focus({ preventScroll: true });
    }
  }
  shown.view.show({ model, compared, state, find: (id) => findStream(model, id) });
  restoreFocus();
}

function show() {
  if (!model) {
    return;
  }
  const state = readAddress();
  const compared = compareAll(state);
  setText(place("host"), model.host);
  showNavigation(place("views"), state);
  showControls(place("controls"), model, state);
  showBadges();
  showLink();
  showVerdictAndTitle(state);
  showIncidents(
    place("incidents"),
    state.view === "overview" && model.health?.incidents_open > 0 ? incidents : [],
    model,
  );
  showFooter();
  showView(state, compared);
}

async function fetchPairs(signal) {
  pairs = model && needsPairs(model, readAddress()) ? await askPairs(signal) : null;
}

async function fetchIncidents(signal) {
  ({ incidents } = await askIncidents({ open: true }, signal));
}

// What the small lines show, by the names of the history.
const tracedFigures = { phase: (stream) => stream.phase, ready: (stream) => stream.queue?.ready };

// The minutes before the page was opened, so that the small lines do not begin empty.
async function recallTraces() {
  for (const stream of streamsOf(model)) {
    const to = Math.floor(model.ms);
    const query = { stream: stream.id, from: to - 300000, to, step: 1, fields: Object.keys(tracedFigures).join() };
    const history = await askHistory(query).catch(() => null);
    for (const figure of Object.keys(tracedFigures)) {
      (history?.[figure] ?? [null]).forEach((value) => remember(figure, stream.id, value));
    }
  }
}

function rememberFigures(stream) {
  for (const [figure, of] of Object.entries(tracedFigures)) {
    if (traceOf(figure, stream.id)) {
      remember(figure, stream.id, of(stream));
    }
  }
}

function takeSnapshot(json) {
  if (pausedMs !== null) {
    return;
  }
  model = toModel(json, model);
  streamsOf(model).forEach(rememberFigures);
  if (!document.hidden) {
    show();
  }
}

async function fetchAll(signal) {
  const json = await askStreams(signal);
  if (pausedMs === null) {
    const isFirst = model === null;
    model = toModel(json, model);
    show();
    if (isFirst) {
      recallTraces();
    }
  }
}

function makePause(everything) {
  const button = place("pause");
  button.addEventListener("click", () => {
    pausedMs = pausedMs === null ? Date.now() : null;
    pauseAsking(pausedMs !== null);
    setText(button, pausedMs === null ? "Pause" : "Go on");
    show();
    if (pausedMs === null) {
      everything.again();
    }
  });
}

function begin() {
  followLinks(document);
  const everything = poll(() => 60000, fetchAll); // what the live stream leaves out: lengths of lines, clocks, costs
  const incidentsPoller = poll(() => 2000, fetchIncidents);
  const pairsPoller = poll(() => 2000, fetchPairs);
  makePause(everything);
  onAddress((cause) => {
    ({ left } = cause);
    pairsPoller.again().then(show);
  });
  document.addEventListener("visibilitychange", show);
  listen({
    snapshot: takeSnapshot,
    events() {
      if (pausedMs === null) {
        shown?.view.events?.();
        incidentsPoller.again();
      }
    },
    link(state, sinceMs) {
      const wasGone = link.state === "gone";
      link = { state, sinceMs };
      show();
      showLink();
      if (wasGone && state === "live") {
        everything.again();
      }
    },
  });
}

begin();
