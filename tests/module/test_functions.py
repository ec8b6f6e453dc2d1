"""Every platform function at every argument position: what arrives, what is refused, what comes back.

The tables come from the headers; the recorder stands in the platform's place and notes each argument.
"""

from __future__ import annotations

import ctypes
from typing import Any

import _libkestrel
import pytest

from headers.model import Function, Parameter
from support import memory, values
from support.functions import (
    FUNCTIONS,
    HEADERS,
    call,
    conversion,
    hidden,
    make,
    plain_arguments,
    pointer_for,
    visible,
    width,
)
from support.recorder import Address, Call, Recorder

CASES = [pytest.param(f, id=f.name) for f in FUNCTIONS]
ARGUMENTS = [
    pytest.param(f, place, position, p, id=f"{f.name}.{p.name}")
    for f in FUNCTIONS
    for place, (position, p) in enumerate(visible(f))
]


def refused(function: Function, position: int, kind: str) -> str:
    return f"in method '{function.name}', argument {position} of type '{kind}'"


def arrived(recorder: Recorder, position: int) -> Any:
    """What arrived as the C parameter of the one call made."""
    (made,) = recorder.calls()
    return made.arguments[position - 1]


def noted(parameter: Parameter, value: Any) -> Any:
    """What the recorder notes of a value that converts."""
    rule = conversion(parameter)
    if rule in ("text", "exactText"):
        return (value or "").encode().ljust(width(parameter), b"\0")
    if rule in ("bytesIn", "propertyValue"):
        return Address(memory.bytes_address(value))
    if rule in ("pointer", "callback"):
        return None if value is None else Address(memory.address(value))
    return value.encode() if rule == "text_pointer" else value


@pytest.mark.parametrize("function", CASES)
def test_a_call_reaches_the_platform_once_with_all_its_arguments(function: Function, recorder: Recorder) -> None:
    arguments = plain_arguments(function)
    call(function, arguments)
    (made,) = recorder.calls()
    assert made.function == function.name
    assert len(made.arguments) == len(function.parameters)
    for (position, parameter), value in zip(visible(function), arguments, strict=True):
        assert made.arguments[position - 1] == noted(parameter, value)
    for position, parameter in hidden(function):
        note = made.arguments[position - 1]
        if parameter.name == "textOut":
            assert note == bytes(width(parameter))
        else:
            assert isinstance(note, Address)


