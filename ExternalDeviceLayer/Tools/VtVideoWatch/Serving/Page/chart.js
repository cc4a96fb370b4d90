// A line over time with its uncertainty as a band, and marks where something happened. Drawing is dygraphs'; this says
// what is drawn and how it looks on a light and on a dark page.
/* global Dygraph */

function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

// Marks on the time axis: a span for what lasted, a line for a moment.
function drawMarks(pen, area, graph, marks) {
  for (const mark of marks) {
    const from = graph.toDomXCoord(mark.fromMs);
    const to = graph.toDomXCoord(mark.toMs ?? mark.fromMs);
    if (to < area.x || from > area.x + area.w) continue;
    pen.fillStyle = colour(`--${mark.kind}`);
    if (to - from > 1.5) {
      pen.globalAlpha = 0.22;
      pen.fillRect(Math.max(from, area.x), area.y, Math.min(to, area.x + area.w) - Math.max(from, area.x), area.h);
      pen.globalAlpha = 1;
    }
    pen.fillRect(from - 0.75, area.y, 1.5, area.h);
    pen.beginPath();
    pen.moveTo(from - 4, area.y);
    pen.lineTo(from + 4, area.y);
    pen.lineTo(from, area.y + 6);
    pen.fill();
  }
}

// The legend writes style attributes, which our own policy forbids; the reading under the charts stands in for it.
Dygraph.PLUGINS = Dygraph.PLUGINS.filter((plugin) => plugin !== Dygraph.Plugins.Legend);

// place: element to draw into.
// options: { label, unit(value) -> text, onReading(text), onZoom(fromMs, toMs) }
// The chart takes rows [moment as Date, [value, stderr]]; a value of null is a gap.
export function makeChart(place, options) {
  let marks = [];
  const style = () => ({
    colors: [colour("--trace")],
    gridLineColor: colour("--rule"),
    axisLineColor: colour("--rule"),
  });
  const graph = new Dygraph(place, [[new Date(0), [null, null]]], {
    labels: ["time", options.label],
    errorBars: true,
    sigma: 1,
    fillAlpha: 0.25,
    strokeWidth: 1.4,
    connectSeparatedPoints: false,
    labelsUTC: true,
    drawPoints: false,
    highlightCircleSize: 3,
    rightGap: 8,
    ...style(),
    axes: {
      x: { axisLabelFontSize: 12, pixelsPerLabel: 80 },
      y: { axisLabelFontSize: 12, axisLabelWidth: 84, axisLabelFormatter: (value) => options.unit(value) },
    },
    underlayCallback: (pen, area, drawn) => drawMarks(pen, area, drawn, marks),
    highlightCallback: (_event, x, points) => options.onReading(x, points[0]?.yval ?? null),
    unhighlightCallback: () => options.onReading(null, null),
    zoomCallback: (from, to) => options.onZoom(from, to),
  });
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => graph.updateOptions(style()));
  return {
    show(rows, fromMs, toMs, newMarks) {
      marks = newMarks;
      graph.updateOptions({
        file: rows.length > 0 ? rows : [[new Date(fromMs), [null, null]]],
        dateWindow: [fromMs, toMs],
      });
    },
    resize() {
      graph.resize();
    },
    close() {
      graph.destroy();
    },
    // For whoever asks what is drawn.
    rows: () => graph.numRows(),
    window: () => graph.xAxisRange(),
    value: (row) => [graph.getValue(row, 0), ...(graph.getValue(row, 1) ?? [])],
  };
}

const svgNamespace = "http://www.w3.org/2000/svg";
function svgElement(name, attributes) {
  const made = document.createElementNS(svgNamespace, name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  return made;
}

// Bars of a histogram; heights by square root, so that single outliers stay visible.
export function drawBars(svg, counts) {
  const width = 410;
  const height = 100;
  svg.setAttribute("viewBox", `0 0 ${width} ${height}`);
  svg.setAttribute("preserveAspectRatio", "none");
  const most = Math.max(1, ...counts);
  const step = width / counts.length;
  const bars = counts.map((count, i) => {
    const tall = Math.sqrt(count / most) * height;
    return svgElement("rect", { x: i * step + 0.5, y: height - tall, width: step - 1, height: tall });
  });
  svg.replaceChildren(...bars, svgElement("line", { x1: 0, y1: height, x2: width, y2: height }));
}
