"""Which libraries stand behind the flat module in this process."""

from __future__ import annotations

import platform
import sys
from dataclasses import dataclass
from importlib import metadata
from pathlib import Path

import _libkestrel

_SONAMES = ("libkestrel.so", "libpraxa.so", "libmorrow.so")


@dataclass(frozen=True)
class Library:
    """A platform library as it is loaded: its soname and the file it came from."""

    soname: str
    """The name that the loader knows it by."""
    path: Path
    """The file."""


@dataclass(frozen=True)
class PlatformInfo:
    """What scripts in this process run on."""

    version: str
    """Version of this distribution, "unknown" where it is not installed."""
    module: Path
    """The file of the flat module."""
    libraries: tuple[Library, ...]
    """The three platform libraries."""
    embedded: bool
    """Whether the libraries are the embedded host that comes with this package."""
    interpreter: str
    """The interpreter's name and version."""
    machine: str
    """The processor, as the kernel names it."""


def _loaded_libraries() -> tuple[Library, ...]:
    """The files behind the platform's sonames, from the kernel's map of this process."""
    files = {}
    for line in Path("/proc/self/maps").read_text(encoding="utf-8", errors="surrogateescape").splitlines():
        fields = line.split(maxsplit=5)
        if len(fields) == 6 and (path := Path(fields[5])).name in _SONAMES:
            files[path.name] = path
    return tuple(Library(name, files[name]) for name in _SONAMES if name in files)


def version() -> str:
    """The version of this distribution, "unknown" where it is not installed."""
    try:
        return metadata.version("libkestrel")
    except metadata.PackageNotFoundError:
        return "unknown"


def platform_info() -> PlatformInfo:
    """Tells what this process runs on."""
    own = Path(__file__).resolve().parent / "lib"
    libraries = _loaded_libraries()
    return PlatformInfo(
        version=version(),
        module=Path(_libkestrel.__file__),
        libraries=libraries,
        embedded=bool(libraries) and all(lib.path.resolve().parent == own for lib in libraries),
        interpreter=f"{platform.python_implementation()} {sys.version.split()[0]}",
        machine=platform.machine(),
    )
