"""The type stubs: up to date, complete, and good for strict checking where the package is installed."""

from __future__ import annotations

import ast
import subprocess
import sys
import tomllib
from collections.abc import Callable
from pathlib import Path
from types import BuiltinFunctionType

import _libkestrel
import pytest

from headers import stubs
from libkestrel import enums, records

ROOT = Path(__file__).resolve().parents[2]
STUBS = stubs.stubs()
HERE = Path(__file__).parent / "typing"


@pytest.mark.parametrize("name", STUBS)
def test_a_stub_is_what_the_headers_say(name: str) -> None:
    assert (ROOT / "python" / name).read_text() == STUBS[name], "run `make stubs`"


def defined(stub: str) -> set[str]:
    names = set()
    for node in ast.parse(STUBS[stub]).body:
        if isinstance(node, (ast.FunctionDef, ast.ClassDef)):
            names.add(node.name)
        elif isinstance(node, ast.AnnAssign) and isinstance(node.target, ast.Name):
            names.add(node.target.id)
        elif isinstance(node, ast.ImportFrom):
            names |= {alias.asname for alias in node.names if alias.asname}
    return names - {"_r", "_Record", "_Table", "__all__", "_Entry"}


def test_the_flat_modules_stub_has_every_name() -> None:
    assert len([v for v in vars(_libkestrel).values() if isinstance(v, BuiltinFunctionType)]) == 1774
    published = {name for name in vars(_libkestrel) if not name.startswith("__")}
    assert defined("_libkestrel.pyi") == published | {"SwigPyObject", "swigvarlink"}


def test_the_packages_stubs_have_every_name() -> None:
    assert defined("libkestrel/records.pyi") == set(records.__all__)
    assert defined("libkestrel/enums.pyi") == set(enums.__all__)


Check = Callable[..., str]


@pytest.fixture(scope="module")
def check(tmp_path_factory: pytest.TempPathFactory) -> Check:
    """What mypy says, with the installed package and stubs; without this project's settings unless they are given."""
    cache = tmp_path_factory.mktemp("mypy")

    def run(*targets: str, config: Path | None = None) -> str:
        command = [sys.executable, "-m", "mypy", "--strict", f"--config-file={config or ''}", f"--cache-dir={cache}"]
        done = subprocess.run([*command, *targets], cwd=HERE, capture_output=True, text=True, check=False)
        return done.stdout + done.stderr

    return run


@pytest.fixture
def settings(tmp_path: Path) -> Path:
    """The project's settings for mypy, but with the package as it is installed instead of its sources."""
    given = tomllib.loads((ROOT / "pyproject.toml").read_text())["tool"]["mypy"]
    overrides = given.pop("overrides")
    given["mypy_path"] = [str(ROOT / path) for path in given["mypy_path"] if path != "python"]
    sections = [("mypy", given), *((f"mypy-{','.join(o.pop('module'))}", o) for o in overrides)]
    lines = []
    for name, values in sections:
        lines.append(f"[{name}]")
        lines += [f"{key} = {', '.join(v) if isinstance(v, list) else v}" for key, v in values.items()]
    file = tmp_path / "mypy.ini"
    file.write_text("\n".join(lines) + "\n")
    return file


def test_the_installed_package_passes_strict_checking(check: Check) -> None:
    assert check("-p", "libkestrel").startswith("Success")


def test_the_examples_pass_strict_checking(check: Check) -> None:
    examples = [str(path) for path in sorted((ROOT / "examples").rglob("*.py"))]
    assert len(examples) > 10
    assert check(*examples).startswith("Success")


def test_the_packages_tests_pass_strict_checking(check: Check, settings: Path) -> None:
    tests = [str(path) for path in sorted(Path(__file__).parent.glob("*.py"))]
    assert check(*tests, config=settings).startswith("Success")


def test_a_program_that_uses_them_passes_strict_checking(check: Check) -> None:
    assert check("program.py").startswith("Success")


def test_wrong_uses_are_found(check: Check) -> None:
    found = check("mistakes.py")
    wanted = [
        i for i, line in enumerate((HERE / "mistakes.py").read_text().splitlines(), 1) if line.endswith("# wrong")
    ]
    lines = [int(line.split(":")[1]) for line in found.splitlines() if ": error:" in line]
    assert sorted(set(lines)) == wanted, found
