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

// The live stream tells the worst domain, the API all of them: { overall, domain, reason, sinceMs }.
function toHealth({ overall, since, domain, reason, domains }) {
  const [worst, said] = Object.entries(domains ?? {}).find(([, { status }]) => status === overall) ?? [
    domain,
    { reason },
  ];
  return { overall, domain: worst, reason: said.reason, sinceMs: toMs(since) };
}

// Buffers of the last second: { ready, loaned }; null when they are not known.
function toQueue(queue) {
  const [newest] = queue?.windows ?? [];
  const ready = newest ? newest.ready?.mean : queue?.ready;
  const loaned = newest ? newest.loaned?.mean : queue?.loaned;
  return typeof ready === "number" ? { ready, loaned } : null;
}

// A stream from /api/v1/streams, or from the live stream, which leaves out what rarely changes: that comes from known.
function toStream(json, known = {}) {
  const rate = json.rates ? shownRate(json.rates) : json.rate;
  const counters = json.counters ?? json;
  const hertz = rate?.hz ?? null;
  return {
    id: json.id,
    chip: json.chip,
    direction: json.direction ?? (/(^|:)OUT/.test(json.id) ? "output" : "input"),
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
    lost: counters.fields_lost ?? 0,
    unobserved: counters.fields_unobserved ?? 0,
    health: json.health ? toHealth(json.health) : (known.health ?? null),
    queue: toQueue(json.queue),
    lastEvent: json.last_event?.kind ? { kind: json.last_event.kind, ms: toMs(json.last_event.utc) } : null,
  };
}

// The whole watch, from either of both.
export function toModel(json, before) {
  const model = {
    ms: toMs(json.snapshot.utc),
    host: json.host,
    simulated: json.simulated ?? json.board?.simulated ?? false,
    board: json.board ?? before?.board ?? null,
    clock: json.clock ?? before?.clock ?? null,
    threshold: json.threshold ?? before?.threshold ?? null,
    costs: json.costs ?? { ...before?.costs, ...pickCosts(json) },
    health: json.health ?? before?.health ?? null,
    chips: json.chips ?? [], // only where there are several
    directions: {},
  };
  for (const direction of directions) {
    const given = json.directions[direction];
    model.directions[direction] = {
      references: given.references ?? [given.reference].filter(Boolean), // one per chip
      groups: given.groups ?? before?.directions[direction].groups ?? [],
      streams: given.streams.map((stream) => toStream(stream, before ? findStream(before, stream.id) : undefined)),
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

// Those of a chip; of all where there is but one.
export function streamsOfChip(model, chip) {
  return streamsOf(model).filter((stream) => model.chips.length < 2 || stream.chip === chip);
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
