"""A watch that says what a test tells it to: the page's own files, and answers of the API made up here."""
import copy
import datetime
import http.server
import json
import os
import queue
import threading
import urllib.parse

PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)),
                    "../../ExternalDeviceLayer/Tools/VtVideoWatch/Serving/Page")
DYGRAPHS = "/usr/share/javascript/dygraphs"
TYPES = {".js": "text/javascript", ".css": "text/css", ".html": "text/html", ".svg": "image/svg+xml"}
NOW = 1772334000000  # 2026-03-01T03:00:00Z


def utc(ms):
    moment = datetime.datetime.fromtimestamp(ms / 1000, datetime.timezone.utc)
    return moment.strftime("%Y-%m-%dT%H:%M:%S.") + f"{ms % 1000:03d}Z"


def estimate(name, value, error):
    return {name: value, "stderr": error}


DOMAINS = ("signal", "delivery", "feed", "synchronisation", "observation")
RANKS = ("inactive", "healthy", "partially_healthy", "unhealthy")


def health(since=NOW - 7200000, **faults):
    """Well, but for the domains that are given: feed=("unhealthy", "no new picture comes")."""
    said = {domain: faults.get(domain, ("healthy", "")) for domain in DOMAINS}
    return {"overall": max((status for status, _ in said.values()), key=RANKS.index), "since": utc(since),
            "domains": {domain: {"status": status, "since": utc(since), "reason": reason}
                        for domain, (status, reason) in said.items()}}


INACTIVE = {"overall": "inactive", "since": utc(NOW), "domains": {}}


def incident(number, begin_ms, domain, streams, cause, shared="stream", **changes):
    return {"number": number, "begin": utc(begin_ms), "end": None, "domain": domain, "status": "unhealthy",
            "streams": streams, "first_stream": streams[0], "shared": shared, "cause": cause, "lost": 0,
            "first_event": None, **changes}


def stream(index, name, direction="input", **changes):
    """A healthy stream of 59.94 Hz, 3 us after the reference."""
    made = {
        "id": f"{'IN' if direction == 'input' else 'OUT'}_{index:02d}", "index": index, "direction": direction,
        "name": name, "standard": "1920 x 1080p @ 59.94 Hz", "format": "YUV422", "setup": "started",
        "state": "running", "since": utc(NOW - 7200000), "nominal": {"numerator": 60000, "denominator": 1001,
                                                                     "hz": 60000 / 1001},
        "line_seconds": 14.83e-6, "period_seconds": 1001 / 60000,
        "counters": dict.fromkeys(
            ("fields", "fields_observed", "fields_lost", "fields_unobserved", "fields_repeated", "counter_backward",
             "counter_forward", "fields_early", "fields_late", "phase_steps", "signal_losses", "timing_changes", "format_changes",
             "state_changes", "buffers_skipped", "buffers_set", "buffers_repeated", "buffers_overwritten",
             "wait_time_outs", "late_wakes", "signal_lost_seconds", "running_seconds", "watched_seconds"), 0),
        "rates": [{"window": "10s", "hz": 59.940060, "stderr_hz": 1e-6, "ppm": 0.01, "stderr_ppm": 0.02}],
        "jitter": {"rms_seconds": 1e-7, "peak_seconds": 4e-7}, "tdev": [],
        "intervals": {"bin_seconds": 1e-6, "counts": [0] * 20 + [598] + [0] * 20},
        "phase": {"seconds": 3e-6, "stderr": 2e-8, "lines": 0.2}, "drift": {"ratio": 0.0, "stderr": 1e-9},
        "health": health(), "lock": "locked", "seconds_to_threshold": None, "seconds_to_slip": None, "tai": None, "last_event": None}
    made["counters"].update(changes.pop("counters", {}))
    made.update(changes)
    return made


def lost(index, name, since_ms, **changes):
    return stream(index, name, state="lost", since=utc(since_ms), lock="idle", rates=[], phase=None, drift=None,
                  health=health(since_ms, signal=("unhealthy", "the signal is lost")), **changes)


def snapshot(streams, ms=NOW, **changes):
    sides = {side: [one for one in streams if one["direction"] == side] for side in ("input", "output")}
    worst = max((one["health"]["overall"] for one in streams), key=RANKS.index, default="inactive")
    since = min((one["health"]["since"] for one in streams if one["health"]["overall"] == worst), default=utc(ms))
    made = {"snapshot": {"number": 1, "utc": utc(ms), "tick": 0, "tick_frequency_hz": 1000000}, "host": "rack-7", "health": {"overall": worst, "since": since, "incidents_open": 1},
            "board": {"library": "libVeltrano.so", "version": "1.0.0.0", "simulated": False},
            "threshold": {"seconds": None, "lines": 1.0},
            "costs": {"ring_overruns": 0, "store_failing": False, "journal_failing": False},
            "directions": {side: {"reference": given[0]["id"] if given else None, "groups": [], "streams": given}
                           for side, given in sides.items()}}
    made.update(changes)
    return made


