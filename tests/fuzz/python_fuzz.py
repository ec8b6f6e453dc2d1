"""Fuzzes what reads bytes in Python: python_fuzz.py TARGET [libFuzzer's options] FOLDER...

The package's modules are watched, so that inputs which reach more of them are kept, in the first folder.
"""

from __future__ import annotations

import sys
from pathlib import Path

import atheris

sys.path.insert(0, str(Path(__file__).parent))

with atheris.instrument_imports(include=["libkestrel", "click"]):
    import python_targets  # type: ignore[import-not-found]


def main() -> None:
    """What is described above."""
    target = python_targets.TARGETS[sys.argv.pop(1)]
    atheris.Setup(sys.argv, target)
    atheris.Fuzz()


if __name__ == "__main__":
    main()
