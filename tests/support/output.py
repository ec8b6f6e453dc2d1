"""What the module prints: it writes through the C library, past `sys.stdout`."""

from __future__ import annotations

import ctypes

import pytest


def printed(capfd: pytest.CaptureFixture[str]) -> str:
    """What standard output received since the last look; nothing may have gone to standard error."""
    ctypes.CDLL(None).fflush(None)
    captured = capfd.readouterr()
    assert captured.err == ""
    return captured.out
