// The address is the state: which view, stream, span, reference, order and filters. A link shows a colleague the same.

const views = ["overview", "stream", "pairs", "events"];

// Every key, and what it is when it is not in the address.
const defaults = {
  view: "overview",
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
    state[key] = given.get(key) ?? defaults[key];
  }
  if (!views.includes(state.view)) {
    state.view = defaults.view;
  }
  return state;
}

// The address of the present state with some of it changed.
function addressWith(changes) {
  const state = { ...readAddress(), ...changes };
  const query = new URLSearchParams();
  for (const [key, value] of Object.entries(state)) {
    if (value !== defaults[key]) {
      query.set(key, value);
    }
  }
  const text = query.toString();
  return text ? `?${text}` : location.pathname;
}

// The same, without what belongs to a single stream or to a filter.
export function addressOf(view, changes = {}) {
  return addressWith({ stream: "", kind: "", span: defaults.span, from: "", to: "", view, ...changes });
}

function tell(cause) {
  for (const listener of listeners) {
    listener(cause);
  }
}

// The link that led away stands in the history, so that whoever comes back finds the focus where it was.
function leave(address, left) {
  history.replaceState({ left }, "");
  history.pushState(null, "", address);
  tell({ left: null });
}

// Goes to the state with some of it changed.
export function goTo(changes) {
  leave(addressWith(changes), addressWith(changes));
}

// listener({ left }): the address has changed; left is the link that had led away from where somebody comes back to.
export function onAddress(listener) {
  listeners.add(listener);
}

// A link that changes the state without loading the page again; with a modifier key it is an ordinary link.
export function followLinks(root) {
  root.addEventListener("click", (event) => {
    const link = event.target.closest("a[data-state]");
    if (!link || event.defaultPrevented || event.button !== 0) {
      return;
    }
    if (event.metaKey || event.ctrlKey || event.shiftKey || event.altKey) {
      return;
    }
    event.preventDefault();
    leave(link.getAttribute("href"), link.getAttribute("href"));
  });
}

addEventListener("popstate", (event) => tell({ left: event.state?.left ?? null }));
