"""Addresses and names as text: MAC setters, multicast entries, mirror entities, names."""

from __future__ import annotations

import array
import socket
from dataclasses import dataclass
from ipaddress import IPv6Address
from typing import Any

import _libkestrel
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from support import memory
from support.blocks import FILL, Block, changed, image, offset_of, padded
from support.output import printed

MAC = b"\x00\x1a\x2b\x3c\x4d\x5e"


def mac_text(mac: bytes) -> str:
    return ":".join(f"{byte:02x}" for byte in mac)


# ---- MAC addresses from bytes ----


@dataclass(frozen=True)
class Setter:
    """A method that stores a MAC address, with what it takes before the address, and where that goes."""

    record: str
    member: str
    arguments: tuple[int, ...] = ()

    @property
    def place(self) -> int:
        return offset_of(self.record, self.member) + 6 * (self.arguments[0] if self.arguments else 0)

    def __call__(self, target: Any, mac: Any) -> Any:
        return getattr(_libkestrel, f"{self.record}_set_mac_address")(target, *self.arguments, mac)


SETTERS = [
    Setter("VSMACEntry", "macAddress"),
    Setter("VSStaticLEEntry", "macAddress"),
    *(Setter("VSMACEntries", "macEntry", (index,)) for index in range(25)),
]


@pytest.mark.parametrize("setter", SETTERS, ids=str)
def test_six_bytes_are_stored_and_nothing_else(setter: Setter) -> None:
    for mac in (MAC, bytes(6), b"\xff" * 6):
        content = image(setter.record)
        block = Block(content)
        assert setter(block.pointer(setter.record), mac) is None
        assert block.content() == changed(content, setter.place, mac)


@pytest.mark.parametrize("setter", [SETTERS[0], SETTERS[1], SETTERS[2]], ids=str)
def test_any_object_with_a_byte_buffer_is_an_address(setter: Setter) -> None:
    content = image(setter.record)
    for mac in (
        MAC,
        bytearray(MAC),
        memoryview(MAC),
        memoryview(bytearray(MAC)),
        memoryview(b"__" + MAC + b"__")[2:8],
        array.array("B", MAC),
        MAC + b"more bytes than an address has",
    ):
        block = Block(content)
        assert setter(block.pointer(setter.record), mac) is None
        assert block.content() == changed(content, setter.place, MAC)


@pytest.mark.parametrize("setter", [SETTERS[0], SETTERS[1], SETTERS[2]], ids=str)
def test_the_buffer_is_given_back(setter: Setter) -> None:
    block = Block(image(setter.record))
    mac = bytearray(MAC)
    setter(block.pointer(setter.record), mac)
    mac.append(0)  # refused as long as anyone holds the buffer
    assert len(mac) == 7


@pytest.mark.parametrize("setter", [SETTERS[0], SETTERS[1], SETTERS[2]], ids=str)
def test_an_object_without_a_byte_buffer_is_no_address(setter: Setter) -> None:
    content = image(setter.record)
    position = 2 + len(setter.arguments)
    for wrong in (None, "00:1a:2b:3c:4d:5e", 1, 1.0, [0] * 6, object(), memoryview(bytes(12))[::2]):
        block = Block(content)
        with pytest.raises(TypeError) as caught:
            setter(block.pointer(setter.record), wrong)
        assert str(caught.value) == (
            f"in method '{setter.record}_set_mac_address', argument {position} of type '(unsigned char *mac_str, SIZE)'"
        )
        assert block.content() == content


@pytest.mark.parametrize("index", [25, 26, 2**31 - 1, -1, -25, -(2**31)])
def test_an_index_outside_the_25_entries_stores_nothing(index: int, capfd: Any) -> None:
    content = image("VSMACEntries")
    block = Block(content)
    assert _libkestrel.VSMACEntries_set_mac_address(block.pointer("VSMACEntries"), index, MAC) is None
    assert block.content() == content
    assert printed(capfd) == ""


# ---- Entries of multicast filters ----

