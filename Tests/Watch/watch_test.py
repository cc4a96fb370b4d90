"""The real program on simulated boards: verdicts, ends, what it tells the service manager, what survives a restart.

  watch_test.py PROGRAM FOLDER_OF_BOARD FOLDER_OF_SCHEMAS REFUSER [unittest arguments]
"""
import csv
import io
import json
import mmap
import os
import pathlib
import re
import signal
import socket
import sqlite3
import struct
import subprocess
import sys
import tempfile
import unittest
import urllib.error
import urllib.request

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../Serving"))
from serving_tools import PATIENCE, Watch, check_schema, free_port, wait_for

PROGRAM, BOARD, SCHEMAS, REFUSER = sys.argv[1:5]
IS_SANITIZED = b"__ubsan_handle" in pathlib.Path(PROGRAM).read_bytes()
END = 1.5        # the end takes a second at most; the rest is for a busy machine

STREAM = "standard = '1080p60'\nlock_group = 'house'\njitter_ticks = 2\n"
LOCKED = f"""
[[chip]]
[[chip.lock_group]]
name = 'house'
ppm = 3
[[chip.input]]
connector = 'Left'
{STREAM}
[[chip.input]]
connector = 'Right'
phase_us = 5
{STREAM}
"""
FREE = LOCKED + "[[chip.input]]\nconnector = 'Free'\nstandard = '1080p60'\nphase_us = 4000\nppm = -40\n"
GOING = LOCKED + "event = [{ kind = 'signal_loss', at_s = 1.5 }]\n"
LOSING = LOCKED + "event = [{ kind = 'missed_field', at_s = 1.5, every_s = 0.5 }]\n"
STALLED = """
[[chip]]
[[chip.input]]
standard = '1080p60'
event = [{ kind = 'buffers_run_out', at_s = 4, for_s = 600 }]
[[chip.output]]
standard = '1080p60'
event = [{ kind = 'buffers_run_out', at_s = 4, for_s = 600 }]
"""
BROKEN = LOCKED.replace("ppm = 3", "event = [{ kind = 'signal_loss', at_s = 12, for_s = 1 }]") + """
[[chip.output]]
standard = '1080p60'
event = [{ kind = 'buffers_run_out', at_s = 2, for_s = 2.5 }]
"""
HANGING = LOCKED + "event = [{ kind = 'hang', at_s = 1, ms = 60000 }]\n"
CHIPS = LOCKED + """
[[chip]]
clock_ppm = 30
tick_frequency_hz = 27_000_000
[[chip.input]]
standard = '1080p60'
event = [{ kind = 'hang', at_s = 3, ms = 60000 }]
"""
FAILING = LOCKED + """
[[chip]]
[[fault]]
operation = 'VtBoard_GetTickReferenceFrequency'
status = 'VtStatus_FAIL'
times = 0
chip = 1
"""


