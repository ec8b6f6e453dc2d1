"""Multicast from the frames' point of view: who receives what, whom reports reach, whom the switch asks, and for how
long it all lasts. Everything holds for IPv4 with IGMP and for IPv6 with MLD.
"""

from __future__ import annotations

from collections.abc import Iterator
from contextlib import ExitStack
from ipaddress import ip_address

import _libkestrel as k
import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from libkestrel import lab
from libkestrel.lab.scenario import load_scenario_text
from support import group_frames as gf
from support.group_frames import ALLOW, BLOCK, TO_EX, TO_IN

SWITCH, UPLINK = "s", "0"
HOSTS = ("a", "b", "c")
MACS = {port: f"02:00:00:00:00:{number:02x}" for number, port in enumerate((*HOSTS, "router"), start=1)}
OUTSIDE = "02:99:00:00:00:01"
VERSIONS = pytest.mark.parametrize("version", [4, 6])
MODES = pytest.mark.parametrize("mode", ["snooping", "legacy"])
LIFETIME, LEAVING = 260, 2
"""Seconds: of a membership, and of one that is left unless somebody answers, by default."""


@pytest.fixture(autouse=True)
def _host_of_its_own() -> Iterator[None]:
    with lab.scratch():
        yield


def build(mode: str = "snooping", /, **options: int | str) -> None:
    """A switch with three hosts, a place for a router, and an uplink."""
    lines = [f"{name} = {value!r}" for name, value in options.items()]
    ports = "".join(
        f'[[switch.port]]\nid = "{port}"\nclient = {{ name = "{port}.eth0", mac = "{mac}" }}\n'
        for port, mac in MACS.items()
    )
    load_scenario_text(
        "\n".join(["[options]", *lines, '[[nic]]\nname = "n"', f'[[switch]]\nname = "{SWITCH}"', ""])
        + f'multicast = "{mode}"\nuplink = [{{ name = "u", nic = "n" }}]\n{ports}'
    )


def receivers(frame: bytes, port: str = UPLINK) -> set[str]:
    """The ports that a frame from one leaves by."""
    with ExitStack() as stack:
        captures = {each: stack.enter_context(lab.capture(SWITCH, each)) for each in (*MACS, UPLINK)}
        lab.send(SWITCH, port, frame)
        return {each for each, capture in captures.items() if any(got.data == frame for got in capture)}


def say(port: str, frame: bytes) -> None:
    lab.send(SWITCH, port, frame)


def members(address: gf.Address, source: int = 1) -> set[str]:
    """Who receives what a station outside sends to a group."""
    return receivers(gf.data(OUTSIDE, gf.station(address.version, source), address))


# ---- Whom reports reach ----


def group_talk(version: int) -> dict[str, bytes]:
    address, mac = gf.group(version, 7), MACS["a"]
    talk = {
        "join": gf.join(mac, address),
        "leave": gf.leave(mac, address),
        "report with sources": gf.report(mac, address, TO_IN, [gf.station(version, 1)]),
    }
    return talk | ({"oldest join": gf.join(mac, address, oldest=True)} if version == 4 else {})


@VERSIONS
@pytest.mark.parametrize("option", [None, 0, 1])
def test_reports_reach_uplinks_where_the_option_lets_them_and_never_other_hosts(
    version: int, option: int | None
) -> None:
    build(**({} if option is None else {"SendIGMPReportToUplink": option}))
    for name, frame in group_talk(version).items():
        assert receivers(frame, "a") == (set() if option == 0 else {UPLINK}), name
    say("router", gf.general_query(MACS["router"], gf.neighbour(version, 1)))
    for name, frame in group_talk(version).items():
        assert receivers(frame, "a") == {"router"} | (set() if option == 0 else {UPLINK}), name
    data = gf.data(MACS["a"], gf.station(version, 1), gf.group(version, 8))
    assert receivers(data, "a") == {"router", UPLINK}, "the option is about reports alone"


@VERSIONS
@pytest.mark.parametrize("option", [0, 1])
def test_in_legacy_mode_reports_are_frames_like_others(version: int, option: int) -> None:
    build("legacy", SendIGMPReportToUplink=option)
    for name, frame in group_talk(version).items():
        assert UPLINK in receivers(frame, "a"), name


