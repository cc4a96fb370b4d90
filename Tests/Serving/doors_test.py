"""Every way in, tried from outside: addresses of both families, unix sockets, sockets that are handed over.

usage: doors_test.py <VtVideoWatch>
"""
import ctypes
import grp
import json
import os
import pathlib
import re
import resource
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import time
import unittest

from serving_tools import free_port, wait_for

watch_path = sys.argv[1]
# A sanitizer asks for files of its own where there are few, and makes handshakes so slow that the idlest client is ours.
is_sanitized = b"__ubsan_handle" in pathlib.Path(watch_path).read_bytes()


class DoorsTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="vt-doors-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.log = self.folder / "log"
        self.socket = self.folder / "http.sock"

    def start(self, *options, before=()):
        with self.log.open("w") as log:
            process = subprocess.Popen([*before, watch_path, "serve", *map(str, options)], stdout=log, stderr=log)
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

    @unittest.skipIf(is_sanitized, "a sanitizer needs files itself")
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

    def make_certificate(self, name, *options):
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                        "-days", "2", "-subj", f"/CN={name}", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
                        self.folder / f"{name}.key", "-out", self.folder / f"{name}.pem", *options],
                       check=True, capture_output=True)
        (self.folder / f"{name}.key").chmod(0o600)

    def make_users(self, **passwords):
        crypt = ctypes.CDLL("libcrypt.so.1").crypt
        crypt.restype = ctypes.c_char_p
        path = self.folder / "users"
        path.write_text("".join(f"{name}:{crypt(word.encode(), b'$2b$05$' + b'a' * 22).decode()}\n"
                                for name, word in passwords.items()))
        path.chmod(0o600)
        return path

    def start_secured(self, *options):
        self.make_certificate("server")
        users = self.make_users(ada="word")
        watch = self.start("--listen", "127.0.0.1:0", "--listen", f"unix:{self.socket}", "--tls-certificate",
                           self.folder / "server.pem", "--tls-key", self.folder / "server.key", "--users", users, *options)
        return watch, self.addresses(2 + options.count("--listen"))[0]

    def tls(self, address, *options):
        return subprocess.run(["openssl", "s_client", "-connect", address.split("/")[2], "-CAfile",
                               self.folder / "server.pem", "-verify_return_error", *options],
                              input="", capture_output=True, text=True, timeout=20)

    def test_tls_and_passwords(self):
        watch, address = self.start_secured()
        self.assertTrue(address.startswith("https://"))
        trusting = ["--cacert", str(self.folder / "server.pem")]
        self.curl(*trusting, address + "metrics", status="401")
        for _ in range(2):
            self.assertIn("vt_video", self.curl(*trusting, "-u", "ada:word", address + "metrics"))
            self.curl(*trusting, "-u", "ada:other", address + "metrics", status="401")
            self.curl(*trusting, "-u", "eve:word", address + "metrics", status="401")
        self.assertIn("vt_video", self.curl("--unix-socket", str(self.socket), "http://x/metrics"))
        for version in ("-tls1", "-tls1_1"):
            self.assertNotEqual(self.tls(address, version, "-cipher", "ALL:@SECLEVEL=0").returncode, 0, version)
        for version in ("-tls1_2", "-tls1_3"):
            self.assertEqual(self.tls(address, version).returncode, 0, version)

        # A pair that does not fit is said, the old one stays; one that fits is taken, and so are other users.
        shutil.copy(self.folder / "server.pem", self.folder / "old.pem")
        self.make_certificate("server", "-keyout", os.devnull)
        watch.send_signal(signal.SIGHUP)
        wait_for(lambda: "what was read before goes on" in self.log.read_text(), self.log.read_text)
        self.curl("--cacert", str(self.folder / "old.pem"), "-u", "ada:word", address + "healthz")
        self.make_certificate("server")
        self.make_users(bob="word")
        watch.send_signal(signal.SIGHUP)
        wait_for(lambda: self.tls(address).returncode == 0, self.log.read_text)
        self.assertIn("vt_video", self.curl(*trusting, "-u", "bob:word", address + "metrics"))
        self.curl(*trusting, "-u", "ada:word", address + "metrics", status="401")
        self.end(watch)

    def test_prometheus_scrapes_with_tls_and_password(self):
        _, address = self.start_secured()
        (self.folder / "prometheus.yml").write_text(f"""
scrape_configs:
  - job_name: vt-video
    scrape_interval: 1s
    scheme: https
    tls_config: {{ ca_file: {self.folder}/server.pem }}
    basic_auth: {{ username: ada, password: word }}
    static_configs: [{{ targets: ["{address.split("/")[2]}"] }}]
""")
        port = free_port()
        server = subprocess.Popen(
            ["prometheus", f"--config.file={self.folder}/prometheus.yml", f"--storage.tsdb.path={self.folder}/data",
             f"--web.listen-address=127.0.0.1:{port}"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)
        query = f"http://127.0.0.1:{port}/api/v1/query?query=" + "up%20*%20on()%20group_left()%20count(vt_video_fields_total)"
        wait_for(lambda: '"value":[' in subprocess.run(["curl", "-s", query], capture_output=True, text=True).stdout,
                 self.log.read_text, 40)

    def test_client_certificates(self):
        self.make_certificate("client", "-addext", "extendedKeyUsage=clientAuth")
        self.make_certificate("stranger")
        _, address = self.start_secured("--tls-client-ca", self.folder / "client.pem")
        ask = ["--cacert", str(self.folder / "server.pem"), "-u", "ada:word", address + "healthz"]
        self.curl(*ask, status="403")
        for name, status in (("stranger", "403"), ("client", "200")):
            self.curl("--cert", str(self.folder / f"{name}.pem"), "--key", str(self.folder / f"{name}.key"), *ask,
                      status=status)

    def counted_fields(self):
        """By stream that runs: when, its rate, its fields, and those that were lost."""
        answer = json.loads(self.curl("--unix-socket", str(self.socket), "http://x/api/v1/streams"))
        snapshot = answer["snapshot"]
        return {one["id"]: (snapshot["tick"] / snapshot["tick_frequency_hz"], one["nominal"]["hz"],
                            one["counters"]["fields"], one["counters"]["fields_lost"])
                for direction in answer["directions"].values() for one in direction["streams"] if one["state"] == "running"}

    @unittest.skipIf(is_sanitized, "a sanitizer needs files itself")
    def test_files_that_run_out_while_it_runs_are_awaited(self):
        watch = self.start("--listen", "127.0.0.1:0", "--listen", f"unix:{self.socket}")
        address = self.addresses(2)[0]
        self.curl(address + "healthz")
        cpu = self.figure(address, "process_cpu_seconds_total")
        few = len(os.listdir(f"/proc/{watch.pid}/fd")) + 2
        most = resource.prlimit(watch.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(watch.pid, resource.RLIMIT_NOFILE, (few, most[1]))
        clients = [socket.create_connection(("127.0.0.1", int(address.rstrip("/").rpartition(":")[2]))) for _ in range(8)]
        number = self.figure(address, "vt_video_snapshots_total")
        wait_for(lambda: self.figure(address, "vt_video_snapshots_total") >= number + 2, self.log.read_text)
        self.assertIn("ok", self.curl("--unix-socket", str(self.socket), "http://x/healthz"))
        self.assertGreaterEqual(self.figure(address, "process_cpu_seconds_total"), cpu, "no counter goes back")
        resource.prlimit(watch.pid, resource.RLIMIT_NOFILE, most)
        [client.close() for client in clients]
        wait_for(lambda: "process_open_fds" in self.curl(address + "metrics"), self.log.read_text)
        self.end(watch)

    def figure(self, address, name):
        return float(re.search(rf"^{name} (\S+)$", self.curl(address + "metrics"), re.M)[1])

    @unittest.skipIf(is_sanitized, "a sanitizer is too slow for the honest one to be heard")
    def test_a_thousand_bad_clients_hold_nobody_up(self):
        limit = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(4096, limit[1]), limit[1]))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, limit)
        watch, address = self.start_secured("--listen", "[::1]:0")
        ports = [int(one) for one in re.findall(r"serving on https://\S+:(\d+)/", self.log.read_text())]
        ways = ((socket.AF_INET, ("127.0.0.1", ports[0])), (socket.AF_INET6, ("::1", ports[1])),
                (socket.AF_UNIX, str(self.socket)))
        self.curl("--unix-socket", str(self.socket), "http://x/healthz")
        begun = wait_for(self.counted_fields, self.log.read_text)["IN_00"][0]
        wait_for(lambda: self.counted_fields()["IN_00"][0] > begun + 1, self.log.read_text)
        before = self.counted_fields()
        rude = (b"", b"GET /", b"\x16\x03\x01\xff\xff" + b"x" * 900, b"\x80" * 4000,
                b"GET /metrics HTTP/1.1\r\nHost: localhost\r\nX: ", b"GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n" * 50)
        clients = []
        for index in range(1000):
            family, way = ways[index % 3]
            client = socket.socket(family)
            self.addCleanup(client.close)
            client.settimeout(5)
            try:
                client.connect(way)
                client.sendall(rude[index // 3 % len(rude)])
                clients.append(client)
            except OSError:
                pass  # it has been shown the door
        self.assertGreater(len(clients), 500)
        for way in (["--cacert", str(self.folder / "server.pem"), "-u", "ada:word", address],
                    ["--unix-socket", str(self.socket), "http://x/"]):
            text = self.curl(*way[:-1], way[-1] + "metrics", "--retry-all-errors")
            figures = dict(re.findall(r"^((?:process|vt_video_http_conn)\w+) (\S+)$", text, re.M))
            self.assertLessEqual(float(figures["vt_video_http_connections"]), 256)
            self.assertLess(float(figures["process_open_fds"]), 600)
            self.assertLess(float(figures["process_resident_memory_bytes"]), 150e6)
        wait_for(lambda: self.counted_fields()["IN_00"][0] > before["IN_00"][0] + 1, self.log.read_text)
        after = self.counted_fields()
        for stream, (seconds, rate, fields, lost) in after.items():
            self.assertEqual(lost, before[stream][3], stream)
            self.assertAlmostEqual(fields - before[stream][2], (seconds - before[stream][0]) * rate, delta=2, msg=stream)
        self.end(watch)

    def test_what_others_may_read_and_what_is_no_such_file_is_refused(self):
        self.make_certificate("server")
        users = self.make_users(ada="word")
        pem, key = self.folder / "server.pem", self.folder / "server.key"
        bad = self.folder / "bad"
        bad.touch(0o600)
        users.chmod(0o644)
        faults = [(["--users", users], "others may read it"), (["--users", bad], "no users in it"),
                  (["--users", self.folder / "none"], "No such file"), (["--users", "/dev/zero"], "no file of at most"),
                  (["--tls-certificate", pem, "--tls-key", bad], "--tls-key"), (["--tls-key", key], "--tls-certificate")]
        for options, text in faults:
            watch = self.start("--listen", "127.0.0.1:0", *options)
            self.assertIn(watch.wait(timeout=20), (1, 2), options)
            self.assertIn(text, self.log.read_text(), options)
        self.start("--listen", "0.0.0.0:0")
        self.addresses(1)
        wait_for(lambda: "may read everything" in self.log.read_text(), self.log.read_text)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
