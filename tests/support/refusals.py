"""Bad arguments for every declared function, and an interpreter that calls with them, one call at a time.

Run as a program it is that interpreter: it prepares a host in the file that KESTREL_HOST names, reads the number of a
call, makes it, and answers with a line of JSON, how it ended. Each call has one bad argument among good ones, so that
it would do something were it not for that one.
"""

from __future__ import annotations

import ctypes
import json
import os
import sys
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from functools import partial
from typing import Any

import _libkestrel as k

from headers.model import Function, Parameter
from libkestrel import lab
from libkestrel.errors import status_name
from support import memory
from support.blocks import aimed
from support.cells import BLOCK, Cell, pointer
from support.functions import COUNTED, FUNCTIONS, HEADERS, conversion, make, visible, width
from support.type_table import infos

SWITCH, ID, PORTSET_OF = "dvs-swept", "5e0c4d7a-7b1e-4c11-9f5d-0b6f2b9c5a10", "portset of the switch"
PORT, FREE, UPLINK, NIC, KEY, EXTERNAL, SESSION, POLICY = (
    *("p1", "p2", "up1", "swept0", "com.example.key", "outer", "mirror", "team"),
)
TOO_LONG = 5000


@dataclass(frozen=True)
class Case:
    """A call with one bad argument, or none."""

    function: Function
    place: int | None
    """Of the bad argument among those that scripts pass."""
    label: str
    value: Callable[[], Any]
    expected: frozenset[str]
    """How it may end: a status, an exception, or "nothing" where no status is returned; empty where the value may be a
    good one."""

    @property
    def name(self) -> str:
        if self.place is None:
            return self.function.name
        return f"{self.function.name}({visible(self.function)[self.place][1].name} {self.label})"


# ---- Good values ----

GOOD: dict[str, Any] = {
    "switchName": SWITCH,
    "switchId": ID,
    "portName": PORT,
    "portId": PORT,
    "alias": SWITCH,
    "uplinkName": UPLINK,
    "key": KEY,
    "externalId": EXTERNAL,
    "sessionId": SESSION,
    "policyName": POLICY,
    "className": k.PS_CLASS_NAME,
    "component": None,
    "command": "show",
    "format": "nothing to worry about",
    "maxPorts": 64,
    "mtu": 1600,
    "version": k.DVS_VERSION_70,
    "numPorts": 4,
    "propertyType": k.CONFIG_PROP_TYPE,
    "runtimeOnly": 0,
    "propertyValue": b"value",
    "bytesIn": bytes([239, 1, 2, 3]),
    "uplink": 0,
    "mode": 0,
    "type": 0,
}
"""By the name of the parameter; other texts are names, other numbers 1, other pointers new records and cells."""

OF_FUNCTION: dict[tuple[str, str], Any] = {
    **{("VSDVS_CreateVSwitch", name): "new" for name in ("alias", "switchId")},
    **{("DVSZEL_SwitchAdd", name): "new" for name in ("alias", "switchId")},
    **{("DVSZEL_PortAdd", name): "new" for name in ("portId",)},
    **{(function, "portName"): "new" for function in ("VSDVS_AddDVPort", "VSDVS_AddOpaqueDVPort")},
    ("VSDVS_AddOpaqueDVPort", "externalId"): "new",
    ("VSDVS_AddSwitchUplinkPort", "uplinkName"): "new",
    ("VSDVS_CreateVSwitch", "createShadow"): 0,
    ("VSZEL_DVSAliasToSwitchId", "switchId"): "x" * 64,
    ("VSZEL_GetMcastFilters", "mode"): k.VS_MCAST_FILTER_MODE_IGMP,
    ("VSZEL_GetMcastFilterStats", "mode"): k.VS_MCAST_FILTER_MODE_IGMP,
    **{
        (f"VSZEL_{function}", "uplinkName"): NIC
        for function in (
            "GetUplinkLinkState",
            "GetUplinkLACPLinkState",
            "SetUplinkAdminLinkState",
            "GetUplinkDVPortID",
        )
    },
    ("VSZEL_GetSwitches", "listType"): k.VS_LIST_PS,
    ("DVSZEL_SwitchPortList", "type"): k.DVSPORT_TYPE_ACTIVE,
    ("VSZEL_SetUplinkAdminLinkState", "state"): k.ZEL_LINK_STATE_DOWN,
}

_NEW_NAMES = {key for key, value in OF_FUNCTION.items() if value == "new"}
_CELL_BYTES = 64
_ENTRIES_ROOM = 4 * 0x10000
"""Bytes for as many ranges of VLANs as a call can say that there are."""


def _mangled(spelled: str) -> str:
    """The module's own name for a pointer type as the headers spell it."""
    plain = spelled.replace(" const", "")
    return next(name for name, (_, shown) in infos().items() if plain in shown.split("|"))


