"""What every answer in JSON is wrapped in."""

from __future__ import annotations

VERSION = 1
"""The version of the answers in JSON. It goes up when a member changes its meaning or goes; new ones may come."""


def envelope(kind: str, data: object) -> dict[str, object]:
    """An answer as it is written in JSON."""
    return {"schema_version": VERSION, "kind": kind, "data": data}
