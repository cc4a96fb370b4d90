// What the streams are compared with: the watch's own reference of a direction, or one that the address names. For the
// latter the lock states come from the pairs, which are fetched only then.
import { findStream, kindOf, phaseAgainst } from "./model.js";

export function referenceIds(model, state) {
  const own = (direction) => model.directions[direction].reference ?? "";
  const pick = (id, direction) => (findStream(model, id)?.direction === direction ? id : own(direction));
  return { input: pick(state.refin, "input"), output: pick(state.refout, "output") };
}

export function needsPairs(model, state) {
  const chosen = referenceIds(model, state);
  return Object.entries(chosen).some(([direction, id]) => id !== (model.directions[direction].reference ?? ""));
}

export function findPair(pairs, first, second) {
  const list = pairs?.directions?.[first.direction]?.pairs ?? [];
  return list.find(
    (pair) =>
      (pair.first === first.id && pair.second === second.id) || (pair.first === second.id && pair.second === first.id),
  );
}

// { kind, phase: {seconds, error} or null, lines, drift, toThreshold, toSlip } of a stream against its reference.
export function compare(stream, model, references, pairs) {
  const referenceId = references[stream.direction];
  const isOwn = referenceId === (model.directions[stream.direction].reference ?? "");
  const reference = findStream(model, referenceId);
  if (isOwn || !reference || stream === reference) {
    return finish(stream, stream.lock, reference, referenceId, stream);
  }
  const pair = findPair(pairs, stream, reference);
  const sign = pair?.second === stream.id ? 1 : -1;
  return finish(stream, pair?.lock ?? "idle", reference, referenceId, {
    drift: pair?.drift ? sign * pair.drift.ratio : null,
    driftError: pair?.drift?.stderr ?? null,
    toThreshold: pair?.seconds_to_threshold ?? null,
    toSlip: pair?.seconds_to_slip ?? null,
  });
}

function finish(stream, lock, reference, referenceId, motion) {
  const kind = kindOf(stream, referenceId, lock);
  const comparable = stream.state === "running" && lock !== "different" && kind !== "reference";
  const phase = comparable ? phaseAgainst(stream, reference) : null;
  return {
    kind,
    phase,
    lines: phase && stream.line ? phase.seconds / stream.line : null,
    drift: motion.drift,
    driftError: motion.driftError,
    toThreshold: motion.toThreshold,
    toSlip: motion.toSlip,
  };
}
