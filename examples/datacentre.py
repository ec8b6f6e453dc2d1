"""A host of a data centre: built from a scenario in a host file, put to work, killed, and found again as it was.

The script keeps the host in a file that it makes for itself. It shows MAC tables, link aggregation, counters and what a
mirror sent to a collector; then a second process changes the configuration and kills itself in the midst of it.
"""

from __future__ import annotations

import contextlib
import ctypes
import os
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
from pathlib import Path

import _libkestrel as k
from rich.console import Console
from rich.table import Table

from libkestrel import lab
from libkestrel.lab.scenario import load_scenario

console = Console()

SCENARIO = Path(__file__).resolve().parent / "scenarios" / "datacentre.toml"
MACHINES, STORAGE = "dvs-machines", "dvs-storage"

CHANGE = """
import os, signal
import _libkestrel as k
assert k.VSDVS_SetMTU("dvs-machines", 9000) == k.ZEL_OK
assert k.VSDVS_SetPortVLANPolicy("dvs-machines", "1001", 150, 0, 0, 0, None, 0) == k.ZEL_OK
os.kill(os.getpid(), signal.SIGKILL)
"""
"""What the second process does: two changes, and not another breath."""


def check(status: int, what: str) -> None:
    """Ends the script with the status's own words if a call failed."""
    if status != k.ZEL_OK:
        sys.exit(f"{what}: {k.ZEL_ReturnStatusToString(status)} (0x{status:08x})")


def build() -> None:
    """Makes the host what the scenario says."""
    loaded = load_scenario(SCENARIO)
    ports = sum(port.count for switch in loaded.switch for port in switch.port)
    names = " and ".join(switch.name for switch in loaded.switch)
    console.print(f"[bold]{loaded.name}[/]: {names}, {len(loaded.nic)} NICs, {ports} ports, in {lab.host_path()}\n")


def client_mac(port: str) -> str:
    """The address of the client of a port of the machines' switch."""
    return lab.client_at(MACHINES, port).mac


def exchange() -> None:
    """Lets machines, the router and the world outside speak with one another."""
    router, outside = client_mac("router"), "02:99:00:00:00:01"
    for port, vlan in (("1000", 100), ("1001", 100), ("1002", 100), ("2000", 200), ("2001", 200), ("3000", 300)):
        mac = client_mac(port)
        lab.send(MACHINES, port, lab.ethernet("ff:ff:ff:ff:ff:ff", mac, payload=b"who is there"))
        lab.send(MACHINES, "router", lab.ethernet(mac, router, payload=b"I am", vlan=vlan))
        lab.send(MACHINES, port, lab.ethernet(router, mac, payload=b"good to know"))
        lab.clock.advance(0.25)
    lab.send(MACHINES, "0", lab.ethernet("ff:ff:ff:ff:ff:ff", outside, payload=b"hello inside", vlan=100))
    lab.send(MACHINES, "1000", lab.ethernet(outside, client_mac("1000"), payload=b"hello outside"))
    lab.clock.advance(5)


def mac_rows(switch: str) -> list[tuple[int, str, str, int]]:
    """VLAN, address, port and age of the learned entries of a switch's MAC table."""
    status, table = k.VSZEL_GetMACTable(switch, k.VS_MAC_ADDR_TYPE_LEARNED)
    check(status, f"MAC table of {switch}")
    names = {client.port_id: client.name for client in lab.clients(switch)}
    first = k.VSMACTable_macEntries_get(table)
    rows = []
    for i in range(k.VSMACTable_numEntries_get(table)):
        entry = k.VSMACEntry___getitem__(first, i)
        assert entry is not None
        address = ctypes.string_at(int(k.VSMACEntry_macAddress_get(entry)), k.ZEL_ETH_ADDR_LENGTH).hex(":")
        port, age = k.VSMACEntry_portID_get(entry), k.VSMACEntry_elapsed_get(entry)
        rows.append((k.VSMACEntry_vid_get(entry), address, names.get(port, f"0x{port:08x}"), age))
        k.delete_VSMACEntry(entry)
    check(k.VSZEL_FreeMemory(table), "release of the MAC table")
    return rows


def print_macs() -> None:
    """The MAC table of the machines' switch."""
    table = Table("VLAN", "Address", "Behind", "Age (s)", title=f"Addresses that {MACHINES} has learned")
    for row in mac_rows(MACHINES):
        table.add_row(*(str(cell) for cell in row))
    console.print(table)


