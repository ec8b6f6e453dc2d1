"""The peers' curves, as far as they go: a bridge of the kernel's has at most 1,023 ports."""

from __future__ import annotations

from pathlib import Path

from benchmarks import report
from benchmarks.growing.curves import Curve
from benchmarks.peers_host import peer, turns
from benchmarks.peers_host.kestrel import KestrelObjects
from benchmarks.peers_host.linux_bridge import LinuxBridge
from benchmarks.peers_host.open_vswitch import OvsDatabase, OvsRpc
from benchmarks.peers_host.peer import Peer

_KINDS: list[type[Peer]] = [KestrelObjects, OvsRpc, OvsDatabase, LinuxBridge]
_PORTS = [10, 100, 1_000]
_MACS = [1_000, 10_000, 100_000]
_OUTPUT = {
    peer.ADD_PORTS: "n",
    peer.SET_VLANS: "n",
    peer.READ_VLANS: "n",
    peer.DESTROY: "n",
    peer.READ_MACS: "n",
    peer.READ_COLUMNS: "n",
}
_ROUNDS = 1


def grow(folder: Path, largest: int) -> list[Curve]:
    """Every operation of every peer, on its own scale."""
    found: dict[tuple[str, str], Curve] = {}
    with turns.workers(_KINDS, folder) as ready:
        for measure, sizes in ((turns.measure, _PORTS), (turns.measure_macs, _MACS)):
            for size in (each for each in sizes if each <= largest):
                report.progress(f"peers, {size:,}")
                for operation, row in measure(ready, size, _ROUNDS).items():
                    for title, spread in row.items():
                        output = _OUTPUT.get(operation, "1")
                        curve = found.setdefault((operation, title), Curve("peers", operation, title, output, {}))
                        curve.points[size] = spread.minimum
    return list(found.values())
