"""The laboratory through its Python face: what is done to a host from outside, and what the platform then says."""

from __future__ import annotations

import copy
import gc
import os
import struct
import subprocess
import sys
from collections.abc import Iterator
from datetime import timedelta
from pathlib import Path
from typing import Any

import _libkestrel as k
import pytest

from headers import model
from libkestrel import lab
from libkestrel.lab import _library, wiring
from libkestrel.lab.frames import mac, mac_text
from libkestrel.lab.timekeeping import nanoseconds

SWITCH = "dvs-bench"
BROADCAST = "ff:ff:ff:ff:ff:ff"
A, B = "02:00:00:00:00:0a", "02:00:00:00:00:0b"


@pytest.fixture(autouse=True)
def _bench() -> Iterator[None]:
    """A host with one switch: clients "a" and "b" at two ports, a free port, and an uplink with a NIC."""
    with lab.scratch():
        lab.reset()
        build()
        yield


def build() -> None:
    assert k.VSDVS_CreateVSwitch(SWITCH, "bench-id", k.PS_CLASS_NAME, 0, 0, 16, 1500, k.DVS_VERSION_70) == k.ZEL_OK
    assert k.VSDVS_AddSwitchUplinkPort(SWITCH, "uplink1") == k.ZEL_OK
    for port in ("a", "b", "free"):
        assert k.VSDVS_AddDVPort(SWITCH, port, 0) == k.ZEL_OK
    lab.plug("vmnic0", speed=25000)
    lab.connect_nic(SWITCH, "uplink1", "vmnic0")
    lab.connect(SWITCH, "a", "a.eth0", mac=A)
    lab.connect(SWITCH, "b", "b.eth0", mac=B)


def status_of(call: Any, *arguments: Any, **keywords: Any) -> int:
    with pytest.raises(lab.LabError) as caught:
        call(*arguments, **keywords)
    return caught.value.status


def mtu() -> int:
    cell = k.new_VSInfo()
    assert k.VSZEL_GetVSInfo(SWITCH, cell) == k.ZEL_OK
    value = k.VSInfo_mtu_get(cell)
    k.delete_VSInfo(cell)
    assert isinstance(value, int)
    return value


# ---- Time ----


def test_time_stands_still_until_it_is_advanced() -> None:
    begin = lab.clock.now_ns()
    assert lab.clock.now_ns() == begin
    lab.clock.advance(1.5)
    lab.clock.advance(timedelta(milliseconds=250))
    lab.clock.advance_ns(1)
    assert lab.clock.now_ns() - begin == 1_750_000_001
    assert lab.clock.now() == lab.clock.now_ns() / 1e9


@pytest.mark.parametrize("duration", [-1, -1e-9, float("nan"), float("inf"), 1e300, 2**63, timedelta(seconds=-1)])
def test_time_does_not_go_back_nor_to_no_time(duration: Any) -> None:
    with pytest.raises(ValueError, match="no time"):
        nanoseconds(duration)


def test_time_ends() -> None:
    lab.clock.advance_ns(2**63 - 1 - lab.clock.now_ns())
    assert status_of(lab.clock.advance_ns, 1) == k.ZEL_LIMIT_EXCEEDED
    assert lab.clock.now_ns() == 2**63 - 1


# ---- NICs ----


def test_a_nic_is_what_it_was_plugged_as() -> None:
    plugged = lab.plug(
        "vmnic7",
        up=False,
        speed=100,
        duplex="half",
        mac="02:00:00:00:07:00",
        driver=False,
        error_percent=12,
        blocked=True,
        beacons=False,
        numa_node=3,
        partner=lab.LacpPartner("passive", "02:00:00:00:99:99", 7, 8, False, False, True),
    )
    assert lab.nic("vmnic7") == plugged
    assert plugged == lab.Nic(
        "vmnic7",
        False,
        100,
        "half",
        "02:00:00:00:07:00",
        True,
        False,
        12,
        True,
        False,
        3,
        lab.LacpPartner("passive", "02:00:00:00:99:99", 7, 8, False, False, True),
    )
    assert [nic.name for nic in lab.nics()] == ["vmnic0", "vmnic7"]
    changed = lab.change_nic("vmnic7", up=True, duplex="auto")
    assert (changed.up, changed.duplex, changed.speed, changed.mac) == (True, "auto", 100, "02:00:00:00:07:00")
    assert lab.nic("vmnic7") == changed


