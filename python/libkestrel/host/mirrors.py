"""Mirror sessions: copies of frames, sent to other ports or over the network."""

from __future__ import annotations

from collections.abc import Iterable
from dataclasses import dataclass
from enum import IntFlag
from ipaddress import IPv4Address, IPv4Network, IPv6Address, IPv6Network, ip_address, ip_network
from typing import Any

import _libkestrel as flat

from libkestrel import enums, records
from libkestrel.enums import (
    DVMirrorEncapType,
    DVMirrorEntityType,
    DVMirrorFilterAction,
    DVMirrorFilterType,
    DVMirrorSessionType,
    DVMirrorVersion,
)
from libkestrel.host._objects import ABSENT, HostObject, name_of, setting
from libkestrel.records import MacAddress

COMPLETE = 0xFFFFFFFF
"""As snap length: packets are mirrored as long as they are."""


class MirrorFlags(IntFlag):
    """Further properties of a session."""

    NO_OUTPUT = flat.VS_DVMIRROR_FLAG_DST_NO_OUTPUT
    """Destination ports send nothing of their own: kept with the session, and without effect on the embedded host."""
    NO_INPUT = flat.VS_DVMIRROR_FLAG_DST_NO_INPUT
    """Destination ports receive nothing else: kept with the session, and without effect on the embedded host."""
    ORIGINAL_VLAN = flat.VS_DVMIRROR_FLAG_DST_ORIG_VLAN
    """Copies keep the VLAN tag (IEEE 802.1Q) that the frame was switched by."""
    ENCAPSULATE = flat.VS_DVMIRROR_FLAG_DST_ENCAP
    """Copies carry the tag of `encapsulation_vlan` around them."""
    LEGACY = flat.VS_DVMIRROR_FLAG_LEGACY
    """Destinations get copies by their own VLAN policies."""
    DISABLED = flat.VS_DVMIRROR_FLAG_DISABLED
    """The session rests."""
    SOURCE_UPLINK = flat.VS_DVMIRROR_FLAG_SRC_UPLINK_MIRROR
    """The session watches the uplinks."""


class MirrorWildcard(IntFlag):
    """Kinds of port that a session takes as sources as a whole."""

    MACHINES = flat.VS_DVMIRROR_WILDCARD_VMM
    """Ports of virtual machines."""
    UPLINKS = flat.VS_DVMIRROR_WILDCARD_PNIC
    """Uplinks."""
    CONSOLE = flat.VS_DVMIRROR_WILDCARD_COS
    """Ports of a console; the embedded host has none."""
    HOST_SERVICES = flat.VS_DVMIRROR_WILDCARD_TCPIP
    """Ports of the host's own services."""
    TEST = flat.VS_DVMIRROR_WILDCARD_TEST
    """Ports of tests; the embedded host has none."""


_NO_FLAGS, _NO_KINDS = MirrorFlags(0), MirrorWildcard(0)


@dataclass(frozen=True)
class MirrorEntity:
    """A source or destination of a session."""

    kind: DVMirrorEntityType
    """What it is."""
    value: str | int | IPv4Address | IPv6Address | MacAddress
    """Distributed-port id or name of an uplink (str), VLAN or port number (int), IP or MAC address."""

    @classmethod
    def port(cls, port: str) -> MirrorEntity:
        """A distributed port, by its id."""
        return cls(DVMirrorEntityType.MIRROR_ENTTYPE_DVPORT, port)

    @classmethod
    def uplink(cls, name: str) -> MirrorEntity:
        """An uplink, by its name."""
        return cls(DVMirrorEntityType.MIRROR_ENTTYPE_UPLINK, name)

    @classmethod
    def vlan(cls, vlan: int) -> MirrorEntity:
        """A VLAN."""
        return cls(DVMirrorEntityType.MIRROR_ENTTYPE_VLAN, vlan)

    @classmethod
    def ip(cls, address: IPv4Address | IPv6Address | str) -> MirrorEntity:
        """A collector in the network, by its IP address."""
        return cls(DVMirrorEntityType.MIRROR_ENTTYPE_IP, ip_address(address))

    @classmethod
    def number(cls, port: int) -> MirrorEntity:
        """A port, by its switch port identifier."""
        return cls(DVMirrorEntityType.MIRROR_ENTTYPE_PORT, port)

    @classmethod
    def mac(cls, address: MacAddress | str) -> MirrorEntity:
        """A station, by its MAC address."""
        return cls(DVMirrorEntityType.MIRROR_ENTTYPE_MAC, MacAddress(address))


