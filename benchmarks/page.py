"""Puts the figures of runs on the page: README.md's tables, between their markers, and the plots beside it.

python benchmarks/page.py build/benchmarks/figures

The folder has what `make bench` and `make growth` have written down; what is not there stays as it is.
"""

from __future__ import annotations

import argparse
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from benchmarks import figures, plots
from benchmarks.figures import Table
from benchmarks.growing import curves
from benchmarks.growing.curves import Curve

_HERE = Path(__file__).resolve().parent
_PAGE = _HERE / "README.md"
_GROWTH = "growth.json"


def main() -> None:
    """Write the page and the plots anew."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=Path)
    folder = parser.parse_args().folder
    page = _PAGE.read_text()
    for file in sorted(folder.glob("*.json")):
        if file.name == _GROWTH:
            machine, grown = curves.read(file)
            page = _put(page, "growth", _growth(grown))
            plots.growth(grown, _HERE / "plots")
        else:
            machine, tables = figures.read(file)
            for table in tables:
                page = _put(page, table.name, _markdown(table))
                plots.bars(table, _HERE / "plots")
        of_machine = f"machine-{file.stem}"
        if _begin(of_machine) in page:  # the runs of one page are often of one machine
            page = _put(page, of_machine, "\n".join(f"- {key}: {value}" for key, value in machine.items()))
    _PAGE.write_text(page)


def _begin(name: str) -> str:
    return f"<!-- figures: {name} -->\n"


def _put(page: str, name: str, block: str) -> str:
    """The page with a block between its markers."""
    begin, end = _begin(name), "<!-- end of figures -->"
    head, found, rest = page.partition(begin)
    if not found:
        sys.exit(f"{_PAGE.name} has no place for {name}: {begin.strip()}")
    return f"{head}{begin}{block}\n{end}{rest.partition(end)[2]}"


def _markdown(table: Table) -> str:
    unit = f", {table.unit}" if table.unit else ""
    lines = [f"| {table.heading}{unit} | " + " | ".join(table.columns) + " |"]
    lines.append("|---|" + "---:|" * len(table.columns))
    for row in table.rows:
        cells = [table.text(row, column) for column in table.columns]
        texts = (figure if not ratio else f"{figure} **{ratio}**" for figure, ratio in cells)
        lines.append(f"| {row} | " + " | ".join(texts) + " |")
    return "\n".join([*lines, "", f"![{table.title}](plots/{table.name}.svg)"])


def _growth(grown: list[Curve]) -> str:
    """A table for each subject: the exponents, and the cost on the smallest and the largest host."""
    lines = []
    for subject, title in plots.SUBJECTS.items():
        chosen = [curve for curve in grown if curve.subject == subject]
        if not chosen:
            continue
        lines += [f"**{title}**", "", "| operation | where | output | exponent | smallest | largest |"]
        lines.append("|---|---|---|---:|---:|---:|")
        for curve in chosen:
            (small, first), (large, last) = min(curve.points.items()), max(curve.points.items())
            exponent = f"{curve.exponent:.2f}" + (" (!)" if curve.outgrows else "")
            cells = f"{small:,}: {curves.time_text(first)} | {large:,}: {curves.time_text(last)}"
            lines.append(f"| {curve.name} | {curve.where} | {curve.output} | {exponent} | {cells} |")
        lines += ["", f"![{title}](plots/growth-{subject}.svg)", ""]
    return "\n".join(lines).strip()


if __name__ == "__main__":
    main()
