"""The distributed-switch state store: what is saved, images of it, and the switches and ports that it knows."""

from __future__ import annotations

from collections.abc import Iterator
from types import TracebackType
from typing import Any, NoReturn, Self

import _libkestrel as flat

from libkestrel import records
from libkestrel._kestrel_error import check, error
from libkestrel.enums import DVSPortType
from libkestrel.host import _cells
from libkestrel.host._objects import (
    ABSENT,
    PRESENT,
    Changes,
    HostObject,
    Undo,
    handed_block,
    int32,
    name_of,
    plain_bytes,
    setting,
)
from libkestrel.host.properties import (
    ALL_KINDS,
    ANY_KIND,
    Properties,
    Property,
    PropertyKind,
    Value,
    property_of,
    to_bytes,
    walked,
)


def _u32(kind: PropertyKind) -> int:
    return int(kind) & 0xFFFFFFFF


class PropertyCollection:
    """A collection of properties, as the store passes them around. It is released with the object or a `with` block."""

    def __init__(self) -> None:
        self._handle: Any = None
        cell = _cells.Cell()
        check(flat.DVSData_Alloc(cell.pointer, None, None), "make collection of properties")
        self._handle = cell.as_pointer()

    @classmethod
    def _handed_out(cls, cell: _cells.Cell) -> Self:
        """The collection that the store wrote into a cell."""
        collection = cls.__new__(cls)
        collection._handle = cell.as_pointer()
        return collection

    def _open(self) -> Any:
        if self._handle is None:
            raise ReferenceError("the collection of properties has been released")
        return self._handle

    def update(self, key: str, value: Value, kind: PropertyKind = PropertyKind.CONFIG) -> None:
        """Puts a property into the collection, or replaces it."""
        data, number = to_bytes(value), _u32(kind)
        buffer = _cells.Buffer(data)
        status = flat.DVSData_Update(self._open(), name_of(key, "key"), buffer.pointer, len(data), number)
        check(status, f"set {key}", "collection of properties")

    def image(self, version: int = flat.DVS_VERSION_70) -> bytes:
        """The collection as an image, in the form of a version of the distributed switch (DVS_VERSION_*)."""
        cell, length = _cells.Cell(), _cells.Number("_p_unsigned_int")
        status = flat.DVSData_Serialize(self._open(), cell.pointer, length.pointer, version)
        check(status, "make image", "collection of properties")
        return handed_block(cell, length.value)

    def release(self) -> None:
        """Gives the collection back; once is enough, and more does nothing."""
        handle, self._handle = self._handle, None
        if handle is not None:
            flat.DVSData_Free(handle)

    def __reduce__(self) -> NoReturn:
        raise TypeError("a collection of properties is released once and cannot be copied")

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None
    ) -> None:
        self.release()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            self.release()


class StoredProperties(Properties):
    """Properties as the store has them, with their kinds; of one level."""

    def set_as(self, key: str, value: Value, kind: PropertyKind) -> None:
        """Sets a property of a kind at once: PropertyKind.CONFIG is saved."""
        self._put(name_of(key, "key"), to_bytes(value), _u32(kind))

    def read_offloaded(self, key: str) -> bytes:
        """The value of the part that the switch offloads to a SmartNIC."""
        cell, length = _cells.Cell(), _cells.Number()
        self._check(self._get_offloaded(name_of(key, "key"), cell.pointer, length.pointer), f"read offloaded {key}")
        return handed_block(cell, length.value)

    def _get(self, key: str, cell: Any, length: Any) -> int:
        raise NotImplementedError

    def _get_offloaded(self, key: str, cell: Any, length: Any) -> int:
        raise NotImplementedError

    def _put(self, key: str, value: bytes, kind: int) -> None:
        raise NotImplementedError

    def _read(self, key: str) -> bytes:
        cell, length = _cells.Cell(), _cells.Number()
        self._check(self._get(key, cell.pointer, length.pointer), f"read {key}")
        return handed_block(cell, length.value)

    def _write(self, key: str, value: bytes) -> None:
        self._put(key, value, _u32(PropertyKind.CONFIG))


