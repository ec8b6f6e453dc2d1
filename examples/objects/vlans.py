"""Gives ports their VLANs: access ports, a trunk, and a private VLAN that keeps tenants apart."""

from __future__ import annotations

from libkestrel import AccessVlan, Host, PrivateVlan, TrunkVlan
from libkestrel.host import PrivateVlanEntry, PrivateVlanKind


def main() -> None:
    """Configures a switch of its own twice, of which the second time has nothing to do."""
    host = Host()
    switch = host.switches.create("dvs-tenants", "2f9b0c34-6a0e-4d55-9a3c-0f8e4b7d1e21", max_ports=16)
    for port in ("web", "router", "tenant-1", "tenant-2"):
        switch.ports.add(port)
    tenants = [
        PrivateVlanEntry(500, 500, PrivateVlanKind.PROMISCUOUS),
        PrivateVlanEntry(500, 501, PrivateVlanKind.ISOLATED),
    ]
    for attempt in ("first", "second"):
        changed = [
            switch.ensure_private_vlans(tenants),
            switch.port("web").ensure_vlan(AccessVlan(100)),
            switch.port("router").ensure_vlan(TrunkVlan.of(100, (300, 310))),
            switch.port("tenant-1").ensure_vlan(PrivateVlan(501)),
            switch.port("tenant-2").ensure_vlan(PrivateVlan(501)),
        ]
        print(f"{attempt} time: {sum(changed)} changes")
    for name, found in switch.ports.items():
        print(f"{name}: {found.vlan}")
    host.switches.destroy(switch.name)


if __name__ == "__main__":
    main()
