"""The laboratory of the embedded host: what is done to a host from outside.

    from libkestrel import lab

    lab.plug("vmnic9", speed=25000)
    with lab.capture("dvs-prod", "11") as capture:
        lab.send("dvs-prod", "10", lab.ethernet("ff:ff:ff:ff:ff:ff", "02:00:00:00:00:01"))
    capture.write_pcap("port-11.pcap")
    lab.clock.advance(300)

There is one host a process, so these are functions. They raise LabError with the platform's status where the host
refuses, and NotEmbeddedError where the platform is another than the embedded host, such as a real one. Times are in
seconds unless a name says nanoseconds. Hosts as a whole can be written down: see `libkestrel.lab.scenario`.
"""

from libkestrel.lab._library import require
from libkestrel.lab.equipment import LacpPartner, Nic, change_nic, nic, nics, plug, pull
from libkestrel.lab.errors import LabError, NotEmbeddedError
from libkestrel.lab.faults import ALWAYS, Calls, Fault, arm, armed_faults, counted_calls, disarm, disarm_all, fault
from libkestrel.lab.frames import Frame, Tag, ethernet
from libkestrel.lab.life import Snapshot, host_path, reset, restart, scratch, snapshot, transaction
from libkestrel.lab.timekeeping import Clock, clock
from libkestrel.lab.traffic import Capture, capture, play, send, write_pcap
from libkestrel.lab.wiring import (
    Client,
    add_lag,
    client_at,
    clients,
    connect,
    connect_nic,
    disconnect,
    remove_lag,
    set_adapter,
    set_client_node,
)

__all__ = [
    "ALWAYS",
    "Calls",
    "Capture",
    "Client",
    "Clock",
    "Fault",
    "Frame",
    "LabError",
    "LacpPartner",
    "Nic",
    "NotEmbeddedError",
    "Snapshot",
    "Tag",
    "add_lag",
    "arm",
    "armed_faults",
    "capture",
    "change_nic",
    "client_at",
    "clients",
    "clock",
    "connect",
    "connect_nic",
    "counted_calls",
    "disarm",
    "disarm_all",
    "disconnect",
    "ethernet",
    "fault",
    "host_path",
    "nic",
    "nics",
    "play",
    "plug",
    "pull",
    "remove_lag",
    "require",
    "reset",
    "restart",
    "scratch",
    "send",
    "set_adapter",
    "set_client_node",
    "snapshot",
    "transaction",
    "write_pcap",
]
