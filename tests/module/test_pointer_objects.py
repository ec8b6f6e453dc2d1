"""The pointer object: its methods and texts, ownership, release, chains, and the shared type table."""

from __future__ import annotations

import gc
import re
import sys
from typing import Any
from unittest import mock

import _libkestrel
import pytest

from headers import model
from support import memory
from support.functions import COUNTED
from support.processes import run

HEADERS = model.read()


def made() -> Any:
    return _libkestrel.new_zel_Name()


def test_methods_and_their_documentation() -> None:
    expected = {
        "disown": "releases ownership of the pointer",
        "acquire": "acquires ownership of the pointer",
        "own": "returns/sets ownership of the pointer",
        "append": "appends another 'this' object",
        "next": "returns the next 'this' object",
        "__repr__": "returns object representation",
    }
    pointer = made()
    assert type(pointer).__name__ == "SwigPyObject"
    assert {name: getattr(pointer, name).__doc__ for name in expected} == expected
    methods = {n for n, v in vars(type(pointer)).items() if type(v).__name__ == "method_descriptor"}
    assert methods == set(expected)


def test_ownership_flag() -> None:
    pointer = made()
    assert pointer.own() is True
    assert pointer.disown() is None
    assert pointer.own() is False
    assert pointer.acquire() is None
    assert pointer.own() is True
    assert pointer.own(0) is True
    assert pointer.own("yes") is False
    assert pointer.own([]) is True
    assert pointer.own() is False
    with pytest.raises(TypeError, match=r"^own expected at most 1 argument, got 2$"):
        pointer.own(1, 2)
    pointer.acquire()


def test_own_passes_on_the_error_of_a_truth_value() -> None:
    class Undecided:
        def __bool__(self) -> bool:
            raise ZeroDivisionError

    pointer = made()
    with pytest.raises(ZeroDivisionError):
        pointer.own(Undecided())
    assert pointer.own() is True


def test_representation_names_the_type_and_the_chain() -> None:
    pointer, second = made(), _libkestrel.new_VSInfo()
    pattern = r"<Swig Object of type 'struct zel_Name \*' at 0x[0-9a-f]+>"
    assert re.fullmatch(pattern, repr(pointer))
    assert pointer.__repr__() == repr(pointer)
    pointer.append(second)
    assert repr(pointer) == pointer.__repr__()
    assert re.fullmatch(pattern + r"<Swig Object of type 'struct VSInfo \*' at 0x[0-9a-f]+>", repr(pointer))


def test_append_chains_and_next_follows() -> None:
    pointer, second, third = made(), _libkestrel.new_VSInfo(), _libkestrel.new_VSStats()
    assert pointer.next() is None
    assert pointer.append(second) is None
    assert pointer.next() is second
    pointer.append(third)
    assert pointer.next() is third
    assert third.next() is second
    assert _libkestrel.VSStats_pktsTx_get(pointer) == 0  # the chain is searched for the type


@pytest.mark.parametrize("wrong", [None, 1, "x", object()])
def test_append_of_something_else_sets_no_exception_of_its_own(wrong: object) -> None:
    with pytest.raises(SystemError, match="returned NULL without setting an exception"):
        made().append(wrong)


def test_comparison_is_by_address() -> None:
    info = _libkestrel.new_VSPortInfo()
    first, second = _libkestrel.VSPortInfo_fixedHwID_get(info), _libkestrel.VSPortInfo_fixedHwID_get(info)
    assert first == second
    assert first != _libkestrel.VSPortInfo_dvPortId_get(info)
    assert int(first) == memory.address(first)


@pytest.mark.parametrize("other", [object(), None, 5, b"", ()], ids=["object", "None", "int", "bytes", "tuple"])
def test_a_pointer_is_nothing_that_is_none(other: object) -> None:
    pointer = _libkestrel.new_VSInfo()
    assert (pointer == other, pointer != other) == (False, True)
    assert pointer.__eq__(other) is NotImplemented
    with pytest.raises(TypeError):
        assert pointer < other


def test_what_is_equal_to_everything_is_equal_to_a_pointer() -> None:
    assert _libkestrel.new_VSInfo() == mock.ANY


