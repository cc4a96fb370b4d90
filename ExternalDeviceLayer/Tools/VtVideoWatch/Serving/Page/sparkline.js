// The phase of one stream over the last minutes, as small as a word: a line, its range, and gaps where nothing ran.

const pointsKept = 300; // seconds

export function makeTrace() {
  return { values: new Float64Array(pointsKept).fill(NaN), next: 0, count: 0 };
}

export function addToTrace(trace, value) {
  trace.values[trace.next] = value ?? NaN;
  trace.next = (trace.next + 1) % pointsKept;
  trace.count = Math.min(trace.count + 1, pointsKept);
}

// Oldest first.
function valuesOf(trace) {
  const begin = (trace.next - trace.count + pointsKept) % pointsKept;
  return Array.from({ length: trace.count }, (_, i) => trace.values[(begin + i) % pointsKept]);
}

function rangeOf(values) {
  let low = Infinity;
  let high = -Infinity;
  for (const value of values) {
    if (value < low) {
      low = value;
    }
    if (value > high) {
      high = value;
    }
  }
  return [low, high];
}

// leastRange: what fills the height at least, so that a stream in lock shows as a calm line and not as magnified noise.
// wrap: the period; a jump of more than half of it is the phase coming round, not a movement.
export function drawTrace(canvas, trace, colour, leastRange, wrap) {
  const scale = Math.min(devicePixelRatio || 1, 2);
  const width = Math.round(canvas.clientWidth * scale);
  const height = Math.round(canvas.clientHeight * scale);
  if (width === 0 || height === 0) {
    return;
  }
  if (canvas.width !== width || canvas.height !== height) {
    canvas.width = width;
    canvas.height = height;
  }
  const pen = canvas.getContext("2d");
  pen.clearRect(0, 0, width, height);
  const values = valuesOf(trace);
  const [low, high] = rangeOf(values);
  if (!(high >= low)) {
    return;
  }
  const middle = (low + high) / 2;
  const range = Math.max(high - low, leastRange);
  const step = width / (pointsKept - 1);
  const begin = width - (values.length - 1) * step;
  pen.strokeStyle = colour;
  pen.lineWidth = 1.25 * scale;
  pen.beginPath();
  let before = NaN;
  values.forEach((value, i) => {
    const x = begin + i * step;
    const y = height / 2 - ((value - middle) / range) * (height - 3 * scale);
    if (Number.isNaN(value)) {
      return void (before = NaN);
    }
    if (Number.isNaN(before) || Math.abs(value - before) > wrap / 2) {
      pen.moveTo(x, y);
    } else {
      pen.lineTo(x, y);
    }
    before = value;
  });
  pen.stroke();
}
