"""What can be wrong with a scenario, and where."""

from __future__ import annotations

from dataclasses import dataclass


@dataclass(frozen=True)
class Problem:
    """One thing that is wrong."""

    place: str
    """The path of the offending key, such as `switch[0].uplink[1].nic`; items are counted from 0."""
    message: str

    def __str__(self) -> str:
        return f"{self.place}: {self.message}" if self.place else self.message


class ScenarioError(Exception):
    """A scenario cannot be loaded; the host is as it was."""

    def __init__(self, source: str, problems: list[Problem]) -> None:
        self.source = source
        """Where the scenario came from."""
        self.problems = problems
        """Everything that is wrong, as far as it could be told; never empty."""
        super().__init__(source, problems)

    def __str__(self) -> str:
        lines = [f"{self.source}: {problem}" for problem in self.problems[:_SHOWN]]
        if len(self.problems) > _SHOWN:
            lines.append(f"{self.source}: and {len(self.problems) - _SHOWN} more")
        return "\n".join(lines)


_SHOWN = 20


class Place:
    """A place in a scenario, where problems are noted."""

    def __init__(self, problems: list[Problem], path: str = "") -> None:
        self._problems = problems
        self.path = path

    def key(self, name: str) -> Place:
        """The place of a key of a table."""
        return Place(self._problems, f"{self.path}.{name}" if self.path else name)

    def item(self, index: int) -> Place:
        """The place of an item of a list."""
        return Place(self._problems, f"{self.path}[{index}]")

    def wrong(self, message: str) -> None:
        """Notes that something is wrong here."""
        self._problems.append(Problem(self.path, message))
