"""Properties: bytes under keys, of switches, of this host's part of a switch, of ports, of uplinks."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from dataclasses import dataclass
from enum import IntFlag
from typing import Any, TypeVar

import _libkestrel as flat

from libkestrel import records
from libkestrel._kestrel_error import KestrelError, check
from libkestrel.host import _cells
from libkestrel.host._objects import (
    ABSENT,
    Changes,
    HostObject,
    OfSwitch,
    Undo,
    is_missing,
    name_of,
    plain_bytes,
    unknown,
)

T = TypeVar("T")
Value = bytes | bytearray | memoryview | int | bool | str | records.Record
"""What can be set: bytes as they are, a bool as one byte, an int as four, a text in UTF-8, a record as its bytes."""

_MOST = 1 << 26
"""The longest value that is read, in bytes."""


class PropertyKind(IntFlag):
    """Where a property comes from and how long it lasts."""

    VOLATILE = flat.VOLATILE_PROP_TYPE
    """Not saved."""
    POLICY = flat.POLICY_PROP_TYPE
    """A policy, which is saved."""
    CONFIG = flat.CONFIG_PROP_TYPE
    """Configuration, which is saved."""
    RUNTIME = flat.RUNTIME_PROP_TYPE
    """Running state, which is not saved."""
    NO_REPLICATE = flat.NO_REPLICATE_PROP_TYPE
    """Saved, and left out of images of ports and of what a SmartNIC reads."""
    NO_LOCAL_CALLBACK = flat.NO_SET_LOCAL_CALLBACK_PROP_TYPE
    """Set without telling this host's own listeners; saved."""
    NO_SYNC = flat.NO_SYNC_PROP_TYPE & 0xFFFFFFFF
    """Kept as it is when the configuration is replaced, and not shown by lists of other kinds."""


ALL_KINDS = PropertyKind(flat.ALL_PROP_TYPE & 0xFFFFFFFF)
"""Every kind."""
ANY_KIND = PropertyKind(0)
"""What properties of any kind are of."""


@dataclass(frozen=True)
class Property:
    """A property that is set."""

    key: str
    """Its key, at most 255 bytes."""
    value: bytes
    """Its bytes."""
    kind: PropertyKind
    """Where it comes from and how long it lasts."""


def to_bytes(value: Value) -> bytes:
    """A value as a property holds it. OverflowError for an int that takes more than four bytes."""
    if isinstance(value, bool):
        return bytes([value])
    if isinstance(value, int):
        return int.to_bytes(value, 4, "little", signed=value < 0)
    if isinstance(value, str):
        return str.encode(value, errors="surrogateescape")
    if isinstance(value, records.Record):
        return bytes(value)
    if isinstance(value, (bytes, bytearray, memoryview)):
        return plain_bytes(value)
    raise TypeError(f"a property is bytes, int, bool, str or a record, not {type(value).__name__}")


def from_bytes(data: bytes, kind: type[T]) -> T:
    """A property as int, bool, str, bytes or a record. ValueError for bytes that are no such value."""
    if kind is bool:
        if data not in (b"\0", b"\1"):
            raise ValueError(f"a flag is one byte, 0 or 1, not {data!r}")
        return kind(data == b"\1")  # type: ignore[call-arg]
    value: Any
    if kind is int:
        value = int.from_bytes(data, "little")
    elif kind is str:
        value = data.split(b"\0", 1)[0].decode(errors="surrogateescape")
    elif kind is bytes:
        value = data
    elif isinstance(kind, type) and issubclass(kind, records.Record):
        value = kind.from_bytes(data)
    else:
        raise TypeError(f"a property is read as int, bool, str, bytes or a record class, not {kind!r}")
    result: T = value
    return result


def property_of(item: Any) -> Property:
    """The property behind a handle of the store."""
    cell = _cells.Cell()
    length = flat.DVSData_Data(item, cell.pointer)
    key = flat.DVSData_Name(item)
    return Property(str(key), _cells.block(cell, length), PropertyKind(flat.DVSData_PropType(item)))


def walked(walk: Callable[[Any], object], kinds: PropertyKind) -> list[Property]:
    """The properties that a walk comes by and that are of all these kinds."""
    items = [_cells.pointer(item, "_p_void") for item in _cells.collected(walk)]
    return [property_of(item) for item in items if flat.DVSData_IsSamePropType(item, int(kinds)) == "\x01"]


