"""Processes of the command line on hosts with more and more ports."""

from __future__ import annotations

import os
import subprocess
import sys
from collections.abc import Iterator

from benchmarks.growing.operation import Operation

_PORTS_BY_SWITCH = 50_000
_MAKE = """
import sys
from libkestrel import Host, lab
import _libkestrel as flat
count, by_switch = int(sys.argv[1]), int(sys.argv[2])
lab.reset()
with lab.transaction():
    for first in range(0, count, by_switch):
        switch = f"s{first}"
        Host().switches.create(switch, f"id-{switch}", max_ports=by_switch)
        for i in range(first, min(count, first + by_switch)):
            flat.VSDVS_AddDVPort(switch, f"p{i}", 0)
"""


def operations(count: int) -> Iterator[Operation]:
    """The commands; each process finds the host in its file."""
    subprocess.run([sys.executable, "-c", _MAKE, str(count), str(_PORTS_BY_SWITCH)], check=True, env=dict(os.environ))
    vlans = iter(range(1, 10**9))
    yield Operation(
        "load the host file, one query", "n", lambda: _python("from libkestrel import Host; list(Host().switches)")
    )
    yield Operation("kestrel switch list --json", "1", lambda: _kestrel("switch", "list", "--json"))
    yield Operation("kestrel port list --json", "n", lambda: _kestrel("port", "list", "--json"))
    yield Operation("kestrel port list", "n", lambda: _kestrel("port", "list"))
    yield Operation("kestrel vlan set", "1", lambda: _kestrel("vlan", "set", "s0", "p1", str(1 + next(vlans) % 4000)))


def _python(code: str) -> None:
    subprocess.run([sys.executable, "-c", code], check=True, stdout=subprocess.DEVNULL)


def _kestrel(*words: str) -> None:
    subprocess.run([sys.executable, "-m", "libkestrel.cli", *words], check=True, stdout=subprocess.DEVNULL)
