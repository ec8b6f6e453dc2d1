"""The kinds of values that scenarios have: how each is written, and how it is read and checked."""

from __future__ import annotations

import re
from abc import ABC, abstractmethod
from collections.abc import Mapping, Sequence
from dataclasses import MISSING, dataclass, field, fields
from ipaddress import ip_address
from typing import Any, TypeVar, cast

from libkestrel.lab.scenario.problems import Place

_Table = TypeVar("_Table")


class Kind(ABC):
    """A kind of value."""

    @property
    @abstractmethod
    def shown(self) -> str:
        """How the documentation calls it."""

    @abstractmethod
    def read(self, value: object, place: Place) -> Any:
        """The value as the program uses it; notes at `place` what is wrong, and gives anything then."""


def _called(value: object) -> str:
    """What TOML calls the type of a value."""
    names = {bool: "a flag", int: "a number", float: "a fraction", str: "a text", list: "a list", dict: "a table"}
    return names.get(type(value), "a date or time")


@dataclass(frozen=True)
class Flag(Kind):
    """true or false."""

    @property
    def shown(self) -> str:
        return "flag"

    def read(self, value: object, place: Place) -> bool:
        if not isinstance(value, bool):
            place.wrong(f"{_called(value)} where true or false belongs")
            return False
        return value


@dataclass(frozen=True)
class Number(Kind):
    """A whole number, both bounds included."""

    least: int
    most: int

    @property
    def shown(self) -> str:
        return f"number, {self.least} to {self.most}"

    def read(self, value: object, place: Place) -> int:
        if isinstance(value, bool) or not isinstance(value, int):
            place.wrong(f"{_called(value)} where a number belongs")
            return self.least
        if not self.least <= value <= self.most:
            place.wrong(f"{value} is not from {self.least} to {self.most}")
        return value


@dataclass(frozen=True)
class Seconds(Kind):
    """A time; fractions are allowed."""

    most: int = 10**9

    @property
    def shown(self) -> str:
        return "seconds"

    def read(self, value: object, place: Place) -> int:
        """In nanoseconds."""
        if isinstance(value, bool) or not isinstance(value, (int, float)):
            place.wrong(f"{_called(value)} where a number of seconds belongs")
            return 0
        if not 0 <= value <= self.most:  # nor what is no number
            place.wrong(f"{value} is not from 0 to {self.most} seconds")
            return 0
        return value * 10**9 if isinstance(value, int) else round(value * 1e9)


@dataclass(frozen=True)
class Text(Kind):
    """A text of at most so many bytes."""

    most: int = 4096

    @property
    def shown(self) -> str:
        return "text"

    def read(self, value: object, place: Place) -> str:
        if not isinstance(value, str):
            place.wrong(f"{_called(value)} where a text belongs")
            return ""
        if "\0" in value:
            place.wrong("a text with a zero character in it")
        if len(value.encode()) > self.most:
            place.wrong(f"a text of more than {self.most} bytes")
        return value


@dataclass(frozen=True)
class Name(Text):
    """A text that is not empty."""

    @property
    def shown(self) -> str:
        return f"text, up to {self.most} bytes"

    def read(self, value: object, place: Place) -> str:
        text = super().read(value, place)
        if value == "":
            place.wrong("an empty text where a name belongs")
        return text


@dataclass(frozen=True)
class Choice(Kind):
    """One of some words, each of which stands for a value."""

    words: Mapping[str, Any]

    @property
    def shown(self) -> str:
        return " or ".join(f'`"{word}"`' for word in self.words)

    def read(self, value: object, place: Place) -> Any:
        if not isinstance(value, str) or value not in self.words:
            what = f'"{value}"' if isinstance(value, str) else _called(value)
            place.wrong(f"{what} is none of {', '.join(self.words)}")
            return next(iter(self.words.values()))
        return self.words[value]


@dataclass(frozen=True)
class Words(Kind):
    """Some of some words, each of which stands for a bit."""

    words: Mapping[str, int]

    @property
    def shown(self) -> str:
        return "list of " + ", ".join(f'`"{word}"`' for word in self.words)

    def read(self, value: object, place: Place) -> int:
        mask = 0
        for item in ListOf(Choice(self.words)).read(value, place):
            mask |= item
        return mask


@dataclass(frozen=True)
class Mac(Kind):
    """An Ethernet address."""

    station: bool = True
    """Whether it has to be that of one station."""

    @property
    def shown(self) -> str:
        return 'Ethernet address, as `"02:00:00:00:00:01"`'

    def read(self, value: object, place: Place) -> bytes:
        if not isinstance(value, str) or not re.fullmatch(r"[0-9A-Fa-f]{2}(:[0-9A-Fa-f]{2}){5}", value):
            place.wrong('no Ethernet address, which is written as "02:00:00:00:00:01"')
            return b"\2\0\0\0\0\0"
        address = bytes.fromhex(value.replace(":", ""))
        if self.station and (address[0] & 1 or address == bytes(6)):
            place.wrong(f"{value} is not the address of a station")
        return address


@dataclass(frozen=True)
class Ip(Kind):
    """An IP address of either version."""

    @property
    def shown(self) -> str:
        return "IP address"

    def read(self, value: object, place: Place) -> str:
        try:
            if isinstance(value, str) and "%" not in value:
                return str(ip_address(value))
        except ValueError:
            pass
        place.wrong("no IP address")
        return "0.0.0.0"


