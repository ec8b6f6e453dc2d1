"""The format of scenarios: each class is a table, each field a key, with its kind, its meaning and its default.

Reading, checking and the documentation all go by these classes.
"""

from __future__ import annotations

from dataclasses import dataclass

import _libkestrel as k

from libkestrel.lab.scenario.kinds import (
    MAX_VLAN,
    Choice,
    Either,
    Flag,
    Hex,
    Ip,
    ListOf,
    Mac,
    MapOf,
    Name,
    Number,
    Seconds,
    TableOf,
    TablesOf,
    Text,
    VlanRanges,
    Words,
    key,
)

_NIC = Name(k.ZEL_DEVICE_NAME_MAX_LENGTH - 1)
_SWITCH = Name(k.ZEL_VDS_NAME_MAX_LEN - 1)
_PORT = Name(k.ZEL_VDS_PORT_ID_MAX_LEN - 1)
_UPLINK = Name(k.ZEL_VDS_PORT_ALIAS_MAX_LEN - 1)
_VLAN = Number(0, MAX_VLAN)
_WORD = 2**32 - 1

BALANCES = {
    "none": k.TEAM_FRP_TYPE_NONE,
    "ip-hash": k.TEAM_FRP_TYPE_LB_IP,
    "source-mac": k.TEAM_FRP_TYPE_LB_SRCMAC,
    "source-port": k.TEAM_FRP_TYPE_LB_SRCID,
    "explicit": k.TEAM_FRP_TYPE_FO_EXPLICIT,
    "load": k.TEAM_FRP_TYPE_LB_LBT,
}
CRITERIA = {
    "link-state": k.TEAM_FRP_CRIT_LINK_STATE,
    "speed": k.TEAM_FRP_CRIT_LINK_SPEED,
    "speed-at-least": k.TEAM_FRP_CRIT_LINK_SPEED_GTE,
    "duplex": k.TEAM_FRP_CRIT_LINK_DUPLEX,
    "lacp": k.TEAM_FRP_CRIT_LACP_PORT_DOWN,
    "beacon": k.TEAM_FRP_CRIT_BEACON_STATE,
    "errors": k.TEAM_FRP_CRIT_LINK_ERR,
    "blocked": k.TEAM_FRP_CRIT_PORT_BLOCKED,
    "driver": k.TEAM_FRP_CRIT_DRV_PRESENT,
}
TEAM_FLAGS = {
    "all-available": k.TEAM_FRP_FLAG_ALL_AVAILABLE,
    "reverse": k.TEAM_FRP_FLAG_REVERSE,
    "best-effort": k.TEAM_FRP_FLAG_BEST_EFFORT,
    "rolling": k.TEAM_FRP_FLAG_ROLLING,
    "shotgun": k.TEAM_FRP_FLAG_SHOTGUN,
    "notify": k.TEAM_FRP_FLAG_NOTIFY_SWITCH,
    "block-output": k.TEAM_FRP_FLAG_BLOCK_OUTPUT,
    "lacp-client": k.TEAM_FRP_FLAG_LACP_CLIENT,
    "link-tracking": k.TEAM_FRP_FLAG_LST,
}
VERSIONS = {"6.0": k.DVS_VERSION_60, "6.5": k.DVS_VERSION_65, "6.6": k.DVS_VERSION_66, "7.0": k.DVS_VERSION_70}
PRIVATE_KINDS = {
    "promiscuous": k.VSPORT_PVLAN_TYPE_PROMISC,
    "isolated": k.VSPORT_PVLAN_TYPE_ISOLATED,
    "community": k.VSPORT_PVLAN_TYPE_COMMUNITY,
}
MIRROR_KINDS = {
    "port": k.VS_DVMIRROR_SESSIONTYPE_DVPORT,
    "mixed": k.VS_DVMIRROR_SESSIONTYPE_MIXDST,
    "remote-source": k.VS_DVMIRROR_SESSIONTYPE_RMIRROR_SRC,
    "remote-destination": k.VS_DVMIRROR_SESSIONTYPE_RMIRROR_DST,
    "encapsulated": k.VS_DVMIRROR_SESSIONTYPE_ERMIRROR_SRC,
}
MIRROR_FLAGS = {
    "no-output": k.VS_DVMIRROR_FLAG_DST_NO_OUTPUT,
    "no-input": k.VS_DVMIRROR_FLAG_DST_NO_INPUT,
    "original-vlan": k.VS_DVMIRROR_FLAG_DST_ORIG_VLAN,
    "encapsulate-vlan": k.VS_DVMIRROR_FLAG_DST_ENCAP,
    "disabled": k.VS_DVMIRROR_FLAG_DISABLED,
}
ENCAPSULATIONS = {"gre": k.DVMIRROR_ENCAP_GRE, "erspan2": k.DVMIRROR_ENCAP_ERSPAN2, "erspan3": k.DVMIRROR_ENCAP_ERSPAN3}
LACP_MODES = {mode: mode for mode in ("none", "passive", "active")}
LACP_SYSTEM = bytes.fromhex("024bff000001")
CLIENTS = {"machine": k.VS_PORT_CLIENT_VNIC, "service": k.VS_PORT_CLIENT_TCPIP}


