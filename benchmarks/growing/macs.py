"""Operations on MAC tables that get longer and longer."""

from __future__ import annotations

import collections
import importlib
from collections.abc import Iterator
from typing import Any

from benchmarks.growing.operation import Operation

from libkestrel import Host, lab
from libkestrel.host import Port, Switch
from libkestrel.host.mac_learning import SwitchLearning
from libkestrel.records import MacAddress, VSMACEntry

_ENTRIES_BY_PORT = 4000
_SWITCH = "s"


def operations(count: int) -> Iterator[Operation]:
    """The operations on a switch that knows `count` addresses."""
    host = Host()

    def make_switch() -> None:
        lab.reset()
        made = host.switches.create(_SWITCH, "id", max_ports=1000)
        made.mac_learning = SwitchLearning(aging_time=1_000_000, limit=2 * count + 10)
        for first in range(0, count, _ENTRIES_BY_PORT):
            made.ports.add(f"p{first}")
        made.ports.add("last")

    def enter() -> None:
        flat: Any = importlib.import_module("_libkestrel")
        with lab.transaction():
            for i in range(count):
                port = f"p{i - i % _ENTRIES_BY_PORT}"
                entry = VSMACEntry(macAddress=_address(i), vid=i % 4000, macAddrType=flat.VS_MAC_ADDR_TYPE_USER)
                if flat.VSZEL_SetPortMACTable(_SWITCH, port, entry) != flat.ZEL_OK:
                    raise RuntimeError(f"entry {i} is refused")

    yield Operation("enter addresses, one commit", "n", enter, before=make_switch)
    switch = host.switch(_SWITCH)
    yield from _reading(switch)
    yield from _changing(switch.port("last"))
    yield Operation("remove the switch with its addresses", "n", lambda: host.switches.destroy(_SWITCH), once=True)


def _address(number: int) -> MacAddress:
    return MacAddress((0x02 << 40 | number * 2654435761 % 2**32).to_bytes(6, "big"))


def _reading(switch: Switch) -> Iterator[Operation]:
    numpy: Any = importlib.import_module("numpy")

    def read() -> None:
        switch.mac_table().release()

    table: Any = switch.mac_table()
    yield Operation("read the table", "n", read)
    yield Operation("all rows of the table", "n", lambda: collections.deque(table.rows(), 0))
    yield Operation("a column as a list", "n", lambda: list(table.columns()["portID"]))
    yield Operation("a column, copied by numpy", "n", lambda: numpy.array(table.columns()["portID"]))
    yield Operation("all columns as views", "1", lambda: [numpy.asarray(c) for c in table.columns().values()])
    yield Operation("one row", "1", lambda: table.rows()[len(table) // 2])
    yield Operation("what the table knows of learning", "1", lambda: switch.mac_learning_state())


def _changing(port: Port) -> Iterator[Operation]:
    here = MacAddress("02:99:00:00:00:01")

    def change() -> None:
        port.ensure_mac(here, 7)
        port.ensure_no_mac(here, 7)

    yield Operation("a port's part of the table, one entry", "1", lambda: port.mac_table().release())
    yield Operation("enter and remove one address, two commits", "1", change)
