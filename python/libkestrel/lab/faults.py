"""Faults, for rehearsals: what a script does when the platform fails it.

Faults belong to the process: other processes on the same host file meet none.
"""

from __future__ import annotations

import ctypes
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass

from libkestrel.lab import _declarations, _library

ALWAYS = 2**64 - 1
"""For `times`: every call, until the fault is taken back."""


@dataclass(frozen=True)
class Fault:
    """A fault that is armed, as it stands."""

    id: int
    """Its number, for `disarm`."""
    function: str
    """The platform's function that meets it."""
    at: int
    """The first call that meets it: 1 is the next one."""
    times: int
    """How many calls in a row still meet it."""
    status: int | None = None
    """What the function returns, if the fault is that."""
    exception: str | None = None
    """The name of the exception's class, if the fault is an exception."""
    message: str | None = None
    """The exception's text."""
    disk_full: bool = False
    """Whether the fault is a full disk."""


def _fault_of(record: _declarations.Fault) -> Fault:
    aborts = record.effect == _declarations.ABORT
    return Fault(
        id=record.id,
        function=record.function.decode(),
        at=record.at,
        times=record.times,
        status=record.status if record.effect == _declarations.STATUS else None,
        exception=record.exception.decode() if aborts else None,
        message=record.message.decode() if aborts else None,
        disk_full=record.effect == _declarations.DISK_FULL,
    )


def _name_and_message(exception: BaseException) -> tuple[str, str]:
    """What the channel carries of an exception: the class and one text."""
    kind = type(exception)
    message = exception.args[0] if exception.args and isinstance(exception.args[0], str) else str(exception)
    if kind.__module__ != "builtins":
        raise TypeError(f"the platform can raise built-in exceptions only, not {kind.__qualname__}")
    try:
        kind(message)
    except TypeError:
        raise TypeError(f"{kind.__name__} cannot be made of a text alone, as the platform does") from None
    return kind.__name__, message


def arm(
    function: str,
    *,
    status: int | None = None,
    raises: BaseException | None = None,
    disk_full: bool = False,
    at: int = 1,
    times: int = 1,
) -> int:
    """Arms a fault for a function of the platform and returns its number.

    The `at`-th call from now on meets it, and as many in a row as `times` says. Exactly one of the other arguments
    tells what becomes of such a call: it returns `status` and does nothing; it raises an exception of the class and
    text of `raises`, which is a built-in one; or it finds the disk full when it comes to save what it did. Of faults
    that one call would meet the one armed first is met.
    """
    if [status is not None, raises is not None, disk_full].count(True) != 1:
        raise TypeError("a fault is one of status, raises and disk_full")
    for number, low, high in ((at, 0, ALWAYS), (times, 0, ALWAYS), (status or 0, -(2**31), 2**31 - 1)):
        if not low <= number <= high:
            raise OverflowError(f"fault for {function}: {number} is not from {low} to {high}")
    fields = _declarations.Fault._fields_
    width = {field[0]: ctypes.sizeof(field[1]) for field in fields}
    record = _declarations.Fault(at=at, times=times)
    record.function = _library.field(function, "the function's name", width["function"])
    if raises is not None:
        record.effect = _declarations.ABORT
        exception, message = _name_and_message(raises)
        record.exception = _library.field(exception, "the exception's name", width["exception"])
        record.message = _library.field(message, "the exception's message", width["message"])
    elif disk_full:
        record.effect = _declarations.DISK_FULL
    else:
        record.effect = _declarations.STATUS
        record.status = status or 0
    return _library.number(f"fault for {function}", "arm_fault", ctypes.byref(record))


def disarm(fault: int) -> bool:
    """Takes a fault back; whether it was still armed."""
    if all(armed.id != fault for armed in armed_faults()):
        return False
    _library.call(f"end of fault {fault}", "disarm_fault", fault)
    return True


def disarm_all() -> None:
    """Takes all faults back."""
    _library.call("end of all faults", "disarm_faults")


def armed_faults() -> list[Fault]:
    """The faults that are armed, in the order in which they were armed."""
    return _library.array("list of faults", "list_faults", _declarations.Fault, _fault_of)


@contextmanager
def fault(
    function: str,
    *,
    status: int | None = None,
    raises: BaseException | None = None,
    disk_full: bool = False,
    at: int = 1,
    times: int = 1,
) -> Iterator[int]:
    """Arms a fault as `arm` does, for the time of a `with` block, and takes back what is left of it then."""
    armed = arm(function, status=status, raises=raises, disk_full=disk_full, at=at, times=times)
    try:
        yield armed
    finally:
        disarm(armed)


class Calls:
    """How often functions of the platform were called: `calls["VSZEL_GetVSInfo"]`."""

    def __getitem__(self, function: str) -> int:
        return _library.number(f"calls of {function}", "calls_of", function)


@contextmanager
def counted_calls() -> Iterator[Calls]:
    """Counts the platform's calls for the time of a `with` block. One block counts at a time."""
    _library.call("counting of calls", "count_calls", b"\1")
    try:
        yield Calls()
    finally:
        _library.call("end of counting", "count_calls", b"\0")
