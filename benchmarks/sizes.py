"""Sizes of the extension modules: stripped files, as they are shipped."""

from __future__ import annotations

import subprocess
import tempfile
from pathlib import Path

from benchmarks.figures import Table
from benchmarks.timing import Spread

_FILES = {
    "all of it by SWIG, -builtin": ("_swig_builtin", "swig_builtin.py"),
    "all of it by SWIG": ("_swig_proxies", "swig_proxies.py"),
    "3 records: C, same protocol": ("tuple_protocol",),
    "2 records: C, fastest protocol": ("fastest_protocol",),
    "2 records: pybind11": ("pybind11_class",),
    "2 records: nanobind": ("nanobind_class",),
    "2 records: cffi, API mode": ("cffi_api",),
}
_OURS = "_libkestrel"


def table(module: Path, built: Path) -> Table:
    """The bytes of each, with the Python source that belongs to it."""
    rows = {_OURS: _cells(module)}
    for title, names in _FILES.items():
        files = [_file(built, name) for name in names]
        rows[title] = _cells(*files)
    return Table(
        "sizes", "Files", "extension module", "kB", _OURS, rows, "Stripped. cffi and ctypes bring their own run time."
    )


def _file(folder: Path, name: str) -> Path:
    return folder / name if name.endswith(".py") else next(folder.glob(f"{name}.*.so"))


def _cells(*files: Path) -> dict[str, Spread]:
    size = float(sum(_stripped(file) for file in files))
    return {"bytes": Spread(size, size)}


def _stripped(file: Path) -> int:
    if file.suffix == ".py":
        return file.stat().st_size
    with tempfile.TemporaryDirectory() as folder:
        copy = Path(folder) / file.name
        subprocess.run(["strip", "-o", str(copy), str(file)], check=True)
        return copy.stat().st_size
