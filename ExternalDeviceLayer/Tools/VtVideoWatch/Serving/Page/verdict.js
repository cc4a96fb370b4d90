// The line that answers whether all is well.
import { element, shape } from "./dom.js";

// What a verdict is worth once nothing new comes: what it was, and that nobody knows any more.
export function outdated(verdict, text) {
  const was = verdict.more ? `${verdict.text}; ${verdict.more}` : verdict.text;
  return { level: verdict.level === "bad" ? "bad" : "warn", shape: "idle", text, more: `its last word: ${was}` };
}

export function showVerdict(place, verdict) {
  const key = JSON.stringify(verdict);
  if (place.dataset.key === key) {
    return; // it is read aloud when it changes, and only then
  }
  place.dataset.key = key;
  place.className = `verdict is-${verdict.level}`;
  place.replaceChildren(
    shape(verdict.shape),
    element("strong", {}, verdict.text),
    element("span", { class: "more" }, verdict.more),
  );
}
