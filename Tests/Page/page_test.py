#!/usr/bin/env python3
"""The page in a real browser, against the real program on a scenario.

page_test.py <VtVideoWatch> <folder of the simulated board's library>; both come from the build.
"""
import json
import os
import pathlib
import re
import sys
import tempfile
import time
import unittest

from selenium import webdriver
from selenium.common.exceptions import TimeoutException
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../Serving"))
from made_up_watch import (INACTIVE, NOW, MadeUpWatch, estimate, event, health, history, incident, lost, snapshot,
                           stream, utc)
from serving_tools import Watch

HERE = os.path.dirname(os.path.abspath(__file__))
PROGRAM, BOARD = sys.argv[1:3]
HOSTILE = "<img src=x onerror=document.title='owned'>"


def start_browser():
    options = Options()
    options.binary_location = "/usr/bin/chromium"
    for switch in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                   "--disable-background-networking", "--disable-component-update", "--disable-sync"):
        options.add_argument(switch)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


def serve(test_class, scenario):
    """The program on a free port and a scenario, for all cases of a class."""
    folder = tempfile.TemporaryDirectory()
    test_class.addClassCleanup(folder.cleanup)
    watch = Watch(folder.name, scenario, PROGRAM, "serve", "--listen", "127.0.0.1:0", LD_LIBRARY_PATH=BOARD)
    test_class.addClassCleanup(watch.process.communicate)
    test_class.addClassCleanup(watch.process.kill)
    test_class.base = f"http://{watch.address()}"
    watch.await_snapshot(1)
    return watch


class PageCase(unittest.TestCase):
    """A browser, and how a test speaks with it."""

    @classmethod
    def setUpClass(cls):
        cls.browser = start_browser()
        cls.addClassCleanup(cls.browser.quit)

    def setUp(self):
        self.size()

    def size(self, width=1280, height=900, dark=False):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
        scheme = {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [scheme]})

    def open(self, query=""):
        self.browser.get(self.base + "/" + query)

    def until(self, condition, seconds=20):
        return WebDriverWait(self.browser, seconds, 0.1).until(lambda _: condition())

    def until_equal(self, expected, get):
        try:
            self.until(lambda: get() == expected, 8)
        except TimeoutException:
            self.assertEqual(get(), expected)

    def script(self, text, *arguments):
        return self.browser.execute_script(text, *arguments)

    def find(self, selector):
        return self.until(lambda: self.browser.find_elements(By.CSS_SELECTOR, selector))[0]

    def row(self, stream):
        return self.browser.find_element(By.CSS_SELECTOR, f"tr[data-stream={stream}]")

    def rows(self):
        return self.script("return [...document.querySelectorAll('tr[data-stream]')].map((row) => row.dataset.stream)")

    def text(self, selector):
        found = self.script("return document.querySelector(arguments[0])?.textContent ?? ''", selector)
        return found.replace("\u00a0", " ").replace("\u2011", "-")

    def texts(self, selector):
        found = self.script("return [...document.querySelectorAll(arguments[0])].map((one) => one.textContent)", selector)
        return [one.replace("\u00a0", " ").replace("\u2011", "-") for one in found]


