"""What a member of a record is to people: a flag, a name, an address, a sequence. Derived from the declarations alone.

The companion package's field tables, its stubs and its reference page all ask here, so that they cannot disagree.
"""

from __future__ import annotations

import re
from dataclasses import dataclass, replace

from headers.model import Headers, Member, Record

ARRAYS = {"vidrangeArray": "zel_VDSPortVIDRange", "pvlanmapentryArray": "VSPvlanMapEntry"}
"""The plain arrays of records and their elements."""

NAME = "zel_Name"
"""The record that crosses as str wherever it is a member."""

_COUNTED = re.compile(r"\bcounted by (?P<counter>\w+)(?P<network> in network byte order)?")
_FOLLOWING = re.compile(r"\b(?P<element>\w+) (?P<name>\w+) follow\b")
_INTEGER_WIDTHS = {"u8": 1, "u16": 2, "u32": 4, "u64": 8, "s32": 4, "e8": 1}
_TEXT_NOTE = "zero-terminated text"
_IPV4_TYPE = "zel_IPv4Address"
_IPV4_NOTE = "IPv4 address"


@dataclass(frozen=True)
class Element:
    """A value in memory: a member, or one of an array's."""

    kind: str
    """u8, u16, u32, u64, s32, flag, text, mac, ipv4, ipv6, name, record, pointer, owned_text."""
    width: int
    bits: tuple[int, int] | None = None
    """Lowest bit and number of bits of a bit-field."""
    target: str = ""
    """The enumeration of an integer, or the record of a record or pointer."""


@dataclass(frozen=True)
class Field:
    """An attribute of a record class."""

    name: str
    element: Element
    offset: int
    count: int | None
    """Elements of a fixed array; none for a single value and for what follows a record."""
    follows: bool
    """A sequence behind the record, as many as `counter` says."""
    counter: str
    network_order: bool
    read_only: bool
    overlaid: bool
    """Another view of bytes that belong to an earlier member."""
    type: str
    note: str

    @property
    def is_sequence(self) -> bool:
        """Whether it reads as a sequence."""
        return self.follows or self.count is not None


def _scalar(headers: Headers, member: Member, spelled: str, width: int) -> Element:
    """The element of this declared type; `width` for texts."""
    if spelled.endswith("*"):
        target = spelled.removesuffix("*").removeprefix("struct ").strip()
        return Element("pointer", 8, target=target if _is_record(headers, target) else "")
    if spelled == NAME:
        return Element("name", 32)
    if _is_record(headers, spelled):
        return Element("record", headers.record(spelled).size, target=spelled)
    if spelled == "char":
        return Element("text", width)
    kind = headers.kind(spelled)
    if spelled == _IPV4_TYPE or _IPV4_NOTE in member.note:
        return Element("ipv4", 4)
    if kind == "flag":
        return Element("flag", 1)
    target = spelled if spelled in {c.enumeration for c in headers.constants} else ""
    return Element({"e8": "u8"}.get(kind, kind), _INTEGER_WIDTHS[kind], target=target)


def _is_record(headers: Headers, name: str) -> bool:
    return any(record.name == name for record in headers.records)


def _element(headers: Headers, member: Member) -> tuple[Element, int | None]:
    """The element of a member, and how many there are where it is an array."""
    bounds = member.dimensions
    one_byte = member.element in ("unsigned char", "zel_uint8")
    if member.kind == "owned_text":
        return Element("owned_text", 8), None
    if member.kind == "text" or (one_byte and len(bounds) == 1 and _TEXT_NOTE in member.note):
        return Element("text", bounds[0]), None
    if bounds and one_byte and bounds[-1] == 6:
        return Element("mac", 6), bounds[0] if len(bounds) == 2 else None
    if bounds and member.element == "unsigned char" and bounds[-1] == 16:
        return Element("ipv6", 16), bounds[0] if len(bounds) == 2 else None
    if bounds:
        width = bounds[1] if len(bounds) == 2 else 1
        return _scalar(headers, member, member.element, width), bounds[0]
    element = _scalar(headers, member, member.element, 0)
    if member.bits:
        low, high = member.bits
        element = replace(element, bits=(low, high - low + 1))
    return element, None


def _bit_range(field: Field) -> range:
    """The bits of the record that a field takes."""
    start = field.offset * 8
    if field.element.bits:
        low, length = field.element.bits
        return range(start + low, start + low + length)
    return range(start, start + 8 * field.element.width * (1 if field.count is None else field.count))


def _field(headers: Headers, member: Member) -> Field:
    element, count = _element(headers, member)
    counted = _COUNTED.search(member.note)
    follows = counted is not None or member.kind == "trailing"
    if follows and not counted:
        raise ValueError(f"{member.name} does not tell what counts it")
    return Field(
        name=member.name,
        element=element,
        offset=member.offset,
        count=None if follows else count,
        follows=follows,
        counter=counted["counter"] if counted else "",
        network_order=bool(counted and counted["network"]),
        read_only=member.read_only,
        overlaid=False,
        type=member.type,
        note=member.note,
    )


def _followers(headers: Headers, record: Record) -> list[Field]:
    """Sequences that no member stands for: what a counting member says follows the record."""
    found = []
    for member in record.members:
        told = _FOLLOWING.search(member.note)
        if told and _is_record(headers, told["element"]):
            element = Element("record", headers.record(told["element"]).size, target=told["element"])
            found.append(
                Field(
                    name=told["name"],
                    element=element,
                    offset=record.size,
                    count=None,
                    follows=True,
                    counter=member.name,
                    network_order=False,
                    read_only=False,
                    overlaid=False,
                    type=f"{told['element']} [0]",
                    note=f"counted by {member.name}",
                )
            )
    return found


def fields(headers: Headers, record: Record) -> list[Field]:
    """The attributes of a record's class, in declaration order; what follows the record comes last."""
    found: list[Field] = []
    taken: set[int] = set()
    for member in record.members:
        if member.kind == "opaque":
            continue
        field = _field(headers, member)
        bits = _bit_range(field)
        overlaid = not field.follows and any(bit in taken for bit in bits)
        overlaid |= field.follows and any(f.follows for f in found)
        taken.update(bits)
        found.append(replace(field, overlaid=overlaid))
    return found + _followers(headers, record)


def array_field(headers: Headers, name: str) -> Field:
    """The elements of a plain array."""
    target = ARRAYS[name]
    element = Element("record", headers.record(target).size, target=target)
    return Field(
        "elements", element, 0, None, True, "", False, False, False, f"{target} [0]", "as many as it was made for"
    )
