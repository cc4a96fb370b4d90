// A line over time with its uncertainty as a band, and marks where something happened. Drawing is dygraphs'; this says
// what is drawn and how it looks on a light and on a dark page.
/* global Dygraph */

function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

function drawMark(pen, area, from, to, isHollow) {
  if (isHollow) {
    pen.lineWidth = 1.5;
    pen.strokeRect(from, area.y + 1, Math.max(to - from, 3), area.h - 2);
    return;
  }
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

const endOf = (mark) => mark.toMs ?? mark.fromMs;

// Marks on the time axis: a span for what lasted, a line for a moment.
function drawMarks(pen, area, graph, marks) {
  for (const mark of marks) {
    const from = graph.toDomXCoord(mark.fromMs);
    const to = graph.toDomXCoord(endOf(mark));
    if (to >= area.x && from <= area.x + area.w) {
      pen.fillStyle = colour(`--${mark.kind}`);
      pen.strokeStyle = pen.fillStyle;
      drawMark(pen, area, from, to, mark.isHollow);
    }
  }
}

const nearPixels = 6;

function marksNear(graph, marks, x) {
  return marks.filter(
    (mark) => graph.toDomXCoord(mark.fromMs) <= x + nearPixels && graph.toDomXCoord(endOf(mark)) >= x - nearPixels,
  );
}

// The legend writes style attributes, which our own policy forbids; the reading under the charts stands in for it.
Dygraph.PLUGINS = Dygraph.PLUGINS.filter((plugin) => plugin !== Dygraph.Plugins.Legend);

const look = {
  errorBars: true,
  sigma: 1,
  fillAlpha: 0.25,
  strokeWidth: 1.4,
  connectSeparatedPoints: false,
  labelsUTC: true,
  drawPoints: false,
  highlightCircleSize: 3,
  rightGap: 8,
};

const axesOf = (unit) => ({
  x: { axisLabelFontSize: 12, pixelsPerLabel: 80 },
  y: { axisLabelFontSize: 12, axisLabelWidth: 84, axisLabelFormatter: (value) => unit(value) },
});

const colours = () => ({
  colors: [colour("--trace")],
  gridLineColor: colour("--rule"),
  axisLineColor: colour("--rule"),
});

// "phase, 598 points between +2.98 µs and +3.02 µs": what a chart says to whoever does not see it.
function summary(label, rows, unit) {
  const values = rows.map(([, [value]]) => value).filter((value) => value !== null);
  if (values.length === 0) {
    return `${label}, no points`;
  }
  const [low, high] = values.reduce(
    ([least, most], one) => [Math.min(least, one), Math.max(most, one)],
    [Infinity, -Infinity],
  );
  return `${label}, ${values.length} points between ${unit(low)} and ${unit(high)}`;
}

// place: element to draw into.
// options: { label, unit(value) -> text, onReading({ ms, value, error, marks } or null), onZoom(fromMs, toMs),
//   isPoints: points without a line }
// The chart takes rows [moment as Date, [value, stderr]]; a value of null is a gap.
export function makeChart(place, { label, unit, onReading, onZoom, isPoints = false }) {
  let marks = [];
  const end = new AbortController();
  const graph = new Dygraph(place, [[new Date(0), [null, null]]], {
    labels: ["time", label],
    ...look,
    ...(isPoints ? { drawPoints: true, strokeWidth: 0, pointSize: 1.5 } : {}),
    ...colours(),
    axes: axesOf(unit),
    underlayCallback: (pen, area, drawn) => drawMarks(pen, area, drawn, marks),
    highlightCallback: (event, ms, _points, row) => {
      const [value, error] = graph.getValue(row, 1) ?? [null, null];
      onReading({ ms, value, error, marks: marksNear(graph, marks, graph.eventToDomCoords(event)[0]) });
    },
    unhighlightCallback: () => onReading(null),
    zoomCallback: (from, to) => onZoom(from, to),
  });
  place.setAttribute("role", "img");
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => graph.updateOptions(colours()), {
    signal: end.signal,
  });
  return {
    show(rows, fromMs, toMs, newMarks) {
      marks = newMarks;
      place.setAttribute("aria-label", summary(label, rows, unit));
      place.parentNode.classList.toggle(
        "is-empty",
        rows.every(([, [value]]) => value === null),
      );
      graph.updateOptions({
        file: rows.length > 0 ? rows : [[new Date(fromMs), [null, null]]],
        dateWindow: [fromMs, toMs],
      });
    },
    close() {
      end.abort();
      graph.destroy();
    },
  };
}
