"""Every declared function with every kind of bad argument: a status that says what is wrong, or an exception of the
module's own rules; nothing changed; and the interpreter alive.

The calls are made in an interpreter of its own, so that a crash is that call's, on a host in a file, where what has
changed is seen from outside.
"""

from __future__ import annotations

import json
import os
import sqlite3
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

from support.functions import FUNCTIONS
from support.refusals import Case, cases

ROOT = Path(__file__).resolve().parents[2]
CASES = list(enumerate(cases()))
MODULES_OWN = {"TypeError", "OverflowError", "SystemError"}
"""Exceptions by which the module refuses what it cannot pass on."""


class Caller:
    """The interpreter that makes the calls, and the file that its host is in."""

    def __init__(self, host: Path) -> None:
        self._host = host
        self._begin()

    def _begin(self) -> None:
        for suffix in ("", "-wal", "-shm"):
            self._host.with_name(self._host.name + suffix).unlink(missing_ok=True)
        paths = [str(ROOT / folder) for folder in ("tools", "tests")]
        environment = os.environ | {"KESTREL_HOST": str(self._host)}
        environment["PYTHONPATH"] = os.pathsep.join([*paths, *filter(None, [os.environ.get("PYTHONPATH")])])
        command = [sys.executable, "-m", "support.refusals"]
        self._process = subprocess.Popen(
            command,
            env=environment,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            text=True,
        )
        assert self._answer() == {"ready": len(CASES)}
        self._database = sqlite3.connect(f"file:{self._host}?mode=ro", uri=True, isolation_level=None)
        self.look()

    def _answer(self) -> Any:
        assert self._process.stdout
        line = self._process.stdout.readline()
        return json.loads(line) if line else None

    def ask(self, request: str) -> Any:
        """The answer to a request; None when the interpreter has died of it, and a new one is there."""
        assert self._process.stdin
        self._process.stdin.write(request + "\n")
        self._process.stdin.flush()
        answer = self._answer()
        if answer is None:
            self.end()
            self._begin()
        return answer

    def _version(self) -> int:
        (version,) = self._database.execute("PRAGMA data_version").fetchone()
        assert isinstance(version, int)
        return version

    def _rows(self) -> dict[str, list[tuple[object, ...]]]:
        tables = [name for (name,) in self._database.execute("SELECT name FROM sqlite_schema WHERE type = 'table'")]
        return {name: self._database.execute(f"SELECT * FROM {name} ORDER BY 1, 2").fetchall() for name in tables}

    def look(self) -> None:
        """Takes note of what the host is now."""
        self._seen = self._version(), self._rows()

    def is_unchanged(self) -> bool:
        """Whether the host is what it was at the last look."""
        return self._version() == self._seen[0] or self._rows() == self._seen[1]

    def end(self) -> int:
        """Ends the interpreter and gives how it ended."""
        self._database.close()
        assert self._process.stdin and self._process.stdout
        self._process.stdin.close()
        self._process.stdout.close()
        return self._process.wait()


@pytest.fixture(scope="module")
def caller(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Caller]:
    made = Caller(tmp_path_factory.mktemp("refusals") / "host")
    yield made
    assert made.end() == 0


def problem(caller: Caller, number: int, case: Case) -> str | None:
    """What is wrong with how a call ended."""
    answer = caller.ask(str(number))
    if answer is None:
        return "the interpreter has died"
    ended, words = answer
    told = f"ended with {ended} ({words})"
    if case.expected and ended not in case.expected:
        return f"{told} and not with {' or '.join(sorted(case.expected))}"
    if ended == "ZEL_OK":
        caller.ask("restore")
        caller.look()
        return None
    if not caller.is_unchanged():
        caller.ask("restore")
        caller.look()
        return f"{told} and has changed something"
    if ended in MODULES_OWN or case.function.returns != "ZEL_ReturnStatus":
        return None
    if ended == "ZEL_FAILURE" or not ended.startswith("ZEL_") or words.startswith("Unknown"):
        return f"{told}, which says nothing"
    return None


@pytest.mark.parametrize("function", [pytest.param(function.name, id=function.name) for function in FUNCTIONS])
def test_bad_arguments_are_refused_and_change_nothing(function: str, caller: Caller) -> None:
    mine = [(number, case) for number, case in CASES if case.function.name == function]
    problems = {case.name: problem(caller, number, case) for number, case in mine}
    assert {name: found for name, found in problems.items() if found} == {}


_IN_USE = ("SwitchRemove", "SwitchDissociate")
_HOLDS_A_NIC = ("DestroyVSwitch", "RemoveSwitchUplinkPort", "ClearSwitchUplinkPorts", "SetSwitchUplinkPorts")
STOPPED_BY_THE_HOST = {
    **{f"DVSZEL_{name}": "ZEL_BUSY" for name in _IN_USE},
    **{f"VSDVS_{name}": "ZEL_BUSY" for name in _HOLDS_A_NIC},
    "VSDVS_ClearLSTeamingPolicy": "ZEL_BUSY",  # a port follows one
    "DVSZEL_SwitchAssociate": "ZEL_IS_CONNECTED",
    "VSDVS_AppendDVMirrorSessions": "ZEL_EXISTS",
    "VSZEL_SetPortMACTable": "ZEL_LIMIT_EXCEEDED",  # the port learns nothing
    "VSZEL_GetMcastFilterStats": "ZEL_NOT_FOUND",  # nobody has joined the group
    # Their lists, images and queries are empty.
    "VSZEL_SetRuntimeOptions": "ZEL_BAD_PARAM",
    "VSZEL_RTMOp": "ZEL_BAD_PARAM",
    "VSZEL_RTMModOp": "ZEL_BAD_PARAM",
    "DVSZEL_StateInit": "ZEL_BAD_PARAM",
    "DVSState_ConfigDeserialize": "ZEL_BAD_PARAM",
}
"""Functions that find the host in the way of their work, by how they end."""


def test_calls_without_a_bad_argument_do_their_work(caller: Caller) -> None:
    ends = {}
    for number, case in CASES:
        if case.place is None and case.function.returns == "ZEL_ReturnStatus":
            ended, _ = caller.ask(str(number))
            caller.ask("restore")
            if ended != "ZEL_OK":
                ends[case.name] = ended
    caller.look()
    assert ends == STOPPED_BY_THE_HOST
