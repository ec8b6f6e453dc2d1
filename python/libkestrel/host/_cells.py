"""Typed pointers to memory of Python's own, for functions that write through cells or take buffers and callbacks.

The flat module makes pointer objects of records only. Here a pointer object of any type that the module knows is made
of one that the module gave out: its address and its type are replaced, both of them plain fields of the object.
"""

from __future__ import annotations

import ctypes
import sys
from collections.abc import Callable
from functools import cache
from typing import Any

import _libkestrel as flat

_CAPSULE = "swig_runtime_data4"
_WORD = ctypes.sizeof(ctypes.c_void_p)
_ADDRESS = 2 * _WORD
"""Where a pointer object has its address, behind the interpreter's own two words; its type is next to it."""


class _ModuleInfo(ctypes.Structure):
    """The head of a module's part of the type table."""

    _fields_ = (("types", ctypes.POINTER(ctypes.c_void_p)), ("count", ctypes.c_size_t), ("next", ctypes.c_void_p))


@cache
def _types() -> dict[str, int]:
    """The addresses of the module's types by name: "_p_p_void" stands for void **."""
    function = ctypes.pythonapi.PyCapsule_GetPointer
    function.restype, function.argtypes = ctypes.c_void_p, (ctypes.py_object, ctypes.c_char_p)
    name = "type_pointer_capsule"
    table = function(getattr(sys.modules[_CAPSULE], name), f"{_CAPSULE}.{name}".encode())
    found: dict[str, int] = {}
    at = table
    while True:  # the modules that share the table stand in a circle
        info = _ModuleInfo.from_address(at)
        for i in range(info.count):
            kind = info.types[i]
            if kind and (text := ctypes.c_char_p.from_address(kind).value):
                found.setdefault(text.decode(), kind)
        at = info.next
        if at in (None, table):
            return found


def pointer(address: int, kind: str) -> Any:
    """A pointer object for an address, of a type by its name in the type table. It owns nothing."""
    made = flat.zel_MgmtCallbackInfo_parmSizes_get(_donor())  # a new pointer object, of another type
    fields = (ctypes.c_void_p * 2).from_address(id(made) + _ADDRESS)
    if fields[0] != int(made):
        raise SystemError("pointer objects of the flat module are not laid out as expected")
    fields[0], fields[1] = address, _types()[kind]
    return made


@cache
def _donor() -> Any:
    """A record with an array member, whose readings are pointer objects."""
    from libkestrel import records

    return records.zel_MgmtCallbackInfo()


class Cell:
    """A place for a pointer, as `T **` parameters take it; `kind` is the name of that type in the type table."""

    def __init__(self, kind: str = "_p_p_void") -> None:
        self._place = ctypes.c_void_p()
        self.pointer = pointer(ctypes.addressof(self._place), kind)

    @property
    def address(self) -> int:
        """What was written, 0 for null."""
        return self._place.value or 0

    def as_pointer(self, kind: str = "_p_void") -> Any:
        """What was written as a pointer object of a type, None for null."""
        return pointer(self.address, kind) if self.address else None


class Number:
    """A place for a 32-bit number, as `int *` and `zel_uint32 *` parameters take it."""

    def __init__(self, kind: str = "_p_int") -> None:
        self._place = ctypes.c_int() if kind == "_p_int" else ctypes.c_uint()
        self.pointer = pointer(ctypes.addressof(self._place), kind)

    @property
    def value(self) -> int:
        """What was written."""
        return self._place.value


class Buffer:
    """Bytes that the platform may read and write; a zero follows them."""

    def __init__(self, content: bytes | int, kind: str = "_p_char") -> None:
        size = content if isinstance(content, int) else len(content)
        self._place = ctypes.create_string_buffer(size + 1)
        if isinstance(content, bytes):
            ctypes.memmove(self._place, content, size)
        self.pointer = pointer(ctypes.addressof(self._place), kind)

    @property
    def text(self) -> str:
        """The bytes up to the first zero, as a text."""
        return self._place.value.decode(errors="surrogateescape")


def shorts(numbers: list[int]) -> tuple[Any, Any]:
    """An array of 16-bit numbers: the pointer object, and what keeps the memory."""
    array = (ctypes.c_uint16 * max(len(numbers), 1))(*numbers)
    return pointer(ctypes.addressof(array), "_p_unsigned_short"), array


def block(cell: Cell, length: int) -> bytes:
    """The bytes of a block that was handed out through a cell."""
    return ctypes.string_at(cell.address, length) if cell.address and length > 0 else b""


_Visitor = ctypes.CFUNCTYPE(ctypes.c_char, ctypes.c_void_p, ctypes.c_void_p)


def collected(walk: Callable[[Any], object]) -> list[int]:
    """The addresses that `walk` gives the callback that it is called with, in order."""
    found: list[int] = []

    def visit(element: int | None, _context: int | None) -> int:
        found.append(element or 0)
        return 1

    visitor = _Visitor(visit)
    address = ctypes.cast(visitor, ctypes.c_void_p).value or 0
    walk(pointer(address, "_p_f_p_void_p_void__char"))
    return found
