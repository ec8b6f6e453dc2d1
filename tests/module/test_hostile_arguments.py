"""What nobody should pass, one kind at a time: null records, objects that pretend to be pointers, classes that cannot
make instances. Most of it would end the interpreter, so each answer is an exception or nothing done.
"""

from __future__ import annotations

from typing import Any

import _libkestrel
import pytest

from headers.model import Member, Record
from hostile.calls import SIZES, Call, calls
from support.functions import HEADERS, make
from support.processes import run

MEMBERS = [pytest.param(r, m, id=f"{r.name}.{m.name}") for r in HEADERS.records for m in r.members]
COPIED = ("text", "owned_text", "array", "trailing")
"""Members that a writer copies into the record whatever they are."""
GIVES_NONE = ("zel_Name___repr__", "VSLAGStatus_get_name")
"""Methods that have a name for no record: none."""
METHODS = [c for c in calls() if c.family == "method" and c.name not in GIVES_NONE]


def null(function: str, place: int = 1) -> str:
    return rf"^invalid null reference in method '{function}', argument {place}( of type '.*')?$"


@pytest.mark.parametrize(("record", "member"), MEMBERS)
def test_readers_refuse_a_null_record(record: Record, member: Member) -> None:
    name = f"{record.name}_{member.name}_get"
    with pytest.raises(ValueError, match=rf"{null(name)[:-1]}$") as raised:
        getattr(_libkestrel, name)(None)
    assert str(raised.value).endswith(f"argument 1 of type '{record.self_type}'")


@pytest.mark.parametrize(("record", "member"), [p for p in MEMBERS if not p.values[1].read_only])  # type: ignore[union-attr]
def test_writers_refuse_a_null_record_or_do_nothing(record: Record, member: Member) -> None:
    write = getattr(_libkestrel, f"{record.name}_{member.name}_set")
    if member.kind in ("text", "owned_text"):
        value: Any = "x"
    elif member.kind in ("array", "trailing", "record"):
        source = make(record.name)
        value = getattr(_libkestrel, f"{record.name}_{member.name}_get")(source)
    else:
        value = None if member.kind == "pointer" else 1
    if member.kind in COPIED:
        with pytest.raises(ValueError, match=null(write.__name__)):
            write(None, value)
    else:
        assert write(None, value) is None


@pytest.mark.parametrize("call", [pytest.param(c, id=c.name) for c in METHODS])
def test_methods_refuse_a_null_record(call: Call) -> None:
    values = {"s32": 0, "size": 0, "u32": 1, "text_pointer": "x", "mac": b"123456"}
    others = [values[a.kind] if a.kind in values else make(a.target) for a in call.arguments[1:]]
    with pytest.raises(ValueError, match=null(call.name)):
        getattr(_libkestrel, call.name)(None, *others)


@pytest.mark.parametrize("name", GIVES_NONE)
def test_no_record_has_no_name(name: str) -> None:
    assert getattr(_libkestrel, name)(None) is None


@pytest.mark.parametrize("name", SIZES)
def test_nothing_is_freed_for_a_null_record(name: str) -> None:
    assert getattr(_libkestrel, f"delete_{name}")(None) is None


def test_there_is_no_entry_behind_none() -> None:
    assert _libkestrel.VSRuntimeOptions_get_next_option(_libkestrel.new_VSRuntimeOptions(16), None) is None


# ---- Objects that are no pointers ----


class Carries:
    def __init__(self, this: Any) -> None:
        self.this = this


class Makes:
    """Has no dictionary, and a new pointer to the same place each time it is asked."""

    __slots__ = ("record",)

    def __init__(self, record: Any) -> None:
        self.record = record

    @property
    def this(self) -> Any:
        return _libkestrel.zel_MgmtApiSignature_name_get(self.record)


class Raises:
    __slots__ = ("error",)

    def __init__(self, error: type[Exception]) -> None:
        self.error = error

    @property
    def this(self) -> Any:
        raise self.error("this")


def circle(length: int) -> Any:
    links = [Carries(None) for _ in range(length)]
    for link, following in zip(links, [*links[1:], links[0]], strict=True):
        link.this = following
    return links[0]


FALSE = type("SwigPyObject", (), {})