def test_a_nic_without_an_address_is_given_one_of_its_own() -> None:
    addresses = [lab.plug(f"vmnic{i}").mac for i in range(1, 5)]
    assert len(set(addresses)) == 4
    assert None not in addresses


def test_links_are_what_the_platform_sees() -> None:
    assert k.VSZEL_GetUplinkLinkState(SWITCH, "vmnic0") == [k.ZEL_OK, k.ZEL_LINK_STATE_UP]
    lab.change_nic("vmnic0", up=False)
    assert k.VSZEL_GetUplinkLinkState(SWITCH, "vmnic0") == [k.ZEL_OK, k.ZEL_LINK_STATE_DOWN]
    lab.change_nic("vmnic0", up=True)
    assert k.VSZEL_SetUplinkAdminLinkState(SWITCH, "vmnic0", k.ZEL_LINK_STATE_DOWN) == k.ZEL_OK
    assert (lab.nic("vmnic0").up, lab.nic("vmnic0").enabled) == (True, False)
    lab.change_nic("vmnic0", speed=100)
    assert k.VSZEL_GetUplinkLinkState(SWITCH, "vmnic0") == [k.ZEL_OK, k.ZEL_LINK_STATE_DOWN]
    lab.pull("vmnic0")
    assert k.VSZEL_GetUplinkLinkState(SWITCH, "vmnic0")[0] == k.ZEL_NOT_FOUND
    assert lab.nics() == []
    assert [client.name for client in lab.clients(SWITCH)] == ["a.eth0", "b.eth0"]


def test_nics_are_refused_by_name_and_value() -> None:
    assert status_of(lab.plug, "vmnic0") == k.ZEL_EXISTS
    assert status_of(lab.plug, "") == k.ZEL_INVALID_NAME
    assert status_of(lab.plug, "vmnic1", mac="01:00:00:00:00:01") == k.ZEL_BAD_PARAM
    assert status_of(lab.plug, "vmnic1", mac=lab.nic("vmnic0").mac) == k.ZEL_EXISTS
    for call in (lab.pull, lab.nic, lab.change_nic):
        assert status_of(call, "vmnic9") == k.ZEL_NOT_FOUND
    for name, wrong in (
        ("speed", -1),
        ("speed", 2**32),
        ("error_percent", 101),
        ("numa_node", -1),
        ("duplex", "both"),
        ("mac", "02:00"),
        ("partner", lab.LacpPartner(mode="loud")),
        ("partner", lab.LacpPartner(key=65536)),
    ):
        with pytest.raises(ValueError):
            lab.plug("vmnic1", **{name: wrong})
    with pytest.raises(ValueError, match="longer than 31 bytes"):
        lab.plug("v" * 32)
    with pytest.raises(TypeError):
        lab.plug("vmnic1", colour="red")
    assert [nic.name for nic in lab.nics()] == ["vmnic0"]


def test_groups_of_uplinks_come_and_go() -> None:
    assert k.VSDVS_AddSwitchUplinkPort(SWITCH, "uplink2") == k.ZEL_OK
    lab.add_lag(SWITCH, "lag1", ["uplink1", "uplink2"], number=7)
    status, table = k.VSZEL_GetLAGTable(SWITCH)
    assert (status, k.VSLAGTable_numLAGs_get(table)) == (k.ZEL_OK, 1)
    k.VSZEL_FreeMemory(table)
    assert status_of(lab.add_lag, SWITCH, "lag1", ["uplink2"], number=8) == k.ZEL_EXISTS
    assert status_of(lab.add_lag, SWITCH, "lag2", ["uplink2"], number=8) == k.ZEL_BUSY
    assert status_of(lab.add_lag, SWITCH, "lag2", [], number=8) == k.ZEL_BAD_PARAM
    assert status_of(lab.add_lag, SWITCH, "lag2", ["nothing"], number=8) == k.ZEL_NOT_FOUND
    lab.remove_lag(SWITCH, "lag1")
    assert status_of(lab.remove_lag, SWITCH, "lag1") == k.ZEL_NOT_FOUND
    lab.add_lag(SWITCH, "lag2", ["uplink2"], number=7)


