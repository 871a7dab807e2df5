"""A client over TCP, as docs/protocols.md describes it."""
import socket
import struct

CONNECT, GET, SET, GET_TEXT, SET_TEXT, GET_TEXT_RESPONSE = 16, 80, 81, 112, 113, 128
STREAM = 3072  # the format of payloads


class Peer:
    def __init__(self, port, timeout=30):
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=timeout)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.socket.sendall(struct.pack(">6I", CONNECT, 1, 0, 0, 0, 4096))
        self._receive(28)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    @staticmethod
    def _request(kind, parameter, value=0, payload=b""):
        return struct.pack(">12I", kind, 1, 0, 0, 0, 4096, parameter, value, 0, 0, len(payload),
                           STREAM if payload else 0) + payload

    def _receive(self, size):
        data = b""
        while len(data) < size:
            piece = self.socket.recv(size - len(data))
            if not piece:
                raise ConnectionError("the daemon has closed the connection")
            data += piece
        return data

    def set(self, values):
        """Sets parameters to texts, or to numbers given as texts, at once. Nothing answers, unless one is refused."""
        requests = b""
        for parameter, value in values:
            number = int(parameter.id, 16)
            if parameter.kind == "number":
                requests += self._request(SET, number, int(value))
            else:
                text = struct.pack("=4I", 1, 0, number, 12) + value.encode() + b"\0"
                requests += self._request(SET_TEXT, number, payload=text)
        self.socket.sendall(requests)

    def command(self, number, value):
        self.socket.sendall(self._request(SET, number, value))

    def number(self, number):
        return self._ask(GET, number)[0]

    def get(self, parameter):
        value, payload = self._ask(GET if parameter.kind == "number" else GET_TEXT, int(parameter.id, 16))
        return str(value) if parameter.kind == "number" else payload[16:].rstrip(b"\0").decode()

    def _ask(self, kind, number):
        self.socket.sendall(self._request(kind, number))
        answer = struct.unpack(">13I", self._receive(52))
        payload = self._receive(answer[11])
        if answer[0] != (GET_TEXT_RESPONSE if kind == GET_TEXT else 96) or answer[6] != number:
            raise ConnectionError(f"{number:08x} was answered with {answer}")
        return answer[8], payload
