"""Properties at their four levels: of a switch, of this host's part of it, of a port, of an uplink."""

from __future__ import annotations

import _libkestrel as flat

from libkestrel import Host, errors
from libkestrel.host import PropertyKind


def main() -> None:
    """Sets properties on a switch of its own, reads them back and clears them."""
    host = Host()
    switch = host.switches.create("dvs-properties", "5d1be2a7-90c4-4c0b-8f3e-2a6f7c9b1e04")
    port = switch.ports.add("p1")
    key = "com.example.owner"
    levels = {"switch": switch.properties, "host": switch.host_properties, "port": port.properties}
    for level, properties in levels.items():
        changed = [properties.ensure(key, f"team of the {level}") for _ in range(2)]
        print(f"{level}: {properties.read(key, str)}, changed: {changed}")
    # The platform's own keys are the same values that the objects have attributes for.
    switch.properties[flat.VSPROP_MTU] = 9000
    print(f"MTU: {switch.mtu}")
    del switch.mtu
    print(f"without one: {switch.mtu}")
    # The state store knows kinds too: what lasts as long as the running state is not saved.
    stored = switch.stored.properties
    stored.set_as("com.example.ticket", b"\x2a", PropertyKind.RUNTIME)
    print({found.key: found.kind.name for found in stored.list() if found.key.startswith("com.example")})

    uplinks = host.switch("dvs-prod").stored.uplink_properties(1)
    uplinks["com.example.cable"] = "red"
    print(f"uplink 1: {uplinks.read('com.example.cable', str)}")
    try:
        del uplinks["com.example.cable"]
    except errors.NotSupported as error:
        print(error)
    host.switches.destroy(switch.name)


if __name__ == "__main__":
    main()
