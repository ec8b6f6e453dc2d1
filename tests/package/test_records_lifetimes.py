"""Who owns a record's memory, what keeps it, and what happens when it has gone."""

from __future__ import annotations

import copy
import gc
import pickle
from collections.abc import Callable
from typing import Any

import _libkestrel
import pytest

from libkestrel import host, records
from libkestrel.records import Record


def assert_gone(record: Any) -> None:
    uses: list[Callable[[], Any]] = [
        lambda: [getattr(record, f.__name__) for f in type(record).__fields__],
        lambda: setattr(record, type(record).__fields__[0].__name__, 0),
        lambda: bytes(record),
        lambda: memoryview(record),
        lambda: record.copy(),
        lambda: record.this,
        lambda: record.to_dict(),
    ]
    for use in uses:
        with pytest.raises(ReferenceError):
            use()
    assert record.released
    assert repr(record) == f"<released {type(record).__name__}>"


def test_a_released_record_and_its_parts_raise() -> None:
    info = records.VSPortInfo(clientName="vm")
    stats, array, vlan = info.stats, info.fixedHwID, info.ethFrpAccepted.multicastAddrs
    info.release()
    info.release()
    assert_gone(info)
    assert_gone(stats)
    assert str(array) == "00:00:00:00:00:00"
    with pytest.raises(ReferenceError):
        vlan[0]
    with pytest.raises(ReferenceError):
        vlan[0] = "00:00:00:00:00:01"
    with pytest.raises(ReferenceError):
        len(vlan)


@pytest.mark.parametrize("collect", [False, True])
def test_a_part_keeps_the_whole(collect: bool) -> None:
    table = records.VSMACTable(macEntries=[{"vid": i} for i in range(100)])
    entry, rows, column = table[42], table.rows(), table.columns()["vid"]
    del table
    if collect:
        gc.collect()
    junk = [records.VSMACTable(100) for _ in range(50)]
    assert (entry.vid, rows[7][4], column[9]) == (42, 7, 9)
    assert entry.owner[99].vid == 99
    del junk


def test_what_the_flat_module_finds_in_a_record_keeps_it() -> None:
    info = records.VSPortInfo()
    info.stats.pktsRx = 7
    part = _libkestrel.VSPortInfo_stats_get(info)
    assert part.owner is info
    assert not part.owned
    del info
    gc.collect()
    junk = [records.VSPortInfo() for _ in range(50)]
    assert part.pktsRx == 7
    del junk


def test_a_pointer_object_and_its_record_share_the_memory() -> None:
    pointer = _libkestrel.new_VSInfo()
    info = records.VSInfo.from_pointer(pointer)
    info.mtu = 1500
    assert _libkestrel.VSInfo_mtu_get(pointer) == 1500
    assert info.owned
    del pointer
    assert info.mtu == 1500
    other = records.VSInfo.from_pointer(info.this)
    del info
    gc.collect()
    assert other.mtu == 1500


@pytest.mark.parametrize("made", ["class", "constructor"])
def test_the_flat_module_deletes_it(made: str) -> None:
    info = records.VSInfo() if made == "class" else records.VSInfo.from_pointer(_libkestrel.new_VSInfo())
    _libkestrel.delete_VSInfo(info)
    with pytest.raises(ReferenceError, match="taken the memory"):
        info.mtu = 5
    assert_gone(info)


def test_an_array_deleted_by_the_flat_module_is_gone() -> None:
    array = records.vidrangeArray(3)
    _libkestrel.delete_vidrangeArray(array)
    with pytest.raises(ReferenceError):
        array[0]


def test_a_pointer_object_outlives_the_record() -> None:
    info = records.VSInfo(mtu=9000)
    pointer = info.this
    assert pointer.own()
    del info
    gc.collect()
    assert _libkestrel.VSInfo_mtu_get(pointer) == 9000