class WatchCase(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.store = self.folder / "store"

    def start(self, scenario, *arguments, **environment):
        watch = Watch(self.folder, scenario, PROGRAM, *arguments, LD_LIBRARY_PATH=BOARD, **environment)
        self.addCleanup(watch.process.communicate)
        self.addCleanup(watch.process.kill)
        return watch

    def serve(self, scenario, *arguments, **environment):
        return self.start(scenario, "--listen", "127.0.0.1:0", *arguments, **environment)


class Check(WatchCase):
    def check(self, scenario, *arguments):
        return self.start(scenario, "check", "--seconds", "5", *arguments).run()

    def test_verdicts(self):
        both = ("--locked", "IN_00,IN_01")
        cases = [
            (LOCKED, (*both, "--expect", "IN_00,IN_01", "--rate-within", "1,5"), 1, "VIDEO WARNING - IN_00 runs at +"),
            (LOCKED, (*both, "--within", "20us", "--rate-within", "5"), 0, "VIDEO OK - 2 of 2 streams run, 1 pair in"),
            (FREE, ("--locked", "IN_00,IN_02"), 2, "VIDEO CRITICAL - IN_00 and IN_02 are not in lock"),
            (GOING, (), 2, "VIDEO CRITICAL - IN_01 is lost"),
            (LOSING, ("--most-lost", "0,100"), 1, "VIDEO WARNING - IN_01 lost "),
            (LOCKED, ("--expect", "OUT_00"), 2, "VIDEO CRITICAL - the board has no OUT_00"),
            ("", (), 3, "VIDEO UNKNOWN - no board"),
            (FAILING, ("--gpu", "all"), 2, "VIDEO CRITICAL - chip 1 does not answer"),
            (LOCKED, ("--expect", "IN_0"), 3, "VIDEO UNKNOWN - --expect"),
        ]
        watches = [self.start(scenario, "check", "--seconds", "5", *arguments) for scenario, arguments, _, _ in cases]
        for watch, (_, arguments, status, begin) in zip(watches, cases):
            with self.subTest(arguments=arguments, begin=begin):
                ended, output = watch.run()
                self.assertTrue(output.startswith(begin), output)
                self.assertEqual(ended, status, output)
                lines = output.splitlines()[1:]
                self.assertEqual([line for line in lines if not re.match("(OK|WARNING|CRITICAL|UNKNOWN): ", line)], [])
                self.assertEqual(len(lines) == 0, " more)" not in output.splitlines()[0], "a line for each finding")

    def test_a_frozen_output_and_an_input_that_nobody_reads_are_faults(self):
        status, output = self.start(STALLED, "check", "--seconds", "10").run()
        self.assertEqual(status, 1, output)
        self.assertIn("\nWARNING: feed of IN_00: nobody takes the pictures, since ", output)
        self.assertIn("\nWARNING: feed of OUT_00: no new picture comes, since ", output)

    def test_verdict_that_nobody_can_read_is_unknown(self):
        environment = {**os.environ, "VELTRANO_SCENARIO": "", "LD_LIBRARY_PATH": BOARD}
        with open("/dev/full", "w") as full:
            self.assertEqual(subprocess.call([PROGRAM, "check", "--seconds", "1"], stdout=full, env=environment), 3)

    def test_whole_verdict_by_its_schema(self):
        status, output = self.check(LOCKED, "--json", "--locked", "IN_00,IN_01")
        verdict = json.loads(output)
        check_schema(SCHEMAS, "check", verdict)
        self.assertEqual((verdict["exit"], verdict["status"]), (status, "ok"), output)
        self.assertEqual([stream["id"] for stream in verdict["streams"]], ["IN_00", "IN_01"])


class Serve(WatchCase):
    def test_ends_in_the_middle_of_everything(self):
        # A client in the middle of a request, one that listens, and a board whose call does not come back.
        watch = self.serve(HANGING, "--store", self.store)
        watch.await_snapshot()
        host, port = watch.address().split(":")
        clients = [socket.create_connection((host, int(port))) for _ in range(2)]
        clients[0].sendall(b"GET /metrics HTT")
        clients[1].sendall(f"GET /api/v1/live HTTP/1.1\r\nHost: {host}\r\n\r\n".encode())
        clients[1].recv(100)
        status, seconds = watch.end()
        self.assertEqual(status, 0)
        self.assertLess(seconds, END)
        with sqlite3.connect(self.store) as store:
            self.assertEqual(store.execute("SELECT ending FROM runs").fetchall(), [(1,)])
        for client in clients:
            client.close()

    def test_standard_files_that_are_closed_are_nobody_elses(self):
        address = f"127.0.0.1:{free_port()}"
        close = f'exec "$0" "$@" --listen {address} --store {self.store} --journal - <&- >&- 2>&-'
        environment = {**os.environ, "VELTRANO_SCENARIO": "", "LD_LIBRARY_PATH": BOARD}
        process = subprocess.Popen(["sh", "-c", close, PROGRAM, "serve"], env=environment)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)

        def costs():
            with urllib.request.urlopen(f"http://{address}/api/v1/streams", timeout=PATIENCE) as answer:
                return json.load(answer)["costs"]
        wait_for(lambda: costs()["journal_failing"])
        self.assertFalse(costs()["store_failing"])
        files = [os.readlink(f"/proc/{process.pid}/fd/{number}") for number in range(3)]
        self.assertEqual(files, ["/dev/null"] * 3)
        process.terminate()
        self.assertEqual(process.wait(PATIENCE), 0)

    def test_tells_the_service_manager_from_named_threads(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            path = str(self.folder / "notify")
            manager.bind(path)
            manager.settimeout(PATIENCE)
            watch = self.serve(LOCKED, NOTIFY_SOCKET=path, WATCHDOG_USEC="400000")
            told = []
            while (sum("WATCHDOG=1" in message for message in told) < 2 or
                   not any("STATUS=simulated board: 2 running" in message for message in told)):
                told.append(manager.recv(4096).decode())
            ready = next(place for place, message in enumerate(told) if "READY=1" in message)
            self.assertEqual(ready, 0, "nothing before it is ready")
            tasks = pathlib.Path(f"/proc/{watch.process.pid}/task")
            names = {(task / "comm").read_text().strip() for task in tasks.iterdir()}
            self.assertLessEqual({"analysis", "signals", "IN_00", "IN_01"}, names)
            watch.end()
            manager.setblocking(False)
            while "STOPPING=1" not in told[-1]:
                told.append(manager.recv(4096).decode())

    @unittest.skipIf(IS_SANITIZED, "a sanitizer wants to be loaded before any other library")
    def test_every_thread_that_the_system_refuses_is_told_in_one_line(self):
        refused, number = 0, 1
        while number < 100:
            watch = self.serve(LOCKED, "--store", self.store, "--journal", self.folder / "journal",
                               LD_PRELOAD=REFUSER, VT_REFUSED_THREAD=str(number))
            wait_for(lambda: watch.process.poll() is not None or "serving on" in watch.said.read_text())
            if watch.process.poll() is None:
                break  # it has all that it needs
            refused, number = refused + 1, number + 1
            said = watch.said.read_text()
            self.assertEqual((watch.process.returncode, said.count("VtVideoWatch: ")), (1, 1), f"thread {number}: {said}")
        self.assertGreaterEqual(refused, 7, "signals, streams, store, journal, analysis, and those that serve")

    def refuse(self, start, end, thread=b""):
        """The allocations from start on, counted from 1, up to end; whoever runs with this has them refused."""
        supply = self.folder / "supply"
        if not supply.exists():
            supply.write_bytes(bytes(64))
        with open(supply, "r+b") as file, mmap.mmap(file.fileno(), 64) as shared:
            count = struct.unpack_from("<Q", shared)[0] if thread or start > 0 else 0
            struct.pack_into("<QQ16s", shared, 8, count + start, count + end, thread)
        return {"LD_PRELOAD": REFUSER, "VT_REFUSED_MEMORY": str(supply)}

    def count(self):
        """Allocations so far."""
        return struct.unpack_from("<Q", (self.folder / "supply").read_bytes())[0]

    @unittest.skipIf(IS_SANITIZED, "a sanitizer has an allocator of its own")
    def test_begins_or_says_in_one_line_that_there_is_no_memory(self):
        ended = 0
        for number in [*range(1, 6200, 331), *range(6200, 9000, 700)]:
            for end in (number + 1, 10**9):
                (self.folder / "supply").unlink(missing_ok=True)
                watch = self.serve(LOCKED, "--store", self.store, "--journal", self.folder / "journal",
                                   **self.refuse(number, end))
                wait_for(lambda: watch.process.poll() is not None or "serving on" in watch.said.read_text())
                status = watch.process.poll()
                watch.process.kill()
                said = watch.said.read_text()
                with self.subTest(number=number, end=end):
                    # A store that cannot be opened now, but perhaps later, is told besides.
                    lines = said.count("VtVideoWatch: ") - said.count("no memory for") - (status is None and said.count(": out of memory\n"))
                    self.assertIn((status, lines), [(1, 1), (None, 1)], said)
                ended += status == 1
        self.assertGreater(ended, 12, "a start without memory is no start")

    @unittest.skipIf(IS_SANITIZED, "a sanitizer has an allocator of its own")
    def test_goes_on_when_memory_fails(self):
        flapping = LOCKED + "event = [{ kind = 'signal_loss', at_s = 1, for_s = 0.3, every_s = 1 }]\n"
        watch = self.serve(flapping, "--store", self.store, "--journal", self.folder / "journal", "--on-incident",
                           "/bin/true", **self.refuse(0, 0))
        watch.await_snapshot()

        def is_over(end):
            for path in ("streams", "history?stream=IN_00", "events", "incidents"):
                try:
                    watch.get("/api/v1/" + path)
                except OSError:
                    pass  # this answer had no memory
            return self.count() > end
        for number in range(1, 1000, 53):
            self.refuse(number, number + 1)
            wait_for(lambda end=self.count() + number: is_over(end))
        for thread, length in ((b"analysis", 60), (b"store", 20)):
            self.refuse(1, length, thread)
            wait_for(lambda end=self.count() + length: is_over(end))
        self.refuse(0, 0)
        watch.await_snapshot(watch.get("/api/v1/streams")["snapshot"]["number"] + 2)
        wait_for(lambda: not watch.get("/api/v1/streams")["costs"]["store_failing"])
        costs = watch.get("/api/v1/streams")["costs"]
        self.assertGreater(costs["memory_failures"], 0)
        # What more of the same second could be said is only counted.
        self.assertRegex(watch.said.read_text(), "no memory for .*; the watch goes on")
        self.assertEqual(watch.end()[0], 0)
        with sqlite3.connect(self.store) as store:
            self.assertEqual(store.execute("PRAGMA integrity_check").fetchall(), [("ok",)])

    def test_goes_on_after_a_restart_and_after_a_kill(self):
        journal = self.folder / "journal"
        first = self.serve(LOCKED, "--store", self.store, "--journal", journal)
        first.await_snapshot(5)  # the last second may be lacking, and the second run's own is not counted on
        first.end(signal.SIGKILL)
        second = self.serve(LOCKED, "--store", self.store, "--journal", journal)
        second.await_snapshot()
        events = second.get("/api/v1/events?limit=1000")["events"]
        numbers = [event["number"] for event in events]
        self.assertEqual(numbers, list(range(len(numbers), 0, -1)), "newest first, without a gap or a double")
        began = [event["kind"] for event in reversed(events) if event["stream"] == "IN_00" and "watch" in event["kind"]]
        self.assertEqual(began, ["watch_began", "watch_ended", "watch_began"])
        told = [json.loads(line) for line in journal.read_text().splitlines()]
        self.assertEqual([line["kind"] for line in told if line["stream"] == "IN_00" and "watch" in line["kind"]], began)
        minutes = second.get("/api/v1/history?stream=IN_00&step=60")
        self.assertGreater(sum(minutes["fields"]), 3 * 60, "what the first run saw counts")
        second.end()

    def test_a_chip_that_hangs_takes_no_other_with_it(self):
        watch = self.serve(CHIPS, "--gpu", "all", "--store", self.store)

        def fields():
            streams = watch.get("/api/v1/streams")
            check_schema(SCHEMAS, "streams", streams)
            return {one["id"]: one["counters"]["fields_observed"] for one in streams["directions"]["input"]["streams"]}
        watch.await_snapshot(7)  # the hang has begun by then
        before = fields()
        self.assertEqual(list(before), ["0:IN_00", "0:IN_01", "1:IN_00"])
        number = watch.get("/api/v1/streams")["snapshot"]["number"]
        watch.await_snapshot(number + 2)
        after = fields()
        self.assertEqual(after["1:IN_00"], before["1:IN_00"])
        self.assertGreater(after["0:IN_00"], before["0:IN_00"])
        status, seconds = watch.end()
        self.assertEqual((status, seconds < END), (0, True))
        reported = json.loads(self.start("", "report", self.store, "--json").run()[1])["streams"]
        self.assertEqual([one["stream"] for one in reported], ["0:IN_00", "0:IN_01", "1:IN_00"])

    def test_incidents_are_the_same_wherever_they_are_told(self):
        journal, told, program = (self.folder / name for name in ("journal", "told", "program"))
        program.write_text(f"#!/bin/sh\ncat >> {told}\n")
        program.chmod(0o755)
        arguments = ("--store", self.store, "--journal", journal, "--on-incident", program)
        watch = self.serve(BROKEN, *arguments, "--expect", "IN_00,IN_01", "--fed", "OUT_00")

        def ended():
            incidents = watch.get("/api/v1/incidents?open=false")["incidents"]
            return incidents if {"signal", "feed"} <= {incident["domain"] for incident in incidents} else []
        wait_for(ended)
        answered = {incident["number"]: incident for incident in ended()}
        self.assertIn((["IN_00", "IN_01"], "lock_group"),
                      [(incident["streams"], incident["shared"]) for incident in answered.values()])
        self.assertEqual(watch.end()[0], 0)
        reported = json.loads(self.start("", "report", self.store, "--json").run()[1])["incidents"]
        self.assertEqual({number: incident for number, incident in ((one["number"], one) for one in reported)
                          if number in answered}, answered)
        with sqlite3.connect(self.store) as store:
            stored = store.execute("SELECT number FROM incidents WHERE end_ns > 0").fetchall()
        self.assertEqual(sorted(number for number, in stored), sorted(one["number"] for one in reported))
        lines = [json.loads(line) for line in journal.read_text().splitlines()]
        happened = [(line["kind"], line["incident"]) for line in lines if line["kind"].startswith("incident")]
        self.assertEqual(sorted(happened), sorted((kind, one["number"]) for one in reported
                                                  for kind in ("incident_began", "incident_ended")))
        # The next run tells the program what this one could not, at its end.
        self.serve(LOCKED, *arguments)

        def news():
            return [json.loads(line) for line in told.read_text().splitlines()]
        wait_for(lambda: {(one["event"], one["number"]) for one in news()} >= set(happened))

    def test_journal_follows_a_rotation(self):
        journal = self.folder / "journal"
        watch = self.serve(LOCKED, "--journal", journal)
        wait_for(lambda: len(journal.read_text().splitlines()) >= 2)
        journal.rename(self.folder / "journal.1")
        watch.process.send_signal(signal.SIGHUP)
        wait_for(journal.exists)
        self.assertEqual(watch.end()[0], 0)
        lines = [json.loads(line) for line in journal.read_text().splitlines()]
        self.assertEqual([line["kind"] for line in lines[-2:]], ["watch_ended", "watch_ended"])

    def test_says_in_one_line_what_is_wrong(self):
        (self.folder / "text").write_text("no database" * 1000)
        queue = self.folder / "queue"
        os.mkfifo(queue)
        busy = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(busy.close)
        cases = [
            ((LOCKED, "--listen", f"127.0.0.1:{busy.getsockname()[1]}"), 1, "cannot listen"),
            ((LOCKED, "--store", self.folder / "text"), 1, "not a database"),
            ((LOCKED, "--journal", "/nowhere/at/all"), 1, "No such file"),
            ((LOCKED, "--reference", "IN_09"), 1, "has no IN_09"),
            (("",), 1, "no board"),
            ((LOCKED, "--gpu", "x"), 2, "--gpu"),
            ((LOCKED, "--gpu", "0,7"), 1, "no chip 7"),
            ((LOCKED, "watch"), 2, "expected serve, check, report, record or export"),
            ((LOCKED, "report", "/nowhere/at/all"), 1, "No such file"),
            ((LOCKED, "no\nsuch\x1bthing"), 2, "no?such?thing"),
            ((LOCKED, "report", queue), 1, "is no regular file"),
            ((LOCKED, "--store", queue), 1, "is no regular file"),
            ((LOCKED, "--journal", queue), 1, "is a pipe"),
            ((LOCKED, "--store", self.store, "--journal", f"{self.folder}/./store"), 2, "is the file of --store"),
            ((LOCKED, "--store=", "--journal=x"), 2, "--store=: needs a value"),
        ]
        for arguments, status, says in cases:
            with self.subTest(says=says):
                watch = self.start(*arguments)
                self.assertEqual(watch.run()[0], status)
                lines = [line for line in watch.said.read_text().splitlines() if line.startswith("VtVideoWatch: ")]
                self.assertEqual(len(lines), 1, lines)
                self.assertIn(says, lines[0])


class Report(WatchCase):
    def test_sums_up_what_was_watched(self):
        watch = self.serve(LOSING, "--store", self.store)
        watch.await_snapshot(7)
        truth = watch.get("/api/v1/streams")["directions"]["input"]["streams"][1]["counters"]["fields_lost"]
        watch.end()
        report = json.loads(self.start("", "report", self.store, "--json").run()[1])
        left, right = report["streams"]
        self.assertEqual((left["name"], left["fields_lost"]), ("Left", 0))
        self.assertGreaterEqual(right["fields_lost"], truth)
        self.assertGreater(right["worst_gap_seconds"], 0.01)
        self.assertAlmostEqual(left["rate"]["hz"], 60 * (1 + 3e-6), places=3)
        self.assertEqual(sum(hour["fields_lost"] for hour in report["hours"]), right["fields_lost"])
        self.assertIn(["IN_00", "IN_01"], [lock["members"] for lock in report["locks"]])
        rows = list(csv.DictReader(io.StringIO(self.start("", "report", self.store, "--csv").run()[1])))
        self.assertEqual(int(rows[1]["fields_lost"]), right["fields_lost"])
        table = self.start("", "report", self.store).run()[1]
        self.assertIn("IN_01   Right", table)
        self.assertLessEqual(max(map(len, table.splitlines())), 100)
        self.assertIn(" 100.0000 %", next(line for line in table.splitlines() if "Left" in line))
        with sqlite3.connect(self.store) as store:
            store.execute("DROP TABLE events")
        damaged = self.start("", "report", self.store)
        status, table = damaged.run()
        self.assertEqual((status, damaged.said.read_text().count("\n")), (1, 1))
        self.assertIn("no such table: events", damaged.said.read_text())
        self.assertIn("IN_01   Right", table, "what could be read is told")


def members(message):
    """(number, value) of each member of a message in the wire format of protocol buffers."""
    place = 0

    def varint():
        nonlocal place
        value = shift = 0
        while True:
            byte = message[place]
            place += 1
            value |= (byte & 127) << shift
            shift += 7
            if byte < 128:
                return value

    while place < len(message):
        key = varint()
        length = varint()
        if key & 7 == 2:
            yield key >> 3, message[place:place + length]
            place += length
        else:
            yield key >> 3, length


class Record(WatchCase):
    def test_holds_every_field_as_the_board_made_it_and_other_programs_read_it(self):
        truth = self.folder / "truth.csv"
        scenario = LOSING + f"[truth]\nfile = '{truth}'\n"
        file = self.folder / "fault.vtrec"
        status, _ = self.start(scenario, "record", file, "--seconds", "3").run()
        self.assertEqual(status, 0)
        with sqlite3.connect(f"file:{file}?mode=ro", uri=True) as recording:
            recorded = recording.execute("SELECT stream_index, tick, field_counter FROM fields JOIN streams USING (stream) "
                                         "WHERE result = 0 ORDER BY fields.rowid").fetchall()
            waits, = recording.execute("SELECT count(*) FROM fields").fetchone()
            self.assertIn(("fields_lost", 1), recording.execute("SELECT kind, stream_index FROM events JOIN streams USING "
                                                                "(stream)").fetchall())
        self.assertGreater(len(recorded), 2 * 150)
        for index in (0, 1):
            with open(truth, newline="") as rows:
                made = {int(row["stamp"]): int(row["field_counter"]) for row in csv.DictReader(rows)
                        if int(row["index"]) == index}
            fields = [(tick, counter) for stream, tick, counter in recorded if stream == index]
            self.assertEqual([made.get(tick) for tick, _ in fields], [counter for _, counter in fields])
            lost = sum((after - before) // 16 - 1 for (_, before), (_, after) in zip(fields, fields[1:]))
            self.assertEqual(lost > 0, index == 1, "only the fields that the scenario takes away are missing")

        status, table = self.start(LOCKED, "export", file, "--format", "csv").run()
        rows = list(csv.DictReader(io.StringIO(table, newline="")))
        self.assertEqual((status, len(rows)), (0, waits))
        self.assertEqual(sorted(int(row["tick"]) for row in rows if row["result"] == "field"),
                         sorted(tick for _, tick, _ in recorded))

        trace = self.folder / "fault.pftrace"
        self.assertEqual(self.start(LOCKED, "export", file, "--format", "perfetto", "-o", trace).run()[0], 0)
        packets = [dict(members(packet)) for number, packet in members(trace.read_bytes()) if number == 1]
        tracks = [dict(members(packet[60])) for packet in packets if 60 in packet]
        names = {track[1]: track[2].decode() for track in tracks}
        events = [dict(members(packet[11])) for packet in packets if 11 in packet]
        began = [event for event in events if event[9] == 1 and names[event[11]].endswith(" fields")]
        ended = [event for event in events if event[9] == 2 and names[event[11]].endswith(" fields")]
        self.assertEqual((len(began), len(ended)), (len(recorded), len(recorded)))
        self.assertIn("IN_01 Right", names.values())
        # Nothing that the published numbers of the format do not name: packets, tracks, events and their types.
        for said, numbers in ((packets, {6, 8, 10, 11, 13, 58, 60}), (tracks, {1, 2, 5, 8}), (events, {9, 11, 23, 30})):
            self.assertLessEqual({number for message in said for number in message}, numbers)
        self.assertLessEqual({event[9] for event in events}, {1, 2, 3, 4})

    def test_incidents_are_kept_handed_out_and_played_again(self):
        kept = self.folder / "kept"
        kept.mkdir()
        (kept / "20261122T035109Z-incident-1.vtrec.part").write_text("of one that was killed")
        watch = self.serve(GOING, "--recordings", kept, "--recorder", "30", "--expect", "IN_00,IN_01")
        wait_for(lambda: watch.get("/api/v1/incidents")["incidents"])
        wait_for(lambda: list(kept.iterdir()))
        asked = self.folder / "asked.vtrec"
        with urllib.request.urlopen(f"http://{watch.address()}/api/v1/recording?seconds=20", timeout=PATIENCE) as answer:
            self.assertEqual(answer.headers["Content-Disposition"], 'attachment; filename="recording.vtrec"')
            asked.write_bytes(answer.read())
        fields = watch.get("/api/v1/fields?stream=IN_00&seconds=20")
        check_schema(SCHEMAS, "fields", fields)
        self.assertEqual(len(fields["t"]), len(fields["off"]))
        self.assertGreater(len(fields["t"]), 20)
        self.assertEqual(watch.get("/api/v1/recordings"), {"are_kept": True, "recordings": []})
        with self.assertRaisesRegex(urllib.error.HTTPError, "404"):
            watch.get("/api/v1/fields?stream=IN_00&recording=../kept/x")
        for query in ("seconds=31", "seconds=0", "minutes=1"):
            with self.assertRaisesRegex(urllib.error.HTTPError, "400"):
                watch.get(f"/api/v1/recording?{query}")
        self.assertEqual(watch.end()[0], 0)
        name, = (path.name for path in kept.iterdir())
        self.assertRegex(name, r"^\d{8}T\d{6}Z-incident-1\.vtrec$")
        for file in (kept / name, asked):
            status, report = self.start(LOCKED, "report", file, "--json").run()
            lost = {stream["stream"]: stream["signal_losses"] for stream in json.loads(report)["streams"]}
            self.assertEqual((status, lost), (0, {"IN_00": 0, "IN_01": 1}))

        self.assertEqual(self.judge(kept / name)[0], 0)

        # The board plays it: nothing comes that had not come then.
        again = self.folder / "again.vtrec"
        self.assertEqual(self.start(f"[[chip]]\nreplay = '{kept / name}'\n", "record", again, "--seconds", "2").run()[0], 0)
        rows = []
        for file in (again, kept / name):
            with sqlite3.connect(f"file:{file}?mode=ro", uri=True) as recording:
                rows.append(set(recording.execute("SELECT stream, tick, field_counter, parity, ready, skipped FROM fields "
                                                  "WHERE result = 0")))
        self.assertTrue(rows[0] and rows[0] <= rows[1])

    def judge(self, file):
        """Exit status of the conformance program, and all that it says."""
        judge = pathlib.Path(PROGRAM).parent / "veltrano-conformance"
        environment = {**os.environ, "LD_LIBRARY_PATH": BOARD}
        judged = subprocess.run([judge, "--recording", file], capture_output=True, text=True, env=environment)
        return judged.returncode, judged.stdout + judged.stderr

    def test_a_board_is_judged_by_a_recording_of_it(self):
        file = self.folder / "fault.vtrec"
        self.assertEqual(self.start(LOSING, "record", file, "--seconds", "1").run()[0], 0)
        status, said = self.judge(file)
        self.assertEqual(status, 0, said)
        self.assertRegex(said, "holds    inputs: counters and stamps only advance")
        self.assertRegex(said, "skipped  outputs: counters .*\\n *skipped: the recording has none")
        self.assertRegex(said, "skipped  the debug channel .*\n *skipped: cannot be judged by a recording")
        for change, says in (("tick = tick - 9000000 WHERE rowid = 40", "FAILS    inputs: counters.*\n.*the stamp goes from"),
                               ("ready = ready + 1 WHERE rowid = 40", "FAILS    inputs: buffers add up"),
                               ("skipped = 1 WHERE rowid = 40", "FAILS    custom calls.*\n.*skipped buffers go from 1 to 0"),
                               ("result = 7", "table fields: row 1 of IN_00 is no field")):
            with sqlite3.connect(file) as recording:
                recording.execute(f"UPDATE fields SET {change}")
            status, said = self.judge(file)
            self.assertEqual(status, 1, said)
            self.assertRegex(said, says)
        self.assertEqual(self.judge(self.folder / "nothing")[0], 1)

    def test_without_a_folder_there_is_nothing_to_ask_for(self):
        watch = self.serve(LOCKED)
        with self.assertRaisesRegex(urllib.error.HTTPError, "404"):
            watch.get("/api/v1/recording")

    def test_says_what_is_wrong_in_one_line(self):
        nothing = self.folder / "nothing"
        nothing.write_text("nothing")
        for arguments in (("export", nothing, "--format", "csv"), ("record", self.folder / "no" / "file", "--seconds", "1")):
            watch = self.start(LOCKED, *arguments)
            self.assertEqual(watch.run()[0], 1)
            said = [line for line in watch.said.read_text().splitlines() if not line.startswith("libVeltrano")]
            self.assertEqual(len(said), 1, said)
            self.assertTrue(said[0].startswith("VtVideoWatch: recording "), said)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]])
