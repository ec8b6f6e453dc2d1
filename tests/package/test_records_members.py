"""Every member of every record class: bounds, wrong kinds, and the same bytes as the flat module sees."""

from __future__ import annotations

from dataclasses import dataclass
from enum import IntEnum
from ipaddress import IPv4Address, IPv6Address
from typing import Any

import _libkestrel
import pytest

from headers import model
from headers.record_fields import ARRAYS, Field, fields
from libkestrel import enums, records
from libkestrel.records import Array, MacAddress, Record, Table

HEADERS = model.read()
NAMES = [record.name for record in HEADERS.records]


@dataclass(frozen=True)
class Case:
    record: model.Record
    field: Field

    def __str__(self) -> str:
        return f"{self.record.name}.{self.field.name}"

    def make(self) -> Any:
        return getattr(records, self.record.name)()

    @property
    def name(self) -> str:
        return self.field.name


CASES = [Case(record, field) for record in HEADERS.records for field in fields(HEADERS, record)]
VALUES = [case for case in CASES if not case.field.is_sequence]
INTEGERS = [case for case in VALUES if case.field.element.kind in ("u8", "u16", "u32", "u64", "s32")]


def counts(case: Case) -> bool:
    """Whether the member has a say in how much follows the record, which is then bounded by its memory."""
    named = any(f.counter == case.name for f in fields(HEADERS, case.record))
    return named or case.name == "dataLength" or (case.record.name == "zel_GREHdr" and case.name.endswith("Present"))


PLAIN = [case for case in INTEGERS if not counts(case)]


def kind(*kinds: str) -> list[Case]:
    return [case for case in VALUES if case.field.element.kind in kinds and not case.field.read_only]


def bounds(field: Field) -> tuple[int, int]:
    if field.element.kind == "s32":
        return -(2**31), 2**31 - 1
    bits = field.element.bits[1] if field.element.bits else 8 * field.element.width
    return 0, 2**bits - 1


def test_there_is_a_class_for_every_record_and_array() -> None:
    assert len(NAMES) == 117
    assert set(records.__all__) == {*NAMES, *ARRAYS, "Array", "Field", "MacAddress", "Record", "Rows", "Table"}
    for name in [*NAMES, *ARRAYS]:
        cls = getattr(records, name)
        assert issubclass(cls, Record)
        assert (cls.__name__, cls.__module__) == (name, "libkestrel.records")
        assert len(cls.__doc__) > 10


def test_a_class_has_an_attribute_for_every_member_with_documentation() -> None:
    for record in HEADERS.records:
        members = {m.name for m in record.members if m.kind != "opaque"}
        own = {f.__name__: f for f in getattr(records, record.name).__fields__}
        assert members <= set(own)
        for name, field in own.items():
            assert getattr(getattr(records, record.name), name) is field
            assert field.__doc__
            assert f"at offset {field.offset}" in field.__doc__


@pytest.mark.parametrize("case", PLAIN, ids=str)
def test_an_integer_takes_its_bounds_and_nothing_beyond(case: Case) -> None:
    record = case.make()
    low, high = bounds(case.field)
    for value in (low, high, True):
        setattr(record, case.name, value)
        assert getattr(record, case.name) == value
        assert getattr(_libkestrel, f"{case.record.name}_{case.name}_get")(record) == value
    setattr(record, case.name, high)
    for value in (low - 1, high + 1, 2**64, -(2**64), 10**5000):
        with pytest.raises(OverflowError, match=case.name):
            setattr(record, case.name, value)
    for wrong in ("1", 1.0, float("nan"), None, b"1", object(), [1]):
        with pytest.raises(TypeError):
            setattr(record, case.name, wrong)
    assert getattr(record, case.name) == high
    with pytest.raises(AttributeError):
        delattr(record, case.name)


@pytest.mark.parametrize("case", [c for c in INTEGERS if counts(c)], ids=str)
def test_a_count_takes_no_more_than_the_memory_holds(case: Case) -> None:
    record = case.make()
    kept = getattr(record, case.name)
    with pytest.raises(ValueError, match="does not hold"):
        setattr(record, case.name, bounds(case.field)[1])
    assert getattr(record, case.name) == kept
    setattr(record, case.name, kept)


@pytest.mark.parametrize("case", PLAIN, ids=str)
def test_an_integer_leaves_its_neighbours_alone(case: Case) -> None:
    cls = getattr(records, case.record.name)
    if any(f.kind in ("pointer", "owned_text") for f in cls.__fields__) or issubclass(cls, Table):
        record = cls()
        before = bytes(record)
    else:
        before = b"\xff" * case.record.size
        record = cls.from_bytes(before)
    low, high = bounds(case.field)
    setattr(record, case.name, low if low == 0 else 0)
    changed = [i for i, (a, b) in enumerate(zip(before, bytes(record), strict=True)) if a != b]
    first = case.field.offset
    assert all(first <= i < first + case.field.element.width for i in changed)
    setattr(record, case.name, high if before[0:1] == b"\xff" and low == 0 else 0)
    if low == 0:
        assert bytes(record) == before


