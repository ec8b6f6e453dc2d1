"""Indexed access: members with a count, arrays of names, runs of records, single elements, arrays."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any

import _libkestrel
import pytest

from support import memory, values
from support.blocks import FILL, Block, changed, image, offset_of, padded
from support.functions import HEADERS
from support.output import printed
from support.recorder import Address, Recorder
from support.scarcity import scarce

INVALID = "Invalid array index."
OUTSIDE = (2**31 - 1, -1, -2, -(2**31))
"""Indexes that no list has, however long it is in these tests."""


# ---- Members with a count, and fixed arrays of names ----


@dataclass(frozen=True)
class Indexed:
    """A member that its record's methods index."""

    record: str
    count: str | None
    """The member that holds the count; None for an array of 32."""
    member: str
    width: int
    """Bytes of an element that cross."""
    stride: int
    """Bytes from one element to the next."""
    element: str = "name"
    """"name", "session id", "port id", or the record that an element is."""

    def __str__(self) -> str:
        return self.record

    @property
    def place(self) -> int:
        return offset_of(self.record, self.member)

    def at(self, index: int) -> int:
        """The offset of an element from the record's start."""
        return self.place + index * self.stride

    def block(self, elements: list[bytes], count: int | None = None) -> Block:
        """A record with these elements, and another count if one is given."""
        room = [padded(e, self.width).ljust(self.stride, bytes([FILL])) for e in elements]
        if self.count is None:
            assert count is None
            room += [bytes([FILL]) * self.stride] * (32 - len(room))
            return Block(image(self.record, **{self.member: b"".join(room)}))
        number = len(elements) if count is None else count
        return Block(image(self.record, b"".join(room), **{self.count: number}))

    def get(self, block: Block, index: int) -> Any:
        return getattr(_libkestrel, f"{self.record}___getitem__")(block.pointer(self.record), index)

    def put(self, block: Block, index: int, value: Any) -> Any:
        return getattr(_libkestrel, f"{self.record}___setitem__")(block.pointer(self.record), index, value)


NAMES = [
    Indexed("VSUplinks", "numEntries", "entries", 32, 36),
    Indexed("VSUplinkPorts", "nUplinkPorts", "uplinkPortName", 81, 81),
    Indexed("VSUplinkPortIds", "nUplinkPorts", "uplinkPortId", 48, 48),
    Indexed("VSLAGStatus", "numUplinks", "uplinkNames", 32, 32),
    Indexed("VSTeamPolicy", None, "uplinkPortName", 81, 81),
    Indexed("LSTeamPolicy", None, "uplinkPortName", 81, 81),
]
SESSION_IDS = Indexed("VSDVMirrorSessionIDs", "numEntries", "entries", 32, 32, "session id")
PORT_IDS = Indexed("VSPromiscSessionActiveDsts", "numEntries", "entries", 4, 4, "port id")
RECORDS = [
    Indexed("LSTeamTable", "numLSTeam", "lsTeamPolicy", 2748, 2748, "LSTeamPolicy"),
    Indexed("DVMirrorSessionTable", "numSessions", "sessions", 232, 232, "DVMirrorSession"),
    Indexed("RTMIOCtlQuery", "numPortsets", "rtmPs", 136, 136, "RTM_Portset"),
    Indexed("RTMModIOCtlQuery", "numMod", "rtmModId", 5, 5, "RTM_ModInfo"),
]
EVERY = [*NAMES, SESSION_IDS, PORT_IDS, *RECORDS]
COUNTED = [member for member in EVERY if member.count]
FIXED = [member for member in EVERY if not member.count]
WRITABLE = [member for member in EVERY if member is not SESSION_IDS]


def element(member: Indexed, number: int) -> bytes:
    """Bytes for an element that tell it from the others."""
    if member.element == "name":
        return f"name-{number}".encode()
    return bytes((7 * i + 31 * number + 1) % 251 for i in range(member.width))


def elements(member: Indexed, number: int) -> list[bytes]:
    return [element(member, i) for i in range(number)]


def value(member: Indexed, data: bytes) -> Any:
    """What `__setitem__` takes for an element of these bytes, where that is no record."""
    return data.decode() if member.element == "name" else int.from_bytes(data, "little")


