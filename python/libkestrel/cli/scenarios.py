"""The scenarios that come along, and loading of any."""

from __future__ import annotations

from pathlib import Path
from typing import TYPE_CHECKING

from libkestrel.cli.exits import FAILED, NOT_FOUND, CommandError

if TYPE_CHECKING:
    from libkestrel.cli.session import Session
    from libkestrel.lab.scenario import Scenario

_FIRST = "small-office"
"""What is offered first."""


def folder() -> Path:
    """Where the scenarios lie: in the installed package, or in a checkout among the examples."""
    package = Path(__file__).resolve().parents[1]
    installed = package / "scenarios"
    return installed if installed.is_dir() else package.parents[1] / "examples" / "scenarios"


def shipped() -> list[str]:
    """The names of the scenarios that come along, the simplest first."""
    names = sorted(path.stem for path in folder().glob("*.toml"))
    if not names:
        raise CommandError(f"no scenarios came along: {folder()} has none", FAILED)
    return sorted(names, key=lambda name: name != _FIRST)


def path_of(name: str) -> Path:
    """The file of a scenario: one that comes along, by its name, or a path."""
    if "/" not in name and not name.endswith(".toml") and name in shipped():
        return folder() / f"{name}.toml"
    path = Path(name)
    if not path.exists():
        known = ", ".join(shipped())
        raise CommandError(f"{name} is neither a file nor one of the scenarios {known}", NOT_FOUND)
    return path


def read(name: str) -> Scenario:
    """A scenario, checked."""
    from libkestrel.lab.scenario import read_scenario

    return read_scenario(path_of(name))


def described(name: str) -> str:
    """What a scenario shows, in one line."""
    return " ".join(read(name).description.split())


def load(session: Session, name: str) -> Scenario:
    """Puts a scenario in the place of the host; the whole of it, or nothing."""
    from libkestrel.cli import progress
    from libkestrel.lab.scenario import load_scenario

    path = path_of(name)
    read(name)  # what is wrong with it is told before a host file is made
    session.new_host()
    with progress.shown(f"loading {path.name}"):
        return load_scenario(path, transaction=session.all_or_nothing())
