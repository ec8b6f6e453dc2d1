"""Lists what a host has: switches, uplinks, link aggregation groups, ports and the addresses behind them."""

from __future__ import annotations

from libkestrel import Host


def main() -> None:
    """Prints the inventory of the host."""
    for switch in Host().switches.values():
        info = switch.info()
        print(f"{switch.name}: MTU {info.mtu}, {info.active_ports} active ports of {info.max_ports}")
        for uplink in switch.uplinks.values():
            print(f"  {uplink.nic} at port {uplink.port}: {'up' if uplink.link_up else 'down'}")
        for lag in switch.lags:
            print(f"  {lag.name}: {', '.join(lag.uplinks_up)} up of {', '.join(lag.uplinks)}")
        numbers = {port.number: port for port in switch.ports.values()}
        with switch.mac_table() as table:
            for entry in table:
                print(f"  {entry.macAddress} in VLAN {entry.vid} behind port {numbers[entry.portID].id}")


if __name__ == "__main__":
    main()