class StoredSwitchProperties(StoredProperties):
    """The properties of a switch, as the store has them."""

    def __init__(self, changes: Changes, switch: StoredSwitch) -> None:
        super().__init__(changes, switch.place)
        self._switch = switch

    def _get(self, key: str, cell: Any, length: Any) -> int:
        return int(flat.DVSZEL_GlobalPropGet(self._switch.id, key, cell, length))

    def _get_offloaded(self, key: str, cell: Any, length: Any) -> int:
        return int(flat.DVSZEL_SmartNICGlobalPropGet(self._switch.id, key, cell, length))

    def _put(self, key: str, value: bytes, kind: int) -> None:
        buffer = _cells.Buffer(value)
        status = flat.DVSZEL_GlobalPropSet(self._switch.id, key, buffer.pointer, len(value), kind)
        self._check(status, f"set {key}")

    def _erase(self, key: str) -> None:
        self._check(flat.DVSZEL_GlobalPropClear(self._switch.id, key), f"clear {key}")

    def list(self, kinds: PropertyKind = ANY_KIND) -> list[Property]:
        """The properties that are set and of all these kinds."""
        handle = self._switch.handle
        return walked(lambda visit: flat.DVSState_GlobalPropForEach(handle, visit, None), kinds)

    def look_up(self, key: str) -> Property:
        """A property that is set, with its kind. NotFound where only a default holds."""
        cell = _cells.Cell()
        self._check(flat.DVSState_GlobalPropLookup(self._switch.id, name_of(key, "key"), cell.pointer), f"find {key}")
        return property_of(cell.as_pointer())


class StoredHostProperties(StoredProperties):
    """The properties of this host's part of a switch, as the store has them."""

    def __init__(self, changes: Changes, switch: StoredSwitch) -> None:
        super().__init__(changes, f"host part of {switch.place}")
        self._switch = switch

    def _get(self, key: str, cell: Any, length: Any) -> int:
        return int(flat.DVSZEL_HostPropGet(self._switch.id, key, cell, length))

    def _get_offloaded(self, key: str, cell: Any, length: Any) -> int:
        return int(flat.DVSZEL_SmartNICHostPropGet(self._switch.id, key, cell, length))

    def _put(self, key: str, value: bytes, kind: int) -> None:
        buffer = _cells.Buffer(value)
        self._check(flat.DVSZEL_HostPropSet(self._switch.id, key, buffer.pointer, len(value), kind), f"set {key}")

    def _erase(self, key: str) -> None:
        self._check(flat.DVSZEL_HostPropClear(self._switch.id, key), f"clear {key}")

    def list(self, kinds: PropertyKind = ANY_KIND) -> list[Property]:
        """The properties that are set and of all these kinds."""
        handle = self._switch.handle
        return walked(lambda visit: flat.DVSState_HostPropForEach(handle, visit, None), kinds)

    def look_up(self, key: str) -> Property:
        """A property that is set, with its kind. NotFound where only a default holds."""
        cell = _cells.Cell()
        self._check(flat.DVSState_HostPropLookup(self._switch.id, name_of(key, "key"), cell.pointer), f"find {key}")
        return property_of(cell.as_pointer())


class StoredPortProperties(StoredProperties):
    """The properties of a port, as the store has them."""

    def __init__(self, changes: Changes, port: StoredPort) -> None:
        super().__init__(changes, port.place)
        self._port = port
        self._ids = port.switch, port.id

    def _get(self, key: str, cell: Any, length: Any) -> int:
        return int(flat.DVSZEL_PortDataGet(*self._ids, key, cell, length))

    def _get_offloaded(self, key: str, cell: Any, length: Any) -> int:
        return int(flat.DVSZEL_SmartNICPortDataGet(*self._ids, key, cell, length))

    def _put(self, key: str, value: bytes, kind: int) -> None:
        buffer = _cells.Buffer(value)
        self._check(flat.DVSZEL_PortDataSet(*self._ids, key, buffer.pointer, len(value), kind), f"set {key}")

    def _erase(self, key: str) -> None:
        self._check(flat.DVSZEL_PortDataClear(*self._ids, key), f"clear {key}")

    def list(self, kinds: PropertyKind = ANY_KIND) -> list[Property]:
        """The properties that are set and of all these kinds."""
        handle = self._port.handle
        return walked(lambda visit: flat.DVSState_PortDataForEach(handle, visit, None), kinds)


