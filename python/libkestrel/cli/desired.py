"""A desired state: the tables of a scenario, noted in a plan where the host is otherwise.

A key that the file does not have is left as it is on the host. What only the laboratory can do to a host (NICs,
clients, frames) has no place in a desired state.
"""

from __future__ import annotations

import tomllib
import uuid
from collections.abc import Callable, Mapping
from pathlib import Path
from typing import TYPE_CHECKING, Any

from libkestrel.cli.exits import USAGE, CommandError

if TYPE_CHECKING:
    from libkestrel.host import MirrorEntity, MirrorSession, NamedTeamingPolicy, Plan, Port, Switch, TeamingPolicy
    from libkestrel.lab.scenario import format as scenario

_IDS = uuid.UUID("6f2b8a64-0d0b-5d8e-9a3c-3a1f0c5e7b21")
"""The name space of the ids that switches get which have none, as those of scenarios."""


def read(path: Path) -> tuple[scenario.Scenario, Mapping[str, Any]]:
    """The desired state in a file, checked, and the same as it is written, which tells what was given."""
    from libkestrel.lab.scenario import read_scenario

    wanted = read_scenario(path)
    written = tomllib.loads(path.read_text(encoding="utf-8"))
    foreign: list[str] = [key for key in ("nic", "traffic") if key in written]
    for number, switch in enumerate(written.get("switch", ())):
        foreign += [
            f"switch[{number}].uplink[{i}].nic" for i, each in enumerate(switch.get("uplink", ())) if "nic" in each
        ]
        foreign += [
            f"switch[{number}].port[{i}].client" for i, each in enumerate(switch.get("port", ())) if "client" in each
        ]
    if foreign:
        raise CommandError(
            f"{path}: {foreign[0]} is the laboratory's to arrange (`kestrel lab run`), and no state to keep to", USAGE
        )
    return wanted, written


def collect(plan: Plan, wanted: scenario.Scenario, written: Mapping[str, Any], *, prune: bool) -> None:
    """Notes what is to change. With `prune`, ports and uplinks of the named switches that the file lacks go."""
    if wanted.options:
        plan.options.ensure(wanted.options)
    if wanted.learning is not None:
        from dataclasses import replace

        given = written["learning"]
        members = {"ageing": "aging_time", "limit": "limit"}
        changes = {members[key]: getattr(wanted.learning, key) for key in given}
        plan.ensure_mac_learning(replace(plan.mac_learning, **changes))
    for switch, table in zip(wanted.switch, written.get("switch", ()), strict=True):
        _collect_switch(plan, switch, table, prune=prune)


def _collect_switch(plan: Plan, wanted: scenario.Switch, written: Mapping[str, Any], *, prune: bool) -> None:
    identity = wanted.id or str(uuid.uuid5(_IDS, wanted.name))
    is_new = plan.switches.ensure_created(
        wanted.name, identity, max_ports=wanted.max_ports, mtu=wanted.mtu, version=wanted.version
    )
    switch = plan.switches[wanted.name]
    if not is_new:
        if "mtu" in written:
            switch.ensure_mtu(wanted.mtu)
        if "max-ports" in written:
            switch.stored.ensure_max_ports(wanted.max_ports)
        if "version" in written:
            switch.stored.ensure_version(wanted.version)
    _collect_uplinks(plan, switch, wanted, is_new=is_new)
    _collect_policies(switch, wanted, written)
    groups = {group.name: group for group in wanted.group}
    for port in wanted.port:
        _collect_ports(switch, port, groups)
    _collect_mirrors(switch, wanted)
    if prune and not is_new:
        _prune(switch, wanted)


def _collect_uplinks(plan: Plan, switch: Switch, wanted: scenario.Switch, *, is_new: bool) -> None:
    from libkestrel.cli import steps

    for uplink in wanted.uplink:
        switch.uplink_ports.ensure_added(uplink.name)
    present = set() if is_new else {lag.name for lag in switch.lags}
    for lag in wanted.lag:
        if lag.name not in present:
            plan.take(steps.add_lag(switch, lag.name, lag.uplinks, lag.id))


