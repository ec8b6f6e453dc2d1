"""Configuration through the real module: two doors to every value, refusals that change nothing, saved and passing."""

from __future__ import annotations

import ctypes
import struct
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import _libkestrel as k
import pytest

from support.processes import run

EXAMPLE = Path(__file__).resolve().parents[2] / "examples" / "configure_switch.py"
SWITCH, ID, PORT, OTHER = "dvs-bench", "0d3c7f60-95a1-4f0b-8a44-7a6a2f1f5c10", "p1", "p2"
UPLINKS = ["north", "south"]


@pytest.fixture(autouse=True)
def _bench() -> Iterator[None]:
    """A switch of the tests' own with two ports and two uplinks, gone afterwards."""
    assert create() == k.ZEL_OK
    for port in (PORT, OTHER):
        assert k.VSDVS_AddDVPort(SWITCH, port, 7) == k.ZEL_OK
    for uplink in UPLINKS:
        assert k.VSDVS_AddSwitchUplinkPort(SWITCH, uplink) == k.ZEL_OK
    yield
    k.VSDVS_DestroyVSwitch(SWITCH)
    assert k.DVSLoadConfig() == k.ZEL_OK


def create(alias: str = SWITCH, switch_id: str = ID, mtu: int = 1600, most: int = 8) -> int:
    status = k.VSDVS_CreateVSwitch(alias, switch_id, k.PS_CLASS_NAME, 4, 0, most, mtu, k.DVS_VERSION_70)
    assert isinstance(status, int)
    return status


def get_global(key: str, room: int = 4096) -> tuple[int, bytes]:
    return query(lambda record: k.VSDVS_GetGlobProp(SWITCH, key, record, None, 0), room)


def get_port(key: str, room: int = 4096, port: str = PORT) -> tuple[int, bytes]:
    return query(lambda record: k.VSDVS_GetPortProp(SWITCH, port, key, record, None, 0), room)


def query(call: Any, room: int) -> tuple[int, bytes]:
    """Status and value of a property read into a buffer of `room` bytes."""
    record = k.alloc_vds_query(room)
    status = call(record)
    value = k.VDSQuery_get_val_in_bytes(record) if status == k.ZEL_OK else b""
    assert status == k.ZEL_OK or k.VDSQuery_propLen_get(record) == room
    k.free_vds_query(record)
    return status, value


def set_global(key: str, value: bytes, runtime_only: int = 0) -> int:
    status = k.VSDVS_SetGlobProp(SWITCH, key, value, len(value), None, runtime_only)
    assert isinstance(status, int)
    return status


def set_port(key: str, value: bytes, runtime_only: int = 0, port: str = PORT) -> int:
    status = k.VSDVS_SetPortProp(SWITCH, port, key, value, len(value), None, runtime_only)
    assert isinstance(status, int)
    return status


def shown_mtu() -> int:
    info = k.alloc_vs_info()
    assert k.VSZEL_GetVSInfo(SWITCH, info) == k.ZEL_OK
    mtu = k.VSInfo_mtu_get(info)
    k.free_vs_info(info)
    assert isinstance(mtu, int)
    return mtu


def word(number: int) -> bytes:
    return struct.pack("<I", number)


def team(active: list[str], standby: list[str] | None = None, balance: int = k.TEAM_FRP_TYPE_FO_EXPLICIT) -> Any:
    policy = k.new_VSTeamPolicy()
    k.VSTeamPolicy_loadBalance_set(policy, balance)
    k.VSTeamPolicy_numActive_set(policy, len(active))
    k.VSTeamPolicy_numStandby_set(policy, len(standby or []))
    for i, name in enumerate(active + (standby or [])):
        k.VSTeamPolicy___setitem__(policy, i, name)
    return policy


def mirror_table(*ids: str, destinations: int = 1) -> Any:
    """A table of sessions with so many destinations each."""
    table = k.alloc_dvmirror_session_table(len(ids), len(ids) * destinations)
    k.DVMirrorSessionTable_version_set(table, k.VS_DVMIRROR_VERSION_V4)
    k.DVMirrorSessionTable_numSessions_set(table, len(ids))
    k.DVMirrorSessionTable_numEntities_set(table, len(ids) * destinations)
    for i, name in enumerate(ids):
        session = k.new_DVMirrorSession()
        k.DVMirrorSession_sid_set(session, name)
        k.DVMirrorSession_type_set(session, k.VS_DVMIRROR_SESSIONTYPE_DVPORT)
        k.DVMirrorSession_numDstEntities_set(session, destinations)
        k.DVMirrorSession_startIdx_set(session, i * destinations)
        k.DVMirrorSessionTable___setitem__(table, i, session)
        k.delete_DVMirrorSession(session)
    for i in range(len(ids) * destinations):
        entity = k.DVMirrorSessionTable_get_first_session_entity(table, i)
        k.DVMirrorEntity_type_set(entity, k.MIRROR_ENTTYPE_DVPORT)
        k.DVMirrorEntity_set_entity(entity, OTHER)
    return table


def mirror_call(function: Any, *ids: str) -> int:
    table = mirror_table(*ids)
    status = function(SWITCH, PORT, table)
    k.free_dvmirror_session_table(table)
    assert isinstance(status, int)
    return status


def sessions_of(port: str = PORT) -> list[tuple[str, int, str]]:
    """Identifier, number of destinations and first destination of each session of a port."""
    status, table = k.VSDVS_GetDVMirrorSessions(SWITCH, port)
    assert status == k.ZEL_OK
    found = []
    for i in range(k.DVMirrorSessionTable_numSessions_get(table)):
        session = k.DVMirrorSessionTable___getitem__(table, i)
        entity = k.DVMirrorSessionTable_get_first_session_entity(table, k.DVMirrorSession_startIdx_get(session))
        count = k.DVMirrorSession_numDstEntities_get(session)
        found.append((k.DVMirrorSession_sid_get(session), count, k.DVMirrorEntity_get_entity(entity)))
    assert k.VSDVS_FreeMemory(table) == k.ZEL_OK
    return found


