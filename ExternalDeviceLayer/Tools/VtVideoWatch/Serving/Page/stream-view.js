// One stream, opened: what it does in words, its phase and rate over time, its intervals, its facts.
import { addressWith, goTo } from "./address.js";
import { askStreams, CApiError } from "./api.js";
import { drawBars, makeChart } from "./chart.js";
import { element, setAttribute, setText, shape, setShape } from "./dom.js";
import * as format from "./format.js";
import { fetchSpan, fullResolutionSeconds, rowsOf, spanOf } from "./history.js";
import { kinds } from "./model.js";
import { eventDetail, eventWord, movement } from "./words.js";

const spans = [
  ["600", "10 min"],
  ["3600", "1 h"],
  ["21600", "6 h"],
  ["86400", "1 d"],
  ["604800", "7 d"],
  ["all", "All"],
];

const iso = (ms) => new Date(Math.round(ms)).toISOString();

// Buttons of the span, and zooming and moving by key for whoever has no pointer.
function makeSpanButtons(current) {
  const change = (centre, factor, shift) => () => {
    const { from, to } = current();
    const half = ((to - from) / 2) * factor;
    const middle = (from + to) / 2 + shift * (to - from);
    goTo({ from: iso(middle - half), to: iso(middle + half) });
  };
  const buttons = spans.map(([value, text]) =>
    element("button", { type: "button", "data-span": value, onclick: () => goTo({ span: value, from: "", to: "" }) }, text),
  );
  const more = [
    ["Zoom in", "+", change(0, 0.5, 0)],
    ["Zoom out", "−", change(0, 2, 0)],
    ["Earlier", "◂", change(0, 1, -0.5)],
    ["Later", "▸", change(0, 1, 0.5)],
  ].map(([label, text, act]) => element("button", { type: "button", "aria-label": label, title: label, onclick: act }, text));
  return element("div", { class: "spans", role: "group", "aria-label": "Span of time" }, ...buttons, ...more);
}

function makeFacts() {
  const list = element("dl", { class: "facts" });
  return {
    list,
    show(facts) {
      const known = facts.filter(([, value]) => value !== null && value !== undefined && value !== "");
      if (list.children.length !== known.length * 2) {
        list.replaceChildren(...known.flatMap(() => [element("dt"), element("dd")]));
      }
      known.forEach(([name, value], i) => {
        setText(list.children[2 * i], name);
        setText(list.children[2 * i + 1], value);
      });
    },
  };
}

const withError = (text, error) => (error ? `${text} ± ${error}` : text);
const ppmText = (rate) => (rate.hz === null ? null : withError(format.ppm(rate.ppm, rate.stderr_ppm), rate.stderr_ppm === null ? "" : rate.stderr_ppm.toPrecision(2)));

function measuredFacts(json, stream, compared) {
  const counters = json.counters;
  return [
    ...json.rates.map((rate) => [`Rate over ${rate.window}`, rate.hz === null ? null : `${rate.hz.toFixed(6)} Hz`]),
    ...json.rates.map((rate) => [`over ${rate.window}`, ppmText(rate)]),
    ["Phase", compared.phase ? withError(format.span(compared.phase.seconds), compared.phase.error ? format.span(compared.phase.error, false) : "") : null],
    ["Drift", stream.drift === null ? null : withError(format.ppb(stream.drift), stream.driftError ? format.ppb(stream.driftError).replace("+", "") : "")],
    ["Jitter, RMS", json.jitter.peak_seconds ? format.span(json.jitter.rms_seconds, false) : null],
    ["Jitter, peak to peak", json.jitter.peak_seconds ? format.span(json.jitter.peak_seconds, false) : null],
    ...json.tdev.map((tdev) => [`TDEV, ${tdev.tau_seconds} s`, tdev.seconds === null ? null : format.span(tdev.seconds, false)]),
    ["Phase against TAI", json.tai ? `${format.span(json.tai.seconds)} ± ${format.span(json.tai.uncertainty, false)}` : null],
    ["Fields seen", format.count(counters.fields_observed)],
    ["Fields lost", format.count(counters.fields_lost)],
    ["Not seen (watcher late)", format.count(counters.fields_unobserved)],
    ["Signal losses", `${format.count(counters.signal_losses)}, ${format.duration(counters.signal_lost_seconds)} in all`],
    ["Early, late fields", `${format.count(counters.fields_early)}, ${format.count(counters.fields_late)}`],
    ["Counter repeated, went back", `${format.count(counters.fields_repeated)}, ${format.count(counters.counter_backward)}`],
    ["Phase steps", format.count(counters.phase_steps)],
    ["Changes of timing, format, state", [counters.timing_changes, counters.format_changes, counters.state_changes].map(format.count).join(", ")],
    ...(json.direction === "input"
      ? [["Buffers skipped", format.count(counters.buffers_skipped)]]
      : [["Buffers set", format.count(counters.buffers_set)], ["Buffers shown again", format.count(counters.buffers_repeated)], ["Buffers overwritten", format.count(counters.buffers_overwritten)]]),
    ["Ran", `${format.duration(counters.running_seconds)} of ${format.duration(counters.watched_seconds)} watched`],
  ];
}

