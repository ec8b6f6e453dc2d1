"""How many points were hit: a row a subject, shown when the tests are over."""

from __future__ import annotations

from dataclasses import dataclass, field


@dataclass
class Row:
    """What came of a subject."""

    works: int = 0
    points: int = 0
    """Opportunities for a fault."""
    hit: int = 0
    """Faults that were met."""
    refused: int = 0
    """Those after which the work said that it could not be done; the others did without, or began after it."""


@dataclass
class Table:
    """The rows of a run of the tests."""

    rows: dict[str, Row] = field(default_factory=dict)

    def add(self, subject: str, *, points: int, hit: int, refused: int) -> None:
        """Counts a work to its subject."""
        row = self.rows.setdefault(subject, Row())
        row.works += 1
        row.points += points
        row.hit += hit
        row.refused += refused

    def lines(self) -> list[str]:
        """The table as text."""
        if not self.rows:
            return []
        heading = f"{'':44} {'works':>8} {'points':>9} {'faults met':>11} {'refused':>9}"
        rows = [*self.rows.items(), ("all", self._sum())]
        return [heading, *(f"{name:44} {r.works:8} {r.points:9} {r.hit:11} {r.refused:9}" for name, r in rows)]

    def _sum(self) -> Row:
        every = self.rows.values()
        names = ("works", "points", "hit", "refused")
        return Row(*(sum(getattr(row, name) for row in every) for name in names))


TABLE = Table()
"""The one of this run."""
