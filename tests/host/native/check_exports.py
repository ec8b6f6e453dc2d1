"""Compares the functions that a platform library exports with those that the headers declare for it."""

from __future__ import annotations

import argparse
import subprocess
import sys

from headers import model


def exported(nm: str, library: str) -> set[str]:
    """The defined dynamic symbols, without the weak C++ ones that every library shares."""
    lines = subprocess.run(
        [nm, "-D", "--defined-only", library], check=True, capture_output=True, text=True
    ).stdout.splitlines()
    symbols = (line.split()[-2:] for line in lines)
    return {name for kind, name in symbols if not (kind in "WVu" and name.startswith("_Z"))}


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", required=True)
    parser.add_argument("--compiler", required=True)
    parser.add_argument("name", help="morrow, kestrel or praxa")
    parser.add_argument("library", help="path of the library")
    options = parser.parse_args()

    declared = {f.name for f in model.read(options.compiler).functions if f.library == options.name}
    shown = exported(options.nm, options.library)
    if options.name == "morrow":
        # The other two stand on its model.
        shown = {name for name in shown if not name.startswith(("_ZN7kestrel4host", "_ZNK7kestrel4host"))}
    for name in sorted(declared - shown):
        print(f"declared and not exported: {name}")
    for name in sorted(shown - declared):
        print(f"exported and not declared: {name}")
    if not declared:
        print(f"the headers declare nothing for lib{options.name}.so")
    return int(not declared or declared != shown)


if __name__ == "__main__":
    sys.exit(main())
