"""How answers are written: tables for people, aligned lines where a program reads along, JSON where it is asked for."""

from __future__ import annotations

import json
import sys
from collections.abc import Sequence
from typing import Any

from libkestrel.cli.envelopes import envelope
from libkestrel.cli.shapes import Shape


def shown(value: Any) -> str:
    """A value of an answer in a table."""
    if value is None:
        return "-"
    if isinstance(value, bool):
        return "yes" if value else "no"
    if isinstance(value, (list, tuple)):
        return ", ".join(shown(each) for each in value) or "-"
    return one_line(str(value))


def one_line(text: str) -> str:
    """A text without what would break a line or steer a terminal."""
    return "".join(c if c.isprintable() else f"\\x{ord(c):02x}" for c in text) or "-"


def write_json(kind: str, data: object) -> None:
    """Writes an answer as one line of JSON."""
    print(json.dumps(envelope(kind, data), ensure_ascii=True))


def write(shape: Shape, data: Any, *, as_json: bool, headings: bool) -> None:
    """Writes an answer: rows, or the one row of a sheet."""
    if as_json:
        write_json(shape.kind, data)
    elif shape.many:
        write_table(*_table(shape, data, headings=headings))
    else:
        write_table([], [[field.title.lower(), shown(data[field.name])] for field in shape.columns], [False, False])


def _table(shape: Shape, data: Any, *, headings: bool) -> tuple[list[str], list[list[str]], list[bool]]:
    """Headings, cells, and which columns stand at the right."""
    cells = [[shown(row[field.name]) for field in shape.columns] for row in data]
    titles = [field.title for field in shape.columns] if headings else []
    return titles, cells, [_is_number(field.type) for field in shape.columns]


def rendered(shape: Shape, data: Any, *, headings: bool) -> Any:
    """Rows as a table that a terminal can show in place."""
    from rich.text import Text

    return rich_table(*_table(shape, data, headings=headings), Text)


def _is_number(kind: dict[str, Any]) -> bool:
    return any(each.get("type") in ("integer", "number") for each in (kind, *kind.get("anyOf", ())))


def write_table(titles: list[str], rows: list[list[str]], right: list[bool]) -> None:
    """Writes a table: with colours on a terminal, as aligned text otherwise."""
    if sys.stdout.isatty():
        _write_rich(titles, rows, right)
    else:
        for line in aligned(titles, rows, right):
            print(line)


def aligned(titles: list[str], rows: list[list[str]], right: Sequence[bool]) -> list[str]:
    """A table as lines; columns are two spaces apart, and nothing is cut."""
    lines = ([titles] if titles else []) + rows
    if not lines:
        return []
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    return [
        "  ".join(
            cell.rjust(width) if at_right else cell.ljust(width)
            for cell, width, at_right in zip(line, widths, right, strict=True)
        ).rstrip()
        for line in lines
    ]


def _write_rich(titles: list[str], rows: list[list[str]], right: list[bool]) -> None:
    from rich.console import Console
    from rich.text import Text

    console = Console(highlight=False)
    if rows or titles:
        table = rich_table(titles, rows, right, Text)
        # A terminal that is too narrow breaks lines; cells that are broken in the middle could not be read or copied.
        console.width = max(console.width, console.measure(table, options=console.options.update(width=10_000)).maximum)
        console.print(table, soft_wrap=True)


def rich_table(titles: list[str], rows: list[list[str]], right: Sequence[bool], text: Any) -> Any:
    """A table for terminals. `text` makes cells of plain texts, in which nothing is markup."""
    from rich.table import Table

    made = Table(box=None, show_header=bool(titles), header_style="bold", pad_edge=False, padding=(0, 2, 0, 0))
    for i, at_right in enumerate(right):
        style = "cyan" if i == 0 else None
        made.add_column(
            titles[i] if titles else "", justify="right" if at_right else "left", style=style, overflow="fold"
        )
    for row in rows:
        made.add_row(*(text(cell, style=_STYLES.get(cell, "")) for cell in row))
    return made


_STYLES = {"up": "green", "down": "red", "-": "dim"}
"""Colours of words that the eye looks for."""
