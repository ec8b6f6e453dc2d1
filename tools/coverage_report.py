"""How much of each folder ran: python -m coverage_report <build folder>, from the root, after tools/coverage's runs.

Prints lines and branches by folder, writes the pages and `summary.txt` into the build folder's `report/`, and fails
where a folder has less than pyproject.toml asks for or something is left out without a reason.
"""

from __future__ import annotations

import json
import re
import subprocess
import sys
import tomllib
from collections.abc import Iterable, Mapping
from dataclasses import dataclass
from pathlib import Path
from typing import Any

MARKER = "no coverage"
# What leaves lines out in the tools' own ways, without a reason.
_FOREIGN = re.compile(r"\b(?:GCOVR?|LCOV)_EXCL_|pragma: *no *(?:cover|branch)")
_BARE = re.compile(rf"(?:#|//) *{MARKER}\b(?!: \S)", re.IGNORECASE)
_REASON = re.compile(rf"(?:#|//) {MARKER}: (\S.*)")
_SOURCES = ("*.cc", "*.c", "*.h", "*.hh", "*.py")


@dataclass(frozen=True)
class Share:
    """How many there are, and how many of them ran."""

    total: int = 0
    ran: int = 0

    def __add__(self, other: Share) -> Share:
        return Share(self.total + other.total, self.ran + other.ran)

    @property
    def percent(self) -> float:
        """100 where there is nothing."""
        return 100 * self.ran / self.total if self.total else 100.0


@dataclass(frozen=True)
class Counts:
    """Lines and branches of a file or a folder."""

    lines: Share = Share()
    branches: Share = Share()

    def __add__(self, other: Counts) -> Counts:
        return Counts(self.lines + other.lines, self.branches + other.branches)


def of_gcovr(summary: Mapping[str, list[dict[str, Any]]]) -> dict[str, Counts]:
    """The counts in gcovr's summary, by file."""
    return {
        str(file["filename"]): Counts(
            Share(int(file["line_total"]), int(file["line_covered"])),
            Share(int(file["branch_total"]), int(file["branch_covered"])),
        )
        for file in summary["files"]
    }


def of_python(answer: Mapping[str, dict[str, Any]]) -> dict[str, Counts]:
    """The counts in coverage.py's answer, by file."""
    found = {}
    for name, file in answer["files"].items():
        counted = file["summary"]
        found[name] = Counts(
            Share(counted["num_statements"], counted["covered_lines"]),
            Share(counted["num_branches"], counted["covered_branches"]),
        )
    return found


def by_folder(files: Mapping[str, Counts], folders: Iterable[str]) -> dict[str, Counts]:
    """Sums of the folders; LookupError for a file in none of them or a folder without files."""
    sums: dict[str, Counts] = {}
    wanted = list(folders)
    for name, counts in files.items():
        folder = Path(name).parts[0]
        if folder not in wanted:
            raise LookupError(f"{name} is in none of {', '.join(wanted)}")
        sums[folder] = sums.get(folder, Counts()) + counts
    missing = [folder for folder in wanted if folder not in sums]
    if missing:
        raise LookupError(f"nothing was counted in {', '.join(missing)}")
    return {folder: sums[folder] for folder in wanted}


def table(sums: Mapping[str, Counts]) -> str:
    """The figures as text, with the total."""
    rows = [f"{'':10}{'lines':>8}{'ran':>8}{'':>9}{'branches':>12}{'ran':>8}"]
    for name, counts in [*sums.items(), ("total", sum(sums.values(), Counts()))]:
        lines, branches = counts.lines, counts.branches
        rows.append(
            f"{name:10}{lines.total:8}{lines.ran:8}{lines.percent:8.2f}%"
            f"{branches.total:12}{branches.ran:8}{branches.percent:8.2f}%"
        )
    return "\n".join(rows) + "\n"


def shortfalls(sums: Mapping[str, Counts], least: Mapping[str, Mapping[str, float]]) -> list[str]:
    """A sentence for each folder and figure that is too low."""
    found = []
    for name, counts in sums.items():
        for what, share in (("lines", counts.lines), ("branches", counts.branches)):
            if share.percent < least[name][what]:
                found.append(f"{name}: {share.percent:.2f}% of {what} ran, and at least {least[name][what]}% have to")
    return found


def exclusions(root: Path, folders: Iterable[str]) -> tuple[list[str], list[str]]:
    """What is left out in these folders, with the reasons, and what is left out without one; as FILE:LINE: TEXT."""
    explained, refused = [], []
    for folder in folders:
        for path in sorted(path for pattern in _SOURCES for path in (root / folder).rglob(pattern)):
            for number, line in enumerate(path.read_text().splitlines(), 1):
                place = f"{path.relative_to(root)}:{number}"
                if _FOREIGN.search(line) or _BARE.search(line):
                    refused.append(f"{place}: {line.strip()}")
                elif reason := _REASON.search(line):
                    explained.append(f"{place}: {reason[1]}")
    return explained, refused


def _run(*command: str) -> None:
    """Runs a module. Processes that were killed on purpose have left files that tell nothing, which is no news."""
    subprocess.run([sys.executable, "-W", "ignore:Data file", "-m", *command], check=True)


def main(build: Path) -> int:
    """Reports; 1 where something is amiss."""
    settings = tomllib.loads(Path("pyproject.toml").read_text())["tool"]["libkestrel"]["coverage"]
    explained, refused = exclusions(Path(), settings)
    if refused:
        print("left out without a reason:", *refused, sep="\n  ")
        return 1

    report = build / "report"
    native = report / "native"
    native.mkdir(parents=True, exist_ok=True)
    summary, answer = report / "native.json", report / "python.json"
    _run("gcovr", "--root", ".", f"--json-summary={summary}", f"--html-details={native / 'index.html'}", str(build))
    _run("coverage", "html", "--quiet", "--directory", str(report / "python"))
    _run("coverage", "json", "--quiet", "-o", str(answer))

    files = of_gcovr(json.loads(summary.read_text())) | of_python(json.loads(answer.read_text()))
    sums = by_folder(files, settings)
    text = table(sums) + "\nleft out:" + "".join(f"\n  {line}" for line in explained or ["nothing"]) + "\n"
    (report / "summary.txt").write_text(text)
    print(text)
    print(f"line by line: {native / 'index.html'}, {report / 'python' / 'index.html'}")
    missing = shortfalls(sums, settings)
    print(*missing, sep="\n", end="\n" if missing else "")
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1])))
