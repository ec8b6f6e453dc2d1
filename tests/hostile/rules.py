"""What trusts its caller, by rule: told from headers, signatures and memory, never by a function's name.

The sentences stand on docs/behaviour.md, word for word; a test holds the two together.
"""

from __future__ import annotations

import ctypes
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any

from hostile.calls import COUNTERS, HANDLES, RECORDS, SIZES, Argument, Call
from hostile.memory import Ledger, number
from support.memory import usable_size

TRUSTED: dict[str, str] = {
    "freed": "A record that was freed, and what lay in it.",
    "block": "What is given back to be freed: a block of its own, once.",
    "short": "A record: as long as its type, and behind it as many entries as its counts say.",
    "source": "What an array or a record member is copied from: as many bytes as the member has.",
    "index": "An index of which the header says that it is not checked.",
    "mac": "The bytes of a MAC address: six at least.",
    "length": "A length or count that goes with a pointer or with bytes: not more than there is.",
    "cell": "A pointer that an output is written through: eight bytes.",
    "entry": "An entry of a list of options: it lies in the list, and ends within it.",
    "walk": "A step from entry to entry: not beyond the last.",
    "text": "A pointer to characters: a zero byte ends them.",
}
"""Each rule's name, and its sentence."""

ENTRY_ROOM = 136
COUNTS = ("length", "inputLength", "count", "numRanges")
"""Parameters that tell how much is behind a pointer of the same call."""
_TEXTS = ("text", "text_pointer", "exactText", "flag")
"""Kinds of arguments whose characters are read, and may be given as a pointer to them."""
_CELL = 8
_MAC = 6
_ADDRESS = 16
"""Bytes of the longest group address."""


@dataclass(slots=True)
class Given:
    """An argument of a call: the value, what it is in words, and what is known of it."""

    value: Any
    label: str
    refused: bool = False
    """Whether the module is sure to refuse it."""
    address: int = 0
    """Of what a pointer leads to."""
    stale: bool = False
    """Whether that was freed; something else may be there by now."""
    number: int = 0
    """That reaches the function."""


def _need(call: Call, argument: Argument, ledger: Ledger, given: Given) -> str | None:
    """The rule that a pointer to memory is claimed by."""
    extent = ledger.extent(given.address)
    if extent == 0 or given.stale:
        return "freed"
    if argument.target not in SIZES:
        return "cell" if extent < _CELL else None
    if extent < SIZES[argument.target]:
        return "short"
    if call.family in ("reader", "writer"):
        return _unended(call, given.address)
    if argument.target == "VSRuntimeOptionHeader":
        return "entry" if extent < ENTRY_ROOM or not ledger.in_room(given.address) else None
    wanted = SIZES[argument.target]
    for offset, width, swapped, entry in COUNTERS.get(argument.target, ()):
        wanted += number(given.address + offset, width, swapped=swapped) * entry
    if wanted > extent:
        return "short"
    return _owned(argument, given.address)


def _unended(call: Call, address: int) -> str | None:
    """Whether the text that a reader gives has no end: what a record owns are bytes, and need not be one."""
    if call.family == "writer" or call.member is None or call.member.kind != "owned_text":
        return None
    text = number(address + call.member.offset, 8)
    return "text" if text and b"\0" not in ctypes.string_at(text, usable_size(text)) else None


def _owned(argument: Argument, address: int) -> str | None:
    """Whether the text that a record owns is as long as the record says."""
    record = RECORDS.get(argument.target)
    member = next((m for m in record.members if m.kind == "owned_text"), None) if record else None
    if record is None or member is None:
        return None
    text = number(address + member.offset, 8)
    length = next(m for m in record.members if m.kind == "s32")
    return "length" if text and number(address + length.offset, 4) > usable_size(text) else None


def _index(call: Call, argument: Argument, ledger: Ledger, given: Sequence[Given]) -> str | None:
    index = next(g.number for g, a in zip(given, call.arguments, strict=True) if a.kind in ("s32", "size"))
    this = call.arguments[0].target
    if index < 0:
        return None if call.gives == this else "index"
    step = max(SIZES.get(call.gives, 0), SIZES.get(argument.target, 0) if call.gives == this else 0, 8)
    if "Array" in this:
        step = SIZES[this]
    return "index" if SIZES[this] + (index + 1) * step > ledger.extent(given[0].address) else None


def _lengths(call: Call, ledger: Ledger, given: Sequence[Given]) -> str | None:
    """Counts against what is behind the pointers and bytes of the same call."""
    counts = [g.number for g, a in zip(given, call.arguments, strict=True) if a.name in COUNTS and a.width == 0]
    most = max(counts, default=0)
    if most <= 0:
        return None
    for one, argument in zip(given, call.arguments, strict=True):
        if one.address and argument.kind == "pointer":
            size = SIZES.get(argument.target, 2 if "16" in argument.target else 1)
            if argument.target not in HANDLES and most * size > ledger.extent(one.address):
                return "length"
            if one.stale:
                return "freed"
        if argument.kind == "propertyValue" and isinstance(one.value, (bytes, str)) and most > len(one.value):
            return "length"
    return None


def _texts(call: Call, given: Sequence[Given], ledger: Ledger) -> str | None:
    """The rule that a pointer to characters is claimed by: those are read before what stands behind them is refused."""
    for one, argument in zip(given, call.arguments, strict=True):
        if one.refused:
            return None
        if argument.kind in _TEXTS and one.address and (one.stale or not ledger.in_room(one.address)):
            return "freed" if one.stale else "text"
    return None


def claim(call: Call, given: Sequence[Given], ledger: Ledger) -> str | None:
    """The rule by which a call trusts its caller, and these arguments do not deserve it; none for a call to make."""
    if not call.takes(len(given)) or call.family in ("registration", "helper"):
        return None
    given = given[: len(call.arguments)]  # the rest a variadic function ignores
    if claimed := _texts(call, given, ledger):
        return claimed
    if any(one.refused for one in given):
        return None
    for place, (one, argument) in enumerate(zip(given, call.arguments, strict=True)):
        if argument.kind == "mac" and len(one.value) < _MAC:
            return "mac"
        if argument.kind == "bytesIn" and isinstance(one.value, bytes) and len(one.value) < _ADDRESS:
            return "length"
        if not one.address or argument.kind in _TEXTS or argument.target in HANDLES:
            continue
        if call.releases:
            freed = one.stale or not ledger.extent(one.address)
            return "freed" if freed else None if ledger.is_block(one.address) else "block"
        if argument.kind in ("source", "record"):
            if one.stale:
                return "freed"
            if ledger.extent(one.address) < (argument.width or SIZES.get(argument.target, 0)):
                return "source"
            continue
        stored = call.family == "writer" and place == 1
        if argument.target == "void" or stored:
            continue
        if claimed := _need(call, argument, ledger, one):
            return claimed
    if call.trusts_index and given[0].address and (claimed := _index(call, call.arguments[0], ledger, given)):
        return claimed
    return _lengths(call, ledger, given)