def options(*codes: int) -> dict[str, int | bytes]:
    """The values of some runtime options by name. The array of codes is that of an address record."""
    holder = k.new_zel_SocketIPv6AddressAddr___u6_addr()
    cells = k.zel_SocketIPv6AddressAddr___u6_addr___u6_addr16_get(holder)
    write16(cells, list(codes))
    status, record = k.VSZEL_GetRuntimeOptions(cells, len(codes))
    assert status == k.ZEL_OK
    values = {}
    entry = k.VSRuntimeOptions_get_first_option(record)
    for _ in codes:
        name = k.VSRuntimeOptionHeader_get_option_name(entry)
        values[name] = k.VSRuntimeOptionHeader_get_option_value(entry)
        entry = k.VSRuntimeOptions_get_next_option(record, entry)
    assert entry is None
    assert k.VSZEL_FreeMemory(record) == k.ZEL_OK
    k.delete_zel_SocketIPv6AddressAddr___u6_addr(holder)
    return values


def write16(cells: Any, numbers: list[int]) -> None:
    array = (ctypes.c_uint16 * len(numbers)).from_address(int(cells))
    for i, number in enumerate(numbers):
        array[i] = number


def set_options(*pairs: tuple[int, int | str]) -> int:
    record = k.new_VSRuntimeOptions(1024)
    entry = k.VSRuntimeOptions_get_first_option(record)
    start = int(entry)  # at once: as a record, a place that holds anything yet is gone with the next
    for code, value in pairs:
        add = k.VSRuntimeOptions_add_str_option if isinstance(value, str) else k.VSRuntimeOptions_add_int_option
        entry = add(record, entry, "", code, value)
    k.VSRuntimeOptions_set_options_length(record, int(entry) - start)
    status = k.VSZEL_SetRuntimeOptions(record)
    k.delete_VSRuntimeOptions(record)
    assert isinstance(status, int)
    return status


# ---- The life of a switch ----


def test_a_switch_is_what_it_was_made_as() -> None:
    handle = k.DVSState_SwitchFindByAlias(SWITCH)
    assert (k.DVS_SwitchId(handle), k.DVS_SwitchName(handle), k.DVS_ClassName(handle)) == (ID, SWITCH, "cswitch")
    assert (k.DVS_Version(handle), k.DVS_GetMaxPorts(handle)) == (k.DVS_VERSION_70, 8)
    assert shown_mtu() == 1600
    status, portset = k.DVSAliasToPortsetName(SWITCH)
    assert status == k.ZEL_OK
    assert k.VSDVS_GetAliasFromPortset(portset) == [k.ZEL_OK, SWITCH]
    assert k.VSDVS_GetAliasFromPortset(SWITCH) == [k.ZEL_NOT_FOUND, ""]
    assert k.DVSAliasToPortsetName(portset) == [k.ZEL_NOT_FOUND, ""]


def test_a_switch_is_refused_under_a_taken_name_or_beyond_its_ranges() -> None:
    assert create() == k.ZEL_EXISTS
    assert create(alias="another") == k.ZEL_EXISTS
    assert create("another", "another-id", mtu=1279) == k.ZEL_BAD_PARAM
    assert create("another", "another-id", most=3) == k.ZEL_BAD_PARAM  # fewer at most than at first
    assert create("a" * 81, "another-id") == k.ZEL_NAME_TOO_LONG
    assert create("", "another-id") == k.ZEL_INVALID_NAME
    assert k.DVSState_SwitchFindByAlias("another") is None
    assert create("another", "another-id") == k.ZEL_OK
    assert k.VSDVS_DestroyVSwitch("another") == k.ZEL_OK


def test_handles_of_what_is_gone_stand_for_nothing() -> None:
    switch, port = k.DVSState_SwitchFindByAlias(SWITCH), k.DVSState_PortFind(ID, PORT)
    assert k.DVS_PortId(port) == PORT
    assert k.DVS_SwitchId(port) is None
    assert k.DVS_PortId(switch) is None
    assert k.VSDVS_RemoveDVPort(SWITCH, PORT) == k.ZEL_OK
    assert k.VSDVS_AddDVPort(SWITCH, PORT, 1) == k.ZEL_OK
    assert k.DVS_PortId(port) is None
    assert k.VSDVS_DestroyVSwitch(SWITCH) == k.ZEL_OK
    assert create() == k.ZEL_OK
    assert k.DVS_SwitchId(switch) is None
    assert k.DVS_Version(switch) == 0
    record = k.new_VSInfo()
    assert k.DVS_SwitchName(record) is None  # a pointer that never was a handle
    k.delete_VSInfo(record)


def test_a_switch_with_clients_stays() -> None:
    assert k.VSDVS_DestroyVSwitch("dvs-prod") == k.ZEL_BUSY
    assert k.VSDVS_RemoveDVPort("dvs-prod", "10") == k.ZEL_BUSY
    assert k.VSDVS_RemoveSwitchUplinkPort("dvs-prod", "uplink1") == k.ZEL_BUSY
    assert k.VSDVS_ClearSwitchUplinkPorts("dvs-prod") == k.ZEL_BUSY


def test_ports_come_and_go() -> None:
    assert ord(k.DVPortExist(ID, "p3")) == 0
    assert k.VSDVS_AddDVPort(SWITCH, PORT, 1) == k.ZEL_EXISTS
    assert k.VSDVS_AddOpaqueDVPort(SWITCH, "p3", "outer") == k.ZEL_OK
    assert ord(k.DVPortExist(ID, "p3")) == 1
    assert k.DVSZEL_PortFind(ID, "p3") == k.ZEL_OK
    status, number = k.VSDVS_DvPortIDToPortIDFromDVSID(ID, "p3")
    assert [status, number] == k.VSDVS_DvPortIDToPortID(SWITCH, "p3")
    assert k.VSDVS_RemoveDVPort(SWITCH, "p3") == k.ZEL_OK
    assert k.VSDVS_RemoveDVPort(SWITCH, "p3") == k.ZEL_NOT_FOUND
    for i in range(4):
        assert k.VSDVS_AddDVPort(SWITCH, f"more-{i}", i) == k.ZEL_OK
    assert k.VSDVS_AddDVPort(SWITCH, "too-many", 0) == k.ZEL_LIMIT_EXCEEDED
    assert get_port(k.ZEL_VDSPROP_PORT_CONNECTID) == (k.ZEL_OK, word(7))


def uplink_ports() -> list[tuple[str, str]]:
    status, names, ids = k.VSDVS_GetSwitchUplinkPorts(SWITCH)
    assert status == k.ZEL_OK
    count = k.VSUplinkPorts___len__(names)
    assert k.VSUplinkPortIds___len__(ids) == count
    found = [(k.VSUplinkPorts___getitem__(names, i), k.VSUplinkPortIds___getitem__(ids, i)) for i in range(count)]
    assert k.VSDVS_FreeMemory(names) == k.VSDVS_FreeMemory(ids) == k.ZEL_OK
    return found


