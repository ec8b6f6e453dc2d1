"""Every command: it answers, in JSON as its schema says, and changes what it is to change once."""

from __future__ import annotations

import json
from pathlib import Path
from typing import Any

import _libkestrel as flat
import click
import jsonschema
import pytest

from commands import pages, tree
from libkestrel import platform_info
from libkestrel.cli import shapes, values
from libkestrel.cli.nouns import mirror
from support.prompt import InProcess

ROOT = Path(__file__).resolve().parents[2]
SCHEMA = json.loads((ROOT / pages.SCHEMA).read_text())
LEAVES = {entry.name.removeprefix("kestrel "): entry for entry in tree.leaves(tree.root())}

READING = {
    "switch list": "dvs-office",
    "switch show dvs-office": "uplinks       uplink1, uplink2\n",
    "port list dvs-office": "dvs-office  router      trunk 10,20,30    router.eth0",
    "port list": "dvs-office  router      trunk 10,20,30    router.eth0",
    "port list dvs-office --vlan 20": "files.eth0",
    "port show dvs-office 300": "vlan            30 with priority\n",
    "uplink list": "dvs-office  uplink2  1     vmnic1  up    -     -\n",
    "uplink show dvs-office vmnic0": "is active  yes\n",
    "lag list": "SWITCH  NAME  ID  STATE  NICS  LINKS UP\n",
    "mac list": "02:4b:20:00:00:02  201         static",
    "mac list dvs-office router": "02:4b:00:00:00:01  router  static",
    "mac list --vlan 30 --kind static": "302",
    "mac show 02:4b:20:00:00:01": "dvs-office    20  02:4b:20:00:00:01  200",
    "vlan list dvs-office": "dvs-office  management  access  untagged",
    "vlan list": "dvs-office  management  access  untagged",
    "pvlan list": "SWITCH  PRIMARY  SECONDARY  KIND\n",
    "team list": "explicit  uplink1  uplink2",
    "mirror list": "SWITCH  ID  PORT",
    "mcast list": "SWITCH  PORT  GROUP  BY\n",
    "vlan show dvs-office router": "vlans         10,20,30\n",
    "pvlan list dvs-office": "SWITCH  PRIMARY  SECONDARY  KIND\n",
    "team list dvs-office": "explicit  uplink1  uplink2  link-state  rolling, notify\n",
    "team show dvs-office": "in use         -\n",
    "team show dvs-office 100": "in use         vmnic0\n",
    "mirror list dvs-office": "SWITCH  ID  PORT  KIND  TO  IN  OUT\n",
    "mcast list dvs-office": "SWITCH  PORT  GROUP  BY\n",
    "mcast show dvs-office": "mode       legacy\n",
    "option list": "IGMPVersion",
    "option show IGMPVersion": "value  3\n",
    "prop list dvs-office": "com.talvex",
    "prop list dvs-office --port 100": "com.talvex",
    "prop show dvs-office com.talvex.vswitch.mtu": "text    0x",
    "status list": "0x0bad0003  ZEL_NOT_FOUND",
    "status explain 0x0bad0003": "name       ZEL_NOT_FOUND\n",
    "status explain busy": "exit code  5\n",
    "lab scenarios": "small-office",
    "lab nics": "vmnic1  up",
    "lab clients dvs-office": "router.eth0",
    "lab clock": "now  0.001\n",
    "watch --count 1": "desk-1.eth0",
    "watch dvs-office 100 --count 2 --interval 0.05": "dvs-office  100   desk-1.eth0",
    "topology": "├─ VLAN 10\n",
    "info": "platform          embedded host",
}
"""Commands that answer, and a part of what they say."""

