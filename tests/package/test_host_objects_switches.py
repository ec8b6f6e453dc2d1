"""Switches, ports, uplinks, groups and tables as objects."""

from __future__ import annotations

from typing import Any

import pytest

from libkestrel import Host, errors, host
from libkestrel.enums import DVSPortType
from libkestrel.records import MacAddress
from support.bench import BENCH, BENCH_ID, PORTS, STATION, UPLINK_PORTS

PRODUCTION = "dvs-prod"


def test_switches_are_a_mapping() -> None:
    switches = Host().switches
    assert list(switches) == ["dvs-prod", "dvs-storage"] == list(switches.keys())
    assert len(switches) == 2
    assert "dvs-prod" in switches
    assert "DvsPortset-0" not in switches
    assert [switch.name for switch in switches.values()] == list(switches)
    assert dict(switches.items())["dvs-prod"] == switches["dvs-prod"]
    assert switches.get("nowhere") is None
    assert switches.portsets() == ("DvsPortset-0", "DvsPortset-1")
    with pytest.raises(errors.NotFound):
        switches["nowhere"]


def test_a_switch_is_found_by_either_name() -> None:
    top = Host()
    assert top.switch("DvsPortset-1") == top.switch("dvs-storage")
    assert top.switch("dvs-storage").portset == "DvsPortset-1"
    assert hash(top.switch("dvs-storage")) == hash(top.switch("DvsPortset-1"))
    assert top.switch("dvs-storage") != top.switch("dvs-prod")
    with pytest.raises(errors.NotFound, match="switch nowhere: find switch"):
        top.switch("nowhere")
    with pytest.raises(errors.NotFound):
        top.switches.of_portset("dvs-storage")


def test_a_switch_is_what_it_was_made_as(bench: host.Switch) -> None:
    info = bench.info()
    assert (info.name, info.id, info.mtu, info.max_ports) == (BENCH, BENCH_ID, 1600, 8)
    assert (info.lowest_vlan, info.highest_vlan, info.active_ports) == (0, 4094, 0)
    assert bench.id == BENCH_ID
    assert repr(bench) == f"<Switch: switch {BENCH}>"


def test_switches_come_and_go() -> None:
    switches = Host().switches
    assert switches.ensure_created(BENCH, BENCH_ID, mtu=2000) is True
    assert switches.ensure_created(BENCH, BENCH_ID) is False
    assert switches[BENCH].mtu == 2000
    with pytest.raises(errors.Exists):
        switches.create(BENCH, "another id")
    with pytest.raises(errors.BadParam):
        switches.create("another", "another id", mtu=1279)
    assert switches.ensure_destroyed(BENCH) is True
    assert switches.ensure_destroyed(BENCH) is False
    with pytest.raises(errors.Busy, match="switch dvs-prod: destroy switch"):
        switches.destroy(PRODUCTION)


def test_what_is_gone_is_not_found(bench: host.Switch) -> None:
    port = bench.port("p1")
    Host().switches.destroy(BENCH)
    for read in (lambda: bench.mtu, lambda: bench.lags, lambda: port.vlan, bench.info, bench.mac_table, port.mac_table):
        with pytest.raises(errors.NotFound):
            read()


def test_a_shadow_switch_takes_no_traffic() -> None:
    switches = Host().switches
    switch = switches.create(BENCH, BENCH_ID, shadow=True)
    switch.ports.add("p1", 3)
    assert switch.forwarding_disabled is True
    assert switch.stored.connections(DVSPortType.DVSPORT_TYPE_SHADOW) == {"p1": 3} == switch.ports.connections()
    assert switch.stored.connections() == {}
    switches.destroy(BENCH)


def test_ports_are_a_mapping(bench: host.Switch) -> None:
    ports = bench.ports
    assert ports.keys() == tuple(ports)
    assert set(PORTS) < set(ports)
    assert len(ports) == len(PORTS) + len(UPLINK_PORTS)  # those of the uplinks are among them
    assert ports["p1"] == bench.port("p1") == ports.get("p1") == dict(ports.items())["p1"]
    assert ports.get("nothing") is None
    assert 5 not in ports
    with pytest.raises(errors.NotFound, match="port nothing of switch dvs-bench: find port"):
        ports["nothing"]
    assert ports.connections()["p1"] == 7
    assert ports.of_number(ports["p2"].number) == ports["p2"]
    assert bench.port_number("p2") == ports["p2"].number
    with pytest.raises(errors.NotFound):
        ports.of_number(1)


def test_ports_come_and_go(bench: host.Switch) -> None:
    ports = bench.ports
    assert ports.ensure_added("p3", 9) is True
    assert ports.ensure_added("p3", 9) is False
    assert ports.connections()["p3"] == 9
    with pytest.raises(errors.Exists):
        ports.add("p3")
    with pytest.raises(errors.NameTooLong):
        ports.add("x" * 48)
    assert ports.ensure_removed("p3") is True
    assert ports.ensure_removed("p3") is False
    del ports["p2"]
    assert "p2" not in ports
    outside = ports.add_opaque("p4", "outer-4")
    assert outside.stored.exists is True
    assert bench.stored.port_of_external_id("outer-4").id == "p4"
    with pytest.raises(errors.LimitExceeded):
        for i in range(9):
            ports.add(f"more-{i}")


