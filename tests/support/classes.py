"""The least that a proxy layer does: a class for each record, so that owning pointer objects free their records."""

from __future__ import annotations

from typing import Any

import _libkestrel

from headers.model import Headers


class Proxy:
    """What the module makes of a pointer whose record has a class: an instance that carries it as `this`."""

    this: Any

    def __int__(self) -> int:
        return int(self.this)

    def own(self) -> bool:
        return bool(self.this.own())

    def acquire(self) -> None:
        self.this.acquire()


def register(headers: Headers) -> dict[str, type[Proxy]]:
    """Registers a bare class for every record and returns the classes by name."""
    classes = {}
    for record in headers.records:
        destroy = getattr(_libkestrel, f"delete_{record.name}")
        classes[record.name] = type(record.name, (Proxy,), {"__swig_destroy__": destroy})
        getattr(_libkestrel, f"{record.name}_swigregister")(classes[record.name])
    return classes
