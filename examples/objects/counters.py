"""Tells what has passed the ports of a switch."""

from __future__ import annotations

from libkestrel import Host


def main() -> None:
    """Prints the counters of each port."""
    for port in Host().switch("dvs-prod").ports.values():
        counted = port.statistics()
        into, out = counted.incoming, counted.outgoing
        print(f"{port.id}: {into.frames} frames ({into.bytes} bytes) in, {out.frames} out, {out.dropped} dropped")


if __name__ == "__main__":
    main()
