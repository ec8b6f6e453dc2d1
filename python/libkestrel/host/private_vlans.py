"""Private VLANs of switches: primary VLANs and the secondary VLANs within them (RFC 5517)."""

from __future__ import annotations

import ctypes
from collections.abc import Iterable
from dataclasses import dataclass
from enum import IntEnum

import _libkestrel as flat

from libkestrel import records
from libkestrel.host._objects import HostObject, setting


class PrivateVlanKind(IntEnum):
    """How ports of a secondary VLAN may speak to each other."""

    PROMISCUOUS = flat.VSPORT_PVLAN_TYPE_PROMISC
    """With everyone in the primary VLAN."""
    ISOLATED = flat.VSPORT_PVLAN_TYPE_ISOLATED
    """With promiscuous ports only."""
    COMMUNITY = flat.VSPORT_PVLAN_TYPE_COMMUNITY
    """With their own kind and promiscuous ports."""


@dataclass(frozen=True)
class PrivateVlanEntry:
    """One pair of a private VLAN map."""

    primary: int
    """Primary VLAN identifier, 1 to 4094."""
    secondary: int
    """Secondary VLAN identifier, 1 to 4094; the primary one itself for the promiscuous kind."""
    kind: PrivateVlanKind
    """How its ports may speak to each other."""


class SwitchPrivateVlans(HostObject):
    """The private VLANs of a switch."""

    name: str

    @setting("private VLAN map", flat.VSPROP_PVLAN_MAP)
    def private_vlans(self) -> tuple[PrivateVlanEntry, ...]:
        """The private VLAN map; empty by default. Setting raises BadParam and BadVlanid for a map that is none."""
        # The map comes under another record's type, as a pointer object of which only the address is good.
        status, pointer, count = flat.VSDVS_GetPrivateVLANMap(self.name)
        self._check(status, "read private VLAN map")
        if pointer is None:
            return ()
        size = records.VSPvlanMapEntry().nbytes
        data = ctypes.string_at(int(pointer), size * count) if count else b""
        flat.VSDVS_FreeMemory(pointer)
        entries = (records.VSPvlanMapEntry.from_bytes(data[i : i + size]) for i in range(0, len(data), size))
        return tuple(
            PrivateVlanEntry(entry.primaryVID, entry.secondaryVID, PrivateVlanKind(entry.pvlanType))
            for entry in entries
        )

    @private_vlans.writes
    def _set_private_vlans(self, entries: Iterable[PrivateVlanEntry]) -> None:
        elements = [
            records.VSPvlanMapEntry(primaryVID=e.primary, secondaryVID=e.secondary, pvlanType=e.kind) for e in entries
        ]
        array = records.pvlanmapentryArray(elements=elements) if elements else None
        self._check(flat.VSDVS_SetPrivateVLANMap(self.name, array, len(elements)), "set private VLAN map")

    def ensure_private_vlans(self, entries: Iterable[PrivateVlanEntry]) -> bool:
        """Replaces the private VLAN map if it is another. Returns whether it was."""
        return SwitchPrivateVlans.private_vlans.ensure(self, tuple(entries))
