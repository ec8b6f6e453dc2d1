"""What trusts its caller: the page and the generator say the same, and no more than they have to."""

from __future__ import annotations

import ctypes
from pathlib import Path

import _libkestrel
import pytest

from hostile.calls import Call, calls
from hostile.memory import Ledger
from hostile.rules import TRUSTED, Given, claim
from support import memory
from support.functions import make

PAGE = Path(__file__).resolve().parents[2] / "docs" / "behaviour.md"
CALLS = {call.name: call for call in calls()}


def test_the_page_lists_the_rules_word_for_word() -> None:
    section = PAGE.read_text().split("\n## What trusts its caller\n")[1]
    listed = [line.removeprefix("- ") for line in section.splitlines() if line.startswith("- ")]
    assert listed == list(TRUSTED.values())


def held(ledger: Ledger, record: str) -> Given:
    made = make(record)
    ledger.add(memory.address(made))
    return Given(made, record, address=memory.address(made))


def number(value: int) -> Given:
    return Given(value, str(value), number=value)


@pytest.fixture
def ledger() -> Ledger:
    return Ledger()


def test_a_live_record_is_nobodys_business(ledger: Ledger) -> None:
    assert claim(CALLS["VSInfo_mtu_get"], [held(ledger, "VSInfo")], ledger) is None


def test_freed_records(ledger: Ledger) -> None:
    given = held(ledger, "VSInfo")
    ledger.remove(given.address)
    _libkestrel.delete_VSInfo(given.value)
    for name in ("VSInfo_mtu_get", "delete_VSInfo", "VSZEL_FreeMemory"):
        assert claim(CALLS[name], [given], ledger) == "freed"
    wrong = Given("x", "x", refused=True)
    assert claim(CALLS["VSInfo_mtu_set"], [given, wrong], ledger) is None


def test_blocks_that_are_freed(ledger: Ledger) -> None:
    given = held(ledger, "zel_MgmtApiSignature")
    within = Given(None, "within", address=given.address + 32)
    assert claim(CALLS["delete_zel_MgmtApiSignature"], [given], ledger) is None
    assert claim(CALLS["delete_zel_Name"], [within], ledger) == "block"


def test_counts(ledger: Ledger) -> None:
    given = held(ledger, "VSUserMcastLegacyKeys")
    call = CALLS["VSUserMcastLegacyKeys_get_mac_entry"]
    assert claim(call, [given, number(0)], ledger) is None
    _libkestrel.VSUserMcastLegacyKeys_numEntries_set(given.value, 200)
    assert claim(call, [given, number(0)], ledger) == "short"


def test_texts_that_do_not_end(ledger: Ledger) -> None:
    query = _libkestrel.alloc_vds_query(24)
    ledger.add(memory.address(query))
    given = Given(query, "query", address=memory.address(query))
    readers = CALLS["VDSQuery_propValue_get"], CALLS["VDSQuery_propLen_get"]
    assert [claim(call, [given], ledger) for call in readers] == [None, None]
    value = int.from_bytes(memory.read(query, 8, 4), "little")
    ctypes.memset(value, ord("x"), memory.usable_size(value))
    assert [claim(call, [given], ledger) for call in readers] == ["text", None]
    _libkestrel.free_vds_query(query)


def test_texts_are_read_before_what_stands_behind_them_is_refused(ledger: Ledger) -> None:
    freed = Given(None, "freed", address=4096, stale=True)
    wrong = Given(None, "wrong", refused=True)
    call = CALLS["VSZEL_GetDVMirrorSessionStats"]
    name = Given("dvs", "dvs")
    assert claim(call, [name, freed, wrong], ledger) == "freed"
    assert claim(call, [wrong, freed, name], ledger) is None


def test_more_arguments_than_are_declared(ledger: Ledger) -> None:
    freed = Given(None, "freed", address=4096, stale=True)
    more = Given(None, "more")
    variadic = [call for call in CALLS.values() if call.takes(len(call.arguments) + 1)]
    assert variadic
    assert {claim(call, [freed, more], ledger) for call in variadic} == {"freed"}
    assert claim(CALLS["VSInfo_mtu_get"], [freed, more], ledger) is None


def test_indexes(ledger: Ledger) -> None:
    given = held(ledger, "VSMACEntry")
    call = CALLS["VSMACEntry___getitem__"]
    for index, rule in ((-1, None), (10, "index")):
        assert claim(call, [given, number(index)], ledger) == rule
    assert claim(CALLS["VSTeamPolicy___getitem__"], [held(ledger, "VSTeamPolicy"), number(10**6)], ledger) is None


def test_the_indexes_that_are_not_checked_are_those_of_runs_and_single_elements() -> None:
    assert {c.gives for c in CALLS.values() if c.trusts_index} - {""} == {
        *(c.arguments[0].target for c in CALLS.values() if c.trusts_index and c.gives == c.arguments[0].target),
        "zel_VDSPortVIDRange",
    }


def test_what_gives_memory_back_takes_one_pointer() -> None:
    released = [c for c in CALLS.values() if c.releases]
    assert all(len(c.arguments) == 1 for c in released)
    assert {c.family for c in released} == {"destructor", "function"}
    assert all(c.releases for c in CALLS.values() if c.family == "destructor")


def test_every_function_of_the_module_is_known() -> None:
    assert len(CALLS) == 1774
    families: dict[str, list[Call]] = {}
    for call in CALLS.values():
        families.setdefault(call.family, []).append(call)
    assert {name: len(found) for name, found in families.items()}["reader"] == 573
