"""Ethernet frames: made by their parts, and taken apart again."""

from __future__ import annotations

import struct
from dataclasses import dataclass

LEAST = 60
"""The bytes that a frame has at least, without its check sequence."""

_TAGS = (0x8100, 0x88A8)


def mac(address: str | bytes) -> bytes:
    """An Ethernet address as its six bytes. ValueError for what is none."""
    found = address if isinstance(address, bytes) else bytes.fromhex(address.replace(":", ""))
    if len(found) != 6:
        raise ValueError(f"no Ethernet address: {address!r}")
    return found


def mac_text(address: bytes) -> str:
    """An Ethernet address as text."""
    return address.hex(":")


def ethernet(
    destination: str | bytes,
    source: str | bytes,
    kind: int = 0x88B5,
    payload: bytes = b"",
    *,
    vlan: int | None = None,
    priority: int = 0,
) -> bytes:
    """A frame of a type, with a VLAN tag where a VLAN is given, filled up with zeros to the least length."""
    tag = b"" if vlan is None else struct.pack("!HH", 0x8100, priority << 13 | vlan)
    head = mac(destination) + mac(source) + tag + struct.pack("!H", kind)
    return (head + payload).ljust(LEAST + len(tag), b"\0")


@dataclass(frozen=True)
class Tag:
    """A VLAN tag."""

    kind: int
    """0x8100, or 0x88a8 for a service tag."""
    vlan: int
    """VLAN identifier, 0 to 4095."""
    priority: int
    """0 to 7 (IEEE 802.1Q)."""
    drop_eligible: bool
    """Whether it may be dropped before others."""


@dataclass(frozen=True)
class Frame:
    """A frame that passed a port."""

    data: bytes
    """From the destination on, without the check sequence."""
    time_ns: int = 0
    """When, in nanoseconds of the host's time."""
    incoming: bool = False
    """From the port into the switch."""

    @property
    def destination(self) -> str:
        """Where it goes, as text."""
        return mac_text(self.data[:6])

    @property
    def source(self) -> str:
        """Where it comes from, as text."""
        return mac_text(self.data[6:12])

    @property
    def tags(self) -> tuple[Tag, ...]:
        """Its VLAN tags, the outermost first."""
        found = []
        place = 12
        while int.from_bytes(self.data[place : place + 2], "big") in _TAGS:
            kind, control = struct.unpack_from("!HH", self.data, place)
            found.append(Tag(kind, control & 0xFFF, control >> 13, bool(control >> 12 & 1)))
            place += 4
        return tuple(found)

    @property
    def vlan(self) -> int | None:
        """The VLAN of the outermost tag; None without one."""
        tags = self.tags
        return tags[0].vlan if tags else None

    @property
    def kind(self) -> int:
        """The type of its payload, behind all tags."""
        place = 12 + 4 * len(self.tags)
        return int.from_bytes(self.data[place : place + 2], "big")

    @property
    def payload(self) -> bytes:
        """What is behind tags and type."""
        return self.data[14 + 4 * len(self.tags) :]

    def __str__(self) -> str:
        tags = "".join(f" VLAN {tag.vlan}" for tag in self.tags)
        return f"{self.source} > {self.destination}{tags} type 0x{self.kind:04x}, {len(self.data)} bytes"
