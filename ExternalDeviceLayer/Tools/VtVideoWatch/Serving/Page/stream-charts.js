// Phase and rate of a stream over time, with what happened meanwhile.
import { addressOf } from "./address.js";
import { CApiError, poll } from "./api.js";
import { makeChart } from "./chart.js";
import { element, setAttribute, setText } from "./dom.js";
import * as format from "./format.js";
import { fetchSpan, rowsOf, spanOf, stepOf } from "./history.js";
import { goToSpan, makeSpanButtons } from "./span-buttons.js";
import { eventText } from "./words.js";

const phaseUnit = (value) => format.span(value);
const ppmUnit = (value) => `${format.fixed(value, Math.abs(value) < 1 ? 4 : 2)} ppm`;

// "2026-11-22 06:20:01 UTC: +3.00 µs ± 12 ns; Fields lost: 3 fields"
function readingText(reading, unit) {
  if (reading === null) {
    return "";
  }
  const { ms, value, error, marks } = reading;
  const doubt = error ? ` ± ${unit(error).replace("+", "")}` : "";
  const figure = value === null ? "nothing known" : `${unit(value)}${doubt}`;
  return [`${format.utcDateTime(ms)} UTC: ${figure}`, ...marks.map((mark) => mark.text)].join("; ");
}

// The error of a point; that of a minute covers its extremes too.
function phaseErrorOf(points, step) {
  return (i) =>
    step === 1
      ? points.phase_stderr[i]
      : Math.max(points.phase_max[i] - points.phase[i], points.phase[i] - points.phase_min[i], points.phase_stderr[i]);
}

function makePair(places, reading) {
  const make = (place, label, unit) =>
    makeChart(place, { label, unit, onReading: (at) => setText(reading, readingText(at, unit)), onZoom: goToSpan });
  const phase = make(places.phase, "phase", phaseUnit);
  const rate = make(places.rate, "rate", ppmUnit);
  return {
    show({ points, step, marks }, { from, to }, nominal) {
      const toPpm = (hertz) => (hertz === null || !nominal ? null : (hertz / nominal - 1) * 1e6);
      const rateError = (i) => (nominal ? (points.rate_stderr[i] / nominal) * 1e6 : 0);
      phase.show(
        rowsOf(points, (i) => points.phase[i], phaseErrorOf(points, step), step),
        from,
        to,
        marks,
      );
      rate.show(
        rowsOf(points, (i) => toPpm(points.rate[i]), rateError, step),
        from,
        to,
        marks,
      );
    },
    close() {
      phase.close();
      rate.close();
    },
  };
}

// What stands above the charts when there is nothing to draw, and why.
function emptyText(stream, points, nowMs) {
  if (points.t.length === 0) {
    return "Nothing is known of this span.";
  }
  const isDark = points.rate.every((rate) => rate === null);
  if (!isDark) {
    return "";
  }
  const isSince = stream.state !== "running";
  return isSince ? `Nothing has come ${format.since(stream.sinceMs, nowMs)}.` : "Nothing came in this span.";
}

const mostEvents = 12;

function showEvents(list, events) {
  const shown = events
    .slice(0, mostEvents)
    .map((event) => element("li", {}, `${format.utcTime(Date.parse(event.utc), true)} ${eventText(event)}`));
  list.replaceChildren(...(shown.length > 0 ? shown : [element("li", { class: "quiet" }, "none")]));
}

function makeParts(spanButtons) {
  const parts = {
    phase: element("div"),
    rate: element("div"),
    phaseTitle: element("h3"),
    reading: element("p", { class: "reading" }),
    problem: element("p", { class: "problem", role: "status" }),
    before: element("a", { "data-state": "", hidden: true }, "Show the moment that it happened"),
    events: element("ul", { class: "groups" }),
    allEvents: element("a", { "data-state": "" }, "All its events"),
  };
  const charts = element(
    "section",
    { class: "panel", "aria-label": "Over time" },
    spanButtons,
    element("p", { class: "notice" }, parts.problem, parts.before),
    parts.phaseTitle,
    element("div", { class: "chart" }, parts.phase),
    element("h3", {}, "Rate, deviation from the nominal one"),
    element("div", { class: "chart low" }, parts.rate),
    parts.reading,
  );
  const happened = element(
    "section",
    { class: "panel" },
    element("h3", {}, "Events in this span"),
    parts.events,
    parts.allEvents,
  );
  return { ...parts, root: element("div", {}, charts, happened) };
}

const aroundMs = 300000;

export class CStreamCharts {
  #id;
  #context = null; // the last one shown
  #span = null;
  #data = null;
  #graphs = null;
  #poller = null;
  #buttons = makeSpanButtons(() => this.#span);
  #parts = makeParts(this.#buttons.root);

  constructor(id) {
    this.#id = id;
    this.root = this.#parts.root;
  }

  show(context) {
    const before = this.#context?.state;
    this.#context = context;
    this.#buttons.show(context.state);
    setAttribute(this.#parts.allEvents, "href", addressOf("events", { stream: this.#id }));
    if (this.#poller === null) {
      this.#poller = poll(
        () => this.#everyMs(),
        (signal) => this.#fetchAndDraw(signal),
      );
    } else if (["span", "from", "to"].some((key) => before[key] !== context.state[key])) {
      this.#poller.again();
    }
  }

  close() {
    this.#poller?.stop();
    this.#graphs?.close();
  }

  #everyMs() {
    if (this.#span?.isLive === false) {
      return Infinity;
    }
    return this.#span && stepOf(this.#span) === 60 ? 30000 : 1000;
  }

  async #fetchAndDraw(signal) {
    const { model, state } = this.#context;
    const isUnreached = state.span === "all" && !state.from && this.#data === null;
    this.#span = spanOf(state, model.ms, this.#data?.reach);
    try {
      this.#data = await fetchSpan(this.#id, this.#span, signal);
      if (isUnreached) {
        this.#span = spanOf(state, model.ms, this.#data.reach); // only now is known how far back "all" goes
        this.#data = await fetchSpan(this.#id, this.#span, signal);
      }
      this.#draw();
    } catch (error) {
      if (!signal.aborted) {
        setText(this.#parts.problem, error instanceof CApiError ? error.message : "The watch does not answer.");
      }
    }
  }

  #draw() {
    const stream = this.#context.find(this.#id);
    const parts = this.#parts;
    this.#graphs ??= makePair(parts, parts.reading);
    this.#graphs.show(this.#data, this.#span, stream.nominal);
    const isKnown = this.#data.points.phase.some((phase) => phase !== null);
    setText(parts.phaseTitle, `Phase against the reference${isKnown ? "" : ": not known in this span"}`);
    const problem = emptyText(stream, this.#data.points, this.#context.model.ms);
    setText(parts.problem, problem);
    parts.before.hidden = problem === "" || stream.state === "running";
    const at = (shift) => new Date(stream.sinceMs + shift).toISOString();
    setAttribute(
      parts.before,
      "href",
      addressOf("stream", { stream: this.#id, from: at(-aroundMs), to: at(aroundMs) }),
    );
    showEvents(parts.events, this.#data.events);
  }
}
