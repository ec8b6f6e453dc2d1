"""The multicast filters of ports, as scripts see them."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import _libkestrel as k
import pytest

SWITCH, ID, PORT, OTHER = "multicast-filters", "b7a4d7c2-2f0e-4a55-9c39-6a8f1d6e0b41", "p1", "p2"
IGMP, MLD, LEGACY = k.VS_MCAST_FILTER_MODE_IGMP, k.VS_MCAST_FILTER_MODE_MLD, k.VS_MCAST_FILTER_MODE_LEGACY


@pytest.fixture(autouse=True)
def _bench() -> Iterator[None]:
    """A switch of the tests' own with two ports, gone afterwards."""
    assert k.VSDVS_CreateVSwitch(SWITCH, ID, k.PS_CLASS_NAME, 4, 0, 8, 1500, k.DVS_VERSION_70) == k.ZEL_OK
    for number, port in enumerate((PORT, OTHER)):
        assert k.VSDVS_AddDVPort(SWITCH, port, number) == k.ZEL_OK
    yield
    k.VSDVS_DestroyVSwitch(SWITCH)


def port_id(port: str) -> int:
    """The identifier that an address entered behind the port shows."""
    entry = k.new_VSMACEntry()
    address = bytes([2, 0, 0, 0, 0, int(port[-1])])
    k.VSMACEntry_set_mac_address(entry, address)
    k.VSMACEntry_macAddrType_set(entry, k.VS_MAC_ADDR_TYPE_USER)
    assert k.VSZEL_SetPortMACTable(SWITCH, port, entry) in (k.ZEL_OK, k.ZEL_EXISTS)
    status, table = k.VSZEL_GetPortMACTable(SWITCH, port, k.VS_MAC_ADDR_TYPE_ALL)
    assert status == k.ZEL_OK
    number = k.VSMACEntry_portID_get(k.VSMACTable_macEntries_get(table))
    k.VSZEL_FreeMemory(table)
    assert isinstance(number, int)
    return number


def entries(*addresses: str) -> Any:
    made = k.new_VSMACEntries()
    for place, address in enumerate(addresses):
        k.VSMACEntries_set_mac_address(made, place, bytes.fromhex(address.replace(":", "")))
    return made


def legacy_filters(port: str) -> list[str]:
    status, filters = k.VSZEL_GetMcastFilters(SWITCH, port_id(port), LEGACY)
    assert status == k.ZEL_OK
    count = k.VSMcastFilters_numEntries_get(filters)
    assert k.VSMcastFilters_totalEntries_get(filters) == count
    listed = [k.VSMcastFilters_get_mac_entry(filters, place) for place in range(count)]
    k.VSZEL_FreeMemory(filters)
    return listed


def test_users_entries_are_filters_of_ports() -> None:
    assert legacy_filters(PORT) == []
    common, own = "01:00:5e:01:02:03", "01:00:5e:00:00:09"
    assert k.VSDVS_SetMcastUserLegacyEntries(SWITCH, 1, entries(common)) == k.ZEL_OK
    assert k.VSDVS_SetPortMcastUserLegacyEntries(SWITCH, PORT, 2, entries(common, own)) == k.ZEL_OK
    assert legacy_filters(PORT) == [own, common]
    assert legacy_filters(OTHER) == [common]
    assert k.VSDVS_ClearMcastUserLegacyEntries(SWITCH) == k.ZEL_OK
    assert legacy_filters(OTHER) == []


@pytest.mark.parametrize(("mode", "group"), [(IGMP, bytes([239, 1, 2, 3])), (MLD, bytes([0xFF, 0x0E, *[0] * 14]))])
def test_a_port_that_has_joined_nothing_has_no_groups(mode: int, group: bytes) -> None:
    status, filters = k.VSZEL_GetMcastFilters(SWITCH, port_id(PORT), mode)
    assert (status, k.VSMcastFilters_numEntries_get(filters)) == (k.ZEL_OK, 0)
    k.VSZEL_FreeMemory(filters)
    assert k.VSZEL_GetMcastFilterStats(SWITCH, port_id(PORT), mode, group) == [k.ZEL_NOT_FOUND, None]


def test_refusals_name_their_reason() -> None:
    port = port_id(PORT)
    assert k.VSZEL_GetMcastFilters("nowhere", port, IGMP) == [k.ZEL_NOT_FOUND, None]
    assert k.VSZEL_GetMcastFilters(SWITCH, port + 1000, IGMP) == [k.ZEL_NOT_FOUND, None]
    assert k.VSZEL_GetMcastFilters(SWITCH, port, k.VS_MCAST_FILTER_MODE_SNOOPING) == [k.ZEL_BAD_PARAM, None]
    assert k.VSZEL_GetMcastFilterStats(SWITCH, port, LEGACY, bytes([239, 1, 2, 3])) == [k.ZEL_BAD_PARAM, None]
    assert k.VSZEL_GetMcastFilterStats(SWITCH, port, IGMP, bytes([10, 1, 2, 3])) == [k.ZEL_BAD_PARAM, None]
