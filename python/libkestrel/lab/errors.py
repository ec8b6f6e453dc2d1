"""How the laboratory says no."""

from __future__ import annotations

import _libkestrel


class LabError(Exception):
    """The host refused what was asked of it; nothing has changed."""

    def __init__(self, what: str, status: int, detail: str = "") -> None:
        self.what = what
        """What was asked."""
        self.status = status
        """The platform's status, one of `_libkestrel.ZEL_*`."""
        self.detail = detail
        """More than the status says, or nothing."""
        super().__init__(what, status, detail)

    @property
    def sentence(self) -> str:
        """The status in words."""
        return str(_libkestrel.ZEL_ReturnStatusToString(self.status))

    def __str__(self) -> str:
        detail = f" ({self.detail})" if self.detail else ""
        return f"{self.what}: {self.sentence}{detail} [{status_name(self.status)}]"


class NotEmbeddedError(RuntimeError):
    """The platform of this process is not the embedded host, so that there is no laboratory."""


def status_name(status: int) -> str:
    """The name of a status, such as ZEL_BUSY; its number where it has none."""
    return _NAMES.get(status, f"0x{status & 0xFFFFFFFF:08x}")


_FIRST, _LAST = _libkestrel.ZEL_FAILURE, _libkestrel.ZEL_LAST_ERR - 1
_NAMES: dict[int, str] = {
    value: name for name, value in vars(_libkestrel).items() if isinstance(value, int) and _FIRST <= value <= _LAST
}
