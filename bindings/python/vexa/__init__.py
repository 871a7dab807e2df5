"""Devices and their parameters.

    import vexa

    with vexa.Device("rec-7") as recorder:
        print(recorder["FanSpeed"])             # 50
        recorder["FanSpeed"] = 70               # raises vexa.Refused or vexa.Corrected if it is not stored so
        for change in recorder.watch("Clip*"):  # for ever; also with "async for"
            print(change.name, change.text)

A device connects by itself, again and again, and is followed from then on: reading a value costs nothing. Numbers are int,
texts str, data and alarms bytes. Setting also takes what people write: "70 %", "ProRes 422".
"""

from __future__ import annotations

from weakref import WeakSet

from . import _vexa
from ._vexa import Change, Outcome, Parameter, SetResult, Status, __version__
from .errors import (Corrected, Error, NotConnected, NotStored, NoValue, Refused, TimedOut, Unconfirmed,
                     UnknownParameter)

TYPE_CHECKING = False
if TYPE_CHECKING:  # not at run time: they take longer than all the rest of a short program
    import asyncio
    from collections.abc import Iterator, Mapping, Sequence
    from types import TracebackType
    from typing import Optional, Union

    Value = Union[int, str, bytes]
    Settable = Union[float, str, bytes]  # what takes a float takes an int

__all__ = ["Change", "Corrected", "Device", "Error", "NoValue", "NotConnected", "NotStored", "Outcome", "Parameter",
           "Refused", "SetResult", "Status", "TimedOut", "Unconfirmed", "UnknownParameter", "Watch", "__version__"]

_EXCEPTIONS = {Outcome.CORRECTED: Corrected, Outcome.REFUSED: Refused, Outcome.NOT_SENT: Refused,
               Outcome.UNKNOWN: Unconfirmed}


class Watch(_vexa.WatchBase):
    """Changes as they come: for "for" and "async for". A reader that is slower than the changes gets the newest of each
    parameter. Ends with close(), from any thread, and with a with block. One reader at a time."""

    def __init__(self, device: Device, patterns: Sequence[str], initial: bool) -> None:
        super().__init__(device, patterns, initial)
        self._waiting: Optional[asyncio.Future[None]] = None  # of the loop that reads

    def __enter__(self) -> Watch:
        return self

    def __exit__(self, kind: Optional[type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def close(self) -> None:
        """Ends loops over it."""
        super().close()
        waiting = self._waiting
        if waiting:
            try:
                waiting.get_loop().call_soon_threadsafe(_wake, waiting)
            except RuntimeError:  # the loop has ended, and its tasks with it
                pass

    def __aiter__(self) -> Watch:
        return self

    async def __anext__(self) -> Change:
        if self._waiting:
            raise RuntimeError("another task reads this watch")
        import asyncio

        loop = asyncio.get_running_loop()
        while not self.closed:
            change = self.next(0)
            if change:
                await asyncio.sleep(0)  # where changes come faster than they are taken, the other tasks run, too
                return change
            self._waiting = waiting = loop.create_future()
            loop.add_reader(self.fileno(), _wake, waiting)
            try:
                if not self.closed:
                    await waiting
            finally:
                self._waiting = None
                if not loop.is_closed():
                    loop.remove_reader(self.fileno())
        raise StopAsyncIteration


def _wake(waiting: asyncio.Future[None]) -> None:
    if not waiting.done():
        waiting.set_result(None)


class Device(_vexa.DeviceBase):
    """One device: "rec-7", "10.0.0.7:43110", "[fe80::1]", "udp://rec-7", "mq:" or "local:".

    Making one returns at once. The first operation that needs the device waits for it, for up to `timeout` seconds, and
    each of its answers may take as long. Any thread may use it, and a program may have hundreds. `model` is the only
    model that will do."""

    def __init__(self, address: str, *, model: Optional[str] = None, timeout: float = 5.0) -> None:
        super().__init__(address, model=model, timeout=timeout)
        self._watches: WeakSet[Watch] = WeakSet()

    def close(self) -> None:
        """Ends the connection, and the watches. Leaving a with block does the same."""
        super().close()
        for watch in list(self._watches):
            watch.close()

    def __enter__(self) -> Device:
        return self

    def __exit__(self, kind: Optional[type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<vexa.Device {self.address}{' closed' if self.closed else ': ' + self.status.state}>"

    def __setitem__(self, name: str, value: Settable) -> None:
        result = self.set(name, value)
        if not result:
            raise _EXCEPTIONS[result.outcome](name, result.reason, result)

    def set_many(self, settings: Mapping[str, Settable]) -> dict[str, SetResult]:
        """Sets the values of a dictionary, in the order in which they have an effect. All are checked before the first is
        sent: if one cannot be stored as it is, none is sent. Returns a result for each name."""
        return dict(self._set_many(dict(settings)))

    def values(self, *patterns: str) -> dict[str, Value]:
        """The values by name, asked of the device in one round trip: of all parameters that its transport carries, or of
        those that match one of the patterns, as "Clip*"."""
        return self._values(patterns)

    def texts(self, *patterns: str) -> dict[str, str]:
        """The same as people read them: "70 %"."""
        return self._texts(patterns)

    def names(self, *patterns: str) -> list[str]:
        """The names of its parameters, or of those that match one of the patterns."""
        return self._names(patterns)

    def __iter__(self) -> Iterator[str]:
        return iter(self.names())

    def watch(self, *patterns: str, initial: bool = True) -> Watch:
        """Changes of all parameters, or of those that match one of the patterns, as they come; the values of the
        beginning first. Goes on when the device was lost and is back: what differs then comes as "difference"."""
        watch = Watch(self, patterns, initial)
        self._watches.add(watch)
        return watch
