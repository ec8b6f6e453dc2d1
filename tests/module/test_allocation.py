"""Helpers that allocate and release records with a count: sizes, heads, messages, ownership."""

from __future__ import annotations

import ctypes
from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

import _libkestrel
import pytest

from support import memory
from support.functions import HEADERS
from support.output import printed
from support.recorder import Recorder
from support.scarcity import scarce

MODULE = ctypes.CDLL(_libkestrel.__file__)


@dataclass(frozen=True)
class Helper:
    """An allocator with counts, and the helper that releases what it made."""

    name: str
    record: str
    size: Callable[..., int]
    """Bytes of the record by its counts."""
    counts: tuple[str, ...]
    """The members that hold the counts."""
    message: str
    """What is printed where there is no memory."""
    others: tuple[tuple[str, int], ...] = ()
    """Further members that are not zero."""

    def __str__(self) -> str:
        return self.name

    def allocate(self, *counts: int) -> Any:
        return getattr(_libkestrel, f"alloc_{self.name}")(*counts)

    def free(self, record: Any) -> Any:
        return getattr(_libkestrel, f"free_{self.name}")(record)

    def head(self, *counts: int) -> bytes:
        """The record's fixed part for these counts: nothing but them and a few constants."""
        layout = HEADERS.record(self.record)
        content = bytearray(layout.size)
        for name, number in (*zip(self.counts, counts, strict=True), *self.others):
            member = next(m for m in layout.members if m.name == name)
            content[member.offset : member.offset + member.width] = (number % 2**32).to_bytes(member.width, "little")
        return bytes(content)


TABLES = [
    Helper(
        "dvmirror_session_table",
        "DVMirrorSessionTable",
        lambda sessions, entities: 20 + 232 * sessions + 52 * entities,
        ("numSessions", "numEntities"),
        "",
        (("magicNum", 0xFACEBEEF),),
    ),
    Helper("ls_team_table", "LSTeamTable", lambda n: 4 + 2748 * n, ("numLSTeam",), ""),
    Helper("rtm_query", "RTMIOCtlQuery", lambda n: 9 + 136 * n, ("numPortsets",), "Calloc failed for RTMIOCtlQuery"),
    Helper(
        "rtm_mod_query", "RTMModIOCtlQuery", lambda n: 132 + 5 * n, ("numMod",), "Calloc failed for RTMModIOCtlQuery"
    ),
]
"""The helpers for records of one block each."""

MIRROR, TEAMS, RTM, RTM_MODULES = TABLES

SOME_COUNTS = [
    *((MIRROR, counts) for counts in ((0, 0), (1, 0), (0, 1), (3, 2), (32, 128), (1000, 1000))),
    *((table, (count,)) for table in (TEAMS, RTM, RTM_MODULES) for count in (0, 1, 2, 17, 1000)),
]

LIBRARY = ctypes.CDLL(None)
LIBRARY.malloc.restype = ctypes.c_void_p


def litter(size: int) -> None:
    """Leaves freed blocks of this size behind that are not zero."""
    places = [memory.allocated(b"\xa5" * size) for _ in range(32)]
    for place in places:
        LIBRARY.free(ctypes.c_void_p(place))


# ---- Tables and queries ----


@pytest.mark.parametrize(("table", "counts"), SOME_COUNTS, ids=str)
def test_a_table_is_zeroed_and_has_its_counts(table: Helper, counts: tuple[int, ...], capfd: Any) -> None:
    size = table.size(*counts)
    litter(size)
    made = table.allocate(*counts)
    assert type(made).__name__ == table.record
    assert made.own() is False
    assert memory.usable_size(made) >= size
    assert memory.read(made, size) == table.head(*counts).ljust(size, b"\0")
    assert table.free(made) is None
    assert printed(capfd) == ""


def test_the_magic_number_is_the_published_one() -> None:
    made = MIRROR.allocate(0, 0)
    assert _libkestrel.DVMirrorSessionTable_magicNum_get(made) == 0xFACEBEEF
    assert _libkestrel.VS_DVMIRROR_MAGIC_NUM % 2**32 == 0xFACEBEEF
    MIRROR.free(made)


