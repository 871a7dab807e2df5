"""What Wireshark shows of a live daemon's traffic. Run by scripts/checks/dissector."""
import os
import pathlib
import random
import re
import shlex
import socket
import struct
import subprocess
import sys
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = ROOT / "build/bin"
PORT, EVENTS = 43110, 63110
FAN_SPEED, REEL_NAME, ALARM = 0x4604000A, 0x1101000A, 0x4001000A
TCP, UDP = 6, 17


class Capture:
    """A file of packets, as if they had been captured: no right to capture is needed."""

    def __init__(self):
        self.packets, self.sequence, self.cut = [], {}, {}

    def add(self, protocol, source, target, data, captured=None):
        """Appends it; `captured` bytes of the data are all that the capture has, as with a snap length."""
        if protocol == UDP:
            head = struct.pack(">HHHH", *source[1:], *target[1:], 8 + len(data), 0)
        else:
            at, other = (self.sequence.get((*source, *target), 1), self.sequence.get((*target, *source), 1))
            self.sequence[(*source, *target)] = at + len(data)
            head = struct.pack(">HHIIBBHHH", source[1], target[1], at, other, 0x50, 0x18, 65535, 0, 0)
        size = 20 + len(head) + len(data)
        ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, size, 0, 0, 64, protocol, 0, socket.inet_aton(source[0]),
                         socket.inet_aton(target[0]))
        self.packets.append(ip + head + data)
        if captured is not None:
            self.cut[len(self.packets) - 1] = len(ip + head) + captured

    def write(self, path):
        with open(path, "wb") as file:
            file.write(struct.pack("<IHHIIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 101))
            for number, packet in enumerate(self.packets):
                file.write(struct.pack("<IIII", 1_800_000_000, number * 1000, self.cut.get(number, len(packet)),
                                       len(packet)) + packet[:self.cut.get(number)])
        return path


def tshark(path, *arguments):
    result = subprocess.run(["tshark", "-X", f"lua_script:{ROOT}/wireshark/vexa.lua", "-r", path, *arguments],
                            capture_output=True, text=True, timeout=120)
    assert result.returncode == 0 and "Lua" not in result.stderr, result.stderr
    return result.stdout


def messages(path, *fields, only="vexa.type", passes=("-2",)):
    """A row of texts for each packet with a message, each text a field's values with commas."""
    names = [word for field in fields for word in ("-e", field)]
    return [row.split("\t") for row in
            tshark(path, *passes, "-Y", only, "-T", "fields", *names).splitlines()]


def faults(path):
    return tshark(path, "-Y", "_ws.malformed || _ws.lua.error || vexa.unknown || vexa.bad_length || vexa.bad_payload")


def request(kind, parameter=None, value=0, payload=b"", number=0):
    prefix = struct.pack(">6I", kind, 0x1234, number, 0, 0, 4096)
    if parameter is None:
        return prefix
    if kind in (48, 49):
        return prefix + struct.pack(">I", parameter)
    return prefix + struct.pack(">6I", parameter, value, 1_800_000_000, 5, len(payload), 3072 if payload else 0) + payload


def string_response(payload, number):
    return struct.pack(">13I", 128, 0x1234, number, 0, 0, 4096, REEL_NAME, 0, 0, 0, 0, len(payload), 3072) + payload


def text(parameter, words, order="="):
    return struct.pack(order + "4I", 1, 0, parameter, 12) + words.encode() + b"\0"


@pytest.fixture(scope="session")
def daemon(tmp_path_factory):
    log = tmp_path_factory.mktemp("daemon") / "log"
    process = subprocess.Popen([PROGRAMS / "mainstay", "--no-mq"], env={**os.environ, "PRODUCT_ID": "OAK"},
                               stdout=log.open("w"), stderr=subprocess.STDOUT)
    deadline = time.monotonic() + 20
    while "ready" not in log.read_text():
        assert process.poll() is None and time.monotonic() < deadline, log.read_text()
        time.sleep(0.02)
    yield process
    process.terminate()
    process.wait(20)


class Peer:
    """One end of a conversation with the daemon, which notes both ends' bytes in a capture."""

    def __init__(self, capture, kind):
        self.capture, self.protocol = capture, TCP if kind == socket.SOCK_STREAM else UDP
        self.socket = socket.socket(socket.AF_INET, kind)
        self.socket.settimeout(10)
        self.socket.connect(("127.0.0.1", PORT))

    def send(self, data):
        self.capture.add(self.protocol, self.socket.getsockname(), self.socket.getpeername(), data)
        self.socket.sendall(data)

    def receive(self, size=65536):
        """One datagram, or so many bytes of a stream."""
        data = self.socket.recv(size)
        while self.protocol == TCP and len(data) < size:
            data += self.socket.recv(size - len(data))
        self.capture.add(self.protocol, self.socket.getpeername(), self.socket.getsockname(), data)
        return data


def hear_events(capture, listener, count):
    for _ in range(count):
        data, sender = listener.recvfrom(65536)
        capture.add(UDP, sender, ("239.71.18.33", EVENTS), data)


@pytest.fixture(scope="session")
def conversation(daemon, tmp_path_factory):
    """Every message that the network knows."""
    capture = Capture()
    tcp, udp = Peer(capture, socket.SOCK_STREAM), Peer(capture, socket.SOCK_DGRAM)
    listener = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("239.71.18.33", EVENTS))
    listener.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                        socket.inet_aton("239.71.18.33") + socket.inet_aton("127.0.0.1"))
    listener.settimeout(10)

    tcp.send(request(16) + request(48, 0))
    tcp.receive(28)
    tcp.send(request(81, FAN_SPEED, 70, number=1) + request(80, FAN_SPEED, number=2))
    tcp.receive(52 + 52)
    tcp.send(request(113, REEL_NAME, payload=text(REEL_NAME, "Scene é"), number=3) + request(112, REEL_NAME, number=4))
    tcp.receive(2 * (52 + len(text(REEL_NAME, "Scene é"))))
    tcp.send(request(113, FAN_SPEED, payload=text(FAN_SPEED, "fast"), number=5) + request(80, REEL_NAME, number=7))
    tcp.receive(52 + 52)
    tcp.send(request(49, 0, number=6))
    tcp.receive(28)
    udp.send(request(16))
    udp.receive()
    for asked in (request(80, FAN_SPEED), request(81, FAN_SPEED, 75), request(112, REEL_NAME),
                  request(256, ALARM), request(80, 0x5C010000)):
        udp.send(asked)
        udp.receive()
    udp.send(request(258, ALARM, payload=bytes.fromhex("08011002") + b"\x1a\x0a\x0a\x08It broke"))
    hear_events(capture, listener, 4)
    for peer in (tcp, udp):
        peer.send(request(17))
        peer.receive(28)
    return capture


