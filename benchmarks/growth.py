"""How cost grows with size: `make growth`.

Each operation of the embedded host is measured on hosts of 10 to 100,000 ports, and on MAC tables of up to 1,000,000
entries, in memory and in a file, each size in a process of its own; the command line and the peers go along. To each
curve an exponent is fitted: 0 is the same cost on every host, 1 is proportional. What has a higher one than its output
is marked. README.md says how to read it.
"""

from __future__ import annotations

import argparse
import json
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from benchmarks import machine, report
from benchmarks.growing import curves, peers
from benchmarks.growing.curves import Curve

_ROOT = Path(__file__).resolve().parents[1]
_PROBE = Path(__file__).resolve().parent / "growing" / "probe.py"
_SIZES = {
    "ports": [10, 100, 1_000, 10_000, 100_000],
    "macs": [10, 100, 1_000, 10_000, 100_000, 1_000_000],
}
_MEMORY, _FILE, _COMMANDS = "libkestrel, in memory", "libkestrel", "kestrel, a process each"


def main() -> None:
    """Measure, fit and report."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--json", type=Path, metavar="FILE", help="also write all figures to FILE")
    parser.add_argument("--folder", type=Path, default=Path("build"), help="where all files lie (default: %(default)s)")
    parser.add_argument("--largest", type=int, default=10**6, help="leave larger sizes out (default: %(default)s)")
    parser.add_argument("--no-peers", action="store_true", help="leave the peers out")
    options = parser.parse_args()
    options.folder.mkdir(parents=True, exist_ok=True)
    found: list[Curve] = []
    with tempfile.TemporaryDirectory(prefix="growth-", dir=options.folder.resolve()) as folder:
        for subject, sizes in _SIZES.items():
            chosen = [size for size in sizes if size <= options.largest]
            for where in (_MEMORY, _FILE):
                found += _grow(subject, chosen, where, Path(folder))
        found += _grow("commands", [s for s in _SIZES["ports"] if s <= options.largest], _COMMANDS, Path(folder))
    curves.show(found)
    if not options.no_peers:
        beside = peers.grow(options.folder.resolve(), options.largest)
        curves.show(beside)
        found += beside
    if options.json:
        curves.write(options.json, machine.describe(), found)


def _grow(subject: str, sizes: list[int], where: str, folder: Path) -> list[Curve]:
    """The curves of a subject's operations."""
    by_name: dict[str, Curve] = {}
    for size in sizes:
        start = time.monotonic()
        place = "" if where == _MEMORY else str(folder / f"{subject}-{size}.kestrel")
        for name, (output, taken) in _probe(subject, size, place).items():
            curve = by_name.setdefault(name, Curve(subject, name, where, output, {}))
            curve.points[size] = taken
        report.progress(f"{subject}, {where}, {size:,}: {time.monotonic() - start:.1f} s")
    return list(by_name.values())


def _probe(subject: str, size: int, place: str) -> dict[str, tuple[str, float]]:
    path = os.pathsep.join([str(_ROOT), os.environ.get("PYTHONPATH", "")])
    command = [sys.executable, str(_PROBE), subject, str(size), place]
    done = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, env=os.environ | {"PYTHONPATH": path})
    found: dict[str, tuple[str, float]] = json.loads(done.stdout)
    return found


if __name__ == "__main__":
    main()
