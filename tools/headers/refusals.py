"""Generates, for one library of the embedded host, a refusal of every function that the host does not implement.

The definitions are weak, so a function's own definition takes their place: the two lists cannot fall apart.
"""

from __future__ import annotations

from headers import c_source, generator
from headers.model import Function, Headers, Parameter


def _clear(parameter: Parameter) -> str:
    """The statement that leaves an output without a value."""
    if parameter.type.startswith("char ["):
        return f"if ({parameter.name}) {parameter.name}[0] = 0;"
    return f"if ({parameter.name}) *{parameter.name} = {{}};"


def _is_cell(parameter: Parameter) -> bool:
    return parameter.name.endswith(("Out", "Cell")) or parameter.name == "exactText"


def _body(function: Function) -> list[str]:
    body = [f"(void){p.name};" for p in function.parameters if not _is_cell(p)]
    body += [_clear(p) for p in function.parameters if _is_cell(p)]
    # A refusal is a call like any other: it meets what is armed for it.
    refusal = "kestrel::host::abi::PlainCall([] { throw kestrel::host::StatusError(ZEL_NOT_SUPPORTED); });"
    if function.returns == "ZEL_ReturnStatus":
        body.append(f"return {refusal}")
    else:
        body.append(refusal)
        if function.returns != "void":
            body.append("return {};")
    return body


def generate(headers: Headers, library: str) -> str:
    """The refusals of one library."""
    functions = [f for f in headers.functions if f.library == library]
    weak = '__attribute__((weak, visibility("default"))) '
    return c_source.source(
        functions,
        ['"host/abi/guard.h"', '"host/core/errors.h"'],
        [c_source.define(f, _body(f), weak) for f in functions],
    )


if __name__ == "__main__":
    generator.run(generate, "library")
