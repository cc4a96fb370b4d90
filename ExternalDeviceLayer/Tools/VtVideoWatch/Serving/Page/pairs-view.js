// All pairs: a matrix per direction, and one of inputs against outputs, a letter and a colour per state, the offset at the pointer or the keys' focus.
import { addressOf } from "./address.js";
import { askPairs, poll } from "./api.js";
import { element, setAttribute, setText } from "./dom.js";
import * as format from "./format.js";
import { directions, directionTitles } from "./model.js";
import { forecast } from "./words.js";

const states = {
  locked: ["L", "locked: within the threshold, and staying there"],
  passing: ["P", "passing: within the threshold, but drifting"],
  free: ["F", "free: outside of the threshold"],
  different: ["≠", "of different rates: nothing to compare"],
  idle: ["·", "idle: one of both does not run, or too little is known"],
};

// Members of a group stand together, so that it shows as a block; the rest follows in the board's order.
function inBlocks(streams, groups) {
  const grouped = groups.flatMap((group) => group.members);
  const members = grouped.map((id) => streams.find((stream) => stream.id === id)).filter(Boolean);
  return [...members, ...streams.filter((stream) => !grouped.includes(stream.id))];
}

// What is known of a pair, for whoever reads along the row of one of both.
function pairText(pair, row, column, nowMs) {
  const sign = pair.first === row.id ? 1 : -1;
  const parts = [`${format.label(column)} against ${format.label(row)}: ${states[pair.lock][1]}`];
  if (pair.offset) {
    const lines = pair.offset.lines === null ? "" : ` (${format.lines(sign * pair.offset.lines)})`;
    parts.push(`offset ${format.span(sign * pair.offset.seconds)} ± ${format.span(pair.offset.stderr, false)}${lines}`);
  }
  if (pair.uncertainty_seconds > 0) {
    parts.push(`known to ${format.span(pair.uncertainty_seconds, false)} by the clocks of the chips`);
  }
  if (pair.drift) {
    parts.push(`drift ${format.ppb(sign * pair.drift.ratio)} ± ${format.ppbError(pair.drift.stderr)}`);
  }
  if (pair.seconds_to_threshold !== null) {
    parts.push(`threshold ${format.countdown(pair.seconds_to_threshold, pair.seconds_to_threshold_stderr)}`);
  }
  if (pair.seconds_to_slip !== null) {
    parts.push(`a field slipped ${format.countdown(pair.seconds_to_slip, pair.seconds_to_slip_stderr)}`);
  }
  const slips = forecast(pair, nowMs);
  if (slips) {
    parts.push(slips);
  }
  return parts.join("; ");
}

const steps = { ArrowRight: [0, 1], ArrowLeft: [0, -1], ArrowDown: [1, 0], ArrowUp: [-1, 0] };

// Arrow keys walk over the matrix, as in any grid.
function moveFocus(event, rowIds, columnIds, cells) {
  const step = steps[event.key];
  const from = [...cells].find(([, td]) => td === event.target);
  if (!step || !from) {
    return;
  }
  event.preventDefault();
  const [rowId, columnId] = from[0].split(" ");
  let [row, column] = [rowIds.indexOf(rowId), columnIds.indexOf(columnId)];
  do {
    row += step[0];
    column += step[1];
  } while (rowIds[row] && rowIds[row] === columnIds[column]);
  const td = cells.get(`${rowIds[row]} ${columnIds[column]}`);
  if (td) {
    event.target.setAttribute("tabindex", "-1");
    td.setAttribute("tabindex", "0");
    td.focus();
  }
}

function makeCell(row, column) {
  return row === column
    ? element("td", { class: "self", role: "gridcell" })
    : element("td", { role: "gridcell", tabindex: -1 });
}

function makeRow(stream, streams, cells) {
  const tds = streams.map((column) => {
    const td = makeCell(stream, column);
    cells.set(`${stream.id} ${column.id}`, td);
    return td;
  });
  const link = element("a", { "data-state": "", href: addressOf("stream", { stream: stream.id }) }, stream.id);
  const head = element("th", { scope: "row" }, link, " ", element("span", { class: "name" }, stream.name));
  return element("tr", { role: "row" }, head, ...tds);
}

