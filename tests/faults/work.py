"""A piece of work that meets faults."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

Call = tuple[Callable[..., Any], tuple[Any, ...]]
"""What is called, with its arguments."""


def nothing(*_arguments: Any) -> None:
    """Does nothing."""


@dataclass(frozen=True)
class Work:
    """A call that is made again and again, each time with arguments of its own."""

    name: str
    prepare: Callable[[], Call]
    """Makes ready what the call needs. Meets no fault, nor does what follows."""
    told: Callable[[Any], object] = repr
    """What a result tells, which is the same each time that all is well."""
    let_go: Callable[[Any], object] = nothing
    """Gives back what `prepare` and the call with this result have made; None where it gave none."""
    state: Callable[[], object] = nothing
    """What there is to be seen of whatever the call may change."""
    restore: Callable[[], object] = nothing
    """Makes that what it was before the call."""
    or_nothing: bool = False
    """Whether None is how it says that there is no memory."""
    dies_with_the_process: bool = False
    """Whether it can be done only once in the life of a process, so that each try has one of its own."""
    recovers: bool = False
    """Whether memory always comes back after the one allocation that failed."""
    in_python: bool = False
    """Whether most of it is the interpreter's own doing, which keeps objects for ever where memory fails in it, may not
    say so, and never comes to its end where none comes back: one allocation fails, and leaks are not looked for."""
