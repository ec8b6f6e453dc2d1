"""MAC learning, security, filters and multicast addresses of a port, and an address that is entered by hand."""

from __future__ import annotations

from libkestrel import Host, SecurityPolicy, errors
from libkestrel.host import EthernetFilter, EthernetFilterFlags, LimitPolicy, MacKind, MulticastMode, PortLearning
from libkestrel.records import MacAddress


def main() -> None:
    """Configures a switch of its own."""
    host = Host()
    switch = host.switches.create("dvs-addresses", "b0a8c1f2-7d0e-4a57-8f43-6f1d2c3b4a59")
    port = switch.ports.add("p1")
    port.mac_learning = PortLearning(learning=True, limit=16, beyond=LimitPolicy.DROP)
    port.security = SecurityPolicy(forged_transmits=True)
    port.ethernet_filter = EthernetFilter(EthernetFilterFlags.BROADCAST, (MacAddress("01:00:5e:00:00:fb"),))
    print(port.mac_learning, port.security, port.ethernet_filter, sep="\n")

    port.ensure_mac("02:4b:00:00:05:01", vlan=20)
    with port.mac_table(MacKind.USER) as table:
        print([(str(entry.macAddress), entry.vid) for entry in table])

    switch.multicast_mode = MulticastMode.LEGACY
    switch.ensure_multicast_entries(["01:00:5e:00:00:05", "01:00:5e:00:00:06"])
    print([str(address) for address in switch.multicast_entries])
    try:
        switch.ensure_multicast_entries(["02:00:00:00:00:01"])
    except errors.BadParam as error:
        print(error)
    host.switches.destroy(switch.name)


if __name__ == "__main__":
    main()
