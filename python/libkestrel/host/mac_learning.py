"""MAC learning: of the host, of switches, of ports."""

from __future__ import annotations

from dataclasses import dataclass
from enum import IntEnum
from typing import Any

import _libkestrel as flat

from libkestrel import records
from libkestrel.host._objects import HostObject, setting


class LimitPolicy(IntEnum):
    """What becomes of frames from addresses beyond a port's limit."""

    ALLOW = flat.VSPORT_MAC_LEARNING_LIMIT_POLICY_ALLOW
    """They are forwarded, and their address is not learned."""
    DROP = flat.VSPORT_MAC_LEARNING_LIMIT_POLICY_DROP
    """They are dropped."""


@dataclass(frozen=True)
class HostLearning:
    """The host's defaults of MAC learning."""

    aging_time: int
    """Seconds until an address is forgotten, 1 to 1000000."""
    limit: int
    """Most addresses of a switch."""
    learn_static: bool
    """Whether addresses known without learning are learned on uplinks too."""
    static_mac_allow: bool
    """Whether a port may learn an address that is static on another."""


@dataclass(frozen=True)
class SwitchLearning:
    """MAC learning of a switch."""

    aging_time: int
    """Seconds until an address is forgotten, 1 to 1000000."""
    limit: int
    """Most addresses of the switch."""


@dataclass(frozen=True)
class PortLearning:
    """MAC learning of a port."""

    learning: bool = False
    """Whether the port learns addresses."""
    flooding: bool = False
    """Whether frames for unknown addresses are sent to the port."""
    limit: int = flat.VSPORT_MAC_LEARNING_LIMIT_ENTRIES_DEFAULT
    """Most addresses of the port, up to 4096."""
    beyond: LimitPolicy = LimitPolicy.ALLOW
    """What becomes of frames from addresses beyond the limit."""


@dataclass(frozen=True)
class LearningStatistics:
    """MAC learning of a port so far."""

    learned: int
    """Addresses that are learned at the moment."""
    allowed_beyond_limit: int
    """Packets beyond the limit that were forwarded."""
    dropped_beyond_limit: int
    """Packets beyond the limit that were dropped."""
    moved: int
    """Addresses that moved here from another port."""


@dataclass(frozen=True)
class SwitchLearningState:
    """MAC learning of a switch as it goes, its uplink team apart."""

    aging_time: int
    """Seconds until an address is forgotten."""
    limit: int
    """Most addresses of the switch."""
    learning_ports: int
    """Ports that learn."""
    learned: int
    """Addresses that are learned at the moment."""
    learned_on_team: int
    """Of the uplink team, addresses that are learned."""
    team: PortLearning
    """MAC learning of the uplink team."""
    team_statistics: LearningStatistics
    """The uplink team's learning so far."""
    team_allowed_with_port_limit: int
    """Packets that the team passed for ports at their limit."""
    ports_at_limit: int
    """Ports that have reached their limit."""
    sink_ports: int
    """Ports in sink mode."""
    sink_and_flooding_ports: int
    """Ports in sink mode that are flooded too."""


def _policy(record: Any) -> PortLearning:
    return PortLearning(record.learning, record.flooding, record.macLimit, LimitPolicy(record.macLimitPolicy))


def _statistics(record: Any) -> LearningStatistics:
    return LearningStatistics(
        learned=record.numMACsLearned,
        allowed_beyond_limit=record.noLearningAllowedPkts,
        dropped_beyond_limit=record.noLearningDroppedPkts,
        moved=record.numMACsMoved,
    )


class HostMacLearning(HostObject):
    """The host's side of MAC learning."""

    @setting("MAC-learning defaults")
    def mac_learning(self) -> HostLearning:
        """The host's defaults; they last until the configuration is loaded anew.

        Setting raises BadParam for an ageing time above 1000000.
        """
        record = records.VSMACLearningGlobalProps()
        self._check(flat.VSZEL_GetGlobalMACLearningProps(record), "read MAC-learning defaults")
        return HostLearning(record.agingTime, record.macLimit, record.learnStatic, record.staticMACAllow)

    @mac_learning.writes
    def _set_mac_learning(self, wanted: HostLearning) -> None:
        record = records.VSMACLearningGlobalProps(
            agingTime=wanted.aging_time,
            macLimit=wanted.limit,
            learnStatic=wanted.learn_static,
            staticMACAllow=wanted.static_mac_allow,
        )
        self._check(flat.VSZEL_SetGlobalMACLearningProps(record), "set MAC-learning defaults")

    def ensure_mac_learning(self, wanted: HostLearning) -> bool:
        """Sets the host's defaults if they are others. Returns whether they were."""
        return HostMacLearning.mac_learning.ensure(self, wanted)


