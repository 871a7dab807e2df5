"""The collection vexa.device on ten daemons: what docs/ansible.md says. Run by scripts/checks/ansible."""
import json
import os
import pathlib
import re
import subprocess
import sys

import pytest
import vexa

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "python"))
from daemons import ROOT, Daemon

PAGE = (ROOT / "docs/ansible.md").read_text()


class Fleet:
    def __init__(self, folder):
        self.folder = folder
        self.daemons = []
        for number in range(1, 11):
            (folder / str(number)).mkdir()
            self.daemons.append(Daemon(folder / str(number)))
        hosts = "".join(f"rec-{number} device={daemon.address}\n" for number, daemon in enumerate(self.daemons, 1))
        (folder / "inventory").write_text(f"[recorders]\n{hosts}[recorders:vars]\nansible_connection=local\n"
                                          f"ansible_python_interpreter={sys.executable}\n")

    def play(self, playbook, *arguments):
        """What every host came to, and all that was shown."""
        (self.folder / "fleet.yml").write_text(playbook)
        result = subprocess.run(["ansible-playbook", "-i", "inventory", "fleet.yml", "-f", "10", *arguments], cwd=self.folder,
                                capture_output=True, text=True, timeout=120,
                                env={**os.environ, "HOME": str(self.folder), "ANSIBLE_NOCOLOR": "1"})
        shown = result.stdout + result.stderr
        recap = re.findall(r"^rec-\d+ .*ok=(\d+) .*changed=(\d+) .*failed=(\d+)", shown, re.M)
        assert len(recap) == 10, shown
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


def test_secrets_are_set_and_not_shown(fleet):
    changed, shown = fleet.play(task(secrets={"SystemPassword": "hunter2"}), "--diff", "-vvv")
    assert changed == {(1, 0)} and set(fleet.values("SystemPassword")) == {"hunter2"}
    assert "hunter2" not in shown and "+SystemPassword = ******** (another one)" in shown


def test_a_device_that_is_gone_fails_alone(fleet):
    fleet.daemons[3].kill()
    changed, shown = fleet.play(task(values={"FanSpeed": 71}, timeout=1))
    assert changed == {(1, 0), (0, 1)} and "Connection refused" in shown
    fleet.daemons[3].start()


def test_the_documentation_is_sound():
    for module in ("settings", "facts"):
        shown = subprocess.run(["ansible-doc", "-j", f"vexa.device.{module}"], check=True, capture_output=True, text=True,
                               timeout=60).stdout
        assert json.loads(shown)[f"vexa.device.{module}"]["doc"]["options"]["device"]["required"]