def test_memory_given_to_a_record_moves_there_visibly() -> None:
    table = records.VSMACTable(3)
    request = records.VSMACGetDynamic(macTable=table)
    assert request.macTable is table
    assert (table.owned, table.owner) == (False, request)
    with pytest.raises(ValueError, match="belongs to another"):
        table.release()
    request.macTable = None
    assert (table.owned, table.owner) == (True, None)
    request.macTable = table
    del request
    gc.collect()
    assert (table.owned, table.owner) == (True, None)
    table.release()


def test_a_pointer_keeps_what_it_points_to() -> None:
    request = records.VSMACGetDynamic(macTable=records.VSMACTable(macEntries=[{"vid": 5}]))
    gc.collect()
    assert request.macTable is not None
    assert request.macTable[0].vid == 5
    assert _libkestrel.VSMACGetDynamic_macTable_get(request)[0].vid == 5
    text = records.zel_String(buffer=bytearray(b"abc"), stringLength=3)
    gc.collect()
    assert bytes(text.buffer) == b"abc"
    data = bytearray(b"abc")
    text.buffer = data
    with pytest.raises(BufferError):
        data.append(1)
    text.buffer = None
    data.append(1)
    for wrong in (5, "abc", records.VSInfo):
        with pytest.raises(TypeError):
            text.buffer = wrong
    with pytest.raises(TypeError):
        request.macTable = records.VSInfo()  # type: ignore[assignment]


def test_lists_that_lead_back_to_themselves_are_collected() -> None:
    gc.collect()
    before = sum(isinstance(o, Record) for o in gc.get_objects())
    for _ in range(100):
        one, two = records.zel_ListLinks(), records.zel_ListLinks()
        one.nextPtr = one.prevPtr = two
        two.nextPtr = two.prevPtr = one
        alone = records.zel_ListLinks()
        alone.nextPtr = alone
        assert one.nextPtr.nextPtr is one
        assert one == one.copy()
    del one, two, alone
    gc.collect()
    assert sum(isinstance(o, Record) for o in gc.get_objects()) <= before + 2


def test_pointers_to_what_was_deleted_raise() -> None:
    one, two = records.zel_ListLinks(), records.zel_ListLinks()
    one.nextPtr = two
    _libkestrel.delete_zel_ListLinks(two)
    with pytest.raises(ReferenceError):
        one.nextPtr


def test_text_that_a_record_owns_is_the_same_for_both() -> None:
    query = records.VDSQuery(propValue="value")
    assert _libkestrel.VDSQuery_propValue_get(query) == "value"
    _libkestrel.VDSQuery_propValue_set(query, "other")
    assert query.propValue == "other"
    assert query.copy() == query
    query.propValue = None
    assert query.propValue is None


def test_bytes_cannot_bring_pointers() -> None:
    for name in ("VDSQuery", "VSMACGetDynamic", "zel_ListLinks", "zel_String", "zel_MgmtVectorParm"):
        cls = getattr(records, name)
        empty = bytes(cls())
        assert cls.from_bytes(empty) == cls()
        with pytest.raises(ValueError, match="pointer"):
            cls.from_bytes(b"\xff" * len(empty))


def test_memory_under_another_records_type_is_no_record(bench: host.Switch) -> None:
    kind = host.PrivateVlanKind.PROMISCUOUS
    bench.private_vlans = (host.PrivateVlanEntry(100, 100, kind),)
    status, handed_out, count = _libkestrel.VSDVS_GetPrivateVLANMap(bench.name)
    assert (status, count) == (_libkestrel.ZEL_OK, 1)
    assert not isinstance(handed_out, records.VSUplinkPorts)
    assert "'VSUplinkPorts *'" in repr(handed_out) or "'struct VSUplinkPorts *'" in repr(handed_out)
    assert _libkestrel.VSDVS_FreeMemory(handed_out) == _libkestrel.ZEL_OK


