"""Plans: changes of several objects that are collected, shown, and made together."""

from __future__ import annotations

from collections.abc import Hashable, Iterator
from contextlib import AbstractContextManager
from types import TracebackType
from typing import Any, Self

from libkestrel._kestrel_error import KestrelError
from libkestrel.host._objects import Change, Undo, unknown
from libkestrel.host.host import HostObjects


class PlanError(Exception):
    """A step of a plan failed, and the steps before it have been taken back.

    The step's own error is `error`, and the cause of this one.
    """

    def __init__(self, step: int, change: Change, error: Exception, leftover: tuple[Change, ...] = ()) -> None:
        super().__init__(step, change, error, leftover)
        self.step = step
        """The number of the step, from 1."""
        self.change = change
        """What the step was to change."""
        self.error = error
        """Why it failed."""
        self.leftover = leftover
        """Changes that could not be taken back; none as a rule."""

    def __str__(self) -> str:
        told = isinstance(self.error, KestrelError) and self.error.object == self.change.object
        where = "" if told else f"{self.change.object}: {self.change.operation}: "
        left = f"; {len(self.leftover)} changes could not be taken back" if self.leftover else ""
        return f"step {self.step}: {where}{self.error}{left}"


def transaction_of_host() -> AbstractContextManager[Any] | None:
    """A transaction of the embedded host; None on a platform that has none."""
    from libkestrel import lab

    try:
        lab.require()
    except lab.NotEmbeddedError:
        return None
    return lab.transaction()


_OF_HOST: Any = object()


class Plan(HostObjects):
    """Changes that are collected: the plan has the verbs of the host, which note here what they are to change.

        with host.plan() as plan:
            switch = plan.switch("dvs-prod")
            switch.mtu = 9000
            switch.port("10").ensure_vlan(AccessVlan(200))
        plan.show()
        plan.apply()

    Reading from the plan's objects gives what the host has, with what the plan is to change. `ensure_*` verbs note
    nothing where nothing is to change. At the end of the `with` block the plan is closed: it takes no more changes.
    """

    def __init__(self) -> None:
        super().__init__(self, "host")
        self._steps: list[Change] = []
        self._expected: dict[Hashable, object] = {}
        self._closed = False
        self._applied = False

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None
    ) -> None:
        self._closed = True

    # ---- Collecting ----

    def take(self, change: Change) -> None:
        """Notes a change."""
        if self._closed:
            raise RuntimeError("the plan is closed and takes no more changes")
        self._steps.append(change)
        if change.topic is not None:
            self._expected[change.topic] = change.after

    def expected(self, topic: Hashable) -> object:
        """The value that the noted changes leave behind."""
        return self._expected.get(topic, unknown())

    # ---- Showing ----

    def __len__(self) -> int:
        return len(self._steps)

    def __bool__(self) -> bool:
        return bool(self._steps)

    def __iter__(self) -> Iterator[Change]:
        return iter(self._steps)

    def __str__(self) -> str:
        return "\n".join(str(change) for change in self._steps) or "nothing to change"

    def show(self) -> str:
        """The changes for people: a line for each, with the value before and afterwards."""
        return str(self)

    # ---- Making ----

    def apply(self, *, transaction: AbstractContextManager[Any] | None = _OF_HOST) -> int:
        """Makes all changes, in order; returns how many.

        On the embedded host they are one transaction: written down in one go, or not at all. Otherwise, and with
        `transaction=None`, a step that fails is followed by the inverse changes of those before it; a plan with a step
        that has no inverse is then refused before anything is changed. Another context manager is entered in place of
        the host's transaction; leaving it with an exception must bring everything back.

        PlanError tells which step failed. RuntimeError for a plan that was applied before.
        """
        if self._applied:
            raise RuntimeError("the plan has been applied")
        self._closed = True
        around = transaction_of_host() if transaction is _OF_HOST else transaction
        if around is None:
            self._apply_by_steps()
        else:
            with around:
                self._make_all()
        self._applied = True
        return len(self._steps)

    def _make_all(self) -> None:
        for number, change in enumerate(self._steps, start=1):
            try:
                change.make()
            except Exception as error:
                raise PlanError(number, change, error) from error

    def _apply_by_steps(self) -> None:
        for number, change in enumerate(self._steps, start=1):
            if change.prepare_undo is None:
                error = NotImplementedError("it cannot be taken back, and the plan is not made in a transaction")
                raise PlanError(number, change, error) from error
        done: list[tuple[Change, Undo]] = []
        for number, change in enumerate(self._steps, start=1):
            assert change.prepare_undo is not None
            try:
                undo = change.prepare_undo()
                change.make()
            except Exception as error:
                raise PlanError(number, change, error, self._take_back(done)) from error
            done.append((change, undo))

    @staticmethod
    def _take_back(done: list[tuple[Change, Undo]]) -> tuple[Change, ...]:
        """Takes changes back, last to first; those that could not be."""
        leftover = []
        for change, undo in reversed(done):
            try:
                undo()
            except Exception:
                leftover.append(change)
        return tuple(leftover)
