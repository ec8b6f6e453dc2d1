"""Frames of hosts and routers that speak IGMP or MLD, of stations that send to groups, and queries taken apart."""

from __future__ import annotations

import struct
from collections.abc import Iterable
from dataclasses import dataclass
from ipaddress import IPv4Address, IPv6Address, ip_address

from libkestrel import lab

Address = IPv4Address | IPv6Address

IS_IN, IS_EX, TO_IN, TO_EX, ALLOW, BLOCK = range(1, 7)
"""Types of the records in reports of IGMPv3 and MLDv2."""

KINDS = {4: 0x0800, 6: 0x86DD}
"""The type of the frames of each version of IP."""

_ROUTER_ALERT_V6 = bytes([58, 0, 5, 2, 0, 0, 1, 0])


def group(version: int, number: int) -> Address:
    """A group beyond the link: 239.1.x.y or ff0e::x:y."""
    return ip_address(f"239.1.{number >> 8}.{number & 255}" if version == 4 else f"ff0e::{number:x}")


def station(version: int, number: int) -> Address:
    """A station that sends to groups."""
    return ip_address(f"10.7.0.{number}" if version == 4 else f"2001:db8::{number:x}")


def neighbour(version: int, number: int) -> Address:
    """A host or router of the link."""
    return ip_address(f"192.168.0.{number}" if version == 4 else f"fe80::{number:x}")


def group_mac(address: Address) -> str:
    """Where frames to a group go."""
    if address.version == 4:
        low = address.packed[1:]
        return bytes([1, 0, 0x5E, low[0] & 0x7F, *low[1:]]).hex(":")
    return (b"\x33\x33" + address.packed[-4:]).hex(":")


def checksum(data: bytes) -> int:
    """The one's complement of the one's complement sum of 16-bit words."""
    total: int = sum(struct.unpack(f"!{(len(data) + 1) // 2}H", data + b"\0" * (len(data) % 2)))
    while total > 0xFFFF:
        total = (total >> 16) + (total & 0xFFFF)
    return 0xFFFF - total


def _frame(source_mac: str, source: Address, to: Address, message: bytes, vlan: int | None) -> bytes:
    """A message of IGMP or ICMPv6, whose checksum is 0 still, on its way."""
    if to.version == 4:
        message = message[:2] + struct.pack("!H", checksum(message)) + message[4:]
        head = struct.pack("!BBHHHBBH", 0x46, 0xC0, 24 + len(message), 0, 0, 1, 2, 0)
        tail = source.packed + to.packed + b"\x94\x04\0\0"
        packet = head[:10] + struct.pack("!H", checksum(head + tail)) + tail + message
    else:
        pseudo = source.packed + to.packed + struct.pack("!II", len(message), 58)
        message = message[:2] + struct.pack("!H", checksum(pseudo + message)) + message[4:]
        size = len(_ROUTER_ALERT_V6) + len(message)
        head = struct.pack("!IHBB", 6 << 28, size, 0, 1)
        packet = head + source.packed + to.packed + _ROUTER_ALERT_V6 + message
    return lab.ethernet(group_mac(to), source_mac, KINDS[to.version], packet, vlan=vlan)


def _long(kind: int, address: Address) -> bytes:
    """A message of the older versions: type, code, checksum and, for MLD, delays, and an address."""
    return bytes([kind, 0, 0, 0]) + (b"" if address.version == 4 else bytes(4)) + address.packed


def join(mac: str, address: Address, *, oldest: bool = False, vlan: int | None = None) -> bytes:
    """A host joins a group without saying sources: by version 2 of IGMP, with `oldest` 1, or by version 1 of MLD."""
    kind = 131 if address.version == 6 else 0x12 if oldest else 0x16
    return _frame(mac, neighbour(address.version, 9), address, _long(kind, address), vlan)


