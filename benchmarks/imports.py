"""Times imports in fresh interpreters: the module, its peers, and the parts of the module's import."""

from __future__ import annotations

import json
import re
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

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


def measure(module: Path, folder: Path, repetitions: int) -> ImportTimes:
    """Import what lies in `folder`, among it a link to `module`, so that all are found by the same steps."""
    _link(folder / module.name, module)
    # The module finds its libraries from the place where it lies.
    _link(folder / "libkestrel", module.parent / "libkestrel")
    extensions: dict[str, list[float]] = {"empty_extension": [], "same_names": [], _MODULE: []}
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
        {name: spread(samples) for name, samples in extensions.items()},
        {title: spread(samples) for title, samples in parts.items()},
    )


def _link(link: Path, target: Path) -> None:
    if link.is_symlink():
        link.unlink()
    if target.exists():
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
