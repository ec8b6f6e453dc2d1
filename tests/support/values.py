"""For each conversion class: values that pass, as the bytes they store, and values that fail, as what they raise."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any


class IntegerSubclass(int):
    """Counts as an int, being one."""


@dataclass(frozen=True)
class Unsigned:
    """An unsigned class of `width` bytes."""

    width: int

    @property
    def limit(self) -> int:
        return 1 << (8 * self.width)


def good(kind: str) -> list[tuple[Any, int]]:
    """Accepted values of a scalar class, each with the number it stores (read as the class reads it)."""
    if kind in ("u8", "u16", "u32", "u64", "size"):
        top = UNSIGNED[kind].limit - 1
        values = [0, 1, 2, top // 2, top // 2 + 1, top - 1, top]
    elif kind in ("s32", "e8"):
        values = [-(2**31), -(2**31) + 1, -1, 0, 1, 255, 256, 2**31 - 2, 2**31 - 1]
    else:
        raise ValueError(kind)
    stored = [(value, value & 0xFF if kind == "e8" else value) for value in values]
    return [*stored, (True, 1), (False, 0), (IntegerSubclass(1), 1)]


UNSIGNED = {
    "u8": Unsigned(1),
    "u16": Unsigned(2),
    "u32": Unsigned(4),
    "u64": Unsigned(8),
    "size": Unsigned(8),
}

NOT_INTEGERS: list[Any] = [None, 1.0, "1", b"1", [], (), {}, object(), 1j]


def bad(kind: str) -> list[tuple[Any, type[Exception]]]:
    """Refused values of a scalar class, each with the exception it raises."""
    wrong: list[tuple[Any, type[Exception]]] = [(value, TypeError) for value in NOT_INTEGERS]
    if kind in ("u8", "u16", "u32"):
        limit = UNSIGNED[kind].limit
        wrong += [(value, OverflowError) for value in (-1, -(2**31), -(2**63), limit, limit + 1, 2**64 - 1)]
        wrong += [(value, TypeError) for value in (2**64, 2**64 + 1, 2**100, -(2**63) - 1, -(2**100))]
    elif kind == "size":
        wrong += [(value, OverflowError) for value in (-1, -(2**63))]
        wrong += [(value, TypeError) for value in (2**64, 2**100, -(2**63) - 1)]
    elif kind == "u64":
        wrong += [(value, TypeError) for value in (-1, -(2**63), 2**64, 2**64 + 1, 2**100, -(2**100))]
    elif kind in ("s32", "e8"):
        wrong += [(v, OverflowError) for v in (2**31, -(2**31) - 1, 2**32, 2**63 - 1, -(2**63))]
    elif kind == "flag":
        wrong = [(value, TypeError) for value in (1.0, b"1", [], object(), "ab", "é", "\udc80")]
        wrong += [(value, OverflowError) for value in (-1, 256, 2**31, 2**64, -(2**100))]
    return wrong


FLAGS: list[tuple[Any, int]] = [
    *((value, value) for value in (0, 1, 2, 127, 128, 255)),
    (True, 1),
    (False, 0),
    ("", 0),
    (None, 0),
    ("\x00", 0),
    *((chr(code), code) for code in (1, 0x30, 0x31, 0x7F)),
]
"""Accepted values of a one-byte flag, each with the byte it stores."""


def flag_text(byte: int) -> str:
    """The one-character str that a flag of this byte reads as."""
    return bytes([byte]).decode("utf-8", "surrogateescape")