@pytest.mark.parametrize("name", [r.name for r in HEADERS.records if r.name not in COUNTED])
def test_constructors_give_zeroed_records_that_the_bare_object_owns(name: str) -> None:
    record = HEADERS.record(name)
    pointer = getattr(_libkestrel, f"new_{name}")()
    assert type(pointer).__name__ == "SwigPyObject"
    assert pointer.own() is True
    assert memory.read(pointer, record.size) == bytes(record.size)
    with pytest.raises(TypeError, match=rf"^new_{name}\(\) takes exactly 0 arguments \(1 given\)$"):
        getattr(_libkestrel, f"new_{name}")(1)


@pytest.mark.parametrize(
    ("name", "field", "size"),
    [
        ("VSUplinkPorts", "nUplinkPorts", lambda n: 4 + n * 81),
        ("VSUplinkPortIds", "nUplinkPorts", lambda n: 4 + n * 48),
        ("VSUplinks", "numEntries", lambda n: 8 + n * 32),
        ("VSRuntimeOptions", "totalLength", lambda n: n),
    ],
)
def test_counted_constructors_allocate_for_the_count_and_store_it(name: str, field: str, size: Any) -> None:
    allocate = getattr(_libkestrel, f"new_{name}")
    read = getattr(_libkestrel, f"{name}_{field}_get")
    usable = memory.usable_size
    for count in (4, 5, 100, 1000, 40_000):
        record = allocate(count)
        assert record.own() is True
        assert read(record) == count
        slack = 48 if count <= 1000 else 8192  # the allocator rounds up, large blocks to whole pages
        assert size(count) <= usable(record) < size(count) + slack
    argument = f"in method 'new_{name}', argument 1 of type 'int'"
    for wrong, exception in (
        (2**31, OverflowError),
        (-(2**31) - 1, OverflowError),
        ("1", TypeError),
        (1.0, TypeError),
    ):
        with pytest.raises(exception) as caught:
            allocate(wrong)
        assert str(caught.value) == argument
    assert allocate(-1) is None  # no block of that size


def test_array_constructors_take_a_size() -> None:
    for name, width in (("vidrangeArray", 4), ("pvlanmapentryArray", 8)):
        allocate = getattr(_libkestrel, f"new_{name}")
        array = allocate(100)
        assert array.own() is True
        assert 100 * width <= memory.usable_size(array) < 100 * width + 32
        text = f"in method 'new_{name}', argument 1 of type 'size_t'"
        for wrong, exception in (
            (-1, OverflowError),
            (2**64, TypeError),
            ("1", TypeError),
            (None, TypeError),
        ):
            with pytest.raises(exception) as caught:
                allocate(wrong)
            assert str(caught.value) == text
        assert allocate(2**64 - 1) is None
        assert allocate(2**62) is None
        assert getattr(_libkestrel, f"delete_{name}")(array) is None


@pytest.mark.parametrize("record", HEADERS.records, ids=lambda r: r.name)
def test_destructors_take_ownership_and_refuse_other_types(record: Any) -> None:
    arguments = (4,) if record.name in COUNTED else ()
    pointer = getattr(_libkestrel, f"new_{record.name}")(*arguments)
    destroy = getattr(_libkestrel, f"delete_{record.name}")
    assert destroy(pointer) is None
    assert pointer.own() is False
    wrong = _libkestrel.new_zel_LinkStatus() if record.name == "zel_IntrInfo" else _libkestrel.new_zel_IntrInfo()
    for value in (wrong, 1, "x"):
        with pytest.raises(TypeError) as caught:
            destroy(value)
        assert str(caught.value) == f"in method 'delete_{record.name}', argument 1 of type '{record.self_type}'"
    assert wrong.own() is True
    assert destroy(None) is None


def test_destructors_free_through_a_non_owning_object() -> None:
    before = memory.allocated_bytes()
    pointer = _libkestrel.new_zel_MgmtInstances()
    pointer.disown()
    assert memory.allocated_bytes() >= before + 1288
    _libkestrel.delete_zel_MgmtInstances(pointer)
    assert memory.allocated_bytes() < before + 1288


