"""Calls that may be refused."""

from __future__ import annotations

import sys
from collections.abc import Callable
from typing import Any

if hasattr(sys, "gettotalrefcount"):
    # The debug build of the interpreter ends the process where others raise SystemError.
    from release_call import call as _call
else:

    def _call(function: Callable[..., Any], arguments: tuple[Any, ...]) -> Any:
        return function(*arguments)


def attempt(function: Callable[..., Any], *arguments: Any) -> None:
    """Calls a function of the module; what it raises is dropped if the module may raise it."""
    try:
        _call(function, arguments)
    except (TypeError, ValueError, OverflowError, SystemError, NotImplementedError):
        pass