def test_every_message_appears_with_its_fields(conversation, tmp_path):
    path = conversation.write(tmp_path / "a.pcap")
    assert faults(path) == ""
    rows = messages(path, "frame.number", "vexa.type", "vexa.param", "vexa.text", "vexa.order")
    types = {int(kind) for row in rows for kind in row[1].split(",")}
    assert types == {16, 17, 32, 33, 48, 49, 65, 80, 81, 96, 97, 112, 113, 128, 129, 144, 145, 146, 256, 257, 258}
    shown = "\n".join("\t".join(row[1:]) for row in rows)
    for line in ("16,48\tall", "81,80\tFanSpeed,FanSpeed\t70 %", "144,96\tFanSpeed,FanSpeed\t70 %,70 %",
                 f"145,128\tReelName,ReelName\tScene é,Scene é\t{sys.byteorder}-endian,{sys.byteorder}-endian", "97\tFanSpeed\t75 %",
                 "258\tSW_Error_Alarm\traised, ERROR: It broke", "146\tSW_Error_Alarm\traised, ERROR: It broke"):
        assert line in shown, shown
    assert tshark(path, "-Y", 'vexa.param == "FanSpeed"').count("\n") == 10


def test_the_page_is_true(conversation, tmp_path):
    page = (ROOT / "docs/wireshark.md").read_text()
    conversation.write(tmp_path / "a.pcap")
    command, = re.findall(r"^    (tshark .*)$", page, re.M)
    shown = subprocess.run(shlex.split(command.replace("wireshark/", f"{ROOT}/wireshark/")), cwd=tmp_path,
                           capture_output=True, text=True, check=True, timeout=60).stdout
    assert "Set Request FanSpeed = 70 %, Get Request FanSpeed" in shown
    filters = {each.replace("\\|", "|") for row in re.findall(r"^\|[^|]+\| (`vexa.*`) \|$", page, re.M)
               for each in re.findall(r"`([^`]+)`", row)}
    found = {each for each in filters if tshark(tmp_path / "a.pcap", "-2", "-Y", each)}
    assert filters - found == {'vexa.param matches "^Clip"', 'vexa.text contains "ProRes"', "vexa.response_time > 0.05",
                               "vexa.unanswered", "vexa.unknown || vexa.bad_length || vexa.bad_payload",
                               *(['vexa.order == "big-endian"'] if sys.byteorder == "little" else [])}
    assert tshark(tmp_path / "a.pcap", "-Y", "vexa.refused") == tshark(tmp_path / "a.pcap", "-Y", "vexa.error > 0")
    command, = re.findall(r"`(tshark -G .*?)`", page)
    shown = subprocess.run(command.replace("wireshark/", f"{ROOT}/wireshark/"), shell=True, capture_output=True, text=True,
                           check=True, timeout=60).stdout
    assert "vexa.param" in shown and "vexa.unanswered" in shown


