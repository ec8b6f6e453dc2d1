"""The types that the module declares to the process, in the table in memory that SWIG modules share."""

from __future__ import annotations

import ctypes

import _libkestrel  # noqa: F401  (its import fills the table)
import swig_runtime_data4


class TypeInfo(ctypes.Structure):
    """`swig_type_info`, as far as it matters here."""

    _fields_ = (("name", ctypes.c_char_p), ("display", ctypes.c_char_p))


class ModuleInfo(ctypes.Structure):
    """`swig_module_info`: one module's types."""

    _fields_ = (("types", ctypes.POINTER(ctypes.POINTER(TypeInfo))), ("size", ctypes.c_size_t))


def infos() -> dict[str, tuple[int, str]]:
    """The module's own types by their mangled names: where each is described, and its display name."""
    pointer = ctypes.pythonapi.PyCapsule_GetPointer
    pointer.restype = ctypes.c_void_p
    name = b"swig_runtime_data4.type_pointer_capsule"
    address = pointer(ctypes.py_object(swig_runtime_data4.type_pointer_capsule), name)
    assert address is not None
    module = ModuleInfo.from_address(address)
    found = [module.types[i] for i in range(module.size)]
    return {
        (info.contents.name or b"").decode(): (ctypes.addressof(info.contents), (info.contents.display or b"").decode())
        for info in found
    }