def leave(mac: str, address: Address, *, vlan: int | None = None) -> bytes:
    """A host leaves a group, by version 2 of IGMP or version 1 of MLD."""
    routers = ip_address("224.0.0.2" if address.version == 4 else "ff02::2")
    kind = 0x17 if address.version == 4 else 132
    return _frame(mac, neighbour(address.version, 9), routers, _long(kind, address), vlan)


def report(mac: str, address: Address, kind: int, sources: Iterable[Address] = (), *, vlan: int | None = None) -> bytes:
    """A record of IGMPv3 or MLDv2 about a group."""
    listed = [each.packed for each in sources]
    record = struct.pack("!BBH", kind, 0, len(listed)) + address.packed + b"".join(listed)
    head = struct.pack("!BBHHH", 0x22 if address.version == 4 else 143, 0, 0, 0, 1)
    to = ip_address("224.0.0.22" if address.version == 4 else "ff02::16")
    return _frame(mac, neighbour(address.version, 9), to, head + record, vlan)


def general_query(mac: str, source: Address) -> bytes:
    """A router asks for all groups, by version 2 of IGMP or version 1 of MLD."""
    nothing: Address = ip_address("0.0.0.0" if source.version == 4 else "::")
    to = ip_address("224.0.0.1" if source.version == 4 else "ff02::1")
    message = bytes([0x11, 100, 0, 0]) if source.version == 4 else struct.pack("!BBHHH", 130, 0, 0, 10000, 0)
    return _frame(mac, source, to, message + nothing.packed, None)


def data(mac: str, source: Address, address: Address, *, vlan: int | None = None) -> bytes:
    """A datagram to a group."""
    body = struct.pack("!HHHH", 5000, 5000, 12, 0) + b"data"
    if address.version == 4:
        head = struct.pack("!BBHHHBBH", 0x45, 0, 20 + len(body), 0, 0, 16, 17, 0)
        tail = source.packed + address.packed
        packet = head[:10] + struct.pack("!H", checksum(head + tail)) + tail + body
    else:
        packet = struct.pack("!IHBB", 6 << 28, len(body), 17, 16) + source.packed + address.packed + body
    return lab.ethernet(group_mac(address), mac, KINDS[address.version], packet, vlan=vlan)


@dataclass(frozen=True)
class Query:
    """A query as a host hears it."""

    time: float
    """In seconds of the host's time."""
    generation: int
    """The version of IGMP, or one above that of MLD, so that 3 knows sources."""
    source: Address
    group: Address | None
    """None for all groups."""
    sources: tuple[Address, ...]


def query_in(frame: lab.Frame) -> Query | None:
    """The query that a frame carries; fails where its checksum is wrong."""
    packet = frame.payload
    if frame.kind == KINDS[4] and packet[9] == 2:
        size = int.from_bytes(packet[2:4], "big")
        source, message, width, fixed = packet[12:16], packet[(packet[0] & 15) * 4 : size], 4, 8
        assert checksum(message) == 0
        if message[0] != 0x11:
            return None
        generation = 3 if len(message) > 8 else 2 if message[1] else 1
    elif frame.kind == KINDS[6] and packet[6] == 0 and packet[40] == 58:
        size = 40 + int.from_bytes(packet[4:6], "big")
        source, message, width, fixed = packet[8:24], packet[48:size], 16, 24
        pseudo = packet[8:40] + struct.pack("!II", len(message), 58)
        assert checksum(pseudo + message) == 0
        if message[0] != 130:
            return None
        generation = 3 if len(message) > fixed else 2
    else:
        return None
    asked = ip_address(message[fixed - width : fixed])
    listed = message[fixed + 4 :] if generation == 3 else b""
    return Query(
        frame.time_ns / 1e9,
        generation,
        ip_address(source),
        None if asked.is_unspecified else asked,
        tuple(ip_address(listed[at : at + width]) for at in range(0, len(listed), width)),
    )


def queries(frames: Iterable[lab.Frame], version: int) -> list[Query]:
    """The queries of a version of IP among frames."""
    found = (query_in(frame) for frame in frames)
    return [query for query in found if query is not None and query.source.version == version]
