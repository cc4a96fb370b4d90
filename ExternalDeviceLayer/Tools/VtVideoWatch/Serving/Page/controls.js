// What stands beside the views: the order of the strips, and what they are compared with.
import { addressOf, goTo } from "./address.js";
import { element, setAttribute, setText } from "./dom.js";
import * as format from "./format.js";
import { directions, directionTitles, findStream, streamsOf } from "./model.js";

const views = [
  ["overview", "Streams"],
  ["pairs", "Pairs"],
  ["events", "Events"],
];
const viewTitles = Object.fromEntries(views);
const referenceKeys = { input: "refin", output: "refout" };

export function titleOf(state) {
  return state.view === "stream" ? state.stream : viewTitles[state.view];
}

export function showNavigation(list, state) {
  const current = state.view === "stream" ? "overview" : state.view;
  if (list.children.length === 0) {
    list.append(...views.map(([, text]) => element("li", {}, element("a", { "data-state": "" }, text))));
  }
  views.forEach(([view], i) => {
    const anchor = list.children[i].firstChild;
    setAttribute(anchor, "href", addressOf(view));
    if (view === current) {
      setAttribute(anchor, "aria-current", "page");
    } else {
      anchor.removeAttribute("aria-current");
    }
  });
}

function makeReferenceChoice(model, direction) {
  const key = referenceKeys[direction];
  const { streams } = model.directions[direction];
  const options = streams.map((one) => element("option", { value: one.id }, format.label(one)));
  const own = element("option", { value: "" }, "");
  const select = element("select", { id: key, onchange: () => goTo({ [key]: select.value }) }, own, ...options);
  return element("label", {}, `${directionTitles[direction]} against `, select);
}

function makeControls(model) {
  const order = element(
    "select",
    { id: "order", onchange: () => goTo({ order: order.value }) },
    element("option", { value: "worst" }, "worst first"),
    element("option", { value: "board" }, "board order"),
  );
  const compared = directions.filter((direction) => model.directions[direction].streams.length > 1);
  return [element("label", {}, "Order ", order), ...compared.map((direction) => makeReferenceChoice(model, direction))];
}

export function showControls(place, model, state) {
  const key = streamsOf(model).map(format.label).join();
  if (place.dataset.key !== key) {
    place.dataset.key = key;
    place.replaceChildren(...makeControls(model));
  }
  place.hidden = state.view !== "overview" && state.view !== "stream";
  const order = place.querySelector("#order");
  order.value = state.order;
  order.parentNode.hidden = state.view !== "overview";
  for (const direction of directions) {
    const id = state[referenceKeys[direction]];
    const select = place.querySelector(`#${referenceKeys[direction]}`);
    if (select) {
      setText(select.options[0], `the watch's choice (${model.directions[direction].references.join(", ") || "none"})`);
      select.value = findStream(model, id)?.direction === direction ? id : "";
    }
  }
}
