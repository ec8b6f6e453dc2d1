"""Interpreters in which memory cannot be had."""

from __future__ import annotations

import json
from dataclasses import dataclass

import pytest

from support.processes import allocator, run, sanitized

_PREAMBLE = """
import ctypes, json, sys
import _libkestrel
meddler = ctypes.CDLL({allocator!r})
def failing(size, function, *arguments):
    meddler.allocator_fail(ctypes.c_size_t(size))
    return function(*arguments)
def report(result):
    print(json.dumps(result), file=sys.stderr)
"""


@dataclass(frozen=True)
class Outcome:
    """What a script reported, and what it printed meanwhile."""

    result: object
    printed: str


def scarce(code: str) -> Outcome:
    """Runs a script in which `failing(size, function, *arguments)` calls a function while the next allocation of just
    `size` bytes fails, and `report`, called once, takes what JSON can hold.
    """
    if sanitized():
        pytest.skip("a sanitizer's allocator and the one that fails on demand cannot both stand first")
    path = allocator()
    done = run(_PREAMBLE.format(allocator=str(path)) + code, preload=path)
    assert done.returncode == 0, done.stderr
    return Outcome(json.loads(done.stderr), done.stdout)
