"""State images through the module, property types as the document has them, and the commands of the store."""

from __future__ import annotations

import ctypes
import re
import struct
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import _libkestrel as k
import pytest

from support.cells import BLOCK, CALLBACK, INT, UINT, Cell, block, pointer

PAGE = Path(__file__).resolve().parents[2] / "docs" / "state-image.md"
SWITCH, ID, PORT = "dvs-images", "5a61f0de-1f43-4f7c-9d58-3f0b6f1f0a77", "p1"
HEAD = 24
PUBLIC = k.ALL_PUBLIC_PROP_TYPE


@pytest.fixture(autouse=True)
def _bench() -> Iterator[None]:
    """A switch of the tests' own, and everything as it was afterwards."""
    before = state()
    assert k.VSDVS_CreateVSwitch(SWITCH, ID, k.PS_CLASS_NAME, 4, 0, 8, 1600, k.DVS_VERSION_70) == k.ZEL_OK
    assert k.VSDVS_AddDVPort(SWITCH, PORT, 7) == k.ZEL_OK
    yield
    assert give(k.DVSZEL_StateInit, before) == k.ZEL_OK
    assert state() == before


def taken(call: Callable[[Any, Any], int], length: str = INT) -> tuple[int, bytes]:
    """The status of a function that hands out a block, and the block."""
    cells = Cell(BLOCK), Cell(length)
    status = call(cells[0].pointer, cells[1].pointer)
    if status != k.ZEL_OK:
        assert (cells[0].address, cells[1].number()) == (0, 0)
        return status, b""
    data = ctypes.string_at(cells[0].address, cells[1].number())
    k.DVSZEL_DataFree(pointer(BLOCK, cells[0].address))
    return status, data


def good(answer: tuple[int, bytes]) -> bytes:
    status, data = answer
    assert status == k.ZEL_OK
    return data


def give(function: Any, data: bytes) -> int:
    where, _kept = block(data)
    status = function(where, len(data))
    assert isinstance(status, int)
    return status


def state() -> bytes:
    return good(taken(k.DVSZEL_StateGet))


def saved_state() -> bytes:
    return good(taken(k.DVSZEL_PersistentStateGet))


def port_state(port: str = PORT) -> bytes:
    return good(taken(lambda *cells: k.DVSZEL_PortStateGet(ID, port, *cells)))


def set_global(key: str, value: bytes, kinds: int = k.CONFIG_PROP_TYPE) -> int:
    where, _kept = block(value)
    status = k.DVSZEL_GlobalPropSet(ID, key, where, len(value), kinds & 0xFFFFFFFF)
    assert isinstance(status, int)
    return status


def get_global(key: str) -> tuple[int, bytes]:
    return taken(lambda *cells: k.DVSZEL_GlobalPropGet(ID, key, *cells))


def set_port(key: str, value: bytes, kinds: int = k.CONFIG_PROP_TYPE) -> int:
    where, _kept = block(value)
    status = k.DVSZEL_PortDataSet(ID, PORT, key, where, len(value), kinds & 0xFFFFFFFF)
    assert isinstance(status, int)
    return status


def crc32c(data: bytes) -> int:
    """The checksum as the document names it, bit by bit."""
    remainder = 0xFFFFFFFF
    for byte in data:
        remainder ^= byte
        for _ in range(8):
            remainder = (remainder >> 1) ^ (0x82F63B78 if remainder & 1 else 0)
    return remainder ^ 0xFFFFFFFF


def mended(image: bytes) -> bytes:
    """An image with the length and the checksum that it has to have."""
    head = image[:16] + struct.pack("<I", len(image))
    return head + struct.pack("<I", crc32c(head + image[HEAD:])) + image[HEAD:]


# ---- Images ----


