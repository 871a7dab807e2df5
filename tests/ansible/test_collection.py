"""The collection vexa.device on ten daemons: what docs/ansible.md says. Run by scripts/checks/ansible."""
import json
import os
import pathlib
import re
import select
import socket
import subprocess
import sys
import threading
import time

import pytest
import vexa

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "python"))
from daemons import ROOT, Daemon, until

PAGE = (ROOT / "docs/ansible.md").read_text()


class Fleet:
    def __init__(self, folder):
        self.folder = folder
        self.daemons = []
        for number in range(1, 11):
            (folder / str(number)).mkdir()
            self.daemons.append(Daemon(folder / str(number)))
        inventory, = re.findall(r"```ini\n(.*?)```", PAGE, re.S)
        inventory, count = re.subn(r"^# (ansible_python_interpreter=).*", rf"\g<1>{sys.executable}", inventory, flags=re.M)
        assert count == 1
        (folder / "inventory").write_text(inventory)
        (folder / "host_vars").mkdir()
        for number, daemon in enumerate(self.daemons, 1):
            (folder / f"host_vars/rec-{number}").write_text(f"device: {daemon.address}\n")

    def play(self, playbook, *arguments, hosts=10):
        """What every host came to, and all that was shown."""
        (self.folder / "fleet.yml").write_text(playbook)
        result = subprocess.run(["ansible-playbook", "-i", "inventory", "fleet.yml", "-f", "10", *arguments], cwd=self.folder,
                                capture_output=True, text=True, timeout=120,
                                env={**os.environ, "HOME": str(self.folder), "ANSIBLE_NOCOLOR": "1"})
        shown = result.stdout + result.stderr
        recap = re.findall(r"^rec-\d+ .*ok=(\d+) .*changed=(\d+) .*failed=(\d+)", shown, re.M)
        assert len(recap) == hosts, shown
        return {tuple(map(int, each[1:])) for each in recap}, shown

    def values(self, name):
        values = []
        for daemon in self.daemons:
            with vexa.Device(daemon.address) as device:
                values.append(device.read(name))
        return values


@pytest.fixture(scope="module")
def fleet(tmp_path_factory):
    fleet = Fleet(tmp_path_factory.mktemp("fleet"))
    yield fleet
    for daemon in fleet.daemons:
        daemon.kill()


def task(**options):
    return json.dumps([{"hosts": "recorders", "gather_facts": False, "tasks": [
        {"vexa.device.settings": {"device": "{{ device }}", **options}}]}])


def test_the_playbook_of_the_page_changes_once(fleet):
    playbook, = re.findall(r"```yaml\n(.*?)```", PAGE, re.S)
    changed, shown = fleet.play(playbook, "--check", "--diff")
    assert changed == {(1, 0)} and set(fleet.values("FanSpeed")) == {50}
    assert "-FanSpeed = 50 %" in shown and "+FanSpeed = 70 %" in shown and "+EncodeType = 1 ProRes 422" in shown
    changed, shown = fleet.play(playbook)
    assert changed == {(1, 0)} and set(fleet.values("FanSpeed")) == {70} and shown.count("OAK, fan at 70 %") == 10
    changed, _ = fleet.play(playbook)
    assert changed == {(0, 0)} and set(fleet.values("ReelName")) == {"A012"}


@pytest.mark.parametrize("check", [[], ["--check"]])
def test_what_cannot_be_is_refused_before_anything_is_set(fleet, check):
    changed, shown = fleet.play(task(values={"ReelName": "never", "FanSped": 1, "FanSpeed": 500, "SystemCommand": 6,
                                             "EncodeType": "Betacam", "SystemPassword": "hunter2"}), *check)
    assert changed == {(0, 1)} and "never" not in fleet.values("ReelName")
    for reason in ("similar: FanSpeed", "FanSpeed: outside 30 to 100 %", "SystemCommand: no setting",
                   "EncodeType: not one of 0 ProRes", "SystemPassword: a password, which belongs under secrets"):
        assert shown.count(reason) == 10, shown


def test_a_file_that_the_tool_has_saved(fleet):
    tool = [ROOT / "build/bin/vexactl", "-d", fleet.daemons[0].address]
    subprocess.run([*tool, "set", "ReelName=é \"1\"", "IPConfig=1", "IPAddress=10.9.8.7"], check=True, timeout=60)
    subprocess.run([*tool, "save", fleet.folder / "a.toml"], check=True, timeout=60)
    fleet.play(task(src=str(fleet.folder / "a.toml")))
    assert set(fleet.values("ReelName")) == {'é "1"'} and set(fleet.values("IPAddress")) == {0x0A090807}
    changed, _ = fleet.play(task(src=str(fleet.folder / "a.toml"), values={"ReelName": "B"}))
    assert changed == {(1, 0)} and set(fleet.values("ReelName")) == {"B"}
    (fleet.folder / "b.toml").write_text('[device]\nmodel = "HAZEL"\n')
    changed, shown = fleet.play(task(src=str(fleet.folder / "b.toml")))
    assert changed == {(0, 1)} and shown.count("HAZEL") >= 10