def invalid(member: Indexed, block: Block, index: int) -> None:
    """What an index outside gives, the text apart."""
    if member is SESSION_IDS:
        with pytest.raises(SystemError, match="returned NULL without setting an exception") as caught:
            member.get(block, index)
        assert caught.value.__cause__ is None
    elif member is PORT_IDS:
        got = member.get(block, index)
        assert (type(got), got) == (int, 0)
    else:
        assert member.get(block, index) is None


def test_the_members_are_those_that_have_the_methods() -> None:
    runs = {*RUNS, "VSList"}
    with_method = {name.removesuffix("___getitem__") for name in dir(_libkestrel) if name.endswith("___getitem__")}
    assert {member.record for member in EVERY} == with_method - runs
    written = {name.removesuffix("___setitem__") for name in dir(_libkestrel) if name.endswith("___setitem__")}
    assert {member.record for member in WRITABLE} == written


@pytest.mark.parametrize("member", [*NAMES, SESSION_IDS, PORT_IDS], ids=str)
def test_each_element_is_read_at_its_place(member: Indexed, capfd: Any) -> None:
    number = 4 if member.count else 32
    content = elements(member, number)
    block = member.block(content)
    before = block.content()
    for index, data in enumerate(content):
        got = member.get(block, index)
        expected = data if member is SESSION_IDS else value(member, data)
        assert (type(got), got) == (type(expected), expected)
    assert block.content() == before
    assert printed(capfd) == ""


@pytest.mark.parametrize("member", RECORDS, ids=str)
def test_a_record_is_handed_out_in_place(member: Indexed, capfd: Any) -> None:
    block = member.block(elements(member, 3))
    for index in range(3):
        before = block.content()
        proxy = member.get(block, index)
        assert type(proxy).__name__ == member.element
        assert memory.address(proxy) == block.address + member.at(index)
        assert proxy.own() is False
        assert memory.read(proxy, member.width) == element(member, index)
        memory.write(proxy, bytes(member.width))
        assert block.content() == changed(before, member.at(index), bytes(member.width))
    assert printed(capfd) == ""


def test_a_field_of_a_record_in_a_table_is_a_field_of_the_table() -> None:
    table = _libkestrel.alloc_dvmirror_session_table(2, 0)
    session = _libkestrel.DVMirrorSessionTable___getitem__(table, 1)
    _libkestrel.DVMirrorSession_dname_set(session, "changed here")
    again = _libkestrel.DVMirrorSessionTable___getitem__(table, 1)
    assert _libkestrel.DVMirrorSession_dname_get(again) == "changed here"
    assert memory.read(table, 12, 20 + 232 + 32) == b"changed here"
    _libkestrel.free_dvmirror_session_table(table)


@pytest.mark.parametrize("member", COUNTED, ids=str)
@pytest.mark.parametrize("count", [0, 1, 3])
def test_an_index_outside_the_count_is_told_and_reads_nothing(member: Indexed, count: int, capfd: Any) -> None:
    block = member.block(elements(member, 5), count)
    before = block.content()
    for index in (count, count + 1, *OUTSIDE):
        invalid(member, block, index)
        assert printed(capfd) == INVALID
    if count:
        member.get(block, count - 1)
        assert printed(capfd) == ""
    assert block.content() == before


@pytest.mark.parametrize("member", COUNTED, ids=str)
def test_counts_of_2_31_and_above_are_no_negative_numbers(member: Indexed, capfd: Any) -> None:
    for count in (2**31, 2**32 - 1):
        block = member.block(elements(member, 3), count)
        for index in (0, 2):
            got = member.get(block, index)
            if member in RECORDS:
                assert memory.address(got) == block.address + member.at(index)
            else:
                assert got == (
                    element(member, index) if member is SESSION_IDS else value(member, element(member, index))
                )
        assert printed(capfd) == ""
        invalid(member, block, -1)
        assert printed(capfd) == INVALID
        invalid(member, member.block(elements(member, 3), 2**31), -(2**31))
        assert printed(capfd) == INVALID


@pytest.mark.parametrize("member", FIXED, ids=str)
def test_an_array_of_32_refuses_an_index_above_31_aloud_and_a_negative_one_in_silence(
    member: Indexed, capfd: Any
) -> None:
    block = member.block(elements(member, 32))
    before = block.content()
    assert member.get(block, 31) == "name-31"
    assert printed(capfd) == ""
    for index in (32, 33, 2**31 - 1):
        assert member.get(block, index) is None
        assert printed(capfd) == INVALID
        assert member.put(block, index, "x") is None
        assert printed(capfd) == INVALID
    for index in (-1, -2, -32, -(2**31)):
        assert member.get(block, index) is None
        assert member.put(block, index, "x") is None
        assert printed(capfd) == ""
    assert block.content() == before


