"""Every answer of the server against its schema, and the metrics against promtool.

usage: api_test.py <ServeMadeUp> <folder of the schemas>
"""
import gzip
import json
import pathlib
import re
import subprocess
import sys
import unittest
import urllib.error
import urllib.request

import jsonschema

from serving_tools import check_schema

server_path, schema_folder = sys.argv[1], pathlib.Path(sys.argv[2]).resolve()


class ApiTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = subprocess.Popen([server_path, "4"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        cls.base = f"http://{cls.server.stdout.readline().strip()}"

    @classmethod
    def tearDownClass(cls):
        cls.server.communicate("", timeout=10)

    def get(self, path):
        return urllib.request.urlopen(self.base + path, timeout=10)

    def check(self, name, path):
        answer = json.load(self.get(path))
        check_schema(schema_folder, name, answer)
        return answer

    def test_answers_keep_their_schemas(self):
        streams = self.check("streams", "/api/v1/streams")["directions"]["input"]["streams"]
        self.assertEqual([stream["id"] for stream in streams], ["IN_00", "IN_01", "IN_02", "IN_03"])
        self.assertIsNone(streams[3]["phase"], "both the known and the unknown are checked")
        self.assertIsNotNone(streams[1]["phase"])
        pairs = self.check("pairs", "/api/v1/pairs")
        self.assertEqual((len(pairs["directions"]["output"]["pairs"]), len(pairs["across"]["pairs"]), len(pairs["paths"])), (6, 16, 2))
        self.assertEqual(pairs["across"]["pairs"][1]["slip"]["count"], 3)
        own = self.check("pairs", "/api/v1/pairs?stream=OUT_01")
        self.assertEqual([(pair["first"], pair["second"]) for pair in own["across"]["pairs"]], [(f"IN_0{i}", "OUT_01") for i in range(4)])
        self.assertEqual([len(own["directions"][side]["pairs"]) for side in ("input", "output")] + [len(own["paths"])], [0, 3, 1])
        for query in ("", "&step=60", "&fields=phase,drift&limit=3", "&from=1000&to=2000"):
            answer = self.check("history", "/api/v1/history?stream=IN_01" + query)
            columns = [value for value in answer.values() if isinstance(value, list)]
            self.assertEqual({len(column) for column in columns}, {len(answer["t"])})
            self.assertEqual(answer["t"], sorted(set(answer["t"])))
            for least, most in zip(answer.get("phase_min", ()), answer.get("phase_max", ())):
                self.assertTrue(least is None is most or least < most, (least, most))

    def test_incidents_are_told_newest_first_and_by_whether_they_are_open(self):
        numbers = lambda query: [each["number"] for each in self.check("incidents", f"/api/v1/incidents{query}")["incidents"]]
        self.assertEqual(numbers(""), [2, 1])
        self.assertEqual((numbers("?open=true"), numbers("?open=false"), numbers("?to=1000")), ([2], [1], []))
        with self.assertRaises(urllib.error.HTTPError):
            self.get("/api/v1/incidents?open=perhaps")

    def test_every_kind_of_event_keeps_its_schema(self):
        kinds = json.loads((schema_folder / "common.schema.json").read_text())["$defs"]["kind"]["enum"]
        events = self.check("events", "/api/v1/events?limit=1000")["events"]
        self.assertEqual({event["kind"] for event in events}, set(kinds))
        with self.assertRaises(jsonschema.ValidationError):
            check_schema(schema_folder, "event", {key: value for key, value in events[0].items() if key != "count"})

    def test_the_live_stream_keeps_its_schema(self):
        seen = set()
        with self.get("/api/v1/live?after=0") as stream:
            while seen != {"snapshot", "events"}:
                line = stream.readline().decode()
                if line.startswith("event: "):
                    kind = line.split()[1]
                elif line.startswith("data: "):
                    check_schema(schema_folder, "live", json.loads(line[6:]))
                    seen.add(kind)

    def get_as(self, accept, encoding="identity", query=""):
        request = urllib.request.Request(f"{self.base}/metrics{query}", headers={"Accept": accept, "Accept-Encoding": encoding})
        with urllib.request.urlopen(request, timeout=10) as answer:
            text = answer.read()
            packed = answer.headers["Content-Encoding"] == "gzip"
            return answer.headers["Content-Type"], gzip.decompress(text) if packed else text, len(text)

    def test_metrics_are_as_prometheus_wants_them(self):
        kind, text, _ = self.get_as("*/*")
        self.assertEqual(kind, "text/plain; version=0.0.4; charset=utf-8")
        told = []
        for query in ("?detail=fleet", "", "?detail=full"):
            _, detailed, _ = self.get_as("*/*", query=query)
            linted = subprocess.run(["promtool", "check", "metrics"], input=detailed, capture_output=True, timeout=60)
            self.assertEqual((linted.returncode, linted.stdout + linted.stderr), (0, b""))
            told.append([line.rpartition(b" ")[0] for line in detailed.splitlines() if not line.startswith(b"#")])
            self.assertEqual(len(told[-1]), len(set(told[-1])), "every series once")
        self.assertTrue(set(told[0]) < set(told[1]) < set(told[2]), "more detail has all of less")
        samples = told[1]

        kind, open_text, _ = self.get_as("application/openmetrics-text;version=1.0.0;q=0.8,text/plain;version=0.0.4;q=0.5")
        self.assertEqual(kind, "application/openmetrics-text; version=1.0.0; charset=utf-8")
        self.assertTrue(open_text.endswith(b"\n# EOF\n"))
        same = [line.rpartition(b" ")[0] for line in open_text.splitlines() if not line.startswith(b"#")]
        self.assertEqual(same, samples, "the series do not depend on the format")
        families = re.findall(rb"# TYPE (\S+) (\S+)", open_text)
        self.assertIn((b"vt_video_build", b"info"), families)
        self.assertIn((b"vt_video_fields", b"counter"), families)
        self.assertFalse([name for name, _ in families if name.endswith((b"_total", b"_info"))])
        self.assertEqual(self.get_as("application/openmetrics-text;q=0.1,text/plain")[0][:10], "text/plain")

        _, unpacked, size = self.get_as("*/*", "gzip")
        self.assertIn(b"vt_video_fields_total", unpacked)
        self.assertLess(size * 5, len(unpacked))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
