"""Cells that the platform writes through, and other pointers that no function of the module makes."""

from __future__ import annotations

import ctypes
from typing import Any

import _libkestrel

from support import memory
from support.type_table import infos

BLOCK, INT, UINT, CALLBACK = "_p_p_void", "_p_int", "_p_unsigned_int", "_p_f_p_void_p_void__char"
"""Mangled names of the types that cells point to, and of the callbacks of walks."""

_INFOS = infos()


def pointer(mangled: str, address: int) -> Any:
    """A pointer object of any type of the module for any address, not owned.

    It is that of a released record, turned elsewhere: address and type stand right behind the interpreter's own head of
    the object.
    """
    made = _libkestrel.new_zel_Name()
    _libkestrel.delete_zel_Name(made)
    words = (ctypes.c_void_p * 2).from_address(id(made) + object.__basicsize__)
    words[0], words[1] = address, _INFOS[mangled][0]
    assert memory.address(made) == address
    return made


class Cell:
    """A place for one output, eight bytes wide and full of something else at first."""

    def __init__(self, mangled: str = BLOCK) -> None:
        self._memory = ctypes.create_string_buffer(b"\xa5" * 8, 8)
        self.pointer = pointer(mangled, ctypes.addressof(self._memory))

    def number(self, width: int = 4) -> int:
        """What was written, as a number of so many bytes."""
        return int.from_bytes(self._memory.raw[:width], "little", signed=width == 4)

    @property
    def address(self) -> int:
        return self.number(8)


def block(data: bytes) -> tuple[Any, object]:
    """A pointer to some bytes, and what keeps them alive."""
    kept = ctypes.create_string_buffer(data, len(data))
    return pointer("_p_p_void", ctypes.addressof(kept)), kept
