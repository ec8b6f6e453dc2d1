"""Records that entries follow: counts, entries, rows, columns and buffers."""

from __future__ import annotations

import ctypes
import importlib
import json
from typing import Any

import _libkestrel
import pytest

from headers import model
from headers.record_fields import ARRAYS, Field, fields
from libkestrel import records
from libkestrel.records import Array, MacAddress, Rows, Table
from support import memory

HEADERS = model.read()
numpy: Any = importlib.import_module("numpy")
"""Its own types say more than is of use here, and take long to read."""
FOLLOWING = [(r.name, f) for r in HEADERS.records for f in fields(HEADERS, r) if f.follows]
SAMPLES: dict[str, Any] = {"mac": "02:00:00:00:00:01", "ipv4": "192.0.2.1", "ipv6": "2001:db8::1", "text": "abc"}
SAMPLES |= {"name": "vmnic1", "u8": 7, "u32": 70000}


def sample(field: Field) -> Any:
    if field.element.kind == "record":
        return getattr(records, field.element.target)()
    return SAMPLES[field.element.kind]


@pytest.mark.parametrize(("name", "field"), FOLLOWING, ids=[f"{n}.{f.name}" for n, f in FOLLOWING])
@pytest.mark.parametrize("count", [0, 1, 3])
def test_entries_by_keyword_are_counted(name: str, field: Field, count: int) -> None:
    cls = getattr(records, name)
    extra = (
        {"checksumPresent": count > 0, "keyPresent": count > 1, "ackPresent": count > 2} if name == "zel_GREHdr" else {}
    )
    table = cls(**{field.name: [sample(field)] * count}, **extra)
    assert isinstance(table, Table)
    entries = getattr(table, field.name)
    assert len(entries) == count
    assert all(str(entry) == str(sample(field)) for entry in entries)
    assert len(bytes(table)) == table.nbytes
    assert cls.from_bytes(bytes(table)) == table
    if not any(f.overlaid for n, f in FOLLOWING if n == name) or table._shown.__name__ == field.name:
        again = cls.from_dict(json.loads(json.dumps(table.to_dict())))
        assert again == table
        assert bytes(again) == bytes(table)


@pytest.mark.parametrize(("name", "field"), FOLLOWING, ids=[f"{n}.{f.name}" for n, f in FOLLOWING])
def test_bytes_that_do_not_fit_the_counts_are_refused(name: str, field: Field) -> None:
    cls = getattr(records, name)
    if name == "zel_GREHdr":
        return
    data = bytes(cls(**{field.name: [sample(field)] * 2}))
    for wrong in (data[:-1], data[:-3], b""):
        with pytest.raises(ValueError):
            cls.from_bytes(wrong)


@pytest.mark.parametrize("name", sorted(ARRAYS))
def test_a_plain_array_has_the_elements_it_was_made_for(name: str) -> None:
    cls = getattr(records, name)
    array = cls(3)
    assert len(array) == 3
    assert len(array.elements) == 3
    filled = cls(elements=[array[0]] * 5)
    assert len(filled) == 5
    pointer = array.this
    getattr(_libkestrel, f"{name}_setitem")(array, 1, array[2])
    assert int(pointer) == int(array.this)
    with pytest.raises(IndexError):
        array[3]


def test_an_array_goes_where_the_flat_module_takes_its_elements() -> None:
    ranges = records.vidrangeArray(elements=[{"minVID": 5, "maxVID": 9}, {"minVID": 20, "maxVID": 30}])
    second = _libkestrel.vidrangeArray_getitem(ranges, 1)
    assert (_libkestrel.zel_VDSPortVIDRange_minVID_get(second), second.maxVID) == (20, 30)
    assert _libkestrel.zel_VDSPortVIDRange_minVID_get(ranges) == 5
    del ranges


def mac_table(count: int) -> records.VSMACTable:
    table = records.VSMACTable(count)
    for i, entry in enumerate(table):
        entry.macAddress = MacAddress(i)
        entry.portID = 2**25 + i % 7
        entry.vid = i % 4095
        entry.aging = i % 2 == 0
        entry.elapsed = i
    return table


def test_rows_are_the_values_of_the_columns() -> None:
    table = mac_table(1000)
    rows = table.rows()
    assert isinstance(rows, Rows)
    names = list(table.columns())
    assert names == [f.name for f in fields(HEADERS, HEADERS.record("VSMACEntry"))]
    expected = [tuple(getattr(entry, name) for name in names) for entry in table]
    assert list(rows) == expected
    assert [row for row in rows] == expected  # noqa: C416
    assert rows[-1] == expected[-1]
    assert rows[10:0:-3] == expected[10:0:-3]
    assert len(rows) == 1000
    with pytest.raises(IndexError):
        rows[1000]
    columns = table.columns()
    assert [list(columns[name]) for name in names] == [list(column) for column in zip(*expected, strict=True)]


