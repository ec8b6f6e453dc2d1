"""Steps of plans that the host's objects have no verb for: what the laboratory alone can do."""

from __future__ import annotations

from collections.abc import Sequence
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from libkestrel.host import Change, Switch


def add_lag(switch: Switch, name: str, uplinks: Sequence[str], number: int | None) -> Change:
    """Makes a group of uplink ports; under the lowest free number where none is given."""
    from libkestrel import lab
    from libkestrel.host import ABSENT, Change

    lab.require()

    def make() -> None:
        used = {lag.id for lag in switch.lags}
        free = next(n for n in range(1, len(used) + 2) if n not in used)
        lab.add_lag(switch.name, name, uplinks, number=free if number is None else number)

    return Change(switch.place, f"add group {name}", ABSENT, tuple(uplinks), make)


def remove_lag(switch: Switch, name: str) -> Change:
    """Ends a group."""
    from libkestrel import lab
    from libkestrel.host import ABSENT, PRESENT, Change

    lab.require()
    return Change(switch.place, f"remove group {name}", PRESENT, ABSENT, lambda: lab.remove_lag(switch.name, name))


def plug(nic: str) -> Change:
    """Plugs a NIC in."""
    from libkestrel import lab
    from libkestrel.host import ABSENT, PRESENT, Change

    def make() -> None:
        lab.plug(nic)

    return Change("host", f"plug NIC {nic}", ABSENT, PRESENT, make)