@pytest.mark.parametrize(("table", "counts"), SOME_COUNTS, ids=str)
def test_a_table_is_one_block_of_just_its_size(table: Helper, counts: tuple[int, ...]) -> None:
    size = table.size(*counts)
    for failing, expected in ((size, None), (size + 1, "made"), (size - 1, "made")):
        assert_block(f"alloc_{table.name}", counts, failing, expected, "" if expected else table.message)


@pytest.mark.parametrize(
    ("name", "counts", "size", "message"),
    [
        ("alloc_dvmirror_session_table", (0, 0), 20, ""),
        ("alloc_dvmirror_session_table", (3, 2), 820, ""),
        ("alloc_ls_team_table", (1,), 2752, ""),
        ("alloc_rtm_query", (2,), 281, "Calloc failed for RTMIOCtlQuery"),
        ("alloc_rtm_mod_query", (2,), 142, "Calloc failed for RTMModIOCtlQuery"),
        ("alloc_vs_info", (), 210, "malloc failed for VSInfo"),
    ],
)
def test_sizes_in_numbers(name: str, counts: tuple[int, ...], size: int, message: str) -> None:
    assert_block(name, counts, size, None, message)


def assert_block(name: str, counts: tuple[int, ...], failing: int, expected: str | None, message: str) -> None:
    """What an allocator gives and prints where a block of `failing` bytes cannot be had."""
    arguments = "".join(f", {count}" for count in counts)
    outcome = scarce(
        f"made = failing({failing}, _libkestrel.{name}{arguments})\nreport(None if made is None else 'made')\n"
    )
    assert (outcome.result, outcome.printed) == (expected, message)


@pytest.mark.parametrize(("table", "counts"), SOME_COUNTS, ids=str)
def test_a_released_table_is_released_whole(table: Helper, counts: tuple[int, ...]) -> None:
    before = memory.allocated_bytes()
    for _ in range(200):
        table.free(table.allocate(*counts))
    assert memory.allocated_bytes() < before + 50 * max(table.size(*counts), 48)


@pytest.mark.parametrize("table", TABLES, ids=str)
def test_nobody_releases_a_table_but_its_helper(table: Helper) -> None:
    counts = [100] * len(table.counts)
    before = memory.allocated_bytes()
    places = []
    for _ in range(50):
        made = table.allocate(*counts)
        places.append(memory.address(made))
        del made
    assert memory.allocated_bytes() >= before + 50 * table.size(*counts)
    for place in places:
        LIBRARY.free(ctypes.c_void_p(place))


NO_SIZES = [
    *((MIRROR, counts) for counts in ((-1, 0), (0, -1), (-1, 1), (-(2**31), -1), (2**31 - 1, 0))),
    *((TEAMS, (count,)) for count in (-1, -2, 2**31 - 1, 10**6)),
    *((RTM, (count,)) for count in (-1, 2**31 - 1, 2**24)),
    *((RTM_MODULES, (count,)) for count in (-1, -26, -27, -100, 500_000_000)),
]
"""Counts for which the size, in 32 bits, is negative or less than the table's head."""


@pytest.mark.parametrize(("table", "counts"), NO_SIZES, ids=str)
def test_counts_without_a_size_count_as_no_memory(table: Helper, counts: tuple[int, ...], capfd: Any) -> None:
    size = (table.size(*counts) + 2**31) % 2**32 - 2**31
    assert size < HEADERS.record(table.record).size
    assert table.allocate(*counts) is None
    assert printed(capfd) == table.message


@pytest.mark.parametrize(
    ("table", "counts"),
    [
        (MIRROR, (2**29, 0)),
        (MIRROR, (0, 2**30)),
        (MIRROR, (-1, 10)),
        (TEAMS, (2**30,)),
        (RTM, (2**29,)),
        (RTM_MODULES, (-858993459,)),
    ],
    ids=str,
)
def test_sizes_are_computed_in_32_bits(table: Helper, counts: tuple[int, ...], capfd: Any) -> None:
    size = table.size(*counts) % 2**32
    assert HEADERS.record(table.record).size <= size < 1000
    made = table.allocate(*counts)
    assert memory.usable_size(made) < 2000
    assert memory.read(made, size) == table.head(*counts).ljust(size, b"\0")
    table.free(made)
    assert printed(capfd) == ""


# ---- Property queries ----


def value_buffer(query: Any) -> int:
    return int.from_bytes(memory.read(query, 8, 4), "little")


