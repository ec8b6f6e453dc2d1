"""The virtual switches of a host."""

from __future__ import annotations

from collections.abc import Iterator
from dataclasses import dataclass

import _libkestrel as flat

from libkestrel import records
from libkestrel.enums import VSListType, trv_RCFInsnType
from libkestrel.host import _cells
from libkestrel.host._objects import ABSENT, PRESENT, Changes, HostObject, int32, name_of, setting, unknown
from libkestrel.host.lags import SwitchLags
from libkestrel.host.mac_learning import SwitchMacLearning
from libkestrel.host.mac_table import SwitchMacTable
from libkestrel.host.mirrors import SwitchMirroring
from libkestrel.host.multicast import SwitchMulticast
from libkestrel.host.ports import Port, Ports
from libkestrel.host.private_vlans import SwitchPrivateVlans
from libkestrel.host.properties import HostPartProperties, SwitchProperties
from libkestrel.host.security import SwitchSecurity
from libkestrel.host.store import StoredSwitch
from libkestrel.host.teaming import SwitchTeaming
from libkestrel.host.uplinks import UplinkPorts, Uplinks


@dataclass(frozen=True)
class SwitchInfo:
    """A switch at the moment."""

    name: str
    """Its alias."""
    id: str
    """Its id."""
    mtu: int
    """Longest payload of a frame, in bytes."""
    lowest_vlan: int
    """The lowest VLAN identifier that it takes."""
    highest_vlan: int
    """The highest VLAN identifier that it takes."""
    active_ports: int
    """Ports with a client or NIC."""
    max_ports: int
    """The most ports that it can have."""
    sink_ports: int
    """Ports in sink mode."""


class Switch(
    SwitchTeaming,
    SwitchPrivateVlans,
    SwitchMulticast,
    SwitchMacLearning,
    SwitchMacTable,
    SwitchMirroring,
    SwitchSecurity,
    SwitchLags,
):
    """A virtual switch. Everything raises NotFound once the switch is gone."""

    def __init__(self, changes: Changes, name: str) -> None:
        super().__init__(changes, f"switch {name}")
        self.name = name_of(name, "switch name")
        """The switch's alias."""

    @property
    def id(self) -> str:
        """The id of the distributed switch."""
        buffer = _cells.Buffer(flat.ZEL_VDS_ID_MAX_LEN)
        self._check(flat.VSZEL_DVSAliasToSwitchId(self.name, buffer.pointer), "read id")
        return buffer.text

    @property
    def portset(self) -> str:
        """The name of the portset behind the switch."""
        return str(self._value(flat.DVSAliasToPortsetName(self.name), "read portset"))

    def info(self) -> SwitchInfo:
        """Identity, limits and counts of the switch."""
        record = records.VSInfo()
        self._check(flat.VSZEL_GetVSInfo(self.name, record), "read switch")
        return SwitchInfo(
            name=record.dvsName,
            id=record.vdsID,
            mtu=record.mtu,
            lowest_vlan=record.minValidVlan,
            highest_vlan=record.maxValidVlan,
            active_ports=record.activePorts,
            max_ports=record.maxPorts,
            sink_ports=record.numSinkPorts,
        )

    @setting("MTU", flat.VSPROP_MTU)
    def mtu(self) -> int:
        """The longest payload of a frame in bytes, 1280 to 9000; 1500 by default. Setting raises BadParam outside."""
        number = _cells.Number("_p_unsigned_int")
        self._check(flat.VSDVS_GetMTU(self.name, number.pointer), "read MTU")
        return number.value

    @mtu.writes
    def _set_mtu(self, mtu: int) -> None:
        self._check(flat.VSDVS_SetMTU(self.name, mtu), "set MTU")

    def ensure_mtu(self, mtu: int) -> bool:
        """Sets the MTU if it is another. Returns whether it was."""
        return Switch.mtu.ensure(self, mtu)

    @setting("instruction set of receive filters", flat.VSPROP_RCF_INSN_TYPE)
    def receive_filter_type(self) -> trv_RCFInsnType:
        """The instruction set of the receive filters; classic by default."""
        return trv_RCFInsnType(self._value(flat.VSDVS_GetRCFType(self.name), "read instruction set of receive filters"))

    @receive_filter_type.writes
    def _set_receive_filter_type(self, kind: trv_RCFInsnType) -> None:
        self._check(
            flat.VSDVS_SetRCFType(self.name, int32(kind, "instruction set")), "set instruction set of receive filters"
        )

    def ensure_receive_filter_type(self, kind: trv_RCFInsnType) -> bool:
        """Sets the instruction set of the receive filters if it is another. Returns whether it was."""
        return Switch.receive_filter_type.ensure(self, kind)

    @setting("stopped forwarding", flat.VSPROP_SWITCH_FORWARDING_DISABLED)
    def forwarding_disabled(self) -> bool:
        """Whether the switch takes no traffic, as a shadow switch does; False by default."""
        return self.properties.read(flat.VSPROP_SWITCH_FORWARDING_DISABLED, bool)

    @forwarding_disabled.writes
    def _set_forwarding_disabled(self, disabled: bool) -> None:
        self.properties.set_for(flat.VSPROP_SWITCH_FORWARDING_DISABLED, bool(disabled))

    def ensure_forwarding_disabled(self, disabled: bool) -> bool:
        """Stops forwarding or lets it go on if it is otherwise. Returns whether it was."""
        return Switch.forwarding_disabled.ensure(self, disabled)

    @property
    def ports(self) -> Ports:
        """The distributed ports by their ids."""
        return Ports(self._changes, self.name)

    def port(self, port: str) -> Port:
        """A distributed port. NotFound where there is none of that id."""
        return self.ports[port]

    def port_number(self, port: str) -> int:
        """The switch port identifier of a distributed port, asked for by the switch's id."""
        result = flat.VSDVS_DvPortIDToPortIDFromDVSID(self.id, name_of(port, "port id"))
        return int(self._value(result, f"read number of port {port}"))

    @property
    def uplinks(self) -> Uplinks:
        """The uplinks by the names of their NICs."""
        return Uplinks(self._changes, self.name)

    @property
    def uplink_ports(self) -> UplinkPorts:
        """The uplink ports, with and without a NIC."""
        return UplinkPorts(self._changes, self.name)

    @property
    def properties(self) -> SwitchProperties:
        """The switch's properties: bytes by key."""
        return SwitchProperties(self._changes, self.name)

    @property
    def host_properties(self) -> HostPartProperties:
        """The properties of this host's part of the switch: bytes by key."""
        return HostPartProperties(self._changes, self.name)

    @property
    def stored(self) -> StoredSwitch:
        """The switch as the state store knows it."""
        return StoredSwitch(self._changes, self.id, self.name)

    def _holds(self, key: str) -> bool:
        return key in self.properties

    def _clear_key(self, key: str) -> None:
        self.properties.clear_for(key)


