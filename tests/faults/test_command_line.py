"""`kestrel` interrupted, terminated and killed at its nth write, synchronisation or other change of the host file.

Afterwards the host is what it was or what it was to become; the command says which: with 0 it is done, with 130 and
"nothing has changed" it is as it was; and the next command works.
"""

from __future__ import annotations

import shutil
import signal
import sqlite3
import subprocess
from pathlib import Path

import pytest

from faults import file_reader
from faults.libraries import environment, library
from faults.points import chosen
from faults.table import TABLE
from libkestrel.cli import exits
from support.prompt import COMMAND

COMMANDS = {
    "a change": ("switch", "set", "dvs-office", "--mtu", "9000"),
    "a plan": ("port", "create", "dvs-office", "900", "901", "902", "--vlan", "7"),
    "a scenario": ("lab", "run", "pvlan-hosting"),
    "a new host": ("lab", "run", "datacentre"),
    "the sample": ("lab", "reset", "--sample"),
}
"""Commands that change the host; the one for a new host finds none."""

BASE = ("lab", "run", "small-office")
"""The command that makes the host that the others find."""

ENDS = {
    signal.SIGINT: {exits.SUCCESS, exits.INTERRUPTED},
    signal.SIGTERM: {exits.SUCCESS, -signal.SIGTERM},
    signal.SIGKILL: {-signal.SIGKILL},
}
"""How a command may end after a signal."""


class Office:
    """A host file that commands are tried on."""

    def __init__(self, folder: Path, bytecode: Path) -> None:
        self._folder, self._bytecode = folder, bytecode
        self._base = folder / "base"
        assert self.run("base").returncode == 0
        shutil.copy(self._folder / "host", self._base)

    def begin(self, what: str) -> None:
        """Makes the file what it is before a command."""
        for path in self._folder.glob("host*"):
            path.unlink()
        if what != "a new host":
            shutil.copy(self._base, self._folder / "host")

    def run(self, what: str, **faults: str) -> subprocess.CompletedProcess[str]:
        """Runs a command."""
        path = str(self._folder / "host")
        preloaded = environment(library("storage_calls"), self._bytecode)
        del preloaded["PYTHONFAULTHANDLER"]
        if not faults:
            del preloaded["LD_PRELOAD"]
        return subprocess.run(
            [*COMMAND, "--host", path, *COMMANDS.get(what, BASE)],
            capture_output=True,
            text=True,
            check=False,
            env=preloaded | {"FAULT_FILE": path} | {f"FAULT_{name.upper()}": value for name, value in faults.items()},
            timeout=120,
        )

    def contents(self) -> str:
        """What is in the file, as the next process finds it; "" where there is none yet."""
        path = self._folder / "host"
        if not path.exists() or not path.stat().st_size:
            return ""
        database = sqlite3.connect(path)
        try:
            return file_reader.contents(database) if _has_tables(database) else ""
        finally:
            database.close()

    def points(self, what: str) -> int:
        """How many calls of the system change the file meanwhile."""
        report = self._folder / "report"
        self.begin(what)
        assert self.run(what, call="any", nth="0", report=str(report)).returncode == 0
        return int(report.read_text())


def _has_tables(database: sqlite3.Connection) -> bool:
    return bool(database.execute("SELECT count(*) FROM sqlite_schema WHERE name = 'switches'").fetchone()[0])


@pytest.fixture(scope="module")
def office(tmp_path_factory: pytest.TempPathFactory, bytecode: Path) -> Office:
    return Office(tmp_path_factory.mktemp("office"), bytecode)


@pytest.mark.parametrize("what", COMMANDS)
@pytest.mark.parametrize("number", ENDS, ids=lambda number: number.name)
def test_a_signal_leaves_the_old_or_the_new_and_the_command_says_which(
    number: signal.Signals, what: str, office: Office
) -> None:
    points = office.points(what)
    office.begin(what)
    before = office.contents()
    assert office.run(what).returncode == 0
    after = office.contents()
    assert before != after
    fresh = {before, after}
    if what == "a new host":
        fresh.add(_sample(office))
    problems, hit, undone = [], 0, 0
    for nth in chosen(points):
        office.begin(what)
        ran = office.run(what, call="any", nth=str(nth), effect=str(-number))
        found = office.contents()
        hit += 1
        undone += found != after
        if ran.returncode not in ENDS[number]:
            problems.append(f"{nth}: ended with {ran.returncode}: {ran.stderr[-200:]}")
        if found not in fresh:
            problems.append(f"{nth}: half of it is done")
        if "nothing has changed" in ran.stderr and found == after != before:
            problems.append(f"{nth}: it says that nothing has changed, and everything has")
        if ran.returncode == exits.SUCCESS and found != after:
            problems.append(f"{nth}: it says that it is done, and nothing has changed")
        if "Traceback" in ran.stderr:
            problems.append(f"{nth}: {ran.stderr[-300:]}")
        again = office.run(what)
        if again.returncode != exits.SUCCESS:
            problems.append(f"{nth}: the next command ended with {again.returncode}: {again.stderr[-200:]}")
        elif office.contents() != after:
            problems.append(f"{nth}: the next command did something else")
    TABLE.add(f"commands: {number.name}", points=points, hit=hit, refused=undone)
    assert problems == []
    assert hit > 0


def _sample(office: Office) -> str:
    """What a file holds that has just been made and not been changed yet."""
    office.begin("a new host")
    assert office.run("the sample").returncode == exits.SUCCESS
    return office.contents()
