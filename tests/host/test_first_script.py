"""The typical script against the embedded host: answers come from its model and change with it."""

from __future__ import annotations

import ctypes
import re
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import _libkestrel as k
import pytest

EXAMPLE = Path(__file__).resolve().parents[2] / "examples" / "first_script.py"
SWITCH, STORAGE, PORT = "dvs-prod", "dvs-storage", "10"
TOTAL_ADDRESSES = {SWITCH: 13, STORAGE: 5}
"""How many addresses the sample host's switches know, those of their clients among them."""


@pytest.fixture(autouse=True)
def _fresh_policies() -> Iterator[None]:
    """Every test starts and ends with the configuration that the host was given."""
    yield
    assert k.DVSLoadConfig() == k.ZEL_OK


def names(kind: int) -> list[str]:
    switches = k.VSZEL_GetSwitchesPy(kind)
    found = [k.VSList___getitem__(switches, i) for i in range(k.VSList_count_get(switches))]
    k.delete_VSList(switches)
    return found


def policy(switch: str, port: str) -> tuple[int, int, list[tuple[int, int]]]:
    """Flags, VLAN and ranges of a port's policy."""
    status, record, length = k.VSDVS_GetPortVLANPolicy(switch, port)
    assert status == k.ZEL_OK
    count = k.VSPortVlanPolicy_numRanges_get(record)
    assert length == 8 + 4 * count
    words = (ctypes.c_uint16 * (2 * count)).from_address(int(record) + 8)
    ranges = [(words[2 * i], words[2 * i + 1]) for i in range(count)]
    found = (k.VSPortVlanPolicy_flags_get(record), k.VSPortVlanPolicy_vlanID_get(record), ranges)
    assert k.VSDVS_FreeMemory(record) == k.ZEL_OK
    return found


def set_policy(switch: str, port: str, vlan: int, mode: int = 0, ranges: list[tuple[int, int]] | None = None) -> int:
    array = k.new_vidrangeArray(max(len(ranges or []), 1))
    entry = k.new_zel_VDSPortVIDRange()
    for i, (low, high) in enumerate(ranges or []):
        k.zel_VDSPortVIDRange_minVID_set(entry, low)
        k.zel_VDSPortVIDRange_maxVID_set(entry, high)
        k.vidrangeArray_setitem(array, i, entry)
    status = k.VSDVS_SetPortVLANPolicy(switch, port, vlan, mode, 0, 0, array if ranges else None, len(ranges or []))
    k.delete_zel_VDSPortVIDRange(entry)
    k.delete_vidrangeArray(array)
    assert isinstance(status, int)
    return status


def macs(switch: str, kind: int) -> list[tuple[int, bytes, int]]:
    status, table = k.VSZEL_GetMACTable(switch, kind)
    assert status == k.ZEL_OK
    first = k.VSMACTable_macEntries_get(table)
    found = []
    for i in range(k.VSMACTable_numEntries_get(table)):
        entry = k.VSMACEntry___getitem__(first, i)
        address = ctypes.string_at(int(k.VSMACEntry_macAddress_get(entry)), 6)
        found.append((k.VSMACEntry_vid_get(entry), address, k.VSMACEntry_macAddrType_get(entry)))
        k.delete_VSMACEntry(entry)
    assert k.VSMACTable_totalEntries_get(table) == TOTAL_ADDRESSES[switch]
    assert k.VSZEL_FreeMemory(table) == k.ZEL_OK
    return found


def lags(switch: str) -> list[tuple[str, int, list[str], int]]:
    status, table = k.VSZEL_GetLAGTable(switch)
    assert status == k.ZEL_OK
    found = []
    lag: Any = k.VSLAGTable_vs_lag_table_first_lag(table)
    for _ in range(k.VSLAGTable_numLAGs_get(table)):
        uplinks = [k.VSLAGStatus_get_uplink_name(lag, i) for i in range(k.VSLAGStatus_numUplinks_get(lag))]
        bitmap = k.VSLAGStatus_uplinkLinkupBitmap_get(lag)
        found.append((k.VSLAGStatus_get_name(lag), k.VSLAGStatus_state_get(lag), uplinks, bitmap))
        lag = k.VSLAGStatus_vs_lag_table_next_lag(lag)
    assert k.VSZEL_FreeMemory(table) == k.ZEL_OK
    return found


def uplinks(switch: str) -> list[str]:
    status, record = k.VSZEL_GetUplinks(switch)
    assert status == k.ZEL_OK
    found = [k.VSUplinks___getitem__(record, i) for i in range(k.VSUplinks___len__(record))]
    assert k.VSZEL_FreeMemory(record) == k.ZEL_OK
    return found


