"""Desired states: made once, looked at, all or nothing; and many commands at the same time."""

from __future__ import annotations

import json
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

from libkestrel.lab.scenario import Scenario
from libkestrel.lab.scenario.kinds import keys_of
from support.prompt import InProcess, Process

WANTED = """
[options]
IGMPVersion = 2

[learning]
ageing = 90

[[switch]]
name = "dvs-office"
mtu = 9000
max-ports = 100
version = "7.0"
multicast = "snooping"
multicast-addresses = ["01:00:5e:00:00:07"]
learning = { ageing = 60 }
uplink = [{ name = "uplink1" }, { name = "uplink2" }, { name = "uplink3" }]
lag = [{ name = "lag1", uplinks = ["uplink3"] }]
teaming = { balance = "source-mac", active = ["uplink1", "uplink2"] }
named-teaming = [{ name = "spare", active = ["uplink2"] }]
private-vlan = [
  { primary = 100, secondary = 100, kind = "promiscuous" },
  { primary = 100, secondary = 101, kind = "isolated" },
]

[[switch.group]]
name = "web"
vlan = 55
security = { forged = true }
blocked = true

[[switch.port]]
id = 700
count = 3
group = "web"

[[switch.port]]
id = "trunk"
trunk = [1, "5-9"]
priority = 3
nested-tags = true
sink = true
learning = { limit = 5 }
teaming = { active = ["uplink1"] }
uplink = "uplink2"
always-uplink = true
multicast = ["01:00:5e:00:00:08"]
blocked = false

[[switch.port]]
id = "tenant"
private-vlan = 101
follows = "spare"

[[switch.mirror]]
id = "m1"
port = "trunk"
kind = "mixed"
to = [{ port = "700" }, { uplink = "uplink1" }]
incoming = [{ port = "701" }]
outgoing = [{ vlan = 55 }]

[[switch.mirror]]
id = "m3"
port = "700"
kind = "encapsulated"
to = [{ ip = "192.0.2.9" }]
incoming = [{ port = "701" }]

[[switch]]
name = "dvs-new"
mtu = 2000
uplink = [{ name = "a" }, { name = "b" }]
lag = [{ name = "pair", uplinks = ["a", "b"] }]
port = [{ id = "p", vlan = 5 }]
mirror = [{ id = "m2", port = "p", to = [{ port = "p" }] }]
"""


@pytest.fixture
def wanted(tmp_path: Path) -> Path:
    path = tmp_path / "wanted.toml"
    path.write_text(WANTED)
    return path


def test_a_desired_state_is_looked_at_made_and_kept(here: InProcess, wanted: Path) -> None:
    looked = here("apply", str(wanted), "--check", "--diff")
    assert (looked.code, looked.err) == (6, "")
    lines = looked.out.splitlines()
    assert lines[-1] == f"{len(lines) - 1} changes would be made"
    assert "switch dvs-office: set MTU: 1500 -> 9000" in lines
    assert here("switch", "show", "dvs-office", "--json").data["mtu"] == 1500

    made = here("apply", str(wanted), "--exit-code")
    assert (made.code, made.out) == (6, f"{len(lines) - 1} changes made\n")
    again = here("apply", str(wanted), "--diff", "--exit-code")
    assert (again.code, again.out) == (0, "nothing to change\n")
    assert here("apply", str(wanted), "--check").code == 0


def test_a_desired_state_is_what_the_host_is_then(here: InProcess, wanted: Path) -> None:
    assert here("apply", str(wanted)).code == 0
    switch = here("switch", "show", "dvs-office", "--json").data
    assert (switch["mtu"], switch["max_ports"], switch["multicast"], switch["ageing"]) == (9000, 100, "snooping", 60)
    assert switch["uplinks"] == ["uplink1", "uplink2", "uplink3"]
    trunk = here("port", "show", "dvs-office", "trunk", "--json").data
    assert trunk["vlan"] == "trunk 1,5-9 with priority"
    assert (trunk["nested_tagging"], trunk["sink"], trunk["always_uplink"]) == (True, True, True)
    assert (trunk["mac_limit"], trunk["uplink"], trunk["mirrors"]) == (5, "uplink2", ["m1"])
    web = here("port", "show", "dvs-office", "702", "--json").data
    assert (web["vlan"], web["allowed"], web["blocked"]) == ("55", ["forged"], True)
    tenant = here("port", "show", "dvs-office", "tenant", "--json").data
    assert (tenant["vlan"], tenant["follows"]) == ("private 101", "spare")
    mirror = here("mirror", "show", "dvs-office", "m1", "--json").data
    assert mirror["to"] == ["port:700", "uplink:uplink1"]
    assert (mirror["incoming"], mirror["outgoing"], mirror["kind"]) == (["port:701"], ["vlan:55"], "mixed")
    assert here("option", "show", "IGMPVersion", "--json").data["value"] == 2
    assert here("switch", "show", "dvs-new", "--json").data["mtu"] == 2000


