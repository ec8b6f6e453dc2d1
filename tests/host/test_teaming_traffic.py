"""Teams from the frames' point of view: through which uplinks they leave whatever fails, what clients see of it when
links are tracked, and what is announced when they move.
"""

from __future__ import annotations

import struct
from collections.abc import Iterator
from contextlib import ExitStack
from typing import Any

import _libkestrel as k
import pytest
from hypothesis import HealthCheck, example, given, settings
from hypothesis import strategies as st

from libkestrel import lab
from libkestrel.lab.scenario import load_scenario_text
from libkestrel.lab.scenario.format import BALANCES, CRITERIA, TEAM_FLAGS

SWITCH = "s"
UPLINKS = ("u0", "u1", "u2", "u3")
PORTS = tuple(f"p{number}" for number in range(6))
OUTSIDE = "02:99:00:00:00:01"
BROADCAST = "ff:ff:ff:ff:ff:ff"

TROUBLES: dict[str, dict[str, Any]] = {
    "link-state": {"up": False},
    "speed": {"speed": 1000},
    "speed-at-least": {"speed": 1000},
    "duplex": {"duplex": "half"},
    "errors": {"error_percent": 6},
    "blocked": {"blocked": True},
    "driver": {"driver": False},
}
"""What makes an uplink one that a criterion looks for; `lacp` and `beacon` are about several."""


@pytest.fixture(autouse=True)
def _host_of_its_own() -> Iterator[None]:
    with lab.scratch():
        yield


def mac(port: str) -> str:
    return f"02:00:00:00:00:{PORTS.index(port) + 1:02x}"


def quoted(names: tuple[str, ...] | list[str]) -> str:
    return "[" + ", ".join(f'"{name}"' for name in names) + "]"


def build(team: str, *, uplinks: tuple[str, ...] = UPLINKS, more: str = "", options: str = "", vlan: int = 0) -> None:
    """A switch with six machines and these uplinks, each with a NIC, under a teaming policy."""
    nics = "".join(f'[[nic]]\nname = "nic-{name}"\n' for name in uplinks)
    ends = ", ".join(f'{{ name = "{name}", nic = "nic-{name}", port = "{name}" }}' for name in uplinks)
    ports = "".join(
        f'[[switch.port]]\nid = "{port}"\nvlan = {vlan}\nsecurity = {{ forged = true }}\n'
        f'client = {{ name = "{port}.eth0", mac = "{mac(port)}" }}\n'
        for port in PORTS
    )
    load_scenario_text(
        f'[options]\n{options}\n{nics}[[switch]]\nname = "{SWITCH}"\nuplink = [{ends}]\n'
        f"[switch.teaming]\n{team}\n{more}\n{ports}"
    )


def carriers(port: str, frame: bytes, uplinks: tuple[str, ...] = UPLINKS) -> list[str]:
    """The uplinks that a frame from a port leaves by."""
    with ExitStack() as stack:
        captures = {name: stack.enter_context(lab.capture(SWITCH, name)) for name in uplinks}
        lab.send(SWITCH, port, frame)
        return [name for name, capture in captures.items() for each in capture if each.data == frame]


def frame_of(port: str, number: int = 0) -> bytes:
    """A frame to the outside, of IPv4 between stations that the number stands for."""
    head = struct.pack("!BBHHHBBH", 0x45, 0, 20, 0, 0, 64, 59, 0)
    packet = head + bytes([10, 0, 0, PORTS.index(port)]) + bytes([10, 1, number >> 8, number & 255])
    return lab.ethernet(OUTSIDE, mac(port), 0x0800, packet)


def port_id(port: str) -> int:
    status, number = k.VSDVS_DvPortIDToPortID(SWITCH, port)
    assert status == k.ZEL_OK
    assert isinstance(number, int)
    return number