@pytest.mark.parametrize("function", CASES)
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

    rule = conversion(parameter)
    if rule == "text_pointer":
        assert outcome(None) is None
        for text in ("", "a", "ünïcode 日本", "x" * 5000):
            assert outcome(text) == text.encode()
        for wrong in (b"bytes", 1, 1.0, ["a"], object(), "\ud800"):
            failure(wrong, TypeError)
    elif rule in ("text", "exactText"):
        most = width(parameter) - (rule == "text")
        for name in ("", "a", "ü" * (most // 2), "x" * most, None):
            assert outcome(name) == noted(parameter, name)
        for wrong in ("x" * (most + 1), "ü" * (most // 2 + 1), b"bytes", 1, object(), "\ud800"):
            failure(wrong, TypeError)
    elif rule == "flag":
        for value, byte in values.FLAGS:
            assert outcome(value) == byte
        for wrong, exception in values.bad("flag"):
            failure(wrong, exception)
    elif rule in ("bytesIn", "propertyValue"):
        for value in (b"", b"a\0b", bytes(range(256))):
            assert outcome(value) == Address(memory.bytes_address(value))
        with pytest.raises(SystemError) as caught:
            outcome(1)
        assert isinstance(caught.value.__cause__, TypeError)
        assert arrived(recorder, position) is None
    elif rule in ("pointer", "callback"):
        assert outcome(None) is None
        record = pointer_for(parameter.type)
        if record is not None:
            assert outcome(record) == Address(memory.address(record))
            assert record.own() is True
        for wrong in (1, "x", b"x", [1], object(), len, lambda: None):
            failure(wrong, TypeError)
        if HEADERS.typedefs.get(parameter.type, parameter.type) != "void *":
            failure(_libkestrel.new_zel_IntrInfo(), TypeError)
    else:
        for value, stored in values.good(rule):
            assert outcome(value) == stored
        for wrong, exception in values.bad(rule):
            failure(wrong, exception)


@pytest.mark.parametrize("function", CASES)
def test_the_first_wrong_argument_is_the_one_reported(function: Function, recorder: Recorder) -> None:
    positions = visible(function)
    checked = [place for place, (_, p) in enumerate(positions) if conversion(p) not in ("bytesIn", "propertyValue")]
    for place in checked:
        position, parameter = positions[place]
        arguments = plain_arguments(function)[:place]
        arguments += [object() if later in checked else b"" for later in range(place, len(positions))]
        with pytest.raises(TypeError) as caught:
            call(function, arguments)
        assert str(caught.value) == refused(function, position, parameter.type)
    assert recorder.calls() == []


STATUS = [pytest.param(f, id=f.name) for f in FUNCTIONS if f.returns == "ZEL_ReturnStatus"]


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


WITH_OUTPUTS = [pytest.param(f, id=f.name) for f in FUNCTIONS if hidden(f)]


def handed_out(parameter: Parameter) -> str | None:
    """The record type that an output hands out, if it does."""
    if parameter.name == "mapOut":
        return "VSUplinkPorts"
    return parameter.type.removesuffix("**").strip() if parameter.type.endswith("**") else None


@pytest.mark.parametrize("function", WITH_OUTPUTS)
def test_outputs_follow_the_status_in_a_list(function: Function, recorder: Recorder) -> None:
    for status in (0, 0x0BAD0003):
        recorder.reset()
        recorder.answer(function.name, status)
        expected: list[Any] = []
        held = []
        for position, parameter in hidden(function):
            record = handed_out(parameter)
            if record:
                held.append(make(record))
                data = memory.address(held[-1]).to_bytes(8, "little")
                expected.append((record, memory.address(held[-1])))
            elif parameter.name == "textOut":
                data = "ünï\0rest".encode()
                expected.append("ünï")
            elif parameter.name == "flagOut":
                data = b"\xfe"
                expected.append(0xFE)
            else:
                data = b"\xff\xff\xff\xff"
                unsigned = HEADERS.kind(parameter.type.removesuffix("*").strip()) == "u32"
                expected.append(2**32 - 1 if unsigned else -1)
            recorder.output(function.name, position - 1, data)
        result = call(function, plain_arguments(function))
        assert type(result) is list
        assert result[0] == status
        for item, wanted in zip(result[1:], expected, strict=True):
            if isinstance(wanted, tuple):
                assert (type(item).__name__, memory.address(item)) == wanted
                assert item.own() is False
            else:
                assert (type(item), item) == (type(wanted), wanted)


@pytest.mark.parametrize("function", WITH_OUTPUTS)
def test_outputs_that_the_platform_left_alone_are_empty(function: Function, recorder: Recorder) -> None:
    recorder.answer(function.name, 0x0BAD0003)
    result = call(function, plain_arguments(function))
    empty = [None if handed_out(p) else "" if p.name == "textOut" else 0 for _, p in hidden(function)]
    assert result == [0x0BAD0003, *empty]


TEXT_OUTPUTS = [
    pytest.param(f, position, p, id=f.name) for f in FUNCTIONS for position, p in hidden(f) if p.name == "textOut"
]


@pytest.mark.parametrize(("function", "position", "parameter"), TEXT_OUTPUTS)
def test_text_outputs_end_at_their_bound(
    function: Function, position: int, parameter: Parameter, recorder: Recorder
) -> None:
    bound = width(parameter)
    for data, text in (
        (b"x" * bound, "x" * bound),
        (b"x" * (bound + 1), "x" * bound),
        (b"x" * (bound - 1) + b"\0", "x" * (bound - 1)),
        (b"\xff\xfe" + b"\0", "\udcff\udcfe"),
        (b"\0x", ""),
    ):
        recorder.output(function.name, position - 1, data)
        assert call(function, plain_arguments(function))[1] == text


def test_bounds_of_text_outputs() -> None:
    assert {p.values[0].name: width(p.values[2]) for p in TEXT_OUTPUTS} == {  # type: ignore[union-attr, arg-type]
        "VSZEL_GetPortLSTeamingPolicyName": 136,
        "VSZEL_GetUplinkDVPortID": 48,
        "VSDVS_GetPortTeamingOverride": 81,
        "VSDVS_GetPortLSTeamingPolicyName": 136,
        "VSDVS_GetAliasFromPortset": 128,
    }


NUMBERS = [pytest.param(f, id=f.name) for f in FUNCTIONS if f.returns in ("VDSVersion", "zel_uint32", "int")]
CHARACTERS = [pytest.param(f, id=f.name) for f in FUNCTIONS if f.returns == "char"]
TEXTS = [pytest.param(f, id=f.name) for f in FUNCTIONS if f.returns == "char const *"]
HANDLES = [pytest.param(f, id=f.name) for f in FUNCTIONS if HEADERS.typedefs.get(f.returns) == "void *"]
NOTHING = [pytest.param(f, id=f.name) for f in FUNCTIONS if f.returns == "void"]


@pytest.mark.parametrize("function", NUMBERS)
def test_number_results(function: Function, recorder: Recorder) -> None:
    recorder.answer(function.name, 2**32 - 1)
    assert call(function, plain_arguments(function)) == (-1 if function.returns == "int" else 2**32 - 1)


@pytest.mark.parametrize("function", CHARACTERS)
def test_character_results_are_texts_of_one_character(function: Function, recorder: Recorder) -> None:
    for byte in range(256):
        recorder.answer(function.name, byte)
        result = call(function, plain_arguments(function))
        assert type(result) is str
        assert result == values.flag_text(byte)


@pytest.mark.parametrize("function", TEXTS)
def test_text_results(function: Function, recorder: Recorder) -> None:
    for text, expected in (
        (b"plain", "plain"),
        (b"\xc3\xbc", "ü"),
        (b"bad \xff", "bad \udcff"),
        (b"", ""),
        (None, None),
    ):
        recorder.answer_text(function.name, text)
        assert call(function, plain_arguments(function)) == expected


@pytest.mark.parametrize("function", HANDLES)
def test_handle_results_are_pointers_that_python_does_not_own(function: Function, recorder: Recorder) -> None:
    assert call(function, plain_arguments(function)) is None
    record = _libkestrel.new_VSInfo()
    recorder.answer(function.name, memory.address(record))
    handle = call(function, plain_arguments(function))
    assert memory.address(handle) == memory.address(record)
    assert handle.own() is False
    assert _libkestrel.DVS_SwitchId(handle) is None  # accepted as a handle
    assert recorder.calls()[-1].arguments == (Address(memory.address(record)),)


@pytest.mark.parametrize("function", NOTHING)
def test_functions_without_result_give_none(function: Function, recorder: Recorder) -> None:
    recorder.answer(function.name, 5)
    assert call(function, plain_arguments(function)) is None


def test_address_kinds_are_narrowed_to_a_byte(recorder: Recorder) -> None:
    _libkestrel.VSZEL_GetMACTable("s", 0x1FF)
    assert arrived(recorder, 2) == 0xFF
    with pytest.raises(OverflowError) as caught:
        _libkestrel.VSZEL_GetMACTable("s", 2**31)
    assert str(caught.value) == "in method 'VSZEL_GetMACTable', argument 2 of type 'VSMACAddrType'"


def test_property_values_may_be_texts(recorder: Recorder) -> None:
    for text in ("", "plain", "ünïcode"):
        recorder.reset()
        _libkestrel.VSDVS_SetGlobProp("s", "k", text, len(text.encode()), None, 0)
        (made,) = recorder.calls()
        address = made.arguments[2]
        assert isinstance(address, Address)
        assert ctypes.string_at(address.value) == text.encode()


def test_a_switch_identifier_fits_the_copy_it_is_written_to(recorder: Recorder) -> None:
    recorder.output("VSZEL_DVSAliasToSwitchId", 1, b"x" * 64 + b"\0")
    for text in ("", "short", "y" * 64):
        assert _libkestrel.VSZEL_DVSAliasToSwitchId("alias", text) == 0


def test_the_length_of_a_property_value_is_the_callers(recorder: Recorder) -> None:
    _libkestrel.VSDVS_SetPortProp("s", "p", "k", b"a\0b", 77, None, 0)
    assert arrived(recorder, 5) == 77


def test_callbacks_of_the_three_names_are_one_type() -> None:
    module = memory.module_bytes(_libkestrel)
    assert b"DVSPortCallback|DVSPortDataCallback|DVSwitchCallback|char (*)(void *,void *)" in module


def test_pointer_classes_accept_every_member(recorder: Recorder) -> None:
    stack = _libkestrel.new_zel_MgmtCallbackInfo()
    unsigned = _libkestrel.zel_MgmtCallbackInfo_parmSizes_get(stack)  # a zel_uint32 *
    _libkestrel.VSDVS_GetMTU("s", unsigned)
    assert arrived(recorder, 2) == Address(memory.address(unsigned))
    recorder.reset()
    _libkestrel.DVSData_Serialize(None, None, unsigned, 4)
    assert arrived(recorder, 3) == Address(memory.address(unsigned))
    with pytest.raises(TypeError) as caught:
        _libkestrel.DVSZEL_StateGet(unsigned, None)
    assert str(caught.value) == "in method 'DVSZEL_StateGet', argument 1 of type 'void **'"
    with pytest.raises(TypeError) as caught:
        _libkestrel.DVSZEL_StateGet(None, unsigned)
    assert str(caught.value) == "in method 'DVSZEL_StateGet', argument 2 of type 'int *'"


NOT_IMPLEMENTED = (
    "Wrong number or type of arguments for overloaded function 'DVSAliasToPortsetName'.\n"
    "  Possible C/C++ prototypes are:\n"
    "    DVSAliasToPortsetName(char const *,char *)\n"
    "    DVSAliasToPortsetName(char const *,char [128])\n"
)


def test_the_overloaded_function_with_an_alias_alone(recorder: Recorder) -> None:
    name = "DVSAliasToPortsetName"
    for status in (0, 0x0BAD0003):
        for data, text in (
            (b"x" * 128, "x" * 128),
            (b"x" * 129, "x" * 128),
            (b"port\0set", "port"),
            (b"\xff\0", "\udcff"),
        ):
            recorder.reset()
            recorder.answer(name, status)
            recorder.output(name, 1, data)
            result = _libkestrel.DVSAliasToPortsetName("alias")
            assert type(result) is list
            assert result == [status, text]
    recorder.reset()
    assert _libkestrel.DVSAliasToPortsetName(None) == [0, ""]
    assert recorder.calls() == [Call(name, (None, bytes(128)))]


def test_the_overloaded_function_with_a_buffer(recorder: Recorder) -> None:
    name = "DVSAliasToPortsetName"
    recorder.answer(name, 0x0BAD0003)
    recorder.output(name, 1, b"discarded")
    for text in ("", "a", "x" * 127, "x" * 128, None):
        assert _libkestrel.DVSAliasToPortsetName("alias", text) == 0x0BAD0003
    buffers = [made.arguments[1] for made in recorder.calls()]
    assert buffers == [t.ljust(128, b"\0") for t in (b"", b"a", b"x" * 127, b"x" * 128, b"")]


@pytest.mark.parametrize(
    "arguments",
    [(), (1,), (b"x",), ("\ud800",), ("a", 1), ("a", "x" * 129), (1, "a"), ("a", b"x"), ("a", "b", "c"), (1, 2)],
)
def test_the_overloaded_function_fits_neither_form(arguments: tuple[Any, ...], recorder: Recorder) -> None:
    with pytest.raises(NotImplementedError) as caught:
        _libkestrel.DVSAliasToPortsetName(*arguments)
    assert str(caught.value) == NOT_IMPLEMENTED
    assert recorder.calls() == []


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
        _libkestrel.VSDVS_SetPortVLANPolicy("s", "p", 65535, 2**64, 49, "", None, 65535)
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
    block = ctypes.create_string_buffer(b"\1\0\0\0\1\0\0\0a name")
    recorder.output("VSZEL_GetSwitches", 1, ctypes.addressof(block).to_bytes(8, "little"))
    switches = _libkestrel.VSZEL_GetSwitchesPy(1)
    switches.this.disown()
    recorder.reset()
    _libkestrel.VSZEL_GetLAGTable(_libkestrel.VSList_switches_get(switches))
    assert arrived(recorder, 1) == b"a name"
