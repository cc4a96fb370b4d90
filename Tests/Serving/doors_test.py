"""Every way in, tried from outside: addresses of both families, unix sockets, sockets that are handed over.

usage: doors_test.py <VtVideoWatch>
"""
import grp
import os
import pathlib
import re
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import time
import unittest

watch_path = sys.argv[1]


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for(condition, explain, seconds=20):
    end = time.monotonic() + seconds
    while not (value := condition()):
        if time.monotonic() > end:
            raise TimeoutError(explain())
        time.sleep(0.05)
    return value


class DoorsTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="vt-doors-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.log = self.folder / "log"
        self.socket = self.folder / "http.sock"

    def start(self, *options, before=()):
        with self.log.open("w") as log:
            process = subprocess.Popen([*before, watch_path, "serve", *options], stdout=log, stderr=log)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def addresses(self, count):
        wait_for(lambda: self.log.read_text().count("serving on ") == count, self.log.read_text)
        return re.findall(r"serving on (\S+)", self.log.read_text())

    def curl(self, *options, status="200"):
        """The body of an answer that has a status."""
        done = subprocess.run(["curl", "-sS", "--max-time", "10", "-w", "%{http_code}", "--retry", "40", "--retry-delay",
                               "0", "--retry-max-time", "10", *options], capture_output=True, text=True)
        self.assertEqual(done.stdout[-3:], status, done.stderr + self.log.read_text())
        return done.stdout[:-3]

    def end(self, process):
        process.send_signal(signal.SIGTERM)
        began = time.monotonic()
        self.assertEqual(process.wait(timeout=10), 0)
        self.assertLess(time.monotonic() - began, 1.5)

    def test_both_families_and_a_file_at_once(self):
        options = ["--listen", "127.0.0.1:0", "--listen=[::1]:0", "--listen", "[::]:0", "--listen",
                   f"unix:{self.socket}", "--socket-mode", "0620", "--socket-group", grp.getgrgid(os.getgid()).gr_name]
        killed = self.start("--listen", f"unix:{self.socket}")
        self.addresses(1)
        killed.kill()
        killed.wait()
        self.assertTrue(self.socket.exists(), "left behind, and no obstacle")
        watch = self.start(*options)
        ipv4, ipv6, both, file = self.addresses(4)
        port = both.rstrip("/").rpartition(":")[2]
        for way in ([ipv4], ["-6", "-g", ipv6], ["-g", f"http://[::1]:{port}/"], [f"http://127.0.0.1:{port}/"],
                    ["--unix-socket", str(self.socket), "http://wall.example/"]):
            self.assertIn("vt_video_http_connections", self.curl(*way[:-1], way[-1] + "metrics"))
        self.assertEqual(stat.S_IMODE(os.stat(self.socket).st_mode), 0o620)
        second = self.start("--listen", file)
        self.assertEqual(second.wait(timeout=10), 1)
        self.assertIn("Address already in use", self.log.read_text())
        self.end(watch)
        self.assertFalse(self.socket.exists())

    def test_sockets_that_are_handed_over(self):
        port = free_port()
        watch = self.start(before=["systemd-socket-activate", "-l", f"127.0.0.1:{port}", "-l", str(self.socket)])
        # Who comes first is the one that it is started for.
        self.assertIn("ok", self.curl(f"http://127.0.0.1:{port}/healthz", "--retry-connrefused"))
        self.assertEqual(self.addresses(2), [f"http://127.0.0.1:{port}/", f"unix:{self.socket}"])
        self.assertIn("ok", self.curl("--unix-socket", str(self.socket), "http://x/healthz"))
        self.end(watch)
        self.assertTrue(self.socket.exists(), "belongs to who made it")

    def test_few_files_are_enough_or_said_to_be_too_few(self):
        for files in (8, 16, 24, 32):
            self.start("--listen", "127.0.0.1:0", before=["prlimit", f"--nofile={files}"])
            text = wait_for(lambda: re.search(r"serving on (\S+)|may be opened|cannot", self.log.read_text()),
                            self.log.read_text)
            if text[1]:
                clients = [socket.create_connection(("127.0.0.1", int(text[1].rstrip("/").rpartition(":")[2])))
                           for _ in range(files)]
                self.assertIn("vt_video", self.curl(text[1] + "metrics"), files)
                [client.close() for client in clients]
        self.assertTrue(text[1])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
