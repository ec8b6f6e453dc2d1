"""Draws the figures: bars for tables, curves for growth."""

from __future__ import annotations

import importlib
from pathlib import Path
from typing import Any

from benchmarks.figures import Table
from benchmarks.growing.curves import Curve

# Not there where sources are only checked.
matplotlib: Any = importlib.import_module("matplotlib")
pyplot: Any = importlib.import_module("matplotlib.pyplot")
pyplot.switch_backend("svg")
# The same figures are the same file.
matplotlib.rcParams.update({"svg.hashsalt": "kestrel", "font.size": 9, "axes.spines.top": False})

SUBJECTS = {
    "ports": "Hosts of 10 to 100,000 ports",
    "macs": "MAC tables of 10 to 1,000,000 entries",
    "commands": "Processes of the command line on hosts of 10 to 100,000 ports",
    "peers": "Side by side",
}
"""What grows, with its title."""


def bars(table: Table, folder: Path) -> None:
    """A group of bars for each row, a bar for each column, as ratios where columns are compared."""
    columns, rows = table.columns, list(table.rows)
    height = 0.8 / len(columns)
    figure, axes = pyplot.subplots(figsize=(9, max(2.0, 0.8 + 0.13 * len(rows) * (len(columns) + 1))))
    for i, column in enumerate(columns):
        values = [_value(table, row, column) for row in rows]
        places = [number + (i - (len(columns) - 1) / 2) * height for number in range(len(rows))]
        axes.barh(places, values, height, label=column)
    axes.set_yticks(range(len(rows)), rows)
    axes.invert_yaxis()
    axes.set_xscale("log")
    axes.set_xlabel(f"times {table.reference}" if _is_relative(table) else f"{table.heading}: {table.unit}")
    axes.axvline(1, color="black", linewidth=0.6)
    if len(columns) > 1:
        axes.legend(fontsize=7)
    _save(figure, table.title, folder / f"{table.name}.svg")


def _is_relative(table: Table) -> bool:
    return table.reference in table.columns or table.reference in table.rows


def _value(table: Table, row: str, column: str) -> float:
    if column not in table.rows[row]:
        return float("nan")
    return table.ratio(row, column) or float("nan")


def growth(grown: list[Curve], folder: Path) -> None:
    """A picture for each subject: a field for each place, a line for each operation."""
    for subject, title in SUBJECTS.items():
        chosen = [curve for curve in grown if curve.subject == subject]
        if not chosen:
            continue
        fields = list(dict.fromkeys(curve.name if subject == "peers" else curve.where for curve in chosen))
        across = 2 if len(fields) > 1 else 1
        down = -(-len(fields) // across)
        figure, grid = pyplot.subplots(down, across, figsize=(11, 5.2 * down), squeeze=False)
        for field, axes in zip(fields, grid.flat, strict=False):
            lines = [c for c in chosen if field == (c.name if subject == "peers" else c.where)]
            for number, curve in enumerate(lines):
                label = curve.where if subject == "peers" else curve.name
                style = ("-", "--", ":", "-.")[number // 10 % 4]
                milliseconds = [taken / 1e6 for taken in curve.points.values()]
                axes.plot(list(curve.points), milliseconds, style, marker=".", label=f"{label} ({curve.exponent:.2f})")
            axes.set(xscale="log", yscale="log", title=field, xlabel="size", ylabel="ms")
            axes.legend(fontsize=6)
        for axes in list(grid.flat)[len(fields) :]:
            axes.set_axis_off()
        _save(figure, title, folder / f"growth-{subject}.svg")


def _save(figure: Any, title: str, path: Path) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    figure.suptitle(title)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})
    pyplot.close(figure)