CHANGING = {
    "switch create dvs-new --mtu 9000 --uplink a --uplink b": "switch dvs-new: create switch: absent -> present",
    "switch set dvs-office --mtu 9000 --max-ports 80": "switch dvs-office: set MTU: 1500 -> 9000",
    "switch set dvs-office --version 6.6 --ageing 60 --mac-limit 9 --no-forwarding --learn-static --static-mac-allow": (
        "set MAC learning: aging time 120, limit 1024 -> aging time 60, limit 9"
    ),
    "switch clear dvs-office learning": "clear MAC learning: aging time 120, limit 1024 -> default",
    "port create dvs-office 900 901 --vlan 7": "port 901 of switch dvs-office: set VLAN policy: absent -> 7",
    "port set dvs-office 100 --block --alias desk --nested-tagging --promiscuous --sink --always-uplink": (
        "set security policy: nothing allowed -> promiscuous allowed"
    ),
    "port set dvs-office 100 --learning --flooding --mac-limit 7 --at-limit drop --uplink uplink2": (
        "learning yes, flooding yes, limit 7, beyond drop"
    ),
    "port clear dvs-office 100 vlan": "clear VLAN policy: 10 -> default",
    "uplink create dvs-office uplink3": "add uplink port uplink3",
    "uplink set dvs-office vmnic0 --down": "set administrative link state: yes -> no",
    "lag create dvs-office lag1 uplink1 uplink2": "add group lag1: absent -> uplink1; uplink2",
    "mac create dvs-office 100 02:00:00:00:00:99 --vlan 10": "add MAC entry 02:00:00:00:00:99 in VLAN 10",
    "mac set --ageing 77": "set MAC-learning defaults: aging time",
    "vlan set dvs-office 100 20": "port 100 of switch dvs-office: set VLAN policy: 10 -> 20",
    "vlan set dvs-office 100 --trunk 5,7-9 --set-priority": "10 -> trunk 5,7-9 with priority",
    "vlan clear dvs-office 100": "10 -> default",
    "pvlan create dvs-office 100 101 isolated": "kind promiscuous; primary 100, secondary 101, kind isolated",
    "team set dvs-office --balance source-mac --active uplink1,uplink2 --standby ''": (
        "source-mac; active uplink1, uplink2; criteria"
    ),
    "team set dvs-office 100 --criteria link-state,errors --error-percent 5 --flags notify": "link-state, errors",
    "team create dvs-office spare --active uplink2": "set named teaming policies",
    "mirror create dvs-office 200 m1 --to 201 --in port:100 --out vlan:10": "m1 to port:201 in port:100 out vlan:10",
    "mcast set dvs-office snooping": "legacy -> snooping",
    "mcast create dvs-office 01:00:5e:00:00:01": "set user multicast addresses: none -> 01:00:5e:00:00:01",
    "mcast create dvs-office 01:00:5e:00:00:01 --port 100": "port 100 of switch dvs-office: set user multicast",
    "option set IGMPVersion=2": "IGMPVersion 3 -> IGMPVersion 2",
    "prop set dvs-office com.example.note hello": 'set com.example.note: absent -> "hello"',
    "prop set dvs-office com.example.note --hex 0x00ff --port 100": "absent -> 0x00ff",
    "prop set dvs-office com.example.note --int 5 --host-part": "absent -> 0x05000000",
    "port delete dvs-office 900": "",
    "port delete dvs-office 100": None,
    "lag delete dvs-office lag9": "",
    "mac delete dvs-office 100 02:00:00:00:00:98": "",
    "uplink delete dvs-office uplink9": "",
    "switch delete nothing": "",
    "pvlan delete dvs-office 100": "",
    "pvlan clear dvs-office": "",
    "team clear dvs-office": "explicit",
    "team clear dvs-office 100": "",
    "team delete dvs-office spare": "",
    "mirror delete dvs-office m9": "",
    "mirror clear dvs-office 100": "",
    "mcast delete dvs-office 01:00:5e:00:00:01": "",
    "mcast clear dvs-office": "",
    "prop clear dvs-office com.example.note": "",
}
"""Commands that change something, and a part of what they say; "" for one that finds nothing to change, None for one
that is refused."""

IN_THEIR_OWN_TESTS = {
    "state export", "state import", "state verify", "state load", "state sanitize", "state reset", "lab run",
    "lab reset", "lab restart", "lab plug", "lab pull", "lab link", "lab connect", "lab disconnect", "lab send",
    "lab play", "lab capture", "lag show", "mirror show", "apply", "completion",
}  # fmt: skip


