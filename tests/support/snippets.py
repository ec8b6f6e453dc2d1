"""Runs the blocks of a page as a reader would: in a folder and with a home of the page's own, in order."""

from __future__ import annotations

import base64
import json
import os
import subprocess
import sys
import threading
import tomllib
from collections.abc import Mapping, Sequence
from pathlib import Path

from support.pages import ROOT, Block, commands, fits

SECONDS = 60
"""The longest that a block may take."""

_MARK = "\x01"
_AFTER_COMMAND = f'kestrel_status=$?; printf \'\\n{_MARK}%s\\n\' "$kestrel_status"; (exit "$kestrel_status")\n'
"""Lets bash say that a command is done, and how it ended. The next command finds that in $? too."""

_PYTHON = f"""
import json, linecache, sys, traceback
names = {{"__name__": "__main__"}}
for line in sys.stdin:
    where, text = json.loads(line)
    linecache.cache[where] = (len(text), None, text.splitlines(True), where)
    status = 0
    try:
        exec(compile(text, where, "exec", dont_inherit=True), names)
    except BaseException:
        traceback.print_exc(file=sys.stdout)
        status = 1
    print("\\n{_MARK}%d" % status, flush=True)
"""


class Interpreter:
    """A process that takes requests and says after each how it went."""

    def __init__(self, command: Sequence[str], folder: Path, environment: Mapping[str, str]) -> None:
        self._process = subprocess.Popen(
            command,
            cwd=folder,
            env=dict(environment),
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            encoding="utf-8",
        )

    def ask(self, request: str) -> tuple[str, int]:
        """What a request prints, and the status it ends with; AssertionError where the process ends or hangs."""
        assert self._process.stdin is not None
        assert self._process.stdout is not None
        self._process.stdin.write(request)
        self._process.stdin.flush()
        alarm = threading.Timer(SECONDS, self._process.kill)
        alarm.start()
        told: list[str] = []
        try:
            for line in self._process.stdout:
                if line.startswith(_MARK):
                    return "".join(told).removesuffix("\n"), int(line[1:])
                told.append(line)
        finally:
            alarm.cancel()
        raise AssertionError(f"ended or took too long:\n{request}\n{''.join(told)}")

    def end(self) -> None:
        """Ends the process."""
        self._process.kill()
        self._process.communicate()


class Reader:
    """Follows a page, with a shell and, while there is Python to run, an interpreter."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder / "here"
        self.folder.mkdir()
        for name in ("examples", "include"):
            (self.folder / name).symlink_to(ROOT / name)
        (folder / "home").mkdir()
        environment = _environment(folder)
        self._shell = Interpreter(["bash", "--norc", "--noprofile"], self.folder, environment)
        self._python: Interpreter | None = None
        self._python_environment: dict[str, str] = {}

    def end(self) -> None:
        """Ends the processes."""
        self._shell.end()
        if self._python is not None:
            self._python.end()

    def follow(self, block: Block) -> None:
        """Does what a block says. AssertionError where it fails or prints something else than shown."""
        if block.file is not None:
            (self.folder / block.file).write_text(block.text)
        elif block.language == "console":
            self._type(block)
        elif block.language == "sh":
            told, status = self.run(f"set -e\n{block.text}\nset +e")
            _judge(block, block.text, told, status, block.output)
        elif block.language == "python":
            told, status = self._interpreter().ask(json.dumps([block.where, block.text]) + "\n")
            _judge(block, block.text, told, status, block.output)
        elif block.language == "toml":
            tomllib.loads(block.text)
        else:
            raise AssertionError(
                f"{block.where}: nobody knows how to run {block.language or 'a block without language'}"
            )

    def _type(self, block: Block) -> None:
        typed = commands(block.text)
        for command, following in zip(typed, [*typed[1:], None], strict=True):
            told, status = self.run(command.text)
            is_shown = following is not None and following.text == "echo $?"
            _judge(block, command.text, told, 0 if is_shown else status, command.output)

    def run(self, command: str) -> tuple[str, int]:
        """Runs a command in the page's shell."""
        return self._shell.ask(f"{{ {command}\n}} </dev/null\n{_AFTER_COMMAND}")

    def _interpreter(self) -> Interpreter:
        """The interpreter of the page's Python blocks; a new one where the shell's variables have changed since."""
        told, _status = self.run("env -0 | base64 --wrap=0")
        pairs = base64.b64decode(told).decode().rstrip("\0").split("\0")
        environment = dict(pair.split("=", 1) for pair in pairs)
        environment.pop("_", None)
        if self._python is None or environment != self._python_environment:
            if self._python is not None:
                self._python.end()
            folder = Path(environment["PWD"])
            self._python = Interpreter([sys.executable, "-W", "error", "-c", _PYTHON], folder, environment)
            self._python_environment = environment
        return self._python


def _environment(folder: Path) -> dict[str, str]:
    """The environment of somebody who has installed the package and nothing else of it."""
    kept = {name: os.environ[name] for name in ("PYTHONPATH", "PYTHONDONTWRITEBYTECODE") if name in os.environ}
    programs = Path(sys.executable).parent
    path = f"{programs}:/usr/local/bin:/usr/bin:/bin"
    if not (programs / "kestrel").exists():
        # The package runs from its sources.
        shim = folder / "programs" / "kestrel"
        shim.parent.mkdir()
        shim.write_text(f'#!/bin/sh\nexec {sys.executable} -m libkestrel.cli "$@"\n')
        shim.chmod(0o755)
        path = f"{shim.parent}:{path}"
    return kept | {"PATH": path, "HOME": str(folder / "home"), "LANG": "C.UTF-8", "PYTHONWARNINGS": "error"}


def _judge(block: Block, request: str, told: str, status: int, shown: str | None) -> None:
    assert status == 0, f"{block.where}: status {status} of\n{request}\n{told}"
    if shown is not None:
        assert fits(shown, told), f"{block.where}: shown for\n{request}\nis\n{shown}\nand told is\n{told}"
