"""The counters and links of ports, as `kestrel watch` shows them."""

from __future__ import annotations

from collections.abc import Mapping
from dataclasses import dataclass
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from libkestrel.host import Port, Switch


@dataclass(frozen=True)
class Sample:
    """A port at a moment; `in` is into the switch, `out` is out of it."""

    client: str | None
    link: str | None
    in_frames: int
    in_bytes: int
    in_dropped: int
    out_frames: int
    out_bytes: int
    out_dropped: int


Key = tuple[str, str]
"""A switch and a port."""


def sample(switches: list[Switch], ports: Mapping[str, list[str]]) -> dict[Key, Sample]:
    """All ports of switches, or those of `ports`, by switch."""
    from libkestrel.cli.nouns.port import clients_of

    found: dict[Key, Sample] = {}
    for switch in switches:
        links = {uplink.port: "up" if uplink.link_up else "down" for uplink in switch.uplinks.values()}
        clients = clients_of(switch.name)
        for name in ports.get(switch.name) or switch.ports:
            client = clients.get(name)
            found[switch.name, name] = Sample(
                client.name if client else None, links.get(name), *_numbers(switch.port(name))
            )
    return found


def _numbers(port: Port) -> tuple[int, int, int, int, int, int]:
    """Frames, bytes and drops into the switch, and the same out of it. Nothing of one that has just gone."""
    import _libkestrel as flat

    from libkestrel._kestrel_error import KestrelError

    try:
        counted = port.statistics()
    except KestrelError as error:
        if error.status != flat.ZEL_NOT_FOUND:
            raise
        return 0, 0, 0, 0, 0, 0
    into, out = counted.incoming, counted.outgoing
    return into.frames, into.bytes, into.dropped, out.frames, out.bytes, out.dropped
