"""The hand-written helpers and methods: switch lists, LAG walks, indexed access, names as text."""

from __future__ import annotations

import ctypes
from typing import Any

import _libkestrel
import pytest

from support import memory
from support.recorder import Address, Call, Recorder

ALIVE: list[Any] = []
"""Blocks that records point into."""


def block(data: bytes) -> int:
    """The address of a block from the C library's allocator."""
    libc = ctypes.CDLL(None)
    libc.malloc.restype = ctypes.c_void_p
    address = libc.malloc(ctypes.c_size_t(max(len(data), 1)))
    ctypes.memmove(address, data, len(data))
    return int(address)


def switch_list(kind: int, *names: bytes, count: int | None = None) -> bytes:
    width = 128 if kind == 1 else 81
    head = (len(names) if count is None else count).to_bytes(4, "little", signed=True) + kind.to_bytes(4, "little")
    return head + b"".join(name.ljust(width, b"\0") for name in names)


def listed(recorder: Recorder, kind: int, *names: bytes, count: int | None = None) -> Any:
    recorder.output("VSZEL_GetSwitches", 1, block(switch_list(kind, *names, count=count)).to_bytes(8, "little"))
    return _libkestrel.VSZEL_GetSwitchesPy(kind)


def lag(name: bytes, *uplinks: bytes) -> bytes:
    head = bytes(8) + name.ljust(68, b"\0") + bytes(8) + len(uplinks).to_bytes(4, "little")
    return head + b"".join(uplink.ljust(32, b"\0") for uplink in uplinks)


def pointed(recorder: Recorder, data: bytes) -> Any:
    """A LAG table that the platform handed out with these bytes."""
    recorder.output("VSZEL_GetLAGTable", 1, block(data).to_bytes(8, "little"))
    return _libkestrel.VSZEL_GetLAGTable("s")[1]


# ---- The list of switches ----


def test_the_switch_list_is_owned_and_its_names_are_texts(recorder: Recorder) -> None:
    for kind in (_libkestrel.VS_LIST_PS, _libkestrel.VS_LIST_DVS_ALIAS):
        switches = listed(recorder, kind, b"DvsPortset-0", "Büro".encode(), b"\xff")
        assert switches.own() is True
        names = [_libkestrel.VSList___getitem__(switches, i) for i in range(3)]
        assert names == ["DvsPortset-0", "Büro", "\udcff"]
    assert recorder.calls()[0].function == "VSZEL_GetSwitches"
    assert recorder.calls()[0].arguments[0] == _libkestrel.VS_LIST_PS


def test_a_name_that_fills_its_width_has_no_terminator(recorder: Recorder) -> None:
    switches = listed(recorder, 1, b"a" * 128, b"b")
    assert _libkestrel.VSList___getitem__(switches, 0) == "a" * 128
    switches = listed(recorder, 2, b"a" * 81, b"b")
    assert _libkestrel.VSList___getitem__(switches, 0) == "a" * 81


@pytest.mark.parametrize("index", [2, 3, 2**31 - 1])
def test_an_index_at_or_above_the_count_prints_a_line(index: int, recorder: Recorder, capfd: Any) -> None:
    switches = listed(recorder, 1, b"a", b"b")
    assert _libkestrel.VSList___getitem__(switches, index) is None
    ctypes.CDLL(None).fflush(None)
    assert capfd.readouterr().out == "Invalid array index\n"


def test_a_negative_index_is_not_reported(recorder: Recorder, capfd: Any) -> None:
    switches = listed(recorder, 1, b"a", b"b")
    for index in (-1, -(2**31)):
        assert _libkestrel.VSList___getitem__(switches, index) is None
    ctypes.CDLL(None).fflush(None)
    assert capfd.readouterr().out == ""


def test_a_count_below_zero_refuses_every_index(recorder: Recorder, capfd: Any) -> None:
    switches = listed(recorder, 1, b"a", count=-1)
    assert _libkestrel.VSList___getitem__(switches, 0) is None
    ctypes.CDLL(None).fflush(None)
    assert capfd.readouterr().out == "Invalid array index\n"


def test_a_failing_platform_prints_the_status(recorder: Recorder, capfd: Any) -> None:
    for status, text in ((0x0BAD0003, "failed: bad0003\n"), (-1, "failed: ffffffff\n")):
        recorder.answer("VSZEL_GetSwitches", status)
        assert _libkestrel.VSZEL_GetSwitchesPy(1) is None
        ctypes.CDLL(None).fflush(None)
        assert capfd.readouterr().out == text


def test_the_kind_of_list_is_a_signed_int(recorder: Recorder) -> None:
    for wrong, exception in (("1", TypeError), (2**31, OverflowError)):
        with pytest.raises(exception) as caught:
            _libkestrel.VSZEL_GetSwitchesPy(wrong)
        assert str(caught.value) == "in method 'VSZEL_GetSwitchesPy', argument 1 of type 'VSListType'"
    assert recorder.calls() == []


