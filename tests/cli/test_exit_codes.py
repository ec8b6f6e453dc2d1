"""Exit codes, and the sentences on standard error."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
import time
from pathlib import Path

import _libkestrel as k
import pytest

from libkestrel import lab
from libkestrel.cli import exits
from support.prompt import COMMAND, InProcess, Process

REFUSALS = {
    "switch show nothing": (
        3,
        "switch nothing: find switch: The object does not exist (ZEL_NOT_FOUND, 0x0bad0003); there is dvs-office",
    ),
    "port show dvs-office 999": (3, "port 999 of switch dvs-office: find port: The object does not exist"),
    "mac show 02:00:00:00:00:55": (3, "no switch knows 02:00:00:00:00:55"),
    "uplink show dvs-office vmnic7": (3, "switch dvs-office has no uplink vmnic7"),
    "uplink set dvs-office vmnic7 --up": (3, "switch dvs-office: find uplink vmnic7"),
    "lag show dvs-office lag1": (3, "switch dvs-office has no link aggregation group lag1"),
    "mirror show dvs-office m1": (3, "switch dvs-office has no mirror session m1"),
    "option show NoSuchOption": (3, "runtime options of the host: find option NoSuchOption"),
    "option set NoSuchOption=1": (3, "runtime options of the host: find option NoSuchOption"),
    "prop show dvs-office com.example.none": (3, "switch dvs-office: read com.example.none"),
    "status explain not_fuond": (3, "similar names: ZEL_NOT_FOUND"),
    "lab run nowhere.toml": (3, "nowhere.toml is neither a file nor one of the scenarios small-office"),
    "lab pull vmnic7": (3, "NIC vmnic7"),
    "team set dvs-office --active nothing": (3, "switch dvs-office: set teaming policy"),
    "lab plug vmnic0": (4, "NIC vmnic0"),
    "prop set dvs-office com.talvex.vswitch.mtu --int 1": (4, "switch dvs-office: set com.talvex.vswitch.mtu"),
    "switch set dvs-office --max-ports 5": (5, "stored switch"),
    "switch delete dvs-office": (5, "switch dvs-office: destroy switch: The object is in use (ZEL_BUSY, 0x0bad0004)"),
    "port delete dvs-office 100": (5, "port 100 of switch dvs-office: remove port: The object is in use"),
    "uplink delete dvs-office uplink1": (5, "switch dvs-office: remove uplink port uplink1"),
    "frobnicate": (2, "there is no command 'frobnicate' (see kestrel --help)"),
    "swich list": (2, "there is no command 'swich'; did you mean switch or watch? (see kestrel --help)"),
    "switch frobnicate": (2, "No such command 'frobnicate' (see kestrel switch --help)"),
    "vlan set dvs-office 100": (2, "one of VLAN, --trunk and --private is given, not none"),
    "vlan set dvs-office 100 5 --private 6": (2, "one of VLAN, --trunk and --private is given, not VLAN and --private"),
    "vlan set dvs-office 100 4095": (2, "4095 is not in the range 0<=x<=4094"),
    "vlan set dvs-office 100 --trunk 5,x": (2, "'5,x' is no list of VLANs and ranges"),
    "mac show 02:00": (2, "'02:00' is no Ethernet address"),
    "switch set dvs-office": (2, "nothing is given to set"),
    "port set dvs-office 100": (2, "nothing is given to set"),
    "team set dvs-office": (2, "nothing is given to set"),
    "mac set": (2, "nothing is given to set"),
    "mirror create dvs-office 200 m1 --to vlan:ten": (2, "'vlan:ten' is no vlan"),
    "mirror create dvs-office 200 m1 --to ip:192.0.2": (2, "'ip:192.0.2' is no ip"),
    "team set dvs-office --balance best": (2, "'best' is none of none, ip-hash, source-mac"),
    "option set IGMPVersion": (2, "'IGMPVersion' is not of the form NAME=VALUE"),
    "option set IGMPVersion=three": (2, "option IGMPVersion is a number, not 'three'"),
    "option set IGMPVersion=-1": (2, "option IGMPVersion is a number of 32 bits, not -1"),
    "prop set dvs-office com.example.note a --int 5": (2, "one of TEXT, --hex and --int is given"),
    "prop list dvs-office --port 100 --host-part": (2, "one of --port and --host-part is given, not both"),
    "lab send dvs-office 100 --payload 0x1": (2, "'0x1' are no bytes in hexadecimal digits"),
    "lab capture dvs-office 100 -- capture dvs-office 100 -- clock": (2, "other than capture belongs behind --"),
    "lab send dvs-office 1 --to 02:00:00:00:00:01 --frame 00": (4, "frame into port 1 of dvs-office"),
    "state reset": (2, "has to be confirmed with --yes"),
    "switch list --jsno": (2, "--jsno"),
    "status explain 0x1000000000": (2, "0x1000000000 is no number of 32 bits"),
    "state export /nowhere/x": (3, "/nowhere/x: No such file or directory"),
    "state export /proc/x": (3, "/proc/x: "),
    "state import /nowhere.img": (3, "/nowhere.img: No such file or directory"),
    "state verify /nowhere.img": (3, "/nowhere.img: there is no such file"),
    "state import /": (1, "/: Is a directory"),
    "apply /nowhere.toml": (3, "/nowhere.toml: No such file or directory"),
    "apply /": (1, "/: Is a directory"),
    "lab play dvs-office 1 /nowhere.pcap": (3, "/nowhere.pcap"),
}


@pytest.mark.parametrize("line", REFUSALS)
def test_an_error_is_one_sentence_on_standard_error(here: InProcess, line: str) -> None:
    ending = REFUSALS[line]
    assert ending is not None
    answer = here(*line.split())
    assert (answer.code, answer.out) == (ending[0], "")
    assert answer.err.startswith("kestrel: ")
    assert answer.err.count("\n") == 1
    assert ending[1] in answer.err


def test_a_command_without_its_verb_is_told_the_verbs(kestrel: Process) -> None:
    for words in ([], ["switch"]):
        answer = kestrel(*words)
        assert (answer.code, answer.out) == (2, "")
        assert answer.err.startswith("Usage: kestrel")
        assert "Commands:" in answer.err


@pytest.mark.parametrize("json_flag", [[], ["--json"]])
def test_errors_are_the_same_in_json(here: InProcess, json_flag: list[str]) -> None:
    answer = here(*json_flag, "switch", "show", "nothing")
    assert (answer.code, answer.out) == (3, "")
    assert answer.err.startswith("kestrel: switch nothing: find switch")


def test_what_fails_has_changed_nothing(here: InProcess) -> None:
    assert here("port", "create", "dvs-office", "900", "--vlan", "7").code == 0
    with lab.fault("VSDVS_SetPortVLANPolicy", status=k.ZEL_BUSY):
        assert here("port", "create", "dvs-office", "901", "--vlan", "7").code == exits.BUSY
    ports = [row["port"] for row in here("port", "list", "dvs-office", "--json").data]
    assert "900" in ports
    assert "901" not in ports


@pytest.mark.parametrize(
    ("status", "code"),
    [
        (k.ZEL_NOT_FOUND, exits.NOT_FOUND),
        (k.ZEL_BUSY, exits.BUSY),
        (k.ZEL_TIMEOUT, exits.BUSY),
        (k.ZEL_NO_MEMORY, exits.REFUSED),
        (k.ZEL_READ_ONLY, exits.REFUSED),
        (k.ZEL_NO_SPACE, exits.REFUSED),
    ],
)
def test_the_platforms_statuses_have_their_exit_codes(here: InProcess, status: int, code: int) -> None:
    with lab.fault("VSDVS_SetMTU", status=status):
        assert here("switch", "set", "dvs-office", "--mtu", "9000").code == code
    assert here("status", "explain", hex(status), "--json").data["exit_code"] == code


def test_a_platform_that_dies_is_told_too(here: InProcess) -> None:
    with lab.fault("VSDVS_SetMTU", raises=MemoryError("no more")):
        answer = here("switch", "set", "dvs-office", "--mtu", "9000")
    assert (answer.code, answer.err) == (
        exits.FAILED,
        "kestrel: MemoryError: step 1: switch dvs-office: set MTU: no more\n",
    )


def test_the_codes_are_told_by_the_help_and_the_page(here: InProcess) -> None:
    told = here("--help").out
    page = (Path(__file__).resolve().parents[2] / "docs" / "exit-codes.md").read_text()
    for code, (name, meaning) in exits.CODES.items():
        assert f"{code} " in told
        assert name in told
        assert f"| {code} | {name} | {meaning} |" in page


def test_a_pipe_that_is_closed_early_is_no_error_of_ours(office: Process) -> None:
    for command in (
        "status list",
        "option list",
        "port list dvs-office",
        "switch list --json",
        "watch --interval 0.05",
    ):
        line = f"{' '.join(COMMAND)} {command} | head -1"
        done = subprocess.run(
            ["bash", "-c", f'{line}; echo "${{PIPESTATUS[0]}}"'],
            capture_output=True, text=True, check=False, env=office.environment(), timeout=60,
        )  # fmt: skip
        first, code = done.stdout.splitlines()
        assert first
        assert int(code) in (0, exits.BROKEN_PIPE)
        assert done.stderr == ""


@pytest.mark.parametrize("arguments", [("port", "list", "dvs-office"), ("state", "export", "-")])
def test_a_full_disk_under_the_output_is_an_error(office: Process, arguments: tuple[str, ...]) -> None:
    with Path("/dev/full").open("w") as full:
        done = subprocess.run(
            [*COMMAND, *arguments],
            stdout=full, stderr=subprocess.PIPE, text=True, check=False, env=office.environment(),
        )  # fmt: skip
    assert (done.returncode, done.stderr) == (1, "kestrel: No space left on device\n")


def test_output_that_is_closed_altogether_is_no_traceback(office: Process) -> None:
    done = subprocess.run(
        ["bash", "-c", f"{' '.join(COMMAND)} switch show dvs-office >&-"],
        stderr=subprocess.PIPE, text=True, check=False, env=office.environment(),
    )  # fmt: skip
    assert "Traceback" not in done.stderr


INTERRUPTED = """
import os, signal, sys
from libkestrel.host.plan import Plan
from libkestrel.cli.entry import main

