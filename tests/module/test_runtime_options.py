"""Runtime options: names and type codes, and the packed lists that options travel in."""

from __future__ import annotations

import ctypes
from typing import Any

import _libkestrel
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from headers import model
from support import memory
from support.blocks import FILL, Block, changed
from support.options import NAMES
from support.output import printed
from support.recorder import Address, Call, Recorder

INTEGERS = range(15)
TEXTS = range(15, 17)
UNKNOWN = (17, 18, 255, 256, 32768, 65535)

LIST = "VSRuntimeOptions"
HEADER = "VSRuntimeOptionHeader"


def u16(number: int) -> bytes:
    return number.to_bytes(2, "little")


def u32(number: int) -> bytes:
    return number.to_bytes(4, "little")


def integer_entry(kind: int, number: int) -> bytes:
    return u16(kind) + u16(8) + u32(number)


def text_entry(kind: int, text: bytes) -> bytes:
    return u16(kind) + u16(4 + len(text) + 1) + text + b"\0"


def options(total: int, room: int | None = None) -> Block:
    """A list of this total length, in memory of that size or another; what behind its head is filled."""
    return Block(u32(total).ljust(total if room is None else room, bytes([FILL])))


def at(pointer: Any, block: Block) -> int:
    """The offset of a header from the list's start; it must be one that Python does not own."""
    assert type(pointer).__name__ == HEADER
    assert pointer.own() is False
    return memory.address(pointer) - block.address


# ---- Names ----


def test_the_constants_are_the_names_places() -> None:
    codes = {c.name: c.value for c in model.read().constants if c.name.startswith("VS_RT_OPT_")}
    assert list(codes.values()) == list(range(len(NAMES)))
    assert len(NAMES) == _libkestrel.VS_NUM_RT_OPT
    assert len(INTEGERS) == _libkestrel.NUM_RUNTIME_INT_OPTIONS
    assert _libkestrel.VS_CHARDEV_MAX_RUNTIME_STRING_OPTION_LENGTH == 128


@pytest.mark.parametrize("code", range(len(NAMES)))
def test_a_name_has_its_code(code: int) -> None:
    got = _libkestrel.get_runtime_option_type_from_name(NAMES[code])
    assert (type(got), got) == (int, code)


@pytest.mark.parametrize("name", NAMES)
def test_a_name_is_told_by_every_byte(name: str) -> None:
    for wrong in (name.lower(), name.upper(), name[:-1], name + "x", " " + name, name + " ", name[1:]):
        assert _libkestrel.get_runtime_option_type_from_name(wrong) == -1


def test_other_names_have_no_code() -> None:
    for wrong in ("", "x", "IGMP", "mldrouterip", "MLDRouterIPü", "x" * 5000, None):
        assert _libkestrel.get_runtime_option_type_from_name(wrong) == -1
    assert _libkestrel.get_runtime_option_type_from_name("MLDRouterIP\0ignored") == 16


def test_a_name_is_a_text() -> None:
    for wrong in (1, b"IGMPVersion", 1.0, ["IGMPVersion"], object(), "\ud800"):
        with pytest.raises(TypeError) as caught:
            _libkestrel.get_runtime_option_type_from_name(wrong)
        assert str(caught.value) == "in method 'get_runtime_option_type_from_name', argument 1 of type 'char *'"
    for count in (0, 2):
        with pytest.raises(TypeError) as caught:
            _libkestrel.get_runtime_option_type_from_name(*[None] * count)
        assert str(caught.value) == f"get_runtime_option_type_from_name() takes exactly 1 argument ({count} given)"


def test_native_code_looks_names_up_too() -> None:
    code = ctypes.CDLL(_libkestrel.__file__).get_runtime_option_type_from_name
    code.restype = ctypes.c_uint32
    assert [code(name.encode()) for name in NAMES] == list(range(len(NAMES)))
    assert code(b"unknown") == 2**32 - 1


# ---- Entries ----


@pytest.mark.parametrize("code", range(len(NAMES)))
def test_an_entry_has_the_name_of_its_type(code: int) -> None:
    block = Block(integer_entry(code, 0))
    assert _libkestrel.VSRuntimeOptionHeader_get_option_name(block.pointer(HEADER)) == NAMES[code]


@pytest.mark.parametrize("code", UNKNOWN)
def test_an_entry_of_another_type_has_no_name(code: int) -> None:
    block = Block(integer_entry(code, 0))
    assert _libkestrel.VSRuntimeOptionHeader_get_option_name(block.pointer(HEADER)) is None