Network = IPv4Network | IPv6Network


@dataclass(frozen=True)
class MirrorRule:
    """Decides about the packets that it matches; what it leaves out matches any."""

    action: DVMirrorFilterAction = DVMirrorFilterAction.ACTION_MIRROR
    """Whether they are mirrored."""
    sources: tuple[Network, ...] = ()
    """Networks that they come from."""
    destinations: tuple[Network, ...] = ()
    """Networks that they go to."""
    protocol: int | None = None
    """Protocol number of IP."""
    source_ports: tuple[int, int] | None = None
    """First and last source port of TCP or UDP."""
    destination_ports: tuple[int, int] | None = None
    """First and last destination port of TCP or UDP."""


@dataclass(frozen=True)
class MirrorSession:
    """A mirror session."""

    id: str
    """Its identifier, unique in the switch; at most 31 bytes."""
    destinations: tuple[MirrorEntity, ...] = ()
    """Where the copies go."""
    sources_in: tuple[MirrorEntity, ...] = ()
    """Sources of which what comes into the switch is mirrored."""
    sources_out: tuple[MirrorEntity, ...] = ()
    """Sources of which what leaves the switch is mirrored."""
    name: str = ""
    """A name for display, at most 80 bytes."""
    type: DVMirrorSessionType = DVMirrorSessionType.VS_DVMIRROR_SESSIONTYPE_DVPORT
    """Kind of the session."""
    snap_length: int = COMPLETE
    """Bytes of each packet that are kept."""
    sampling_rate: int = 0
    """One packet of so many is mirrored."""
    flags: MirrorFlags = _NO_FLAGS
    """Further properties."""
    encapsulation_vlan: int = 0
    """VLAN that the copies carry."""
    wildcard_in: MirrorWildcard = _NO_KINDS
    """Kinds of port of which all that comes in is mirrored."""
    wildcard_out: MirrorWildcard = _NO_KINDS
    """Kinds of port of which all that leaves is mirrored."""
    encapsulation: DVMirrorEncapType = DVMirrorEncapType.DVMIRROR_ENCAP_GRE
    """How copies travel over the network: GRE (RFC 2784) or ERSPAN."""
    gre_key: int = 0
    """Key of GRE (RFC 2890)."""
    erspan_id: int = 0
    """Session number of ERSPAN."""
    erspan_cos: int = 0
    """Class of service of ERSPAN."""
    erspan_granularity: int = 0
    """Granularity of ERSPAN's timestamps."""
    uplink_filter: DVMirrorFilterType = DVMirrorFilterType.MIRROR_UPLINK_FILTER_NONE
    """Encapsulations that a session over uplinks mirrors."""
    own_stack: bool = False
    """Whether copies over the network use a network stack of their own."""
    rules: tuple[MirrorRule, ...] = ()
    """Rules about what is mirrored."""


@dataclass(frozen=True)
class MirrorStatistics:
    """Traffic of a mirror session, in packets."""

    name: str
    """The session's name for display."""
    mirrored: int
    """Packets mirrored by the destination."""
    mirror_failures: int
    """Packets that the destination could not mirror."""
    matched: int
    """Packets that the session took."""
    discarded: int
    """Packets that were discarded."""
    failed: int
    """Packets that failed."""


# ---- Packing ----


