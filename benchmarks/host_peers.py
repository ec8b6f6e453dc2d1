"""What commands and queries cost on the embedded host, side by side with other switches: `make bench`.

Open vSwitch runs on its dummy datapath, the kernel's bridge in a network namespace of its own; a peer that this
machine does not allow is left out, with the reason. All files lie in one folder, on one disk. README.md says what a
commit means to each.
"""

from __future__ import annotations

import argparse
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from benchmarks import machine, report
from benchmarks.figures import Table
from benchmarks.peers_host import turns
from benchmarks.peers_host.kestrel import KestrelFlat, KestrelInMemory, KestrelObjects, KestrelProcess
from benchmarks.peers_host.linux_bridge import LinuxBridge
from benchmarks.peers_host.open_vswitch import OvsDatabase, OvsProcess, OvsRpc
from benchmarks.peers_host.peer import Peer

_PORTS = 1_000
_MACS = 100_000
_FILE_PEERS: list[type[Peer]] = [KestrelObjects, KestrelFlat, OvsRpc, OvsDatabase, KestrelInMemory, LinuxBridge]
_PROCESS_PEERS: list[type[Peer]] = [KestrelProcess, OvsProcess]


def main() -> None:
    """Measure and report."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--json", type=Path, metavar="FILE", help="also write all figures to FILE")
    parser.add_argument("--rounds", type=int, default=3, help="rounds (default: %(default)s)")
    parser.add_argument("--folder", type=Path, default=Path("build"), help="where all files lie (default: %(default)s)")
    options = parser.parse_args()
    if options.rounds < 1:
        parser.error("--rounds is at least 1")
    options.folder.mkdir(parents=True, exist_ok=True)
    tables = []
    for name, title, kinds in (
        ("host", f"A switch with {_PORTS:,} ports, one with {_MACS:,} MAC entries", _FILE_PEERS),
        ("host-processes", "The same, a process for each operation", _PROCESS_PEERS),
    ):
        report.progress(f"{title}, {options.rounds} rounds ...")
        with turns.workers(kinds, options.folder.resolve()) as ready:
            rows = turns.measure(ready, _PORTS, options.rounds) | turns.measure_macs(ready, _MACS, options.rounds)
        tables.append(Table(name, title, "operation", "ms", kinds[0].title, rows))
    report.show(machine.describe(), tables, options.json)


if __name__ == "__main__":
    main()
