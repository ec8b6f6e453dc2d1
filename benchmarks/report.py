"""Shows figures on the terminal, and tells what goes on."""

from __future__ import annotations

import sys
from collections.abc import Mapping
from pathlib import Path

from benchmarks import figures
from benchmarks.figures import Table
from rich import box, table
from rich.console import Console

_CONSOLE = Console(width=None if sys.stdout.isatty() else 220, highlight=False)


def progress(text: str) -> None:
    """Tell what goes on, apart from the figures."""
    print(text, file=sys.stderr, flush=True)


def show(machine: Mapping[str, str], tables: list[Table], path: Path | None = None) -> None:
    """Print where figures come from and all of them; write them to `path` too."""
    for key, value in machine.items():
        _CONSOLE.print(f"{key}: {value}")
    for each in tables:
        _CONSOLE.print(_shown(each))
    if path:
        figures.write(path, machine, tables)


def _shown(figures_table: Table) -> table.Table:
    unit = f", {figures_table.unit}" if figures_table.unit else ""
    note = f". {figures_table.note}" if figures_table.note else ""
    shown = table.Table(
        title=f"\n{figures_table.title}{unit}",
        caption=f"minimum (median), and ratio of the minimum to that of '{figures_table.reference}'{note}",
        box=box.SIMPLE_HEAD,
    )
    shown.add_column(figures_table.heading)
    for column in figures_table.columns:
        shown.add_column(column, justify="right")
    for row in figures_table.rows:
        cells = (figures_table.text(row, column) for column in figures_table.columns)
        shown.add_row(row, *(f"{figure} [bold]{ratio}[/bold]" for figure, ratio in cells))
    return shown