def test_requests_and_answers_are_linked(conversation, tmp_path):
    path = conversation.write(tmp_path / "a.pcap")
    asked = dict(messages(path, "frame.number", "vexa.response_in", only="vexa.response_in"))
    answered = messages(path, "frame.number", "vexa.request_in", "vexa.response_time", only="vexa.request_in")
    assert len(answered) == 13
    for frame, question, after in answered:
        question, after = question.split(",")[0], after.split(",")[0]
        assert frame in asked[question].split(",")
        assert float(after) == pytest.approx(0.001 * (int(frame) - int(question)))


@pytest.mark.parametrize("size", [1, 23, 50, 10_000])
def test_segments_may_end_anywhere(conversation, tmp_path, size):
    whole, pieces = Capture(), Capture()
    streams = {}
    for packet in conversation.packets:
        if packet[9] == TCP:
            ends = ((socket.inet_ntoa(packet[12:16]), *struct.unpack(">H", packet[20:22])),
                    (socket.inet_ntoa(packet[16:20]), *struct.unpack(">H", packet[22:24])))
            streams[ends] = streams.get(ends, b"") + packet[40:]
    for ends, data in streams.items():
        whole.add(TCP, *ends, data)
        for at in range(0, len(data), size):
            pieces.add(TCP, *ends, data[at:at + size])
    fields = ("vexa.type", "vexa.param", "vexa.text")
    expected = [",".join(column) for column in zip(*messages(whole.write(tmp_path / "whole.pcap"), *fields))]
    path = pieces.write(tmp_path / "pieces.pcap")
    found = [",".join(filter(None, column)) for column in zip(*messages(path, *fields))]
    assert faults(path) == ""
    assert [column.replace(",,", ",") for column in expected] == found
    links = ("frame.number", "vexa.request_in", "vexa.response_in")
    assert [row[:2] for row in messages(path, *links, passes=())] == [row[:2] for row in messages(path, *links)]


def test_a_frame_in_two_parts(tmp_path):
    """What ends a message of the segment before, and the rest: alike but for their numbers."""
    capture, client, server = Capture(), ("10.0.0.9", 40000), ("10.0.0.7", PORT)
    for number in (1, 2, 3):
        capture.add(TCP, client, server, request(112, REEL_NAME, number=number))
    data = b"".join(string_response(text(REEL_NAME, f"A{number}"), number) for number in (1, 2))
    capture.add(TCP, server, client, data[:60])
    capture.add(TCP, server, client, data[60:])
    path = capture.write(tmp_path / "a.pcap")
    assert messages(path, "frame.number", "vexa.response_in") == [["1", "5"], ["2", "5"], ["3", ""], ["5", ""]]
    for passes in ((), ("-2",)):
        assert messages(path, "vexa.request_in", "_ws.col.Info", only="vexa.request_in", passes=passes) == [
            ["1,2", 'Get String Response ReelName = "A1", Get String Response ReelName = "A2"']]
    assert messages(path, "frame.number", only="vexa.unanswered") == [["3"]]


