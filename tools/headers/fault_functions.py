"""Generates the sorted names of the platform's functions that can fail, as elements of a C++ array.

Those are the functions of the two upper libraries that have an answer or call back; the rest only takes memory back.
"""

from __future__ import annotations

from headers import generator
from headers.model import Function, Headers


def can_fail(function: Function) -> bool:
    """Whether a call of a function can be made to fail."""
    answers = function.returns != "void" or any(p.type.endswith("Callback") for p in function.parameters)
    return function.library in ("kestrel", "praxa") and answers


def generate(headers: Headers) -> str:
    """The names, one a line."""
    names = sorted(f.name for f in headers.functions if can_fail(f))
    return "".join(f'"{name}",\n' for name in names)


if __name__ == "__main__":
    generator.run(generate)
