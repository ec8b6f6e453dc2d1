"""What is released, from where: the last commit, its version and its time."""

from __future__ import annotations

import os
import platform
import re
import shutil
import subprocess
from collections.abc import Mapping
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DIST = ROOT / "dist"
"""Where what is released goes."""
BUILD = ROOT / "build" / "release"
"""Where it is made."""
PROCESSORS = ("x86_64", "aarch64")
"""Those that wheels are made for, as Linux names them."""
NATIVE = platform.machine()


class ReleaseError(Exception):
    """Why there is no release; the message is for people."""


def run(*command: str | Path, folder: Path = ROOT, environment: Mapping[str, str] | None = None) -> str:
    """Runs a command to its end: its output. An error has the end of it all in its message."""
    done = subprocess.run(
        [str(word) for word in command],
        cwd=folder,
        env=None if environment is None else os.environ | environment,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        errors="replace",
        check=False,
        umask=0o022,  # what is made can be read by all, whoever makes it
    )
    if done.returncode != 0:
        end = "\n".join(done.stdout.splitlines()[-40:])
        raise ReleaseError(f"{' '.join(map(str, command))} ended with {done.returncode}:\n{end}")
    return done.stdout


def version() -> str:
    """The version, from the one place where it stands."""
    found = re.search(r"project\(libkestrel VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"))
    if found is None:
        raise ReleaseError("CMakeLists.txt has no version")
    return found[1]


def commit_time() -> int:
    """When the last commit was made, in seconds since 1970: artefacts have it in place of the time of their making."""
    return int(run("git", "log", "-1", "--format=%ct"))


def uncommitted() -> list[str]:
    """Files that differ from the last commit."""
    return run("git", "status", "--porcelain").splitlines()


def export(folder: Path) -> Path:
    """Puts the last commit's files into a folder, which is emptied first: the folder."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    archive = folder.with_suffix(".tar")
    run("git", "archive", "--output", archive, "HEAD")
    run("tar", "--extract", "--no-same-permissions", "--file", archive, "--directory", folder)
    archive.unlink()
    return folder


def wheel_for(processor: str) -> Path:
    """The wheel of a processor, of this version, in DIST."""
    found = sorted(DIST.glob(f"libkestrel-{version()}-*_{processor}.whl"))
    if len(found) != 1:
        raise ReleaseError(f"{DIST} has {len(found)} wheels of version {version()} for {processor}: run `make wheels`")
    return found[0]
