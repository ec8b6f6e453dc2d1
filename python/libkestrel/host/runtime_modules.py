"""The runtime-module operations: the enhanced datapath of portsets, modules and ports."""

from __future__ import annotations

from collections.abc import Iterable
from dataclasses import dataclass

import _libkestrel as flat

from libkestrel import records
from libkestrel.enums import RTMIOCtlMode
from libkestrel.host._objects import ABSENT, PRESENT, HostObject, int32, name_of


@dataclass(frozen=True)
class DatapathPortset:
    """A portset and its datapath modes."""

    portset: str
    """Its name, at most 127 bytes."""
    switch_mode: int = 0
    """Mode of the enhanced datapath on the switch."""
    portset_mode: int = 0
    """Mode of the enhanced datapath on the portset."""


@dataclass(frozen=True)
class DatapathModule:
    """A module that the enhanced datapath is to serve."""

    id: int
    """Its number."""
    from_module: bool = False
    """Whether the request comes from the module."""


def _mode(active: bool) -> RTMIOCtlMode:
    return RTMIOCtlMode.RTM_IOCCMD_ENS_ACTIVATE if active else RTMIOCtlMode.RTM_IOCCMD_ENS_DEACTIVATE


class HostRuntimeModules(HostObject):
    """The enhanced datapath of the host."""

    def set_datapath(
        self,
        portsets: Iterable[DatapathPortset],
        *,
        active: bool,
        most_outage: int = 0,
        trvv: bool = False,
    ) -> None:
        """Activates or deactivates the enhanced datapath on portsets; `most_outage` is in milliseconds."""
        wanted = tuple(portsets)
        entries = [
            records.RTM_Portset(
                psName=name_of(p.portset, "portset"), ensSwitchMode=p.switch_mode, ensPsMode=p.portset_mode
            )
            for p in wanted
        ]
        query = records.RTMIOCtlQuery(rtmPs=entries, isTRVV=trvv, maxAllowedOutage=most_outage)
        operation = "activate enhanced datapath" if active else "deactivate enhanced datapath"
        self._change(
            operation,
            lambda: self._check(flat.VSZEL_RTMOp(query, _mode(active)), operation),
            before=ABSENT if active else wanted,
            after=wanted if active else ABSENT,
        )

    def set_module_datapath(self, portset: str, modules: Iterable[DatapathModule], *, active: bool) -> None:
        """Activates or deactivates the enhanced datapath for modules of a portset."""
        wanted = tuple(modules)
        entries = [records.RTM_ModInfo(isFromMod=m.from_module, ModID=m.id) for m in wanted]
        query = records.RTMModIOCtlQuery(psName=name_of(portset, "portset"), rtmModId=entries)
        operation = f"{'activate' if active else 'deactivate'} enhanced datapath for modules of portset {portset}"
        self._change(
            operation,
            lambda: self._check(flat.VSZEL_RTMModOp(query, _mode(active)), operation),
            before=ABSENT if active else wanted,
            after=wanted if active else ABSENT,
        )

    def set_world_of_port(self, world: int, port: int, *, associated: bool) -> None:
        """Associates a port, by its number, with a world, or dissociates it."""
        int32(world, "world")
        operation = f"{'associate' if associated else 'dissociate'} port {port} and world {world}"

        def turn(on: bool) -> None:
            self._check(flat.VSZEL_RTMPortOp(world, port, int(on)), operation)

        self._change(
            operation,
            lambda: turn(associated),
            before=ABSENT if associated else PRESENT,
            after=PRESENT if associated else ABSENT,
            undo=lambda: lambda: turn(not associated),
        )
