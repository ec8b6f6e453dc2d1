"""Rehearses a script against a host of its own: `pytest examples/test_rehearsal.py`.

The package brings the plugin that `kestrel_host` comes from.
"""

from __future__ import annotations

from typing import TYPE_CHECKING

import _libkestrel

from libkestrel import Host, errors

if TYPE_CHECKING:
    from libkestrel.testing import EmbeddedHost


def raise_mtu(mtu: int, attempts: int = 3) -> list[str]:
    """The script: raises the MTU of all switches, and tries again where one is busy. Gives the switches changed."""
    changed = []
    for switch in Host().switches.values():
        for attempt in range(attempts):
            try:
                if switch.ensure_mtu(mtu):
                    changed.append(switch.name)
                break
            except errors.Busy:
                if attempt == attempts - 1:
                    raise
    return changed


def test_only_what_is_lower_is_changed(kestrel_host: EmbeddedHost) -> None:
    """One of the sample host's switches has that MTU already."""
    assert raise_mtu(9000) == ["dvs-prod"]
    assert kestrel_host.switch("dvs-prod").mtu == 9000
    assert raise_mtu(9000) == []


def test_a_busy_switch_is_tried_again(kestrel_host: EmbeddedHost) -> None:
    """The first two calls find it busy."""
    with kestrel_host.fault("VSDVS_SetMTU", status=_libkestrel.ZEL_BUSY, times=2):
        assert raise_mtu(9000) == ["dvs-prod"]


def test_a_hosts_scenario(kestrel_host: EmbeddedHost) -> None:
    """Hosts are written down in TOML, or made up in a test; time passes when it is told to."""
    kestrel_host.load_text('[[switch]]\nname = "dvs-lab"\n')
    kestrel_host.clock.advance(300)
    assert raise_mtu(1600) == ["dvs-lab"]
