#!/usr/bin/env python3
"""The page in a real browser, against the real program on a scenario.

page_test.py <VtVideoWatch> <folder of the simulated board's library>; both come from the build.
"""
import json
import os
import re
import subprocess
import sys
import time
import unittest
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

HERE = os.path.dirname(os.path.abspath(__file__))
PROGRAM, BOARD = sys.argv[1:3]
HOSTILE = "<img src=x onerror=document.title='owned'>"


def start_watch(scenario):
    """The program on a free port, and its address."""
    settings = dict(os.environ, VELTRANO_SCENARIO=scenario, LD_LIBRARY_PATH=BOARD)
    watch = subprocess.Popen([PROGRAM, "serve", "--listen", "127.0.0.1:0"], env=settings, text=True,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    for line in watch.stdout:
        found = re.search(r"http://[\d.]+:\d+", line)
        if found:
            return watch, found.group(0)
    raise RuntimeError("the watch told no address")


def start_browser():
    options = Options()
    options.binary_location = "/usr/bin/chromium"
    for switch in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                   "--disable-background-networking", "--disable-component-update", "--disable-sync"):
        options.add_argument(switch)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.watch, cls.base = start_watch(os.path.join(HERE, "Wall.toml"))
        cls.began = time.time()
        cls.browser = start_browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        cls.watch.kill()
        cls.watch.wait()
        cls.watch.stdout.close()

    def setUp(self):
        self.show()

    def show(self, width=1280, height=900, dark=False):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
        scheme = {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [scheme]})

    def open(self, query=""):
        self.browser.get(self.base + "/" + query)

    def ask(self, path):
        with urllib.request.urlopen(self.base + path, timeout=10) as answer:
            return json.load(answer)

    def until(self, condition, seconds=20):
        return WebDriverWait(self.browser, seconds, 0.1).until(lambda _: condition())

    def script(self, text, *arguments):
        return self.browser.execute_script(text, *arguments)

    def row(self, stream):
        return self.browser.find_element(By.CSS_SELECTOR, f"tr[data-stream={stream}]")

    def rows(self):
        return self.script("return [...document.querySelectorAll('tr[data-stream]')].map((row) => row.dataset.stream)")

    def text(self, selector):
        return self.script("return document.querySelector(arguments[0])?.textContent ?? ''", selector)

    def test_1_planted_loss_is_seen_within_two_seconds_and_without_reload(self):
        self.open()
        self.until(lambda: len(self.rows()) == 8)
        self.script("window.notReloaded = true")

        def lost():
            return int(self.row("IN_04").find_element(By.CSS_SELECTOR, ".lost-fields").text)
        before = lost()
        self.until(lambda: lost() > before, 25)
        seen = time.time()
        events = self.ask("/api/v1/events?stream=IN_04&kind=fields_lost")["events"]
        happened = events[0]["utc"]
        moment = time.mktime(time.strptime(happened[:19], "%Y-%m-%dT%H:%M:%S")) - time.timezone + float(happened[19:-1])
        self.assertLess(seen - moment, 2.0)
        self.assertTrue(self.script("return window.notReloaded"))
        self.assertIn("Fields lost", self.row("IN_04").text)

    def test_2_every_stream_is_shown_as_the_api_has_it(self):
        self.open()
        self.until(lambda: "Lost" in self.row("IN_05").text and "Locked" in self.row("IN_01").text, 40)
        answer = self.ask("/api/v1/streams")
        streams = [stream for one in answer["directions"].values() for stream in one["streams"]]
        self.assertEqual(sorted(self.rows()), sorted(stream["id"] for stream in streams))
        for stream in streams:
            shown = self.row(stream["id"]).text
            self.assertIn(stream["name"], shown)
            if stream["state"] == "running":
                self.assertIn(f"{stream['rates'][1]['hz']:.3f}"[:5], shown)
        self.assertRegex(self.row("IN_01").find_element(By.CSS_SELECTOR, ".phase").text, r"^[+]\d+\.\d\d$")
        self.assertEqual(self.rows()[0], "IN_05", "worst first")
        self.assertIn("IN_05 has lost the signal", self.text("#verdict"))
        self.assertIn("Simulated board", self.text("#badges"))
        self.assertIn(HOSTILE, self.row("IN_02").text)
        self.assertEqual(self.browser.find_elements(By.TAG_NAME, "img"), [])
        self.assertNotIn("owned", self.browser.title)

    def test_3_the_chart_has_the_points_that_the_api_has(self):
        self.open("?view=stream&stream=IN_01")
        rows = "const c = document.querySelector('.stream-view')?.charts; if (!c) return null;" \
               "return Array.from({length: c.phase.rows()}, (_, i) => c.phase.value(i))"
        drawn = [row for row in self.until(lambda: self.script(rows)) if row[1] is not None]
        self.assertGreater(len(drawn), 5)
        history = self.ask(f"/api/v1/history?stream=IN_01&step=1&fields=phase&from={drawn[0][0]}&to={drawn[-1][0] + 1}")
        known = {t: pair for t, *pair in zip(history["t"], history["phase"], history["phase_stderr"])}
        self.assertEqual([row[0] for row in drawn], [t for t in known if known[t][0] is not None])
        for moment, value, error in drawn:
            self.assertEqual([value, error], known[moment])
        self.assertIn("IN_01 is in step", self.text(".sentence"))
        self.assertGreater(len(self.browser.find_elements(By.CSS_SELECTOR, ".bars rect")), 10)

    def test_4_zoom_filter_and_link_restore_the_view(self):
        self.open("?view=stream&stream=IN_04")
        self.until(lambda: self.text(".spans"))
        self.browser.find_element(By.CSS_SELECTOR, "button[data-span='3600']").click()
        self.assertIn("span=3600", self.browser.current_url)
        self.until(lambda: self.script("return document.querySelector('.stream-view')?.charts"))
        self.browser.find_element(By.CSS_SELECTOR, "button[aria-label='Zoom in']").click()
        link = self.browser.current_url
        self.assertRegex(link, "from=.*to=")
        window = "return document.querySelector('.stream-view')?.charts?.phase.window()"
        self.until(lambda: (shown := self.script(window)) and shown[1] - shown[0] == 1800000)
        shown = self.script(window)
        self.open("?view=events&stream=IN_04&kind=fields_lost")
        listed = self.until(lambda: self.browser.find_elements(By.CSS_SELECTOR, ".events tbody tr"))
        self.assertTrue(all("IN_04" in row.text and "Fields lost" in row.text for row in listed))
        filters = [Select(one).first_selected_option.text for one in
                   self.browser.find_elements(By.CSS_SELECTOR, ".filters select")]
        self.assertEqual(filters, ["IN_04", "Fields lost"])
        self.browser.get(link)
        self.assertEqual(self.until(lambda: self.script(window)), shown)
        self.browser.get(self.base + "/?refin=IN_01")
        self.until(lambda: self.row("IN_01").text.startswith("Reference"))
        self.until(lambda: self.row("IN_00").find_element(By.CSS_SELECTOR, ".phase").text.startswith("−"))

    def test_5_works_by_keyboard_alone_and_has_landmarks(self):
        self.open()
        self.until(self.rows)
        for landmark in ("header", "nav[aria-label]", "main", "footer", "[role=status][aria-live]"):
            self.assertEqual(len(self.browser.find_elements(By.CSS_SELECTOR, "body > " + landmark + ", header > " +
                                                            landmark)), 1, landmark)
        for _ in range(40):
            self.browser.switch_to.active_element.send_keys(Keys.TAB)
            if self.browser.switch_to.active_element.text == "IN_01":
                break
        self.browser.switch_to.active_element.send_keys(Keys.ENTER)
        self.assertIn("stream=IN_01", self.browser.current_url)
        self.open("?view=pairs")
        first = self.until(lambda: self.browser.find_elements(By.CSS_SELECTOR, ".matrix td[tabindex='0']"))[0]
        self.script("arguments[0].focus()", first)
        first.send_keys(Keys.ARROW_RIGHT)
        self.assertRegex(self.until(lambda: self.text(".panel[role=status]")), "against IN_")

    def test_6_fits_both_widths_in_both_colour_schemes(self):
        backs = set()
        for dark in (False, True):
            for width in (1280, 400):
                self.show(width, 900, dark)
                for query in ("", "?view=stream&stream=IN_01", "?view=pairs", "?view=events"):
                    self.open(query)
                    self.until(lambda: self.script("return document.querySelector('main').children.length > 0"))
                    over = self.script("return document.scrollingElement.scrollWidth - innerWidth")
                    self.assertLessEqual(over, 0, f"{query} at {width}")
            backs.add(self.script("return getComputedStyle(document.body).backgroundColor"))
        self.assertEqual(len(backs), 2)

    def test_7_says_when_the_watch_is_gone_and_nothing_else_was_asked_or_complained_of(self):
        self.open()
        self.until(lambda: self.text("#link") == "live")
        complaints = [one for one in self.browser.get_log("browser") if one["level"] in ("SEVERE", "WARNING")]
        self.assertEqual(complaints, [])
        asked = [json.loads(one["message"])["message"] for one in self.browser.get_log("performance")]
        addresses = {one["params"]["request"]["url"] for one in asked if one["method"] == "Network.requestWillBeSent"}
        self.assertEqual([one for one in addresses if not one.startswith((self.base, "data:"))], [])
        self.assertTrue(addresses)
        self.watch.terminate()
        self.until(lambda: "gone" in self.text("#link"))


