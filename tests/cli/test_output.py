"""What is written: plain for pipes, with colours on terminals; and the quick answer, which is as the slow one."""

from __future__ import annotations

import contextlib
import io
import os
import subprocess
import sys
import time
from pathlib import Path

import _libkestrel as k
import pytest

from libkestrel import errors, lab
from libkestrel.cli import app, exits, output, places, progress, quick, scenarios
from support.prompt import InProcess, Process, on_terminal


def test_a_pipe_gets_plain_aligned_lines(office: Process) -> None:
    lines = office("uplink", "list").out.splitlines()
    assert lines == [
        "SWITCH      UPLINK   PORT  NIC     LINK  LACP  LAG",
        "dvs-office  uplink1  0     vmnic0  up    -     -",
        "dvs-office  uplink2  1     vmnic1  up    -     -",
    ]


@pytest.mark.parametrize("arguments", [["--no-headings", "uplink", "list"], ["uplink", "list", "--no-headings"]])
def test_headings_can_be_left_out(office: Process, arguments: list[str]) -> None:
    assert office(*arguments).out.splitlines() == [
        "dvs-office  uplink1  0  vmnic0  up  -  -",
        "dvs-office  uplink2  1  vmnic1  up  -  -",
    ]


def test_a_terminal_gets_colours_unless_it_wants_none(office: Process) -> None:
    code, seen = on_terminal(office, "uplink", "list")
    assert code == 0
    assert "\x1b[32mup" in seen
    code, seen = on_terminal(office, "uplink", "list", NO_COLOR="1")
    assert code == 0
    assert "\x1b[3" not in seen
    code, seen = on_terminal(office, "switch", "show", "dvs-office")
    assert "uplink1, uplink2" in seen


def test_a_narrow_terminal_breaks_lines_and_no_cells(office: Process) -> None:
    code, seen = on_terminal(office, "port", "list", "dvs-office", COLUMNS="40", NO_COLOR="1")
    assert code == 0
    assert "  desk-1.eth0   02:4b:10:00:00:01  no" in seen


def test_a_terminal_gets_nothing_where_there_is_nothing(office: Process) -> None:
    assert on_terminal(office, "lag", "list", "--no-headings") == (0, "")


def test_watching_on_a_terminal_is_in_place(office: Process) -> None:
    code, seen = on_terminal(office, "watch", "--count", "2", "--interval", "0.05")
    assert code == 0
    assert "desk-1.eth0" in seen
    assert "\x1b[" in seen


def test_names_cannot_steer_the_terminal(here: InProcess) -> None:
    assert here("port", "set", "dvs-office", "100", "--alias", "red\x1b[31m\nline").code == 0
    assert "alias           red\\x1b[31m\\x0aline\n" in here("port", "show", "dvs-office", "100").out
    assert here("port", "show", "dvs-office", "100", "--json").data["alias"] == "red\x1b[31m\nline"


def test_lines_are_aligned_to_the_widest_cell() -> None:
    assert output.aligned(["A", "NUMBER"], [["long one", "5"], ["b", "10"]], [False, True]) == [
        "A         NUMBER",
        "long one       5",
        "b             10",
    ]
    assert output.aligned([], [], [False]) == []


# ---- The quick answer ----


def test_the_quick_answer_is_the_slow_one(office: Process) -> None:
    assert office("switch", "create", 'sw "\u00e9"', "--id", "tab\there").code == 0
    quick = office("switch", "list", "--json")
    slow = office("--no-headings", "switch", "list", "--json")
    assert (quick.code, quick.err) == (0, "")
    assert quick.out == slow.out
    assert office("--json", "switch", "list") == quick
    assert office("--host", str(office.path), "switch", "list", "--json", KESTREL_HOST="/nowhere") == quick


LOADED = """
import sys
from libkestrel.cli.entry import main
sys.argv = ["kestrel", "switch", "list", "--json"]
main()
heavy = {"click", "rich", "libkestrel.host", "dataclasses", "typing", "inspect", "json", "re"} & set(sys.modules)
print(sorted(heavy), file=sys.stderr)
"""