# ---- Clients ----


def test_clients_are_listed_as_they_are_connected() -> None:
    service = lab.connect(SWITCH, "free", "vmk0", kind="service")
    nic, a, b, last = lab.clients(SWITCH)
    assert (nic.kind, nic.name, nic.port) == ("nic", "vmnic0", "0")
    assert (a.kind, a.name, a.port, a.mac, a.used_mac) == ("machine", "a.eth0", "a", A, A)
    assert [k.ZEL_OK, a.port_id] == k.VSDVS_DvPortIDToPortID(SWITCH, "a")
    assert last == service
    assert service.kind == "service"
    assert service.mac not in (A, B, mac_text(bytes(6)))
    lab.disconnect(SWITCH, "a")
    assert [client.name for client in lab.clients(SWITCH)] == ["vmnic0", "b.eth0", "vmk0"]
    assert b in lab.clients(SWITCH)


def test_clients_are_refused_where_they_do_not_belong() -> None:
    assert status_of(lab.connect, SWITCH, "a", "c.eth0") == k.ZEL_IS_CONNECTED
    assert status_of(lab.connect, SWITCH, "0", "c.eth0") in (k.ZEL_BAD_PARAM, k.ZEL_IS_CONNECTED)
    assert status_of(lab.connect, SWITCH, "nowhere", "c.eth0") == k.ZEL_NOT_FOUND
    assert status_of(lab.connect, "nowhere", "free", "c.eth0") == k.ZEL_NOT_FOUND
    assert status_of(lab.connect, SWITCH, "free", "") == k.ZEL_INVALID_NAME
    assert status_of(lab.connect, SWITCH, "free", "c" * 1040) == k.ZEL_NAME_TOO_LONG
    assert status_of(lab.connect, SWITCH, "free", "c", kind=k.VS_PORT_CLIENT_LAG) == k.ZEL_BAD_PARAM
    assert status_of(lab.connect, SWITCH, "free", "c", mac="01:00:00:00:00:01") == k.ZEL_BAD_PARAM
    assert status_of(lab.connect_nic, SWITCH, "uplink1", "vmnic0") == k.ZEL_IS_CONNECTED
    assert status_of(lab.connect_nic, SWITCH, "uplink1", "vmnic9") == k.ZEL_NOT_FOUND
    assert status_of(lab.connect_nic, SWITCH, "uplink9", "vmnic0") == k.ZEL_NOT_FOUND
    assert status_of(lab.disconnect, SWITCH, "free") == k.ZEL_IS_DISCONNECTED
    assert status_of(lab.client_at, SWITCH, "free") == k.ZEL_IS_DISCONNECTED
    with pytest.raises(ValueError, match="zero character"):
        lab.connect(SWITCH, "free", "c\0d")
    with pytest.raises(ValueError, match="no Ethernet address"):
        lab.connect(SWITCH, "free", "c", mac="02:00")


def test_a_client_may_use_another_address_where_it_is_allowed_to() -> None:
    other = "02:00:00:00:00:0c"
    lab.set_adapter(SWITCH, "a", mac=other, groups=["01:00:5e:00:00:01"])
    assert (lab.client_at(SWITCH, "a").mac, lab.client_at(SWITCH, "a").used_mac) == (A, other)
    assert lab.client_at(SWITCH, "a").numa_node is None
    lab.set_client_node(SWITCH, "a", 1)
    assert lab.client_at(SWITCH, "a").numa_node == 1
    lab.set_adapter(SWITCH, "a")
    assert lab.client_at(SWITCH, "a").used_mac == A
    assert status_of(lab.set_adapter, SWITCH, "a", groups=[A]) == k.ZEL_BAD_PARAM
    assert status_of(lab.set_adapter, SWITCH, "free") == k.ZEL_IS_DISCONNECTED


# ---- Frames ----


def test_frames_are_made_and_taken_apart() -> None:
    data = lab.ethernet(B, A, 0x0800, b"payload", vlan=5, priority=3)
    frame = lab.Frame(data)
    assert (frame.destination, frame.source, frame.kind, frame.vlan) == (B, A, 0x0800, 5)
    assert frame.tags == (lab.Tag(0x8100, 5, 3, False),)
    assert frame.payload.startswith(b"payload\0")
    assert len(data) == 64
    assert len(lab.ethernet(B, A)) == 60
    assert str(frame) == f"{A} > {B} VLAN 5 type 0x0800, 64 bytes"
    assert lab.Frame(lab.ethernet(B, A)).vlan is None
    with pytest.raises(ValueError, match="no Ethernet address"):
        mac("02:00:00:00:00:00:00")


