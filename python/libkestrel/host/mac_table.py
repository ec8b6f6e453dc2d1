"""MAC tables: which address is behind which port."""

from __future__ import annotations

from dataclasses import dataclass
from enum import IntEnum
from typing import Any

import _libkestrel as flat

from libkestrel import records
from libkestrel.host._objects import ABSENT, HostObject, int32
from libkestrel.records import MacAddress


class MacKind(IntEnum):
    """How an address came into the table."""

    STATIC = flat.VS_MAC_ADDR_TYPE_STATIC
    """Known without learning: a client's own."""
    USER = flat.VS_MAC_ADDR_TYPE_USER
    """Entered by hand."""
    LEARNED = flat.VS_MAC_ADDR_TYPE_LEARNED
    """Learned from frames."""
    ALL = flat.VS_MAC_ADDR_TYPE_ALL
    """Any of these, for queries."""


@dataclass(frozen=True)
class StaticEntry:
    """A static forwarding entry with the VLANs in whose context it holds."""

    address: MacAddress
    """The address."""
    kind: MacKind | int
    """How it came into the table."""
    port: int
    """Switch port identifier."""
    vlans: frozenset[int]
    """VLAN identifiers."""
    vni: int
    """Virtual network identifier."""
    is_trunk_vni: bool
    """Whether the virtual network is a trunk's."""
    is_router: bool
    """Whether the address is a distributed router's."""


def _static_entry(entry: Any) -> StaticEntry:
    words = enumerate(entry.vlanBitmap.bits)
    return StaticEntry(
        address=entry.macAddress,
        kind=MacKind(entry.macAddrType) if entry.macAddrType in list(MacKind) else entry.macAddrType,
        port=entry.portID,
        vlans=frozenset(64 * i + bit for i, word in words if word for bit in range(64) if word >> bit & 1),
        vni=entry.vni,
        is_trunk_vni=entry.isTrunkVNI,
        is_router=entry.isVdrMac,
    )


class SwitchMacTable(HostObject):
    """The MAC table of a switch."""

    name: str

    def mac_table(self, kind: MacKind = MacKind.ALL) -> records.VSMACTable:
        """The MAC table, ordered by VLAN and address, entries of one kind or all.

        The table is the platform's memory: it is released with the object, at the end of a `with` block, or by
        `release()`. It is a sequence of entries with `rows()`, `columns()` and a buffer; see `libkestrel.records`.
        """
        table: records.VSMACTable = self._kept(
            flat.VSZEL_GetMACTable(self.name, int32(kind, "kind")), "read MAC table", flat.VSZEL_FreeMemory
        )
        return table

    def team_mac_table(self, kind: MacKind = MacKind.ALL) -> records.VSMACTable:
        """The part of the MAC table that was learned on the uplink team; memory as with `mac_table`."""
        table: records.VSMACTable = self._kept(
            flat.VSZEL_GetTeamMACTable(self.name, int32(kind, "kind")),
            "read MAC table of the team",
            flat.VSZEL_FreeMemory,
        )
        return table

    def static_entries(self) -> tuple[StaticEntry, ...]:
        """The static forwarding entries with their VLANs."""
        result = flat.VSZEL_GetStaticLectx(self.name)
        with self._kept(result, "read static entries", flat.VSZEL_FreeMemory) as table:
            return tuple(_static_entry(entry) for entry in table)


class PortMacTable(HostObject):
    """A port's part of the MAC table."""

    _names: tuple[str, str]

    def mac_table(self, kind: MacKind = MacKind.ALL) -> records.VSMACTable:
        """The port's part of the MAC table; memory as with that of the switch."""
        table: records.VSMACTable = self._kept(
            flat.VSZEL_GetPortMACTable(*self._names, int32(kind, "kind")), "read MAC table", flat.VSZEL_FreeMemory
        )
        return table

    def static_entries(self) -> tuple[StaticEntry, ...]:
        """The static forwarding entries of the port with their VLANs."""
        result = flat.VSZEL_GetPortStaticLectx(*self._names)
        with self._kept(result, "read static entries", flat.VSZEL_FreeMemory) as table:
            return tuple(_static_entry(entry) for entry in table)

    def add_mac(self, address: MacAddress | str, vlan: int = 0) -> None:
        """Enters an address by hand, in a VLAN. LimitExceeded when the table is full."""
        mac = MacAddress(address)
        self._change(
            f"add MAC entry {mac} in VLAN {vlan}",
            lambda: self._add_mac(mac, vlan),
            undo=lambda: lambda: self._remove_mac(mac, vlan),
        )

    def remove_mac(self, address: MacAddress | str, vlan: int = 0) -> None:
        """Removes an address from the port, of a VLAN. NotFound for one that is not there."""
        mac = MacAddress(address)
        self._change(
            f"remove MAC entry {mac} in VLAN {vlan}",
            lambda: self._remove_mac(mac, vlan),
            before=mac,
            after=ABSENT,
            undo=lambda: lambda: self._add_mac(mac, vlan),
        )

    def _add_mac(self, mac: MacAddress, vlan: int) -> None:
        entry = records.VSMACEntry(macAddress=mac, vid=vlan, macAddrType=MacKind.USER)
        self._check(flat.VSZEL_SetPortMACTable(*self._names, entry), f"add MAC entry {mac} in VLAN {vlan}")

    def _remove_mac(self, mac: MacAddress, vlan: int) -> None:
        entry = records.VSMACEntry(macAddress=mac, vid=vlan, macAddrType=MacKind.USER)
        self._check(flat.VSZEL_ClearPortMACTable(*self._names, entry), f"remove MAC entry {mac} in VLAN {vlan}")

    def _has_mac(self, mac: MacAddress, vlan: int) -> bool:
        with self.mac_table(MacKind.USER) as table:
            return any(entry.macAddress == mac and entry.vid == vlan for entry in table)

    def ensure_mac(self, address: MacAddress | str, vlan: int = 0) -> bool:
        """Enters an address by hand unless it is there. Returns whether it was not."""
        mac = MacAddress(address)
        if self._has_mac(mac, vlan):
            return False
        self.add_mac(mac, vlan)
        return True

    def ensure_no_mac(self, address: MacAddress | str, vlan: int = 0) -> bool:
        """Removes an address that was entered by hand if it is there. Returns whether it was."""
        mac = MacAddress(address)
        if not self._has_mac(mac, vlan):
            return False
        self.remove_mac(mac, vlan)
        return True