def _collect_policies(switch: Switch, wanted: scenario.Switch, written: Mapping[str, Any]) -> None:
    from libkestrel.host import MulticastMode, PrivateVlanEntry, PrivateVlanKind, SwitchLearning
    from libkestrel.records import MacAddress

    if "multicast" in written:
        switch.ensure_multicast_mode(MulticastMode(wanted.multicast))
    if "multicast-addresses" in written:
        switch.ensure_multicast_entries(MacAddress(address) for address in wanted.multicast_addresses)
    if wanted.learning is not None:
        switch.ensure_mac_learning(SwitchLearning(wanted.learning.ageing, wanted.learning.limit))
    if "private-vlan" in written:
        switch.ensure_private_vlans(
            PrivateVlanEntry(pair.primary, pair.secondary, PrivateVlanKind(pair.kind)) for pair in wanted.private_vlan
        )
    if wanted.teaming is not None:
        switch.ensure_teaming(_team(wanted.teaming))
    if "named-teaming" in written:
        switch.ensure_named_teaming(_named_team(team) for team in wanted.named_teaming)


def _team(wanted: scenario.Team) -> TeamingPolicy:
    from libkestrel.host import LinkCriteria, LoadBalance, TeamingFlags, TeamingPolicy

    return TeamingPolicy(
        wanted.active,
        wanted.standby,
        LoadBalance(wanted.balance),
        LinkCriteria(wanted.criteria),
        TeamingFlags(wanted.flags),
        wanted.error_percent,
        int(wanted.full_duplex),
        wanted.speed,
    )


def _named_team(wanted: scenario.NamedTeam) -> NamedTeamingPolicy:
    from libkestrel.host import LinkCriteria, LoadBalance, NamedTeamingPolicy, TeamingFlags

    return NamedTeamingPolicy(
        wanted.name,
        wanted.active,
        wanted.standby,
        LoadBalance(wanted.balance),
        LinkCriteria(wanted.criteria),
        TeamingFlags(wanted.flags),
    )


# ---- Ports ----


def _collect_ports(switch: Switch, wanted: scenario.Port, groups: Mapping[str, scenario.Group]) -> None:
    from libkestrel.lab.scenario.references import port_ids

    group = groups.get(wanted.group or "")
    for name in port_ids(wanted):
        switch.ports.ensure_added(name)
        _collect_port(switch.port(name), wanted, group)


def _collect_port(port: Port, own: scenario.Policies, group: scenario.Policies | None) -> None:
    """What the port says itself goes before what its group says; of the three VLAN modes one stands for all."""

    def chosen(key: str) -> Any:
        value = getattr(own, key)
        return getattr(group, key) if value is None and group is not None else value

    has_own_vlan = own.vlan is not None or own.trunk or own.private_vlan
    _ensure_vlan(port, own if has_own_vlan or group is None else group, chosen("priority"))
    verbs: dict[str, Callable[[Any], object]] = {
        "nested_tags": port.ensure_nested_tagging,
        "blocked": port.ensure_blocked,
        "sink": port.ensure_sink,
        "security": lambda policy: port.ensure_security(_security(policy)),
        "learning": lambda policy: port.ensure_mac_learning(_port_learning(policy)),
        "teaming": lambda team: port.ensure_teaming(_team(team)),
        "follows": port.ensure_named_teaming,
        "uplink": port.ensure_teaming_override,
        "always_uplink": port.ensure_always_uplink,
        "multicast": lambda addresses: port.ensure_multicast_entries(_addresses(addresses)),
    }
    for key, ensure in verbs.items():
        if chosen(key) is not None:
            ensure(chosen(key))


