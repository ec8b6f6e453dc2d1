"""The checklist of a release, run: every line, in order, with what it found and how long it took.

python -m release.check [--with-tests] [line...]

Goes on behind a line that fails, and ends with 1 if any did. The whole test suites, such as `make test`, take long:
they run with --with-tests.
"""

from __future__ import annotations

import re
import sys
import time
from collections.abc import Callable

from rich.console import Console
from rich.table import Table

from release.project import PROCESSORS, ROOT, ReleaseError, run, uncommitted, version

Check = Callable[[], str]


def tree() -> str:
    """Nothing but what is committed."""
    if found := uncommitted():
        raise ReleaseError("not committed:\n" + "\n".join(found))
    return run("git", "log", "-1", "--format=%h %s").strip()


def changes() -> str:
    """CHANGELOG.md begins with this version, tells something of it and when it was released."""
    text = (ROOT / "CHANGELOG.md").read_text(encoding="utf-8")
    found = re.search(r"^## (\S+) \((.*)\)\n\n(- (?:.+\n)+)", text, re.MULTILINE)
    if found is None:
        raise ReleaseError("CHANGELOG.md has no entry such as `## 1.0.0 (2030-01-31)` with lines below")
    if found[1] != version():
        raise ReleaseError(f"CHANGELOG.md begins with {found[1]}, CMakeLists.txt has {version()}")
    if found[2] == "unreleased":
        return f"{found[1]}, unreleased: on the day of the release that day stands there"
    if not re.fullmatch(r"\d{4}-\d\d-\d\d", found[2]):
        raise ReleaseError(f"CHANGELOG.md says '{found[2]}' in place of the day of the release, such as 2030-01-31")
    return f"{found[1]} of {found[2]}"


def target(name: str) -> Check:
    """A target of the Makefile: the last line that it prints."""

    def check() -> str:
        return (run("make", "--no-print-directory", name).strip().splitlines() or [""])[-1]

    return check


def artefacts() -> str:
    """What is in dist: names, contents, licences, bills of materials."""
    return run(sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "tests/artefacts").strip().splitlines()[-1]


def published() -> str:
    """The wheels' metadata, as PyPI reads it."""
    wheels = sorted((ROOT / "dist").glob("*.whl"))
    if len(wheels) != len(PROCESSORS):
        raise ReleaseError(f"dist has {len(wheels)} wheels")
    run(sys.executable, "-m", "twine", "check", "--strict", *wheels)
    return f"{len(wheels)} wheels"


CHECKS: dict[str, Check] = {
    "tree": tree,
    "changes": changes,
    "lock": target("check-lock"),
    "lint": target("lint"),
    "derived": target("test-derived"),
    "wheels": target("wheels"),
    "reproducible": target("reproducible"),
    "sbom": target("sbom"),
    "deb": target("deb"),
    "bare Debian": target("test-deb"),
    "artefacts": artefacts,
    "PyPI": published,
    "docs": target("docs"),
}
SUITES: dict[str, Check] = {name: target(name) for name in ("test", "test-oldest", "test-asan", "test-aarch64")}


def main(arguments: list[str]) -> int:
    """Runs the list, or some lines of it: 0 if all passed."""
    checks = CHECKS | (SUITES if "--with-tests" in arguments else {})
    chosen = [each for each in arguments if each != "--with-tests"]
    if unknown := set(chosen) - checks.keys():
        raise ReleaseError(f"there is no line {', '.join(unknown)}; lines are {', '.join(checks)}")
    console = Console(width=None if sys.stdout.isatty() else 160)
    table = Table("Line", "Result", "Seconds", "What it says", title=f"libkestrel {version()}")
    failures: list[tuple[str, str]] = []
    for name in chosen or checks:
        console.print(f"{name} ...", style="dim")
        begun = time.monotonic()
        try:
            result, told = "passed", checks[name]()
        except ReleaseError as error:
            result, told = "FAILED", str(error).splitlines()[0]
            failures.append((name, str(error)))
        console.print(f"{name}: {result}", highlight=False)
        table.add_row(name, result, f"{time.monotonic() - begun:.0f}", told)
    for name, message in failures:
        console.rule(name)
        console.print(message, markup=False, highlight=False)
    console.print(table)
    if left := SUITES.keys() - checks.keys():
        console.print(f"Not run: {', '.join(f'make {name}' for name in SUITES if name in left)} (LONG=1 runs them too)")
    return 1 if failures else 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except ReleaseError as fault:
        sys.exit(str(fault))
