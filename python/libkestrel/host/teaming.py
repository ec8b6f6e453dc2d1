"""Teaming: through which uplinks a switch and its ports send, and what happens when links fail."""

from __future__ import annotations

from collections.abc import Iterable
from dataclasses import dataclass
from enum import IntEnum, IntFlag
from typing import Any

import _libkestrel as flat

from libkestrel import records
from libkestrel.host._objects import HostObject, name_of, setting


class LoadBalance(IntEnum):
    """How frames are spread over the active uplinks."""

    NONE = flat.TEAM_FRP_TYPE_NONE
    """The first name of the policy and no other: nothing fails over."""
    IP_HASH = flat.TEAM_FRP_TYPE_LB_IP
    """By the pair of IP addresses."""
    SOURCE_MAC = flat.TEAM_FRP_TYPE_LB_SRCMAC
    """By the source address."""
    SOURCE_PORT = flat.TEAM_FRP_TYPE_LB_SRCID
    """By the port that a frame comes from."""
    EXPLICIT_FAILOVER = flat.TEAM_FRP_TYPE_FO_EXPLICIT
    """The first in order, active before standby, that can carry."""
    LOAD = flat.TEAM_FRP_TYPE_LB_LBT
    """By port, moved where an uplink has much to carry."""


class LinkCriteria(IntFlag):
    """What a link has to fulfil to count as good."""

    SPEED = flat.TEAM_FRP_CRIT_LINK_SPEED
    """The speed is the policy's."""
    SPEED_AT_LEAST = flat.TEAM_FRP_CRIT_LINK_SPEED_GTE
    """The speed is the policy's or above."""
    DUPLEX = flat.TEAM_FRP_CRIT_LINK_DUPLEX
    """The link has full duplex where the policy asks for it."""
    LACP_PORT_DOWN = flat.TEAM_FRP_CRIT_LACP_PORT_DOWN
    """A member of a group is in its service (IEEE 802.1AX)."""
    BEACON_STATE = flat.TEAM_FRP_CRIT_BEACON_STATE
    """It has heard a beacon within 3 seconds."""
    ERRORS = flat.TEAM_FRP_CRIT_LINK_ERR
    """No more of its frames have errors than the policy's percentage."""
    STATE = flat.TEAM_FRP_CRIT_LINK_STATE
    """The link is up."""
    PORT_BLOCKED = flat.TEAM_FRP_CRIT_PORT_BLOCKED
    """Its port is not blocked, here or at the far end."""
    DRIVER_PRESENT = flat.TEAM_FRP_CRIT_DRV_PRESENT
    """Its NIC has a driver."""


class TeamingFlags(IntFlag):
    """Further properties of a team."""

    ALL_AVAILABLE = flat.TEAM_FRP_FLAG_ALL_AVAILABLE
    """Standby uplinks are active ones."""
    REVERSE = flat.TEAM_FRP_FLAG_REVERSE
    """Ports accept what is for many only from the uplink that they would send through."""
    BEST_EFFORT = flat.TEAM_FRP_FLAG_BEST_EFFORT
    """Where no uplink is good, every one that has a link can carry."""
    ROLLING = flat.TEAM_FRP_FLAG_ROLLING
    """What an uplink took over stays with it: no falling back."""
    SHOTGUN = flat.TEAM_FRP_FLAG_SHOTGUN
    """While beacons do not tell which uplink is good, frames go out through all of them."""
    NOTIFY_SWITCH = flat.TEAM_FRP_FLAG_NOTIFY_SWITCH
    """Addresses that move are announced to the network."""
    BLOCK_OUTPUT = flat.TEAM_FRP_FLAG_BLOCK_OUTPUT
    """Nothing is sent to the network; frames from it are received."""
    LACP_CLIENT = flat.TEAM_FRP_FLAG_LACP_CLIENT
    """Only members of groups that are in service are used."""
    LINK_STATE_TRACKING = flat.TEAM_FRP_FLAG_LST
    """The clients' link is down while none of the team's uplinks can carry."""


