// The buffers of an input: how many are ready and how many are loaned, now and over the last minutes.
import { element, setText } from "./dom.js";
import * as format from "./format.js";
import { drawTrace } from "./sparkline.js";
import { traceOf } from "./traces.js";

// "ready 1.4 (1 to 3), loaned 2 of 8; a picture waits 56 ms"
function queueText(queue) {
  const [newest] = queue.windows;
  if (!newest?.ready) {
    return "no buffers are known of";
  }
  const level = ({ mean, least, most }) => `${format.fixed(mean, 1)} (${least} to ${most})`;
  const total = queue.total === null ? "" : ` of ${queue.total}`;
  const held = queue.held_seconds === null ? "" : `; a picture waits ${format.duration(queue.held_seconds)}`;
  return `ready ${level(newest.ready)}, loaned ${level(newest.loaned)}${total}${held}`;
}

// The same over longer times, a line each: "10 s: ready 1.4 (1 to 3), loaned 2.0 (2 to 2), free 4.6 (3 to 5)"
export function queueFacts({ queue }) {
  const level = (name, { mean, least, most }) => `${name} ${format.fixed(mean, 1)} (${least} to ${most})`;
  return (queue?.windows ?? [])
    .filter(({ ready }) => ready)
    .map(({ seconds, ready, loaned, internal }) => [
      `Buffers over ${format.duration(seconds)}`,
      [level("ready", ready), level("loaned", loaned), level("free", internal)].join(", "),
    ]);
}

// A cell per buffer: loaned ones, ready ones, free ones.
function showCells(gauge, { total, windows: [newest] }) {
  const loaned = Math.round(newest?.loaned?.mean ?? 0);
  const ready = Math.round(newest?.ready?.mean ?? 0);
  const count = Math.max(total ?? 0, loaned + ready);
  const classOf = (i) => (i < loaned ? "loaned" : i < loaned + ready ? "ready" : "free");
  const cells = Array.from({ length: count }, (_, i) => element("span", { class: classOf(i) }));
  gauge.replaceChildren(...cells);
}

export function makeQueueGauge(id) {
  const gauge = element("div", { class: "gauge", role: "img" });
  const text = element("p", { class: "reading" });
  const canvas = element("canvas", { "aria-hidden": "true", class: "gauge-trace" });
  const stalled = element("p", { class: "lost", role: "status" });
  const root = element(
    "section",
    { class: "panel", hidden: true },
    element("h3", {}, "Buffers"),
    gauge,
    text,
    canvas,
    stalled,
  );
  return {
    root,
    show({ queue }) {
      root.hidden = !queue;
      if (!queue) {
        return;
      }
      showCells(gauge, queue);
      setText(text, queueText(queue));
      gauge.setAttribute("aria-label", `Buffers of ${id}: ${queueText(queue)}`);
      const since = queue.consumer_stalled_since;
      setText(stalled, since ? `Nobody takes the pictures since ${format.utcDateTime(Date.parse(since))} UTC.` : "");
      const trace = traceOf("ready", id);
      if (trace) {
        drawTrace(canvas, trace, getComputedStyle(text).color, queue.total ?? 1, Infinity);
      }
    },
  };
}
