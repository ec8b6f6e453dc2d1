"""The objects as a whole: silent, without leaks, and covering the platform."""

from __future__ import annotations

import gc
import inspect
import subprocess
import sys
from collections.abc import Iterator
from importlib import metadata
from typing import Any

import _libkestrel
import pytest

import libkestrel
from headers import model, package_coverage
from libkestrel import Host, enums, errors, host, lab
from libkestrel.host import _cells
from libkestrel.host._objects import Setting
from support import memory
from support.bench import BENCH
from support.output import printed

HEADERS = model.read()


def public_members(kind: type[Any]) -> Iterator[tuple[str, Any]]:
    for name in dir(kind):
        if not name.startswith("_"):
            yield name, inspect.getattr_static(kind, name)


# ---- Names ----


def test_every_public_name_is_exported() -> None:
    assert sorted(host.__all__, key=lambda n: (not n.isupper(), n)) == host.__all__
    assert all(hasattr(libkestrel, name) for name in libkestrel.__all__)
    assert set(libkestrel.__all__) <= set(dir(libkestrel))
    with pytest.raises(AttributeError):
        libkestrel.nothing


@pytest.mark.parametrize("name", libkestrel.__all__)
def test_a_name_is_the_same_whatever_was_imported_before(name: str) -> None:
    """A module of a function's name would take its place once somebody has imported it."""
    code = f"""
import importlib, pkgutil, libkestrel
for found in pkgutil.iter_modules(libkestrel.__path__, "libkestrel."):
    importlib.import_module(found.name)
value = libkestrel.{name}
print(type(value).__name__, value.__name__)
"""
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True)
    value = getattr(libkestrel, name)
    assert done.stdout.split() == [type(value).__name__, value.__name__]


# ---- Coverage ----


def test_every_function_of_the_platform_is_covered() -> None:
    covered = package_coverage.coverage(HEADERS)
    assert len(covered) > 190
    assert [name for name, ways in covered.items() if not ways] == []


def test_what_the_package_calls_is_there() -> None:
    called = {name for body in package_coverage.sources().bodies for name in body.flat}
    assert [name for name in called if not hasattr(_libkestrel, name)] == []


def test_a_function_that_nothing_calls_is_found() -> None:
    package = package_coverage.sources()
    for body in package.bodies:
        body.flat.discard("VSDVS_SetMTU")
    assert package_coverage.coverage(HEADERS, package)["VSDVS_SetMTU"] == []


def test_a_function_that_only_private_code_calls_is_found() -> None:
    package = package_coverage.sources()
    (owner,) = [body for body in package.bodies if body.name == "info" and body.owner == "Switch"]
    owner.name, owner.shown = "_info", "{0}._info"
    assert package_coverage.coverage(HEADERS, package)["VSZEL_GetVSInfo"] == []


# ---- Every reader, as found by looking ----


def readers(found: Any) -> list[tuple[str, Any]]:
    """The attributes and the methods without arguments of an object, but for those that change something."""
    changing = {"load", "sanitize", "clean_up", "reset_configuration", "clear", "associate", "dissociate"}
    names: list[tuple[str, Any]] = []
    for name, member in public_members(type(found)):
        if isinstance(member, (property, Setting)):
            names.append((name, lambda name=name: getattr(found, name)))
        elif inspect.isfunction(member) and name not in changing:
            wanted = list(inspect.signature(member).parameters.values())[1:]
            if all(p.default is not p.empty for p in wanted):
                names.append((name, lambda name=name: getattr(found, name)()))
    return names


def objects() -> list[Any]:
    top = Host()
    switch = top.switch("dvs-prod")
    bench = top.switch(BENCH)
    return [
        top,
        top.switches,
        top.store,
        top.options,
        switch,
        switch.ports,
        switch.uplinks,
        switch.uplink_ports,
        switch.uplinks["vmnic0"],
        switch.properties,
        switch.host_properties,
        switch.stored,
        switch.stored.properties,
        switch.port("10"),
        switch.port("10").properties,
        switch.port("10").stored,
        switch.port("10").stored.properties,
        bench,
        bench.port("p1"),
        switch.port("nothing") if "nothing" in switch.ports else host.Port(top._changes, "dvs-prod", "nothing"),
    ]


def read_all() -> int:
    answers = 0
    for found in objects():
        repr(found)
        for name, read in readers(found):
            try:
                value = read()
                repr(value)
                answers += 1
            except errors.KestrelError as error:
                assert isinstance(error, (errors.NotFound, errors.NotSupported)), (found, name, error)
    switch = Host().switch("dvs-storage")
    for properties in (switch.properties, switch.stored.properties):
        assert properties[_libkestrel.VSPROP_MTU]  # a block of the store, or a query's buffer
    stored = switch.port("20").stored.properties
    for _ in range(10):  # small blocks, of which one more or less is hard to see
        assert stored[_libkestrel.VSPROP_PORT_VLAN]
    return answers