def test_switches_are_listed_by_portset_and_by_alias() -> None:
    assert names(k.VS_LIST_DVS_ALIAS) == [SWITCH, STORAGE]
    assert names(k.VS_LIST_PS) == ["DvsPortset-0", "DvsPortset-1"]


def test_a_switch_answers_to_alias_and_portset_alike() -> None:
    records = []
    for name in (SWITCH, "DvsPortset-0"):
        info = k.alloc_vs_info()
        assert k.VSZEL_GetVSInfo(name, info) == k.ZEL_OK
        records.append(ctypes.string_at(int(info), 210))
        assert k.VSInfo_mtu_get(info) == 1500
        assert k.VSInfo_activePorts_get(info) <= k.VSInfo_maxPorts_get(info)
        k.free_vs_info(info)
    assert records[0] == records[1]
    assert b"dvs-prod\0" in records[0]


def test_lags_are_walked_with_their_uplinks_and_link_bits() -> None:
    ((name, state, members, bitmap),) = lags(SWITCH)
    assert name == "lag1"
    assert state == k.ZEL_LINK_STATE_UP
    assert set(members) <= set(uplinks(SWITCH))
    for i, member in enumerate(members):
        assert k.VSZEL_GetUplinkLinkState(SWITCH, member) == [k.ZEL_OK, bitmap >> i & 1]
    assert 0 < bitmap < (1 << len(members)) - 1
    assert lags(STORAGE) == []


def test_mac_tables_are_told_apart_by_kind() -> None:
    everything = macs(SWITCH, k.VS_MAC_ADDR_TYPE_ALL)
    kinds = (k.VS_MAC_ADDR_TYPE_STATIC, k.VS_MAC_ADDR_TYPE_USER, k.VS_MAC_ADDR_TYPE_LEARNED)
    parts = [macs(SWITCH, kind) for kind in kinds]
    assert all(parts)
    assert sorted(entry for part in parts for entry in part) == sorted(everything)
    assert all(entry[2] == kind for kind, part in zip(kinds, parts, strict=True) for entry in part)


def test_a_policy_reads_back_as_it_was_set() -> None:
    for vlan, mode, ranges in (
        (0, 0, []),
        (4094, 0, []),
        (0, k.VSPORT_VLAN_GUEST_TAGGING, [(1, 1), (100, 199), (4000, 4094)]),
        (1101, k.VSPORT_VLAN_PVLAN_ENABLED, []),
    ):
        assert set_policy(SWITCH, PORT, vlan, mode, ranges) == k.ZEL_OK
        assert policy(SWITCH, PORT) == (mode, vlan, ranges)


@pytest.mark.parametrize(
    ("vlan", "mode", "ranges", "status"),
    [
        (4095, 0, [], k.ZEL_BAD_VLANID),
        (65535, 0, [], k.ZEL_BAD_VLANID),
        (0, k.VSPORT_VLAN_GUEST_TAGGING, [(200, 100)], k.ZEL_BAD_VLANID),
        (0, k.VSPORT_VLAN_GUEST_TAGGING, [(1, 10), (10, 20)], k.ZEL_BAD_VLANID),
        (0, k.VSPORT_VLAN_GUEST_TAGGING, [(1, 4095)], k.ZEL_BAD_VLANID),
        (0, k.VSPORT_VLAN_GUEST_TAGGING, [], k.ZEL_BAD_PARAM),
        (1, 0, [(1, 2)], k.ZEL_BAD_PARAM),
        (1, 77, [], k.ZEL_BAD_PARAM),
        (1, -1, [], k.ZEL_BAD_PARAM),
    ],
)
def test_a_refused_policy_changes_nothing(vlan: int, mode: int, ranges: list[tuple[int, int]], status: int) -> None:
    before = policy(SWITCH, PORT)
    assert set_policy(SWITCH, PORT, vlan, mode, ranges) == status
    assert policy(SWITCH, PORT) == before


def test_policies_of_other_ports_stay() -> None:
    before = policy(SWITCH, "11")
    assert set_policy(SWITCH, PORT, 777) == k.ZEL_OK
    assert policy(SWITCH, "11") == before


def test_clearing_takes_the_policy_away_once() -> None:
    assert k.VSDVS_ClearPortVLANPolicy(SWITCH, PORT) == k.ZEL_OK
    assert policy(SWITCH, PORT) == (0, 0, [])
    assert k.VSDVS_ClearPortVLANPolicy(SWITCH, PORT) == k.ZEL_NOT_FOUND


def test_a_runtime_policy_is_gone_when_the_configuration_is_loaded() -> None:
    before = policy(SWITCH, PORT)
    assert k.VSDVS_SetPortVLANPolicy(SWITCH, PORT, 42, 0, 0, 1, None, 0) == k.ZEL_OK
    assert policy(SWITCH, PORT) == (0, 42, [])
    assert k.DVSLoadConfig() == k.ZEL_OK
    assert policy(SWITCH, PORT) == before


