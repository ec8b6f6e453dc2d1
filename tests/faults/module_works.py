"""What the flat module does besides calling the platform: imports, records, members, conveniences."""

from __future__ import annotations

import ctypes
from collections.abc import Iterator
from typing import Any

import _libkestrel as k

from faults.work import Call, Work
from headers import model
from headers.model import Function, Member, Parameter, Record
from support.blocks import aimed
from support.functions import COUNTED, make

HEADERS = model.read(support=model.SUPPORT)
RECORDS = {record.name: record for record in HEADERS.records}
CONVENIENCES = [function for function in HEADERS.functions if not function.library]

_TAIL = bytes(1 << 16)


def _told(result: Any) -> str:
    """What a result tells: values as they are, pointers as what they point to."""
    if isinstance(result, list):
        return repr([_told(each) for each in result])
    return type(result).__name__ if hasattr(result, "own") else repr(result)


def _delete(record: str) -> Any:
    delete = getattr(k, f"delete_{record}")
    return lambda made: None if made is None else delete(made)


# ---- Records ----


def constructors() -> Iterator[Work]:
    """A record is made."""
    for record in HEADERS.records:
        arguments = (COUNTED[record.name],) if record.name in COUNTED else ()
        call: Call = (getattr(k, f"new_{record.name}"), arguments)
        yield Work(
            f"new_{record.name}",
            lambda call=call: call,  # type: ignore[misc]
            told=_told,
            let_go=_delete(record.name),
            or_nothing=True,
        )


def _content(record: Record) -> bytes:
    """A record's bytes where counts and numbers are 1, texts are not empty and pointers are null."""
    content = bytearray(record.size)
    for member in record.members:
        if member.kind in ("u8", "u16", "u32", "u64", "s32", "e8", "flag") and not member.bits:
            content[member.offset : member.offset + member.width] = (1).to_bytes(member.width, "little")
        elif member.kind == "text":
            content[member.offset] = ord("x")
    return bytes(content)


_KEPT: dict[str, tuple[Any, Any]] = {}


def filled(record: str) -> Any:
    """A pointer to a record that says something, in memory that stays."""
    if record not in _KEPT:
        room = ctypes.create_string_buffer(_content(RECORDS[record]) + _TAIL)
        _KEPT[record] = (room, aimed(record, ctypes.addressof(room)))
    return _KEPT[record][1]


def _value(member: Member) -> Any:
    """Some value for a member, made anew."""
    if member.kind in ("text", "owned_text"):
        return "".join(["t\u00e9", "xt"])  # whose UTF-8 form is made in the call
    if member.kind == "record":
        return filled(member.element)
    if member.kind in ("pointer", "callback", "array", "trailing"):
        return None if member.kind != "array" else _array(member)
    return 1


def _array(member: Member) -> Any:
    """What an array takes: what it gives."""
    owner = next(r.name for r in HEADERS.records if member in r.members)
    return getattr(k, f"{owner}_{member.name}_get")(filled(owner))


def members() -> Iterator[Work]:
    """A member is read, and written where it may be."""
    for record in HEADERS.records:
        for member in record.members:
            reader = getattr(k, f"{record.name}_{member.name}_get", None)
            if reader is not None:
                yield Work(
                    f"{record.name}.{member.name} read",
                    lambda reader=reader, record=record: (reader, (filled(record.name),)),  # type: ignore[misc]
                    told=_told,
                )
            writer = getattr(k, f"{record.name}_{member.name}_set", None)
            if writer is not None and member.kind != "owned_text":
                yield Work(
                    f"{record.name}.{member.name} written",
                    lambda writer=writer, record=record, member=member: (  # type: ignore[misc]
                        writer,
                        (filled(record.name), _value(member)),
                    ),
                    told=_told,
                )


def owned_texts() -> Iterator[Work]:
    """A text that a record owns is replaced."""
    for record in HEADERS.records:
        for member in record.members:
            writer = getattr(k, f"{record.name}_{member.name}_set", None)
            if writer is None or member.kind != "owned_text":
                continue

            def prepare(writer: Any = writer, record: Record = record) -> Call:
                made = make(record.name)
                writer(made, "before")
                prepare.made = made  # type: ignore[attr-defined]
                return writer, (made, "after, and longer than before")

            def let_go(_result: Any, writer: Any = writer, prepare: Any = prepare, record: Record = record) -> None:
                writer(prepare.made, None)
                getattr(k, f"delete_{record.name}")(prepare.made)
                del prepare.made

            yield Work(f"{record.name}.{member.name} replaced", prepare, told=_told, let_go=let_go)


# ---- Conveniences ----

_GOOD: dict[str, Any] = {"index": 0, "numSessions": 1, "numEntities": 1, "count": 2, "size": 16, "n": 2, "length": 64}


def _argument(parameter: Parameter) -> Any:
    kind = HEADERS.kind(parameter.type)
    pointed = parameter.type.removesuffix("*").replace("const", "").strip()
    if pointed in RECORDS:
        return filled(pointed)
    if parameter.name == "mac":
        return bytes([2, 0, 0, 0, 0, 1])
    if kind in ("text", "text_pointer"):
        return "".join(["10.0", ".0.1"])
    return _GOOD.get(parameter.name, 1)


def _arguments(function: Function) -> tuple[Any, ...]:
    if function.name == "free_vds_query":
        return (k.alloc_vds_query(16),)
    if function.name.startswith("free_"):
        pointed = function.parameters[0].type.removesuffix("*").strip()
        made = make(pointed)
        made.disown()
        return (made,)
    # A buffer and its size are one argument.
    return tuple(_argument(p) for p in function.parameters if p.type != "size_t")


def _released(function: Function) -> Any:
    """Gives back what a convenience hands out for its caller to release."""
    if function.name.startswith("alloc_"):
        release = getattr(k, function.name.replace("alloc", "free"))
        return lambda result: None if result is None else release(result)
    return _drop


def _drop(result: Any) -> None:
    if hasattr(result, "own") and result.own():
        getattr(k, f"delete_{type_of(result)}")(result)


def type_of(pointer: Any) -> str:
    """The record that a pointer object is of."""
    return str(pointer).split("'")[1].removeprefix("struct ").removesuffix(" *")


def conveniences() -> Iterator[Work]:
    """Every function and method that the module adds to the platform's."""
    for function in CONVENIENCES:
        if function.name.startswith("new_"):
            continue  # among the constructors
        call = getattr(k, function.name)
        yield Work(
            function.name,
            lambda call=call, function=function: (call, _arguments(function)),  # type: ignore[misc]
            told=_told,
            let_go=_released(function),
            or_nothing=True,
        )
