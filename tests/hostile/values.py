"""Values that no caller should pass, and what may come of passing them."""

from __future__ import annotations

import random
from collections.abc import Callable
from typing import Any

import _libkestrel

from libkestrel import enums
from libkestrel.errors import KestrelError
from libkestrel.records import MacAddress

RAISED = (
    KestrelError,
    TypeError,
    ValueError,
    OverflowError,
    AttributeError,
    ReferenceError,
    LookupError,
    BufferError,
    MemoryError,
    NotImplementedError,
    StopIteration,
    RecursionError,
    OSError,
)
"""What a wrong call may raise. A RuntimeError tells of something that the package did not foresee."""


class Reentrant:
    """An int, and most other things, that does something the first times that it is asked for its value."""

    def __init__(self, deed: Callable[[], Any]) -> None:
        self.deed = deed
        self.left = 3

    def _act(self) -> None:
        self.left -= 1
        if self.left < 0:
            return
        try:
            self.deed()
        except RAISED:
            pass

    def __index__(self) -> int:
        self._act()
        return 1

    __int__ = __index__

    def __bool__(self) -> bool:
        self._act()
        return True

    def __eq__(self, other: object) -> bool:
        self._act()
        return False

    def __hash__(self) -> int:
        self._act()
        return 1

    def __len__(self) -> int:
        self._act()
        return 2

    def __iter__(self) -> Any:
        self._act()
        return iter((1, "x"))


class Trouble:
    """Raises at everything."""

    def __getattr__(self, name: str) -> Any:
        raise ValueError(name)

    def __index__(self) -> int:
        raise ValueError("no")

    def __eq__(self, other: object) -> bool:
        raise TypeError("no")

    __hash__ = None  # type: ignore[assignment]


class Liar(bytes):
    """Bytes that are longer each time one asks."""

    asked = 0

    def __len__(self) -> int:
        self.asked += 1
        return 1 << 4 * self.asked


SIMPLE: tuple[Any, ...] = (
    None,
    True,
    False,
    0,
    1,
    -1,
    2,
    3,
    255,
    256,
    65535,
    65536,
    2**31,
    -(2**31),
    2**32,
    2**63,
    2**64,
    -(2**64),
    10**400,
    0.0,
    float("nan"),
    float("inf"),
    1j,
    "",
    "x",
    "x" * 31,
    "x" * 5000,
    "\u00e9" * 40,
    "\ud800",
    "\udc80",
    "a\0b",
    "%n%s",
    "10.0.0.1",
    "::1",
    "00:11:22:33:44:55",
    b"",
    b"123456",
    b"\xff" * 300,
    bytearray(b"12345678"),
    memoryview(b"abc"),
    Liar(b"abc"),
    (),
    [],
    {},
    object(),
    object,
    type,
    Trouble(),
    MacAddress(5),
    enums.zel_LinkState.ZEL_LINK_STATE_UP,
    range(3),
    slice(None),
    slice(-5, 5, -2),
    lambda *_: None,
    _libkestrel.cvar,
    _libkestrel.cvar.runtimeOptionNames,
    _libkestrel.new_VSInfo(),
    _libkestrel.new_VSMACEntry(),
    len,
)
"""Values of every kind, small, huge, negative, malformed."""


def simple(chosen: random.Random) -> Any:
    """One of them."""
    return chosen.choice(SIMPLE)
