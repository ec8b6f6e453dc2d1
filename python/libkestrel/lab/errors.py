"""How the laboratory says no."""

from __future__ import annotations

from typing import Any

from libkestrel._kestrel_error import sentence
from libkestrel.errors import KestrelError, status_name


class LabError(KestrelError):
    """The host refused what was asked of it from outside; nothing has changed. `operation` is what was asked."""

    detail: str
    """More than the status says, or nothing."""

    def __init__(self, what: str, status: int, detail: str = "") -> None:
        super().__init__(status, status_name(status), sentence(status), what)
        self.detail = detail

    def __str__(self) -> str:
        return f"{super().__str__()}: {self.detail}" if self.detail else super().__str__()

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self.operation, self.status, self.detail)


class NotEmbeddedError(RuntimeError):
    """The platform of this process is not the embedded host, so that there is no laboratory."""
