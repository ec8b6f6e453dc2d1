"""Scenarios: what is read, what is refused and how the refusal speaks, and hosts that are what their scenario says."""

from __future__ import annotations

import os
import struct
import subprocess
import sys
import tomllib
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import _libkestrel as k
import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

import scenario_page
from libkestrel import Host, lab
from libkestrel.host import MirrorEntity
from libkestrel.lab import wiring
from libkestrel.lab.scenario import (
    ScenarioError,
    load_scenario,
    load_scenario_text,
    parse_scenario,
    read_scenario,
)
from libkestrel.lab.scenario import format as scenario_format
from libkestrel.lab.scenario.kinds import Kind, keys_of
from libkestrel.records import MacAddress

ROOT = Path(__file__).resolve().parents[2]
EXAMPLES = sorted((ROOT / "examples" / "scenarios").glob("*.toml"))


@pytest.fixture(autouse=True)
def _host_of_its_own() -> Iterator[None]:
    with lab.scratch():
        yield


def problems(text: str) -> list[str]:
    with pytest.raises(ScenarioError) as caught:
        parse_scenario(text, "x.toml")
    assert str(caught.value).startswith("x.toml: ")
    return [str(problem) for problem in caught.value.problems]


def switch_names() -> list[str]:
    switches = k.VSZEL_GetSwitchesPy(k.VS_LIST_DVS_ALIAS)
    names = [k.VSList___getitem__(switches, i) for i in range(k.VSList_count_get(switches))]
    k.delete_VSList(switches)
    return names


# ---- What is refused before a host is touched ----

SWITCH = '[[switch]]\nname = "s"\n'
MANY_GROUPS = [f"01:00:5e:00:{n // 256:02x}:{n % 256:02x}" for n in range(k.VS_MULTICAST_USER_ENTRIES_MAX + 1)]
MANY_NAMES = [f"u{n}" for n in range(k.ZEL_TEAM_MAX_UPLINKS + 1)]
UPLINKS = 'uplink = [{ name = "a" }, { name = "b" }]\n'

