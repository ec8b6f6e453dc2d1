"""Every platform function at every argument position: what arrives, what is refused, what comes back.

The tables come from the headers; the recorder stands in the platform's place and notes each argument.
"""

from __future__ import annotations

from typing import Any

import _libkestrel
import pytest

from headers import model
from headers.model import Function, Parameter
from support import memory, values
from support.recorder import Address, Call, Recorder

HEADERS = model.read()
HIDDEN = {"tableOut", "valueOut"}
NOT_CHANNELLED = {"Panic"}


def visible(function: Function) -> list[tuple[int, Parameter]]:
    """The parameters that scripts pass, with their C positions from 1."""
    return [(i, p) for i, p in enumerate(function.parameters, start=1) if p.name not in HIDDEN]


def hidden(function: Function) -> list[tuple[int, Parameter]]:
    return [(i, p) for i, p in enumerate(function.parameters, start=1) if p.name in HIDDEN]


FUNCTIONS = [pytest.param(f, id=f.name) for f in HEADERS.functions]
ARGUMENTS = [
    pytest.param(f, place, position, p, id=f"{f.name}.{p.name}")
    for f in HEADERS.functions
    for place, (position, p) in enumerate(visible(f))
]


def pointer_for(kind: str) -> Any:
    """A pointer object that a parameter of this type accepts, or None where scripts cannot make one."""
    pointed = kind.removesuffix("*").replace("const", "").strip()
    if pointed == "void":
        return _libkestrel.new_VSStats()
    if pointed in {r.name for r in HEADERS.records}:
        return getattr(_libkestrel, f"new_{pointed}")()
    return None


def plain_value(parameter: Parameter) -> Any:
    """Some value that converts."""
    kind = HEADERS.kind(parameter.type)
    if kind == "text_pointer":
        return f"text for {parameter.name}"
    if kind == "flag":
        return 1
    return pointer_for(parameter.type) if kind == "pointer" else 7


def plain_arguments(function: Function) -> list[Any]:
    return [plain_value(p) for _, p in visible(function)]


def call(function: Function, arguments: list[Any]) -> Any:
    return getattr(_libkestrel, function.name)(*arguments)


def refused(function: Function, position: int, kind: str) -> str:
    return f"in method '{function.name}', argument {position} of type '{kind}'"


def arrived(recorder: Recorder, position: int) -> Any:
    """What arrived as the C parameter of the one call made."""
    (made,) = recorder.calls()
    return made.arguments[position - 1]


@pytest.mark.parametrize("function", FUNCTIONS)
def test_a_call_reaches_the_platform_once_with_all_its_arguments(function: Function, recorder: Recorder) -> None:
    arguments = plain_arguments(function)
    call(function, arguments)
    (made,) = recorder.calls()
    assert made.function == function.name
    assert len(made.arguments) == len(function.parameters)
    for (position, parameter), value in zip(visible(function), arguments, strict=True):
        note = made.arguments[position - 1]
        kind = HEADERS.kind(parameter.type)
        if kind == "text_pointer":
            assert note == value.encode()
        elif kind == "pointer":
            assert note == (None if value is None else Address(memory.address(value)))
        else:
            assert note == value
    for position, _ in hidden(function):
        assert isinstance(made.arguments[position - 1], Address)


@pytest.mark.parametrize("function", FUNCTIONS)
def test_a_wrong_number_of_arguments_reaches_nothing(function: Function, recorder: Recorder) -> None:
    count = len(visible(function))
    wrong = [n for n in (count - 1, count + 1) if n >= 0 and not (function.variadic and n > count)]
    for number in wrong:
        arguments = [*plain_arguments(function), None][:number]
        with pytest.raises(TypeError) as caught:
            call(function, arguments)
        plural = "" if count == 1 else "s"
        assert str(caught.value) == f"{function.name}() takes exactly {count} argument{plural} ({number} given)"
    assert recorder.calls() == []