def _packed_ip(address: IPv4Address | IPv6Address, prefix: int) -> bytes:
    """The 20 bytes of an address or prefix: whether IPv6, length of the prefix, two of padding, the address."""
    return bytes([address.version == 6, prefix, 0, 0]) + address.packed.ljust(16, b"\0")


def _unpacked_ip(record: Any) -> tuple[IPv4Address | IPv6Address, int]:
    data = bytes(record)
    return (IPv6Address(data[4:20]) if data[0] else IPv4Address(data[4:8])), data[1]


_MEMBERS = {
    DVMirrorEntityType.MIRROR_ENTTYPE_DVPORT: "dvPortId",
    DVMirrorEntityType.MIRROR_ENTTYPE_UPLINK: "uplink",
    DVMirrorEntityType.MIRROR_ENTTYPE_VLAN: "vlan",
    DVMirrorEntityType.MIRROR_ENTTYPE_PORT: "portId",
    DVMirrorEntityType.MIRROR_ENTTYPE_MAC: "mac",
}
"""The member that holds the value of an entity, but for IP addresses."""


def _entity_record(entity: MirrorEntity) -> records.DVMirrorEntity:
    record = records.DVMirrorEntity(type=entity.kind)
    if isinstance(entity.value, (IPv4Address, IPv6Address)):
        record.ip = records.DVMirrorIP.from_bytes(_packed_ip(entity.value, 0))
    else:
        setattr(record, _MEMBERS[entity.kind], entity.value)
    return record


def _entity_of(record: records.DVMirrorEntity) -> MirrorEntity:
    kind = DVMirrorEntityType(record.type)
    if kind == DVMirrorEntityType.MIRROR_ENTTYPE_IP:
        return MirrorEntity(kind, _unpacked_ip(record.ip)[0])
    value = getattr(record, _MEMBERS[kind])
    return MirrorEntity(kind, value)


def _networks(prefixes: Iterable[Any]) -> tuple[Network, ...]:
    return tuple(ip_network(_unpacked_ip(prefix), strict=False) for prefix in prefixes)


def _ports(ports: tuple[int, int] | None) -> records.DVMirrorPortRanage:
    begin, end = ports or (0, 0)
    return records.DVMirrorPortRanage(begin=begin, end=end)


def packed(sessions: Iterable[MirrorSession]) -> records.DVMirrorSessionTable:
    """The packed table of sessions, as the platform takes it."""
    heads: list[records.DVMirrorSession] = []
    entities: list[records.DVMirrorEntity] = []
    rules: list[records.DVMirrorFilterRule] = []
    prefixes: list[records.DVMirrorIpPrefix] = []
    for session in sessions:
        start_rule, start_entity = len(rules), len(entities)
        for rule in session.rules:
            networks = (*rule.sources, *rule.destinations)
            rules.append(
                records.DVMirrorFilterRule(
                    startIPIdx=len(prefixes),
                    numSrcIPs=len(rule.sources),
                    numDstIPs=len(rule.destinations),
                    protocol=rule.protocol or 0,
                    has_protocol=int(rule.protocol is not None),
                    has_srcports=int(rule.source_ports is not None),
                    has_dstports=int(rule.destination_ports is not None),
                    srcPorts=_ports(rule.source_ports),
                    dstPorts=_ports(rule.destination_ports),
                    action=rule.action,
                )
            )
            prefixes += [
                records.DVMirrorIpPrefix.from_bytes(_packed_ip(n.network_address, n.prefixlen)) for n in networks
            ]
        entities += [_entity_record(e) for e in (*session.destinations, *session.sources_in, *session.sources_out)]
        heads.append(_head(session, start_entity, start_rule))
    return records.DVMirrorSessionTable(
        magicNum=flat.VS_DVMIRROR_MAGIC_NUM & 0xFFFFFFFF,
        version=DVMirrorVersion.VS_DVMIRROR_VERSION_V4,
        sessions=heads,
        entities=entities,
        filterRules=rules,
        filterIPs=prefixes,
    )


