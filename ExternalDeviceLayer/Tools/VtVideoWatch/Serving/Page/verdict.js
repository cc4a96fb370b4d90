// The one line that answers: is everything in step, and if not, which stream.
import { element, shape } from "./dom.js";
import * as format from "./format.js";
import { streamsOf } from "./model.js";

const named = (streams) => {
  const names = streams.slice(0, 3).map((one) => one.stream.id);
  return names.join(", ") + (streams.length > 3 ? ` and ${streams.length - 3} more` : "");
};

const are = (streams) => (streams.length === 1 ? "is" : "are");
const have = (streams) => (streams.length === 1 ? "has" : "have");

function clauses(of) {
  const list = [];
  if (of.lost.length > 0) list.push(`${named(of.lost)} ${have(of.lost)} lost the signal`);
  if (of.gone.length > 0) list.push(`${named(of.gone)} ${are(of.gone)} gone`);
  if (of.free.length > 0) list.push(`${named(of.free)} ${are(of.free)} out of step`);
  if (of.passing.length > 0) {
    const soonest = Math.min(...of.passing.map((one) => one.compared.toThreshold ?? Infinity));
    const when = Number.isFinite(soonest) ? `, in step for another ${format.duration(soonest)}` : "";
    list.push(`${named(of.passing)} ${are(of.passing)} drifting${when}`);
  }
  return list;
}

function remarks(of) {
  const list = [];
  if (of.running.length > 0) list.push(`${named(of.running)} cannot be compared`);
  if (of.idle.length > 0) list.push(`${named(of.idle)} idle`);
  return list;
}

// compared: Map from stream to what compare() says of it.
export function judge(model, compared) {
  const of = { lost: [], gone: [], free: [], passing: [], running: [], locked: [], reference: [], idle: [] };
  for (const stream of streamsOf(model)) {
    const one = compared.get(stream);
    of[one.kind].push({ stream, compared: one });
  }
  const total = streamsOf(model).length;
  const inStep = of.locked.length + of.reference.length;
  const faults = clauses(of);
  if (total === 0) return { level: "warn", shape: "idle", text: "There is nothing to watch", more: "the board has no streams" };
  if (faults.length === 0 && inStep + of.running.length === 0) {
    return { level: "warn", shape: "idle", text: "Nothing runs", more: `${total} streams are idle` };
  }
  const isBad = of.lost.length + of.gone.length > 0;
  return {
    level: isBad ? "bad" : faults.length > 0 ? "warn" : "good",
    shape: isBad ? "lost" : of.free.length > 0 ? "free" : of.passing.length > 0 ? "passing" : "locked",
    text: faults.length > 0 ? `${inStep} of ${total} streams in step` : "Everything that runs is in step",
    more: [...faults, ...remarks(of)].join("; "),
  };
}

let shown = "";

export function showVerdict(place, verdict) {
  const key = JSON.stringify(verdict);
  if (key === shown) return; // it is read aloud when it changes, and only then
  shown = key;
  place.className = `verdict is-${verdict.level}`;
  place.replaceChildren(
    shape(verdict.shape),
    element("strong", {}, verdict.text),
    element("span", { class: "more", title: verdict.more }, verdict.more),
  );
}
