"""Raw memory behind pointer objects, and the C library's own count of it."""

from __future__ import annotations

import ctypes
import gc
import sys
from collections.abc import Callable
from pathlib import Path
from types import ModuleType
from typing import Any

import pytest

from support.processes import sanitized


def address(pointer: Any) -> int:
    """The address that a pointer object designates."""
    return int(pointer)


def read(pointer: Any, size: int, offset: int = 0) -> bytes:
    return ctypes.string_at(address(pointer) + offset, size)


def write(pointer: Any, data: bytes, offset: int = 0) -> None:
    ctypes.memmove(address(pointer) + offset, data, len(data))


class _Mallinfo(ctypes.Structure):
    _fields_ = (
        *((name, ctypes.c_size_t) for name in ("arena", "ordblks", "smblks", "hblks", "hblkhd", "usmblks")),
        *((name, ctypes.c_size_t) for name in ("fsmblks", "uordblks", "fordblks", "keepcost")),
    )


_mallinfo2 = ctypes.CDLL(None).mallinfo2
_mallinfo2.restype = _Mallinfo


def allocated_bytes() -> int:
    """Bytes that the C library's allocator has handed out and not got back; a sanitizer's allocator does not tell."""
    if sanitized():
        pytest.skip("the sanitizer's allocator does not count, and finds leaks by itself")
    info = _mallinfo2()
    return int(info.uordblks + info.hblkhd)


_usable = ctypes.CDLL(None).malloc_usable_size
_usable.restype = ctypes.c_size_t


def usable_size(block: Any) -> int:
    """Bytes that the allocator gave to a block, by its address or by a pointer object that designates it."""
    return int(_usable(ctypes.c_void_p(address(block))))


def module_bytes(module: ModuleType) -> bytes:
    """The file of an extension module."""
    assert module.__file__ is not None
    return Path(module.__file__).read_bytes()


def bytes_address(data: bytes) -> int:
    """The address of a bytes object's buffer, which lies at the object's end."""
    return id(data) + bytes.__basicsize__ - 1


_malloc = ctypes.CDLL(None).malloc
_malloc.restype = ctypes.c_void_p


def allocated(data: bytes) -> int:
    """The address of a new block from the C library's allocator, for whoever takes it over to free."""
    place = int(_malloc(ctypes.c_size_t(max(len(data), 1))))
    ctypes.memmove(place, data, len(data))
    return place


def free(pointer: Any) -> None:
    """Gives a block back to the C library's allocator."""
    ctypes.CDLL(None).free(ctypes.c_void_p(address(pointer)))


def assert_flat(work: Callable[[], None], rounds: int = 200, tries: int = 3) -> None:
    """Runs the work often; neither the interpreter's blocks and references nor the C library's bytes may grow with the
    rounds.

    A leak grows every time; the odd block that something else took meanwhile does not, so one flat try is enough. Work
    of many kinds takes more of them until the interpreter has what it keeps for itself.
    """
    if sanitized():  # which finds leaks by itself, when the interpreter ends
        for _ in range(rounds // 4):
            work()
        return
    growth = []
    for _ in range(tries):
        work()
        gc.collect()
        before = _held()
        for _ in range(rounds):
            work()
        gc.collect()
        blocks, references, size = (now - then for now, then in zip(_held(), before, strict=True))
        if blocks < rounds / 4 and references < rounds / 4 and size < 8 * rounds:
            return
        growth.append((blocks, references, size))
    pytest.fail(f"(blocks, references, bytes) grew by {growth} over {rounds} rounds each")


def _held() -> tuple[int, int, int]:
    """Blocks of the interpreter, references to its objects where it counts them (its debug build does), bytes."""
    references = getattr(sys, "gettotalrefcount", lambda: 0)
    return sys.getallocatedblocks(), references(), allocated_bytes()
