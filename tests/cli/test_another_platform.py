"""Commands on a platform that has no laboratory: a host's own libraries."""

from __future__ import annotations

from pathlib import Path
from typing import NoReturn

import pytest

from libkestrel import lab
from libkestrel.cli import exits
from libkestrel.lab import _library
from support.prompt import InProcess


@pytest.fixture
def elsewhere(here: InProcess, monkeypatch: pytest.MonkeyPatch) -> InProcess:
    """The small office, on a platform that answers as ours does but for the laboratory."""

    def none() -> NoReturn:
        raise lab.NotEmbeddedError("the laboratory belongs to the embedded host")

    monkeypatch.setattr(_library, "_library", none)
    return here


def test_what_the_laboratory_alone_can_do_is_refused(elsewhere: InProcess) -> None:
    for line in ("lab clock", "lab nics", "lag create dvs-office lag1 uplink1"):
        answer = elsewhere(*line.split())
        assert (answer.code, answer.out) == (exits.FAILED, "")
        assert answer.err == "kestrel: the laboratory belongs to the embedded host\n"


def test_ports_are_listed_without_clients(elsewhere: InProcess) -> None:
    rows = elsewhere("port", "list", "dvs-office", "--json").data
    assert {row["port"] for row in rows} >= {"100", "router"}
    assert {row["client"] for row in rows} == {None}


def test_changes_are_made_without_a_transaction(elsewhere: InProcess) -> None:
    assert "10 -> 20" in elsewhere("vlan", "set", "dvs-office", "100", "20").out
    assert elsewhere("vlan", "show", "dvs-office", "100", "--json").data["vlan"] == 20


def test_one_change_need_not_be_one_that_can_be_taken_back(elsewhere: InProcess) -> None:
    assert elsewhere("switch", "create", "dvs-short-lived").code == 0
    assert elsewhere("switch", "delete", "dvs-short-lived").code == 0
    assert [row["name"] for row in elsewhere("switch", "list", "--json").data] == ["dvs-office"]


def test_changes_that_fail_half_way_are_taken_back(elsewhere: InProcess) -> None:
    before = elsewhere("port", "list", "dvs-office").out
    answer = elsewhere("port", "create", "dvs-office", "900", "x" * 300)
    assert (answer.code, answer.out) == (exits.REFUSED, "")
    assert elsewhere("port", "list", "dvs-office").out == before


def test_states_are_moved_and_checked_as_far_as_can_be(elsewhere: InProcess, tmp_path: Path) -> None:
    image = tmp_path / "office.img"
    assert elsewhere("state", "export", str(image)).code == 0
    sound = elsewhere("state", "verify", str(image))
    assert sound.out == f"{image}: a sound state image: 1 switch, 22 ports, not tried on a host\n"
    assert elsewhere("switch", "set", "dvs-office", "--mtu", "9000").code == 0
    assert elsewhere("state", "import", str(image)).code == 0
    assert elsewhere("switch", "show", "dvs-office", "--json").data["mtu"] == 1500
