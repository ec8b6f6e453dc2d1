"""Steps through packed tables, and copies of embedded records."""

from __future__ import annotations

from typing import Any

import _libkestrel
import pytest

from support import memory
from support.blocks import Block, image, padded
from support.output import printed
from support.recorder import Recorder
from support.scarcity import scarce


def placed(step: Any, record: str) -> int:
    """The address that a step gives; it must be a record that Python does not own."""
    assert type(step).__name__ == record
    assert step.own() is False
    return memory.address(step)


# ---- LAG tables ----


def lag(name: bytes, *uplinks: bytes) -> bytes:
    tail = b"".join(padded(uplink, 32) for uplink in uplinks)
    return image("VSLAGStatus", tail, name=padded(name, 68), numUplinks=len(uplinks))


def test_lags_follow_one_another_behind_their_uplinks(recorder: Recorder) -> None:
    content = (3).to_bytes(4, "little") + lag(b"lag-a", b"vmnic0", b"vmnic1") + lag(b"lag-b") + lag(b"lag-c", b"vmnic2")
    block = Block(content)
    recorder.output("VSZEL_GetLAGTable", 1, block.address.to_bytes(8, "little"))
    table = _libkestrel.VSZEL_GetLAGTable("s")[1]
    start = memory.address(table)
    first = _libkestrel.VSLAGTable_vs_lag_table_first_lag(table)
    second = _libkestrel.VSLAGStatus_vs_lag_table_next_lag(first)
    third = _libkestrel.VSLAGStatus_vs_lag_table_next_lag(second)
    assert [placed(x, "VSLAGStatus") - start for x in (first, second, third)] == [4, 4 + 88 + 64, 4 + 88 + 64 + 88]
    assert [_libkestrel.VSLAGStatus_get_name(x) for x in (first, second, third)] == ["lag-a", "lag-b", "lag-c"]
    uplinks = [_libkestrel.VSLAGStatus_get_uplink_name(first, i) for i in range(-1, 3)]
    assert uplinks == [None, "vmnic0", "vmnic1", None]
    assert _libkestrel.VSLAGStatus_get_uplink_name(first, -(2**31)) is None


@pytest.mark.parametrize("count", [0, 1, 2**32 - 1])
def test_the_first_lag_stands_behind_the_head_whatever_the_count(count: int) -> None:
    block = Block(image("VSLAGTable", numLAGs=count))
    first = _libkestrel.VSLAGTable_vs_lag_table_first_lag(block.pointer("VSLAGTable"))
    assert placed(first, "VSLAGStatus") == block.address + 4


@pytest.mark.parametrize(
    ("uplinks", "distance"),
    [(0, 88), (1, 120), (2, 152), (32, 1112), (2**31, 88 + 32 * 2**31), (2**32 - 1, 88 + 32 * (2**32 - 1))],
)
def test_the_next_lag_stands_behind_the_uplinks(uplinks: int, distance: int) -> None:
    block = Block(image("VSLAGStatus", numUplinks=uplinks))
    following = _libkestrel.VSLAGStatus_vs_lag_table_next_lag(block.pointer("VSLAGStatus"))
    assert placed(following, "VSLAGStatus") == block.address + distance


# ---- Mirror session tables ----

TABLE, SESSION, ENTITY = "DVMirrorSessionTable", "DVMirrorSession", "DVMirrorEntity"


def session_table(sessions: int, entities: int = 0) -> Block:
    return Block(image(TABLE, numSessions=sessions, numEntities=entities))


@pytest.mark.parametrize("sessions", [0, 1, 2**32 - 1])
def test_the_first_session_stands_behind_the_head_whatever_the_count(sessions: int) -> None:
    block = session_table(sessions)
    first = _libkestrel.DVMirrorSessionTable_get_first_session(block.pointer(TABLE))
    assert placed(first, SESSION) == block.address + 20


