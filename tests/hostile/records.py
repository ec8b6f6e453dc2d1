"""Calls of everything that records and their classes can do, in whatever order, at random and by seed."""

from __future__ import annotations

import gc
import random
from typing import Any

import _libkestrel

from hostile.values import RAISED, Reentrant, simple
from libkestrel.records import Array, Record, Table
from support.record_classes import CLASSES


class Generator:
    """Makes calls at random over a pool of records that live and die meanwhile."""

    def __init__(self, seed: int) -> None:
        self.random = random.Random(seed)
        self.pool: list[Any] = [cls() for cls in CLASSES]
        self.calls = 0

    def pick(self) -> Any:
        return self.random.choice(self.pool)

    def value(self, depth: int = 0) -> Any:
        roll = self.random.random()
        if roll < 0.25:
            return self.pick()
        if roll < 0.35 and depth < 2:
            return [self.value(depth + 1) for _ in range(self.random.randrange(5))]
        if roll < 0.4 and depth < 2:
            return self.keywords(self.random.choice(CLASSES), depth + 1)
        if roll < 0.45:
            target = self.pick()
            return Reentrant(self.random.choice([target.release, gc.collect, lambda: self.pool.clear(), target.copy]))
        if roll < 0.5 and depth < 2:
            cls = self.random.choice(CLASSES)
            return getattr(self.pick(), self.random.choice(["this", "owner", "__dict__", "copy"]), cls)
        if roll < 0.52:
            return self.random.choice(CLASSES)
        return simple(self.random)

    def keywords(self, cls: Any, depth: int = 0) -> dict[str, Any]:
        names = [f.__name__ for f in cls.__fields__] + ["nothing", "this"]
        chosen = self.random.sample(names, self.random.randrange(min(4, len(names)) + 1))
        return {name: self.value(depth) for name in chosen}

    def step(self) -> None:
        if len(self.pool) < 60:
            self.pool += [cls() for cls in self.random.sample(CLASSES, 60)]
        record = self.pick()
        cls = self.random.choice(CLASSES)
        field = self.random.choice(type(record).__fields__ if isinstance(record, Record) else cls.__fields__)
        deed = self.random.randrange(22)
        if deed < 5:
            setattr(record, field.__name__, self.value())
        elif deed < 8:
            self.keep(getattr(record, field.__name__))
        elif deed == 8:
            self.keep(cls(*[self.value() for _ in range(self.random.randrange(3))], **self.keywords(cls)))
        elif deed == 9:
            self.keep(cls(self.random.choice([0, 1, 2, 7, -1, 2**40, 2**62])))
        elif deed == 10:
            self.keep(cls.from_bytes(self.random.choice([bytes(record), self.value(), self.random.randbytes(300)])))
        elif deed == 11:
            self.keep(cls.from_pointer(self.value()))
        elif deed == 12:
            self.random.choice([record.release, record.copy, lambda: record.release_with(self.value())])()
        elif deed == 13:
            field.__get__(self.value(), self.value())
        elif deed == 14:
            field.__set__(self.value(), self.value())
        elif deed == 15:
            repr(record)
            _ = record == self.value()
        elif deed == 16:
            self.sequence(self.random.choice([record, getattr(record, field.__name__)]))
        elif deed == 17:
            self.keep(self.random.choice([memoryview(record), record.to_dict(), type(record).from_dict(self.value())]))
        elif deed == 18:
            change: Any = self.random.choice([setattr, delattr])
            change(record, self.random.choice(["this", "owned", "x"]), *[self.value()])
        elif deed == 19:
            self.flat(record)
        elif deed == 20:
            record.__class__ = cls
        else:
            blank = cls.__new__(cls)
            use: Any = self.random.choice([repr, bytes, len, memoryview, lambda r: r.this, lambda r: r.copy()])
            use(blank)

    def flat(self, record: Any) -> None:
        """Functions of the flat module that read or check before they act."""
        name = type(record).__name__
        field = self.random.choice(type(record).__fields__)
        function = getattr(_libkestrel, f"{name}_{field.__name__}_get", None)
        if function is not None and not record.released:
            self.keep(function(record))
        _libkestrel.VSInfo_mtu_get(record)

    def sequence(self, value: Any) -> None:
        if not isinstance(value, (Array, Table)):
            return
        index: Any = self.random.choice([0, 1, -1, 5, 2**70, "x", None, slice(0, 2), slice(None, None, -1)])
        deed = self.random.randrange(6)
        if deed == 0:
            self.keep(value[index])
        elif deed == 1:
            value[index] = self.value()
        elif deed == 2:
            list(value)
        elif deed == 3:
            list(value.rows())
        elif deed == 4:
            value.columns()
        else:
            memoryview(value).tobytes()

    def keep(self, value: Any) -> None:
        if isinstance(value, Record):
            self.pool[self.random.randrange(len(self.pool))] = value

    def attempt(self) -> str:
        """A step, and how it ended."""
        self.calls += 1
        try:
            self.step()
        except RAISED as error:
            return type(error).__name__
        except RuntimeError as error:
            if "changed size" not in str(error) and len(str(error)) > 40:
                raise
            return type(error).__name__
        return "ok"

    def begin_anew(self) -> None:
        """Other records."""
        self.pool[:] = [cls() for cls in CLASSES]

    def run(self, calls: int) -> None:
        for _ in range(calls):
            self.attempt()
