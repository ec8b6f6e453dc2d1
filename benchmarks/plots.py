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
ticker: Any = importlib.import_module("matplotlib.ticker")
pyplot.switch_backend("svg")
# The same figures are the same file.
matplotlib.rcParams.update(
    {"svg.hashsalt": "kestrel", "svg.fonttype": "none", "font.size": 9, "axes.spines.top": False}
)

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
    drawn = []
    for i, column in enumerate(columns):
        values = [_value(table, row, column) for row in rows]
        places = [number + (i - (len(columns) - 1) / 2) * height for number in range(len(rows))]
        drawn.append(axes.barh(places, values, height))
    axes.set_yticks(range(len(rows)), rows)
    axes.set_ylim(len(rows) - 0.5, -0.5)
    axes.set_xscale("log")
    low, high = axes.get_xlim()
    axes.xaxis.set_major_locator(ticker.LogLocator(subs=(1, 2, 5) if high < 1000 * low else (1,)))
    axes.xaxis.set_minor_locator(ticker.NullLocator())
    axes.xaxis.set_major_formatter("{x:g}")
    axes.set_xlabel(f"times {table.reference}")
    axes.axvline(1, color="black", linewidth=0.6)
    if len(columns) > 1:
        axes.legend(drawn, columns, fontsize=7, loc="upper left", bbox_to_anchor=(1, 1))
    _save(figure, table.title, folder / f"{table.name}.svg")


def _value(table: Table, row: str, column: str) -> float:
    if column not in table.rows[row]:
        return float("nan")
    return table.ratio(row, column) or float("nan")


def growth(grown: list[Curve], folder: Path) -> None:
    """A picture for each subject: a field for each place and kind of output, or operation; a line for each curve."""
    for subject, title in SUBJECTS.items():
        fields: dict[str, list[tuple[str, Curve]]] = {}
        for curve in grown:
            if curve.subject != subject:
                continue
            if subject == "peers":
                fields.setdefault(curve.name, []).append((curve.where, curve))
            else:
                kind = "output grows with the size" if curve.output == "n" else "output does not grow"
                fields.setdefault(f"{curve.where}: {kind}", []).append((curve.name, curve))
        if not fields:
            continue
        down = -(-len(fields) // 2)
        figure, grid = pyplot.subplots(down, 2, figsize=(16, 4.2 * down), squeeze=False)
        for (name, lines), axes in zip(fields.items(), grid.flat, strict=False):
            _draw(axes, name, lines)
        for axes in list(grid.flat)[len(fields) :]:
            axes.set_axis_off()
        _save(figure, title, folder / f"growth-{subject}.svg")


def _draw(axes: Any, title: str, lines: list[tuple[str, Curve]]) -> None:
    for number, (label, curve) in enumerate(lines):
        style = ("-", "--", ":")[number // 10 % 3]
        milliseconds = [taken / 1e6 for taken in curve.points.values()]
        axes.plot(list(curve.points), milliseconds, style, marker=".", label=f"{label} ({curve.exponent:.2f})")
    axes.set(xscale="log", yscale="log", title=title, xlabel="size", ylabel="ms")
    axes.xaxis.set_major_formatter("{x:,.0f}")
    axes.yaxis.set_major_formatter("{x:g}")
    axes.legend(fontsize=7, loc="upper left", bbox_to_anchor=(1, 1))


def _save(figure: Any, title: str, path: Path) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    figure.suptitle(title)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})
    pyplot.close(figure)
