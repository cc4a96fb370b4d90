// Events and movements as sentences.
import * as format from "./format.js";

const eventWords = {
  watch_began: "Watch began",
  watch_ended: "Watch ended",
  state_changed: "State",
  signal_lost: "Signal lost",
  signal_back: "Signal back",
  fields_lost: "Fields lost",
  fields_unobserved: "Watcher late",
  counter_repeated: "Counter stood still",
  counter_backward: "Counter went back",
  field_early: "Field early",
  field_late: "Field late",
  phase_stepped: "Phase stepped",
  timings_changed: "Timings changed",
  format_changed: "Format changed",
  capture_changed: "Capture state",
  power_changed: "Power state",
  buffers_skipped: "Buffers skipped",
  buffers_repeated: "Buffers shown again",
  buffers_overwritten: "Buffers overwritten",
  lock_changed: "Lock",
  reference_changed: "Reference",
  group_formed: "Lock group formed",
  group_changed: "Lock group changed",
  group_ended: "Lock group ended",
};

export const eventKinds = Object.keys(eventWords);

export function eventWord(kind) {
  return eventWords[kind] ?? kind;
}

// How much an event matters to the eye: the class of its colour, and of its mark on a chart.
const eventClasses = {
  signal_lost: "lost",
  fields_lost: "lost",
  counter_backward: "lost",
  buffers_skipped: "free",
  buffers_overwritten: "free",
  phase_stepped: "free",
  timings_changed: "passing",
  format_changed: "passing",
  field_early: "passing",
  field_late: "passing",
  fields_unobserved: "idle",
  watch_began: "idle",
  watch_ended: "idle",
  signal_back: "locked",
};

export function eventClass(event) {
  if (event.kind === "lock_changed") return event.after in lockClasses ? lockClasses[event.after] : "idle";
  if (event.kind === "state_changed") return event.after === "running" ? "locked" : event.after;
  return eventClasses[event.kind] ?? "running";
}

const lockClasses = { locked: "locked", passing: "passing", free: "free" };

const plural = (count, one, many) => `${format.count(count)} ${count === 1 ? one : many}`;

function valueText(event, value) {
  return event.kind === "timings_changed" ? format.rate(value) : String(value);
}

// What happened, beyond the event's word.
export function eventDetail(event) {
  if (event.kind === "fields_unobserved") return `${plural(event.count, "field", "fields")} not seen; no fault of the signal`;
  if (event.kind === "signal_back") return `away for ${format.duration(event.seconds)}`;
  if (event.kind === "group_ended") return `${event.members?.join(", ")}, after ${format.duration(event.seconds)}`;
  if (event.members) return event.members.join(", ");
  if (event.before !== undefined) return `${valueText(event, event.before)} → ${valueText(event, event.after)}`;
  if (event.kind === "phase_stepped") return `by ${format.span(event.seconds)}`;
  const unit = event.kind.startsWith("buffers") ? ["buffer", "buffers"] : ["field", "fields"];
  const counted = event.count === undefined ? "" : plural(event.count, ...unit);
  return event.seconds === undefined ? counted : `${counted}, by ${format.span(event.seconds)} at most`;
}

// "drifts +1.2 ppb, leaves the lock in 3 h 12 min"
export function movement(stream, compared) {
  const kind = compared.kind;
  if (kind === "lost") return "has lost its signal";
  if (kind === "gone") return "is gone: the device does not answer any more";
  if (kind === "idle") return "is idle";
  if (kind === "reference") return "is what the others are compared with";
  if (kind === "running") return stream.lock === "different" ? "runs at a rate that does not compare" : "runs";
  const still = compared.drift === null || Math.abs(compared.drift) < 3 * (compared.driftError ?? 0);
  const drift = still ? "does not drift" : `drifts ${format.ppb(compared.drift)}`;
  const ends = [];
  if (compared.toThreshold !== null) {
    ends.push(`${kind === "free" ? "comes within the threshold" : "leaves the lock"} in ${format.duration(compared.toThreshold)}`);
  }
  if (compared.toSlip !== null) ends.push(`slips a whole field in ${format.duration(compared.toSlip)}`);
  const where = { locked: "is in step", passing: "is in step only in passing", free: "runs free" }[kind];
  return still ? `${where} and ${drift}` : [where, drift, ...ends].join(", ");
}