def test_an_image_is_framed_as_documented() -> None:
    image = state()
    assert image[:8] == b"\x89KSI\r\n\x1a\n"
    form, kind, version, length, checksum = struct.unpack_from("<HHIII", image, 8)
    assert (form, kind, version, length) == (1, 1, k.VS_TRVT_ON_DVS70_VERSION, len(image))
    assert checksum == crc32c(image[:20] + image[HEAD:])
    assert mended(image) == image
    assert struct.unpack_from("<HHI", port_state(), 8) == (1, 2, k.VS_TRVT_ON_DVS70_VERSION)
    assert ID.encode() in image and SWITCH.encode() in image


def test_a_state_is_put_back() -> None:
    assert k.VSDVS_SetPortVLANPolicy(SWITCH, PORT, 12, 0, 0, 0, None, 0) == k.ZEL_OK
    assert set_global("note", b"saved") == k.ZEL_OK
    assert set_global("note", b"passing", k.RUNTIME_PROP_TYPE) == k.ZEL_OK
    live, saved = state(), saved_state()
    assert live != saved
    assert k.VSDVS_DestroyVSwitch(SWITCH) == k.ZEL_OK
    assert state() != live
    assert give(k.DVSZEL_StateInit, live) == k.ZEL_OK
    assert (state(), saved_state()) == (live, saved)
    assert get_global("note") == (k.ZEL_OK, b"passing")
    assert k.DVSLoadConfig() == k.ZEL_OK
    assert get_global("note") == (k.ZEL_OK, b"saved")
    assert state() == saved_state() == saved


def test_a_released_state_comes_back_from_its_image() -> None:
    live = state()
    assert k.DVSZEL_StateCleanup() == k.ZEL_OK
    assert len(state()) == HEAD
    assert give(k.DVSZEL_StateInit, live) == k.ZEL_OK
    assert state() == live


def test_a_configuration_replaces_another_and_clients_stay() -> None:
    assert set_global(k.VSPROP_MTU, struct.pack("<I", 1400)) == k.ZEL_OK
    image = state()
    assert set_global(k.VSPROP_MTU, struct.pack("<I", 9000)) == k.ZEL_OK
    assert give(k.DVSState_ConfigDeserialize, image) == k.ZEL_OK
    assert get_global(k.VSPROP_MTU) == (k.ZEL_OK, struct.pack("<I", 1400))
    info = k.new_VSInfo()
    assert k.VSZEL_GetVSInfo("dvs-prod", info) == k.ZEL_OK
    assert k.VSInfo_activePorts_get(info) > 0
    k.delete_VSInfo(info)
    empty = mended(image[:HEAD])
    assert give(k.DVSState_ConfigDeserialize, empty) == k.ZEL_BUSY  # there is no place for the clients
    assert state() == image


REFUSALS: dict[str, tuple[Callable[[bytes], bytes], int]] = {
    "nothing": (lambda _: b"", k.ZEL_BAD_PARAM),
    "no image": (lambda _: b"no image at all, but longer than a head", k.ZEL_INVALID_METADATA),
    "cut": (lambda image: image[:-1], k.ZEL_INVALID_METADATA),
    "cut and mended": (lambda image: mended(image[:-1]), k.ZEL_INVALID_METADATA),
    "more": (lambda image: image + b"\0", k.ZEL_INVALID_METADATA),
    "damaged": (lambda image: image[:-1] + bytes([image[-1] ^ 1]), k.ZEL_CHECKSUM_MISMATCH),
    "another format": (lambda image: image[:8] + b"\2" + image[9:], k.ZEL_VERSION_MISMATCH_MAJOR),
    "an unknown version": (lambda image: mended(image[:12] + b"\xff" + image[13:]), k.ZEL_VERSION_MISMATCH_MINOR),
    "an older version than its switches": (lambda i: mended(i[:12] + b"\4" + i[13:]), k.ZEL_INVALID_METADATA),
    "of a port": (lambda _: port_state(), k.ZEL_BAD_PARAM),
    "an unknown section": (lambda image: mended(image + struct.pack("<II", 9, 0)), k.ZEL_INVALID_METADATA),
    "a switch twice": (lambda image: mended(image + image[HEAD:]), k.ZEL_INVALID_METADATA),
}