@pytest.mark.parametrize("code", INTEGERS)
def test_types_up_to_14_have_numbers(code: int) -> None:
    for number in (0, 1, 255, 2**31 - 1, 2**31, 2**32 - 1, 0x41424344):
        for length in (0, 8, 65535):  # the value's kind is the type's alone
            block = Block(b"_" + u16(code) + u16(length) + u32(number))
            got = _libkestrel.VSRuntimeOptionHeader_get_option_value(block.pointer(HEADER, 1))
            assert (type(got), got) == (int, number)


@pytest.mark.parametrize("code", [*TEXTS, *UNKNOWN])
def test_types_above_14_have_texts(code: int) -> None:
    for text in (b"", b"a", b"10.0.0.1", "ü".encode(), b"\xff\xfe", b"x" * 127, b"x" * 1000):
        for length in (0, 4 + len(text) + 1, 65535):
            block = Block(b"_" + u16(code) + u16(length) + text + b"\0behind")
            got = _libkestrel.VSRuntimeOptionHeader_get_option_value(block.pointer(HEADER, 1))
            assert (type(got), got) == (bytes, text)


# ---- Lists ----


def test_a_new_list_knows_its_size() -> None:
    for size in (4, 5, 13, 4096, 100_000):
        made = _libkestrel.new_VSRuntimeOptions(size)
        assert made.own() is True
        assert memory.usable_size(made) >= size
        assert memory.read(made, 4) == u32(size)


def test_a_list_too_small_for_its_own_length_is_none() -> None:
    for size in (3, 1, 0, -1, -(2**31)):
        assert _libkestrel.new_VSRuntimeOptions(size) is None


def test_the_length_of_a_list_counts_its_head() -> None:
    for length, total in ((0, 4), (1, 5), (8, 12), (2**31 - 1, 2**31 + 3), (-1, 3), (-4, 0), (-5, 2**32 - 1)):
        block = options(64)
        before = block.content()
        assert _libkestrel.VSRuntimeOptions_set_options_length(block.pointer(LIST), length) is None
        assert block.content() == changed(before, 0, u32(total))


@pytest.mark.parametrize("total", [0, 4, 5, 64, 2**32 - 1])
def test_the_first_entrys_place_is_there_even_in_an_empty_list(total: int) -> None:
    block = options(total, 64)
    assert at(_libkestrel.VSRuntimeOptions_get_first_option(block.pointer(LIST)), block) == 4


@pytest.mark.parametrize("start", [4, 5, 12])
@pytest.mark.parametrize("length", [1, 4, 8, 9, 132, 65535])
def test_the_next_entry_is_as_far_as_the_entry_says_and_below_the_end(start: int, length: int) -> None:
    next_option = _libkestrel.VSRuntimeOptions_get_next_option
    for total in (start + length + 1, start + length + 1000, 2**32 - 1):
        block = options(total, 64)
        block.write(u16(3) + u16(length), start)
        assert at(next_option(block.pointer(LIST), block.pointer(HEADER, start)), block) == start + length
    for total in (start + length, start + length - 1, 4, 0):
        block = options(total, 64)
        block.write(u16(3) + u16(length), start)
        assert next_option(block.pointer(LIST), block.pointer(HEADER, start)) is None


def test_an_entry_without_length_comes_again() -> None:
    block = options(64)
    block.write(u16(3) + u16(0), 12)
    entry = block.pointer(HEADER, 12)
    for _ in range(3):
        entry = _libkestrel.VSRuntimeOptions_get_next_option(block.pointer(LIST), entry)
        assert at(entry, block) == 12


def add_integer(block: Block, start: int, kind: int, number: int) -> Any:
    return _libkestrel.VSRuntimeOptions_add_int_option(
        block.pointer(LIST), block.pointer(HEADER, start), "not used", kind, number
    )


def add_text(block: Block, start: int, kind: int, text: str | None) -> Any:
    return _libkestrel.VSRuntimeOptions_add_str_option(
        block.pointer(LIST), block.pointer(HEADER, start), "not used", kind, text
    )


@pytest.mark.parametrize("start", [4, 5, 12, 33])
def test_a_number_needs_its_eight_bytes_and_one_more(start: int, capfd: Any) -> None:
    for total in (start + 9, start + 100, 2**32 - 1):
        block = options(total, 64)
        before = block.content()
        assert at(add_integer(block, start, 3, 77), block) == start + 8
        assert block.content() == changed(before, start, integer_entry(3, 77))
    for total in (start + 8, start + 7, start, 4, 0):
        block = options(total, 64)
        before = block.content()
        assert add_integer(block, start, 3, 77) is None
        assert block.content() == before
    assert printed(capfd) == ""