def words(line: str) -> list[str]:
    return [word if word != "''" else "" for word in line.split(" ")]


def closed(schema: Any) -> Any:
    """A schema that allows nothing that it does not tell of."""
    if isinstance(schema, list):
        return [closed(each) for each in schema]
    if not isinstance(schema, dict):
        return schema
    found = {key: closed(value) for key, value in schema.items()}
    return found | {"additionalProperties": False} if "properties" in schema and "type" in schema else found


def check(answer: dict[str, Any]) -> None:
    """An answer is what the schema says, by the kind that it gives."""
    of_kind = [each for each in SCHEMA["oneOf"] if each["title"] == answer["kind"]]
    assert len(of_kind) == 1
    jsonschema.validate(answer, closed(of_kind[0]), cls=jsonschema.Draft202012Validator)


def named(line: str) -> str:
    return next(name for name in (" ".join(words(line)[:2]), words(line)[0]) if name in LEAVES)


def test_every_command_is_tried() -> None:
    tried = {named(line) for line in (*READING, *CHANGING)} | IN_THEIR_OWN_TESTS
    assert tried == set(LEAVES)


def test_the_schema_is_a_schema_and_has_every_kind() -> None:
    jsonschema.Draft202012Validator.check_schema(SCHEMA)
    assert [each["title"] for each in SCHEMA["oneOf"]] == sorted(shapes.SHAPES)


@pytest.mark.parametrize("line", READING)
def test_a_command_answers(here: InProcess, line: str) -> None:
    answer = here(*words(line))
    assert (answer.code, answer.err) == (0, "")
    assert READING[line] in answer.out


@pytest.mark.parametrize("line", READING)
def test_an_answer_in_json_is_as_the_schema_says(here: InProcess, line: str) -> None:
    answer = here(*words(line), "--json")
    assert (answer.code, answer.err) == (0, "")
    for each in answer.out.splitlines():
        check(json.loads(each))


@pytest.mark.parametrize("line", CHANGING)
def test_a_change_is_made_once(here: InProcess, line: str) -> None:
    told = CHANGING[line]
    before = here("state", "export", str(here.path.with_suffix(".before")))
    assert before.code == 0
    looked = here(*words(line), "--check")
    assert (looked.code, looked.err) == (6 if told != "" else 0, "")
    assert here.path.with_suffix(".before").read_bytes() == image(here)
    first = here(*words(line), "--exit-code")
    if told is None:
        assert first.code == 5
        return
    assert (first.code, first.err) == (6 if told else 0, "")
    assert told in first.out
    assert first.out == ("nothing to change\n" if not told else first.out)
    again = here(*words(line), "--exit-code")
    assert (again.code, again.out) == (0, "nothing to change\n")


def image(here: InProcess) -> bytes:
    path = here.path.with_suffix(".now")
    assert here("state", "export", str(path)).code == 0
    return path.read_bytes()


@pytest.mark.parametrize("line", [line for line, told in CHANGING.items() if told is not None])
def test_a_change_in_json_is_as_the_schema_says(here: InProcess, line: str) -> None:
    answer = here(*words(line), "--json")
    assert (answer.code, answer.err) == (0, "")
    told = json.loads(answer.out)
    check(told)
    assert told["data"]["changed"] is (CHANGING[line] != "")
    assert bool(told["data"]["changes"]) is told["data"]["changed"]


@pytest.mark.parametrize("more", [[], ["--json"]])
def test_groups_and_mirrors_are_shown_once_they_are_there(here: InProcess, more: list[str]) -> None:
    assert here("lag", "create", "dvs-office", "lag1", "uplink1", "uplink2").code == 0
    assert here("mirror", "create", "dvs-office", "200", "m1", "--to", "201", "--in", "100").code == 0
    assert here("lab", "send", "dvs-office", "100").code == 0
    lag = here("lag", "show", "dvs-office", "lag1", *more)
    mirror = here("mirror", "show", "dvs-office", "m1", *more)
    assert (lag.code, mirror.code) == (0, 0)
    if more:
        check(json.loads(lag.out))
        check(json.loads(mirror.out))
        assert lag.data["nics"] == ["vmnic0", "vmnic1"]
        assert (mirror.data["to"], mirror.data["matched"]) == (["port:201"], 1)
    else:
        assert "nics      vmnic0, vmnic1\n" in lag.out
        assert "matched        1\n" in mirror.out


