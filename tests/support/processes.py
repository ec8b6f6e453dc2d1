"""Interpreters of their own, for what must not happen to the one that runs the tests."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

from support.recorder import library_path


def run(code: str, *, preload: Path | None = None) -> subprocess.CompletedProcess[str]:
    """Runs code with the environment of this process."""
    environment = dict(os.environ)
    # What leaks there, some of it on purpose, is told by what the interpreter prints.
    environment["ASAN_OPTIONS"] = f"{environment.get('ASAN_OPTIONS', '')}:detect_leaks=0"
    if preload:
        environment["LD_PRELOAD"] = " ".join(filter(None, (str(preload), environment.get("LD_PRELOAD"))))
    return subprocess.run([sys.executable, "-c", code], env=environment, capture_output=True, text=True, check=False)


def allocator() -> Path:
    """The library that makes allocations fail or jump; it lies beside the recorder."""
    recorder = library_path("libmorrow.so")
    assert recorder is not None
    return recorder.with_name("liballocator.so")


def sanitized() -> bool:
    """Whether an address sanitizer watches this process; its allocator and the meddling one cannot both stand first."""
    return "/libasan.so" in Path("/proc/self/maps").read_text()