@pytest.mark.parametrize("member", FIXED, ids=str)
def test_an_array_of_32_does_not_look_at_the_numbers_of_uplinks(member: Indexed, capfd: Any) -> None:
    for number in (0, 2**32 - 1):
        names = b"".join(padded(name, 81) for name in elements(member, 32))
        block = Block(image(member.record, uplinkPortName=names, numActive=number, numStandby=number))
        assert [member.get(block, i) for i in (0, 31)] == ["name-0", "name-31"]
    assert printed(capfd) == ""


@pytest.mark.parametrize("member", NAMES, ids=str)
def test_a_name_ends_at_its_first_zero_or_its_width(member: Indexed) -> None:
    names = {
        b"": "",
        b"a": "a",
        b"a\0hidden": "a",
        b"n" * (member.width - 1): "n" * (member.width - 1),
        b"n" * member.width: "n" * member.width,
        "Büro 日本".encode(): "Büro 日本",
        b"\xff\xc3\xbc\x80": "\udcffü\udc80",
        b"n" * (member.width - 1) + b"\xc3": "n" * (member.width - 1) + "\udcc3",
    }
    block = member.block(list(names))
    assert [member.get(block, i) for i in range(len(names))] == list(names.values())


@pytest.mark.parametrize("member", NAMES, ids=str)
def test_a_text_is_stored_with_zeros_behind_it_up_to_its_width(member: Indexed, capfd: Any) -> None:
    last = 3 if member.count else 31
    for text in (
        "",
        "a",
        "vmnic0",
        "x" * (member.width - 1),
        "x" * member.width,  # no terminator
        "x" * (member.width + 1),
        "x" * 100,
        "x" * 5000,
        "ü" * member.width,  # may be cut within a character
        "x" + "ü" * member.width,
        "ab\0cd",
    ):
        for index in (0, 1, last):
            block = member.block([b"\xa5" * member.width] * 4)
            before = block.content()
            assert member.put(block, index, text) is None
            stored = padded(text.split("\0")[0].encode(), member.width)
            assert block.content() == changed(before, member.at(index), stored)
            assert member.get(block, index) == stored.rstrip(b"\0").decode("utf-8", "surrogateescape")
    assert printed(capfd) == ""


def test_a_text_of_100_characters_fills_a_port_name_of_81_bytes() -> None:
    ports = _libkestrel.new_VSUplinkPorts(2)
    _libkestrel.VSUplinkPorts___setitem__(ports, 1, "")
    _libkestrel.VSUplinkPorts___setitem__(ports, 0, "p" * 100)
    assert memory.read(ports, 2 * 81, 4) == b"p" * 81 + bytes(81)
    assert _libkestrel.VSUplinkPorts___getitem__(ports, 0) == "p" * 81


PORTS = (0, 1, 0x04000001, 2**31 - 1, 2**31, 2**32 - 1)


def test_port_identifiers_are_never_negative(capfd: Any) -> None:
    block = PORT_IDS.block([port.to_bytes(4, "little") for port in PORTS])
    assert [PORT_IDS.get(block, i) for i in range(len(PORTS))] == list(PORTS)
    assert printed(capfd) == ""


def test_port_identifiers_are_stored_in_32_bits(capfd: Any) -> None:
    for index in range(3):
        for port in PORTS:
            block = PORT_IDS.block([b"\xa5" * 4] * 3)
            before = block.content()
            assert PORT_IDS.put(block, index, port) is None
            assert block.content() == changed(before, PORT_IDS.at(index), port.to_bytes(4, "little"))
            assert PORT_IDS.get(block, index) == port
    assert printed(capfd) == ""


def test_session_identifiers_are_all_32_bytes_whatever_they_hold() -> None:
    ids = [bytes(32), b"session".ljust(32, b"\0"), b"s" * 32, b"\xff" * 32, b"a\0b".ljust(32, b"\0"), bytes(range(32))]
    block = SESSION_IDS.block(ids)
    got = [SESSION_IDS.get(block, i) for i in range(len(ids))]
    assert got == ids
    assert {type(one) for one in got} == {bytes}