@dataclass(frozen=True, kw_only=True)
class Partner:
    """The far end of a link, as LACP meets it."""

    mode: str = key(Choice(LACP_MODES), "Whether it begins (active), only answers, or is silent.", "active")
    system: bytes = key(Mac(), "Its system; groups form towards one system.", LACP_SYSTEM)
    system_priority: int = key(Number(0, 65_535), "The priority of its system.", 32_768)
    group_key: int = key(Number(0, 65_535), "The key of its group.", 1)
    collects: bool = key(Flag(), "Whether it takes in what comes.", True)
    distributes: bool = key(Flag(), "Whether it sends.", True)
    short_timeout: bool = key(Flag(), "Whether it wants to hear from the host every second.", False)


@dataclass(frozen=True, kw_only=True)
class Nic:
    """A NIC of the host."""

    name: str = key(_NIC, "Its name.")
    link: bool = key(Choice({"up": True, "down": False}), "Its link.", True)
    speed: int = key(Number(0, 400_000), "In Mbit/s.", 10_000)
    duplex: str = key(Choice({mode: mode for mode in ("full", "half", "auto")}), "Its duplex mode.", "full")
    mac: bytes | None = key(Mac(), "Its Ethernet address.", None, shown="one made from its name")
    numa_node: int = key(Number(0, 1023), "The NUMA node that it is near to.", 0)
    driver: bool = key(Flag(), "Whether its driver is there.", True)
    error_percent: int = key(Number(0, 100), "The share of its frames that are damaged.", 0)
    blocked: bool = key(Flag(), "Whether the far end blocks its port.", False)
    beacons: bool = key(Flag(), "Whether beacons of the other NICs reach it.", True)
    lacp: Partner | None = key(TableOf(Partner), "The far end of its link.", None, shown="one that is active")


@dataclass(frozen=True, kw_only=True)
class Uplink:
    """An uplink of a switch."""

    name: str = key(_UPLINK, "Its name.")
    port: str | None = key(_PORT, "The distributed-port id of its port.", None, shown="the lowest free number")
    nic: str | None = key(_NIC, "The NIC that is plugged in, one of the scenario's.", None, shown="none")


@dataclass(frozen=True, kw_only=True)
class Lag:
    """A link aggregation group."""

    name: str = key(_UPLINK, "Its name.")
    uplinks: tuple[str, ...] = key(ListOf(_UPLINK), "The uplinks of the switch that form it.")
    id: int | None = key(Number(0, _WORD), "Its number.", None, shown="its place among the groups, from 1")


@dataclass(frozen=True, kw_only=True)
class AnyTeam:
    """What every teaming policy says."""

    balance: int = key(Choice(BALANCES), "How the active ones share the load.", k.TEAM_FRP_TYPE_LB_SRCID)
    active: tuple[str, ...] = key(ListOf(_UPLINK), "Uplinks and groups in use, in order.", ())
    standby: tuple[str, ...] = key(ListOf(_UPLINK), "Those that take over, in order.", ())
    criteria: int = key(Words(CRITERIA), "What makes one fail.", k.TEAM_FRP_CRIT_LINK_STATE)
    flags: int = key(Words(TEAM_FLAGS), "Further flags of the policy.", k.TEAM_FRP_FLAG_NOTIFY_SWITCH)


