"""The switch that the tests of the package's objects work on, and values for all its settings."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any

from libkestrel import enums, errors, host
from libkestrel.host import (
    AccessVlan,
    EthernetFilter,
    EthernetFilterFlags,
    LimitPolicy,
    MirrorEntity,
    MirrorSession,
    MulticastMode,
    NamedTeamingPolicy,
    PortLearning,
    PrivateVlanEntry,
    PrivateVlanKind,
    SecurityPolicy,
    SwitchLearning,
    TeamingPolicy,
    TrunkVlan,
)
from libkestrel.records import MacAddress

BENCH, BENCH_ID = "dvs-bench", "0d3c7f60-95a1-4f0b-8a44-7a6a2f1f5c10"
PORTS = ("p1", "p2")
UPLINK_PORTS = ("north", "south")
GROUP = MacAddress("01:00:5e:00:00:01")
STATION = MacAddress("02:00:5e:00:00:01")

NOTHING: Any = object()
"""As a default: reading raises NotFound."""


@dataclass(frozen=True)
class Case:
    """A setting, what it is at first, values that it takes, and one that it refuses."""

    name: str
    default: Any
    values: tuple[Any, ...]
    refused: Any
    error: type[Exception] | None
    """What it raises for that; None where it takes whatever is true or false."""


def _two(*entries: tuple[int, int, PrivateVlanKind]) -> tuple[PrivateVlanEntry, ...]:
    return tuple(PrivateVlanEntry(*entry) for entry in entries)


SWITCH_CASES = (
    Case("mtu", 1600, (1280, 9000), 9001, errors.BadParam),
    Case(
        "receive_filter_type",
        enums.trv_RCFInsnType.TRV_RCF_INSN_TYPE_CBPF,
        (enums.trv_RCFInsnType.TRV_RCF_INSN_TYPE_EBPF,),
        enums.trv_RCFInsnType.TRV_RCF_INSN_TYPE_MAX,
        errors.BadParam,
    ),
    Case("forwarding_disabled", False, (True,), None, None),
    Case(
        "private_vlans",
        (),
        (
            _two((100, 100, PrivateVlanKind.PROMISCUOUS), (100, 101, PrivateVlanKind.ISOLATED)),
            _two((100, 100, PrivateVlanKind.PROMISCUOUS), (100, 102, PrivateVlanKind.COMMUNITY)),
        ),
        _two((100, 4095, PrivateVlanKind.COMMUNITY)),
        errors.BadVlanid,
    ),
    Case("multicast_mode", MulticastMode.LEGACY, (MulticastMode.SNOOPING,), 2, errors.BadParam),
    Case("multicast_entries", (), ((GROUP,),), (GROUP, GROUP), errors.Exists),
    Case(
        "mac_learning", SwitchLearning(600, 0x10000), (SwitchLearning(77, 99),), SwitchLearning(0, 1), errors.BadParam
    ),
    Case("learn_static", False, (True,), 2**40, OverflowError),
    Case("static_mac_allow", True, (False,), -1, OverflowError),
    Case(
        "teaming",
        None,  # told by the host; see the test of teaming
        (TeamingPolicy(active=("south",), standby=("north",), balance=host.LoadBalance.EXPLICIT_FAILOVER),),
        TeamingPolicy(active=("nowhere",)),
        errors.NotFound,
    ),
    Case(
        "named_teaming",
        (),
        ((NamedTeamingPolicy("gold", active=("north",)), NamedTeamingPolicy("silver", ("south",), ("north",))),),
        (NamedTeamingPolicy("gold", active=("nowhere",)),),
        errors.NotFound,
    ),
)

PORT_CASES = (
    Case(
        "vlan",
        AccessVlan(),
        (AccessVlan(12), AccessVlan(3, set_priority=True), TrunkVlan.of(5, (7, 9))),
        AccessVlan(4095),
        errors.BadVlanid,
    ),
    Case("nested_tagging", False, (True,), 256, OverflowError),
    Case(
        "security",
        SecurityPolicy(),
        (SecurityPolicy(promiscuous=True), SecurityPolicy(mac_changes=True, forged_transmits=True)),
        None,
        AttributeError,
    ),
    Case(
        "ethernet_filter",
        EthernetFilter(),
        (EthernetFilter(EthernetFilterFlags.ALL_MULTICAST, (GROUP,)), EthernetFilter(multicast=(GROUP,))),
        EthernetFilter(multicast=(STATION,)),
        errors.BadParam,
    ),
    Case("sink", False, (True,), 256, OverflowError),
    Case(
        "mac_learning",
        PortLearning(),
        (PortLearning(learning=True, limit=9), PortLearning(flooding=True, beyond=LimitPolicy.DROP)),
        PortLearning(limit=4097),
        errors.LimitExceeded,
    ),
    Case("multicast_entries", (), ((GROUP,),), (STATION,), errors.BadParam),
    Case(
        "teaming",
        None,
        (TeamingPolicy(active=("south",)),),
        TeamingPolicy(active=("north", "north")),
        errors.BadParam,
    ),
    Case("teaming_override", NOTHING, ("north", "south"), "nowhere", errors.NotFound),
    Case("always_uplink", False, (True,), 256, OverflowError),
    Case("named_teaming", NOTHING, (), "nothing of the name", errors.NotFound),
    Case(
        "mirror_sessions",
        (),
        ((MirrorSession("one", (MirrorEntity.port("p2"),)), MirrorSession("two", (MirrorEntity.port("p2"),))),),
        (MirrorSession("", (MirrorEntity.port("p2"),)),),
        errors.InvalidName,
    ),
    Case("blocked", False, (True,), None, None),
    Case("alias", NOTHING, ("first", "second"), "x" * 90, errors.KestrelError),
)
