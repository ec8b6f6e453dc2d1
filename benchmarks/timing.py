"""Times statements side by side.

All contenders of an operation take turns in short rounds, so that whatever else the machine does hits them
alike. The minimum of the rounds is the cost without disturbance; the median tells how much there was.
"""

from __future__ import annotations

import statistics
import time
import timeit
from collections.abc import Sequence
from dataclasses import dataclass

from benchmarks.calls import Contender, values

_REPEATED = 20
"""How often the statement stands in the timed loop: makes the loop's own cost small."""
_LOOPS = 25


@dataclass(frozen=True)
class Spread:
    """What rounds of one thing took, in nanoseconds each."""

    minimum: float
    median: float


def spread(samples: Sequence[float]) -> Spread:
    """Take minimum and median of one or more samples."""
    return Spread(min(samples), statistics.median(samples))


def interleave(contenders: list[Contender], rounds: int) -> dict[str, dict[str, Spread]]:
    """Measure nanoseconds a call, by operation and contender's title."""
    timers: dict[str, dict[str, timeit.Timer]] = {}
    for contender in contenders:
        for operation, statement in contender.statements.items():
            timers.setdefault(operation, {})[contender.title] = _timer(contender, statement)
    samples: dict[str, dict[str, list[float]]] = {
        operation: {title: [] for title in row} for operation, row in timers.items()
    }
    for _ in range(rounds):
        for operation, row in timers.items():
            for title, timer in row.items():
                samples[operation][title].append(timer.timeit(_LOOPS) / (_LOOPS * _REPEATED))
    return {operation: {title: spread(taken) for title, taken in row.items()} for operation, row in samples.items()}


def _timer(contender: Contender, statement: str) -> timeit.Timer:
    """Make a timer whose statement finds its names as local variables, as in a function."""
    given = values(contender)
    setup = "\n".join(f"{name} = given[{name!r}]" for name in given)
    statements = "\n".join([statement] * _REPEATED)
    return timeit.Timer(statements, setup, timer=time.perf_counter_ns, globals={"given": given})
