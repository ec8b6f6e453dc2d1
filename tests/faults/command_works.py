"""Every function of the platform, on the embedded host."""

from __future__ import annotations

import os
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import _libkestrel as k

from faults.file_reader import FileReader
from faults.work import Call, Work
from headers.model import Function
from libkestrel import Host, lab
from libkestrel.errors import status_name
from support import refusals
from support.functions import FUNCTIONS, OVERLOADED


class Bench:
    """A host with one of everything, what there is to be seen of it, and the way back to it."""

    def __init__(self) -> None:
        self._fresh = refusals.prepare()
        self._store = Host().store
        path = os.environ.get("KESTREL_HOST")
        self._file = FileReader(Path(path)) if path else None

    def restore(self) -> None:
        """Makes the host what it was at first."""
        self._fresh.restore()

    def state(self) -> object:
        """What the host says of itself, and what others read in its file."""
        told = [self._store.image(), self._store.saved_image(), lab.nics(), lab.clock.now()]
        for switch in refusals.SWITCH, "new":
            try:
                told.append(lab.clients(switch))
            except lab.LabError:
                told.append(None)
        told.append(self._file.contents() if self._file else None)
        return told


def _told(function: Function, result: Any) -> str:
    if function.returns != "ZEL_ReturnStatus":
        return repr(None) if _first(result) in (None, 0, "\0") else "something"
    status = _first(result)
    return "no memory" if status == k.ZEL_NO_MEMORY else status_name(status)


def _first(result: Any) -> Any:
    return result[0] if isinstance(result, list) else result


def _give_back(result: Any) -> None:
    """Releases the tables that a call has handed out, and what its arguments lead to."""
    if isinstance(result, list):
        for each in result[1:]:
            if hasattr(each, "own"):
                k.VSZEL_FreeMemory(each)
    refusals.let_go()


def commands() -> Iterator[Work]:
    """A call of each function with arguments that it accepts."""
    bench = Bench()
    for function in FUNCTIONS:
        yield _work(bench, function)
    yield Work(
        OVERLOADED,
        lambda: (k.DVSAliasToPortsetName, (refusals.SWITCH,)),
        told=lambda result: "no memory" if result[0] == k.ZEL_NO_MEMORY else repr(result),
    )


def _work(bench: Bench, function: Function) -> Work:
    def prepare() -> Call:
        return getattr(k, function.name), tuple(refusals.good_arguments(function))

    return Work(
        function.name,
        prepare,
        told=lambda result: _told(function, result),
        let_go=_give_back,
        state=bench.state,
        restore=bench.restore,
        or_nothing=function.returns != "ZEL_ReturnStatus",
    )
