"""Work whose nth allocation fails, once and for ever after, for n = 1, 2, ... until it meets no failure.

At each point: the process lives; the work says that there is no memory, as MemoryError, None, ZEL_NO_MEMORY or an error
of that status, or is done; refused, it has changed nothing and leaves no block behind; and the next call does the work.
`faults.allocations` tells which allocations count. Not ours, and so left out, is the interpreter's compiler: modules
are imported from bytecode. What the dynamic loader says for itself while memory fails is an ImportError.
"""

from __future__ import annotations

import json
import subprocess
import sys
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest

from faults.interpreter import WORKS
from faults.libraries import environment, library
from faults.points import chosen
from faults.table import TABLE


class Interpreter:
    """One in which memory runs out; begun anew when it has died."""

    def __init__(self, subject: str, folder: Path, bytecode: Path) -> None:
        self._subject, self._folder, self._bytecode = subject, folder, bytecode
        self._progress = folder / "progress"
        self._begin()

    def _begin(self) -> None:
        for path in self._folder.glob("host*"):
            path.unlink()
        more = {"KESTREL_HOST": str(self._folder / "host")} if self._subject.endswith("on a file") else {}
        self._errors = (self._folder / "errors").open("w")
        self._process = subprocess.Popen(
            [sys.executable, "-m", "faults.interpreter", self._subject, str(library("allocator")), self._progress],
            env=environment(library("allocator"), self._bytecode, PYTHONMALLOC="malloc", **more),
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=self._errors,
            text=True,
        )
        names = self._answer()
        assert names is not None, self._last_words()
        self.names: list[str] = names

    def _answer(self) -> Any:
        assert self._process.stdout
        line = self._process.stdout.readline()
        return json.loads(line) if line else None

    def _last_words(self) -> str:
        return (self._folder / "errors").read_text()[-1500:]

    def sweep(self, name: str) -> dict[str, Any]:
        """What came of a work under faults."""
        assert self._process.stdin
        self._process.stdin.write(name + "\n")
        self._process.stdin.flush()
        answer = self._answer()
        if answer is None:
            where = " ".join(self._progress.read_text().split())
            problem = f"the process died ({self._process.wait()}) at {where}: {self._last_words()}"
            self.end()
            self._begin()
            return {"points": 0, "once": 0, "forever": 0, "refused": 0, "problems": [problem]}
        found: dict[str, Any] = answer
        return found

    def end(self) -> None:
        """Ends it."""
        assert self._process.stdin and self._process.stdout
        self._process.stdin.close()
        self._process.stdout.close()
        self._process.wait()
        self._errors.close()


@pytest.fixture
def interpreter(tmp_path: Path, bytecode: Path) -> Iterator[Callable[[str], Interpreter]]:
    begun = []

    def begin(subject: str) -> Interpreter:
        begun.append(Interpreter(subject, tmp_path, bytecode))
        return begun[-1]

    yield begin
    for each in begun:
        each.end()


@pytest.mark.parametrize("subject", WORKS)
def test_work_without_memory_is_refused_or_done(subject: str, interpreter: Callable[[str], Interpreter]) -> None:
    there = interpreter(subject)
    problems = {}
    hit = 0
    for name in there.names:
        found = there.sweep(name)
        if found["problems"]:
            problems[name] = found["problems"]
        elif found["points"] > 0:
            # Fewer only where a failed one makes later ones needless.
            least = min(2, len(chosen(found["points"])))
            assert found["once"] >= least, name
            assert found["forever"] >= least or found["recovers"], name
        hit += found["once"] + found["forever"]
        TABLE.add(
            f"allocations: {subject}",
            points=found["points"],
            hit=found["once"] + found["forever"],
            refused=found["refused"],
        )
    assert problems == {}
    assert hit > 0