def test_what_the_capture_has_cut_off_is_no_fault(tmp_path):
    capture, client, server = Capture(), ("10.0.0.9", 40000), ("10.0.0.7", PORT)
    data = request(113, REEL_NAME, payload=text(REEL_NAME, "A012"))
    for size in (len(data) - 1, 48, 30, 3):
        capture.add(UDP, client, server, data, captured=size)
        capture.add(UDP, client, server, data[:size])
    path = capture.write(tmp_path / "a.pcap")
    assert [row[0] for row in messages(path, "frame.number", only="vexa.bad_length || vexa.unknown")] == ["2", "4", "6", "8"]


def test_texts_of_either_byte_order(tmp_path):
    capture, client, server = Capture(), ("10.0.0.9", 40000), ("10.0.0.7", PORT)
    for order in "<>":
        capture.add(TCP, client, server, request(113, REEL_NAME, payload=text(REEL_NAME, "Größe", order)))
    assert messages(capture.write(tmp_path / "a.pcap"), "vexa.order", "vexa.text") == [
        ["little-endian", "Größe"], ["big-endian", "Größe"]]


def test_garbage_does_not_stop_it(conversation, tmp_path):
    """Random bytes, good messages that are cut off or have false bytes, and short payloads, between good ones."""
    chance = random.Random(1)
    capture, client, server = Capture(), ("10.0.0.9", 40000), ("10.0.0.7", PORT)
    good = request(80, FAN_SPEED)
    for number in range(400):
        data = bytearray(packet[40 if packet[9] == TCP else 28:]) if (
            packet := chance.choice(conversation.packets)) and number % 2 else bytearray(chance.randbytes(100))
        for _ in range(chance.randrange(4)):
            data[chance.randrange(len(data))] = chance.randrange(256)
        del data[chance.randrange(len(data)) + 1:]
        capture.add(UDP, *chance.sample([client, server], 2), bytes(data))
        capture.add(TCP, (client[0], 41000 + number), server, bytes(data))
        capture.add(UDP, client, server, good)
    for size in range(1, 30):
        for kind, start in ((113, b"\x01\0\0\0"), (113, b"\0\0\0\1"), (258, b"\x08\x01\x1a"), (258, b"")):
            payload = (start + chance.randbytes(size))[:size]
            capture.add(UDP, client, server, request(kind, ALARM if kind == 258 else REEL_NAME, payload=payload))
    for payload in (text(REEL_NAME, "AB")[:-1], bytes.fromhex("08011805"), bytes.fromhex("08011a020805")):
        kind = 113 if payload[0] == 1 else 258
        capture.add(UDP, client, server, request(kind, REEL_NAME if kind == 113 else ALARM, payload=payload))
    capture.add(TCP, client, server, b"\xff" * 30)
    capture.add(TCP, client, server, good)
    path = capture.write(tmp_path / "a.pcap")
    assert tshark(path, "-Y", "_ws.lua.error || _ws.malformed && !vexa.bad_length") == ""
    assert tshark(path, "-Y", f"vexa.type == 80 && ip.src == 10.0.0.9 && udp.length == {8 + len(good)}").count("\n") >= 400
    assert messages(path, "vexa.param", only="tcp.srcport == 40000 && vexa.type") == [["FanSpeed"]]
    assert messages(path, "vexa.text", only="vexa.bad_payload && vexa.text == AB") == [["AB"]]


def until(condition):
    deadline = time.monotonic() + 20
    while not condition():
        assert time.monotonic() < deadline
        time.sleep(0.05)


def test_a_capture_of_the_tool(daemon, tmp_path):
    path = tmp_path / "lo.pcap"
    capture = subprocess.Popen(["dumpcap", "-q", "-i", "lo", "-w", path], stderr=subprocess.DEVNULL)
    until(lambda: capture.poll() is not None or path.exists() and path.stat().st_size)
    if capture.poll() is not None:
        pytest.skip("capturing is not permitted here")
    for command in (["list"], ["set", "FanSpeed=71", "ReelName=A1 é"], ["-d", "udp://127.0.0.1", "list"]):
        subprocess.run([PROGRAMS / "vexactl", *command], check=True, stdout=subprocess.DEVNULL, timeout=60)
    end = b"the end of the capture"
    socket.socket(socket.AF_INET, socket.SOCK_DGRAM).sendto(end, ("127.0.0.1", 9))
    until(lambda: end in path.read_bytes())
    capture.terminate()
    capture.wait(20)
    assert faults(path) == ""
    assert messages(path, "frame.number", only='vexa.param == "FanSpeed"')
    assert messages(path, "frame.number", only="vexa.unanswered") == []
