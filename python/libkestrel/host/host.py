"""The host: where all objects are found."""

from __future__ import annotations

from typing import TYPE_CHECKING

import _libkestrel as flat

from libkestrel.host._objects import AtOnce
from libkestrel.host.mac_learning import HostMacLearning
from libkestrel.host.options import RuntimeOptions
from libkestrel.host.runtime_modules import HostRuntimeModules
from libkestrel.host.store import Store
from libkestrel.host.switches import Switch, Switches

if TYPE_CHECKING:
    from libkestrel.host.plan import Plan


class HostObjects(HostMacLearning, HostRuntimeModules):
    """What a host and a plan have in common: the way to the objects."""

    @property
    def switches(self) -> Switches:
        """The switches by their aliases."""
        return Switches(self._changes)

    def switch(self, name: str) -> Switch:
        """A switch by its alias or its portset. NotFound where there is none."""
        found = self.switches
        return found[name] if name in found or name not in found.portsets() else found.of_portset(name)

    @property
    def options(self) -> RuntimeOptions:
        """The runtime options by their names."""
        return RuntimeOptions(self._changes)

    @property
    def store(self) -> Store:
        """The state store."""
        return Store(self._changes)


class Host(HostObjects):
    """The hypervisor host of this process, and everything on it.

    Objects hold names and no state: whatever is read is read when it is asked for. What the host refuses is raised as
    an error of `libkestrel.errors`; values that no call can carry raise TypeError, ValueError and OverflowError.
    Nothing is printed.
    """

    def __init__(self) -> None:
        super().__init__(AtOnce(), "host")

    def plan(self) -> Plan:
        """A plan, which collects changes in a `with` block to show and make them together."""
        from libkestrel.host.plan import Plan

        return Plan()

    def panic(self, text: str) -> None:
        """Reports a fatal condition in the platform's words; the process goes on. ValueError for texts with "%"."""
        if "%" in text or "\0" in text:
            raise ValueError(f"a text without percent signs and zeros is needed: {text!r}")
        flat.Panic(text)
