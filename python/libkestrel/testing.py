"""Fixtures for pytest: an embedded host for each test, with scenarios, faults and a virtual clock.

The plugin is there as soon as the package is installed. A test that asks for `kestrel_host` has the host to itself:
it begins as the sample host, whatever tests before it did, and what it leaves behind is undone.

    def test_my_script(kestrel_host):
        kestrel_host.load("two switches.toml")
        with kestrel_host.fault("VSDVS_SetMTU", status=_libkestrel.ZEL_BUSY):
            ...
        kestrel_host.clock.advance(300)
        assert kestrel_host.switch("dvs-prod").mtu == 1500

Tests are skipped where the process runs on another platform than the embedded host.
"""

from __future__ import annotations

from collections.abc import Iterator
from contextlib import AbstractContextManager
from os import PathLike
from typing import TYPE_CHECKING, Any

import pytest

if TYPE_CHECKING:
    from libkestrel.host import Host, RuntimeOptions, Store, Switch, Switches
    from libkestrel.lab import Calls, Clock

__all__ = ["EmbeddedHost", "kestrel_host"]


class EmbeddedHost:
    """The embedded host of a test: the host's objects, and what the laboratory does to them from outside."""

    def __init__(self) -> None:
        # Imported where they are used: pytest loads plugins into every session, ones about other things too.
        from libkestrel import Host, lab

        self.host: Host = Host()
        """The host as objects."""
        self.lab = lab
        """The laboratory, `libkestrel.lab`: NICs, clients, frames, captures."""

    @property
    def switches(self) -> Switches:
        """The switches by their aliases."""
        return self.host.switches

    def switch(self, name: str) -> Switch:
        """A switch by its alias or its portset. NotFound where there is none."""
        return self.host.switch(name)

    @property
    def options(self) -> RuntimeOptions:
        """The runtime options by their names."""
        return self.host.options

    @property
    def store(self) -> Store:
        """The state store."""
        return self.host.store

    @property
    def clock(self) -> Clock:
        """The host's clock, which stands still until `advance(seconds)`."""
        return self.lab.clock

    def empty(self) -> None:
        """Makes the host an empty one."""
        self.lab.reset()

    def load(self, scenario: str | PathLike[str]) -> None:
        """Makes the host what a scenario file says (docs/scenarios.md). ScenarioError tells what is wrong with one."""
        from libkestrel.lab.scenario import load_scenario

        load_scenario(scenario)

    def load_text(self, scenario: str) -> None:
        """Makes the host what a scenario says that is given as text."""
        from libkestrel.lab.scenario import load_scenario_text

        load_scenario_text(scenario)

    def fault(self, function: str, **effect: Any) -> AbstractContextManager[int]:
        """Makes calls of a platform function fail within a `with` block; arguments as for `libkestrel.lab.fault`."""
        return self.lab.fault(function, **effect)

    def counted_calls(self) -> AbstractContextManager[Calls]:
        """Counts calls of the platform's functions within a `with` block: calls["VSZEL_GetVSInfo"]."""
        return self.lab.counted_calls()


@pytest.fixture
def kestrel_host() -> Iterator[EmbeddedHost]:
    """An embedded host of the test's own, which begins as the sample host; what was there before comes back."""
    from libkestrel import lab

    try:
        lab.require()
    except lab.NotEmbeddedError as error:
        pytest.skip(str(error))
    with lab.scratch():
        lab.disarm_all()
        lab.reset(sample=True)
        try:
            yield EmbeddedHost()
        finally:
            lab.disarm_all()