@pytest.mark.parametrize(("function", "place", "position", "parameter"), ARGUMENTS)
def test_an_argument_converts_by_its_declared_type(
    function: Function, place: int, position: int, parameter: Parameter, recorder: Recorder
) -> None:
    def outcome(value: Any) -> Any:
        recorder.reset()
        arguments = plain_arguments(function)
        arguments[place] = value
        call(function, arguments)
        return arrived(recorder, position)

    def failure(value: Any, exception: type[Exception]) -> None:
        recorder.reset()
        arguments = plain_arguments(function)
        arguments[place] = value
        with pytest.raises(exception) as caught:
            call(function, arguments)
        assert type(caught.value) is exception
        assert str(caught.value) == refused(function, position, parameter.type)
        assert recorder.calls() == []

    kind = HEADERS.kind(parameter.type)
    if kind == "text_pointer":
        assert outcome(None) is None
        for text in ("", "a", "ünïcode 日本", "x" * 5000):
            assert outcome(text) == text.encode()
        for wrong in (b"bytes", 1, 1.0, ["a"], object(), "\ud800"):
            failure(wrong, TypeError)
    elif kind == "flag":
        for value, byte in values.FLAGS:
            assert outcome(value) == byte
        for wrong, exception in values.bad("flag"):
            failure(wrong, exception)
    elif kind == "pointer":
        assert outcome(None) is None
        record = pointer_for(parameter.type)
        if record is not None:
            assert outcome(record) == Address(memory.address(record))
            assert record.own() is True
        for wrong in (1, "x", b"x", [1], object()):
            failure(wrong, TypeError)
        if "void" not in parameter.type:
            other = _libkestrel.new_zel_IntrInfo()
            failure(other, TypeError)
    else:
        for value, stored in values.good(kind):
            assert outcome(value) == stored
        for wrong, exception in values.bad(kind):
            failure(wrong, exception)


@pytest.mark.parametrize("function", FUNCTIONS)
def test_the_first_wrong_argument_is_the_one_reported(function: Function, recorder: Recorder) -> None:
    positions = visible(function)
    for place, (position, parameter) in enumerate(positions):
        arguments = plain_arguments(function)[:place] + [object()] * (len(positions) - place)
        with pytest.raises(TypeError) as caught:
            call(function, arguments)
        assert str(caught.value) == refused(function, position, parameter.type)
    assert recorder.calls() == []


STATUS = [pytest.param(f, id=f.name) for f in HEADERS.functions if f.returns == "ZEL_ReturnStatus"]


@pytest.mark.parametrize("function", STATUS)
def test_a_status_comes_back_as_a_signed_int(function: Function, recorder: Recorder) -> None:
    for status in (0, 0x0BAD0003, -1, 2**31 - 1, -(2**31)):
        recorder.answer(function.name, status)
        result = call(function, plain_arguments(function))
        outputs = hidden(function)
        if not outputs:
            assert result == status
            assert type(result) is int
        else:
            assert type(result) is list
            assert len(result) == 1 + len(outputs)
            assert result[0] == status


@pytest.mark.parametrize("function", [f for f in STATUS if hidden(f.values[0])])  # type: ignore[arg-type]
def test_outputs_follow_the_status_in_a_list(function: Function, recorder: Recorder) -> None:
    for status in (0, 0x0BAD0003):
        recorder.reset()
        recorder.answer(function.name, status)
        expected: list[Any] = []
        held = []
        for position, parameter in hidden(function):
            if parameter.name == "tableOut":
                record = parameter.type.removesuffix("**").strip()
                counted = (8,) if record in ("VSUplinks", "VSUplinkPorts", "VSUplinkPortIds") else ()
                held.append(getattr(_libkestrel, f"new_{record}")(*counted))
                address = memory.address(held[-1])
                recorder.output(function.name, position - 1, address.to_bytes(8, "little"))
                expected.append(("record", record, address))
            else:
                recorder.output(function.name, position - 1, b"\xff\xff\xff\xff")
                pointed = HEADERS.kind(parameter.type.removesuffix("*").strip())
                expected.append(2**32 - 1 if pointed == "u32" else -1)
        result = call(function, plain_arguments(function))
        for item, wanted in zip(result[1:], expected, strict=True):
            if isinstance(wanted, tuple):
                assert type(item).__name__ == wanted[1]
                assert memory.address(item) == wanted[2]
                assert item.own() is False
            else:
                assert item == wanted


@pytest.mark.parametrize("function", [f for f in STATUS if hidden(f.values[0])])  # type: ignore[arg-type]
def test_outputs_that_the_platform_left_alone_are_none_and_zero(function: Function, recorder: Recorder) -> None:
    recorder.answer(function.name, 0x0BAD0003)
    result = call(function, plain_arguments(function))
    assert result == [0x0BAD0003] + [None if p.name == "tableOut" else 0 for _, p in hidden(function)]