@pytest.mark.parametrize("member", RECORDS, ids=str)
def test_a_record_is_copied_whole_into_the_table(member: Indexed, capfd: Any) -> None:
    content = element(member, 9)
    for index in range(3):
        source = Block(content)
        proxy = source.pointer(member.element)
        block = member.block(elements(member, 3))
        before = block.content()
        assert member.put(block, index, proxy) is None
        assert block.content() == changed(before, member.at(index), content)
        assert source.content() == content
        source.write(bytes(member.width))
        assert block.content() == changed(before, member.at(index), content)
    assert printed(capfd) == ""


@pytest.mark.parametrize("member", RECORDS, ids=str)
def test_the_owner_of_a_record_keeps_it(member: Indexed) -> None:
    record = getattr(_libkestrel, f"new_{member.element}")()
    block = member.block(elements(member, 2))
    member.put(block, 0, record)
    assert record.own() is True


@pytest.mark.parametrize("member", RECORDS, ids=str)
def test_a_tables_own_record_may_be_stored_anywhere_in_it(member: Indexed) -> None:
    block = member.block(elements(member, 3))
    before = block.content()
    member.put(block, 2, member.get(block, 0))
    assert block.content() == changed(before, member.at(2), element(member, 0))
    member.put(block, 1, member.get(block, 1))
    assert block.content() == changed(before, member.at(2), element(member, 0))


@pytest.mark.parametrize("member", [m for m in WRITABLE if m.count], ids=str)
@pytest.mark.parametrize("count", [0, 1, 3, 2**32 - 1])
def test_an_index_outside_the_count_is_told_and_stores_nothing(member: Indexed, count: int, capfd: Any) -> None:
    block = member.block(elements(member, 5), count)
    before = block.content()
    source = Block(element(member, 9))
    stored = source.pointer(member.element) if member in RECORDS else value(member, element(member, 9))
    for index in (-1,) if count > 5 else (count, count + 1, *OUTSIDE):
        assert member.put(block, index, stored) is None
        assert printed(capfd) == INVALID
    assert block.content() == before


@pytest.mark.parametrize("member", [m for m in WRITABLE if m is not PORT_IDS], ids=str)
def test_none_stores_nothing(member: Indexed, capfd: Any) -> None:
    block = member.block(elements(member, 3))
    before = block.content()
    assert member.put(block, 1, None) is None
    assert printed(capfd) == ""
    assert member.put(block, 32, None) is None
    assert printed(capfd) == INVALID
    assert block.content() == before


@pytest.mark.parametrize("member", [m for m in NAMES if m.record.startswith("VSUplink")], ids=str)
def test_a_length_of_2_31_or_more_comes_back_negative(member: Indexed, capfd: Any) -> None:
    length = getattr(_libkestrel, f"{member.record}___len__")
    for count, expected in (
        (0, 0),
        (1, 1),
        (3, 3),
        (2**31 - 1, 2**31 - 1),
        (2**31, -(2**31)),
        (2**32 - 1, -1),
    ):
        block = member.block(elements(member, 3), count)
        got = length(block.pointer(member.record))
        assert (type(got), got) == (int, expected)
    assert printed(capfd) == ""


def test_three_records_have_a_length() -> None:
    with_length = {name.removesuffix("___len__") for name in dir(_libkestrel) if name.endswith("___len__")}
    assert with_length == {"VSUplinks", "VSUplinkPorts", "VSUplinkPortIds"}


def test_uplinks_are_36_bytes_apart_and_bounded_by_their_count(capfd: Any) -> None:
    uplinks = _libkestrel.new_VSUplinks(10)
    entries = b"".join(f"vmnic{i}".encode().ljust(32, b"\0") + bytes(4) for i in range(2))
    memory.write(uplinks, (9).to_bytes(4, "little") + (2).to_bytes(4, "little") + entries)
    assert _libkestrel.VSUplinks___len__(uplinks) == 2
    assert [_libkestrel.VSUplinks___getitem__(uplinks, i) for i in range(2)] == ["vmnic0", "vmnic1"]
    for index in (2, 100, -1, -(2**31)):
        assert _libkestrel.VSUplinks___getitem__(uplinks, index) is None
        assert printed(capfd) == INVALID


# ---- Runs of records ----

