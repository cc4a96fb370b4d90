// A strip per stream: everything at first sight, worst first or in the board's order.
import { addressWith, goTo } from "./address.js";
import { element, setAttribute, setShape, setText, shape } from "./dom.js";
import * as format from "./format.js";
import { directions, directionTitles, kinds } from "./model.js";
import { addToTrace, drawTrace, makeTrace } from "./sparkline.js";
import { eventWord } from "./words.js";

const columns = [
  ["state", "State"],
  ["stream", "Stream"],
  ["rate number", "Rate, Hz", "fields per second over 10 s"],
  ["ppm number", "ppm", "deviation of the rate from the nominal one"],
  ["lines number", "Phase, lines", "against the reference; positive is later"],
  ["phase number", "Phase, µs", "the same in microseconds"],
  ["spark", "Last 5 minutes", "the phase"],
  ["lost-fields number", "Lost", "fields that the board did not deliver"],
  ["event", "Last event"],
];

const traces = new Map(); // by stream's id

export function rememberPhase(id, seconds) {
  if (!traces.has(id)) traces.set(id, makeTrace());
  addToTrace(traces.get(id), seconds);
}

export function hasTrace(id) {
  return traces.has(id);
}

function makeStrip(stream) {
  const cells = Object.fromEntries(columns.map(([names]) => [names.split(" ")[0], element("td", { class: names, role: "cell" })]));
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
    if (!event.target.closest("a") && !getSelection().toString()) goTo({ view: "stream", stream: stream.id });
  });
  return { row, cells, link, name, mark, word, canvas };
}

function updateStrip(strip, stream, compared, nowMs) {
  const { cells } = strip;
  const kind = kinds[compared.kind];
  setAttribute(strip.row, "class", `is-${compared.kind}`);
  setAttribute(cells.state, "class", `state ${compared.kind}`);
  setAttribute(cells.state, "title", kind.meaning);
  setShape(strip.mark, compared.kind);
  setText(strip.word, kind.word);
  setAttribute(strip.link, "href", addressWith({ view: "stream", stream: stream.id }));
  setText(strip.name, stream.name);
  setAttribute(cells.stream, "title", `${stream.name}\n${stream.standard}`);
  setText(cells.rate, stream.state === "running" ? format.rateFigure(stream.hertz) : "–");
  setText(cells.ppm, stream.state === "running" ? format.ppmFigure(stream.ppm, stream.ppmError) : "–");
  setAttribute(cells.ppm, "title", stream.ppmError === null ? "" : `± ${stream.ppmError.toPrecision(2)} ppm`);
  const isReference = compared.kind === "reference";
  setText(cells.lines, isReference ? "0" : format.linesFigure(compared.lines));
  setText(cells.phase, isReference ? "0" : format.microsecondsFigure(compared.phase?.seconds ?? null));
  setAttribute(cells.phase, "title", compared.phase?.error ? `± ${format.span(compared.phase.error, false)}` : "");
  setText(cells["lost-fields"], format.count(stream.lost));
  setAttribute(cells["lost-fields"], "class", `lost-fields number${stream.lost > 0 ? " some" : ""}`);
  const event = stream.lastEvent;
  setText(cells.event, event ? `${eventWord(event.kind)}, ${format.age(event.ms, nowMs)}` : "");
  setAttribute(cells.event, "title", event ? `${format.utcDateTime(event.ms, true)} UTC` : "");
}

// The order of the strips: by what a stream does, then by losses, then by how far off it is; or the board's own.
function inOrder(streams, compared, order) {
  if (order === "board") return streams;
  const key = (stream) => {
    const one = compared.get(stream);
    return [kinds[one.kind].rank, -stream.lost, -Math.abs(one.phase?.seconds ?? 0)];
  };
  return [...streams].sort((a, b) => {
    const left = key(a);
    const right = key(b);
    const at = left.findIndex((value, i) => value !== right[i]);
    return at < 0 ? 0 : left[at] - right[at];
  });
}

const sparkEveryMs = 2000; // a line of five minutes moves by a third of a pixel a second

export function makeOverview() {
  const root = element("div", { class: "overview" });
  const tables = {};
  const strips = new Map();
  let drawnMs = 0;

  function makeTable(direction) {
    const body = element("tbody", { role: "rowgroup" });
    const heads = columns.map(([names, text, title]) =>
      element("th", { class: names, scope: "col", role: "columnheader", title }, text),
    );
    const head = element("thead", { role: "rowgroup" }, element("tr", { role: "row" }, ...heads));
    const title = element("h2", { id: `title-${direction}` }, directionTitles[direction]);
    const table = element("table", { class: "strips", role: "table", "aria-labelledby": title.id }, head, body);
    const section = element("section", { "aria-labelledby": title.id }, title, table);
    return { section, body };
  }

  function drawTraces(model) {
    for (const direction of directions) {
      for (const stream of model.directions[direction].streams) {
        const trace = traces.get(stream.id);
        const strip = strips.get(stream.id);
        if (!trace || !strip) continue;
        const colour = getComputedStyle(strip.cells.state).color;
        const threshold = model.threshold?.seconds ?? (model.threshold?.lines ?? 1) * (stream.line ?? 15e-6);
        drawTrace(strip.canvas, trace, colour, 2 * threshold, stream.period ?? Infinity);
      }
    }
  }

  return {
    root,
    show({ model, compared, state }) {
      const present = directions.filter((direction) => model.directions[direction].streams.length > 0);
      setAttribute(root, "class", `overview${present.length > 1 ? " both" : ""}`);
      const isLong = present.some((one) => model.directions[one].streams.length > 14);
      root.classList.toggle("dense", isLong);
      for (const direction of present) {
        const streams = model.directions[direction].streams;
        if (!tables[direction]) {
          tables[direction] = makeTable(direction);
          root.append(tables[direction].section);
        }
        const rows = inOrder(streams, compared, state.order).map((stream) => {
          if (!strips.has(stream.id)) strips.set(stream.id, makeStrip(stream));
          updateStrip(strips.get(stream.id), stream, compared.get(stream), model.ms);
          return strips.get(stream.id).row;
        });
        const { body } = tables[direction];
        if (rows.length !== body.children.length || rows.some((row, i) => row !== body.children[i])) {
          const focused = document.activeElement;
          body.replaceChildren(...rows);
          if (body.contains(focused)) focused.focus();
        }
      }
      if (Date.now() - drawnMs >= sparkEveryMs) {
        drawnMs = Date.now();
        drawTraces(model);
      }
    },
    close() {},
  };
}
