"""The life of the host as a whole: its beginning, its snapshots, its transactions, its restart."""

from __future__ import annotations

import ctypes
from collections.abc import Iterator
from contextlib import AbstractContextManager, contextmanager, suppress
from pathlib import Path
from types import TracebackType
from typing import NoReturn

from libkestrel.lab import _declarations, _library
from libkestrel.lab.errors import LabError

_PATH_ROOM = 4096


class Snapshot:
    """What the host was at a moment, kept in the memory of this process for as long as this object is."""

    def __init__(self) -> None:
        self._number = _library.number("snapshot", "snapshot")

    def restore(self) -> None:
        """Makes the host what it was then; as often as one likes."""
        _library.call("restoring of a snapshot", "restore", self._number)

    def __reduce__(self) -> NoReturn:
        raise TypeError("a snapshot is kept once and cannot be copied")

    def __del__(self) -> None:
        if hasattr(self, "_number"):
            _library.call("end of a snapshot", "drop_snapshot", self._number)


def snapshot() -> Snapshot:
    """Keeps what the host is now."""
    return Snapshot()


@contextmanager
def scratch() -> Iterator[None]:
    """Makes the host again at the end of a `with` block what it was at its beginning."""
    before = snapshot()
    try:
        yield
    finally:
        before.restore()


def reset(*, sample: bool = False) -> None:
    """Puts a new host in the place of the one there is: an empty one, or the sample that a process starts with."""
    _library.call("reset", "reset", _declarations.SAMPLE if sample else _declarations.EMPTY)


def restart() -> None:
    """Starts the host anew, as after a loss of power.

    Switches run on their saved configuration, and what traffic made of them is gone. NICs, clients and time remain.
    """
    _library.call("restart", "restart")


class _Transaction(AbstractContextManager[None]):
    """From its beginning until it is left or forgotten."""

    __slots__ = ("_is_open",)

    def __init__(self) -> None:
        self._is_open = False

    def __enter__(self) -> None:
        _library.call("beginning of a transaction", "begin")
        self._is_open = True

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None
    ) -> None:
        if not self._is_open:
            raise ValueError("the transaction has not begun")
        if kind is not None:
            self._take_back()
            return
        try:
            _library.call("transaction", "commit")  # the last thing that is done: once it has happened, nothing fails
        except BaseException:
            with suppress(LabError):  # unless it was the host that refused, and has taken everything back
                self._take_back()
            raise
        finally:
            self._is_open = False

    def __del__(self) -> None:
        if self._is_open:
            self._take_back()

    def _take_back(self) -> None:
        self._is_open = False
        _library.call("end of a transaction", "rollback")


def transaction() -> AbstractContextManager[None]:
    """Makes one change of all that is changed in a `with` block, by functions of the platform too.

    It lasts, and others see it, when the block ends; when the block raises, nothing has changed. On a host file it is
    written down in one go.
    """
    return _Transaction()


def host_path() -> Path | None:
    """The file that the host is kept in; None for a host in memory."""
    room = ctypes.create_string_buffer(_PATH_ROOM)
    _library.call("path of the host file", "host_path", room, _PATH_ROOM)
    return Path(room.value.decode(errors="surrogateescape")) if room.value else None