def test_what_a_file_does_not_mention_stays(here: InProcess, tmp_path: Path) -> None:
    before = here("switch", "show", "dvs-office", "--json").data
    path = tmp_path / "little.toml"
    path.write_text('[[switch]]\nname = "dvs-office"\nport = [{ id = "100" }]\n')
    assert here("apply", str(path)).out == "nothing to change\n"
    path.write_text('[[switch]]\nname = "dvs-office"\nport = [{ id = "100", blocked = true }]\n')
    assert (
        here("apply", str(path), "--diff").out.splitlines()[0] == "port 100 of switch dvs-office: set block: no -> yes"
    )
    assert here("switch", "show", "dvs-office", "--json").data == before
    assert here("port", "show", "dvs-office", "100", "--json").data["vlan"] == "10"


def test_pruning_removes_what_the_file_does_not_name(here: InProcess, tmp_path: Path) -> None:
    assert here("port", "create", "dvs-office", "900", "901").code == 0
    assert here("uplink", "create", "dvs-office", "spare").code == 0
    kept = [row["port"] for row in here("port", "list", "dvs-office", "--json").data if row["port"] != "900"]
    path = tmp_path / "kept.toml"
    names = ", ".join(f'{{ id = "{port}" }}' for port in kept if port not in ("0", "1", "2"))
    uplinks = '[{ name = "uplink1" }, { name = "uplink2" }]'
    path.write_text(f'[[switch]]\nname = "dvs-office"\nuplink = {uplinks}\nport = [{names}]\n')
    assert here("apply", str(path)).out == "nothing to change\n"
    told = here("apply", str(path), "--prune", "--diff").out.splitlines()
    assert told == [
        "port 900 of switch dvs-office: remove port: present -> absent",
        "switch dvs-office: remove uplink port spare: present -> absent",
    ]


def test_a_state_that_cannot_be_is_not_begun(here: InProcess, tmp_path: Path) -> None:
    path = tmp_path / "many.toml"
    path.write_text('[[switch]]\nname = "dvs-office"\nmtu = 9000\nmax-ports = 64\nport = [{ id = 900, count = 60 }]\n')
    answer = here("apply", str(path))
    assert (answer.code, answer.out) == (4, "")
    assert "of switch dvs-office: add port: " in answer.err
    assert here("switch", "show", "dvs-office", "--json").data["mtu"] == 1500


@pytest.mark.parametrize(
    ("text", "place"),
    [
        ('[[nic]]\nname = "x"\n', "nic"),
        ('[[switch]]\nname = "s"\n[[switch]]\nname = "t"\nport = [{ id = 1 }, { id = 2, client = { name = "c" } }]\n',
         "switch[1].port[1].client"),
        ('[[nic]]\nname = "n"\n[[switch]]\nname = "s"\nuplink = [{ name = "u", nic = "n" }]\n', "nic"),
    ],
)  # fmt: skip
def test_what_is_the_laboratorys_is_refused(here: InProcess, tmp_path: Path, text: str, place: str) -> None:
    path = tmp_path / "lab.toml"
    path.write_text(text)
    answer = here("apply", str(path))
    assert (answer.code, answer.out) == (2, "")
    assert f"{path}: {place} is the laboratory's to arrange" in answer.err


def test_a_file_that_is_wrong_is_told_with_all_that_is(here: InProcess, tmp_path: Path) -> None:
    path = tmp_path / "wrong.toml"
    path.write_text('colour = 1\n[[switch]]\nname = "s"\nmtu = 5\n')
    answer = here("apply", str(path))
    assert answer.code == 2
    assert answer.err.splitlines() == [
        f"kestrel: {path}: colour: unknown key; Scenario has " + ", ".join(keys_of(Scenario)),
        f"{path}: switch[0].mtu: 5 is not from 1280 to 9000",
    ]


def test_a_desired_state_in_json(here: InProcess, wanted: Path) -> None:
    answer = here("apply", str(wanted), "--check", "--json")
    assert answer.code == 6
    data = json.loads(answer.out)["data"]
    assert (data["changed"], data["check"]) == (True, True)
    assert {"object": "switch dvs-office", "operation": "set MTU", "before": "1500", "after": "9000"} in data["changes"]


# ---- At the same time ----


def test_many_commands_at_the_same_time_lose_nothing(office: Process) -> None:
    def create(number: int) -> int:
        return office("port", "create", "dvs-office", f"x{number}", "--vlan", str(number + 1)).code

    with ThreadPoolExecutor(8) as pool:
        assert set(pool.map(create, range(24))) == {0}
    found = {row["port"]: row["vlan"] for row in office("port", "list", "dvs-office", "--json").data}
    assert {f"x{n}": str(n + 1) for n in range(24)}.items() <= found.items()


def test_of_the_same_change_at_the_same_time_one_is_made(office: Process, wanted: Path) -> None:
    with ThreadPoolExecutor(4) as pool:
        codes = list(pool.map(lambda _n: office("apply", str(wanted), "--exit-code").code, range(4)))
    assert sorted(codes) == [0, 0, 0, 6]
    assert office("apply", str(wanted), "--check").code == 0


def test_a_first_host_made_by_several_at_once_is_one(kestrel: Process) -> None:
    with ThreadPoolExecutor(4) as pool:
        codes = list(pool.map(lambda _n: kestrel("lab", "run", "small-office").code, range(4)))
    assert set(codes) == {0}
    assert [row["name"] for row in kestrel("switch", "list", "--json").data] == ["dvs-office"]