def test_twelve_bytes_take_no_number_and_thirteen_take_one() -> None:
    for size, taken in ((12, False), (13, True)):
        made = _libkestrel.new_VSRuntimeOptions(size)
        first = _libkestrel.VSRuntimeOptions_get_first_option(made)
        behind = _libkestrel.VSRuntimeOptions_add_int_option(made, first, "IGMPVersion", 3, 2)
        assert (behind is not None) is taken


def test_numbers_and_types_are_cut_to_their_fields() -> None:
    for number in (0, 1, -1, 2**31 - 1, -(2**31)):
        for kind in (0, 14, 16, 65535, 65536 + 3, -1, 2**31 - 1, -(2**31)):
            block = options(64)
            before = block.content()
            add_integer(block, 4, kind, number)
            assert block.content() == changed(before, 4, integer_entry(kind % 2**16, number % 2**32))


def test_a_number_is_read_back_without_sign() -> None:
    block = options(64)
    add_integer(block, 4, 0, -1)
    assert _libkestrel.VSRuntimeOptionHeader_get_option_value(block.pointer(HEADER, 4)) == 2**32 - 1


@pytest.mark.parametrize("start", [4, 5, 33])
@pytest.mark.parametrize("length", [0, 1, 8, 126, 127])
def test_a_text_needs_its_entry_and_one_byte_more(start: int, length: int, capfd: Any) -> None:
    text = "t" * length
    end = start + 4 + length + 1
    for total in (end + 1, end + 100, 2**32 - 1):
        block = options(total, 256)
        before = block.content()
        assert at(add_text(block, start, 15, text), block) == end
        assert block.content() == changed(before, start, text_entry(15, text.encode()))
    for total in (end, end - 1, start, 4, 0):
        block = options(total, 256)
        before = block.content()
        assert add_text(block, start, 15, text) is None
        assert block.content() == before
    assert printed(capfd) == ""


@pytest.mark.parametrize(
    "text", ["t" * 128, "t" * 129, "ü" * 64, "t" * 65531, "t" * 65536, "t" * 70_000], ids=lambda text: f"{len(text)}"
)
def test_a_text_of_128_bytes_or_more_is_not_taken(text: str) -> None:
    block = options(2**32 - 1, 4096)
    before = block.content()
    assert add_text(block, 4, 15, text) is None
    assert block.content() == before


def test_a_text_of_127_bytes_makes_an_entry_of_132() -> None:
    for text in ("t" * 127, "ü" * 63 + "t"):
        made = _libkestrel.new_VSRuntimeOptions(4 + 132 + 1)
        first = _libkestrel.VSRuntimeOptions_get_first_option(made)
        behind = _libkestrel.VSRuntimeOptions_add_str_option(made, first, "IGMPRouterIP", 15, text)
        assert memory.address(behind) == memory.address(first) + 132
        assert _libkestrel.VSRuntimeOptionHeader_length_get(first) == 132
        assert _libkestrel.VSRuntimeOptionHeader_get_option_value(first) == text.encode()


def test_a_text_ends_at_its_first_zero() -> None:
    block = options(64)
    before = block.content()
    assert at(add_text(block, 4, 16, "ab\0" + "x" * 1000), block) == 4 + 7
    assert block.content() == changed(before, 4, text_entry(16, b"ab"))


def test_the_type_of_a_text_is_cut_to_16_bits_and_may_be_any() -> None:
    for kind in (0, 14, 15, 16, 65535, 65536 + 16, -1):
        block = options(64)
        before = block.content()
        add_text(block, 4, kind, "10.0.0.1")
        assert block.content() == changed(before, 4, text_entry(kind % 2**16, b"10.0.0.1"))


def test_no_text_and_no_place_add_nothing() -> None:
    block = options(64)
    before = block.content()
    assert add_text(block, 4, 15, None) is None
    target = block.pointer(LIST)
    assert _libkestrel.VSRuntimeOptions_add_int_option(target, None, "name", 0, 1) is None
    assert _libkestrel.VSRuntimeOptions_add_str_option(target, None, "name", 15, "x") is None
    assert block.content() == before


