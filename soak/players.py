"""The programs of the soak test: the daemon, its clients, and the memory that they share with the driver."""
import mmap
import os
import select
import signal
import struct
import subprocess
import time

import system

BOUND = 30  # seconds, for every wait


class Failure(Exception):
    pass


class Board:
    """64-bit words in slots, as in client.cpp; slot -1 is the daemon's."""
    SLOT_WORDS = 18

    def __init__(self, path, slots):
        path.write_bytes(bytes((1 + slots) * self.SLOT_WORDS * 8))
        with open(path, "r+b") as file:
            self.memory = mmap.mmap(file.fileno(), 0)

    def _place(self, slot, word):
        return ((1 + slot) * self.SLOT_WORDS + word) * 8

    def word(self, slot, word):
        return struct.unpack_from("=Q", self.memory, self._place(slot, word))[0]

    def operations(self, slot):
        return self.word(slot, 0)

    def generation(self, slot=-1):
        return self.word(slot, 1)

    def next_generation(self):
        struct.pack_into("=Q", self.memory, self._place(-1, 1), self.generation() + 1)

    def own(self, slot, own):
        """Of an owned parameter: the last write begun, the last read back, and the bounds of late writes."""
        return [self.word(slot, 2 + 4 * own + word) for word in range(4)]


class Parameter:
    def __init__(self, kind, number, lowest, highest, is_kept, is_in_presets):
        self.kind, self.id, self.lowest = kind, number, int(lowest)
        self.is_kept, self.is_in_presets = is_kept == "1", is_in_presets == "1"
        # The number of its values, or of the writes that a text can tell apart.
        self.values = int(highest) - int(lowest) + 1 if kind == "number" else 2 ** 32

    def printed(self, write):
        if self.kind == "number":
            return str(self.lowest + write % self.values)
        return f"{self.id}.{write}." + "x" * (write * 37 % (2000 if self.kind == "data" else 400))


def list_parameters(programs, model=None):
    """Those that change only when they are written, and change no other."""
    environment = {**os.environ, "PRODUCT_ID": model} if model else None
    listed = subprocess.run([programs / "vexa_soak_client", "list"], stdout=subprocess.PIPE, check=True,
                            stderr=subprocess.DEVNULL, text=True, timeout=BOUND, env=environment).stdout
    return [Parameter(*line.split()) for line in listed.splitlines()]


class Client:
    def __init__(self, soak, slot, transport, own=()):
        self.slot, self.transport, self.own = slot, transport, own
        self.generation = soak.board.generation()
        self.stopped_until = None
        self.lost = {}  # datagrams, at the last check
        self.stale = None  # the generation in which its cache missed events, which leaves it wrong
        uri = soak.uri(transport)
        self.log = soak.work / f"client-{slot}.log"
        names = [",".join(parameter.id for parameter in group) for group in (own, soak.shared, soak.play)]
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(
                [soak.programs / "vexa_soak_client", uri, soak.work / "board", str(slot),
                 str(soak.random.getrandbits(31)), soak.sync[0].id, soak.sync[1].id, *names],
                stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=log, bufsize=0)
        self.pid = self.process.pid
        self.input = b""
        self.differences = []

    def name(self):
        return f"client {self.slot} ({self.transport}, process {self.pid})"

    def tell(self, line):
        try:
            self.process.stdin.write(line.encode() + b"\n")
        except BrokenPipeError:
            pass

    def lines(self, last):
        """Its output up to a line; None when that does not come."""
        lines, end = [], time.monotonic() + BOUND
        while True:
            while b"\n" in self.input:
                line, self.input = self.input.split(b"\n", 1)
                if line.decode() == last:
                    return lines
                self._keep(line.decode(), lines)
            ready, _, _ = select.select([self.process.stdout], [], [], max(0, end - time.monotonic()))
            piece = os.read(self.process.stdout.fileno(), 65536) if ready else b""
            if not piece:
                return None
            self.input += piece

    def _keep(self, line, lines):
        (self.differences if line.startswith("differs") else lines).append(line)

    def answer(self, verb):
        lines = self.lines(verb)
        if lines is None:
            raise Failure(f"{self.name()} does not answer \"{verb}\", exit status {self.process.poll()} "
                          + "".join(self.differences[:1]))
        return lines

    def ask(self, line):
        self.tell(line)
        return self.answer(line.split()[0])

    def end(self):
        """Tells it to quit, and requires that it does."""
        if self.process.poll() is None:
            self.tell("quit")
        try:
            status = self.process.wait(BOUND)
        except subprocess.TimeoutExpired:
            raise Failure(f"{self.name()} does not quit")
        if status != 0:
            raise Failure(f"{self.name()} quit with status {status}")
        self.close()

    def kill(self):
        self.process.kill()
        self.process.wait(BOUND)
        self.close()

    def close(self):
        self.process.stdin.close()
        self.process.stdout.close()


class Daemon:
    """A daemon that keeps its state in a directory."""

    def __init__(self, programs, log, state, *options, model=None):
        self.command = [programs / "mainstay", "--state", state, *options]
        self.environment = {**os.environ, "PRODUCT_ID": model} if model else None
        self.log, self.ports = log, {"TCP": 0, "UDP": 0}
        self.process = None

    def start(self):
        with open(self.log, "ab") as log:
            start = log.tell()
            ports = ["--tcp-port", str(self.ports["TCP"]), "--udp-port", str(self.ports["UDP"])]
            self.process = subprocess.Popen([*self.command, *ports], stderr=log, env=self.environment)
        line = []

        def is_ready():
            lines = self.log.read_bytes()[start:].decode(errors="replace").splitlines()
            line[:] = [line for line in lines if line.startswith("mainstay: ready") or "another daemon" in line]
            return line or self.process.poll() is not None

        if not system.wait_until(is_ready, BOUND) or not line or "ready" not in line[0]:
            raise Failure((line or [f"mainstay did not start, exit status {self.process.poll()}"])[0])
        for name in self.ports:
            if f"{name} port " in line[0]:
                self.ports[name] = int(line[0].split(f"{name} port ")[1].split(",")[0])

    def stop(self, number):
        self.require()
        self.process.send_signal(number)
        try:
            status = self.process.wait(BOUND)
        except subprocess.TimeoutExpired:
            raise Failure("mainstay does not stop")
        if status != (0 if number == signal.SIGTERM else -number):
            raise Failure(f"mainstay stopped with status {status}")

    def require(self):
        if self.process.poll() is not None:
            raise Failure(f"mainstay ended by itself, status {self.process.poll()}")