IPV4 = {
    "0.0.0.0": bytes(4),
    "10.0.0.1": b"\x0a\x00\x00\x01",
    "239.1.2.3": b"\xef\x01\x02\x03",
    "255.255.255.255": b"\xff" * 4,
}
IPV6 = {
    "::": bytes(16),
    "::1": bytes(15) + b"\x01",
    "fe80::1": b"\xfe\x80" + bytes(13) + b"\x01",
    "ff02::1:ff00:1234": b"\xff\x02" + bytes(9) + b"\x01\xff\x00\x12\x34",
    "::ffff:10.0.0.1": bytes(10) + b"\xff\xff\x0a\x00\x00\x01",
    "2001:db8:0:1:1:1:1:1": b"\x20\x01\x0d\xb8\x00\x00" + b"\x00\x01" * 5,
    "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff": b"\xff" * 16,
}
MACS = {
    "00:1a:2b:3c:4d:5e": MAC,
    "00:00:00:00:00:00": bytes(6),
    "ff:ff:ff:ff:ff:ff": b"\xff" * 6,
    "01:00:5e:0a:0b:0c": b"\x01\x00\x5e\x0a\x0b\x0c",
}

GETTERS = {
    "VSMcastFilters_get_ip_entry": ("VSMcastFilters", IPV4),
    "VSMcastFilters_get_ipv6_entry": ("VSMcastFilters", IPV6),
    "VSMcastFilters_get_mac_entry": ("VSMcastFilters", MACS),
    "VSMcastFilterStats_get_ip_entry": ("VSMcastFilterStats", IPV4),
    "VSMcastFilterStats_get_ipv6_entry": ("VSMcastFilterStats", IPV6),
    "VSUserMcastLegacyKeys_get_mac_entry": ("VSUserMcastLegacyKeys", MACS),
}
"""The getters, each with its record and, by text, addresses of its kind."""


@pytest.mark.parametrize("method", GETTERS)
def test_each_entry_reads_as_the_text_of_its_address(method: str, capfd: Any) -> None:
    record, addresses = GETTERS[method]
    block = Block(image(record, b"".join(addresses.values()), numEntries=len(addresses)))
    filters = block.pointer(record)
    assert [getattr(_libkestrel, method)(filters, i) for i in range(len(addresses))] == list(addresses)
    assert printed(capfd) == ""


@pytest.mark.parametrize("method", GETTERS)
def test_an_index_outside_the_entries_has_no_text(method: str, capfd: Any) -> None:
    record, addresses = GETTERS[method]
    for count in (0, 1, 3):
        block = Block(image(record, b"".join(addresses.values()), numEntries=count))
        filters = block.pointer(record)
        for index in (count, count + 1, 2**31 - 1, -1, -(2**31)):
            assert getattr(_libkestrel, method)(filters, index) is None
        if count:
            assert getattr(_libkestrel, method)(filters, count - 1) == list(addresses)[count - 1]
    assert printed(capfd) == ""


@pytest.mark.parametrize("method", [m for m, (record, _) in GETTERS.items() if record != "VSUserMcastLegacyKeys"])
def test_counts_of_entries_are_unsigned(method: str) -> None:
    record, addresses = GETTERS[method]
    for count in (2**31, 2**32 - 1):
        block = Block(image(record, b"".join(addresses.values()), numEntries=count, totalEntries=0))
        assert getattr(_libkestrel, method)(block.pointer(record), 1) == list(addresses)[1]
    assert getattr(_libkestrel, method)(block.pointer(record), -1) is None


def test_a_legacy_list_may_have_255_entries() -> None:
    macs = [bytes([i]) * 6 for i in range(255)]
    block = Block(image("VSUserMcastLegacyKeys", b"".join(macs), numEntries=255))
    keys = block.pointer("VSUserMcastLegacyKeys")
    texts = [_libkestrel.VSUserMcastLegacyKeys_get_mac_entry(keys, i) for i in range(256)]
    assert texts == [*map(mac_text, macs), None]