class StoredUplinkProperties(StoredProperties):
    """The properties of an uplink, by its number. They can be read and set, not listed or cleared."""

    def __init__(self, changes: Changes, switch: StoredSwitch, uplink: int) -> None:
        super().__init__(changes, f"uplink {uplink} of {switch.place}")
        self._switch, self._uplink = switch, uplink

    def _get(self, key: str, cell: Any, length: Any) -> int:
        return int(flat.DVSZEL_UplinkDataGet(self._switch.id, key, self._uplink, cell, length))

    def _get_offloaded(self, key: str, cell: Any, length: Any) -> int:  # noqa: ARG002
        return int(flat.ZEL_NOT_SUPPORTED)

    def _put(self, key: str, value: bytes, kind: int) -> None:
        buffer = _cells.Buffer(value)
        status = flat.DVSZEL_UplinkDataSet(self._switch.id, key, self._uplink, buffer.pointer, len(value), kind)
        self._check(status, f"set {key}")

    def _erase(self, key: str) -> None:
        self._check(flat.ZEL_NOT_SUPPORTED, f"clear {key}")

    def list(self, kinds: PropertyKind = ANY_KIND) -> list[Property]:  # noqa: ARG002
        """Raises NotSupported: the store does not tell them."""
        raise error(flat.ZEL_NOT_SUPPORTED, "list properties", self.place)

    def _restoring(self, key: str) -> Undo:
        before = self.get(key)
        return lambda: self._erase(key) if before is None else self._write(key, before)


class StoredPort(HostObject):
    """A distributed port as the store knows it."""

    def __init__(self, changes: Changes, switch: str, port: str) -> None:
        super().__init__(changes, f"stored port {port} of switch {switch}")
        self.switch = name_of(switch, "switch id")
        """The id of the switch."""
        self.id = name_of(port, "port id")
        """The port's id."""

    @property
    def handle(self) -> Any:
        """The store's handle of the port, for functions of the flat module; None where there is none."""
        return flat.DVSState_PortFind(self.switch, self.id)

    @property
    def exists(self) -> bool:
        """Whether the store has the port."""
        return bool(flat.DVPortExist(self.switch, self.id) == "\x01")

    def check_exists(self) -> None:
        """Raises NotFound if the store has no such port."""
        self._check(flat.DVSZEL_PortFind(self.switch, self.id), "find port")

    @property
    def alias(self) -> str | None:
        """The alias of the port, None without one."""
        return flat.DVS_PortAlias(self.handle) or None

    def image(self) -> bytes:
        """An image of the port's live state."""
        cell, length = _cells.Cell(), _cells.Number()
        status = flat.DVSZEL_PortStateGet(self.switch, self.id, cell.pointer, length.pointer)
        self._check(status, "make image")
        return handed_block(cell, length.value)

    def saved_image(self, version: int = flat.DVS_VERSION_70) -> bytes:
        """An image of the port as it is saved, in the form of a version (DVS_VERSION_*)."""
        cell, length = _cells.Cell(), _cells.Number()
        status = flat.DVSZEL_PersistentPortStateGet(self.switch, self.id, version, cell.pointer, length.pointer)
        self._check(status, "make image of what is saved")
        return handed_block(cell, length.value)

    @property
    def properties(self) -> StoredPortProperties:
        """The port's properties."""
        return StoredPortProperties(self._changes, self)

    def vendor_properties(self, kinds: PropertyKind = ALL_KINDS) -> PropertyCollection:
        """The port's properties of other vendors, of some kinds."""
        cell = _cells.Cell()
        status = flat.DVSZEL_VendorPortPropList(self.switch, self.id, cell.pointer, _u32(kinds))
        self._check(status, "collect properties of other vendors")
        return PropertyCollection._handed_out(cell)

    def extra_properties(self, kinds: PropertyKind = ALL_KINDS) -> PropertyCollection:
        """The port's properties beyond the platform's own, of some kinds."""
        cell = _cells.Cell()
        status = flat.DVSZEL_ExtraConfigPortPropList(self.switch, self.id, cell.pointer, _u32(kinds))
        self._check(status, "collect further properties")
        return PropertyCollection._handed_out(cell)