def test_rows_that_are_kept_stay_as_they_were() -> None:
    kept = []
    addresses = []
    for row in mac_table(50).rows():
        addresses.append(row[0])
        if row[6] % 3 == 0:
            kept.append(row)
    assert [int(address) for address in addresses] == list(range(50))
    assert [row[6] for row in kept] == list(range(0, 50, 3))
    assert [int(row[0]) for row in kept] == list(range(0, 50, 3))


def test_columns_of_records_within_carry_both_names() -> None:
    table = records.VSMACLearningStats(macLearningEntries=[{"portID": 3, "portStats": {"numMACsMoved": 2**40}}])
    assert list(table.columns()) == [
        "portID",
        "portStats.numMACsLearned",
        "portStats.noLearningAllowedPkts",
        "portStats.noLearningDroppedPkts",
        "portStats.numMACsMoved",
    ]
    assert list(table.rows()) == [(3, 0, 0, 0, 2**40)]


@pytest.mark.parametrize(("name", "field"), FOLLOWING, ids=[f"{n}.{f.name}" for n, f in FOLLOWING])
def test_every_table_has_rows_columns_and_a_buffer(name: str, field: Field) -> None:
    cls = getattr(records, name)
    extra = {"checksumPresent": 1, "keyPresent": 1} if name == "zel_GREHdr" else {}
    table = cls(**{field.name: [sample(field)] * 2}, **extra)
    entries = getattr(table, field.name)
    if isinstance(entries, Array):
        assert len(list(entries.rows())) == 2
        assert all(len(column) == 2 for column in entries.columns().values())
        view = memoryview(entries)
        assert view.readonly
        assert view.shape is not None
        assert view.strides is not None
        assert view.shape[0] == 2
        assert view.tobytes() == bytes(table)[field.offset : field.offset + 2 * view.strides[0]] or field.counter
        view.release()
    if field is next(f for n, f in FOLLOWING if n == name):
        assert len(list(table.rows())) == 2
        assert all(len(column) == 2 for column in table.columns().values())
        memoryview(table).release()


def test_a_column_lies_over_the_tables_own_memory() -> None:
    table = mac_table(100)
    column = memoryview(table.columns()["portID"])
    assert (column.format, column.shape, column.strides, column.readonly) == ("I", (100,), (26,), True)
    table[5].portID = 77
    assert column[5] == 77
    addresses = memoryview(table.columns()["macAddress"])
    assert (addresses.format, addresses.shape, addresses.strides) == ("B", (100, 6), (26, 1))
    assert bytes(addresses.tolist()[3]) == MacAddress(3).packed
    with pytest.raises(BufferError):
        table.release()
    column.release()
    addresses.release()
    table.release()
    with pytest.raises(ReferenceError):
        table.rows()


def test_the_buffer_of_a_table_is_structured() -> None:
    view = memoryview(mac_table(3))
    assert view.format == ("T{(6)B:macAddress:<B:macAddrType:<I:portID:<?:aging:<H:vid:<I:vni:<I:elapsed:<I:macMove:}")
    assert (view.itemsize, view.shape) == (26, (3,))
    assert memoryview(records.VSInfo(mtu=5))[:4].tobytes() == b"\x05\0\0\0"


def test_buffers_are_for_reading() -> None:
    table = mac_table(2)
    with pytest.raises(TypeError):
        memoryview(table.columns()["vid"])[0] = 5
    with pytest.raises((BufferError, TypeError)):
        memoryview(records.VSInfo())[0] = 5


def test_numpy_takes_tables_and_columns_without_a_copy() -> None:
    table = mac_table(10)
    array = numpy.asarray(table)
    assert array.dtype.names == tuple(table.columns())
    assert array["vid"].tolist() == [row[4] for row in table.rows()]
    for name, column in table.columns().items():
        values = numpy.asarray(column)
        assert not values.flags.owndata
        assert values.tolist() == array[name].tolist()
    every = records.VSStaticLeCtxEntries(2)
    assert numpy.asarray(every).dtype.itemsize == 529
    groups = records.VSMcastFilters(ipv4Entries=["192.0.2.1"])
    assert numpy.asarray(groups.ipv4Entries).tolist() == [0xC0000201]


def test_lists_of_names_have_the_width_that_their_kind_tells() -> None:
    for kind, width in ((_libkestrel.VS_LIST_PS, 128), (_libkestrel.VS_LIST_PS + 1, 81)):
        names = records.VSList(listType=kind, switches=["one", "two"])
        assert list(names) == ["one", "two"]
        assert names.nbytes == 8 + 2 * width
        assert _libkestrel.VSList___getitem__(names, 1) == "two"
        with pytest.raises(ValueError):
            names[0] = "x" * width
        assert [row[0] for row in names.rows()] == ["one", "two"]


