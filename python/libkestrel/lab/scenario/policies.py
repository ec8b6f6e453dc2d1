"""The policies of a scenario as records of the platform."""

from __future__ import annotations

import struct
from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from typing import Any

import _libkestrel as k

from libkestrel.lab.scenario.format import (
    AnyTeam,
    Entity,
    Learning,
    Mirror,
    NamedTeam,
    PortLearning,
    Security,
    Switch,
    Team,
)


@contextmanager
def record(kind: str, /, *arguments: Any, **members: Any) -> Iterator[Any]:
    """A record with these members, for the time of a `with` block."""
    made = _made(getattr(k, f"new_{kind}")(*arguments))
    try:
        _fill(kind, made, members)
        yield made
    finally:
        getattr(k, f"delete_{kind}")(made)


def _made(memory: Any) -> Any:
    """What was allocated. MemoryError for nothing, as which the flat module tells that there is no memory."""
    if memory is None:
        raise MemoryError
    return memory


def _fill(kind: str, target: Any, members: dict[str, Any]) -> None:
    for member, value in members.items():
        getattr(k, f"{kind}_{member}_set")(target, value)


def _team_members(team: AnyTeam) -> dict[str, Any]:
    return {
        "loadBalance": team.balance,
        "linkCriteria": team.criteria,
        "flags": team.flags,
        "numActive": len(team.active),
        "numStandby": len(team.standby),
    }


def _name_uplinks(kind: str, target: Any, team: AnyTeam) -> None:
    for index, name in enumerate(team.active + team.standby):
        getattr(k, f"{kind}___setitem__")(target, index, name)


@contextmanager
def team_policy(team: Team) -> Iterator[Any]:
    """A teaming policy."""
    members = _team_members(team) | {
        "percentError": team.error_percent,
        "fullDuplex": int(team.full_duplex),
        "speed": team.speed,
    }
    with record("VSTeamPolicy", **members) as policy:
        _name_uplinks("VSTeamPolicy", policy, team)
        yield policy


@contextmanager
def named_teams(teams: Sequence[NamedTeam]) -> Iterator[Any]:
    """A table of named teaming policies."""
    table = _made(k.alloc_ls_team_table(len(teams)))
    try:
        k.LSTeamTable_numLSTeam_set(table, len(teams))
        for index, team in enumerate(teams):
            with record("LSTeamPolicy", name=team.name, **_team_members(team)) as policy:
                _name_uplinks("LSTeamPolicy", policy, team)
                k.LSTeamTable___setitem__(table, index, policy)
        yield table
    finally:
        k.free_ls_team_table(table)


def security(policy: Security) -> Any:
    """A security policy, as a `with` block's record."""
    flags = 0
    flags |= 0 if policy.promiscuous else k.VSPORT_SECURITY_DISALLOW_PROMISC
    flags |= 0 if policy.mac_changes else k.VSPORT_SECURITY_DISALLOW_MAC_CHANGE
    flags |= 0 if policy.forged else k.VSPORT_SECURITY_DISALLOW_FORGED_SRC
    return record("VSPropSecurity", flags=flags)


def learning(policy: Learning) -> Any:
    """MAC learning of a switch."""
    return record("VSPropMACLearning", agingTime=policy.ageing, macLimit=policy.limit)


def port_learning(policy: PortLearning) -> Any:
    """MAC learning of a port."""
    return record(
        "VSPMACLearning",
        learning=int(policy.learn),
        flooding=int(policy.flood),
        macLimit=policy.limit,
        macLimitPolicy=policy.at_limit,
    )


@contextmanager
def addresses(values: Sequence[bytes]) -> Iterator[Any]:
    """A record with as many Ethernet addresses as it has room for, VS_MULTICAST_USER_ENTRIES_MAX, or fewer."""
    with record("VSMACEntries") as array:
        for index, address in enumerate(values):
            k.VSMACEntries_set_mac_address(array, index, address)
        yield array


