"""Mirror sessions from the frames' point of view: what is copied where, that copies are never copied again, and that
every frame and every copy counts once.
"""

from __future__ import annotations

from collections import Counter
from collections.abc import Iterator
from contextlib import ExitStack
from dataclasses import dataclass

import _libkestrel as k
import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from libkestrel import lab
from libkestrel.lab.scenario import load_scenario_text

SWITCH, UPLINK = "s", "0"
PORTS = ("a", "b", "c", "d", "e")
FREE = "free"
OUTSIDE, BROADCAST = "02:99:00:00:00:01", "ff:ff:ff:ff:ff:ff"


@pytest.fixture(autouse=True)
def _host_of_its_own() -> Iterator[None]:
    with lab.scratch():
        yield


def mac(port: str) -> str:
    return OUTSIDE if port == UPLINK else f"02:00:00:00:00:{PORTS.index(port) + 1:02x}"


@dataclass(frozen=True)
class Session:
    """A mirror session over ports."""

    incoming: frozenset[str]
    outgoing: frozenset[str]
    to: tuple[str, ...]
    sampling: int = 1
    flags: tuple[str, ...] = ()


def entities(ports: Iterator[str] | tuple[str, ...] | list[str]) -> str:
    return "[" + ", ".join(f'{{ port = "{port}" }}' for port in ports) + "]"


def build(sessions: list[Session], *, options: str = "") -> None:
    ports = "".join(f'[[switch.port]]\nid = "{p}"\nclient = {{ name = "{p}.eth0", mac = "{mac(p)}" }}\n' for p in PORTS)
    mirrors = "".join(
        f'[[switch.mirror]]\nid = "m{number}"\nport = "{PORTS[number % len(PORTS)]}"\nsampling = {each.sampling}\n'
        f"to = {entities(each.to)}\nincoming = {entities(sorted(each.incoming))}\n"
        f"outgoing = {entities(sorted(each.outgoing))}\nflags = {list(each.flags)}\n"
        for number, each in enumerate(sessions)
    )
    load_scenario_text(
        f'[options]\n{options}\n[[nic]]\nname = "n"\n[[switch]]\nname = "{SWITCH}"\n'
        f'uplink = [{{ name = "u", nic = "n" }}]\n{ports}[[switch.port]]\nid = "{FREE}"\n{mirrors}'
    )


def counters(number: int) -> dict[str, int]:
    """The counters of a session that are not 0."""
    stats = k.new_VSDVMirrorSessionStats()
    assert k.VSZEL_GetDVMirrorSessionStats(SWITCH, f"m{number}", stats) == k.ZEL_OK
    names = ("mirrorPktCnt", "mirrorPktFailCnt", "mirroredPkts", "discardedPkts", "failedPkts")
    found = {name: getattr(k, f"VSDVMirrorSessionStats_{name}_get")(stats) for name in names}
    k.delete_VSDVMirrorSessionStats(stats)
    return {name: value for name, value in found.items() if value}


SOURCES = st.frozensets(st.sampled_from((*PORTS, UPLINK)), max_size=3)
SESSIONS = st.builds(
    Session,
    SOURCES,
    SOURCES,
    st.lists(st.sampled_from((*PORTS, FREE)), min_size=1, max_size=3, unique=True).map(tuple),
    st.integers(1, 3),
).filter(lambda each: bool(each.incoming or each.outgoing))
FRAMES = st.tuples(st.sampled_from((*PORTS, UPLINK)), st.sampled_from((*PORTS, UPLINK, None))).filter(
    lambda pair: pair[0] != pair[1]
)


def passages(source: str, to: str | None) -> list[tuple[str, str]]:
    """Where a frame passes: in at its source, then out wherever it goes."""
    receivers = [port for port in (*PORTS, UPLINK) if port != source] if to is None else [to]
    return [("in", source), *(("out", port) for port in receivers)]


