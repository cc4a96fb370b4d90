// What the streams are compared with: the watch's own reference of a chip's direction, or one that the address names.
// For the latter phase and lock come from the pairs, which are fetched only then.
import { findStream, kindOf, streamsOf } from "./model.js";

function ownReference(model, { direction, chip }) {
  return model.directions[direction].references.find((id) => findStream(model, id)?.chip === chip) ?? "";
}

// The one that the address names, else the watch's own; empty: each chip has its own.
export function referenceIds(model, state) {
  const own = ({ references }) => (references.length === 1 ? references[0] : "");
  const pick = (id, direction) =>
    findStream(model, id)?.direction === direction ? id : own(model.directions[direction]);
  return { input: pick(state.refin, "input"), output: pick(state.refout, "output") };
}

export function needsPairs(model, state) {
  const chosen = referenceIds(model, state);
  return streamsOf(model).some((one) => !["", ownReference(model, one)].includes(chosen[one.direction]));
}

function findPair(pairs, stream, otherId) {
  const list = [...(pairs?.directions?.[stream.direction]?.pairs ?? []), ...(pairs?.chips?.pairs ?? [])];
  return list.find(
    ({ first, second }) => (first === stream.id && second === otherId) || (second === stream.id && first === otherId),
  );
}

// As a stream has it against the watch's own reference.
function compareOwn(stream) {
  return {
    phase: stream.phase === null ? null : { seconds: stream.phase, error: stream.phaseError },
    lines: stream.lines,
    drift: stream.drift,
    driftError: stream.driftError,
    toThreshold: stream.toThreshold,
    toThresholdError: stream.toThresholdError,
    toSlip: stream.toSlip,
    toSlipError: stream.toSlipError,
  };
}

// As their pair has it: its offset is that of the second after the first.
function comparePair(stream, reference, pair) {
  const sign = pair?.second === stream.id ? 1 : -1;
  const phase = pair?.offset ? { seconds: sign * pair.offset.seconds, error: pair.offset.stderr } : null;
  return {
    phase,
    lines: phase && reference.line ? phase.seconds / reference.line : null,
    drift: pair?.drift ? sign * pair.drift.ratio : null,
    driftError: pair?.drift?.stderr ?? null,
    toThreshold: pair?.seconds_to_threshold ?? null,
    toThresholdError: pair?.seconds_to_threshold_stderr ?? null,
    toSlip: pair?.seconds_to_slip ?? null,
    toSlipError: pair?.seconds_to_slip_stderr ?? null,
  };
}

// { kind, phase: {seconds, error} or null, lines, drift, toThreshold, toSlip, ... } of a stream against its reference.
export function compare(stream, model, references, pairs) {
  const ownId = ownReference(model, stream);
  const referenceId = references[stream.direction] || ownId;
  const reference = findStream(model, referenceId);
  if (!reference || stream === reference || referenceId === ownId) {
    return { ...compareOwn(stream), kind: kindOf(stream, referenceId, stream.lock) };
  }
  const pair = findPair(pairs, stream, referenceId);
  return { ...comparePair(stream, reference, pair), kind: kindOf(stream, referenceId, pair?.lock ?? "idle") };
}