def set_uplink_ports(wanted: list[tuple[str, str]]) -> int:
    names, ids = k.new_VSUplinkPorts(len(wanted)), k.new_VSUplinkPortIds(len(wanted))
    for i, (name, port) in enumerate(wanted):
        k.VSUplinkPorts___setitem__(names, i, name)
        k.VSUplinkPortIds___setitem__(ids, i, port)
    status = k.VSDVS_SetSwitchUplinkPorts(SWITCH, names, ids)
    k.delete_VSUplinkPorts(names)
    k.delete_VSUplinkPortIds(ids)
    assert isinstance(status, int)
    return status


def test_uplink_ports_are_replaced_all_or_none() -> None:
    assert uplink_ports() == [("north", "0"), ("south", "1")]
    assert set_uplink_ports([("south", "1"), ("east", "u9")]) == k.ZEL_OK
    changed = [("south", "1"), ("east", "u9")]
    assert uplink_ports() == changed
    assert set_uplink_ports([("east", "u9"), ("west", PORT)]) == k.ZEL_EXISTS
    assert set_uplink_ports([("west", "w"), ("west", "v")]) == k.ZEL_EXISTS
    assert set_uplink_ports([("east", "u9"), ("east", "u9")]) == k.ZEL_EXISTS
    assert set_uplink_ports([("", "w")]) == k.ZEL_INVALID_NAME
    assert uplink_ports() == changed
    assert k.DVSLoadConfig() == k.ZEL_OK
    assert uplink_ports() == changed
    assert k.VSDVS_ClearSwitchUplinkPorts(SWITCH) == k.ZEL_OK
    assert k.VSDVS_ClearSwitchUplinkPorts(SWITCH) == k.ZEL_NOT_FOUND
    assert uplink_ports() == []


# ---- Two doors to one value ----


def test_the_mtu_has_two_doors() -> None:
    assert get_global(k.VSPROP_MTU) == (k.ZEL_OK, word(1600))
    assert set_global(k.VSPROP_MTU, word(9000)) == k.ZEL_OK
    assert shown_mtu() == 9000
    assert k.VSDVS_SetMTU(SWITCH, 1280) == k.ZEL_OK
    assert get_global(k.VSPROP_MTU) == (k.ZEL_OK, word(1280))
    for refused in (word(1279), word(9001), b"\0", word(1500) + b"\0", b""):
        assert set_global(k.VSPROP_MTU, refused) == k.ZEL_BAD_PARAM
    assert k.VSDVS_SetMTU(SWITCH, 9001) == k.ZEL_BAD_PARAM
    assert shown_mtu() == 1280
    assert k.VSDVS_ClearGlobProp(SWITCH, k.VSPROP_MTU, None, 0) == k.ZEL_OK
    assert k.VSDVS_ClearGlobProp(SWITCH, k.VSPROP_MTU, None, 0) == k.ZEL_NOT_FOUND
    assert shown_mtu() == 1500


def test_a_port_vlan_has_two_doors() -> None:
    assert k.VSDVS_SetPortVLANPolicy(SWITCH, PORT, 12, 0, 0, 0, None, 0) == k.ZEL_OK
    assert get_port(k.VSPROP_PORT_VLAN) == (k.ZEL_OK, struct.pack("<4H", 0, 12, 0, 0))
    trunk = struct.pack("<8H", k.VSPORT_VLAN_GUEST_TAGGING, 0, 0, 2, 1, 5, 7, 9)
    assert set_port(k.VSPROP_PORT_VLAN, trunk) == k.ZEL_OK
    status, policy, length = k.VSDVS_GetPortVLANPolicy(SWITCH, PORT)
    assert (status, length, k.VSPortVlanPolicy_numRanges_get(policy)) == (k.ZEL_OK, len(trunk), 2)
    assert k.VSDVS_FreeMemory(policy) == k.ZEL_OK
    assert set_port(k.VSPROP_PORT_VLAN, struct.pack("<4H", 0, 4095, 0, 0)) == k.ZEL_BAD_VLANID
    assert set_port(k.VSPROP_PORT_VLAN, trunk[:-1]) == k.ZEL_BAD_PARAM
    assert get_port(k.VSPROP_PORT_VLAN) == (k.ZEL_OK, trunk)


FLAGS = {
    k.VSPROP_PORT_VLAN_NESTEDTAG: (k.VSDVS_SetPortNestedVLANTagging, k.VSDVS_GetPortNestedVLANTagging),
    k.VSPROP_PORT_TX_UPLINK: (k.VSDVS_SetTxUplinkAlways, k.VSDVS_GetTxUplinkAlways),
}


@pytest.mark.parametrize("key", FLAGS)
def test_flags_of_a_port_have_two_doors(key: str) -> None:
    setter, getter = FLAGS[key]
    assert getter(SWITCH, PORT) == [k.ZEL_OK, 0]
    assert setter(SWITCH, PORT, 1) == k.ZEL_OK
    assert get_port(key) == (k.ZEL_OK, b"\1")
    assert set_port(key, b"\0") == k.ZEL_OK
    assert getter(SWITCH, PORT) == [k.ZEL_OK, 0]
    assert getter(SWITCH, "nobody") == [k.ZEL_NOT_FOUND, 0]
    assert set_port(key, b"\0\0") == k.ZEL_BAD_PARAM


SWITCH_FLAGS = {
    k.VSPROP_SWITCH_STATIC_MAC_ALLOW: (
        k.VSDVS_SetStaticMACAllow,
        k.VSDVS_GetStaticMACAllow,
        k.VSDVS_ClearStaticMACAllow,
        k.VS_MAC_LEARNING_ALLOW_STATIC_DEFAULT,
    ),
    k.VSPROP_SWITCH_MAC_LEARN_STATIC: (
        k.VSDVS_SetLearnStatic,
        k.VSDVS_GetLearnStatic,
        k.VSDVS_ClearLearnStatic,
        k.VS_MAC_LEARNING_LEARN_STATIC_DEFAULT,
    ),
}


@pytest.mark.parametrize("key", SWITCH_FLAGS)
def test_flags_of_a_switch_come_back_to_the_hosts_default(key: str) -> None:
    setter, getter, clear, default = SWITCH_FLAGS[key]
    assert getter(SWITCH) == [k.ZEL_OK, default]
    assert clear(SWITCH) == k.ZEL_NOT_FOUND
    assert setter(SWITCH, 1 - default) == k.ZEL_OK
    assert get_global(key) == (k.ZEL_OK, bytes([1 - default]))
    assert clear(SWITCH) == k.ZEL_OK
    assert getter(SWITCH) == [k.ZEL_OK, default]


