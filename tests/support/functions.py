"""The declared functions as scripts call them: which parameters they pass, and values that convert."""

from __future__ import annotations

from typing import Any

import _libkestrel

from headers import model
from headers.model import Function, Parameter

HEADERS = model.read()

OVERLOADED = "DVSAliasToPortsetName"
"""The one function with two forms; it has tests of its own."""

COUNTED = {"VSUplinkPorts": 4, "VSUplinkPortIds": 4, "VSUplinks": 4, "VSRuntimeOptions": 64}
"""Records whose constructors take a count, and one to give them."""

FUNCTIONS = [f for f in HEADERS.functions if f.name != OVERLOADED]


def visible(function: Function) -> list[tuple[int, Parameter]]:
    """The parameters that scripts pass, with their C positions from 1."""
    return [(i, p) for i, p in enumerate(function.parameters, start=1) if not p.handed_back]


def hidden(function: Function) -> list[tuple[int, Parameter]]:
    """The parameters that come back as outputs."""
    return [(i, p) for i, p in enumerate(function.parameters, start=1) if p.handed_back]


def conversion(parameter: Parameter) -> str:
    """The rule that converts a parameter: its type's class, or one of its own that its name stands for."""
    if parameter.name in ("exactText", "bytesIn", "propertyValue"):
        return parameter.name
    return HEADERS.kind(parameter.type)


def width(parameter: Parameter) -> int:
    """The bound of a text parameter."""
    return int("".join(filter(str.isdigit, parameter.type)))


def make(record: str) -> Any:
    """A new record."""
    return getattr(_libkestrel, f"new_{record}")(*((COUNTED[record],) if record in COUNTED else ()))


def pointer_for(kind: str) -> Any:
    """A pointer object that a parameter of this type accepts, or None where scripts cannot make one."""
    pointed = kind.removesuffix("*").replace("const", "").strip()
    if pointed == "void" or HEADERS.typedefs.get(kind) == "void *":
        return _libkestrel.new_VSStats()
    return make(pointed) if pointed in {r.name for r in HEADERS.records} else None


def plain_value(parameter: Parameter) -> Any:
    """Some value that converts."""
    rule = conversion(parameter)
    if rule == "text_pointer":
        return f"text for {parameter.name}"
    if rule in ("text", "exactText"):
        return "a name"
    if rule in ("bytesIn", "propertyValue"):
        return b"some bytes"
    if rule == "flag":
        return 1
    if rule == "callback":
        return None
    return pointer_for(parameter.type) if rule == "pointer" else 7


def plain_arguments(function: Function) -> list[Any]:
    """Values that convert for all that scripts pass."""
    return [plain_value(p) for _, p in visible(function)]


def call(function: Function, arguments: list[Any]) -> Any:
    """Calls the module's function of this name."""
    return getattr(_libkestrel, function.name)(*arguments)
