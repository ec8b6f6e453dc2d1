"""The module's functions, family by family, against what the headers declare."""

from __future__ import annotations

import inspect
import re
from types import BuiltinFunctionType

import _libkestrel
import pytest

from headers import model

HEADERS = model.read()
RECORDS = [r.name for r in HEADERS.records]
ARRAYS = ["vidrangeArray", "pvlanmapentryArray"]
FUNCTIONS = {name for name in dir(_libkestrel) if isinstance(getattr(_libkestrel, name), BuiltinFunctionType)}

FAMILIES = {
    "constructors": ({f"new_{name}" for name in RECORDS + ARRAYS}, 119),
    "destructors": ({f"delete_{name}" for name in RECORDS + ARRAYS}, 119),
    "readers": ({f"{r.name}_{m.name}_get" for r in HEADERS.records for m in r.members}, 573),
    "writers": (
        {f"{r.name}_{m.name}_set" for r in HEADERS.records for m in r.members if not m.read_only},
        561,
    ),
    "class registrations": ({f"{name}_swigregister" for name in RECORDS}, 117),
}

READ_ONLY = {
    "zel_IGMPv3QueryHdr.sourcesIPv4",
    "zel_IGMPv3GrpRecord.sourcesIPv4",
    "zel_IGMPv3ReportHdr.record",
    "zel_MLDv2QueryHdr.sourcesIPv6",
    "zel_MLDv2GrpRecord.sourcesIPv6",
    "zel_MLDv2ReportHdr.record",
    "zel_SocketIPv6AddressAddr.__u6_addr",
    "VSIOCtlQuery.mcastFilter",
    "VSIOCtlQuery.uplink",
    "VSPortInfo.ethFrpAccepted",
    "VSPortInfo.vlan",
    "VSUplinks.entries",
}


@pytest.mark.parametrize("family", FAMILIES)
def test_a_family_is_complete(family: str) -> None:
    names, count = FAMILIES[family]
    assert len(names) == count
    assert names <= FUNCTIONS


HELPERS = {
    *(f"alloc_{name}" for name in ("dvmirror_session_table", "ls_team_table", "rtm_mod_query", "rtm_query")),
    *(f"free_{name}" for name in ("dvmirror_session_table", "ls_team_table", "rtm_mod_query", "rtm_query")),
    *("alloc_vds_query", "free_vds_query", "alloc_vs_info", "free_vs_info", "free_switches", "VSZEL_GetSwitchesPy"),
    *("get_runtime_option_type_from_name", "MIRROR_ENCAP_TYPE", "MIRROR_ASSERT"),
    *(f"{array}_{method}" for array in ARRAYS for method in ("getitem", "setitem")),
}


def test_every_function_belongs_to_a_family() -> None:
    accounted = set().union(*(names for names, _ in FAMILIES.values()))
    plain = {f.name for f in HEADERS.functions} | HELPERS
    methods = {n for n in FUNCTIONS - accounted - plain if n.startswith(tuple(f"{r}_" for r in RECORDS))}
    assert len(plain) == 219
    assert len(methods) == 65
    assert FUNCTIONS - accounted - plain - methods == {"SWIG_PyInstanceMethod_New"}
    assert len(FUNCTIONS) == 1774 == 1 + 119 + 119 + 573 + 561 + 117 + 65 + 219
    assert not any(re.search(r"_(swiginit|cast|frompointer)$", name) for name in FUNCTIONS)


def test_every_declared_platform_function_is_there() -> None:
    assert {f.name for f in HEADERS.functions} <= FUNCTIONS


def test_twelve_members_are_read_only() -> None:
    assert {f"{r.name}.{m.name}" for r in HEADERS.records for m in r.members if m.read_only} == READ_ONLY


@pytest.mark.parametrize("name", sorted(FUNCTIONS))
def test_functions_have_no_documentation_string(name: str) -> None:
    function = getattr(_libkestrel, name)
    assert function.__doc__ is None
    assert function.__name__ == name


def test_the_module_has_no_documentation() -> None:
    assert _libkestrel.__doc__ is None
    assert _libkestrel.__name__ == "_libkestrel"


def test_attributes_are_functions_constants_and_cvar() -> None:
    own = {name for name in vars(_libkestrel) if not re.fullmatch(r"__\w+__", name)}
    assert own == FUNCTIONS | {c.name for c in HEADERS.constants} | {"cvar"}


def test_instance_methods_wrap_any_callable() -> None:
    def add(self: object, other: int) -> tuple[object, int]:
        return self, other

    wrapped = _libkestrel.SWIG_PyInstanceMethod_New(add)
    holder = type("Holder", (), {"method": wrapped})()
    assert holder.method(3) == (holder, 3)
    assert inspect.isroutine(wrapped)
    with pytest.raises(TypeError, match="takes exactly one argument"):
        _libkestrel.SWIG_PyInstanceMethod_New()


def test_positional_arguments_only() -> None:
    with pytest.raises(TypeError, match="takes no keyword arguments"):
        _libkestrel.ZEL_ReturnStatusToString(status=0)
