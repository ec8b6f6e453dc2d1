"""Completion: the scripts are scripts, and they complete names of the host."""

from __future__ import annotations

import shutil
import subprocess
import sys
from pathlib import Path

import pytest

from support.prompt import Process


def completions(kestrel: Process, line: str) -> list[str]:
    """What bash is told for a line whose last word is being typed."""
    words = line.split(" ")
    answer = kestrel(_KESTREL_COMPLETE="bash_complete", COMP_WORDS=line, COMP_CWORD=str(len(words) - 1))
    return [each.split(",", 1)[1] for each in answer.out.splitlines() if each]


@pytest.mark.parametrize(
    ("line", "told"),
    [
        ("kestrel sw", ["switch"]),
        ("kestrel switch s", ["show", "set"]),
        ("kestrel switch show ", ["dvs-office"]),
        ("kestrel vlan set dvs-office 30", ["300", "301", "302", "303"]),
        ("kestrel port show dvs-office r", ["router"]),
        ("kestrel port delete dvs-office 200 20", ["200", "201"]),
        ("kestrel uplink set dvs-office vm", ["vmnic0", "vmnic1"]),
        ("kestrel uplink delete dvs-office ", ["uplink1", "uplink2"]),
        ("kestrel option show IGMPV", ["IGMPV3MaxSrcIPNum", "IGMPVersion"]),
        ("kestrel lab pull vmnic1", ["vmnic1"]),
        ("kestrel team set dvs-office --balance source-", ["source-mac", "source-port"]),
        ("kestrel team set dvs-office --flags notify,ro", ["notify,rolling"]),
        ("kestrel lab run small", ["small-office"]),
        ("kestrel switch show nothing", []),
        ("kestrel port show nothing ", []),
    ],
)
def test_names_are_completed(office: Process, line: str, told: list[str]) -> None:
    assert sorted(completions(office, line)) == sorted(told)


def test_nothing_of_a_host_is_completed_where_there_is_none(kestrel: Process) -> None:
    assert completions(kestrel, "kestrel switch show ") == []
    assert not kestrel.path.exists()


SHELLS = {"bash": ["bash", "-n"], "zsh": ["zsh", "-n"], "fish": ["fish", "--no-execute"]}


@pytest.mark.parametrize("shell", SHELLS)
def test_a_script_is_one_of_its_shell(kestrel: Process, shell: str, tmp_path: Path) -> None:
    answer = kestrel("completion", shell)
    assert (answer.code, answer.err) == (0, "")
    assert "_KESTREL_COMPLETE" in answer.out
    script = tmp_path / f"kestrel.{shell}"
    script.write_text(answer.out)
    done = subprocess.run([*SHELLS[shell], str(script)], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (0, "")


def test_bash_completes(office: Process, tmp_path: Path) -> None:
    command = tmp_path / "kestrel"
    command.write_text(f'#!/bin/sh\nexec {sys.executable} -m libkestrel.cli "$@"\n')
    command.chmod(0o755)
    lines = [
        'eval "$(kestrel completion bash)"',
        "COMP_WORDS=(kestrel vlan set dvs-office 20); COMP_CWORD=4; COMP_LINE='kestrel vlan set dvs-office 20'",
        "_kestrel_completion kestrel; echo ${COMPREPLY[@]}",
    ]
    environment = office.environment()
    environment["PATH"] = f"{tmp_path}:{environment['PATH']}"
    done = subprocess.run(
        ["bash", "-c", "\n".join(lines)], env=environment, capture_output=True, text=True, check=False
    )
    assert done.stdout == "200 201\n"


INSTALLED = Path(__file__).resolve().parents[2] / "cmake" / "debian" / "completion"
TABULATORS = {
    "bash": [
        f"source {INSTALLED}/bash",
        "COMP_WORDS=(kestrel vlan set dvs-office 20) COMP_CWORD=4",
        "_kestrel_completion kestrel; printf '%s\\n' ${COMPREPLY[@]}",
    ],
    # Twice, since what is autoloaded does something else the first time.
    "zsh": [
        "fpath=($PWD $fpath); autoload -Uz compinit; compinit -u -D",
        'compadd() { [ $((++calls)) = 2 ] && print -l -- "${completions[@]}" }',
        "words=(kestrel vlan set dvs-office 20) CURRENT=5",
        "$_comps[kestrel]; ${functions[_kestrel_completion]:+_kestrel_completion}",
    ],
    "fish": [f"source {INSTALLED}/fish", "complete -C 'kestrel vlan set dvs-office 20'"],
}
"""What a shell does when somebody asks for a completion, with the files that the Debian package installs."""


@pytest.mark.parametrize("shell", TABULATORS)
def test_what_is_installed_for_a_shell_completes(office: Process, tmp_path: Path, shell: str) -> None:
    command = tmp_path / "kestrel"
    command.write_text(f'#!/bin/sh\nexec {sys.executable} -m libkestrel.cli "$@"\n')
    command.chmod(0o755)
    shutil.copy(INSTALLED / "zsh", tmp_path / "_kestrel")  # as it is called where zsh looks
    environment = office.environment(HOME=str(tmp_path))
    environment["PATH"] = f"{tmp_path}:{environment['PATH']}"
    done = subprocess.run(
        [shell, *(["-f"] if shell == "zsh" else []), "-c", "\n".join(TABULATORS[shell])],
        env=environment,
        cwd=tmp_path,
        capture_output=True,
        text=True,
        check=False,
    )
    assert (done.stdout, done.stderr) == ("200\n201\n", "")
