"""Every member of every record, at every bound, against raw memory. The tables come from the headers."""

from __future__ import annotations

from typing import Any

import _libkestrel
import pytest

from headers import model
from headers.model import Member, Record
from support import memory, values
from support.functions import COUNTED

HEADERS = model.read()
MEMBERS = [(record, member) for record in HEADERS.records for member in record.members]
SCALARS = {"u8", "u16", "u32", "u64", "s32", "e8"}


def members(*kinds: str, writable: bool = True) -> list[Any]:
    chosen = [(r, m) for r, m in MEMBERS if m.kind in kinds and not (writable and m.read_only)]
    return [pytest.param(r, m, id=f"{r.name}.{m.name}") for r, m in chosen]


def make(record: Record) -> Any:
    """A new record, all bytes 0xA5, so that a write that strays shows."""
    arguments = (COUNTED[record.name],) if record.name in COUNTED else ()
    made = getattr(_libkestrel, f"new_{record.name}")(*arguments)
    memory.write(made, b"\xa5" * record.size)
    return made


def get(record: Record, member: Member, target: Any) -> Any:
    return getattr(_libkestrel, f"{record.name}_{member.name}_get")(target)


def put(record: Record, member: Member, target: Any, value: Any) -> None:
    assert getattr(_libkestrel, f"{record.name}_{member.name}_set")(target, value) is None


def message(record: Record, member: Member, argument: int) -> str:
    kind = record.self_type if argument == 1 else member.value_type
    return f"in method '{record.name}_{member.name}_set', argument {argument} of type '{kind}'"


def assert_refused(record: Record, member: Member, value: Any, exception: type[Exception], text: str) -> None:
    """The writer raises just this and leaves every byte as it was."""
    target = make(record)
    before = memory.read(target, record.size)
    with pytest.raises(exception) as caught:
        getattr(_libkestrel, f"{record.name}_{member.name}_set")(target, value)
    assert type(caught.value) is exception
    assert str(caught.value) == text
    assert memory.read(target, record.size) == before


def stored(member: Member, number: int, before: bytes) -> bytes:
    """The record's bytes after `number` was stored in an integer member over `before`."""
    width = member.width
    raw = int.from_bytes(before[member.offset : member.offset + width], "little")
    low, high = member.bits or (0, 8 * width - 1)
    mask = ((1 << (high - low + 1)) - 1) << low
    raw = raw & ~mask | (number << low) & mask
    return before[: member.offset] + raw.to_bytes(width, "little") + before[member.offset + width :]


def read_back(member: Member, number: int) -> int:
    if member.bits:
        return number & ((1 << (member.bits[1] - member.bits[0] + 1)) - 1)
    return number


@pytest.mark.parametrize(("record", "member"), members(*SCALARS))
def test_integers_are_stored_at_their_place_and_width_and_read_back(record: Record, member: Member) -> None:
    for value, number in values.good(member.kind):
        target = make(record)
        before = memory.read(target, record.size)
        put(record, member, target, value)
        assert memory.read(target, record.size) == stored(member, number, before)
        assert get(record, member, target) == read_back(member, number)
        assert type(get(record, member, target)) is int


@pytest.mark.parametrize(("record", "member"), members(*SCALARS))
def test_integers_out_of_range_and_other_kinds_are_refused(record: Record, member: Member) -> None:
    for value, exception in values.bad(member.kind):
        assert_refused(record, member, value, exception, message(record, member, 2))


@pytest.mark.parametrize(("record", "member"), members("s32"))
def test_signed_integers_beyond_64_bits_are_stored_as_minus_one_with_a_system_error(
    record: Record, member: Member
) -> None:
    target = make(record)
    for value in (2**63, -(2**63) - 1, 2**200):
        with pytest.raises(SystemError) as caught:
            getattr(_libkestrel, f"{record.name}_{member.name}_set")(target, value)
        assert isinstance(caught.value.__cause__, OverflowError)
        assert get(record, member, target) == -1


