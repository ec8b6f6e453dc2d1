"""C source from declarations: what the generators of platform libraries share."""

from __future__ import annotations

from headers.model import Function, Parameter


def _declare(parameter: Parameter) -> str:
    if "[" in parameter.type:
        base, bounds = parameter.type.split(" [", 1)
        return f"{base} {parameter.name}[{bounds}"
    gap = "" if parameter.type.endswith("*") else " "
    return f"{parameter.type}{gap}{parameter.name}"


def prototype(function: Function) -> str:
    """A function's declaration on one line, without a semicolon."""
    parameters = [_declare(p) for p in function.parameters]
    if function.variadic:
        parameters.append("...")
    gap = "" if function.returns.endswith("*") else " "
    return f"{function.returns}{gap}{function.name}({', '.join(parameters) or 'void'})"


def define(function: Function, body: list[str], attribute: str = "") -> str:
    """The definition of a function with these statements."""
    return "\n".join([f"{attribute}{prototype(function)} {{", *(f"  {statement}" for statement in body), "}"])


def source(functions: list[Function], includes: list[str], definitions: list[str]) -> str:
    """A file that defines functions, with the headers that declare them."""
    headers = sorted({f'"kestrel/{f.header}"' for f in functions})
    lines = [f"#include {name}" for name in [*includes, *headers]]
    return "\n\n".join(["\n".join(lines), *definitions]) + "\n"