def test_what_one_client_sends_another_receives() -> None:
    with lab.capture(SWITCH, "b") as at_b, lab.capture(SWITCH, "a", "both") as at_a, lab.capture(SWITCH, "0") as out:
        begin = lab.clock.now_ns()
        lab.send(SWITCH, "a", lab.ethernet(BROADCAST, A, payload=b"one"))
        lab.clock.advance(0.5)
        lab.send(SWITCH, "b", lab.ethernet(A, B, payload=b"two"))
        assert len(at_b) == 1
        lab.send(SWITCH, "a", lab.ethernet(B, A, payload=b"three"))
    assert [(frame.payload[:5].rstrip(b"\0"), frame.time_ns - begin) for frame in at_b] == [
        (b"one", 0),
        (b"three", 500_000_000),
    ]
    assert [frame.incoming for frame in at_a] == [True, False, True]
    assert [frame.payload[:3] for frame in out] == [b"one"], "what is known to be inside stays inside"
    assert at_b.frames[0].data == lab.ethernet(BROADCAST, A, payload=b"one")


def test_captures_end_with_their_block_and_can_be_cleared() -> None:
    with lab.capture(SWITCH, "b") as capture:
        lab.send(SWITCH, "a", lab.ethernet(BROADCAST, A))
        capture.clear()
        lab.send(SWITCH, "a", lab.ethernet(BROADCAST, A, payload=b"kept"))
        assert status_of(lab.capture(SWITCH, "b").__enter__) == k.ZEL_IS_ENABLED
    lab.send(SWITCH, "a", lab.ethernet(BROADCAST, A))
    assert [frame.payload[:4] for frame in capture.frames] == [b"kept"]
    capture.clear()
    assert len(capture) == 0
    with lab.capture(SWITCH, "b", "in") as incoming:
        lab.send(SWITCH, "a", lab.ethernet(BROADCAST, A))
        lab.send(SWITCH, "b", lab.ethernet(BROADCAST, B))
    assert [frame.source for frame in incoming] == [B]
    assert status_of(lab.capture(SWITCH, "nowhere").__enter__) == k.ZEL_NOT_FOUND
    with pytest.raises(ValueError, match="none of out, in, both"):
        lab.capture(SWITCH, "b", "up").__enter__()


def test_a_capture_ends_also_where_its_block_fails() -> None:
    with pytest.raises(KeyError), lab.capture(SWITCH, "b"):
        raise KeyError
    with lab.capture(SWITCH, "b"):
        pass


def test_a_capture_that_is_full_drops_the_oldest_and_says_so() -> None:
    with lab.capture(SWITCH, "b") as capture:
        for number in range(65536 + 10):
            lab.send(SWITCH, "a", lab.ethernet(B, A, payload=struct.pack("!I", number)))
    assert (len(capture), capture.dropped) == (65536, 10)
    assert capture.frames[0].payload[:4] == struct.pack("!I", 10)


def test_frames_are_refused_where_nobody_can_send_them() -> None:
    frame = lab.ethernet(BROADCAST, A)
    assert status_of(lab.send, SWITCH, "free", frame) == k.ZEL_IS_DISCONNECTED
    assert status_of(lab.send, SWITCH, "nowhere", frame) == k.ZEL_NOT_FOUND
    assert status_of(lab.send, SWITCH, "a", b"short") == k.ZEL_BAD_PARAM
    assert status_of(lab.send, SWITCH, "a", b"") == k.ZEL_BAD_PARAM
    lab.change_nic("vmnic0", up=False)
    assert status_of(lab.send, SWITCH, "0", frame) == k.ZEL_ENETDOWN


# ---- Pcap files ----


