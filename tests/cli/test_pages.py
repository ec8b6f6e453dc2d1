"""What is derived from the command line: up to date, whole, and readable by what reads it."""

from __future__ import annotations

import os
import subprocess
from importlib import metadata
from pathlib import Path

import pytest

from commands import man_pages, pages, tree
from libkestrel.cli.app import NOUNS

ROOT = Path(__file__).resolve().parents[2]


@pytest.mark.parametrize("name", pages.PAGES)
def test_a_page_is_what_the_commands_say(name: str) -> None:
    assert (ROOT / name).read_text() == pages.PAGES[name](), "run `make reference`"


def test_every_command_has_its_place_on_the_page() -> None:
    page = (ROOT / "docs" / "commands.md").read_text()
    for entry in tree.leaves(tree.root()):
        assert f"\n{entry.usage}\n" in page


def typeset(*arguments: str) -> subprocess.CompletedProcess[str]:
    """Runs groff, without what is preloaded into the interpreter of these tests."""
    environment = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}
    command = ["groff", "-man", "-Tascii", *arguments]
    return subprocess.run(command, env=environment, capture_output=True, text=True, check=False)


def test_there_is_a_man_page_of_each_noun(tmp_path: Path) -> None:
    man_pages.main(tmp_path)
    assert {path.name for path in tmp_path.iterdir()} == {"kestrel.1", *(f"kestrel-{noun}.1" for noun in NOUNS)}
    for path in tmp_path.iterdir():
        done = typeset("-ww", str(path))
        assert (done.returncode, done.stderr) == (0, "")
    shown = typeset("-P-cbou", str(tmp_path / "kestrel-vlan.1")).stdout
    assert "kestrel vlan set [OPTIONS] SWITCH PORT [VLAN]" in shown
    assert "--trunk RANGES" in shown


def test_the_installed_command_is_this_one() -> None:
    scripts = metadata.entry_points(group="console_scripts", name="kestrel")
    assert {script.value for script in scripts} == {"libkestrel.cli.entry:main"}


def test_the_scenarios_stand_in_one_place() -> None:
    from libkestrel.cli import scenarios

    folder = ROOT / "examples" / "scenarios"
    assert sorted(scenarios.shipped()) == sorted(path.stem for path in folder.glob("*.toml"))
    for name in scenarios.shipped():
        assert scenarios.path_of(name).read_bytes() == (folder / f"{name}.toml").read_bytes()
