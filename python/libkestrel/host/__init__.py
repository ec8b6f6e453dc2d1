"""The host as objects: switches, ports, uplinks, teaming, VLANs, mirrors, multicast, the state store.

    from libkestrel import AccessVlan, Host

    host = Host()
    for switch in host.switches.values():
        print(switch.name, switch.mtu, [lag.name for lag in switch.lags])
    host.switch("dvs-prod").port("10").ensure_vlan(AccessVlan(200))

docs/objects.md is the tour.
"""

from libkestrel.host._objects import ABSENT, PRESENT, Change
from libkestrel.host.counters import Counters, PortStatistics
from libkestrel.host.filters import EthernetFilter, EthernetFilterFlags
from libkestrel.host.host import Host
from libkestrel.host.lags import Lag
from libkestrel.host.mac_learning import (
    HostLearning,
    LearningStatistics,
    LimitPolicy,
    PortLearning,
    SwitchLearning,
    SwitchLearningState,
)
from libkestrel.host.mac_table import MacKind, StaticEntry
from libkestrel.host.mirrors import (
    COMPLETE,
    MirrorEntity,
    MirrorFlags,
    MirrorRule,
    MirrorSession,
    MirrorStatistics,
    MirrorWildcard,
)
from libkestrel.host.multicast import GroupState, MulticastMode, SourceMode
from libkestrel.host.options import RuntimeOptions
from libkestrel.host.plan import Plan, PlanError
from libkestrel.host.ports import Port, Ports
from libkestrel.host.private_vlans import PrivateVlanEntry, PrivateVlanKind
from libkestrel.host.properties import (
    ALL_KINDS,
    ANY_KIND,
    HostPartProperties,
    PortProperties,
    Properties,
    Property,
    PropertyKind,
    SwitchProperties,
)
from libkestrel.host.runtime_modules import DatapathModule, DatapathPortset
from libkestrel.host.security import SecurityPolicy
from libkestrel.host.store import PropertyCollection, Store, StoredPort, StoredProperties, StoredSwitch
from libkestrel.host.switches import Switch, Switches, SwitchInfo
from libkestrel.host.teaming import (
    LinkCriteria,
    LoadBalance,
    NamedTeamingPolicy,
    RarpStatistics,
    ServicePortStatistics,
    TeamingFlags,
    TeamingPolicy,
)
from libkestrel.host.uplinks import Uplink, UplinkPort, UplinkPorts, Uplinks
from libkestrel.host.vlans import AccessVlan, PrivateVlan, TrunkVlan, VlanPolicy

__all__ = [
    "ABSENT",
    "ALL_KINDS",
    "ANY_KIND",
    "COMPLETE",
    "PRESENT",
    "AccessVlan",
    "Change",
    "Counters",
    "DatapathModule",
    "DatapathPortset",
    "EthernetFilter",
    "EthernetFilterFlags",
    "GroupState",
    "Host",
    "HostLearning",
    "HostPartProperties",
    "Lag",
    "LearningStatistics",
    "LimitPolicy",
    "LinkCriteria",
    "LoadBalance",
    "MacKind",
    "MirrorEntity",
    "MirrorFlags",
    "MirrorRule",
    "MirrorSession",
    "MirrorStatistics",
    "MirrorWildcard",
    "MulticastMode",
    "NamedTeamingPolicy",
    "Plan",
    "PlanError",
    "Port",
    "PortLearning",
    "PortProperties",
    "PortStatistics",
    "Ports",
    "PrivateVlan",
    "PrivateVlanEntry",
    "PrivateVlanKind",
    "Properties",
    "Property",
    "PropertyCollection",
    "PropertyKind",
    "RarpStatistics",
    "RuntimeOptions",
    "SecurityPolicy",
    "ServicePortStatistics",
    "SourceMode",
    "StaticEntry",
    "Store",
    "StoredPort",
    "StoredProperties",
    "StoredSwitch",
    "Switch",
    "SwitchInfo",
    "SwitchLearning",
    "SwitchLearningState",
    "SwitchProperties",
    "Switches",
    "TeamingFlags",
    "TeamingPolicy",
    "TrunkVlan",
    "Uplink",
    "UplinkPort",
    "UplinkPorts",
    "Uplinks",
    "VlanPolicy",
]
