"""Builds the peers: the CMake project in peers/, into build/benchmarks."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import sys
from pathlib import Path
from types import ModuleType

_SOURCE = Path(__file__).resolve().parent / "peers"
_BUILD = Path(__file__).resolve().parents[1] / "build" / "benchmarks"


def peers(module: ModuleType) -> Path:
    """Build all peers and give the folder with their extension modules; `module` is what is measured.

    Ends the program with the tool's own words if something cannot be built.
    """
    _BUILD.mkdir(parents=True, exist_ok=True)
    names = _BUILD / "published_names.inc"
    text = _published_names(module)
    if not names.exists() or names.read_text() != text:
        names.write_text(text)
    found = {
        name: _run(f"Finding {name}", sys.executable, "-m", name, option).strip()
        for name, option in (("pybind11", "--cmakedir"), ("nanobind", "--cmake_dir"))
    }
    _run(
        "Configuring the peers",
        *(_tool("cmake"), "-S", str(_SOURCE), "-B", str(_BUILD), "-G", "Ninja"),
        f"-DCMAKE_MAKE_PROGRAM={_tool('ninja')}",
        f"-DPython_EXECUTABLE={sys.executable}",
        *(f"-D{name}_DIR={folder}" for name, folder in found.items()),
        f"-DSWIG_EXECUTABLE={_tool('swig')}",
        f"-DKESTREL_LIBRARIES={Path(str(module.__file__)).parent / 'libkestrel' / 'lib'}",
        f"-DKESTREL_PUBLISHED_NAMES={names}",
    )
    _run("Building the peers", _tool("cmake"), "--build", str(_BUILD))
    return _BUILD


def _published_names(module: ModuleType) -> str:
    """Write a row for C's preprocessor for each function and constant of `module`."""
    rows = []
    for name, value in vars(module).items():
        if name.startswith("__"):
            continue
        if callable(value):
            rows.append(f"FUNCTION({name})")
        elif isinstance(value, int):
            rows.append(f"INTEGER({name}, {value}LL)")
        elif isinstance(value, str):
            rows.append(f"TEXT({name}, {json.dumps(value)})")
    return "\n".join(rows) + "\n"


def _tool(name: str) -> str:
    """Find a program of the environment that runs this, or else of the machine."""
    path = os.pathsep.join([str(Path(sys.executable).parent), os.environ.get("PATH", os.defpath)])
    found = shutil.which(name, path=path)
    if found is None:
        sys.exit(f"{name} is missing: `make bench` installs what the benchmark needs")
    return found


def _run(purpose: str, *command: str) -> str:
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    if done.returncode != 0:
        sys.exit(f"{done.stdout}\n{purpose} failed: {' '.join(command)}")
    return done.stdout