def test_the_quick_answer_loads_little(office: Process) -> None:
    done = subprocess.run(
        [sys.executable, "-S", "-c", LOADED],
        capture_output=True, text=True, check=True,
        env=office.environment(PYTHONPATH=os.pathsep.join(sys.path)),
    )  # fmt: skip
    assert done.stderr == "[]\n"


def test_what_the_quick_answer_cannot_tell_is_told_the_slow_way(kestrel: Process) -> None:
    missing = kestrel("switch", "list", "--json")
    assert (missing.code, missing.out) == (3, "")
    kestrel.path.parent.mkdir()
    kestrel.path.write_bytes(b"this is no host file, and long enough to be read as something" * 20)
    damaged = kestrel("switch", "list", "--json")
    assert (damaged.code, damaged.out) == (4, "")
    assert damaged.err.startswith("kestrel: host: list switches: ")


@pytest.mark.parametrize(
    ("function", "at", "status", "error"),
    [
        ("VSZEL_GetSwitches", 1, k.ZEL_BUSY, errors.NoMemory),  # the list that it fills says no more
        ("VSZEL_GetVSInfo", 1, k.ZEL_BUSY, errors.Busy),
        ("VSZEL_GetVSInfo", 2, k.ZEL_BUSY, errors.Busy),
    ],
)
def test_the_quick_answer_is_whole_or_none(
    here: InProcess, function: str, at: int, status: int, error: type[Exception]
) -> None:
    assert here("switch", "list").code == 0
    with lab.fault(function, status=status, at=at), pytest.raises(error):
        quick.switches()


def test_a_switch_that_goes_while_they_are_listed_is_left_out(here: InProcess) -> None:
    assert here("switch", "create", "dvs-second").code == 0
    assert [row["name"] for row in quick.switches()] == ["dvs-office", "dvs-second"]
    with lab.fault("VSZEL_GetVSInfo", status=k.ZEL_NOT_FOUND, at=2):
        assert [row["name"] for row in quick.switches()] == ["dvs-second"]


def test_a_port_that_goes_while_it_is_watched_has_passed_nothing(here: InProcess) -> None:
    watched = ("watch", "dvs-office", "100", "--count", "1", "--json")
    assert here("lab", "send", "dvs-office", "100").code == 0
    assert here(*watched).data[0]["in_frames"] > 0
    with lab.fault("VSDVS_GetPortProp", status=k.ZEL_NOT_FOUND, times=lab.ALWAYS):
        assert here(*watched).data[0]["in_frames"] == 0
    with lab.fault("VSDVS_GetPortProp", status=k.ZEL_BUSY, times=lab.ALWAYS):
        assert here(*watched).code == exits.BUSY


# ---- Where the host lies ----


def test_the_host_file_is_the_one_given_or_that_of_the_environment_or_the_users_own(
    monkeypatch: pytest.MonkeyPatch, tmp_path: Path
) -> None:
    monkeypatch.setenv("KESTREL_HOST", "/a/host")
    assert places.host_file("/b/host") == "/b/host"
    assert places.host_file(None) == "/a/host"
    monkeypatch.delenv("KESTREL_HOST")
    monkeypatch.setenv("XDG_STATE_HOME", str(tmp_path))
    assert places.host_file(None) == f"{tmp_path}/kestrel/host.kestrel"
    monkeypatch.setenv("XDG_STATE_HOME", "relative")
    monkeypatch.setenv("HOME", "/home/someone")
    assert places.host_file(None) == "/home/someone/.local/state/kestrel/host.kestrel"


def test_a_host_in_the_users_own_place(kestrel: Process, tmp_path: Path) -> None:
    own = {"KESTREL_HOST": "", "XDG_STATE_HOME": str(tmp_path / "own")}
    assert kestrel("lab", "run", "small-office", **own).code == 0
    assert (tmp_path / "own" / "kestrel" / "host.kestrel").exists()
    assert "dvs-office" in kestrel("switch", "list", "--json", **own).out


