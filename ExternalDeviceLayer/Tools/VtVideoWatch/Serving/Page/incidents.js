// The incidents that are open: what is broken, since when, whose fault it is as far as is known, what to do first.
import { addressOf } from "./address.js";
import { element } from "./dom.js";
import * as format from "./format.js";
import { domainWords, named, statuses } from "./health.js";
import { findStream, toMs } from "./model.js";

const isOutput = (incident) => incident.streams.every((id) => id.startsWith("OUT"));

// Whose fault, and the first step: of what the streams share, else of the domain.
const adviceOfShare = {
  machine: ["this machine", "See what else loads the machine, and whether it was stopped or slept."],
  board: ["the board or what all its connectors share", "Check the board: its driver, its power, its reference."],
  lock_group: ["what the streams of the lock group share", "Check their reference first, then each cable."],
};

const adviceOfDomain = {
  signal: () => ["the source or its cable", "Check the cable, then whether the source runs."],
  delivery: () => ["the board or its driver", "Look for messages of the driver; the signal itself is there."],
  feed: (incident) =>
    isOutput(incident)
      ? ["the program that feeds it", "Look whether the program that makes its pictures still works."]
      : ["the program that takes its pictures", "Look whether the program that takes its pictures keeps up."],
  synchronisation: () => ["the source's reference", "Check whether the source is still on the house's reference."],
  observation: () => ["this machine, not the signal", "See what else loads the machine; the signal may be well."],
};

function adviceOf(incident) {
  const isShared = incident.domain !== "feed" && incident.shared in adviceOfShare;
  return isShared ? adviceOfShare[incident.shared] : adviceOfDomain[incident.domain](incident);
}

function lostText({ lost, domain }) {
  const how = domain === "observation" ? "not seen" : "lost";
  return lost > 0 ? `, ${format.counted(lost, domain === "feed" ? "picture" : "field")} ${how}` : "";
}

// { what, since, whose, first } of an incident.
function incidentTexts(incident, model) {
  const streams = incident.streams.map((id) => findStream(model, id) ?? { id });
  const [whose, first] = adviceOf(incident);
  const beginMs = toMs(incident.begin);
  return {
    what: `${domainWords[incident.domain]} of ${named(streams)}: ${incident.cause}`,
    since: `${format.since(beginMs, model.ms)}, for ${format.longAge((model.ms - beginMs) / 1000)}${lostText(incident)}`,
    whose,
    first,
  };
}

function makeIncident(incident, model) {
  const { what, since, whose, first } = incidentTexts(incident, model);
  const around = addressOf("stream", { stream: incident.first_stream ?? incident.streams[0] });
  const level = statuses[incident.status]?.level ?? "bad";
  return element(
    "li",
    { class: `incident is-${level}`, "data-number": incident.number },
    element("a", { "data-state": "", class: "what", href: around }, what),
    element("span", { class: "since" }, since),
    element("span", { class: "whose" }, `Whose fault: ${whose}.`),
    element("span", { class: "first" }, `First: ${first}`),
  );
}

const mostShown = 5;

const rankOf = ({ status }) => statuses[status]?.rank ?? 0;

// Shows those that are open into a list; what has not changed is not made anew.
export function showIncidents(list, incidents, model) {
  const open = incidents
    .filter((incident) => incident.end === null)
    .sort((a, b) => rankOf(a) - rankOf(b) || b.number - a.number);
  const key = JSON.stringify(open.map((incident) => incidentTexts(incident, model)));
  list.hidden = open.length === 0;
  if (list.dataset.key === key) {
    return;
  }
  list.dataset.key = key;
  const more = open.length > mostShown ? [element("li", {}, `and ${open.length - mostShown} more`)] : [];
  list.replaceChildren(...open.slice(0, mostShown).map((incident) => makeIncident(incident, model)), ...more);
}
