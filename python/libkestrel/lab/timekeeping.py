"""The time of the host, which stands still until it is advanced."""

from __future__ import annotations

from datetime import timedelta

from libkestrel.lab import _library

_NANOSECONDS = 1_000_000_000


def nanoseconds(duration: float | timedelta) -> int:
    """A duration, in seconds where it is a number. ValueError for one that is negative or beyond the clock's range."""
    if isinstance(duration, timedelta):
        whole = (duration.days * 86400 + duration.seconds) * _NANOSECONDS + duration.microseconds * 1000
    elif not isinstance(duration, (int, float)):
        raise TypeError(f"a duration is a number of seconds or a timedelta, not {type(duration).__name__}")
    else:
        try:
            whole = duration * _NANOSECONDS if isinstance(duration, int) else round(duration * _NANOSECONDS)
        except (OverflowError, ValueError):
            whole = -1
    if not 0 <= whole < 2**63:
        raise ValueError(f"{duration} is no time that the clock can advance by")
    return whole


class Clock:
    """The clock of the host in this process."""

    def now(self) -> float:
        """Seconds since the host was made."""
        return self.now_ns() / _NANOSECONDS

    def now_ns(self) -> int:
        """Nanoseconds since the host was made."""
        return _library.number("time", "now")

    def advance(self, duration: float | timedelta) -> None:
        """Lets time pass, in seconds where the duration is a number: entries age, timers run."""
        self.advance_ns(nanoseconds(duration))

    def advance_ns(self, duration: int) -> None:
        """The same in nanoseconds."""
        _library.call(f"advance by {duration} ns", "advance", duration)

    def __repr__(self) -> str:
        return f"<Clock at {self.now()} s>"


clock = Clock()
"""The clock of this process's host."""
