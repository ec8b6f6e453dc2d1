"""Running `kestrel`: in processes of their own, and in this one."""

from __future__ import annotations

import json
import os
import pty
import signal
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import pytest

COMMAND = [sys.executable, "-m", "libkestrel.cli"]


@dataclass(frozen=True)
class Answer:
    """What a command wrote, and how it ended."""

    code: int
    out: str
    err: str

    @property
    def data(self) -> Any:
        """The data of an answer in JSON."""
        return json.loads(self.out)["data"]


class Process:
    """Runs commands as processes, on one host file."""

    def __init__(self, path: Path) -> None:
        self.path = path

    def environment(self, **more: str) -> dict[str, str]:
        """What the processes find in their environment."""
        unset = ("XDG_STATE_HOME", "NO_COLOR", "FORCE_COLOR", "COLUMNS")
        inherited = {name: value for name, value in os.environ.items() if name not in unset}
        return inherited | {"KESTREL_HOST": str(self.path), "TERM": "xterm"} | more

    def start(self, *arguments: str, **details: Any) -> subprocess.Popen[str]:
        """Starts a command and does not wait for it."""
        return subprocess.Popen(
            [*COMMAND, *arguments],
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
            env=self.environment(),
            **details,
        )

    def __call__(self, *arguments: str, stdin: str = "", **environment: str) -> Answer:
        """Runs a command to its end."""
        done = subprocess.run(
            [*COMMAND, *arguments],
            capture_output=True,
            text=True,
            check=False,
            input=stdin,
            timeout=600,  # for what hangs; what is instrumented takes its time
            env=self.environment(**environment),
        )
        return Answer(done.returncode, done.stdout, done.stderr)


class InProcess:
    """Runs commands in the process of the tests, on the host that it has."""

    def __init__(self, path: Path, capture: pytest.CaptureFixture[str]) -> None:
        self.path, self._capture = path, capture

    def __call__(self, *arguments: str) -> Answer:
        """Runs `kestrel` with arguments."""
        from libkestrel.cli import app

        self._capture.readouterr()
        before = signal.getsignal(signal.SIGINT)  # which commands that have changed something ignore from then on
        code = app.run(["--host", str(self.path), *arguments])
        signal.signal(signal.SIGINT, before)
        written = self._capture.readouterr()
        return Answer(code, written.out, written.err)


def on_terminal(kestrel: Process, *arguments: str, typed: str = "", **environment: str) -> tuple[int, str]:
    """Runs a command on a terminal of its own: its exit code, and what appeared there."""
    leader, follower = pty.openpty()
    os.set_blocking(leader, True)
    details = {"COLUMNS": "140", "LINES": "40"} | environment
    with subprocess.Popen(
        [*COMMAND, *arguments], stdin=follower, stdout=follower, stderr=follower, env=kestrel.environment(**details)
    ) as running:
        os.close(follower)
        os.write(leader, typed.encode())
        seen = b""
        while True:
            try:
                part = os.read(leader, 4096)
            except OSError:  # the terminal's other side has gone
                break
            if not part:
                break
            seen += part
        code = running.wait()
    os.close(leader)
    return code, seen.decode().replace("\r\n", "\n")
