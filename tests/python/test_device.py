"""The package vexa against real daemons. Run by scripts/checks/python."""
import asyncio
import copy
import datetime
import enum
import os
import re
import signal
import subprocess
import sys
import threading

import pytest
import vexa

from daemons import MAINSTAY, ROOT, Daemon, until

@pytest.fixture
def daemon(tmp_path):
    daemon = Daemon(tmp_path)
    yield daemon
    daemon.kill()


@pytest.fixture
def device(daemon):
    with vexa.Device(daemon.address) as device:
        yield device


def test_values_are_read_and_set(device):
    assert device["FanSpeed"] == 50 and device["ReelName"] == ""
    device["FanSpeed"] = "70 %"
    assert device.read("FanSpeed") == 70 and device.text("FanSpeed") == "70 %"
    device["ReelName"] = "Größe"
    assert device.values("Reel*", "fanspeed") == {"ReelName": "Größe", "FanSpeed": 70}
    assert "FanSpeed" in device and "FanSped" not in device
    assert device.status.state == "in step" and device.status.model == "OAK" and device.status.since.tzinfo


class Index:
    """What numpy's numbers are."""
    def __index__(self):
        return 70


class Speed(int, enum.Enum):
    FAST = 70


@pytest.mark.parametrize("value, outcome, now", [
    (70, "STORED", 70), (70.0, "STORED", 70), ("70", "STORED", 70), (Index(), "STORED", 70), (Speed.FAST, "STORED", 70),
    (2 ** 64, "NOT_SENT", 50), (-2 ** 64, "NOT_SENT", 50), (500, "CORRECTED", 100), ("fast", "NOT_SENT", 50),
    (-1, "NOT_SENT", 50), (2 ** 40, "NOT_SENT", 50), (12.5, "NOT_SENT", 50), (float("nan"), "NOT_SENT", 50)])
def test_the_result_says_what_became_of_a_value(device, value, outcome, now):
    result = device.set("FanSpeed", value)
    assert result.outcome == vexa.Outcome.__members__[outcome]
    assert bool(result) == (outcome == "STORED") and bool(result.reason) == (outcome != "STORED")
    assert device.read("FanSpeed") == now


def test_exceptions_are_those_that_python_expects(device):
    with pytest.raises(KeyError, match="similar: FanSpeed"):
        device["FanSped"]
    with pytest.raises(ValueError, match="outside 30 to 100 %") as corrected:
        device["FanSpeed"] = 500
    assert isinstance(corrected.value, vexa.Corrected) and corrected.value.result.value == 100
    assert str(copy.copy(corrected.value)) == "FanSpeed: outside 30 to 100 %"
    with pytest.raises(vexa.Refused, match="not one of 0 ProRes 422 HQ"):
        device["EncodeType"] = "Betacam"
    with pytest.raises(TypeError):
        device["FanSpeed"] = None
    with pytest.raises(LookupError):
        device["SW_Error_Alarm"]
    with pytest.raises(ConnectionError, match="Connection refused"):
        vexa.Device("127.0.0.1:1", timeout=0.2)["FanSpeed"]
    with pytest.raises(ConnectionError, match="no host"):
        vexa.Device("::::")["FanSpeed"]
    device.close()
    with pytest.raises(ValueError, match="closed"):
        device["FanSpeed"]


def test_all_or_none_are_set_in_the_order_that_counts(device):
    results = device.set_many({"IPAddress": "10.0.0.9", "FanSpeed": 500, "IPConfig": "Static"})
    assert not any(results.values()) and device["IPAddress"] != 0x0A000009
    results = device.set_many({"IPAddress": "10.0.0.9", "fanspeed": "fast"})
    assert not any(results.values()) and all(result.reason for result in results.values()) and "fanspeed" in results
    with pytest.raises(ValueError, match="twice"):
        device.set_many({"FanSpeed": 70, "fanspeed": 71})
    results = device.set_many({"IPAddress": "10.0.0.9", "IPConfig": "Static"})
    assert all(results.values()) and device.text("IPAddress") == "10.0.0.9"


def test_true_and_signs(device):
    assert device.set("LoopPlay", True) and device["LoopPlay"] == 1
    assert device.set("TransportRequestedSpeed", -100).value == -100
    speed = device.info("TransportRequestedSpeed")
    assert (speed.minimum, speed.maximum) == (-2 ** 31, 2 ** 31 - 1)


def test_a_parameter_says_what_it_is(device):
    fan, encode, reel = (device.info(name) for name in ("fanspeed", "EncodeType", "ReelName"))
    assert (fan.name, fan.kind, fan.minimum, fan.maximum, fan.default, fan.units) == ("FanSpeed", "int", 30, 100, 50, "%")
    assert encode.choices[1] == "ProRes 422" and encode.default == 0
    assert reel.minimum is None and reel.maximum_length > 0 and reel.default == ""
    assert fan.parse("70 %") == fan.parse(70.0) == 70 and fan.format(70) == "70 %"
    assert fan.objection(70) is None and fan.objection(500) == "outside 30 to 100 %" and fan.objection("fast")
    with pytest.raises(ValueError, match="FanSpeed: it takes 30 to 100 %"):
        fan.parse("fast")
    assert fan.is_setting and not device.info("SystemCommand").is_setting
    assert ("IPConfig", 1) in device.info("IPAddress").enabled_by