def test_platform_memory_goes_back_exactly_once() -> None:
    released = []

    def free(pointer: Any) -> int:
        released.append(int(pointer))
        _libkestrel.free_ls_team_table(pointer)
        return 7

    table = _libkestrel.alloc_ls_team_table(2)
    assert isinstance(table, records.LSTeamTable)
    assert (len(table), table.owned) == (2, False)
    assert table.release_with(free) is table
    assert table.owned
    with pytest.raises(ValueError):
        table.release_with(free)
    entry = table[1]
    entry.name = "team"
    address = int(table.this)
    del table
    gc.collect()
    assert released == []
    assert entry.name == "team"
    del entry
    gc.collect()
    assert released == [address]
    with _libkestrel.alloc_ls_team_table(1).release_with(free) as other:
        assert len(other) == 1
    assert len(released) == 2
    assert_gone(other)
    last = _libkestrel.alloc_ls_team_table(1).release_with(free)
    assert last.release() == 7
    with pytest.raises(ValueError):
        records.VSInfo().release_with(free)


def test_a_releasing_function_in_a_cycle_is_called() -> None:
    released = []

    class Keeper:
        def free(self, pointer: Any) -> None:
            released.append(True)
            _libkestrel.free_ls_team_table(pointer)

    keeper = Keeper()
    keeper.table = _libkestrel.alloc_ls_team_table(1).release_with(keeper.free)  # type: ignore[attr-defined]
    del keeper
    gc.collect()
    assert released == [True]


def test_foreign_memory_is_bounded_by_what_it_counted() -> None:
    table = _libkestrel.alloc_ls_team_table(2).release_with(_libkestrel.free_ls_team_table)
    with pytest.raises(ValueError):
        table.numLSTeam = 3
    table.numLSTeam = 1
    assert len(table) == 1
    _libkestrel.LSTeamTable_numLSTeam_set(table, 2**31)
    with pytest.raises(ValueError):
        len(table)
    table.release()
    table = _libkestrel.alloc_ls_team_table(0)
    _libkestrel.free_ls_team_table(table)


def test_an_empty_table_has_no_first_entry() -> None:
    table = records.VSMACTable()
    first = _libkestrel.VSMACTable_macEntries_get(table)
    with pytest.raises(ReferenceError, match="nothing is there"):
        first.vid
    assert int(first.this) == int(table.this) + 8


def test_counted_constructors_are_bounded_by_their_block() -> None:
    uplinks = records.VSUplinks.from_pointer(_libkestrel.new_VSUplinks(8))
    with pytest.raises(ValueError):
        len(uplinks)  # entries of 36 bytes where the block has 32 for each
    uplinks.numEntries = 7
    assert len(uplinks) == 7


def test_pointers_of_other_kinds_are_refused() -> None:
    with pytest.raises(TypeError, match="VSInfo"):
        records.VSInfo.from_pointer(records.VSPortInfo().this)
    for wrong in (None, 5, "x", object(), records.VSInfo()):
        with pytest.raises(TypeError):
            records.VSInfo.from_pointer(wrong)
    info = records.VSInfo()
    with pytest.raises(AttributeError):
        info.this = records.VSInfo().this


def test_a_record_without_memory_raises() -> None:
    assert_gone(records.VSInfo.__new__(records.VSInfo))


def test_copies_are_their_own() -> None:
    table = records.VSMACTable(macEntries=[{"vid": 1}, {"vid": 2}])
    for other in (table.copy(), copy.copy(table), copy.deepcopy(table), pickle.loads(pickle.dumps(table))):
        assert other == table
        assert other.owned
        other[0].vid = 9
        assert table[0].vid == 1
        assert other != table
    entry = table[1].copy()
    table.release()
    assert (entry.vid, entry.owned) == (2, True)


def test_mutual_release_while_a_value_is_read() -> None:
    info = records.VSInfo()

    class Releases:
        def __index__(self) -> int:
            info.release()
            return 5

    with pytest.raises(ReferenceError):
        info.mtu = Releases()
    ports = records.VSPortList(2)

    class ReleasesPorts:
        def __index__(self) -> int:
            ports.release()
            return 5

    with pytest.raises(ReferenceError):
        ports.ports = [1, ReleasesPorts()]


def test_a_record_tells_its_address_as_a_pointer_object_does() -> None:
    table = records.VSMACTable(2)
    assert int(table) == int(table.this)
    assert int(table[1]) == int(table[1].this) > int(table[0])
    table.release()
    with pytest.raises(ReferenceError):
        int(table)