@settings(deadline=None)
@given(st.binary(min_size=16, max_size=16))
def test_any_address_has_its_text(address: bytes) -> None:
    for record in ("VSMcastFilters", "VSMcastFilterStats"):
        block = Block(image(record, address, numEntries=1))
        filters = block.pointer(record)
        assert getattr(_libkestrel, f"{record}_get_ip_entry")(filters, 0) == socket.inet_ntoa(address[:4])
        ipv6 = getattr(_libkestrel, f"{record}_get_ipv6_entry")(filters, 0)
        assert ipv6 == socket.inet_ntop(socket.AF_INET6, address)
        assert IPv6Address(ipv6).packed == address
    block = Block(image("VSMcastFilters", address, numEntries=1))
    assert _libkestrel.VSMcastFilters_get_mac_entry(block.pointer("VSMcastFilters"), 0) == mac_text(address[:6])


# ---- Mirror entities ----

DVPORT, UPLINK, VLAN, IP, PORT, MAC_ADDRESS = (
    _libkestrel.MIRROR_ENTTYPE_DVPORT,
    _libkestrel.MIRROR_ENTTYPE_UPLINK,
    _libkestrel.MIRROR_ENTTYPE_VLAN,
    _libkestrel.MIRROR_ENTTYPE_IP,
    _libkestrel.MIRROR_ENTTYPE_PORT,
    _libkestrel.MIRROR_ENTTYPE_MAC,
)
UNKNOWN = (6, 7, 256, -1, 2**31 - 1, -(2**31))

ENTITY = "DVMirrorEntity"
VIEW = 48
"""Bytes of the union behind an entity's type."""


def entity(kind: int, view: bytes = b"") -> Block:
    return Block(kind.to_bytes(4, "little", signed=True) + view.ljust(VIEW, bytes([FILL])))


def view_of(block: Block, kind: int) -> bytes:
    """The union's bytes; the type must still be there."""
    content = block.content()
    assert content[:4] == kind.to_bytes(4, "little", signed=True)
    return content[4:]


def ipv4_view(address: bytes) -> bytes:
    return b"\0" + bytes([FILL]) * 3 + address


def ipv6_view(address: bytes, flag: int = 1) -> bytes:
    return bytes([flag]) + bytes([FILL]) * 3 + address


def test_the_types_of_entities() -> None:
    assert (DVPORT, UPLINK, VLAN, IP, PORT, MAC_ADDRESS) == (0, 1, 2, 3, 4, 5)


SHOWN = [
    (DVPORT, b"\0", ""),
    (DVPORT, b"port-17\0rest", "port-17"),
    (DVPORT, b"p" * 47 + b"\0", "p" * 47),
    (DVPORT, b"p" * 48, "p" * 48),
    (DVPORT, b"\xff\xc3\xbc\x80\0", "\udcffü\udc80"),
    (UPLINK, b"\0", ""),
    (UPLINK, b"vmnic0\0rest", "vmnic0"),
    (UPLINK, b"u" * 31 + b"\0not shown", "u" * 31),
    (UPLINK, b"u" * 32 + b"not shown", "u" * 32),
    (UPLINK, b"\xfe\0", "\udcfe"),
    *((VLAN, number.to_bytes(2, "little"), str(number)) for number in (0, 1, 100, 4095, 32768, 65535)),
    *((IP, ipv4_view(address), text) for text, address in IPV4.items()),
    *((IP, ipv6_view(address), text) for text, address in IPV6.items()),
    (IP, ipv6_view(IPV6["fe80::1"], flag=0xFF), "fe80::1"),
    (IP, ipv6_view(IPV6["::1"], flag=2), "::1"),
    *((PORT, number.to_bytes(4, "little"), str(number)) for number in (0, 1, 67108870, 2**31 - 1)),
    (PORT, (2**31).to_bytes(4, "little"), "-2147483648"),
    (PORT, (2**32 - 2).to_bytes(4, "little"), "-2"),
    (PORT, (2**32 - 1).to_bytes(4, "little"), "-1"),
    *((MAC_ADDRESS, mac, text) for text, mac in MACS.items()),
    *((kind, b"text", "") for kind in UNKNOWN),
]


