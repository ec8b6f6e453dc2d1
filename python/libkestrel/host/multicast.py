"""Multicast: filter modes, addresses of the user, and what ports receive (IGMP, RFC 3376; MLD, RFC 3810)."""

from __future__ import annotations

from collections.abc import Iterable
from dataclasses import dataclass
from enum import IntEnum
from ipaddress import IPv4Address, IPv6Address, ip_address

import _libkestrel as flat

from libkestrel import records
from libkestrel.host._objects import HostObject, int32, setting
from libkestrel.records import MacAddress


class MulticastMode(IntEnum):
    """How a switch decides who receives multicast frames."""

    LEGACY = flat.VS_MCAST_FILTER_MODE_LEGACY
    """By the addresses that clients' adapters ask for."""
    SNOOPING = flat.VS_MCAST_FILTER_MODE_SNOOPING
    """By the groups that clients join."""


class SourceMode(IntEnum):
    """How a group's sources are filtered."""

    NONE = flat.VS_MCAST_SRC_IP_FILTER_MODE_NONE
    """Not at all."""
    INCLUDE = flat.VS_MCAST_SRC_IP_FILTER_MODE_INCLUDE
    """The sources that are named are wanted (RFC 3376, RFC 3810)."""
    EXCLUDE = flat.VS_MCAST_SRC_IP_FILTER_MODE_EXCLUDE
    """All but the sources that are named are wanted (RFC 3376, RFC 3810)."""


@dataclass(frozen=True)
class GroupState:
    """State of one multicast group on a port."""

    version: int
    """Version of IGMP or MLD."""
    source_mode: SourceMode
    """How its sources are filtered."""
    updated: int
    """When the last report came, in seconds."""
    vni: int
    """Virtual network identifier."""
    sources: tuple[IPv4Address, ...] | tuple[IPv6Address, ...]
    """The sources."""


def _entries(addresses: Iterable[MacAddress]) -> tuple[int, records.VSMACEntries]:
    wanted = list(addresses)
    record = records.VSMACEntries()
    for i, address in enumerate(wanted[: len(record.macEntry)]):
        record.macEntry[i] = address
    return len(wanted), record


class SwitchMulticast(HostObject):
    """The multicast side of a switch."""

    name: str

    @setting("multicast filter mode", flat.VSPROP_MULTICAST_FILTER)
    def multicast_mode(self) -> MulticastMode:
        """The multicast filter mode; legacy by default."""
        return MulticastMode(self._value(flat.VSDVS_GetMcastFilterMode(self.name), "read multicast filter mode"))

    @multicast_mode.writes
    def _set_multicast_mode(self, mode: MulticastMode) -> None:
        self._check(flat.VSDVS_SetMcastFilterMode(self.name, int32(mode, "mode")), "set multicast filter mode")

    def ensure_multicast_mode(self, mode: MulticastMode) -> bool:
        """Sets the multicast filter mode if it is another. Returns whether it was."""
        return SwitchMulticast.multicast_mode.ensure(self, mode)

    def multicast_mode_in_use(self) -> MulticastMode:
        """The multicast filter mode in force on the running switch."""
        return MulticastMode(self._value(flat.VSZEL_GetMcastFilterMode(self.name), "read multicast filter mode in use"))

    @setting("user multicast addresses", flat.VSPROP_USER_MCAST_ADDRESSES)
    def multicast_entries(self) -> tuple[MacAddress, ...]:
        """The group addresses that legacy filtering lets through to every port; none by default.

        Setting raises LimitExceeded for more than 25, Exists for one that comes twice, BadParam for one that is no
        group's.
        """
        result = flat.VSDVS_GetMcastUserLegacyEntries(self.name)
        with self._kept(result, "read user multicast addresses", flat.VSDVS_FreeMemory) as table:
            return tuple(table)

    @multicast_entries.writes
    def _set_multicast_entries(self, addresses: Iterable[MacAddress]) -> None:
        status = flat.VSDVS_SetMcastUserLegacyEntries(self.name, *_entries(addresses))
        self._check(status, "set user multicast addresses")

    @multicast_entries.clears
    def _clear_multicast_entries(self) -> None:
        self._check(flat.VSDVS_ClearMcastUserLegacyEntries(self.name), "clear user multicast addresses")

    def ensure_multicast_entries(self, addresses: Iterable[MacAddress | str]) -> bool:
        """Replaces the user's group addresses if they are others. Returns whether they were."""
        return SwitchMulticast.multicast_entries.ensure(self, tuple(MacAddress(a) for a in addresses))