class SwitchMacLearning(HostObject):
    """A switch's side of MAC learning."""

    name: str

    @setting("MAC learning", flat.VSPROP_SWITCH_MAC_LEARNING)
    def mac_learning(self) -> SwitchLearning:
        """Ageing time and limit; the host's by default. Setting raises BadParam for an ageing time out of range."""
        record = records.VSPropMACLearning()
        self._check(flat.VSDVS_GetMACLearning(self.name, record), "read MAC learning")
        return SwitchLearning(record.agingTime, record.macLimit)

    @mac_learning.writes
    def _set_mac_learning(self, wanted: SwitchLearning) -> None:
        record = records.VSPropMACLearning(agingTime=wanted.aging_time, macLimit=wanted.limit)
        self._check(flat.VSDVS_SetMACLearning(self.name, record), "set MAC learning")

    @mac_learning.clears
    def _clear_mac_learning(self) -> None:
        self._check(flat.VSDVS_ClearMACLearning(self.name), "clear MAC learning")

    def ensure_mac_learning(self, wanted: SwitchLearning) -> bool:
        """Sets ageing time and limit if they are others. Returns whether they were."""
        return SwitchMacLearning.mac_learning.ensure(self, wanted)

    @setting("learning of static addresses", flat.VSPROP_SWITCH_MAC_LEARN_STATIC)
    def learn_static(self) -> bool:
        """Whether addresses known without learning are learned on uplinks too; the host's word by default."""
        return bool(self._value(flat.VSDVS_GetLearnStatic(self.name), "read learning of static addresses"))

    @learn_static.writes
    def _set_learn_static(self, learn: bool) -> None:
        self._check(flat.VSDVS_SetLearnStatic(self.name, int(learn)), "set learning of static addresses")

    @learn_static.clears
    def _clear_learn_static(self) -> None:
        self._check(flat.VSDVS_ClearLearnStatic(self.name), "clear learning of static addresses")

    def ensure_learn_static(self, learn: bool) -> bool:
        """Turns learning of static addresses on or off if it is otherwise. Returns whether it was."""
        return SwitchMacLearning.learn_static.ensure(self, learn)

    @setting("moves of static addresses", flat.VSPROP_SWITCH_STATIC_MAC_ALLOW)
    def static_mac_allow(self) -> bool:
        """Whether a port may learn an address that is static on another; the host's word by default."""
        return bool(self._value(flat.VSDVS_GetStaticMACAllow(self.name), "read moves of static addresses"))

    @static_mac_allow.writes
    def _set_static_mac_allow(self, allowed: bool) -> None:
        self._check(flat.VSDVS_SetStaticMACAllow(self.name, int(allowed)), "set moves of static addresses")

    @static_mac_allow.clears
    def _clear_static_mac_allow(self) -> None:
        self._check(flat.VSDVS_ClearStaticMACAllow(self.name), "clear moves of static addresses")

    def ensure_static_mac_allow(self, allowed: bool) -> bool:
        """Allows or forbids moves of static addresses if it is otherwise. Returns whether it was."""
        return SwitchMacLearning.static_mac_allow.ensure(self, allowed)

    def mac_learning_state(self) -> SwitchLearningState:
        """MAC learning as it goes."""
        record = records.VSMACLearningSwitchInfo()
        self._check(flat.VSZEL_GetSwitchMACLearningInfo(self.name, record), "read state of MAC learning")
        return SwitchLearningState(
            aging_time=record.agingTime,
            limit=record.macLimit,
            learning_ports=record.numLearningPorts,
            learned=record.numMACsLearned,
            learned_on_team=record.teamNumMACsLearned,
            team=_policy(record.teamMACLearning),
            team_statistics=_statistics(record.teamMACLearningStats),
            team_allowed_with_port_limit=record.teamAllowedPktsWithPortLimit,
            ports_at_limit=record.noOfPortsMACLimitHit,
            sink_ports=record.numSinkPorts,
            sink_and_flooding_ports=record.numSinkAndFloodingPorts,
        )

    def port_mac_learning(self) -> dict[int, PortLearning]:
        """MAC learning of all ports, by port number."""
        result = flat.VSZEL_GetMACLearningAllPorts(self.name)
        with self._kept(result, "read MAC learning of ports", flat.VSZEL_FreeMemory) as table:
            return {entry.portID: _policy(entry.portMACLearning) for entry in table}

    def port_mac_learning_statistics(self) -> dict[int, LearningStatistics]:
        """MAC learning of all ports so far, by port number."""
        result = flat.VSZEL_GetSwitchMACLearningStats(self.name)
        with self._kept(result, "read MAC-learning statistics", flat.VSZEL_FreeMemory) as table:
            return {entry.portID: _statistics(entry.portStats) for entry in table}


class PortMacLearning(HostObject):
    """A port's side of MAC learning."""

    _names: tuple[str, str]

    @setting("MAC learning", flat.VSPROP_PORT_MAC_MANAGEMENT)
    def mac_learning(self) -> PortLearning:
        """MAC learning of the port; off by default. Setting raises LimitExceeded for a limit above 4096."""
        record = records.VSPMACLearning()
        self._check(flat.VSDVS_GetPortMACLearning(*self._names, record), "read MAC learning")
        return _policy(record)

    @mac_learning.writes
    def _set_mac_learning(self, wanted: PortLearning) -> None:
        record = records.VSPMACLearning(
            learning=wanted.learning, flooding=wanted.flooding, macLimit=wanted.limit, macLimitPolicy=wanted.beyond
        )
        self._check(flat.VSDVS_SetPortMACLearning(*self._names, record), "set MAC learning")

    def ensure_mac_learning(self, wanted: PortLearning) -> bool:
        """Sets MAC learning if it is otherwise. Returns whether it was."""
        return PortMacLearning.mac_learning.ensure(self, wanted)

    def mac_learning_statistics(self) -> LearningStatistics:
        """MAC learning of the port so far."""
        record = records.VSPMACLearningStats()
        self._check(flat.VSZEL_GetPortMACLearningStats(*self._names, record), "read MAC-learning statistics")
        return _statistics(record)
