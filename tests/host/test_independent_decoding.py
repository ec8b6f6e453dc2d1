"""An independent program looks at the frames that left the host and agrees with what they were meant to be."""

from __future__ import annotations

import json
import shutil
import subprocess
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

from libkestrel import lab
from libkestrel.lab.scenario import load_scenario, load_scenario_text

ROOT = Path(__file__).resolve().parents[2]
BROADCAST = "ff:ff:ff:ff:ff:ff"


@pytest.fixture(autouse=True)
def _host_of_its_own() -> Iterator[None]:
    with lab.scratch():
        yield


def test_the_independent_program_is_there() -> None:
    assert shutil.which("tshark"), "install tshark, as tools/setup does"


def decode(capture: lab.Capture, folder: Path) -> list[dict[str, Any]]:
    """The layers of each captured frame, as tshark has them; none of them may be malformed."""
    path = folder / f"{capture.switch}-{capture.port}.pcap"
    count = capture.write_pcap(path)
    command = ["tshark", "-n", "-r", str(path), "-T", "json", "--no-duplicate-keys"]
    done = subprocess.run(command, capture_output=True, text=True, check=True)
    packets = [packet["_source"]["layers"] for packet in json.loads(done.stdout or "[]")]
    assert len(packets) == count
    expert = ["tshark", "-n", "-r", str(path), "-Y", "_ws.malformed || _ws.expert.severity >= 8388608"]
    assert subprocess.run(expert, capture_output=True, text=True, check=True).stdout == ""
    return packets


def vlans(packet: dict[str, Any]) -> list[int]:
    """The VLANs of a packet's tags, from the outside in."""
    tags = packet.get("vlan", [])
    return [int(tag["vlan.id"]) for tag in (tags if isinstance(tags, list) else [tags])]


def carried_type(packet: dict[str, Any]) -> str:
    """The type of what a packet carries, behind its tags."""
    tags = packet.get("vlan", [])
    innermost = (tags if isinstance(tags, list) else [tags])[-1:]
    found = innermost[0]["vlan.etype"] if innermost else packet["eth"]["eth.type"]
    assert isinstance(found, str)
    return found


def mac(port: str, switch: str = "dvs-office") -> str:
    return lab.client_at(switch, port).mac


def test_tags_and_times_are_those_of_the_switch(tmp_path: Path) -> None:
    load_scenario(ROOT / "examples" / "scenarios" / "small-office.toml")
    with (
        lab.capture("dvs-office", "router") as router,
        lab.capture("dvs-office", "0") as uplink,
        lab.capture("dvs-office", "101") as desk,
        lab.capture("dvs-office", "200") as server,
    ):
        begin = lab.clock.now_ns()
        lab.send("dvs-office", "100", lab.ethernet(BROADCAST, mac("100"), payload=b"desk"))
        lab.clock.advance(0.000000001)
        lab.send("dvs-office", "200", lab.ethernet(BROADCAST, mac("200"), payload=b"server"))
        lab.clock.advance(1.5)
        lab.send("dvs-office", "300", lab.ethernet(BROADCAST, mac("300"), payload=b"telephone"))
    at_router = decode(router, tmp_path)
    assert [vlans(packet) for packet in at_router] == [[10], [20], [30]]
    assert [vlans(packet) for packet in decode(uplink, tmp_path)] == [[10], [20], [30]]
    assert [packet["eth"]["eth.src"] for packet in at_router] == [mac("100"), mac("200"), mac("300")]
    assert at_router[2]["vlan"]["vlan.priority"] == "5"
    times = [round(float(packet["frame"]["frame.time_epoch"].replace(" ", "")) * 1e9) for packet in at_router]
    assert times == [begin, begin + 1, begin + 1_500_000_001]
    assert [vlans(packet) for packet in decode(desk, tmp_path)] == [[]], "an access port, and of its own VLAN only"
    assert decode(server, tmp_path) == []


def test_nested_tags_are_carried_inside_of_the_ports_vlan(tmp_path: Path) -> None:
    load_scenario_text(
        '[[nic]]\nname = "n"\n[[switch]]\nname = "s"\nuplink = [{ name = "u", nic = "n" }]\n'
        '[[switch.port]]\nid = "p"\nvlan = 7\nnested-tags = true\nclient = { name = "c" }\n'
    )
    with lab.capture("s", "0") as uplink:
        lab.send("s", "p", lab.ethernet(BROADCAST, mac("p", "s"), payload=b"inner", vlan=99))
    (packet,) = decode(uplink, tmp_path)
    assert vlans(packet) == [7, 99]