class PortMulticast(HostObject):
    """The multicast side of a port."""

    _names: tuple[str, str]

    @property
    def number(self) -> int:
        """The switch port identifier."""
        raise NotImplementedError

    @setting("user multicast addresses", flat.VSPROP_PORT_USER_MCAST_ADDRESSES)
    def multicast_entries(self) -> tuple[MacAddress, ...]:
        """The group addresses that legacy filtering lets through to this port; none by default. Raises as above."""
        result = flat.VSDVS_GetPortMcastUserLegacyEntries(*self._names)
        with self._kept(result, "read user multicast addresses", flat.VSDVS_FreeMemory) as table:
            return tuple(table)

    @multicast_entries.writes
    def _set_multicast_entries(self, addresses: Iterable[MacAddress]) -> None:
        status = flat.VSDVS_SetPortMcastUserLegacyEntries(*self._names, *_entries(addresses))
        self._check(status, "set user multicast addresses")

    @multicast_entries.clears
    def _clear_multicast_entries(self) -> None:
        self._check(flat.VSDVS_ClearPortMcastUserLegacyEntries(*self._names), "clear user multicast addresses")

    def ensure_multicast_entries(self, addresses: Iterable[MacAddress | str]) -> bool:
        """Replaces the user's group addresses if they are others. Returns whether they were."""
        return PortMulticast.multicast_entries.ensure(self, tuple(MacAddress(a) for a in addresses))

    def _filters(self, mode: int, entries: str) -> tuple[MacAddress | IPv4Address | IPv6Address, ...]:
        result = flat.VSZEL_GetMcastFilters(self._names[0], self.number, mode)
        with self._kept(result, "read multicast filters", flat.VSZEL_FreeMemory) as table:
            return tuple(table.entries_as(entries))

    def multicast_addresses(self) -> tuple[MacAddress, ...]:
        """The group addresses that legacy filtering lets through to the port."""
        found = self._filters(flat.VS_MCAST_FILTER_MODE_LEGACY, "macEntries")
        return tuple(address for address in found if isinstance(address, MacAddress))

    def igmp_groups(self) -> tuple[IPv4Address, ...]:
        """The IPv4 groups that the port's client has joined."""
        found = self._filters(flat.VS_MCAST_FILTER_MODE_IGMP, "ipv4Entries")
        return tuple(group for group in found if isinstance(group, IPv4Address))

    def mld_groups(self) -> tuple[IPv6Address, ...]:
        """The IPv6 groups that the port's client has joined."""
        found = self._filters(flat.VS_MCAST_FILTER_MODE_MLD, "ipv6Entries")
        return tuple(group for group in found if isinstance(group, IPv6Address))

    def multicast_group(self, group: IPv4Address | IPv6Address | str) -> GroupState:
        """State of one group on the port. NotFound for one that the port's client has not joined."""
        address = ip_address(group)
        is_v4 = isinstance(address, IPv4Address)
        mode = flat.VS_MCAST_FILTER_MODE_IGMP if is_v4 else flat.VS_MCAST_FILTER_MODE_MLD
        result = flat.VSZEL_GetMcastFilterStats(self._names[0], self.number, mode, address.packed)
        with self._kept(result, f"read state of group {address}", flat.VSZEL_FreeMemory) as table:
            sources = tuple(table.entries_as("ipv4Entries" if is_v4 else "ipv6Entries"))
            return GroupState(table.version, SourceMode(table.srcIPFilterMode), table.updateTime, table.vni, sources)