@settings(max_examples=150, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(sessions=st.lists(SESSIONS, min_size=1, max_size=4), frames=st.lists(FRAMES, min_size=1, max_size=8))
def test_each_passage_is_copied_once_and_copies_are_not(
    sessions: list[Session], frames: list[tuple[str, str | None]]
) -> None:
    build(sessions)
    expected: Counter[tuple[str, bytes]] = Counter()
    counts: list[Counter[str]] = [Counter() for _ in sessions]
    passed = [0] * len(sessions)
    with ExitStack() as stack:
        captures = {port: stack.enter_context(lab.capture(SWITCH, port)) for port in (*PORTS, UPLINK)}
        for number, (source, to) in enumerate(frames):
            frame = lab.ethernet(BROADCAST if to is None else mac(to), mac(source), payload=bytes([number]))
            for way, port in passages(source, to):
                if way == "out":
                    expected[port, frame] += 1
                for place, session in enumerate(sessions):
                    if port not in (session.incoming if way == "in" else session.outgoing):
                        continue
                    passed[place] += 1
                    if (passed[place] - 1) % session.sampling:
                        counts[place]["discardedPkts"] += 1
                        continue
                    sent = [each for each in session.to if each not in (port, FREE)]
                    expected.update((each, frame) for each in sent)
                    failures = int(FREE in session.to)
                    counts[place]["mirrorPktCnt"] += len(sent)
                    counts[place]["mirrorPktFailCnt"] += failures
                    counts[place]["mirroredPkts" if sent else "failedPkts" if failures else "discardedPkts"] += 1
            lab.send(SWITCH, source, frame)
        found = Counter((port, each.data) for port, capture in captures.items() for each in capture)
    assert found == expected
    assert [counters(place) for place in range(len(sessions))] == [+each for each in counts]


@pytest.mark.parametrize("both_ways", [False, True])
def test_two_sessions_that_mirror_each_others_destination_copy_once_each(both_ways: bool) -> None:
    watched = frozenset("de")
    sessions = [
        Session(watched if both_ways else frozenset(), watched, ("d",)),
        Session(watched if both_ways else frozenset(), watched, ("e",)),
    ]
    build(sessions)
    frame = lab.ethernet(mac("d"), mac("a"))
    with lab.capture(SWITCH, "d") as at_d, lab.capture(SWITCH, "e") as at_e:
        for _ in range(100):
            lab.send(SWITCH, "a", frame)
    assert (len(at_d), len(at_e)) == (100, 100), "the frame itself, and its copy for the other"
    assert counters(0) == {"discardedPkts": 100}, "seen at its own destination, and meant for no other"
    assert counters(1) == {"mirrorPktCnt": 100, "mirroredPkts": 100}


def test_packets_to_a_collector_are_not_mirrored_at_the_uplink_that_they_leave_by() -> None:
    load_scenario_text(
        '[[nic]]\nname = "n"\n[[switch]]\nname = "s"\nuplink = [{ name = "u", nic = "n" }]\n'
        '[[switch.port]]\nid = "k"\nclient = { name = "vmk0", kind = "service" }\n'
        '[[switch.port]]\nid = "p"\nclient = { name = "c", mac = "02:00:00:00:00:07" }\n'
        '[[switch.mirror]]\nid = "m0"\nport = "p"\nkind = "encapsulated"\nto = [{ ip = "192.0.2.99" }]\n'
        'incoming = [{ port = "p" }]\noutgoing = [{ port = "0" }, { port = "p" }]\n'
    )
    with lab.capture("s", "0") as uplink:
        lab.send("s", "p", lab.ethernet(OUTSIDE, "02:00:00:00:00:07"))
    kinds = Counter(frame.kind for frame in uplink)
    assert kinds == {0x88B5: 1, 0x0800: 2}, "the frame, and a packet for where it came in and for where it left"
    assert counters(0) == {"mirrorPktCnt": 2, "mirroredPkts": 2}


@pytest.mark.parametrize("no_input", [False, True])
@pytest.mark.parametrize("no_output", [False, True])
def test_destinations_may_be_closed_to_all_but_copies(no_input: bool, no_output: bool) -> None:
    flags = ("no-input",) * no_input + ("no-output",) * no_output
    build([Session(frozenset("a"), frozenset(), ("e",), flags=flags)])
    with lab.capture(SWITCH, "e") as at_e, lab.capture(SWITCH, "b") as at_b:
        lab.send(SWITCH, "a", lab.ethernet(mac("b"), mac("a"), payload=b"copied"))
        lab.send(SWITCH, "b", lab.ethernet(mac("e"), mac("b"), payload=b"to e"))
        lab.send(SWITCH, "e", lab.ethernet(mac("b"), mac("e"), payload=b"from e"))
    assert [frame.payload[:6].rstrip(b"\0") for frame in at_e] == [b"copied"] + [b"to e"] * (not no_output)
    assert [frame.payload[:6] for frame in at_b] == [b"copied"] + [b"from e"] * (not no_input)


def test_without_statistics_copies_are_made_all_the_same() -> None:
    build([Session(frozenset("a"), frozenset(), ("b",))], options="AllowMirrorStats = 0")
    with lab.capture(SWITCH, "b") as capture:
        lab.send(SWITCH, "a", lab.ethernet(mac("c"), mac("a")))
    assert len(capture) == 1
    assert counters(0) == {}