def test_captured_frames_can_be_played_again_at_their_intervals(tmp_path: Path) -> None:
    path = tmp_path / "a.pcap"
    with lab.capture(SWITCH, "a", "in") as sent:
        for wait in (0, 0.25, 1):
            lab.clock.advance(wait)
            lab.send(SWITCH, "a", lab.ethernet(BROADCAST, A, payload=str(wait).encode()))
    assert sent.write_pcap(path) == 3
    begin = lab.clock.now_ns()
    with lab.capture(SWITCH, "b") as received:
        assert lab.play(SWITCH, "a", path) == 3
    assert [frame.data for frame in received] == [frame.data for frame in sent]
    assert [frame.time_ns - begin for frame in received] == [0, 250_000_000, 1_250_000_000]
    begin = lab.clock.now_ns()
    assert lab.play(SWITCH, "a", str(path), timed=False) == 3
    assert lab.clock.now_ns() == begin


def test_a_file_is_played_whole_or_not_at_all(tmp_path: Path) -> None:
    good, short = lab.Frame(lab.ethernet(BROADCAST, A), 0), lab.Frame(b"short", 10**9)
    lab.write_pcap(tmp_path / "bad.pcap", [good, short])
    begin = lab.clock.now_ns()
    assert status_of(lab.play, SWITCH, "a", tmp_path / "bad.pcap") == k.ZEL_BAD_PARAM
    assert lab.clock.now_ns() == begin


def test_files_that_cannot_be_read_are_refused_with_a_reason(tmp_path: Path) -> None:
    (tmp_path / "text").write_text("this is no pcap file, and long enough for a header")
    (tmp_path / "pcapng").write_bytes(bytes.fromhex("0a0d0d0a") + bytes(60))
    os.mkfifo(tmp_path / "pipe")
    for name, status, reason in (
        ("nothing", k.ZEL_NOT_FOUND, "No such file"),
        (".", k.ZEL_IS_A_DIRECTORY, "directory"),
        ("pipe", k.ZEL_NOT_SUPPORTED, "no regular file"),
        ("text", k.ZEL_INVALID_METADATA, "no pcap file"),
        ("pcapng", k.ZEL_NOT_SUPPORTED, "pcapng"),
    ):
        with pytest.raises(lab.LabError, match=reason) as caught:
            lab.play(SWITCH, "a", tmp_path / name)
        assert caught.value.status == status


def test_files_that_cannot_be_written_are_refused_and_leave_nothing(tmp_path: Path) -> None:
    frame = lab.Frame(lab.ethernet(BROADCAST, A))
    assert status_of(lab.write_pcap, tmp_path / "no" / "folder.pcap", [frame]) == k.ZEL_NOT_FOUND
    assert status_of(lab.write_pcap, tmp_path, [frame]) == k.ZEL_IS_A_DIRECTORY
    late = lab.Frame(frame.data, 2**32 * 10**9)
    assert status_of(lab.write_pcap, tmp_path / "late.pcap", [late]) == k.ZEL_LIMIT_EXCEEDED
    assert not (tmp_path / "late.pcap").exists()
    assert status_of(lab.write_pcap, "/dev/full", [frame]) == k.ZEL_NO_SPACE


# ---- The host as a whole ----


def test_snapshots_bring_back_what_was() -> None:
    before = lab.snapshot()
    lab.clock.advance(10)
    assert k.VSDVS_SetMTU(SWITCH, 9000) == k.ZEL_OK
    lab.pull("vmnic0")
    after = lab.snapshot()
    for _ in range(2):
        before.restore()
        assert (mtu(), [nic.name for nic in lab.nics()]) == (1500, ["vmnic0"])
        after.restore()
        assert (mtu(), lab.nics()) == (9000, [])
    del before
    gc.collect()
    after.restore()
    assert mtu() == 9000


def test_a_scratch_block_leaves_the_host_as_it_found_it() -> None:
    with pytest.raises(KeyError), lab.scratch():
        assert k.VSDVS_SetMTU(SWITCH, 9000) == k.ZEL_OK
        raise KeyError
    assert mtu() == 1500


def test_a_transaction_is_one_change_or_none() -> None:
    with lab.transaction():
        assert k.VSDVS_SetMTU(SWITCH, 4000) == k.ZEL_OK
        lab.plug("vmnic1")
        assert k.VSDVS_SetMTU(SWITCH, 1) == k.ZEL_BAD_PARAM
        assert mtu() == 4000
    assert (mtu(), len(lab.nics())) == (4000, 2)
    with pytest.raises(KeyError), lab.transaction():
        assert k.VSDVS_SetMTU(SWITCH, 5000) == k.ZEL_OK
        lab.pull("vmnic1")
        raise KeyError
    assert (mtu(), len(lab.nics())) == (4000, 2)