def _ensure_vlan(port: Port, source: scenario.Policies, priority: int | None) -> None:
    import _libkestrel as flat

    from libkestrel.host import AccessVlan, PrivateVlan, TrunkVlan

    prioritised = priority is not None
    if priority is not None:
        port.properties.ensure(flat.VSPROP_PORT_PRIORITY, priority)
    if source.trunk is not None:
        port.ensure_vlan(TrunkVlan(source.trunk, prioritised))
    elif source.private_vlan is not None:
        port.ensure_vlan(PrivateVlan(source.private_vlan, prioritised))
    elif source.vlan is not None or prioritised:
        port.ensure_vlan(AccessVlan(source.vlan or 0, prioritised))


def _security(wanted: scenario.Security) -> Any:
    from libkestrel.host import SecurityPolicy

    return SecurityPolicy(wanted.promiscuous, wanted.mac_changes, wanted.forged)


def _port_learning(wanted: scenario.PortLearning) -> Any:
    from libkestrel.host import LimitPolicy, PortLearning

    return PortLearning(wanted.learn, wanted.flood, wanted.limit, LimitPolicy(wanted.at_limit))


def _addresses(addresses: tuple[bytes, ...]) -> list[Any]:
    from libkestrel.records import MacAddress

    return [MacAddress(address) for address in addresses]


# ---- Mirrors ----


def _collect_mirrors(switch: Switch, wanted: scenario.Switch) -> None:
    from libkestrel.cli.reading import or_none

    for mirror in wanted.mirror:
        port = switch.port(mirror.port)
        if or_none(lambda port=port: port.mirror_sessions) is None:  # type: ignore[misc]
            port.add_mirror_session(_mirror(mirror))  # the port is still to be made
        else:
            port.ensure_mirror_session(_mirror(mirror))


def _mirror(wanted: scenario.Mirror) -> MirrorSession:
    from libkestrel import enums
    from libkestrel.host import COMPLETE, MirrorFlags, MirrorSession

    return MirrorSession(
        id=wanted.id,
        destinations=tuple(_entity(each) for each in wanted.to),
        sources_in=tuple(_entity(each) for each in wanted.incoming),
        sources_out=tuple(_entity(each) for each in wanted.outgoing),
        name=wanted.name,
        type=enums.DVMirrorSessionType(wanted.kind),
        snap_length=COMPLETE if wanted.snap_length is None else wanted.snap_length,
        sampling_rate=wanted.sampling,
        flags=MirrorFlags(wanted.flags),
        encapsulation_vlan=wanted.encapsulation_vlan,
        encapsulation=enums.DVMirrorEncapType(wanted.encapsulation),
        gre_key=wanted.gre_key,
        erspan_id=wanted.erspan_id,
    )


def _entity(wanted: scenario.Entity) -> MirrorEntity:
    from libkestrel.host import MirrorEntity
    from libkestrel.records import MacAddress

    if wanted.port is not None:
        return MirrorEntity.port(wanted.port)
    if wanted.uplink is not None:
        return MirrorEntity.uplink(wanted.uplink)
    if wanted.vlan is not None:
        return MirrorEntity.vlan(wanted.vlan)
    if wanted.ip is not None:
        return MirrorEntity.ip(wanted.ip)
    assert wanted.mac is not None
    return MirrorEntity.mac(MacAddress(wanted.mac))


# ---- What the file lacks ----


def _prune(switch: Switch, wanted: scenario.Switch) -> None:
    from libkestrel.lab.scenario.references import port_ids

    uplinks = {port.port: port.name for port in switch.uplink_ports}
    kept = {name for port in wanted.port for name in port_ids(port)}
    for name in switch.ports:
        if name not in kept and name not in uplinks:
            switch.ports.ensure_removed(name)
    for name in uplinks.values():
        if name not in {uplink.name for uplink in wanted.uplink}:
            switch.uplink_ports.ensure_removed(name)
