#!/usr/bin/env python3
"""Runs a daemon and fifty clients; ends, stops and restarts them, and checks that they all see the same.

Usage: driver.py BUILD_DIRECTORY MINUTES [SEED]         scripts/soak builds first

Each client owns a few parameters that no other client writes. At every check point all clients pause; then
the store must hold each owned parameter's last write that was read back (or a later one that was on its way
when its writer was killed), and every client's reads, cache and listeners must agree with a fresh client's
reads. The daemon keeps its state: what was stored before it stops, or a moment before it is killed, is there
after its restart. Another one is killed every few seconds meanwhile (counting.py). At the end, with all clients gone, the daemon must hold no more descriptors and threads than before the
first, and hardly more memory than at its first check point."""
import collections
import os
import pathlib
import random
import shutil
import signal
import sys
import tempfile
import time

import counting
import garbage
import system
import wire
from players import BOUND, Board, Client, Daemon, Failure, list_parameters

TRANSPORTS = ["tcp"] * 16 + ["tcp cached"] * 8 + ["udp"] * 10 + ["udp cached"] * 6 + ["queue"] * 10
MORE_MEMORY = 8192  # kilobytes: fragments, and memory that the C library keeps of ended threads
PROBE, SYSTEM_STATE = 0x5B010000, 0x7D02010A  # read to see if the daemon is there; at 9 clients leave
RESETS = [0x6301000A, 0x7B04000A]  # commands that change what clients own
COMMIT = 0.5 + 2  # seconds until a value is on the disk, and patience with a busy machine


