"""Does work while its nth allocation fails, in an interpreter that allocates everything through the C library.

What counts are the allocations between the entry into the call and its end, by whomever: the library that is called,
the interpreter on its behalf, the C++ runtime, SQLite, the dynamic loader. What the interpreter allocates around it, to
make arguments and to look at the outcome, neither counts nor fails: the allocator itself makes the call.
"""

from __future__ import annotations

import ctypes
import gc
import json
import os
import re
import signal
import sys
from dataclasses import asdict, dataclass, field
from typing import Any

from faults.points import chosen
from faults.work import Work
from headers import model

REFUSAL = "no memory"
"""How a call ends that says that there is no memory."""
_PATIENCE = 20
"""Seconds after which a process that is still there hangs."""
NOTHING = repr(None)
"""What a call tells that gives nothing."""
_UNSAID = (
    "SystemError: error return without exception set",
    "SystemError: null without an exception",
    r"SystemError: <.*> returned NULL without setting an exception",
    "RuntimeError: can't allocate read lock",
    "TypeError: expected str, bytes or os.PathLike object, not PosixPath",
    r"ValueError: \[digital envelope routines\] .*",
)
"""How the interpreter and its modules end that had no memory and do not say so."""
_NO_MEMORY = next(constant.value for constant in model.read().constants if constant.name == "ZEL_NO_MEMORY")


class Allocator:
    """The preloaded allocator of this process."""

    def __init__(self, path: str) -> None:
        library = ctypes.PyDLL(path)
        self._call = library.allocator_call
        self._call.restype = ctypes.c_void_p
        self._call.argtypes = [ctypes.c_void_p, ctypes.py_object, ctypes.py_object, ctypes.c_size_t, ctypes.c_int]
        self._way = ctypes.cast(ctypes.pythonapi.PyObject_Call, ctypes.c_void_p)
        self.asked = library.allocator_asked
        self.asked.restype = ctypes.c_size_t
        self.mark, self.grown = library.allocator_mark, library.allocator_grown
        self.grown_by_call = library.allocator_grown_by_call
        self.mark.restype = None
        self.grown.restype = self.grown_by_call.restype = ctypes.c_ssize_t
        self.mark()
        kept = [object() for _ in range(1000)]
        if self.grown() < len(kept):
            raise RuntimeError(f"objects are not allocated through {path}: it has to be preloaded, with PYTHONMALLOC")

    def call(self, function: Any, arguments: tuple[Any, ...], nth: int = 0, forever: bool = False) -> Any:
        """Calls a function while its nth allocation fails, and `forever` all after it too; 0: none."""
        place = self._call(self._way, function, arguments, nth, forever)
        if place is None:
            raise SystemError("null without an exception")
        result = ctypes.cast(place, ctypes.py_object)
        try:
            return result.value
        finally:
            ctypes.pythonapi.Py_DecRef(result)


@dataclass
class Report:
    """What came of a work."""

    points: int = 0
    """Allocations of one undisturbed call."""
    once: int = 0
    """Calls of which one allocation failed."""
    forever: int = 0
    """Calls of which all from one on failed."""
    refused: int = 0
    """Those that ended saying so; the others could do without."""
    recovers: bool = False
    """Whether memory always came back after the one allocation that failed."""
    problems: list[str] = field(default_factory=list)


def ending(error: BaseException) -> str:
    """How an exception tells what it is about."""
    if isinstance(error, MemoryError) or getattr(error, "status", None) == _NO_MEMORY:
        return REFUSAL
    if isinstance(error, ctypes.ArgumentError) and str(error).rstrip().endswith(": MemoryError:"):
        return REFUSAL
    # What an operation of many steps raises tells where, and comes from what tells why.
    if error.__cause__ is not None and ending(error.__cause__) == REFUSAL:
        return REFUSAL
    return f"{type(error).__name__}: {error}"


