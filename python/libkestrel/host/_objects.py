"""What the objects of a host share: how calls are checked, how settings are read, and how changes are made."""

from __future__ import annotations

import operator
from collections.abc import Callable, Hashable
from dataclasses import dataclass, field
from typing import Any, Generic, Protocol, TypeVar, overload

import _libkestrel as flat

from libkestrel._kestrel_error import KestrelError, check
from libkestrel.host._cells import Cell

T = TypeVar("T")
Undo = Callable[[], None]


class Absence:
    """What stands in a change for something that is not there."""

    def __repr__(self) -> str:
        return "absent"


class Presence:
    """What stands in a change for something that is there."""

    def __repr__(self) -> str:
        return "present"


ABSENT = Absence()
"""Stands in changes for what is not there."""
PRESENT = Presence()
"""Stands in changes for what is there."""
_UNKNOWN: Any = object()


def is_missing(error: KestrelError) -> bool:
    """Whether an error says that something is not there."""
    return bool(error.status == flat.ZEL_NOT_FOUND)


@dataclass(frozen=True)
class Change:
    """One change of one object: what it is for people, and how it is made and taken back."""

    object: str
    """What changes, such as "port 10 of switch dvs-prod"."""
    operation: str
    """What is done to it, such as "set VLAN policy"."""
    before: Any
    """The value before."""
    after: Any
    """The value afterwards."""
    make: Callable[[], None] = field(repr=False)
    """Makes the change. All or nothing of it happens."""
    prepare_undo: Callable[[], Undo] | None = field(repr=False, default=None)
    """Called before the change: gives what takes it back. None where nothing can."""
    topic: Hashable = field(repr=False, default=None)
    """What the change is about, for those that come later in a plan."""

    def __str__(self) -> str:
        return f"{self.object}: {self.operation}: {self.before!r} -> {self.after!r}"


class Changes(Protocol):
    """Where the changes of objects go."""

    def take(self, change: Change) -> None:
        """Makes a change, or notes it."""

    def expected(self, topic: Hashable) -> object:
        """The value that noted changes leave behind; `unknown()` where there are none."""


def unknown() -> Any:
    """Stands for a value that no noted change tells."""
    return _UNKNOWN


class AtOnce:
    """Changes are made when a verb is called."""

    def take(self, change: Change) -> None:
        """Makes a change."""
        change.make()

    def expected(self, topic: Hashable) -> object:  # noqa: ARG002
        """Nothing is noted."""
        return _UNKNOWN


class HostObject:
    """Something of a host: it has a place, tells errors with it, and passes changes on."""

    def __init__(self, changes: Changes, place: str) -> None:
        self._changes = changes
        self._place = place

    @property
    def place(self) -> str:
        """What the object is, as errors and plans call it: "port 10 of switch dvs-prod"."""
        return self._place

    def __repr__(self) -> str:
        return f"<{type(self).__name__}: {self.place}>"

    def __eq__(self, other: object) -> bool:
        return type(other) is type(self) and isinstance(other, HostObject) and other.place == self.place

    def __hash__(self) -> int:
        return hash((type(self), self.place))

    def _check(self, status: int, operation: str) -> None:
        check(status, operation, self.place)

    def _value(self, result: list[Any], operation: str) -> Any:
        """The one output of a call that gave [status, output]."""
        self._check(result[0], operation)
        return result[1]

    def _kept(self, result: list[Any], operation: str, release: Callable[[Any], Any]) -> Any:
        """A table that was handed out, with its memory tied to the function that takes it back."""
        table = self._value(result, operation)
        return table.release_with(release)

    def _change(
        self,
        operation: str,
        make: Callable[[], None],
        *,
        before: object = ABSENT,
        after: object = PRESENT,
        undo: Callable[[], Undo] | None = None,
        topic: Hashable = None,
    ) -> None:
        """Makes a change, or notes it in the plan that the object belongs to."""
        self._changes.take(Change(self.place, operation, before, after, make, undo, topic))

    def ensure_default(self, *names: str) -> bool:
        """Clears settings, by the names of their attributes, so that their defaults hold again.

        Returns whether any had been set. AttributeError for a name that is no setting, ReadOnly (PermissionError) for
        one that has no default.
        """
        cleared = [setting_of(type(self), name).ensure_cleared(self) for name in names]  # all of them, not the first
        return any(cleared)

    def _holds(self, key: str) -> bool:
        """Whether a property is set here, so that not its default holds."""
        raise NotImplementedError

    def _clear_key(self, key: str) -> None:
        """Clears a property."""
        raise NotImplementedError


class OfSwitch(HostObject):
    """What a switch has several of, such as its ports: it goes by the switch's place."""

    def __init__(self, changes: Changes, switch: str) -> None:
        super().__init__(changes, f"switch {switch}")
        self._switch = switch


