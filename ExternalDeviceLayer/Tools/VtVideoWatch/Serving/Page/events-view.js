// Events, newest first, by stream and kind; the filters stand in the address.
import { addressOf, goTo } from "./address.js";
import { askEvents } from "./api.js";
import { element, setText, shape } from "./dom.js";
import * as format from "./format.js";
import { findStream, streamsOf, toMs } from "./model.js";
import { eventClass, eventDetail, eventKinds, eventWord } from "./words.js";

const pageSize = 200;
const mostAtOnce = 1000; // that the API gives
const isLocalUtc = new Date().getTimezoneOffset() === 0;

function makeRow(event, labelOf) {
  const ms = toMs(event.utc);
  const kind = eventClass(event);
  const at = (shift) => new Date(ms + shift).toISOString();
  const around = addressOf("stream", { stream: event.stream, from: at(-120000), to: at(120000) });
  return element(
    "tr",
    { "data-number": event.number, "data-ms": ms },
    element("td", {}, format.utcDateTime(ms, true)),
    isLocalUtc ? null : element("td", { class: "quiet" }, format.localDateTime(ms)),
    element("td", {}, element("a", { "data-state": "", href: around }, labelOf(event.stream))),
    element("td", { class: kind }, shape(kind), eventWord(event.kind)),
    element("td", { class: "what" }, eventDetail(event)),
  );
}

const keyOf = (row) => [Number(row.dataset.ms), Number(row.dataset.number)];

function isNewer(a, b) {
  const [left, right] = [keyOf(a), keyOf(b)];
  return left[0] !== right[0] ? left[0] > right[0] : left[1] > right[1];
}

// The rows, newest first by the moment that they tell. What was folded comes later than its moment: it has its place in
// between.
function makeTable() {
  const body = element("tbody");
  const heads = ["UTC", isLocalUtc ? null : `Local (${format.localZone})`, "Stream", "Event", "What"];
  const cells = heads.filter(Boolean).map((text) => element("th", { scope: "col" }, text));
  const root = element("table", { class: "events" }, element("thead", {}, element("tr", {}, ...cells)), body);
  const numbers = new Set();
  const place = (row) => {
    let before = body.lastElementChild;
    while (before && isNewer(row, before)) {
      before = before.previousElementSibling;
    }
    before ? before.after(row) : body.prepend(row);
  };
  return {
    root,
    count: () => numbers.size,
    newest: () => Math.max(0, ...numbers),
    oldestMs: () => (body.lastElementChild ? keyOf(body.lastElementChild)[0] : Infinity),
    // How many of the rows share the oldest moment.
    countOldest: () => [...body.children].filter((row) => keyOf(row)[0] === keyOf(body.lastElementChild)[0]).length,
    add(events, labelOf) {
      const fresh = events.filter((event) => !numbers.has(event.number));
      fresh.forEach((event) => {
        numbers.add(event.number);
        place(makeRow(event, labelOf));
      });
      return fresh.length;
    },
    clear() {
      numbers.clear();
      body.replaceChildren();
    },
  };
}

function makeSelect(label, options, onChange) {
  const made = options.map(([value, text]) => element("option", { value }, text));
  const select = element("select", { onchange: () => onChange(select.value) }, ...made);
  return { select, label: element("label", {}, `${label} `, select) };
}

// Fetches one after the other: whatever is asked for while another question runs has its turn after it.
function makeQueue() {
  let last = Promise.resolve();
  return (task) => {
    last = last.then(task, task);
    return last;
  };
}

// The list under a filter, and what fetches into it.
class CEventList {
  #table = makeTable();
  #inTurn = makeQueue();
  #filter = null;
  #labelOf = (id) => id;
  #say;
  #tellMore;

  // say(text): how many there are, or what went wrong; tellMore(isMore): whether there are older ones.
  constructor(say, tellMore) {
    this.root = this.#table.root;
    this.#say = say;
    this.#tellMore = tellMore;
  }

  isFor(stream, kind) {
    return this.#filter !== null && (this.#filter.stream ?? "") === stream && (this.#filter.kind ?? "") === kind;
  }

  begin(stream, kind, labelOf) {
    this.#filter = { ...(stream && { stream }), ...(kind && { kind }) };
    this.#labelOf = labelOf;
    this.#table.clear();
    this.#inTurn(() => this.#fetchNewest());
  }

  older() {
    this.#inTurn(() => this.#fetchOlder());
  }

  newer() {
    this.#inTurn(() => this.#fetchNewer());
  }

  async #fetchInto(query) {
    const asked = this.#filter;
    const json = await askEvents({ limit: pageSize, ...asked, ...query }).catch((error) => this.#say(error.message));
    if (!json || asked !== this.#filter) {
      return null;
    }
    this.#table.add(json.events, this.#labelOf);
    const count = this.#table.count();
    this.#say(count === 0 ? "none" : `${count} shown`);
    return json;
  }

  async #fetchNewest() {
    const json = await this.#fetchInto({});
    this.#tellMore(json?.truncated ?? false);
  }

  async #fetchOlder() {
    // All of the oldest moment come again, so there must be room for more than them.
    const limit = Math.min(mostAtOnce, pageSize + this.#table.countOldest());
    const before = this.#table.count();
    const oldestMs = this.#table.oldestMs();
    const json = await this.#fetchInto({ to: oldestMs + 1, limit });
    if (json?.truncated && this.#table.count() === before) {
      await this.#fetchInto({ to: oldestMs }); // more of one moment than the API gives
    }
    this.#tellMore(json?.truncated ?? true);
  }

  async #fetchNewer() {
    const json = await this.#fetchInto({ after: this.#table.newest() });
    if (json?.truncated) {
      this.#table.clear(); // too many at once: begin anew with the newest
      await this.#fetchNewest();
    }
  }
}

export function makeEventsView() {
  const kinds = eventKinds.map((kind) => [kind, eventWord(kind)]);
  const streamSelect = makeSelect("Stream", [["", "all"]], (value) => goTo({ stream: value }));
  const kindSelect = makeSelect("Kind", [["", "all"], ...kinds], (value) => goTo({ kind: value }));
  const count = element("span", { class: "quiet", role: "status" });
  const more = element("button", { type: "button", hidden: true, onclick: () => list.older() }, "Older ones");
  const list = new CEventList(
    (text) => setText(count, text),
    (isMore) => (more.hidden = !isMore),
  );
  const filters = element("div", { class: "filters" }, streamSelect.label, kindSelect.label, count);
  return {
    root: element("div", {}, filters, list.root, element("p", {}, more)),
    show({ model, state }) {
      const streams = streamsOf(model);
      if (streamSelect.select.options.length !== streams.length + 1) {
        streamSelect.select.append(...streams.map((one) => element("option", { value: one.id }, format.label(one))));
      }
      streamSelect.select.value = state.stream;
      kindSelect.select.value = state.kind;
      if (!list.isFor(state.stream, state.kind)) {
        list.begin(state.stream, state.kind, (id) => {
          const stream = findStream(model, id);
          return stream ? format.label(stream) : id;
        });
      }
    },
    // New ones have come.
    events() {
      list.newer();
    },
    close() {},
  };
}
