"""The benchmark's records as ctypes and cffi want them described, derived from the public headers."""

from __future__ import annotations

import ctypes
import sys
from functools import cache
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tools"))

from headers import model

_INTEGERS = {"u8": "uint8_t", "u16": "uint16_t", "u32": "uint32_t", "u64": "uint64_t", "s32": "int32_t"}


@cache
def structure(name: str) -> type[ctypes.Structure]:
    """Describe the record `name` as a ctypes class; members that are not spelled out stay unnamed bytes."""
    record = model.read().record(name)
    fields: list[tuple[str, type]] = []
    end = 0
    for member in record.members:
        kind = _ctypes_kind(member)
        if kind is None or member.bits:
            continue
        if member.offset < end:
            raise ValueError(f"{name}.{member.name} shares its bytes with another member")
        if member.offset > end:
            fields.append((f"_{end}", ctypes.c_char * (member.offset - end)))
        fields.append((member.name, kind))
        end = member.offset + member.width
    if record.size > end:
        fields.append((f"_{end}", ctypes.c_char * (record.size - end)))
    result = type(name, (ctypes.Structure,), {"_pack_": 1, "_fields_": fields})
    assert ctypes.sizeof(result) == record.size
    return result


def _ctypes_kind(member: model.Member) -> type | None:
    if member.kind in _INTEGERS:
        kind = getattr(ctypes, "c_" + _INTEGERS[member.kind].removesuffix("_t"))
        assert isinstance(kind, type)
        return kind
    if member.kind == "text":
        return ctypes.c_char * member.width
    if member.kind == "record":
        return structure(member.element)
    if member.kind == "pointer":
        return ctypes.c_void_p
    return None


def declarations(*names: str) -> str:
    """Declare the records `names`, those within others first, for cffi; the compiler adds the layout."""
    text = ""
    for name in names:
        record = model.read().record(name)
        members = [line for member in record.members if (line := _declaration(member))]
        tag = f"{name} " if record.tagged else ""
        text += f"typedef struct {tag}{{ {' '.join(members)} ...; }} {name};\n"
    return text


def _declaration(member: model.Member) -> str | None:
    if member.kind in _INTEGERS:
        return f"{_INTEGERS[member.kind]} {member.name};"
    if member.kind == "text":
        return f"char {member.name}[{member.width}];"
    if member.kind == "record":
        return f"{member.element} {member.name};"
    return None


def headers_of(*names: str) -> str:
    """Include what declares the records `names`."""
    headers = sorted({model.read().record(name).header for name in names})
    return "".join(f'#include "kestrel/{header}"\n' for header in headers)
