// Every single field of a stream, of the last seconds or of a recording that is kept: a point each, and what is missing
// as gaps, filled where fields were lost and hollow where nobody looked.
import { askFields, askRecordings, CApiError } from "./api.js";
import { makeChart } from "./chart.js";
import { element, setText } from "./dom.js";
import * as format from "./format.js";

const lastSeconds = 20;
const unit = (value) => format.span(value);
const gapWords = { lost: "lost", unobserved: "not looked for", no_signal: "without a signal" };

function markOf(gap) {
  const fields = gap.fields === 1 ? "1 field" : `${gap.fields} fields`;
  return {
    kind: gap.kind === "unobserved" ? "passing" : "lost",
    isHollow: gap.kind === "unobserved",
    fromMs: gap.from,
    toMs: gap.to,
    text: `${fields} ${gapWords[gap.kind]}`,
  };
}

function readingText(reading) {
  if (reading === null) {
    return "";
  }
  const { ms, value, marks } = reading;
  const off = value === null ? [] : [`${unit(value)} off`];
  return [`${format.utcDateTime(ms)} UTC`, ...off, ...marks.map((mark) => mark.text)].join("; ");
}

function summaryText(json) {
  const count = (kind) => json.gaps.filter((gap) => gap.kind === kind).reduce((fields, gap) => fields + gap.fields, 0);
  const missing = Object.keys(gapWords)
    .filter((kind) => count(kind) > 0)
    .map((kind) => `${count(kind)} ${gapWords[kind]}`);
  return [`${json.t.length} fields`, ...missing].join(", ");
}

// The chart, made when there is something to draw.
function makePoints() {
  const said = element("p", { class: "notice", role: "status" });
  const reading = element("p", { class: "reading" });
  const place = element("div");
  const chartPlace = element("div", { class: "chart low", hidden: true }, place);
  const onReading = (at) => setText(reading, readingText(at));
  let chart = null;
  return {
    parts: [said, chartPlace, reading],
    say: (text) => setText(said, text),
    show(json) {
      chartPlace.hidden = json.t.length === 0;
      setText(said, summaryText(json));
      if (json.t.length > 0) {
        chart ??= makeChart(place, { label: "fields", unit, onReading, onZoom: () => {}, isPoints: true });
        const rows = json.t.map((ms, i) => [new Date(ms), [json.off[i], 0]]);
        chart.show(rows, json.t[0], json.t.at(-1), json.gaps.map(markOf));
      }
    },
    close: () => chart?.close(),
  };
}

// Hidden where the watch keeps no recordings.
export function makeFieldsPanel(id) {
  const end = new AbortController();
  const points = makePoints();
  const choice = element("select", { id: "recording" });
  const show = async () => {
    points.say("Reading …");
    const query = choice.value ? { stream: id, recording: choice.value } : { stream: id, seconds: lastSeconds };
    try {
      points.show(await askFields(query, end.signal));
    } catch (error) {
      points.say(error instanceof CApiError ? error.message : "The watch does not answer.");
    }
  };
  const root = element(
    "section",
    { class: "panel fields", hidden: true },
    element("h3", {}, "Field by field, off an even spacing"),
    element("p", {}, element("label", {}, "Of ", choice), " ", element("button", { onclick: show }, "Show")),
    ...points.parts,
  );
  const offer = ({ are_kept: areKept, recordings }) => {
    const options = recordings.map(({ name }) => element("option", { value: name }, name));
    choice.replaceChildren(element("option", { value: "" }, `the last ${lastSeconds} seconds`), ...options);
    root.hidden = !areKept;
  };
  askRecordings(end.signal).then(offer, () => {});
  return {
    root,
    close() {
      end.abort();
      points.close();
    },
  };
}