@pytest.mark.parametrize("name", REFUSALS)
@pytest.mark.parametrize("function", [k.DVSZEL_StateInit, k.DVSState_ConfigDeserialize])
def test_a_refused_image_changes_nothing(name: str, function: Any) -> None:
    make, expected = REFUSALS[name]
    before = state(), saved_state()
    assert give(function, make(before[0])) == expected
    assert (state(), saved_state()) == before


def test_a_port_is_carried_to_another_name() -> None:
    assert k.VSDVS_SetPortVLANPolicy(SWITCH, PORT, 12, 0, 0, 0, None, 0) == k.ZEL_OK
    image = port_state()
    where, _kept = block(image)
    assert k.DVSZEL_PortAdd(ID, "p2", where, len(image)) == k.ZEL_OK
    assert port_state("p2") == image
    status, policy, _ = k.VSDVS_GetPortVLANPolicy(SWITCH, "p2")
    assert status == k.ZEL_OK
    k.VSDVS_FreeMemory(policy)
    assert k.DVSZEL_PortAdd(ID, "p2", where, len(image)) == k.ZEL_EXISTS
    whole = state()
    where, _kept = block(whole)
    assert k.DVSZEL_PortAdd(ID, "p3", where, len(whole)) == k.ZEL_BAD_PARAM
    assert ord(k.DVPortExist(ID, "p3")) == 0


def test_the_saved_port_is_had_in_the_form_of_a_version() -> None:
    assert set_port(k.VSPROP_PORT_MAC_MANAGEMENT, b"\1\0\0" + struct.pack("<II", 5, 0)) == k.ZEL_OK
    forms = {
        version: good(taken(lambda *cells, v=version: k.DVSZEL_PersistentPortStateGet(ID, PORT, v, *cells)))
        for version in (k.DVS_VERSION_65, k.DVS_VERSION_66)
    }
    key = k.VSPROP_PORT_MAC_MANAGEMENT.encode()
    assert key not in forms[k.DVS_VERSION_65]
    assert key in forms[k.DVS_VERSION_66]
    status, _ = taken(lambda *cells: k.DVSZEL_PersistentPortStateGet(ID, PORT, 3, *cells))
    assert status == k.ZEL_BAD_PARAM


# ---- Collections ----


def keys_of(handle: Any) -> set[str]:
    """The keys in a collection, which ends."""
    image = good(taken(lambda *cells: k.DVSData_Serialize(handle, *cells, k.VS_TRVT_ON_DVS70_VERSION), UINT))
    k.DVSData_Free(handle)
    keys, at = set(), HEAD
    while at < len(image):
        (length,) = struct.unpack_from("<I", image, at)
        keys.add(image[at + 4 : at + 4 + length].decode())
        (value,) = struct.unpack_from("<I", image, at + 8 + length)
        at += 12 + length + value
    return keys


def listed(function: Any, *arguments: object) -> set[str]:
    cell = Cell()
    *names, mask = arguments
    assert function(*names, cell.pointer, mask) == k.ZEL_OK
    return keys_of(pointer(BLOCK, cell.address))


def test_a_collection_is_built_and_makes_a_port() -> None:
    cell = Cell()
    assert k.DVSData_Alloc(cell.pointer, None, None) == k.ZEL_OK
    handle = pointer(BLOCK, cell.address)
    value, _kept = block(b"value")
    assert k.DVSData_Update(handle, "note", value, 5, k.CONFIG_PROP_TYPE) == k.ZEL_OK
    assert k.DVSData_Update(handle, "note", None, 5, k.CONFIG_PROP_TYPE) == k.ZEL_BAD_PARAM
    image = good(taken(lambda *cells: k.DVSData_Serialize(handle, *cells, k.DVS_VERSION_70), UINT))
    where, _also_kept = block(image)
    assert k.DVSZEL_PortAdd(ID, "p2", where, len(image)) == k.ZEL_OK
    assert taken(lambda *cells: k.DVSZEL_PortDataGet(ID, "p2", "note", *cells)) == (k.ZEL_OK, b"value")
    assert keys_of(handle) == {"note"}
    assert k.DVSData_Update(handle, "note", value, 5, k.CONFIG_PROP_TYPE) == k.ZEL_INVALID_HANDLE