def test_the_name_of_an_added_option_is_not_used() -> None:
    for name in ("", "MLDVersion", "unknown", "x" * 5000, None):
        block = options(64)
        before = block.content()
        _libkestrel.VSRuntimeOptions_add_int_option(block.pointer(LIST), block.pointer(HEADER, 4), name, 3, 1)
        assert block.content() == changed(before, 4, integer_entry(3, 1))
        _libkestrel.VSRuntimeOptions_add_str_option(block.pointer(LIST), block.pointer(HEADER, 4), name, 15, "x")
        assert block.content()[4:10] == text_entry(15, b"x")


def walk(target: Any) -> list[tuple[str, int | bytes]]:
    """A list's options by name, as a script reads them."""
    found = []
    entry = _libkestrel.VSRuntimeOptions_get_first_option(target)
    while entry is not None:
        name = _libkestrel.VSRuntimeOptionHeader_get_option_name(entry)
        found.append((name, _libkestrel.VSRuntimeOptionHeader_get_option_value(entry)))
        entry = _libkestrel.VSRuntimeOptions_get_next_option(target, entry)
    return found


EVERY_OPTION: list[tuple[str, int | bytes]] = [
    *((NAMES[code], 1000 + code) for code in INTEGERS),
    ("IGMPRouterIP", b"10.0.0.1"),
    ("MLDRouterIP", b""),
]


def test_a_list_is_built_handed_over_and_read_again(recorder: Recorder) -> None:
    made = _libkestrel.new_VSRuntimeOptions(_libkestrel.VS_CHARDEV_MAX_RUNTIME_OPTIONS_LENGTH)
    first = place = _libkestrel.VSRuntimeOptions_get_first_option(made)
    for name, value in EVERY_OPTION:
        code = _libkestrel.get_runtime_option_type_from_name(name)
        if isinstance(value, int):
            place = _libkestrel.VSRuntimeOptions_add_int_option(made, place, name, code, value)
        else:
            place = _libkestrel.VSRuntimeOptions_add_str_option(made, place, name, code, value.decode())
    used = memory.address(place) - memory.address(first)
    assert used == 15 * 8 + 13 + 5
    _libkestrel.VSRuntimeOptions_set_options_length(made, used)
    assert _libkestrel.VSRuntimeOptions_totalLength_get(made) == 4 + used
    assert walk(made) == EVERY_OPTION

    _libkestrel.VSZEL_SetRuntimeOptions(made)
    assert recorder.calls() == [Call("VSZEL_SetRuntimeOptions", (Address(memory.address(made)),))]


def test_a_list_from_the_platform_is_walked(recorder: Recorder) -> None:
    entries = integer_entry(3, 2) + text_entry(16, b"fe80::1\xff") + integer_entry(14, 2**32 - 1)
    block = Block(u32(4 + len(entries)) + entries)
    recorder.output("VSZEL_GetRuntimeOptions", 2, block.address.to_bytes(8, "little"))
    _, handed_out = _libkestrel.VSZEL_GetRuntimeOptions(None, 0)
    assert walk(handed_out) == [
        ("IGMPVersion", 2),
        ("MLDRouterIP", b"fe80::1\xff"),
        ("SendIGMPReportToUplink", 2**32 - 1),
    ]


OPTION = st.one_of(
    st.tuples(st.sampled_from(INTEGERS), st.integers(min_value=-(2**31), max_value=2**31 - 1)),
    st.tuples(st.sampled_from(TEXTS), st.text(st.characters(exclude_characters="\0", exclude_categories=["Cs"]))),
)


@settings(deadline=None)
@given(st.lists(OPTION, min_size=1, max_size=20), st.integers(min_value=4, max_value=400))
def test_a_list_takes_what_fits_and_gives_it_back(wanted: list[tuple[int, int | str]], total: int) -> None:
    block = options(total)
    place, expected, content = 4, [], u32(total)
    for code, value in wanted:
        if isinstance(value, int):
            entry = integer_entry(code, value % 2**32)
            behind = add_integer(block, place, code, value)
        else:
            entry = text_entry(code, value.encode())
            behind = add_text(block, place, code, value)
        if len(entry) > 132 or place + len(entry) >= total:
            assert behind is None
            continue
        content += entry
        place += len(entry)
        assert at(behind, block) == place
        expected.append((NAMES[code], value % 2**32 if isinstance(value, int) else value.encode()))
    assert block.content() == content.ljust(total, bytes([FILL]))
    if expected:
        _libkestrel.VSRuntimeOptions_set_options_length(block.pointer(LIST), place - 4)
        assert walk(block.pointer(LIST)) == expected
