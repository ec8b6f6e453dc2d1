"""Members that share bytes: writing one view changes what the others read."""

from __future__ import annotations

from itertools import combinations
from typing import Any

import _libkestrel
import pytest

from headers import model
from headers.model import Member, Record
from support import memory
from support.functions import make

HEADERS = model.read()


def bits_of(member: Member) -> set[int]:
    """The bits of the record that a member takes."""
    first = 8 * member.offset
    low, high = member.bits or (0, 8 * member.width - 1)
    return set(range(first + low, first + high + 1))


def overlays() -> list[Any]:
    """Pairs of integer members that share bits."""
    integers = {"u8", "u16", "u32", "u64"}
    found = []
    for record in HEADERS.records:
        numbers = [m for m in record.members if m.kind in integers]
        for one, other in combinations(numbers, 2):
            if bits_of(one) & bits_of(other):
                found.append(pytest.param(record, one, other, id=f"{record.name}.{one.name}-{other.name}"))
    return found


@pytest.mark.parametrize(("record", "one", "other"), overlays())
def test_views_of_the_same_bits_change_together(record: Record, one: Member, other: Member) -> None:
    target = make(record.name)
    memory.write(target, bytes(record.size))
    getattr(_libkestrel, f"{record.name}_{one.name}_set")(target, (1 << (8 * one.width)) - 1)
    shared = bits_of(one) & bits_of(other)
    start = min(bits_of(other))
    expected = sum(1 << (bit - start) for bit in shared)
    assert getattr(_libkestrel, f"{record.name}_{other.name}_get")(target) == expected


def test_there_are_overlays_to_look_at() -> None:
    names = {str(case.id).split(".")[0] for case in overlays()}
    assert {"zel_IPv4Hdr", "zel_TCPHdr", "zel_GREHdr"} <= names


def test_the_vlan_of_a_query_begins_its_session_identifier() -> None:
    query = _libkestrel.new_VSIOCtlQuery()
    _libkestrel.VSIOCtlQuery_dvMirrorSID_set(query, "session")
    _libkestrel.VSIOCtlQuery_vlanID_set(query, 0x4241)
    assert _libkestrel.VSIOCtlQuery_dvMirrorSID_get(query) == "ABssion"


def test_a_mirror_address_is_one_or_the_other_version() -> None:
    ip = _libkestrel.new_DVMirrorIP()
    address = _libkestrel.new_zel_SocketIPAddressAddr()
    _libkestrel.zel_SocketIPAddressAddr_s_addr_set(address, 0x0100000A)
    _libkestrel.DVMirrorIP_ipv4_set(ip, address)
    view = _libkestrel.zel_SocketIPv6AddressAddr___u6_addr_get(_libkestrel.DVMirrorIP_ipv6_get(ip))
    octets = _libkestrel.zel_SocketIPv6AddressAddr___u6_addr___u6_addr8_get(view)
    assert memory.read(octets, 16) == bytes([10, 0, 0, 1]) + bytes(12)


def test_unaligned_members_are_read_and_written() -> None:
    entry = _libkestrel.new_VSMACEntry()
    _libkestrel.VSMACEntry_portID_set(entry, 0x01020304)
    _libkestrel.VSMACEntry_vni_set(entry, 0x05060708)
    assert memory.read(entry, 26) == bytes(7) + b"\4\3\2\1" + bytes(3) + b"\x08\7\6\5" + bytes(8)
