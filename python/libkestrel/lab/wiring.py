"""Who is connected where, and which uplinks form groups."""

from __future__ import annotations

import ctypes
from collections.abc import Sequence
from dataclasses import dataclass

import _libkestrel as k

from libkestrel.lab import _declarations, _library, frames
from libkestrel.lab.errors import LabError

_KINDS = {
    k.VS_PORT_CLIENT_VNIC: "machine",
    k.VS_PORT_CLIENT_TCPIP: "service",
    k.VS_PORT_CLIENT_UPLINK: "nic",
}
_UNKNOWN_NODE = 0xFFFFFFFF


@dataclass(frozen=True)
class Client:
    """Who is plugged into a port."""

    port: str
    """The distributed-port id."""
    port_id: int
    """What the platform's records name the port by."""
    kind: str
    """ "machine", "service" or "nic"."""
    name: str
    """The client's name, at most 1039 bytes; a NIC's own."""
    mac: str
    """The address of its hardware."""
    used_mac: str
    """The address that its frames come from."""
    numa_node: int | None
    """The NUMA node that it runs on, where somebody has said."""


def _client(record: _declarations.Client) -> Client:
    return Client(
        port=record.port.decode(),
        port_id=record.port_id,
        kind=_KINDS[record.type],
        name=record.name.decode(),
        mac=frames.mac_text(bytes(record.mac)),
        used_mac=frames.mac_text(bytes(record.used_mac)),
        numa_node=None if record.numa_node == _UNKNOWN_NODE else record.numa_node,
    )


def _address(mac: str | bytes | None) -> ctypes.Array[ctypes.c_uint8] | None:
    return None if mac is None else (ctypes.c_uint8 * 6)(*frames.mac(mac))


def connect(
    switch: str, port: str, name: str, *, kind: str | int = "machine", mac: str | bytes | None = None
) -> Client:
    """Plugs a client, a virtual machine ("machine") or a service of the host ("service"), into a port.

    A client that brings no address is given one.
    """
    plug_client(switch, port, name, kind, mac)
    return client_at(switch, port)


def plug_client(switch: str, port: str, name: str, kind: str | int, mac: str | bytes | None) -> None:
    """Connects a client without telling of it, which takes a look at all of the switch's."""
    numbers = {word: number for number, word in _KINDS.items()}
    number = numbers[kind] if isinstance(kind, str) else kind
    _library.call(f"client {name} at port {port} of {switch}", "connect", switch, port, number, name, _address(mac))


def connect_nic(switch: str, uplink: str, nic: str) -> None:
    """Plugs a NIC into an uplink."""
    _library.call(f"NIC {nic} in uplink {uplink} of {switch}", "connect_nic", switch, uplink, nic)


def disconnect(switch: str, port: str) -> None:
    """Takes whoever is there out of a port: a client, or the NIC of an uplink."""
    _library.call(f"port {port} of {switch}", "disconnect", switch, port)


def set_adapter(
    switch: str,
    port: str,
    *,
    mac: str | bytes | None = None,
    promiscuous: bool = False,
    all_multicast: bool = False,
    groups: Sequence[str | bytes] = (),
) -> None:
    """What the client of a port asks of its adapter; security policies decide what it gets.

    It uses `mac`, or its own address; it receives broadcasts, what is sent to that address and to `groups`, all
    multicasts with `all_multicast`, and everything with `promiscuous`.
    """
    wanted = k.ZEL_ETH_FILTER_UNICAST | k.ZEL_ETH_FILTER_MULTICAST | k.ZEL_ETH_FILTER_BROADCAST
    wanted |= k.ZEL_ETH_FILTER_ALLMULTI if all_multicast else 0
    wanted |= k.ZEL_ETH_FILTER_PROMISC if promiscuous else 0
    taken = [frames.mac(group) for group in groups]
    array = (ctypes.c_uint8 * (6 * len(taken)))(*b"".join(taken))
    what = f"adapter at port {port} of {switch}"
    _library.call(what, "set_adapter", switch, port, _address(mac), wanted, array, len(taken))


def set_client_node(switch: str, port: str, numa_node: int) -> None:
    """Says which NUMA node the client of a port runs on."""
    _library.call(f"client at port {port} of {switch}", "set_client_node", switch, port, numa_node)


def clients(switch: str) -> list[Client]:
    """The clients of a switch, NICs among them, in the order of their port identifiers."""
    return _library.array(f"clients of {switch}", "list_clients", _declarations.Client, _client, switch)


def client_at(switch: str, port: str) -> Client:
    """The client of a port. LabError with ZEL_IS_DISCONNECTED where there is none."""
    for each in clients(switch):
        if each.port == port:
            return each
    raise LabError(f"client at port {port} of {switch}", k.ZEL_IS_DISCONNECTED)


def add_lag(switch: str, name: str, uplinks: Sequence[str], *, number: int) -> None:
    """Makes a group of uplinks under a number of its own."""
    texts = [_library.text(uplink) for uplink in uplinks]
    names = (ctypes.c_char_p * len(texts))(*texts)
    _library.call(f"group {name} of {switch}", "add_lag", switch, number, name, names, len(texts))


def remove_lag(switch: str, name: str) -> None:
    """Ends a group. Policies that name it keep its name."""
    _library.call(f"group {name} of {switch}", "remove_lag", switch, name)
