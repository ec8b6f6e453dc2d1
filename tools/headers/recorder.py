"""Generates one library of the recorder platform: each declared function, noting what arrives."""

from __future__ import annotations

import re

from headers import c_source, generator
from headers.model import Function, Headers, Parameter

# The C type that holds every value of a conversion class; enumerations may be unsigned to the compiler.
_NOTED_AS = {"s32": "int", "e8": "unsigned char", "flag": "unsigned char"}


def _note(headers: Headers, parameter: Parameter) -> str:
    """The statement that notes an argument, in the form its type has."""
    name, kind = parameter.name, headers.kind(parameter.type)
    if kind == "text_pointer":
        return f"recorder_text({name});"
    if kind == "text":
        return f"recorder_bytes({name}, {re.sub('[^0-9]', '', parameter.type)});"
    if kind == "callback":
        return f"recorder_pointer((void *)(uintptr_t){name});"
    if kind == "pointer":
        return f"recorder_pointer({name});"
    return f"recorder_integer((long long)({_NOTED_AS.get(kind, parameter.type)}){name});"


def _is_output(parameter: Parameter) -> bool:
    kind = parameter.type
    if kind == "void *" or "const" in kind:
        return False
    return kind.endswith("*") or kind.startswith("char [")


def _body(headers: Headers, function: Function) -> list[str]:
    body = [f'recorder_begin("{function.name}");']
    body += [_note(headers, p) for p in function.parameters]
    body.append("recorder_end();")
    body += [f"recorder_fill({i}, {p.name});" for i, p in enumerate(function.parameters) if _is_output(p)]
    if function.returns != "void":
        cast = "(intptr_t)" if "pointer" in headers.kind(function.returns) else ""
        body.append(f"return ({function.returns}){cast}recorder_result();")
    return body


def generate(headers: Headers, library: str) -> str:
    """The functions of one library."""
    functions = [f for f in headers.functions if f.library == library]
    definitions = [c_source.define(f, _body(headers, f)) for f in functions]
    return c_source.source(functions, ['"recorder.h"'], definitions)


if __name__ == "__main__":
    generator.run(generate, "library")
