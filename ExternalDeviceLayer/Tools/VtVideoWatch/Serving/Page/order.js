// The order of the strips: worst first, and calm. A strip moves only when its health, what it does, or the size of what it has lost
// or is off by, has been different for a while.
import { healthRank } from "./health.js";
import { kinds } from "./model.js";

const settleMs = 3000;

const digitsOf = (count) => (count < 1 ? 0 : 1 + Math.floor(Math.log10(count)));

// What a stream's place depends on; the worst is the least.
function keyOf(stream, compared) {
  return [
    healthRank(stream),
    kinds[compared.kind].rank,
    -digitsOf(stream.lost),
    -digitsOf(Math.abs(compared.lines ?? 0)),
  ];
}

function settle(known, key, nowMs) {
  if (!known || known.key.join() === key.join()) {
    return { key };
  }
  const isSame = known.next?.join() === key.join();
  const sinceMs = isSame ? known.sinceMs : nowMs;
  return nowMs - sinceMs >= settleMs ? { key } : { key: known.key, next: key, sinceMs };
}

function isBefore(a, b) {
  const at = a.findIndex((value, i) => value !== b[i]);
  return at < 0 ? 0 : a[at] - b[at];
}

// Makes what sorts the streams of one table from snapshot to snapshot; ties stay in the board's order.
export function makeOrder() {
  const settled = new Map();
  return (streams, compared, nowMs) => {
    for (const stream of streams) {
      settled.set(stream.id, settle(settled.get(stream.id), keyOf(stream, compared.get(stream)), nowMs));
    }
    return [...streams].sort((a, b) => isBefore(settled.get(a.id).key, settled.get(b.id).key));
  };
}
