"""Measures the operations of a subject on one host: probe.py <subject> <size> <host file, or nothing for memory>.

Prints a line of JSON: for each operation, how its output grows and the nanoseconds that it took.
"""

from __future__ import annotations

import importlib
import json
import os
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2]))


def main() -> None:
    """Measure in this process, whose host is chosen first."""
    subject, size, place = sys.argv[1:]
    os.environ.pop("KESTREL_HOST", None)
    if place:
        os.environ["KESTREL_HOST"] = place
    operation = importlib.import_module("benchmarks.growing.operation")
    operations = importlib.import_module(f"benchmarks.growing.{subject}").operations
    found = {each.name: (each.output, operation.measure(each)) for each in operations(int(size))}
    print(json.dumps(found))


if __name__ == "__main__":
    main()
