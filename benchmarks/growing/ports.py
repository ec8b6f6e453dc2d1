"""Operations on hosts with more and more ports."""

from __future__ import annotations

import random
from collections.abc import Iterator
from contextlib import suppress

import _libkestrel as flat
from benchmarks.growing.operation import Operation

from libkestrel import AccessVlan, Host, lab

_PORTS_BY_SWITCH = 50_000
_FEW = 100
"""How often what should cost the same on every host is done at a time."""


def operations(count: int) -> Iterator[Operation]:
    """The operations on a host of `count` ports, in an order in which each finds what it needs."""
    lab.reset()
    host = Host()
    random_ = random.Random(7)
    switches = [f"s{i}" for i in range((count + _PORTS_BY_SWITCH - 1) // _PORTS_BY_SWITCH)]
    names = [(switches[i // _PORTS_BY_SWITCH], f"p{i}") for i in range(count)]
    some = [random_.choice(names) for _ in range(_FEW)]

    def make_switches() -> None:
        lab.reset()
        for switch in switches:
            host.switches.create(switch, f"id-{switch}", max_ports=_PORTS_BY_SWITCH + _FEW)

    def add_flat() -> None:
        with lab.transaction():
            for switch, port in names:
                flat.VSDVS_AddDVPort(switch, port, 0)

    def add_by_plan() -> None:
        with host.plan() as plan:
            for switch in switches:
                ports = plan.switch(switch).ports
                for where, port in names:
                    if where == switch:
                        ports.ensure_added(port)
        plan.apply()

    yield Operation("yardstick: a dict of as many names", "n", lambda: {port: [port] for _, port in names})
    yield Operation("add ports, flat module, one commit", "n", add_flat, before=make_switches)
    yield Operation("add ports, a plan, one commit", "n", add_by_plan, before=make_switches)
    if sum(len(host.switch(switch).ports) for switch in switches) != count:
        raise RuntimeError("other ports than were added")

    def set_vlans() -> None:
        with lab.transaction():
            for switch, port in names:
                flat.VSDVS_SetPortVLANPolicy(switch, port, random_.randrange(1, 4000), 0, 0, 0, None, 0)

    yield Operation("set all VLANs, one commit", "n", set_vlans)
    yield from _queries(host, switches, some)
    yield from _changes(host, switches, some)
    yield from _whole(host)
    yield Operation("remove switches with their ports", "n", lambda: _remove(host, switches), once=True)


def _queries(host: Host, switches: list[str], some: list[tuple[str, str]]) -> Iterator[Operation]:
    def vlans() -> None:
        for switch in switches:
            for port in host.switch(switch).ports.values():
                _ = port.vlan

    def look_up() -> None:
        for switch, port in some:
            _ = host.switch(switch).ports[port]

    def read_vlan() -> None:
        for switch, port in some:
            _ = host.switch(switch).port(port).vlan

    def by_number() -> None:
        for switch, number in numbers:
            _ = host.switch(switch).ports.of_number(number)

    yield Operation("list the ports", "n", lambda: [list(host.switch(s).ports) for s in switches])
    yield Operation("list the ports with their VLANs", "n", vlans)
    yield Operation("look up a port", "1", look_up)
    yield Operation("read a port's VLAN", "1", read_vlan)
    numbers = [(switch, host.switch(switch).port(port).number) for switch, port in some[:1]]
    yield Operation("find a port by its number", "1", by_number)
    yield Operation("list the clients, of whom there are none", "1", lambda: lab.clients(switches[0]))
    yield Operation("read a switch", "1", lambda: host.switch(switches[0]).info())
    yield Operation("list the switches", "1", lambda: list(host.switches))


def _changes(host: Host, switches: list[str], some: list[tuple[str, str]]) -> Iterator[Operation]:
    switch = switches[0]
    vlans = iter(range(1, 10**9))

    def set_one() -> None:
        where, port = some[0]
        host.switch(where).port(port).vlan = AccessVlan(1 + next(vlans) % 4000)

    def refused() -> None:
        with suppress(ValueError):
            host.switch(switch).mtu = 7

    def add_and_remove() -> None:
        ports = host.switch(switch).ports
        ports.add("one-more")
        ports.remove("one-more")

    def plug() -> None:
        lab.connect(switch, some[0][1] if some[0][0] == switch else "p0", "client")
        lab.disconnect(switch, some[0][1] if some[0][0] == switch else "p0")

    def rolled_back() -> None:
        with suppress(KeyError), lab.transaction():
            set_one()
            raise KeyError

    def in_transaction() -> None:
        with lab.transaction():
            set_one()

    yield Operation("set one VLAN, a commit", "1", set_one)
    yield Operation("set one VLAN in a transaction", "1", in_transaction)
    yield Operation("a change that is refused", "1", refused)
    yield Operation("add and remove one port, two commits", "1", add_and_remove)
    yield Operation("plug a client in and out", "1", plug)
    yield Operation("one change, taken back", "1", rolled_back)


def _whole(host: Host) -> Iterator[Operation]:
    images: list[bytes] = []
    yield Operation("export the state", "n", lambda: images.append(host.store.image()))
    yield Operation("import the state", "n", lambda: host.store.configure_from(images[-1]))
    yield Operation("keep a snapshot and drop it", "n", _snapshot)


def _snapshot() -> None:
    lab.snapshot()


def _remove(host: Host, switches: list[str]) -> None:
    for switch in switches:
        host.switches.destroy(switch)
