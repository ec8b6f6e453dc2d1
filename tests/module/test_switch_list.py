"""The list of switches: how it is asked for, who owns it, and the names in it."""

from __future__ import annotations

import ctypes
from typing import Any

import _libkestrel
import pytest

from support import memory
from support.blocks import Block, image, padded
from support.output import printed
from support.recorder import Address, Call, Recorder

INVALID = "Invalid array index\n"
PORTSETS, ALIASES = _libkestrel.VS_LIST_PS, _libkestrel.VS_LIST_DVS_ALIAS


def width_of(kind: int) -> int:
    """Bytes of a name in a list of this kind."""
    return 128 if kind == 1 else 81


def switch_list(kind: int, *names: bytes, count: int | None = None) -> bytes:
    tail = b"".join(padded(name, width_of(kind)) for name in names)
    return image("VSList", tail, count=len(names) if count is None else count, listType=kind)


def listed(recorder: Recorder, kind: int, *names: bytes, count: int | None = None) -> Any:
    """The list that the module gives for what the platform hands out."""
    place = memory.allocated(switch_list(kind, *names, count=count))
    recorder.output("VSZEL_GetSwitches", 1, place.to_bytes(8, "little"))
    return _libkestrel.VSZEL_GetSwitchesPy(kind)


# ---- The list ----


def test_the_switch_list_is_owned_and_its_names_are_texts(recorder: Recorder) -> None:
    for kind in (PORTSETS, ALIASES):
        switches = listed(recorder, kind, b"DvsPortset-0", "Büro".encode(), b"\xff")
        assert type(switches).__name__ == "VSList"
        assert switches.own() is True
        assert _libkestrel.VSList_count_get(switches) == 3
        names = [_libkestrel.VSList___getitem__(switches, i) for i in range(3)]
        assert names == ["DvsPortset-0", "Büro", "\udcff"]
    assert recorder.calls()[0].function == "VSZEL_GetSwitches"
    assert recorder.calls()[0].arguments[0] == PORTSETS


@pytest.mark.parametrize("kind", [0, 1, 2, 3, -1, 2**31 - 1, -(2**31)])
def test_the_kind_of_list_is_passed_on(kind: int, recorder: Recorder) -> None:
    assert _libkestrel.VSZEL_GetSwitchesPy(kind) is None  # the platform gave none
    (call,) = recorder.calls()
    assert call.function == "VSZEL_GetSwitches"
    assert call.arguments[0] == kind
    assert isinstance(call.arguments[1], Address)


def test_the_kind_of_list_is_a_signed_int(recorder: Recorder) -> None:
    for wrong, exception in (
        ("1", TypeError),
        (None, TypeError),
        (1.0, TypeError),
        (2**31, OverflowError),
        (-(2**31) - 1, OverflowError),
    ):
        with pytest.raises(exception) as caught:
            _libkestrel.VSZEL_GetSwitchesPy(wrong)
        assert str(caught.value) == "in method 'VSZEL_GetSwitchesPy', argument 1 of type 'VSListType'"
    for count in (0, 2):
        with pytest.raises(TypeError) as caught:
            _libkestrel.VSZEL_GetSwitchesPy(*[1] * count)
        assert str(caught.value) == f"VSZEL_GetSwitchesPy() takes exactly 1 argument ({count} given)"
    assert recorder.calls() == []


def test_a_failing_platform_prints_the_status(recorder: Recorder, capfd: Any) -> None:
    for status, text in (
        (0x0BAD0003, "failed: bad0003\n"),
        (0x0BAD016C, "failed: bad016c\n"),
        (1, "failed: 1\n"),
        (-1, "failed: ffffffff\n"),
    ):
        recorder.answer("VSZEL_GetSwitches", status)
        assert _libkestrel.VSZEL_GetSwitchesPy(1) is None
        assert printed(capfd) == text


def test_a_list_beside_a_failure_is_not_taken(recorder: Recorder, capfd: Any) -> None:
    block = Block(switch_list(1, b"a"))
    recorder.answer("VSZEL_GetSwitches", 0x0BAD0003)
    recorder.output("VSZEL_GetSwitches", 1, block.address.to_bytes(8, "little"))
    assert _libkestrel.VSZEL_GetSwitchesPy(1) is None
    assert printed(capfd) == "failed: bad0003\n"