@pytest.mark.parametrize("size", [1, 2, 24, 4096, 100_000])
def test_a_property_query_has_a_zeroed_buffer(size: int, capfd: Any) -> None:
    litter(size)
    litter(12)
    query = _libkestrel.alloc_vds_query(size)
    assert type(query).__name__ == "VDSQuery"
    assert query.own() is False
    assert memory.usable_size(query) >= 12
    assert _libkestrel.VDSQuery_propLen_get(query) == size
    buffer = value_buffer(query)
    assert memory.usable_size(buffer) >= size
    assert ctypes.string_at(buffer, size) == bytes(size)
    assert _libkestrel.VDSQuery_get_val_in_bytes(query) == bytes(size)
    assert _libkestrel.free_vds_query(query) is None
    assert printed(capfd) == ""


def test_a_property_query_for_nothing_is_made_whatever_its_buffer(capfd: Any) -> None:
    query = _libkestrel.alloc_vds_query(0)
    assert query.own() is False
    assert _libkestrel.VDSQuery_propLen_get(query) == 0
    assert _libkestrel.free_vds_query(query) is None
    assert printed(capfd) == ""


@pytest.mark.parametrize("size", [-1, -2, -(2**31)])
def test_a_property_query_of_negative_size_has_no_buffer_and_no_message(size: int, capfd: Any) -> None:
    query = _libkestrel.alloc_vds_query(size)
    assert query.own() is False
    assert memory.read(query, 12) == size.to_bytes(4, "little", signed=True) + bytes(8)
    assert _libkestrel.VDSQuery_propValue_get(query) is None
    assert _libkestrel.free_vds_query(query) is None
    assert printed(capfd) == ""


@pytest.mark.parametrize(
    ("failing", "result", "message"),
    [
        (12, None, "Calloc failed for VDSQuery"),
        (5000, None, "Calloc failed for property value"),
        (13, 5000, ""),
        (4999, 5000, ""),
        (5001, 5000, ""),
    ],
)
def test_a_property_query_without_memory_says_for_what(failing: int, result: Any, message: str) -> None:
    outcome = scarce(
        f"query = failing({failing}, _libkestrel.alloc_vds_query, 5000)\n"
        "report(None if query is None else _libkestrel.VDSQuery_propLen_get(query))\n"
    )
    assert outcome.result == result
    assert outcome.printed == message


def test_a_property_query_whose_buffer_fails_is_released() -> None:
    outcome = scarce(
        "count = 0\n"
        "libc = ctypes.CDLL(None)\n"
        "libc.malloc.restype = ctypes.c_void_p\n"
        "places = set()\n"
        "for _ in range(100):\n"
        "    assert failing(5000, _libkestrel.alloc_vds_query, 5000) is None\n"
        "    query = _libkestrel.alloc_vds_query(0)\n"
        "    places.add(int(query))\n"
        "    _libkestrel.free_vds_query(query)\n"
        "report(len(places))\n"
    )
    assert isinstance(outcome.result, int)
    assert outcome.result < 50  # a place that was released is taken again
    assert outcome.printed == "Calloc failed for property value" * 100


def test_a_released_property_query_takes_its_buffer_along() -> None:
    before = memory.allocated_bytes()
    for _ in range(100):
        _libkestrel.free_vds_query(_libkestrel.alloc_vds_query(50_000))
    assert memory.allocated_bytes() < before + 10 * 50_000


# ---- Switch information ----


def test_switch_information_is_allocated_without_owner() -> None:
    info = _libkestrel.alloc_vs_info()
    assert type(info).__name__ == "VSInfo"
    assert info.own() is False
    assert memory.usable_size(info) >= 210
    assert _libkestrel.free_vs_info(info) is None


def test_switch_information_is_left_as_the_allocator_gave_it() -> None:
    litter(210)
    info = _libkestrel.alloc_vs_info()
    # The allocator keeps notes of its own in the first bytes of free memory.
    assert memory.read(info, 210 - 32, 32) != bytes(210 - 32)
    _libkestrel.free_vs_info(info)
    litter(210)
    assert memory.read(_libkestrel.new_VSInfo(), 210) == bytes(210)


def test_switch_information_is_one_block() -> None:
    for failing in (209, 211):
        assert_block("alloc_vs_info", (), failing, "made", "")


def test_released_switch_information_is_free() -> None:
    before = memory.allocated_bytes()
    for _ in range(5000):
        _libkestrel.free_vs_info(_libkestrel.alloc_vs_info())
    assert memory.allocated_bytes() < before + 1000 * 210


