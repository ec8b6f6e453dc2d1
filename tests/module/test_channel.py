"""The exception channel: what arms it, what a jump raises, and what a jump does not release."""

from __future__ import annotations

import ctypes
import gc
from collections.abc import Callable, Iterator
from typing import Any

import _libkestrel
import pytest

from headers.model import Function
from support import memory
from support.functions import FUNCTIONS, call, make, plain_arguments
from support.methods import METHODS, RECORDS, plain_method_arguments
from support.processes import allocator, run, sanitized
from support.recorder import Recorder

MODULE = ctypes.CDLL(_libkestrel.__file__)
STATUS = ctypes.c_int32.in_dll(MODULE, "exception_status")
BUFFER = (ctypes.c_char * 64).in_dll(MODULE, "exception_buffer")
MARK = 123456789


def caller(function: Function) -> Callable[[], Any]:
    """Calls a function with arguments that outlive the call: their release would arm the channel anew."""
    arguments = plain_arguments(function)
    return lambda: call(function, arguments)


JUMPING: dict[str, Callable[[], Any]] = {f.name: caller(f) for f in FUNCTIONS if f.name != "Panic"} | {
    "DVSAliasToPortsetName": lambda: _libkestrel.DVSAliasToPortsetName("alias", "name"),
    "VSZEL_GetSwitches": lambda: _libkestrel.VSZEL_GetSwitchesPy(_libkestrel.VS_LIST_PS),
}
"""Platform functions with a call from Python that reaches them: all that arm, one of them through a helper."""


@pytest.fixture(autouse=True)
def _no_collection() -> Iterator[None]:
    """A record that the garbage collector releases would arm the channel in between."""
    gc.disable()
    yield
    gc.enable()


class HostPanicError(Exception):
    """What the platform raises in these tests."""


def test_the_four_variables_are_exported_with_their_types() -> None:
    assert ctypes.c_int32.in_dll(MODULE, "exception_status") is not None
    assert ctypes.c_void_p.in_dll(MODULE, "exceptionType") is not None
    assert ctypes.c_void_p.in_dll(MODULE, "exceptionMsg") is not None


@pytest.mark.parametrize("function", JUMPING)
def test_a_jump_raises_what_the_platform_stored(function: str, recorder: Recorder) -> None:
    recorder.jump(function, 1, HostPanicError, "the host is on fire: ü")
    with pytest.raises(HostPanicError, match=r"^the host is on fire: ü$"):
        JUMPING[function]()
    assert STATUS.value == 1
    assert [call.function for call in recorder.calls()] == [function]
    JUMPING[function]()
    assert STATUS.value == 0


def test_the_status_is_the_value_of_the_jump(recorder: Recorder) -> None:
    for value in (1, 7, -1, 2**31 - 1):
        recorder.jump("DVSLoadConfig", value, ValueError, "x")
        with pytest.raises(ValueError, match=r"^x$"):
            _libkestrel.DVSLoadConfig()
        assert STATUS.value == value


def test_what_the_platform_stored_is_neither_cleared_nor_freed(recorder: Recorder) -> None:
    recorder.jump("DVSLoadConfig", 1, KeyError, "kept")
    with pytest.raises(KeyError):
        _libkestrel.DVSLoadConfig()
    _libkestrel.DVSLoadConfig()
    assert ctypes.c_char_p.in_dll(MODULE, "exceptionMsg").value == b"kept"
    assert ctypes.c_void_p.in_dll(MODULE, "exceptionType").value == id(KeyError)


INFO: Any = _libkestrel.new_VSInfo()
NAME: Any = _libkestrel.new_zel_Name()
VLAN_CLASS = type("VSVLAN", (), {"__swig_destroy__": _libkestrel.delete_VSVLAN})


def call_method(name: str) -> None:
    """Calls a method of a zeroed record."""
    try:
        getattr(_libkestrel, name)(*plain_method_arguments(name))
    except SystemError:
        assert name == "VSDVMirrorSessionIDs___getitem__"  # which reports a bad index in that way


