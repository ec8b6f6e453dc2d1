"""The NICs of the host and what they are connected to."""

from __future__ import annotations

import ctypes
from dataclasses import dataclass, field, replace
from typing import Any

import _libkestrel as k

from libkestrel.lab import _declarations, _library, frames
from libkestrel.lab.errors import LabError

_DUPLEX = {"full": k.ZEL_LINK_DUPLEX_FULL, "half": k.ZEL_LINK_DUPLEX_HALF, "auto": k.ZEL_LINK_DUPLEX_AUTO}
_MODES = {
    "none": _declarations.LACP_NONE,
    "passive": _declarations.LACP_PASSIVE,
    "active": _declarations.LACP_ACTIVE,
}


@dataclass(frozen=True)
class LacpPartner:
    """The far end of a link as LACP meets it."""

    mode: str = "active"
    """ "active": it begins; "passive": it answers; "none": it is silent."""
    system: str = "02:4b:ff:00:00:01"
    """Groups form of links to one system."""
    system_priority: int = 32768
    """0 to 65535; the lower one decides."""
    key: int = 1
    """0 to 65535: links of one key can form a group."""
    collects: bool = True
    """Whether it takes in what comes."""
    distributes: bool = True
    """Whether it sends."""
    short_timeout: bool = False
    """Whether it wants to hear from the host every second and not every 30."""


@dataclass(frozen=True)
class Nic:
    """A NIC and what it is connected to."""

    name: str
    """At most 31 bytes."""
    up: bool = True
    """Whether there is a link, as far as the cable goes."""
    speed: int = 10000
    """In Mbit/s."""
    duplex: str = "full"
    """ "full", "half" or "auto"."""
    mac: str | None = None
    """None only for a NIC that is still to be plugged: it gets an address that is made from its name."""
    enabled: bool = True
    """False while the link is taken down by the platform's own function for that."""
    driver: bool = True
    """Whether its driver is there."""
    error_percent: int = 0
    """The share of its frames that are damaged."""
    blocked: bool = False
    """Whether the far end blocks its port: the link is there and carries nothing."""
    beacons: bool = True
    """Whether beacons of the other NICs reach it."""
    numa_node: int = 0
    """The NUMA node that it is near to."""
    partner: LacpPartner = field(default_factory=LacpPartner)
    """The far end of its link."""


def _record(nic: Nic) -> _declarations.Nic:
    """As the library takes it. ValueError for what does not fit."""
    far = nic.partner
    for words, word in ((_DUPLEX, nic.duplex), (_MODES, far.mode)):
        if word not in words:
            raise ValueError(f"{word!r} is none of {', '.join(words)}")
    width = _declarations.Nic.name.size  # type: ignore[attr-defined]  # of the field
    limits = {
        "speed": (nic.speed, 2**32 - 1),
        "error_percent": (nic.error_percent, 100),
        "numa_node": (nic.numa_node, 2**31 - 1),
        "system_priority": (far.system_priority, 0xFFFF),
        "key": (far.key, 0xFFFF),
    }
    for what, (value, most) in limits.items():
        if not 0 <= value <= most:
            raise ValueError(f"{what} is {value}, not from 0 to {most}")
    return _declarations.Nic(
        name=_library.field(nic.name, "the NIC's name", width),
        state=k.ZEL_LINK_STATE_UP if nic.up else k.ZEL_LINK_STATE_DOWN,
        speed=nic.speed,
        duplex=_DUPLEX[nic.duplex],
        numa_node=nic.numa_node,
        mac=(ctypes.c_uint8 * 6)(*(frames.mac(nic.mac) if nic.mac else bytes(6))),
        is_enabled=bytes([nic.enabled]),
        has_driver=bytes([nic.driver]),
        is_blocked=bytes([nic.blocked]),
        hears_beacons=bytes([nic.beacons]),
        error_percent=nic.error_percent,
        partner_system=(ctypes.c_uint8 * 6)(*frames.mac(far.system)),
        partner_system_priority=far.system_priority,
        partner_key=far.key,
        partner_mode=_MODES[far.mode],
        partner_collects=bytes([far.collects]),
        partner_distributes=bytes([far.distributes]),
        partner_short_timeout=bytes([far.short_timeout]),
    )


def _nic(record: _declarations.Nic) -> Nic:
    duplex = {value: word for word, value in _DUPLEX.items()}
    modes = {value: word for word, value in _MODES.items()}
    return Nic(
        name=record.name.decode(),
        up=record.state == k.ZEL_LINK_STATE_UP,
        speed=record.speed,
        duplex=duplex[record.duplex],
        mac=frames.mac_text(bytes(record.mac)),
        enabled=record.is_enabled != b"\0",
        driver=record.has_driver != b"\0",
        error_percent=record.error_percent,
        blocked=record.is_blocked != b"\0",
        beacons=record.hears_beacons != b"\0",
        numa_node=record.numa_node,
        partner=LacpPartner(
            mode=modes[record.partner_mode],
            system=frames.mac_text(bytes(record.partner_system)),
            system_priority=record.partner_system_priority,
            key=record.partner_key,
            collects=record.partner_collects != b"\0",
            distributes=record.partner_distributes != b"\0",
            short_timeout=record.partner_short_timeout != b"\0",
        ),
    )


def plug(name: str, **details: Any) -> Nic:
    """Plugs a NIC into the host; `details` are those of `Nic`. Gives it as it came out."""
    _library.call(f"NIC {name}", "plug_nic", ctypes.byref(_record(Nic(name, **details))))
    return nic(name)


def pull(name: str) -> None:
    """Takes a NIC away, out of the uplink that it may be in."""
    _library.call(f"NIC {name}", "pull_nic", name)


def change_nic(name: str, **changes: Any) -> Nic:
    """Changes some details of a NIC, as they are named in `Nic`: `change_nic("vmnic0", up=False)`."""
    changed = replace(nic(name), **changes)
    _library.call(f"NIC {name}", "set_nic", ctypes.byref(_record(changed)))
    return changed


def nics() -> list[Nic]:
    """The NICs of the host, in the order of their names."""
    return _library.array("list of NICs", "list_nics", _declarations.Nic, _nic)


def nic(name: str) -> Nic:
    """The NIC of a name. LabError with ZEL_NOT_FOUND where there is none."""
    for each in nics():
        if each.name == name:
            return each
    raise LabError(f"NIC {name}", k.ZEL_NOT_FOUND)