@dataclass(frozen=True, kw_only=True)
class Team(AnyTeam):
    """A teaming policy: which uplinks and groups carry frames, and how they share them."""

    speed: int = key(Number(0, 65_535), "The speed that the speed criteria ask for, in Mbit/s.", 0)
    full_duplex: bool = key(Flag(), "The duplex mode that the duplex criterion asks for.", False)
    error_percent: int = key(Number(0, 100), "The share of errors that the errors criterion allows.", 0)


@dataclass(frozen=True, kw_only=True)
class NamedTeam(AnyTeam):
    """A teaming policy that ports follow by its name."""

    name: str = key(Name(135), "Its name.")


@dataclass(frozen=True, kw_only=True)
class PrivateVlan:
    """A pair of a switch's private VLAN map."""

    primary: int = key(Number(1, MAX_VLAN), "The primary VLAN.")
    secondary: int = key(Number(1, MAX_VLAN), "The secondary one; the primary itself where it is promiscuous.")
    kind: int = key(Choice(PRIVATE_KINDS), "Who hears whom in the secondary VLAN.")


@dataclass(frozen=True, kw_only=True)
class Learning:
    """MAC learning of a switch, or of the host where switches say nothing else."""

    ageing: int = key(Number(1, k.VS_MAC_LEARNING_AGING_TIME_MAX), "Seconds that an address is kept.", 300)
    limit: int = key(Number(0, _WORD), "How many learned addresses there can be.", 4096)


@dataclass(frozen=True, kw_only=True)
class PortLearning:
    """MAC learning of a port."""

    learn: bool = key(Flag(), "Whether addresses behind the port are learned.", True)
    flood: bool = key(Flag(), "Whether the port receives frames for addresses that nobody knows.", True)
    limit: int = key(Number(0, k.VSPORT_MAC_LEARNING_LIMIT_ENTRIES_MAX), "How many addresses are learned.", 4096)
    at_limit: int = key(
        Choice(
            {"allow": k.VSPORT_MAC_LEARNING_LIMIT_POLICY_ALLOW, "drop": k.VSPORT_MAC_LEARNING_LIMIT_POLICY_DROP},
        ),
        "What becomes of frames from further addresses.",
        k.VSPORT_MAC_LEARNING_LIMIT_POLICY_ALLOW,
    )


@dataclass(frozen=True, kw_only=True)
class Security:
    """What the client of a port may do."""

    promiscuous: bool = key(Flag(), "See frames that are not for it.", False)
    mac_changes: bool = key(Flag(), "Take another address than its own.", False)
    forged: bool = key(Flag(), "Send from addresses that are not its own.", False)


@dataclass(frozen=True, kw_only=True)
class Policies:
    """The policies of ports. At most one of `vlan`, `trunk` and `private-vlan` can be given."""

    vlan: int | None = key(_VLAN, "The VLAN of an access port.", None, shown="0, untagged")
    trunk: tuple[tuple[int, int], ...] | None = key(VlanRanges(), "The VLANs of a trunk.", None, shown="no trunk")
    private_vlan: int | None = key(
        Number(1, MAX_VLAN), "The secondary VLAN of a private VLAN port.", None, shown="none"
    )
    nested_tags: bool | None = key(Flag(), "Whether the client may tag inside of the port's VLAN.", None, shown="false")
    priority: int | None = key(Number(0, 7), "The priority that frames get in place of theirs.", None, shown="theirs")
    blocked: bool | None = key(Flag(), "Whether the port passes nothing.", None, shown="false")
    sink: bool | None = key(Flag(), "Whether the port receives what nobody else wants.", None, shown="false")
    security: Security | None = key(TableOf(Security), "What the client may do.", None, shown="nothing of it")
    learning: PortLearning | None = key(TableOf(PortLearning), "MAC learning.", None, shown="none")
    teaming: Team | None = key(TableOf(Team), "A teaming policy of its own.", None, shown="the switch's")
    follows: str | None = key(Name(135), "The named teaming policy that it follows.", None, shown="none")
    uplink: str | None = key(_UPLINK, "The uplink or group that it is tied to.", None, shown="none")
    always_uplink: bool | None = key(
        Flag(), "Whether frames leave through an uplink even for clients of the switch.", None, shown="false"
    )
    multicast: tuple[bytes, ...] | None = key(
        ListOf(Mac(station=False)), "Multicast addresses that legacy filtering lets through.", None, shown="none"
    )


