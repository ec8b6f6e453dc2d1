"""Tells of each record class what its attributes are: `docs/reference/record_classes.md`."""

from __future__ import annotations

from headers.model import Headers
from headers.record_fields import ARRAYS, Field, array_field, fields
from headers.record_tables import array_documentation, field_documentation
from headers.stubs import reads, writes

INTRODUCTION = (
    "The classes of `libkestrel.records`: one for each record of the platform, and for its two plain arrays. Each\n"
    "attribute is a keyword of the constructor too. Setting raises TypeError for a value of the wrong kind,\n"
    "OverflowError for an int out of range, ValueError for what does not fit; using memory that has gone raises\n"
    "ReferenceError. [Records](../records.md) tells what all of them can do, [records.md](records.md) how the flat\n"
    "module reaches the same members."
)


def _cell(text: str) -> str:
    return text.replace("|", "\\|")


def _row(headers: Headers, field: Field) -> str:
    takes = "" if field.read_only else f"`{_cell(writes(field))}`"
    return f"| `{field.name}` | `{_cell(reads(headers, field))}` | {takes} | {_cell(field_documentation(field))} |"


def _entry(headers: Headers, name: str, doc: str, size: int, own: list[Field]) -> list[str]:
    followers = [field for field in own if field.follows]
    lines = [f"## {name}", "", doc, ""]
    if followers:
        what = " or ".join(f"`{field.name}`" for field in followers)
        before = f"{size} bytes, and behind them" if size else "As many bytes as"
        taken = "" if size else " take"
        lines += [f"{before} {what}{taken}. `{name}(n)` makes room for n of them.", ""]
    else:
        lines += [f"{size} bytes.", ""]
    lines += ["| Attribute | Reads as | Takes | What it holds |", "|---|---|---|---|"]
    return [*lines, *(_row(headers, field) for field in own), ""]


def body(headers: Headers) -> list[str]:
    """The classes in the order of their records."""
    lines: list[str] = []
    for record in headers.records:
        lines += _entry(headers, record.name, record.doc, record.size, fields(headers, record))
    for name in ARRAYS:
        lines += _entry(headers, name, array_documentation(name), 0, [array_field(headers, name)])
    return lines