RUNS = {
    "VSPvlanMapEntry": 8,
    "VSMACEntry": 26,
    "VSStaticLEEntry": 529,
    "VSPMACLearningStatsPortInfo": 32,
    "VSPropSecurityPortInfo": 8,
    "VSPMACLearningInfo": 14,
}
"""Records that may stand in a run, and their sizes."""


def run_of(record: str, number: int) -> list[bytes]:
    return [bytes((7 * i + 31 * n + 1) % 251 for i in range(RUNS[record])) for n in range(number)]


@pytest.mark.parametrize("record", RUNS)
def test_an_element_of_a_run_is_a_copy_of_its_own(record: str, capfd: Any) -> None:
    size = RUNS[record]
    content = run_of(record, 5)
    block = Block(b"".join(content))
    get = getattr(_libkestrel, f"{record}___getitem__")
    copies = [get(block.pointer(record), i) for i in range(5)]
    assert [memory.read(copy, size) for copy in copies] == content
    assert {type(copy).__name__ for copy in copies} == {record}
    assert [copy.own() for copy in copies] == [True] * 5
    for copy in copies:
        assert memory.usable_size(copy) >= size
        assert not block.address <= memory.address(copy) < block.address + 5 * size
    block.write(bytes(5 * size))
    assert [memory.read(copy, size) for copy in copies] == content
    for copy in copies:
        memory.write(copy, b"\xff" * size)
    assert block.content() == bytes(5 * size)
    assert printed(capfd) == ""


@pytest.mark.parametrize("record", RUNS)
def test_a_run_is_counted_from_the_record_given(record: str) -> None:
    size = RUNS[record]
    content = run_of(record, 5)
    block = Block(b"".join(content))
    get = getattr(_libkestrel, f"{record}___getitem__")
    assert memory.read(get(block.pointer(record, 2 * size), 1), size) == content[3]


@pytest.mark.parametrize("record", RUNS)
def test_a_run_has_nothing_before_its_first_record(record: str, capfd: Any) -> None:
    block = Block(b"".join(run_of(record, 3)))
    for index in (-1, -2, -(2**31)):
        assert getattr(_libkestrel, f"{record}___getitem__")(block.pointer(record, RUNS[record]), index) is None
    assert printed(capfd) == ""


@pytest.mark.parametrize("record", RUNS)
def test_copies_out_of_a_run_are_released_with_their_objects(record: str) -> None:
    block = Block(b"".join(run_of(record, 2)))
    target = block.pointer(record)
    get = getattr(_libkestrel, f"{record}___getitem__")
    before = memory.allocated_bytes()
    for _ in range(5000):
        get(target, 1)
    assert memory.allocated_bytes() < before + 1000 * RUNS[record]


@pytest.mark.parametrize("record", RUNS)
def test_a_copy_for_which_there_is_no_memory_is_none(record: str) -> None:
    outcome = scarce(
        f"first = _libkestrel.new_{record}()\n"
        "first.disown()\n"
        f"report(failing({RUNS[record]}, _libkestrel.{record}___getitem__, first, 0))\n"
    )
    assert outcome.result is None
    assert outcome.printed == ""


def test_elements_of_a_run_are_copied_into_records_of_their_own(recorder: Recorder) -> None:
    run = b"".join(bytes([i]) * 26 for i in range(5))
    block = Block(bytes(8) + run)
    recorder.output("VSZEL_GetMACTable", 2, block.address.to_bytes(8, "little"))
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


# ---- Single elements ----


def test_words_of_a_vlan_bitmap() -> None:
    words = [(0x0102030405060708 * (i + 1)) % 2**64 for i in range(64)]
    words[0], words[1], words[62], words[63] = 0, 1, 2**63, 2**64 - 1
    block = Block(image("VSStaticLEEntry", vlanBitmap=b"".join(word.to_bytes(8, "little") for word in words)))
    entry = block.pointer("VSStaticLEEntry")
    got = [_libkestrel.VSStaticLEEntry_vlan_get_values(entry, i) for i in range(64)]
    assert got == words
    assert {type(word) for word in got} == {int}


def test_words_beyond_the_bitmap_are_the_memory_there(capfd: Any) -> None:
    block = Block(bytes(range(251)) * 3)
    entry = block.pointer("VSStaticLEEntry", 40)
    for index in (-5, -1, 64, 65, 70):
        expected = int.from_bytes(block.content()[40 + 8 * index :][:8], "little")
        assert _libkestrel.VSStaticLEEntry_vlan_get_values(entry, index) == expected
    assert printed(capfd) == ""


