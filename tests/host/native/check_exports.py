"""Compares the functions that a platform library exports with those that the headers declare for it and those that the
coverage page has.
"""

from __future__ import annotations

import argparse
import subprocess
import sys

from headers import coverage, laboratory, model


def symbols(nm: str, library: str) -> list[tuple[str, str]]:
    """The defined dynamic symbols with their kinds, as nm tells them."""
    lines = subprocess.run(
        [nm, "-D", "--defined-only", library], check=True, capture_output=True, text=True
    ).stdout.splitlines()
    return [(kind, name) for kind, name in (line.split()[-2:] for line in lines)]


def exported(found: list[tuple[str, str]]) -> set[str]:
    """Without the weak C++ ones that every library shares, and what a sanitizer or the counting of coverage adds."""
    own = {(kind, name) for kind, name in found if not name.startswith(("__odr_asan.", "__gcov_", "mangle_path"))}
    return {name for kind, name in own if not (kind in "WVu" and name.startswith("_Z"))}


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", required=True)
    parser.add_argument("--compiler", required=True)
    parser.add_argument("name", help="morrow, kestrel or praxa")
    parser.add_argument("library", help="path of the library")
    options = parser.parse_args()

    declared = {f.name for f in model.read(options.compiler).functions if f.library == options.name}
    found = symbols(options.nm, options.library)
    shown = exported(found)
    if options.name == "morrow":
        declared |= {f.name for f in laboratory.read(options.compiler).functions}
        # The other two stand on its model.
        shown = {name for name in shown if not name.startswith(("_ZN7kestrel4host", "_ZNK7kestrel4host"))}
    for name in sorted(declared - shown):
        print(f"declared and not exported: {name}")
    for name in sorted(shown - declared):
        print(f"exported and not declared: {name}")
    missed = declared - coverage.defined()
    for name in sorted(missed):
        print(f"the coverage page does not see {name}")
    if not declared:
        print(f"the headers declare nothing for lib{options.name}.so")
    return int(not declared or declared != shown or bool(missed))


if __name__ == "__main__":
    sys.exit(main())
