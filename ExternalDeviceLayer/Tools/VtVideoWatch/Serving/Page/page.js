// The page: takes what the watch sends once a second, and hands it to the view that the address names.
import { addressWith, followLinks, goTo, onAddress, readAddress } from "./address.js";
import { askHistory, askPairs, askStreams, listen } from "./api.js";
import { compare, needsPairs, referenceIds } from "./compare.js";
import { element, setAttribute, setText } from "./dom.js";
import { makeEventsView } from "./events-view.js";
import * as format from "./format.js";
import { directions, directionTitles, findStream, streamsOf, toModel } from "./model.js";
import { hasTrace, makeOverview, rememberPhase } from "./overview.js";
import { makePairsView } from "./pairs-view.js";
import { makeStreamView } from "./stream-view.js";
import { judge, showVerdict } from "./verdict.js";

const place = (id) => document.getElementById(id);
const views = [
  ["overview", "Streams"],
  ["pairs", "Pairs"],
  ["events", "Events"],
];

let model = null;
let pairs = null;
let shown = null; // { key, view }
let link = { state: "", sinceMs: Date.now() };

function makeView(state) {
  if (state.view === "stream") return makeStreamView(state.stream);
  if (state.view === "pairs") return makePairsView();
  return state.view === "events" ? makeEventsView() : makeOverview();
}

function showNavigation(state) {
  const current = state.view === "stream" ? "overview" : state.view;
  if (place("views").children.length === 0) {
    place("views").append(...views.map(([, text]) => element("li", {}, element("a", { "data-state": "" }, text))));
  }
  views.forEach(([view], i) => {
    const anchor = place("views").children[i].firstChild;
    setAttribute(anchor, "href", addressWith({ view, stream: "", kind: "", span: "600", from: "", to: "" }));
    if (view === current) setAttribute(anchor, "aria-current", "page");
    else anchor.removeAttribute("aria-current");
  });
}

function makeReferenceChoice(direction) {
  const key = direction === "input" ? "refin" : "refout";
  const streams = model.directions[direction].streams;
  const own = element("option", { value: "" }, "");
  const select = element("select", { id: key, onchange: () => goTo({ [key]: select.value }) }, own, ...streams.map((one) => element("option", { value: one.id }, one.id)));
  return element("label", {}, `${directionTitles[direction]} against `, select);
}

function makeControls() {
  const order = element("select", { id: "order", onchange: () => goTo({ order: order.value }) }, element("option", { value: "worst" }, "worst first"), element("option", { value: "board" }, "board order"));
  const choices = directions.filter((direction) => model.directions[direction].streams.length > 1).map(makeReferenceChoice);
  place("controls").replaceChildren(element("label", {}, "Order ", order), ...choices);
}

function showControls(state) {
  const key = streamsOf(model).map((one) => one.id).join();
  if (place("controls").dataset.key !== key) {
    place("controls").dataset.key = key;
    makeControls();
  }
  place("controls").hidden = state.view !== "overview" && state.view !== "stream";
  place("order").value = state.order;
  for (const [direction, id] of [["input", "refin"], ["output", "refout"]]) {
    const select = place(id);
    if (!select) continue;
    setText(select.options[0], `the watch's choice (${model.directions[direction].reference ?? "none"})`);
    select.value = findStream(model, state[id])?.direction === direction ? state[id] : "";
  }
}

function showFrame(state, compared) {
  setText(place("host"), model.host);
  document.title = `Video watch, ${model.host}`;
  const badges = [];
  if (model.simulated) badges.push(["Simulated board", "these figures are not of real signals"]);
  if (model.costs?.store_failing) badges.push(["Store failing", "the history is not being written at present"]);
  if (model.costs?.journal_failing) badges.push(["Journal failing", "the journal is not being written at present"]);
  const key = badges.join();
  if (place("badges").dataset.key !== key) {
    place("badges").dataset.key = key;
    place("badges").replaceChildren(...badges.map(([text, title]) => element("span", { class: "badge", title }, text)));
  }
  showVerdict(place("verdict"), judge(model, compared));
  setText(place("clock"), `${format.utcDateTime(model.ms)} UTC · ${format.localDateTime(model.ms)} ${format.localZone}`);
  const unseen = streamsOf(model).reduce((sum, one) => sum + one.unobserved, 0);
  const overruns = model.costs?.ring_overruns ?? 0;
  const watcher = unseen + overruns === 0 ? "the watcher has missed nothing" : `the watcher was late for ${format.count(unseen)} fields`;
  setText(place("watcher"), `${watcher}${overruns > 0 ? `, ${format.count(overruns)} records found no room` : ""}`);
}

const linkTexts = {
  live: () => "live",
  late: (sinceMs) => `the watch is late: nothing since ${format.utcTime(sinceMs)} UTC`,
  gone: (sinceMs) => `the watch is gone since ${format.utcTime(sinceMs)} UTC`,
};

function showLink() {
  setAttribute(place("link"), "class", `link is-${link.state}`);
  setText(place("link"), linkTexts[link.state](link.sinceMs));
  document.body.classList.toggle("is-stale", link.state !== "live");
}

function compareAll(state) {
  const references = referenceIds(model, state);
  return new Map(streamsOf(model).map((stream) => [stream, compare(stream, model, references, pairs)]));
}

function show(isNewSnapshot) {
  if (!model) return;
  const state = readAddress();
  const compared = compareAll(state);
  showNavigation(state);
  showControls(state);
  showFrame(state, compared);
  const key = state.view === "stream" ? `stream ${state.stream}` : state.view;
  if (shown?.key !== key) {
    shown?.view.close();
    shown = { key, view: makeView(state) };
    place("main").replaceChildren(shown.view.root);
  }
  shown.view.show({ model, compared, state, isNewSnapshot, find: (id) => findStream(model, id) });
}

let pairsAskedMs = 0;
async function refreshPairs(state) {
  if (!needsPairs(model, state)) return void (pairs = null);
  if (Date.now() - pairsAskedMs < 2000) return;
  pairsAskedMs = Date.now();
  pairs = await askPairs().catch(() => pairs);
}

// The minutes before the page was opened, so that the small lines do not begin empty.
async function recallTraces() {
  for (const stream of streamsOf(model)) {
    const to = Math.floor(model.ms);
    const history = await askHistory({ stream: stream.id, from: to - 300000, to, step: 1, fields: "phase" }).catch(() => null);
    for (const phase of history?.phase ?? []) rememberPhase(stream.id, phase);
    if (!hasTrace(stream.id)) rememberPhase(stream.id, null);
  }
}

function takeSnapshot(json) {
  model = toModel(json, model);
  for (const stream of streamsOf(model)) if (hasTrace(stream.id)) rememberPhase(stream.id, stream.phase);
  refreshPairs(readAddress());
  if (!document.hidden) show(true);
}

async function refreshAll() {
  const json = await askStreams().catch(() => null);
  if (json) model = toModel(json, model);
  return json !== null;
}

async function begin() {
  followLinks(document);
  onAddress(() => {
    if (model) refreshPairs(readAddress()).then(() => show(false));
  });
  document.addEventListener("visibilitychange", () => !document.hidden && show(false));
  if (await refreshAll()) {
    show(true);
    recallTraces();
  }
  listen({
    snapshot: takeSnapshot,
    events({ events }) {
      shown?.view.events?.(events);
    },
    link(state, sinceMs) {
      const wasGone = link.state === "gone";
      link = { state, sinceMs };
      showLink();
      if (wasGone && state === "live") refreshAll();
    },
  });
  setInterval(refreshAll, 60000); // what the live stream leaves out: lengths of lines, clocks, costs
}

begin();
