"""Tells which declared functions the embedded host implements, from its sources."""

from __future__ import annotations

import re
from pathlib import Path

from headers.model import Function, Headers

HOST = Path(__file__).resolve().parents[2] / "host"

# A function's definition, as the faces write it.
_DEFINITION = re.compile(r"^KESTREL_HOST_EXPORT\b[^;{()]*?\b(?P<name>\w+)\(", re.MULTILINE)


def defined(folder: Path = HOST) -> set[str]:
    """The functions that the host's sources define."""
    return {name for file in sorted(folder.rglob("*.cc")) for name in _DEFINITION.findall(file.read_text())}


def _row(function: Function, implemented: set[str]) -> str:
    state = "yes" if function.name in implemented else "no"
    return f"| `{function.name}` | `{function.header}` | {state} |"


def body(headers: Headers) -> list[str]:
    """The tables of the coverage page, one a library."""
    implemented = defined()
    lines: list[str] = []
    for library in dict.fromkeys(f.library for f in headers.functions if f.library):
        functions = [f for f in headers.functions if f.library == library]
        done = sum(f.name in implemented for f in functions)
        lines += [f"## lib{library}", "", f"{done} of {len(functions)} functions are implemented.", ""]
        lines += ["| Function | Declared in | Implemented |", "|---|---|---|"]
        lines += [*(_row(f, implemented) for f in functions), ""]
    return lines