@pytest.mark.parametrize("case", [c for c in INTEGERS if c.field.element.target], ids=str)
def test_an_enumeration_reads_as_its_enumerators(case: Case) -> None:
    enumeration = getattr(enums, case.field.element.target)
    record = case.make()
    for enumerator in enumeration:
        setattr(record, case.name, enumerator)
        read = getattr(record, case.name)
        assert isinstance(read, enumeration)
        assert read is enumerator
    setattr(record, case.name, 77)
    assert getattr(record, case.name) == 77


@pytest.mark.parametrize("case", kind("flag"), ids=str)
def test_a_flag_is_a_bool(case: Case) -> None:
    record = case.make()
    for value in (True, False, 1, 0):
        setattr(record, case.name, value)
        assert getattr(record, case.name) is bool(value)
    for wrong, error in ((2, OverflowError), (-1, OverflowError), (10**30, OverflowError), ("1", TypeError)):
        with pytest.raises(error):
            setattr(record, case.name, wrong)
    getattr(_libkestrel, f"{case.record.name}_{case.name}_set")(record, 0x31)
    assert getattr(record, case.name) is True


@pytest.mark.parametrize("case", kind("text", "name"), ids=str)
def test_a_text_takes_what_fits_in_utf8(case: Case) -> None:
    record = case.make()
    width = case.field.element.width
    texts = ["", "a" * (width - 1), "\u00e9" * ((width - 1) // 2), "\udc80" if width > 1 else ""]
    for text in texts:
        setattr(record, case.name, text)
        assert getattr(record, case.name) == text
        start = case.field.offset
        raw = text.encode(errors="surrogateescape")
        assert bytes(record)[start : start + width] == raw.ljust(width, b"\0")
    kept = getattr(record, case.name)
    for wrong in ("a" * width, "\u00e9" * width, "a\0", "\ud800"):
        with pytest.raises(ValueError):
            setattr(record, case.name, wrong)
    for kind_of in (b"a", 1, None, ["a"]):
        with pytest.raises(TypeError):
            setattr(record, case.name, kind_of)
    assert getattr(record, case.name) == kept


@pytest.mark.parametrize("case", kind("mac"), ids=str)
def test_a_mac_address_is_one(case: Case) -> None:
    record = case.make()
    address = MacAddress("02:00:00:0a:0b:0c")
    for value in (
        address,
        "02:00:00:0a:0b:0c",
        "02-00-00-0A-0B-0C",
        "0200000a0b0c",
        address.packed,
        bytearray(address.packed),
    ):
        setattr(record, case.name, "ff:ff:ff:ff:ff:ff")
        setattr(record, case.name, value)
        assert getattr(record, case.name) == address
        assert bytes(record)[case.field.offset :][:6] == address.packed
    for wrong in ("", "02:00:00:0a:0b", "02:00:00:0a:0b:0g", "02:00-00:0a:0b:0c", b"12345", b"1234567"):
        with pytest.raises(ValueError):
            setattr(record, case.name, wrong)
    for wrong_kind in (None, 5, 1.0, [1, 2, 3, 4, 5, 6]):
        with pytest.raises(TypeError):
            setattr(record, case.name, wrong_kind)


@pytest.mark.parametrize("case", kind("ipv4", "ipv6"), ids=str)
def test_an_ip_address_is_one_in_network_byte_order(case: Case) -> None:
    record = case.make()
    six = case.field.element.kind == "ipv6"
    address = IPv6Address("2001:db8::7") if six else IPv4Address("192.0.2.7")
    for value in (address, str(address)):
        setattr(record, case.name, value)
        assert getattr(record, case.name) == address
        assert bytes(record)[case.field.offset :][: len(address.packed)] == address.packed
    with pytest.raises(ValueError):
        setattr(record, case.name, "nonsense")
    for wrong in (1, None, address.packed, IPv4Address(1) if six else IPv6Address(1)):
        with pytest.raises(TypeError):
            setattr(record, case.name, wrong)


@pytest.mark.parametrize("case", [c for c in VALUES if c.field.element.kind == "record"], ids=str)
def test_a_record_within_is_a_view_and_copied_when_set(case: Case) -> None:
    record = case.make()
    part = getattr(record, case.name)
    assert type(part) is getattr(records, case.field.element.target)
    assert part.owner is record
    assert not part.owned
    assert part == type(part)()
    with pytest.raises((TypeError, AttributeError)):
        setattr(record, case.name, object())
    if case.field.read_only:
        with pytest.raises(AttributeError):
            setattr(record, case.name, part)
    else:
        other = type(part).from_bytes(b"\x01" * part.nbytes)
        setattr(record, case.name, other)
        assert bytes(part) == bytes(other)
        other.release()
        assert bytes(part) == b"\x01" * part.nbytes


@pytest.mark.parametrize("case", [c for c in CASES if c.field.count is not None], ids=str)
def test_a_fixed_array_is_a_sequence_with_bounds(case: Case) -> None:
    record = case.make()
    array = getattr(record, case.name)
    count = case.field.count
    assert count is not None
    assert isinstance(array, Array)
    assert len(array) == len(list(array)) == count
    assert array[-1] == array[count - 1]
    for index in (count, -count - 1, 2**70):
        with pytest.raises(IndexError):
            array[index]
        with pytest.raises(IndexError):
            array[index] = array[0]
    with pytest.raises(TypeError):
        array["0"]  # type: ignore[call-overload]
    with pytest.raises(ValueError, match=f"has {count} elements"):
        setattr(record, case.name, [array[0]] * (count + 1))
    setattr(record, case.name, list(array))
    assert array == list(array)
    before = bytes(record)
    with pytest.raises((TypeError, ValueError, OverflowError)):
        setattr(record, case.name, [array[0]] * (count - 1) + [2**200])
    assert bytes(record) == before


def test_an_enumeration_is_made_when_asked_for() -> None:
    names = {c.enumeration for c in HEADERS.constants if c.enumeration}
    assert set(enums.__all__) == names
    for name in names:
        enumeration = getattr(enums, name)
        assert issubclass(enumeration, int)
        own = {c.name: c.value for c in HEADERS.constants if c.enumeration == name}
        assert {k: int(v) for k, v in enumeration.__members__.items()} == own
    assert issubclass(enums.zel_LinkState, IntEnum)
    with pytest.raises(AttributeError):
        enums.nothing  # type: ignore[attr-defined]


def test_keywords_name_members() -> None:
    info = records.VSInfo(mtu=9000, dvsName="a")
    assert (info.mtu, info.dvsName, info.maxPorts) == (9000, "a", 0)
    with pytest.raises(TypeError, match="no member 'nothing'"):
        records.VSInfo(nothing=1)  # type: ignore[call-arg]
    with pytest.raises(TypeError, match="by keyword"):
        records.VSInfo(1)  # type: ignore[call-arg]
    with pytest.raises(TypeError):
        records.VSInfo(to_dict=1)  # type: ignore[call-arg]


def test_classes_are_closed() -> None:
    with pytest.raises(TypeError):
        type("Mine", (records.VSInfo,), {})
    with pytest.raises(TypeError):
        records.VSInfo.mtu = 5  # type: ignore[assignment]
    info = records.VSInfo()
    with pytest.raises(AttributeError):
        info.nothing = 1  # type: ignore[attr-defined]
    with pytest.raises(TypeError):
        info.__class__ = records.VSPortInfo  # type: ignore[assignment]
    with pytest.raises(TypeError):
        records.VSInfo.__dict__["mtu"].__get__(records.VSPortInfo())
    with pytest.raises(TypeError):
        hash(info)
    with pytest.raises(TypeError, match="base of the record classes"):
        Record()


@pytest.mark.parametrize("text", ["00:50:56:0a:0b:0c", "01:00:5e:00:00:01", "ff:ff:ff:ff:ff:ff", "00:00:00:00:00:00"])
def test_mac_addresses_compare_hash_and_convert(text: str) -> None:
    address = MacAddress(text)
    assert str(address) == text
    assert repr(address) == f"MacAddress('{text}')"
    assert MacAddress(int(address)) == MacAddress(address.packed) == MacAddress(address) == address
    assert hash(address) == hash(MacAddress(text.upper()))
    assert bytes(address) == address.packed == bytes.fromhex(text.replace(":", ""))
    assert address.is_multicast == bool(address.packed[0] & 1)
    assert MacAddress(0) <= address <= MacAddress(2**48 - 1)
    assert address != text
    for wrong, error in ((2**48, OverflowError), (-1, OverflowError), (None, TypeError), ("x", ValueError)):
        with pytest.raises(error):
            MacAddress(wrong)  # type: ignore[arg-type]


def test_pointers_are_equal_by_address_and_shown_by_their_class() -> None:
    first, second, target = records.zel_ListLinks(), records.zel_ListLinks(), records.zel_ListLinks()
    first.nextPtr = second.nextPtr = target
    assert first == second
    second.prevPtr = first
    assert first != second
    assert repr(first) == "zel_ListLinks(prevPtr=None, nextPtr=<zel_ListLinks>)"


def test_a_record_is_like_records_of_its_class_alone() -> None:
    link = records.zel_ListLinks()
    assert link != records.VSUplinkPortIds(1)
    assert link.__eq__(5) is NotImplemented
    assert (link == 5) is False