class StoredSwitch(HostObject):
    """A distributed switch as the store knows it."""

    def __init__(self, changes: Changes, switch: str, name: str) -> None:
        super().__init__(changes, f"stored switch {switch}")
        self.id = name_of(switch, "switch id")
        """The switch's id."""
        self.name = name_of(name, "alias")
        """The switch's alias."""

    @property
    def handle(self) -> Any:
        """The store's handle of the switch, for functions of the flat module; None where there is none."""
        return flat.DVSState_SwitchFindByAlias(self.name)

    @property
    def class_name(self) -> str | None:
        """The name of the switch's class; None where there is no such switch."""
        found: str | None = flat.DVS_ClassName(self.handle)
        return found

    @setting("version")
    def version(self) -> int:
        """The version of the switch, DVS_VERSION_*; 0 where there is no such switch."""
        return int(flat.DVS_Version(self.handle))

    @version.writes
    def _set_version(self, version: int) -> None:
        self._check(flat.DVSZEL_SwitchSetVersion(self.id, version), "set version")

    def ensure_version(self, version: int) -> bool:
        """Sets the version if it is another. Returns whether it was."""
        return StoredSwitch.version.ensure(self, version)

    @setting("port limit")
    def max_ports(self) -> int:
        """The most ports of the switch, up to 60000. Setting raises Busy for fewer than there are."""
        return int(flat.DVS_GetMaxPorts(self.handle))

    @max_ports.writes
    def _set_max_ports(self, limit: int) -> None:
        self._check(flat.DVSZEL_SwitchSetMaxPorts(self.id, limit), "set port limit")

    def ensure_max_ports(self, limit: int) -> bool:
        """Sets the port limit if it is another. Returns whether it was."""
        return StoredSwitch.max_ports.ensure(self, limit)

    def associate(self) -> None:
        """Makes this host a member of the switch."""
        self._change("associate", self._associate, undo=lambda: self._dissociate)

    def dissociate(self) -> None:
        """Ends this host's membership of the switch."""
        self._change("dissociate", self._dissociate, before=PRESENT, after=ABSENT, undo=lambda: self._associate)

    def _associate(self) -> None:
        self._check(flat.DVSZEL_SwitchAssociate(self.id), "associate")

    def _dissociate(self) -> None:
        self._check(flat.DVSZEL_SwitchDissociate(self.id), "dissociate")

    def ports(self) -> list[StoredPort]:
        """The ports of the switch."""
        handle = self.handle
        found = _cells.collected(lambda visit: flat.DVSState_PortForEach(handle, visit, None))
        ids = (flat.DVS_PortId(_cells.pointer(port, "_p_void")) for port in found)
        return [StoredPort(self._changes, self.id, port) for port in ids if port is not None]

    def port(self, port: str) -> StoredPort:
        """A port of the switch. NotFound where there is none of that id."""
        found = StoredPort(self._changes, self.id, port)
        found.check_exists()
        return found

    def connections(self, kind: DVSPortType = DVSPortType.DVSPORT_TYPE_ACTIVE) -> dict[str, int]:
        """The ports of one type and the identifiers of their connections, by port id."""
        cell = _cells.Cell("_p_p_DVPortList")
        self._check(flat.DVSZEL_SwitchPortList(self.id, cell.pointer, int32(kind, "type")), "list ports")
        if not cell.address:
            return {}
        listing = records.DVPortList.from_pointer(cell.as_pointer("_p_DVPortList"))
        with listing.release_with(flat.DVSZEL_DataFree):
            return {port.dvPortId: port.connectId for port in listing}

    def port_of_external_id(self, external_id: str) -> StoredPort:
        """The port that another controller knows by this id. NotFound where there is none."""
        cell = _cells.Cell("_p_p_OpaqueDVPortData")
        status = flat.DVSZEL_PortGetByExternalId(self.id, name_of(external_id, "external id"), cell.pointer)
        self._check(status, f"find port of {external_id}")
        data = records.OpaqueDVPortData.from_pointer(cell.as_pointer("_p_OpaqueDVPortData"))
        with data.release_with(flat.DVSZEL_DataFree):
            return StoredPort(self._changes, self.id, data.dvPortId)

    def add_port(self, port: str, image: bytes = b"") -> None:
        """Adds a port, with the state in an image if there is one. Exists for a port that is there."""
        name_of(port, "port id")
        data = plain_bytes(image)
        self._change(
            f"add port {port}",
            lambda: self._add_port(port, data),
            undo=lambda: lambda: self._remove_port(port),
        )

    def remove_port(self, port: str) -> None:
        """Removes a port. Busy while a client is connected to it."""
        name_of(port, "port id")
        self._change(
            f"remove port {port}",
            lambda: self._remove_port(port),
            before=PRESENT,
            after=ABSENT,
            undo=lambda: self.returning_port(port),
        )

    def _add_port(self, port: str, image: bytes) -> None:
        buffer = _cells.Buffer(image) if image else None
        status = flat.DVSZEL_PortAdd(self.id, port, buffer.pointer if buffer else None, len(image))
        self._check(status, f"add port {port}")

    def _remove_port(self, port: str) -> None:
        self._check(flat.DVSZEL_PortRemove(self.id, port), f"remove port {port}")

    def returning_port(self, port: str) -> Undo:
        """What adds a port again, with the state that it has now."""
        image = StoredPort(self._changes, self.id, port).image()
        return lambda: self._add_port(port, image)

    @property
    def properties(self) -> StoredSwitchProperties:
        """The switch's properties."""
        return StoredSwitchProperties(self._changes, self)

    @property
    def host_properties(self) -> StoredHostProperties:
        """The properties of this host's part of the switch."""
        return StoredHostProperties(self._changes, self)

    def uplink_properties(self, uplink: int) -> StoredUplinkProperties:
        """The properties of an uplink, by its number."""
        return StoredUplinkProperties(self._changes, self, uplink)

    def command(self, command: str, data: bytes = b"") -> bytes:
        """Runs a command on the switch; gives its output. NotImplemented for one that the switch does not know."""
        cell, length = _cells.Cell(), _cells.Number()
        given = plain_bytes(data)
        buffer = _cells.Buffer(given)
        status = flat.DVSZEL_CmdExec(
            self.id, name_of(command, "command"), buffer.pointer, len(given), cell.pointer, length.pointer
        )
        self._check(status, f"run {command}")
        return handed_block(cell, length.value)

    def vendor_properties(self, kinds: PropertyKind = ALL_KINDS) -> PropertyCollection:
        """The switch's properties of other vendors, of some kinds."""
        cell = _cells.Cell()
        status = flat.DVSZEL_VendorGlobalPropList(self.id, cell.pointer, _u32(kinds))
        self._check(status, "collect properties of other vendors")
        return PropertyCollection._handed_out(cell)

    def vendor_host_properties(self, kinds: PropertyKind = ALL_KINDS) -> PropertyCollection:
        """The properties of other vendors of this host's part of the switch, of some kinds."""
        cell = _cells.Cell()
        status = flat.DVSZEL_VendorHostPropList(self.id, cell.pointer, _u32(kinds))
        self._check(status, "collect properties of other vendors")
        return PropertyCollection._handed_out(cell)

    def extra_properties(self, kinds: PropertyKind = ALL_KINDS) -> PropertyCollection:
        """The switch's properties beyond the platform's own, of some kinds."""
        cell = _cells.Cell()
        status = flat.DVSZEL_ExtraConfigPropList(self.id, cell.pointer, _u32(kinds))
        self._check(status, "collect further properties")
        return PropertyCollection._handed_out(cell)


