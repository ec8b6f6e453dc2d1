"""The libraries that are preloaded to make faults, and the environment of whoever they are preloaded into."""

from __future__ import annotations

import os
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
FOLDER = Path(os.environ.get("FAULT_LIBRARIES", ROOT / "build/dev/tests/recorder"))


def library(name: str) -> Path:
    """A preloaded library of the tests' own."""
    found = FOLDER / f"lib{name}.so"
    if not found.exists():
        raise FileNotFoundError(f"{found} is not there: `make build` makes it")
    return found


def environment(preloaded: Path, bytecode: Path, **more: str) -> dict[str, str]:
    """For an interpreter with a library preloaded that imports the tests' modules."""
    found = {name: value for name, value in os.environ.items() if name != "PYTHONDONTWRITEBYTECODE"}
    paths = [str(ROOT / "tools"), str(ROOT / "tests"), *filter(None, [os.environ.get("PYTHONPATH")])]
    found |= {"LD_PRELOAD": str(preloaded), "PYTHONPATH": os.pathsep.join(paths)}
    return found | {"PYTHONPYCACHEPREFIX": str(bytecode), "PYTHONFAULTHANDLER": "1"} | more