def test_being_a_sink_is_a_flag_of_the_filter() -> None:
    assert k.VSDVS_ConfigureSinkPort(SWITCH, PORT, 1) == k.ZEL_OK
    assert k.VSDVS_IsSinkPortEnabled(SWITCH, PORT) == [k.ZEL_OK, 1]
    assert get_port(k.VSPROP_PORT_EXTRA_ETH_FRP)[1][:4] == word(k.ZEL_ETH_FILTER_SINK)
    info = k.alloc_vs_info()
    assert k.VSZEL_GetVSInfo(SWITCH, info) == k.ZEL_OK
    assert k.VSInfo_numSinkPorts_get(info) == 1
    k.free_vs_info(info)
    assert k.VSDVS_ClearExtraEthFilter(SWITCH, PORT) == k.ZEL_OK
    assert k.VSDVS_IsSinkPortEnabled(SWITCH, PORT) == [k.ZEL_OK, 0]
    station = word(0) + struct.pack("<H", 1) + bytes(194)
    assert set_port(k.VSPROP_PORT_EXTRA_ETH_FRP, station) == k.ZEL_BAD_PARAM  # not a group's address


def test_mac_learning_of_a_port_is_part_of_its_mac_management() -> None:
    policy = k.new_VSPMACLearning()
    assert k.VSDVS_GetPortMACLearning(SWITCH, PORT, policy) == k.ZEL_OK
    assert k.VSPMACLearning_macLimit_get(policy) == k.VSPORT_MAC_LEARNING_LIMIT_ENTRIES_DEFAULT
    assert set_port(k.VSPROP_PORT_MAC_MANAGEMENT, b"\1\0\0" + word(5) + word(0)) == k.ZEL_OK
    k.VSPMACLearning_learning_set(policy, 1)
    k.VSPMACLearning_macLimit_set(policy, 9)
    assert k.VSDVS_SetPortMACLearning(SWITCH, PORT, policy) == k.ZEL_OK
    assert get_port(k.VSPROP_PORT_MAC_MANAGEMENT) == (k.ZEL_OK, b"\1\1\0" + word(9) + word(0))
    k.VSPMACLearning_macLimit_set(policy, k.VSPORT_MAC_LEARNING_LIMIT_ENTRIES_MAX + 1)
    assert k.VSDVS_SetPortMACLearning(SWITCH, PORT, policy) == k.ZEL_LIMIT_EXCEEDED
    k.delete_VSPMACLearning(policy)
    status, table = k.VSZEL_GetMACLearningAllPorts(SWITCH)
    assert (status, k.VSMACLearningEntries_numEntries_get(table)) == (k.ZEL_OK, 4)
    info = k.VSPMACLearningInfo___getitem__(k.VSMACLearningEntries_portMACLearningEntries_get(table), 0)
    learning = k.VSPMACLearningInfo_get_mac_learning_config(info)
    assert k.VSPMACLearning_macLimit_get(learning) == 9
    k.delete_VSPMACLearning(learning)
    k.delete_VSPMACLearningInfo(info)
    assert k.VSZEL_FreeMemory(table) == k.ZEL_OK


def test_mac_learning_of_a_switch_follows_the_host_until_it_is_set() -> None:
    host, policy = k.new_VSMACLearningGlobalProps(), k.new_VSPropMACLearning()
    assert k.VSZEL_GetGlobalMACLearningProps(host) == k.ZEL_OK
    k.VSMACLearningGlobalProps_agingTime_set(host, 42)
    assert k.VSZEL_SetGlobalMACLearningProps(host) == k.ZEL_OK
    assert k.VSDVS_GetMACLearning(SWITCH, policy) == k.ZEL_OK
    assert k.VSPropMACLearning_agingTime_get(policy) == 42
    k.VSPropMACLearning_agingTime_set(policy, 77)
    assert k.VSDVS_SetMACLearning(SWITCH, policy) == k.ZEL_OK
    info = k.new_VSMACLearningSwitchInfo()
    assert k.VSZEL_GetSwitchMACLearningInfo(SWITCH, info) == k.ZEL_OK
    assert k.VSMACLearningSwitchInfo_agingTime_get(info) == 77
    k.VSPropMACLearning_agingTime_set(policy, k.VS_MAC_LEARNING_AGING_TIME_MAX + 1)
    assert k.VSDVS_SetMACLearning(SWITCH, policy) == k.ZEL_BAD_PARAM
    assert k.VSDVS_ClearMACLearning(SWITCH) == k.ZEL_OK
    assert k.VSZEL_GetSwitchMACLearningInfo(SWITCH, info) == k.ZEL_OK
    assert k.VSMACLearningSwitchInfo_agingTime_get(info) == 42
    k.VSMACLearningGlobalProps_agingTime_set(host, k.VS_MAC_LEARNING_AGING_TIME_MAX + 1)
    assert k.VSZEL_SetGlobalMACLearningProps(host) == k.ZEL_BAD_PARAM
    k.delete_VSMACLearningSwitchInfo(info)
    k.delete_VSPropMACLearning(policy)
    k.delete_VSMACLearningGlobalProps(host)


def test_private_vlans_are_checked_as_a_map() -> None:
    def put(*entries: tuple[int, int, int]) -> int:
        array, entry = k.new_pvlanmapentryArray(max(len(entries), 1)), k.new_VSPvlanMapEntry()
        for i, (primary, secondary, kind) in enumerate(entries):
            k.VSPvlanMapEntry_primaryVID_set(entry, primary)
            k.VSPvlanMapEntry_secondaryVID_set(entry, secondary)
            k.VSPvlanMapEntry_pvlanType_set(entry, kind)
            k.pvlanmapentryArray_setitem(array, i, entry)
        status = k.VSDVS_SetPrivateVLANMap(SWITCH, array, len(entries))
        k.delete_VSPvlanMapEntry(entry)
        k.delete_pvlanmapentryArray(array)
        assert isinstance(status, int)
        return status

    promiscuous, isolated, community = (
        k.VSPORT_PVLAN_TYPE_PROMISC,
        k.VSPORT_PVLAN_TYPE_ISOLATED,
        k.VSPORT_PVLAN_TYPE_COMMUNITY,
    )
    good = [(100, 100, promiscuous), (100, 101, isolated), (100, 102, community)]
    assert put(*good) == k.ZEL_OK
    status, raw = get_global(k.VSPROP_PVLAN_MAP)
    assert [struct.unpack_from("<HHB", raw, 8 * i) for i in range(3)] == good
    assert put((100, 101, promiscuous)) == k.ZEL_BAD_PARAM
    assert put((100, 100, community)) == k.ZEL_BAD_PARAM
    assert put(*good, (100, 103, isolated)) == k.ZEL_BAD_PARAM
    assert put(*good, (200, 102, community)) == k.ZEL_BAD_PARAM
    assert put(*good, (101, 104, community)) == k.ZEL_BAD_PARAM
    assert put((0, 5, community)) == k.ZEL_BAD_VLANID
    assert put((100, 4095, community)) == k.ZEL_BAD_VLANID
    status, record, count = k.VSDVS_GetPrivateVLANMap(SWITCH)
    assert (status, count) == (k.ZEL_OK, 3)
    assert k.VSDVS_FreeMemory(record) == k.ZEL_OK
    assert put() == k.ZEL_OK
    assert get_global(k.VSPROP_PVLAN_MAP) == (k.ZEL_OK, b"")


