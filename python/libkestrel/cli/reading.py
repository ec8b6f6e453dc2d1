"""Reading what may not be there."""

from __future__ import annotations

from collections.abc import Callable, Iterable
from typing import TYPE_CHECKING, TypeVar

if TYPE_CHECKING:
    from libkestrel.host import Host, Switch

T = TypeVar("T")


def or_none(read: Callable[[], T]) -> T | None:
    """What is read, or None where the host has none."""
    from libkestrel._kestrel_error import KestrelError
    from libkestrel.host._objects import is_missing

    try:
        return read()
    except KestrelError as error:
        if not is_missing(error):
            raise
        return None


def chosen(host: Host, switch: str | None) -> Iterable[Switch]:
    """One switch by its name, or all of them."""
    return host.switches.values() if switch is None else (host.switch(switch),)
