"""The state store: what it knows, and images of it."""

from __future__ import annotations

from libkestrel import Host, errors


def main() -> None:
    """Walks through the store of the sample host."""
    host = Host()
    for switch in host.store:
        print(f"{switch.id}: {switch.name}, version {switch.version}, at most {switch.max_ports} ports")
        for port in switch.ports():
            kinds = {found.key: found.kind.name for found in port.properties.list()}
            print(f"  port {port.id}: {kinds}")
    try:
        print(f"an image has {len(host.store.image())} bytes")
    except errors.NotSupported as error:
        print(error)


if __name__ == "__main__":
    main()
