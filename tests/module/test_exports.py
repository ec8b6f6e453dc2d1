"""The C symbols of the module: those that others may call, and no other."""

from __future__ import annotations

import ctypes
import re
import subprocess
from pathlib import Path

import _libkestrel

SOURCES = Path(__file__).resolve().parents[2] / "src"
CHANNEL = {"exception_buffer", "exception_status", "exceptionType", "exceptionMsg"}


def exported() -> set[str]:
    listing = subprocess.run(
        ["nm", "-D", "--defined-only", str(_libkestrel.__file__)], capture_output=True, text=True, check=True
    ).stdout
    names = {line.split()[-1] for line in listing.splitlines()}
    return {name for name in names if not name.startswith("__odr_asan.")}  # the sanitizer's own


def marked() -> set[str]:
    """What the headers of the support code mark for export."""
    names = set()
    for header in SOURCES.glob("*.h"):
        text = header.read_text()
        names |= set(re.findall(r"^(?:extern )?KESTREL_EXPORT [^;(]*?(\w+)(?:\([^;]*\))?;", text, re.MULTILINE))
        names |= set(re.findall(r"^extern KESTREL_EXPORT [^;]*?(\w+);", text, re.MULTILINE))
    return names


def test_exactly_the_marked_symbols_are_exported() -> None:
    assert marked() >= CHANNEL
    assert exported() == marked() | {"PyInit__libkestrel", "SWIG_strnlen"}


def test_bounded_length() -> None:
    length = ctypes.CDLL(_libkestrel.__file__).SWIG_strnlen
    length.restype = ctypes.c_size_t
    for text, bound, expected in (
        (b"abc", 10, 3),
        (b"abc", 3, 3),
        (b"abc", 2, 2),
        (b"abc", 0, 0),
        (b"", 5, 0),
        (b"a\0b", 3, 1),
    ):
        assert length(ctypes.c_char_p(text), ctypes.c_size_t(bound)) == expected


def test_helpers_are_callable_from_native_code() -> None:
    module = ctypes.CDLL(_libkestrel.__file__)
    module.alloc_vs_info.restype = ctypes.c_void_p
    info = module.alloc_vs_info()
    assert info
    module.free_vs_info(ctypes.c_void_p(info))
