"""Cost by size, and the exponent of its growth."""

from __future__ import annotations

import json
import math
from collections.abc import Mapping
from dataclasses import asdict, dataclass
from pathlib import Path

_TOLERANCE = 0.2
"""How much an exponent may be above that of the output: caches that become too small, and noise."""
_DECADES = 2
"""How many of the last powers of ten the exponent is fitted to: before, what is the same on every host decides."""


@dataclass(frozen=True)
class Curve:
    """An operation on hosts of growing size."""

    subject: str
    """What grows: "ports", "macs" or "commands"."""
    name: str
    where: str
    """The host, or the peer."""
    output: str
    """How the output grows: "n" with the host, "1" not at all."""
    points: dict[int, float]
    """Nanoseconds of all the work, by size: of the processor, but for the peers."""

    @property
    def exponent(self) -> float:
        """The least-squares slope of the cost over the last sizes, both as logarithms."""
        largest = max(self.points)
        taken = [(math.log(s), math.log(t)) for s, t in self.points.items() if s * 10**_DECADES >= largest]
        if len(taken) < 2:
            return math.nan
        middle_x = sum(x for x, _ in taken) / len(taken)
        middle_y = sum(y for _, y in taken) / len(taken)
        over = sum((x - middle_x) * (y - middle_y) for x, y in taken)
        return over / sum((x - middle_x) ** 2 for x, _ in taken)

    @property
    def outgrows(self) -> bool:
        """Whether it grows faster than its output."""
        return self.exponent > (1.0 if self.output == "n" else 0.0) + _TOLERANCE


def time_text(nanoseconds: float) -> str:
    """A time with three digits that count."""
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return (
                f"{nanoseconds / size:.3g} {unit}" if nanoseconds < 1000 * size else f"{nanoseconds / size:,.0f} {unit}"
            )
    return f"{nanoseconds:.0f} ns"


def show(curves: list[Curve]) -> None:
    """Print a line for each."""
    for curve in curves:
        points = "  ".join(f"{size:,}: {time_text(taken)}" for size, taken in curve.points.items())
        mark = "  OUTGROWS ITS OUTPUT" if curve.outgrows else ""
        print(
            f"{curve.name} ({curve.where})\n    exponent {curve.exponent:.2f}, output {curve.output}{mark}   {points}"
        )


def write(path: Path, machine: Mapping[str, str], curves: list[Curve]) -> None:
    """Write the curves of one run down."""
    path.parent.mkdir(parents=True, exist_ok=True)
    data = {"machine": dict(machine), "curves": [asdict(curve) for curve in curves]}
    path.write_text(json.dumps(data, indent=2, ensure_ascii=False) + "\n")


def read(path: Path) -> tuple[dict[str, str], list[Curve]]:
    """Read what `write` has written."""
    data = json.loads(path.read_text())
    found = [
        Curve(**curve | {"points": {int(size): taken for size, taken in curve["points"].items()}})
        for curve in data["curves"]
    ]
    return data["machine"], found
