"""Ethernet filters of ports: the addresses that a port accepts besides its own, and sink ports."""

from __future__ import annotations

from dataclasses import dataclass
from enum import IntFlag

import _libkestrel as flat

from libkestrel import records
from libkestrel.host._objects import HostObject, setting
from libkestrel.records import MacAddress


class EthernetFilterFlags(IntFlag):
    """Kinds of frames that a filter accepts."""

    UNICAST = flat.ZEL_ETH_FILTER_UNICAST
    """Frames for the client's own address."""
    MULTICAST = flat.ZEL_ETH_FILTER_MULTICAST
    """Frames for the group addresses of the filter."""
    ALL_MULTICAST = flat.ZEL_ETH_FILTER_ALLMULTI
    """Frames for any group address."""
    BROADCAST = flat.ZEL_ETH_FILTER_BROADCAST
    """Frames for all stations."""
    PROMISCUOUS = flat.ZEL_ETH_FILTER_PROMISC
    """Frames for others too, where security allows it."""
    USE_HASH = flat.ZEL_ETH_FILTER_USE_LADRF
    """Group addresses are told by a hash of theirs."""
    SINK = flat.ZEL_ETH_FILTER_SINK
    """The port takes what no other port wants."""


_NO_FLAGS = EthernetFilterFlags(0)


@dataclass(frozen=True)
class EthernetFilter:
    """What a port accepts besides frames for its own address."""

    flags: EthernetFilterFlags = _NO_FLAGS
    """Kinds of frames."""
    multicast: tuple[MacAddress, ...] = ()
    """Group addresses, at most 32."""


class PortFilters(HostObject):
    """What a port accepts."""

    _names: tuple[str, str]

    @setting("Ethernet filter", flat.VSPROP_PORT_EXTRA_ETH_FRP)
    def ethernet_filter(self) -> EthernetFilter:
        """The extra Ethernet filter; empty by default. Setting raises BadParam for an address that is no group's."""
        record = records.VSExtraEthFilter()
        self._check(flat.VSDVS_GetExtraEthFilter(*self._names, record), "read Ethernet filter")
        addresses = tuple(record.multicastAddrs[: record.numMulticastAddrs])
        return EthernetFilter(EthernetFilterFlags(record.flags), addresses)

    @ethernet_filter.writes
    def _set_ethernet_filter(self, wanted: EthernetFilter) -> None:
        record = records.VSExtraEthFilter(flags=wanted.flags, numMulticastAddrs=len(wanted.multicast))
        for i, address in enumerate(wanted.multicast):
            record.multicastAddrs[i] = address
        self._check(flat.VSDVS_SetExtraEthFilter(*self._names, record), "set Ethernet filter")

    @ethernet_filter.clears
    def _clear_ethernet_filter(self) -> None:
        self._check(flat.VSDVS_ClearExtraEthFilter(*self._names), "clear Ethernet filter")

    def ensure_ethernet_filter(self, wanted: EthernetFilter) -> bool:
        """Sets the extra Ethernet filter if it is another. Returns whether it was."""
        return PortFilters.ethernet_filter.ensure(self, wanted)

    @setting("sink mode")
    def sink(self) -> bool:
        """Whether the port receives what no other port wants; a flag of the extra Ethernet filter, False by default."""
        return bool(self._value(flat.VSDVS_IsSinkPortEnabled(*self._names), "read sink mode"))

    @sink.writes
    def _set_sink(self, enabled: bool) -> None:
        self._check(flat.VSDVS_ConfigureSinkPort(*self._names, int(enabled)), "set sink mode")

    def ensure_sink(self, enabled: bool) -> bool:
        """Turns sink mode on or off if it is otherwise. Returns whether it was."""
        return PortFilters.sink.ensure(self, enabled)