@pytest.mark.parametrize(("record", "member"), members("flag"))
def test_flags_are_written_as_ints_or_characters_and_read_as_characters(record: Record, member: Member) -> None:
    for value, byte in values.FLAGS:
        target = make(record)
        before = memory.read(target, record.size)
        put(record, member, target, value)
        assert memory.read(target, record.size) == stored(member, byte, before)
        assert get(record, member, target) == values.flag_text(byte)
    for byte in range(256):
        memory.write(target, bytes([byte]), member.offset)
        assert get(record, member, target) == values.flag_text(byte)


@pytest.mark.parametrize(("record", "member"), members("flag"))
def test_flags_refuse_longer_texts_and_other_numbers(record: Record, member: Member) -> None:
    for value, exception in values.bad("flag"):
        assert_refused(record, member, value, exception, message(record, member, 2))


@pytest.mark.parametrize(("record", "member"), members("text"))
def test_texts_fill_their_member_with_zeros_and_keep_a_terminator(record: Record, member: Member) -> None:
    room = member.width - 1
    texts = ["", "a", "x" * room, "é" * (room // 2), "日" * (room // 3), "a\0b"[: member.width - 1]]
    for text in texts:
        target = make(record)
        before = memory.read(target, record.size)
        put(record, member, target, text)
        field = text.encode().ljust(member.width, b"\0")
        assert memory.read(target, record.size) == (
            before[: member.offset] + field + before[member.offset + member.width :]
        )
        assert get(record, member, target) == text.split("\0")[0]


@pytest.mark.parametrize(("record", "member"), members("text"))
def test_texts_take_none_as_all_zeros(record: Record, member: Member) -> None:
    target = make(record)
    put(record, member, target, None)
    assert memory.read(target, member.width, member.offset) == bytes(member.width)


@pytest.mark.parametrize(("record", "member"), members("text"))
def test_texts_too_long_not_text_or_not_encodable_are_refused(record: Record, member: Member) -> None:
    room = member.width - 1
    long = ["x" * (room + 1), "x" * (room + 2), "é" * (room // 2 + 1), "日" * (room // 3 + 1)]
    for value in [*long, b"bytes", 1, 1.0, ["a"], "\ud800"]:
        assert_refused(record, member, value, TypeError, message(record, member, 2))


@pytest.mark.parametrize(("record", "member"), members("text"))
def test_texts_without_terminator_read_up_to_their_width(record: Record, member: Member) -> None:
    target = make(record)
    memory.write(target, b"y" * member.width, member.offset)
    assert get(record, member, target) == "y" * member.width
    memory.write(target, b"\xff" + b"z" * (member.width - 1), member.offset)
    assert get(record, member, target) == "\udcff" + "z" * (member.width - 1)


@pytest.mark.parametrize(("record", "member"), members("record"))
def test_nested_records_are_copied_in_and_handed_out_in_place(record: Record, member: Member) -> None:
    inner = HEADERS.record(member.element)
    target, source = make(record), make(inner)
    memory.write(source, bytes(i % 251 for i in range(inner.size)))
    before = memory.read(target, record.size)
    put(record, member, target, source)
    content = memory.read(source, inner.size)
    assert memory.read(target, record.size) == (
        before[: member.offset] + content + before[member.offset + inner.size :]
    )
    proxy = get(record, member, target)
    assert memory.address(proxy) == memory.address(target) + member.offset
    assert proxy.own() is False
    assert source.own() is True


@pytest.mark.parametrize(("record", "member"), members("record"))
def test_nested_records_refuse_none_and_other_types(record: Record, member: Member) -> None:
    null = f"invalid null reference {message(record, member, 2)}"
    assert_refused(record, member, None, ValueError, null)
    other = _libkestrel.new_zel_IntrInfo()
    for value in (1, "x", b"x", object(), other):
        assert_refused(record, member, value, TypeError, message(record, member, 2))


def element_source(member: Member) -> tuple[Any, int]:
    """A pointer object of an array's element type, designating at least as many bytes as the member has."""
    donor, field = next((r, m) for r, m in DONORS if element_key(m) == element_key(member) and m.width >= member.width)
    holder = make(donor)
    memory.write(holder, bytes((7 * i + 1) % 256 for i in range(donor.size)))
    KEPT.append(holder)
    return get(donor, field, holder), field.offset


KEPT: list[Any] = []
"""Records that pointer objects into them must not outlive."""


def element_key(member: Member) -> tuple[str, tuple[int, ...]]:
    """What decides whether a pointer to one array's elements is one to another's."""
    return HEADERS.typedefs.get(member.element, member.element), member.dimensions[1:]


DONORS = [(r, m) for r, m in MEMBERS if m.kind in ("array", "trailing")]


@pytest.mark.parametrize(("record", "member"), members("array"))
def test_arrays_copy_every_element_from_a_pointer_and_hand_out_a_pointer(record: Record, member: Member) -> None:
    target = make(record)
    before = memory.read(target, record.size)
    source, _ = element_source(member)
    content = memory.read(source, member.width)
    put(record, member, target, source)
    assert memory.read(target, record.size) == (
        before[: member.offset] + content + before[member.offset + member.width :]
    )
    proxy = get(record, member, target)
    assert memory.address(proxy) == memory.address(target) + member.offset
    assert proxy.own() is False


@pytest.mark.parametrize(("record", "member"), members("trailing"))
def test_trailing_arrays_accept_a_pointer_and_copy_nothing(record: Record, member: Member) -> None:
    target = make(record)
    before = memory.read(target, record.size)
    source, _ = element_source(member)
    put(record, member, target, source)
    assert memory.read(target, record.size) == before


@pytest.mark.parametrize(("record", "member"), members("trailing", "opaque", writable=False))
def test_trailing_members_hand_out_the_address_behind_the_fixed_part(record: Record, member: Member) -> None:
    target = make(record)
    proxy = get(record, member, target)
    assert memory.address(proxy) == memory.address(target) + member.offset
    assert proxy.own() is False


@pytest.mark.parametrize(("record", "member"), members("array", "trailing"))
def test_arrays_refuse_none_and_other_types(record: Record, member: Member) -> None:
    null = f"invalid null reference in variable '{member.name}' of type '{member.type}'"
    assert_refused(record, member, None, ValueError, null)
    other = _libkestrel.new_zel_IntrInfo()
    for value in (1, [1, 2], "x", b"x" * 400, object(), other):
        if member.type == "char [0]" and value == "x":
            continue
        assert_refused(record, member, value, TypeError, message(record, member, 2))


def test_a_character_array_of_length_0_takes_no_text() -> None:
    with pytest.raises(TypeError, match=r"^in method 'VSList_switches_set', argument 2 of type 'char \[0\]'$"):
        _libkestrel.VSList_switches_set(_libkestrel.new_VSList(), "x")


@pytest.mark.parametrize(("record", "member"), members("pointer"))
def test_pointer_members_store_the_address_and_take_ownership(record: Record, member: Member) -> None:
    target = make(record)
    put(record, member, target, None)
    assert get(record, member, target) is None
    assert memory.read(target, 8, member.offset) == bytes(8)

    pointed = member.element.removesuffix("*").removeprefix("struct ").strip()
    if pointed in {r.name for r in HEADERS.records}:
        value = make(HEADERS.record(pointed))
    elif pointed == "void":
        value = _libkestrel.new_zel_IntrInfo()
    else:
        holder = make(HEADERS.record("zel_SocketAddress"))
        KEPT.append(holder)
        value = _libkestrel.zel_SocketAddress_sa_data_get(holder)
    owned = value.own()
    put(record, member, target, value)
    assert value.own() is False
    assert memory.read(target, 8, member.offset) == memory.address(value).to_bytes(8, "little")
    proxy = get(record, member, target)
    assert memory.address(proxy) == memory.address(value)
    assert proxy.own() is False
    if owned:
        value.acquire()


@pytest.mark.parametrize(("record", "member"), members("pointer"))
def test_pointer_members_refuse_what_is_no_pointer(record: Record, member: Member) -> None:
    for value in (1, "x", b"x", [1], object()):
        assert_refused(record, member, value, TypeError, message(record, member, 2))


def test_typed_pointer_members_refuse_pointers_of_another_type() -> None:
    record = HEADERS.record("zel_ListLinks")
    for member in record.members:
        assert_refused(record, member, _libkestrel.new_zel_IntrInfo(), TypeError, message(record, member, 2))


SKIPPING = (*SCALARS, "flag", "record", "pointer")


@pytest.mark.parametrize(("record", "member"), members(*SKIPPING))
def test_writers_of_scalars_records_and_pointers_do_nothing_on_a_null_record(record: Record, member: Member) -> None:
    value: Any = 1
    if member.kind == "record":
        value = make(HEADERS.record(member.element))
    elif member.kind == "pointer":
        value = None
    put(record, member, None, value)


@pytest.mark.parametrize(("record", "member"), [pytest.param(r, m, id=f"{r.name}.{m.name}") for r, m in MEMBERS])
def test_accessors_refuse_another_record_before_they_look_at_the_value(record: Record, member: Member) -> None:
    other_name = "zel_LinkStatus" if record.name == "zel_IntrInfo" else "zel_IntrInfo"
    other = getattr(_libkestrel, f"new_{other_name}")()
    for wrong in (other, 1, "x", b"x", object()):
        reader = f"{record.name}_{member.name}_get"
        with pytest.raises(TypeError) as caught:
            getattr(_libkestrel, reader)(wrong)
        assert str(caught.value) == f"in method '{reader}', argument 1 of type '{record.self_type}'"
        if not member.read_only:
            with pytest.raises(TypeError) as caught:
                getattr(_libkestrel, f"{record.name}_{member.name}_set")(wrong, object())
            assert str(caught.value) == message(record, member, 1)


@pytest.mark.parametrize(("record", "member"), [pytest.param(r, m, id=f"{r.name}.{m.name}") for r, m in MEMBERS])
def test_accessors_count_their_arguments(record: Record, member: Member) -> None:
    reader = f"{record.name}_{member.name}_get"
    for arguments in ((), (None, None)):
        with pytest.raises(TypeError) as caught:
            getattr(_libkestrel, reader)(*arguments)
        assert str(caught.value) == f"{reader}() takes exactly 1 argument ({len(arguments)} given)"
    if member.read_only:
        assert not hasattr(_libkestrel, f"{record.name}_{member.name}_set")
        return
    writer = f"{record.name}_{member.name}_set"
    for values_given in ((), (None,), (None, None, None)):
        with pytest.raises(TypeError) as caught:
            getattr(_libkestrel, writer)(*values_given)
        assert str(caught.value) == f"{writer}() takes exactly 2 arguments ({len(values_given)} given)"
    with pytest.raises(TypeError):
        getattr(_libkestrel, reader)(record=None)


@pytest.mark.parametrize(("record", "member"), members("record", "array", "opaque", writable=False))
def test_read_only_members_hand_out_their_place(record: Record, member: Member) -> None:
    target = make(record)
    proxy = get(record, member, target)
    assert memory.address(proxy) == memory.address(target) + member.offset
    assert proxy.own() is False


def test_owned_texts_are_copied_and_replaced() -> None:
    query = _libkestrel.new_VDSQuery()
    assert _libkestrel.VDSQuery_propValue_get(query) is None
    for text in ("first", "", "zweiter Wert ü", "x" * 100_000):
        _libkestrel.VDSQuery_propValue_set(query, text)
        assert _libkestrel.VDSQuery_propValue_get(query) == text
    for wrong in (1, b"x", ["x"], "\ud800"):
        with pytest.raises(TypeError) as caught:
            _libkestrel.VDSQuery_propValue_set(query, wrong)
        assert str(caught.value) == "in method 'VDSQuery_propValue_set', argument 2 of type 'char *'"
        assert _libkestrel.VDSQuery_propValue_get(query) == "x" * 100_000
    _libkestrel.VDSQuery_propValue_set(query, None)
    assert _libkestrel.VDSQuery_propValue_get(query) is None
    assert memory.read(query, 8, 4) == bytes(8)
