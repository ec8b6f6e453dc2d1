"""Says where figures come from."""

from __future__ import annotations

import os
import platform
from importlib import metadata
from pathlib import Path


def describe() -> dict[str, str]:
    """Processor, system and the versions of what was measured."""
    return {
        "processor": f"{_processor()}, {os.cpu_count()} cores",
        "system": f"Linux {platform.release()} {platform.machine()}, {' '.join(platform.libc_ver())}",
        "python": f"{platform.python_version()}, {platform.python_compiler()}",
        **{name: metadata.version(name) for name in ("libkestrel", "cffi", "pybind11")},
    }


def _processor() -> str:
    for line in Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.partition(":")[2].strip()
    return platform.machine()
