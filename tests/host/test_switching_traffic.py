"""Switching from the frames' point of view: VLANs, what is learned and for how long, and what is too large."""

from __future__ import annotations

import ctypes
from collections.abc import Iterator
from contextlib import ExitStack

import _libkestrel as k
import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from libkestrel import lab
from libkestrel.lab.scenario import load_scenario_text

SWITCH, UPLINK = "s", "0"
PORTS = ("a", "b", "c", "d")
OUTSIDE, BROADCAST = "02:99:00:00:00:01", "ff:ff:ff:ff:ff:ff"
VLANS = (0, 1, 7, 4094)


@pytest.fixture(autouse=True)
def _host_of_its_own() -> Iterator[None]:
    with lab.scratch():
        yield


def mac(port: str) -> str:
    return f"02:00:00:00:00:{PORTS.index(port) + 1:02x}"


def build(policies: dict[str, str] | None = None, switch: str = "") -> None:
    """A switch with four machines and an uplink; further keys of its ports, by their names, and of itself."""
    ports = "".join(
        f'[[switch.port]]\nid = "{port}"\nclient = {{ name = "{port}.eth0", mac = "{mac(port)}" }}\n'
        f"{(policies or {}).get(port, '')}\n"
        for port in PORTS
    )
    load_scenario_text(
        f'[[nic]]\nname = "n"\n[[switch]]\nname = "{SWITCH}"\nuplink = [{{ name = "u", nic = "n" }}]\n{switch}\n{ports}'
    )


def received(port: str, frame: bytes) -> dict[str, list[lab.Frame]]:
    """What leaves each port because of a frame from one of them."""
    with ExitStack() as stack:
        captures = {each: stack.enter_context(lab.capture(SWITCH, each)) for each in (*PORTS, UPLINK)}
        lab.send(SWITCH, port, frame)
        return {each: capture.frames for each, capture in captures.items() if capture.frames}


# ---- VLANs ----

TRUNKS = st.sets(st.sampled_from(VLANS[1:]), min_size=1).map(frozenset)
POLICIES = st.one_of(st.sampled_from(VLANS), TRUNKS)


