"""The report on coverage: sums by folder, what is too little, and that nothing is left out without a reason."""

from __future__ import annotations

from pathlib import Path

import pytest

import coverage_report
from coverage_report import Counts, Share

Least = dict[str, dict[str, float]]
FILES = {
    "src/a.cc": Counts(Share(10, 9), Share(4, 4)),
    "src/b.h": Counts(Share(10, 10), Share(0, 0)),
    "python/libkestrel/c.py": Counts(Share(100, 95), Share(20, 16)),
}


def test_files_count_for_their_folder_and_the_total() -> None:
    sums = coverage_report.by_folder(FILES, ["src", "python"])
    assert sums["src"] == Counts(Share(20, 19), Share(4, 4))
    lines = coverage_report.table(sums).splitlines()
    assert [line.split() for line in lines[1:]] == [
        ["src", "20", "19", "95.00%", "4", "4", "100.00%"],
        ["python", "100", "95", "95.00%", "20", "16", "80.00%"],
        ["total", "120", "114", "95.00%", "24", "20", "83.33%"],
    ]


def test_nothing_is_counted_beside_the_folders_and_none_is_forgotten() -> None:
    with pytest.raises(LookupError, match=r"src/a\.cc is in none of python"):
        coverage_report.by_folder(FILES, ["python"])
    with pytest.raises(LookupError, match="nothing was counted in host"):
        coverage_report.by_folder(FILES, ["src", "python", "host"])


def test_each_folder_has_to_reach_both_figures() -> None:
    sums = coverage_report.by_folder(FILES, ["src", "python"])
    enough: Least = {"src": {"lines": 95, "branches": 100}, "python": {"lines": 95, "branches": 80}}
    assert coverage_report.shortfalls(sums, enough) == []
    more: Least = {"src": {"lines": 95.5, "branches": 85}, "python": {"lines": 95, "branches": 85}}
    assert coverage_report.shortfalls(sums, more) == [
        "src: 95.00% of lines ran, and at least 95.5% have to",
        "python: 80.00% of branches ran, and at least 85% have to",
    ]


def test_what_the_counting_tools_say_is_read() -> None:
    native = {"files": [{"filename": "src/a.cc", "line_total": 3, "line_covered": 2, "branch_total": 4,
                         "branch_covered": 1, "line_percent": 66.7}]}  # fmt: skip
    assert coverage_report.of_gcovr(native) == {"src/a.cc": Counts(Share(3, 2), Share(4, 1))}
    python = {"files": {"python/a.py": {"summary": {"num_statements": 5, "covered_lines": 4, "num_branches": 2,
                                                    "covered_branches": 2, "excluded_lines": 1}}}}  # fmt: skip
    assert coverage_report.of_python(python) == {"python/a.py": Counts(Share(5, 4), Share(2, 2))}


@pytest.mark.parametrize(
    "line",
    [
        "  abort();  // no" + " coverage",
        "  abort();  // no" + " coverage:",
        "  abort();  // No" + " coverage here",
        "    raise  # pragma: no" + " cover",
        "  abort();  // LCOV_" + "EXCL_LINE",
        "  abort();  // GCOV_" + "EXCL_LINE: with a reason",
    ],
)
def test_nothing_is_left_out_without_a_reason(tmp_path: Path, line: str) -> None:
    file = tmp_path / "host" / "deep" / ("file.py" if "#" in line else "file.cc")
    file.parent.mkdir(parents=True)
    file.write_text(f"first\n{line}\n")
    assert coverage_report.exclusions(tmp_path, ["host"]) == (
        [],
        [f"{file.relative_to(tmp_path)}:2: {line.strip()}"],
    )


def test_reasons_are_told(tmp_path: Path) -> None:
    (tmp_path / "src").mkdir()
    (tmp_path / "src" / "file.h").write_text("x;  // no" + " coverage: the kernel never does\ny;\n")
    (tmp_path / "src" / "file.py").write_text("x\ny  # no" + " coverage: as above\n")
    assert coverage_report.exclusions(tmp_path, ["src"]) == (
        ["src/file.h:1: the kernel never does", "src/file.py:2: as above"],
        [],
    )
