"""What record classes tell of themselves, and what sequences, addresses and the classes' making refuse."""

from __future__ import annotations

import collections
import copy
import io
import pickle
import zlib
from typing import Any, cast

import _libkestrel
import pytest

from headers import model
from headers.record_fields import Field, fields
from libkestrel import _records, enums, records
from libkestrel.records import MacAddress

HEADERS = model.read()
FIELDS = [(record.name, field) for record in HEADERS.records for field in fields(HEADERS, record)]


@pytest.mark.parametrize(("name", "field"), FIELDS, ids=lambda part: part.name if isinstance(part, Field) else part)
def test_a_descriptor_tells_what_the_header_says(name: str, field: Field) -> None:
    cls = getattr(records, name)
    told = getattr(cls, field.name)
    assert isinstance(told, records.Field)
    assert (told.__name__, told.__qualname__, told.__objclass__) == (field.name, f"{name}.{field.name}", cls)
    assert repr(told) == f"<member '{field.name}' of '{name}'>"
    assert (told.offset, told.width, told.bits) == (field.offset, field.element.width, field.element.bits)
    assert told.shape == ("follows" if field.follows else "value" if field.count is None else "fixed")
    assert (told.count, told.read_only, told.overlaid) == (field.count, field.read_only, field.overlaid)
    target = field.element.target if field.element.kind in ("record", "pointer") else ""
    assert told.target is (getattr(records, target) if target else None)


def test_members_that_count_say_so() -> None:
    counting = {name for name, field in FIELDS if getattr(getattr(records, name), field.name).counts}
    assert {"VSUplinkPorts", "VSMACTable", "LSTeamTable"} <= counting


def test_descriptors_serve_their_class_alone() -> None:
    link, told = records.zel_ListLinks(), cast(Any, records.VSInfo.mtu)
    with pytest.raises(TypeError):
        told.__get__(link, None)
    with pytest.raises(TypeError):
        told.__set__(link, 5)
    with pytest.raises(AttributeError):
        del records.VSInfo().mtu
    assert told.__get__(None, records.VSInfo) is told


# ---- Sequences ----


def test_arrays_are_shown_and_compared_by_their_elements() -> None:
    ids: Any = records.VSPortList(ports=[7, 8, 9]).ports
    assert repr(ids) == "Array([7, 8, 9])"
    assert ids == [7, 8, 9]
    assert ids == (7, 8, 9)
    assert ids != [7, 8]
    with pytest.raises(TypeError):
        _ = ids < [7]
    assert ids.__eq__(5) is NotImplemented
    many = records.VSPortList(ports=[0] * 20).ports
    assert repr(many) == f"Array([{', '.join(['0'] * 16)}] and 4 more)"


def test_elements_are_never_deleted() -> None:
    ids: Any = records.VSPortList(ports=[1, 2, 3]).ports
    for wrong in (0, slice(0, 2)):
        with pytest.raises(TypeError, match="elements are not deleted"):
            del ids[wrong]
    ids[::2] = (5, 6)
    assert list(ids) == [5, 2, 6]
    with pytest.raises(TypeError):
        ids["a":2] = (1, 2)


def test_buffers_are_for_reading_and_as_they_lie() -> None:
    ids: Any = records.VSPortList(ports=[1, 2, 3, 4]).ports
    assert memoryview(ids).tolist() == [1, 2, 3, 4]
    with pytest.raises(TypeError, match="read-write"):  # asks for a buffer to write to
        io.BytesIO(b"abcdefgh").readinto(ids)
    assert memoryview(ids[::2]).tolist() == [1, 3]
    with pytest.raises(BufferError, match="side by side"):
        zlib.crc32(ids[::2])
    assert zlib.crc32(ids[1:3]) == zlib.crc32(bytes(records.VSPortList(ports=[2, 3]))[4:])


def test_rows_that_are_dropped_at_once_are_made_over() -> None:
    table = records.VSMACTable(3)
    for index, entry in enumerate(table):
        entry.macAddress = MacAddress(index)
    seen = list(map(str, (row[-1] for row in table.rows())))
    collections.deque(table.rows(), maxlen=0)
    assert seen == list(map(str, (row[-1] for row in table.rows())))


# ---- Addresses and enumerations ----


def test_addresses_are_values() -> None:
    address = MacAddress("02-00-00-AB-cd-ef")
    assert str(address) == "02:00:00:ab:cd:ef"
    assert (address.is_local, MacAddress("00:00:00:00:00:01").is_local) == (True, False)
    for again in (copy.copy(address), copy.deepcopy(address), pickle.loads(pickle.dumps(address))):
        assert again == address
    assert sorted([MacAddress(2), MacAddress(1)]) == [MacAddress(1), MacAddress(2)]
    assert MacAddress(1) <= MacAddress(1) < MacAddress(2) >= MacAddress(1) > MacAddress(0)
    for wrong in ("02.00.00.ab.cd.ef", "02:00:00:ab:cd:eg", "02:00:00:ab:cd:g0", "02:00:00-ab:cd:ef", 2**48, 2**64, -1):
        with pytest.raises((ValueError, OverflowError)):
            MacAddress(wrong)
    with pytest.raises(TypeError):
        MacAddress(1, 2)  # type: ignore[call-arg]


def test_enumerations_are_known_by_name() -> None:
    assert _records.enumeration("DVSPortType") is enums.DVSPortType
    for wrong in ("Nothing", 5, "\ud800"):
        with pytest.raises((KeyError, UnicodeEncodeError)):
            cast(Any, _records).enumeration(wrong)


# ---- Making ----


def test_the_classes_are_made_once() -> None:
    make_classes = cast(Any, _records.make_classes)
    bases = records.VSInfo.__mro__[1], records.VSMACTable.__mro__[1]
    assert make_classes(*bases, _libkestrel)["VSInfo"] is records.VSInfo
    others = [type(base.__name__, (base,), {"__slots__": ()}) for base in bases]
    with pytest.raises(RuntimeError, match="the classes are made already"):
        make_classes(*others, _libkestrel)
    with pytest.raises(TypeError, match="a class below RecordBase"):
        make_classes(int, int, _libkestrel)
    with pytest.raises(TypeError):
        make_classes(5)


def test_an_instance_is_made_by_calling_its_class() -> None:
    with pytest.raises(TypeError, match="call VSInfo to make one"):
        cast(Any, records.VSInfo).__new__(records.VSInfo, 5)


def test_a_release_is_a_function() -> None:
    status, table = _libkestrel.VSZEL_GetMACTable("dvs-prod", _libkestrel.VS_MAC_ADDR_TYPE_ALL)
    assert status == _libkestrel.ZEL_OK
    with pytest.raises(TypeError, match="a function is wanted, not int"):
        table.release_with(5)
    table.release_with(_libkestrel.VSZEL_FreeMemory).release()
