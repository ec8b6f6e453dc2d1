"""Faults that calls meet, function by function, through the real module."""

from __future__ import annotations

import pickle
import re
from collections.abc import Callable, Iterator
from typing import Any

import _libkestrel as k
import pytest

from headers import fault_functions, laboratory
from headers.model import Function
from libkestrel import errors, lab
from support.functions import FUNCTIONS, HEADERS, OVERLOADED, call, plain_arguments

FUNCTION = "VSDVS_SetMTU"
SWITCH = "dvs-prod"


@pytest.fixture(autouse=True)
def _unarmed() -> Iterator[None]:
    yield
    lab.disarm_all()


def caller(function: Function) -> Callable[[], Any]:
    return lambda: call(function, plain_arguments(function))


CALLS: dict[str, Callable[[], Any]] = {f.name: caller(f) for f in FUNCTIONS} | {
    OVERLOADED: lambda: k.DVSAliasToPortsetName("alias"),
    "VSZEL_FreeMemory": lambda: k.VSZEL_FreeMemory(None),
    "VSDVS_FreeMemory": lambda: k.VSDVS_FreeMemory(None),
}
"""Every function of the platform with a call that the module lets through."""

FAULTY = [f for f in HEADERS.functions if fault_functions.can_fail(f)]
WITH_STATUS = [f.name for f in FAULTY if f.returns == "ZEL_ReturnStatus"]


def set_mtu() -> Any:
    return k.VSDVS_SetMTU(SWITCH, 1500)


def first(result: Any) -> Any:
    return result[0] if isinstance(result, list) else result


def test_everything_that_the_upper_libraries_answer_can_fail() -> None:
    rest = {f.name for f in HEADERS.functions} - {f.name for f in FAULTY}
    assert rest == {"DVSData_Free", "DVSZEL_DataFree", "Panic", "ZEL_ReturnStatusToString"}
    assert len(WITH_STATUS) > 100


@pytest.mark.parametrize("function", WITH_STATUS)
def test_an_armed_status_is_what_the_function_returns(function: str) -> None:
    with lab.counted_calls() as calls, lab.fault(function, status=k.ZEL_RANK_VIOLATION):
        assert first(CALLS[function]()) == k.ZEL_RANK_VIOLATION
        assert calls[function] == 1
        assert lab.armed_faults() == []


@pytest.mark.parametrize("function", [f.name for f in FAULTY if f.name != OVERLOADED])
def test_an_armed_abort_raises_in_the_script(function: str) -> None:
    with lab.counted_calls() as calls:
        lab.arm(function, raises=BlockingIOError("the host is on fire: ü"))
        with pytest.raises(BlockingIOError, match=r"^the host is on fire: ü$"):
            CALLS[function]()
        assert calls[function] == 1


def test_the_function_that_does_not_arm_the_channel_fails_in_words(capfd: pytest.CaptureFixture[str]) -> None:
    k.DVSLoadConfig()  # which leaves the channel as a call that is over
    lab.arm(OVERLOADED, raises=OSError("the host is on fire"), times=2)
    assert k.DVSAliasToPortsetName(SWITCH) == [k.ZEL_FAILURE, ""]
    assert k.DVSAliasToPortsetName(SWITCH, "name") == k.ZEL_FAILURE
    assert capfd.readouterr().err == "Panic: the host is on fire\n" * 2


@pytest.mark.parametrize("function", [f for f in FAULTY if f.returns != "ZEL_ReturnStatus"], ids=lambda f: f.name)
def test_functions_without_a_status_give_nothing(function: Function) -> None:
    lab.arm(function.name, status=k.ZEL_BUSY)
    assert CALLS[function.name]() in (None, 0, "\0", [0, None])
    assert lab.armed_faults() == []


def test_a_call_that_meets_a_status_does_nothing() -> None:
    before = set_mtu()
    with lab.fault(FUNCTION, status=k.ZEL_NO_MEMORY):
        assert k.VSDVS_SetMTU(SWITCH, 9000) == k.ZEL_NO_MEMORY
    cell = k.new_VSInfo()
    assert k.VSZEL_GetVSInfo(SWITCH, cell) == k.ZEL_OK
    assert k.VSInfo_mtu_get(cell) == 1500
    k.delete_VSInfo(cell)
    assert before == set_mtu() == k.ZEL_OK


def test_the_nth_call_and_those_after_it() -> None:
    with lab.fault(FUNCTION, status=k.ZEL_BUSY, at=3, times=2):
        assert [set_mtu() for _ in range(6)] == [0, 0, k.ZEL_BUSY, k.ZEL_BUSY, 0, 0]


def test_every_call_until_the_fault_is_taken_back() -> None:
    with lab.fault(FUNCTION, status=k.ZEL_BUSY, times=lab.ALWAYS):
        assert {set_mtu() for _ in range(100)} == {k.ZEL_BUSY}
    assert set_mtu() == k.ZEL_OK


def test_what_is_left_of_a_fault_goes_with_its_block() -> None:
    with pytest.raises(KeyError), lab.fault(FUNCTION, status=k.ZEL_BUSY):
        raise KeyError
    assert set_mtu() == k.ZEL_OK


BUILT_IN = [
    kind
    for name, kind in vars(__import__("builtins")).items()
    if isinstance(kind, type) and issubclass(kind, BaseException) and kind.__name__ == name
]


