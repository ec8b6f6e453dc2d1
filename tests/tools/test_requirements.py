"""The lock: what every purpose needs, at versions that pyproject.toml allows, and all that those need in turn."""

from __future__ import annotations

import re
import subprocess
import tomllib
from importlib import metadata
from pathlib import Path

import pytest
from packaging.requirements import Requirement
from packaging.utils import canonicalize_name

ROOT = Path(__file__).resolve().parents[2]
PROJECT = tomllib.loads((ROOT / "pyproject.toml").read_text())
EXTRAS = PROJECT["project"]["optional-dependencies"]
PURPOSES = ["run", "build", *EXTRAS]


def listed(*arguments: str) -> str:
    command = [str(ROOT / "tools" / "requirements"), *arguments]
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def versions(lock: str) -> dict[str, str]:
    """The packages of a lock, or of a part of it, with their versions."""
    found = re.findall(r"^([a-z0-9-]+)==(\S+)", lock, re.MULTILINE)
    assert len(dict(found)) == len(found), "a package that is there twice"
    return dict(found)


@pytest.mark.parametrize("purpose", PURPOSES)
def test_what_a_purpose_asks_for_is_locked_at_a_version_that_it_allows(purpose: str) -> None:
    part = versions(listed(purpose))
    for line in listed(purpose, "--direct").splitlines():
        requirement = Requirement(line)
        assert requirement.specifier.contains(part[canonicalize_name(requirement.name)]), line


def test_every_entry_has_hashes_and_says_who_needs_it() -> None:
    lock = (ROOT / "requirements.lock").read_text()
    direct = {canonicalize_name(Requirement(line).name) for line in listed("--direct").splitlines()}
    entries = re.findall(r"^[a-z0-9].*\n(?: +.*\n)*", lock, re.MULTILINE)
    assert len(entries) == len(versions(lock)) > 50
    for entry in entries:
        assert "--hash=sha256:" in entry, entry
        assert "# via" in entry or entry.split("==")[0] in direct, entry


@pytest.mark.parametrize("purpose", ["run", "build", "test"])
def test_what_is_installed_here_needs_nothing_that_its_part_of_the_lock_lacks(purpose: str) -> None:
    part = versions(listed(purpose))
    assert part
    for name, version in part.items():
        assert metadata.version(name) == version, f"{name}: run `make`, which installs what the lock says"
        for line in metadata.requires(name) or []:
            needed = Requirement(line)
            if needed.marker is None or needed.marker.evaluate({"extra": ""}):
                assert canonicalize_name(needed.name) in part, f"{name} needs {line}"


def test_tools_are_pinned_and_what_runs_beside_others_has_bounds() -> None:
    tools = PROJECT["build-system"]["requires"] + [line for lines in EXTRAS.values() for line in lines]
    assert [line for line in tools if len(Requirement(line).specifier) != 1 or "==" not in line] == []
    for line in PROJECT["project"]["dependencies"]:
        assert {each.operator for each in Requirement(line).specifier} == {">=", "<"}
    assert len(listed("--oldest").split()) == len(PROJECT["project"]["dependencies"])


def test_every_pin_has_its_reason_and_stands_once_in_its_list() -> None:
    text = (ROOT / "pyproject.toml").read_text()
    pins = [line.strip() for line in text.splitlines() if re.match(r'\s+"[\w\[\]-]+[<>=]=?[\d.]', line)]
    assert len(pins) > 20
    assert [pin for pin in pins if "#" not in pin] == []
    for name, requirements in EXTRAS.items():
        names = [canonicalize_name(Requirement(line).name) for line in requirements]
        assert len(set(names)) == len(names), name


def test_a_package_that_the_lock_lacks_is_told(tmp_path: Path) -> None:
    (tmp_path / "tools").mkdir()
    script = tmp_path / "tools" / "requirements"
    script.write_text((ROOT / "tools" / "requirements").read_text())
    (tmp_path / "requirements.lock").write_text((ROOT / "requirements.lock").read_text())
    text = (ROOT / "pyproject.toml").read_text()
    (tmp_path / "pyproject.toml").write_text(text.replace('"click>=', '"unheard-of>=1",\n  "click>='))
    done = subprocess.run(["python3.11", str(script), "run"], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == "requirements.lock has no unheard-of: run `make lock`\n"


def test_the_version_is_written_nowhere_else() -> None:
    stated = re.search(r"project\(libkestrel VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())
    assert stated is not None
    # What tells of releases and of measurements names them; pins (behind "==") name versions of others.
    allowed = {"CMakeLists.txt", "CHANGELOG.md"}
    names = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, capture_output=True, text=True, check=True).stdout
    pattern = re.compile(rf"(?<![\d.=]){re.escape(stated[1])}(?![\d.]*\d)")
    copies = [
        name
        for name in names.split("\0")
        if name and name not in allowed and not name.startswith("benchmarks/") and (ROOT / name).is_file()
        if pattern.search((ROOT / name).read_bytes().decode(errors="replace"))
    ]
    assert copies == []