function signalFacts(json) {
  const nominal = json.nominal;
  return [
    ["Name", json.name],
    ["Signal", json.standard],
    ["Nominal rate", nominal ? `${nominal.numerator}${nominal.denominator === 1 ? "" : `/${nominal.denominator}`} Hz` : "not known"],
    ["Line", json.line_seconds ? format.span(json.line_seconds, false) : null],
    ["Buffers", json.format],
    [json.direction === "input" ? "Capture" : "Power", json.setup.replaceAll("_", " ")],
    ["Since", `${format.utcDateTime(Date.parse(json.since))} UTC`],
  ];
}

function makePanel(title, ...children) {
  return element("section", { class: "panel" }, element("h3", {}, title), ...children);
}

export function makeStreamView(id) {
  const mark = shape("idle");
  const word = element("strong");
  const title = element("h2", {}, id);
  const name = element("span", { class: "quiet" });
  const sentence = element("p", { class: "sentence" });
  const back = element("a", { "data-state": "" }, "← All streams");
  const allEvents = element("a", { "data-state": "" }, "All its events");
  const head = element("div", { class: "panel stream-head" }, title, name, element("span", {}, mark, " ", word), back, sentence);
  let span = null;
  let data = null;
  const spanButtons = makeSpanButtons(() => span);
  const places = { phase: element("div"), rate: element("div") };
  const phaseTitle = element("h3", {}, "Phase against the reference");
  const reading = element("p", { class: "reading" });
  const problem = element("p", { class: "lost", role: "status" });
  const bars = document.createElementNS("http://www.w3.org/2000/svg", "svg");
  bars.setAttribute("class", "bars");
  bars.setAttribute("role", "img");
  const barsAxis = ["", "period", ""].map((text) => element("span", {}, text));
  const barsText = element("p", { class: "reading" });
  const facts = { signal: makeFacts(), measured: makeFacts() };
  const eventList = element("ul", { class: "groups" });
  const charts = element(
    "div",
    {},
    element("section", { class: "panel", "aria-label": "Over time" }, spanButtons, problem,
      phaseTitle, element("div", { class: "chart", id: "phase-chart" }, places.phase),
      element("h3", {}, "Rate, deviation from the nominal one"), element("div", { class: "chart low", id: "rate-chart" }, places.rate), reading),
    makePanel("Events in this span", eventList, allEvents),
  );
  const side = element("div", {}, makePanel("Signal", facts.signal.list), makePanel("Intervals over the last 10 s", bars, element("div", { class: "bars-axis" }, ...barsAxis), barsText), makePanel("Measured", facts.measured.list));
  const root = element("div", { class: "stream-view" }, head, charts, side);
  let graphs = null;
  let state = null;
  let asked = 0;
  let request = null;

  const onReading = (unit) => (ms, value) => setText(reading, ms === null || value === null ? "" : `${format.utcDateTime(ms)} UTC: ${unit(value)}`);
  const onZoom = (from, to) => goTo({ from: iso(from), to: iso(to) });

  function makeGraphs() {
    const phaseUnit = (value) => format.span(value);
    const rateUnit = (value) => `${value.toFixed(Math.abs(value) < 1 ? 4 : 2)} ppm`;
    graphs = {
      phase: makeChart(places.phase, { label: "phase", unit: phaseUnit, onReading: onReading(phaseUnit), onZoom }),
      rate: makeChart(places.rate, { label: "rate", unit: rateUnit, onReading: onReading(rateUnit), onZoom }),
    };
    root.charts = graphs;
  }

  function drawCharts(nominal) {
    const { points, step, marks } = data;
    const phaseError = (i) => (step === 1 ? points.phase_stderr[i] : Math.max(points.phase_max[i] - points.phase[i], points.phase[i] - points.phase_min[i], points.phase_stderr[i]));
    const toPpm = (hertz) => (hertz === null || !nominal ? null : (hertz / nominal - 1) * 1e6);
    graphs.phase.show(rowsOf(points, (i) => points.phase[i], phaseError, step), span.from, span.to, marks);
    graphs.rate.show(rowsOf(points, (i) => toPpm(points.rate[i]), (i) => (nominal ? (points.rate_stderr[i] / nominal) * 1e6 : 0), step), span.from, span.to, marks);
    const isKnown = points.phase.some((phase) => phase !== null);
    setText(phaseTitle, isKnown ? "Phase against the reference" : "Phase against the reference: not known in this span");
    const shown = data.events.slice(0, 12).map((event) =>
      element("li", {}, `${format.utcTime(Date.parse(event.utc), true)} ${[eventWord(event.kind), eventDetail(event)].filter(Boolean).join(": ")}`),
    );
    eventList.replaceChildren(...(shown.length > 0 ? shown : [element("li", { class: "quiet" }, "none")]));
  }

  async function fetchAll(stream, nowMs) {
    request?.abort();
    request = new AbortController();
    span = spanOf(state, nowMs, data?.reach);
    const { signal } = request;
    try {
      const fetched = await fetchSpan(id, span, signal);
      if (signal.aborted) return;
      const isFirst = data === null;
      data = fetched;
      setText(problem, data.points.t.length === 0 ? "Nothing is known of this span." : "");
      if (isFirst && state.span === "all" && !state.from) span = spanOf(state, nowMs, data.reach);
      if (!graphs) makeGraphs();
      drawCharts(stream.nominal);
      if (isFirst && state.span === "all" && !state.from) asked = 0;
    } catch (error) {
      if (error.name !== "AbortError") setText(problem, error instanceof CApiError ? error.message : "The watch does not answer.");
    }
  }

  async function fetchFacts(stream, compared) {
    const json = await askStreams().catch(() => null);
    const found = json?.directions[stream.direction].streams.find((one) => one.id === id);
    if (!found) return;
    facts.signal.show(signalFacts(found));
    facts.measured.show(measuredFacts(found, stream, compared));
    const { bin_seconds: bin, counts } = found.intervals;
    const reach = format.span((bin * counts.length) / 2, false);
    drawBars(bars, counts);
    setText(barsAxis[0], `−${reach}`);
    setText(barsAxis[2], `+${reach}`);
    const total = counts.reduce((sum, one) => sum + one, 0);
    const inside = counts[(counts.length - 1) / 2];
    bars.setAttribute("aria-label", `Histogram of ${total} field intervals around the period`);
    setText(barsText, total ? `${total} intervals, ${((100 * inside) / total).toFixed(1)} % within ± ${format.span(bin / 2, false)}` : "no fields");
  }

  return {
    root,
    show(context) {
      const { model, compared } = context;
      const stream = context.find(id);
      const isChanged = state === null || state.span !== context.state.span || state.from !== context.state.from || state.to !== context.state.to;
      state = context.state;
      setAttribute(back, "href", addressWith({ view: "overview", stream: "", span: "600", from: "", to: "" }));
      setAttribute(allEvents, "href", addressWith({ view: "events", span: "600", from: "", to: "" }));
      if (!stream) {
        root.replaceChildren(element("p", { class: "message" }, `There is no stream ${id} on this board.`));
        return;
      }
      const one = compared.get(stream);
      setShape(mark, one.kind);
      setText(word, kinds[one.kind].word);
      setAttribute(word, "class", one.kind);
      setText(name, stream.name);
      setText(sentence, `${id} ${movement(stream, one)}.`);
      for (const button of spanButtons.querySelectorAll("[data-span]")) {
        setAttribute(button, "aria-pressed", String(!state.from && button.dataset.span === state.span));
      }
      const wantedMs = isChanged ? 0 : span?.isLive === false ? Infinity : stepIsFine() ? 1000 : 30000;
      if (Date.now() - asked >= wantedMs) {
        asked = Date.now();
        fetchAll(stream, model.ms);
      }
      if (context.isNewSnapshot && model.number % 2 === 0) fetchFacts(stream, one);
      else if (facts.signal.list.children.length === 0) fetchFacts(stream, one);
    },
    close() {
      request?.abort();
      graphs?.phase.close();
      graphs?.rate.close();
    },
  };

  function stepIsFine() {
    return !data || (span && span.to - span.from <= (fullResolutionSeconds + 5) * 1000);
  }
}