def test_success_prints_nothing(recorder: Recorder, capfd: Any) -> None:
    assert listed(recorder, 1, b"a") is not None
    assert printed(capfd) == ""


def test_a_list_goes_with_its_object(recorder: Recorder) -> None:
    names = [b"switch"] * 1000
    listed(recorder, 1, *names)
    before = memory.allocated_bytes()
    for _ in range(20):
        listed(recorder, 1, *names)
    assert memory.allocated_bytes() < before + 5 * 128 * 1000


def test_lists_from_native_code_are_freed(recorder: Recorder) -> None:
    names = [b"switch"] * 1000
    before = memory.allocated_bytes()
    for _ in range(20):
        switches = listed(recorder, 1, *names)
        switches.this.disown()
        assert _libkestrel.free_switches(switches) is None
    assert memory.allocated_bytes() < before + 5 * 128 * 1000


def test_the_platform_is_asked_once(recorder: Recorder) -> None:
    listed(recorder, 1, b"a")
    assert [call.function for call in recorder.calls()] == ["VSZEL_GetSwitches"]
    assert isinstance(recorder.calls()[0], Call)


def test_native_code_asks_for_the_list_too(recorder: Recorder) -> None:
    module = ctypes.CDLL(_libkestrel.__file__)
    place = memory.allocated(switch_list(2, b"a"))
    recorder.output("VSZEL_GetSwitches", 1, place.to_bytes(8, "little"))
    module.VSZEL_GetSwitchesPy.restype = ctypes.c_void_p
    assert module.VSZEL_GetSwitchesPy(2) == place
    module.free_switches(ctypes.c_void_p(place))


# ---- Names ----


@pytest.mark.parametrize("kind", [1, 2, 0, 3, -1, 2**31 - 1])
def test_names_are_128_or_81_bytes_wide_as_the_kind_says(kind: int, capfd: Any) -> None:
    width = width_of(kind)
    names = {
        b"first": "first",
        b"": "",
        b"a\0hidden": "a",
        b"n" * (width - 1): "n" * (width - 1),
        b"n" * width: "n" * width,
        "Büro 日本".encode(): "Büro 日本",
        b"\xff\xc3\xbc\x80": "\udcffü\udc80",
        b"last": "last",
    }
    block = Block(switch_list(kind, *names))
    before = block.content()
    switches = block.pointer("VSList")
    assert [_libkestrel.VSList___getitem__(switches, i) for i in range(len(names))] == list(names.values())
    assert block.content() == before
    assert printed(capfd) == ""


@pytest.mark.parametrize("kind", [1, 2])
@pytest.mark.parametrize("count", [0, 1, 3])
def test_an_index_at_or_above_the_count_prints_a_line(kind: int, count: int, capfd: Any) -> None:
    block = Block(switch_list(kind, b"a", b"b", b"c", b"d", count=count))
    switches = block.pointer("VSList")
    for index in (count, count + 1, 2**31 - 1):
        assert _libkestrel.VSList___getitem__(switches, index) is None
        assert printed(capfd) == INVALID
    if count:
        assert _libkestrel.VSList___getitem__(switches, count - 1) == "abc"[count - 1]
        assert printed(capfd) == ""


@pytest.mark.parametrize("kind", [1, 2])
def test_a_negative_index_is_not_reported(kind: int, capfd: Any) -> None:
    block = Block(switch_list(kind, b"a", b"b"))
    for index in (-1, -2, -(2**31)):
        assert _libkestrel.VSList___getitem__(block.pointer("VSList"), index) is None
    assert printed(capfd) == ""


@pytest.mark.parametrize("count", [-1, -(2**31)])
def test_a_count_below_zero_refuses_every_index(count: int, capfd: Any) -> None:
    block = Block(switch_list(1, b"a", count=count))
    for index in (0, 1, 2**31 - 1, count):
        assert _libkestrel.VSList___getitem__(block.pointer("VSList"), index) is None
        assert printed(capfd) == INVALID