def test_a_private_vlan_map_comes_in_an_instance_of_the_class_for_the_type_that_it_comes_under() -> None:
    done = run(
        "import _libkestrel as k\n"
        "Ports = type('Ports', (), {})\n"
        "k.VSUplinkPorts_swigregister(Ports)\n"
        "array, entry = k.new_pvlanmapentryArray(1), k.new_VSPvlanMapEntry()\n"
        "k.VSPvlanMapEntry_primaryVID_set(entry, 100)\n"
        "k.VSPvlanMapEntry_secondaryVID_set(entry, 100)\n"
        "k.VSPvlanMapEntry_pvlanType_set(entry, k.VSPORT_PVLAN_TYPE_PROMISC)\n"
        "k.pvlanmapentryArray_setitem(array, 0, entry)\n"
        "assert k.VSDVS_SetPrivateVLANMap('dvs-prod', array, 1) == k.ZEL_OK\n"
        "status, handed_out, count = k.VSDVS_GetPrivateVLANMap('dvs-prod')\n"
        "assert (status, type(handed_out), count) == (k.ZEL_OK, Ports, 1), (status, handed_out, count)\n"
        "assert k.VSDVS_FreeMemory(handed_out) == k.ZEL_OK\n"
    )
    assert (done.returncode, done.stderr) == (0, "")


def test_multicast_addresses_of_the_user() -> None:
    entries = k.new_VSMACEntries()
    for i in range(3):
        k.VSMACEntries_set_mac_address(entries, i, bytes([1, 0, 0x5E, 0, 0, i]))
    assert k.VSDVS_SetMcastUserLegacyEntries(SWITCH, 3, entries) == k.ZEL_OK
    status, keys = k.VSDVS_GetMcastUserLegacyEntries(SWITCH)
    assert (status, k.VSUserMcastLegacyKeys_numEntries_get(keys)) == (k.ZEL_OK, 3)
    assert k.VSDVS_FreeMemory(keys) == k.ZEL_OK
    value = get_global(k.VSPROP_USER_MCAST_ADDRESSES)[1]
    assert value == b"\3" + b"".join(bytes([1, 0, 0x5E, 0, 0, i]) for i in range(3))
    assert k.VSDVS_SetMcastUserLegacyEntries(SWITCH, 26, entries) == k.ZEL_LIMIT_EXCEEDED
    assert k.VSDVS_SetMcastUserLegacyEntries(SWITCH, -1, entries) == k.ZEL_BAD_PARAM
    assert k.VSDVS_SetMcastUserLegacyEntries(SWITCH, 1, None) == k.ZEL_BAD_PARAM
    k.VSMACEntries_set_mac_address(entries, 2, bytes([1, 0, 0x5E, 0, 0, 1]))
    assert k.VSDVS_SetMcastUserLegacyEntries(SWITCH, 3, entries) == k.ZEL_EXISTS
    k.VSMACEntries_set_mac_address(entries, 2, bytes([2, 0, 0x5E, 0, 0, 1]))
    assert k.VSDVS_SetPortMcastUserLegacyEntries(SWITCH, PORT, 3, entries) == k.ZEL_BAD_PARAM
    k.delete_VSMACEntries(entries)
    assert get_global(k.VSPROP_USER_MCAST_ADDRESSES)[1] == value
    assert k.VSDVS_ClearMcastUserLegacyEntries(SWITCH) == k.ZEL_OK
    assert get_global(k.VSPROP_USER_MCAST_ADDRESSES) == (k.ZEL_OK, b"\0")


def test_modes_and_types_stay_within_their_ranges() -> None:
    assert k.VSDVS_SetMcastFilterMode(SWITCH, k.VS_MCAST_FILTER_MODE_SNOOPING) == k.ZEL_OK
    assert k.VSZEL_GetMcastFilterMode(SWITCH) == [k.ZEL_OK, k.VS_MCAST_FILTER_MODE_SNOOPING]
    assert k.VSDVS_SetMcastFilterMode(SWITCH, k.VS_MCAST_FILTER_MODE_IGMP) == k.ZEL_BAD_PARAM
    assert k.VSDVS_SetRCFType(SWITCH, k.TRV_RCF_INSN_TYPE_EBPF) == k.ZEL_OK
    assert k.VSDVS_SetRCFType(SWITCH, k.TRV_RCF_INSN_TYPE_MAX) == k.ZEL_BAD_PARAM
    assert k.VSDVS_GetRCFType(SWITCH) == [k.ZEL_OK, k.TRV_RCF_INSN_TYPE_EBPF]
    assert set_port(k.VSPROP_PORT_SECURITY, word(8)) == k.ZEL_BAD_PARAM


# ---- Teaming ----


