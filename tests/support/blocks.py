"""Records placed in memory of the tests' own, between guard bytes, so that a write that strays shows."""

from __future__ import annotations

import ctypes
from typing import Any

import _libkestrel

from support import memory
from support.functions import HEADERS, make

FILL = 0xA5
_GUARD = bytes([FILL]) * 512


class Block:
    """Memory with a content between guard bytes, from the interpreter, so it lives as long as the block."""

    def __init__(self, content: bytes) -> None:
        self._size = len(content)
        self._memory = ctypes.create_string_buffer(_GUARD + content + _GUARD, 2 * len(_GUARD) + len(content))

    @property
    def address(self) -> int:
        """The address of the content's first byte."""
        return ctypes.addressof(self._memory) + len(_GUARD)

    def pointer(self, record: str, offset: int = 0) -> Any:
        """A pointer object for a record at this place, not owned."""
        return aimed(record, self.address + offset)

    def content(self) -> bytes:
        """The content as it is now; fails if a guard byte changed."""
        before, content, behind = (
            self._memory.raw[: len(_GUARD)],
            self._memory.raw[len(_GUARD) : len(_GUARD) + self._size],
            self._memory.raw[len(_GUARD) + self._size :],
        )
        assert (before, behind) == (_GUARD, _GUARD)
        return content

    def write(self, data: bytes, offset: int = 0) -> None:
        """Changes the content from `offset` bytes on."""
        assert 0 <= offset <= self._size - len(data)
        ctypes.memmove(self.address + offset, data, len(data))


def aimed(record: str, address: int) -> Any:
    """A pointer object of this record's type for any address, not owned.

    No function of the module makes one: it is that of a released record, turned elsewhere. Its address stands right
    behind the interpreter's own head of the object.
    """
    pointer = make(record)
    getattr(_libkestrel, f"delete_{record}")(pointer)
    ctypes.c_void_p.from_address(id(pointer) + object.__basicsize__).value = address
    assert memory.address(pointer) == address
    assert pointer.own() is False
    return pointer


def offset_of(record: str, member: str) -> int:
    """Bytes from a record's start to its member."""
    return next(m.offset for m in HEADERS.record(record).members if m.name == member)


def image(record: str, tail: bytes = b"", **members: int | bytes) -> bytes:
    """A record's bytes: these members, everything else filled, and a tail behind the record's fixed part."""
    layout = HEADERS.record(record)
    content = bytes([FILL]) * layout.size
    for member in layout.members:
        if member.name in members:
            value = members.pop(member.name)
            signed = isinstance(value, int) and value < 0
            data = value if isinstance(value, bytes) else value.to_bytes(member.width, "little", signed=signed)
            assert len(data) <= member.width
            content = changed(content, member.offset, data)
    assert not members, f"{record} has no {sorted(members)}"
    return content + tail


def changed(content: bytes, offset: int, data: bytes) -> bytes:
    """A content with other bytes at a place."""
    assert 0 <= offset <= len(content) - len(data)
    return content[:offset] + data + content[offset + len(data) :]


def padded(text: bytes, width: int) -> bytes:
    """A text as a field of this width holds it: cut, or with zeros behind it."""
    return text[:width].ljust(width, b"\0")
