"""Generates one library of the recorder platform: each declared function, noting what arrives."""

from __future__ import annotations

from headers import generator
from headers.model import Function, Headers, Parameter

# The C type that holds every value of a conversion class; enumerations may be unsigned to the compiler.
_NOTED_AS = {"s32": "int", "e8": "unsigned char", "flag": "unsigned char"}


def _note(headers: Headers, parameter: Parameter) -> str:
    """The statement that notes an argument, in the form its type has."""
    kind = parameter.type
    if kind in ("char const *", "char *"):
        return f"recorder_text({parameter.name});"
    if kind.startswith("char ["):
        return f"recorder_bytes({parameter.name}, {kind[6:-1]});"
    if kind.endswith("*"):
        return f"recorder_pointer({parameter.name});"
    noted_as = _NOTED_AS.get(headers.kind(kind), kind)
    return f"recorder_integer((long long)({noted_as}){parameter.name});"


def _is_output(parameter: Parameter) -> bool:
    kind = parameter.type
    if kind == "void *" or "const" in kind:
        return False
    return kind.endswith("*") or kind.startswith("char [")


def _declare(parameter: Parameter) -> str:
    if "[" in parameter.type:
        base, bounds = parameter.type.split(" ", 1)
        return f"{base} {parameter.name}{bounds}"
    gap = "" if parameter.type.endswith("*") else " "
    return f"{parameter.type}{gap}{parameter.name}"


def _define(headers: Headers, function: Function) -> str:
    parameters = [_declare(p) for p in function.parameters]
    if function.variadic:
        parameters.append("...")
    gap = "" if function.returns.endswith("*") else " "
    lines = [f"{function.returns}{gap}{function.name}({', '.join(parameters) or 'void'}) {{"]
    lines.append(f'  recorder_begin("{function.name}");')
    lines += [f"  {_note(headers, p)}" for p in function.parameters]
    lines.append("  recorder_end();")
    lines += [f"  recorder_fill({i}, {p.name});" for i, p in enumerate(function.parameters) if _is_output(p)]
    if function.returns != "void":
        cast = "(intptr_t)" if function.returns.endswith("*") else ""
        lines.append(f"  return ({function.returns}){cast}recorder_result();")
    return "\n".join([*lines, "}"])


def generate(headers: Headers, library: str) -> str:
    """The functions of one library."""
    functions = [f for f in headers.functions if f.library == library]
    includes = sorted({f.header for f in functions})
    blocks = ['#include "recorder.h"\n' + "\n".join(f'#include "kestrel/{name}"' for name in includes)]
    return "\n\n".join(blocks + [_define(headers, f) for f in functions]) + "\n"


if __name__ == "__main__":
    generator.run(generate, "library")
