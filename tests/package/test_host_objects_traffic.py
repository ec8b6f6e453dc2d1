"""What traffic makes of a host, read through its objects: groups, learned addresses, mirrors, failover."""

from __future__ import annotations

import struct
from ipaddress import IPv4Address, IPv6Address
from typing import TYPE_CHECKING

import pytest

from libkestrel import MirrorEntity, MirrorSession, TeamingPolicy, errors, host
from libkestrel.host import (
    Counters,
    LoadBalance,
    MacKind,
    MulticastMode,
    PortLearning,
    PortStatistics,
    SourceMode,
)
from libkestrel.records import MacAddress

if TYPE_CHECKING:
    from libkestrel.testing import EmbeddedHost

SWITCH = "dvs-prod"
GROUP, SOURCE = IPv4Address("239.1.2.3"), IPv4Address("192.0.2.7")
GROUP6 = IPv6Address("ff05::1:3")
CLIENT = "02:4b:00:00:01:0a"


def checksum(data: bytes) -> int:
    """The Internet checksum (RFC 1071)."""
    data += b"\0" * (len(data) % 2)
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return int(~total & 0xFFFF)


def join(group: IPv4Address, *sources: IPv4Address) -> bytes:
    """An IGMPv3 report (RFC 3376) that joins a group, of some sources or of all, as an Ethernet frame."""
    record = struct.pack("!BBH", 1 if sources else 4, 0, len(sources)) + group.packed
    record += b"".join(source.packed for source in sources)
    report = struct.pack("!BBHHH", 0x22, 0, 0, 0, 1) + record
    report = report[:2] + struct.pack("!H", checksum(report)) + report[4:]
    head = struct.pack("!BBHHHBBH", 0x46, 0xC0, 24 + len(report), 1, 0, 1, 2, 0)
    head += IPv4Address("10.0.0.10").packed + IPv4Address("224.0.0.22").packed + b"\x94\x04\0\0"
    head = head[:10] + struct.pack("!H", checksum(head)) + head[12:]
    return bytes.fromhex("01005e000016") + MacAddress(CLIENT).packed + b"\x08\0" + head + report


def join6(group: IPv6Address) -> bytes:
    """An MLDv2 report (RFC 3810) that joins a group, as an Ethernet frame."""
    own, everyone = IPv6Address("fe80::10"), IPv6Address("ff02::16")
    report = struct.pack("!BBHHH", 143, 0, 0, 0, 1) + struct.pack("!BBH", 4, 0, 0) + group.packed
    pseudo = own.packed + everyone.packed + struct.pack("!II", len(report), 58)
    report = report[:2] + struct.pack("!H", checksum(pseudo + report)) + report[4:]
    options = bytes([58, 0, 5, 2, 0, 0, 1, 0])  # router alert
    head = struct.pack("!IHBB", 0x60000000, len(options) + len(report), 0, 1) + own.packed + everyone.packed
    return bytes.fromhex("333300000016") + MacAddress(CLIENT).packed + b"\x86\xdd" + head + options + report


def test_ports_tell_the_groups_that_their_clients_joined(kestrel_host: EmbeddedHost) -> None:
    switch = kestrel_host.switch(SWITCH)
    switch.multicast_mode = MulticastMode.SNOOPING
    assert switch.multicast_mode_in_use() is MulticastMode.SNOOPING
    port = switch.port("10")
    assert port.igmp_groups() == port.mld_groups() == ()
    kestrel_host.lab.send(SWITCH, "10", join(GROUP, SOURCE))
    kestrel_host.lab.send(SWITCH, "10", join6(GROUP6))
    assert port.igmp_groups() == (GROUP,)
    assert port.mld_groups() == (GROUP6,)
    state = port.multicast_group(str(GROUP))
    assert (state.version, state.source_mode, state.sources) == (3, SourceMode.INCLUDE, (SOURCE,))
    assert port.multicast_group(GROUP6).source_mode is SourceMode.EXCLUDE
    assert port.multicast_group(GROUP6).sources == ()
    assert switch.port("11").igmp_groups() == ()
    with pytest.raises(errors.NotFound):
        port.multicast_group("239.9.9.9")
    with pytest.raises(ValueError, match="IPv4 or IPv6"):
        port.multicast_group("nothing")


def test_ports_tell_the_addresses_that_legacy_filtering_lets_through(kestrel_host: EmbeddedHost) -> None:
    switch = kestrel_host.switch(SWITCH)
    switch.multicast_mode = MulticastMode.SNOOPING
    kestrel_host.lab.send(SWITCH, "10", join(GROUP))
    switch.multicast_mode = MulticastMode.LEGACY
    assert MacAddress("01:00:5e:01:02:03") in switch.port("10").multicast_addresses()
    switch.ensure_multicast_entries(["01:00:5e:00:00:fb"])
    assert MacAddress("01:00:5e:00:00:fb") in switch.port("11").multicast_addresses()


