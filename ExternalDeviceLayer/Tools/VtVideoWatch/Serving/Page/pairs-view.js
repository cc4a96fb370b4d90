// All pairs: a matrix per direction, a letter and a colour per state, the offset at the pointer or the keys' focus.
import { addressWith } from "./address.js";
import { askPairs } from "./api.js";
import { element, setAttribute, setText } from "./dom.js";
import * as format from "./format.js";
import { directions, directionTitles } from "./model.js";

const states = {
  locked: ["L", "locked: within the threshold, and staying there"],
  passing: ["P", "passing: within the threshold, but drifting"],
  free: ["F", "free: outside of the threshold"],
  different: ["≠", "of different rates: nothing to compare"],
  idle: ["·", "idle: one of both does not run, or too little is known"],
};

// Members of a group stand together, so that it shows as a block; the rest follows in the board's order.
function orderOf(ids, groups) {
  const grouped = groups.flatMap((group) => group.members);
  return [...grouped, ...ids.filter((id) => !grouped.includes(id))];
}

function pairText(pair, row, column) {
  if (!pair) return "";
  const sign = pair.first === row ? 1 : -1;
  const [, meaning] = states[pair.lock];
  const parts = [`${column} against ${row}: ${meaning}`];
  if (pair.offset) {
    const lines = pair.offset.lines === null ? "" : ` (${format.lines(sign * pair.offset.lines)})`;
    parts.push(`offset ${format.span(sign * pair.offset.seconds)} ± ${format.span(pair.offset.stderr, false)}${lines}`);
  }
  if (pair.drift) parts.push(`drift ${format.ppb(sign * pair.drift.ratio)} ± ${format.ppb(pair.drift.stderr).replace("+", "")}`);
  if (pair.seconds_to_threshold !== null) parts.push(`threshold in ${format.duration(pair.seconds_to_threshold)}`);
  if (pair.seconds_to_slip !== null) parts.push(`a field slipped in ${format.duration(pair.seconds_to_slip)}`);
  return parts.join("; ");
}

function makeMatrix(direction, ids, reading) {
  const cells = new Map(); // "row column" -> td
  const heads = ids.map((id) => element("th", { scope: "col", title: id }, id.slice(-2)));
  const rows = ids.map((row) => {
    const tds = ids.map((column) => {
      const td = row === column ? element("td", { class: "self", role: "gridcell" }) : element("td", { role: "gridcell", tabindex: -1 });
      cells.set(`${row} ${column}`, td);
      return td;
    });
    const link = element("a", { "data-state": "", href: addressWith({ view: "stream", stream: row }) }, row);
    return element("tr", { role: "row" }, element("th", { scope: "row" }, link), ...tds);
  });
  const table = element(
    "table",
    { class: "matrix", role: "grid", "aria-label": `${directionTitles[direction]}: every pair` },
    element("thead", {}, element("tr", { role: "row" }, element("td", { class: "self" }), ...heads)),
    element("tbody", {}, ...rows),
  );
  const say = (event) => {
    const td = event.target.closest("td[tabindex]");
    if (td) setText(reading, td.dataset.text ?? "");
  };
  table.addEventListener("pointerover", say);
  table.addEventListener("focusin", say);
  table.addEventListener("keydown", (event) => moveFocus(event, ids, cells));
  const first = ids.length > 1 ? cells.get(`${ids[0]} ${ids[1]}`) : null;
  first?.setAttribute("tabindex", "0");
  return { table, cells };
}

// Arrow keys walk over the matrix, as in any grid.
function moveFocus(event, ids, cells) {
  const step = { ArrowRight: [0, 1], ArrowLeft: [0, -1], ArrowDown: [1, 0], ArrowUp: [-1, 0] }[event.key];
  const from = [...cells].find(([, td]) => td === event.target);
  if (!step || !from) return;
  event.preventDefault();
  let [row, column] = from[0].split(" ").map((id) => ids.indexOf(id));
  do {
    row += step[0];
    column += step[1];
  } while (row === column);
  const td = cells.get(`${ids[row]} ${ids[column]}`);
  if (!td) return;
  event.target.setAttribute("tabindex", "-1");
  td.setAttribute("tabindex", "0");
  td.focus();
}

export function makePairsView() {
  const root = element("div");
  const reading = element("p", { class: "panel", role: "status", "aria-live": "polite" }, "Point at a pair, or walk there with the arrow keys.");
  const legend = element("ul", { class: "legend" }, ...Object.entries(states).map(([kind, [letter, meaning]]) => element("li", {}, element("b", { class: `cell-${kind}` }, letter), ` ${meaning}`)));
  const views = element("div", { class: "pair-views" });
  root.append(element("div", { class: "matrix" }, legend), reading, views);
  const shown = {};
  let asked = 0;

  function showDirection(direction, json, streams) {
    const { pairs, groups } = json.directions[direction];
    const ids = orderOf(streams.map((stream) => stream.id), groups);
    const key = ids.join();
    if (shown[direction]?.key !== key) {
      const made = makeMatrix(direction, ids, reading);
      const groupList = element("ul", { class: "groups" });
      const section = element("section", {}, element("h2", {}, directionTitles[direction]), element("div", { class: "matrix-scroll" }, made.table), groupList);
      if (shown[direction]) shown[direction].section.replaceWith(section);
      else views.append(section);
      shown[direction] = { key, section, groupList, ...made };
    }
    const { cells, groupList } = shown[direction];
    for (const pair of pairs) {
      for (const [row, column] of [[pair.first, pair.second], [pair.second, pair.first]]) {
        const td = cells.get(`${row} ${column}`);
        if (!td) continue;
        const isGrouped = groups.some((group) => group.members.includes(row) && group.members.includes(column));
        setText(td, states[pair.lock][0]);
        setAttribute(td, "class", `cell-${pair.lock}${isGrouped ? " in-group" : ""}`);
        td.dataset.text = pairText(pair, row, column);
        setAttribute(td, "title", td.dataset.text);
        setAttribute(td, "aria-label", td.dataset.text);
      }
    }
    const texts = groups.map((group) => `Group ${group.group}: ${group.members.join(", ")}, since ${format.utcDateTime(Date.parse(group.since))} UTC`);
    if (texts.join() !== groupList.dataset.texts) {
      groupList.dataset.texts = texts.join();
      groupList.replaceChildren(...(texts.length > 0 ? texts : ["No lock groups"]).map((text) => element("li", {}, text)));
    }
  }

  return {
    root,
    async show({ model }) {
      if (Date.now() - asked < 2000) return;
      asked = Date.now();
      const json = await askPairs().catch(() => null);
      if (!json) return;
      for (const direction of directions) {
        const { streams } = model.directions[direction];
        if (streams.length > 1) showDirection(direction, json, streams);
      }
    },
    close() {},
  };
}