@pytest.mark.parametrize(
    "value",
    [circle(1), circle(2), circle(7), Carries(5), Carries(FALSE()), FALSE(), Raises(KeyError), Carries(Carries(None))],
    ids=["itself", "two", "seven", "an int", "a namesake within", "a namesake", "a raising property", "nothing"],
)
def test_what_only_looks_like_a_pointer_is_refused(value: Any) -> None:
    with pytest.raises(TypeError, match=r"^in method 'VSInfo_mtu_get', argument 1 of type 'struct VSInfo \*'$"):
        _libkestrel.VSInfo_mtu_get(value)
    with pytest.raises(TypeError, match=r"^in method 'DVSState_SwitchForEach', argument 1 of type"):
        _libkestrel.DVSState_SwitchForEach(value, None)
    with pytest.raises(SystemError):
        _libkestrel.new_VSInfo().append(value)


def test_a_pointer_that_there_is_no_memory_for_is_not_taken_for_none() -> None:
    with pytest.raises(MemoryError, match=r"^in method 'VSInfo_mtu_get', argument 1 of type 'struct VSInfo \*'$"):
        _libkestrel.VSInfo_mtu_get(Raises(MemoryError))


def test_a_pointer_that_a_property_makes_lives_for_the_call() -> None:
    signature = _libkestrel.new_zel_MgmtApiSignature()
    _libkestrel.zel_Name_string_set(Makes(signature), "through a property")
    assert _libkestrel.zel_Name_string_get(Makes(signature)) == "through a property"


def test_a_pointer_some_objects_deep_is_found() -> None:
    record = _libkestrel.new_VSInfo()
    _libkestrel.VSInfo_mtu_set(Carries(Carries(record)), 77)
    assert _libkestrel.VSInfo_mtu_get(record) == 77


# ---- Chains ----


def test_chains_do_not_close() -> None:
    first, second, third = (_libkestrel.new_VSInfo() for _ in range(3))
    for one, other in ((first, first), (first, second), (second, third)):
        if one is other:
            with pytest.raises(ValueError, match=r"^the pointer is in the chain already$"):
                one.append(other)
        else:
            one.append(other)
    for other in (second, third):
        with pytest.raises(ValueError, match=r"^the pointer is in the chain already$"):
            first.append(other)
    third.append(first)  # which lets go of what was behind it
    assert first.next() is None
    assert repr(second).count("Swig Object") == 3
    with pytest.raises(TypeError):
        _libkestrel.zel_Name_string_get(second)


def test_chains_do_not_grow_without_end() -> None:
    first = _libkestrel.new_VSInfo()
    for _ in range(999):
        first.append(_libkestrel.new_VSInfo())
    with pytest.raises(ValueError, match=r"^the chain is too long$"):
        first.append(_libkestrel.new_VSInfo())
    assert repr(first).count("Swig Object") == 1000


# ---- Classes ----

ODD = {
    "a destructor that is no function": "type('C', (), {'__swig_destroy__': 5})",
    "a destructor in Python": "type('C', (), {'__swig_destroy__': staticmethod(lambda _: None)})",
    "a class without instances": "type(iter([]))",
    "the pointers' own class": "type(k.new_VSInfo())",
    "no class": "5",
    "none": "None",
    "instances of another class": "type('C', (), {'__new__': lambda *_: None})",
    "an instance that hides its attributes": "type('C', (), {'__getattribute__': lambda *_: 1 / 0})()",
}


@pytest.mark.parametrize("cls", ODD.values(), ids=ODD.keys())
def test_odd_classes_raise_at_most(cls: str) -> None:
    done = run(
        "import _libkestrel as k\n"
        f"cls = {cls}\n"
        "for _ in range(3):\n"
        "    for deed in (lambda: k.zel_Name_swigregister(cls), lambda: k.new_zel_Name(),\n"
        "                 lambda: k.zel_MgmtApiSignature_name_get(k.new_zel_MgmtApiSignature())):\n"
        "        try:\n"
        "            deed()\n"
        "        except (TypeError, AttributeError, ZeroDivisionError) as error:\n"
        "            pass\n"
        "print('alive')\n"
    )
    assert "alive\n" in done.stdout, done
    assert done.returncode == 0, done