@pytest.mark.parametrize(("kind", "view", "text"), SHOWN)
def test_an_entity_is_shown_as_its_type_says(kind: int, view: bytes, text: str, capfd: Any) -> None:
    block = entity(kind, view)
    content = block.content()
    assert _libkestrel.DVMirrorEntity_get_entity(block.pointer(ENTITY)) == text
    assert block.content() == content
    assert printed(capfd) == ""


def name_view(text: bytes) -> bytes:
    """An uplink's name as it is stored: 31 bytes at most, so that it always ends."""
    return padded(text[:31], 32)


STORED = [
    *(
        (DVPORT, text, padded(text.encode(), 48))
        for text in ("", "port-17", "p" * 47, "p" * 48, "p" * 49, "p" * 1000, "ü" * 24, "p" + "ü" * 24)
    ),
    (DVPORT, "ab\0cd", padded(b"ab", 48)),
    *(
        (UPLINK, text, name_view(text.encode()))
        for text in ("", "vmnic0", "u" * 30, "u" * 31, "u" * 32, "u" * 33, "u" * 40, "u" * 1000, "ü" * 16, "日" * 11)
    ),
    (UPLINK, "ab\0cd", padded(b"ab", 32)),
    *((IP, text, ipv4_view(address)) for text, address in IPV4.items()),
    *((IP, text, ipv6_view(address)) for text, address in IPV6.items()),
    (IP, "FE80::1", ipv6_view(IPV6["fe80::1"])),
    (IP, "0:0:0:0:0:0:0:1", ipv6_view(IPV6["::1"])),
    *((IP, text, b"") for text in ("", "no address", "10.0.0", "10.0.0.256", "10.0.0.1/24", "10.0.0.1x", "fe80::g")),
    *((IP, text, b"") for text in ("fe80::1::2", "1:2:3:4:5:6:7:8:9", "fe80:", ":", "fe80::1/64", "00:1a:2b:3c:4d:5e")),
    *((MAC_ADDRESS, text, mac) for text, mac in MACS.items()),
    (MAC_ADDRESS, "AA:BB:CC:DD:EE:FF", b"\xaa\xbb\xcc\xdd\xee\xff"),
    (MAC_ADDRESS, "a:b:c:d:e:f", b"\x0a\x0b\x0c\x0d\x0e\x0f"),
    (MAC_ADDRESS, "aa:bb", b"\xaa\xbb"),
    (MAC_ADDRESS, "aa:bb:", b"\xaa\xbb"),
    (MAC_ADDRESS, "aa:bb:xx:dd:ee:ff", b"\xaa\xbb"),
    (MAC_ADDRESS, "aa", b"\xaa"),
    (MAC_ADDRESS, "aa-bb-cc-dd-ee-ff", b"\xaa"),
    (MAC_ADDRESS, "aabb:cc", b"\xaa"),
    (MAC_ADDRESS, "aa:bb:cc:dd:ee", b"\xaa\xbb\xcc\xdd\xee"),
    (MAC_ADDRESS, "aa:bb:cc:dd:ee:ff:11", b"\xaa\xbb\xcc\xdd\xee\xff"),
    (MAC_ADDRESS, "  aa:bb:cc:dd:ee:ff", b"\xaa\xbb\xcc\xdd\xee\xff"),
    (MAC_ADDRESS, "", b""),
    (MAC_ADDRESS, "xx", b""),
    (MAC_ADDRESS, ":aa", b""),
    *((kind, "text", b"") for kind in UNKNOWN),
]

NUMBERS = {
    "0": 0,
    "1": 1,
    "4095": 4095,
    "65535": 65535,
    "65536": 65536,
    "70000": 70000,
    "2147483647": 2**31 - 1,
    "2147483648": 2**31,
    "4294967295": 2**32 - 1,
    "4294967296": 2**32,
    "4294967301": 2**32 + 5,
    "-1": -1,
    "-70000": -70000,
    "-2147483648": -(2**31),
    "+7": 7,
    "  42": 42,
    "\t\n 42": 42,
    "  -3": -3,
    "12abc": 12,
    "12 34": 12,
    "1.9": 1,
    "0x10": 0,
    "010": 10,
    "": 0,
    "abc": 0,
    "- 5": 0,
    "+-5": 0,
    " ": 0,
}
"""Texts with the number that each starts with, in base 10."""