@contextmanager
def ranges(values: Sequence[tuple[int, int]]) -> Iterator[Any]:
    """An array of VLAN ranges."""
    array = _made(k.new_vidrangeArray(len(values)))
    try:
        for index, (low, high) in enumerate(values):
            with record("zel_VDSPortVIDRange", minVID=low, maxVID=high) as entry:
                k.vidrangeArray_setitem(array, index, entry)
        yield array
    finally:
        k.delete_vidrangeArray(array)


@contextmanager
def private_vlans(switch: Switch) -> Iterator[Any]:
    """The private VLAN map of a switch."""
    array = _made(k.new_pvlanmapentryArray(len(switch.private_vlan)))
    try:
        for index, pair in enumerate(switch.private_vlan):
            members = {"primaryVID": pair.primary, "secondaryVID": pair.secondary, "pvlanType": pair.kind}
            with record("VSPvlanMapEntry", **members) as entry:
                k.pvlanmapentryArray_setitem(array, index, entry)
        yield array
    finally:
        k.delete_pvlanmapentryArray(array)


@contextmanager
def uplink_ports(names: Sequence[str], ports: Sequence[str]) -> Iterator[tuple[Any, Any]]:
    """The names of uplinks and the ids of their ports."""
    with record("VSUplinkPorts", len(names)) as first, record("VSUplinkPortIds", len(ports)) as second:
        for index, (name, port) in enumerate(zip(names, ports, strict=True)):
            k.VSUplinkPorts___setitem__(first, index, name)
            k.VSUplinkPortIds___setitem__(second, index, port)
        yield first, second


@contextmanager
def mirror_table(mirror: Mirror) -> Iterator[Any]:
    """A table of one mirror session."""
    entities = mirror.to + mirror.incoming + mirror.outgoing
    table = _made(k.alloc_dvmirror_session_table(1, len(entities)))
    try:
        k.DVMirrorSessionTable_version_set(table, k.VS_DVMIRROR_VERSION_V4)
        k.DVMirrorSessionTable_numSessions_set(table, 1)
        k.DVMirrorSessionTable_numEntities_set(table, len(entities))
        complete = k.VS_DVMIRROR_SNAPLEN_COMPLETE & 0xFFFFFFFF
        _fill(
            "DVMirrorSession",
            k.DVMirrorSessionTable___getitem__(table, 0),
            {
                "sid": mirror.id,
                "dname": mirror.name,
                "type": mirror.kind,
                "snapLen": complete if mirror.snap_length is None else mirror.snap_length,
                "flags": mirror.flags,
                "encapVlan": mirror.encapsulation_vlan,
                "samplingRate": mirror.sampling,
                "encapType": mirror.encapsulation,
                "greKey": mirror.gre_key,
                "erspanID": mirror.erspan_id,
                "numDstEntities": len(mirror.to),
                "numSrcInEntities": len(mirror.incoming),
                "numSrcOutEntities": len(mirror.outgoing),
            },
        )
        target = k.DVMirrorSessionTable_get_first_session_entity(table, 0)
        for entity in entities:
            kind, text = _entity(entity)
            k.DVMirrorEntity_type_set(target, kind)
            k.DVMirrorEntity_set_entity(target, text)
            target = k.DVMirrorEntity___next__(target)
        yield table
    finally:
        k.free_dvmirror_session_table(table)


def _entity(entity: Entity) -> tuple[int, str]:
    """The type of an entity and its text form."""
    if entity.port is not None:
        return k.MIRROR_ENTTYPE_DVPORT, entity.port
    if entity.uplink is not None:
        return k.MIRROR_ENTTYPE_UPLINK, entity.uplink
    if entity.vlan is not None:
        return k.MIRROR_ENTTYPE_VLAN, str(entity.vlan)
    if entity.ip is not None:
        return k.MIRROR_ENTTYPE_IP, entity.ip
    assert entity.mac is not None
    return k.MIRROR_ENTTYPE_MAC, entity.mac.hex(":")


def number(value: int) -> bytes:
    """A number as the value of a property."""
    return struct.pack("<I", value)