def _head(session: MirrorSession, start_entity: int, start_rule: int) -> records.DVMirrorSession:
    return records.DVMirrorSession(
        sid=session.id,
        dname=session.name,
        type=session.type,
        snapLen=session.snap_length,
        flags=session.flags,
        encapVlan=session.encapsulation_vlan,
        wildIn=session.wildcard_in,
        wildOut=session.wildcard_out,
        samplingRate=session.sampling_rate,
        greKey=session.gre_key,
        uplinkFilter=session.uplink_filter,
        stack=session.own_stack,
        encapType=session.encapsulation,
        erspanID=session.erspan_id,
        erspanCOS=session.erspan_cos,
        erspanGra=session.erspan_granularity,
        numFilterRules=len(session.rules),
        startRuleIdx=start_rule,
        numDstEntities=len(session.destinations),
        numSrcInEntities=len(session.sources_in),
        numSrcOutEntities=len(session.sources_out),
        startIdx=start_entity,
    )


def _rule_of(record: records.DVMirrorFilterRule, prefixes: Any) -> MirrorRule:
    start, middle = record.startIPIdx, record.startIPIdx + record.numSrcIPs
    source, destination = record.srcPorts, record.dstPorts
    return MirrorRule(
        action=DVMirrorFilterAction(record.action),
        sources=_networks(prefixes[start:middle]),
        destinations=_networks(prefixes[middle : middle + record.numDstIPs]),
        protocol=record.protocol if record.has_protocol else None,
        source_ports=(source.begin, source.end) if record.has_srcports else None,
        destination_ports=(destination.begin, destination.end) if record.has_dstports else None,
    )


def unpacked(table: records.DVMirrorSessionTable) -> tuple[MirrorSession, ...]:
    """The sessions of a packed table."""
    found = []
    for head in table.sessions:
        start = head.startIdx
        ends = [start + head.numDstEntities]
        ends.append(ends[0] + head.numSrcInEntities)
        ends.append(ends[1] + head.numSrcOutEntities)
        entities = [_entity_of(record) for record in table.entities[start : ends[2]]]
        cuts = [end - start for end in ends]
        rules = table.filterRules[head.startRuleIdx : head.startRuleIdx + head.numFilterRules]
        found.append(
            MirrorSession(
                id=head.sid,
                destinations=tuple(entities[: cuts[0]]),
                sources_in=tuple(entities[cuts[0] : cuts[1]]),
                sources_out=tuple(entities[cuts[1] : cuts[2]]),
                name=head.dname,
                type=enums.DVMirrorSessionType(head.type),
                snap_length=head.snapLen,
                sampling_rate=head.samplingRate,
                flags=MirrorFlags(head.flags),
                encapsulation_vlan=head.encapVlan,
                wildcard_in=MirrorWildcard(head.wildIn),
                wildcard_out=MirrorWildcard(head.wildOut),
                encapsulation=DVMirrorEncapType(head.encapType),
                gre_key=head.greKey,
                erspan_id=head.erspanID,
                erspan_cos=head.erspanCOS,
                erspan_granularity=head.erspanGra,
                uplink_filter=DVMirrorFilterType(head.uplinkFilter),
                own_stack=head.stack,
                rules=tuple(_rule_of(rule, table.filterIPs) for rule in rules),
            )
        )
    return tuple(found)


# ---- What switches and ports have ----