class Properties(HostObject):
    """Properties by key: a mapping of bytes that can be set and cleared.

    Reading gives the value in use, else the default; iteration gives the keys that are set. NotFound (KeyError) for
    what has neither; BadParam for a key of another level and for a value that the key does not take; ReadOnly for one
    that cannot be set; NameTooLong for keys above 255 bytes; LimitExceeded for values above the limit.
    """

    def _read(self, key: str) -> bytes:
        raise NotImplementedError

    def _write(self, key: str, value: bytes) -> None:
        raise NotImplementedError

    def _erase(self, key: str) -> None:
        raise NotImplementedError

    def list(self, kinds: PropertyKind = ANY_KIND) -> list[Property]:
        """The properties that are set and of all these kinds."""
        raise NotImplementedError

    def __getitem__(self, key: str) -> bytes:
        return self._read(name_of(key, "key"))

    def __setitem__(self, key: str, value: Value) -> None:
        data = to_bytes(value)
        name_of(key, "key")
        self._change(
            f"set {key}",
            lambda: self._write(key, data),
            before=self._present(key),
            after=data,
            undo=lambda: self._restoring(key),
            topic=(self.place, type(self), key),
        )

    def __delitem__(self, key: str) -> None:
        name_of(key, "key")
        self._change(
            f"clear {key}",
            lambda: self._erase(key),
            before=self._present(key),
            after=ABSENT,
            undo=lambda: self._restoring(key),
            topic=(self.place, type(self), key),
        )

    def __iter__(self) -> Iterator[str]:
        return (found.key for found in self.list())

    def __len__(self) -> int:
        return len(self.list())

    def __contains__(self, key: object) -> bool:
        return any(found.key == key for found in self.list())

    def keys(self) -> tuple[str, ...]:
        """The keys that are set."""
        return tuple(self)

    def items(self) -> tuple[tuple[str, bytes], ...]:
        """Keys and values that are set."""
        return tuple((found.key, found.value) for found in self.list())

    def get(self, key: str, default: bytes | None = None) -> bytes | None:
        """The value of a property, or `default` where it has none."""
        try:
            return self[key]
        except KestrelError as error:
            if not is_missing(error):
                raise
            return default

    def read(self, key: str, kind: type[T]) -> T:
        """A property as int (little-endian), bool, str or a class of `libkestrel.records`.

        ValueError for bytes that are no such value.
        """
        return from_bytes(self[key], kind)

    def ensure(self, key: str, value: Value) -> bool:
        """Sets a property if it has another value. Returns whether it had."""
        if self._present(key) == to_bytes(value):
            return False
        self[key] = value
        return True

    def ensure_cleared(self, key: str) -> bool:
        """Clears a property if it is set. Returns whether it was."""
        expected = self._changes.expected((self.place, type(self), key))
        is_set = key in self if expected is unknown() else expected is not ABSENT
        if is_set:
            del self[key]
        return is_set

    def _present(self, key: str) -> object:
        expected = self._changes.expected((self.place, type(self), key))
        if expected is not unknown():
            return expected
        value = self.get(key)
        return ABSENT if value is None else value

    def _restoring(self, key: str) -> Undo:
        if key in self:
            value = self[key]
            return lambda: self._write(key, value)

        def clear() -> None:
            try:
                self._erase(key)
            except KestrelError as error:
                if not is_missing(error):
                    raise

        return clear


def _queried(call: Callable[[Any], int], operation: str, place: str) -> bytes:
    """The value that a query is filled with; its buffer grows as long as it does not fit."""
    size = 1024
    while True:
        query = records.VDSQuery(propLen=size, propValue=" " * size)
        status = call(query)
        if status != flat.ZEL_BUF_TOO_SMALL or size >= _MOST:
            check(status, operation, place)
            return flat.VDSQuery_get_val_in_bytes(query) or b""
        size *= 16