def hint(port: str) -> list[str]:
    """The NIC that the platform says a port's frames leave by."""
    name = k.new_zel_Name()
    status = k.VSZEL_PortGetTeamUplinkHint(port_id(port), name)
    found = [k.zel_Name___repr__(name)] if status == k.ZEL_OK else []
    assert status in (k.ZEL_OK, k.ZEL_NOT_FOUND)
    k.delete_zel_Name(name)
    return found


def test_the_tables_here_are_complete() -> None:
    assert {*TROUBLES, "lacp", "beacon"} == set(CRITERIA)
    published = {name for name in dir(k) if name.startswith("TEAM_FRP_TYPE_")}
    assert {getattr(k, name) for name in published} == set(BALANCES.values())
    assert {getattr(k, n) for n in dir(k) if n.startswith("TEAM_FRP_CRIT_")} == set(CRITERIA.values())
    assert {getattr(k, n) for n in dir(k) if n.startswith("TEAM_FRP_FLAG_")} == set(TEAM_FLAGS.values())


# ---- Balance and criteria ----


def expected_carrier(home: str, active: list[str], standby: list[str], troubled: set[str]) -> set[str]:
    """Who may carry what belongs to an active uplink."""
    if home not in troubled:
        return {home}
    spare = [name for name in standby if name not in troubled]
    failed = [name for name in active if name in troubled]
    if failed.index(home) < len(spare):
        return {spare[failed.index(home)]}
    return ({*active} - troubled) | {*spare[: len(failed)]}