def test_transactions_do_not_nest() -> None:
    with lab.transaction():
        assert status_of(lab.transaction().__enter__) == k.ZEL_INVALID_TXN
        assert k.VSDVS_SetMTU(SWITCH, 4000) == k.ZEL_OK
    assert mtu() == 4000


def test_a_transaction_that_is_forgotten_is_given_up() -> None:
    abandoned = lab.transaction()
    abandoned.__enter__()
    assert k.VSDVS_SetMTU(SWITCH, 4000) == k.ZEL_OK
    del abandoned
    assert mtu() == 1500
    with lab.transaction():
        assert k.VSDVS_SetMTU(SWITCH, 4000) == k.ZEL_OK
    assert mtu() == 4000


def test_a_transaction_that_has_not_begun_ends_nobody_elses() -> None:
    with lab.transaction():
        assert k.VSDVS_SetMTU(SWITCH, 4000) == k.ZEL_OK
        with pytest.raises(ValueError, match=r"^the transaction has not begun$"):
            lab.transaction().__exit__(None, None, None)
        assert k.VSDVS_SetMTU(SWITCH, 5000) == k.ZEL_OK
    assert mtu() == 5000


def test_a_new_host_is_empty_or_the_sample() -> None:
    lab.reset()
    assert k.VSZEL_GetVSInfo(SWITCH, k.new_VSInfo()) == k.ZEL_NOT_FOUND
    assert (lab.nics(), lab.clock.now_ns()) == ([], 0)
    lab.reset(sample=True)
    assert [nic.name for nic in lab.nics()] == [f"vmnic{i}" for i in range(6)]
    assert k.VSDVS_SetMTU("dvs-prod", 1500) == k.ZEL_OK


def test_a_restart_keeps_what_is_saved_and_drops_what_traffic_made() -> None:
    assert k.VSDVS_SetMTU(SWITCH, 4000) == k.ZEL_OK
    assert k.VSDVS_SetPortVLANPolicy(SWITCH, "a", 7, 0, 0, 1, None, 0) == k.ZEL_OK  # for the runtime only
    lab.send(SWITCH, "b", lab.ethernet(BROADCAST, B))
    now = lab.clock.now_ns()
    lab.restart()
    assert (mtu(), lab.clock.now_ns()) == (4000, now)
    assert [client.name for client in lab.clients(SWITCH)] == ["vmnic0", "a.eth0", "b.eth0"]
    status, policy, _ = k.VSDVS_GetPortVLANPolicy(SWITCH, "a")
    assert (status, k.VSPortVlanPolicy_vlanID_get(policy)) == (k.ZEL_OK, 0)
    k.VSDVS_FreeMemory(policy)
    status, table = k.VSZEL_GetMACTable(SWITCH, k.VS_MAC_ADDR_TYPE_LEARNED)
    assert (status, k.VSMACTable_numEntries_get(table)) == (k.ZEL_OK, 0)
    k.VSZEL_FreeMemory(table)


# ---- Host files and other platforms ----

WITH_FILE = """
import _libkestrel as k
from libkestrel import lab
print(lab.host_path())
lab.reset()
lab.plug("vmnic0")
with lab.transaction():
    assert k.VSDVS_CreateVSwitch("s", "id", k.PS_CLASS_NAME, 0, 0, 16, 1500, k.DVS_VERSION_70) == k.ZEL_OK
lab.clock.advance(5)
"""
AGAIN = """
from libkestrel import errors, lab
print([nic.name for nic in lab.nics()], lab.clients("s"), lab.clock.now())
with lab.fault("VSDVS_SetMTU", disk_full=True):
    import _libkestrel as k
    print(errors.status_name(k.VSDVS_SetMTU("s", 9000)), k.VSDVS_SetMTU("s", 4000))
"""


def run(code: str, **environment: str) -> str:
    done = subprocess.run(
        [sys.executable, "-c", code], env=os.environ | environment, capture_output=True, text=True, check=False
    )
    assert done.returncode == 0, done.stderr
    return done.stdout


