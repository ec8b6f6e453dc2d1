"""Uplinks: the uplink ports of switches, and the NICs plugged into them."""

from __future__ import annotations

from collections.abc import Iterable, Iterator
from dataclasses import dataclass

import _libkestrel as flat

from libkestrel import records
from libkestrel._kestrel_error import KestrelError
from libkestrel.enums import zel_LinkState
from libkestrel.host._objects import (
    ABSENT,
    PRESENT,
    Changes,
    HostObject,
    OfSwitch,
    Undo,
    is_missing,
    name_of,
    setting,
    unknown,
)


@dataclass(frozen=True)
class UplinkPort:
    """An uplink port of a switch."""

    name: str
    """Its name, at most 80 bytes."""
    port: str
    """Its distributed-port id."""


class Uplink(HostObject):
    """A NIC that is plugged into an uplink port."""

    def __init__(self, changes: Changes, switch: str, nic: str, number: int) -> None:
        super().__init__(changes, f"uplink {nic} of switch {switch}")
        self.switch = switch
        """The alias of the switch."""
        self.nic = nic
        """The name of the NIC."""
        self.number = number
        """The switch port identifier of the uplink port."""

    @property
    def link_up(self) -> bool:
        """Whether the link is up."""
        state = self._value(flat.VSZEL_GetUplinkLinkState(self.switch, self.nic), "read link state")
        return bool(state == zel_LinkState.ZEL_LINK_STATE_UP)

    @property
    def lacp_up(self) -> bool:
        """Whether LACP (IEEE 802.1AX) has taken the uplink into its group's service; False outside of groups."""
        state = self._value(flat.VSZEL_GetUplinkLACPLinkState(self.switch, self.nic), "read LACP state")
        return bool(state == zel_LinkState.ZEL_LINK_STATE_UP)

    @property
    def port(self) -> str:
        """The distributed-port id of the uplink port."""
        return str(self._value(flat.VSZEL_GetUplinkDVPortID(self.nic), "read port of uplink"))

    @setting("administrative link state")
    def admin_up(self) -> bool:
        """The link, which can be taken up or down by hand. Reads as the link is."""
        return self.link_up

    @admin_up.writes
    def _set_admin_up(self, up: bool) -> None:
        state = zel_LinkState.ZEL_LINK_STATE_UP if up else zel_LinkState.ZEL_LINK_STATE_DOWN
        status = flat.VSZEL_SetUplinkAdminLinkState(self.switch, self.nic, state)
        self._check(status, "set administrative link state")

    def ensure_admin_up(self, up: bool) -> bool:
        """Takes the link up or down if it is otherwise. Returns whether it was."""
        return Uplink.admin_up.ensure(self, up)


class Uplinks(OfSwitch):
    """The uplinks of a switch, by the names of their NICs: a mapping for reading."""

    def _found(self) -> dict[str, int]:
        result = flat.VSZEL_GetUplinks(self._switch)
        with self._kept(result, "list uplinks", flat.VSZEL_FreeMemory) as table:
            return {entry.name: entry.portID for entry in table}

    def __iter__(self) -> Iterator[str]:
        return iter(self._found())

    def __len__(self) -> int:
        return len(self._found())

    def __contains__(self, nic: object) -> bool:
        return nic in self._found()

    def __getitem__(self, nic: str) -> Uplink:
        found = self._found()
        if nic not in found:
            self._check(flat.ZEL_NOT_FOUND, f"find uplink {nic}")
        return Uplink(self._changes, self._switch, nic, found[nic])

    def values(self) -> list[Uplink]:
        """The uplinks."""
        return [Uplink(self._changes, self._switch, nic, number) for nic, number in self._found().items()]


class UplinkPorts(OfSwitch):
    """The uplink ports of a switch, in order."""

    def list(self) -> tuple[UplinkPort, ...]:
        """The uplink ports with their distributed-port ids."""
        status, names, ports = flat.VSDVS_GetSwitchUplinkPorts(self._switch)
        self._check(status, "list uplink ports")
        with names.release_with(flat.VSDVS_FreeMemory), ports.release_with(flat.VSDVS_FreeMemory):
            return tuple(UplinkPort(name, port) for name, port in zip(names, ports, strict=True))

    def __iter__(self) -> Iterator[UplinkPort]:
        return iter(self.list())

    def __len__(self) -> int:
        return len(self.list())

    def __contains__(self, name: object) -> bool:
        expected = self._changes.expected((self.place, "uplink port", name))
        if expected is not unknown():
            return expected is PRESENT
        try:
            return any(port.name == name for port in self.list())
        except KestrelError as error:
            if not is_missing(error):
                raise
            return False

    def add(self, name: str) -> None:
        """Adds an uplink port. Exists if there is one of that name, InvalidName and NameTooLong for what is none."""
        name_of(name, "uplink port")
        self._change(
            f"add uplink port {name}",
            lambda: self._add(name),
            undo=lambda: lambda: self._remove(name),
            topic=(self.place, "uplink port", name),
        )

    def _add(self, name: str) -> None:
        self._check(flat.VSDVS_AddSwitchUplinkPort(self._switch, name), f"add uplink port {name}")

    def remove(self, name: str) -> None:
        """Removes an uplink port. Busy while a NIC is plugged in, NotFound if there is none of that name.

        Where a plan takes the removal back, the port comes back as the last one.
        """
        name_of(name, "uplink port")
        self._change(
            f"remove uplink port {name}",
            lambda: self._remove(name),
            before=PRESENT,
            after=ABSENT,
            undo=self._restoring,
            topic=(self.place, "uplink port", name),
        )

    def _remove(self, name: str) -> None:
        self._check(flat.VSDVS_RemoveSwitchUplinkPort(self._switch, name), f"remove uplink port {name}")

    def clear(self) -> None:
        """Removes all uplink ports. Busy while a NIC is plugged in, NotFound if there are none."""
        self._change("clear uplink ports", self._clear, before=self.list(), after=(), undo=self._restoring)

    def _clear(self) -> None:
        self._check(flat.VSDVS_ClearSwitchUplinkPorts(self._switch), "clear uplink ports")

    def replace(self, ports: Iterable[UplinkPort]) -> None:
        """Replaces all uplink ports at once. Exists for a name or id in use, Busy for one with a NIC that is to go."""
        wanted = tuple(ports)
        self._change(
            "replace uplink ports",
            lambda: self._replace(wanted),
            before=self.list(),
            after=wanted,
            undo=self._restoring,
        )

    def _replace(self, wanted: tuple[UplinkPort, ...]) -> None:
        names = records.VSUplinkPorts(uplinkPortName=[port.name for port in wanted])
        ids = records.VSUplinkPortIds(uplinkPortId=[port.port for port in wanted])
        self._check(flat.VSDVS_SetSwitchUplinkPorts(self._switch, names, ids), "replace uplink ports")

    def _restoring(self) -> Undo:
        before = self.list()
        return lambda: self._replace(before)

    def ensure_added(self, name: str) -> bool:
        """Adds an uplink port if there is none of that name. Returns whether there was none."""
        if name in self:
            return False
        self.add(name)
        return True

    def ensure_removed(self, name: str) -> bool:
        """Removes an uplink port if there is one of that name. Returns whether there was."""
        if name not in self:
            return False
        self.remove(name)
        return True
