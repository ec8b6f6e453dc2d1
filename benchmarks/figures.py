"""Figures as tables: what a benchmark hands over, to be shown, written down and put on the page."""

from __future__ import annotations

import json
from collections.abc import Mapping
from dataclasses import asdict, dataclass
from pathlib import Path
from typing import Any

from benchmarks.timing import Spread

_UNITS = {"ns": 1.0, "µs": 1e3, "ms": 1e6, "s": 1e9, "kB": 1e3, "": 1.0}
"""What a unit is in nanoseconds, or in bytes."""


@dataclass(frozen=True)
class Table:
    """Figures of one run that belong together, in nanoseconds or bytes."""

    name: str
    """What the page finds it by."""
    title: str
    heading: str
    """What the rows are."""
    unit: str
    """What figures are shown in."""
    reference: str
    """The column that ratios refer to; in a table of one column, the row."""
    rows: Mapping[str, Mapping[str, Spread]]
    """By row and column; a column that has no such row is left out of it."""
    note: str = ""

    def __post_init__(self) -> None:
        if self.unit not in _UNITS:
            raise ValueError(f"no unit: {self.unit}")

    @property
    def columns(self) -> list[str]:
        """The columns, in their order."""
        return list(dict.fromkeys(column for row in self.rows.values() for column in row))

    def ratio(self, row: str, column: str) -> float | None:
        """A figure's minimum by that of the reference; None where that has none."""
        base = self.rows[row].get(self.reference) if self.reference in self.columns else None
        if self.reference in self.rows:
            base = self.rows[self.reference].get(column)
        return self.rows[row][column].minimum / base.minimum if base and base.minimum else None

    def text(self, row: str, column: str) -> tuple[str, str]:
        """A cell: the figure, its median in parentheses where it has one of its own; and its ratio."""
        spread = self.rows[row].get(column)
        if spread is None:
            return "-", ""
        least, median = (_digits(value / _UNITS[self.unit]) for value in (spread.minimum, spread.median))
        ratio = self.ratio(row, column)
        figure = least if spread.median == spread.minimum else f"{least} ({median})"
        return figure, "" if ratio is None else _ratio(ratio)


def _ratio(value: float) -> str:
    return f"{value:,.0f}" if value >= 100 else f"{value:.2f}" if value >= 0.1 else f"{value:.1g}"


def _digits(value: float) -> str:
    """A figure with three digits that count."""
    return f"{value:,.0f}" if value >= 99.5 else f"{value:.1f}" if value >= 9.95 else f"{value:.2f}"


def write(path: Path, machine: Mapping[str, str], tables: list[Table]) -> None:
    """Write the figures of one run down."""
    path.parent.mkdir(parents=True, exist_ok=True)
    data = {"machine": dict(machine), "tables": [asdict(table) for table in tables]}
    path.write_text(json.dumps(data, indent=2, ensure_ascii=False) + "\n")


def read(path: Path) -> tuple[dict[str, str], list[Table]]:
    """Read what `write` has written."""
    data: dict[str, Any] = json.loads(path.read_text())
    return data["machine"], [Table(**table | {"rows": _rows(table["rows"])}) for table in data["tables"]]


def _rows(data: dict[str, dict[str, dict[str, float]]]) -> dict[str, dict[str, Spread]]:
    return {row: {column: Spread(**spread) for column, spread in cells.items()} for row, cells in data.items()}
