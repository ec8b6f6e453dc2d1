"""What the record classes do."""

from __future__ import annotations

import copy
from collections.abc import Callable, Iterator
from operator import attrgetter
from typing import Any

from faults.work import Work
from libkestrel.records import Array, MacAddress, Table
from support.record_classes import CLASSES

ROWS = 3


def made(cls: Any) -> Any:
    """A record of a class; of one with rows, with some."""
    # The number of the one is one of bytes; flags of the other say whether it has any.
    if not issubclass(cls, Table) or cls.__name__ in ("VSRuntimeOptions", "zel_GREHdr"):
        return cls()
    return cls(ROWS)


OPERATIONS: dict[str, Callable[[Any], Any]] = {
    "shown": repr,
    "copied": lambda record: record.copy(),
    "copied by copy.copy": copy.copy,
    "as bytes": bytes,
    "as memoryview": lambda record: memoryview(record).nbytes,
    "compared": lambda record: record == record.copy(),
    "as dict": lambda record: record.to_dict(),
    "from dict": lambda record: type(record).from_dict(record.to_dict()),
    "from bytes": lambda record: type(record).from_bytes(bytes(record)),
    "from pointer": lambda record: type(record).from_pointer(record.this),
    "released": lambda record: record.copy().release(),
    "held": lambda record: record.__enter__(),
}
"""What is done to any record."""

OF_ROWS: dict[str, Callable[[Any], Any]] = {
    "listed": list,
    "read in rows": lambda table: [repr(row) for row in table.rows()],
    "read in columns": lambda table: table.columns(),
    "first": lambda table: table[0],
    "sliced": lambda table: table[::-1],
    "counted": len,
    "first replaced": lambda table: table.__setitem__(0, table[1]),
}
"""What is done to tables and arrays."""

OF_ADDRESSES: dict[str, Callable[[], Any]] = {
    "of text": lambda: MacAddress("02:00:00:00:00:01"),
    "of bytes": lambda: MacAddress(b"\2\0\0\0\0\1"),
    "of int": lambda: MacAddress(5),
    "shown": lambda: repr(MacAddress(5)) + str(MacAddress(5)),
    "in a set": lambda: {MacAddress(5), MacAddress(6)},
    "compared": lambda: MacAddress(5) < MacAddress(6),
    "packed": lambda: MacAddress(5).packed,
}


def _told(result: Any) -> str:
    if isinstance(result, (bytes, int, str, tuple)) or result is None:
        return repr(result)
    return type(result).__name__


def classes() -> Iterator[Work]:
    """Every class, made and worked with as a whole."""
    for cls in CLASSES:
        yield Work(f"{cls.__name__} made", lambda cls=cls: (made, (cls,)), told=_told)  # type: ignore[misc]
        for name, operation in OPERATIONS.items():
            yield Work(
                f"{cls.__name__} {name}",
                lambda cls=cls, operation=operation: (operation, (made(cls),)),  # type: ignore[misc]
                told=_told,
            )


def fields() -> Iterator[Work]:
    """Every field, read, and written where it may be with what it reads."""
    for cls in CLASSES:
        for field in cls.__fields__:
            yield Work(
                f"{cls.__name__}.{field.__name__} read",
                lambda cls=cls, field=field: (getattr, (made(cls), field.__name__)),  # type: ignore[misc]
                told=_told,
            )
            if not field.read_only and _is_there(cls, field.__name__):
                yield Work(
                    f"{cls.__name__}.{field.__name__} written",
                    lambda cls=cls, field=field: (  # type: ignore[misc]
                        setattr,
                        (made(cls), field.__name__, getattr(made(cls), field.__name__)),
                    ),
                    told=_told,
                )


def _is_there(cls: Any, name: str) -> bool:
    """Whether a new record has the memory that a field lies in."""
    try:
        getattr(made(cls), name)
    except ValueError:
        return False
    return True


def _places(cls: Any) -> Iterator[tuple[str, Callable[[Any], Any]]]:
    """A class's rows and arrays: where they are, and the way to them."""
    record = made(cls)
    if isinstance(record, Table):
        yield "", lambda record: record
    for field in cls.__fields__:
        if _is_there(cls, field.__name__) and isinstance(getattr(record, field.__name__), Array):
            yield f".{field.__name__}", attrgetter(field.__name__)


def rows() -> Iterator[Work]:
    """Tables, arrays and what they consist of; addresses."""
    for cls in CLASSES:
        for place, find in _places(cls):
            for name, operation in OF_ROWS.items():
                try:
                    operation(find(made(cls)))
                except (TypeError, IndexError, AttributeError, ValueError):
                    continue  # not of this kind, or without rows
                yield Work(
                    f"{cls.__name__}{place} {name}",
                    lambda cls=cls, find=find, operation=operation: (operation, (find(made(cls)),)),  # type: ignore[misc]
                    told=_told,
                )
    for name, making in OF_ADDRESSES.items():
        yield Work(f"MacAddress {name}", lambda making=making: (making, ()), told=_told)  # type: ignore[misc]
