"""Calls of everything that the objects of a host and the laboratory can do, at random and by seed.

What there is to do is found by looking: every public name of the package, every member of what those names give.
"""

from __future__ import annotations

import contextlib
import copy
import enum
import gc
import importlib
import inspect
import operator
import random
from collections.abc import Iterator
from typing import Any

from hostile.values import RAISED, Reentrant, simple
from libkestrel import Host, lab
from libkestrel.host._objects import Setting
from libkestrel.records import Record
from support.bench import BENCH, GROUP, PORTS, STATION, UPLINK_PORTS

MODULES = [importlib.import_module(f"libkestrel{name}") for name in ("", ".host", ".errors", ".lab", ".lab.scenario")]
NAMES: list[Any] = [
    value
    for module in MODULES
    for name in module.__all__
    if not inspect.ismodule(value := getattr(module, name)) and value is not Record
]
"""Everything that the package publishes beside its modules."""

EXPECTED: tuple[Any, ...] = (
    *RAISED,
    *(name for name in NAMES if isinstance(name, type) and issubclass(name, Exception)),
)

FITTING: tuple[Any, ...] = (
    "dvs-prod",
    "dvs-storage",
    "DvsPortset-0",
    BENCH,
    *PORTS,
    *UPLINK_PORTS,
    "10",
    "11",
    "vmnic0",
    "vmnic9",
    "lag1",
    "com.example.feature",
    GROUP,
    STATION,
    1500,
    9000,
    128,
)
"""Values that calls take somewhere, so that others get further."""

OPERATIONS: tuple[tuple[Any, int], ...] = (
    (repr, 1),
    (str, 1),
    (len, 1),
    (bool, 1),
    (hash, 1),
    (list, 1),
    (dict, 1),
    (copy.copy, 1),
    (operator.eq, 2),
    (operator.contains, 2),
    (operator.getitem, 2),
    (operator.setitem, 3),
    (operator.delitem, 2),
    (operator.length_hint, 1),
)
"""What any object can be asked for, and of how many."""

MOST = 3_000
"""Calls after which the host begins anew: what was made meanwhile slows all others down."""


def ours(value: Any) -> bool:
    package = type(value).__module__.partition(".")[0]
    return package in ("libkestrel", "_libkestrel", "contextlib") and not isinstance(value, enum.Enum)


def parameters(function: Any) -> int:
    """How many arguments a function asks for; some number where it does not tell."""
    try:
        found = inspect.signature(function).parameters.values()
    except (TypeError, ValueError):
        return 1
    return len([p for p in found if p.default is p.empty and p.kind in (p.POSITIONAL_ONLY, p.POSITIONAL_OR_KEYWORD)])


class Caller:
    """Makes calls at random over a pool of objects that earlier calls gave."""

    def __init__(self, seed: int, pool: list[Any] | None = None) -> None:
        self.random = random.Random(seed)
        self.pool: list[Any] = [Host()] if pool is None else pool
        self.calls = self.raised = 0
        self.did: set[str] = set()

    def pick(self) -> Any:
        names = not self.pool or self.random.random() < 0.2
        return self.random.choice(NAMES if names else self.pool)

    def keep(self, value: Any) -> None:
        """Keeps what can be asked for more, in the place of something else."""
        if not ours(value):
            return
        if len(self.pool) < 400:
            self.pool.append(value)
        else:
            self.pool[self.random.randrange(len(self.pool))] = value

    def value(self, depth: int = 0) -> Any:
        roll = self.random.random()
        if roll < 0.35:
            return self.random.choice(FITTING)
        if roll < 0.5:
            return self.pick()
        if roll < 0.58 and depth < 2:
            return [self.value(depth + 1) for _ in range(self.random.randrange(4))]
        if roll < 0.64:
            target = self.pick()
            deeds: list[Any] = [
                gc.collect,
                self.pool.clear,
                lambda: target.release(),
                lambda: Host().switches.destroy(BENCH),
            ]
            return Reentrant(self.random.choice(deeds))
        return simple(self.random)

    def call(self, function: Any) -> None:
        count = max(0, parameters(function) + self.random.choice((0, 0, 0, 0, 1, -1)))
        given: dict[str, Any] = {}
        if self.random.random() < 0.2:
            with contextlib.suppress(TypeError, ValueError):
                found = inspect.signature(function).parameters.values()
                optional = [p.name for p in found if p.default is not p.empty or p.kind == p.KEYWORD_ONLY]
                given = {name: self.value() for name in optional if self.random.random() < 0.5}
        result = function(*[self.value() for _ in range(count)], **given)
        if isinstance(result, (list, tuple, Iterator)):
            for element, _ in zip(result, range(4), strict=False):
                self.keep(element)
        self.keep(result)

    def step(self) -> None:
        target = self.pick()
        deed = self.random.random()
        if deed < 0.25:
            operation, count = self.random.choice(OPERATIONS)
            self.keep(operation(target, *[self.value() for _ in range(count - 1)]))
            return
        if deed < 0.4 and callable(target):
            self.call(target)
            return
        names = [name for name in dir(target) if not name.startswith("_")]
        names += ["__enter__", "__exit__", "__iter__", "__next__", "x"]
        name = self.random.choice(names)
        member = inspect.getattr_static(type(target), name, None)
        self.did.add(f"{type(target).__name__}.{name}")
        if not callable(member) and deed > 0.85 and not inspect.isclass(target) and not inspect.isfunction(target):
            if isinstance(member, Setting) and self.random.random() < 0.2:
                delattr(target, name)
            else:
                setattr(target, name, self.value())
            return
        found = getattr(target, name)
        if callable(found):
            self.call(found)
        else:
            self.keep(found)

    def attempt(self) -> str:
        """A step, and how it ended."""
        self.calls += 1
        try:
            self.step()
        except EXPECTED as error:
            self.raised += 1
            return type(error).__name__
        except RuntimeError as error:
            self.raised += 1
            if not any(known in str(error) for known in KNOWN):
                raise
            return type(error).__name__
        return "ok"

    def begin_anew(self) -> None:
        """A host with a sample in it, and nothing else. What ends with its object, ends before."""
        self.pool.clear()
        gc.collect()
        lab.disarm_all()
        lab.reset(sample=True)
        self.pool[:] = [Host()]

    def check(self) -> None:
        """The host answers, and takes something new."""
        host = Host()
        if host.switches["dvs-prod"].name != "dvs-prod" or "dvs-storage" not in host.switches:
            raise AssertionError("the host answers wrongly")

    def run(self, calls: int, *, fresh: bool = True) -> None:
        for number in range(calls):
            if fresh and number % MOST == 0:
                self.begin_anew()
            self.attempt()


KNOWN = ("changed size", "generator", "plan")
"""What RuntimeError may tell of: what is changed while it is gone through, and what is done once only."""