def test_vendors_and_extra_properties_are_listed() -> None:
    for key in ("com.example.feature", "note", "com.talvex.future"):
        assert set_global(key, b"") == set_port(key, b"") == k.ZEL_OK
    assert listed(k.DVSZEL_VendorGlobalPropList, ID, PUBLIC) == {"com.example.feature"}
    assert listed(k.DVSZEL_VendorPortPropList, ID, PORT, PUBLIC) == {"com.example.feature"}
    assert listed(k.DVSZEL_VendorHostPropList, ID, PUBLIC) == set()
    assert listed(k.DVSZEL_ExtraConfigPropList, ID, PUBLIC) == {"com.example.feature", "note"}
    assert listed(k.DVSZEL_ExtraConfigPortPropList, ID, PORT, PUBLIC) == {"com.example.feature", "note"}
    assert listed(k.DVSZEL_ExtraConfigPropList, ID, k.RUNTIME_PROP_TYPE) == set()


# ---- Types of properties, out of the document's table ----


def types_of_the_document() -> dict[str, dict[str, bool]]:
    """What each type means, by the name of its constant."""
    table = PAGE.read_text().split("## Types of properties")[1].split("\n## ")[0]
    rows = re.findall(r"^\| (.*) \|$", table, re.MULTILINE)
    columns = [cell.strip().lower() for cell in rows[0].split("|")][1:]
    found = {}
    for row in rows[1:]:
        name, *cells = (cell.strip().strip("`") for cell in row.split("|"))
        assert all(cell in ("yes", "no") for cell in cells)
        found[name] = dict(zip(columns, (cell == "yes" for cell in cells), strict=True))
    return found


TYPES = types_of_the_document()


def test_the_document_tells_of_every_type() -> None:
    assert sorted(TYPES) == sorted(n for n in dir(k) if n.endswith("_PROP_TYPE") and not n.startswith("ALL_"))


@pytest.mark.parametrize("name", TYPES)
def test_a_type_tells_whether_a_value_is_saved(name: str) -> None:
    assert set_global("note", b"saved") == k.ZEL_OK
    assert set_global("note", b"value", getattr(k, name)) == k.ZEL_OK
    assert get_global("note") == (k.ZEL_OK, b"value")
    assert b"value" in state()
    assert (b"value" in saved_state()) is TYPES[name]["saved"]
    assert k.DVSLoadConfig() == k.ZEL_OK
    assert get_global("note") == (k.ZEL_OK, b"value" if TYPES[name]["saved"] else b"saved")


@pytest.mark.parametrize("name", TYPES)
def test_a_type_tells_whether_a_value_goes_along(name: str) -> None:
    replicated = TYPES[name]["replicated"]
    assert set_port("note", b"value", getattr(k, name)) == k.ZEL_OK
    assert (b"value" in port_state()) is replicated
    expected = (k.ZEL_OK, b"value") if replicated else (k.ZEL_NOT_FOUND, b"")
    assert taken(lambda *cells: k.DVSZEL_SmartNICPortDataGet(ID, PORT, "note", *cells)) == expected
    saved = good(taken(lambda *cells: k.DVSZEL_PersistentPortStateGet(ID, PORT, k.DVS_VERSION_70, *cells)))
    assert (b"value" in saved) is (replicated and TYPES[name]["saved"])


@pytest.mark.parametrize("name", TYPES)
def test_a_type_tells_whether_a_value_yields_to_another_configuration(name: str) -> None:
    kinds = getattr(k, name)
    assert set_global("note", b"theirs", kinds) == k.ZEL_OK
    image = state()
    assert set_global("note", b"ours", kinds) == k.ZEL_OK
    assert give(k.DVSState_ConfigDeserialize, image) == k.ZEL_OK
    if not TYPES[name]["saved"]:
        assert get_global("note") == (k.ZEL_NOT_FOUND, b"")
    else:
        assert get_global("note") == (k.ZEL_OK, b"theirs" if TYPES[name]["synchronised"] else b"ours")