def _cell(spelled: str) -> Any:
    """A pointer of that type to a place of its own."""
    room = ctypes.create_string_buffer(_CELL_BYTES)
    place = ctypes.c_void_p.from_buffer(room)
    if spelled == "DVSDataHandle *":
        _KEPT.append(lambda: place.value and k.DVSData_Free(pointer(BLOCK, place.value)))
    elif spelled.endswith("**"):
        _KEPT.append(lambda: memory.free(pointer(BLOCK, place.value or 0)))
    else:
        _KEPT.append(room)
    return pointer(_mangled(spelled), ctypes.addressof(room))


_KEPT: list[Any] = []
"""What pointers of the call that is being made lead to; what gives it back, where something has to."""
_OPTIONAL = {"memory", "buffer", "context", "callback", "value", "image", "input", "allocate", "release"}
"""Pointers that may be null."""


def _pointer(function: Function, parameter: Parameter) -> Any:
    if conversion(parameter) == "callback" or parameter.name in _OPTIONAL:
        return None
    if parameter.name == "handle" and parameter.type == "DVSwitchHandle":
        return k.DVSState_SwitchFindByAlias(SWITCH)
    if parameter.name == "handle" and parameter.type == "DVSPortHandle":
        return k.DVSState_PortFind(ID, PORT)
    if parameter.type == "DVSDataHandle" and function.name != "DVSData_Free":
        cell = Cell()
        assert k.DVSData_Alloc(pointer(_mangled("DVSDataHandle *"), int(cell.pointer)), None, None) == k.ZEL_OK
        handle = pointer(BLOCK, cell.address)
        _KEPT.append(lambda: k.DVSData_Free(handle))
        return handle
    if parameter.type in ("DVSDataHandle", "DVSDataItem"):
        return None
    pointed = parameter.type.removesuffix("*").replace("const", "").strip()
    if pointed in {record.name for record in HEADERS.records} and not parameter.type.endswith("**"):
        if pointed == "VDSQuery":
            return _allocated(k.alloc_vds_query(4096), k.free_vds_query)
        if pointed in _RECORDS:
            return _RECORDS[pointed]()
        if pointed in ("VSMACEntries", "VSPvlanMapEntry", "VSUplinkPortIds", "VSUplinkPorts", "zel_VDSPortVIDRange"):
            return _room(pointed, bytes(_ENTRIES_ROOM))
        return _made(pointed)
    return _cell(parameter.type)


def _made(record: str) -> Any:
    return _allocated(make(record), getattr(k, f"delete_{record}"))


def _allocated(made: Any, release: Callable[[Any], Any]) -> Any:
    _KEPT.append(lambda: release(made))
    return made


def _mirror_sessions() -> Any:
    table = _allocated(k.alloc_dvmirror_session_table(1, 0), k.free_dvmirror_session_table)
    k.DVMirrorSessionTable_version_set(table, k.VS_DVMIRROR_VERSION_V4)
    k.DVMirrorSessionTable_numSessions_set(table, 1)
    session = _made("DVMirrorSession")
    k.DVMirrorSession_sid_set(session, SESSION)
    k.DVMirrorSession_type_set(session, k.VS_DVMIRROR_SESSIONTYPE_DVPORT)
    k.DVMirrorSessionTable___setitem__(table, 0, session)
    return table


def _named_teams() -> Any:
    table = _allocated(k.alloc_ls_team_table(1), k.free_ls_team_table)
    k.LSTeamTable_numLSTeam_set(table, 1)
    policy = _made("LSTeamPolicy")
    k.LSTeamPolicy_name_set(policy, POLICY)
    k.LSTeamTable___setitem__(table, 0, policy)
    return table


def _team() -> Any:
    policy = _made("VSTeamPolicy")
    k.VSTeamPolicy_numActive_set(policy, 1)
    k.VSTeamPolicy___setitem__(policy, 0, UPLINK)
    return policy


def _address() -> Any:
    entry = _made("VSMACEntry")
    k.VSMACEntry_set_mac_address(entry, bytes([2, 0, 0, 0, 0, 9]))
    k.VSMACEntry_macAddrType_set(entry, k.VS_MAC_ADDR_TYPE_USER)
    return entry


def _ageing(record: str) -> Any:
    policy = _made(record)
    getattr(k, f"{record}_agingTime_set")(policy, 300)
    getattr(k, f"{record}_macLimit_set")(policy, 64)
    return policy


_RECORDS: dict[str, Callable[[], Any]] = {
    "DVMirrorSessionTable": _mirror_sessions,
    "LSTeamTable": _named_teams,
    "VSTeamPolicy": _team,
    "VSMACEntry": _address,
    "VSPropMACLearning": lambda: _ageing("VSPropMACLearning"),
    "VSMACLearningGlobalProps": lambda: _ageing("VSMACLearningGlobalProps"),
}
"""Records that have to say something; others are good as they are made."""