@pytest.mark.usefixtures("bench")
def test_nothing_is_printed(capfd: pytest.CaptureFixture[str]) -> None:
    assert read_all() > 150
    for wrong in (lambda: Host().switch("nowhere"), lambda: Host().switch(BENCH).port("nothing")):
        with pytest.raises(errors.NotFound):
            wrong()
    assert printed(capfd) == ""


@pytest.mark.usefixtures("bench")
def test_whatever_is_read_is_released_once() -> None:
    """Twice would end the process in the C library; not at all shows as growth."""
    growth = []
    for _ in range(6):
        read_all()
        gc.collect()
        blocks, held = sys.getallocatedblocks(), memory.allocated_bytes()
        rounds = 10
        for _ in range(rounds):
            read_all()
        gc.collect()
        growth.append((sys.getallocatedblocks() - blocks, memory.allocated_bytes() - held))
        if growth[-1][0] < rounds * 20 and growth[-1][1] < 64 * rounds:
            return
    pytest.fail(f"(blocks, bytes) grew by {growth}")


@pytest.mark.usefixtures("bench")
def test_tables_of_the_platform_go_back_as_often_as_they_came() -> None:
    with lab.counted_calls() as calls:
        switch = Host().switch("dvs-prod")
        tables = [switch.mac_table() for _ in range(5)]
        tables[0].release()
        with tables[1]:
            pass
        del tables
        gc.collect()
        assert calls["VSZEL_GetMACTable"] == calls["VSZEL_FreeMemory"] == 5
        assert switch.teaming
        assert switch.port("10").vlan
        assert isinstance(switch.private_vlans, tuple)
        handed_out = sum(calls[name] for name in ("VSDVS_GetPortVLANPolicy", "VSDVS_GetPrivateVLANMap"))
        assert calls["VSDVS_FreeMemory"] == handed_out == 2


@pytest.mark.usefixtures("bench")
@pytest.mark.parametrize("wrong", [None, 5, b"x", object(), "a\0b", "x" * 5000, "\udc80", 2**70, -1, [], {}])
def test_wrong_names_and_values_raise(wrong: Any) -> None:
    """Whatever is given, an exception comes of it or nothing; the process goes on."""
    top = Host()
    bench = top.switch(BENCH)
    port = bench.port("p1")
    attempts = 0
    for found in (top, top.switches, top.options, top.store, bench, bench.ports, bench.uplink_ports, bench.properties,
                  bench.stored, bench.stored.properties, port, port.properties, port.stored):  # fmt: skip
        for name, member in public_members(type(found)):
            attempts += 1
            try:
                if isinstance(member, Setting):
                    setattr(found, name, wrong)
                elif inspect.isfunction(member) and name not in ("panic", "set_datapath", "of_number", "start_from"):
                    count = len([p for p in inspect.signature(member).parameters.values() if p.default is p.empty]) - 1
                    if count > 0:
                        getattr(found, name)(*[wrong] * count)
            except (errors.KestrelError, TypeError, ValueError, OverflowError, AttributeError, IndexError, KeyError):
                pass
    assert attempts > 150


# ---- Verbs that tell ----


def verbs() -> list[tuple[type[Any], str, Any]]:
    kinds = [value for name in host.__all__ if inspect.isclass(value := getattr(host, name))]
    return [(k, name, member) for k in kinds for name, member in public_members(k) if name.startswith("ensure")]


def test_every_ensuring_verb_says_whether_it_changed_anything() -> None:
    assert len(verbs()) > 50
    assert [f"{k.__name__}.{name}" for k, name, m in verbs() if m.__annotations__["return"] != "bool"] == []
    silent = [name for _, name, member in verbs() if "Returns whether" not in (member.__doc__ or "")]
    assert silent == []


def test_every_setting_has_an_ensuring_verb() -> None:
    known = {(k, name) for k, name, _ in verbs()}
    settings = {(k, name) for k, _, _ in verbs() for name, member in public_members(k) if isinstance(member, Setting)}
    assert len(settings) > 25
    assert [f"{k.__name__}.{name}" for k, name in settings if (k, f"ensure_{name}") not in known] == []


def test_a_panic_is_told_in_the_platforms_words_and_the_process_goes_on(capfd: pytest.CaptureFixture[str]) -> None:
    Host().panic("the host is on fire")
    told = capfd.readouterr()
    assert "the host is on fire" in told.out + told.err
    for wrong in ("100%", "a\0b"):
        with pytest.raises(ValueError, match="without percent signs and zeros"):
            Host().panic(wrong)


def test_pointer_objects_of_another_layout_are_noticed(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(_cells, "_ADDRESS", 0)
    with pytest.raises(SystemError, match="not laid out as expected"):
        _cells.pointer(4096, "_p_void")


def test_a_version_that_nothing_tells_is_unknown(monkeypatch: pytest.MonkeyPatch) -> None:
    def missing(name: str) -> str:
        raise metadata.PackageNotFoundError(name)

    monkeypatch.setattr(metadata, "version", missing)
    assert libkestrel.platform_info().version == "unknown"


def test_enumerations_are_listed_before_they_are_made() -> None:
    assert set(dir(enums)) >= set(enums.__all__)