class ConfigProperties(Properties):
    """Properties through the switch's configuration: saved, unless they are set for the running state only."""

    def set_for(self, key: str, value: Value, *, runtime_only: bool = False, component: str | None = None) -> None:
        """Sets a property at once, meant for a component; with `runtime_only` it does not reach the state store."""
        self._put(name_of(key, "key"), to_bytes(value), component, int(runtime_only))

    def clear_for(self, key: str, *, runtime_only: bool = False, component: str | None = None) -> None:
        """Clears a property at once; with `runtime_only` what is saved stays."""
        self._drop(name_of(key, "key"), component, int(runtime_only))

    def _put(self, key: str, value: bytes, component: str | None, runtime_only: int) -> None:
        raise NotImplementedError

    def _drop(self, key: str, component: str | None, runtime_only: int) -> None:
        raise NotImplementedError

    def _write(self, key: str, value: bytes) -> None:
        self._put(key, value, None, 0)

    def _erase(self, key: str) -> None:
        self._drop(key, None, 0)


class SwitchProperties(OfSwitch, ConfigProperties):
    """The properties of a switch."""

    def _read(self, key: str) -> bytes:
        def call(query: Any) -> int:
            return int(flat.VSDVS_GetGlobProp(self._switch, key, query, None, 0))

        return _queried(call, f"read {key}", self.place)

    def _put(self, key: str, value: bytes, component: str | None, runtime_only: int) -> None:
        status = flat.VSDVS_SetGlobProp(self._switch, key, value, len(value), component, runtime_only)
        self._check(status, f"set {key}")

    def _drop(self, key: str, component: str | None, runtime_only: int) -> None:
        self._check(flat.VSDVS_ClearGlobProp(self._switch, key, component, runtime_only), f"clear {key}")

    def list(self, kinds: PropertyKind = ANY_KIND) -> list[Property]:
        """The properties that are set and of all these kinds."""
        handle = flat.DVSState_SwitchFindByAlias(self._switch)
        return walked(lambda visit: flat.DVSState_GlobalPropForEach(handle, visit, None), kinds)


class HostPartProperties(ConfigProperties):
    """The properties of this host's part of a switch."""

    def __init__(self, changes: Changes, switch: str) -> None:
        super().__init__(changes, f"host part of switch {switch}")
        self._switch = switch

    def _read(self, key: str) -> bytes:
        def call(query: Any) -> int:
            return int(flat.VSDVS_GetHostProp(self._switch, key, query, None, 0))

        return _queried(call, f"read {key}", self.place)

    def _put(self, key: str, value: bytes, component: str | None, runtime_only: int) -> None:
        status = flat.VSDVS_SetHostProp(self._switch, key, value, len(value), component, runtime_only)
        self._check(status, f"set {key}")

    def _drop(self, key: str, component: str | None, runtime_only: int) -> None:
        self._check(flat.VSDVS_ClearHostProp(self._switch, key, component, runtime_only), f"clear {key}")

    def set_while_running(self, key: str, value: Value, *, component: str | None = None) -> None:
        """Sets a property at once that lasts as long as the running state."""
        data = to_bytes(value)
        status = flat.VSDVS_SetRuntimeHostProp(self._switch, name_of(key, "key"), data, len(data), component, 1)
        self._check(status, f"set {key} while running")

    def list(self, kinds: PropertyKind = ANY_KIND) -> list[Property]:
        """The properties that are set and of all these kinds."""
        handle = flat.DVSState_SwitchFindByAlias(self._switch)
        return walked(lambda visit: flat.DVSState_HostPropForEach(handle, visit, None), kinds)


class PortProperties(ConfigProperties):
    """The properties of a port."""

    def __init__(self, changes: Changes, switch: str, port: str, find: Callable[[], Any]) -> None:
        super().__init__(changes, f"port {port} of switch {switch}")
        self._names = switch, port
        self._find = find

    def _read(self, key: str) -> bytes:
        def call(query: Any) -> int:
            return int(flat.VSDVS_GetPortProp(*self._names, key, query, None, 0))

        return _queried(call, f"read {key}", self.place)

    def _put(self, key: str, value: bytes, component: str | None, runtime_only: int) -> None:
        status = flat.VSDVS_SetPortProp(*self._names, key, value, len(value), component, runtime_only)
        self._check(status, f"set {key}")

    def _drop(self, key: str, component: str | None, runtime_only: int) -> None:
        self._check(flat.VSDVS_ClearPortProp(*self._names, key, component, runtime_only), f"clear {key}")

    def list(self, kinds: PropertyKind = ANY_KIND) -> list[Property]:
        """The properties that are set and of all these kinds."""
        handle = self._find()
        return walked(lambda visit: flat.DVSState_PortDataForEach(handle, visit, None), kinds)
