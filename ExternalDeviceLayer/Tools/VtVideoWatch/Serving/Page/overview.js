// A strip per stream: everything at first sight, worst first or in the board's order.
import { addressOf, goTo } from "./address.js";
import { element, setAttribute, setShape, setText, shape } from "./dom.js";
import * as format from "./format.js";
import { chipVerdictOf, lastWord, strip as stripOf } from "./health.js";
import { directions, directionTitles, streamsOfChip } from "./model.js";
import { makeOrder } from "./order.js";
import { drawTrace } from "./sparkline.js";
import { traceOf } from "./traces.js";
import { showVerdict } from "./verdict.js";

const columns = [
  ["state", "State"],
  ["stream", "Stream"],
  ["rate number", "Rate, Hz", "fields per second over 10 s"],
  ["ppm number", "ppm", "deviation of the rate from the nominal one"],
  ["lines number", "Phase, lines", "against the reference; positive is later"],
  ["phase number", "Phase, µs", "the same in microseconds"],
  ["spark", "Last 5 minutes", "the phase"],
  ["lost-fields number", "Lost fields", "fields that the board did not deliver"],
  ["event", "What, and since when"],
];

function makeStrip(stream) {
  const cells = Object.fromEntries(
    columns.map(([names]) => [names.split(" ")[0], element("td", { class: names, role: "cell" })]),
  );
  const link = element("a", { "data-state": "" }, stream.id);
  const name = element("span", { class: "quiet" });
  const mark = shape("idle");
  const word = document.createTextNode("");
  const canvas = element("canvas", { "aria-hidden": "true" });
  cells.state.append(mark, word);
  cells.stream.append(link, " ", name);
  cells.spark.append(canvas);
  const row = element("tr", { role: "row", "data-stream": stream.id }, ...Object.values(cells));
  row.addEventListener("click", (event) => {
    if (!event.target.closest("a") && !getSelection().toString()) {
      goTo({ view: "stream", stream: stream.id });
    }
  });
  return { row, cells, link, name, mark, word, canvas };
}

function updateIdentity({ row, cells, link, name, mark, word }, stream, compared) {
  const shown = stripOf(stream, compared);
  setAttribute(row, "class", `is-${compared.kind}`);
  setAttribute(cells.state, "class", `state ${shown.colour}`);
  setAttribute(cells.state, "title", shown.meaning);
  setShape(mark, shown.shape);
  setText(word, shown.word);
  setAttribute(link, "href", addressOf("stream", { stream: stream.id }));
  setText(name, stream.name);
  setAttribute(cells.stream, "title", `${stream.name}\n${stream.standard}`);
}

function setFigure(cell, text) {
  setText(cell, text);
  cell.classList.toggle("none", text === format.dash);
}

function updateFigures({ cells }, stream, compared) {
  const isRunning = stream.state === "running";
  const isReference = compared.kind === "reference";
  setFigure(cells.rate, isRunning ? format.rateFigure(stream.hertz) : format.dash);
  setFigure(cells.ppm, isRunning ? format.ppmFigure(stream.ppm, stream.ppmError) : format.dash);
  setAttribute(cells.ppm, "title", stream.ppmError === null ? "" : `± ${stream.ppmError.toPrecision(2)} ppm`);
  setFigure(cells.lines, isReference ? "0" : format.linesFigure(compared.lines));
  setFigure(cells.phase, isReference ? "0" : format.microsecondsFigure(compared.phase?.seconds ?? null));
  setAttribute(cells.phase, "title", compared.phase?.error ? `± ${format.span(compared.phase.error, false)}` : "");
  setText(cells["lost-fields"], format.count(stream.lost));
  setAttribute(cells["lost-fields"], "class", `lost-fields number${stream.lost > 0 ? " some" : ""}`);
}

function updateStrip(strip, stream, compared, nowMs) {
  updateIdentity(strip, stream, compared);
  updateFigures(strip, stream, compared);
  const last = lastWord(stream);
  const text = last ? `${last.text}, ${format.age(last.ms, nowMs)}` : "";
  setText(strip.cells.event, text);
  setAttribute(strip.cells.event, "class", `event ${last?.colour ?? ""}`);
  setAttribute(strip.cells.event, "title", last ? `${text}\n${format.utcDateTime(last.ms, true)} UTC` : "");
}

