// Every figure that the API has of a stream, as a list of names and values.
import { element, setText } from "./dom.js";
import * as format from "./format.js";
import { queueFacts } from "./queue-gauge.js";

const withError = (text, error) => (error ? `${text} ± ${error}` : text);

function ppmText(rate) {
  return rate.hz === null ? null : withError(format.ppm(rate.ppm, rate.stderr_ppm), rate.stderr_ppm?.toPrecision(2));
}

const spanText = (seconds) => (seconds ? format.span(seconds, false) : null);

const sinceText = (utc) => (utc ? `${format.utcDateTime(Date.parse(utc))} UTC` : null);

function phaseFacts(json, compared) {
  const { phase, drift, driftError } = compared;
  return [
    ["Phase", phase && withError(format.span(phase.seconds), spanText(phase.error))],
    ["Drift", drift === null ? null : withError(format.ppb(drift), driftError && format.ppbError(driftError))],
    ["Jitter, RMS", json.jitter.peak_seconds ? spanText(json.jitter.rms_seconds) : null],
    ["Jitter, peak to peak", spanText(json.jitter.peak_seconds)],
    ...json.tdev.map((tdev) => [`TDEV, ${tdev.tau_seconds} s`, spanText(tdev.seconds)]),
    ["Phase against TAI", json.tai && `${format.span(json.tai.seconds)} ± ${format.span(json.tai.uncertainty, false)}`],
  ];
}

function fieldFacts(counters) {
  const changes = [counters.timing_changes, counters.format_changes, counters.state_changes];
  return [
    ["Fields seen", format.count(counters.fields_observed)],
    ["Fields lost", format.count(counters.fields_lost)],
    ["Not seen (watcher late)", format.count(counters.fields_unobserved)],
    [
      "Signal losses",
      `${format.count(counters.signal_losses)}, ${format.duration(counters.signal_lost_seconds)} in all`,
    ],
    ["Early, late fields", `${format.count(counters.fields_early)}, ${format.count(counters.fields_late)}`],
    [
      "Counter repeated, went back, ahead",
      [counters.fields_repeated, counters.counter_backward, counters.counter_forward].map(format.count).join(", "),
    ],
    ["Phase steps", format.count(counters.phase_steps)],
    ["Changes of timing, format, state", changes.map(format.count).join(", ")],
    ["Ran", `${format.duration(counters.running_seconds)} of ${format.duration(counters.watched_seconds)} watched`],
  ];
}

function bufferFacts(direction, counters) {
  return direction === "input"
    ? [["Buffers skipped", format.count(counters.buffers_skipped)]]
    : [
        ["Buffers set", format.count(counters.buffers_set)],
        ["Buffers shown again", format.count(counters.buffers_repeated)],
        ["Buffers overwritten", format.count(counters.buffers_overwritten)],
      ];
}

// How far fields are off their grid, since the watch began.
export function pacingFacts({ pacing }) {
  if (!pacing?.fields) {
    return [["Fields", "none"]];
  }
  return [
    ["50 % within", format.span(pacing.p50_seconds, false)],
    ["95 % within", format.span(pacing.p95_seconds, false)],
    ["99 % within", format.span(pacing.p99_seconds, false)],
    ["99.9 % within", format.span(pacing.p999_seconds, false)],
    ["The worst field", format.span(pacing.worst_seconds)],
    ["which came at", sinceText(pacing.worst_utc)],
  ];
}

const causeWords = {
  outside_wait: "the watch was busy otherwise",
  no_processor: "no processor was free",
  machine: "the machine stood still",
  neighbour: "another stream held it up",
};

function causeFacts(causes) {
  return Object.entries(causes ?? {})
    .filter(([, count]) => count > 0)
    .map(([cause, count]) => [`Not seen: ${causeWords[cause] ?? cause}`, format.count(count)]);
}

// What an output is fed, and whether the fields of an interlaced signal come in their order.
function feedFacts(json) {
  const { feed, field_order: order } = json;
  return [
    ["Cadence", feed && (feed.cadence ? `${feed.cadence}, since ${sinceText(feed.cadence_since)}` : "none")],
    ["Stalled since", sinceText(feed?.stalled_since)],
    ["Stalls, changes of cadence", feed && `${format.count(feed.stalls)}, ${format.count(feed.cadence_changes)}`],
    ["Repeated beyond the cadence", feed && format.count(feed.repeated_beyond_cadence)],
    ["Buffers set are", feed?.estimated && "an estimate of the board's"],
    ["Fields swapped since", sinceText(order?.swapped_since)],
  ];
}

// What is measured: json from the API, and what compare() says.
export function measuredFacts(json, compared) {
  return [
    ...json.rates.map((rate) => [
      `Rate over ${rate.window}`,
      rate.hz === null ? null : `${format.fixed(rate.hz, 6)} Hz`,
    ]),
    ...json.rates.map((rate) => [`Deviation over ${rate.window}`, ppmText(rate)]),
    ...phaseFacts(json, compared),
    ...fieldFacts(json.counters),
    ...causeFacts(json.unobserved_causes),
    ...bufferFacts(json.direction, json.counters),
    ...queueFacts(json),
    ...feedFacts(json),
  ];
}

// What it carries.
export function signalFacts(json) {
  const { nominal } = json;
  const over = nominal?.denominator === 1 ? "" : `/${nominal?.denominator}`;
  return [
    ["Name", json.name],
    ["Signal", json.standard],
    ["Nominal rate", nominal ? `${nominal.numerator}${over} Hz` : "not known"],
    ["Line", spanText(json.line_seconds)],
    ["Pixel format", json.format],
    [json.direction === "input" ? "Capture" : "Power", json.setup.replaceAll("_", " ")],
    ["Since", `${format.utcDateTime(Date.parse(json.since))} UTC`],
  ];
}

// A list that keeps its elements, so that what does not change is not read aloud again.
export function makeFacts() {
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
