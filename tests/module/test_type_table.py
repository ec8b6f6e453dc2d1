"""The types that the module declares to the process, read from the shared table in memory."""

from __future__ import annotations

import re

import _libkestrel

from headers import model
from support.type_table import infos

HEADERS = model.read()


TYPES = {name: display for name, (_, display) in infos().items()}


def test_every_record_and_array_has_a_descriptor() -> None:
    names = [r.name for r in HEADERS.records] + ["vidrangeArray", "pvlanmapentryArray"]
    assert {f"_p_{name}" for name in names} <= set(TYPES)
    assert len(names) == 119


def test_every_enumeration_has_a_descriptor() -> None:
    enumerations = {c.enumeration for c in HEADERS.constants if c.enumeration}
    assert {f"_p_{name}" for name in enumerations} <= set(TYPES)


def test_descriptors_are_named_by_their_spellings() -> None:
    assert TYPES["_p_zel_Name"] == "zel_Name *|struct zel_Name *"
    assert TYPES["_p_zel_String"] == "zel_String *"
    assert TYPES["_p_p_VSUplinks"] == "struct VSUplinks **|VSUplinks **"
    assert TYPES["_p_char"] == "zel_Bool *|char *"
    assert "zel_SwitchPortID *" in TYPES["_p_unsigned_int"]
    assert "VDSVersion *" in TYPES["_p_unsigned_int"]
    assert "DVSDataHandle *|DVSDataItem *|void **" in TYPES["_p_p_void"]
    assert "zel_int32 *" in TYPES["_p_int"]


def test_every_handed_out_record_has_a_pointer_cell() -> None:
    cells = {
        p.type.removesuffix("**").strip() for f in HEADERS.functions for p in f.parameters if p.type.endswith("**")
    }
    assert {f"_p_p_{name}" for name in cells if re.match(r"\w+$", name)} <= set(TYPES)


def test_how_many_types_there_are() -> None:
    assert len(TYPES) == 184
    assert _libkestrel.cvar.runtimeOptionNames is not None
