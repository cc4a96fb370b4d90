// Questions to the watch, and its live stream. Everything comes from where the page came from.

export class CApiError extends Error {}

async function ask(path, query, signal) {
  const text = new URLSearchParams(query).toString();
  const answer = await fetch(text ? `${path}?${text}` : path, { signal, cache: "no-store" });
  const json = await answer.json().catch(() => null);
  if (!answer.ok) {
    throw new CApiError(json?.error ?? `${path}: ${answer.status}`);
  }
  return json;
}

export const askStreams = (signal) => ask("api/v1/streams", {}, signal);
export const askPairs = (signal) => ask("api/v1/pairs", {}, signal);
export const askPairsOf = (stream, signal) => ask("api/v1/pairs", { stream }, signal);
export const askHistory = (query, signal) => ask("api/v1/history", query, signal);
export const askIncidents = (query, signal) => ask("api/v1/incidents", query, signal);
export const askRecordings = (signal) => ask("api/v1/recordings", {}, signal);
export const askFields = (query, signal) => ask("api/v1/fields", query, signal);
export const askEvents = (query, signal) => ask("api/v1/events", query, signal);

let isPaused = false;

export function pauseAsking(paused) {
  isPaused = paused;
}

const breathMs = 250; // how soon a poller sees that it is due
const retryMs = 2000; // after a question without an answer

// Asks at once, and again everyMs() after each answer, but not while nobody looks or updates are paused.
// question(signal) fetches and takes; what it throws means another try soon.
export function poll(everyMs, question) {
  let request = new AbortController();
  let timer = 0;
  let dueMs = -Infinity;
  const run = async (isWanted) => {
    clearTimeout(timer);
    const { signal } = request;
    if (isWanted || (!isPaused && !document.hidden && Date.now() >= dueMs)) {
      const isAnswered = await question(signal).then(
        () => true,
        () => false,
      );
      dueMs = Date.now() + (isAnswered ? everyMs() : Math.min(everyMs(), retryMs));
    }
    if (!signal.aborted) {
      timer = setTimeout(run, breathMs);
    }
  };
  run(true);
  return {
    // Asks now; an answer that is still on its way is of no use any more.
    again() {
      request.abort();
      request = new AbortController();
      return run(true);
    },
    stop() {
      request.abort();
      clearTimeout(timer);
    },
  };
}

const lateAfterMs = 3500; // snapshots come once a second

// Listens to the watch for ever. on: { snapshot(json), events(json), link("live" | "late" | "gone", sinceMs) }
export function listen(on) {
  let lastMs = Date.now();
  let state = "";
  let source = null;
  const set = (next) => {
    if (next !== state) {
      state = next;
      on.link(state, lastMs);
    }
  };
  const connect = () => {
    source = new EventSource("api/v1/live");
    source.addEventListener("snapshot", (event) => {
      lastMs = Date.now();
      set("live");
      on.snapshot(JSON.parse(event.data));
    });
    source.addEventListener("events", (event) => on.events(JSON.parse(event.data)));
    source.addEventListener("error", () => set("gone"));
  };
  connect();
  addEventListener("pagehide", () => source.close());
  setInterval(() => {
    if (Date.now() - lastMs > lateAfterMs) {
      set(source.readyState === EventSource.OPEN ? "late" : "gone");
    }
  }, 1000);
  // The browser itself comes back after a broken line, but not after a refusal.
  setInterval(() => {
    if (source.readyState === EventSource.CLOSED) {
      connect();
    }
  }, 5000);
}