@pytest.mark.parametrize(
    ("sessions", "index", "offset"),
    [
        (3, 0, 716),
        (3, 1, 768),
        (3, 100, 716 + 5200),
        (0, 0, 20),
        (0, 1, 72),
        (1, 0, 252),
        (3, -1, 664),
        (3, 2**31 - 1, 716 + 52 * (2**31 - 1)),
        (3, -(2**31), 716 - 52 * 2**31),
        (2**31, 0, 20 + 232 * 2**31),
        (2**32 - 1, 2, 20 + 232 * (2**32 - 1) + 104),
    ],
)
@pytest.mark.parametrize("entities", [0, 2, 2**32 - 1])
def test_entities_stand_behind_all_sessions(sessions: int, entities: int, index: int, offset: int, capfd: Any) -> None:
    block = session_table(sessions, entities)
    found = _libkestrel.DVMirrorSessionTable_get_first_session_entity(block.pointer(TABLE), index)
    assert placed(found, ENTITY) == (block.address + offset) % 2**64  # of a low block, it lies below zero
    assert printed(capfd) == ""


def test_the_next_entity_is_52_bytes_on_and_there_is_always_one() -> None:
    block = Block(bytes(52))
    entity = block.pointer(ENTITY)
    for step in range(1, 200):
        entity = _libkestrel.DVMirrorEntity___next__(entity)
        assert placed(entity, ENTITY) == block.address + 52 * step
        if step == 2:
            assert memory.address(entity) == block.address + 104


def test_a_tables_sessions_and_entities_are_its_own() -> None:
    table = _libkestrel.alloc_dvmirror_session_table(2, 3)
    for index in range(3):
        entity = _libkestrel.DVMirrorSessionTable_get_first_session_entity(table, index)
        _libkestrel.DVMirrorEntity_type_set(entity, _libkestrel.MIRROR_ENTTYPE_DVPORT)
        _libkestrel.DVMirrorEntity_set_entity(entity, f"port-{index}")
    _libkestrel.DVMirrorSession_dname_set(_libkestrel.DVMirrorSessionTable_get_first_session(table), "first")
    assert memory.read(table, 5, 20 + 32) == b"first"
    entity = _libkestrel.DVMirrorSessionTable_get_first_session_entity(table, 0)
    shown = []
    for _ in range(3):
        shown.append(_libkestrel.DVMirrorEntity_get_entity(entity))
        entity = _libkestrel.DVMirrorEntity___next__(entity)
    assert shown == ["port-0", "port-1", "port-2"]
    assert memory.read(table, 6, 20 + 2 * 232 + 52 + 4) == b"port-1"
    _libkestrel.free_dvmirror_session_table(table)


def test_steps_release_nothing() -> None:
    memory.allocated_bytes()  # which skips where nothing is counted, before there is anything to release
    table = _libkestrel.alloc_dvmirror_session_table(1, 1)
    block = Block(image("VSLAGTable", lag(b"lag")))
    held = memory.allocated_bytes()
    for _ in range(100):
        _libkestrel.DVMirrorSessionTable_get_first_session(table)
        _libkestrel.DVMirrorEntity___next__(_libkestrel.DVMirrorSessionTable_get_first_session_entity(table, 0))
        first = _libkestrel.VSLAGTable_vs_lag_table_first_lag(block.pointer("VSLAGTable"))
        _libkestrel.VSLAGStatus_vs_lag_table_next_lag(first)
    assert abs(memory.allocated_bytes() - held) < 100 * 16
    _libkestrel.free_dvmirror_session_table(table)


# ---- Copies of embedded records ----

COPIES = {
    "VSPMACLearningStatsPortInfo_get_mac_learning_stats": ("VSPMACLearningStatsPortInfo", "VSPMACLearningStats", 28),
    "VSPropSecurityPortInfo_get_port_sec": ("VSPropSecurityPortInfo", "VSPropSecurity", 4),
    "VSPMACLearningInfo_get_mac_learning_config": ("VSPMACLearningInfo", "VSPMACLearning", 10),
}
"""The copying methods with the records that they take and make, and the latter's size."""