def test_uplink_ports_come_and_go(bench: host.Switch) -> None:
    found = bench.uplink_ports
    assert [port.name for port in found] == list(UPLINK_PORTS)
    assert "north" in found
    assert found.ensure_added("north") is False
    assert found.ensure_added("east") is True
    assert found.ensure_removed("north") is True
    assert found.ensure_removed("north") is False
    wanted = (host.UplinkPort("south", "1"), host.UplinkPort("west", "u9"))
    found.replace(wanted)
    assert found.list() == wanted
    with pytest.raises(errors.Exists):
        found.replace([host.UplinkPort("west", "w"), host.UplinkPort("west", "v")])
    assert found.list() == wanted
    found.clear()
    assert len(found) == 0
    with pytest.raises(errors.Busy):
        Host().switch(PRODUCTION).uplink_ports.remove("uplink1")


def test_uplinks_are_told_by_their_nics() -> None:
    uplinks = Host().switch("dvs-storage").uplinks
    assert list(uplinks) == ["vmnic4", "vmnic5"]
    assert len(uplinks) == 2
    assert "vmnic4" in uplinks
    uplink = uplinks["vmnic4"]
    assert (uplink.nic, uplink.port, uplink.link_up, uplink.lacp_up) == ("vmnic4", "0", True, False)
    assert [other.number for other in uplinks.values()] == [uplinks[nic].number for nic in uplinks]
    assert uplink.ensure_admin_up(True) is False
    assert uplink.ensure_admin_up(False) is True
    assert uplink.link_up is False
    uplink.admin_up = True
    assert uplink.link_up is True
    with pytest.raises(errors.NotFound):
        uplinks["vmnic0"]


def test_groups_tell_their_links() -> None:
    (group,) = Host().switch(PRODUCTION).lags
    assert (group.id, group.name, group.up) == (1, "lag1", True)
    assert group.uplinks == ("vmnic1", "vmnic2", "vmnic3")
    assert group.uplinks_up == ("vmnic1", "vmnic3")
    assert Host().switch("dvs-storage").lags == ()


def test_mac_tables_keep_the_platforms_memory() -> None:
    switch = Host().switch(PRODUCTION)
    with switch.mac_table() as table:
        rows = list(table.rows())
        assert len(table) == table.totalEntries > 0
        entries = [entry.macAddress for entry in table]
    with pytest.raises(ReferenceError):
        len(table)
    assert rows[0][0] in entries
    kinds = [host.MacKind.STATIC, host.MacKind.USER, host.MacKind.LEARNED]
    assert sum(len(switch.mac_table(kind)) for kind in kinds) == len(rows)
    assert {entry.portID for entry in switch.port("12").mac_table()} == {switch.port("12").number}
    assert all(entry.portID < 2**32 for entry in switch.team_mac_table())
    kept = switch.mac_table()[3]  # an entry keeps its table
    assert kept.macAddress in entries


def test_addresses_are_entered_by_hand(bench: host.Switch) -> None:
    port = bench.port("p1")
    assert port.ensure_mac(STATION, vlan=5) is True
    assert port.ensure_mac(str(STATION), vlan=5) is False
    (entry,) = port.mac_table(host.MacKind.USER)
    assert (entry.macAddress, entry.vid, entry.portID) == (STATION, 5, port.number)
    assert port.ensure_no_mac(STATION, vlan=6) is False
    assert port.ensure_no_mac(STATION, vlan=5) is True
    with pytest.raises(errors.NotFound):
        port.remove_mac(STATION, vlan=5)
    with pytest.raises(ValueError, match="MAC"):
        port.add_mac("no address")


def test_policies_of_all_ports_come_by_number(bench: host.Switch) -> None:
    port = bench.port("p1")
    port.security = host.SecurityPolicy(promiscuous=True)
    port.mac_learning = host.PortLearning(learning=True, limit=9)
    assert bench.port_security()[port.number] == port.security
    assert bench.port_mac_learning()[port.number] == port.mac_learning
    assert bench.port_mac_learning_statistics()[port.number] == port.mac_learning_statistics()
    assert port.mac_learning_statistics().learned == 0


def test_learning_of_the_sample_switch_is_counted() -> None:
    state = Host().switch(PRODUCTION).mac_learning_state()
    assert state.aging_time == 600
    assert state.learned + state.learned_on_team > 0


def test_the_team_tells_its_uplink(bench: host.Switch) -> None:
    port = Host().switch("dvs-storage").port("20")
    assert port.uplink_in_use() in ("vmnic4", "vmnic5")
    with pytest.raises(errors.NotFound):
        bench.port("p1").uplink_in_use()  # no uplink has a NIC


def test_addresses_of_groups_may_be_texts(bench: host.Switch) -> None:
    assert bench.ensure_multicast_entries(["01:00:5e:00:00:05"]) is True
    assert bench.multicast_entries == (MacAddress("01:00:5e:00:00:05"),)
    assert bench.multicast_mode_in_use() is host.MulticastMode.LEGACY
    with pytest.raises(errors.LimitExceeded):
        bench.multicast_entries = tuple(MacAddress(0x01005E000000 + i) for i in range(26))


def test_names_with_zeros_never_reach_the_platform(bench: host.Switch) -> None:
    asks: list[Any] = [Host().switch, bench.port, bench.ports.add, bench.uplink_ports.add, bench.stored.port]
    for ask in asks:
        with pytest.raises(ValueError, match="zero character"):
            ask("a\0b")
        with pytest.raises(TypeError):
            ask(5)
