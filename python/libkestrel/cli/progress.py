"""A line on a terminal for what takes longer than a second."""

from __future__ import annotations

import sys
import threading
import time
from collections.abc import Iterator
from contextlib import contextmanager

_PATIENCE = 1.0
"""Seconds until the line appears."""
_EVERY = 0.25
"""Seconds between one state of the line and the next."""


@contextmanager
def shown(what: str) -> Iterator[None]:
    """Tells on standard error, where that is a terminal, that `what` is going on and for how long."""
    if not sys.stderr.isatty():
        yield
        return
    over = threading.Event()
    teller = threading.Thread(target=_tell, args=(what, over), daemon=True)
    teller.start()
    try:
        yield
    finally:
        over.set()
        teller.join()


def _tell(what: str, over: threading.Event) -> None:
    start = time.monotonic()
    if over.wait(_PATIENCE):
        return
    while True:
        sys.stderr.write(f"\r\x1b[K{what}: {time.monotonic() - start:.0f} s")
        sys.stderr.flush()
        if over.wait(_EVERY):
            break
    sys.stderr.write("\r\x1b[K")
    sys.stderr.flush()
