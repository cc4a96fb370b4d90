// The address is the state: which view, stream, span, reference, order and filters. A link shows a colleague the same.

// Every key, and what it is when it is not in the address.
const defaults = {
  view: "overview", // overview, stream, pairs, events
  stream: "", // "IN_00": of the stream view; of the events, when given
  order: "worst", // worst, board
  refin: "", // reference of the inputs; empty: the watch's own
  refout: "", // of the outputs
  span: "600", // seconds shown up to now, or "all"; without meaning when from and to are given
  from: "", // a fixed span, ISO 8601
  to: "",
  kind: "", // of the events, separated by commas
};

const listeners = new Set();

export function readAddress() {
  const given = new URLSearchParams(location.search);
  const state = { ...defaults };
  for (const key of Object.keys(defaults)) {
    const value = given.get(key);
    if (value !== null) state[key] = value;
  }
  if (!["overview", "stream", "pairs", "events"].includes(state.view)) state.view = "overview";
  return state;
}

// The address of the present state with some of it changed.
export function addressWith(changes) {
  const state = { ...readAddress(), ...changes };
  const query = new URLSearchParams();
  for (const [key, value] of Object.entries(state)) {
    if (value !== defaults[key]) query.set(key, value);
  }
  const text = query.toString();
  return text ? `?${text}` : location.pathname;
}

function tell() {
  const state = readAddress();
  for (const listener of listeners) listener(state);
}

// Goes to the state with some of it changed; a zoom that is being dragged replaces the entry in the history.
export function goTo(changes, { replace = false } = {}) {
  const address = addressWith(changes);
  if (replace) history.replaceState(null, "", address);
  else history.pushState(null, "", address);
  tell();
}

export function onAddress(listener) {
  listeners.add(listener);
}

// A link that changes the state without loading the page again; with a modifier key it is an ordinary link.
export function followLinks(root) {
  root.addEventListener("click", (event) => {
    const link = event.target.closest("a[data-state]");
    if (!link || event.defaultPrevented || event.button !== 0) return;
    if (event.metaKey || event.ctrlKey || event.shiftKey || event.altKey) return;
    event.preventDefault();
    history.pushState(null, "", link.getAttribute("href"));
    tell();
  });
}

addEventListener("popstate", tell);