STORED += [
    (kind, text, (number % 2 ** (8 * width)).to_bytes(width, "little"))
    for text, number in NUMBERS.items()
    for kind, width in ((VLAN, 2), (PORT, 4))
]


@pytest.mark.parametrize(("kind", "text", "view"), STORED)
def test_text_is_stored_as_the_type_says_and_the_rest_is_kept(kind: int, text: str, view: bytes, capfd: Any) -> None:
    block = entity(kind)
    assert _libkestrel.DVMirrorEntity_set_entity(block.pointer(ENTITY), text) is None
    assert view_of(block, kind) == view.ljust(VIEW, bytes([FILL]))
    assert printed(capfd) == ""


def test_an_address_tells_its_family() -> None:
    block = entity(IP, ipv6_view(IPV6["fe80::1"]))
    target = block.pointer(ENTITY)
    _libkestrel.DVMirrorEntity_set_entity(target, "10.0.0.1")
    # Four bytes are replaced, the twelve behind them are left of the longer address.
    assert view_of(block, IP) == ipv4_view(b"\x0a\0\0\x01" + IPV6["fe80::1"][4:]).ljust(VIEW, bytes([FILL]))
    assert _libkestrel.DVMirrorEntity_get_entity(target) == "10.0.0.1"
    _libkestrel.DVMirrorEntity_set_entity(target, "fe80::1")
    assert _libkestrel.DVMirrorEntity_get_entity(target) == "fe80::1"
    _libkestrel.DVMirrorEntity_set_entity(target, "neither")
    assert _libkestrel.DVMirrorEntity_get_entity(target) == "fe80::1"


@pytest.mark.parametrize("kind", [DVPORT, UPLINK, VLAN, IP, PORT, MAC_ADDRESS, *UNKNOWN])
def test_no_text_stores_nothing(kind: int) -> None:
    block = entity(kind)
    assert _libkestrel.DVMirrorEntity_set_entity(block.pointer(ENTITY), None) is None
    assert view_of(block, kind) == bytes([FILL]) * VIEW


@pytest.mark.parametrize("kind", [DVPORT, UPLINK, VLAN, IP, PORT, MAC_ADDRESS])
def test_what_is_no_text_is_refused(kind: int) -> None:
    block = entity(kind)
    for wrong in (1, b"10.0.0.1", 1.0, ["10.0.0.1"], object(), "\ud800"):
        with pytest.raises(TypeError) as caught:
            _libkestrel.DVMirrorEntity_set_entity(block.pointer(ENTITY), wrong)
        assert str(caught.value) == "in method 'DVMirrorEntity_set_entity', argument 2 of type 'char const *'"
    assert view_of(block, kind) == bytes([FILL]) * VIEW


@settings(deadline=None)
@given(st.integers(min_value=-(2**63), max_value=2**63 - 1))
def test_any_number_is_cut_to_its_member(number: int) -> None:
    for kind, width in ((VLAN, 2), (PORT, 4)):
        block = entity(kind)
        _libkestrel.DVMirrorEntity_set_entity(block.pointer(ENTITY), str(number))
        stored = (number % 2 ** (8 * width)).to_bytes(width, "little")
        assert view_of(block, kind) == stored.ljust(VIEW, bytes([FILL]))


@settings(deadline=None)
@given(st.sampled_from([DVPORT, UPLINK]), st.text(st.characters(exclude_characters="\0", exclude_categories=["Cs"])))
def test_any_name_comes_back_as_far_as_it_was_stored(kind: int, text: str) -> None:
    block = entity(kind)
    target = block.pointer(ENTITY)
    _libkestrel.DVMirrorEntity_set_entity(target, text)
    bound = 48 if kind == DVPORT else 31
    assert _libkestrel.DVMirrorEntity_get_entity(target) == text.encode()[:bound].decode("utf-8", "surrogateescape")