@dataclass(frozen=True)
class VlanRanges(Kind):
    """VLANs and ranges of them, in the order in which they are given."""

    @property
    def shown(self) -> str:
        return 'list of VLANs and ranges, as `[10, "100-199"]`'

    def read(self, value: object, place: Place) -> tuple[tuple[int, int], ...]:
        if not isinstance(value, list):
            place.wrong(f"{_called(value)} where a list of VLANs belongs")
            return ()
        ranges: list[tuple[int, int]] = []
        for index, item in enumerate(value):
            found = re.fullmatch(r"(\d{1,4})-(\d{1,4})", item) if isinstance(item, str) else None
            if found:
                low, high = int(found[1]), int(found[2])
            elif isinstance(item, int) and not isinstance(item, bool):
                low = high = item
            else:
                place.item(index).wrong('neither a VLAN nor a range of them, which is written as "100-199"')
                continue
            if not 0 <= low <= high <= MAX_VLAN:
                place.item(index).wrong(f"{item} is no range of VLANs from 0 to {MAX_VLAN}")
            elif any(low <= other[1] and other[0] <= high for other in ranges):
                place.item(index).wrong(f"{item} overlaps another range")
            ranges.append((low, high))
        if not value:
            place.wrong("an empty list where VLANs belong")
        return tuple(ranges)


MAX_VLAN = 4094


@dataclass(frozen=True)
class Hex(Kind):
    """Bytes as hexadecimal digits, with blanks between them as one likes."""

    @property
    def shown(self) -> str:
        return "bytes as hexadecimal digits"

    def read(self, value: object, place: Place) -> bytes:
        try:
            if isinstance(value, str):
                return bytes.fromhex(value)
        except ValueError:
            pass
        place.wrong("no bytes in hexadecimal digits")
        return b""


@dataclass(frozen=True)
class ListOf(Kind):
    """Values of one kind, one after the other."""

    item: Kind

    @property
    def shown(self) -> str:
        return f"list of {self.item.shown}"

    def read(self, value: object, place: Place) -> tuple[Any, ...]:
        if not isinstance(value, list):
            place.wrong(f"{_called(value)} where a list belongs")
            return ()
        return tuple(self.item.read(item, place.item(index)) for index, item in enumerate(value))


@dataclass(frozen=True)
class MapOf(Kind):
    """A table whose keys are the scenario's own."""

    key: Name
    value: Kind

    @property
    def shown(self) -> str:
        return f"table of {self.value.shown}"

    def read(self, value: object, place: Place) -> dict[str, Any]:
        if not isinstance(value, dict):
            place.wrong(f"{_called(value)} where a table belongs")
            return {}
        found = {}
        for key, item in value.items():
            where = place.key(key)
            found[self.key.read(key, where)] = self.value.read(item, where)
        return found


@dataclass(frozen=True)
class Either(Kind):
    """A number or a text."""

    number: Number
    text: Text

    @property
    def shown(self) -> str:
        return f"{self.number.shown}; or {self.text.shown}"

    def read(self, value: object, place: Place) -> int | str:
        chosen: Kind = self.text if isinstance(value, str) else self.number
        return cast("int | str", chosen.read(value, place))


@dataclass(frozen=True)
class TableOf(Kind):
    """A table with the keys of a class of the format."""

    table: type

    @property
    def shown(self) -> str:
        return f"table, see [{self.table.__name__}](#{self.table.__name__.lower()})"

    def read(self, value: object, place: Place) -> Any:
        return read_table(self.table, value, place)


@dataclass(frozen=True)
class TablesOf(Kind):
    """Tables with the keys of a class of the format."""

    table: type

    @property
    def shown(self) -> str:
        return f"tables, see [{self.table.__name__}](#{self.table.__name__.lower()})"

    def read(self, value: object, place: Place) -> tuple[Any, ...]:
        return ListOf(TableOf(self.table)).read(value, place)


def key(kind: Kind, doc: str, default: Any = MISSING, *, shown: str | None = None) -> Any:
    """A key of a table: its kind, what it means, and its default unless it has to be given.

    `shown` is how the documentation writes the default, where that is not how TOML does.
    """
    metadata = {"kind": kind, "doc": doc, "shown": shown}
    return field(metadata=metadata) if default is MISSING else field(default=default, metadata=metadata)


def keys_of(table: type) -> dict[str, Any]:
    """The fields of a class of the format by the names that their keys have in a scenario, those first that have to be
    there.
    """
    order = sorted(fields(table), key=lambda each: each.default is not MISSING)
    return {each.name.replace("_", "-"): each for each in order}


def read_table(table: type[_Table], value: object, place: Place) -> _Table:
    """A table of a class of the format."""
    found: dict[str, Any] = {}
    known = keys_of(table)
    if not isinstance(value, dict):
        place.wrong(f"{_called(value)} where a table belongs")
        value = {}
    else:
        for name in value:
            if name not in known:
                place.key(name).wrong(f"unknown key; {table.__name__} has {', '.join(known)}")
        for name, each in known.items():
            if name not in value and each.default is MISSING:
                place.key(name).wrong("is missing")
    for name, each in known.items():
        if name in value:
            found[each.name] = each.metadata["kind"].read(value[name], place.key(name))
        elif each.default is MISSING:
            found[each.name] = None
    return table(**found)


def twice(values: Sequence[Any]) -> set[int]:
    """The positions of what is there before."""
    seen: set[Any] = set()
    found = set()
    for index, value in enumerate(values):
        if value in seen:
            found.add(index)
        seen.add(value)
    return found