@settings(max_examples=120, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(
    policies=st.lists(POLICIES, min_size=4, max_size=4),
    source=st.sampled_from((*PORTS, UPLINK)),
    tag=st.sampled_from((None, *VLANS[1:])),
)
def test_frames_stay_in_their_vlan(policies: list[int | frozenset[int]], source: str, tag: int | None) -> None:
    of_port = dict(zip(PORTS, policies, strict=True))
    build({p: f"vlan = {v}" if isinstance(v, int) else f"trunk = {sorted(v)}" for p, v in of_port.items()})
    policy = of_port.get(source)
    # The VLAN of the frame within the switch; an access port's client may not say one.
    vlan: int | None = tag or 0
    if isinstance(policy, int):
        vlan = policy if tag is None else None
    elif policy is not None and vlan not in policy:
        vlan = None
    expected: dict[str, int | None] = {}
    if vlan is not None:
        for port, each in of_port.items():
            if port != source and (vlan == each if isinstance(each, int) else vlan in each):
                expected[port] = None if isinstance(each, int) else vlan
        if source != UPLINK:
            expected[UPLINK] = vlan or None
    sender = OUTSIDE if source == UPLINK else mac(source)
    found = received(source, lab.ethernet(BROADCAST, sender, vlan=tag, payload=b"for all"))
    assert {port: [frame.vlan for frame in frames] for port, frames in found.items()} == {
        port: [seen] for port, seen in expected.items()
    }


def test_an_address_is_known_in_its_vlan_alone() -> None:
    build({"a": "trunk = [1, 7]\nlearning = {}\nsecurity = { forged = true }", "b": "vlan = 7", "c": "vlan = 1"})
    behind = "02:00:00:00:aa:01"
    lab.send(SWITCH, "a", lab.ethernet(BROADCAST, behind, vlan=1))
    assert set(received("c", lab.ethernet(behind, mac("c")))) == {"a"}
    assert set(received("b", lab.ethernet(behind, mac("b")))) == {UPLINK, "a"}, "not known there, and so to all"


# ---- Learning ----


def station(number: int) -> str:
    return f"02:00:00:00:aa:{number:02x}"


def learned() -> set[str]:
    status, table = k.VSZEL_GetMACTable(SWITCH, k.VS_MAC_ADDR_TYPE_LEARNED)
    assert status == k.ZEL_OK
    first, found = k.VSMACTable_macEntries_get(table), set()
    for place in range(k.VSMACTable_numEntries_get(table)):
        entry = k.VSMACEntry___getitem__(first, place)
        found.add(ctypes.string_at(int(k.VSMACEntry_macAddress_get(entry)), k.ZEL_ETH_ADDR_LENGTH).hex(":"))
        k.delete_VSMACEntry(entry)
    k.VSZEL_FreeMemory(table)
    return found


@settings(max_examples=60, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(
    limit=st.integers(0, 5),
    switch_limit=st.integers(0, 5),
    policy=st.sampled_from(("allow", "drop")),
    numbers=st.lists(st.integers(1, 8), max_size=12),
)
def test_no_more_is_learned_than_the_limits_allow(
    limit: int, switch_limit: int, policy: str, numbers: list[int]
) -> None:
    build(
        {"a": f'learning = {{ limit = {limit}, at-limit = "{policy}" }}\nsecurity = {{ forged = true }}'},
        f"learning = {{ ageing = 100, limit = {switch_limit} }}",
    )
    known: set[str] = set()
    for number in numbers:
        source = station(number)
        found = received("a", lab.ethernet(BROADCAST, source))
        if source not in known and len(known) < min(limit, switch_limit):
            known.add(source)
        is_refused = source not in known and policy == "drop"
        assert bool(found) != is_refused
        assert learned() == known


@settings(max_examples=60, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(
    ageing=st.integers(1, 100),
    steps=st.lists(st.tuples(st.integers(1, 3), st.integers(0, 60)), min_size=1, max_size=10),
)
def test_what_is_not_heard_of_for_as_long_as_the_ageing_time_is_forgotten(
    ageing: int, steps: list[tuple[int, int]]
) -> None:
    build({"a": "learning = {}\nsecurity = { forged = true }"}, f"learning = {{ ageing = {ageing}, limit = 100 }}")
    heard: dict[str, int] = {}
    time = 0
    for number, wait in steps:
        heard[station(number)] = time
        lab.send(SWITCH, "a", lab.ethernet(BROADCAST, station(number)))
        lab.clock.advance(wait)
        time += wait
        known = {each for each, at in heard.items() if time - at < ageing}
        heard = {each: at for each, at in heard.items() if each in known}
        assert learned() == known
        for each in map(station, range(1, 4)):
            expected = {"a"} if each in known else {"a", UPLINK}
            assert set(received("b", lab.ethernet(each, mac("b")))) == expected


# ---- Size ----


@pytest.mark.parametrize("mtu", [1280, 1500, 9000])
@pytest.mark.parametrize("vlan", [None, 7])
@pytest.mark.parametrize("source", ["a", UPLINK])
def test_what_is_larger_than_the_mtu_goes_nowhere(mtu: int, vlan: int | None, source: str) -> None:
    build(dict.fromkeys(PORTS, "trunk = [7]") if vlan else {}, f"mtu = {mtu}")
    sender = OUTSIDE if source == UPLINK else mac(source)
    for size, passes in ((mtu - 1, True), (mtu, True), (mtu + 1, False)):
        found = received(source, lab.ethernet(BROADCAST, sender, payload=bytes(size), vlan=vlan))
        assert ("b" in found) == passes, size
    assert k.VSDVS_SetMTU(SWITCH, 1280) == k.ZEL_OK
    assert "b" not in received(source, lab.ethernet(BROADCAST, sender, payload=bytes(1281), vlan=vlan))