class Switches(HostObject):
    """The switches of a host by their aliases: a mapping, with verbs that create and destroy."""

    def __init__(self, changes: Changes) -> None:
        super().__init__(changes, "host")

    def _listed(self, kind: VSListType) -> tuple[str, ...]:
        cell = _cells.Cell("_p_p_VSList")
        self._check(flat.VSZEL_GetSwitches(kind, cell.pointer), "list switches")
        if not cell.address:
            return ()
        with records.VSList.from_pointer(cell.as_pointer("_p_VSList")).release_with(flat.free_switches) as found:
            return tuple(found)

    def portsets(self) -> tuple[str, ...]:
        """The names of the portsets behind the switches."""
        return self._listed(VSListType.VS_LIST_PS)

    def __iter__(self) -> Iterator[str]:
        return iter(self._listed(VSListType.VS_LIST_DVS_ALIAS))

    def __len__(self) -> int:
        return len(self._listed(VSListType.VS_LIST_DVS_ALIAS))

    def __contains__(self, name: object) -> bool:
        expected = self._changes.expected((f"switch {name}", "switch"))
        if expected is not unknown():
            return expected is PRESENT
        return name in tuple(self)

    def __getitem__(self, name: str) -> Switch:
        found = Switch(self._changes, name)
        if name not in self:
            found._check(flat.ZEL_NOT_FOUND, "find switch")
        return found

    def keys(self) -> tuple[str, ...]:
        """The aliases."""
        return tuple(self)

    def values(self) -> tuple[Switch, ...]:
        """The switches."""
        return tuple(Switch(self._changes, name) for name in self)

    def items(self) -> tuple[tuple[str, Switch], ...]:
        """Aliases and switches."""
        return tuple((name, Switch(self._changes, name)) for name in self)

    def get(self, name: str, default: Switch | None = None) -> Switch | None:
        """A switch, or `default` where there is none of that alias."""
        return Switch(self._changes, name) if name in self else default

    def of_portset(self, portset: str) -> Switch:
        """The switch behind a portset. NotFound where there is none."""
        result = flat.VSDVS_GetAliasFromPortset(name_of(portset, "portset"))
        return Switch(self._changes, self._value(result, f"find switch of portset {portset}"))

    def create(
        self,
        name: str,
        switch_id: str,
        *,
        max_ports: int = 128,
        ports: int = 0,
        mtu: int = 1500,
        version: int = flat.DVS_VERSION_70,
        class_name: str = flat.PS_CLASS_NAME,
        shadow: bool = False,
    ) -> Switch:
        """Creates a switch.

        `ports` is how many ports it is going to have, and none is made: it is held against `max_ports`, 60000 at most.
        A shadow switch takes no traffic yet. Exists for a name or id in use, BadParam for a number out of its range,
        NameTooLong for names above 80 bytes.
        """
        created = Switch(self._changes, name)
        name_of(switch_id, "switch id")

        def make() -> None:
            status = flat.VSDVS_CreateVSwitch(name, switch_id, class_name, ports, int(shadow), max_ports, mtu, version)
            created._check(status, "create switch")

        created._change(
            "create switch", make, undo=lambda: lambda: self._destroy(name), topic=(created.place, "switch")
        )
        return created

    def destroy(self, name: str) -> None:
        """Destroys a switch. Busy while clients are connected to its ports."""
        gone = Switch(self._changes, name)
        gone._change(
            "destroy switch",
            lambda: self._destroy(name),
            before=PRESENT,
            after=ABSENT,
            topic=(gone.place, "switch"),
        )

    def _destroy(self, name: str) -> None:
        Switch(self._changes, name)._check(flat.VSDVS_DestroyVSwitch(name), "destroy switch")

    def ensure_created(
        self,
        name: str,
        switch_id: str,
        *,
        max_ports: int = 128,
        mtu: int = 1500,
        version: int = flat.DVS_VERSION_70,
    ) -> bool:
        """Creates a switch if there is none of that alias. Returns whether there was none."""
        if name in self:
            return False
        self.create(name, switch_id, max_ports=max_ports, mtu=mtu, version=version)
        return True

    def ensure_destroyed(self, name: str) -> bool:
        """Destroys a switch if there is one of that alias. Returns whether there was."""
        if name not in self:
            return False
        self.destroy(name)
        return True