function makeMatrix(title, rows, columns, say) {
  const cells = new Map(); // "row column" -> td
  const [rowIds, columnIds] = [rows, columns].map((streams) => streams.map((stream) => stream.id));
  const heads = columns.map((stream) =>
    element("th", { scope: "col", title: format.label(stream) }, stream.id.slice(-2)),
  );
  const table = element(
    "table",
    { class: "matrix", role: "grid", "aria-label": `${title}: every pair` },
    element("thead", {}, element("tr", { role: "row" }, element("td", { class: "self" }), ...heads)),
    element("tbody", {}, ...rows.map((stream) => makeRow(stream, columns, cells))),
  );
  const tell = (event) => {
    const td = event.target.closest("td[tabindex]");
    if (td) {
      say(td.dataset.text ?? "");
    }
  };
  table.addEventListener("pointerover", tell);
  table.addEventListener("focusin", tell);
  table.addEventListener("keydown", (event) => moveFocus(event, rowIds, columnIds, cells));
  const first = columnIds.find((id) => id !== rowIds[0]);
  cells.get(`${rowIds[0]} ${first}`)?.setAttribute("tabindex", "0");
  return { table, cells };
}

function showCell(td, pair, row, column, { groups, nowMs }) {
  const isGrouped = groups.some((group) => group.members.includes(row.id) && group.members.includes(column.id));
  setText(td, states[pair.lock][0]);
  setAttribute(td, "class", `cell-${pair.lock}${isGrouped ? " in-group" : ""}`);
  td.dataset.text = pairText(pair, row, column, nowMs);
  setAttribute(td, "title", td.dataset.text);
  setAttribute(td, "aria-label", td.dataset.text);
}

function showGroups(list, groups, labelOf) {
  const texts = groups.map(
    ({ group, members, since }) =>
      `Group ${group}: ${members.map(labelOf).join(", ")}, since ${format.utcDateTime(Date.parse(since))} UTC`,
  );
  if (texts.join() !== list.dataset.texts) {
    list.dataset.texts = texts.join();
    list.replaceChildren(...(texts.length > 0 ? texts : ["No lock groups"]).map((text) => element("li", {}, text)));
  }
}

// One matrix; it is made anew when the order of the streams changes. Of a direction, rows and columns are the same.
function makeSection(title, say) {
  const root = element("section");
  const list = element("ul", { class: "groups" });
  let key = "";
  let cells = null;
  return {
    root,
    show({ pairs, groups = [] }, rowStreams, columnStreams, nowMs) {
      const [rows, columns] = [rowStreams, columnStreams].map((streams) => inBlocks(streams, groups));
      const byId = new Map([...rows, ...columns].map((stream) => [stream.id, stream]));
      const orderedKey = [...rows, ...columns].map(format.label).join();
      if (key !== orderedKey) {
        key = orderedKey;
        const made = makeMatrix(title, rows, columns, say);
        cells = made.cells;
        const scroll = element("div", { class: "matrix-scroll" }, made.table);
        root.replaceChildren(element("h2", {}, title), scroll, list);
      }
      for (const pair of pairs) {
        const [first, second] = [byId.get(pair.first), byId.get(pair.second)];
        for (const [row, column] of [
          [first, second],
          [second, first],
        ]) {
          const td = cells.get(`${row?.id} ${column?.id}`);
          if (td) {
            showCell(td, pair, row, column, { groups, nowMs });
          }
        }
      }
      showGroups(list, groups, (id) => (byId.has(id) ? format.label(byId.get(id)) : id));
    },
  };
}

const everyMs = 2000;

function makeLegend() {
  const entries = Object.entries(states).map(([kind, [letter, meaning]]) =>
    element("li", {}, element("b", { class: `cell-${kind}` }, letter), ` ${meaning}`),
  );
  return element("div", { class: "matrix" }, element("ul", { class: "legend" }, ...entries));
}

export function makePairsView() {
  const reading = element(
    "p",
    { class: "panel", role: "status", "aria-live": "polite" },
    "Point at a pair, or walk there with the arrow keys.",
  );
  const say = (text) => setText(reading, text);
  const shown = Object.fromEntries(
    directions.map((direction) => [direction, makeSection(directionTitles[direction], say)]),
  );
  const across = makeSection("Inputs against outputs", say);
  const sections = [...directions.map((direction) => shown[direction]), across];
  const views = element("div", { class: "pair-views" }, ...sections.map((section) => section.root));
  let poller = null;
  let model = null;

  async function fetchAndShow(signal) {
    const json = await askPairs(signal);
    for (const direction of directions) {
      const { streams } = model.directions[direction];
      if (streams.length > 1) {
        const { pairs, groups } = json.directions[direction];
        const all = { pairs: [...pairs, ...(json.chips?.pairs ?? [])], groups };
        shown[direction].show(all, streams, streams, model.ms);
      }
    }
    const [inputs, outputs] = directions.map((direction) => model.directions[direction].streams);
    if (json.across && inputs.length > 0 && outputs.length > 0) {
      across.show(json.across, inputs, outputs, model.ms);
    }
  }

  return {
    root: element("div", {}, makeLegend(), reading, views),
    show(context) {
      ({ model } = context);
      poller ??= poll(() => everyMs, fetchAndShow);
    },
    close() {
      poller?.stop();
    },
  };
}
