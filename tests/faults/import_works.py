"""Imports of what the package consists of."""

from __future__ import annotations

import _imp
import importlib
import importlib.util
import sys
from collections.abc import Iterator
from typing import Any

from faults.work import Call, Work

EXTENSIONS = ("_libkestrel", "libkestrel._records")
"""Extension modules: the loading of their libraries, and their making."""
PACKAGES = ("libkestrel", "libkestrel.records", "libkestrel.enums")
"""Modules in Python. Others make dataclasses, which is the work of the interpreter's compiler."""

KEPT = ("libkestrel._records", "libkestrel._bases")
"""What is there once in the life of a process."""


def _extension(name: str) -> Call:
    sys.modules.pop(name, None)
    spec = importlib.util.find_spec(name)
    assert spec is not None
    return _imp.create_dynamic, (spec,)


def _forgotten(name: str) -> Call:
    for known in [each for each in sys.modules if each.partition(".")[0] == "libkestrel"]:
        if known not in KEPT:
            del sys.modules[known]
    return importlib.import_module, (name,)


def _told(module: Any) -> str:
    return str(module.__name__)


def imports() -> Iterator[Work]:
    """Each of them, into an interpreter that does not have it."""
    for name in EXTENSIONS:
        yield Work(f"load {name}", lambda name=name: _extension(name), told=_told, dies_with_the_process=True)  # type: ignore[misc]
    for name in PACKAGES:
        # What is in Python unwinds without end where the interpreter has no memory for the place of an exception.
        yield Work(
            f"import {name}",
            lambda name=name: _forgotten(name),  # type: ignore[misc]
            told=_told,
            dies_with_the_process=True,
            recovers=True,
        )
