"""Messages that no correct client sends: random bytes, and real records that were cut or had bits flipped."""
import socket
import struct

import system

NUMBER, TEXT = 0x5C010000, 0x1302000A  # parameters that the test does not look at; the first saves presets


class Garbage:
    def __init__(self, random, forbidden):
        """forbidden: parameters that no message may name, however a record was changed."""
        self.random = random
        self.forbidden = [struct.pack(order + "I", number) for number in forbidden for order in "<>"]
        self.sent = 0
        self.half_open = []

    def _spoil(self, record):
        way = self.random.randrange(4)
        if way == 0:
            return self.random.randbytes(self.random.randrange(600))
        if way == 1:
            return record[:self.random.randrange(len(record))]
        if way == 2:
            spoiled = bytearray(record)
            for _ in range(self.random.randint(1, 4)):
                spoiled[self.random.randrange(len(spoiled))] ^= 1 << self.random.randrange(8)
            return bytes(spoiled)
        return record

    def _records(self, order, head):
        """One of each type of request. head: the words between the type and the parameter."""
        text = struct.pack("=4I", 1, 0, TEXT, 12) + b"Scene\0"
        for kind in (16, 17, 48, 49):
            yield struct.pack(f"{order}I{len(head)}I", kind, *head) + (b"\0" * 4 if kind >= 48 else b"")
        for kind in (80, 81, 112, 113, 114, 256, 258):
            stream = text if kind in (113, 258) else b""
            number = TEXT if kind in (112, 113) else NUMBER
            times = (0, 0) if order == ">" else ()
            yield struct.pack(f"{order}I{len(head) + 4 + len(times)}I", kind, *head, number, 7, *times, len(stream),
                              3072 if stream else 0) + stream

    def _message(self, order, head):
        record = self.random.choice(list(self._records(order, head)))
        while True:
            message = self._spoil(record)
            if not any(number in message for number in self.forbidden):
                self.sent += 1
                return message

    def _network(self):
        return self._message(">", (self.random.getrandbits(32), 0, 0, 0, 4096))

    def tcp(self, port):
        """A connection that sends a few messages, mostly after a correct start, and then ends or stays."""
        peer = socket.create_connection(("127.0.0.1", port), timeout=5)
        peer.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        try:
            if self.random.randrange(4):
                peer.sendall(struct.pack(">6I", 16, 1, 0, 0, 0, 4096))
            if self.random.randrange(2):
                peer.sendall(struct.pack(">7I", 48, 1, 0, 0, 0, 4096, 0))  # and reads none of the events
            for _ in range(self.random.randrange(6)):
                peer.sendall(self._network())
        except OSError:
            pass  # the daemon may end such a connection
        if self.random.randrange(3) == 0 and len(self.half_open) < 10:
            self.half_open.append(peer)
            return
        if self.random.randrange(2):
            peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        peer.close()

    def udp(self, port):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as peer:
            peer.connect(("127.0.0.1", port))
            for _ in range(self.random.randrange(10)):
                message = self._network()
                # No Disconnect follows, so it has to be the configuration that is open anyway.
                if message[12:16] in (b"", bytes(4)):
                    try:
                        peer.send(message)
                    except ConnectionError:
                        pass

    def queue(self, processes):
        """processes: those whose queue names must not be used."""
        with system.RequestQueue() as queue:
            for _ in range(self.random.randrange(10)):
                message = self._message("=", (self.random.getrandbits(32), 0, 0, 0))
                if struct.unpack_from("<I", message.ljust(8, b"\0"), 4)[0] >> 16 not in processes:
                    queue.send(message)

    def close(self):
        for peer in self.half_open:
            peer.close()
        self.half_open.clear()