def test_groups_and_mirrors_go_one_by_one(here: InProcess) -> None:
    for lag, uplink in (("lag1", "uplink1"), ("lag2", "uplink2")):
        assert here("lag", "create", "dvs-office", lag, uplink).code == 0
    for session in ("m1", "m2"):
        assert here("mirror", "create", "dvs-office", "200", session, "--to", "201", "--in", "100").code == 0
    assert here("lag", "show", "dvs-office", "lag2", "--json").data["nics"] == ["vmnic1"]
    assert here("mirror", "show", "dvs-office", "m2", "--json").data["id"] == "m2"
    assert "remove group lag1: present -> absent" in here("lag", "delete", "dvs-office", "lag1").out
    assert "m1" in here("mirror", "delete", "dvs-office", "m1").out
    assert [row["name"] for row in here("lag", "list", "--json").data] == ["lag2"]
    assert [row["id"] for row in here("mirror", "list", "--json").data] == ["m2"]
    assert here("lag", "delete", "dvs-office", "lag1").out == "nothing to change\n"


def test_a_port_is_put_into_a_private_vlan(here: InProcess) -> None:
    assert here("pvlan", "create", "dvs-office", "100", "101", "isolated").code == 0
    assert "10 -> private 101" in here("vlan", "set", "dvs-office", "100", "--private", "101").out
    shown = here("vlan", "show", "dvs-office", "100", "--json").data
    assert (shown["mode"], shown["vlan"], shown["is_default"]) == ("private", 101, False)
    assert "dvs-office  100         private" in here("vlan", "list", "dvs-office").out


def test_the_version_is_that_of_the_package(here: InProcess) -> None:
    answer = here("--version")
    assert (answer.code, answer.out) == (0, f"kestrel {platform_info().version}\n")


@pytest.mark.parametrize("kind", [values.MAC, values.RANGES, values.HEX, mirror.Entity()], ids=lambda kind: kind.name)
def test_what_an_argument_became_is_such_an_argument(kind: click.ParamType[Any]) -> None:
    text = {"mac": "02:00:00:00:00:01", "ranges": "5,7-9", "hex": "0x00ff", "entity": "vlan:5"}[kind.name]
    value = kind.convert(text, None, None)
    assert not isinstance(value, str)
    assert kind.convert(value, None, None) == value


def test_everything_that_is_set_can_be_cleared(here: InProcess) -> None:
    from libkestrel.cli.nouns import port, switch

    for setting in switch.SETTINGS:
        assert here("switch", "clear", "dvs-office", setting).code == 0
    for setting in port.SETTINGS:
        assert here("port", "clear", "dvs-office", "300", setting).code == 0


@pytest.mark.parametrize("name", LEAVES)
def test_every_command_has_help_that_fits_a_terminal(here: InProcess, name: str) -> None:
    answer = here(*name.split(), "--help")
    assert (answer.code, answer.err) == (0, "")
    assert answer.out.startswith(f"Usage: kestrel {name}")
    for param in LEAVES[name].options:
        assert param[1], f"{param[0]} has no help"


def test_addresses_of_a_port_ask_no_other_port_for_its_number(here: InProcess, monkeypatch: pytest.MonkeyPatch) -> None:
    real = flat.VSDVS_DvPortIDToPortID
    asked: list[str] = []

    def ask(switch: str, port: str) -> Any:
        asked.append(port)
        return real(switch, port)

    monkeypatch.setattr(flat, "VSDVS_DvPortIDToPortID", ask)
    assert "02:4b:00:00:00:01" in here("mac", "list", "dvs-office", "router").out
    assert set(asked) == {"router"}