class FullBoardTest(unittest.TestCase):
    """64 streams at first sight."""

    def test_64_streams_fit_a_window(self):
        stream = '\n[[chip.{}]]\nstandard = "1080p60"\nlock_group = "all"\n'
        scenario = 'name = "full"\n[[chip]]\n[[chip.lock_group]]\nname = "all"\n' + \
            stream.format("input") * 32 + stream.format("output") * 32
        path = os.path.join(os.environ.get("TMPDIR", "/tmp"), f"full-{os.getpid()}.toml")
        with open(path, "w", encoding="utf-8") as file:
            file.write(scenario)
        watch, base = start_watch(path)
        browser = start_browser()
        try:
            browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                    {"width": 1920, "height": 1080, "deviceScaleFactor": 1, "mobile": False})
            browser.get(base)
            rows = WebDriverWait(browser, 20).until(
                lambda _: browser.find_elements(By.CSS_SELECTOR, "tr[data-stream]"))
            self.assertEqual(len(rows), 64)
            self.assertLessEqual(browser.execute_script("return document.scrollingElement.scrollHeight"), 1080)
            self.assertTrue(all(row.rect["height"] >= 18 for row in rows))
        finally:
            browser.quit()
            watch.terminate()
            watch.wait()
            watch.stdout.close()
            os.remove(path)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