def half(plan):
    for change in list(plan)[: len(plan) // 2]:
        change.make()
    os.kill(os.getpid(), signal.SIGINT)
    for change in list(plan)[len(plan) // 2 :]:
        change.make()

Plan._make_all = half
sys.argv = ["kestrel", *sys.argv[1:]]
main()
"""


def test_an_interruption_in_the_middle_leaves_nothing_half_done(office: Process, tmp_path: Path) -> None:
    wanted = tmp_path / "wanted.toml"
    wanted.write_text('[[switch]]\nname = "dvs-office"\n[[switch.port]]\nid = 900\ncount = 20\nvlan = 5\n')
    before = office("port", "list", "dvs-office").out
    done = subprocess.run(
        [sys.executable, "-c", INTERRUPTED, "apply", str(wanted)],
        capture_output=True, text=True, check=False, env=office.environment(),
    )  # fmt: skip
    assert (done.returncode, done.stdout) == (exits.INTERRUPTED, "")
    assert done.stderr == "kestrel: interrupted; nothing has changed\n"
    assert office("port", "list", "dvs-office").out == before
    assert office("apply", str(wanted)).out == "40 changes made\n"


def test_frames_that_are_interrupted_have_never_been_sent(office: Process) -> None:
    counters = ("watch", "dvs-office", "100", "--count", "1", "--json")
    before = office(*counters).data
    long = ("lab", "send", "dvs-office", "100", "--count", "1000000", "--every", "0.001")
    with office.start(*long) as running:
        while "_libkestrel" not in Path(f"/proc/{running.pid}/maps").read_text():
            assert running.poll() is None
            time.sleep(0.05)
        with pytest.raises(subprocess.TimeoutExpired):
            running.wait(timeout=1.5)  # in the middle, on any machine that takes longer for a million frames
        os.kill(running.pid, signal.SIGINT)
        assert running.wait(timeout=60) == exits.INTERRUPTED
        assert running.stderr is not None
        assert running.stderr.read() == "kestrel: interrupted; nothing has changed\n"
    assert office(*counters).data == before


def test_a_kill_in_the_middle_leaves_nothing_half_done(office: Process, tmp_path: Path) -> None:
    wanted = tmp_path / "wanted.toml"
    wanted.write_text('[[switch]]\nname = "dvs-office"\n[[switch.port]]\nid = 900\ncount = 20\nvlan = 5\n')
    before = office("port", "list", "dvs-office").out
    done = subprocess.run(
        [sys.executable, "-c", INTERRUPTED.replace("SIGINT", "SIGKILL"), "apply", str(wanted)],
        capture_output=True, text=True, check=False, env=office.environment(),
    )  # fmt: skip
    assert done.returncode == -signal.SIGKILL
    assert office("port", "list", "dvs-office").out == before


def test_watching_ends_with_an_interruption(office: Process) -> None:
    with office.start("watch", "--interval", "5", "--json") as running:
        assert running.stdout is not None
        assert running.stdout.readline().startswith('{"schema_version": 1, "kind": "counters"')
        os.kill(running.pid, signal.SIGINT)
        assert running.wait(timeout=20) == 0