def get_info(switch: str) -> int:
    info = k.alloc_vs_info()
    status = k.VSZEL_GetVSInfo(switch, info)
    k.free_vs_info(info)
    assert isinstance(status, int)
    return status


UNKNOWN: dict[str, Any] = {
    "VSZEL_GetVSInfo": get_info,
    "VSZEL_GetLAGTable": lambda s: k.VSZEL_GetLAGTable(s),
    "VSZEL_GetUplinks": lambda s: k.VSZEL_GetUplinks(s),
    "VSZEL_GetMACTable": lambda s: k.VSZEL_GetMACTable(s, k.VS_MAC_ADDR_TYPE_ALL),
    "VSZEL_GetUplinkLinkState": lambda s: k.VSZEL_GetUplinkLinkState(s, "vmnic0"),
    "VSDVS_DvPortIDToPortID": lambda s: k.VSDVS_DvPortIDToPortID(s, PORT),
    "VSDVS_GetPortVLANPolicy": lambda s: k.VSDVS_GetPortVLANPolicy(s, PORT),
    "VSDVS_SetPortVLANPolicy": lambda s: k.VSDVS_SetPortVLANPolicy(s, PORT, 1, 0, 0, 0, None, 0),
    "VSDVS_ClearPortVLANPolicy": lambda s: k.VSDVS_ClearPortVLANPolicy(s, PORT),
}


@pytest.mark.parametrize("function", UNKNOWN)
@pytest.mark.parametrize(
    ("switch", "status"),
    [
        ("nowhere", k.ZEL_NOT_FOUND),
        ("", k.ZEL_NOT_FOUND),
        (None, k.ZEL_BAD_PARAM),
        ("x" * 500, k.ZEL_NAME_TOO_LONG),
    ],
)
def test_switches_that_are_not_there_are_named_statuses(function: str, switch: str | None, status: int) -> None:
    result = UNKNOWN[function](switch)
    if isinstance(result, list):
        assert result[0] == status
        assert all(output in (None, 0) for output in result[1:])
    else:
        assert result == status


def test_distributed_ports_have_a_switch_port() -> None:
    status, port = k.VSDVS_DvPortIDToPortID(SWITCH, PORT)
    assert status == k.ZEL_OK
    assert port not in (0, k.VSDVS_DvPortIDToPortID(SWITCH, "11")[1])
    assert k.VSDVS_DvPortIDToPortID(SWITCH, "nowhere") == [k.ZEL_NOT_FOUND, 0]


def test_every_status_has_a_sentence_of_its_own() -> None:
    codes = {n: v for n, v in vars(k).items() if isinstance(v, int) and 0x0BAD0001 <= v <= 0x0BAD016C}
    sentences = {k.ZEL_ReturnStatusToString(code) for code in codes.values()}
    assert len(sentences) == len(codes) == 360
    assert k.ZEL_ReturnStatusToString(k.ZEL_OK) == "Success"
    assert k.ZEL_ReturnStatusToString(0x0BAD0130)
    assert k.ZEL_ReturnStatusToString(-1)


def test_panic_writes_the_text_as_it_stands_and_returns(capfd: Any) -> None:
    assert k.Panic("100%s of the ports are gone %n") is None
    assert "100%s of the ports are gone %n" in capfd.readouterr().err


def test_the_state_can_be_released_and_loaded_again() -> None:
    assert k.DVSZEL_StateSanitize() == k.ZEL_OK
    assert k.DVSZEL_StateCleanup() == k.ZEL_OK
    assert names(k.VS_LIST_PS) == []
    assert k.DVSLoadConfig() == k.ZEL_OK
    assert names(k.VS_LIST_DVS_ALIAS) == [SWITCH, STORAGE]


def test_the_example_runs_and_shows_the_change() -> None:
    done = subprocess.run([sys.executable, str(EXAMPLE)], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (0, "")
    assert "memory leak" not in done.stdout
    for expected in (
        "dvs-prod",
        "dvs-storage",
        "vmnic0",
        "lag1",
        "access, VLAN 100",
        "access, VLAN 200",
        "trunk of 100-199, 300-399",
        "refused: ",
        "the embedded host",
    ):
        assert expected in done.stdout
    assert re.search(r"libmorrow\.so +\S+/libkestrel/lib/libmorrow\.so", done.stdout)


RESET = """
import _libkestrel as k
print(k.DVSState_ConfigReset(), k.VSDVS_ClearPortVLANPolicy("dvs-prod", "10") == k.ZEL_NOT_FOUND)
"""


def test_the_configuration_can_be_reset() -> None:
    done = subprocess.run([sys.executable, "-c", RESET], capture_output=True, text=True, check=False)
    assert done.stdout == "0 True\n"
