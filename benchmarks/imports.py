"""Times imports in fresh interpreters: the module, its peers, and the parts of the module's import."""

from __future__ import annotations

import importlib.util
import json
import re
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

from benchmarks.figures import Table
from benchmarks.timing import Spread, spread

_PROBE = Path(__file__).resolve().parent / "import_probe.py"
_MODULE = "_libkestrel"

OWN_FILE = "the module's own file: mapping, relocation"
INITIALISATION = "initialisation: functions, types, constants"


@dataclass(frozen=True)
class ImportTimes:
    """Nanoseconds of importing each extension, the empty one first, and of the parts of the module's."""

    extensions: dict[str, Spread]
    parts: dict[str, Spread]


_EMPTY = "empty_extension"
_IMPORTS = {
    _EMPTY: "an empty extension",
    "same_names": "the module's names by hand, nothing behind them",
    _MODULE: "_libkestrel",
    "swig_builtin": "all of it by SWIG, -builtin",
    "swig_proxies": "all of it by SWIG",
    "tuple_protocol": "3 records: C, same protocol",
    "fastest_protocol": "2 records: C, fastest protocol",
    "pybind11_class": "2 records: pybind11",
    "nanobind_class": "2 records: nanobind",
    "cffi_api": "2 records: cffi, API mode",
    "ctypes": "ctypes itself, no record",
}
"""What is imported, and what it is."""


def measure(module: Path, built: Path, repetitions: int) -> ImportTimes:
    """Import the peers in the folder `built` and `module`, from one folder of links, so that all are found alike."""
    folder = built / "imports"
    folder.mkdir(exist_ok=True)
    for peer in (*built.glob("*.so"), *built.glob("*.py"), *_modules_of_cffi()):
        _link(folder / peer.name, peer)
    cache = folder / "__pycache__"
    _link(cache, built / "__pycache__")
    _link(folder / module.name, module)
    # The module finds its libraries from the place where it lies.
    _link(folder / "libkestrel", module.parent / "libkestrel")
    extensions: dict[str, list[float]] = {name: [] for name in _IMPORTS}
    libraries = _libraries(folder / module.name)
    titles = [Path(library).name for library in libraries] + [OWN_FILE, INITIALISATION]
    parts: dict[str, list[float]] = {title: [] for title in titles}
    for _ in range(repetitions):
        for name, samples in extensions.items():
            samples += _probe(folder, name)
        taken = _probe(folder, _MODULE, *libraries, str(folder / module.name))
        for title, nanoseconds in zip(titles, taken, strict=True):
            parts[title].append(nanoseconds)
    return ImportTimes(
        {_IMPORTS[name]: spread(samples) for name, samples in extensions.items()},
        {title: spread(samples) for title, samples in parts.items()},
    )


def tables(times: ImportTimes) -> list[Table]:
    """The figures as tables."""
    return [
        Table(name, title, heading, "µs", reference, {row: {"import": taken} for row, taken in rows.items()})
        for name, title, heading, reference, rows in (
            ("imports", "An import", "import of", _IMPORTS[_MODULE], times.extensions),
            ("import-parts", "What importing the module consists of", "part", INITIALISATION, times.parts),
        )
    ]


def _modules_of_cffi() -> list[Path]:
    found = importlib.util.find_spec("_cffi_backend")
    return [Path(found.origin)] if found and found.origin else []


def _link(link: Path, target: Path) -> None:
    if link.is_symlink():
        link.unlink()
    if target.exists() and not link.exists():
        link.symlink_to(target)


def _probe(folder: Path, *arguments: str) -> list[float]:
    # Alone: without the environment's settings, without site-packages, without writing bytecode.
    command = [sys.executable, "-I", "-S", "-B", str(_PROBE), str(folder), *arguments]
    taken: list[float] = json.loads(subprocess.run(command, check=True, capture_output=True, text=True).stdout)
    return taken


def _libraries(module: Path) -> list[str]:
    """List the libraries that the module brings into an interpreter, each after those it needs itself."""
    present = _needed(Path(sys.executable))
    return [path for name, path in reversed(_needed(module).items()) if name not in present]


def _needed(file: Path) -> dict[str, str]:
    """List all libraries that loading `file` loads, by name, in the loader's order."""
    text = subprocess.run(["ldd", str(file)], check=True, capture_output=True, text=True).stdout
    return {match[1]: match[2] for match in re.finditer(r"^\s*(\S+) => (\S+) \(", text, re.MULTILINE)}
