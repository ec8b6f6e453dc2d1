"""Every function of the platform, on the embedded host."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import _libkestrel as k

from faults.host_view import HostView
from faults.work import Call, Work
from headers.model import Function
from libkestrel.errors import status_name
from support import refusals
from support.functions import FUNCTIONS, OVERLOADED


class Bench:
    """A host with one of everything, and the way back to it."""

    def __init__(self) -> None:
        self._fresh = refusals.prepare()
        self.view = HostView()

    def restore(self) -> None:
        """Makes the host what it was at first."""
        self._fresh.restore()


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
        state=bench.view,
        restore=bench.restore,
        or_nothing=function.returns != "ZEL_ReturnStatus",
    )
