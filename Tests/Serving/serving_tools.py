"""What the drivers of this folder share."""
import socket
import time


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for(condition, explain=lambda: "", seconds=20):
    end = time.monotonic() + seconds
    while not (value := condition()):
        if time.monotonic() > end:
            raise TimeoutError(explain())
        time.sleep(0.05)
    return value
