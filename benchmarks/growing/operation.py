"""What is measured on hosts of growing size."""

from __future__ import annotations

import resource
import time
from collections.abc import Callable
from dataclasses import dataclass

_BUDGET = 0.3
"""Seconds after which an operation is not repeated any more."""
_MOST = 7


@dataclass(frozen=True)
class Operation:
    """Something that is done on a host of some size."""

    name: str
    output: str
    """How what it gives or changes grows: "n" with the host, "1" not at all."""
    work: Callable[[], object]
    before: Callable[[], object] | None = None
    """What makes it ready, not counted."""
    once: bool = False
    """Whether it cannot be done again."""


def _now() -> float:
    """Nanoseconds of the processor, those of processes that have ended among them: the machine may be busy, and how
    long a disk takes to synchronise does not depend on how much there is.
    """
    children = resource.getrusage(resource.RUSAGE_CHILDREN)
    return time.process_time_ns() + (children.ru_utime + children.ru_stime) * 1e9


def measure(operation: Operation) -> float:
    """The least nanoseconds of the processor that doing all of the work took."""
    least = float("inf")
    spent = 0.0
    for _ in range(1 if operation.once else _MOST):
        if operation.before:
            operation.before()
        start = _now()
        operation.work()
        taken = _now() - start
        least = min(least, taken)
        spent += taken / 1e9
        if spent > _BUDGET:
            break
    return least