function makeTable(direction, chip) {
  const body = element("tbody", { role: "rowgroup" });
  const heads = columns.map(([names, text, title]) =>
    element("th", { class: names, scope: "col", role: "columnheader", title }, text),
  );
  const head = element("thead", { role: "rowgroup" }, element("tr", { role: "row" }, ...heads));
  const held = element("span", { class: "quiet" });
  const title = element(
    "h2",
    { id: ["title", direction, chip].filter((one) => one !== null).join("-") },
    directionTitles[direction],
  );
  const table = element("table", { class: "strips", role: "table", "aria-labelledby": title.id }, head, body);
  const section = element(
    "section",
    { "aria-labelledby": title.id },
    element("div", { class: "heading" }, title, held),
    table,
  );
  return { section, body, held, sort: makeOrder(), strips: new Map() };
}

// Nothing moves away under the pointer or under the focus.
function place({ body, held }, rows) {
  const isSame = rows.length === body.children.length && rows.every((row, i) => row === body.children[i]);
  const isHeld = body.children.length > 0 && (body.matches(":hover") || body.contains(document.activeElement));
  setText(held, !isSame && isHeld ? "keeps its order while you are in it" : "");
  if (!isSame && !isHeld) {
    body.replaceChildren(...rows);
  }
}

function showDirection(table, streams, { compared, state, model }) {
  const sorted = table.sort(streams, compared, model.ms);
  const rows = (state.order === "board" ? streams : sorted).map((stream) => {
    if (!table.strips.has(stream.id)) {
      table.strips.set(stream.id, makeStrip(stream));
    }
    const strip = table.strips.get(stream.id);
    updateStrip(strip, stream, compared.get(stream), model.ms);
    return strip.row;
  });
  place(table, rows);
}

function drawTraces({ strips }, streams, threshold) {
  for (const stream of streams) {
    const trace = traceOf("phase", stream.id);
    const strip = strips.get(stream.id);
    if (trace && strip) {
      const seconds = threshold?.seconds ?? (threshold?.lines ?? 1) * (stream.line ?? 15e-6);
      drawTrace(strip.canvas, trace, getComputedStyle(strip.cells.state).color, 2 * seconds, stream.period ?? Infinity);
    }
  }
}

const sparkEveryMs = 2000; // a line of five minutes moves by a third of a pixel a second
const longTable = 14;

// The tables of a chip; null: of the only one.
function makeChip(chip) {
  const root = element("div", { class: "overview" });
  const tables = {};
  return {
    root,
    show(context, isTimeToDraw) {
      const { model } = context;
      const streamsIn = (direction) => streamsOfChip(model, chip).filter((one) => one.direction === direction);
      const present = directions.filter((direction) => streamsIn(direction).length > 0);
      const isLong = present.some((direction) => streamsIn(direction).length > longTable);
      setAttribute(root, "class", `overview${present.length > 1 ? " both" : ""}${isLong ? " dense" : ""}`);
      for (const direction of present) {
        const streams = streamsIn(direction);
        if (!tables[direction]) {
          tables[direction] = makeTable(direction, chip);
          root.append(tables[direction].section);
        }
        showDirection(tables[direction], streams, context);
        if (isTimeToDraw) {
          drawTraces(tables[direction], streams, model.threshold);
        }
      }
    },
  };
}

// One of several chips: a band with a verdict of its own above its tables.
function makeBand({ chip }) {
  const title = element("h2", { id: `chip-${chip}` }, `Chip ${chip}`);
  const verdict = element("p", { class: "verdict" });
  const tables = makeChip(chip);
  const heading = element("div", { class: "heading" }, title, verdict);
  return {
    root: element("section", { class: "band", "aria-labelledby": title.id }, heading, tables.root),
    show(context, isTimeToDraw) {
      const told = context.model.chips.find((one) => one.chip === chip);
      showVerdict(verdict, chipVerdictOf(context.model, told));
      tables.show(context, isTimeToDraw);
    },
  };
}

export function makeOverview() {
  const root = element("div", {});
  let key = null;
  let shown = [];
  let drawnMs = 0;
  return {
    root,
    show(context) {
      const { chips } = context.model;
      const newKey = chips.map(({ chip }) => chip).join();
      if (key !== newKey) {
        key = newKey;
        shown = chips.length > 1 ? chips.map(makeBand) : [makeChip(null)];
        root.replaceChildren(...shown.map((one) => one.root));
      }
      const isTimeToDraw = Date.now() - drawnMs >= sparkEveryMs;
      shown.forEach((one) => one.show(context, isTimeToDraw));
      drawnMs = isTimeToDraw ? Date.now() : drawnMs;
    },
    close() {},
  };
}