def test_a_port_teams_as_its_switch_until_it_has_a_policy_of_its_own() -> None:
    default = get_global(k.VSPROP_SWITCH_TEAMING)[1]
    assert struct.unpack_from("<I", default, 16) == (len(UPLINKS),)
    policy, read = team(["south"], ["north"]), k.new_VSTeamPolicy()
    assert k.VSDVS_ClearTeamingPolicy(SWITCH) == k.ZEL_NOT_FOUND
    assert k.VSDVS_SetTeamingPolicy(SWITCH, policy) == k.ZEL_OK
    for status in (
        k.VSDVS_GetPortTeamingPolicy(SWITCH, PORT, read),
        k.VSDVS_GetTeamingPolicyFromDVSID(ID, read),
    ):
        assert status == k.ZEL_OK
        assert [k.VSTeamPolicy___getitem__(read, i) for i in range(2)] == ["south", "north"]
    refused = {
        k.ZEL_NOT_FOUND: team(["nowhere"]),
        k.ZEL_INVALID_NAME: team([""]),
        k.ZEL_BAD_PARAM: team(["north", "north"]),
    }
    for status, wrong in refused.items():
        assert k.VSDVS_SetPortTeamingPolicy(SWITCH, PORT, wrong) == status
        k.delete_VSTeamPolicy(wrong)
    k.VSTeamPolicy_numActive_set(policy, 33)
    assert k.VSDVS_SetTeamingPolicy(SWITCH, policy) == k.ZEL_LIMIT_EXCEEDED
    k.delete_VSTeamPolicy(policy)
    k.delete_VSTeamPolicy(read)
    assert k.VSDVS_ClearPortTeamingPolicy(SWITCH, PORT) == k.ZEL_NOT_FOUND
    assert k.VSDVS_ClearTeamingPolicy(SWITCH) == k.ZEL_OK
    assert get_global(k.VSPROP_SWITCH_TEAMING)[1] == default


def test_a_port_is_tied_to_an_uplink_by_either_door() -> None:
    assert k.VSDVS_GetPortTeamingOverride(SWITCH, PORT) == [k.ZEL_NOT_FOUND, ""]
    assert k.VSDVS_SetPortTeamingOverride(SWITCH, PORT, "north") == k.ZEL_OK
    assert get_port(k.VSPROP_PORT_TEAMING_OVERRIDE) == (k.ZEL_OK, b"north")
    assert set_port(k.VSPROP_PORT_TEAMING_OVERRIDE, b"south\0") == k.ZEL_OK
    assert k.VSDVS_GetPortTeamingOverride(SWITCH, PORT) == [k.ZEL_OK, "south"]
    assert k.VSDVS_SetPortTeamingOverride(SWITCH, PORT, "nowhere") == k.ZEL_NOT_FOUND
    assert k.VSDVS_GetPortTeamingOverride(SWITCH, PORT) == [k.ZEL_OK, "south"]
    assert k.VSDVS_ClearPortTeamingOverride(SWITCH, PORT) == k.ZEL_OK


def test_named_policies_stay_while_a_port_follows_them() -> None:
    table = k.alloc_ls_team_table(1)
    policy = k.LSTeamTable___getitem__(table, 0)
    k.LSTeamPolicy_name_set(policy, "gold")
    k.LSTeamPolicy_numActive_set(policy, 1)
    k.LSTeamPolicy___setitem__(policy, 0, "north")
    assert k.VSDVS_SetPortLSTeamingPolicy(SWITCH, PORT, "gold") == k.ZEL_NOT_FOUND
    assert k.VSDVS_SetLSTeamingPolicy(SWITCH, table) == k.ZEL_OK
    assert k.VSDVS_SetPortLSTeamingPolicy(SWITCH, PORT, "gold") == k.ZEL_OK
    port = k.VSDVS_DvPortIDToPortID(SWITCH, PORT)[1]
    assert k.VSZEL_GetPortLSTeamingPolicyName(port) == [k.ZEL_OK, "gold"]
    assert k.VSDVS_ClearLSTeamingPolicy(SWITCH) == k.ZEL_BUSY
    k.LSTeamPolicy_name_set(policy, "silver")
    assert k.VSDVS_SetLSTeamingPolicy(SWITCH, table) == k.ZEL_BUSY
    k.free_ls_team_table(table)
    status, kept = k.VSZEL_GetLSTeamingPolicyTable(SWITCH)
    assert (status, k.LSTeamPolicy_name_get(k.LSTeamTable___getitem__(kept, 0))) == (k.ZEL_OK, "gold")
    assert k.VSZEL_FreeMemory(kept) == k.ZEL_OK
    assert k.VSDVS_ClearPortLSTeamingPolicy(SWITCH, PORT) == k.ZEL_OK
    assert k.VSDVS_ClearLSTeamingPolicy(SWITCH) == k.ZEL_OK


def test_the_team_sends_through_an_uplink_that_has_a_link() -> None:
    name, port = k.new_zel_Name(), k.VSDVS_DvPortIDToPortID("dvs-storage", "20")[1]

    def hint() -> str:
        status = k.VSZEL_PortGetTeamUplinkHint(port, name)
        return str(k.zel_Name_string_get(name)) if status == k.ZEL_OK else f"0x{status:08x}"

    policy = team(["uplink1"], ["uplink2"])
    assert k.VSDVS_SetTeamingPolicy("dvs-storage", policy) == k.ZEL_OK
    assert hint() == "vmnic4"
    assert k.VSZEL_SetUplinkAdminLinkState("dvs-storage", "vmnic4", k.ZEL_LINK_STATE_DOWN) == k.ZEL_OK
    assert k.VSZEL_GetUplinkLinkState("dvs-storage", "vmnic4") == [k.ZEL_OK, k.ZEL_LINK_STATE_DOWN]
    assert hint() == "vmnic5"
    assert k.VSDVS_SetPortTeamingOverride("dvs-storage", "20", "uplink1") == k.ZEL_OK
    assert hint() == f"0x{k.ZEL_NOT_FOUND:08x}"
    assert k.VSZEL_SetUplinkAdminLinkState("dvs-storage", "vmnic4", k.ZEL_LINK_STATE_UP) == k.ZEL_OK
    assert hint() == "vmnic4"
    assert k.VSDVS_ClearPortTeamingOverride("dvs-storage", "20") == k.ZEL_OK
    assert k.VSDVS_ClearTeamingPolicy("dvs-storage") == k.ZEL_OK
    k.delete_VSTeamPolicy(policy)
    k.delete_zel_Name(name)
    assert k.VSZEL_GetUplinkDVPortID("vmnic4") == [k.ZEL_OK, "0"]
    assert k.VSZEL_GetUplinkLACPLinkState("dvs-prod", "vmnic1") == [k.ZEL_OK, k.ZEL_LINK_STATE_UP]
    assert k.VSZEL_GetUplinkLACPLinkState("dvs-prod", "vmnic0") == [k.ZEL_OK, k.ZEL_LINK_STATE_DOWN]


# ---- Mirror sessions ----