WRONG = {
    "colour = 1": "colour: unknown key; Scenario has name, description, options, learning, nic, switch, traffic",
    "name = 1": "name: a number where a text belongs",
    'name = "\\u0000"': "name: a text with a zero character in it",
    "nic = 3": "nic: a number where a list belongs",
    "nic = [3]": "nic[0]: a number where a table belongs",
    "[nic]\nname = 'x'": "nic: a table where a list belongs",
    "[[nic]]": "nic[0].name: is missing",
    "[[nic]]\nname = ''": "nic[0].name: an empty text where a name belongs",
    "[[nic]]\nname = 'a'\nspeed = 1.5": "nic[0].speed: a fraction where a number belongs",
    "[[nic]]\nname = 'a'\nspeed = true": "nic[0].speed: a flag where a number belongs",
    "[[nic]]\nname = 'a'\nspeed = -1": "nic[0].speed: -1 is not from 0 to 400000",
    "[[nic]]\nname = 'a'\nspeed = 2024-01-01": "nic[0].speed: a date or time where a number belongs",
    "[[nic]]\nname = 'a'\nlink = 'broken'": 'nic[0].link: "broken" is none of up, down',
    "[[nic]]\nname = 'a'\nlink = true": "nic[0].link: a flag is none of up, down",
    "[[nic]]\nname = 'a'\ndriver = 1": "nic[0].driver: a number where true or false belongs",
    "[[nic]]\nname = 'a'\nmac = '02:00'": ('nic[0].mac: no Ethernet address, which is written as "02:00:00:00:00:01"'),
    "[[nic]]\nname = 'a'\nmac = '01:00:00:00:00:01'": "nic[0].mac: 01:00:00:00:00:01 is not the address of a station",
    f"[[nic]]\nname = '{'é' * 16}'": "nic[0].name: a text of more than 31 bytes",
    "[[nic]]\nname = 'a'\n[[nic]]\nname = 'a'": 'nic[1].name: "a" is there already',
    "[options]\nNoSuch = 1": "options.NoSuch: there is no runtime option of that name",
    "[options]\nIGMPVersion = 'three'": "options.IGMPVersion: the option takes a number",
    "[options]\nIGMPRouterIP = 3": "options.IGMPRouterIP: the option takes a text",
    "[options]\nIGMPVersion = []": "options.IGMPVersion: a list where a number belongs",
    SWITCH + "mtu = 100": "switch[0].mtu: 100 is not from 1280 to 9000",
    SWITCH + SWITCH: 'switch[1].name: "s" is there already',
    SWITCH + "[switch.learning]\nageing = 0": "switch[0].learning.ageing: 0 is not from 1 to 1000000",
    SWITCH + 'uplink = [{ name = "a", nic = "x" }]': 'switch[0].uplink[0].nic: there is no NIC "x"',
    '[[nic]]\nname = "n"\n' + SWITCH + 'uplink = [{ name = "a", nic = "n" }]\n[[switch]]\nname = "t"\n'
    'uplink = [{ name = "a", nic = "n" }]': 'switch[0].uplink[0].nic: NIC "n" is plugged in more than once',
    SWITCH + 'uplink = [{ name = "a" }, { name = "a" }]': 'switch[0].uplink[1].name: "a" is there already',
    SWITCH + 'uplink = [{ name = "a", port = "5" }, { name = "b", port = "5" }]': (
        'switch[0].uplink[1].port: "5" is there already'
    ),
    SWITCH + UPLINKS + 'lag = [{ name = "l", uplinks = ["a", "z"] }]': (
        'switch[0].lag[0].uplinks[1]: there is no uplink "z"'
    ),
    SWITCH + UPLINKS + 'lag = [{ name = "a", uplinks = ["b"] }]': 'switch[0].lag[0].name: "a" is there already',
    SWITCH + UPLINKS + 'lag = [{ name = "l", uplinks = ["b", "b"] }]': (
        'switch[0].lag[0].uplinks: uplink "b" is in groups more than once'
    ),
    SWITCH + UPLINKS + 'teaming = { active = ["c"] }': ('switch[0].teaming.active[0]: there is no uplink or group "c"'),
    SWITCH + UPLINKS + 'teaming = { active = ["a"], standby = ["a"] }': 'switch[0].teaming: "a" is named twice',
    SWITCH + UPLINKS + 'teaming = { balance = "best" }': (
        'switch[0].teaming.balance: "best" is none of none, ip-hash, source-mac, source-port, explicit, load'
    ),
    SWITCH + UPLINKS + 'named-teaming = [{ name = "t", speed = 10 }]': (
        "switch[0].named-teaming[0].speed: unknown key; NamedTeam has name, balance, active, standby, criteria, flags"
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\nvlan = 4095": "switch[0].port[0].vlan: 4095 is not from 0 to 4094",
    SWITCH + "[[switch.port]]\nid = 'p'\nvlan = 1\ntrunk = [1]": (
        "switch[0].port[0]: more than one of vlan, trunk, private-vlan is given"
    ),
    SWITCH + "port = [{ id = 'p' }]\nmirror = [{ id = 'm', port = 'p', to = [{ ip = 'fe80::1%eth0' }] }]": (
        "switch[0].mirror[0].to[0].ip: no IP address"
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\ntrunk = 5": "switch[0].port[0].trunk: a number where a list of VLANs belongs",
    SWITCH + f"multicast-addresses = {MANY_GROUPS}": (
        f"switch[0].multicast-addresses: more than {k.VS_MULTICAST_USER_ENTRIES_MAX} addresses"
    ),
    SWITCH + f"[[switch.port]]\nid = 'p'\nmulticast = {MANY_GROUPS}": (
        f"switch[0].port[0].multicast: more than {k.VS_MULTICAST_USER_ENTRIES_MAX} addresses"
    ),
    SWITCH + f"uplink = [{', '.join(f'{{ name = {name!r} }}' for name in MANY_NAMES)}]\n"
    f"teaming = {{ active = {MANY_NAMES} }}": f"switch[0].teaming: more than {k.ZEL_TEAM_MAX_UPLINKS} uplinks",
    SWITCH + "[[switch.port]]\nid = 'p'\ntrunk = []": "switch[0].port[0].trunk: an empty list where VLANs belong",
    SWITCH + "[[switch.port]]\nid = 'p'\ntrunk = ['5-1']": (
        "switch[0].port[0].trunk[0]: 5-1 is no range of VLANs from 0 to 4094"
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\ntrunk = [7, '1-9']": "switch[0].port[0].trunk[1]: 1-9 overlaps another range",
    SWITCH + "[[switch.port]]\nid = 'p'\ntrunk = [true]": (
        'switch[0].port[0].trunk[0]: neither a VLAN nor a range of them, which is written as "100-199"'
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\nprivate-vlan = 7": (
        "switch[0].port[0].private-vlan: 7 is no secondary VLAN of the switch's private-vlan"
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\n[[switch.port]]\nid = 'p'": 'switch[0].port[1].id: port "p" is there already',
    SWITCH + "[[switch.port]]\nid = 5\ncount = 2\n[[switch.port]]\nid = '6'": (
        'switch[0].port[1].id: port "6" is there already'
    ),
    SWITCH + UPLINKS + "[[switch.port]]\nid = 1": 'switch[0].port[0].id: port "1" is there already',
    SWITCH + "[[switch.port]]\nid = 'p'\ncount = 2": (
        "switch[0].port[0].id: the id of several ports has to be a number, to count up from"
    ),
    SWITCH + "[[switch.port]]\nid = 5\ncount = 2\nclient = { name = 'c' }": (
        "switch[0].port[0].client.name: the name of several clients needs {n} in it"
    ),
    SWITCH + "[[switch.port]]\nid = 5\ngroup = 'g'": 'switch[0].port[0].group: there is no port group "g"',
    SWITCH + "[[switch.port]]\nid = 5\nfollows = 'g'": (
        'switch[0].port[0].follows: there is no named teaming policy "g"'
    ),
    SWITCH + "[[switch.port]]\nid = 5\nuplink = 'g'": 'switch[0].port[0].uplink: there is no uplink or group "g"',
    SWITCH + "max-ports = 2\n[[switch.port]]\nid = 5\ncount = 3": (
        "switch[0].max-ports: 2 are fewer than the 3 ports of the switch"
    ),
    SWITCH + "[[switch.mirror]]\nid = 'm'\nport = 'p'\nto = [{ port = 'q' }]": (
        'switch[0].mirror[0].port: there is no port "p"'
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\n[[switch.mirror]]\nid = 'm'\nport = 'p'\nto = [{ port = 'q' }]": (
        'switch[0].mirror[0].to[0].port: there is no port "q"'
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\n[[switch.mirror]]\nid = 'm'\nport = 'p'\nto = [{ uplink = 'u' }]": (
        'switch[0].mirror[0].to[0].uplink: there is no uplink "u"'
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\n[[switch.mirror]]\nid = 'm'\nport = 'p'\nto = [{ }]": (
        "switch[0].mirror[0].to[0]: exactly one of port, uplink, vlan, ip, mac is given, not none"
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\n[[switch.mirror]]\nid = 'm'\nport = 'p'\nto = [{ ip = 'here' }]": (
        "switch[0].mirror[0].to[0].ip: no IP address"
    ),
    "[[traffic]]\nswitch = 's'\nport = 'p'\nto = 'ff:ff:ff:ff:ff:ff'": 'traffic[0].switch: there is no switch "s"',
    SWITCH + "[[traffic]]\nswitch = 's'\nport = 'p'\nto = 'ff:ff:ff:ff:ff:ff'": (
        'traffic[0].port: there is no port "p" on switch "s"'
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\n[[traffic]]\nswitch = 's'\nport = 'p'\nto = 'ff:ff:ff:ff:ff:ff'": (
        "traffic[0].source: is missing: there is no client at the port whose address would be taken"
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\n[[traffic]]\nswitch = 's'\nport = 'p'\nframe = 'ff'": (
        "traffic[0].frame: a frame has 14 bytes at least"
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\n[[traffic]]\nswitch = 's'\nport = 'p'\nframe = 'fg'": (
        "traffic[0].frame: no bytes in hexadecimal digits"
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\n[[traffic]]\nswitch = 's'\nport = 'p'": (
        "traffic[0]: exactly one of frame, to, pcap is given, not none"
    ),
    SWITCH + "[[switch.port]]\nid = 'p'\n[[traffic]]\nswitch = 's'\nport = 'p'\nwait = nan\npcap = 'x'": (
        "traffic[0].wait: nan is not from 0 to 1000000000 seconds"
    ),
}


@pytest.mark.parametrize("text", WRONG)
def test_a_wrong_scenario_is_refused_with_the_place_of_what_is_wrong(text: str) -> None:
    assert WRONG[text] in problems(text)


def test_everything_that_is_wrong_is_told_at_once() -> None:
    assert problems("colour = 1\n[[nic]]\nspeed = 'fast'\n" + SWITCH + "mtu = 1\nsize = 3") == [
        "colour: unknown key; Scenario has name, description, options, learning, nic, switch, traffic",
        "nic[0].name: is missing",
        "nic[0].speed: a text where a number belongs",
        "switch[0].size: unknown key; Switch has " + ", ".join(keys_of(scenario_format.Switch)),
        "switch[0].mtu: 1 is not from 1280 to 9000",
    ]


@pytest.mark.parametrize("text", ["[", 'a = "', "a = 1\na = 2", "x = " + "[" * 5000])
def test_what_is_no_toml_is_refused_as_a_scenario(text: str) -> None:
    assert len(problems(text)) == 1


def test_a_file_that_is_no_text_is_refused_and_one_that_is_not_there_is_an_os_error(tmp_path: Path) -> None:
    (tmp_path / "latin.toml").write_bytes(b"name = '\xe9'")
    with pytest.raises(ScenarioError, match="not UTF-8"):
        read_scenario(tmp_path / "latin.toml")
    with pytest.raises(FileNotFoundError):
        load_scenario(tmp_path / "nothing.toml")


def test_options_are_set_whether_or_not_functions_give_records() -> None:
    from libkestrel import Host, records

    load_scenario_text("[options]\nIGMPVersion = 2\nIGMPRouterIP = '192.0.2.9'\n")
    assert "VSRuntimeOptions" in records.__all__
    assert Host().options.read(["IGMPVersion", "IGMPRouterIP"]) == {"IGMPVersion": 2, "IGMPRouterIP": "192.0.2.9"}
    load_scenario_text("[options]\nIGMPVersion = 3\n")
    assert Host().options["IGMPVersion"] == 3


OPTIONS = """
from libkestrel import Host, records
from libkestrel.lab.scenario import load_scenario_text
records.VSRuntimeOptionHeader
for _ in range(3):
    load_scenario_text("[options]\\nIGMPVersion = 2\\nIGMPQueries = 4\\nIGMPRouterIP = '192.0.2.9'\\n")
print(Host().options.read(["IGMPVersion", "IGMPQueries", "IGMPRouterIP"]))
"""


@pytest.mark.parametrize("filling", [1, 85, 170, 253])
def test_options_are_set_whatever_their_memory_held_before(filling: int) -> None:
    environment = os.environ | {"MALLOC_PERTURB_": str(filling), "PYTHONMALLOC": "malloc"}
    done = subprocess.run([sys.executable, "-c", OPTIONS], env=environment, capture_output=True, text=True, check=False)
    assert done.stdout == "{'IGMPVersion': 2, 'IGMPQueries': 4, 'IGMPRouterIP': '192.0.2.9'}\n", done.stderr


# ---- Hostile values ----

VALUES: st.SearchStrategy[Any] = st.recursive(
    st.none().map(lambda _: {})
    | st.booleans()
    | st.integers()
    | st.floats()
    | st.text(max_size=200)
    | st.dates()
    | st.datetimes(),
    lambda inner: st.lists(inner, max_size=4) | st.dictionaries(st.text(max_size=20), inner, max_size=4),
    max_leaves=12,
)
KEYS = sorted({key for table in scenario_page.tables() for key in keys_of(table)})
TABLES: st.SearchStrategy[Any] = st.recursive(
    VALUES,
    lambda inner: st.lists(inner, max_size=3) | st.dictionaries(st.sampled_from(KEYS), inner, max_size=6),
    max_leaves=30,
)


@settings(max_examples=300, deadline=None, suppress_health_check=list(HealthCheck))
@given(st.dictionaries(st.sampled_from(list(keys_of(scenario_format.Scenario))), TABLES))
def test_whatever_stands_in_a_file_is_read_or_refused_with_places(table: dict[str, Any]) -> None:
    original = tomllib.loads
    try:
        tomllib.loads = lambda *_: table
        parse_scenario("")
    except ScenarioError as error:
        assert error.problems
        assert all(problem.place and problem.message for problem in error.problems)
    finally:
        tomllib.loads = original


def kinds_of(kind: Kind) -> list[Kind]:
    """The kind and those that it is made of."""
    return [kind, *(inner for value in vars(kind).values() if isinstance(value, Kind) for inner in kinds_of(value))]


EVERY_KIND = {
    str(kind): kind
    for table in scenario_page.tables()
    for each in keys_of(table).values()
    for kind in kinds_of(each.metadata["kind"])
}


@settings(max_examples=100, deadline=None, suppress_health_check=list(HealthCheck))
@given(VALUES, st.sampled_from(sorted(EVERY_KIND)))
def test_every_kind_takes_any_value_or_tells_what_is_wrong(value: object, kind: str) -> None:
    from libkestrel.lab.scenario.problems import Place, Problem

    found: list[Problem] = []
    EVERY_KIND[kind].read(value, Place(found, "here"))
    assert all(problem.place.startswith("here") for problem in found)


# ---- Loading ----


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: path.stem)
def test_an_example_loads_as_it_is_written(path: Path) -> None:
    scenario = load_scenario(path)
    assert switch_names() == [switch.name for switch in scenario.switch]
    assert [nic.name for nic in lab.nics()] == sorted(nic.name for nic in scenario.nic)
    for switch in scenario.switch:
        written = {
            (port.client.name.replace("{n}", str(i + 1)))
            for port in switch.port
            if port.client
            for i in range(port.count)
        }
        assert {c.name for c in lab.clients(switch.name) if c.kind != "nic"} == written
        assert {c.name for c in lab.clients(switch.name) if c.kind == "nic"} == {
            uplink.nic for uplink in switch.uplink if uplink.nic
        }


def test_there_are_examples() -> None:
    assert {path.stem for path in EXAMPLES} == {"datacentre", "small-office", "pvlan-hosting"}


def test_clients_are_plugged_in_without_a_look_at_all_others(monkeypatch: pytest.MonkeyPatch) -> None:
    """A list of all clients for each of them makes big hosts take minutes."""

    def listed(switch: str) -> list[lab.Client]:
        raise AssertionError(f"the clients of {switch} are listed")

    with monkeypatch.context() as patched:
        patched.setattr(wiring, "clients", listed)
        load_scenario_text(SWITCH + "port = [{ id = 1, count = 20, client = { name = 'c{n}' } }]\n")
    assert [client.name for client in lab.clients("s")] == [f"c{n}" for n in range(1, 21)]


RICH = """
[[nic]]
name = "vmnic0"

[[switch]]
name = "s"
multicast-addresses = ["01:00:5e:00:00:07", "01:00:5e:00:00:08"]
uplink = [{ name = "a", nic = "vmnic0" }, { name = "b" }]
group = [{ name = "quiet", blocked = true, multicast = ["01:00:5e:00:00:09"] }]

[[switch.port]]
id = "one"
client = { name = "one.eth0", mac = "02:00:00:00:00:01" }

[[switch.port]]
id = "two"
group = "quiet"

[[switch.port]]
id = "three"
group = "quiet"
blocked = false
multicast = []

[[switch.mirror]]
id = "m"
port = "one"
kind = "mixed"
to = [{ uplink = "a" }]
incoming = [{ vlan = 7 }]
outgoing = [{ mac = "02:00:00:00:00:77" }]

[[traffic]]
switch = "s"
port = "one"
to = "ff:ff:ff:ff:ff:ff"
count = 3
every = 0.5

[[traffic]]
switch = "s"
port = "one"
frame = "ffffffffffff02000000000188b5"
"""


def test_a_host_has_everything_that_its_scenario_says() -> None:
    load_scenario_text(RICH)
    switch = Host().switch("s")
    assert [str(each) for each in switch.multicast_entries] == ["01:00:5e:00:00:07", "01:00:5e:00:00:08"]
    assert set(switch.uplinks) == {"vmnic0"}
    assert [switch.port(name).blocked for name in ("one", "two", "three")] == [False, True, False]
    assert [str(each) for each in switch.port("two").multicast_entries] == ["01:00:5e:00:00:09"]
    assert switch.port("three").multicast_entries == ()
    (mirror,) = switch.port("one").mirror_sessions
    assert mirror.destinations == (MirrorEntity.uplink("a"),)
    assert mirror.sources_in == (MirrorEntity.vlan(7),)
    assert mirror.sources_out == (MirrorEntity.mac(MacAddress("02:00:00:00:00:77")),)
    assert switch.port("one").statistics().incoming.frames >= 4
    assert lab.clock.now() == 1.0


def test_a_capture_that_is_not_there_is_told_with_its_place(tmp_path: Path) -> None:
    path = tmp_path / "s.toml"
    path.write_text(SWITCH + "port = [{ id = 'p' }]\n[[traffic]]\nswitch = 's'\nport = 'p'\npcap = 'no.pcap'\n")
    with pytest.raises(ScenarioError, match=r"traffic\[0\]: .*no\.pcap: No such file or directory"):
        load_scenario(path)
    assert switch_names() == ["dvs-prod", "dvs-storage"]


def test_captures_are_part_of_a_scenario(tmp_path: Path) -> None:
    frame = bytes.fromhex("ffffffffffff02000000000188b5").ljust(60, b"\0")
    head = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)
    (tmp_path / "two.pcap").write_bytes(head + b"".join(struct.pack("<IIII", n, 0, 60, 60) + frame for n in (1, 2)))
    path = tmp_path / "s.toml"
    client = "client = { name = 'c', mac = '02:00:00:00:00:01' }"
    path.write_text(
        SWITCH + f"port = [{{ id = 'p', {client} }}]\n[[traffic]]\nswitch = 's'\nport = 'p'\npcap = 'two.pcap'\n"
    )
    load_scenario(path)
    assert Host().switch("s").port("p").statistics().incoming.frames == 2


def test_of_very_many_problems_the_first_are_told_and_the_rest_are_counted() -> None:
    wrong = "".join(f"wrong{number} = 1\n" for number in range(500))
    with pytest.raises(ScenarioError) as caught:
        parse_scenario(wrong, "x.toml")
    lines = str(caught.value).splitlines()
    assert len(caught.value.problems) == 500
    assert lines[0].startswith("x.toml: wrong0: unknown key")
    assert lines[-1] == f"x.toml: and {500 - (len(lines) - 1)} more"


def test_what_is_wrong_leaves_the_host_as_it_was() -> None:
    before = switch_names()
    with pytest.raises(ScenarioError):
        load_scenario_text("colour = 1")
    assert switch_names() == before


def test_what_the_host_refuses_is_told_with_its_place_and_leaves_the_host_as_it_was(tmp_path: Path) -> None:
    before = switch_names(), lab.nics(), lab.clock.now_ns()
    text = '[[nic]]\nname = "n"\n[[switch]]\nname = "s"\n[[switch]]\nname = "t"\nid = "same"\n[[switch]]\nname = "u"\n'
    with pytest.raises(ScenarioError) as caught:
        load_scenario_text(text + 'id = "same"\n')
    assert str(caught.value) == (
        f"scenario: switch[2]: the host refuses it: {k.ZEL_ReturnStatusToString(k.ZEL_EXISTS)}"
    )
    assert (switch_names(), lab.nics(), lab.clock.now_ns()) == before
    path = tmp_path / "traffic.toml"
    path.write_text(
        '[[switch]]\nname = "s"\nport = [{ id = "p", client = { name = "c" } }]\n'
        '[[traffic]]\nswitch = "s"\nport = "p"\nwait = 60\npcap = "nothing.pcap"\n'
    )
    with pytest.raises(ScenarioError, match=r"traffic\[0\]: the host refuses it"):
        load_scenario(path)
    assert (switch_names(), lab.nics(), lab.clock.now_ns()) == before


def test_the_page_about_the_format_is_what_the_classes_say() -> None:
    assert (ROOT / "docs" / "scenarios.md").read_text() == scenario_page.page(), "run `make reference`"


# ---- The demonstration ----


def test_the_demonstration_says_which_members_of_a_group_are_in_service() -> None:
    environment = os.environ | {"COLUMNS": "200"}
    environment.pop("KESTREL_HOST", None)
    command = [sys.executable, str(ROOT / "examples" / "datacentre.py")]
    shown = subprocess.run(command, env=environment, capture_output=True, text=True, check=True).stdout
    rows = [[cell.strip() for cell in line.split("│")[1:-1]] for line in shown.splitlines() if "│ lag1 " in line]
    assert rows == [
        ["at first", "lag1", "up", "vmnic0, vmnic1", "none"],
        ["the cable of vmnic1 is pulled", "lag1", "up", "vmnic0", "vmnic1"],
        ["and back", "lag1", "up", "vmnic0, vmnic1", "none"],
    ]