class PortMirroring(HostObject):
    """The mirror sessions of a port."""

    _names: tuple[str, str]

    @setting("mirror sessions", flat.VSPROP_PORT_MIRROR_SESSIONS)
    def mirror_sessions(self) -> tuple[MirrorSession, ...]:
        """The mirror sessions; none by default.

        Setting raises Exists for an identifier that another port's session has, BadParam and InvalidName for what a
        session cannot be.
        """
        result = flat.VSDVS_GetDVMirrorSessions(*self._names)
        with self._kept(result, "read mirror sessions", flat.VSDVS_FreeMemory) as table:
            return unpacked(table)

    @mirror_sessions.writes
    def _set_mirror_sessions(self, sessions: Iterable[MirrorSession]) -> None:
        self._check(flat.VSDVS_SetDVMirrorSessions(*self._names, packed(sessions)), "set mirror sessions")

    @mirror_sessions.clears
    def _clear_mirror_sessions(self) -> None:
        self._check(flat.VSDVS_ClearDVMirrorSessions(*self._names), "clear mirror sessions")

    def ensure_mirror_sessions(self, sessions: Iterable[MirrorSession]) -> bool:
        """Replaces the mirror sessions if they are others. Returns whether they were."""
        return PortMirroring.mirror_sessions.ensure(self, tuple(sessions))

    def add_mirror_session(self, *sessions: MirrorSession) -> None:
        """Adds mirror sessions. Exists for an identifier in use; none is added then."""
        self._change(
            "add mirror sessions",
            lambda: self._add_mirror_sessions(sessions),
            after=sessions,
            undo=lambda: lambda: self._remove_mirror_sessions([session.id for session in sessions]),
        )

    def _add_mirror_sessions(self, sessions: Iterable[MirrorSession]) -> None:
        self._check(flat.VSDVS_AppendDVMirrorSessions(*self._names, packed(sessions)), "add mirror sessions")

    def remove_mirror_session(self, session: str) -> None:
        """Removes a mirror session. NotFound for an identifier that the port has no session of."""
        name_of(session, "session identifier")
        self._change(
            f"remove mirror session {session}",
            lambda: self._remove_mirror_sessions([session]),
            before=session,
            after=ABSENT,
            undo=lambda: PortMirroring.mirror_sessions._restoring(self),
        )

    def _remove_mirror_sessions(self, sessions: Iterable[str]) -> None:
        for session in sessions:
            status = flat.VSDVS_RemoveDVMirrorSession(*self._names, session)
            self._check(status, f"remove mirror session {session}")

    def ensure_mirror_session(self, session: MirrorSession) -> bool:
        """Adds a mirror session, or replaces that of its identifier, unless it is there. Returns whether it was not."""
        present = self.mirror_sessions
        if session in present:
            return False
        if any(other.id == session.id for other in present):
            self.mirror_sessions = tuple(session if other.id == session.id else other for other in present)
        else:
            self.add_mirror_session(session)
        return True

    def ensure_no_mirror_session(self, session: str) -> bool:
        """Removes a mirror session if the port has one of that identifier. Returns whether it had."""
        if all(other.id != session for other in self.mirror_sessions):
            return False
        self.remove_mirror_session(session)
        return True


class SwitchMirroring(HostObject):
    """Mirroring on a switch as it goes."""

    name: str

    def mirror_session_ids(self) -> tuple[str, ...]:
        """The identifiers of all mirror sessions."""
        result = flat.VSZEL_GetDVMirrorSessionIDs(self.name)
        with self._kept(result, "list mirror sessions", flat.VSZEL_FreeMemory) as table:
            return tuple(table)

    def mirror_statistics(self, session: str) -> MirrorStatistics:
        """Traffic of a mirror session. NotFound for an identifier that no session has."""
        record = records.VSDVMirrorSessionStats()
        status = flat.VSZEL_GetDVMirrorSessionStats(self.name, name_of(session, "session identifier"), record)
        self._check(status, f"read statistics of mirror session {session}")
        return MirrorStatistics(
            name=record.name,
            mirrored=record.mirrorPktCnt,
            mirror_failures=record.mirrorPktFailCnt,
            matched=record.mirroredPkts,
            discarded=record.discardedPkts,
            failed=record.failedPkts,
        )

    def promiscuous_ports(self) -> tuple[int, ...]:
        """The numbers of the ports that receive promiscuous traffic at the moment."""
        result = flat.VSZEL_GetPromiscSessionActiveDsts(self.name)
        with self._kept(result, "list promiscuous ports", flat.VSZEL_FreeMemory) as table:
            return tuple(table)