# Two that fail, and one standby uplink for each.
@example("source-port", "link-state", [*UPLINKS], 2, 2, {"u0", "u1"})
@example("source-mac", "link-state", [*UPLINKS], 2, 2, {"u0", "u1"})
@example("ip-hash", "link-state", [*UPLINKS], 2, 2, {"u0", "u1"})
@settings(max_examples=120, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(
    balance=st.sampled_from(sorted(BALANCES)),
    criterion=st.sampled_from(sorted(TROUBLES)),
    order=st.permutations(UPLINKS),
    active_count=st.integers(1, 4),
    standby_count=st.integers(0, 3),
    troubled=st.sets(st.sampled_from(UPLINKS)),
)
def test_frames_leave_by_the_uplink_that_the_policy_says(
    balance: str, criterion: str, order: list[str], active_count: int, standby_count: int, troubled: set[str]
) -> None:
    active = order[:active_count]
    standby = order[active_count : active_count + standby_count]
    build(
        f'balance = "{balance}"\nactive = {quoted(active)}\nstandby = {quoted(standby)}\n'
        f'criteria = ["{criterion}"]\nspeed = 10000\nfull-duplex = true\nerror-percent = 5'
    )
    numbers = range(4)
    homes = {(port, number): carriers(port, frame_of(port, number)) for port in PORTS for number in numbers}
    for name in sorted(troubled):
        lab.change_nic(f"nic-{name}", **TROUBLES[criterion])
    for (port, number), home in homes.items():
        found = carriers(port, frame_of(port, number))
        assert len(home) == 1
        if balance not in ("source-mac", "ip-hash"):
            assert hint(port) == [f"nic-{name}" for name in found]
        if balance == "none":
            assert home == [active[0]]
            assert found == [name for name in active[:1] if name not in troubled]
        elif balance == "explicit":
            assert home == [active[0]]
            assert found == [name for name in active + standby if name not in troubled][:1]
        else:
            if balance in ("source-port", "load"):
                assert home == [active[port_id(port) % len(active)]]
            allowed = expected_carrier(home[0], active, standby, troubled)
            assert len(found) == (1 if allowed else 0)
            assert set(found) <= allowed


@pytest.mark.parametrize("balance", ["source-mac", "ip-hash"])
def test_hashes_look_at_what_they_are_named_after(balance: str) -> None:
    build(f'balance = "{balance}"\nactive = {quoted(UPLINKS)}')
    by_number = [carriers("p0", frame_of("p0", number))[0] for number in range(64)]
    assert set(by_number) == (set(UPLINKS) if balance == "ip-hash" else {by_number[0]})
    by_source = set()
    for number in range(64):
        by_source |= set(carriers("p0", lab.ethernet(OUTSIDE, f"02:00:00:00:01:{number:02x}")))
    assert by_source == set(UPLINKS), "frames without IP go by their Ethernet addresses"


def test_by_load_a_port_leaves_the_uplink_that_it_overloads() -> None:
    build('balance = "load"\nactive = ["u0", "u1"]', uplinks=("u0", "u1"))
    for name in ("u0", "u1"):
        lab.change_nic(f"nic-{name}", speed=1)
    home = {port: carriers(port, frame_of(port), ("u0", "u1"))[0] for port in PORTS}
    first, second, *_ = [port for port in PORTS if home[port] == home["p0"]]
    # Together more than three quarters of what a link of 1 Mbit/s carries in 30 seconds, and each of them less.
    for port, share in ((first, 0.5), (second, 0.4)):
        for _ in range(int(share * 30e6 / 8 / 1500)):
            lab.send(SWITCH, port, lab.ethernet(OUTSIDE, mac(port), payload=bytes(1486)))
    assert carriers(first, frame_of(first), ("u0", "u1")) == [home[first]], "not before the window is over"
    lab.clock.advance(31)
    moved = {port: carriers(port, frame_of(port), ("u0", "u1"))[0] for port in PORTS}
    assert {port for port in PORTS if moved[port] != home[port]} == {first}, "the busiest, and it alone"


def test_a_policy_looks_at_all_its_criteria_and_at_no_other() -> None:
    for asked in TROUBLES:
        for trouble, change in TROUBLES.items():
            with lab.scratch():
                build(
                    f'balance = "explicit"\nactive = ["u0", "u1"]\ncriteria = ["{asked}"]\nspeed = 10000\n'
                    "full-duplex = true\nerror-percent = 5"
                )
                lab.change_nic("nic-u0", **change)
                # What leads nowhere loses the frames of a team that does not look.
                blind = [] if trouble in ("link-state", "blocked", "driver") else ["u0"]
                is_seen = asked == trouble or {asked, trouble} == {"speed", "speed-at-least"}
                found = carriers("p0", frame_of("p0"))
                # A link that is down has no speed and no duplex either.
                if trouble == "link-state" and asked in ("speed", "speed-at-least", "duplex"):
                    assert found in ([], ["u1"])
                else:
                    assert found == (["u1"] if is_seen else blind), (asked, trouble)


def test_a_group_whose_members_are_out_of_service_is_replaced() -> None:
    build(
        'balance = "explicit"\nactive = ["bond"]\nstandby = ["u2"]\ncriteria = ["lacp"]',
        more='[[switch.lag]]\nname = "bond"\nuplinks = ["u0", "u1"]',
    )
    silent = lab.LacpPartner(mode="none")
    for out, expected in (([], {"u0", "u1"}), (["u0"], {"u1"}), (["u0", "u1"], {"u2"})):
        for name in out:
            lab.change_nic(f"nic-{name}", partner=silent)
        lab.clock.advance(100)
        found = {name for number in range(64) for name in carriers("p0", frame_of("p0", number))}
        assert found == expected, out


def test_beacons_find_the_uplink_that_is_cut_off() -> None:
    build('balance = "explicit"\nactive = ["u0", "u1", "u2"]\ncriteria = ["link-state", "beacon"]')
    lab.clock.advance(2)
    assert carriers("p0", frame_of("p0")) == ["u0"]
    lab.change_nic("nic-u0", beacons=False)
    lab.clock.advance(5)
    assert carriers("p0", frame_of("p0")) == ["u1"]
    lab.change_nic("nic-u0", beacons=True)
    lab.clock.advance(5)
    assert carriers("p0", frame_of("p0")) == ["u0"]


@pytest.mark.parametrize("flags", [[], ["shotgun"]])
@pytest.mark.parametrize("balance", ["explicit", "source-port", "source-mac", "ip-hash"])
def test_while_beacons_cannot_tell_a_shotgun_team_sends_through_all_uplinks(balance: str, flags: list[str]) -> None:
    build(
        f'balance = "{balance}"\nactive = ["u0", "u1"]\nstandby = ["u2"]\n'
        f'criteria = ["link-state", "beacon"]\nflags = {quoted(flags)}'
    )
    lab.clock.advance(2)
    assert all(len(carriers(port, frame_of(port))) == 1 for port in PORTS)
    # Three uplinks, and the two that are left hear each other.
    lab.change_nic("nic-u0", beacons=False)
    lab.clock.advance(5)
    assert all(len(carriers(port, frame_of(port))) == 1 for port in PORTS)
    for name in ("u1", "u2"):
        lab.change_nic(f"nic-{name}", beacons=False)
    lab.clock.advance(5)
    for port in PORTS:
        found = carriers(port, frame_of(port))
        assert sorted(found) == ["u0", "u1", "u2"] if flags else len(found) == 1
    # A link that is known to be down is none of them.
    lab.change_nic("nic-u1", up=False)
    assert sorted(carriers("p0", frame_of("p0"))) == ["u0", "u2"] if flags else True
    with lab.capture(SWITCH, "p1") as inside:
        lab.send(SWITCH, "u0", lab.ethernet(mac("p1"), OUTSIDE))
    assert len(inside) == 1


def test_flags_of_a_team() -> None:
    build('balance = "explicit"\nactive = ["u0", "u1"]\nflags = ["block-output"]')
    assert carriers("p0", frame_of("p0")) == []
    build('balance = "none"\nactive = ["u0"]\ncriteria = ["errors"]\nflags = ["best-effort"]')
    lab.change_nic("nic-u0", error_percent=50)
    assert carriers("p0", frame_of("p0")) == ["u0"]
    build('balance = "explicit"\nactive = ["u0", "u1"]\nflags = ["rolling"]')
    lab.change_nic("nic-u0", up=False)
    assert carriers("p0", frame_of("p0")) == ["u1"]
    lab.change_nic("nic-u0", up=True)
    lab.clock.advance(10)
    assert carriers("p0", frame_of("p0")) == ["u1"]


# ---- Links that are tracked ----

LST = ' flags = ["link-tracking"]'


def link_of(port: str) -> int:
    """What a port's client sees of its link."""
    query = k.alloc_vds_query(64)
    assert k.VSDVS_GetPortProp(SWITCH, port, k.ZEL_VDSPROP_PORT_LINK_STATUS, query, None, 0) == k.ZEL_OK
    (state,) = struct.unpack_from("<I", k.VDSQuery_get_val_in_bytes(query))
    k.free_vds_query(query)
    return int(state)


def reaches(port: str, other: str) -> bool:
    frame = lab.ethernet(mac(other), mac(port), payload=b"within")
    with lab.capture(SWITCH, other) as capture:
        lab.send(SWITCH, port, frame)
    return len(capture) == 1


@settings(max_examples=40, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(
    level=st.sampled_from(["switch", "port", "named"]),
    is_tracked=st.booleans(),
    changes=st.lists(st.tuples(st.sampled_from(["u0", "u1"]), st.booleans()), max_size=8),
)
def test_clients_have_a_link_while_their_team_has_one(
    level: str, is_tracked: bool, changes: list[tuple[str, bool]]
) -> None:
    flags = LST if is_tracked else " flags = []"
    team = f'balance = "source-port"\nactive = ["u0"]\nstandby = ["u1"]\n{flags}'
    if level == "switch":
        build(team)
    else:
        build('active = ["u0", "u1"]\nflags = []')
        policy = k.new_VSTeamPolicy() if level == "port" else k.new_LSTeamPolicy()
        kind = "VSTeamPolicy" if level == "port" else "LSTeamPolicy"
        for member, value in (
            ("loadBalance", k.TEAM_FRP_TYPE_LB_SRCID),
            ("linkCriteria", k.TEAM_FRP_CRIT_LINK_STATE),
            ("flags", k.TEAM_FRP_FLAG_LST if is_tracked else 0),
            ("numActive", 1),
            ("numStandby", 1),
        ):
            getattr(k, f"{kind}_{member}_set")(policy, value)
        for place, name in enumerate(("u0", "u1")):
            getattr(k, f"{kind}___setitem__")(policy, place, name)
        if level == "port":
            assert k.VSDVS_SetPortTeamingPolicy(SWITCH, "p0", policy) == k.ZEL_OK
        else:
            k.LSTeamPolicy_name_set(policy, "team")
            table = k.alloc_ls_team_table(1)
            k.LSTeamTable_numLSTeam_set(table, 1)
            k.LSTeamTable___setitem__(table, 0, policy)
            assert k.VSDVS_SetLSTeamingPolicy(SWITCH, table) == k.ZEL_OK
            assert k.VSDVS_SetPortLSTeamingPolicy(SWITCH, "p0", "team") == k.ZEL_OK
            k.free_ls_team_table(table)
        getattr(k, f"delete_{kind}")(policy)
    up = {"u0": True, "u1": True}
    for name, is_up in changes:
        up[name] = is_up
        lab.change_nic(f"nic-{name}", up=is_up)
        has_link = not is_tracked or any(up.values())
        others_link = has_link or level != "switch"
        assert (link_of("p0"), link_of("p1")) == tuple(
            k.ZEL_LINK_STATE_UP if each else k.ZEL_LINK_STATE_DOWN for each in (has_link, others_link)
        )
        assert reaches("p0", "p1") == reaches("p1", "p0") == has_link
        assert reaches("p1", "p2") == others_link


# ---- Announcements ----


def announced(capture: lab.Capture) -> list[lab.Frame]:
    return [frame for frame in capture if frame.kind == k.ZEL_ETH_TYPE_RARP]


@pytest.mark.parametrize("flags", [[], ["notify"]])
@pytest.mark.parametrize("vlan", [0, 7])
@pytest.mark.parametrize("balance", sorted({*BALANCES} - {"none", "ip-hash"}))
def test_addresses_that_move_are_announced_where_they_go(balance: str, vlan: int, flags: list[str]) -> None:
    build(
        f'balance = "{balance}"\nactive = ["u0", "u1"]\nflags = {quoted(flags)}',
        uplinks=("u0", "u1"),
        options="RARPAdvertisementDuration = 10",
        vlan=vlan,
    )
    before = {}
    for port in PORTS:
        with lab.capture(SWITCH, "u0") as first:
            lab.send(SWITCH, port, frame_of(port))
        before[port] = len(first) == 1
    with lab.capture(SWITCH, "u0") as first, lab.capture(SWITCH, "u1") as second:
        lab.change_nic("nic-u0", up=False)
        lab.clock.advance(60)
    frames = announced(second)
    assert announced(first) == []
    moved = {mac(port) for port, is_first in before.items() if is_first}
    assert moved, "somebody was there"
    assert {frame.source for frame in frames} == (moved if flags else set())
    for address in moved if flags else ():
        # At once, and 1, 2, 4 seconds after one another, for ten seconds.
        times = [frame.time_ns / 1e9 for frame in frames if frame.source == address]
        assert [time - times[0] for time in times] == [0, 1, 3, 7]
    for frame in frames:
        assert (frame.destination, frame.vlan) == (BROADCAST, vlan or None)
        operation, sender, _, target = struct.unpack_from("!H6s4s6s", frame.payload, 6)
        assert (operation, sender, target) == (3, lab.frames.mac(frame.source), lab.frames.mac(frame.source))
    stats = k.new_VSRARPStats()
    assert k.VSZEL_GetRARPStats(SWITCH, stats) == k.ZEL_OK
    assert k.VSRARPStats_rarpPktsSent_get(stats) == len(frames)
    k.delete_VSRARPStats(stats)
