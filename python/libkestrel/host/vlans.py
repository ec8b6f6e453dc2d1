"""VLAN policies of ports: IEEE 802.1Q access ports and trunks, and ports of a private VLAN."""

from __future__ import annotations

from collections.abc import Iterable
from dataclasses import dataclass
from typing import Any

import _libkestrel as flat

from libkestrel.host._objects import HostObject, setting


@dataclass(frozen=True)
class AccessVlan:
    """The port carries one VLAN, untagged towards its client."""

    vlan: int = 0
    """VLAN identifier, 0 to 4094; 0 is untagged on the switch too."""
    set_priority: bool = False
    """Whether the port's own priority replaces that of its frames."""


@dataclass(frozen=True)
class TrunkVlan:
    """The port carries ranges of VLANs, and its client tags its frames."""

    ranges: tuple[tuple[int, int], ...]
    """First and last VLAN of each range, both 0 to 4094; ranges do not overlap."""
    set_priority: bool = False
    """Whether the port's own priority replaces that of its frames."""

    @classmethod
    def of(cls, *vlans: int | tuple[int, int] | range, set_priority: bool = False) -> TrunkVlan:
        """A trunk of single VLANs, pairs of first and last, and Python ranges: TrunkVlan.of(5, (10, 19))."""
        ranges = tuple(_range(vlan) for vlan in vlans)
        return cls(ranges, set_priority)


@dataclass(frozen=True)
class PrivateVlan:
    """The port is in a secondary VLAN of the switch's private VLAN map."""

    secondary: int
    """Secondary VLAN identifier, 1 to 4094."""
    set_priority: bool = False
    """Whether the port's own priority replaces that of its frames."""


VlanPolicy = AccessVlan | TrunkVlan | PrivateVlan
"""What the VLAN policy of a port can be."""


def _range(vlans: int | tuple[int, int] | range) -> tuple[int, int]:
    if isinstance(vlans, int):
        return vlans, vlans
    if isinstance(vlans, range):
        if not vlans or vlans.step != 1:
            raise ValueError(f"a range of VLANs counts up by one and is not empty: {vlans}")
        return vlans.start, vlans.stop - 1
    return vlans


def _policy_of(record: Any) -> VlanPolicy:
    """The policy that a record holds."""
    priority = bool(record.flags & flat.VSPORT_VLAN_SET_PRIORITY)
    if record.flags & flat.VSPORT_VLAN_GUEST_TAGGING:
        return TrunkVlan(tuple((r.minVID, r.maxVID) for r in record.vidRanges), priority)
    if record.flags & flat.VSPORT_VLAN_PVLAN_ENABLED:
        return PrivateVlan(record.vlanID, priority)
    return AccessVlan(record.vlanID, priority)


def _ranges(pairs: Iterable[tuple[int, int]]) -> Any:
    from libkestrel import records

    elements = [records.zel_VDSPortVIDRange(minVID=low, maxVID=high) for low, high in pairs]
    return records.vidrangeArray(elements=elements) if elements else None


class PortVlans(HostObject):
    """The VLAN side of a port."""

    _names: tuple[str, str]

    @setting("VLAN policy", flat.VSPROP_PORT_VLAN)
    def vlan(self) -> VlanPolicy:
        """The VLAN policy: AccessVlan, TrunkVlan or PrivateVlan (IEEE 802.1Q); AccessVlan(0) by default.

        Setting raises BadVlanid for an identifier above 4094 and for ranges that are empty or overlap, BadParam for a
        trunk without ranges.
        """
        status, record, _length = flat.VSDVS_GetPortVLANPolicy(*self._names)
        with self._kept([status, record], "read VLAN policy", flat.VSDVS_FreeMemory) as policy:
            return _policy_of(policy)

    @vlan.writes
    def _set_vlan(self, policy: VlanPolicy) -> None:
        self.set_vlan_for(policy, runtime_only=False)

    @vlan.clears
    def _clear_vlan(self) -> None:
        self._check(flat.VSDVS_ClearPortVLANPolicy(*self._names), "clear VLAN policy")

    def set_vlan_for(self, policy: VlanPolicy, *, runtime_only: bool) -> None:
        """Sets the VLAN policy at once; with `runtime_only` it lasts until the configuration is loaded anew."""
        vlan, mode = 0, 0
        pairs: tuple[tuple[int, int], ...] = ()
        if isinstance(policy, TrunkVlan):
            mode, pairs = flat.VSPORT_VLAN_GUEST_TAGGING, policy.ranges
        elif isinstance(policy, PrivateVlan):
            mode, vlan = flat.VSPORT_VLAN_PVLAN_ENABLED, policy.secondary
        elif isinstance(policy, AccessVlan):
            vlan = policy.vlan
        else:
            raise TypeError(f"a VLAN policy is AccessVlan, TrunkVlan or PrivateVlan, not {type(policy).__name__}")
        ranges = _ranges(pairs)
        status = flat.VSDVS_SetPortVLANPolicy(
            *self._names, vlan, mode, int(policy.set_priority), int(runtime_only), ranges, len(pairs)
        )
        self._check(status, "set VLAN policy")

    def ensure_vlan(self, policy: VlanPolicy) -> bool:
        """Sets the VLAN policy if it is another. Returns whether it was."""
        return PortVlans.vlan.ensure(self, policy)

    @setting("nested VLAN tagging", flat.VSPROP_PORT_VLAN_NESTEDTAG)
    def nested_tagging(self) -> bool:
        """Whether the client may tag frames inside the port's VLAN; False by default."""
        return bool(self._value(flat.VSDVS_GetPortNestedVLANTagging(*self._names), "read nested VLAN tagging"))

    @nested_tagging.writes
    def _set_nested_tagging(self, allowed: bool) -> None:
        self._check(flat.VSDVS_SetPortNestedVLANTagging(*self._names, int(allowed)), "set nested VLAN tagging")

    def ensure_nested_tagging(self, allowed: bool) -> bool:
        """Allows or forbids nested tagging if it is otherwise. Returns whether it was."""
        return PortVlans.nested_tagging.ensure(self, allowed)