class Soak:
    def __init__(self, programs, work, minutes, seed):
        self.programs, self.work = programs, work
        self.random = random.Random(seed)
        self.end = minutes * 60
        self.counts = collections.Counter()
        self.differences = []
        self.board = Board(work / "board", len(TRANSPORTS) + 1)
        self.daemon = Daemon(programs, work / "mainstay.log", work / "state")
        self.counting = counting.Counting(programs, work, self.random.getrandbits(31))
        self.clients = []
        self.crashed = []  # processes, whose queues may be left
        self.memory = None  # of this daemon at its first check point
        self.share_out()
        taken = [int(parameter.id, 16) for parameter in self.play + self.sync]
        self.garbage = garbage.Garbage(self.random, taken + [PROBE, SYSTEM_STATE, *RESETS])
        self.writes = 0  # of the parameters whose event is the last one of a check point

    def share_out(self):
        everything = list_parameters(self.programs)
        everything.sort(key=lambda parameter: parameter.values, reverse=True)
        groups = {kind: [p for p in everything if p.kind == kind] for kind in ("number", "text", "data")}
        self.sync = [groups["number"].pop(0), groups["text"].pop(0)]
        self.shared = [groups["number"].pop(-1) for _ in range(3)] + [groups["number"].pop(0) for _ in range(3)]
        self.shared += [groups["text"].pop(0) for _ in range(4)]
        pool = groups["text"] + groups["number"]
        self.owned = [pool[slot::len(TRANSPORTS)] for slot in range(len(TRANSPORTS))]
        for slot, transport in enumerate(TRANSPORTS):
            if transport.startswith("udp"):
                self.owned[slot].append(groups["data"].pop())
        self.play = self.shared + [parameter for own in self.owned for parameter in own]

    def uri(self, transport):
        if transport == "queue":
            return transport
        port = self.daemon.ports[transport[:3].upper()]
        return f"{transport[:3]}://127.0.0.1:{port}" + ("/caching=true" if "cached" in transport else "")

    # --- clients ---

    def fresh(self, transport):
        """A client that only carries out commands."""
        return Client(self, len(TRANSPORTS), transport)

    def spawn(self, slot):
        return Client(self, slot, TRANSPORTS[slot], self.owned[slot])

    def kill(self, client):
        """Kills a client and starts another in its place."""
        client.kill()
        self.counts["kills"] += 1
        self.differences += [f"{client.name()} {line}" for line in client.differences]
        if client.transport == "queue":
            self.crashed.append(client.pid)
        client = self.clients[client.slot] = self.spawn(client.slot)
        return client

    def tidy(self):
        """Removes the queues of killed clients, as an operator would, unless the daemon has done it."""
        living = {client.pid & 0xFFFF for client in self.clients}
        self.counts["queues that killed clients left"] += sum(
            system.unlink_queues(pid) for pid in self.crashed if pid & 0xFFFF not in living)
        self.crashed.clear()

    def look_for_ended(self):
        """A client over UDP or queues that gets no answer ends itself: allowed only after a restart."""
        self.daemon.require()
        for client in self.clients:
            status = client.process.poll()
            if status is None:
                continue
            if status < 0 or client.transport.startswith("tcp") or client.generation == self.board.generation():
                raise Failure(f"{client.name()} ended by itself, status {status}")
            self.counts["ended without an answer"] += 1
            self.kill(client)

    # --- troubles ---

    def trouble(self):
        self.look_for_ended()
        for client in self.clients:
            if client.stopped_until and time.monotonic() > client.stopped_until:
                self.go_on(client)
        client = self.random.choice(self.clients)
        kind = self.random.choice(["kill", "stop", "tcp", "tcp", "udp", "queue", "nothing"])
        if kind == "kill":
            self.kill(client)
        elif kind == "stop" and not client.stopped_until:
            client.process.send_signal(signal.SIGSTOP)
            client.stopped_until = time.monotonic() + self.random.uniform(0.2, 2)
            self.counts["stops"] += 1
        elif kind in ("tcp", "udp"):
            getattr(self.garbage, kind)(self.daemon.ports[kind.upper()])
        elif kind == "queue":
            self.garbage.queue({client.pid & 0xFFFF for client in self.clients})

    def go_on(self, client):
        client.stopped_until = None
        if self.random.randrange(4) == 0:
            self.kill(client)
        else:
            client.process.send_signal(signal.SIGCONT)

    def restart(self, number):
        before = self.written()
        if number == signal.SIGKILL:
            time.sleep(COMMIT)
        self.board.next_generation()
        self.daemon.stop(number)
        self.counts["restarts"] += 1
        self.garbage.close()
        self.daemon.start()
        self.check_kept(before)
        self.memory = None
        self.board.next_generation()

    def written(self):
        """What the board says of each owned parameter that the daemon keeps."""
        return [(slot, parameter, self.board.own(slot, place)) for slot, own in enumerate(self.owned)
                for place, parameter in enumerate(own) if parameter.is_kept]

    def check_kept(self, before):
        """Each has the last write of before, or a later one."""
        with wire.Peer(self.daemon.ports["TCP"]) as peer:
            for (slot, parameter, (_, stored, after, until)), (_, _, now) in zip(before, self.written()):
                value = peer.get(parameter)
                writes = [*range(stored, now[0] + 1), *range(after + 1, until + 1), *range(now[2] + 1, now[3] + 1)]
                if stored and value not in map(parameter.printed, writes):
                    self.differences.append(f"after a restart {parameter.id} of client {slot} is {value[:50]}, "
                                            f"none of its writes {writes}")

    # --- check points ---

    def pause(self):
        for client in self.clients:
            if client.stopped_until:
                self.go_on(client)
        self.look_for_ended()
        for client in self.clients:
            client.tell("pause")
        # A request may be lost with a daemon, and its client waits for the answer for a minute.
        system.wait_until(lambda: not self.left_behind(), 5)
        for client in self.left_behind():
            self.counts["ended without an answer"] += 1
            self.kill(client).tell("pause")
        for client in self.clients:
            client.generation = self.board.generation()
            client.answer("pause")

    def left_behind(self):
        now = self.board.generation()
        return [client for client in self.clients
                if client.generation < now and self.board.generation(client.slot) < now]

    def settle(self):
        """Lets all listeners hear one last change, and so all changes before it. Returns the clients that may
        have missed some of them."""
        def is_quiet():
            return not any(system.waiting_datagrams(client.pid) for client in self.clients)

        if not system.wait_until(is_quiet, BOUND):
            raise Failure("events wait in a client's socket for ever")
        self.hear("sync")
        # The clients that missed events in the storm have to hear the announcement that follows.
        for client in self.missed():
            self.counts[f"views over {client.transport} that missed events"] += 1
            client.ask("clear")
        self.hear("announce")
        return self.missed()

    def hear(self, how):
        auditor = self.fresh("tcp")
        deaf = self.clients
        for _ in range(3):
            self.writes += 1
            auditor.ask(f"{how} {self.writes}")
            for client in deaf:
                client.tell(f"await {self.writes}")
            deaf = [client for client in deaf if "deaf" in client.answer("await")]
            if not deaf or not all(client.transport.startswith("udp") for client in deaf):
                break  # only a datagram may have been lost
        auditor.end()
        self.differences += [f"{client.name()} differs: its listeners are deaf" for client in deaf]

    def missed(self):
        """Clients for whose events the system had no room since the last call: such events may be lost."""
        missed = []
        for client in self.clients:
            before, client.lost = client.lost, system.lost_datagrams(client.pid)
            if any(count > before.get(inode, 0) for inode, count in client.lost.items()):
                client.stale = self.board.generation()
                missed.append(client)
        return missed

    def views(self, clients):
        for client in clients:
            client.tell("show")
        return [[line.split(" ") for line in client.answer("show")] for client in clients]

    def check_point(self):
        self.counting.require()
        self.pause()
        missed = self.settle()
        auditors = [self.fresh(transport) for transport in ("udp", "tcp", "queue")]
        clients = auditors + self.clients
        views = self.views(clients)
        truth = {number: value for _, number, value in views[0]}
        for client, view in zip(clients, views):
            self.compare(client, view, truth, client in missed)
        for slot, own in enumerate(self.owned):
            for place, parameter in enumerate(own):
                self.check_owned(slot, place, parameter, truth)
        for auditor in auditors:
            auditor.end()
        self.tidy()
        self.daemon.require()
        self.memory = self.memory or system.resources(self.daemon.process.pid)[2]
        self.counts["check points"] += 1
        self.report_differences()
        for client in self.clients:
            client.ask("resume")
            os.truncate(client.log, 0)

    def compare(self, client, view, truth, missed):
        own = {parameter.id for parameter in client.own}
        for verb, number, value in view:
            if truth.get(number, value) == value:
                continue
            if missed and verb == "heard":
                continue
            # A cache does not call its listeners for writes through it.
            if "cached" in client.transport and (client.stale == self.board.generation() or
                                                 (verb == "heard" and number in own)):
                continue
            self.differences.append(
                f"{client.name()} differs: {verb} {number} {value[:50]}, the store {truth[number][:50]}")

    def check_owned(self, slot, place, parameter, truth):
        begun, stored, late_after, late_until = self.board.own(slot, place)
        writes = [*range(stored, begun + 1), *range(late_after + 1, late_until + 1)]
        if truth[parameter.id] not in map(parameter.printed, writes):
            self.differences.append(f"{self.clients[slot].name()} differs: the store has {parameter.id} "
                                    f"{truth[parameter.id][:50]}, none of its writes {writes}")

    def report_differences(self):
        for client in self.clients:
            self.differences += [f"{client.name()} {line}" for line in client.differences]
            client.differences.clear()
        if any(system.lost_datagrams(self.daemon.process.pid).values()):
            # Texts and data over UDP are not answered, so such a loss is silent.
            self.differences = [line for line in self.differences if "(udp" not in line]
            self.counts["check points after a loss over UDP"] += 1
        if self.differences:
            raise Failure("\n".join(line[:200] for line in self.differences))

    # --- the run ---

    def run(self):
        self.daemon.start()
        self.counting.start()
        for transport in ("tcp", "udp", "queue"):
            client = self.fresh(transport)
            client.ask("pause")
            client.end()
        before = self.rest()
        self.clients = [self.spawn(slot) for slot in range(len(TRANSPORTS))]
        start = time.monotonic()
        # All in the first part, so that the last daemon has time to lose something.
        count = 2 + int(self.end) // 300
        restarts = [(self.end * 0.6 * (i + 1) / count, [signal.SIGTERM, signal.SIGKILL][i % 2]) for i in range(count)]
        while (now := time.monotonic() - start) < self.end:
            until = now + self.random.uniform(4, 9)
            while (now := time.monotonic() - start) < min(until, self.end):
                self.trouble()
                if restarts and now > restarts[0][0]:
                    self.restart(restarts.pop(0)[1])
                time.sleep(0.1)
            self.check_point()
        self.finish(before)

    def finish(self, before):
        self.counting.finish()
        self.counts += self.counting.counts
        for client in self.clients:
            client.tell("quit")
        for client in self.clients:
            client.end()
        self.garbage.close()
        self.clients.clear()
        self.tidy()
        client = self.fresh("queue")
        client.ask("pause")
        client.end()
        after = self.rest(before)
        self.print_table(before, after)
        self.daemon.stop(signal.SIGTERM)
        if after[:2] != before[:2]:
            raise Failure(f"descriptors and threads: {before[:2]} before, {after[:2]} afterwards")
        if after[2] > self.memory + MORE_MEMORY:
            raise Failure(f"memory: {self.memory} kB at the first check point, {after[2]} kB afterwards")

    def rest(self, expected=None):
        """The daemon's resources when they do not change any more, or are as expected."""
        last = []

        def rests():
            last.append(system.resources(self.daemon.process.pid))
            return last[-1][:2] == expected[:2] if expected else len(last) > 10 and len(set(last[-10:])) == 1

        system.wait_until(rests, BOUND)
        return last[-1]

    def print_table(self, before, after):
        operations = collections.Counter()
        for slot, transport in enumerate(TRANSPORTS):
            operations[transport] += self.board.operations(slot)
        rows = [(f"operations, {transport}", count) for transport, count in operations.items()]
        rows += [*sorted(self.counts.items()), ("garbage messages", self.garbage.sent)]
        rows += [("descriptors before and after", f"{before[0]} {after[0]}"),
                 ("threads before and after", f"{before[1]} {after[1]}"),
                 ("kB at the daemon's first check point and after", f"{self.memory} {after[2]}")]
        for name, value in rows:
            print(f"{name:<48}{value:>12}")

    def clean_up(self):
        self.counting.clean_up()
        for client in self.clients:
            if client.process.poll() is None:
                client.kill()
        self.crashed += [client.pid for client in self.clients if client.transport == "queue"]
        self.clients.clear()
        self.tidy()
        if self.daemon.process and self.daemon.process.poll() is None:
            self.daemon.process.terminate()
            self.daemon.process.wait(BOUND)


def main():
    programs, minutes = pathlib.Path(sys.argv[1]) / "bin", float(sys.argv[2])
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else random.randrange(1_000_000)
    print(f"soak: {minutes:g} minutes, seed {seed}", flush=True)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("soak: terminated"))
    work = pathlib.Path(tempfile.mkdtemp(prefix="vexa-soak-"))
    soak = Soak(programs, work, minutes, seed)
    try:
        soak.run()
    except (Failure, OSError) as failure:
        print(f"{failure}\nsoak: failed, seed {seed}, logs in {work}")
        return 1
    finally:
        soak.clean_up()
    shutil.rmtree(work)
    print("soak: passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
