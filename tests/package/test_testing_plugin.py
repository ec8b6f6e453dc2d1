"""The plugin for pytest: a host of its own for each test, in whatever order they run."""

from __future__ import annotations

import importlib
from typing import TYPE_CHECKING, Any

import _libkestrel
import pytest

if TYPE_CHECKING:
    from libkestrel.testing import EmbeddedHost

SCENARIO = """
name = "small"

[[switch]]
name = "dvs-small"
"""


@pytest.mark.parametrize("turn", [1, 2])
def test_each_test_has_the_sample_host_to_itself(kestrel_host: EmbeddedHost, turn: int) -> None:
    assert list(kestrel_host.switches) == ["dvs-prod", "dvs-storage"], turn
    assert kestrel_host.switch("dvs-prod").mtu == 1500
    kestrel_host.switch("dvs-prod").mtu = 9000
    kestrel_host.switches.create("another", "another-id")
    kestrel_host.lab.arm("VSDVS_SetMTU", status=_libkestrel.ZEL_BUSY, times=kestrel_host.lab.ALWAYS)


def test_time_stands_still_until_it_is_advanced(kestrel_host: EmbeddedHost) -> None:
    learned = len(kestrel_host.switch("dvs-prod").mac_table(_libkestrel.VS_MAC_ADDR_TYPE_LEARNED))
    before = kestrel_host.clock.now()
    kestrel_host.clock.advance(10_000)
    assert kestrel_host.clock.now() == before + 10_000
    assert len(kestrel_host.switch("dvs-prod").mac_table(_libkestrel.VS_MAC_ADDR_TYPE_LEARNED)) < learned


def test_calls_fail_as_they_are_told(kestrel_host: EmbeddedHost) -> None:
    from libkestrel import errors

    switch = kestrel_host.switch("dvs-prod")
    with kestrel_host.fault("VSDVS_SetMTU", status=_libkestrel.ZEL_TIMEOUT), pytest.raises(errors.Timeout):
        switch.mtu = 9000
    with kestrel_host.fault("VSDVS_GetMTU", raises=OSError("host gone")), pytest.raises(OSError, match="host gone"):
        switch.mtu
    with kestrel_host.counted_calls() as calls:
        switch.mtu = 9000
    assert calls["VSDVS_SetMTU"] == 1


def test_hosts_can_be_empty_or_as_a_scenario_says(kestrel_host: EmbeddedHost, tmp_path: Any) -> None:
    kestrel_host.empty()
    assert list(kestrel_host.switches) == []
    file = tmp_path / "small.toml"
    file.write_text(SCENARIO)
    for load, source in ((kestrel_host.load, file), (kestrel_host.load_text, SCENARIO)):
        kestrel_host.empty()
        load(source)
        assert list(kestrel_host.switches) == ["dvs-small"]


def test_the_plugin_can_be_found() -> None:
    plugin = importlib.import_module("libkestrel.testing")
    assert plugin.__doc__
    assert plugin.kestrel_host.__doc__
