"""The base of all errors of the platform, and the check that raises them."""

from __future__ import annotations

from typing import Any

import _libkestrel as flat


class KestrelError(Exception):
    """The platform refused an operation; nothing has changed.

    Each status has a class of its own in `libkestrel.errors`. Errors compare by identity, and can be pickled.
    """

    status: int
    """The platform's status, one of `_libkestrel.ZEL_*`."""
    name: str
    """The status by name, such as "ZEL_NOT_FOUND"; its number where it has none."""
    text: str
    """The platform's sentence for the status."""
    operation: str
    """What was asked, such as "set VLAN policy"."""
    object: str
    """Of what it was asked, such as "port 10 of switch dvs-prod"."""

    def __init__(self, status: int, name: str, text: str, operation: str = "", object: str = "") -> None:  # noqa: A002
        BaseException.__init__(self, status, name, text, operation, object)  # built-in bases read arguments their way
        self.status = status
        self.name = name
        self.text = text
        self.operation = operation
        self.object = object

    def __str__(self) -> str:
        where = "".join(f"{part}: " for part in (self.object, self.operation) if part)
        return f"{where}{self.text} ({self.name}, 0x{self.status & 0xFFFFFFFF:08x})"

    def __repr__(self) -> str:
        return f"{type(self).__name__}(status={self.name}, operation={self.operation!r}, object={self.object!r})"

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self.status, self.name, self.text, self.operation, self.object)


def sentence(status: int) -> str:
    """The platform's sentence for a status. OverflowError for a number that no status is."""
    if not -(2**31) <= status < 2**31:
        raise OverflowError(f"a status is a number of 32 bits, not {status}")
    return str(flat.ZEL_ReturnStatusToString(status))


def error(status: int, operation: str = "", object: str = "") -> KestrelError:  # noqa: A002
    """The error that a status stands for; a status without a class of its own gives a plain KestrelError.

    OverflowError for a number that no status is.
    """
    from libkestrel import errors

    text = sentence(status)
    name = errors.status_name(status)
    kind = errors.class_of(status)
    return kind(status, name, text, operation, object)


def check(status: int, operation: str = "", object: str = "") -> None:  # noqa: A002
    """Raises the error that a status stands for, unless it is ZEL_OK."""
    if status != flat.ZEL_OK:
        raise error(status, operation, object)
