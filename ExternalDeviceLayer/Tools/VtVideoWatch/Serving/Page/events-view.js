// Events, newest first, by stream and kind; the filters stand in the address.
import { addressWith, goTo } from "./address.js";
import { askEvents } from "./api.js";
import { element, setAttribute, setText, shape } from "./dom.js";
import * as format from "./format.js";
import { streamsOf, toMs } from "./model.js";
import { eventClass, eventDetail, eventKinds, eventWord } from "./words.js";

const page = 200;
const shapes = { lost: "lost", free: "free", passing: "passing", locked: "locked", idle: "idle", running: "running" };

function makeRow(event) {
  const ms = toMs(event.utc);
  const kind = eventClass(event);
  const around = { view: "stream", stream: event.stream, from: new Date(ms - 120000).toISOString(), to: new Date(ms + 120000).toISOString() };
  return element(
    "tr",
    { "data-number": event.number },
    element("td", {}, format.utcDateTime(ms, true)),
    element("td", { class: "quiet" }, format.localDateTime(ms)),
    element("td", {}, element("a", { "data-state": "", href: addressWith({ ...around, kind: "" }) }, event.stream)),
    element("td", { class: kind }, shape(shapes[kind]), eventWord(event.kind)),
    element("td", { class: "what" }, eventDetail(event)),
  );
}

function makeSelect(label, options, onChange) {
  const select = element("select", { onchange: () => onChange(select.value) }, ...options.map(([value, text]) => element("option", { value }, text)));
  return { select, label: element("label", {}, `${label} `, select) };
}

export function makeEventsView() {
  const streamSelect = makeSelect("Stream", [["", "all"]], (value) => goTo({ stream: value }));
  const kindSelect = makeSelect("Kind", [["", "all"], ...eventKinds.map((kind) => [kind, eventWord(kind)])], (value) => goTo({ kind: value }));
  const count = element("span", { class: "quiet", role: "status" });
  const body = element("tbody");
  const heads = ["UTC", `Local (${format.localZone})`, "Stream", "Event", "What"].map((text) => element("th", { scope: "col" }, text));
  const table = element("table", { class: "events" }, element("thead", {}, element("tr", {}, ...heads)), body);
  const more = element("button", { type: "button", onclick: () => fetchOlder() }, "Older ones");
  const root = element("div", {}, element("div", { class: "filters" }, streamSelect.label, kindSelect.label, count), table, element("p", {}, more));
  let filter = null;
  let newest = 0;
  let oldestMs = Infinity;
  let pending = false;

  function queryOf(extra) {
    const query = { limit: page, ...extra };
    if (filter.stream) query.stream = filter.stream;
    if (filter.kind) query.kind = filter.kind;
    return query;
  }

  async function fetchInto(extra, place) {
    if (pending) return;
    pending = true;
    const asked = filter;
    const json = await askEvents(queryOf(extra)).catch((error) => void setText(count, error.message));
    pending = false;
    if (!json || asked !== filter) return;
    const present = new Set([...body.children].map((row) => Number(row.dataset.number)));
    const fresh = json.events.filter((event) => !present.has(event.number));
    place(fresh.map(makeRow));
    for (const event of json.events) {
      newest = Math.max(newest, event.number);
      oldestMs = Math.min(oldestMs, toMs(event.utc));
    }
    if (!extra.after) more.hidden = !json.truncated;
    const shown = body.children.length;
    setText(count, shown === 0 ? "none" : `${shown} shown`);
  }

  const fetchOlder = () => fetchInto({ to: Math.ceil(oldestMs) + 1 }, (rows) => body.append(...rows));

  return {
    root,
    show({ model, state }) {
      const options = streamsOf(model).map((stream) => stream.id);
      if (streamSelect.select.options.length !== options.length + 1) {
        streamSelect.select.append(...options.map((id) => element("option", { value: id }, id)));
      }
      streamSelect.select.value = state.stream;
      kindSelect.select.value = state.kind;
      if (!filter || filter.stream !== state.stream || filter.kind !== state.kind) {
        filter = { stream: state.stream, kind: state.kind };
        newest = 0;
        oldestMs = Infinity;
        pending = false;
        body.replaceChildren();
        fetchInto({}, (rows) => body.replaceChildren(...rows));
      }
    },
    // New ones have come.
    events(events) {
      if (filter && events.some((event) => event.number > newest)) {
        fetchInto(newest ? { after: newest } : {}, (rows) => body.prepend(...rows));
      }
    },
    close() {},
  };
}