# ---- The first run ----


def test_a_first_run_without_a_terminal_says_how_to_begin(kestrel: Process) -> None:
    answer = kestrel("switch", "list")
    assert (answer.code, answer.out) == (3, "")
    assert answer.err == (
        f"kestrel: there is no host at {kestrel.path} yet: `kestrel lab run small-office` makes one; "
        "`kestrel lab scenarios` tells what there is\n"
    )
    assert not kestrel.path.exists()
    assert kestrel("lab", "scenarios").code == 0
    assert kestrel("info").code == 0


def test_a_first_run_on_a_terminal_offers_scenarios(kestrel: Process) -> None:
    code, seen = on_terminal(kestrel, "switch", "list", typed="\n")
    assert code == 0
    assert "An active and a standby uplink" in seen
    assert "dvs-office" in seen
    assert kestrel("switch", "list", "--json").data[0]["name"] == "dvs-office"


def test_a_first_run_on_a_terminal_can_be_declined(kestrel: Process) -> None:
    code, seen = on_terminal(kestrel, "switch", "list", typed="none\n")
    assert code == 3
    assert "there is no host yet" in seen
    assert not kestrel.path.exists()


def test_a_scenario_that_is_wrong_makes_no_host(kestrel: Process, tmp_path: Path) -> None:
    wrong = tmp_path / "wrong.toml"
    wrong.write_text("colour = 1\n[[nic]]\n")
    answer = kestrel("lab", "run", str(wrong))
    assert answer.code == 2
    assert "colour: unknown key" in answer.err
    assert "nic[0].name: is missing" in answer.err
    assert not kestrel.path.exists()


def test_an_installation_without_scenarios_says_so(
    here: InProcess, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(scenarios, "folder", lambda: tmp_path)
    answer = here("lab", "scenarios")
    assert (answer.code, answer.err) == (1, f"kestrel: no scenarios came along: {tmp_path} has none\n")


# ---- Elsewhere ----


def test_output_may_be_a_text_in_memory(here: InProcess) -> None:
    memory = io.StringIO()
    with contextlib.redirect_stdout(memory):
        assert app.run(["--host", str(here.path), "uplink", "list", "--no-headings"]) == 0
    assert memory.getvalue().startswith("dvs-office  uplink1")


def test_for_those_who_mend_us_errors_come_with_their_traceback(office: Process) -> None:
    answer = office("switch", "show", "nothing", KESTREL_DEBUG="1")
    assert answer.err.startswith("Traceback (most recent call last):\n")
    assert "libkestrel.errors.NotFound: switch nothing: find switch" in answer.err


# ---- Progress ----


def test_what_takes_long_is_told_on_a_terminal_only(office: Process) -> None:
    long = ("lab", "send", "dvs-office", "100", "--count", "100000")
    assert office(*long).err == ""
    code, seen = on_terminal(office, *long)
    assert code == 0
    assert "100000 frames sent" in seen


class Terminal(io.StringIO):
    def isatty(self) -> bool:
        return True


def test_progress_is_a_line_that_goes_away_again(monkeypatch: pytest.MonkeyPatch) -> None:
    terminal = Terminal()
    monkeypatch.setattr(sys, "stderr", terminal)
    monkeypatch.setattr(progress, "_PATIENCE", 0.01)
    with progress.shown("counting"):
        while "counting: 0 s" not in terminal.getvalue():
            time.sleep(0.01)
    assert terminal.getvalue().endswith("\r\x1b[K")
    terminal.truncate(0)
    with progress.shown("at once"):
        pass
    assert terminal.getvalue() == ""
    pipe = io.StringIO()
    monkeypatch.setattr(sys, "stderr", pipe)
    with progress.shown("counting"):
        time.sleep(0.05)
    assert pipe.getvalue() == ""