def test_release_of_an_owner_frees_the_record_once() -> None:
    gc.collect()
    before = memory.allocated_bytes()
    for _ in range(1000):
        _libkestrel.new_zel_MgmtInstances()
    assert memory.allocated_bytes() < before + 10 * 1288


@pytest.mark.parametrize(
    ("code", "name"),
    [
        ("_libkestrel.new_zel_Name()", "struct zel_Name *"),
        ("_libkestrel.new_zel_String()", "zel_String *"),
        ("_libkestrel.new_vidrangeArray(1)", "vidrangeArray *"),
    ],
)
def test_owners_without_a_registered_class_print_a_leak_and_free_nothing(code: str, name: str) -> None:
    done = run(f"import _libkestrel\n{code}")
    text = f"swig/python detected a memory leak of type '{name}', no destructor found.\n"
    assert (done.stdout, done.stderr, done.returncode) == (text, "", 0)


def test_register_takes_exactly_the_class() -> None:
    for arguments in ((), (int, int)):
        with pytest.raises(TypeError, match=rf"^swigregister\(\) takes exactly 1 argument \({len(arguments)} given\)$"):
            _libkestrel.zel_Name_swigregister(*arguments)


def test_a_class_without_destructor_hook_leaves_the_leak_text() -> None:
    done = run(
        "import _libkestrel\n"
        "assert _libkestrel.zel_Name_swigregister(type('zel_Name', (), {})) is None\n"
        "_libkestrel.new_zel_Name()\n"
    )
    assert done.stdout.startswith("swig/python detected a memory leak of type 'struct zel_Name *'")


def test_constructors_stay_bare_and_members_come_wrapped_when_a_class_is_registered() -> None:
    signature = _libkestrel.new_zel_MgmtApiSignature()
    assert type(signature).__name__ == "SwigPyObject"
    name = _libkestrel.zel_MgmtApiSignature_name_get(signature)
    assert type(name).__name__ == "zel_Name"
    assert type(name.this).__name__ == "SwigPyObject"
    _libkestrel.zel_Name_string_set(name, "through the instance")
    assert _libkestrel.zel_Name_string_get(name.this) == "through the instance"


def test_the_display_name_of_the_uplinks_cell() -> None:
    types = {r.name for r in HEADERS.records}
    assert "VSUplinks" in types
    module = memory.module_bytes(_libkestrel)
    assert b"\0struct VSUplinks **|VSUplinks **\0" in module


def test_the_type_table_is_shared_under_its_capsule() -> None:
    import swig_runtime_data4

    assert "swig_runtime_data4.type_pointer_capsule" in repr(swig_runtime_data4.type_pointer_capsule)


def test_another_module_shares_the_types() -> None:
    import type_sharer

    name = made()
    _libkestrel.zel_Name_string_set(name, "made here")
    assert type_sharer.text_of(name) == "made here"
    other = type_sharer.make("made there")
    assert _libkestrel.zel_Name_string_get(other) == "made there"
    with pytest.raises(TypeError, match="in method 'text_of', argument 1 of type 'zel_Name \\*'"):
        type_sharer.text_of(_libkestrel.new_VSInfo())


class Holder:
    """Carries something as `this`, as a proxy does."""

    def __init__(self, this: Any) -> None:
        self.this = this


def test_the_capsule_is_counted_in_step_with_owners() -> None:
    import swig_runtime_data4

    capsule = swig_runtime_data4.type_pointer_capsule

    def exercise() -> None:
        pointer = made()
        pointer.acquire()
        pointer.disown()
        pointer.disown()
        pointer.acquire()
        pointer.own(0)
        pointer.own(1)
        _libkestrel.delete_zel_Name(pointer)
        links, target = _libkestrel.new_zel_ListLinks(), _libkestrel.new_zel_ListLinks()
        _libkestrel.zel_ListLinks_nextPtr_set(links, target)
        _libkestrel.delete_zel_ListLinks(_libkestrel.zel_ListLinks_nextPtr_get(links))
        _libkestrel.delete_zel_Name(Holder(Holder(made())))

    exercise()
    before = sys.getrefcount(capsule)
    for _ in range(100):
        exercise()
    assert sys.getrefcount(capsule) == before
