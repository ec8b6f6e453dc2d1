"""The distributed ports of a switch."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import _libkestrel as flat

from libkestrel import records
from libkestrel._kestrel_error import KestrelError, error
from libkestrel.enums import DVSPortType
from libkestrel.host._objects import (
    ABSENT,
    PRESENT,
    Changes,
    OfSwitch,
    Undo,
    is_missing,
    name_of,
    setting,
    unknown,
)
from libkestrel.host.counters import PortStatistics, statistics_of
from libkestrel.host.filters import PortFilters
from libkestrel.host.mac_learning import PortMacLearning
from libkestrel.host.mac_table import PortMacTable
from libkestrel.host.mirrors import PortMirroring
from libkestrel.host.multicast import PortMulticast
from libkestrel.host.properties import PortProperties
from libkestrel.host.security import PortSecurity
from libkestrel.host.store import StoredPort, StoredSwitch, id_of_alias
from libkestrel.host.teaming import PortTeaming
from libkestrel.host.vlans import PortVlans


class Port(
    PortVlans,
    PortSecurity,
    PortFilters,
    PortMacLearning,
    PortMacTable,
    PortMulticast,
    PortTeaming,
    PortMirroring,
):
    """A distributed port of a switch. Everything raises NotFound once the port is gone."""

    def __init__(self, changes: Changes, switch: str, port: str) -> None:
        super().__init__(changes, f"port {port} of switch {switch}")
        self.switch = switch
        """The alias of the switch."""
        self.id = name_of(port, "port id")
        """The distributed-port id."""
        self._names = switch, port

    @property
    def number(self) -> int:
        """The switch port identifier, by which tables name the port."""
        return int(self._value(flat.VSDVS_DvPortIDToPortID(*self._names), "read port number"))

    @property
    def properties(self) -> PortProperties:
        """The port's properties: bytes by key."""
        return PortProperties(self._changes, self.switch, self.id, lambda: self.stored.handle)

    @property
    def stored(self) -> StoredPort:
        """The port as the state store knows it."""
        return _stored_switch(self._changes, self.switch).port(self.id)

    def statistics(self) -> PortStatistics:
        """What has passed the port; zeros while nobody has ever been plugged in."""
        return statistics_of(self.properties.read(flat.ZEL_VDSPROP_PORT_STATISTICS, records.zel_VDSPortStatistics))

    @setting("block", flat.ZEL_VDSPROP_PORT_BLOCK)
    def blocked(self) -> bool:
        """Whether the port passes no traffic; False by default."""
        return self.properties.read(flat.ZEL_VDSPROP_PORT_BLOCK, bool)

    @blocked.writes
    def _set_blocked(self, blocked: bool) -> None:
        self.properties.set_for(flat.ZEL_VDSPROP_PORT_BLOCK, bool(blocked))

    def ensure_blocked(self, blocked: bool) -> bool:
        """Blocks the port or not if it is otherwise. Returns whether it was."""
        return Port.blocked.ensure(self, blocked)

    @setting("alias", flat.ZEL_VDSPROP_PORT_ALIAS)
    def alias(self) -> str:
        """The port's alias, at most 80 bytes. NotFound without one."""
        return self.properties.read(flat.ZEL_VDSPROP_PORT_ALIAS, str)

    @alias.writes
    def _set_alias(self, alias: str) -> None:
        self.properties.set_for(flat.ZEL_VDSPROP_PORT_ALIAS, name_of(alias, "alias"))

    def ensure_alias(self, alias: str) -> bool:
        """Sets the alias if it is another. Returns whether it was."""
        return Port.alias.ensure(self, alias)

    def _holds(self, key: str) -> bool:
        return key in self.properties

    def _clear_key(self, key: str) -> None:
        self.properties.clear_for(key)


def _stored_switch(changes: Changes, switch: str) -> StoredSwitch:
    return StoredSwitch(changes, id_of_alias(switch) or "", switch)


