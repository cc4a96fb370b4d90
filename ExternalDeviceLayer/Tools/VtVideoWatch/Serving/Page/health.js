// What the server judges, for the eye. Nothing is judged here: statuses and reasons come as they are told.
import * as format from "./format.js";
import { eventWord } from "./words.js";
import { kinds, streamsOf, streamsOfChip, toMs } from "./model.js";

export const statuses = {
  unhealthy: { word: "Unhealthy", rank: 0, level: "bad", shape: "lost" },
  partially_healthy: { word: "Partially healthy", rank: 1, level: "warn", shape: "free" },
  healthy: { word: "Healthy", rank: 2, level: "good", shape: "locked" },
  inactive: { word: "Inactive", rank: 3, level: "warn", shape: "idle" },
};

export const domainWords = {
  signal: "Signal",
  delivery: "Delivery",
  feed: "Feed",
  synchronisation: "Synchronisation",
  observation: "Observation",
};

// What is wrong with a stream: { domain, status, reason, sinceMs }; null when nothing is.
export function faultOf({ health }) {
  const isFault = health?.overall === "unhealthy" || health?.overall === "partially_healthy";
  return isFault ? { ...health, status: health.overall } : null;
}

// "IN_04 Cable: the signal is lost", for as many streams as fit a line; those of one reason together.
function reasonsOf(streams, most) {
  const byReason = new Map();
  for (const stream of streams) {
    const worst = faultOf(stream);
    if (worst) {
      byReason.set(worst.reason, [...(byReason.get(worst.reason) ?? []), stream]);
    }
  }
  return [...byReason].map(([reason, those]) => `${named(those, most)}: ${reason}`);
}

export function named(streams, most = 3) {
  const names = streams.slice(0, most).map(format.label).join(", ");
  return streams.length > most ? `${names} and ${streams.length - most} more` : names;
}

export function healthRank(stream) {
  return statuses[stream.health?.overall]?.rank ?? statuses.inactive.rank;
}

const healthyTexts = { healthy: "All is well", inactive: "Nothing runs" };

// The line that answers whether all is well, and what is not: { level, shape, text, more }.
function judge(streams, health, nowMs) {
  if (streams.length === 0) {
    return { level: "warn", shape: "idle", text: "There is nothing to watch", more: "the board has no streams" };
  }
  const { overall, since } = health;
  const { word, level, shape } = statuses[overall];
  const inactive = streams.filter((stream) => stream.health?.overall === "inactive");
  const idle = inactive.length > 0 && inactive.length < streams.length ? [`${named(inactive)} inactive`] : [];
  const worstFirst = [...streams].sort((a, b) => healthRank(a) - healthRank(b));
  const faults = reasonsOf(worstFirst, 3);
  const text = healthyTexts[overall] ?? `${word} ${format.since(toMs(since), nowMs)}`;
  return { level, shape, text, more: [...faults, ...idle].join("; ") };
}

export function verdictOf(model) {
  return judge(streamsOf(model), model.health, model.ms);
}

// The same of one of several chips.
export function chipVerdictOf(model, { chip, answers, health }) {
  return answers
    ? judge(streamsOfChip(model, chip), health, model.ms)
    : { level: "bad", shape: "gone", text: "Does not answer", more: "nothing is known of its streams" };
}

const calmColours = { free: "running", passing: "running", lost: "idle", gone: "idle" };

// What a strip shows of a stream: its fault when it has one, else what it does: { word, shape, colour, meaning }. Who
// is well by the server's word has no colour of alarm, even if it runs free.
export function strip(stream, compared) {
  const { kind } = compared;
  const { word, meaning } = kinds[kind];
  const status = statuses[stream.health?.overall];
  const worst = faultOf(stream);
  if (status && worst) {
    const isAway = kind === "lost" || kind === "gone";
    const colour = status.level === "bad" ? "lost" : "passing";
    return { word: isAway ? word : status.word, shape: isAway ? kind : status.shape, colour, meaning: worst.reason };
  }
  return { word, shape: kind, colour: status ? (calmColours[kind] ?? kind) : kind, meaning };
}

// The newest that is worth telling of a stream: its fault, else since when it is away, else its last event: { text, ms, colour }.
export function lastWord(stream) {
  const worst = faultOf(stream);
  if (worst) {
    const colour = statuses[worst.status].level === "bad" ? "lost" : "passing";
    return { text: `${domainWords[worst.domain]}: ${worst.reason}`, ms: worst.sinceMs, colour };
  }
  if (stream.state === "lost" || stream.state === "gone") {
    return { text: stream.state === "lost" ? eventWord("signal_lost") : "Gone", ms: stream.sinceMs, colour: "" };
  }
  return stream.lastEvent && { text: eventWord(stream.lastEvent.kind), ms: stream.lastEvent.ms, colour: "" };
}

// "Delivery: 150 fields were not delivered, since 02:46:00 UTC"
export function faultText({ domain, reason, sinceMs }, nowMs) {
  return `${domainWords[domain]}: ${reason}, ${format.since(sinceMs, nowMs)}`;
}

// The five domains of a stream, as the API has them.
export function healthFacts(json) {
  return Object.entries(json.health?.domains ?? {}).map(([domain, { status, reason }]) => [
    domainWords[domain],
    [statuses[status].word, reason].filter(Boolean).join(": "),
  ]);
}
