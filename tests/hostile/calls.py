"""Every published function of the flat module as something to call: its arguments, what they are, what comes back.

What there is is found by looking at the module; what it takes is derived from the headers.
"""

from __future__ import annotations

from dataclasses import dataclass
from types import BuiltinFunctionType

import _libkestrel

from headers import model
from headers.model import Function, Member, Parameter, Record
from headers.record_fields import ARRAYS, fields

HEADERS = model.read(support=model.SUPPORT)
RECORDS: dict[str, Record] = {record.name: record for record in HEADERS.records}
SIZES: dict[str, int] = {name: record.size for name, record in RECORDS.items()}
SIZES |= {array: SIZES[element] for array, element in ARRAYS.items()}

COUNTERS: dict[str, tuple[tuple[int, int, bool, int], ...]] = {}
"""For each record that entries follow: where a count stands, how wide, whether swapped, and how wide an entry is."""

for _record in HEADERS.records:
    _found = []
    for _field in fields(HEADERS, _record):
        _counter = next((m for m in _record.members if m.name == _field.counter), None)
        if _field.follows and _counter is not None:
            _width = max(_field.element.width, 128 if "their width told" in _field.note else 1)
            _found.append((_counter.offset, _counter.width, _field.network_order, _width))
    COUNTERS[_record.name] = tuple(_found)


@dataclass(frozen=True)
class Argument:
    """What a function takes at one place."""

    name: str
    kind: str
    """A conversion class of the headers, or what the name stands for: mac, bytesIn, propertyValue, exactText, class,
    callable, and source for what array members are copied from."""
    target: str = ""
    """What a pointer leads to: a record, or the type of elements."""
    width: int = 0
    """Of a text; of what is read from a source."""
    parameter: Parameter | None = None
    """As the platform's headers declare it."""


@dataclass(frozen=True)
class Call:
    """A published function."""

    name: str
    family: str
    """constructor, destructor, reader, writer, registration, method, function, helper."""
    arguments: tuple[Argument, ...]
    gives: str = ""
    """What a pointer that comes back leads to."""
    outputs: tuple[str, ...] = ()
    """What pointers among the outputs lead to, empty for other outputs."""
    member: Member | None = None
    function: Function | None = None

    def takes(self, count: int) -> bool:
        """Whether it takes that many arguments."""
        variadic = self.function is not None and self.function.variadic
        return count == len(self.arguments) or (variadic and count > len(self.arguments))

    @property
    def releases(self) -> bool:
        """Whether it gives memory back: it takes one pointer, which is no handle, and its header says that it does."""
        if self.function is None or len(self.arguments) != 1:
            return self.family == "destructor"
        says = self.function.doc.startswith(("Takes back", "Release"))
        return says and self.arguments[0].kind == "pointer" and self.arguments[0].target in ("void", *SIZES)

    @property
    def trusts_index(self) -> bool:
        """Whether its header says that an index is not checked."""
        return self.function is not None and "index is not checked" in self.function.doc


HANDLES = ("DVSDataHandle", "DVSDataItem", "DVSPortHandle", "DVSwitchHandle")
"""Types whose values the platform looks up and never follows."""


def _target(spelled: str) -> str:
    """What a pointer type leads to; a handle is its own target."""
    plain = spelled.replace(" const", "").removeprefix("struct ").strip()
    if plain in HANDLES:
        return plain
    pointed = plain.removesuffix("*").strip()
    return "void *" if pointed in HANDLES else pointed


def _argument(parameter: Parameter) -> Argument:
    kind = HEADERS.kind(parameter.type)
    if parameter.name in ("exactText", "bytesIn", "propertyValue", "mac"):
        width = int("".join(filter(str.isdigit, parameter.type)) or 0)
        return Argument(parameter.name, parameter.name, width=width, parameter=parameter)
    if kind == "pointer":
        return Argument(parameter.name, kind, _target(parameter.type), parameter=parameter)
    if kind == "record":
        return Argument(parameter.name, kind, parameter.type, parameter=parameter)
    width = int("".join(filter(str.isdigit, parameter.type))) if kind == "text" else 0
    return Argument(parameter.name, kind, width=width, parameter=parameter)


def elements(member: Member) -> str:
    """What a pointer to an array member leads to; rows are told by their lengths."""
    rows = "".join(f"[{bound}]" for bound in member.dimensions[1:])
    return f"{_target(member.element)}{rows}"


def _writer(record: Record, member: Member) -> Call:
    this = Argument("record", "pointer", record.name)
    if member.kind in ("array", "trailing"):
        value = Argument(member.name, "source", elements(member), member.width)
    elif member.kind == "record":
        value = Argument(member.name, "source", member.element, member.width)
    elif member.kind == "pointer":
        value = Argument(member.name, "pointer", _target(member.element))
    elif member.kind == "owned_text":
        value = Argument(member.name, "text_pointer")
    else:
        value = Argument(member.name, member.kind, width=member.width)
    return Call(f"{record.name}_{member.name}_set", "writer", (this, value), member=member)


def _reader(record: Record, member: Member) -> Call:
    gives = ""
    if member.kind in ("array", "trailing"):
        gives = elements(member)
    elif member.kind in ("record", "pointer", "opaque"):
        gives = _target(member.element)
    this = (Argument("record", "pointer", record.name),)
    return Call(f"{record.name}_{member.name}_get", "reader", this, gives, member=member)


def _function(function: Function) -> Call:
    given = [p for p in function.parameters if not p.handed_back]
    if any(p.name == "mac" for p in given):
        given = [p for p in given if p.name != "size"]
    arguments = tuple(map(_argument, given))
    family = "function"
    if function.name.startswith("new_"):
        family = "constructor"
    elif arguments and arguments[0].target in SIZES and function.name.startswith(arguments[0].target + "_"):
        family = "method"
    outputs = []
    for parameter in function.parameters:
        if parameter.name == "mapOut":
            outputs.append("VSUplinkPorts")
        elif parameter.handed_back:
            outputs.append(_target(parameter.type.removesuffix("*")) if parameter.type.endswith("**") else "")
    kind = HEADERS.kind(function.returns) if function.returns in HEADERS.kinds or "*" in function.returns else ""
    gives = _target(function.returns) if kind == "pointer" else function.returns if kind == "record" else ""
    return Call(function.name, family, arguments, gives, tuple(outputs), function=function)


def _derived() -> dict[str, Call]:
    found: dict[str, Call] = {}
    for name in SIZES:
        this = (Argument("record", "pointer", name),)
        found[f"new_{name}"] = Call(f"new_{name}", "constructor", (), name)
        found[f"delete_{name}"] = Call(f"delete_{name}", "destructor", this)
        found[f"{name}_swigregister"] = Call(f"{name}_swigregister", "registration", (Argument("cls", "class"),))
    for record in HEADERS.records:
        for member in record.members:
            for call in (_reader(record, member), _writer(record, member)):
                found[call.name] = call
    for function in HEADERS.functions:
        found[function.name] = _function(function)
    helper = "SWIG_PyInstanceMethod_New"
    found[helper] = Call(helper, "helper", (Argument("callable", "callable"),))
    for name in ("MIRROR_ENCAP_TYPE", "MIRROR_ASSERT"):
        found[name] = Call(name, "function", ())
    return found


def calls() -> list[Call]:
    """All that the module publishes."""
    published = sorted(name for name, value in vars(_libkestrel).items() if isinstance(value, BuiltinFunctionType))
    derived = _derived()
    return [derived[name] for name in published]
