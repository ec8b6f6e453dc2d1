"""Generates a C++ file that compiles only where every record lies as the headers' comments say.

Sizes of records, offsets and widths of members. Where a bit-field lies has no compile-time form; the tests check it
against raw memory.
"""

from __future__ import annotations

from headers import generator
from headers.model import Headers


def generate(headers: Headers) -> str:
    """The assertions for all records."""
    lines = ["#include <cstddef>", ""]
    lines += [f'#include "kestrel/{name}"' for name in sorted({r.header for r in headers.records})]
    for record in headers.records:
        lines += ["", f"static_assert(sizeof({record.name}) == {record.size});"]
        for member in record.members:
            if member.bits:
                continue
            place = f"{record.name}, {member.name}"
            lines.append(f"static_assert(offsetof({place}) == {member.offset});")
            if member.kind != "opaque":
                lines.append(f"static_assert(sizeof({record.name}::{member.name}) == {member.width});")
    return "\n".join(lines) + "\n"


if __name__ == "__main__":
    generator.run(generate)