def print_lags() -> None:
    """The link aggregation group, whole and with a cable pulled."""
    table = Table("Moment", "LAG", "State", "In service", "Out of service", title=f"Link aggregation of {MACHINES}")

    def rows(moment: str) -> None:
        status, lags = k.VSZEL_GetLAGTable(MACHINES)
        check(status, "LAG table")
        lag = k.VSLAGTable_vs_lag_table_first_lag(lags)
        for _ in range(k.VSLAGTable_numLAGs_get(lags)):
            assert lag is not None
            up = k.VSLAGStatus_uplinkLinkupBitmap_get(lag)
            members = [str(k.VSLAGStatus_get_uplink_name(lag, i)) for i in range(k.VSLAGStatus_numUplinks_get(lag))]
            used, spare = ([m for i, m in enumerate(members) if (up >> i & 1) == is_used] for is_used in (1, 0))
            state = "up" if k.VSLAGStatus_state_get(lag) == k.ZEL_LINK_STATE_UP else "down"
            table.add_row(moment, k.VSLAGStatus_get_name(lag), state, ", ".join(used), ", ".join(spare) or "none")
            lag = k.VSLAGStatus_vs_lag_table_next_lag(lag)
        check(k.VSZEL_FreeMemory(lags), "release of the LAG table")

    rows("at first")
    lab.change_nic("vmnic1", up=False)
    lab.clock.advance(1)
    rows("the cable of vmnic1 is pulled")
    lab.change_nic("vmnic1", up=True)
    lab.clock.advance(100)
    rows("and back")
    console.print(table)


def print_uplinks_in_use() -> None:
    """Which NIC carries the frames of some ports."""
    table = Table("Port", "Carried by", title=f"Teaming of {MACHINES}")
    name = k.new_zel_Name()
    for port in ("1000", "2000", "3000"):
        client = lab.client_at(MACHINES, port)
        check(k.VSZEL_PortGetTeamUplinkHint(client.port_id, name), f"uplink of {port}")
        table.add_row(f"{port} ({client.name})", k.zel_Name___repr__(name))
    k.delete_zel_Name(name)
    console.print(table)


def print_mirror() -> None:
    """What the analyser sees, and what goes to the collector outside, as an independent program decodes it."""
    with contextlib.ExitStack() as stack:
        analyser = stack.enter_context(lab.capture(MACHINES, "analyser"))
        outside = [stack.enter_context(lab.capture(MACHINES, port)) for port in ("0", "1", "2", "3")]
        exchange()
    tunnelled = [frame for each in outside for frame in each if frame.kind == 0x0800]
    with tempfile.TemporaryDirectory() as folder:
        for title, frames in (("Seen by the analyser's mirror", analyser.frames), ("Sent to the collector", tunnelled)):
            path = Path(folder) / "mirror.pcap"
            lab.write_pcap(path, frames[:6])
            console.print(f"\n[bold]{title}[/]: {len(frames)} frames; the first as {decoder()} has them")
            for line in decode(path):
                console.print("  " + line, highlight=False, soft_wrap=True)


def decoder() -> str:
    """Who decodes."""
    return "tshark" if shutil.which("tshark") else "the laboratory"


def decode(path: Path) -> list[str]:
    """A line for each frame of a pcap file."""
    if shutil.which("tshark"):
        command = ["tshark", "-r", str(path), "-t", "r"]
        done = subprocess.run(command, capture_output=True, text=True, check=True)
        return [line.strip() for line in done.stdout.splitlines()]
    data, place, lines = path.read_bytes(), 24, []
    while place < len(data):
        seconds, nanoseconds, size = struct.unpack_from("<III", data, place)
        frame = lab.Frame(data[place + 16 : place + 16 + size])
        lines.append(f"{seconds}.{nanoseconds:09} {frame}")
        place += 16 + size
    return lines


def state() -> dict[str, str]:
    """What is compared before and after the crash."""
    info = k.alloc_vs_info()
    assert info is not None
    check(k.VSZEL_GetVSInfo(MACHINES, info), MACHINES)
    mtu = k.VSInfo_mtu_get(info)
    k.free_vs_info(info)
    status, policy, _ = k.VSDVS_GetPortVLANPolicy(MACHINES, "1001")
    check(status, "VLAN policy")
    vlan = k.VSPortVlanPolicy_vlanID_get(policy)
    check(k.VSDVS_FreeMemory(policy), "release of the policy")
    return {
        "MTU": str(mtu),
        "VLAN of port 1001": str(vlan),
        "Addresses learned": str(len(mac_rows(MACHINES))),
        "Clients": str(len(lab.clients(MACHINES))),
        "Time": f"{lab.clock.now():.3f} s",
    }


def crash_and_come_back() -> None:
    """Lets another process change the host and die of it, and looks at what is left."""
    before = state()
    done = subprocess.run([sys.executable, "-c", CHANGE], check=False)
    assert done.returncode == -signal.SIGKILL, done.returncode
    after = state()
    lab.restart()
    restarted = state()
    table = Table("", "before", "after the other process was killed", "after a restart of the host", title="State")
    for key in before:
        table.add_row(key, before[key], after[key], restarted[key])
    console.print()
    console.print(table)


def main() -> None:
    """Runs the script."""
    with tempfile.TemporaryDirectory() as home:
        # The module looks for this with the first call that is made.
        os.environ.setdefault("KESTREL_HOST", str(Path(home) / "datacentre.host"))
        build()
        exchange()
        print_macs()
        print_lags()
        print_uplinks_in_use()
        print_mirror()
        crash_and_come_back()


if __name__ == "__main__":
    main()