def test_mirror_sessions_are_set_added_and_removed() -> None:
    assert sessions_of() == []
    assert mirror_call(k.VSDVS_SetDVMirrorSessions, "one", "two") == k.ZEL_OK
    assert mirror_call(k.VSDVS_AppendDVMirrorSessions, "three") == k.ZEL_OK
    assert [session for session, _, _ in sessions_of()] == ["one", "two", "three"]
    assert mirror_call(k.VSDVS_AppendDVMirrorSessions, "four", "two") == k.ZEL_EXISTS
    assert k.VSDVS_RemoveDVMirrorSession(SWITCH, PORT, "one") == k.ZEL_OK
    assert sessions_of() == [("two", 1, OTHER), ("three", 1, OTHER)]
    assert k.VSDVS_RemoveDVMirrorSession(SWITCH, PORT, "one") == k.ZEL_NOT_FOUND
    status, ids = k.VSZEL_GetDVMirrorSessionIDs(SWITCH)
    assert status == k.ZEL_OK
    found = [k.VSDVMirrorSessionIDs___getitem__(ids, i) for i in range(k.VSDVMirrorSessionIDs_numEntries_get(ids))]
    assert [name.rstrip(b"\0") for name in found] == [b"two", b"three"]
    assert k.VSZEL_FreeMemory(ids) == k.ZEL_OK
    assert k.VSDVS_ClearDVMirrorSessions(SWITCH, PORT) == k.ZEL_OK
    assert k.VSDVS_ClearDVMirrorSessions(SWITCH, PORT) == k.ZEL_NOT_FOUND


def test_a_session_is_in_one_table_of_a_switch() -> None:
    assert mirror_call(k.VSDVS_SetDVMirrorSessions, "one") == k.ZEL_OK
    table = mirror_table("one")
    assert k.VSDVS_SetDVMirrorSessions(SWITCH, OTHER, table) == k.ZEL_EXISTS
    assert k.VSDVS_SetDVMirrorSessions(SWITCH, PORT, table) == k.ZEL_OK
    k.free_dvmirror_session_table(table)


def damaged(change: Any) -> int:
    """What setting a table says after `change(table, first session)`."""
    table = mirror_table("one", "two")
    change(table, k.DVMirrorSessionTable___getitem__(table, 0))
    status = k.VSDVS_SetDVMirrorSessions(SWITCH, PORT, table)
    k.free_dvmirror_session_table(table)
    assert isinstance(status, int)
    return status


def test_a_mirror_table_is_checked_against_its_counts() -> None:
    assert damaged(lambda table, _: k.DVMirrorSessionTable_magicNum_set(table, 1)) == k.ZEL_INVALID_METADATA
    assert damaged(lambda table, _: k.DVMirrorSessionTable_version_set(table, 9)) == k.ZEL_VERSION_MISMATCH_MAJOR
    assert damaged(lambda table, _: k.DVMirrorSessionTable_numSessions_set(table, 2**32 - 1)) == k.ZEL_LIMIT_EXCEEDED
    assert damaged(lambda _, one: k.DVMirrorSession_startIdx_set(one, 2)) == k.ZEL_BAD_PARAM
    assert damaged(lambda _, one: k.DVMirrorSession_numSrcInEntities_set(one, 2**32 - 1)) == k.ZEL_BAD_PARAM
    assert damaged(lambda _, one: k.DVMirrorSession_numFilterRules_set(one, 1)) == k.ZEL_BAD_PARAM
    assert damaged(lambda _, one: k.DVMirrorSession_sid_set(one, "two")) == k.ZEL_EXISTS
    assert damaged(lambda _, one: k.DVMirrorSession_sid_set(one, "")) == k.ZEL_INVALID_NAME
    assert damaged(lambda _, one: k.DVMirrorSession_encapType_set(one, 3)) == k.ZEL_BAD_PARAM
    assert sessions_of() == []
    assert damaged(lambda *_: None) == k.ZEL_OK
    packed = get_port(k.VSPROP_PORT_MIRROR_SESSIONS)[1]
    assert len(packed) == 20 + 2 * 232 + 2 * 52
    for size in (0, 19, 20, len(packed) - 1):
        assert set_port(k.VSPROP_PORT_MIRROR_SESSIONS, packed[:size]) == k.ZEL_BAD_PARAM


# ---- Properties by themselves ----


def test_unknown_keys_keep_plain_bytes() -> None:
    key, value = "org.example.note", b"\0two\0parts\xff"
    assert get_global(key) == (k.ZEL_NOT_FOUND, b"")
    assert set_global(key, value) == k.ZEL_OK
    assert get_global(key) == (k.ZEL_OK, value)
    assert get_global(key, len(value)) == (k.ZEL_OK, value)
    assert get_global(key, len(value) - 1) == (k.ZEL_BUF_TOO_SMALL, b"")
    assert get_port(key) == (k.ZEL_NOT_FOUND, b"")
    assert k.VSDVS_SetHostProp(SWITCH, key, b"", 0, None, 0) == k.ZEL_OK
    assert query(lambda record: k.VSDVS_GetHostProp(SWITCH, key, record, None, 0), 1) == (k.ZEL_OK, b"")


def test_keys_and_values_have_limits() -> None:
    assert set_global("", b"x") == k.ZEL_INVALID_NAME
    assert set_global("k" * 255, b"x") == k.ZEL_OK
    assert set_global("k" * 256, b"x") == k.ZEL_NAME_TOO_LONG
    assert set_global("big", bytes(2**20)) == k.ZEL_OK
    assert set_global("big", bytes(2**20 + 1)) == k.ZEL_LIMIT_EXCEEDED
    assert k.VSDVS_SetGlobProp(SWITCH, "big", b"x", -1, None, 0) == k.ZEL_BAD_PARAM
    assert k.VSDVS_SetGlobProp(SWITCH, None, b"x", 1, None, 0) == k.ZEL_BAD_PARAM
    assert k.VSDVS_SetGlobProp(SWITCH, "key", b"x", 1, "c" * 128, 0) == k.ZEL_NAME_TOO_LONG
    assert k.VSDVS_SetGlobProp("nowhere", "key", b"x", 1, None, 0) == k.ZEL_NOT_FOUND


def test_a_key_belongs_to_one_level() -> None:
    assert set_port(k.VSPROP_MTU, word(1500)) == k.ZEL_BAD_PARAM
    assert set_global(k.VSPROP_PORT_SECURITY, word(0)) == k.ZEL_BAD_PARAM
    assert get_port(k.VSPROP_MTU) == (k.ZEL_BAD_PARAM, b"")


