"""Daemons for tests."""
import os
import pathlib
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
MAINSTAY = ROOT / "build/bin/mainstay"


def until(condition, why=lambda: "not in time"):
    deadline = time.monotonic() + 20
    while not condition():
        assert time.monotonic() < deadline, why()
        time.sleep(0.01)


class Daemon:
    """A daemon of OAK, on a port that it keeps when it is started again."""

    def __init__(self, folder, port=0):
        self.folder, self.port, self.process = folder, port, None
        self.start()

    def start(self):
        log = self.folder / "log"
        self.process = subprocess.Popen(
            [MAINSTAY, "--no-mq", "--no-udp", "--tcp-port", str(self.port), "--state", self.folder / "state"],
            env={**os.environ, "PRODUCT_ID": "OAK"}, stdout=log.open("w"), stderr=subprocess.STDOUT)
        until(lambda: "ready" in log.read_text(), log.read_text)
        self.port = int(log.read_text().split("TCP port ")[1].split(",")[0])

    def kill(self):
        self.process.kill()
        self.process.wait()

    @property
    def address(self):
        return f"127.0.0.1:{self.port}"
