"""A daemon that is killed and stopped every few seconds, and a client that counts up in several of its parameters and
saves presets. After each restart every parameter has a value that was set, none older than the commit interval and
what was in flight, and each preset is whole."""
import collections
import random
import signal
import threading
import time

import wire
from players import BOUND, Daemon, Failure, list_parameters

MODEL = "OAK"
INTERVAL = 0.1  # seconds, of commits
PATIENCE = 2  # seconds: the disk and the processors have other work as well
LONGEST = 3.5  # seconds between two ends of the daemon
SAVE, SAVED, RECALL, RECALLED = 0x5C010000, 0x7E5C000C, 0x5B010000, 0x7E5B000C
PERSIST_STATUS = 0x0002000A
RUNNING, COMPLETE, EMPTY = 1, 2, 4  # results


class Counting(threading.Thread):
    def __init__(self, programs, work, seed):
        super().__init__(name="counting")
        self.random = random.Random(seed)
        self.mainstay = Daemon(programs, work / "counting.log", work / "counting", "--no-mq", "--no-udp",
                               "--commit-interval", str(INTERVAL), model=MODEL)
        listed = [p for p in list_parameters(programs, MODEL) if p.is_kept and p.is_in_presets]
        self.parameters = [p for p in listed if p.values > 60_000]
        self.count = 0
        # Of each parameter, the values that it was set to, and when it was seen that each was stored.
        self.set = {parameter: [] for parameter in self.parameters}
        self.presets = {}  # by number: the counts that it may have, the last one that it has for certain first
        self.counts = collections.Counter()
        self.killed = None  # when the daemon was told to end
        self.ending = threading.Event()
        self.failure = None

    # --- for the driver ---

    def require(self):
        if self.failure:
            raise self.failure

    def finish(self):
        self.ending.set()
        self.join(BOUND)
        self.require()
        if self.is_alive():
            raise Failure("the client that counts does not end")

    def clean_up(self):
        self.ending.set()
        process = self.mainstay.process
        if process and process.poll() is None:
            process.kill()
        if self.ident:
            self.join(BOUND)

    # --- the thread ---

    def run(self):
        try:
            how = None
            while not self.ending.is_set():
                self.mainstay.start()
                with wire.Peer(self.mainstay.ports["TCP"]) as peer:
                    if how:
                        self.check_values(peer, *how)
                        self.check_preset(peer)
                    else:
                        self.begin(peer)
                    how = self.count_until_killed(peer)
        except (Failure, OSError) as failure:
            self.failure = Failure(f"counting: {failure}")

    def begin(self, peer):
        for parameter, values in self.set.items():
            values.append([peer.get(parameter), 0])

    def count_until_killed(self, peer):
        """Returns the signal that ended the daemon, and when."""
        number = self.random.choice([signal.SIGKILL] * 5 + [signal.SIGTERM])
        self.killed = None

        def kill():
            self.killed = time.monotonic()
            self.mainstay.process.send_signal(number)

        killer = threading.Timer(self.random.uniform(0, LONGEST), kill)
        killer.start()
        try:
            while True:
                self.step(peer)
        except ConnectionError:
            pass
        killer.join()
        if self.mainstay.process.wait(BOUND) != (0 if number == signal.SIGTERM else -number):
            raise Failure(f"mainstay ended with status {self.mainstay.process.returncode}")
        self.counts["kills while it counts" if number == signal.SIGKILL else "stops while it counts"] += 1
        return number, self.killed

    def step(self, peer):
        self.count += 1
        values = [(parameter, parameter.printed(self.count)) for parameter in self.parameters]
        for parameter, value in values:
            self.set[parameter].append([value, float("inf")])
        peer.set(values)
        peer.get(self.parameters[-1])
        self.acknowledge()
        if self.count % 50 == 0:
            self.save(peer, 1 + self.count // 50 % 4)
        time.sleep(0.002)

    def acknowledge(self):
        now = time.monotonic()
        for values in self.set.values():
            values[-1][1] = now
            del values[:-5000]  # older ones than any that may come back

    def save(self, peer, number):
        self.presets.setdefault(number, [None]).append(self.count)
        peer.command(SAVE, number)
        self.require_result(peer, SAVED, {COMPLETE})
        if self.killed:
            return  # a daemon that stops still answers, but carries no command out: that may be an old result
        self.presets[number] = [self.count]
        self.counts["presets saved while it counts"] += 1

    @staticmethod
    def require_result(peer, parameter, allowed):
        end = time.monotonic() + BOUND
        while (result := peer.number(parameter)) in (0, RUNNING):
            if time.monotonic() > end:
                raise Failure(f"{parameter:08x} has no result")
        if result not in allowed:
            raise Failure(f"{parameter:08x} is {result}, not one of {allowed}")
        return result

    def check_values(self, peer, number, killed):
        oldest = killed - (INTERVAL + PATIENCE if number == signal.SIGKILL else 0)
        for parameter, values in self.set.items():
            stored = [place for place, (_, time_) in enumerate(values) if time_ <= oldest]
            allowed = [value for value, _ in values[stored[-1]:]]
            value = peer.get(parameter)
            if value not in allowed:
                raise Failure(f"after signal {number} {parameter.id} is {value}, none of {allowed}")
            self.note_age(values, value, killed)
        if peer.number(PERSIST_STATUS) & 1 != (number == signal.SIGTERM):
            raise Failure(f"after signal {number} PersistStatus is {peer.number(PERSIST_STATUS)}")

    def note_age(self, values, value, killed):
        """For how long a newer value had been stored."""
        places = [place for place, (known, _) in enumerate(values) if known == value]
        if places[-1] + 1 < len(values):
            age = 1000 * max(0, killed - values[places[-1] + 1][1])
            name = "ms by which a value was late, at most"
            self.counts[name] = max(self.counts[name], round(age))

    def check_preset(self, peer):
        """The count that all its values have is the last one that was saved, or was being saved."""
        if not self.presets:
            return
        number, counts = self.random.choice(sorted(self.presets.items()))
        peer.command(RECALL, number)
        result = self.require_result(peer, RECALLED, {COMPLETE, EMPTY} if counts[0] is None else {COMPLETE})
        if result == EMPTY:
            return
        values = {parameter: peer.get(parameter) for parameter in self.parameters}
        found = [count for count in counts if count is not None and
                 values == {parameter: parameter.printed(count) for parameter in self.parameters}]
        if not found:
            raise Failure(f"preset {number} has {values}, not the counts {counts}")
        self.presets[number] = found
        for parameter, value in values.items():
            self.set[parameter].append([value, float("inf")])
        self.acknowledge()
        self.counts["presets found whole"] += 1
