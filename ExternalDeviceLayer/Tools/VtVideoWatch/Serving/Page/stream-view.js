// One stream, opened: what it does in words, its phase and rate over time, its intervals, its facts.
import { addressOf } from "./address.js";
import { askPairsOf, askStreams, poll } from "./api.js";
import { element, setAttribute, setShape, setText, shape } from "./dom.js";
import { faultOf, faultText, healthFacts, strip as stripOf } from "./health.js";
import { makeFieldsPanel } from "./fields-panel.js";
import { makeHistogram } from "./histogram.js";
import { makeQueueGauge } from "./queue-gauge.js";
import { CStreamCharts } from "./stream-charts.js";
import { makeFacts, measuredFacts, pacingFacts, signalFacts } from "./stream-facts.js";
import { acrossText, movement } from "./words.js";

function makePanel(title, ...children) {
  return element("section", { class: "panel" }, element("h3", {}, title), ...children);
}

function makeHead(id) {
  const mark = shape("idle");
  const word = element("strong");
  const name = element("span", { class: "quiet" });
  const sentence = element("p", { class: "sentence" });
  const across = element("p", { class: "sentence across" });
  const back = element("a", { "data-state": "" }, "← All streams");
  const root = element(
    "div",
    { class: "panel stream-head" },
    element("h2", {}, id),
    name,
    element("span", {}, mark, " ", word),
    back,
    sentence,
    across,
  );
  return {
    root,
    show(stream, compared, nowMs) {
      setAttribute(back, "href", addressOf("overview"));
      const shown = stripOf(stream, compared);
      setShape(mark, shown.shape);
      setAttribute(mark.parentNode, "class", shown.colour);
      setText(word, shown.word);
      setText(name, stream.name);
      const fault = faultOf(stream);
      const more = fault ? ` ${faultText(fault, nowMs)}.` : "";
      setText(sentence, `${id} ${movement(stream, compared, nowMs)}.${more}`);
    },
    showAcross(pairs, nowMs) {
      setText(across, acrossText(id, pairs, nowMs));
    },
  };
}

// What is asked for apart, for the live stream leaves it out.
function makeSide(id) {
  const health = makeFacts();
  const signal = makeFacts();
  const queue = makeQueueGauge(id);
  const measured = makeFacts();
  const pacing = makeFacts();
  const histogram = makeHistogram();
  const root = element(
    "div",
    { class: "side" },
    makePanel("Health", health.list),
    queue.root,
    makePanel("Signal", signal.list),
    makePanel("Intervals over the last 10 s", ...histogram.parts),
    makePanel("How far fields are off their grid", pacing.list),
    makePanel("Measured", measured.list),
  );
  return {
    root,
    async fetchAndShow(abortSignal, stream, compared) {
      const json = await askStreams(abortSignal);
      const found = json.directions[stream.direction].streams.find((one) => one.id === id);
      if (found && !abortSignal.aborted) {
        health.show(healthFacts(found));
        queue.show(found);
        signal.show(signalFacts(found));
        pacing.show(pacingFacts(found));
        measured.show(measuredFacts(found, compared));
        histogram.show(found.intervals);
      }
    },
  };
}

const factsEveryMs = 2000;
const pairsEveryMs = 5000; // what they foretell changes slowly

export function makeStreamView(id) {
  const head = makeHead(id);
  const charts = new CStreamCharts(id);
  const side = makeSide(id);
  const fields = makeFieldsPanel(id);
  const root = element("div", { class: "stream-view" }, head.root, charts.root, side.root, fields.root);
  let poller = null;
  let pairsPoller = null;
  let pairs = null;
  let shown = null;
  return {
    root,
    show(context) {
      const stream = context.find(id);
      if (!stream) {
        root.replaceChildren(element("p", { class: "message" }, `There is no stream ${id} on this board.`));
        return;
      }
      shown = { stream, compared: context.compared.get(stream), ms: context.model.ms };
      head.show(stream, shown.compared, shown.ms);
      head.showAcross(pairs, shown.ms);
      charts.show(context);
      poller ??= poll(
        () => factsEveryMs,
        (signal) => side.fetchAndShow(signal, shown.stream, shown.compared),
      );
      pairsPoller ??= poll(
        () => pairsEveryMs,
        async (signal) => {
          pairs = await askPairsOf(id, signal);
          head.showAcross(pairs, shown.ms);
        },
      );
    },
    close() {
      poller?.stop();
      pairsPoller?.stop();
      charts.close();
      fields.close();
    },
  };
}
