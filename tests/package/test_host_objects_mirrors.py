"""Mirror sessions: values in and out of packed tables."""

from __future__ import annotations

from ipaddress import ip_network
from typing import Any

import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from libkestrel import errors, host
from libkestrel.enums import (
    DVMirrorEncapType,
    DVMirrorFilterAction,
    DVMirrorFilterType,
    DVMirrorSessionType,
)
from libkestrel.host import MirrorEntity, MirrorFlags, MirrorRule, MirrorSession, MirrorWildcard
from libkestrel.host.mirrors import packed, unpacked
from libkestrel.records import MacAddress

NAME = st.text(alphabet="abcdefgh-123", min_size=1, max_size=31)
U16, U32 = st.integers(0, 2**16 - 1), st.integers(0, 2**32 - 1)
ENTITY = st.one_of(
    NAME.map(MirrorEntity.port),
    NAME.map(MirrorEntity.uplink),
    U16.map(MirrorEntity.vlan),
    U32.map(MirrorEntity.number),
    st.ip_addresses().map(MirrorEntity.ip),
    st.integers(0, 2**48 - 1).map(lambda n: MirrorEntity.mac(str(MacAddress(n)))),
)
ENTITIES = st.lists(ENTITY, max_size=3).map(tuple)
NETWORKS: Any = st.lists(st.sampled_from([ip_network(n) for n in ("10.0.0.0/8", "0.0.0.0/0", "2001:db8::/32", "::1")]),
                         max_size=3).map(tuple)  # fmt: skip
PORT_RANGE = st.none() | st.tuples(U16, U16)
RULE = st.builds(
    MirrorRule,
    action=st.sampled_from([DVMirrorFilterAction.ACTION_MIRROR, DVMirrorFilterAction.ACTION_DONT_MIRROR]),
    sources=NETWORKS,
    destinations=NETWORKS,
    protocol=st.none() | st.integers(0, 255),
    source_ports=PORT_RANGE,
    destination_ports=PORT_RANGE,
)
SESSION = st.builds(
    MirrorSession,
    id=NAME,
    destinations=ENTITIES,
    sources_in=ENTITIES,
    sources_out=ENTITIES,
    name=NAME,
    type=st.sampled_from(DVMirrorSessionType),
    snap_length=U32,
    sampling_rate=U32,
    flags=st.integers(0, 127).map(MirrorFlags),
    encapsulation_vlan=U16,
    wildcard_in=st.integers(0, 31).map(MirrorWildcard),
    wildcard_out=st.integers(0, 31).map(MirrorWildcard),
    encapsulation=st.sampled_from(DVMirrorEncapType),
    gre_key=U32,
    erspan_id=U16,
    erspan_cos=st.integers(0, 255),
    erspan_granularity=st.integers(0, 255),
    uplink_filter=st.sampled_from(DVMirrorFilterType),
    own_stack=st.booleans(),
    rules=st.lists(RULE, max_size=3).map(tuple),
)


@settings(max_examples=150, deadline=None, suppress_health_check=[HealthCheck.too_slow])
@given(st.lists(SESSION, max_size=4))
def test_packing_and_unpacking_give_the_same(sessions: list[MirrorSession]) -> None:
    table = packed(sessions)
    assert table.numSessions == len(sessions)
    assert unpacked(table) == tuple(sessions)


def session(name: str, *destinations: str) -> MirrorSession:
    return MirrorSession(name, tuple(MirrorEntity.port(port) for port in destinations or ("p2",)))


def test_sessions_are_added_replaced_and_removed(bench: host.Switch) -> None:
    port = bench.port("p1")
    port.add_mirror_session(session("one"), session("two"))
    assert bench.mirror_session_ids() == ("one", "two")
    with pytest.raises(errors.Exists):
        port.add_mirror_session(session("three"), session("two"))
    assert len(port.mirror_sessions) == 2
    assert port.ensure_mirror_session(session("two")) is False
    assert port.ensure_mirror_session(session("two", "p2", "p2b")) is True
    assert port.mirror_sessions == (session("one"), session("two", "p2", "p2b"))
    assert port.ensure_mirror_session(session("three")) is True
    assert port.ensure_no_mirror_session("one") is True
    assert port.ensure_no_mirror_session("one") is False
    with pytest.raises(errors.NotFound):
        port.remove_mirror_session("one")
    del port.mirror_sessions
    assert len(port.mirror_sessions) == 0
    assert bench.mirror_session_ids() == ()


def test_a_session_with_everything_reaches_the_host_and_comes_back(bench: host.Switch) -> None:
    wanted = MirrorSession(
        "all",
        destinations=(MirrorEntity.ip("192.0.2.1"),),
        sources_in=(MirrorEntity.port("p2"),),
        sources_out=(MirrorEntity.port("p2"),),
        name="for display",
        type=DVMirrorSessionType.VS_DVMIRROR_SESSIONTYPE_ERMIRROR_SRC,
        snap_length=128,
        sampling_rate=10,
        encapsulation=DVMirrorEncapType.DVMIRROR_ENCAP_ERSPAN2,
        erspan_id=7,
        gre_key=5,
        rules=(MirrorRule(sources=(ip_network("10.0.0.0/8"),), protocol=6, destination_ports=(80, 443)),),
    )
    bench.port("p1").mirror_sessions = (wanted,)
    assert bench.port("p1").mirror_sessions == (wanted,)


def test_an_identifier_is_unique_in_the_switch(bench: host.Switch) -> None:
    bench.port("p1").mirror_sessions = (session("one"),)
    with pytest.raises(errors.Exists):
        bench.port("p2").mirror_sessions = (session("one", "p1"),)


def test_values_that_do_not_fit_are_refused_before_the_platform(bench: host.Switch) -> None:
    port = bench.port("p1")
    for wrong, error in (
        (MirrorSession("x" * 32), ValueError),
        (MirrorSession("a", gre_key=-1), OverflowError),
        (MirrorSession("a", (MirrorEntity.vlan(2**16),)), OverflowError),
        (MirrorSession("a", snap_length="x"), TypeError),  # type: ignore[arg-type]
    ):
        with pytest.raises(error):
            port.add_mirror_session(wrong)
    assert port.mirror_sessions == ()
