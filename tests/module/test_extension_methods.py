"""The hand-written methods of the records, all of them: what they refuse, and how they run."""

from __future__ import annotations

import ctypes
import sys
from types import BuiltinFunctionType
from typing import Any

import _libkestrel
import pytest

from support import memory, values
from support.blocks import Block
from support.functions import HEADERS, make
from support.output import printed
from support.recorder import Recorder

MAC = "(unsigned char *mac_str, SIZE)"
ENTRY = "VSRuntimeOptionHeader *"

ADDRESS_TEXT: dict[str, tuple[str, ...]] = {
    "VSMACEntry_set_mac_address": (MAC,),
    "VSMACEntries_set_mac_address": ("int", MAC),
    "VSStaticLEEntry_set_mac_address": (MAC,),
    "VSMcastFilters_get_ip_entry": ("int",),
    "VSMcastFilters_get_ipv6_entry": ("int",),
    "VSMcastFilters_get_mac_entry": ("int",),
    "VSMcastFilterStats_get_ip_entry": ("int",),
    "VSMcastFilterStats_get_ipv6_entry": ("int",),
    "VSUserMcastLegacyKeys_get_mac_entry": ("int",),
    "DVMirrorEntity_get_entity": (),
    "DVMirrorEntity_set_entity": ("char const *",),
    "zel_Name___repr__": (),
    "VSLAGStatus_get_name": (),
    "VSLAGStatus_get_uplink_name": ("int",),
}
INDEXED_ACCESS: dict[str, tuple[str, ...]] = {
    "VSUplinks___getitem__": ("int",),
    "VSUplinks___setitem__": ("int", "char const *"),
    "VSUplinks___len__": (),
    "VSUplinkPorts___getitem__": ("int",),
    "VSUplinkPorts___setitem__": ("int", "char const *"),
    "VSUplinkPorts___len__": (),
    "VSUplinkPortIds___getitem__": ("int",),
    "VSUplinkPortIds___setitem__": ("int", "char const *"),
    "VSUplinkPortIds___len__": (),
    "VSLAGStatus___getitem__": ("int",),
    "VSLAGStatus___setitem__": ("int", "char const *"),
    "VSTeamPolicy___getitem__": ("int",),
    "VSTeamPolicy___setitem__": ("int", "char const *"),
    "LSTeamPolicy___getitem__": ("int",),
    "LSTeamPolicy___setitem__": ("int", "char const *"),
    "VSDVMirrorSessionIDs___getitem__": ("int",),
    "VSPromiscSessionActiveDsts___getitem__": ("int",),
    "VSPromiscSessionActiveDsts___setitem__": ("int", "zel_SwitchPortID"),
    "LSTeamTable___getitem__": ("int",),
    "LSTeamTable___setitem__": ("int", "LSTeamPolicy const *"),
    "DVMirrorSessionTable___getitem__": ("int",),
    "DVMirrorSessionTable___setitem__": ("int", "DVMirrorSession const *"),
    "RTMIOCtlQuery___getitem__": ("int",),
    "RTMIOCtlQuery___setitem__": ("int", "RTM_Portset const *"),
    "RTMModIOCtlQuery___getitem__": ("int",),
    "RTMModIOCtlQuery___setitem__": ("int", "RTM_ModInfo const *"),
    "VSPvlanMapEntry___getitem__": ("int",),
    "VSMACEntry___getitem__": ("int",),
    "VSStaticLEEntry___getitem__": ("int",),
    "VSPMACLearningStatsPortInfo___getitem__": ("int",),
    "VSPropSecurityPortInfo___getitem__": ("int",),
    "VSPMACLearningInfo___getitem__": ("int",),
    "VSStaticLEEntry_vlan_get_values": ("int",),
    "VSPortVlanPolicy_get_vid_range": ("int",),
    "VDSQuery_get_val_in_bytes": (),
}
SWITCH_LIST: dict[str, tuple[str, ...]] = {
    "VSList___getitem__": ("int",),
}
RUNTIME_OPTIONS: dict[str, tuple[str, ...]] = {
    "VSRuntimeOptions_set_options_length": ("int",),
    "VSRuntimeOptions_get_first_option": (),
    "VSRuntimeOptions_get_next_option": (ENTRY,),
    "VSRuntimeOptions_add_int_option": (ENTRY, "char *", "int", "int"),
    "VSRuntimeOptions_add_str_option": (ENTRY, "char *", "int", "char *"),
    "VSRuntimeOptionHeader_get_option_name": (),
    "VSRuntimeOptionHeader_get_option_value": (),
}
TABLE_WALKERS: dict[str, tuple[str, ...]] = {
    "VSLAGTable_vs_lag_table_first_lag": (),
    "VSLAGStatus_vs_lag_table_next_lag": (),
    "DVMirrorSessionTable_get_first_session": (),
    "DVMirrorSessionTable_get_first_session_entity": ("int",),
    "DVMirrorEntity___next__": (),
    "VSPMACLearningStatsPortInfo_get_mac_learning_stats": (),
    "VSPropSecurityPortInfo_get_port_sec": (),
    "VSPMACLearningInfo_get_mac_learning_config": (),
}

