// What the page knows of the watch: one object per stream, the same from an answer of the API and from the live stream.
// Seconds, hertz, ratios as the API has them; moments in milliseconds.

export const directions = ["input", "output"];
export const directionTitles = { input: "Inputs", output: "Outputs" };

export function toMs(utc) {
  return utc ? Date.parse(utc) : NaN;
}

// The one that is known best among those that still follow a change.
function shownRate(rates) {
  const known = (window) => rates.find((one) => one.window === window && one.hz !== null);
  return known("10s") ?? known("1s") ?? null;
}

// When a stream that the page has not known before has lost fields, as far as its last event tells.
function lossOf(event) {
  return event?.kind === "fields_lost" ? toMs(event.utc) : -Infinity;
}

// A stream from /api/v1/streams, or from the live stream, which leaves out what rarely changes: that comes from known.
export function toStream(json, nowMs, known = {}) {
  const rate = json.rates ? shownRate(json.rates) : json.rate;
  const counters = json.counters ?? json;
  const hertz = rate?.hz ?? null;
  const lost = counters.fields_lost ?? 0;
  return {
    id: json.id,
    direction: json.direction ?? (json.id.startsWith("OUT") ? "output" : "input"),
    name: json.name,
    standard: json.standard,
    format: json.format ?? known.format ?? "",
    setup: json.setup ?? known.setup ?? "",
    state: json.state,
    sinceMs: toMs(json.since),
    lock: json.lock,
    hertz,
    ppm: rate?.ppm ?? null,
    ppmError: rate?.stderr_ppm ?? null,
    nominal: json.nominal?.hz ?? json.nominal_hz ?? null,
    period: hertz ? 1 / hertz : null,
    line: json.line_seconds ?? known.line ?? null,
    phase: json.phase?.seconds ?? null,
    lines: json.phase?.lines ?? null,
    phaseError: json.phase?.stderr ?? null,
    drift: json.drift?.ratio ?? null,
    driftError: json.drift?.stderr ?? null,
    toThreshold: json.seconds_to_threshold ?? null,
    toThresholdError: json.seconds_to_threshold_stderr ?? null,
    toSlip: json.seconds_to_slip ?? null,
    toSlipError: json.seconds_to_slip_stderr ?? null,
    lost,
    lossMs: lost > (known.lost ?? lost) ? nowMs : (known.lossMs ?? lossOf(json.last_event)),
    unobserved: counters.fields_unobserved ?? 0,
    losses: counters.signal_losses ?? 0,
    lastEvent: json.last_event?.kind
      ? { number: json.last_event.number, kind: json.last_event.kind, ms: toMs(json.last_event.utc) }
      : null,
  };
}

// The whole watch, from either of both.
export function toModel(json, before) {
  const model = {
    number: json.snapshot.number,
    ms: toMs(json.snapshot.utc),
    host: json.host,
    simulated: json.simulated ?? json.board?.simulated ?? false,
    board: json.board ?? before?.board ?? null,
    clock: json.clock ?? before?.clock ?? null,
    threshold: json.threshold ?? before?.threshold ?? null,
    costs: json.costs ?? { ...before?.costs, ...pickCosts(json) },
    directions: {},
  };
  for (const direction of directions) {
    const given = json.directions[direction];
    model.directions[direction] = {
      reference: given.reference,
      groups: given.groups ?? before?.directions[direction].groups ?? [],
      streams: given.streams.map((stream) =>
        toStream(stream, model.ms, before ? findStream(before, stream.id) : undefined),
      ),
    };
  }
  return model;
}

function pickCosts({ ring_overruns, store_failing, journal_failing }) {
  return { ring_overruns, store_failing, journal_failing };
}

export function streamsOf(model) {
  return directions.flatMap((direction) => model.directions[direction].streams);
}

export function findStream(model, id) {
  return streamsOf(model).find((stream) => stream.id === id);
}

// One word and one shape for what a stream is doing.
export const kinds = {
  lost: { word: "No signal", rank: 0, meaning: "had a signal and lost it" },
  gone: { word: "Gone", rank: 1, meaning: "the device does not answer any more" },
  free: { word: "Free", rank: 2, meaning: "runs, but out of step with the reference" },
  passing: { word: "Passing", rank: 3, meaning: "in step at the moment, but drifting through" },
  running: { word: "Running", rank: 4, meaning: "runs at a rate of its own, or too little is known to compare it" },
  locked: { word: "Locked", rank: 5, meaning: "in step with the reference and staying there" },
  reference: { word: "Reference", rank: 6, meaning: "what the others are compared with" },
  idle: { word: "Idle", rank: 7, meaning: "nothing comes, and nothing is meant to" },
};

export function kindOf(stream, referenceId, lock) {
  if (stream.state !== "running") {
    return stream.state;
  }
  if (stream.id === referenceId) {
    return "reference";
  }
  return ["locked", "passing", "free"].includes(lock) ? lock : "running";
}
