"""Two watches on two scenarios with known phases, scraped by a real Prometheus with the configuration of deploy/.

usage: fleet_test.py <VtVideoWatch> <folder deploy>
"""
import json
import math
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.parse
import urllib.request
from datetime import datetime, timezone

from serving_tools import Watch, free_port, wait_for

watch_path, deploy = sys.argv[1], pathlib.Path(sys.argv[2])
rate, start = 60, 100_000_000  # of the streams, hertz; the counter at loading, ticks
# Phases in microseconds: by machine, input 0 and up. The last one drifts, so that something is known of slips.
phases = {"first": (0, 3000, 100), "second": (700, 9000, 16600)}
scenario = "[[chip]]\n" + "[[chip.input]]\nstandard = '1080p60'\nphase_us = %d\n" * 2
scenario += "[[chip.input]]\nstandard = '1080p60'\nphase_us = %d\nppm = 5\n"


def get_json(url):
    with urllib.request.urlopen(url, timeout=10) as answer:
        return json.load(answer)


def wrap(seconds):
    return seconds - round(seconds * rate) / rate


class PhasedWatch(Watch):
    def __init__(self, folder, name):
        super().__init__(folder, scenario % phases[name], watch_path, "serve", "--listen", "127.0.0.1:0")
        self.phases = phases[name]

    def tai_phases(self):
        """Of each stream, by its scenario and by the tick and the moment that one snapshot ties together."""
        snapshot = self.get("/api/v1/streams")["snapshot"]
        whole, _, rest = snapshot["utc"].rstrip("Z").partition(".")
        seconds = datetime.fromisoformat(whole).replace(tzinfo=timezone.utc).timestamp() % 3600
        began = seconds + int(rest) * 1e-9 - (snapshot["tick"] - start) / snapshot["tick_frequency_hz"]
        return [wrap(began + phase * 1e-6) for phase in self.phases]


class FleetTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="vt-fleet-"))
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cls.watches = {}
        for name in phases:
            cls.watches[name] = PhasedWatch(cls.folder, name)
            cls.addClassCleanup(cls.watches[name].process.kill)
        shutil.copytree(deploy / "prometheus", cls.folder / "prometheus")
        cls.configure()
        port = free_port()
        cls.base = f"http://127.0.0.1:{port}"
        cls.server = subprocess.Popen(
            ["prometheus", f"--config.file={cls.folder}/prometheus/prometheus.yml",
             f"--storage.tsdb.path={cls.folder}/data", f"--web.listen-address=127.0.0.1:{port}"],
            stdout=subprocess.DEVNULL, stderr=os.open(cls.folder / "prometheus.log", os.O_WRONLY | os.O_CREAT))
        cls.addClassCleanup(cls.server.wait)
        cls.addClassCleanup(cls.server.terminate)
        # What takes longest to be known.
        wait_for(lambda: len(cls.query("instance_direction_index:vt_video_wall_offset_seconds:wrapped")) == 6 and cls.query("vt_video_slip_seconds")
                 and cls.query("vt_video_tdev_seconds") and cls.query('vt_video_rate_hertz{window="10s"}'),
                 (cls.folder / "prometheus.log").read_text, 90)

    @classmethod
    def configure(cls):
        """The files of deploy/ as they are, but faster and with our targets."""
        path = cls.folder / "prometheus/prometheus.yml"
        path.write_text(re.sub(r"(scrape_interval|scrape_timeout|evaluation_interval): \d+s", r"\1: 1s",
                               path.read_text()))
        first, second = (cls.watches[name].address() for name in phases)
        (cls.folder / "prometheus/targets/example.yml").write_text(
            f"- targets: ['{first}']\n  labels: {{ wall: w, clock: reference }}\n"
            f"- targets: ['{second}']\n  labels: {{ wall: w }}\n")

    @classmethod
    def query(cls, expression):
        try:
            answer = get_json(f"{cls.base}/api/v1/query?" + urllib.parse.urlencode({"query": expression}))
        except OSError:
            return []
        return answer["data"]["result"]

    def figures(self, metric):
        return {(one["metric"]["instance"], int(one["metric"]["index"])): float(one["value"][1])
                for one in self.query(metric)}

    def test_offsets_across_machines_are_those_of_the_scenarios(self):
        reference = self.watches["first"].tai_phases()[0]
        offsets = self.figures("instance_direction_index:vt_video_wall_offset_seconds:wrapped")
        uncertainties = self.figures("instance_direction_index:vt_video_wall_offset_uncertainty_seconds:sum")
        for watch in self.watches.values():
            own = watch.tai_phases()
            for index in (0, 1):
                key = (watch.address(), index)
                self.assertAlmostEqual(wrap(offsets[key] - (own[index] - reference)), 0, delta=50e-6, msg=key)
                self.assertGreater(uncertainties[key], 0)
            # Streams of one machine share its clock: no uncertainty of that is between them.
            between = wrap(offsets[watch.address(), 1] - offsets[watch.address(), 0])
            self.assertAlmostEqual(between, wrap((watch.phases[1] - watch.phases[0]) * 1e-6), delta=1e-6)

    def test_every_query_of_the_dashboard_has_an_answer(self):
        dashboard = json.loads((deploy / "grafana/vt-video.json").read_text())
        expressions = [target["expr"] for panel in dashboard["panels"] for target in panel["targets"]]
        self.assertGreater(len(expressions), 20)
        for expression in expressions:
            asked = re.sub(r"\$(job|instance|direction)\b", ".+", re.sub(r"\$__(rate_interval|range)", "10s", expression))
            self.assertNotIn("$", asked)
            values = [float(one["value"][1]) for one in self.query(asked)]
            self.assertTrue(values, expression)
            self.assertFalse(any(math.isnan(value) for value in values), expression)

    def test_every_rule_and_target_is_well(self):
        groups = get_json(f"{self.base}/api/v1/rules")["data"]["groups"]
        rules = [rule for group in groups for rule in group["rules"]]
        self.assertEqual([rule for rule in rules if rule["health"] == "err"], [])
        targets = get_json(f"{self.base}/api/v1/targets")["data"]["activeTargets"]
        self.assertEqual([target["health"] for target in targets], ["up", "up"])

    @classmethod
    def tearDownClass(cls):
        # Scrapes come every second, and a listener waits in the middle of its stream.
        for watch in cls.watches.values():
            with urllib.request.urlopen(f"http://{watch.address()}/api/v1/live", timeout=10) as listener:
                listener.readline()
                status, seconds = watch.end()
            assert status == 0 and seconds < 1.5, f"ended with {status} after {seconds:.2f} s"


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
