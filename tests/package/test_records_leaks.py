"""Memory stays flat: the whole life of every record class, its errors included, leaves nothing behind."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import _libkestrel
import pytest

from libkestrel import records
from libkestrel.records import Table
from support import memory
from support.record_classes import CLASSES

WRONG: list[Any] = [None, 2**64, "x" * 2000, "\ud800", [1, 2], {"nothing": 1}]


def attempt(work: Callable[[], Any]) -> None:
    try:
        work()
    except (TypeError, ValueError, OverflowError, AttributeError, ReferenceError, IndexError, BufferError):
        pass


@pytest.mark.parametrize("cls", CLASSES, ids=lambda c: c.__name__)
def test_a_life_leaves_nothing(cls: Any) -> None:
    def work() -> None:
        record = cls(60) if issubclass(cls, Table) else cls()
        for field in cls.__fields__:
            name = field.__name__
            attempt(lambda name=name: setattr(record, name, getattr(record, name)))  # type: ignore[misc]
            for wrong in WRONG:
                attempt(lambda name=name, wrong=wrong: setattr(record, name, wrong))  # type: ignore[misc]
                attempt(lambda name=name, wrong=wrong: cls(**{name: wrong}))  # type: ignore[misc]
        repr(record)
        attempt(lambda: cls.from_dict(record.to_dict()))
        attempt(lambda: cls.from_bytes(bytes(record)) == record)
        attempt(lambda: cls.from_bytes(b"x"))
        memoryview(record).release()
        if issubclass(cls, Table):
            list(record.rows())
            record.columns()
        other = record.copy()
        _ = int(record.this)
        attempt(lambda: cls.from_pointer(record.this))
        record.release()
        other.release()

    memory.assert_flat(work, tries=8)


def test_pointers_between_records_leave_nothing() -> None:
    def work() -> None:
        one, two = records.zel_ListLinks(), records.zel_ListLinks()
        one.nextPtr, two.nextPtr = two, one
        query = records.VDSQuery(propValue="x" * 100)
        query.propValue = "y" * 1000
        assert int(query.this)
        request = records.VSMACGetDynamic(macTable=records.VSMACTable(3))
        assert _libkestrel.VSMACGetDynamic_macTable_get(request) is not None
        text = records.zel_String(buffer=bytearray(50))
        text.buffer = None

    memory.assert_flat(work, tries=8)


def test_records_of_the_flat_module_leave_nothing() -> None:
    def work() -> None:
        table = _libkestrel.alloc_ls_team_table(2).release_with(_libkestrel.free_ls_team_table)
        assert len(table) == 2
        info = records.VSPortInfo()
        assert _libkestrel.VSPortInfo_stats_get(info).owner is info
        _libkestrel.delete_VSPortInfo(info)
        owned = records.VSInfo.from_pointer(_libkestrel.new_VSInfo())
        assert owned.owned

    memory.assert_flat(work, tries=8)
