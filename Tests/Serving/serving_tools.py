"""What the drivers of programs share: the watch as a process, waiting, free ports, schemas."""
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import time
import urllib.request

import jsonschema

PATIENCE = 30.0  # seconds that only a program that hangs ever takes


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for(condition, explain=lambda: "", seconds=PATIENCE):
    """What a condition comes to once it holds; until then it may fail as what is not there yet does."""
    end = time.monotonic() + seconds
    while True:
        try:
            if value := condition():
                return value
        except (OSError, KeyError, TypeError, ValueError) as fault:
            if time.monotonic() > end:
                raise TimeoutError(explain()) from fault
        if time.monotonic() > end:
            raise TimeoutError(explain())
        time.sleep(0.02)


def check_schema(folder, name, answer):
    """Raises where an answer is not as docs/api has it."""
    folder = pathlib.Path(folder).absolute()
    schema = json.loads((folder / f"{name}.schema.json").read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    resolver = jsonschema.RefResolver(folder.as_uri() + "/", schema)
    jsonschema.Draft202012Validator(schema, resolver=resolver).validate(answer)


class Watch:
    """A program that runs on a scenario; what it says on standard error is kept in a file."""

    def __init__(self, folder, scenario, program, *arguments, **environment):
        stamp = time.monotonic_ns()
        self.said = pathlib.Path(folder, f"said.{stamp}")
        scenario_file = pathlib.Path(folder, f"scenario.{stamp}.toml")
        scenario_file.write_text(scenario)
        with open(self.said, "w") as said:
            self.process = subprocess.Popen([program, *map(str, arguments)], stdout=subprocess.PIPE, stderr=said, text=True,
                                            env={**os.environ, "VELTRANO_SCENARIO": str(scenario_file), **environment})

    def end(self, number=signal.SIGTERM):
        """Exit status and how long the end took."""
        begin = time.monotonic()
        self.process.send_signal(number)
        self.process.communicate(timeout=PATIENCE)
        return self.process.returncode, time.monotonic() - begin

    def run(self):
        """Exit status and standard output of one that ends by itself."""
        output, _ = self.process.communicate(timeout=PATIENCE)
        return self.process.returncode, output

    def address(self):
        return wait_for(lambda: re.search(r"serving on http://([^/]+)/", self.said.read_text()), self.said.read_text)[1]

    def get(self, path):
        with urllib.request.urlopen(f"http://{self.address()}{path}", timeout=PATIENCE) as answer:
            return json.load(answer)

    def await_snapshot(self, number=2):
        wait_for(lambda: self.get("/api/v1/streams")["snapshot"]["number"] >= number, self.said.read_text)