# ---- What all have in common ----

ALLOCATORS = {
    "alloc_dvmirror_session_table": 2,
    "alloc_ls_team_table": 1,
    "alloc_rtm_query": 1,
    "alloc_rtm_mod_query": 1,
    "alloc_vds_query": 1,
    "alloc_vs_info": 0,
}
"""The allocators with the number of their counts."""

RELEASERS = {
    "free_dvmirror_session_table": "DVMirrorSessionTable",
    "free_ls_team_table": "LSTeamTable",
    "free_rtm_query": "RTMIOCtlQuery",
    "free_rtm_mod_query": "RTMModIOCtlQuery",
    "free_vds_query": "VDSQuery",
    "free_vs_info": "VSInfo",
    "free_switches": "VSList",
}
"""The releasing helpers with the record that each takes."""


def test_these_are_all_the_helpers() -> None:
    helpers = {name for name in dir(_libkestrel) if name.startswith(("alloc_", "free_"))}
    assert helpers == {*ALLOCATORS, *RELEASERS}
    assert {f"alloc_{table.name}" for table in TABLES} | {"alloc_vds_query", "alloc_vs_info"} == set(ALLOCATORS)
    for table in TABLES:
        assert RELEASERS[f"free_{table.name}"] == table.record


@pytest.mark.parametrize("name", ALLOCATORS)
def test_counts_are_signed_32_bit_ints(name: str, capfd: Any) -> None:
    number = ALLOCATORS[name]
    for position in range(number):
        for wrong, exception in (
            (2**31, OverflowError),
            (-(2**31) - 1, OverflowError),
            (2**63 - 1, OverflowError),
            ("1", TypeError),
            (1.0, TypeError),
            (b"1", TypeError),
            (None, TypeError),
            ([1], TypeError),
        ):
            arguments: list[Any] = [1] * number
            arguments[position] = wrong
            with pytest.raises(exception) as caught:
                getattr(_libkestrel, name)(*arguments)
            assert str(caught.value) == f"in method '{name}', argument {position + 1} of type 'int'"
    assert printed(capfd) == ""


@pytest.mark.parametrize("name", [*ALLOCATORS, *RELEASERS])
def test_helpers_count_their_arguments(name: str) -> None:
    number = ALLOCATORS.get(name, 1)
    for given in {0, number - 1, number + 1} - {-1, number}:
        with pytest.raises(TypeError) as caught:
            getattr(_libkestrel, name)(*[None] * given)
        plural = "" if number == 1 else "s"
        assert str(caught.value) == f"{name}() takes exactly {number} argument{plural} ({given} given)"


@pytest.mark.parametrize("name", RELEASERS)
def test_releasing_nothing_does_nothing(name: str, capfd: Any) -> None:
    assert getattr(_libkestrel, name)(None) is None
    assert printed(capfd) == ""


@pytest.mark.parametrize("name", RELEASERS)
def test_releasing_helpers_take_their_record_alone(name: str) -> None:
    other = _libkestrel.new_VSStats()
    for wrong in (1, "x", b"x", object(), other):
        with pytest.raises(TypeError) as caught:
            getattr(_libkestrel, name)(wrong)
        assert str(caught.value) == f"in method '{name}', argument 1 of type '{RELEASERS[name]} *'"
    assert other.own() is True


@pytest.mark.parametrize("name", [*ALLOCATORS, *RELEASERS])
def test_native_code_calls_the_same_helpers(name: str) -> None:
    function = getattr(MODULE, name)
    if name in RELEASERS:
        function.restype = None
        function(None)
        return
    function.restype = ctypes.c_void_p
    made = function(*[ctypes.c_int(3)] * ALLOCATORS[name])
    assert made
    assert memory.usable_size(made) >= HEADERS.record(RELEASERS[name.replace("alloc", "free")]).size
    getattr(MODULE, name.replace("alloc", "free"))(ctypes.c_void_p(made))


def test_helpers_do_without_the_platform(recorder: Recorder) -> None:
    for name, number in ALLOCATORS.items():
        getattr(_libkestrel, name.replace("alloc", "free"))(getattr(_libkestrel, name)(*[1] * number))
    _libkestrel.free_switches(None)
    assert recorder.calls() == []