def walked() -> list[str]:
    """The keys of the switch's properties as a walk shows them."""
    keys: list[str] = []

    def note(item: int, _context: int | None) -> int:
        keys.append(k.DVSData_Name(pointer(BLOCK, item)))
        return 1

    callback = ctypes.CFUNCTYPE(ctypes.c_char, ctypes.c_void_p, ctypes.c_void_p)(note)
    address = ctypes.cast(callback, ctypes.c_void_p).value or 0
    k.DVSState_GlobalPropForEach(k.DVSState_SwitchFindByAlias(SWITCH), pointer(CALLBACK, address), None)
    return keys


@pytest.mark.parametrize("name", TYPES)
def test_a_type_tells_where_a_value_shows(name: str) -> None:
    kinds = getattr(k, name)
    assert set_global("note", b"", kinds) == k.ZEL_OK
    assert ("note" in walked()) is TYPES[name]["public"]
    others = kinds | k.CONFIG_PROP_TYPE
    assert set_global("note", b"", others) == k.ZEL_OK
    assert ("note" in listed(k.DVSZEL_ExtraConfigPropList, ID, k.CONFIG_PROP_TYPE)) is TYPES[name]["public"]
    assert "note" in listed(k.DVSZEL_ExtraConfigPropList, ID, others & 0xFFFFFFFF)
    assert get_global("note") == (k.ZEL_OK, b"")


def test_a_value_without_a_type_is_configuration() -> None:
    assert set_global("note", b"value", 0) == k.ZEL_OK
    cell = Cell()
    assert k.DVSState_GlobalPropLookup(ID, "note", cell.pointer) == k.ZEL_OK
    assert k.DVSData_PropType(pointer(BLOCK, cell.address)) == k.CONFIG_PROP_TYPE
    assert set_global("note", b"value", 1) == k.ZEL_BAD_PARAM


# ---- Membership and commands ----


def test_a_switch_is_joined_before_it_takes_part() -> None:
    assert k.DVSZEL_SwitchAdd("id2", "dvs-joined", 4, k.DVS_VERSION_70) == k.ZEL_OK
    state_of = taken(lambda *cells: k.DVSZEL_HostPropGet("id2", k.ZEL_VDSPROP_HOST_PROXY_STATE, *cells))
    assert state_of == (k.ZEL_OK, struct.pack("<I", k.ZEL_VDSPORTSET_STATE_DEACTIVE))
    assert k.DVSZEL_SwitchAssociate("id2") == k.ZEL_OK
    assert k.DVSZEL_SwitchAssociate("id2") == k.ZEL_IS_CONNECTED
    assert k.DVSZEL_SwitchDissociate("id2") == k.ZEL_OK
    assert k.DVSZEL_SwitchDissociate("id2") == k.ZEL_IS_DISCONNECTED
    assert k.DVSZEL_SwitchRemove("id2") == k.ZEL_OK


def command(name: str, data: bytes = b"") -> tuple[int, bytes]:
    where, _kept = block(data)
    return taken(lambda *cells: k.DVSZEL_CmdExec(ID, name, where, len(data), *cells))


def test_commands_tell_of_a_switch_and_put_it_back() -> None:
    assert b"restore" in good(command("help"))
    assert f'alias "{SWITCH}"\n'.encode() in good(command("show"))
    image = good(command("image"))
    assert k.VSDVS_SetMTU(SWITCH, 1280) == k.ZEL_OK
    assert good(command("image")) != image
    assert command("restore", image) == (k.ZEL_OK, b"")
    assert good(command("image")) == image
    assert command("show", b"x") == (k.ZEL_BAD_PARAM, b"")
    assert command("dance") == (k.ZEL_NOT_IMPLEMENTED, b"")