def test_a_port_learns_up_to_its_limit(kestrel_host: EmbeddedHost) -> None:
    port = kestrel_host.switch(SWITCH).port("18")
    kestrel_host.lab.connect(SWITCH, "18", "nested.eth0", mac="02:00:00:00:18:00")
    port.security = host.SecurityPolicy(mac_changes=True, forged_transmits=True)
    port.mac_learning = PortLearning(learning=True, limit=2)
    for i in range(4):
        frame = kestrel_host.lab.ethernet("ff:ff:ff:ff:ff:ff", f"02:00:00:00:19:{i:02x}")
        kestrel_host.lab.send(SWITCH, "18", frame)
    with port.mac_table(MacKind.LEARNED) as table:
        learned = [str(entry.macAddress) for entry in table]
    assert len(learned) == 2
    statistics = port.mac_learning_statistics()
    assert statistics.learned == 2
    assert statistics.allowed_beyond_limit + statistics.dropped_beyond_limit == 2
    kestrel_host.clock.advance(100_000)
    assert len(port.mac_table(MacKind.LEARNED)) == 0


def test_a_mirror_counts_what_it_takes(kestrel_host: EmbeddedHost) -> None:
    switch = kestrel_host.switch(SWITCH)
    session = MirrorSession("tap", (MirrorEntity.port("18"),), sources_in=(MirrorEntity.port("10"),), name="for tests")
    switch.port("10").mirror_sessions = (session,)
    for _ in range(3):
        kestrel_host.lab.send(SWITCH, "10", kestrel_host.lab.ethernet("ff:ff:ff:ff:ff:ff", CLIENT))
    statistics = switch.mirror_statistics("tap")
    assert statistics.name == "for tests"
    assert statistics.matched + statistics.mirrored + statistics.failed + statistics.discarded >= 3
    with pytest.raises(errors.NotFound):
        switch.mirror_statistics("other")


def test_a_failover_is_announced(kestrel_host: EmbeddedHost) -> None:
    switch = kestrel_host.switch("dvs-storage")
    switch.teaming = TeamingPolicy(("uplink1",), ("uplink2",), LoadBalance.EXPLICIT_FAILOVER)
    before = switch.rarp_statistics()
    assert switch.port("20").uplink_in_use() == "vmnic4"
    kestrel_host.lab.change_nic("vmnic4", up=False)
    kestrel_host.clock.advance(60)
    assert switch.port("20").uplink_in_use() == "vmnic5"
    assert switch.uplinks["vmnic4"].link_up is False
    assert switch.rarp_statistics().sent > before.sent
    assert switch.service_port_statistics().send_errors >= 0
    switch.refresh_numa()


def test_ports_tell_what_has_passed_them(kestrel_host: EmbeddedHost) -> None:
    switch = kestrel_host.switch(SWITCH)
    port, other = switch.port("10"), switch.port("11")
    before, heard = port.statistics(), other.statistics()
    own = MacAddress(CLIENT).packed
    to_all, to_group = b"\xff" * 6 + own, bytes.fromhex("01005e0a0b0c") + own
    for head, size in ((to_all, 60), (to_all, 100), (to_group, 80)):
        kestrel_host.lab.send(SWITCH, "10", (head + b"\x88\xb5").ljust(size, b"\0"))
    into = port.statistics().incoming
    assert (into.broadcast_frames, into.broadcast_bytes) == (
        before.incoming.broadcast_frames + 2,
        before.incoming.broadcast_bytes + 160,
    )
    assert (into.multicast_frames, into.multicast_bytes) == (
        before.incoming.multicast_frames + 1,
        before.incoming.multicast_bytes + 80,
    )
    assert (into.frames, into.bytes) == (before.incoming.frames + 3, before.incoming.bytes + 240)
    assert other.statistics().outgoing.broadcast_frames == heard.outgoing.broadcast_frames + 2


def test_a_port_that_nobody_was_plugged_into_counts_nothing(kestrel_host: EmbeddedHost) -> None:
    switch = kestrel_host.switch(SWITCH)
    switch.ports.add("empty")
    none = Counters(*[0] * 8)
    assert switch.port("empty").statistics() == PortStatistics(none, none)
    switch.ports.remove("empty")
    with pytest.raises(errors.NotFound):
        switch.port("empty").statistics()
