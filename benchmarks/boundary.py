"""What calls across the boundary and importing the module cost, side by side with peers: `make bench`.

Builds the peers, times all of them in one run on the same record, and prints the nanoseconds of a call, each
with its ratio to C written by hand for the same call protocol; then imports, and the sizes of files. README.md says
how to read it.
"""

from __future__ import annotations

import argparse
import importlib
import importlib.util
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from benchmarks import build, calls, imports, machine, report, sizes, timing
from benchmarks.figures import Table


def main() -> None:
    """Build, check, measure and report."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--json", type=Path, metavar="FILE", help="also write all figures to FILE")
    parser.add_argument("--rounds", type=int, default=1000, help="rounds of calls (default: %(default)s)")
    parser.add_argument("--imports", type=int, default=200, help="imports of each kind (default: %(default)s)")
    options = parser.parse_args()
    if options.rounds < 1 or options.imports < 1:
        parser.error("--rounds and --imports are at least 1")

    found = importlib.util.find_spec("_libkestrel")
    if found is None or found.origin is None:
        sys.exit(f"_libkestrel is not installed for {sys.executable}: `make bench` installs it first")
    report.progress("Building the peers in build/benchmarks ...")
    module = importlib.import_module("_libkestrel")
    folder = build.peers(module)

    report.progress(f"Timing calls, {options.rounds} rounds ...")
    contenders = calls.contenders(module, folder)
    calls.check(contenders)
    call_times = timing.interleave(contenders, options.rounds)
    call_times |= timing.interleave(calls.with_classes(contenders), options.rounds)

    report.progress(f"Timing imports, {options.imports} of each kind in fresh interpreters ...")
    import_times = imports.measure(Path(found.origin), folder, options.imports)
    tables = [
        Table("calls", "A call across the boundary", "operation", "ns", contenders[1].title, call_times),
        *imports.tables(import_times),
        sizes.table(Path(found.origin), folder),
    ]
    report.show(machine.describe(), tables, options.json)


if __name__ == "__main__":
    main()