def test_what_the_platform_does_not_tell_the_kind_of_shows_what_is_there_in_any_case() -> None:
    made = records.VSMcastFilters(macEntries=["01:00:5e:00:00:01", "01:00:5e:00:00:02"])
    made.numEntries = 1
    assert [str(a) for a in made.macEntries] == ["01:00:5e:00:00:01"]
    assert [str(a) for a in records.VSMcastFilters(ipv6Entries=["ff02::1"])] == ["ff02::1"]
    assert [str(a) for a in records.VSMcastFilters(ipv4Entries=["239.0.0.1"])] == ["239.0.0.1"]
    block = memory.allocated(bytes(records.VSMcastFilters(macEntries=["01:00:5e:00:00:01"] * 3)))
    foreign = records.VSMcastFilters.from_pointer(pointer_to(block))
    assert not foreign.owned
    with pytest.raises(ValueError, match="macEntries"):
        foreign.macEntries
    assert foreign.entries_as("macEntries") is foreign
    assert len(foreign.macEntries) == 3
    for wrong in ("nothing", None, 5):
        with pytest.raises(ValueError):
            foreign.entries_as(wrong)  # type: ignore[arg-type]
    memory.free(foreign.this)


def pointer_to(address: int) -> Any:
    """A pointer object that owns nothing, as the platform's records come in."""
    pointer = records.VSMcastFilters().this
    memory.free(pointer)
    pointer.disown()
    ctypes.c_void_p.from_address(id(pointer) + object.__basicsize__).value = address
    return pointer


def test_groups_that_vary_in_length_are_walked() -> None:
    lags: list[Any] = [
        {"name": "a", "uplinkNames": ["vmnic0"]},
        {"name": "b"},
        {"name": "c", "uplinkNames": ["x", "y", "z"]},
    ]
    table = records.VSLAGTable(lags=lags)
    assert [list(lag.uplinkNames) for lag in table] == [["vmnic0"], [], ["x", "y", "z"]]
    assert table.nbytes == 4 + 3 * 88 + 4 * 32
    first = _libkestrel.VSLAGTable_vs_lag_table_first_lag(table)
    assert first.owner is table
    assert first == table[0]
    assert _libkestrel.VSLAGStatus_vs_lag_table_next_lag(first) == table[1]
    assert table.rows()[2][-1] == ("x", "y", "z")
    with pytest.raises(ValueError):
        table[0].numUplinks = 2
    report = records.zel_IGMPv3ReportHdr(record=[{"sourcesIPv4": ["192.0.2.1"]}, {"groupIPv4Addr": "239.0.0.1"}])
    assert report.numGroups == 0x0200
    assert [str(group.groupIPv4Addr) for group in report] == ["0.0.0.0", "239.0.0.1"]


def test_a_mirror_table_holds_four_runs() -> None:
    table = records.DVMirrorSessionTable(
        sessions=[{"sid": "a"}, {"sid": "b"}],
        entities=[{"type": 4, "portId": 9}],
        filterRules=[{"protocol": 6}],
        filterIPs=[{"prefix_length": 24}] * 2,
    )
    assert table.nbytes == 20 + 2 * 232 + 52 + 21 + 2 * 20
    assert [s.sid for s in table] == ["a", "b"]
    assert _libkestrel.DVMirrorSessionTable_get_first_session_entity(table, 0).portId == 9
    assert table.filterRules[0].protocol == 6
    assert [p.prefix_length for p in table.filterIPs] == [24, 24]
    assert json.loads(json.dumps(table.to_dict()))["sessions"][1]["sid"] == "b"


def test_the_flat_module_and_the_class_see_the_same_runtime_options() -> None:
    options = records.VSRuntimeOptions(64)
    assert options.totalLength == 64
    place = _libkestrel.VSRuntimeOptions_get_first_option(options)
    place = _libkestrel.VSRuntimeOptions_add_int_option(options, place, None, 3, 5)
    _libkestrel.VSRuntimeOptions_add_int_option(options, place, None, 4, 6)
    assert [(o.type, bytes(o.data)) for o in options][:2] == [(3, b"\x05\0\0\0"), (4, b"\x06\0\0\0")]


def test_room_is_counted_and_bounded() -> None:
    table = records.VSPortList(4)
    assert (table.numPorts, list(table)) == (4, [0, 0, 0, 0])
    table.numPorts = 2
    assert len(table) == 2
    table.ports = [8, 9]
    assert list(table.ports) == [8, 9]
    with pytest.raises(ValueError):
        table.ports = [1]
    with pytest.raises(ValueError):
        records.VSPortList(3, ports=[1])
    for room, error in ((-1, ValueError), (2**62, MemoryError), (2**80, OverflowError), ("x", TypeError)):
        with pytest.raises(error):
            records.VSPortList(room)  # type: ignore[arg-type]
    with pytest.raises(OverflowError, match="cannot count"):
        records.VSUserMcastLegacyKeys(256)
    with pytest.raises(TypeError):
        records.VSPortList(ports=5)  # type: ignore[arg-type]
    assert bool(records.VSPortList())
    assert len(records.VSPortList()) == 0
