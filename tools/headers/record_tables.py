"""Generates the field tables of the companion package's native part: records, fields and enumerations as data."""

from __future__ import annotations

import json

from headers import generator
from headers.model import Headers, Record
from headers.record_fields import ARRAYS, Field, array_field, fields

_BOUNDS = {"u8": (0, 2**8 - 1), "u16": (0, 2**16 - 1), "u32": (0, 2**32 - 1), "u64": (0, 2**64 - 1)}
_BOUNDS |= {"s32": (-(2**31), 2**31 - 1)}
_MEANINGS = {
    "flag": "bool",
    "mac": "MacAddress",
    "ipv4": "ipaddress.IPv4Address",
    "ipv6": "ipaddress.IPv6Address",
    "name": "str of at most 31 bytes of UTF-8",
    "pointer": "what is pointed to, or None",
    "owned_text": "str or None",
}


def field_documentation(field: Field) -> str:
    """What an attribute holds, where it lies, and what its declaration says about it."""
    element = field.element
    if element.kind in _BOUNDS:
        low, high = _BOUNDS[element.kind]
        if element.bits:
            low, high = 0, 2 ** element.bits[1] - 1
        meaning = f"{element.target or 'int'}, {low} to {high}"
    elif element.kind == "text":
        meaning = f"str of at most {element.width - 1} bytes of UTF-8" if element.width else "str"
    elif element.kind == "record":
        meaning = element.target
    else:
        meaning = _MEANINGS[element.kind]
        if element.kind == "pointer" and element.target:
            meaning = f"{element.target} or None"
    if field.follows:
        meaning = f"sequence of {meaning}"
    elif field.count is not None:
        meaning = f"{field.count} of {meaning}"
    place = f"`{field.type}` at offset {field.offset}"
    if element.bits:
        low, length = element.bits
        place += f", bit {low}" if length == 1 else f", bits {low} to {low + length - 1}"
    access = "read-only" if field.read_only else ""
    sharing = "an overlay" if field.overlaid else ""
    remarks = [_sentence(text) for text in (field.note, place, access, sharing) if text]
    return " ".join([f"{meaning}.", *remarks])


def _sentence(text: str) -> str:
    """A remark with a capital and a full stop; a name at its start stays as it is."""
    first = text.split(" ", 1)[0]
    return f"{text[0].upper() + text[1:] if first.islower() else text}."


def array_documentation(name: str) -> str:
    """What a plain array is."""
    return f"A plain array of {ARRAYS[name]}, as long as it was made."


def _text(value: str) -> str:
    return json.dumps(value)


class _Tables:
    def __init__(self, headers: Headers) -> None:
        self.headers = headers
        self.names = [record.name for record in headers.records] + list(ARRAYS)
        self.enumerations = list(headers.enumerations)
        self.rows: list[str] = []

    def _target(self, field: Field) -> int:
        target = field.element.target
        if not target:
            return -1
        if field.element.kind in ("record", "pointer"):
            return self.names.index(target)
        return self.enumerations.index(target)

    def _field(self, field: Field, all_fields: list[Field]) -> str:
        element = field.element
        low, length = element.bits or (0, 0)
        kind = "k" + "".join(part.capitalize() for part in element.kind.split("_"))
        shape = "kFollows" if field.follows else "kFixed" if field.count is not None else "kValue"
        order = [f.name for f in all_fields]
        counter = order.index(field.counter) if field.counter in order else -1
        counts = any(f.counter == field.name for f in all_fields)
        flags = [field.network_order, field.read_only, field.overlaid, counts]
        return (
            f"{{{_text(field.name)}, {_text(field_documentation(field))}, "
            f"{{Kind::{kind}, {low}, {length}, {element.width}, {self._target(field)}}}, "
            f"{field.offset}, Shape::{shape}, {field.count or 0}, {counter}, "
            f"{', '.join(str(flag).lower() for flag in flags)}}},"
        )

    def _record(self, name: str, doc: str, size: int, found: list[Field]) -> str:
        first = len(self.rows)
        self.rows += [self._field(field, found) for field in found]
        table = any(field.follows for field in found)
        return f"{{{_text(name)}, {_text(doc)}, {size}, {first}, {len(found)}, {str(table).lower()}}},"

    def source(self) -> str:
        """The tables as C++."""
        lines = [self._describe(record) for record in self.headers.records]
        for name in ARRAYS:
            found = [array_field(self.headers, name)]
            lines.append(self._record(name, array_documentation(name), 0, found))
        enumerators: list[str] = []
        ranges: list[str] = []
        for name in self.enumerations:
            own = [c for c in self.headers.constants if c.enumeration == name]
            ranges.append(
                f"{{{_text(name)}, {_text(self.headers.enumerations[name])}, {len(enumerators)}, {len(own)}}},"
            )
            enumerators += [f"{{{_text(c.name)}, {c.value}}}," for c in own]
        tables = [
            ("EnumeratorSpec kEnumerators", enumerators),
            ("EnumerationSpec kEnumerations", ranges),
            ("FieldSpec kFields", self.rows),
            ("RecordSpec kRecords", lines),
        ]
        body = ["\n".join([f"constexpr {name}[] = {{", *(f"    {row}" for row in rows), "};"]) for name, rows in tables]
        return "\n\n".join(["// Generated from the headers.", *body]) + "\n"

    def _describe(self, record: Record) -> str:
        return self._record(record.name, record.doc, record.size, fields(self.headers, record))


def tables(headers: Headers) -> str:
    """The source of the tables."""
    return _Tables(headers).source()


if __name__ == "__main__":
    generator.run(tables)
