// The points and marks behind a stream's charts, for a span of time; seconds where the watch still has them, minutes
// beyond.
import { askEvents, askHistory } from "./api.js";
import { eventClass, eventText, eventWord } from "./words.js";
import { toMs } from "./model.js";

const fullResolutionSeconds = 600;
const mostPoints = 4000;

// The span that the address means, at a moment.
export function spanOf(state, nowMs, reach) {
  if (state.from && state.to) {
    const from = toMs(state.from);
    const to = toMs(state.to);
    if (from < to) {
      return { from, to, isLive: false };
    }
  }
  if (state.span === "all") {
    const from = reach?.minutes_from ?? reach?.seconds_from ?? nowMs - fullResolutionSeconds * 1000;
    return { from: Math.min(from, nowMs - 60000), to: nowMs, isLive: true };
  }
  const seconds = Number(state.span) > 0 ? Number(state.span) : fullResolutionSeconds;
  return { from: nowMs - seconds * 1000, to: nowMs, isLive: true };
}

export function stepOf(span) {
  return span.to - span.from <= (fullResolutionSeconds + 5) * 1000 ? 1 : 60;
}

const fields = "seconds,lost,unobserved,rate,phase,phase_min,phase_max,jitter,state";

// { points: {t, rate, ...}, marks, reach, step }; asks for minutes where no seconds are left.
export async function fetchSpan(id, span, signal) {
  const query = { stream: id, from: Math.floor(span.from), to: Math.ceil(span.to) + 1000, fields, limit: mostPoints };
  let step = stepOf(span);
  let points = await askHistory({ ...query, step }, signal);
  if (step === 1 && points.t.length === 0) {
    step = 60;
    points = await askHistory({ ...query, step }, signal);
  }
  const events = await askEvents({ stream: id, from: query.from, to: query.to, limit: 500 }, signal);
  return { points, step, reach: points.reach, events: events.events, marks: marksOf(events.events, query.to) };
}

const markKinds = ["lost", "gone", "free", "passing", "idle"];

// Newest first in, oldest first out: what lasted is drawn from its begin to its end, or to the end of what is shown.
function marksOf(events, endMs) {
  const marks = [];
  let open = null;
  for (const event of [...events].reverse()) {
    const kind = eventClass(event);
    const fromMs = toMs(event.utc);
    if (event.kind === "signal_lost") {
      open = { kind, fromMs, toMs: endMs, text: eventText(event) };
      marks.push(open);
    } else if (event.kind === "signal_back") {
      open ??= addedTo(marks, { kind: "lost", fromMs: fromMs - event.seconds * 1000, text: eventWord("signal_lost") });
      open.toMs = fromMs;
      open = null;
    } else if (markKinds.includes(kind)) {
      marks.push({ kind, fromMs, text: eventText(event) });
    }
  }
  return marks;
}

function addedTo(marks, mark) {
  marks.push(mark);
  return mark;
}

// Rows for a chart: [Date, [value, error]]. Where nothing is known, and where points are further apart than they
// should be, the line is broken.
export function rowsOf(points, value, error, step) {
  const rows = [];
  let before = null;
  points.t.forEach((moment, i) => {
    if (before !== null && moment - before > 2.5 * step * 1000) {
      rows.push([new Date(before + 1), [null, null]]);
    }
    before = moment;
    const shown = value(i);
    rows.push([new Date(moment), shown === null ? [null, null] : [shown, error(i) ?? 0]]);
  });
  return rows;
}
