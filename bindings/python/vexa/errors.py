"""What operations raise: each as the built-in exception of its meaning, too, and all as Error."""

from __future__ import annotations

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Optional

    from ._vexa import SetResult


class Error(Exception):
    """Anything that keeps a device from doing what it was asked for; its text says why."""


class NotConnected(Error, ConnectionError):
    """The device is not reached, or not known well enough."""


class TimedOut(Error, TimeoutError):
    """The device did not answer in time."""


class UnknownParameter(Error, KeyError):
    """The device's model has no such parameter."""

    def __str__(self) -> str:
        return str(self.args[0])


class NoValue(Error, LookupError):
    """The device has no value for it, or its transport carries none: data and alarms over TCP."""


class NotStored(Error, ValueError):
    """A value was not stored as it is; `result` is the SetResult, but where this has come from another process."""

    def __init__(self, name: str, reason: str, result: Optional[SetResult] = None) -> None:
        super().__init__(f"{name}: {reason}")
        self.name, self.reason, self.result = name, reason, result

    def __reduce__(self) -> tuple[type[NotStored], tuple[str, str]]:
        return type(self), (self.name, self.reason)


class Refused(NotStored):
    """The device kept what it had, or was not asked because the value cannot be right."""


class Corrected(NotStored):
    """The device stored another value: result.value."""


class Unconfirmed(NotStored):
    """What became of the value was not seen. It may be stored."""