class Setting(Generic[T]):
    """A value of an object that can be read, set and cleared, as attributes are: obj.x, obj.x = value, del obj.x."""

    def __init__(self, read: Callable[[Any], T], title: str, key: str | None) -> None:
        self._read, self._title, self._key = read, title, key
        self._write: Callable[[Any, T], None] | None = None
        self._clear: Callable[[Any], None] | None = None
        self.__doc__ = read.__doc__
        self.__name__ = read.__name__
        self._complete = False

    def __set_name__(self, owner: type[Any], name: str) -> None:
        self._complete = True

    def writes(self, function: Callable[[Any, T], None]) -> Callable[[Any, T], None]:
        """Decorates the method that sets the value, while the class is made."""
        self._check_incomplete()
        self._write = function
        return function

    def clears(self, function: Callable[[Any], None]) -> Callable[[Any], None]:
        """Decorates the method that brings the default back; without one the property is cleared."""
        self._check_incomplete()
        self._clear = function
        return function

    def _check_incomplete(self) -> None:
        """What users get hold of is not theirs to change."""
        if self._complete:
            raise TypeError(f"{self.__name__} belongs to a class that is complete")

    @overload
    def __get__(self, owner: None, kind: type[Any], /) -> Setting[T]: ...
    @overload
    def __get__(self, owner: HostObject, kind: type[Any] | None = None, /) -> T: ...
    def __get__(self, owner: HostObject | None, kind: type[Any] | None = None, /) -> T | Setting[T]:
        if owner is None:
            return self
        expected: Any = owner._changes.expected(self._topic(owner))
        return self._read(owner) if expected is _UNKNOWN or expected is ABSENT else expected

    def __set__(self, owner: HostObject, value: T) -> None:
        self._set(owner, value, self._present(owner))

    def __delete__(self, owner: HostObject) -> None:
        self._change_to_default(owner, self._present(owner))

    def ensure(self, owner: HostObject, value: T) -> bool:
        """Sets the value if it is another; whether it was."""
        present = self._present(owner)
        if present == value:
            return False
        self._set(owner, value, present)
        return True

    def ensure_cleared(self, owner: HostObject) -> bool:
        """Brings the default back if a value is set; whether it was."""
        expected = owner._changes.expected(self._topic(owner))
        is_set = self._is_set(owner) if expected is _UNKNOWN else expected is not ABSENT
        if is_set:
            self._change_to_default(owner, self._present(owner))
        return is_set

    def _topic(self, owner: HostObject) -> Hashable:
        return owner.place, self.__name__

    def _present(self, owner: HostObject) -> object:
        """The value as it is or will be, `ABSENT` where there is none."""
        expected = owner._changes.expected(self._topic(owner))
        if expected is not _UNKNOWN:
            return expected
        try:
            return self._read(owner)
        except KestrelError as error:
            if not is_missing(error):
                raise
            return ABSENT

    def _is_set(self, owner: HostObject) -> bool:
        try:
            return self._present(owner) is not ABSENT if self._key is None else owner._holds(self._key)
        except KestrelError as error:
            if not is_missing(error):
                raise
            return False

    def _set(self, owner: HostObject, value: T, before: object) -> None:
        write = self._write
        assert write is not None
        owner._change(
            f"set {self._title}",
            lambda: write(owner, value),
            before=before,
            after=value,
            undo=lambda: self._restoring(owner),
            topic=self._topic(owner),
        )

    def _change_to_default(self, owner: HostObject, before: object) -> None:
        owner._change(
            f"clear {self._title}",
            lambda: self._bring_back(owner),
            before=before,
            after=ABSENT,
            undo=lambda: self._restoring(owner),
            topic=self._topic(owner),
        )

    def _bring_back(self, owner: HostObject) -> None:
        if self._clear is not None:
            self._clear(owner)
        elif self._key is not None:
            owner._clear_key(self._key)
        else:
            check(flat.ZEL_READ_ONLY, f"clear {self._title}", owner.place)

    def _restoring(self, owner: HostObject) -> Undo:
        """What brings the present state back: the value, or the lack of one."""
        write = self._write
        assert write is not None
        if self._is_set(owner):
            value = self._read(owner)
            return lambda: write(owner, value)

        def clear() -> None:
            try:
                self._bring_back(owner)
            except KestrelError as error:
                if not is_missing(error):
                    raise

        return clear


def setting(title: str, key: str | None = None) -> Callable[[Callable[[Any], T]], Setting[T]]:
    """Makes a setting of the method that reads it. `key` is the property behind it, if it is one."""
    return lambda read: Setting(read, title, key)


def setting_of(kind: type[Any], name: str) -> Setting[Any]:
    """The setting of a class by its name."""
    found = getattr(kind, name, None)
    if not isinstance(found, Setting):
        raise AttributeError(f"{kind.__name__} has no setting '{name}'")
    return found


def name_of(value: str, what: str) -> str:
    """A name as the platform can take it. TypeError for what is no text, ValueError for one with a zero in it."""
    if not isinstance(value, str):
        raise TypeError(f"{what} is a str, not {type(value).__name__}")
    if "\0" in value:
        raise ValueError(f"{what} has a zero character in it: {value!r}")
    return value


def plain_bytes(value: bytes | bytearray | memoryview) -> bytes:
    """The bytes of a buffer, as many as there are, whatever a subclass says. TypeError for what has none."""
    return bytes(memoryview(value))


def int32(value: int, what: str) -> int:
    """A number of 32 bits with a sign, as the platform takes it. TypeError for what is no int, OverflowError beyond."""
    number = operator.index(value)
    if not -(2**31) <= number < 2**31:
        raise OverflowError(f"{what} is a number of 32 bits, not {number}")
    return number


def handed_block(cell: Cell, length: int) -> bytes:
    """The bytes of a block that the store handed out, which goes back to the store."""
    from libkestrel.host._cells import block

    if not cell.address:
        return b""
    content = block(cell, length)
    flat.DVSZEL_DataFree(cell.as_pointer())
    return content
