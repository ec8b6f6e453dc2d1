"""The laboratory and the picture of the host, at the prompt."""

from __future__ import annotations

import os
import subprocess
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

from libkestrel import lab
from support.prompt import InProcess, Process


def test_links_and_cables(here: InProcess) -> None:
    assert (
        here("lab", "link", "vmnic0", "--down", "--speed", "100", "--lacp", "none", "--json").data[0]["link"] == "down"
    )
    assert "dvs-office  uplink1  0     vmnic0  down" in here("uplink", "list").out
    nic = lab.nic("vmnic0")
    assert (nic.up, nic.speed, nic.partner.mode) == (False, 100, "none")
    assert here("lab", "link", "vmnic0").code == 2
    assert here("lab", "plug", "vmnic9", "--speed", "100").out == "vmnic9 is plugged in\n"
    assert here("uplink", "create", "dvs-office", "uplink3").code == 0
    plugged = here("lab", "plug", "vmnic8", "--mac", "02:00:00:00:00:08", "--uplink", "dvs-office", "uplink3")
    assert plugged.out == "vmnic8 is plugged in, in uplink3 of dvs-office\n"
    assert here("lab", "pull", "vmnic8").out == "vmnic8 is gone\n"
    assert "vmnic8" not in here("lab", "nics").out
    refused = here("lab", "plug", "vmnic7", "--uplink", "dvs-office", "nothing")
    assert refused.code == 3
    assert "vmnic7" not in here("lab", "nics").out


def test_clients_come_and_go(here: InProcess) -> None:
    assert here("port", "create", "dvs-office", "900").code == 0
    told = here("lab", "connect", "dvs-office", "900", "new.eth0", "--mac", "02:00:00:00:09:00")
    assert told.out == "new.eth0 is at port 900 of dvs-office with 02:00:00:00:09:00\n"
    assert "new.eth0" in here("lab", "clients", "dvs-office").out
    assert here("lab", "disconnect", "dvs-office", "900").out == "port 900 of dvs-office is empty\n"
    assert here("port", "show", "dvs-office", "900", "--json").data["client"] is None


def test_frames_are_sent_and_captured(here: InProcess, tmp_path: Path) -> None:
    send = ("send", "dvs-office", "100", "--to", "02:4b:00:00:00:01", "--count", "3", "--every", "0.5")
    captured = here("lab", "capture", "dvs-office", "router", "--json", "--", *send)
    assert (captured.code, captured.err) == (0, "")
    assert [row["vlan"] for row in captured.data] == [10, 10, 10]
    assert captured.data[1]["time"] - captured.data[0]["time"] == pytest.approx(0.5)
    file = tmp_path / "frames.pcap"
    written = here("lab", "capture", "dvs-office", "router", "--write", str(file), "--", *send)
    assert written.out == f"{file}: 3 frames\n"
    played = here("lab", "play", "dvs-office", "1", str(file))
    assert played.out == "3 frames sent\n"
    assert here("lab", "play", "dvs-office", "1", str(file), "--untimed").code == 0


def test_a_failover_is_captured(here: InProcess) -> None:
    assert here("lab", "link", "vmnic0", "--down").code == 0
    answer = here("lab", "capture", "dvs-office", "1", "--json", "--", "clock", "--advance", "1")
    assert {row["type"] for row in answer.data} == {"0x8035"}
    assert here("lab", "clock", "--json").data["now"] == pytest.approx(1.001)


def test_frames_are_sent_all_or_none(here: InProcess, monkeypatch: pytest.MonkeyPatch) -> None:
    before = here("watch", "--count", "1", "--json").data
    real, sent = lab.send, []

    def failing(switch: str, port: str, frame: bytes) -> None:
        sent.append(frame)
        real(switch, port, frame if len(sent) < 3 else b"")

    monkeypatch.setattr(lab, "send", failing)
    assert here("lab", "send", "dvs-office", "100", "--count", "5", "--every", "1").code == 4
    assert len(sent) == 3
    assert here("watch", "--count", "1", "--json").data == before
    assert here("lab", "clock", "--json").data["now"] == 0.001


def test_counters_tell_what_is_new(office: Process) -> None:
    with office.start("watch", "dvs-office", "100", "--json", "--count", "40", "--interval", "0.2") as running:
        assert running.stdout is not None
        running.stdout.readline()
        assert office("lab", "send", "dvs-office", "100", "--count", "5").code == 0
        lines = running.stdout.read()
    assert '"new_in": 5' in lines


def test_a_scenario_of_ones_own(here: InProcess, tmp_path: Path) -> None:
    path = tmp_path / "own.toml"
    path.write_text('name = "Mine"\n[[switch]]\nname = "own"\n')
    assert here("lab", "run", str(path)).out == f"Mine: own, in the place of what was in {here.path}\n"
    assert here("lab", "run", str(path), "--json").data["switches"] == ["own"]
    assert here("lab", "run", "datacentre").code == 0
    assert [row["name"] for row in here("switch", "list", "--json").data] == ["dvs-machines", "dvs-storage"]


# ---- The picture ----


def test_a_tree_has_uplinks_vlans_and_clients(here: InProcess) -> None:
    lines = here("topology").out.splitlines()
    assert lines[:4] == ["dvs-office  MTU 1500", "├─ uplinks", "│  ├─ uplink1: vmnic0, up", "│  └─ uplink2: vmnic1, up"]
    assert "│  └─ 201: mail.eth0 02:4b:20:00:00:02" in lines
    assert "├─ trunk 10,20,30" in lines
    assert here("port", "create", "dvs-office", "900").code == 0
    assert "900" not in here("topology").out
    assert "   └─ 900: nobody" in here("topology", "--empty").out
    assert here("uplink", "create", "dvs-office", "uplink3").code == 0
    assert "│  └─ uplink3: no NIC" in here("topology").out.splitlines()


def test_a_graph_is_one_that_graphviz_reads(here: InProcess) -> None:
    assert here("port", "set", "dvs-office", "100", "--alias", 'say "hello"').code == 0
    graph = here("topology", "--dot").out
    assert graph.startswith("digraph host {\n")
    assert graph.count("{") == graph.count("}") == 1
    subprocess.run(["dot", "-Tsvg"], input=graph, text=True, check=True, capture_output=True)


def test_a_picture_is_drawn_where_graphviz_is_there(
    here: InProcess, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    file = tmp_path / "host.svg"
    assert here("topology", "--svg", str(file)).code == 0
    texts = [element.text for element in ElementTree.parse(file).iter() if element.tag.endswith("}text")]
    assert {"dvs-office", "router.eth0", "vmnic0"} <= set(texts)
    drawn = here("topology", "--svg", "-")
    assert (drawn.code, drawn.out) == (0, file.read_text())
    file.unlink()
    failing = tmp_path / "dot"
    failing.write_text("#!/bin/sh\necho no fonts >&2\nexit 3\n")
    failing.chmod(0o755)
    with monkeypatch.context() as patched:
        patched.setenv("PATH", str(tmp_path), prepend=os.pathsep)
        failed = here("topology", "--svg", str(file))
    assert (failed.code, failed.out, failed.err) == (1, "", "kestrel: dot failed: no fonts\n")
    failing.unlink()
    monkeypatch.setenv("PATH", str(tmp_path))
    missing = here("topology", "--svg", str(file))
    assert (missing.code, missing.out) == (1, "")
    assert "takes Graphviz, whose program `dot` is not there" in missing.err
    assert not file.exists()