def test_what_a_switch_is_can_be_read_and_not_set() -> None:
    assert get_global(k.ZEL_VDSPROP_SWITCH_ALIAS) == (k.ZEL_OK, SWITCH.encode())
    assert get_global(k.ZEL_VDSPROP_SWITCH_VERSION) == (k.ZEL_OK, word(k.DVS_VERSION_70))
    assert k.DVSZEL_SwitchSetVersion(ID, k.DVS_VERSION_66) == k.ZEL_OK
    assert get_global(k.ZEL_VDSPROP_SWITCH_VERSION) == (k.ZEL_OK, word(k.DVS_VERSION_66))
    assert set_global(k.ZEL_VDSPROP_SWITCH_ALIAS, b"other") == k.ZEL_READ_ONLY
    assert k.VSDVS_ClearGlobProp(SWITCH, k.ZEL_VDSPROP_SWITCH_ALIAS, None, 0) == k.ZEL_READ_ONLY
    assert k.DVSZEL_SwitchSetMaxPorts(ID, 3) == k.ZEL_BUSY


def test_passing_values_last_until_the_configuration_is_loaded() -> None:
    assert set_global(k.VSPROP_MTU, word(2000)) == k.ZEL_OK
    assert set_global(k.VSPROP_MTU, word(3000), runtime_only=1) == k.ZEL_OK
    assert set_port("passing", b"x", runtime_only=1) == k.ZEL_OK
    assert k.VSDVS_SetRuntimeHostProp(SWITCH, "passing", b"x", 1, None, 0) == k.ZEL_OK
    assert shown_mtu() == 3000
    assert k.VSDVS_ClearGlobProp(SWITCH, k.VSPROP_MTU, None, 1) == k.ZEL_OK
    assert shown_mtu() == 1500
    assert k.VSDVS_ClearGlobProp(SWITCH, k.VSPROP_MTU, None, 1) == k.ZEL_NOT_FOUND
    assert k.DVSLoadConfig() == k.ZEL_OK
    assert shown_mtu() == 2000
    assert get_port("passing") == (k.ZEL_NOT_FOUND, b"")
    assert k.VSDVS_ClearHostProp(SWITCH, "passing", None, 0) == k.ZEL_NOT_FOUND


def test_removed_things_stay_removed() -> None:
    assert k.VSDVS_RemoveDVPort(SWITCH, PORT) == k.ZEL_OK
    assert k.DVSLoadConfig() == k.ZEL_OK
    assert k.DVSZEL_PortFind(ID, PORT) == k.ZEL_NOT_FOUND
    assert k.VSDVS_DestroyVSwitch(SWITCH) == k.ZEL_OK
    assert k.DVSLoadConfig() == k.ZEL_OK
    assert k.DVSState_SwitchFindByAlias(SWITCH) is None


# ---- MAC entries of the user ----


def test_user_entries_of_a_port() -> None:
    entry = k.new_VSMACEntry()
    k.VSMACEntry_set_mac_address(entry, bytes([2, 0, 0, 0, 0, 1]))
    k.VSMACEntry_macAddrType_set(entry, k.VS_MAC_ADDR_TYPE_USER)
    assert k.VSZEL_SetPortMACTable(SWITCH, PORT, entry) == k.ZEL_OK
    assert k.VSZEL_SetPortMACTable(SWITCH, PORT, entry) == k.ZEL_EXISTS
    assert k.VSZEL_ClearPortMACTable(SWITCH, OTHER, entry) == k.ZEL_NOT_FOUND
    for call, count in ((k.VSZEL_GetMACTable, 1), (k.VSZEL_GetTeamMACTable, 0)):
        status, table = call(SWITCH, k.VS_MAC_ADDR_TYPE_ALL)
        assert (status, k.VSMACTable_numEntries_get(table)) == (k.ZEL_OK, count)
        assert k.VSZEL_FreeMemory(table) == k.ZEL_OK
    assert k.VSZEL_ClearPortMACTable(SWITCH, PORT, entry) == k.ZEL_OK
    k.delete_VSMACEntry(entry)


# ---- Runtime options ----


def test_runtime_options_have_defaults_and_change_all_or_none() -> None:
    both = (k.VS_RT_OPT_IGMP_VERSION, k.VS_RT_OPT_IGMP_ROUTER_IP)
    before = options(*both)
    assert before == {"IGMPVersion": 3, "IGMPRouterIP": b""}
    assert set_options((both[0], 2), (both[1], "10.0.0.1")) == k.ZEL_OK
    changed = {"IGMPVersion": 2, "IGMPRouterIP": b"10.0.0.1"}
    assert options(*both) == changed
    assert set_options((both[0], 3), (k.VS_RT_OPT_MLD_VERSION, 3)) == k.ZEL_BAD_PARAM
    assert set_options((both[0], 3), (17, 0)) == k.ZEL_BAD_PARAM
    assert set_options((both[0], 3), (both[1], "10.0.0")) == k.ZEL_BAD_PARAM
    assert set_options((both[0], 3), (k.VS_RT_OPT_MLD_ROUTER_IP, "10.0.0.1")) == k.ZEL_BAD_PARAM
    assert set_options((both[0], 3), (k.VS_RT_OPT_MLD_VERSION, "1")) == k.ZEL_BAD_PARAM
    assert options(*both) == changed
    assert k.DVSLoadConfig() == k.ZEL_OK
    assert options(*both) == before


def test_a_list_of_options_has_limits() -> None:
    record = k.new_VSRuntimeOptions(8)
    k.VSRuntimeOptions_totalLength_set(record, k.VS_CHARDEV_MAX_RUNTIME_OPTIONS_LENGTH + 1)
    assert k.VSZEL_SetRuntimeOptions(record) == k.ZEL_LIMIT_EXCEEDED
    k.VSRuntimeOptions_totalLength_set(record, 3)
    assert k.VSZEL_SetRuntimeOptions(record) == k.ZEL_BAD_PARAM
    k.VSRuntimeOptions_totalLength_set(record, 4)
    assert k.VSZEL_SetRuntimeOptions(record) == k.ZEL_OK
    k.delete_VSRuntimeOptions(record)
    assert k.VSZEL_SetRuntimeOptions(None) == k.ZEL_BAD_PARAM
    assert k.VSZEL_GetRuntimeOptions(None, 1) == [k.ZEL_BAD_PARAM, None]


# ---- The example ----


def test_the_example_shows_what_it_configured() -> None:
    done = subprocess.run([sys.executable, str(EXAMPLE)], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (0, "")
    for expected in (
        "dvs-lab",
        "access, VLAN 120",
        "active west, standby east",
        "watch-web",
        "IGMPQueryInterval",
        "60",
        "9000",
        k.ZEL_ReturnStatusToString(k.ZEL_BAD_PARAM),
    ):
        assert expected in done.stdout