@dataclass(frozen=True)
class TeamingPolicy:
    """A teaming policy. At most 32 uplinks in all, each named once."""

    active: tuple[str, ...] = ()
    """Uplink ports that carry traffic."""
    standby: tuple[str, ...] = ()
    """Uplink ports that take over, first to last."""
    balance: LoadBalance = LoadBalance.SOURCE_PORT
    """How frames are spread over the active uplinks."""
    criteria: LinkCriteria = LinkCriteria.STATE
    """What a link has to fulfil."""
    flags: TeamingFlags = TeamingFlags.NOTIFY_SWITCH
    """Further properties."""
    percent_error: int = 0
    """Share of damaged frames from which a link is bad, 0 to 100; with LinkCriteria.ERRORS."""
    full_duplex: int = 0
    """The duplex that is asked for; with LinkCriteria.DUPLEX."""
    speed: int = 0
    """The speed that is asked for, in Mbit/s up to 65535; with LinkCriteria.SPEED and SPEED_AT_LEAST."""


@dataclass(frozen=True)
class NamedTeamingPolicy:
    """A teaming policy that ports follow by name."""

    name: str
    """At most 135 bytes."""
    active: tuple[str, ...] = ()
    """Uplink ports that carry traffic."""
    standby: tuple[str, ...] = ()
    """Uplink ports that take over, first to last."""
    balance: LoadBalance = LoadBalance.SOURCE_PORT
    """How frames are spread over the active uplinks."""
    criteria: LinkCriteria = LinkCriteria.STATE
    """What a link has to fulfil."""
    flags: TeamingFlags = TeamingFlags.NOTIFY_SWITCH
    """Further properties."""


@dataclass(frozen=True)
class RarpStatistics:
    """What was announced by RARP (RFC 903) after failovers."""

    sent: int
    """Packets sent."""
    longest: int
    """The longest round of announcements, in milliseconds."""
    total: int
    """All rounds together, in milliseconds."""


@dataclass(frozen=True)
class ServicePortStatistics:
    """Teaming of a switch's service port, in packets."""

    sent: int
    """Sent from the service port."""
    sent_by_service_port_policy: int
    """Of these, sent by the service port's own policy."""
    sent_by_source_port_policy: int
    """Of these, sent by the policy of the port that a packet came from."""
    send_errors: int
    """Could not be sent."""
    received: int
    """Received for the service port."""
    received_despite_path_check: int
    """Of these, received although the reverse path check would have refused them."""


def _team(record: Any) -> tuple[tuple[str, ...], tuple[str, ...]]:
    """The active and the standby uplinks of a record."""
    names = list(record.uplinkPortName[: record.numActive + record.numStandby])
    return tuple(names[: record.numActive]), tuple(names[record.numActive :])


def _policy_of(record: Any) -> TeamingPolicy:
    active, standby = _team(record)
    return TeamingPolicy(
        active,
        standby,
        LoadBalance(record.loadBalance),
        LinkCriteria(record.linkCriteria),
        TeamingFlags(record.flags),
        record.percentError,
        record.fullDuplex,
        record.speed,
    )


def _fill(record: Any, policy: TeamingPolicy | NamedTeamingPolicy) -> None:
    """Writes what the two kinds of policy have in common."""
    record.loadBalance, record.linkCriteria, record.flags = policy.balance, policy.criteria, policy.flags
    record.numActive, record.numStandby = len(policy.active), len(policy.standby)
    for i, name in enumerate((*policy.active, *policy.standby)):
        record.uplinkPortName[i] = name


def _record_of(policy: TeamingPolicy) -> records.VSTeamPolicy:
    record = records.VSTeamPolicy(percentError=policy.percent_error, fullDuplex=policy.full_duplex, speed=policy.speed)
    _fill(record, policy)
    return record


def _named_policy_of(record: Any) -> NamedTeamingPolicy:
    active, standby = _team(record)
    return NamedTeamingPolicy(
        record.name,
        active,
        standby,
        LoadBalance(record.loadBalance),
        LinkCriteria(record.linkCriteria),
        TeamingFlags(record.flags),
    )


def _named_record_of(policy: NamedTeamingPolicy) -> records.LSTeamPolicy:
    record = records.LSTeamPolicy(name=policy.name)
    _fill(record, policy)
    return record


