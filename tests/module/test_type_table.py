"""The types that the module declares to the process, read from the shared table in memory."""

from __future__ import annotations

import ctypes
import re

import _libkestrel  # whose import fills the table
import swig_runtime_data4

from headers import model

HEADERS = model.read()


class TypeInfo(ctypes.Structure):
    """`swig_type_info`, as far as it matters here."""

    _fields_ = (("name", ctypes.c_char_p), ("display", ctypes.c_char_p))


class ModuleInfo(ctypes.Structure):
    """`swig_module_info`: one module's types."""

    _fields_ = (("types", ctypes.POINTER(ctypes.POINTER(TypeInfo))), ("size", ctypes.c_size_t))


def declared() -> dict[str, str]:
    """Mangled names and display names of the module's own types."""
    pointer = ctypes.pythonapi.PyCapsule_GetPointer
    pointer.restype = ctypes.c_void_p
    name = b"swig_runtime_data4.type_pointer_capsule"
    address = pointer(ctypes.py_object(swig_runtime_data4.type_pointer_capsule), name)
    assert address is not None
    module = ModuleInfo.from_address(address)
    infos = [module.types[i].contents for i in range(module.size)]
    return {(info.name or b"").decode(): (info.display or b"").decode() for info in infos}


TYPES = declared()


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
