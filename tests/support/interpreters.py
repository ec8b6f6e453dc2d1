"""Interpreters that evaluate expressions for a test, each with its host in a file."""

from __future__ import annotations

import ast
import os
import subprocess
import sys
import tempfile
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

_LOOP = "import sys\nfor line in sys.stdin:\n    print(repr(eval(line)), flush=True)\n"


class Interpreter:
    """An interpreter of its own; `prologue` is run first, and its names are there in expressions."""

    def __init__(self, host: Path, prologue: str) -> None:
        self._command = [sys.executable, "-c", prologue + _LOOP]
        self._environment = os.environ | {"KESTREL_HOST": str(host)}
        self.begin()

    def begin(self) -> None:
        """Begins the interpreter, which must have ended."""
        pipe = subprocess.PIPE
        self._process = subprocess.Popen(
            self._command, env=self._environment, stdin=pipe, stdout=pipe, text=True, bufsize=1
        )

    def ask(self, expression: str) -> Any:
        """The value of an expression, which is made of literals."""
        assert self._process.stdin and self._process.stdout
        self._process.stdin.write(expression + "\n")
        return ast.literal_eval(self._process.stdout.readline().strip() or "...")

    def begin_anew(self, *, killed: bool = False) -> None:
        """Ends the interpreter, in good order or not, and begins another."""
        self.end(killed=killed)
        self.begin()

    def end(self, *, killed: bool = False) -> None:
        """Ends the interpreter."""
        assert self._process.stdin and self._process.stdout
        if killed:
            self._process.kill()
        self._process.stdin.close()
        self._process.stdout.close()
        assert self._process.wait() == (-9 if killed else 0)


@contextmanager
def folder_in_memory() -> Iterator[Path]:
    """A folder for files that are written often, in memory where there is such a place."""
    memory = Path("/dev/shm")
    place = memory if os.access(memory, os.W_OK) else None
    with tempfile.TemporaryDirectory(dir=place, prefix="kestrel-test-") as made:
        yield Path(made)