def test_lists_from_native_code_are_freed(recorder: Recorder) -> None:
    switches = listed(recorder, 1, b"a")
    switches.this.disown()
    assert _libkestrel.free_switches(switches) is None


# ---- Allocation helpers ----


def test_switch_information_is_allocated_without_owner() -> None:
    info = _libkestrel.alloc_vs_info()
    assert info.own() is False
    assert memory.usable_size(info) >= 210
    assert _libkestrel.free_vs_info(info) is None
    assert _libkestrel.free_vs_info(None) is None
    with pytest.raises(TypeError, match=r"^in method 'free_vs_info', argument 1 of type 'VSInfo \*'$"):
        _libkestrel.free_vs_info(_libkestrel.new_VSStats())


# ---- LAG tables ----


def test_lags_follow_one_another_behind_their_uplinks(recorder: Recorder) -> None:
    table = pointed(
        recorder,
        (3).to_bytes(4, "little") + lag(b"lag-a", b"vmnic0", b"vmnic1") + lag(b"lag-b") + lag(b"lag-c", b"vmnic2"),
    )
    start = memory.address(table)
    first = _libkestrel.VSLAGTable_vs_lag_table_first_lag(table)
    second = _libkestrel.VSLAGStatus_vs_lag_table_next_lag(first)
    third = _libkestrel.VSLAGStatus_vs_lag_table_next_lag(second)
    assert [memory.address(x) - start for x in (first, second, third)] == [4, 4 + 88 + 64, 4 + 88 + 64 + 88]
    assert [x.own() for x in (first, second, third)] == [False] * 3
    assert [_libkestrel.VSLAGStatus_get_name(x) for x in (first, second, third)] == [
        "lag-a",
        "lag-b",
        "lag-c",
    ]
    uplinks = [_libkestrel.VSLAGStatus_get_uplink_name(first, i) for i in range(-1, 3)]
    assert uplinks == [None, "vmnic0", "vmnic1", None]
    assert _libkestrel.VSLAGStatus_get_uplink_name(first, -(2**31)) is None


def test_walks_do_not_look_at_the_count(recorder: Recorder) -> None:
    table = pointed(recorder, bytes(4) + lag(b"unlisted"))
    assert memory.address(_libkestrel.VSLAGTable_vs_lag_table_first_lag(table)) == memory.address(table) + 4


def test_an_unterminated_lag_name_reads_its_68_bytes(recorder: Recorder) -> None:
    table = pointed(recorder, (1).to_bytes(4, "little") + lag(b"n" * 68, b"u" * 32))
    first = _libkestrel.VSLAGTable_vs_lag_table_first_lag(table)
    assert _libkestrel.VSLAGStatus_get_name(first) == "n" * 68
    assert _libkestrel.VSLAGStatus_get_uplink_name(first, 0) == "u" * 32


@pytest.mark.parametrize(
    ("method", "kind"),
    [
        ("VSLAGTable_vs_lag_table_first_lag", "struct VSLAGTable *"),
        ("VSLAGStatus_vs_lag_table_next_lag", "struct VSLAGStatus *"),
        ("VSLAGStatus_get_name", "struct VSLAGStatus *"),
        ("zel_Name___repr__", "struct zel_Name *"),
        ("VSUplinks___len__", "struct VSUplinks *"),
    ],
)
def test_methods_refuse_other_records(method: str, kind: str) -> None:
    for wrong in (1, "x", _libkestrel.new_VSStats()):
        with pytest.raises(TypeError) as caught:
            getattr(_libkestrel, method)(wrong)
        assert str(caught.value) == f"in method '{method}', argument 1 of type '{kind}'"


@pytest.mark.parametrize(
    ("method", "record"),
    [
        ("VSList___getitem__", "VSList"),
        ("VSUplinks___getitem__", "VSUplinks"),
        ("VSMACEntry___getitem__", "VSMACEntry"),
        ("VSLAGStatus_get_uplink_name", "VSLAGStatus"),
    ],
)
def test_indexes_are_signed_32_bit_ints(method: str, record: str) -> None:
    arguments = (4,) if record == "VSUplinks" else ()
    target = getattr(_libkestrel, f"new_{record}")(*arguments)
    for wrong, exception in (
        (2**31, OverflowError),
        (-(2**31) - 1, OverflowError),
        ("0", TypeError),
        (None, TypeError),
    ):
        with pytest.raises(exception) as caught:
            getattr(_libkestrel, method)(target, wrong)
        assert str(caught.value) == f"in method '{method}', argument 2 of type 'int'"


# ---- Indexed access ----


def test_names_as_text() -> None:
    name = _libkestrel.new_zel_Name()
    for text in ("", "vmnic0", "ä" * 15):
        _libkestrel.zel_Name_string_set(name, text)
        assert _libkestrel.zel_Name___repr__(name) == text
    memory.write(name, b"\xfe" * 32)
    assert _libkestrel.zel_Name___repr__(name) == "\udcfe" * 32