def test_failover_is_announced_by_rarp(tmp_path: Path) -> None:
    load_scenario(ROOT / "examples" / "scenarios" / "small-office.toml")
    with lab.capture("dvs-office", "0") as first, lab.capture("dvs-office", "1") as second:
        lab.change_nic("vmnic0", up=False)
        lab.clock.advance(60)
    announced = decode(second, tmp_path)
    assert announced
    assert {carried_type(packet) for packet in announced} == {"0x8035"}
    # With the tag of the client's VLAN before it, unless the client is in none.
    assert {packet["eth"]["eth.type"] for packet in announced if vlans(packet)} == {"0x8100"}
    assert all(len(vlans(packet)) <= 1 for packet in announced)
    assert {packet["arp"]["arp.opcode"] for packet in announced} == {"3"}
    assert {packet["eth"]["eth.dst"] for packet in announced} == {BROADCAST}
    sources = {packet["arp"]["arp.src.hw_mac"] for packet in announced}
    assert {mac("100"), mac("200"), mac("300")} <= sources
    assert all(packet["eth"]["eth.src"] == packet["arp"]["arp.src.hw_mac"] for packet in announced)
    assert {vlan for packet in announced for vlan in vlans(packet)} >= {10, 20, 30}
    assert len(first) == 0


def test_igmp_queries_of_the_switch_are_queries(tmp_path: Path) -> None:
    load_scenario(ROOT / "examples" / "scenarios" / "datacentre.toml")
    with lab.capture("dvs-machines", "1000") as port:
        lab.send("dvs-machines", "1000", igmp_report(mac("1000", "dvs-machines")))
        lab.clock.advance(300)
    packets = [packet for packet in decode(port, tmp_path) if "igmp" in packet]
    assert packets
    assert {packet["igmp"]["igmp.type"] for packet in packets} == {"0x11"}
    assert all(packet["igmp"]["igmp.checksum.status"] == "1" for packet in packets)
    assert all(packet["ip"]["ip.ttl"] == "1" for packet in packets)


def checksum(data: bytes) -> bytes:
    total = sum(int.from_bytes(data[i : i + 2], "big") for i in range(0, len(data), 2))
    while total > 0xFFFF:
        total = (total >> 16) + (total & 0xFFFF)
    return (0xFFFF - total).to_bytes(2, "big")


def igmp_report(source: str) -> bytes:
    """A version 2 report for 239.1.2.3."""
    group = bytes([239, 1, 2, 3])
    message = b"\x16\0" + checksum(b"\x16\0\0\0" + group) + group
    head = bytes.fromhex("46c0 0020 0000 4000 0102".replace(" ", ""))
    addresses = bytes([192, 0, 2, 5]) + group + b"\x94\x04\0\0"
    head += checksum(head + b"\0\0" + addresses) + addresses
    return lab.ethernet("01:00:5e:01:02:03", source, 0x0800, head + message)


def test_a_report_made_here_is_good(tmp_path: Path) -> None:
    load_scenario(ROOT / "examples" / "scenarios" / "datacentre.toml")
    with lab.capture("dvs-machines", "1000", "in") as port:
        lab.send("dvs-machines", "1000", igmp_report(mac("1000", "dvs-machines")))
    (packet,) = decode(port, tmp_path)
    assert packet["igmp"]["igmp.checksum.status"] == "1"
    assert packet["ip"]["ip.checksum.status"] in ("1", "2")


@pytest.mark.parametrize(
    ("encapsulation", "layers"),
    [("gre", {"gre"}), ("erspan2", {"gre", "erspan"}), ("erspan3", {"gre", "erspan"})],
)
def test_mirrors_reach_their_collector_in_a_tunnel(encapsulation: str, layers: set[str], tmp_path: Path) -> None:
    load_scenario_text(
        '[[nic]]\nname = "n"\n[[switch]]\nname = "s"\nuplink = [{ name = "u", nic = "n" }]\n'
        '[[switch.port]]\nid = "k"\nclient = { name = "vmk0", kind = "service" }\n'
        '[[switch.port]]\nid = "p"\nvlan = 7\nclient = { name = "c", mac = "02:00:00:00:00:07" }\n'
        '[[switch.mirror]]\nid = "m"\nport = "p"\nkind = "encapsulated"\n'
        f'encapsulation = "{encapsulation}"\nerspan-id = 5\ngre-key = 77\n'
        'to = [{ ip = "192.0.2.99" }]\nincoming = [{ port = "p" }]\n'
    )
    with lab.capture("s", "0") as uplink:
        lab.send("s", "p", lab.ethernet("02:00:00:00:00:99", mac("p", "s"), payload=b"mirrored"))
    tunnelled = [packet for packet in decode(uplink, tmp_path) if "gre" in packet]
    assert len(tunnelled) == 1
    (packet,) = tunnelled
    assert layers <= set(packet)
    assert packet["ip"]["ip.dst"] == "192.0.2.99"
    assert "02:00:00:00:00:07" in json.dumps(packet), "the mirrored frame is inside"
    if "erspan" in layers:
        assert packet["erspan"]["erspan.spanid"] == "5"


def test_mirrored_frames_arrive_whole(tmp_path: Path) -> None:
    load_scenario(ROOT / "examples" / "scenarios" / "datacentre.toml")
    with lab.capture("dvs-machines", "analyser") as analyser:
        lab.send(
            "dvs-machines",
            "1000",
            lab.ethernet(mac("router", "dvs-machines"), mac("1000", "dvs-machines"), payload=b"for the router"),
        )
    packets = decode(analyser, tmp_path)
    assert [packet["eth"]["eth.dst"] for packet in packets] == [mac("router", "dvs-machines")]