METHODS = ADDRESS_TEXT | INDEXED_ACCESS | SWITCH_LIST | RUNTIME_OPTIONS | TABLE_WALKERS
"""Every method with the types of what follows the record, as messages spell them. Each group has tests of its own, in
the file of its name."""


def record_of(method: str) -> str:
    """The record that a method belongs to."""
    return max((r.name for r in HEADERS.records if method.startswith(f"{r.name}_")), key=len)


ARGUMENTS = [
    pytest.param(method, position, kind, id=f"{method}.{position}")
    for method, kinds in METHODS.items()
    for position, kind in enumerate(kinds, start=2)
]
WITH_INDEX = [method for method, kinds in METHODS.items() if "int" in kinds]
WITH_TEXT = [method for method, kinds in METHODS.items() if {"char const *", "char *"} & {*kinds}]


class Arguments:
    """Arguments of a method that convert, its record first, and the memory of the records among them."""

    def __init__(self, method: str) -> None:
        self._blocks: list[Block] = []
        self.values = [self._zeros(record_of(method)), *map(self._plain, METHODS[method])]

    def but(self, place: int, *others: Any) -> list[Any]:
        """The arguments with others from a place on."""
        return [*self.values[:place], *others, *self.values[place + len(others) :]]

    def memory(self) -> list[bytes]:
        """What the records hold now."""
        return [block.content() for block in self._blocks]

    def _zeros(self, record: str) -> Any:
        """A record without entries, with more zeros behind it."""
        self._blocks.append(Block(bytes(8192)))
        return self._blocks[-1].pointer(record)

    def _plain(self, kind: str) -> Any:
        if kind == MAC:
            return bytes(6)
        if kind in ("char const *", "char *"):
            return "text"
        if kind == ENTRY:
            return self._blocks[0].pointer("VSRuntimeOptionHeader", 4)
        return 0 if kind in ("int", "zel_SwitchPortID") else self._zeros(kind.split()[0])


def call(method: str, arguments: list[Any]) -> Any:
    try:
        return getattr(_libkestrel, method)(*arguments)
    except SystemError:
        # The one way in which an index outside a list without entries is told otherwise than by print.
        assert method == "VSDVMirrorSessionIDs___getitem__"
        return None


def bad(kind: str) -> list[tuple[Any, type[Exception]]]:
    """Refused values of an argument, each with the exception it raises."""
    if kind == "int":
        return values.bad("s32")
    if kind == "zel_SwitchPortID":
        return values.bad("u32")
    wrong: list[Any] = [1, 1.0, [1], object(), len]
    if kind == MAC:
        wrong += [None, "text"]
    elif kind in ("char const *", "char *"):
        wrong += [b"text", "\ud800"]
    else:
        wrong += ["text", b"text", make("VSStats")]
    return [(value, TypeError) for value in wrong]


def refusal(method: str, position: int, kind: str) -> str:
    return f"in method '{method}', argument {position} of type '{kind}'"


def test_these_are_all_the_methods_that_the_records_have() -> None:
    functions = {n for n in dir(_libkestrel) if isinstance(getattr(_libkestrel, n), BuiltinFunctionType)}
    generated = {f"{r.name}_{m.name}_{what}" for r in HEADERS.records for m in r.members for what in ("get", "set")}
    generated |= {f"{r.name}_swigregister" for r in HEADERS.records} | {f.name for f in HEADERS.functions}
    methods = {n for n in functions - generated if n.startswith(tuple(f"{r.name}_" for r in HEADERS.records))}
    assert methods == set(METHODS)
    assert len(METHODS) == 65
    groups = (ADDRESS_TEXT, INDEXED_ACCESS, SWITCH_LIST, RUNTIME_OPTIONS, TABLE_WALKERS)
    assert sum(map(len, groups)) == len(METHODS)  # none stands in two