def test_files_that_say_what_cannot_be(fleet):
    for words, reason in (
            ("[settings]\n0x4604000a = 60\nfanspeed = 61\n", "FanSpeed: named twice"),
            ('[settings]\nReelName = { hex = "0g" }\n', "ReelName: non-hexadecimal"),
            ("[settings]\nLoopPlay = true\n", "LoopPlay: it takes a number or a text"),
            ('[settings]\nReelName = ["a"]\n', "ReelName: it takes a number or a text"),
            ("[device]\nmodel = 5\n", "the model of [device] is a text, not 5")):
        (fleet.folder / "c.toml").write_text(words)
        changed, shown = fleet.play(task(src=str(fleet.folder / "c.toml")), "--limit", "rec-1", hosts=1)
        assert changed == {(0, 1)} and reason in shown and "Traceback" not in shown, shown
    assert fleet.values("FanSpeed")[0] not in (60, 61)
    (fleet.folder / "c.toml").write_text('[settings]\nReelName = { hex = "c3a9" }\n')
    fleet.play(task(src=str(fleet.folder / "c.toml")), "--limit", "rec-1", hosts=1)
    assert fleet.values("ReelName")[0] == "é"


def test_words_that_yaml_takes_for_booleans(fleet):
    playbook = ("- hosts: recorders\n  gather_facts: false\n  tasks:\n  - vexa.device.settings:\n"
                "      device: '{{ device }}'\n      values: {LoopPlay: %s}\n")
    for word, value in (("On", 1), ("Off", 0)):
        fleet.play(playbook % word, "--limit", "rec-1", hosts=1)
        assert fleet.values("LoopPlay")[0] == value


def test_secrets_are_set_and_not_shown(fleet):
    changed, shown = fleet.play(task(secrets={"SystemPassword": "hunter2"}), "--diff", "-vvv")
    assert changed == {(1, 0)} and set(fleet.values("SystemPassword")) == {"hunter2"}
    assert "hunter2" not in shown and "+SystemPassword = ******** (another one)" in shown


def test_a_device_that_is_gone_fails_alone(fleet):
    fleet.daemons[3].kill()
    changed, shown = fleet.play(task(values={"FanSpeed": 71}, timeout=1))
    assert changed == {(1, 0), (0, 1)} and "Connection refused" in shown
    fleet.daemons[3].start()


class Relay(threading.Thread):
    """Passes a daemon's bytes on until a number has been set through it; then nobody listens, for a while or for ever."""

    def __init__(self, daemon, comes_back):
        super().__init__(daemon=True)
        self.port, self.comes_back, self.has_set = daemon.port, comes_back, False
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.end = self.listener.getsockname()
        self.start()

    def run(self):
        while self.listener:
            with self.listener.accept()[0] as client, socket.create_connection(("127.0.0.1", self.port)) as server:
                self.relay(client, server)
                if self.has_set:
                    self.listener.close()
                    self.listener = None
            if self.has_set and self.comes_back:
                time.sleep(1)
                self.comes_back, self.listener = False, socket.create_server(self.end)

    def relay(self, client, server):
        other, requests = {client: server, server: client}, b""
        is_first = not self.has_set
        while True:
            for end in select.select(list(other), [], [])[0]:
                data = end.recv(65536)
                if not data:
                    return
                if end is server or not is_first:
                    other[end].sendall(data)
                    continue
                requests += data
                while (size := self.size_of(requests)) <= len(requests):
                    server.sendall(requests[:size])
                    self.has_set = requests[:4] == (81).to_bytes(4, "big")
                    if self.has_set:
                        return
                    requests = requests[size:]

    @staticmethod
    def size_of(requests):
        """The bytes of the first one, as far as they are known."""
        size = {16: 24, 17: 24, 48: 28, 49: 28}.get(int.from_bytes(requests[:4], "big"), 48)
        return size + (int.from_bytes(requests[40:44], "big") if size == 48 and len(requests) >= 48 else 0)


@pytest.mark.parametrize("comes_back", [True, False])
def test_a_device_that_is_lost_while_values_are_set(fleet, comes_back):
    before = fleet.values("FanSpeed")[0]
    relay = Relay(fleet.daemons[0], comes_back)
    changed, shown = fleet.play(task(values={"FanSpeed": 92, "ReelName": "lost"}, timeout=4), "--limit", "rec-1",
                                "-e", f"device=127.0.0.1:{relay.end[1]}", hosts=1)
    last = "the old values are back" if comes_back else "sent, not confirmed, not put back: FanSpeed, ReelName"
    assert changed == {(0, 1)} and last in shown and '"after": "92 %"' in shown, shown
    until(lambda: fleet.values("FanSpeed")[0] == (before if comes_back else 92))


def test_the_documentation_is_sound():
    for module in ("settings", "facts"):
        shown = subprocess.run(["ansible-doc", "-j", f"vexa.device.{module}"], check=True, capture_output=True, text=True,
                               timeout=60).stdout
        assert json.loads(shown)[f"vexa.device.{module}"]["doc"]["options"]["device"]["required"]