class Sweep:
    """A work under faults."""

    def __init__(self, allocator: Allocator, work: Work, progress: int | None = None) -> None:
        self._allocator, self._work, self._progress = allocator, work, progress
        self.report = Report(recovers=work.recovers or work.in_python)
        self._grown_by_calls = 0

    def run(self) -> Report:
        """Does the work with each allocation failing."""
        self._expected, self._before = NOTHING, self._work.state()
        self._try(0, False)  # what is kept for ever is made
        self._work.restore()
        self._expected, self._after = self._try(0, False)
        self.report.points = self._allocator.asked()
        self._work.restore()
        self._before = self._work.state()
        for forever in self._arms():
            for nth in [*chosen(self.report.points), self.report.points + 1]:
                if not self._point(nth, forever):
                    break
        return self.report

    def _arms(self) -> tuple[bool, ...]:
        """Whether memory never comes back."""
        return (False,) if self.report.recovers else (False, True)

    # ---- One point ----

    def _try(self, nth: int, forever: bool) -> tuple[str, object]:
        """Makes the call; how it ended, and what there is to be seen afterwards."""
        ended = self._call(nth, forever)
        return ended, self._work.state()

    def _call(self, nth: int, forever: bool) -> str:
        work = self._work
        function, arguments = work.prepare()
        if self._progress is not None:
            os.pwrite(self._progress, f"{nth:10} {'for ever' if forever else 'once':8}".encode(), 0)
        result = None
        try:
            result = self._allocator.call(function, arguments, nth, forever)
            ended = str(work.told(result))
            if ended == NOTHING and work.or_nothing and self._expected != NOTHING:
                ended = REFUSAL
        except BaseException as error:
            ended = ending(error)
            if work.in_python and any(re.fullmatch(each, ended) for each in _UNSAID):
                ended = REFUSAL
        self._grown_by_calls += self._allocator.grown_by_call()
        work.let_go(result)
        return ended

    def _point(self, nth: int, forever: bool) -> bool:
        """Tries one; False when the work met no fault, so that it is done."""
        ended, seen = self._try(nth, forever)
        was_met: bool = self._allocator.asked() >= nth
        where = f"{nth}{' and all after it' if forever else ''}"
        if ended == self._expected:
            if seen != self._after:
                self._complain(f"{where}: it went well and did not do its work")
            self._work.restore()
        elif ended != REFUSAL:
            self._complain(f"{where}: ended with {ended}")
        if ended != self._expected and seen != self._before:
            self._complain(f"{where}: something has changed")
            self._work.restore()
        if was_met:
            self.report.forever += forever
            self.report.once += not forever
            self.report.refused += ended == REFUSAL
            if ended == REFUSAL and not self._work.in_python:
                self._look_for_leaks(nth, forever, where)
            self._check_that_it_works(where)
        return was_met

    def _look_for_leaks(self, nth: int, forever: bool, where: str) -> None:
        """A call that is refused leaves a block behind each time, or it leaks none.

        What the interpreter keeps of preparations is not the call's, and what an argument keeps goes with it: a leak
        is seen around the call and around both.
        """
        for rounds, collects in ((4, False), (12, True), (300, True)):
            if collects:
                gc.collect()
            self._grown_by_calls = 0
            self._allocator.mark()
            for _ in range(rounds):
                if self._call(nth, forever) != REFUSAL:
                    self._work.restore()
                    return
            if collects:
                gc.collect()
            grown = min(self._allocator.grown(), self._grown_by_calls)
            if grown < rounds:
                return
        self._complain(f"{where}: leaks {grown / rounds:.1f} blocks a time")

    def _check_that_it_works(self, where: str) -> None:
        ended, seen = self._try(0, False)
        if ended != self._expected:
            self._complain(f"{where}: the next call ended with {ended}")
        elif seen != self._after:
            self._complain(f"{where}: the next call did not do its work")
        self._work.restore()

    def _complain(self, problem: str) -> None:
        if len(self.report.problems) < 12:
            self.report.problems.append(problem)


class ForkedSweep(Sweep):
    """A work under faults that is done once in the life of a process: each try is a child's."""

    def run(self) -> Report:
        clean = self._in_child(0, False)
        if "died" in clean:
            self.report.problems.append(f"without any fault: {clean['died']}")
            return self.report
        self.report.points = clean["asked"]
        for forever in self._arms():
            for nth in chosen(self.report.points):
                found = self._in_child(nth, forever)
                self.report.forever += forever
                self.report.once += not forever
                self.report.refused += found.get("refused", 0)
                for problem in [*found.get("problems", ()), *([found["died"]] if "died" in found else ())]:
                    self._complain(f"{nth}{' and all after it' if forever else ''}: {problem}")
        return self.report

    def _in_child(self, nth: int, forever: bool) -> dict[str, Any]:
        reading, writing = os.pipe()
        child = os.fork()
        if child == 0:
            os.close(reading)
            signal.alarm(_PATIENCE)
            try:
                told = self._child(nth, forever)
                os.write(writing, json.dumps(told).encode())
            except BaseException as error:
                os.write(writing, json.dumps({"died": f"{type(error).__name__}: {error}"}).encode())
            os._exit(0)
        os.close(writing)
        with os.fdopen(reading, "rb") as pipe:
            data = pipe.read()
        _, status = os.waitpid(child, 0)
        if status != 0 or not data:
            return {"died": f"the process died of signal {os.WTERMSIG(status)}"}
        found: dict[str, Any] = json.loads(data)
        return found

    def _child(self, nth: int, forever: bool) -> dict[str, Any]:
        self._expected = NOTHING
        ended, _ = self._try(nth, forever)
        asked = self._allocator.asked()
        refused = int(ended == REFUSAL)
        problems = []
        again, _ = self._try(0, False)
        if ended not in (REFUSAL, again):
            problems.append(f"ended with {ended}")
        if again == REFUSAL or "Error" in again:
            problems.append(f"the next call ended with {again}")
        return {"asked": asked, "refused": refused, "problems": problems}


def sweep(allocator: Allocator, work: Work, progress: int | None = None) -> dict[str, Any]:
    """What comes of a work under faults, as JSON has it."""
    kind = ForkedSweep if work.dies_with_the_process else Sweep
    gc.collect()
    sys.stdout.flush()
    return asdict(kind(allocator, work, progress).run())
