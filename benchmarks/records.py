"""What record classes cost, side by side with peers: attributes, constructors, and whole tables.

Prints nanoseconds with their ratio to types written by hand in C, all from one run, and the bulk figures against
`struct` on the same bytes, against memcpy, and against reading fields one by one through the flat module. README.md
says how to read it.
"""

from __future__ import annotations

import argparse
import collections
import ctypes
import importlib
import itertools
import struct
import sys
import time
from collections.abc import Callable, Iterable
from functools import partial
from pathlib import Path
from types import ModuleType
from typing import Any

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from benchmarks import build, calls, machine, report, timing
from benchmarks.calls import CONSTRUCTOR, INTEGER_GETTER, INTEGER_SETTER, TEXT_GETTER, TEXT_SETTER, Contender
from benchmarks.figures import Table
from benchmarks.timing import Spread

_KEYWORD = "constructor with a keyword"
_FLAG_GETTER = "flag getter"
_SHORT_GETTER = "16-bit getter"
_ENTRIES = 1_000_000
_ROWS = 2_000
"""Entries of the table that rows are read of: few enough to be read undisturbed, many times."""

_STATEMENTS = {
    INTEGER_GETTER: "record.version",
    INTEGER_SETTER: "record.version = number",
    TEXT_GETTER: "name.string",
    TEXT_SETTER: "name.string = text",
    CONSTRUCTOR: "new()",
}
_OWN = {_KEYWORD: "new(version=number)", _FLAG_GETTER: "entry.aging", _SHORT_GETTER: "entry.vid"}


def _contenders(records: ModuleType, folder: Path, flat: ModuleType) -> list[Contender]:
    """The classes, the types written by hand, and the peers of the other benchmark; ratios refer to the second."""
    sys.path.insert(0, str(folder))
    by_hand: Any = importlib.import_module("record_types")
    ours: Any = records
    found = [
        _attributes("libkestrel.records", ours.zel_MgmtApiSignature, ours.zel_Name, ours.VSMACEntry),
        _attributes("C types", by_hand.Signature, by_hand.Name, by_hand.Entry),
    ]
    peers = {c.title: c for c in calls.contenders(flat, folder)}
    for title in ("ctypes", "cffi, API mode", "pybind11", "nanobind", "SWIG, -builtin"):
        peer = peers[title]
        found.append(Contender(title, peer.names, {k: v for k, v in peer.statements.items() if k in _STATEMENTS}))
    return found


def _attributes(title: str, signature: Any, name: Any, entry: Any) -> Contender:
    names = {"record": signature(), "name": name(), "entry": entry(), "new": signature}
    return Contender(title, names, _STATEMENTS | _OWN)


def _check(contenders: list[Contender]) -> None:
    """End the program if a contender does not do what its operations say."""
    for contender in contenders:
        given = calls.values(contender)
        for setter, getter, wanted in ((INTEGER_SETTER, INTEGER_GETTER, "number"), (TEXT_SETTER, TEXT_GETTER, "text")):
            exec(contender.statements[setter], given)
            if eval(contender.statements[getter], given) != given[wanted]:
                sys.exit(f"{contender.title}: set {given[wanted]!r} and got something else")


# ---- Tables ----


def _race(works: dict[str, Callable[[], object]], rounds: int, each: float = 1.0) -> dict[str, Spread]:
    """Nanoseconds of each of the works that take turns, divided by what they do `each` time."""
    samples: dict[str, list[float]] = {title: [] for title in works}
    for _ in range(rounds):
        for title, work in works.items():
            start = time.perf_counter_ns()
            work()
            samples[title].append((time.perf_counter_ns() - start) / each)
    return {title: timing.spread(taken) for title, taken in samples.items()}


def _table(records: Any, count: int) -> Any:
    table = records.VSMACTable(count)
    for i, entry in enumerate(table):
        entry.macAddress = (2 << 40 | i).to_bytes(6, "big")
        entry.portID = 0x2000000 + i % 500
        entry.vid = i // 250 % 4095
        entry.elapsed = i % 300
    return table


def _one_by_one(flat: Any, first: Any, indexes: Iterable[int]) -> None:
    """Reads the fields of entries as scripts do that have the flat module alone, with the bytes of the addresses."""
    for i in indexes:
        entry = flat.VSMACEntry___getitem__(first, i)
        _ = (
            ctypes.string_at(int(flat.VSMACEntry_macAddress_get(entry)), 6),
            flat.VSMACEntry_macAddrType_get(entry),
            flat.VSMACEntry_portID_get(entry),
            flat.VSMACEntry_aging_get(entry) != "\0",
            flat.VSMACEntry_vid_get(entry),
            flat.VSMACEntry_vni_get(entry),
            flat.VSMACEntry_elapsed_get(entry),
            flat.VSMACEntry_macMove_get(entry),
        )


def _flat_alone(flat: Any) -> dict[str, Spread]:
    """Nanoseconds a row through the flat module, before the record classes are registered with it."""

    class Entry:
        __swig_destroy__ = flat.delete_VSMACEntry

    flat.VSMACEntry_swigregister(Entry)
    first = flat.new_VSMACEntry()
    # The first entry over and over: there is no second behind it.
    works: dict[str, Callable[[], object]] = {
        "fields one by one, flat module": lambda: _one_by_one(flat, first, itertools.repeat(0, _ROWS))
    }
    return _race(works, 50, _ROWS)