class Ports(OfSwitch):
    """The distributed ports of a switch by their ids: a mapping, with verbs that add and remove."""

    def _port_place(self, port: str) -> str:
        return f"port {port} of {self.place}"

    def __getitem__(self, port: str) -> Port:
        if port not in self:
            Ports._named(self, port)._check(flat.ZEL_NOT_FOUND, "find port")
        return self._named(port)

    def _named(self, port: str) -> Port:
        return Port(self._changes, self._switch, port)

    def __contains__(self, port: object) -> bool:
        if not isinstance(port, str):
            return False
        expected = self._changes.expected((self._port_place(port), "port"))
        if expected is not unknown():
            return expected is PRESENT
        status, _number = flat.VSDVS_DvPortIDToPortID(self._switch, name_of(port, "port id"))
        if status != flat.ZEL_NOT_FOUND:
            self._check(status, f"find port {port}")
        return bool(status == flat.ZEL_OK)

    def connections(self) -> dict[str, int]:
        """The identifiers of the ports' connections, by port id."""
        found: dict[str, int] = {}
        stored = _stored_switch(self._changes, self._switch)
        for kind in (DVSPortType.DVSPORT_TYPE_ACTIVE, DVSPortType.DVSPORT_TYPE_SHADOW):
            found.update(stored.connections(kind))
        return found

    def __iter__(self) -> Iterator[str]:
        return iter(self.connections())

    def __len__(self) -> int:
        return len(self.connections())

    def keys(self) -> tuple[str, ...]:
        """The port ids."""
        return tuple(self)

    def values(self) -> tuple[Port, ...]:
        """The ports."""
        return tuple(self._named(port) for port in self)

    def items(self) -> tuple[tuple[str, Port], ...]:
        """Ids and ports."""
        return tuple((port, self._named(port)) for port in self)

    def get(self, port: str, default: Port | None = None) -> Port | None:
        """A port, or `default` where there is none of that id."""
        return self._named(port) if port in self else default

    def of_number(self, number: int) -> Port:
        """The port of a switch port identifier. NotFound where there is none."""
        for port in self.values():
            if port.number == number:
                return port
        raise error(flat.ZEL_NOT_FOUND, f"find port number {number}", self.place)

    # ---- Adding and removing ----

    def add(self, port: str, connection: int = 0) -> Port:
        """Adds a port with an identifier of its connection.

        Exists for one that is there, LimitExceeded beyond the switch's limit, NameTooLong for ids above 47 bytes.
        """

        def make() -> None:
            status = flat.VSDVS_AddDVPort(self._switch, port, connection)
            check_port(status, "add port")

        def check_port(status: int, operation: str) -> None:
            self._named(port)._check(status, operation)

        return self._added(port, "add port", make)

    def add_opaque(self, port: str, external_id: str) -> Port:
        """Adds a port that another controller manages, with that controller's id for it. Raises as `add` does."""
        name_of(external_id, "external id")

        def make() -> None:
            status = flat.VSDVS_AddOpaqueDVPort(self._switch, port, external_id)
            self._named(port)._check(status, "add opaque port")

        return self._added(port, "add opaque port", make)

    def _added(self, port: str, operation: str, make: Any) -> Port:
        added = self._named(port)
        added._change(
            operation,
            make,
            undo=lambda: lambda: self._remove(port),
            topic=(self._port_place(port), "port"),
        )
        return added

    def remove(self, port: str) -> None:
        """Removes a port. NotFound where there is none, Busy while a client is connected."""
        self._named(port)._change(
            "remove port",
            lambda: self._remove(port),
            before=PRESENT,
            after=ABSENT,
            undo=lambda: self._returning(port),
            topic=(self._port_place(port), "port"),
        )

    def __delitem__(self, port: str) -> None:
        self.remove(port)

    def _remove(self, port: str) -> None:
        self._named(port)._check(flat.VSDVS_RemoveDVPort(self._switch, port), "remove port")

    def _returning(self, port: str) -> Undo:
        return _stored_switch(self._changes, self._switch).returning_port(port)

    def ensure_added(self, port: str, connection: int = 0) -> bool:
        """Adds a port if there is none of that id. Returns whether there was none."""
        if self._is_there(port):
            return False
        self.add(port, connection)
        return True

    def ensure_removed(self, port: str) -> bool:
        """Removes a port if there is one of that id. Returns whether there was."""
        if not self._is_there(port):
            return False
        self.remove(port)
        return True

    def _is_there(self, port: str) -> bool:
        try:
            return name_of(port, "port id") in self
        except KestrelError as error:
            if not is_missing(error):
                raise
            return False
