"""Hosts in files: what one interpreter does is what the next one finds, and failures are statuses."""

from __future__ import annotations

import os
import sqlite3
import stat
import subprocess
import sys
from pathlib import Path

import _libkestrel as k
import pytest

SWITCH = "dvs-prod"


def run(host: Path | str, code: str) -> str:
    """What an interpreter of its own prints that has its host in a file."""
    environment = {**os.environ, "KESTREL_HOST": str(host)}
    program = f"import _libkestrel as k\nSWITCH = {SWITCH!r}\n{code}"
    done = subprocess.run([sys.executable, "-c", program], env=environment, capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    assert done.stderr == ""
    return done.stdout.strip()


@pytest.fixture
def host(tmp_path: Path) -> Path:
    return tmp_path / "host"


def test_is_made_for_its_owner_alone(host: Path) -> None:
    former = os.umask(0)
    try:
        assert run(host, "print(k.VSDVS_SetMTU(SWITCH, 1600))") == "0"
    finally:
        os.umask(former)
    assert stat.S_IMODE(host.stat().st_mode) == 0o600


def test_what_one_interpreter_does_the_next_one_finds(host: Path) -> None:
    assert run(host, "print(k.VSDVS_AddDVPort(SWITCH, 'new', 1))") == "0"
    assert run(host, "print(k.VSDVS_DvPortIDToPortID(SWITCH, 'new')[0])") == "0"
    assert run(host, "print(k.VSDVS_AddDVPort(SWITCH, 'new', 1) == k.ZEL_EXISTS)") == "True"


def test_is_one_file_when_its_interpreters_are_gone(host: Path) -> None:
    run(host, "assert k.VSDVS_SetMTU(SWITCH, 1600) == 0")
    assert sorted(path.name for path in host.parent.iterdir()) == ["host"]


def test_two_interpreters_at_once_see_each_others_changes(host: Path) -> None:
    environment = {**os.environ, "KESTREL_HOST": str(host)}
    program = "import sys, _libkestrel as k\nfor line in sys.stdin:\n    print(eval(line), flush=True)\n"
    first, second = (
        subprocess.Popen(
            [sys.executable, "-c", program], env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
        )
        for _ in range(2)
    )

    def ask(which: subprocess.Popen[str], expression: str) -> str:
        assert which.stdin and which.stdout
        which.stdin.write(expression + "\n")
        which.stdin.flush()
        return which.stdout.readline().strip()

    with first, second:
        for number in range(20):
            writer, reader = (first, second) if number % 2 else (second, first)
            assert ask(writer, f"k.VSDVS_AddDVPort('{SWITCH}', 'port-{number}', 1)") == "0"
            assert ask(reader, f"k.VSDVS_DvPortIDToPortID('{SWITCH}', 'port-{number}')[0]") == "0"
            assert ask(reader, f"k.VSDVS_AddDVPort('{SWITCH}', 'port-{number}', 1) == k.ZEL_EXISTS") == "True"


def test_outlasts_an_interpreter_that_is_killed(host: Path) -> None:
    code = "import os\nassert k.VSDVS_AddDVPort(SWITCH, 'new', 1) == 0\nos.kill(os.getpid(), 9)"
    environment = {**os.environ, "KESTREL_HOST": str(host)}
    program = f"import _libkestrel as k\nSWITCH = {SWITCH!r}\n{code}"
    assert subprocess.run([sys.executable, "-c", program], env=environment, check=False).returncode == -9
    assert run(host, "print(k.VSDVS_AddDVPort(SWITCH, 'new', 1) == k.ZEL_EXISTS)") == "True"


def test_is_shared_with_a_fork(host: Path) -> None:
    code = (
        "import os\n"
        "assert k.VSDVS_AddDVPort(SWITCH, 'before', 1) == 0\n"
        "child = os.fork()\n"
        "name = 'parent' if child else 'child'\n"
        "assert k.VSDVS_AddDVPort(SWITCH, name, 1) == 0\n"
        "if child:\n"
        "    os.waitpid(child, 0)\n"
        "    print([k.VSDVS_DvPortIDToPortID(SWITCH, n)[0] for n in ('before', 'parent', 'child')])\n"
    )
    assert run(host, code) == "[0, 0, 0]"


def test_stays_where_it_was_named_when_the_script_goes_elsewhere(tmp_path: Path) -> None:
    code = (
        f"import os\nos.chdir({str(tmp_path)!r})\n"
        "assert k.VSDVS_AddDVPort(SWITCH, 'new', 1) == 0\n"
        "os.mkdir('elsewhere')\n"
        "os.chdir('elsewhere')\n"
        "assert k.VSDVS_AddDVPort(SWITCH, 'new', 1) == k.ZEL_EXISTS\n"
    )
    run("host", code)
    assert (tmp_path / "host").exists()


def test_can_be_read_by_people(host: Path) -> None:
    run(host, "assert k.VSDVS_AddDVPort(SWITCH, 'new', 1) == 0")
    with sqlite3.connect(host) as database:
        rows = database.execute(
            "SELECT alias, name FROM ports JOIN switches USING (switch, config) WHERE name = 'new' AND config = 'saved'"
        ).fetchall()
    database.close()
    assert rows == [(SWITCH, "new")]


def _directory(path: Path) -> None:
    path.mkdir()


def _text(path: Path) -> None:
    path.write_text("not a host\n")


def _other_database(path: Path) -> None:
    database = sqlite3.connect(path)
    database.execute("CREATE TABLE notes (note TEXT)")
    database.close()


def _later_version(path: Path) -> None:
    run(path, "assert k.VSDVS_SetMTU(SWITCH, 1600) == 0")
    database = sqlite3.connect(path)
    database.execute("PRAGMA user_version = 1000")
    database.close()


def _damaged(path: Path) -> None:
    run(path, "assert k.VSDVS_SetMTU(SWITCH, 1600) == 0")
    contents = bytearray(path.read_bytes())
    contents[4096:] = b"\xa5" * (len(contents) - 4096)
    path.write_bytes(contents)


@pytest.mark.parametrize(
    ("spoil", "status"),
    [
        (_directory, "ZEL_IS_A_DIRECTORY"),
        (_text, "ZEL_INVALID_TARGET"),
        (_other_database, "ZEL_INVALID_TARGET"),
        (_later_version, "ZEL_VERSION_MISMATCH_MAJOR"),
        (_damaged, "ZEL_INVALID_METADATA"),
    ],
)
def test_a_file_that_will_not_do_is_refused_and_left_alone(host: Path, spoil: object, status: str) -> None:
    assert callable(spoil)
    spoil(host)
    before = None if host.is_dir() else host.read_bytes()
    code = "print({hex(k.VSDVS_SetMTU(SWITCH, 1600)), hex(k.VSZEL_GetMACTable(SWITCH, 0)[0])})"
    assert run(host, code) == str({hex(getattr(k, status))})
    assert before == (None if host.is_dir() else host.read_bytes())
    assert [path.name for path in host.parent.iterdir()] == ["host"]


def test_a_folder_that_is_missing_has_its_status(host: Path) -> None:
    code = "print(k.VSDVS_SetMTU(SWITCH, 1600) == k.ZEL_NOT_A_DIRECTORY)"
    assert run(host / "missing" / "host", code) == "True"


def test_a_file_without_write_permission_can_be_read(host: Path) -> None:
    run(host, "assert k.VSDVS_AddDVPort(SWITCH, 'new', 1) == 0")
    host.chmod(0o400)
    code = "print(k.VSDVS_DvPortIDToPortID(SWITCH, 'new')[0], k.VSDVS_SetMTU(SWITCH, 1600) == k.ZEL_READ_ONLY)"
    assert run(host, code) == "0 True"


def test_a_file_that_another_keeps_is_busy(host: Path) -> None:
    run(host, "assert k.VSDVS_SetMTU(SWITCH, 1600) == 0")
    database = sqlite3.connect(host, isolation_level=None)
    database.execute("BEGIN IMMEDIATE")
    code = """
print(k.VSDVS_SetMTU(SWITCH, 1700) == k.ZEL_BUSY, end=" ")
status, table = k.VSZEL_GetMACTable(SWITCH, 0)
print(status, k.VSZEL_FreeMemory(table))
"""
    assert run(host, code) == "True 0 0"
    database.execute("ROLLBACK")
    database.close()


def test_a_capture_goes_on_when_another_changes_the_host(host: Path) -> None:
    code = """
import subprocess, sys
from libkestrel import lab
frame = bytes.fromhex("ffffffffffff 020000000001 0800") + bytes(46)
with lab.capture(SWITCH, "10", "in") as capture:
    lab.send(SWITCH, "10", frame)
    another = f"import _libkestrel as k; assert k.VSDVS_SetMTU({SWITCH!r}, 1700) == 0"
    subprocess.run([sys.executable, "-c", another], check=True)
    lab.send(SWITCH, "10", frame)
    print(len(capture))
"""
    assert run(host, code) == "2"


def test_a_path_may_have_any_characters(tmp_path: Path) -> None:
    path = tmp_path / "100%?#name=value&mode=memory"
    assert run(path, "print(k.VSDVS_SetMTU(SWITCH, 1600))") == "0"
    path.chmod(0o400)
    read = (
        "info = k.new_VSInfo(); k.VSZEL_GetVSInfo(SWITCH, info); print(k.VSInfo_mtu_get(info)); k.delete_VSInfo(info)"
    )
    assert run(path, read) == "1600"
    assert [each.name for each in tmp_path.iterdir()] == [path.name]


ENHANCED = """
from libkestrel import records
portset = {portset!r}
portsets = records.RTMIOCtlQuery(rtmPs=[{{"psName": portset, "ensSwitchMode": 2, "ensPsMode": 1}}])
modules = records.RTMModIOCtlQuery(psName=portset, rtmModId=[{{"ModID": 7}}, {{"ModID": -9}}])
port = k.VSDVS_DvPortIDToPortID(SWITCH, "10")[1]
def each(mode):
    steps = [lambda: k.VSZEL_RTMOp(portsets, mode), lambda: k.VSZEL_RTMModOp(modules, mode),
             lambda: k.VSZEL_RTMPortOp(5, port, mode == k.RTM_IOCCMD_ENS_ACTIVATE)]
    return [step() for step in (steps if mode == k.RTM_IOCCMD_ENS_ACTIVATE else steps[::-1])]
"""


def test_the_enhanced_datapath_is_there_for_the_next_one(host: Path) -> None:
    portset = run(host, "print(k.DVSAliasToPortsetName(SWITCH)[1])")
    code = ENHANCED.format(portset=portset)
    assert run(host, code + "print(each(k.RTM_IOCCMD_ENS_ACTIVATE))") == "[0, 0, 0]"
    assert run(host, code + "print(k.VSZEL_RTMOp(portsets, k.RTM_IOCCMD_ENS_ACTIVATE) == k.ZEL_IS_ENABLED)") == "True"
    assert run(host, code + "print(each(k.RTM_IOCCMD_ENS_DEACTIVATE))") == "[0, 0, 0]"
    assert (
        run(host, code + "print(k.VSZEL_RTMOp(portsets, k.RTM_IOCCMD_ENS_DEACTIVATE) == k.ZEL_IS_DISABLED)") == "True"
    )
