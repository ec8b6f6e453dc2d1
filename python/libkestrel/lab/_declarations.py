"""What the laboratory's library declares. Generated from its header by tools/headers/laboratory.py."""

from __future__ import annotations

from ctypes import (
    POINTER,
    Array,
    Structure,
    c_char,
    c_char_p,
    c_int,
    c_size_t,
    c_uint8,
    c_uint16,
    c_uint32,
    c_uint64,
    c_void_p,
)
from typing import Any

VERSION = 1
LACP_NONE = 0
LACP_PASSIVE = 1
LACP_ACTIVE = 2
EMPTY = 0
SAMPLE = 1
STATUS = 0
ABORT = 1
DISK_FULL = 2


class Nic(Structure):
    """A NIC and what it is connected to."""

    name: bytes
    state: int
    speed: int
    duplex: int
    numa_node: int
    mac: Array[c_uint8]
    is_enabled: bytes
    has_driver: bytes
    is_blocked: bytes
    hears_beacons: bytes
    error_percent: int
    partner_system: Array[c_uint8]
    partner_system_priority: int
    partner_key: int
    partner_mode: int
    partner_collects: bytes
    partner_distributes: bytes
    partner_short_timeout: bytes

    _fields_ = [
        ("name", c_char * 32),
        ("state", c_int),
        ("speed", c_uint32),
        ("duplex", c_int),
        ("numa_node", c_uint32),
        ("mac", c_uint8 * 6),
        ("is_enabled", c_char),
        ("has_driver", c_char),
        ("is_blocked", c_char),
        ("hears_beacons", c_char),
        ("error_percent", c_uint8),
        ("partner_system", c_uint8 * 6),
        ("partner_system_priority", c_uint16),
        ("partner_key", c_uint16),
        ("partner_mode", c_int),
        ("partner_collects", c_char),
        ("partner_distributes", c_char),
        ("partner_short_timeout", c_char),
    ]


class Client(Structure):
    """Who is plugged into a port."""

    port: bytes
    port_id: int
    type: int
    name: bytes
    mac: Array[c_uint8]
    used_mac: Array[c_uint8]
    numa_node: int

    _fields_ = [
        ("port", c_char * 48),
        ("port_id", c_uint32),
        ("type", c_int),
        ("name", c_char * 1040),
        ("mac", c_uint8 * 6),
        ("used_mac", c_uint8 * 6),
        ("numa_node", c_uint32),
    ]


class Frame(Structure):
    """A frame that passed a port."""

    time: int
    offset: int
    length: int
    is_incoming: bytes

    _fields_ = [
        ("time", c_uint64),
        ("offset", c_uint64),
        ("length", c_uint64),
        ("is_incoming", c_char),
    ]


class Fault(Structure):
    """A fault. Of those that one call would meet the one armed first is met; the others count the call too."""

    id: int
    at: int
    times: int
    effect: int
    status: int
    function: bytes
    exception: bytes
    message: bytes

    _fields_ = [
        ("id", c_uint64),
        ("at", c_uint64),
        ("times", c_uint64),
        ("effect", c_int),
        ("status", c_int),
        ("function", c_char * 64),
        ("exception", c_char * 64),
        ("message", c_char * 512),
    ]


FUNCTIONS: dict[str, tuple[Any, tuple[Any, ...]]] = {
    "kestrel_lab_version": (c_uint32, ()),
    "kestrel_lab_message": (c_char_p, ()),
    "kestrel_lab_free": (None, (c_void_p,)),
    "kestrel_lab_now": (c_int, (POINTER(c_uint64),)),
    "kestrel_lab_advance": (c_int, (c_uint64,)),
    "kestrel_lab_plug_nic": (c_int, (POINTER(Nic),)),
    "kestrel_lab_pull_nic": (c_int, (c_char_p,)),
    "kestrel_lab_set_nic": (c_int, (POINTER(Nic),)),
    "kestrel_lab_list_nics": (c_int, (POINTER(POINTER(Nic)), POINTER(c_size_t))),
    "kestrel_lab_connect_nic": (c_int, (c_char_p, c_char_p, c_char_p)),
    "kestrel_lab_add_lag": (c_int, (c_char_p, c_uint32, c_char_p, POINTER(c_char_p), c_size_t)),
    "kestrel_lab_remove_lag": (c_int, (c_char_p, c_char_p)),
    "kestrel_lab_connect": (c_int, (c_char_p, c_char_p, c_int, c_char_p, POINTER(c_uint8))),
    "kestrel_lab_disconnect": (c_int, (c_char_p, c_char_p)),
    "kestrel_lab_set_adapter": (c_int, (c_char_p, c_char_p, POINTER(c_uint8), c_uint32, POINTER(c_uint8), c_size_t)),
    "kestrel_lab_set_client_node": (c_int, (c_char_p, c_char_p, c_uint32)),
    "kestrel_lab_list_clients": (c_int, (c_char_p, POINTER(POINTER(Client)), POINTER(c_size_t))),
    "kestrel_lab_send": (c_int, (c_char_p, c_char_p, POINTER(c_uint8), c_size_t)),
    "kestrel_lab_play": (c_int, (c_char_p, c_char_p, c_char_p, c_char, POINTER(c_uint64))),
    "kestrel_lab_start_capture": (c_int, (c_char_p, c_char_p, c_char)),
    "kestrel_lab_stop_capture": (c_int, (c_char_p, c_char_p)),
    "kestrel_lab_take_frames": (
        c_int,
        (c_char_p, c_char_p, POINTER(POINTER(Frame)), POINTER(c_size_t), POINTER(c_size_t), POINTER(c_uint64)),
    ),
    "kestrel_lab_write_pcap": (c_int, (c_char_p, POINTER(Frame), c_size_t, c_size_t)),
    "kestrel_lab_reset": (c_int, (c_int,)),
    "kestrel_lab_restart": (c_int, ()),
    "kestrel_lab_snapshot": (c_int, (POINTER(c_uint64),)),
    "kestrel_lab_restore": (c_int, (c_uint64,)),
    "kestrel_lab_drop_snapshot": (c_int, (c_uint64,)),
    "kestrel_lab_begin": (c_int, ()),
    "kestrel_lab_commit": (c_int, ()),
    "kestrel_lab_rollback": (c_int, ()),
    "kestrel_lab_host_path": (c_int, (c_char_p, c_size_t)),
    "kestrel_lab_arm_fault": (c_int, (POINTER(Fault), POINTER(c_uint64))),
    "kestrel_lab_disarm_fault": (c_int, (c_uint64,)),
    "kestrel_lab_disarm_faults": (c_int, ()),
    "kestrel_lab_list_faults": (c_int, (POINTER(POINTER(Fault)), POINTER(c_size_t))),
    "kestrel_lab_count_calls": (c_int, (c_char,)),
    "kestrel_lab_calls_of": (c_int, (c_char_p, POINTER(c_uint64))),
}
"""The result and the parameters of each function."""
