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
  counter_forward: "Counter went ahead",
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
  feed_stalled: "Feed stalled",
  feed_resumed: "Feed goes on",
  cadence_changed: "Cadence",
  field_order_swapped: "Field order swapped",
  description_changed: "Description",
  incident_began: "Incident began",
  incident_ended: "Incident ended",
  slipped: "Slipped",
};

export const eventKinds = Object.keys(eventWords);

export function eventWord(kind) {
  return eventWords[kind] ?? kind;
}

const lockClasses = ["locked", "passing", "free"];

// How much an event matters to the eye: the class of its colour, and of its mark on a chart.
const eventClasses = {
  signal_lost: "lost",
  fields_lost: "lost",
  counter_backward: "lost",
  counter_forward: "lost",
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
  feed_stalled: "lost",
  feed_resumed: "locked",
  cadence_changed: "passing",
  field_order_swapped: "free",
  description_changed: "passing",
  incident_began: "free",
  incident_ended: "locked",
  slipped: "free",
};

export function eventClass(event) {
  if (event.kind === "lock_changed") {
    return lockClasses.includes(event.after) ? event.after : "idle";
  }
  if (event.kind === "state_changed") {
    return event.after === "running" ? "locked" : event.after;
  }
  return eventClasses[event.kind] ?? "running";
}

function valueText(event, value) {
  return event.kind === "timings_changed" ? format.rate(value) : String(value ?? "none");
}

const details = {
  fields_unobserved: (event) => `${format.counted(event.count, "field")} not seen; no fault of the signal`,
  signal_back: (event) => `away for ${format.duration(event.seconds)}`,
  feed_resumed: (event) => `after ${format.duration(event.seconds)}`,
  description_changed: (event) =>
    `${event.member?.replaceAll("_", " ")}: ${valueText(event, event.before)} → ${valueText(event, event.after)}`,
  incident_began: (event) => `number ${event.incident}, ${event.domain}`,
  incident_ended: (event) => `number ${event.incident}, ${event.domain}, after ${format.duration(event.seconds)}`,
  slipped: (event) => `${format.counted(event.count, "picture")} ${event.picture} against ${event.against}`,
  phase_stepped: (event) => `by ${format.span(event.seconds)}`,
  group_ended: (event) => `${event.members?.join(", ")}, after ${format.duration(event.seconds)}`,
};

// What happened, beyond the event's word.
export function eventDetail(event) {
  if (event.kind in details) {
    return details[event.kind](event);
  }
  if (event.members) {
    return event.members.join(", ");
  }
  const times = event.count > 1 ? `, ${format.count(event.count)} times together` : "";
  if (event.before !== undefined) {
    return `${valueText(event, event.before)} → ${valueText(event, event.after)}${times}`;
  }
  const unit = event.kind.startsWith("buffers") ? "buffer" : "field";
  const counted = event.count === undefined ? "" : format.counted(event.count, unit);
  return event.seconds === undefined ? counted : `${counted}, by ${format.span(event.seconds)} at most`;
}

// "Fields lost: 3 fields"
export function eventText(event) {
  return [eventWord(event.kind), eventDetail(event)].filter(Boolean).join(": ");
}

const motionWords = { locked: "is in step", passing: "is in step only in passing", free: "runs free" };

// What the server does not say, the drift's own error does: the time to a crossing is as unsure as the drift.
function countdown(compared, seconds, error) {
  const byDrift = compared.drift ? Math.abs((seconds * (compared.driftError ?? 0)) / compared.drift) : null;
  return format.countdown(seconds, error ?? byDrift);
}

// When the threshold is crossed: "in about 1 h"; null when it is not.
function thresholdCountdown(compared) {
  const { toThreshold, toThresholdError } = compared;
  return toThreshold === null ? null : countdown(compared, toThreshold, toThresholdError);
}

function ends(compared) {
  const list = [];
  const threshold = thresholdCountdown(compared);
  if (threshold !== null) {
    list.push(`${compared.kind === "free" ? "comes within the threshold" : "leaves the lock"} ${threshold}`);
  }
  if (compared.toSlip !== null) {
    list.push(`slips a whole field ${countdown(compared, compared.toSlip, compared.toSlipError)}`);
  }
  return list;
}

function motion(compared) {
  const isStill = compared.drift === null || Math.abs(compared.drift) < 3 * (compared.driftError ?? 0);
  const where = motionWords[compared.kind];
  return isStill
    ? `${where} and does not drift`
    : [where, `drifts ${format.ppb(compared.drift)}`, ...ends(compared)].join(", ");
}

function since(stream, nowMs) {
  return `${format.since(stream.sinceMs, nowMs)}, for ${format.longAge((nowMs - stream.sinceMs) / 1000)}`;
}

// "is in step, drifts +1.2 ppb, leaves the lock in 3 h 12 min"
export function movement(stream, compared, nowMs) {
  switch (compared.kind) {
    case "lost":
      return `has had no signal ${since(stream, nowMs)}`;
    case "gone":
      return `is gone ${since(stream, nowMs)}: the device does not answer any more`;
    case "idle":
      return "is idle";
    case "reference":
      return "is what the others are compared with";
    case "running":
      return stream.lock === "different" ? "runs at a rate that does not compare" : "runs";
    default:
      return motion(compared);
  }
}

// "drops one picture every 12 min; the next in about 3 min": what a pair across directions does to pictures that go from
// its input to its output; null where nothing slips.
export function forecast({ slip, drift }, nowMs) {
  if (!slip || !drift) {
    return null;
  }
  const next = (Date.parse(slip.next_utc) - nowMs) / 1000;
  const does = drift.ratio > 0 ? "drops" : "repeats";
  return `${does} one picture ${format.period(slip.every_seconds, slip.every_stderr)}; the next ${format.countdown(Math.max(0, next), slip.next_stderr_seconds)}`;
}

const nearness = ["locked", "passing", "free"];

// The pair with a stream of the other direction that says most: one of a path that was told, otherwise the one that is
// nearest to being in step.
export function nearestAcross(id, json) {
  const isOf = ({ first, second }) => first === id || second === id;
  const mine = (json?.across?.pairs ?? []).filter((pair) => isOf(pair) && nearness.includes(pair.lock));
  const path = (json?.paths ?? []).find(({ input, output }) => input === id || output === id) ?? null;
  const told = mine.find(({ first, second }) => first === path?.input && second === path?.output);
  const rank = (pair) => nearness.indexOf(pair.lock) + Math.min(0.9, Math.abs(pair.offset?.seconds ?? 0.9));
  const nearest = mine.reduce((best, pair) => (best === null || rank(pair) < rank(best) ? pair : best), null);
  return { pair: told ?? nearest, path };
}

const span = (seconds) => format.span(seconds, false);

// A stream against the other direction in sentences; empty where nothing compares.
export function acrossText(id, json, nowMs) {
  const { pair, path } = nearestAcross(id, json);
  const sentences = [];
  if (pair) {
    const other = pair.first === id ? pair.second : pair.first;
    const slips = forecast(pair, nowMs);
    const still = pair.lock === "locked" ? "is in step" : "is where it was, and does not drift";
    sentences.push(`Against ${other} it ${slips ?? still}.`);
  }
  if (path?.delay) {
    const [least, most] = [path.delay.least_seconds, path.delay.most_seconds].map(span);
    const delay = least === most ? least : `${least} to ${most}`;
    sentences.push(
      `From ${path.input} to ${path.output} a picture takes ${delay}, without the time that the application takes.`,
    );
  }
  return sentences.join(" ");
}