ARMING: dict[str, Any] = (
    {name: JUMPING[name] for name in JUMPING}
    | {f"new_{name}": lambda name=name: make(name) for name in RECORDS}
    | {f"delete_{name}": lambda name=name: getattr(_libkestrel, f"delete_{name}")(None) for name in RECORDS}
    | {name: lambda name=name: call_method(name) for name in METHODS}
    | {
        "MIRROR_ASSERT": lambda: _libkestrel.MIRROR_ASSERT(),
        "MIRROR_ENCAP_TYPE": lambda: _libkestrel.MIRROR_ENCAP_TYPE(),
        "free_vs_info": lambda: _libkestrel.free_vs_info(None),
        "get_runtime_option_type_from_name": lambda: _libkestrel.get_runtime_option_type_from_name("x"),
        "new_vidrangeArray": lambda: _libkestrel.delete_vidrangeArray(_libkestrel.new_vidrangeArray(4)),
        "delete_pvlanmapentryArray": lambda: _libkestrel.delete_pvlanmapentryArray(None),
    }
)

NOT_ARMING: dict[str, Any] = {
    "a reader": lambda: _libkestrel.VSInfo_mtu_get(INFO),
    "a writer": lambda: _libkestrel.VSInfo_mtu_set(INFO, 1500),
    "a text reader": lambda: _libkestrel.zel_Name_string_get(NAME),
    "a class registration": lambda: _libkestrel.VSVLAN_swigregister(VLAN_CLASS),
    "Panic": lambda: _libkestrel.Panic("text"),
    "the overloaded function with an alias alone": lambda: _libkestrel.DVSAliasToPortsetName("alias"),
    "an instance method": lambda: _libkestrel.SWIG_PyInstanceMethod_New(print),
    "a variable": lambda: _libkestrel.cvar.zel_ModuleCurrentID,
    "the owner flag": lambda: NAME.own(),
}


@pytest.mark.parametrize("entry", ARMING)
def test_entries_that_arm(entry: str, capfd: Any) -> None:
    STATUS.value = MARK
    BUFFER.raw = bytes(64)
    ARMING[entry]()
    assert STATUS.value == 0
    assert BUFFER.raw != bytes(64)
    ctypes.CDLL(None).fflush(None)
    assert capfd.readouterr().out in ("", "Invalid array index.", "Invalid array index\n")


@pytest.mark.parametrize("entry", NOT_ARMING)
def test_entries_that_do_not_arm(entry: str) -> None:
    STATUS.value = MARK
    BUFFER.raw = b"\x5a" * 64
    NOT_ARMING[entry]()
    assert STATUS.value == MARK
    assert BUFFER.raw == b"\x5a" * 64


def test_the_channel_is_armed_after_all_arguments_converted() -> None:
    STATUS.value = MARK
    with pytest.raises(TypeError):
        _libkestrel.VSZEL_GetVSInfo("s", 1)
    with pytest.raises(TypeError):
        _libkestrel.DVSLoadConfig(1)
    assert STATUS.value == MARK


TEXT = "x" * 100_000


def test_a_jump_leaves_the_temporaries_to_the_abandoned_call(recorder: Recorder) -> None:
    before = memory.allocated_bytes()
    for _ in range(50):
        recorder.jump("VSZEL_GetLAGTable", 1, ValueError, "gone")
        with pytest.raises(ValueError, match="gone"):
            _libkestrel.VSZEL_GetLAGTable(TEXT)
        recorder.reset()
    assert memory.allocated_bytes() >= before + 50 * len(TEXT)


def test_a_normal_call_releases_its_temporaries(recorder: Recorder) -> None:
    before = memory.allocated_bytes()
    for _ in range(50):
        _libkestrel.VSZEL_GetUplinkLinkState(TEXT, TEXT)
        recorder.reset()
    assert memory.allocated_bytes() < before + 10 * len(TEXT)


def test_a_failed_conversion_releases_the_temporaries_of_earlier_arguments() -> None:
    before = memory.allocated_bytes()
    for _ in range(50):
        with pytest.raises(TypeError):
            _libkestrel.VSZEL_GetVSInfo(TEXT, 1)
        with pytest.raises(OverflowError):
            _libkestrel.VSDVS_SetPortVLANPolicy(TEXT, TEXT, 65536, 0, 0, 0, None, 0)
    assert memory.allocated_bytes() < before + 10 * len(TEXT)