@dataclass(frozen=True, kw_only=True)
class Group(Policies):
    """A port group: policies that ports share. What a port says itself goes before."""

    name: str = key(Name(255), "Its name, for the scenario only.")


@dataclass(frozen=True, kw_only=True)
class Client:
    """Who is plugged into a port."""

    name: str = key(
        Name(k.ZEL_PORT_CLIENT_NAME_MAX - 1),
        "Its name; `{n}` stands for the number of the port among those of its entry, from 1.",
    )
    kind: int = key(Choice(CLIENTS), "A virtual machine, or a service of the host.", k.VS_PORT_CLIENT_VNIC)
    mac: bytes | None = key(
        Mac(), "Its Ethernet address; of several clients that of the first.", None, shown="one made from its name"
    )


@dataclass(frozen=True, kw_only=True)
class Port(Policies):
    """A port of a switch, or several alike."""

    id: int | str = key(Either(Number(0, _WORD), _PORT), "Its distributed-port id; of several that of the first.")
    count: int = key(Number(1, 60_000), "How many ports alike; the ids count up from a number then.", 1)
    group: str | None = key(Name(255), "The port group whose policies hold.", None, shown="none")
    client: Client | None = key(TableOf(Client), "Who is plugged in.", None, shown="nobody")


@dataclass(frozen=True, kw_only=True)
class Entity:
    """A source or destination of a mirror session. Exactly one key is given."""

    port: str | None = key(_PORT, "A port of the switch.", None, shown="none")
    uplink: str | None = key(Name(31), "An uplink.", None, shown="none")
    vlan: int | None = key(_VLAN, "A VLAN.", None, shown="none")
    ip: str | None = key(Ip(), "A collector, for encapsulated mirrors.", None, shown="none")
    mac: bytes | None = key(Mac(), "A station.", None, shown="none")


@dataclass(frozen=True, kw_only=True)
class Mirror:
    """A mirror session."""

    id: str = key(Name(31), "Its identifier, unique on the switch.")
    port: str = key(_PORT, "The port that carries the session.")
    kind: int = key(Choice(MIRROR_KINDS), "What the destinations are.", k.VS_DVMIRROR_SESSIONTYPE_DVPORT)
    name: str = key(Text(80), "Its name for people.", "")
    to: tuple[Entity, ...] = key(TablesOf(Entity), "Where copies go.")
    incoming: tuple[Entity, ...] = key(TablesOf(Entity), "Whose frames into the switch are copied.", ())
    outgoing: tuple[Entity, ...] = key(TablesOf(Entity), "Whose frames from the switch are copied.", ())
    flags: int = key(Words(MIRROR_FLAGS), "Further flags of the session.", 0)
    snap_length: int | None = key(Number(1, 65_535), "Bytes kept of each frame.", None, shown="all")
    sampling: int = key(Number(1, _WORD), "One frame of so many is copied.", 1)
    encapsulation_vlan: int = key(_VLAN, "The VLAN that copies are sent in.", 0)
    encapsulation: int = key(Choice(ENCAPSULATIONS), "Of an encapsulated mirror.", k.DVMIRROR_ENCAP_GRE)
    gre_key: int = key(Number(0, _WORD), "Its GRE key.", 0)
    erspan_id: int = key(Number(0, 1023), "Its ERSPAN session.", 0)


