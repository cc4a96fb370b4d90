// What the small lines show: the last minutes of a figure of every stream, remembered from snapshot to snapshot.
import { addToTrace, makeTrace } from "./sparkline.js";

const traces = new Map(); // "phase IN_00" -> trace

export function remember(figure, id, value) {
  const key = `${figure} ${id}`;
  if (!traces.has(key)) {
    traces.set(key, makeTrace());
  }
  addToTrace(traces.get(key), value);
}

// Nothing before the first value.
export function traceOf(figure, id) {
  return traces.get(`${figure} ${id}`);
}
