"""Shows the figures as tables, and as data."""

from __future__ import annotations

import sys
from dataclasses import asdict, dataclass
from typing import Any

from benchmarks.imports import ImportTimes
from benchmarks.timing import Spread
from rich import box
from rich.console import Console
from rich.table import Table

_CONSOLE = Console(width=None if sys.stdout.isatty() else 140, highlight=False)


@dataclass(frozen=True)
class Results:
    """All figures of a run."""

    machine: dict[str, str]
    calls: dict[str, dict[str, Spread]]
    """By operation and contender."""
    imports: ImportTimes

    def as_data(self) -> dict[str, Any]:
        """Give the figures in dictionaries, in nanoseconds."""
        return asdict(self)


def progress(text: str) -> None:
    """Tell what goes on, apart from the figures."""
    print(text, file=sys.stderr, flush=True)


def show(results: Results) -> None:
    """Print everything."""
    for key, value in results.machine.items():
        _CONSOLE.print(f"{key}: {value}")
    show_calls(results.calls)
    _CONSOLE.print(_imports(results.imports))


def show_calls(calls: dict[str, dict[str, Spread]]) -> None:
    """Print what calls took, with ratios to the second contender."""
    _CONSOLE.print(_calls(calls))


def _calls(calls: dict[str, dict[str, Spread]]) -> Table:
    titles = list(next(iter(calls.values())))
    reference = titles[1]
    table = Table(
        title="\nNanoseconds a call",
        caption=f"minimum (median) of the rounds, and ratio of the minimum to that of '{reference}'",
        box=box.SIMPLE_HEAD,
    )
    table.add_column("operation", no_wrap=True)
    for title in titles:
        table.add_column(title, justify="right")
    for operation, row in calls.items():
        table.add_row(operation, *(_cell(row.get(title), row[reference]) for title in titles))
    return table


def _cell(taken: Spread | None, reference: Spread) -> str:
    if taken is None:
        return "-"
    ratio = taken.minimum / reference.minimum
    return f"{taken.minimum:.0f} ({taken.median:.0f}) [bold]{ratio:5.2f}[/bold]"


def _imports(imports: ImportTimes) -> Table:
    empty = next(iter(imports.extensions.values()))
    table = Table(
        title="\nMicroseconds an import",
        caption="minimum (median) of fresh interpreters, and ratio of the minimum to that of the first row",
        box=box.SIMPLE_HEAD,
    )
    table.add_column("import of")
    table.add_column("time", justify="right")
    for title, taken in imports.extensions.items():
        ratio = taken.minimum / empty.minimum
        table.add_row(title, f"{_microseconds(taken)} [bold]{ratio:5.2f}[/bold]")
    table.add_section()
    for title, taken in imports.parts.items():
        table.add_row(f"  part: {title}", f"{_microseconds(taken)}      ")
    return table


def _microseconds(taken: Spread) -> str:
    return f"{taken.minimum / 1000:.0f} ({taken.median / 1000:.0f})"