class SwitchTeaming(HostObject):
    """The teaming of a switch."""

    name: str

    @property
    def id(self) -> str:
        """The id of the switch."""
        raise NotImplementedError

    @setting("teaming policy", flat.VSPROP_SWITCH_TEAMING)
    def teaming(self) -> TeamingPolicy:
        """The teaming policy; by source port over all uplinks by default.

        Setting raises NotFound for an uplink port that is not there, BadParam for one that is named twice,
        IndexError for more than 32.
        """
        record = records.VSTeamPolicy()
        self._check(flat.VSDVS_GetTeamingPolicy(self.name, record), "read teaming policy")
        return _policy_of(record)

    @teaming.writes
    def _set_teaming(self, policy: TeamingPolicy) -> None:
        self._check(flat.VSDVS_SetTeamingPolicy(self.name, _record_of(policy)), "set teaming policy")

    @teaming.clears
    def _clear_teaming(self) -> None:
        self._check(flat.VSDVS_ClearTeamingPolicy(self.name), "clear teaming policy")

    def ensure_teaming(self, policy: TeamingPolicy) -> bool:
        """Sets the teaming policy if it is another. Returns whether it was."""
        return SwitchTeaming.teaming.ensure(self, policy)

    def teaming_by_id(self) -> TeamingPolicy:
        """The teaming policy, asked for by the id of the distributed switch."""
        record = records.VSTeamPolicy()
        self._check(flat.VSDVS_GetTeamingPolicyFromDVSID(self.id, record), "read teaming policy")
        return _policy_of(record)

    @setting("named teaming policies", flat.VSPROP_LS_TEAMING_POLICY)
    def named_teaming(self) -> tuple[NamedTeamingPolicy, ...]:
        """The named teaming policies; none by default. Setting raises Busy if one is left out that a port follows."""
        result = flat.VSDVS_GetLSTeamingPolicyTable(self.name)
        with self._kept(result, "read named teaming policies", flat.VSDVS_FreeMemory) as table:
            return tuple(_named_policy_of(policy) for policy in table)

    @named_teaming.writes
    def _set_named_teaming(self, policies: Iterable[NamedTeamingPolicy]) -> None:
        table = records.LSTeamTable(lsTeamPolicy=[_named_record_of(policy) for policy in policies])
        self._check(flat.VSDVS_SetLSTeamingPolicy(self.name, table), "set named teaming policies")

    @named_teaming.clears
    def _clear_named_teaming(self) -> None:
        self._check(flat.VSDVS_ClearLSTeamingPolicy(self.name), "clear named teaming policies")

    def ensure_named_teaming(self, policies: Iterable[NamedTeamingPolicy]) -> bool:
        """Replaces the named teaming policies if they are others. Returns whether they were."""
        return SwitchTeaming.named_teaming.ensure(self, tuple(policies))

    def named_teaming_in_use(self) -> tuple[NamedTeamingPolicy, ...]:
        """The named teaming policies as the running switch has them."""
        result = flat.VSZEL_GetLSTeamingPolicyTable(self.name)
        with self._kept(result, "read named teaming policies in use", flat.VSZEL_FreeMemory) as table:
            return tuple(_named_policy_of(policy) for policy in table)

    def rarp_statistics(self) -> RarpStatistics:
        """What was announced by RARP after failovers."""
        record = records.VSRARPStats()
        self._check(flat.VSZEL_GetRARPStats(self.name, record), "read RARP statistics")
        return RarpStatistics(record.rarpPktsSent, record.maxRARPTime, record.rarpTime)

    def service_port_statistics(self) -> ServicePortStatistics:
        """Teaming counters of the service port."""
        record = records.VSServicePortTeamingStats()
        self._check(flat.VSZEL_GetServicePortTeamingStats(self.name, record), "read service port statistics")
        return ServicePortStatistics(
            record.txFromSrvPort,
            record.txUsingSrvPortFRP,
            record.txUsingPktSrcPortFRP,
            record.txErrors,
            record.rxToSrvPort,
            record.rxRpfOverride,
        )

    def refresh_numa(self) -> None:
        """Reads anew which NUMA node each uplink's device is near to."""
        self._check(flat.VSZEL_RefreshDevNUMAInfo(self.name), "refresh NUMA nodes")


