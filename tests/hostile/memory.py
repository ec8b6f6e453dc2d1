"""What memory pointers of the flat module lead to, so that a call that trusts its caller can be told beforehand."""

from __future__ import annotations

import ctypes
import mmap
from bisect import bisect_right, insort
from typing import Any

from support.memory import usable_size

ROOM = 1 << 18
"""Bytes of a room: a record with much behind it, so that counts can be large."""
_TAIL = mmap.PAGESIZE
"""Bytes at a room's end that nobody writes: texts end there at the latest."""


def number(address: int, width: int, *, swapped: bool = False) -> int:
    """An unsigned number in memory."""
    return int.from_bytes(ctypes.string_at(address, width), "big" if swapped else "little")


class Ledger:
    """The blocks that are alive: those of the allocator, which can be given back, and rooms, which cannot."""

    def __init__(self) -> None:
        self._starts: list[int] = []
        self._sizes: dict[int, int] = {}
        self._numbers: dict[int, int] = {}
        self._last = 0
        self._rooms: list[Any] = []
        self._room_starts: set[int] = set()

    def __len__(self) -> int:
        return len(self._starts)

    def room(self) -> int:
        """A new room, full of zeros; its address."""
        memory = mmap.mmap(-1, ROOM)
        address = ctypes.addressof(ctypes.c_char.from_buffer(memory))
        self._rooms.append(memory)
        self._room_starts.add(address)
        self._note(address, ROOM - _TAIL)
        return address

    def sweep(self) -> None:
        """Empties all rooms, and gives back what of them was touched."""
        for memory in self._rooms:
            memory.madvise(mmap.MADV_DONTNEED)

    def _note(self, address: int, size: int) -> None:
        if address in self._sizes:
            raise AssertionError(f"the block at {address:#x} is alive already")
        insort(self._starts, address)
        self._sizes[address] = size
        self._last += 1
        self._numbers[address] = self._last

    def add(self, address: int) -> None:
        """A block that the allocator has handed out."""
        self._note(address, usable_size(address))

    def remove(self, address: int) -> None:
        """A block that goes back to the allocator."""
        del self._sizes[address], self._numbers[address]
        del self._starts[bisect_right(self._starts, address) - 1]

    def extent(self, address: int) -> int:
        """Bytes from an address to the end of the block that it lies in; 0 where nothing is alive."""
        place = bisect_right(self._starts, address) - 1
        if place < 0:
            return 0
        start = self._starts[place]
        return max(0, start + self._sizes[start] - address)

    def number(self, address: int) -> int:
        """The number of the block that an address lies in, which no other one ever has; 0 where nothing is alive."""
        place = bisect_right(self._starts, address) - 1
        return self._numbers[self._starts[place]] if self.extent(address) else 0

    def is_block(self, address: int) -> bool:
        """Whether a block of the allocator begins there."""
        return address in self._sizes and address not in self._room_starts

    def in_room(self, address: int) -> bool:
        """Whether an address lies in a room."""
        place = bisect_right(self._starts, address) - 1
        return place >= 0 and self._starts[place] in self._room_starts and self.extent(address) > 0
