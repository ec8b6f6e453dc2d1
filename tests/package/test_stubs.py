"""The type stubs: up to date, complete, and good for strict checking where the package is installed."""

from __future__ import annotations

import ast
import subprocess
import sys
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


def check(*files: str) -> str:
    """What mypy says, with the installed stubs and without this project's settings."""
    command = [sys.executable, "-m", "mypy", "--strict", "--config-file=", "--no-incremental", *files]
    done = subprocess.run(command, cwd=HERE, capture_output=True, text=True, check=False)
    return done.stdout + done.stderr


def test_a_program_that_uses_them_passes_strict_checking() -> None:
    assert check("program.py").startswith("Success")


def test_wrong_uses_are_found() -> None:
    found = check("mistakes.py")
    wanted = [
        i for i, line in enumerate((HERE / "mistakes.py").read_text().splitlines(), 1) if line.endswith("# wrong")
    ]
    lines = [int(line.split(":")[1]) for line in found.splitlines() if ": error:" in line]
    assert sorted(set(lines)) == wanted, found
