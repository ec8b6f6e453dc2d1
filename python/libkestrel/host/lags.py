"""Link aggregation groups (IEEE 802.1AX)."""

from __future__ import annotations

from dataclasses import dataclass

import _libkestrel as flat

from libkestrel.enums import zel_LinkState
from libkestrel.host._objects import HostObject


@dataclass(frozen=True)
class Lag:
    """A link aggregation group as it is at the moment."""

    id: int
    """Its identifier in the switch."""
    name: str
    """Its name."""
    up: bool
    """Whether the group carries traffic."""
    uplinks: tuple[str, ...]
    """The NICs of the group."""
    uplinks_up: tuple[str, ...]
    """Those of them whose links are up."""


class SwitchLags(HostObject):
    """The link aggregation groups of a switch."""

    name: str

    @property
    def lags(self) -> tuple[Lag, ...]:
        """The link aggregation groups, ordered by identifier."""
        result = flat.VSZEL_GetLAGTable(self.name)
        with self._kept(result, "list link aggregation groups", flat.VSZEL_FreeMemory) as table:
            return tuple(
                Lag(
                    id=lag.id,
                    name=lag.name,
                    up=lag.state == zel_LinkState.ZEL_LINK_STATE_UP,
                    uplinks=tuple(lag.uplinkNames),
                    uplinks_up=tuple(n for i, n in enumerate(lag.uplinkNames) if lag.uplinkLinkupBitmap >> i & 1),
                )
                for lag in table
            )