PREAMBLE = """
import ctypes, _libkestrel
module = ctypes.CDLL(_libkestrel.__file__)
meddler = ctypes.CDLL({allocator!r})
buffer = ctypes.c_void_p(ctypes.addressof(ctypes.c_char.in_dll(module, "exception_buffer")))
status = ctypes.c_int32.in_dll(module, "exception_status")
message = ctypes.create_string_buffer(b"no memory left")
ctypes.c_void_p.in_dll(module, "exceptionType").value = id(MemoryError)
ctypes.c_void_p.in_dll(module, "exceptionMsg").value = ctypes.addressof(message)
def outcome(function, *arguments):
    try:
        result = function(*arguments)
        print("returned", type(result).__name__, status.value)
    except MemoryError as error:
        print("raised", error, status.value)
"""


def meddled(code: str) -> list[str]:
    """The lines that code prints in an interpreter whose allocator can be told to fail or jump."""
    if sanitized():
        pytest.skip("the sanitizer's allocator stands first")
    path = allocator()
    done = run(PREAMBLE.format(allocator=str(path)) + code, preload=path)
    assert (done.stderr, done.returncode) == ("", 0)
    return done.stdout.splitlines()


def test_a_jump_out_of_a_constructor() -> None:
    code = "meddler.allocator_jump(ctypes.c_size_t(1288), buffer, 3)\noutcome(_libkestrel.new_zel_MgmtInstances)\n"
    assert meddled(code) == ["raised no memory left 3"]


def test_a_jump_out_of_a_destructor() -> None:
    code = (
        "record = _libkestrel.new_zel_MgmtInstances()\n"
        "meddler.allocator_jump_on_release(ctypes.c_void_p(int(record)), buffer, 4)\n"
        "outcome(_libkestrel.delete_zel_MgmtInstances, record)\n"
        "print(record.own())\n"
    )
    assert meddled(code) == ["raised no memory left 4", "False"]


def test_a_jump_out_of_an_extension_method() -> None:
    code = (
        "entries = _libkestrel.new_VSMACEntry()\n"
        "entries.disown()\n"
        "meddler.allocator_jump(ctypes.c_size_t(26), buffer, 5)\n"
        "outcome(_libkestrel.VSMACEntry___getitem__, entries, 0)\n"
    )
    assert meddled(code) == ["raised no memory left 5"]


@pytest.mark.parametrize(
    ("size", "call"),
    [
        (210, "_libkestrel.new_VSInfo"),
        (8 + 32 * 1000, "_libkestrel.new_VSUplinks, 1000"),
        (4 + 81 * 1000, "_libkestrel.new_VSUplinkPorts, 1000"),
        (4 + 48 * 1000, "_libkestrel.new_VSUplinkPortIds, 1000"),
        (54321, "_libkestrel.new_VSRuntimeOptions, 54321"),
        (4 * 54321, "_libkestrel.new_vidrangeArray, 54321"),
        (26, "_libkestrel.VSMACEntry___getitem__, _libkestrel.VSIOCtlQuery_macEntry_get(query), 0"),
    ],
)
def test_a_failed_allocation_gives_none(size: int, call: str) -> None:
    code = (
        "query = _libkestrel.new_VSIOCtlQuery()\n"
        "query.disown()\n"
        f"meddler.allocator_fail(ctypes.c_size_t({size}))\n"
        f"outcome({call})\n"
    )
    assert meddled(code) == ["returned NoneType 0"]


def test_a_failed_allocation_of_switch_information_prints_a_line() -> None:
    code = "meddler.allocator_fail(ctypes.c_size_t(210))\noutcome(_libkestrel.alloc_vs_info)\n"
    assert "".join(meddled(code)) in (
        "malloc failed for VSInforeturned NoneType 0",
        "returned NoneType 0malloc failed for VSInfo",
    )
