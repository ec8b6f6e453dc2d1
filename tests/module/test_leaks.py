"""Memory stays flat: repeated calls of everything, successful and refused, leave nothing behind."""

from __future__ import annotations

from typing import Any

import _libkestrel
import pytest

from headers import model
from support import memory, values
from support.attempts import attempt
from support.functions import COUNTED, FUNCTIONS, plain_arguments
from support.methods import METHODS, plain_method_arguments
from support.recorder import Recorder

HEADERS = model.read()
PROXY = _libkestrel.new_VSInfo()


@pytest.mark.parametrize("record", HEADERS.records, ids=lambda r: r.name)
def test_a_records_life_leaves_nothing(record: model.Record) -> None:
    arguments = (COUNTED[record.name],) if record.name in COUNTED else ()
    make = getattr(_libkestrel, f"new_{record.name}")
    destroy = getattr(_libkestrel, f"delete_{record.name}")
    accessors = [
        (
            getattr(_libkestrel, f"{record.name}_{m.name}_get"),
            getattr(_libkestrel, f"{record.name}_{m.name}_set", None),
        )
        for m in record.members
    ]
    everything: list[Any] = [None, 1, -1, 2**64, "", "x", "x" * 2000, b"x", 1.0, True, object(), "\ud800"]

    def work() -> None:
        target = make(*arguments)
        memory.write(target, bytes(record.size))
        for read, write in accessors:
            attempt(read, target)
            attempt(read, 1)
            if write:
                for value in everything:
                    attempt(write, target, value)
                attempt(write, 1, None)
                attempt(write, target)
        if record.name == "VDSQuery":
            _libkestrel.VDSQuery_propValue_set(target, None)
        destroy(target)
        make(*arguments)
        attempt(destroy, 1)

    memory.assert_flat(work, 60)


@pytest.mark.parametrize("function", FUNCTIONS, ids=lambda f: f.name)
def test_a_functions_calls_leave_nothing(function: model.Function, recorder: Recorder) -> None:
    entry = getattr(_libkestrel, function.name)
    good = [None if value is not None and type(value) is type(PROXY) else value for value in plain_arguments(function)]
    good = ["some text " * 100 if isinstance(value, str) and len(value) > 6 else value for value in good]
    bad = [value for value, _ in values.bad("u8")] + ["text " * 100, b"x"]

    def work() -> None:
        entry(*good)
        attempt(entry, *good, None)
        for place in range(len(good)):
            for value in bad:
                arguments = list(good)
                arguments[place] = value
                attempt(entry, *arguments)
        recorder.reset()

    memory.assert_flat(work, 40)


@pytest.mark.parametrize("method", METHODS)
def test_a_methods_calls_leave_nothing(method: str) -> None:
    entry = getattr(_libkestrel, method)
    good = plain_method_arguments(method)
    bad = [*values.NOT_INTEGERS[1:], 2**40, "text " * 100, "\ud800"]

    def work() -> None:
        attempt(entry, *good)
        attempt(entry, *good, None)
        for place in range(len(good)):
            for value in bad:
                attempt(entry, *good[:place], value, *good[place + 1 :])

    memory.assert_flat(work, 40)


def test_the_overloaded_functions_calls_leave_nothing(recorder: Recorder) -> None:
    def work() -> None:
        for arguments in ((), ("a" * 1000,), ("a" * 1000, "b"), ("a" * 1000, 1), (None, "x" * 129), (1,)):
            attempt(_libkestrel.DVSAliasToPortsetName, *arguments)
        recorder.reset()

    memory.assert_flat(work)


def test_pointer_object_methods_leave_nothing() -> None:
    pointer = _libkestrel.new_zel_Name()

    def work() -> None:
        repr(pointer)
        pointer.own(False)
        pointer.own(True)
        attempt(pointer.append, 1)
        other = _libkestrel.new_zel_Name()
        other.append(_libkestrel.new_zel_String())
        repr(other)
        int(other)
        _ = other == pointer
        other.next()

    memory.assert_flat(work)


def test_registering_a_class_again_releases_nothing_of_the_shared_table() -> None:
    cls = type("zel_FenceHdr", (), {"__swig_destroy__": _libkestrel.delete_zel_FenceHdr})
    _libkestrel.zel_FenceHdr_swigregister(cls)
    assert type(_libkestrel.new_zel_FenceHdr()).__name__ == "SwigPyObject"


def test_variables_leave_nothing() -> None:
    def work() -> None:
        _ = _libkestrel.cvar.runtimeOptionNames
        _ = _libkestrel.cvar.zel_ModuleCurrentID
        for name in ("runtimeOptionNames", "zel_ModuleCurrentID", "unknown"):
            try:
                setattr(_libkestrel.cvar, name, 1)
            except AttributeError:
                pass

    memory.assert_flat(work)