def _room(record: str, content: bytes) -> Any:
    """A record with these bytes from its start on, and zeros behind it."""
    memory = ctypes.create_string_buffer(content, max(len(content), HEADERS.record(record).size) + 4096)
    _KEPT.append(memory)
    return aimed(record, ctypes.addressof(memory))


def good(function: Function, parameter: Parameter) -> Any:
    """An argument that the call accepts, or comes near to accepting."""
    if (function.name, parameter.name) in OF_FUNCTION:
        return OF_FUNCTION[function.name, parameter.name]
    rule = conversion(parameter)
    if parameter.name == "portsetName":
        return k.DVSAliasToPortsetName(SWITCH)[1]
    if parameter.name == "portID":
        return k.VSDVS_DvPortIDToPortID(SWITCH, PORT)[1]
    if rule in ("pointer", "callback"):
        return _pointer(function, parameter)
    if rule == "exactText":
        return ""
    if parameter.name in ("length", "inputLength", "count", "numRanges"):
        return len(GOOD["propertyValue"]) if any(p.name == "propertyValue" for p in function.parameters) else 0
    return GOOD.get(parameter.name, 1)


# ---- Bad ones ----

Tried = Iterator[tuple[str, Any, str]]
"""Label, value, and how the call may end, in words; no words where the value may be a good one."""

_FREE_TEXTS = {"component", "format", "className"}
"""Texts that name nothing which would have to be there."""
_OUTPUTS = {("VSZEL_DVSAliasToSwitchId", "switchId")}
"""Texts that the platform writes to."""
_COUNTS = {"length", "inputLength", "count", "numRanges"}
"""Numbers of things behind a pointer: only those may be tried that there are, or that there is no pointer for."""
_VARIABLE = {"VDSQuery", "RTMIOCtlQuery", "RTMModIOCtlQuery", "DVMirrorSessionTable"}
"""Records that say how much is behind them."""
_LIMITS = {
    "u16": (0, 2, 0x7FFF, 0xFFFF),
    "u32": (0, 2, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF),
    "s32": (-(2**31), -1, 0, 2, 4096, 2**31 - 1),
    "e8": (-1, 4, 255, 2**31 - 1),
    "flag": (2, 255),
}


def _bad_texts(function: Function, parameter: Parameter) -> Tried:
    key = (function.name, parameter.name)
    is_free = parameter.name in _FREE_TEXTS
    # A key that nobody knows is that of a new property.
    is_new = key in _NEW_NAMES or (parameter.name == "key" and function.name.endswith(("Set", "Prop", "Update")))
    is_new = is_new and not function.name.startswith(("VSDVS_Get", "VSDVS_Clear"))
    unknown = "ZEL_NOT_IMPLEMENTED" if parameter.name == "command" else "ZEL_NOT_FOUND"
    if conversion(parameter) == "text":
        yield "empty", "", unknown
        yield "unknown", "x" * (width(parameter) - 1), unknown
    else:
        yield "null", None, "" if is_free and parameter.name != "className" else "ZEL_BAD_PARAM"
    if key in _OUTPUTS:
        return
    if conversion(parameter) != "text":
        too_long = unknown if parameter.name == "command" else "ZEL_NAME_TOO_LONG"
        yield "too long", "x" * TOO_LONG, "" if parameter.name == "format" else too_long
        yield "empty", "", "" if is_free else f"{unknown} ZEL_INVALID_NAME"
        yield "unknown", "no such thing", "" if is_free or is_new else unknown
    yield "not UTF-8", "\udcff\udc80", "TypeError"


def _bad_numbers(function: Function, parameter: Parameter) -> Tried:
    has_room = any(p.name in ("propertyValue", "entries", "map") for p in function.parameters)
    for value in _LIMITS[HEADERS.kind(parameter.type)]:
        if parameter.name not in _COUNTS:
            yield str(value), value, ""
        elif value < 0:
            yield str(value), value, "ZEL_BAD_PARAM"
        elif value > 2 and not has_room and parameter.name == "numRanges":
            yield str(value), value, "ZEL_BAD_PARAM ZEL_BAD_VLANID"
        elif value > 2 and any(p.name in ("value", "image", "input") for p in function.parameters):
            yield str(value), value, "ZEL_BAD_PARAM"