class PortTeaming(HostObject):
    """The teaming of a port."""

    _names: tuple[str, str]

    @property
    def number(self) -> int:
        """The switch port identifier."""
        raise NotImplementedError

    @setting("teaming policy", flat.VSPROP_PORT_TEAMING_POLICY)
    def teaming(self) -> TeamingPolicy:
        """The teaming policy; the switch's by default. Setting raises as that of the switch does."""
        record = records.VSTeamPolicy()
        self._check(flat.VSDVS_GetPortTeamingPolicy(*self._names, record), "read teaming policy")
        return _policy_of(record)

    @teaming.writes
    def _set_teaming(self, policy: TeamingPolicy) -> None:
        self._check(flat.VSDVS_SetPortTeamingPolicy(*self._names, _record_of(policy)), "set teaming policy")

    @teaming.clears
    def _clear_teaming(self) -> None:
        self._check(flat.VSDVS_ClearPortTeamingPolicy(*self._names), "clear teaming policy")

    def ensure_teaming(self, policy: TeamingPolicy) -> bool:
        """Sets the teaming policy if it is another. Returns whether it was."""
        return PortTeaming.teaming.ensure(self, policy)

    @setting("teaming override", flat.VSPROP_PORT_TEAMING_OVERRIDE)
    def teaming_override(self) -> str:
        """The uplink port that the port is tied to, whatever its team says. NotFound for a port that is not tied."""
        return str(self._value(flat.VSDVS_GetPortTeamingOverride(*self._names), "read teaming override"))

    @teaming_override.writes
    def _set_teaming_override(self, uplink: str) -> None:
        status = flat.VSDVS_SetPortTeamingOverride(*self._names, name_of(uplink, "uplink port"))
        self._check(status, "set teaming override")

    @teaming_override.clears
    def _clear_teaming_override(self) -> None:
        self._check(flat.VSDVS_ClearPortTeamingOverride(*self._names), "clear teaming override")

    def ensure_teaming_override(self, uplink: str) -> bool:
        """Ties the port to an uplink port if it is not. Returns whether it was not."""
        return PortTeaming.teaming_override.ensure(self, uplink)

    @setting("sending through uplinks always", flat.VSPROP_PORT_TX_UPLINK)
    def always_uplink(self) -> bool:
        """Whether frames leave through an uplink even where the switch could deliver them; False by default."""
        return bool(self._value(flat.VSDVS_GetTxUplinkAlways(*self._names), "read sending through uplinks always"))

    @always_uplink.writes
    def _set_always_uplink(self, always: bool) -> None:
        self._check(flat.VSDVS_SetTxUplinkAlways(*self._names, int(always)), "set sending through uplinks always")

    def ensure_always_uplink(self, always: bool) -> bool:
        """Turns sending through uplinks always on or off if it is otherwise. Returns whether it was."""
        return PortTeaming.always_uplink.ensure(self, always)

    @setting("named teaming policy", flat.VSPROP_PORT_LS_TEAMING_POLICY)
    def named_teaming(self) -> str:
        """The name of the teaming policy that the port follows. NotFound for a port that follows none."""
        return str(self._value(flat.VSDVS_GetPortLSTeamingPolicyName(*self._names), "read named teaming policy"))

    @named_teaming.writes
    def _set_named_teaming(self, policy: str) -> None:
        status = flat.VSDVS_SetPortLSTeamingPolicy(*self._names, name_of(policy, "policy"))
        self._check(status, "set named teaming policy")

    @named_teaming.clears
    def _clear_named_teaming(self) -> None:
        self._check(flat.VSDVS_ClearPortLSTeamingPolicy(*self._names), "clear named teaming policy")

    def ensure_named_teaming(self, policy: str) -> bool:
        """Makes the port follow a named teaming policy if it does not. Returns whether it did not."""
        return PortTeaming.named_teaming.ensure(self, policy)

    def named_teaming_in_use(self) -> str:
        """The name of the teaming policy that the running port follows. NotFound for none."""
        return str(self._value(flat.VSZEL_GetPortLSTeamingPolicyName(self.number), "read named teaming policy in use"))

    def uplink_in_use(self) -> str:
        """The NIC that the port's team sends its frames through at the moment. NotFound for none."""
        name = records.zel_Name()
        self._check(flat.VSZEL_PortGetTeamUplinkHint(self.number, name), "read uplink in use")
        return name.string