@dataclass(frozen=True, kw_only=True)
class Switch:
    """A switch."""

    name: str = key(_SWITCH, "Its alias.")
    id: str | None = key(Name(k.ZEL_VDS_ID_MAX_LEN - 1), "Its id.", None, shown="a UUID made from the name")
    mtu: int = key(Number(1280, 9000), "In bytes.", 1500)
    max_ports: int = key(Number(1, 60_000), "How many ports it can have.", 512)
    version: int = key(Choice(VERSIONS), "The version of the distributed switch.", k.DVS_VERSION_70)
    multicast: int = key(
        Choice({"legacy": k.VS_MCAST_FILTER_MODE_LEGACY, "snooping": k.VS_MCAST_FILTER_MODE_SNOOPING}),
        "How multicast frames are filtered.",
        k.VS_MCAST_FILTER_MODE_LEGACY,
    )
    multicast_addresses: tuple[bytes, ...] = key(
        ListOf(Mac(station=False)), "Multicast addresses that legacy filtering lets through to every port.", ()
    )
    learning: Learning | None = key(TableOf(Learning), "MAC learning.", None, shown="the host's")
    private_vlan: tuple[PrivateVlan, ...] = key(TablesOf(PrivateVlan), "The private VLAN map.", ())
    uplink: tuple[Uplink, ...] = key(TablesOf(Uplink), "The uplinks.", ())
    lag: tuple[Lag, ...] = key(TablesOf(Lag), "The link aggregation groups.", ())
    teaming: Team | None = key(TableOf(Team), "The teaming policy.", None, shown="by source port over all uplinks")
    named_teaming: tuple[NamedTeam, ...] = key(TablesOf(NamedTeam), "Teaming policies that ports can follow.", ())
    group: tuple[Group, ...] = key(TablesOf(Group), "The port groups.", ())
    port: tuple[Port, ...] = key(TablesOf(Port), "The ports.", ())
    mirror: tuple[Mirror, ...] = key(TablesOf(Mirror), "The mirror sessions.", ())


@dataclass(frozen=True, kw_only=True)
class Traffic:
    """Frames that come in through a port; the entries are gone through in order.

    Exactly one of `frame`, `to` and `pcap` is given.
    """

    switch: str = key(_SWITCH, "The switch.")
    port: str = key(_PORT, "The port of the client that sends, or of the uplink that the frames come in by.")
    wait: int = key(Seconds(), "Time that passes before.", 0)
    frame: bytes | None = key(Hex(), "The frame, without its check sequence.", None, shown="none")
    pcap: str | None = key(
        Text(), "A pcap file, found beside the scenario, whose frames come at their own intervals.", None, shown="none"
    )
    to: bytes | None = key(Mac(station=False), "The destination of a frame that is made.", None, shown="none")
    source: bytes | None = key(Mac(), "Its source.", None, shown="the client's address")
    vlan: int | None = key(_VLAN, "The VLAN of its tag.", None, shown="no tag")
    type: int = key(Number(0x600, 0xFFFF), "The type of its payload.", 0x88B5, shown="0x88b5, for experiments")
    payload: bytes = key(
        Hex(), "Its payload, which is filled up with zeros to the least that a frame has.", b"", shown='""'
    )
    count: int = key(Number(1, 1_000_000), "How often the frame is sent.", 1)
    every: int = key(Seconds(), "Time that passes between one and the next.", 0)


@dataclass(frozen=True, kw_only=True)
class Scenario:
    """A scenario as a whole."""

    name: str = key(Text(), "What it is called.", "")
    description: str = key(Text(), "What it shows.", "")
    options: dict[str, int | str] | None = key(
        MapOf(Name(63), Either(Number(0, _WORD), Text(127))), "Runtime options of the host by name.", None, shown="none"
    )
    learning: Learning | None = key(TableOf(Learning), "MAC learning of the host.", None, shown="the host's own")
    nic: tuple[Nic, ...] = key(TablesOf(Nic), "The NICs.", ())
    switch: tuple[Switch, ...] = key(TablesOf(Switch), "The switches.", ())
    traffic: tuple[Traffic, ...] = key(TablesOf(Traffic), "Frames that are sent once all stands.", ())