def test_vlan_ranges_are_copies() -> None:
    ranges = [bytes([i, 0, i + 100, 1]) for i in range(4)]
    content = image("VSPortVlanPolicy", b"".join(ranges), numRanges=4)
    block = Block(content)
    policy = block.pointer("VSPortVlanPolicy")
    copies = [_libkestrel.VSPortVlanPolicy_get_vid_range(policy, i) for i in range(4)]
    assert [memory.read(copy, 4) for copy in copies] == ranges
    assert {type(copy).__name__ for copy in copies} == {"zel_VDSPortVIDRange"}
    assert [copy.own() for copy in copies] == [True] * 4
    for copy in copies:
        memory.write(copy, bytes(4))
    assert block.content() == content
    copy = _libkestrel.VSPortVlanPolicy_get_vid_range(policy, 2)
    block.write(bytes(len(content)))
    assert memory.read(copy, 4) == ranges[2]


def test_vlan_ranges_do_not_look_at_their_number(capfd: Any) -> None:
    content = image("VSPortVlanPolicy", bytes(range(40)), numRanges=1)
    block = Block(content)
    policy = block.pointer("VSPortVlanPolicy")
    for index in (-2, -1, 0, 1, 9):
        copy = _libkestrel.VSPortVlanPolicy_get_vid_range(policy, index)
        assert memory.read(copy, 4) == content[8 + 4 * index :][:4]
    assert printed(capfd) == ""


def test_copies_of_vlan_ranges_are_released_with_their_objects() -> None:
    block = Block(image("VSPortVlanPolicy", bytes(4)))
    policy = block.pointer("VSPortVlanPolicy")
    before = memory.allocated_bytes()
    for _ in range(5000):
        _libkestrel.VSPortVlanPolicy_get_vid_range(policy, 0)
    assert memory.allocated_bytes() < before + 5000


def property_value(value: Block | None, length: int) -> Block:
    address = value.address if value else 0
    return Block(image("VDSQuery", propLen=length, propValue=address.to_bytes(8, "little")))


def test_a_property_value_is_as_many_bytes_as_its_length_says() -> None:
    content = b"a\0b\xff" + bytes(range(60))
    value = Block(content)
    for length in (0, 1, 2, 4, len(content)):
        query = property_value(value, length)
        got = _libkestrel.VDSQuery_get_val_in_bytes(query.pointer("VDSQuery"))
        assert (type(got), got) == (bytes, content[:length])


def test_a_negative_length_is_the_interpreters_to_refuse() -> None:
    value = Block(b"value")
    for length in (-1, -(2**31)):
        query = property_value(value, length)
        with pytest.raises(SystemError, match=r"^Negative size passed to PyBytes_FromStringAndSize$"):
            _libkestrel.VDSQuery_get_val_in_bytes(query.pointer("VDSQuery"))


@pytest.mark.parametrize("length", [0, 5, -1])
def test_no_property_value_is_none(length: int) -> None:
    query = property_value(None, length)
    assert _libkestrel.VDSQuery_get_val_in_bytes(query.pointer("VDSQuery")) is None


def test_the_value_of_an_allocated_query_is_its_zeroed_buffer() -> None:
    query = _libkestrel.alloc_vds_query(7)
    assert _libkestrel.VDSQuery_get_val_in_bytes(query) == bytes(7)
    _libkestrel.free_vds_query(query)


# ---- Arrays ----

ARRAYS = {"vidrangeArray": ("zel_VDSPortVIDRange", 4), "pvlanmapentryArray": ("VSPvlanMapEntry", 8)}
"""Arrays with their elements' record and its size."""


@pytest.mark.parametrize("array", ARRAYS)
def test_arrays_hold_copies(array: str) -> None:
    element, width = ARRAYS[array]
    elements = getattr(_libkestrel, f"new_{array}")(3)
    get, put = getattr(_libkestrel, f"{array}_getitem"), getattr(_libkestrel, f"{array}_setitem")
    for index in range(3):
        value = getattr(_libkestrel, f"new_{element}")()
        memory.write(value, bytes([index + 1]) * width)
        assert put(elements, index, value) is None
        assert value.own() is True
    assert memory.read(elements, 3 * width) == b"".join(bytes([i + 1]) * width for i in range(3))
    copy = get(elements, 1)
    assert copy.own() is True
    assert type(copy).__name__ == element
    assert memory.read(copy, width) == b"\2" * width
    memory.write(copy, bytes(width))
    assert memory.read(elements, width, width) == b"\2" * width
    getattr(_libkestrel, f"delete_{array}")(elements)


