// Elements made without markup: every text is text, whatever the board calls itself.

// element("td", { class: "rate", title: "..." }, "60.00", anotherElement)
export function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (key.startsWith("on")) {
      made.addEventListener(key.slice(2), value);
    } else if (value === true) {
      made.setAttribute(key, "");
    } else if (value !== false && value !== null && value !== undefined) {
      made.setAttribute(key, value);
    }
  }
  made.append(...children.filter((child) => child !== null && child !== undefined));
  return made;
}

// Writes a text only when it differs: what does not change is neither laid out nor read aloud again.
export function setText(node, text) {
  if (node.textContent !== text) {
    node.textContent = text;
  }
}

export function setAttribute(node, name, value) {
  if (node.getAttribute(name) !== value) {
    node.setAttribute(name, value);
  }
}

const svgNamespace = "http://www.w3.org/2000/svg";

// The shape of a state; the word beside it is what a screen reader says.
export function shape(kind) {
  const svg = document.createElementNS(svgNamespace, "svg");
  svg.setAttribute("class", `shape ${kind}`);
  svg.setAttribute("aria-hidden", "true");
  const use = document.createElementNS(svgNamespace, "use");
  use.setAttribute("href", `#shape-${kind}`);
  svg.append(use);
  return svg;
}

export function setShape(svg, kind) {
  setAttribute(svg, "class", `shape ${kind}`);
  setAttribute(svg.firstChild, "href", `#shape-${kind}`);
}
