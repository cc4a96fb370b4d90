// The span of time that charts show: fixed spans up to now, and zooming and moving by key for whoever has no pointer.
import { goTo } from "./address.js";
import { element, setAttribute } from "./dom.js";

const spans = [
  ["600", "10 min"],
  ["3600", "1 h"],
  ["21600", "6 h"],
  ["86400", "1 d"],
  ["604800", "7 d"],
  ["all", "All"],
];

const iso = (ms) => new Date(Math.round(ms)).toISOString();

export function goToSpan(fromMs, toMs) {
  goTo({ from: iso(fromMs), to: iso(toMs) });
}

function makeMove(label, text, act) {
  return element("button", { type: "button", "aria-label": label, title: label, onclick: act }, text);
}

// current(): { from, to } in milliseconds, as it is shown.
export function makeSpanButtons(current) {
  const change = (factor, shift) => () => {
    const { from, to } = current();
    const half = ((to - from) / 2) * factor;
    const middle = (from + to) / 2 + shift * (to - from);
    goToSpan(middle - half, middle + half);
  };
  const buttons = spans.map(([value, text]) =>
    element(
      "button",
      { type: "button", "data-span": value, onclick: () => goTo({ span: value, from: "", to: "" }) },
      text,
    ),
  );
  const moves = [
    makeMove("Zoom in", "+", change(0.5, 0)),
    makeMove("Zoom out", "−", change(2, 0)),
    makeMove("Earlier", "◂", change(1, -0.5)),
    makeMove("Later", "▸", change(1, 0.5)),
  ];
  const root = element("div", { class: "spans", role: "group", "aria-label": "Span of time" }, ...buttons, ...moves);
  return {
    root,
    show(state) {
      for (const button of buttons) {
        setAttribute(button, "aria-pressed", String(!state.from && button.dataset.span === state.span));
      }
    },
  };
}