def id_of_alias(alias: str) -> str | None:
    """The id of the distributed switch of an alias; None where there is none."""
    buffer = _cells.Buffer(flat.ZEL_VDS_ID_MAX_LEN)
    status = flat.VSZEL_DVSAliasToSwitchId(alias, buffer.pointer)
    if status == flat.ZEL_NOT_FOUND:
        return None
    check(status, f"find switch {alias}")
    return buffer.text


class Store(HostObject):
    """The state store of the host."""

    def __init__(self, changes: Changes) -> None:
        super().__init__(changes, "state store")

    # ---- Life of the state ----

    def load(self) -> None:
        """Loads the saved configuration in place of the one in use."""
        self._change("load saved configuration", lambda: self._check(flat.DVSLoadConfig(), "load saved configuration"))

    def image(self) -> bytes:
        """An image of the live state."""
        cell, length = _cells.Cell(), _cells.Number()
        self._check(flat.DVSZEL_StateGet(cell.pointer, length.pointer), "make image")
        return handed_block(cell, length.value)

    def saved_image(self) -> bytes:
        """An image of what is saved."""
        cell, length = _cells.Cell(), _cells.Number()
        self._check(flat.DVSZEL_PersistentStateGet(cell.pointer, length.pointer), "make image of what is saved")
        return handed_block(cell, length.value)

    def start_from(self, image: bytes) -> None:
        """Creates the state from an image. ChecksumMismatch and InvalidMetadata for one that is damaged."""
        data = plain_bytes(image)
        self._change("create state from image", lambda: self._start_from(data), after=f"{len(data)} bytes")

    def _start_from(self, image: bytes) -> None:
        buffer = _cells.Buffer(image)
        self._check(flat.DVSZEL_StateInit(buffer.pointer, len(image)), "create state from image")

    def configure_from(self, image: bytes) -> None:
        """Replaces the configuration by that of an image. Raises as `start_from` does."""
        data = plain_bytes(image)
        self._change("replace configuration", lambda: self._configure_from(data), after=f"{len(data)} bytes")

    def _configure_from(self, image: bytes) -> None:
        buffer = _cells.Buffer(image)
        self._check(flat.DVSState_ConfigDeserialize(buffer.pointer, len(image)), "replace configuration")

    def reset_configuration(self) -> None:
        """Brings every property of every switch and port back to its default, running and saved."""
        self._change(
            "reset configuration",
            lambda: self._check(flat.DVSState_ConfigReset(), "reset configuration"),
            before=PRESENT,
            after=ABSENT,
        )

    def sanitize(self) -> None:
        """Drops from the state what nothing refers to any more."""
        self._change("sanitize", lambda: self._check(flat.DVSZEL_StateSanitize(), "sanitize"))

    def clean_up(self) -> None:
        """Releases the state: ports and switches are gone until the configuration is loaded anew."""
        self._change(
            "clean up", lambda: self._check(flat.DVSZEL_StateCleanup(), "clean up"), before=PRESENT, after=ABSENT
        )

    # ---- Switches ----

    def __iter__(self) -> Iterator[StoredSwitch]:
        return iter(self.switches())

    def switches(self) -> list[StoredSwitch]:
        """The switches that the store knows."""
        found = _cells.collected(lambda visit: flat.DVSState_SwitchForEach(visit, None))
        handles = [_cells.pointer(switch, "_p_void") for switch in found]
        names = ((flat.DVS_SwitchId(handle), flat.DVS_SwitchName(handle)) for handle in handles)
        return [StoredSwitch(self._changes, i, name) for i, name in names if i is not None and name is not None]

    def switch(self, name: str) -> StoredSwitch:
        """The switch of an alias. NotFound where there is none."""
        found = id_of_alias(name_of(name, "alias"))
        if found is None:
            self._check(flat.ZEL_NOT_FOUND, f"find switch {name}")
        return StoredSwitch(self._changes, str(found), name)

    def knows_alias(self, alias: str, *, of_all_types: bool = False) -> bool:
        """Whether an alias is that of a switch, or with `of_all_types` of one of any type."""
        find = flat.DVSAliasToSwitchIdAllTypes if of_all_types else flat.DVSAliasToSwitchId
        return self._is_there(find(name_of(alias, "alias"), ""), f"find switch {alias}")

    def knows_portset(self, portset: str) -> bool:
        """Whether a portset is that of a switch."""
        return self._is_there(flat.DVSPortsetNameToAlias(name_of(portset, "portset"), ""), f"find portset {portset}")

    def _is_there(self, status: int, operation: str) -> bool:
        if status != flat.ZEL_NOT_FOUND:
            self._check(status, operation)
        return bool(status == flat.ZEL_OK)

    def add_switch(self, switch: str, alias: str, *, max_ports: int, version: int = flat.DVS_VERSION_70) -> None:
        """Adds a distributed switch by its id. Exists for an id or alias in use."""
        name_of(switch, "switch id")
        name_of(alias, "alias")

        def add() -> None:
            self._check(flat.DVSZEL_SwitchAdd(switch, alias, max_ports, version), f"add switch {switch}")

        self._change(f"add switch {switch}", add, undo=lambda: lambda: self._remove_switch(switch))

    def remove_switch(self, switch: str) -> None:
        """Removes a distributed switch by its id. Busy while clients are connected."""
        name_of(switch, "switch id")
        self._change(f"remove switch {switch}", lambda: self._remove_switch(switch), before=PRESENT, after=ABSENT)

    def _remove_switch(self, switch: str) -> None:
        self._check(flat.DVSZEL_SwitchRemove(switch), f"remove switch {switch}")

    def collection(self) -> PropertyCollection:
        """A new, empty collection of properties."""
        return PropertyCollection()