@pytest.mark.parametrize("kind", BUILT_IN)
def test_any_built_in_exception_that_is_made_of_a_text_can_be_raised(kind: type[BaseException]) -> None:
    try:
        instance = kind("text")
    except TypeError:
        with pytest.raises(TypeError):
            lab.arm(FUNCTION, raises=BaseExceptionGroup("text", [ValueError()]))
        return
    lab.arm(FUNCTION, raises=instance)
    with pytest.raises(kind) as caught:
        set_mtu()
    assert type(caught.value) is kind
    assert caught.value.args == ("text",)


class OwnError(Exception):
    pass


@pytest.mark.parametrize(
    ("arguments", "error", "message"),
    [
        ({}, TypeError, "one of"),
        ({"status": 1, "disk_full": True}, TypeError, "one of"),
        ({"raises": OwnError("x")}, TypeError, "OwnError"),
        ({"raises": ExceptionGroup("x", [ValueError()])}, TypeError, "ExceptionGroup"),
        ({"raises": UnicodeDecodeError("utf-8", b"", 0, 1, "x")}, TypeError, "UnicodeDecodeError"),
        ({"raises": OSError("x" * 512)}, ValueError, "longer than 511"),
        ({"raises": OSError("a\0b")}, ValueError, "zero"),
        ({"status": 0}, lab.LabError, "success is no fault"),
        ({"status": 1, "at": 0}, lab.LabError, "numbered from 1"),
        ({"status": 1, "times": 0}, lab.LabError, "numbered from 1"),
        ({"status": 1, "times": -1}, OverflowError, "-1 is not from 0"),
        ({"status": 1, "at": 2**64}, OverflowError, "is not from 0"),
        ({"status": 2**31}, OverflowError, "is not from -2147483648"),
    ],
)
def test_a_fault_that_makes_no_sense_is_refused(arguments: dict[str, Any], error: Any, message: str) -> None:
    with pytest.raises(error, match=message):
        lab.arm(FUNCTION, **arguments)
    assert lab.armed_faults() == []


@pytest.mark.parametrize("function", ["", "VSDVS_SetMT", "Panic", "DVSData_Free", "kestrel_lab_now", "x" * 63])
def test_only_functions_of_the_platform_that_can_fail_take_faults(function: str) -> None:
    with pytest.raises(lab.LabError, match="that can fail") as caught:
        lab.arm(function, status=k.ZEL_BUSY)
    assert caught.value.status == k.ZEL_NOT_FOUND
    with pytest.raises(lab.LabError), lab.counted_calls() as calls:
        _ = calls[function]


def test_armed_faults_are_listed_with_what_is_left_of_them() -> None:
    status = lab.arm(FUNCTION, status=k.ZEL_BUSY, at=2, times=3)
    abort = lab.arm("DVSLoadConfig", raises=OSError("no disk"))
    full = lab.arm(FUNCTION, disk_full=True, at=9)
    assert set_mtu() == k.ZEL_OK
    assert set_mtu() == k.ZEL_BUSY
    assert lab.armed_faults() == [
        lab.Fault(id=status, function=FUNCTION, at=1, times=2, status=k.ZEL_BUSY),
        lab.Fault(id=abort, function="DVSLoadConfig", at=1, times=1, exception="OSError", message="no disk"),
        lab.Fault(id=full, function=FUNCTION, at=7, times=1, disk_full=True),
    ]
    assert lab.disarm(abort)
    assert not lab.disarm(abort)
    assert [fault.id for fault in lab.armed_faults()] == [status, full]
    lab.disarm_all()
    assert lab.armed_faults() == []


def test_calls_are_counted_inside_of_a_block() -> None:
    set_mtu()
    with lab.counted_calls() as calls:
        set_mtu()
        set_mtu()
        assert (calls[FUNCTION], calls["VSDVS_GetMTU"]) == (2, 0)
    set_mtu()
    assert calls[FUNCTION] == 2
    with lab.counted_calls() as calls:
        assert calls[FUNCTION] == 0


def test_an_error_tells_what_failed_in_words() -> None:
    with pytest.raises(lab.LabError) as caught:
        lab.arm("nothing", status=1)
    assert str(caught.value) == (
        "fault for nothing: The object does not exist (ZEL_NOT_FOUND, 0x0bad0003): "
        "the platform has no function nothing that can fail"
    )
    assert isinstance(caught.value, errors.KestrelError)
    assert (caught.value.operation, caught.value.name) == ("fault for nothing", "ZEL_NOT_FOUND")
    again = pickle.loads(pickle.dumps(caught.value))
    assert (type(again), str(again)) == (lab.LabError, str(caught.value))


def test_the_python_declarations_are_what_the_header_says() -> None:
    assert laboratory.OUTPUT.read_text() == laboratory.generate(laboratory.read()), "run `make reference`"


def test_every_function_of_the_laboratory_is_called_from_python() -> None:
    sources = "".join(path.read_text() for path in laboratory.OUTPUT.parent.rglob("*.py") if path != laboratory.OUTPUT)
    used = {f"kestrel_lab_{name}" for name in re.findall(r'"([a-z_]+)"|_PREFIX\}([a-z]+)"', sources) for name in name}
    assert {f.name for f in laboratory.read().functions} - used == set()
