"""Says where figures come from."""

from __future__ import annotations

import os
import platform
from importlib import metadata
from pathlib import Path

_PEERS = ("libkestrel", "cffi", "pybind11", "nanobind", "swig", "numpy", "pyroute2")


def describe() -> dict[str, str]:
    """Processor, system and the versions of what was measured, and how busy the machine is before that."""
    return {
        "processor": f"{_processor()}, {os.cpu_count()} cores",
        "system": f"Linux {platform.release()} {platform.machine()}, {' '.join(platform.libc_ver())}",
        "python": f"{platform.python_version()}, {platform.python_compiler()}",
        "versions": ", ".join(f"{name} {metadata.version(name)}" for name in _PEERS),
        "others at work": f"{os.getloadavg()[0]:.1f} processes on average in the minute before",
    }


def _processor() -> str:
    for line in Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.partition(":")[2].strip()
    return platform.machine()