def test_a_watch_goes_on_over_the_end_of_the_daemon(daemon, device):
    with device.watch("FanSpeed", "Take") as watch:
        assert {watch.next(10).kind, watch.next(10).kind} == {"initial"}
        device["FanSpeed"] = 71
        change = next(watch)
        assert (change.name, change.value, change.text, change.kind) == ("FanSpeed", 71, "71 %", "event")
        assert abs(change.time - datetime.datetime.now(datetime.timezone.utc)) < datetime.timedelta(minutes=1)
        daemon.kill()
        until(lambda: device.status.state == "lost")
        with pytest.raises(ConnectionError):
            device["FanSpeed"]
        (daemon.folder / "state/settings.db").unlink()  # it forgets the value
        (daemon.folder / "state/settings.db.bak").unlink(missing_ok=True)
        daemon.start()
        change = watch.next(20)
        assert (change.name, change.value, change.kind) == ("FanSpeed", 50, "difference")
    assert watch.next(0) is None and list(watch) == []


def test_waiting_leaves_the_interpreter_to_others_and_to_signals(device):
    watch = device.watch(initial=False)
    threading.Timer(0.2, watch.close).start()  # runs only if the loop below gives the interpreter's lock back
    assert list(watch) == []
    watch = device.watch(initial=False)
    signal.signal(signal.SIGALRM, lambda *_: (_ for _ in ()).throw(InterruptedError()))
    signal.setitimer(signal.ITIMER_REAL, 0.2)
    with pytest.raises(InterruptedError):
        next(watch)


def test_a_watch_ends_with_its_device(daemon):
    device = vexa.Device(daemon.address)
    watch = device.watch(initial=False)
    threading.Timer(0.2, device.close).start()
    assert list(watch) == [] and watch.closed


def test_a_reader_that_is_slower_than_the_changes_lets_other_tasks_run(device):
    async def read(watch):
        async for _ in watch:
            device.set("FanSpeed", 30 + device.read("FanSpeed") % 70)  # the next one is there before it is asked for

    async def program():
        with device.watch("FanSpeed") as watch:
            reading = asyncio.create_task(read(watch))
            with pytest.raises(asyncio.TimeoutError):
                await asyncio.wait_for(reading, 0.5)

    asyncio.run(program())


def test_a_watch_outlives_the_loop_that_has_read_it(device):
    async def begin(watch):
        asyncio.ensure_future(watch.__anext__())
        await asyncio.sleep(0)

    watch = device.watch(initial=False)
    asyncio.run(begin(watch))
    assert watch.next(0) is None
    watch.close()


def test_the_interpreter_ends_while_threads_wait(daemon):
    program = f"""
import threading, time, vexa
device = vexa.Device("{daemon.address}")
for _ in range(8):
    threading.Thread(target=lambda: list(device.watch("FanSpeed")), daemon=True).start()
    threading.Thread(target=lambda: [device.read("FanSpeed") for _ in iter(int, 1)], daemon=True).start()
time.sleep(0.3)
"""
    for _ in range(5):
        ended = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, timeout=60)
        assert ended.returncode == 0, ended.stderr


def test_a_hundred_devices_in_one_asyncio_program(daemon):
    """Each hears the last value, whoever comes first; then half of the watches are closed and half cancelled."""
    async def follow(watch):
        async for change in watch:
            if change.value == 80:
                return change.name
        return "closed"

    async def program(devices):
        tasks = [asyncio.create_task(follow(device.watch("FanSpeed"))) for device in devices]
        await asyncio.to_thread(devices[0].wait)
        await asyncio.to_thread(devices[0].set, "FanSpeed", 80)
        assert await asyncio.wait_for(asyncio.gather(*tasks), 30) == ["FanSpeed"] * len(devices)
        watches = [device.watch("Take", initial=False) for device in devices]
        tasks = [asyncio.create_task(follow(watch)) for watch in watches]
        await asyncio.sleep(0)
        for number, (watch, task) in enumerate(zip(watches, tasks)):
            threading.Thread(target=watch.close).start() if number % 2 else task.cancel()
        results = await asyncio.wait_for(asyncio.gather(*tasks, return_exceptions=True), 30)
        assert [result == "closed" for result in results] == [bool(number % 2) for number in range(len(devices))]

    devices = [vexa.Device(daemon.address) for _ in range(100)]
    asyncio.run(program(devices))
    for device in devices:
        device.close()


def test_the_programs_of_the_page_work(daemon):
    """On the usual ports, which this test has for itself in its own network."""
    daemon.kill()
    process = subprocess.Popen([MAINSTAY, "--no-mq"], env={**os.environ, "PRODUCT_ID": "OAK"}, stderr=subprocess.DEVNULL)
    try:
        shown = [subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, check=True, timeout=60).stdout
                 for program in re.findall(r"```python\n(.*?)```", (ROOT / "docs/python.md").read_text(), re.S)]
    finally:
        process.terminate()
        process.wait()
    assert shown[0].startswith("50\n70 %\nOutcome.CORRECTED 100 outside 30 to 100 %\n100 {")
    assert shown[1].count("FanSpeed 80 %") == 2


def test_the_example_fills_its_table(daemon):
    shown = subprocess.run([sys.executable, ROOT / "examples/python/table.py", "Fan*", daemon.address, "127.0.0.1:1"],
                           capture_output=True, text=True, timeout=60)
    assert daemon.address in shown.stdout and "50 %" in shown.stdout and "Connection refused" in shown.stdout
