"""Mirrors what web servers send over HTTP to an analyser's port."""

from __future__ import annotations

from ipaddress import ip_network

from libkestrel import Host, MirrorEntity, MirrorSession
from libkestrel.host import MirrorRule

TCP = 6


def main() -> None:
    """Adds a session to the sample host, shows it, and removes it."""
    switch = Host().switch("dvs-prod")
    port = switch.port("10")
    session = MirrorSession(
        "web",
        destinations=(MirrorEntity.port("18"),),
        sources_in=(MirrorEntity.port("10"), MirrorEntity.port("11")),
        name="what web servers send",
        snap_length=128,
        rules=(MirrorRule(sources=(ip_network("10.0.0.0/8"),), protocol=TCP, source_ports=(80, 80)),),
    )
    print("changed:", port.ensure_mirror_session(session))
    print("changed:", port.ensure_mirror_session(session))
    for found in port.mirror_sessions:
        print(f"{found.id}: {found.name}, to {[entity.value for entity in found.destinations]}")
    port.remove_mirror_session("web")
    print("left:", switch.mirror_session_ids())


if __name__ == "__main__":
    main()