@VERSIONS
@MODES
def test_what_hosts_elsewhere_report_is_not_noted(version: int, mode: str) -> None:
    build(mode)
    say(UPLINK, gf.join(OUTSIDE, gf.group(version, 7)))
    assert receivers(gf.data(MACS["a"], gf.station(version, 1), gf.group(version, 7)), "a") == {UPLINK}


# ---- Who receives ----


@settings(max_examples=60, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(
    version=st.sampled_from([4, 6]),
    mode=st.sampled_from(["snooping", "legacy"]),
    steps=st.lists(
        st.tuples(st.sampled_from(["join", "leave"]), st.sampled_from(HOSTS), st.integers(0, 3)), max_size=12
    ),
    has_router=st.booleans(),
)
def test_members_and_routers_receive_and_nobody_else(
    version: int, mode: str, steps: list[tuple[str, str, int]], has_router: bool
) -> None:
    # The first two share their Ethernet address.
    pair = ["239.1.1.1", "239.129.1.1"] if version == 4 else ["ff0e::1:1", "ff05::1:1"]
    groups = [*map(ip_address, pair), gf.group(version, 300), gf.group(version, 301)]
    assert gf.group_mac(groups[0]) == gf.group_mac(groups[1])
    build(mode)
    if has_router:
        say("router", gf.general_query(MACS["router"], gf.neighbour(version, 1)))
    joined: set[tuple[str, gf.Address]] = set()
    for what, port, number in steps:
        address = groups[number]
        if what == "join":
            joined.add((port, address))
            say(port, gf.join(MACS[port], address))
        else:
            joined.discard((port, address))
            # Nobody else is there to answer the question whether the group is still wanted.
            say(port, gf.report(MACS[port], address, TO_IN))
            lab.clock.advance(LEAVING + 1)
    for address in groups:
        if mode == "snooping":
            expected = {port for port, each in joined if each == address} | ({"router"} if has_router else set())
        else:
            expected = {port for port, each in joined if gf.group_mac(each) == gf.group_mac(address)}
        assert members(address) == expected, address


@VERSIONS
@MODES
def test_groups_of_the_link_and_frames_without_ip(version: int, mode: str) -> None:
    build(mode)
    link_local = ip_address("224.0.0.251" if version == 4 else "ff02::fb")
    assert members(link_local) == set(MACS)
    other = lab.ethernet("01:00:5e:01:01:01", OUTSIDE, 0x88B5, b"no IP")
    assert receivers(other) == (set(MACS) if mode == "snooping" else set())


@VERSIONS
def test_groups_are_joined_in_a_vlan(version: int) -> None:
    build()
    for port, vlan in (("a", 5), ("b", 6)):
        assert k.VSDVS_SetPortVLANPolicy(SWITCH, port, vlan, 0, 0, 0, None, 0) == k.ZEL_OK
        say(port, gf.join(MACS[port], gf.group(version, 7)))
    for vlan, port in ((5, "a"), (6, "b")):
        with lab.capture(SWITCH, "a") as at_a, lab.capture(SWITCH, "b") as at_b:
            lab.send(SWITCH, UPLINK, gf.data(OUTSIDE, gf.station(version, 1), gf.group(version, 7), vlan=vlan))
        assert (len(at_a), len(at_b)) == ((1, 0) if port == "a" else (0, 1))


@VERSIONS
def test_the_mode_changes_who_receives_at_once_and_memberships_go_on(version: int) -> None:
    build("legacy")
    address = gf.group(version, 7)
    say("a", gf.report(MACS["a"], address, TO_IN, [gf.station(version, 1)]))
    lab.clock.advance(10 * LIFETIME)
    assert members(address, source=2) == {"a"}, "an adapter knows no sources and forgets nothing"
    assert k.VSDVS_SetMcastFilterMode(SWITCH, k.VS_MCAST_FILTER_MODE_SNOOPING) == k.ZEL_OK
    assert (members(address, source=1), members(address, source=2)) == ({"a"}, set())
    assert k.VSDVS_SetMcastFilterMode(SWITCH, k.VS_MCAST_FILTER_MODE_LEGACY) == k.ZEL_OK
    assert members(address, source=2) == {"a"}


# ---- Sources ----

SOURCES = range(1, 5)
CHANGES = st.tuples(st.sampled_from([TO_IN, TO_EX, ALLOW, BLOCK]), st.sets(st.sampled_from(list(SOURCES)), max_size=3))


@settings(max_examples=60, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(version=st.sampled_from([4, 6]), changes=st.lists(CHANGES, min_size=1, max_size=7))
def test_sources_are_those_that_the_host_wants(version: int, changes: list[tuple[int, set[int]]]) -> None:
    build()
    address = gf.group(version, 7)
    includes, listed = True, set[int]()
    for kind, sources in changes:
        if kind in (TO_IN, TO_EX):
            includes, listed = kind == TO_IN, set(sources)
        elif (kind == ALLOW) == includes:
            listed |= sources
        else:
            listed -= sources
        say("a", gf.report(MACS["a"], address, kind, [gf.station(version, each) for each in sorted(sources)]))
        # What is not wanted any more ends once nobody has answered.
        lab.clock.advance(LEAVING + 1)
        received = {each for each in SOURCES if "a" in members(address, each)}
        assert received == {each for each in SOURCES if (each in listed) == includes}
        assert "b" not in members(address)


@VERSIONS
@pytest.mark.parametrize("option", [1, 3])
def test_more_sources_than_the_option_allows_are_all(version: int, option: int) -> None:
    build(**{"IGMPV3MaxSrcIPNum" if version == 4 else "MLDV2MaxSrcIPNum": option})
    address = gf.group(version, 7)
    wanted = [gf.station(version, each) for each in range(1, option + 1)]
    say("a", gf.report(MACS["a"], address, TO_IN, wanted))
    assert members(address, source=100) == set()
    say("a", gf.report(MACS["a"], address, ALLOW, [gf.station(version, option + 1)]))
    assert members(address, source=100) == {"a"}


# ---- Older hosts among newer ones ----


@pytest.mark.parametrize(("version", "oldest"), [(4, True), (4, False), (6, False)])
def test_an_older_host_gets_all_sources_and_newer_ones_speak_as_it_does(version: int, oldest: bool) -> None:
    build()
    address, first = gf.group(version, 7), gf.station(version, 1)
    say("a", gf.report(MACS["a"], address, TO_IN, [first]))
    assert (members(address, 1), members(address, 2)) == ({"a"}, set())
    say("a", gf.join(MACS["a"], address, oldest=oldest))
    assert members(address, 2) == {"a"}
    # While the older host is there, nobody can keep a source away from it.
    say("a", gf.report(MACS["a"], address, BLOCK, [gf.station(version, 2)]))
    say("a", gf.report(MACS["a"], address, TO_EX, [gf.station(version, 2)]))
    lab.clock.advance(LEAVING + 1)
    assert members(address, 2) == {"a"}
    # The newer host leaves; whether that is heard is the older version's matter.
    say("a", gf.report(MACS["a"], address, TO_IN))
    lab.clock.advance(LEAVING + 1)
    assert members(address, 2) == ({"a"} if oldest else set())


@pytest.mark.parametrize(("version", "oldest"), [(4, True), (4, False), (6, False)])
def test_sources_count_again_once_the_older_host_has_not_been_heard_for_long(version: int, oldest: bool) -> None:
    build()
    address = gf.group(version, 7)
    say("a", gf.join(MACS["a"], address, oldest=oldest))
    lab.clock.advance(LIFETIME - 1)
    say("a", gf.report(MACS["a"], address, TO_EX, [gf.station(version, 2)]))
    assert members(address, 2) == {"a"}
    lab.clock.advance(2)
    say("a", gf.report(MACS["a"], address, TO_EX, [gf.station(version, 2)]))
    lab.clock.advance(LEAVING + 1)
    assert (members(address, 1), members(address, 2)) == ({"a"}, set())


@pytest.mark.parametrize(("version", "spoken"), [(4, 1), (4, 2), (6, 1)])
def test_a_switch_of_an_older_version_reads_no_sources(version: int, spoken: int) -> None:
    build(**{"IGMPVersion" if version == 4 else "MLDVersion": spoken})
    address = gf.group(version, 7)
    say("a", gf.report(MACS["a"], address, TO_IN, [gf.station(version, 1)]))
    assert members(address, source=2) == {"a"}
    say("a", gf.leave(MACS["a"], address))
    lab.clock.advance(LEAVING + 1)
    assert members(address, source=2) == ({"a"} if (version, spoken) == (4, 1) else set())


# ---- Time ----


@VERSIONS
@pytest.mark.parametrize(("options", "lifetime"), [({}, 260), ({"IGMPQueryInterval": 10, "IGMPQueries": 3}, 40)])
def test_memberships_age_in_snooping_mode(version: int, options: dict[str, int], lifetime: int) -> None:
    build(**options)
    address = gf.group(version, 7)
    say("a", gf.join(MACS["a"], address))
    lab.clock.advance(lifetime - 1)
    assert members(address) == {"a"}
    say("a", gf.join(MACS["a"], address))
    lab.clock.advance(lifetime - 0.001)
    assert members(address) == {"a"}, "renewed"
    lab.clock.advance(0.001)
    assert members(address) == set()


@VERSIONS
def test_in_legacy_mode_nothing_ages_and_a_leave_takes_effect_at_once(version: int) -> None:
    build("legacy")
    address = gf.group(version, 7)
    say("a", gf.join(MACS["a"], address))
    lab.clock.advance(100 * LIFETIME)
    assert members(address) == {"a"}
    with lab.capture(SWITCH, "a") as heard:
        say("a", gf.leave(MACS["a"], address))
        lab.clock.advance(10)
    assert gf.queries(heard, version) == [], "nobody is asked"
    assert members(address) == set()


@VERSIONS
def test_routers_age(version: int) -> None:
    build()
    say("router", gf.general_query(MACS["router"], gf.neighbour(version, 1)))
    lab.clock.advance(254)
    assert members(gf.group(version, 7)) == {"router"}
    lab.clock.advance(1)
    assert members(gf.group(version, 7)) == set()


# ---- Questions ----


@VERSIONS
@pytest.mark.parametrize("times", [1, 2, 4])
@pytest.mark.parametrize("answers", [False, True])
def test_a_port_that_leaves_is_asked_whether_somebody_else_stays(version: int, times: int, answers: bool) -> None:
    build(IGMPQueries=times)
    address = gf.group(version, 7)
    lab.clock.advance(1)
    for port in ("a", "b"):
        say(port, gf.join(MACS[port], address))
    with ExitStack() as stack:
        heard = {port: stack.enter_context(lab.capture(SWITCH, port)) for port in (*HOSTS, UPLINK)}
        left = lab.clock.now()
        say("a", gf.leave(MACS["a"], address))
        lab.send(SWITCH, UPLINK, gf.data(OUTSIDE, gf.station(version, 1), address))
        assert [each.kind for each in heard["a"]][-1:] == [gf.KINDS[version]], "not before nobody has answered"
        assert gf.query_in(heard["a"].frames[-1]) is None
        if answers:
            say("a", gf.join(MACS["a"], address))
        for _ in range(2 * times):
            lab.clock.advance(0.5)
        asked = {port: [each for each in gf.queries(heard[port], version) if each.group] for port in heard}
    assert members(address) == ({"a", "b"} if answers else {"b"})
    count = 1 if answers else times
    assert [(each.group, each.time - left) for each in asked["a"]] == [(address, float(i)) for i in range(count)]
    assert [asked[port] for port in ("b", "c", UPLINK)] == [[], [], []]


@VERSIONS
def test_sources_that_are_left_are_asked_for_by_name(version: int) -> None:
    build()
    lab.clock.advance(1)
    address, first, second = gf.group(version, 7), gf.station(version, 1), gf.station(version, 2)
    say("a", gf.report(MACS["a"], address, TO_IN, [first, second]))
    with lab.capture(SWITCH, "a") as heard:
        say("a", gf.report(MACS["a"], address, BLOCK, [second]))
        (query,) = gf.queries(heard, version)
        assert (query.group, query.sources) == (address, (second,))
        say("a", gf.report(MACS["a"], address, gf.IS_IN, [second]))
        lab.clock.advance(LEAVING + 1)
    assert (members(address, 1), members(address, 2)) == ({"a"}, {"a"}), "somebody has answered"


def heard_queries(version: int, seconds: float, step: float = 1) -> dict[str, list[gf.Query]]:
    """What each port is asked while time passes."""
    with ExitStack() as stack:
        heard = {port: stack.enter_context(lab.capture(SWITCH, port)) for port in (*MACS, UPLINK)}
        for _ in range(round(seconds / step)):
            lab.clock.advance(step)
        return {port: gf.queries(capture, version) for port, capture in heard.items()}


@VERSIONS
@pytest.mark.parametrize("interval", [20, 125])
def test_the_switch_asks_its_clients_once_an_interval_and_never_its_uplinks(version: int, interval: int) -> None:
    build(IGMPQueryInterval=interval)
    begin = lab.clock.now()
    asked = heard_queries(version, 3 * interval + 1)
    assert asked.pop(UPLINK) == []
    for port, queries in asked.items():
        assert [each.time - begin for each in queries] == [1 + i * interval for i in range(4)], port
        assert {(each.group, each.generation) for each in queries} == {(None, 3)}
    (source,) = {each.source for each in asked["a"]}
    assert source == ip_address("0.0.0.0" if version == 4 else "fe80::ffff:ffff:ffff:ffff")


@VERSIONS
def test_in_legacy_mode_the_switch_asks_nobody(version: int) -> None:
    build("legacy")
    assert set(map(tuple, heard_queries(version, 300).values())) == {()}


@pytest.mark.parametrize(("version", "spoken", "generation"), [(4, 1, 1), (4, 2, 2), (4, 3, 3), (6, 1, 2), (6, 2, 3)])
def test_questions_are_of_the_version_that_the_switch_speaks(version: int, spoken: int, generation: int) -> None:
    build(**{"IGMPVersion" if version == 4 else "MLDVersion": spoken})
    assert {each.generation for each in heard_queries(version, 1)["a"]} == {generation}


@VERSIONS
@pytest.mark.parametrize("own", [None, 1, 9])
def test_a_router_silences_the_switch_unless_its_own_address_is_lower(version: int, own: int | None) -> None:
    option = "IGMPRouterIP" if version == 4 else "MLDRouterIP"
    build(**({} if own is None else {option: str(gf.neighbour(version, own))}))
    say(UPLINK, gf.general_query(OUTSIDE, gf.neighbour(version, 5)))
    asked = heard_queries(version, 254)["a"]
    if own == 1:
        assert {each.source for each in asked} == {gf.neighbour(version, 1)}
        assert len(asked) == 3
        return
    assert asked == []
    (late,) = heard_queries(version, 125)["a"]
    assert late.source == (
        ip_address("0.0.0.0" if version == 4 else "fe80::ffff:ffff:ffff:ffff")
        if own is None
        else gf.neighbour(version, own)
    ), "the router has not been heard for long"


# ---- What scripts are told ----


@VERSIONS
def test_filters_and_their_sources_are_shown(version: int) -> None:
    build()
    mode = k.VS_MCAST_FILTER_MODE_IGMP if version == 4 else k.VS_MCAST_FILTER_MODE_MLD
    address, other = gf.group(version, 7), gf.group(version, 8)
    port = lab.client_at(SWITCH, "a").port_id
    lab.clock.advance(5)
    say("a", gf.report(MACS["a"], address, TO_EX, [gf.station(version, 2)]))
    say("a", gf.join(MACS["a"], other))
    status, filters = k.VSZEL_GetMcastFilters(SWITCH, port, mode)
    assert (status, k.VSMcastFilters_numEntries_get(filters)) == (k.ZEL_OK, 2)
    k.VSZEL_FreeMemory(filters)
    for each, sources, kind in (
        (address, 1, k.VS_MCAST_SRC_IP_FILTER_MODE_EXCLUDE),
        (other, 0, k.VS_MCAST_SRC_IP_FILTER_MODE_NONE),
    ):
        status, stats = k.VSZEL_GetMcastFilterStats(SWITCH, port, mode, each.packed)
        assert status == k.ZEL_OK
        assert k.VSMcastFilterStats_srcIPFilterMode_get(stats) == kind
        assert k.VSMcastFilterStats_numEntries_get(stats) == sources
        assert k.VSMcastFilterStats_updateTime_get(stats) == 5
        k.VSZEL_FreeMemory(stats)
    lab.clock.advance(LIFETIME)
    assert k.VSZEL_GetMcastFilterStats(SWITCH, port, mode, address.packed)[0] == k.ZEL_NOT_FOUND
