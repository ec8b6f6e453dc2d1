"""What record classes cost, side by side with peers: attributes, constructors, and whole tables.

Prints nanoseconds with their ratio to types written by hand in C, all from one run, and the bulk figures against
memcpy and against reading fields one by one through the flat module. README.md says how to read it.
"""

from __future__ import annotations

import argparse
import collections
import ctypes
import importlib
import itertools
import json
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
    for title in ("ctypes", "cffi, API mode", "pybind11"):
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


def _best(work: Callable[[], object], rounds: int) -> float:
    """The least seconds that the work took."""
    least = float("inf")
    for _ in range(rounds):
        start = time.perf_counter()
        work()
        least = min(least, time.perf_counter() - start)
    return least


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


def _flat_alone(flat: Any) -> float:
    """Nanoseconds a row through the flat module, before the record classes are registered with it."""

    class Entry:
        __swig_destroy__ = flat.delete_VSMACEntry

    flat.VSMACEntry_swigregister(Entry)
    first = flat.new_VSMACEntry()
    # The first entry over and over: there is no second behind it.
    return _best(lambda: _one_by_one(flat, first, itertools.repeat(0, _ROWS)), 50) / _ROWS * 1e9


def _rows(records: Any, flat: Any, alone: float) -> dict[str, float]:
    """Nanoseconds a row, by way."""
    table = _table(records, _ROWS)
    first = flat.VSMACTable_macEntries_get(table)
    taken = {
        "for row in table.rows()": _best(lambda: collections.deque(table.rows(), 0), 500),
        "list(table.rows())": _best(lambda: list(table.rows()), 500),
        "flat module giving records": _best(lambda: _one_by_one(flat, first, range(_ROWS)), 50),
    }
    return {title: seconds / _ROWS * 1e9 for title, seconds in taken.items()} | {"flat module alone": alone}


def _column(numpy: Any, table: Any, name: str) -> Any:
    return numpy.asarray(table.columns()[name])


def _columns(records: Any) -> dict[str, dict[str, float]]:
    """Nanoseconds for columns of a table of `_ENTRIES`, by column and by way."""
    numpy: Any = importlib.import_module("numpy")
    table = _table(records, _ENTRIES)
    found = {}
    for name in ("macAddress", "portID"):
        column = numpy.asarray(table.columns()[name])
        source, target = numpy.zeros(column.nbytes, "u1"), numpy.ones(column.nbytes, "u1")
        copy = partial(ctypes.memmove, target.ctypes.data, source.ctypes.data, column.nbytes)
        taken = {
            "memcpy of as many bytes": _best(copy, 50),
            "numpy.asarray(column)": _best(partial(_column, numpy, table, name), 50),
            "numpy.ascontiguousarray(column)": _best(partial(numpy.ascontiguousarray, column), 20),
        }
        found[name] = {title: seconds * 1e9 for title, seconds in taken.items()}
    return found


def _show(title: str, taken: dict[str, float]) -> None:
    """Print figures with their ratios to the first."""
    if taken:
        print(f"\n{title}")
    for way, figure in taken.items():
        print(f"  {way:<32} {figure:>12,.0f} {figure / next(iter(taken.values())):>10.2f}")


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
    rows, columns = _rows(records, flat, alone), _columns(records)
    for key, value in machine.describe().items():
        print(f"{key}: {value}")
    report.show_calls(taken)
    _show("Nanoseconds a row of a MAC table", rows)
    for name, ways in columns.items():
        _show(f"Nanoseconds for the column {name} of {_ENTRIES:,} entries", ways)
    if options.json:
        data: dict[str, Any] = {
            "calls": {k: {t: vars(s) for t, s in row.items()} for k, row in taken.items()},
            "rows": rows,
        }
        data["columns"] = columns
        options.json.write_text(json.dumps(data, indent=2) + "\n")


if __name__ == "__main__":
    main()