def _bad_pointers(parameter: Parameter) -> Tried:
    pointed = parameter.type.removesuffix("*").replace("const", "").strip()
    may_be_null = parameter.name in _OPTIONAL or parameter.name in ("types", "entries", "map", "ranges")
    is_handle = "Handle" in parameter.type or "Item" in parameter.type
    yield "null", None, "" if may_be_null else "ZEL_BAD_PARAM ZEL_INVALID_HANDLE nothing"
    records = {record.name: record for record in HEADERS.records}
    has_tail = pointed in records and any(member.kind == "trailing" for member in records[pointed].members)
    if pointed in records and not has_tail and pointed not in {*COUNTED, *_VARIABLE}:
        size = records[pointed].size
        yield "full of ones", lambda: _room(pointed, b"\xff" * size), ""
        yield "full of zeros", lambda: _room(pointed, bytes(size)), ""
    if is_handle:
        # Cells are told from one another by the module, handles by the platform.
        yield "of something else", lambda: _made("VSInfo"), "TypeError ZEL_INVALID_HANDLE nothing"


def _tried(function: Function, parameter: Parameter) -> Tried:
    rule = conversion(parameter)
    if rule == "exactText":
        return iter(())
    if rule in ("bytesIn", "propertyValue"):
        return iter([("null", None, "SystemError")])
    if rule in ("text", "text_pointer"):
        return _bad_texts(function, parameter)
    if rule in ("pointer", "callback"):
        return _bad_pointers(parameter)
    return _bad_numbers(function, parameter)


def _case(function: Function, place: int, label: str, value: Any, expected: str) -> Case:
    words = frozenset(expected.split())
    if words and function.returns != "ZEL_ReturnStatus":
        words = frozenset({"nothing", "TypeError"})
    return Case(function, place, label, value if callable(value) else lambda: value, words)


def cases() -> list[Case]:
    """Every case of every function, in the order of the headers."""
    found = []
    for function in FUNCTIONS:
        found.append(Case(function, None, "", lambda: None, frozenset()))
        for place, (_, parameter) in enumerate(visible(function)):
            found += [_case(function, place, *tried) for tried in _tried(function, parameter)]
    return found


# ---- The interpreter ----


def prepare() -> Any:
    """A host with one of everything; gives it as a snapshot."""
    lab.reset()
    assert k.VSDVS_CreateVSwitch(SWITCH, ID, k.PS_CLASS_NAME, 4, 0, 64, 1500, k.DVS_VERSION_70) == k.ZEL_OK
    assert k.VSDVS_AddSwitchUplinkPort(SWITCH, UPLINK) == k.ZEL_OK
    assert k.VSDVS_AddDVPort(SWITCH, PORT, 1) == k.ZEL_OK
    assert k.VSDVS_AddOpaqueDVPort(SWITCH, FREE, EXTERNAL) == k.ZEL_OK
    lab.plug(NIC)
    lab.connect_nic(SWITCH, UPLINK, NIC)
    for function in FUNCTIONS:
        # Something is set wherever something can be cleared.
        if function.name.startswith(("VSDVS_Set", "VSZEL_SetPort", "DVSZEL_UplinkDataSet")):
            outcome(Case(function, None, "", lambda: None, frozenset()))
    return lab.snapshot()


def good_arguments(function: Function) -> list[Any]:
    """Arguments that a call accepts, or comes near to accepting; they are there until `let_go`."""
    return [good(function, parameter) for _, parameter in visible(function)]


def let_go() -> None:
    """Gives back what the arguments of calls needed."""
    for kept in _KEPT:
        if callable(kept):
            kept()
    _KEPT.clear()


def _take(result: Any) -> None:
    """Keeps what a call handed out for the caller to give back."""
    for output in result[1:] if isinstance(result, list) else ():
        bare: Any = getattr(output, "this", output)
        if hasattr(bare, "own") and not bare.own():
            _KEPT.append(partial(memory.free, bare))


def outcome(case: Case) -> tuple[str, str]:
    """Makes the call of a case and tells how it ended, and what there is to say to it."""
    arguments = good_arguments(case.function)
    if case.place is not None:
        arguments[case.place] = case.value()
    try:
        result = getattr(k, case.function.name)(*arguments)
        _take(result)
    except Exception as error:
        return type(error).__name__, str(error)
    finally:
        let_go()
    first = result[0] if isinstance(result, list) else result
    if case.function.returns != "ZEL_ReturnStatus":
        return ("nothing" if first in (None, 0, "\0") else "something"), str(first)
    return status_name(first), k.ZEL_ReturnStatusToString(first)


def main() -> None:
    """Serves calls until there are no more."""
    # What is printed by others goes where errors go.
    answers = os.fdopen(os.dup(sys.stdout.fileno()), "w", buffering=1)
    os.dup2(sys.stderr.fileno(), sys.stdout.fileno())
    every = cases()
    fresh = prepare()
    print(json.dumps({"ready": len(every)}), file=answers)
    for line in sys.stdin:
        if line.strip() == "restore":
            fresh.restore()
            print(json.dumps({}), file=answers)
        else:
            print(json.dumps(outcome(every[int(line)])), file=answers)


if __name__ == "__main__":
    main()