class RealWatchTest(PageCase):
    """The page and the program together."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.watch = serve(cls, pathlib.Path(HERE, "Wall.toml").read_text())

    def test_1_planted_loss_is_seen_within_two_seconds_and_without_reload(self):
        self.open()
        self.until(lambda: len(self.rows()) == 8)
        self.script("window.notReloaded = true")

        def lost():
            return int(self.row("IN_04").find_element(By.CSS_SELECTOR, ".lost-fields").text)
        before = lost()
        self.until(lambda: lost() > before, 25)
        seen = time.time()
        events = self.watch.get("/api/v1/events?stream=IN_04&kind=fields_lost")["events"]
        happened = events[0]["utc"]
        moment = time.mktime(time.strptime(happened[:19], "%Y-%m-%dT%H:%M:%S")) - time.timezone + float(happened[19:-1])
        self.assertLess(seen - moment, 2.0)
        self.assertTrue(self.script("return window.notReloaded"))
        self.assertRegex(self.row("IN_04").text, "Delivery: .* not delivered")

    def test_2_every_stream_is_shown_as_the_api_has_it(self):
        self.open()
        self.until(lambda: "No signal" in self.row("IN_05").text and "Locked" in self.row("IN_01").text, 40)
        answer = self.watch.get("/api/v1/streams")
        streams = [stream for one in answer["directions"].values() for stream in one["streams"]]
        self.assertEqual(sorted(self.rows()), sorted(stream["id"] for stream in streams))
        for stream in streams:
            shown = self.row(stream["id"]).text
            self.assertIn(stream["name"], shown)
            if stream["state"] == "running":
                self.assertIn(f"{stream['rates'][1]['hz']:.3f}"[:5], shown)
        self.assertRegex(self.row("IN_01").find_element(By.CSS_SELECTOR, ".phase").text, r"^[+]\d+\.\d\d$")
        self.assertIn("Simulated board", self.text("#badges"))
        self.assertIn(HOSTILE, self.row("IN_02").text)
        self.assertEqual(self.browser.find_elements(By.TAG_NAME, "img"), [])
        self.assertNotEqual(self.browser.title, "owned")
        self.browser.get(self.base + "/?refin=IN_01")
        self.until(lambda: self.row("IN_01").text.startswith("Reference"))
        self.until(lambda: self.row("IN_00").find_element(By.CSS_SELECTOR, ".phase").text.startswith("−"))

    def test_3_the_charts_have_as_many_points_as_the_api(self):
        self.open("?view=stream&stream=IN_01")
        chart = "return document.querySelector('.chart [role=img]')?.getAttribute('aria-label') ?? ''"
        summary = r"phase, (\d\d) points between (.*) µs and (.*) µs"
        drawn = self.until(lambda: re.fullmatch(summary, self.script(chart)))
        history_now = self.watch.get("/api/v1/history?stream=IN_01&step=1&fields=phase")
        phases = [one for one in history_now["phase"] if one is not None]
        self.assertIn(len(phases) - int(drawn[1]), (0, 1, 2), "a second or two may have passed")
        self.assertAlmostEqual(float(drawn[2]), min(phases) * 1e6, delta=0.1)
        self.until(lambda: len(self.browser.find_elements(By.CSS_SELECTOR, ".bars rect")) > 10)

    def test_4_asks_nobody_else_and_complains_of_nothing_and_says_when_the_watch_is_gone(self):
        for query in ("?view=stream&stream=IN_01", "?view=pairs", "?view=events", ""):
            self.open(query)
            self.until(lambda: len(self.text("main")) > 100)
        self.until(lambda: self.text("#link") == "live")
        complaints = [one for one in self.browser.get_log("browser") if one["level"] in ("SEVERE", "WARNING")]
        self.assertEqual(complaints, [])
        asked = [json.loads(one["message"])["message"] for one in self.browser.get_log("performance")]
        addresses = {one["params"]["request"]["url"] for one in asked if one["method"] == "Network.requestWillBeSent"}
        self.assertEqual([one for one in addresses if not one.startswith((self.base, "data:"))], [])
        self.assertTrue(addresses)
        self.watch.process.terminate()
        self.until(lambda: "gone" in self.text("#link"))
        self.assertRegex(self.text("#verdict strong"), r"^The watch is gone since \d\d:\d\d:\d\d UTC$")
        self.assertNotIn("is-good", self.script("return document.querySelector('#verdict').className"))


def wall():
    """What an operator may find at three in the morning."""
    house = {"seconds": 0.0, "stderr": 1e-8, "lines": 0.0}
    return [stream(0, "Camera A", phase=house), stream(1, "Camera B"),
            stream(2, "Drifter", lock="passing", drift={"ratio": 1.2e-9, "stderr": 2e-10},
                   seconds_to_threshold=4080.0, seconds_to_slip=90000.0,
                   health=health(NOW - 60000, synchronisation=("partially_healthy", "drifts against IN_00"))),
            stream(3, "Lossy", counters={"fields_lost": 150},
                   health=health(NOW - 4000, delivery=("unhealthy", "150 fields were not delivered"))),
            lost(4, "Cable", NOW - 840000,
                 last_event={"number": 5, "kind": "lock_changed", "utc": utc(NOW - 839000)}),
            stream(5, HOSTILE, state="gone", since=utc(NOW - 60000),
                   health=health(NOW - 60000, signal=("unhealthy", "the device is gone"))),
            stream(0, "Left", "output", lock="free",
                   health=health(NOW - 5000, feed=("unhealthy", "no new picture comes"))),
            stream(1, "Desktop", "output", state="idle", lock="idle", rates=[], phase=None, health=INACTIVE)]


# Every text that is shown and cannot be read: its contrast with what is behind it is less than 4.5:1.
CONTRASTS = """
const toLinear = (value) => (value <= 0.04045 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4);
const luminance = ([r, g, b]) => 0.2126 * toLinear(r / 255) + 0.7152 * toLinear(g / 255) + 0.0722 * toLinear(b / 255);
const numbers = (colour) => colour.match(/[0-9.]+/g).map(Number);
const isSolid = (node) => (numbers(getComputedStyle(node).backgroundColor)[3] ?? 1) > 0.99;
function* ancestors(node) { for (; node; node = node.parentElement) yield node; }
const poor = [];
const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
for (let node = walker.nextNode(); node; node = walker.nextNode()) {
  const holder = node.parentElement;
  if (!node.textContent.trim() || !holder.checkVisibility() || holder.closest('option,script,noscript,.skip')) continue;
  const back = [...ancestors(holder)].find(isSolid);
  const [dark, light] = [getComputedStyle(holder).color, getComputedStyle(back).backgroundColor]
    .map((colour) => luminance(numbers(colour))).sort((a, b) => a - b);
  const isDimmed = [...ancestors(holder)].some((one) => getComputedStyle(one).opacity !== '1');
  if (isDimmed || (light + 0.05) / (dark + 0.05) < 4.5) poor.push([node.textContent, holder.className]);
}
return poor;
"""


class MadeUpTest(PageCase):
    """What the page makes of snapshots that are made up here, to the word."""

    def setUp(self):
        super().setUp()
        self.watch = MadeUpWatch()
        self.addCleanup(self.watch.close)
        self.base = self.watch.base
        self.watch.streams = snapshot(wall())

    def test_the_first_screen_says_what_is_broken_since_when_whose_fault_and_what_to_do(self):
        self.watch.incidents = [
            incident(9, NOW - 4000, "delivery", ["IN_03"], "150 fields were not delivered", lost=150),
            incident(8, NOW - 840000, "signal", ["IN_04", "IN_01"], "all 2 inputs of one lock group within 0.2 ms: "
                     "their common reference", "lock_group"),
            incident(7, NOW - 900000, "feed", ["OUT_00"], "no new picture comes", end=utc(NOW - 1000))]
        self.open()
        self.until_equal([
            "Delivery of IN_03 Lossy: 150 fields were not delivered", "since 02:59:56 UTC, for 4 s, 150 fields lost",
            "Whose fault: the board or its driver.",
            "First: Look for messages of the driver; the signal itself is there.",
            "Signal of IN_04 Cable, IN_01 Camera B: all 2 inputs of one lock group within 0.2 ms: their common reference",
            "since 02:46:00 UTC, for 14 min", "Whose fault: what the streams of the lock group share.",
            "First: Check their reference first, then each cable."], lambda: self.texts("#incidents li > *"))
        self.assertEqual(self.text("#verdict strong"), "Unhealthy since 02:46:00 UTC")
        self.assertEqual(
            self.text("#verdict .more"),
            "IN_03 Lossy: 150 fields were not delivered; IN_04 Cable: the signal is lost; IN_05 <img src=x "
            "onerror=document…: the device is gone; OUT_00 Left: no new picture comes; IN_02 Drifter: drifts against "
            "IN_00; OUT_01 Desktop inactive")
        self.assertEqual(self.browser.title, "Unhealthy since 02:46:00 UTC – Streams – Video watch, rack-7")
        self.assertEqual(self.rows(), ["IN_04", "IN_05", "IN_03", "IN_02", "IN_01", "IN_00", "OUT_00", "OUT_01"])
        self.assertEqual(self.texts(".strips td.state"), ["No signal", "Gone", "Unhealthy", "Partially healthy", "Locked",
                                                        "Reference", "Unhealthy", "Idle"])
        self.assertEqual(self.texts(".strips td.event")[:4], [
            "Signal: the signal is lost, 14 min ago", "Signal: the device is gone, 1 min ago",
            "Delivery: 150 fields were not delivered, 4 s ago", "Synchronisation: drifts against IN_00, 1 min ago"])

    def test_each_view_has_its_title_and_each_stream_its_sentence(self):
        for query, title, selector, sentence in (
                ("?view=pairs", "Pairs", "h2", "Inputs"), ("?view=events", "Events", ".filters span", "none"),
                ("?view=stream&stream=IN_04", "IN_04", ".sentence",
                 "IN_04 has had no signal since 02:46:00 UTC, for 14 min. "
                 "Signal: the signal is lost, since 02:46:00 UTC."),
                ("?view=stream&stream=IN_02", "IN_02", ".sentence",
                 "IN_02 is in step only in passing, drifts +1.20 ppb, leaves the lock in about 1 h, slips a whole field "
                 "in about 1 d. Synchronisation: drifts against IN_00, since 02:59:00 UTC.")):
            self.open(query)
            self.until_equal(sentence, lambda selector=selector: self.text(selector))
            self.assertEqual(self.browser.title, f"Unhealthy since 02:46:00 UTC – {title} – Video watch, rack-7")

    def test_a_stream_tells_its_buffers_its_feed_its_pacing_and_why_fields_went_unseen(self):
        level = {"mean": 1.4, "least": 1, "most": 3}
        queue = {"total": 8, "held_seconds": 0.0567, "consumer_stalled_since": utc(NOW - 9000),
                 "windows": [{"seconds": seconds, "ready": level, "loaned": {"mean": 2.0, "least": 2, "most": 2},
                              "internal": {"mean": 4.6, "least": 3, "most": 5}} for seconds in (1, 10, 60)]}
        causes = {"outside_wait": 0, "no_processor": 12, "machine": 3, "neighbour": 0}
        pacing = {"fields": 900, "p50_seconds": 1e-6, "p95_seconds": 2e-6, "p99_seconds": 4e-6, "p999_seconds": 1e-5,
                  "worst_seconds": -2.5e-4, "worst_utc": utc(NOW - 60000), "bins": []}
        self.watch.streams = snapshot([stream(0, "Camera A", queue=queue, unobserved_causes=causes, pacing=pacing)])
        self.open("?view=stream&stream=IN_00")
        self.until_equal("ready 1.4 (1 to 3), loaned 2.0 (2 to 2) of 8; a picture waits 57 ms",
                         lambda: self.text(".gauge + .reading"))
        self.assertEqual(self.script("return [...document.querySelectorAll('.gauge span')].map((one) => one.className)"),
                         ["loaned"] * 2 + ["ready"] + ["free"] * 5)
        self.assertIn("Nobody takes the pictures since 2026-03-01 02:59:51 UTC.", self.texts("p.lost"))
        for fact in ("Buffers over 1 minready 1.4 (1 to 3), loaned 2.0 (2 to 2), free 4.6 (3 to 5)",
                     "Not seen: no processor was free12", "Not seen: the machine stood still3",
                     "99.9 % within10.00 µs", "The worst field−250.0 µs", "which came at2026-03-01 02:59:00 UTC",
                     "DeliveryHealthy"):
            self.assertIn(fact, self.text(".stream-view"))
        self.assertNotIn("Not seen: the watch", self.text(".stream-view"))
        feed = {"cadence": "3:2", "cadence_since": utc(NOW - 60000), "fed": True, "stalled_since": utc(NOW - 3000),
                "stalls": 2, "cadence_changes": 1, "repeated_beyond_cadence": 180}
        self.watch.show([stream(0, "Left", "output", feed=feed)])
        self.open("?view=stream&stream=OUT_00")
        for fact in ("Cadence3:2, since 2026-03-01 02:59:00 UTC", "Stalled since2026-03-01 02:59:57 UTC",
                     "Repeated beyond the cadence180"):
            self.until(lambda fact=fact: fact in self.text(".stream-view"))

    def test_worst_first_is_calm_and_never_moves_under_the_pointer_or_the_focus(self):
        def healthy(shift, **changes):
            return [stream(i, f"Camera {i}", phase=estimate("seconds", shift * (i - 3) * 1e-7, 1e-8),
                           **(changes if i == 6 else {})) for i in range(8)]
        self.watch.streams = snapshot(healthy(0))
        self.open()
        board = ["IN_00", *(f"IN_{i:02d}" for i in range(1, 8))]
        self.until_equal(board[1:] + board[:1], self.rows)
        self.script("window.orders = 0; new MutationObserver(() => ++orders).observe("
                    "document.querySelector('.strips tbody'), { childList: true })")
        free = {"lock": "free", "lines": 50.0}

        def show(second, *given, **changes):
            self.watch.show(healthy(*given, **changes), ms=NOW + second * 1000)
            self.until_equal(utc(NOW + second * 1000)[:19].replace("T", " "), lambda: self.text("#clock")[:19])
        for second in range(1, 8):
            show(second, (-1) ** second * second)
        show(8, 1, **free)
        show(9, 1)
        show(10, 1, **free)
        self.assertEqual(self.script("return orders"), 0, "phases wander, and a state lasts a second")
        self.script("document.querySelector('tr[data-stream=IN_02] a').focus()")
        show(14, 1, **free)
        self.assertEqual(self.rows()[0], "IN_01")
        self.assertIn("keeps its order", self.text(".heading"))
        self.script("document.activeElement.blur()")
        show(15, 1, **free)
        self.assertEqual(self.rows()[0], "IN_06")

    def test_a_chart_tells_value_error_and_event_at_the_pointer_and_why_it_is_empty(self):
        self.watch.add([event(1, NOW - 150000, "fields_lost", "IN_01", count=3)])
        self.open("?view=stream&stream=IN_01&from=" + utc(NOW - 300000) + "&to=" + utc(NOW))
        chart = self.find(".chart [role=img]")
        self.until_equal("phase, 300 points between +3.00 µs and +3.00 µs", lambda: chart.get_attribute("aria-label"))
        plot = self.script("const box = arguments[0].querySelector('canvas:last-of-type').getBoundingClientRect();"
                           "return [box.left + 88 + (box.width - 96) / 2, box.top + 60]", chart)
        self.browser.execute_cdp_cmd("Input.dispatchMouseEvent", {"type": "mouseMoved", "x": plot[0], "y": plot[1]})
        self.until(lambda: self.text(".reading"), 5)
        self.assertRegex(self.text(".reading"),
                         r"^2026-03-01 02:57:[23]\d UTC: \+3\.00 µs ± 20 ns; Fields lost: 3 fields$")
        self.watch.history = lambda query: history(query["stream"], NOW, 600, NOW - 840000)
        self.open("?view=stream&stream=IN_04")
        self.until_equal("Nothing has come since 02:46:00 UTC.", lambda: self.text(".problem"))
        self.find(".notice a").click()
        self.assertIn("from=2026-03-01T02%3A41%3A00.000Z&to=2026-03-01T02%3A51%3A00.000Z", self.browser.current_url)
        self.find("button[aria-label='Zoom in']").click()
        self.assertIn("from=2026-03-01T02%3A43%3A30.000Z&to=2026-03-01T02%3A48%3A30.000Z", self.browser.current_url)

    def test_each_field_of_a_recording_is_a_point_and_what_is_missing_a_gap_of_its_kind(self):
        times = [NOW + ms for ms in range(0, 8000, 20) if not 1500 < ms < 2500 and not 5500 < ms < 6500]
        gaps = [{"from": NOW + begin, "to": NOW + begin + 1000, "fields": 49, "kind": kind}
                for begin, kind in ((1500, "lost"), (5500, "unobserved"))]
        self.watch.recordings = {"20260301T025000Z-incident-7.vtrec": {
            "stream": "IN_01", "period_seconds": 0.02, "t": times, "off": [(i % 2) * 1e-6 for i in range(len(times))],
            "gaps": gaps}}
        self.open("?view=stream&stream=IN_01")
        self.until(lambda: self.find(".fields").is_displayed())
        self.script("document.querySelector('#recording').selectedIndex = 1")
        self.find(".fields button").click()
        self.until_equal("302 fields, 49 lost, 49 not looked for", lambda: self.text(".fields .notice"))
        chart = self.find(".fields [role=img]")
        self.assertEqual(chart.get_attribute("aria-label"), "fields, 302 points between 0 ns and +1.00 µs")
        filled = self.script("""
            const canvas = arguments[0].querySelector('canvas');
            const scale = canvas.width / canvas.getBoundingClientRect().width;
            return [0.25, 0.5, 0.75].map((share) => {
              const x = 88 + (canvas.width / scale - 96) * share;
              return canvas.getContext('2d').getImageData(x * scale, 30 * scale, 1, 1).data[3] > 0;
            });""", chart)
        self.assertEqual(filled, [True, False, False], "lost is filled, not looked for is hollow")

    def test_a_reference_of_ones_own_choice_takes_phase_and_lock_from_the_pair(self):
        self.watch.streams = snapshot([stream(0, "Camera"), stream(1, "Film", lock="different", phase=None)])
        self.watch.pairs["directions"]["input"]["pairs"] = [
            {"first": "IN_00", "second": "IN_01", "offset": {"seconds": 2.966e-6, "stderr": 1e-8, "lines": 0.2},
             "drift": None, "lock": "locked", "seconds_to_threshold": None, "seconds_to_slip": None}]
        self.open("?refin=IN_01")
        self.until_equal(["Locked", "−0.20", "−2.97"], lambda: [
            self.text(f"tr[data-stream=IN_00] .{name}") for name in ("state", "lines", "phase")])

    def test_several_chips_are_bands_with_their_own_verdict(self):
        def of_chip(chip, one):
            return {**one, "id": f"{chip}:{one['id']}", "chip": chip}
        given = [of_chip(0, stream(0, "A")), of_chip(1, lost(0, "B", NOW - 60000)), of_chip(1, stream(1, "C"))]
        chips = [{"chip": chip, "answers": chip < 2, "health": {"overall": overall, "since": utc(NOW - 60000)}}
                 for chip, overall in enumerate(("healthy", "unhealthy", "inactive"))]
        self.watch.streams = snapshot(given, chips=chips)
        self.watch.streams["directions"]["input"].update(reference=None, references=["0:IN_00", "1:IN_01"])
        self.open("?order=board")
        self.until_equal(["0:IN_00", "1:IN_00", "1:IN_01"], self.rows)
        verdicts = self.texts(".band .verdict strong")
        self.assertEqual([verdicts[0], verdicts[2]], ["All is well", "Does not answer"])
        self.assertRegex(verdicts[1], "^Unhealthy since")
        self.assertEqual(self.texts(".band .state"), ["State", "Reference", "State", "No signal", "Reference"])

    def test_events_stand_by_their_moments_and_a_full_millisecond_does_not_stall(self):
        self.watch.add([event(n, NOW - 90000, "buffers_skipped", count=1) for n in range(1, 251)] +
                       [event(251, NOW - 95000, "fields_lost", count=2), event(252, NOW - 80000, "state_changed",
                                                                               before="running", after="gone")])
        self.open("?view=events")
        self.until_equal("200 shown", lambda: self.text(".filters span"))
        self.find(".events .gone svg.gone use[href='#shape-gone']")
        # One that comes while older ones are fetched, and one that was folded and is told late.
        self.find("main button").click()
        self.watch.add([event(253, NOW - 85000, "fields_lost", count=40), event(254, NOW, "signal_lost")])
        self.until_equal("254 shown", lambda: self.text(".filters span"))
        order = self.script("return [...document.querySelectorAll('.events tbody tr')]"
                            ".map((row) => Number(row.dataset.number))")
        self.assertEqual(order, [254, 252, 253, *range(250, 0, -1), 251])

    def test_focus_comes_back_and_everything_works_by_keyboard(self):
        self.open()
        self.until(self.rows)
        for landmark in ("header", "nav[aria-label]", "main", "footer", "[role=status][aria-live]"):
            self.assertEqual(len(self.browser.find_elements(By.CSS_SELECTOR, "body > " + landmark + ", header > " +
                                                            landmark)), 1, landmark)
        for _ in range(40):
            self.browser.switch_to.active_element.send_keys(Keys.TAB)
            if self.browser.switch_to.active_element.text == "IN_03":
                break
        self.browser.switch_to.active_element.send_keys(Keys.ENTER)
        self.until_equal("IN_03", lambda: self.text(".stream-head h2"))
        self.browser.back()
        self.until_equal("IN_03", lambda: self.browser.switch_to.active_element.text)
        pair = {"first": "IN_00", "second": "IN_01", "offset": None, "drift": None, "lock": "free",
                "seconds_to_threshold": None, "seconds_to_slip": 95.0}
        self.watch.pairs["directions"]["input"]["pairs"] = [pair]
        across = {"first": "IN_01", "second": "OUT_00", "offset": None, "drift": {"ratio": -22e-6, "stderr": 1e-9}, "lock": "free",
                  "seconds_to_threshold": None, "seconds_to_slip": None, "slip": {
                      "every_seconds": 755.0, "every_stderr": 0.1, "next_utc": utc(NOW + 180000), "next_stderr_seconds": 4.0, "count": 1}}
        self.watch.pairs["across"] = {"pairs": [across], "groups": []}
        self.open("?view=pairs")
        self.until_equal("OUT_00 Left against IN_01 Camera B: free: outside of the threshold; drift −22000 ppb ± 1.00 ppb; "
                         "repeats one picture every 12 min 35 s; the next in about 3 min", lambda: self.script(
                             "return document.querySelector('.pair-views section:last-of-type td.cell-free')?.title"))
        first = self.find(".matrix td[tabindex='0'].cell-free")
        first.send_keys(Keys.ARROW_RIGHT)
        self.browser.switch_to.active_element.send_keys(Keys.ARROW_LEFT)
        self.until_equal("IN_01 Camera B against IN_00 Camera A: free: outside of the threshold; "
                         "a field slipped in 1 min 35 s", lambda: self.text(".panel[role=status]"))

    def test_updates_can_be_paused_and_what_is_old_is_never_green(self):
        self.watch.streams = snapshot([stream(0, "Camera A")])
        self.open()
        self.until_equal("All is well", lambda: self.text("#verdict strong"))
        self.find("#pause").click()
        asked = len(self.watch.asked)
        self.watch.show(wall(), ms=NOW + 5000)
        self.until(lambda: self.text("#link").startswith("updates are paused since"))
        self.assertIn("is-warn", self.script("return document.querySelector('#verdict').className"))
        self.assertEqual(self.text("#verdict .more"), "its last word: All is well")
        self.assertEqual(self.rows(), ["IN_00"])
        self.assertEqual(len(self.watch.asked), asked)
        self.find("#pause").click()
        self.until_equal("Unhealthy since 02:46:00 UTC", lambda: self.text("#verdict strong"))

    def test_fits_every_width_and_can_be_read_in_both_colour_schemes_live_and_old(self):
        self.watch.add([event(n, NOW - n, kind, of="IN_03", count=2) for n, kind in
                        enumerate(("fields_lost", "fields_unobserved", "buffers_skipped", "format_changed"))])
        self.watch.pairs["directions"]["input"]["pairs"] = [
            {"first": "IN_00", "second": f"IN_{i + 1:02d}", "offset": None, "drift": None, "lock": lock,
             "seconds_to_threshold": None, "seconds_to_slip": None}
            for i, lock in enumerate(("locked", "passing", "free", "different", "idle"))]
        for dark in (False, True):
            for query in ("", "?view=stream&stream=IN_04", "?view=pairs", "?view=events"):
                for width in (2500, 1280, 800, 400):
                    self.size(width, 900, dark)
                    if width == 2500:
                        self.open(query)
                        self.until(lambda: len(self.text("main")) > 200)
                    self.until(lambda: self.script("return document.scrollingElement.scrollWidth <= innerWidth"))
                self.assertEqual(self.script(CONTRASTS), [], query)
                self.find("#pause").click()
                self.assertEqual(self.script(CONTRASTS), [], query + ", paused")


# What the page's modules make of numbers and of streams, to the word; `m` is the model of the streams that are made below.
FIGURES = [
    ("[-1e-4, -1.26, null, NaN, 12].map((v) => format.fixed(v, 1))", ["0.0", "−1.3", "–", "–", "12.0"]),
    ("[99.9994, 100, null].map(format.rateFigure)", ["99.999", "100.00", "–"]),
    ("[[4e-4, .02], [12.3456, .5], [12.3456, 5], [12.3456, 50], [1234.4, 1e-3], [-3, 0], [null, 1], [-999.96, .5]]"
     ".map(([v, e]) => format.ppmFigure(v, e))",
     ["0.000", "+12.35", "+12.3", "+12", "+1234", "−3.000", "–", "−999.96"]),
    ("[1.5, -.0123456, .1234, -2.5e-4, 99.9e-6, 2e-8, 0, 1e-3, 1e-6, 1e-9].map((v) => format.span(v))",
     ["+1.500 s", "−12.346 ms", "+123.40 ms", "−250.0 µs", "+99.90 µs", "+20 ns", "0 ns", "+1.000 ms", "+1.00 µs", "+1 ns"]),
    ("[format.span(-3e-6, false), format.span(3e-6, false)]", ["−3.00 µs", "3.00 µs"]),
    ("[3e-6, 1.234e-4, .0123, -9.999e-5, null, 1e-4, 1e-2].map(format.microsecondsFigure)",
     ["+3.00", "+123.4", "+12300", "−99.99", "–", "+100.0", "+10000"]),
    ("[1.2e-9, 1.234e-8, -1.234e-6, 1e-4, 9.99e-5, null, 1e-8, 1e-6].map(format.ppb)",
     ["+1.20 ppb", "+12.3 ppb", "−1234 ppb", "+100.0 ppm", "+99900 ppb", "–", "+10.0 ppb", "+1000 ppb"]),
    ("[format.ppbError(-2e-10), format.lines(.2), format.lines(null), format.rate(59.94), format.ppm(-1, .5)]",
     ["0.20 ppb", "+0.20 lines", "–", "59.940 Hz", "−1.00 ppm"]),
    ("[.25, 1, 2.5, 9.94, 9.96, 60, 65, 3600, 3720, 90061, 86313600, -1].map(format.duration)",
     ["250 ms", "1.0 s", "2.5 s", "9.9 s", "10 s", "1 min", "1 min 5 s", "1 h", "1 h 2 min", "1 d 1 h", "years", "–"]),
    ("[[0, 999], [0, 1000], [5000, 0], [0, 61000]].map((both) => format.age(...both))",
     ["now", "1 s ago", "now", "1 min ago"]),
    ("[[600, 90], [4080, 700], [4080, 1], [.19, .1], [95, 4], [95, .1], [200, 900], [90000, 15000], [-1, 0]]"
     ".map((both) => format.countdown(...both))",
     ["in about 10 min", "in about 1 h", "in 1 h 8 min", "within 1 s", "in about 1 min 35 s", "in 1 min 35 s", "within 20 min",
      "in about 1 d", "–"]),
    ("[[757.6, .02], [720, 40], [3, 40], [null, 0]].map((both) => format.period(...both))",
     ["every 12 min 40 s", "about every 12 min", "more than once in 1 min", "–"]),
    ("[across.pairs[0], across.pairs[1], { slip: null }].map((pair) => words.forecast(pair, m.ms))",
     ["drops one picture every 12 min 35 s; the next in about 3 min",
      "repeats one picture every 12 min 35 s; the next in about 3 min", None]),
    ("[words.acrossText('IN_00', { across }, m.ms), words.acrossText('OUT_01', { across }, m.ms), words.acrossText('IN_09', {}, m.ms),"
     "words.acrossText('OUT_00', { across, paths: [{ input: 'IN_00', output: 'OUT_00', delay: { least_seconds: .02, most_seconds: .04 } }] }, m.ms)]",
     ["Against OUT_01 it is in step.", "Against IN_00 it is in step.", "",
      "Against IN_00 it drops one picture every 12 min 35 s; the next in about 3 min. From IN_00 to OUT_00 a picture takes "
      "20.000 ms to 40.000 ms, without the time that the application takes."]),
    ("words.eventText({ kind: 'slipped', count: 2, picture: 'dropped', against: 'IN_00' })", "Slipped: 2 pictures dropped against IN_00"),
    ("[59.9, 60, 3725].map(format.longAge)", ["59 s", "1 min", "1 h 2 min"]),
    ("[1234567, 0, null].map(format.count)", ["1 234 567", "0", "–"]),
    ("[format.utcTime(5, true), format.utcTime(3723004), format.utcDateTime(m.ms, true)]",
     ["00:00:00.005", "01:02:03", "2026-03-01 03:00:00.000"]),
    ("[1000, 86400000].map((ago) => format.since(m.ms - ago, m.ms))", ["since 02:59:59 UTC", "since 2026-02-28 03:00:00 UTC"]),
    ("[0, 28, 29].map((n) => format.label({ id: 'IN_00', name: 'x'.repeat(n) }))",
     ["IN_00", "IN_00 " + 28 * "x", "IN_00 " + 27 * "x" + "…"]),
    ("words.eventKinds.map((kind) => words.eventClass({ kind, after: 'passing' })).join(' ')",
     "idle idle passing lost locked lost idle running lost lost passing passing free passing passing running running free "
     "running free passing running running running running lost locked passing free passing free locked free"),
    ("[['lock_changed', 'locked'], ['lock_changed', 'different'], ['state_changed', 'running'], ['state_changed', 'gone'],"
     "['new_one']].map(([kind, after]) => words.eventClass({ kind, after }))", ["locked", "idle", "locked", "gone", "running"]),
    ("[{ kind: 'fields_unobserved', count: 1 }, { kind: 'signal_back', seconds: 2.5 }, { kind: 'phase_stepped', seconds: -3e-4 },"
     "{ kind: 'group_ended', members: ['IN_00', 'IN_01'], seconds: 65 }, { kind: 'group_formed', members: ['IN_00', 'IN_01'] },"
     "{ kind: 'timings_changed', before: 60, after: 59.94 }, { kind: 'buffers_skipped', count: 2 }, { kind: 'signal_lost' },"
     "{ kind: 'fields_lost', count: 1 }, { kind: 'lock_changed', before: 'free', after: 'locked', count: 1 },"
     "{ kind: 'incident_began', incident: 3, domain: 'feed' }, { kind: 'odd', before: null, after: 1 },"
     "{ kind: 'description_changed', member: 'colour_space', before: 1, after: 2 }, { kind: 'feed_resumed', seconds: 2.5 },"
     "{ kind: 'cadence_changed', before: null, after: '3:2' }, { kind: 'field_late', count: 3, seconds: 4e-4 },"
     "{ kind: 'incident_ended', incident: 12, domain: 'signal', seconds: 840 },"
     "{ kind: 'state_changed', before: 'running', after: 'lost', count: 7 }].map(words.eventText)",
     ["Watcher late: 1 field not seen; no fault of the signal", "Signal back: away for 2.5 s", "Phase stepped: by −300.0 µs",
      "Lock group ended: IN_00, IN_01, after 1 min 5 s", "Lock group formed: IN_00, IN_01",
      "Timings changed: 60.000 Hz → 59.940 Hz", "Buffers skipped: 2 buffers", "Signal lost", "Fields lost: 1 field",
      "Lock: free → locked", "Incident began: number 3, feed", "odd: none → 1", "Description: colour space: 1 → 2",
      "Feed goes on: after 2.5 s", "Cadence: none → 3:2", "Field late: 3 fields, by +400.0 µs at most",
      "Incident ended: number 12, signal, after 14 min", "State: running → lost, 7 times together"]),
    ("[at('IN_00'), at('IN_01'), at('IN_01', { kind: 'free', toSlip: null }), at('IN_01', { drift: 5e-10 }), at('IN_02'),"
     "at('OUT_00')].map((one) => words.movement(one.stream, one, m.ms))",
     ["is what the others are compared with",
      "is in step only in passing, drifts −1.20 ppb, leaves the lock in about 1 h, slips a whole field in about 1 d",
      "runs free, drifts −1.20 ppb, comes within the threshold in about 1 h", "is in step only in passing and does not drift",
      "has had no signal since 02:46:00 UTC, for 14 min", "is idle"]),
    ("[['gone', ''], ['running', 'different'], ['running', 'idle']]"
     ".map(([kind, lock]) => words.movement({ sinceMs: m.ms - 5000, lock }, { kind }, m.ms))",
     ["is gone since 02:59:55 UTC, for 5 s: the device does not answer any more", "runs at a rate that does not compare",
      "runs"]),
    ("model.findStream(m, 'IN_01')",
     {"id": "IN_01", "direction": "input", "name": "B", "standard": "1920 x 1080p @ 59.94 Hz", "format": "YUV422",
      "setup": "started", "state": "running", "sinceMs": NOW - 7200000, "lock": "passing", "hertz": 59.94, "ppm": 0.01,
      "ppmError": 0.02, "nominal": 60000 / 1001, "period": 1 / 59.94, "line": 1e-5, "phase": 3e-6, "lines": 0.2,
      "phaseError": 2e-8, "drift": -1.2e-9, "driftError": 2e-10, "toThreshold": 4080, "toThresholdError": None,
      "toSlip": 90000, "toSlipError": None, "lost": 5, "unobserved": 6, "queue": {"ready": 1.4, "loaned": 2}, "lastEvent": None,
      "health": {"overall": "healthy", "domain": "signal", "reason": "", "sinceMs": NOW - 7200000}}),
    ("[own, other, compare.needsPairs(m, { refin: 'IN_00' }), compare.needsPairs(m, { refin: 'IN_01' })]",
     [{"input": "IN_00", "output": "OUT_01"}, {"input": "IN_01", "output": "OUT_01"}, False, True]),
    ("['IN_00', 'IN_01', 'IN_02'].map((id) => compare.compare(model.findStream(m, id), m, other, pairs))"
     ".map((one) => [one.kind, one.phase, one.lines?.toFixed(3), one.drift, one.driftError, one.toThreshold, one.toSlip])",
     [["free", {"seconds": -2e-6, "error": 1e-8}, "-0.200", -3e-9, 1e-9, 7, 8],
      ["reference", {"seconds": 3e-6, "error": 2e-8}, "0.200", -1.2e-9, 2e-10, 4080, 90000],
      ["lost", None, None, None, None, None, None]]),
    ("facts.measuredFacts(json.input.streams[0], at('IN_00')).map((fact) => fact.join(' | '))",
     ["Rate over 1s | 59.950000 Hz", "Rate over 10s | 59.940060 Hz", "Rate over 100s | ", "Deviation over 1s | +21 ppm ± 16",
      "Deviation over 10s | +0.010 ppm ± 0.020", "Deviation over 100s | ", "Phase | +3.00 µs ± 20 ns",
      "Drift | 0.00 ppb ± 1.00 ppb", "Jitter, RMS | 100 ns", "Jitter, peak to peak | 400 ns", "TDEV, 1 s | 2 ns",
      "TDEV, 10 s | ", "Phase against TAI | −1.00 µs ± 200 ns", "Fields seen | 2", "Fields lost | 3",
      "Not seen (watcher late) | 4", "Signal losses | 10, 20 s in all", "Early, late fields | 7, 8",
      "Counter repeated, went back, ahead | 5, 6, 23", "Phase steps | 9", "Changes of timing, format, state | 11, 12, 13",
      "Ran | 21 s of 22 s watched", "Not seen: no processor was free | 12", "Buffers skipped | 14", "Cadence | ",
      "Stalled since | ", "Stalls, changes of cadence | ", "Repeated beyond the cadence | ", "Buffers set are | ", "Fields swapped since | "]),
    ("facts.measuredFacts(json.output.streams[0], at('OUT_01')).slice(-9).map((fact) => fact.join(' | '))",
     ["Buffers set | 15", "Buffers shown again | 16", "Buffers overwritten | 17", "Cadence | none", "Stalled since | ",
      "Stalls, changes of cadence | 2, 1", "Repeated beyond the cadence | 180", "Buffers set are | ",
      "Fields swapped since | 2026-03-01 02:59:59 UTC"]),
    ("[json.input, json.output].map((side) => facts.signalFacts(side.streams[0]).map((fact) => fact.join(' ')).join())",
     ["Name Camera A,Signal 1920 x 1080p @ 59.94 Hz,Nominal rate 60000/1001 Hz,Line 14.83 µs,Pixel format YUV422,"
      "Capture started,Since 2026-03-01 01:00:00 UTC", "Name Left,Signal 1920 x 1080p @ 59.94 Hz,Nominal rate 60 Hz,"
      "Line 14.83 µs,Pixel format YUV422,Power power save,Since 2026-03-01 01:00:00 UTC"]),
    ("[facts.pacingFacts({}), health.healthFacts(json.input.streams[2]).slice(0, 2)]",
     [[["Fields", "none"]], [["Signal", "Unhealthy: the signal is lost"], ["Delivery", "Healthy"]]]),
    ("['IN_01', 'IN_02', 'OUT_01'].map(at).map((one) => Object.values(health.strip(one.stream, one)).join())",
     ["Passing,passing,running,in step at the moment, but drifting through", "No signal,lost,lost,the signal is lost",
      "Reference,reference,reference,what the others are compared with"]),
    ("[['IN_00'], ['IN_02'], ['IN_02', null], ['IN_01', { overall: 'partially_healthy', domain: 'feed', reason: 'r', sinceMs: 1 }]]"
     ".map(([id, judged]) => ({ ...model.findStream(m, id), ...(judged !== undefined && { health: judged }) })).map(health.lastWord)",
     [None, {"text": "Signal: the signal is lost", "ms": NOW - 840000, "colour": "lost"},
      {"text": "Signal lost", "ms": NOW - 840000, "colour": ""}, {"text": "Feed: r", "ms": 1, "colour": "passing"}]),
    ("health.verdictOf(model.toModel({ snapshot: {}, directions: { input: { streams: [] }, output: { streams: [] } } }))",
     {"level": "warn", "shape": "idle", "text": "There is nothing to watch", "more": "the board has no streams"}),
    ("[3, 5].map((n) => health.named(json.input.streams.concat(json.output.streams).slice(0, n)))",
     ["IN_00 Camera A, IN_01 B, IN_02 Cable", "IN_00 Camera A, IN_01 B, IN_02 Cable and 2 more"]),
    ("[{ from: '2026-03-01T00:00:00Z', to: '2026-03-01T01:00:00Z' }, { from: '2026-03-01T01:00:00Z', to: '2026-03-01T00:00:00Z' },"
     "{ span: 'all', reach: { minutes_from: 5 } }, { span: 'all', reach: { seconds_from: m.ms } }, { span: 'all' }, { span: '-1' },"
     "{ span: '7' }].map((state) => history.spanOf(state, m.ms, state.reach)).map((one) => [one.from - m.ms, one.to - m.ms,"
     " one.isLive])", [[-10800000, -7200000, False], [-600000, 0, True], [5 - NOW, 0, True], [-60000, 0, True],
                       [-600000, 0, True], [-600000, 0, True], [-7000, 0, True]]),
    ("[605000, 605001].map((to) => history.stepOf({ from: 0, to }))", [1, 60]),
    ("history.rowsOf({ t: [0, 1000, 3500, 6001] }, (i) => (i === 1 ? null : i), (i) => (i === 2 ? undefined : .5), 1)"
     ".map(([date, point]) => [date.getTime(), point])",
     [[0, [0, .5]], [1000, [None, None]], [3500, [2, 0]], [3501, [None, None]], [6001, [3, .5]]]),
    ("order.makeOrder()(model.streamsOf(m), new Map(model.streamsOf(m).map((one) => [one, at(one.id)])), 0).map((one) => one.id)",
     ["IN_02", "IN_01", "IN_00", "OUT_01", "OUT_00"]),
    ("(() => { const kept = sparkline.makeTrace(); for (let i = 0; i < 301; ++i) sparkline.addToTrace(kept, i === 300 ? null : i);"
     " return [kept.next, kept.count, kept.values[0], ...kept.values.slice(1, 3)]; })()", [1, 300, None, 1, 2]),
]


class FiguresTest(PageCase):
    """The page's modules by themselves."""

    def test_modules_say_every_figure_and_sentence_to_the_word(self):
        watch = MadeUpWatch()
        self.addCleanup(watch.close)
        self.base = watch.base
        self.open()
        counted = {name: i + 1 for i, name in enumerate(
            ("fields", "fields_observed", "fields_lost", "fields_unobserved", "fields_repeated", "counter_backward",
             "fields_early", "fields_late", "phase_steps", "signal_losses", "timing_changes", "format_changes",
             "state_changes", "buffers_skipped", "buffers_set", "buffers_repeated", "buffers_overwritten", "wait_time_outs",
             "late_wakes", "signal_lost_seconds", "running_seconds", "watched_seconds", "counter_forward"))}

        def rate(window, hertz, ppm, error):
            return {"window": window, "hz": hertz, "stderr_hz": 1e-6, "ppm": ppm, "stderr_ppm": error}
        level = {"mean": 1.4, "least": 1, "most": 3}
        streams = [
            stream(0, "Camera A", counters=counted, unobserved_causes={"outside_wait": 0, "no_processor": 12},
                   tdev=[{"tau_seconds": 1, "seconds": 2e-9}, {"tau_seconds": 10, "seconds": None}],
                   tai={"seconds": -1e-6, "uncertainty": 2e-7},
                   rates=[rate("1s", 59.95, 20.5, 16.0), rate("10s", 59.94006, .01, .02), rate("100s", None, None, None)]),
            stream(1, "B", lock="passing", drift=estimate("ratio", -1.2e-9, 2e-10), seconds_to_threshold=4080,
                   seconds_to_slip=90000, line_seconds=1e-5, rates=[rate("1s", 1, 1, 1), rate("10s", 59.94, .01, .02)],
                   counters={"fields_lost": 5, "fields_unobserved": 6},
                   queue={"windows": [{"ready": level, "loaned": {"mean": 2}}]}),
            lost(2, "Cable", NOW - 840000),
            stream(1, "Left", "output", lock="free", setup="power_save", counters=counted,
                   nominal={"numerator": 60, "denominator": 1, "hz": 60}, field_order={"swapped_since": utc(NOW - 1000)},
                   feed={"cadence": None, "cadence_since": None, "fed": True, "stalled_since": None, "stalls": 2,
                         "cadence_changes": 1, "repeated_beyond_cadence": 180}),
            stream(0, "O", "output", state="idle", health=INACTIVE)]
        pair = {"first": "IN_00", "second": "IN_01", "offset": {"seconds": 2e-6, "stderr": 1e-8}, "lock": "free",
                "drift": estimate("ratio", 3e-9, 1e-9), "seconds_to_threshold": 7, "seconds_to_slip": 8}
        said = self.browser.execute_async_script("""
            const [told, pair, texts, done] = [JSON.parse(arguments[0]), ...[...arguments].slice(1)];
            const names = ['format', 'words', 'model', 'health', 'compare', 'order', 'history', 'stream-facts', 'sparkline'];
            Promise.all(names.map((name) => import(`/${name}.js`))).then((modules) => {
              const [format, words, model, health, compare, order, history, facts, sparkline] = modules;
              const [m, json] = [model.toModel(told), told.directions];
              const [own, other] = ['', 'IN_01'].map((refin) => compare.referenceIds(m, { refin, refout: refin }));
              const at = (id, changes) => ({ ...compare.compare(model.findStream(m, id), m, own), ...changes,
                                             stream: model.findStream(m, id) });
              const pairs = { directions: { input: { pairs: [pair] } } };
              const slip = { every_seconds: 755, every_stderr: .1, next_utc: new Date(m.ms + 180000).toISOString(),
                             next_stderr_seconds: 4 };
              const crossing = (first, second, changes) => ({ first, second, lock: "free", slip, ...changes });
              const across = { pairs: [crossing("IN_00", "OUT_00", { drift: { ratio: 22e-6 } }),
                crossing("IN_01", "OUT_00", { drift: { ratio: -22e-6 } }), crossing("IN_00", "OUT_01", { lock: "locked", slip: null })] };
              done(texts.map((text) => JSON.stringify(eval(`(${text})`)) ?? 'null'));
            });""", json.dumps(snapshot(streams)), pair, [text for text, _ in FIGURES])
        for (text, expected), one in zip(FIGURES, said):
            with self.subTest(text):
                self.assertEqual(json.loads(one.replace("\u00a0", " ").replace("\u2011", "-")), expected)


class FullBoardTest(PageCase):
    """64 streams at first sight."""

    def test_64_streams_fit_a_window(self):
        stream = "{ standard = '1080p60', lock_group = 'all' }, "
        streams = f"input = [{stream * 32}]\noutput = [{stream * 32}]\n"
        serve(type(self), f"[[chip]]\nlock_group = [{{ name = 'all' }}]\n{streams}")
        self.size(1920, 1080)
        self.open()
        self.until_equal(64, lambda: len(self.rows()))
        self.assertLessEqual(self.script("return document.scrollingElement.scrollHeight"), 1080)
        heights = self.script("return [...document.querySelectorAll('tr[data-stream]')].map((row) => row.offsetHeight)")
        self.assertGreaterEqual(min(heights), 18)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2, failfast="VT_FAIL_FAST" in os.environ)