def event(number, ms, kind, of="IN_00", **changes):
    return {"number": number, "utc": utc(ms), "tick": None, "kind": kind, "stream": of,
            "direction": "input", "index": int(of[-2:]), **changes}


def history(of, ms, seconds=300, dark_from=None):
    """A point per second up to ms, 3 us and 0 ppm, and nothing from dark_from on."""
    times = [ms - 1000 * i for i in range(seconds, 0, -1)]
    known = [dark_from is None or t < dark_from for t in times]

    def column(value):
        return [value if one else None for one in known]
    return {"stream": of, "t": times, "reach": {"seconds_from": times[0], "minutes_from": times[0]},
            "rate": column(60000 / 1001), "rate_stderr": column(6e-8), "phase": column(3e-6),
            "phase_stderr": column(2e-8), "ready": column(1.4), "phase_min": column(3e-6), "phase_max": column(3e-6)}


def as_live(streams):
    """The live stream tells the worst domain only."""
    told = copy.deepcopy(streams)
    for one in (each for side in told["directions"].values() for each in side["streams"]):
        domains = one["health"].pop("domains")
        worst = next((name for name, said in domains.items() if said["status"] == one["health"]["overall"]), "signal")
        one["health"].update(domain=worst, reason=domains.get(worst, {}).get("reason", ""))
    return told


class MadeUpWatch:
    def __init__(self):
        self.streams = snapshot([])
        self.pairs = {"directions": {side: {"pairs": [], "groups": []} for side in ("input", "output")}}
        self.events = []
        self.incidents = []
        self.recordings = {}
        self.history = lambda query: history(query["stream"], NOW)
        self.asked = []
        self.listeners = []
        made_up = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_GET(self):
                made_up.answer(self)

            def log_message(self, *_):
                pass
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.server.daemon_threads = True
        self.base = f"http://127.0.0.1:{self.server.server_port}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def close(self):
        self.silence()
        self.server.shutdown()
        self.server.server_close()

    def show(self, streams, **changes):
        """The next snapshot, to everybody who listens."""
        number = self.streams["snapshot"]["number"] + 1
        self.streams = snapshot(copy.deepcopy(streams), **changes)
        self.streams["snapshot"]["number"] = number
        self.tell("snapshot", as_live(self.streams))

    def add(self, events):
        self.events = sorted(self.events + events, key=lambda one: (one["utc"], one["number"]), reverse=True)
        self.tell("events", {"events": events})

    def tell(self, kind, what):
        for listener in list(self.listeners):
            listener.put(f"event: {kind}\ndata: {json.dumps(what)}\n\n")

    def silence(self):
        """Ends the live streams."""
        for listener in list(self.listeners):
            listener.put(None)

    def answer(self, request):
        address = urllib.parse.urlsplit(request.path)
        query = dict(urllib.parse.parse_qsl(address.query))
        self.asked.append((address.path, query))
        if address.path == "/api/v1/live":
            self.live(request)
            return
        made = {"/api/v1/streams": lambda: self.streams, "/api/v1/pairs": lambda: self.pairs,
                "/api/v1/incidents": lambda: {"incidents": self.incidents},
                "/api/v1/history": lambda: self.history(query),
                "/api/v1/recordings": lambda: {"are_kept": bool(self.recordings), "recordings":
                                               [{"name": name, "bytes": 1 << 20} for name in self.recordings]},
                "/api/v1/fields": lambda: self.recordings[query["recording"]],
                "/api/v1/events": lambda: self.find_events(query)}.get(address.path)
        if made:
            self.send(request, "application/json", json.dumps(made()).encode())
            return
        name = address.path[1:] or "index.html"
        folder = DYGRAPHS if name.startswith("dygraph") else PAGE
        with open(os.path.join(folder, os.path.basename(name)), "rb") as file:
            self.send(request, TYPES[os.path.splitext(name)[1]], file.read())

    @staticmethod
    def send(request, kind, body):
        request.send_response(200)
        request.send_header("Content-Type", kind)
        request.send_header("Content-Length", str(len(body)))
        request.end_headers()
        request.wfile.write(body)

    def live(self, request):
        request.send_response(200)
        request.send_header("Content-Type", "text/event-stream")
        request.end_headers()
        mine = queue.Queue()
        self.listeners.append(mine)
        try:
            message = f"retry: 100\nevent: snapshot\ndata: {json.dumps(as_live(self.streams))}\n\n"
            while message:
                request.wfile.write(message.encode())
                try:
                    message = mine.get(timeout=1)
                except queue.Empty:
                    message = f"event: snapshot\ndata: {json.dumps(as_live(self.streams))}\n\n"
        except OSError:
            pass
        finally:
            self.listeners.remove(mine)
            request.close_connection = True

    def find_events(self, query):
        found = [one for one in self.events
                 if one["number"] > int(query.get("after", 0))
                 and ("to" not in query or one["utc"] < utc(int(query["to"])))
                 and query.get("stream", one["stream"]) == one["stream"]
                 and query.get("kind", one["kind"]) == one["kind"]]
        most = int(query.get("limit", 100))
        return {"events": found[:most], "truncated": len(found) > most}