def test_uplinks_are_36_bytes_apart_and_bounded_by_their_count(capfd: Any) -> None:
    uplinks = _libkestrel.new_VSUplinks(10)
    entries = b"".join(f"vmnic{i}".encode().ljust(32, b"\0") + bytes(4) for i in range(2))
    memory.write(uplinks, (9).to_bytes(4, "little") + (2).to_bytes(4, "little") + entries)
    assert _libkestrel.VSUplinks___len__(uplinks) == 2
    assert [_libkestrel.VSUplinks___getitem__(uplinks, i) for i in range(2)] == ["vmnic0", "vmnic1"]
    for index in (2, 100, -1, -(2**31)):
        assert _libkestrel.VSUplinks___getitem__(uplinks, index) is None
        ctypes.CDLL(None).fflush(None)
        assert capfd.readouterr().out == "Invalid array index."


def test_a_length_of_2_31_or_more_comes_back_negative() -> None:
    uplinks = _libkestrel.new_VSUplinks(4)
    for count, length in ((2**31 - 1, 2**31 - 1), (2**31, -(2**31)), (2**32 - 1, -1)):
        _libkestrel.VSUplinks_numEntries_set(uplinks, count)
        assert _libkestrel.VSUplinks___len__(uplinks) == length
    _libkestrel.VSUplinks_numEntries_set(uplinks, 0)


def test_elements_of_a_run_are_copied_into_records_of_their_own(recorder: Recorder) -> None:
    run = b"".join(bytes([i]) * 26 for i in range(5))
    recorder.output("VSZEL_GetMACTable", 2, block(bytes(8) + run).to_bytes(8, "little"))
    table = _libkestrel.VSZEL_GetMACTable("s", 0)[1]
    first = _libkestrel.VSMACTable_macEntries_get(table)
    copies = [_libkestrel.VSMACEntry___getitem__(first, i) for i in range(5)]
    assert [memory.read(copy, 26) for copy in copies] == [bytes([i]) * 26 for i in range(5)]
    assert all(copy.own() for copy in copies)
    _libkestrel.VSMACEntry_vni_set(copies[2], 0)
    assert memory.read(first, 26, 52) == bytes([2]) * 26
    last = _libkestrel.VSMACEntry___getitem__(first, 3)
    memory.write(table, bytes(26), 8 + 3 * 26)
    assert memory.read(last, 26) == bytes([3]) * 26


@pytest.mark.parametrize(
    ("array", "element", "width"),
    [("vidrangeArray", "zel_VDSPortVIDRange", 4), ("pvlanmapentryArray", "VSPvlanMapEntry", 8)],
)
def test_arrays_hold_copies(array: str, element: str, width: int) -> None:
    elements = getattr(_libkestrel, f"new_{array}")(3)
    get, put = getattr(_libkestrel, f"{array}_getitem"), getattr(_libkestrel, f"{array}_setitem")
    for index in range(3):
        value = getattr(_libkestrel, f"new_{element}")()
        memory.write(value, bytes([index + 1]) * width)
        assert put(elements, index, value) is None
    assert memory.read(elements, 3 * width) == b"".join(bytes([i + 1]) * width for i in range(3))
    copy = get(elements, 1)
    assert copy.own() is True
    memory.write(copy, bytes(width))
    assert memory.read(elements, width, width) == b"\2" * width
    with pytest.raises(ValueError, match="null") as caught:
        put(elements, 0, None)
    expected = f"invalid null reference in method '{array}_setitem', argument 3 of type '{element}'"
    assert str(caught.value) == expected
    for wrong, exception in ((-1, OverflowError), (2**64, TypeError), ("0", TypeError)):
        with pytest.raises(exception) as refusal:
            get(elements, wrong)
        assert str(refusal.value) == f"in method '{array}_getitem', argument 2 of type 'size_t'"
    getattr(_libkestrel, f"delete_{array}")(elements)


def test_a_helper_that_needs_no_platform_calls_none(recorder: Recorder) -> None:
    _libkestrel.free_vs_info(_libkestrel.alloc_vs_info())
    assert recorder.calls() == []
    listed(recorder, 1, b"a")
    assert [call.function for call in recorder.calls()] == ["VSZEL_GetSwitches"]
    assert isinstance(recorder.calls()[0], Call)


@pytest.mark.parametrize(
    ("array", "element"),
    [("vidrangeArray", "zel_VDSPortVIDRange"), ("pvlanmapentryArray", "VSPvlanMapEntry")],
)
def test_an_array_passes_for_a_pointer_to_its_first_element(array: str, element: str, recorder: Recorder) -> None:
    elements = getattr(_libkestrel, f"new_{array}")(2)
    if element == "zel_VDSPortVIDRange":
        _libkestrel.VSDVS_SetPortVLANPolicy("s", "p", 0, 1, 0, 0, elements, 2)
        assert recorder.calls()[0].arguments[6] == Address(memory.address(elements))
    first = getattr(_libkestrel, f"{array}_getitem")(elements, 0)
    put = getattr(_libkestrel, f"{array}_setitem")
    put(elements, 1, first)
    put(elements, 1, elements)
    assert elements.own() is True
    getattr(_libkestrel, f"delete_{array}")(elements)
