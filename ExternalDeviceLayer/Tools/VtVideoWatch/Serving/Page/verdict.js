// The one line that answers: is everything in step, and if not, which stream.
import { element, shape } from "./dom.js";
import * as format from "./format.js";
import { streamsOf } from "./model.js";
import { thresholdCountdown } from "./words.js";

const mostNamed = 3;

const named = (streams) => {
  const names = streams.slice(0, mostNamed).map((one) => format.label(one.stream));
  return names.join(", ") + (streams.length > mostNamed ? ` and ${streams.length - mostNamed} more` : "");
};

const are = (streams) => (streams.length === 1 ? "is" : "are");
const have = (streams) => (streams.length === 1 ? "has" : "have");
const since = (streams, nowMs) => format.since(Math.min(...streams.map((one) => one.stream.sinceMs)), nowMs);

function driftClause(passing) {
  const [soonest] = passing
    .map((one) => one.compared)
    .filter((compared) => compared.toThreshold !== null)
    .sort((a, b) => a.toThreshold - b.toThreshold);
  const when = soonest ? `, out of step ${thresholdCountdown(soonest)}` : "";
  return `${named(passing)} ${are(passing)} drifting${when}`;
}

function clauses(of, nowMs) {
  return [
    of.lost.length > 0 && `${named(of.lost)} ${have(of.lost)} had no signal ${since(of.lost, nowMs)}`,
    of.gone.length > 0 && `${named(of.gone)} ${are(of.gone)} gone ${since(of.gone, nowMs)}`,
    of.losing.length > 0 && `${named(of.losing)} ${of.losing.length === 1 ? "loses" : "lose"} fields`,
    of.free.length > 0 && `${named(of.free)} ${are(of.free)} out of step`,
    of.passing.length > 0 && driftClause(of.passing),
  ].filter(Boolean);
}

function remarks(of) {
  return [
    of.running.length > 0 && `${named(of.running)} cannot be compared`,
    of.idle.length > 0 && `${named(of.idle)} idle`,
  ].filter(Boolean);
}

const losingMs = 60000;
const order = ["lost", "gone", "losing", "free", "passing", "running", "locked", "reference", "idle"];

function sortOut(model, compared) {
  const of = Object.fromEntries(order.map((kind) => [kind, []]));
  for (const stream of streamsOf(model)) {
    const one = { stream, compared: compared.get(stream) };
    of[one.compared.kind].push(one);
    if (stream.state === "running" && model.ms - stream.lossMs < losingMs) {
      of.losing.push(one);
    }
  }
  return of;
}

function fault(of, total, faults) {
  const worst = order.find((kind) => of[kind].length > 0);
  const isBad = of.lost.length + of.gone.length > 0;
  const inStep = of.locked.length + of.reference.length;
  return {
    level: isBad ? "bad" : "warn",
    shape: worst === "losing" ? "free" : worst,
    text: of.losing.length > 0 && !isBad ? "Fields are being lost" : `${inStep} of ${total} streams in step`,
    more: [...faults, ...remarks(of)].join("; "),
  };
}

// compared: Map from stream to what compare() says of it.
export function judge(model, compared) {
  const of = sortOut(model, compared);
  const total = compared.size;
  const faults = clauses(of, model.ms);
  if (total === 0) {
    return { level: "warn", shape: "idle", text: "There is nothing to watch", more: "the board has no streams" };
  }
  if (faults.length > 0) {
    return fault(of, total, faults);
  }
  if (of.idle.length === total) {
    return { level: "warn", shape: "idle", text: "Nothing runs", more: `${total} streams are idle` };
  }
  return { level: "good", shape: "locked", text: "Everything that runs is in step", more: remarks(of).join("; ") };
}

// What a verdict is worth once nothing new comes: what it was, and that nobody knows any more.
export function outdated(verdict, text) {
  const was = verdict.more ? `${verdict.text}; ${verdict.more}` : verdict.text;
  return { level: verdict.level === "bad" ? "bad" : "warn", shape: "idle", text, more: `its last word: ${was}` };
}

export function showVerdict(place, verdict) {
  const key = JSON.stringify(verdict);
  if (place.dataset.key === key) {
    return; // it is read aloud when it changes, and only then
  }
  place.dataset.key = key;
  place.className = `verdict is-${verdict.level}`;
  place.replaceChildren(
    shape(verdict.shape),
    element("strong", {}, verdict.text),
    element("span", { class: "more" }, verdict.more),
  );
}