@pytest.mark.parametrize("method", COPIES)
def test_a_copy_holds_what_stands_behind_the_port_identifier(method: str, capfd: Any) -> None:
    info, record, size = COPIES[method]
    content = bytes(range(1, size + 1))
    block = Block(b"port" + content)
    copy = getattr(_libkestrel, method)(block.pointer(info))
    assert type(copy).__name__ == record
    assert copy.own() is True
    assert memory.usable_size(copy) >= size
    assert memory.read(copy, size) == content
    assert block.content() == b"port" + content
    assert printed(capfd) == ""


@pytest.mark.parametrize("method", COPIES)
def test_a_copy_and_its_origin_do_not_reach_each_other(method: str) -> None:
    info, _, size = COPIES[method]
    content = bytes(range(1, size + 1))
    block = Block(b"port" + content)
    first, second = (getattr(_libkestrel, method)(block.pointer(info)) for _ in range(2))
    memory.write(first, b"\xff" * size)
    assert block.content() == b"port" + content
    assert memory.read(second, size) == content
    block.write(bytes(4 + size))
    assert memory.read(first, size) == b"\xff" * size
    assert memory.read(second, size) == content


def test_a_copys_members_read_as_the_origins() -> None:
    block = Block(
        image(
            "VSPMACLearningStatsPortInfo",
            portStats=image(
                "VSPMACLearningStats",
                numMACsLearned=1,
                noLearningAllowedPkts=2**40,
                noLearningDroppedPkts=2**64 - 1,
                numMACsMoved=4,
            ),
        )
    )
    stats = _libkestrel.VSPMACLearningStatsPortInfo_get_mac_learning_stats(block.pointer("VSPMACLearningStatsPortInfo"))
    assert _libkestrel.VSPMACLearningStats_numMACsLearned_get(stats) == 1
    assert _libkestrel.VSPMACLearningStats_noLearningAllowedPkts_get(stats) == 2**40
    assert _libkestrel.VSPMACLearningStats_noLearningDroppedPkts_get(stats) == 2**64 - 1
    assert _libkestrel.VSPMACLearningStats_numMACsMoved_get(stats) == 4

    block = Block(image("VSPropSecurityPortInfo", l2SecPortInfo=image("VSPropSecurity", flags=0x80000001)))
    info = block.pointer("VSPropSecurityPortInfo")
    security = _libkestrel.VSPropSecurityPortInfo_get_port_sec(info)
    assert _libkestrel.VSPropSecurity_flags_get(security) == 0x80000001
    _libkestrel.VSPropSecurity_flags_set(security, 0)
    assert (
        _libkestrel.VSPropSecurity_flags_get(_libkestrel.VSPropSecurityPortInfo_l2SecPortInfo_get(info)) == 0x80000001
    )

    learning = image("VSPMACLearning", learning=b"\1", flooding=b"\0", macLimit=4096, macLimitPolicy=-1)
    block = Block(image("VSPMACLearningInfo", portMACLearning=learning))
    config = _libkestrel.VSPMACLearningInfo_get_mac_learning_config(block.pointer("VSPMACLearningInfo"))
    assert _libkestrel.VSPMACLearning_learning_get(config) == "\1"
    assert _libkestrel.VSPMACLearning_flooding_get(config) == "\0"
    assert _libkestrel.VSPMACLearning_macLimit_get(config) == 4096
    assert _libkestrel.VSPMACLearning_macLimitPolicy_get(config) == -1


@pytest.mark.parametrize("method", COPIES)
def test_copies_are_released_with_their_objects(method: str) -> None:
    info, _, size = COPIES[method]
    block = Block(bytes(4 + size))
    target = block.pointer(info)
    before = memory.allocated_bytes()
    for _ in range(5000):
        getattr(_libkestrel, method)(target)
    assert memory.allocated_bytes() < before + 1000 * 24


@pytest.mark.parametrize("method", COPIES)
def test_a_copy_for_which_there_is_no_memory_is_none(method: str) -> None:
    info, _, size = COPIES[method]
    outcome = scarce(
        f"info = _libkestrel.new_{info}()\ninfo.disown()\nreport(failing({size}, _libkestrel.{method}, info))\n"
    )
    assert outcome.result is None
    assert outcome.printed == ""
