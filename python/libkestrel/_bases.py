"""What all record classes share: comparing, showing, and turning into data."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from typing import Any, Self

from libkestrel import _records
from libkestrel._records import Array, Field, Rows

_SHOWN = 16
"""Elements of a sequence that a representation shows."""


def _plain(value: Any) -> Any:
    """A value as data: numbers, texts, lists and dictionaries."""
    if isinstance(value, Record):
        return value.to_dict()
    if isinstance(value, (Array, tuple)):
        return [_plain(element) for element in value]
    if value is None or isinstance(value, (bool, int, str)):
        return value
    return str(value)


def _shown(field: Field, record: Record) -> str:
    value = getattr(record, field.__name__)
    if isinstance(value, Array):
        text = ", ".join(repr(element) for element in value[:_SHOWN])
        return f"[{text}, ... {len(value) - _SHOWN} more]" if len(value) > _SHOWN else f"[{text}]"
    if field.kind == "pointer" and value is not None:
        return f"<{type(value).__name__}>"
    return repr(value)


def _shows(record: Record) -> list[Field]:
    """The fields that hold data, each byte once: of several views the first, or of what follows that in use."""
    plain = [f for f in record.__fields__ if not f.overlaid and f.kind != "opaque"]
    if not any(f.overlaid and f.shape == "follows" for f in record.__fields__):
        return plain
    assert isinstance(record, Table)
    return [f for f in plain if f.shape != "follows"] + [record._shown]


class Record(_records.RecordBase):
    """The base of the record classes: members by keyword, equal when their values are."""

    __slots__ = ()
    __fields__: tuple[Field, ...]

    def to_dict(self) -> dict[str, Any]:
        """The members by name, as numbers, texts, lists and dictionaries: fit for JSON and for `from_dict`.

        Addresses are texts. Pointers are left out, and so are overlays, which show the bytes of other members again.
        """
        held = [f for f in _shows(self) if f.kind != "pointer"]
        return {f.__name__: _plain(getattr(self, f.__name__)) for f in held}

    @classmethod
    def from_dict(cls, values: Mapping[str, Any]) -> Self:
        """A record with the members that `to_dict` gave."""
        return cls(**values)

    def __repr__(self) -> str:
        if self.released:
            return f"<released {type(self).__name__}>"
        members = ", ".join(f"{f.__name__}={_shown(f, self)}" for f in _shows(self))
        return f"{type(self).__name__}({members})"

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Record) or type(other) is not type(self):
            return NotImplemented
        if self is other or bytes(self) == bytes(other):
            return True
        ours, theirs = _shows(self), _shows(other)
        if ours != theirs:
            return False
        return all(_same(getattr(self, f.__name__), getattr(other, f.__name__), f.kind) for f in _compared(ours, self))

    __hash__ = None  # type: ignore[assignment]  # members change

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self).from_bytes, (bytes(self),)

    def __copy__(self) -> Self:
        return self.copy()

    def __deepcopy__(self, memo: dict[int, Any]) -> Self:
        return self.copy()


def _compared(shown: list[Field], record: Record) -> list[Field]:
    """The fields by which records are equal: those shown, and further views of them within the fixed part."""
    return shown + [f for f in record.__fields__ if f.overlaid and f.shape != "follows" and f.kind != "opaque"]


def _same(one: object, other: object, kind: str) -> bool:
    """Whether two values are the same. Records pointed to are by address: lists lead back to themselves."""
    if kind == "pointer" and isinstance(one, Record) and isinstance(other, Record):
        return int(one.this) == int(other.this)
    return one is other or one == other


class Table(Record, _records.TableBase):
    """The base of the classes of records that entries follow: a sequence of these.

    Called with a number, such a class makes room for so many zeroed entries and counts them; with entries by keyword
    it counts those. The buffer of a table is that of its entries, for reading: numpy.asarray(table) is a structured
    array over the same memory.
    """

    __slots__ = ()

    def rows(self) -> Sequence[tuple[Any, ...]]:
        """A tuple for each entry: the values of its columns.

        Rows are read when they are asked for, which is fastest one after another; list(table.rows()) keeps them.
        """
        entries = self._entries
        if isinstance(entries, Array):
            return entries.rows()
        return [tuple(_row(entry)) for entry in entries]

    def columns(self) -> dict[str, Any]:
        """The columns by name, "a.b" for member b of a record a within the entries.

        Each is a sequence over the table's memory, which numpy.asarray takes without a copy; a list where entries vary
        in length and where the member is an array.
        """
        entries = self._entries
        if isinstance(entries, Array):
            return entries.columns()
        names = _names(type(entries[0])) if entries else []
        rows = self.rows()
        return {name: [row[i] for row in rows] for i, name in enumerate(names)}


def _names(cls: type[Record]) -> list[str]:
    return [f.__name__ for f in cls.__fields__ if not f.overlaid]


def _row(entry: Record) -> list[Any]:
    values = (getattr(entry, name) for name in _names(type(entry)))
    return [tuple(value) if isinstance(value, Array) else value for value in values]


Sequence.register(Array)
Sequence.register(Rows)
