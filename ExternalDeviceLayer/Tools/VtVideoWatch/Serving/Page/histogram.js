// The histogram of a stream's field intervals.
import { element, setText } from "./dom.js";
import * as format from "./format.js";

const svgNamespace = "http://www.w3.org/2000/svg";

function svgElement(name, attributes) {
  const made = document.createElementNS(svgNamespace, name);
  for (const [key, value] of Object.entries(attributes)) {
    made.setAttribute(key, value);
  }
  return made;
}

const width = 410;
const height = 100;

// Bars; heights by square root, so that single outliers stay visible.
function drawBars(svg, counts) {
  const most = Math.max(1, ...counts);
  const step = width / counts.length;
  const bars = counts.map((count, i) => {
    const tall = Math.sqrt(count / most) * height;
    return svgElement("rect", { x: i * step + 0.5, y: height - tall, width: step - 1, height: tall });
  });
  svg.replaceChildren(...bars, svgElement("line", { x1: 0, y1: height, x2: width, y2: height }));
}

export function makeHistogram() {
  const bars = svgElement("svg", {
    class: "bars",
    role: "img",
    viewBox: `0 0 ${width} ${height}`,
    preserveAspectRatio: "none",
  });
  const axis = ["", "period", ""].map((text) => element("span", {}, text));
  const reading = element("p", { class: "reading" });
  return {
    parts: [bars, element("div", { class: "bars-axis" }, ...axis), reading],
    show({ bin_seconds: bin, counts }) {
      const total = counts.reduce((sum, one) => sum + one, 0);
      const inside = counts[(counts.length - 1) / 2];
      const reach = format.span((bin * counts.length) / 2, false);
      drawBars(bars, counts);
      setText(axis[0], total ? `−${reach}` : "");
      setText(axis[2], total ? `+${reach}` : "");
      bars.setAttribute("aria-label", `Histogram of ${format.counted(total, "field interval")} around the period`);
      const share = ((100 * inside) / total).toFixed(1);
      setText(
        reading,
        total
          ? `${format.counted(total, "interval")}, ${share} % within ± ${format.span(bin / 2, false)}`
          : "no fields in that time",
      );
    },
  };
}
