"""The nth write, synchronisation, opening, ... of the host file fails, once and for ever after, under a script of
changes through the module.

What was acknowledged is there for the next process, what was refused is not, wholly; the status says what is wrong; and
the next change is made.
"""

from __future__ import annotations

import errno
import json
import shutil
import sqlite3
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import _libkestrel as k
import pytest

from faults import file_reader
from faults.libraries import environment, library
from faults.points import chosen
from faults.table import TABLE
from libkestrel.errors import status_name

SHORT = 0
"""The effect of a write that is cut short."""
CALLS = {
    "open": (errno.EIO, errno.EMFILE, errno.ENOSPC),
    "write": (errno.EIO, errno.ENOSPC, SHORT),
    "sync": (errno.EIO, errno.ENOSPC),
    "truncate": (errno.EIO, errno.ENOSPC),
    "unlink": (errno.EIO,),
    "map": (errno.ENOMEM, errno.EIO),
}
"""What fails, and how."""
SAYS = {
    errno.EIO: {k.ZEL_IO_ERROR},
    errno.ENOSPC: {k.ZEL_NO_SPACE, k.ZEL_IO_ERROR},
    errno.EMFILE: {k.ZEL_NUM_FILES_EXCEEDED, k.ZEL_IO_ERROR},
    errno.ENOMEM: {k.ZEL_NO_MEMORY, k.ZEL_IO_ERROR},
}
"""The statuses that tell of an error."""
FRESH, THERE = "a new file", "a file that is there"


class Script:
    """The process that runs the script, and the files that it leaves."""

    def __init__(self, folder: Path, bytecode: Path) -> None:
        self._folder = folder
        self._process = subprocess.Popen(
            [sys.executable, "-m", "faults.storage_script", str(library("storage_calls"))],
            env=environment(library("storage_calls"), bytecode),
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
        )
        self._left: dict[tuple[int, ...], str] = {}
        self._base = folder / "base"
        self.run(FRESH, "none", 0, only=[])
        shutil.copy(self._folder / "host", self._base)

    def run(
        self, begins: str, call: str, nth: int, *, forever: bool = False, effect: int = 0, only: Any = None
    ) -> dict[str, Any]:
        """Runs the script with a fault; what became of it."""
        for path in self._folder.glob("host*"):
            path.unlink()
        host = self._folder / "host"
        if begins == THERE:
            shutil.copy(self._base, host)
        point = {"host": str(host), "call": call, "nth": nth, "forever": forever, "effect": effect, "only": only}
        assert self._process.stdin and self._process.stdout
        self._process.stdin.write(json.dumps(point) + "\n")
        self._process.stdin.flush()
        found: dict[str, Any] = json.loads(self._process.stdout.readline())
        if only == []:
            # Something has to open the file.
            assert found["ended"] == 0
        return found

    def contents(self) -> str:
        """What is in the file that the script left."""
        database = sqlite3.connect(self._folder / "host")
        try:
            return file_reader.contents(database)
        finally:
            database.close()

    def expected(self, made: tuple[int, ...]) -> str:
        """What is in the file when just these changes were made, and the one afterwards."""
        if made not in self._left:
            ran = self.run(THERE, "none", 0, only=[*made, -1])
            assert all(status in (None, k.ZEL_OK) for status in ran["statuses"])
            self._left[made] = self.contents()
        return self._left[made]

    def end(self) -> None:
        """Ends the process."""
        assert self._process.stdin and self._process.stdout
        self._process.stdin.close()
        self._process.stdout.close()
        assert self._process.wait() == 0


@pytest.fixture(scope="module")
def script(tmp_path_factory: pytest.TempPathFactory, bytecode: Path) -> Iterator[Script]:
    made = Script(tmp_path_factory.mktemp("storage"), bytecode)
    yield made
    made.end()


@pytest.mark.parametrize("begins", [FRESH, THERE])
@pytest.mark.parametrize(("call", "effect"), [(call, effect) for call, effects in CALLS.items() for effect in effects])
def test_what_was_acknowledged_is_there_and_nothing_else(begins: str, call: str, effect: int, script: Script) -> None:
    clean = script.run(begins, call, 0)
    assert set(clean["statuses"]) == {k.ZEL_OK}
    problems, hit, refused = [], 0, 0
    for forever in (False, True):
        for nth in chosen(clean["counted"]):
            ran = script.run(begins, call, nth, forever=forever, effect=effect)
            where = f"{nth}{' and all after it' if forever else ''}"
            hit += 1
            if ran["ended"] != 0:
                problems.append(f"{where}: the process ended with {ran['ended']}")
                continue
            found = script.contents()
            made = tuple(number for number, status in enumerate(ran["statuses"]) if status == k.ZEL_OK)
            failed = {status for status in ran["statuses"] if status != k.ZEL_OK}
            refused += bool(failed)
            if effect == SHORT and not forever and failed:
                problems.append(f"{where}: a write that was cut short is one that goes on")
            # What a change finds that follows one that was refused is the host's to say.
            words = {status_name(status) for status in failed - {k.ZEL_NOT_FOUND}}
            if effect != SHORT and words - {status_name(status) for status in SAYS[effect]}:
                problems.append(f"{where}: ended with {sorted(words)}")
            if ran["again"] != k.ZEL_OK:
                problems.append(f"{where}: the next change ended with {status_name(ran['again'])}")
            elif found != script.expected(made):
                problems.append(f"{where}: {made} were acknowledged, and the file holds something else")
    TABLE.add(f"storage: {begins}", points=clean["counted"], hit=hit, refused=refused)
    assert problems == []
    assert hit >= min(2, 2 * clean["counted"])