@pytest.mark.parametrize("array", ARRAYS)
def test_an_element_of_an_array_is_stored_at_its_place(array: str) -> None:
    element, width = ARRAYS[array]
    target = getattr(_libkestrel, f"new_{array}")(5)
    value = getattr(_libkestrel, f"new_{element}")()
    memory.write(value, bytes(range(1, width + 1)))
    for index in range(5):
        memory.write(target, b"\xa5" * 5 * width)
        getattr(_libkestrel, f"{array}_setitem")(target, index, value)
        assert memory.read(target, 5 * width) == changed(b"\xa5" * 5 * width, index * width, bytes(range(1, width + 1)))
    getattr(_libkestrel, f"delete_{array}")(target)


def assert_refused(method: Any, arguments: tuple[Any, ...], exception: type[Exception], text: str) -> None:
    with pytest.raises(exception) as caught:
        method(*arguments)
    assert type(caught.value) is exception
    assert str(caught.value) == text


@pytest.mark.parametrize("array", ARRAYS)
def test_arrays_refuse_other_types(array: str) -> None:
    element, width = ARRAYS[array]
    elements, value = getattr(_libkestrel, f"new_{array}")(1), getattr(_libkestrel, f"new_{element}")()
    memory.write(elements, b"\xa5" * width)
    get, put = getattr(_libkestrel, f"{array}_getitem"), getattr(_libkestrel, f"{array}_setitem")

    third = f"in method '{array}_setitem', argument 3 of type '{element}'"
    assert_refused(put, (elements, 0, None), ValueError, f"invalid null reference {third}")
    for wrong in (1, "x", b"x" * width, [1], object(), _libkestrel.new_VSStats()):
        assert_refused(put, (elements, 0, wrong), TypeError, third)
    for wrong, exception in values.bad("size"):
        second = "argument 2 of type 'size_t'"
        assert_refused(get, (elements, wrong), exception, f"in method '{array}_getitem', {second}")
        assert_refused(put, (elements, wrong, value), exception, f"in method '{array}_setitem', {second}")
    for wrong in (1, "x", _libkestrel.new_VSStats()):
        first = f"argument 1 of type '{array} *'"
        assert_refused(get, (wrong, 0), TypeError, f"in method '{array}_getitem', {first}")
        assert_refused(put, (wrong, 0, value), TypeError, f"in method '{array}_setitem', {first}")
    for method, count in ((get, 2), (put, 3)):
        for given in (0, count - 1, count + 1):
            text = f"{method.__name__}() takes exactly {count} arguments ({given} given)"
            assert_refused(method, (None,) * given, TypeError, text)
    assert memory.read(elements, width) == b"\xa5" * width
    getattr(_libkestrel, f"delete_{array}")(elements)


@pytest.mark.parametrize("array", ARRAYS)
def test_an_array_passes_for_a_pointer_to_its_first_element(array: str, recorder: Recorder) -> None:
    element, width = ARRAYS[array]
    elements = getattr(_libkestrel, f"new_{array}")(2)
    if element == "zel_VDSPortVIDRange":
        _libkestrel.VSDVS_SetPortVLANPolicy("s", "p", 0, 1, 0, 0, elements, 2)
        assert recorder.calls()[0].arguments[6] == Address(memory.address(elements))
    else:
        memory.write(elements, bytes(range(2 * width)))
        second = _libkestrel.VSPvlanMapEntry___getitem__(elements, 1)
        assert memory.read(second, width) == bytes(range(width, 2 * width))
    first = getattr(_libkestrel, f"{array}_getitem")(elements, 0)
    put = getattr(_libkestrel, f"{array}_setitem")
    put(elements, 1, first)
    put(elements, 1, elements)
    assert elements.own() is True
    getattr(_libkestrel, f"delete_{array}")(elements)


def test_records_in_tables_have_the_sizes_that_they_cross_with() -> None:
    sizes = {member.element: member.width for member in RECORDS} | RUNS | dict(ARRAYS.values())
    assert {name: HEADERS.record(name).size for name in sizes} == sizes
