"""`cvar`: the two variables, reading, refusals, and the option names behind the array."""

from __future__ import annotations

import ctypes

import _libkestrel
import pytest

from support import memory
from support.options import NAMES


def test_module_identifier_reads_as_zero() -> None:
    assert _libkestrel.cvar.zel_ModuleCurrentID == 0
    assert type(_libkestrel.cvar.zel_ModuleCurrentID) is int


def test_module_identifier_is_read_only() -> None:
    with pytest.raises(AttributeError) as caught:
        _libkestrel.cvar.zel_ModuleCurrentID = 1
    assert str(caught.value) == "Variable zel_ModuleCurrentID is read-only."
    assert _libkestrel.cvar.zel_ModuleCurrentID == 0


def test_option_names_read_as_an_opaque_pointer() -> None:
    pointer = _libkestrel.cvar.runtimeOptionNames
    assert repr(pointer).startswith("<Swig Object of type 'char **' at 0x")
    assert pointer.own() is False
    array = (ctypes.c_char_p * 17).from_address(memory.address(pointer))
    assert [(name or b"").decode() for name in array] == NAMES


def test_option_names_cannot_be_assigned() -> None:
    with pytest.raises(AttributeError) as caught:
        _libkestrel.cvar.runtimeOptionNames = None
    assert str(caught.value) == "in variable 'read-only runtimeOptionNames' of type 'char const *[]'"


def test_unknown_variables_are_named() -> None:
    text = "Unknown C global variable 'nonexistent'"
    with pytest.raises(AttributeError) as caught:
        _ = _libkestrel.cvar.nonexistent
    assert str(caught.value) == text
    with pytest.raises(AttributeError) as caught:
        _libkestrel.cvar.nonexistent = 1
    assert str(caught.value) == text


def test_the_variables_object() -> None:
    assert type(_libkestrel.cvar).__name__ == "swigvarlink"
    assert str(_libkestrel.cvar) == "(runtimeOptionNames, zel_ModuleCurrentID)"


def test_indexes_name_the_options() -> None:
    names = {
        _libkestrel.GET_RUNTIME_OPTIONS_IGMP_QUERY_INTERVAL: "IGMPQueryInterval",
        _libkestrel.GET_RUNTIME_OPTIONS_TEAMING_NUMA_AWARE: "TeamingNUMAAware",
        _libkestrel.GET_RUNTIME_OPTIONS_SEND_IGMP_REPORT_TO_UPLINK: "SendIGMPReportToUplink",
        _libkestrel.VS_RT_OPT_MLD_ROUTER_IP: "MLDRouterIP",
    }
    assert {index: NAMES[index] for index in names} == names
