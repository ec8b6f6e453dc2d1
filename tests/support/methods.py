"""Methods of the records as flat functions, and arguments for them."""

from __future__ import annotations

import re
from typing import Any

import _libkestrel

from support import memory
from support.functions import HEADERS, make

OPTIONS: Any = _libkestrel.new_VSRuntimeOptions(64)
memory.write(OPTIONS, bytes(60), 4)
ENTRY: Any = _libkestrel.VSRuntimeOptions_get_first_option(OPTIONS)
ARGUMENTS: dict[str, tuple[Any, ...]] = {
    "VSMACEntry_set_mac_address": (b"\0" * 6,),
    "VSStaticLEEntry_set_mac_address": (b"\0" * 6,),
    "VSMACEntries_set_mac_address": (0, b"\0" * 6),
    "DVMirrorEntity_set_entity": ("text",),
    "VSPromiscSessionActiveDsts___setitem__": (0, 0),
    "VSPortVlanPolicy_get_vid_range": (-1,),  # lies in the fixed part
    "VSRuntimeOptions_get_next_option": (ENTRY,),
    "VSRuntimeOptions_add_int_option": (None, "name", 0, 0),
    "VSRuntimeOptions_add_str_option": (None, "name", 0, "text"),
}
"""What methods take besides the record, where that is not an index and null."""


def arity_message(name: str) -> str:
    """What a function says when it is called without arguments."""
    try:
        getattr(_libkestrel, name)()
    except TypeError as error:
        return str(error)
    raise AssertionError(f"{name} takes no argument")


RECORDS = [r.name for r in HEADERS.records]
METHODS = [
    name
    for name in dir(_libkestrel)
    if name.startswith(tuple(f"{r}_" for r in RECORDS)) and not re.search(r"_(get|set|swigregister)$", name)
]


def plain_method_arguments(name: str) -> tuple[Any, ...]:
    """A zeroed record, and what the method takes besides."""
    record = next(r for r in sorted(RECORDS, key=len, reverse=True) if name.startswith(f"{r}_"))
    target = ENTRY
    if record != "VSRuntimeOptionHeader":
        target = make(record)
        memory.write(target, bytes(HEADERS.record(record).size))
    count = int(re.findall(r"takes exactly (\d+) argument", arity_message(name))[0])
    return target, *ARGUMENTS.get(name, (0, None)[: count - 1])