def test_address_kinds_are_narrowed_to_a_byte(recorder: Recorder) -> None:
    _libkestrel.VSZEL_GetMACTable("s", 0x1FF)
    assert arrived(recorder, 2) == 0xFF
    with pytest.raises(OverflowError) as caught:
        _libkestrel.VSZEL_GetMACTable("s", 2**31)
    assert str(caught.value) == "in method 'VSZEL_GetMACTable', argument 2 of type 'VSMACAddrType'"


def test_vlan_policy_names_the_position_that_is_out_of_range() -> None:
    with pytest.raises(OverflowError) as caught:
        _libkestrel.VSDVS_SetPortVLANPolicy("s", "p", 65536, 0, 0, 0, None, 0)
    assert str(caught.value) == "in method 'VSDVS_SetPortVLANPolicy', argument 3 of type 'zel_uint16'"


def test_signed_arguments_beyond_64_bits_go_on_as_minus_one(recorder: Recorder) -> None:
    with pytest.raises(SystemError) as caught:
        _libkestrel.ZEL_ReturnStatusToString(2**64)
    assert isinstance(caught.value.__cause__, OverflowError)
    assert recorder.calls() == [Call("ZEL_ReturnStatusToString", (-1,))]


def test_an_error_left_pending_by_one_argument_is_not_taken_for_anothers(recorder: Recorder) -> None:
    with pytest.raises(SystemError):
        _libkestrel.VSDVS_SetPortVLANPolicy("s", "p", 65535, 2**64, "1", "", None, 65535)
    (made,) = recorder.calls()
    assert made.arguments[2:] == (65535, -1, ord("1"), 0, None, 65535)


def test_status_texts_are_decoded_and_null_is_none(recorder: Recorder) -> None:
    for text, expected in (
        (b"plain", "plain"),
        (b"\xc3\xbc", "ü"),
        (b"bad \xff", "bad \udcff"),
        (None, None),
    ):
        recorder.answer_text("ZEL_ReturnStatusToString", text)
        assert _libkestrel.ZEL_ReturnStatusToString(0) == expected


def test_status_text_takes_only_32_bit_ints(recorder: Recorder) -> None:
    text = "in method 'ZEL_ReturnStatusToString', argument 1 of type 'ZEL_ReturnStatus'"
    for wrong, exception in ((2**31, OverflowError), (-(2**31) - 1, OverflowError), ("0", TypeError)):
        with pytest.raises(exception) as caught:
            _libkestrel.ZEL_ReturnStatusToString(wrong)
        assert str(caught.value) == text
    assert recorder.calls() == []


def test_panic_passes_the_text_alone(recorder: Recorder) -> None:
    assert _libkestrel.Panic("on fire", 1, 2) is None
    assert _libkestrel.Panic("%s is kept") is None
    assert recorder.calls() == [Call("Panic", (b"on fire",)), Call("Panic", (b"%s is kept",))]
    recorder.reset()
    for arguments in ((1,), (b"x",), (1, "x")):
        with pytest.raises(TypeError) as caught:
            _libkestrel.Panic(*arguments)
        assert str(caught.value) == "in method 'Panic', argument 1 of type 'char const *'"
    with pytest.raises(TypeError, match=r"^Panic\(\) takes exactly 1 argument \(0 given\)$"):
        _libkestrel.Panic()
    assert recorder.calls() == []


@pytest.mark.parametrize("name", ["MIRROR_ENCAP_TYPE", "MIRROR_ASSERT"])
def test_empty_markers_only_arm_the_channel(name: str, recorder: Recorder) -> None:
    marker = getattr(_libkestrel, name)
    assert marker() is None
    with pytest.raises(TypeError, match=rf"^{name}\(\) takes exactly 0 arguments \(1 given\)$"):
        marker(1)
    assert recorder.calls() == []


def test_any_object_with_a_pointer_as_this_is_accepted(recorder: Recorder) -> None:
    class Holder:
        def __init__(self, this: Any) -> None:
            self.this = this

    record = _libkestrel.new_VSInfo()
    _libkestrel.VSZEL_GetVSInfo("s", Holder(Holder(record)))
    assert arrived(recorder, 2) == Address(memory.address(record))
    with pytest.raises(TypeError):
        _libkestrel.VSZEL_GetVSInfo("s", Holder(3))


def test_a_text_may_be_a_character_pointer(recorder: Recorder) -> None:
    switches = _libkestrel.new_VSList()
    pointer = _libkestrel.VSList_switches_get(switches)
    _libkestrel.VSZEL_GetLAGTable(pointer)
    assert isinstance(arrived(recorder, 1), bytes)
