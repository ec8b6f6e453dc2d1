"""What has passed a port."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any


@dataclass(frozen=True)
class Counters:
    """Frames of one direction since somebody was plugged into the port."""

    unicast_frames: int
    """To one station."""
    unicast_bytes: int
    """In these."""
    multicast_frames: int
    """To a group."""
    multicast_bytes: int
    """In these."""
    broadcast_frames: int
    """To all stations."""
    broadcast_bytes: int
    """In these."""
    dropped: int
    """Frames that the port's policies did not let pass."""
    exceptions: int
    """Frames that could not be dealt with."""

    @property
    def frames(self) -> int:
        """All frames that passed."""
        return self.unicast_frames + self.multicast_frames + self.broadcast_frames

    @property
    def bytes(self) -> int:
        """All bytes that passed."""
        return self.unicast_bytes + self.multicast_bytes + self.broadcast_bytes


@dataclass(frozen=True)
class PortStatistics:
    """The counters of a port."""

    incoming: Counters
    """From the port into the switch."""
    outgoing: Counters
    """From the switch out through the port."""


def statistics_of(record: Any) -> PortStatistics:
    """The counters in a `zel_VDSPortStatistics`."""

    def counters(way: str) -> Counters:
        kinds = (f"{what}{way}{kind}" for kind in ("Unicast", "Multicast", "Broadcast") for what in ("pkts", "bytes"))
        rest = (f"pkts{way}Dropped", f"pkts{way}Exception")
        return Counters(*(int(getattr(record, name)) for name in (*kinds, *rest)))

    return PortStatistics(counters("In"), counters("Out"))