@pytest.mark.parametrize("method", METHODS)
def test_methods_refuse_other_records(method: str) -> None:
    other = make("VSStats")
    for wrong in (1, 1.0, "x", b"x", [1], object(), len, other):
        # What follows is wrong too: the first wrong argument is the one reported.
        arguments = [wrong, *[object()] * len(METHODS[method])]
        with pytest.raises(TypeError) as caught:
            getattr(_libkestrel, method)(*arguments)
        assert str(caught.value) == refusal(method, 1, f"struct {record_of(method)} *")
    assert other.own() is True


@pytest.mark.parametrize(("method", "position", "kind"), ARGUMENTS)
def test_an_argument_converts_by_its_type(method: str, position: int, kind: str, capfd: Any) -> None:
    given = Arguments(method)
    before = given.memory()
    for wrong, exception in bad(kind):
        with pytest.raises(exception) as caught:
            # What follows is wrong too: the first wrong argument is the one reported.
            getattr(_libkestrel, method)(*given.but(position - 1, wrong, *[object()] * (len(given.values) - position)))
        assert type(caught.value) is exception
        assert str(caught.value) == refusal(method, position, kind)
    assert given.memory() == before
    assert printed(capfd) == ""


@pytest.mark.parametrize("method", METHODS)
def test_methods_count_their_arguments(method: str) -> None:
    given = Arguments(method)
    count = len(given.values)
    plural = "" if count == 1 else "s"
    for number in {0, count - 1, count + 1}:
        with pytest.raises(TypeError) as caught:
            getattr(_libkestrel, method)(*[*given.values, None][:number])
        assert str(caught.value) == f"{method}() takes exactly {count} argument{plural} ({number} given)"


@pytest.mark.parametrize(("method", "position", "kind"), [p for p in ARGUMENTS if p.values[2] == "int"])
def test_numbers_beyond_64_bits_go_on_as_minus_one(method: str, position: int, kind: str) -> None:
    assert kind == "int"
    reached, expected = Arguments(method), Arguments(method)
    call(method, expected.but(position - 1, -1))
    for beyond in (2**63, 2**64, -(2**63) - 1):
        # Making an instance for the result looks names up; what the interpreter has not looked up before must not
        # cost the pending error.
        sys._clear_type_cache()
        # A method that fails of itself for -1 leaves the error as it is; others have the interpreter complain.
        fails = method == "VSDVMirrorSessionIDs___getitem__"
        with pytest.raises(OverflowError if fails else SystemError) as caught:
            getattr(_libkestrel, method)(*reached.but(position - 1, beyond))
        assert fails or isinstance(caught.value.__cause__, OverflowError)
        assert reached.memory() == expected.memory()


MODULE = ctypes.CDLL(_libkestrel.__file__)
STATUS = ctypes.c_int32.in_dll(MODULE, "exception_status")
MARK = 123456789


@pytest.mark.parametrize("method", METHODS)
def test_methods_arm_the_channel_when_all_has_converted(method: str) -> None:
    given = Arguments(method)
    STATUS.value = MARK
    for place in range(len(given.values)):
        with pytest.raises(TypeError):
            getattr(_libkestrel, method)(*given.but(place, object()))
    assert STATUS.value == MARK
    call(method, given.values)
    assert STATUS.value == 0


@pytest.mark.parametrize("method", METHODS)
def test_methods_do_without_the_platform(method: str, recorder: Recorder) -> None:
    given = Arguments(method)
    call(method, given.values)
    assert recorder.calls() == []


TEXT = "x" * 100_000


@pytest.mark.parametrize("method", WITH_TEXT)
def test_copies_of_texts_are_released(method: str) -> None:
    given = Arguments(method)
    kinds = METHODS[method]
    arguments = [TEXT if isinstance(value, str) else value for value in given.values]
    behind = range(2 + min(i for i, kind in enumerate(kinds) if kind.startswith("char")), len(arguments))
    before = memory.allocated_bytes()
    for _ in range(50):
        call(method, arguments)
        for place in behind:
            with pytest.raises(TypeError):
                call(method, [*arguments[:place], object(), *arguments[place + 1 :]])
    assert memory.allocated_bytes() < before + 10 * len(TEXT)


@pytest.mark.parametrize("method", METHODS)
def test_calls_leave_nothing(method: str) -> None:
    given = Arguments(method)

    def round_of_calls() -> None:
        for _ in range(500):
            call(method, given.values)

    round_of_calls()
    growth = []
    for _ in range(3):
        before = memory.allocated_bytes()
        round_of_calls()
        growth.append(memory.allocated_bytes() - before)
    assert min(growth) < 500 * 8