@settings(deadline=None)
@given(st.binary(min_size=16, max_size=16))
def test_any_address_survives_the_way_through_text(address: bytes) -> None:
    for kind, view in ((IP, ipv4_view(address[:4])), (IP, ipv6_view(address)), (MAC_ADDRESS, address[:6])):
        shown = entity(kind, view)
        text = _libkestrel.DVMirrorEntity_get_entity(shown.pointer(ENTITY))
        block = entity(kind)
        _libkestrel.DVMirrorEntity_set_entity(block.pointer(ENTITY), text)
        assert view_of(block, kind) == view.ljust(VIEW, bytes([FILL]))


# ---- Names ----


def test_names_as_text() -> None:
    name = _libkestrel.new_zel_Name()
    for text in ("", "vmnic0", "ä" * 15):
        _libkestrel.zel_Name_string_set(name, text)
        assert _libkestrel.zel_Name___repr__(name) == text
    memory.write(name, b"\xfe" * 32)
    assert _libkestrel.zel_Name___repr__(name) == "\udcfe" * 32


@pytest.mark.parametrize(
    ("stored", "text"),
    [
        (b"", ""),
        (b"a", "a"),
        (b"a\0hidden", "a"),
        (b"n" * 31, "n" * 31),
        (b"n" * 32, "n" * 32),
        ("日本".encode(), "日本"),
        (b"n" * 31 + b"\xc3", "n" * 31 + "\udcc3"),
    ],
)
def test_a_name_ends_at_its_first_zero_or_its_width(stored: bytes, text: str) -> None:
    block = Block(padded(stored, 32))  # what lies behind is no zero
    assert _libkestrel.zel_Name___repr__(block.pointer("zel_Name")) == text


def test_no_name_has_no_text() -> None:
    assert _libkestrel.zel_Name___repr__(None) is None
    assert _libkestrel.VSLAGStatus_get_name(None) is None


@pytest.mark.parametrize(
    ("stored", "text"),
    [
        (b"", ""),
        (b"lag-a\0hidden", "lag-a"),
        (b"n" * 67, "n" * 67),
        (b"n" * 68, "n" * 68),
        (b"\xff\xc3\xbc", "\udcffü"),
    ],
)
def test_a_lag_has_a_name_of_up_to_68_bytes(stored: bytes, text: str) -> None:
    block = Block(image("VSLAGStatus", name=padded(stored, 68)))
    assert _libkestrel.VSLAGStatus_get_name(block.pointer("VSLAGStatus")) == text


UPLINKS = [b"vmnic0", b"\xfe\xc3\xbc", b"u" * 32, b""]


def lag(count: int) -> Block:
    return Block(image("VSLAGStatus", b"".join(padded(name, 32) for name in UPLINKS), numUplinks=count))


def test_a_lags_uplinks_have_names() -> None:
    block = lag(len(UPLINKS))
    status = block.pointer("VSLAGStatus")
    names = [_libkestrel.VSLAGStatus_get_uplink_name(status, i) for i in range(len(UPLINKS))]
    assert names == ["vmnic0", "\udcfeü", "u" * 32, ""]


@pytest.mark.parametrize("count", [0, 1, 3])
def test_an_uplink_outside_the_list_has_no_name_and_no_message(count: int, capfd: Any) -> None:
    block = lag(count)
    status = block.pointer("VSLAGStatus")
    for index in (count, count + 1, 2**31 - 1, -1, -(2**31)):
        assert _libkestrel.VSLAGStatus_get_uplink_name(status, index) is None
    assert printed(capfd) == ""


def test_counts_of_uplinks_are_unsigned() -> None:
    for count in (2**31, 2**32 - 1):
        block = lag(count)
        assert _libkestrel.VSLAGStatus_get_uplink_name(block.pointer("VSLAGStatus"), 0) == "vmnic0"
        assert _libkestrel.VSLAGStatus_get_uplink_name(block.pointer("VSLAGStatus"), 3) == ""
    assert _libkestrel.VSLAGStatus_get_uplink_name(block.pointer("VSLAGStatus"), -1) is None
