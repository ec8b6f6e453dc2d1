"""Start-up of the command line: whole processes, beside an interpreter that does nothing.

python benchmarks/command_line.py [--rounds N] [--json FILE]
"""

from __future__ import annotations

import argparse
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from benchmarks import machine, report
from benchmarks.figures import Table
from benchmarks.timing import Spread, spread

_SCRIPT = Path(sys.executable).with_name("kestrel")
_KESTREL = [str(_SCRIPT)] if _SCRIPT.exists() else [sys.executable, "-m", "libkestrel.cli"]
_NOTHING = "python3 -c pass"
_QUICK = "kestrel switch list --json"

COMMANDS = {
    _NOTHING: [sys.executable, "-c", "pass"],
    _QUICK: [*_KESTREL, "switch", "list", "--json"],
    "python3 -c 'import _libkestrel'": [sys.executable, "-c", "import _libkestrel"],
    "kestrel switch list": [*_KESTREL, "switch", "list"],
    "kestrel vlan set, nothing to change": [*_KESTREL, "vlan", "set", "dvs-office", "100", "10"],
    "kestrel --help": [*_KESTREL, "--help"],
}
"""What is timed; the first is what the others are compared with."""


def measure(rounds: int) -> dict[str, Spread]:
    """Nanoseconds of whole processes, in turns; a first turn of each is not counted."""
    samples: dict[str, list[float]] = {name: [] for name in COMMANDS}
    with tempfile.TemporaryDirectory() as folder:
        environment = os.environ | {"KESTREL_HOST": f"{folder}/host.kestrel"}
        _run([*_KESTREL, "lab", "run", "small-office"], environment)
        for number in range(rounds + 1):
            for name, command in COMMANDS.items():
                taken = _run(command, environment)
                if number:
                    samples[name].append(taken)
    return {name: spread(taken) for name, taken in samples.items()}


def _run(command: list[str], environment: dict[str, str]) -> float:
    start = time.perf_counter_ns()
    subprocess.run(command, env=environment, stdout=subprocess.DEVNULL, check=True)
    return time.perf_counter_ns() - start


def main() -> None:
    """Measures and shows."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--rounds", type=int, default=40, help="fresh processes of each")
    parser.add_argument("--json", type=Path, help="also write the figures as data, in nanoseconds")
    options = parser.parse_args()
    results = measure(options.rounds)
    rows = {name: {"process": taken} for name, taken in results.items()}
    tables = [Table("processes", "A process of the command line", "command", "ms", _NOTHING, rows)]
    report.show(machine.describe(), tables, options.json)


if __name__ == "__main__":
    main()