_UNPACK = struct.Struct("<6sBI?HIII")
"""An entry as `struct` reads it: the address as bytes, its kind as a number."""


def _exhaust(iterable: Iterable[object]) -> None:
    collections.deque(iterable, 0)


def _fields(table: Any) -> None:
    """Reads the fields of entries one by one through the record classes."""
    for entry in table:
        _ = (
            entry.macAddress,
            entry.macAddrType,
            entry.portID,
            entry.aging,
            entry.vid,
            entry.vni,
            entry.elapsed,
            entry.macMove,
        )


def _unpacked_alike(records: Any, data: memoryview) -> None:
    """The same values as those of rows, by `struct`: addresses and kinds as their classes."""
    kinds = {int(kind): kind for kind in importlib.import_module("libkestrel.enums").VSMACAddrType}
    address = records.MacAddress
    for mac, kind, port, aging, vid, vni, elapsed, moves in _UNPACK.iter_unpack(data):
        _ = (address(mac), kinds[kind], port, aging, vid, vni, elapsed, moves)


def _rows(records: Any, flat: Any, alone: dict[str, Spread]) -> Table:
    """Nanoseconds a row of a MAC table, by way."""
    table = _table(records, _ROWS)
    first = flat.VSMACTable_macEntries_get(table)
    data = memoryview(bytes(memoryview(table).cast("B")))
    if _UNPACK.size * len(table) != len(data):
        sys.exit("struct reads other entries than the table has")
    ours = "for row in table.rows()"
    taken = _race(
        {
            ours: lambda: _exhaust(table.rows()),
            "struct.iter_unpack, bytes and numbers": lambda: _exhaust(_UNPACK.iter_unpack(data)),
            "struct.iter_unpack, the rows' values": lambda: _unpacked_alike(records, data),
            "list(table.rows())": lambda: list(table.rows()),
            "list(struct.iter_unpack)": lambda: list(_UNPACK.iter_unpack(data)),
            "fields one by one, record classes": lambda: _fields(table),
            "fields one by one, flat module giving records": lambda: _one_by_one(flat, first, range(_ROWS)),
        },
        200,
        _ROWS,
    )
    return _by_way("rows", "A row of a MAC table", "ns", ours, taken | alone)


def _by_way(name: str, title: str, unit: str, reference: str, taken: dict[str, Spread]) -> Table:
    return Table(name, title, "way", unit, reference, {way: {"time": spread} for way, spread in taken.items()})


def _column(numpy: Any, table: Any, name: str) -> Any:
    return numpy.asarray(table.columns()[name])


def _columns(records: Any) -> list[Table]:
    """Whole columns of a table of `_ENTRIES`, by column and by way."""
    numpy: Any = importlib.import_module("numpy")
    table = _table(records, _ENTRIES)
    data = memoryview(table).cast("B")
    found = []
    for name, index in (("macAddress", 0), ("portID", 2)):
        column = numpy.asarray(table.columns()[name])
        source, target = numpy.zeros(column.nbytes, "u1"), numpy.ones(column.nbytes, "u1")
        ours = "numpy.asarray(column)"
        works: dict[str, Callable[[], object]] = {
            ours: partial(_column, numpy, table, name),
            "memcpy of as many bytes": partial(ctypes.memmove, target.ctypes.data, source.ctypes.data, column.nbytes),
            "numpy.ascontiguousarray(column)": partial(numpy.ascontiguousarray, column),
            "list(column)": partial(list, table.columns()[name]),
            "struct.iter_unpack": partial(_unpacked_column, data, index),
            "fields one by one, record classes": partial(_field_column, table, name),
        }
        taken = _race(works, 7)
        found.append(
            _by_way(f"column-{name}", f"The column {name} of {_ENTRIES:,} entries", "ms", "list(column)", taken)
        )
    return found


def _unpacked_column(data: memoryview, index: int) -> list[Any]:
    return [entry[index] for entry in _UNPACK.iter_unpack(data)]


def _field_column(table: Any, name: str) -> list[Any]:
    return [getattr(entry, name) for entry in table]


def main() -> None:
    """Build, check, measure and report."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--json", type=Path, metavar="FILE", help="also write all figures to FILE")
    parser.add_argument("--rounds", type=int, default=1000, help="rounds of calls (default: %(default)s)")
    options = parser.parse_args()
    flat = importlib.import_module("_libkestrel")
    report.progress("Building the peers in build/benchmarks ...")
    folder = build.peers(flat)
    alone = _flat_alone(flat)
    records = importlib.import_module("libkestrel.records")

    report.progress(f"Timing attributes, {options.rounds} rounds ...")
    contenders = _contenders(records, folder, flat)
    _check(contenders)
    taken = timing.interleave(contenders, options.rounds)
    report.progress("Timing tables ...")
    tables = [
        Table("records", "Attributes and constructors of record classes", "operation", "ns", "C types", taken),
        _rows(records, flat, alone),
        *_columns(records),
    ]
    report.show(machine.describe(), tables, options.json)


if __name__ == "__main__":
    main()
