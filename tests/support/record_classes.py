"""The record classes of the package, tables among them."""

from __future__ import annotations

from typing import Any

from libkestrel import records
from libkestrel.records import Record, Table

_PUBLIC: list[Any] = [getattr(records, name) for name in records.__all__]
CLASSES: list[Any] = [c for c in _PUBLIC if isinstance(c, type) and issubclass(c, Record) and c not in (Record, Table)]