def test_what_is_done_to_a_host_file_is_there_for_the_next_process(tmp_path: Path) -> None:
    path = tmp_path / "host"
    assert run(WITH_FILE, KESTREL_HOST=str(path)) == f"{path}\n"
    assert run(AGAIN, KESTREL_HOST=str(path)) == "['vmnic0'] [] 5.0\nZEL_NO_SPACE 0\n"
    assert lab.host_path() is None


ELSEWHERE = """
from libkestrel import lab
try:
    lab.clock.now()
except lab.NotEmbeddedError as error:
    print(error)
"""


def test_on_another_platform_there_is_no_laboratory(tmp_path: Path) -> None:
    for name in ("kestrel", "praxa", "morrow"):
        source = "".join(f"void {f.name}(void) {{}}\n" for f in model.read().functions if f.library == name)
        command = [
            os.environ.get("CC", "cc"),
            "-shared",
            "-fPIC",
            "-w",
            "-o",
            str(tmp_path / f"lib{name}.so"),
            "-xc",
            "-",
        ]
        subprocess.run([*command, f"-Wl,-soname,lib{name}.so"], input=source, text=True, check=True)
    assert run(ELSEWHERE, LD_LIBRARY_PATH=str(tmp_path)) == (
        "the laboratory belongs to the embedded host, and this process runs on another platform: "
        f"{tmp_path}/libmorrow.so\n"
    )


@pytest.mark.parametrize("wrong", [None, 5, 2**64, ["a"], object()])
def test_what_is_no_text_is_no_name(wrong: Any) -> None:
    for call in (lab.pull, lab.clients, lambda name: lab.connect_nic(SWITCH, name, "vmnic0"), lab.nic):
        with pytest.raises((TypeError, lab.LabError)):
            call(wrong)
    with pytest.raises(TypeError):
        lab.disconnect(wrong, "a")


def test_numbers_and_durations_are_what_the_library_can_take() -> None:
    with pytest.raises(OverflowError):
        lab.set_client_node(SWITCH, "a", 2**32)
    for wrong in ("60", b"60", [60], None):
        with pytest.raises(TypeError):
            lab.clock.advance(wrong)  # type: ignore[arg-type]


def test_a_snapshot_is_kept_once() -> None:
    with pytest.raises(TypeError, match="cannot be copied"):
        copy.copy(lab.snapshot())


class Longer(bytes):
    """Says that it is longer than it is."""

    def __len__(self) -> int:
        return 1000


def test_frames_are_as_long_as_their_bytes(tmp_path: Any) -> None:
    frame = lab.ethernet("ff:ff:ff:ff:ff:ff", "02:00:00:00:00:01", payload=b"x" * 46)
    with lab.capture(SWITCH, "a", "in") as captured:
        lab.send(SWITCH, "a", Longer(frame))
    assert [each.data for each in captured] == [frame]
    lab.write_pcap(tmp_path / "one.pcap", [lab.Frame(Longer(frame))])
    assert (tmp_path / "one.pcap").stat().st_size == 24 + 16 + len(frame)


def test_arguments_of_a_wrong_kind_are_told_before_anything_is_called() -> None:
    with pytest.raises(TypeError, match="a text is wanted, not int"):
        lab.arm(5, status=1)  # type: ignore[arg-type]
    with pytest.raises(ValueError, match="a text with a zero character in it"):
        wiring.connect_nic(SWITCH, b"a\0b", "vmnic0")  # type: ignore[arg-type]
    with pytest.raises(TypeError, match="client at port a of dvs-bench: argument 3"):
        lab.set_client_node(SWITCH, "a", "one")  # type: ignore[arg-type]


def test_a_library_that_speaks_another_version_is_refused(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr("libkestrel.lab._declarations.VERSION", 99)
    with pytest.raises(lab.NotEmbeddedError, match="this package speaks 99"):
        _library._library.__wrapped__()


def test_the_clock_tells_its_time() -> None:
    lab.clock.advance(2)
    assert repr(lab.clock) == f"<Clock at {lab.clock.now()} s>"


def test_a_snapshot_that_was_never_taken_ends_in_silence() -> None:
    kind = type(lab.snapshot())
    kind.__new__(kind).__del__()
