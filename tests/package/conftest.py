"""What the tests of the package share."""

from __future__ import annotations

from collections.abc import Iterator

import _libkestrel
import pytest

from libkestrel import Host, host
from support.bench import BENCH, BENCH_ID, PORTS, UPLINK_PORTS


@pytest.fixture
def bench() -> Iterator[host.Switch]:
    """A switch of the test's own with two ports and two uplink ports, gone afterwards; nothing else stays changed."""
    found = Host()
    switch = found.switches.create(BENCH, BENCH_ID, max_ports=8, mtu=1600)
    for port in PORTS:
        switch.ports.add(port, 7)
    for uplink in UPLINK_PORTS:
        switch.uplink_ports.add(uplink)
    yield switch
    found.switches.ensure_destroyed(BENCH)
    assert _libkestrel.DVSLoadConfig() == _libkestrel.ZEL_OK
