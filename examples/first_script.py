"""The first script: list the host's switches, look into them, change a port's VLAN policy and see the change.

Runs on whatever platform the module finds; without a hypervisor host that is the embedded one.
"""

from __future__ import annotations

import ctypes
import struct
import sys

import _libkestrel as k
from rich.console import Console
from rich.table import Table

from libkestrel import platform_info

console = Console()

PORT = "10"
"""The distributed port whose VLAN policy the script changes."""


def check(status: int, what: str) -> None:
    """Ends the script with the status's own words if a call failed."""
    if status != k.ZEL_OK:
        sys.exit(f"{what}: {k.ZEL_ReturnStatusToString(status)} (0x{status:08x})")


def switch_names() -> list[str]:
    """The aliases of all switches."""
    switches = k.VSZEL_GetSwitchesPy(k.VS_LIST_DVS_ALIAS)
    if switches is None:
        sys.exit("the list of switches could not be read")
    names = [str(k.VSList___getitem__(switches, i)) for i in range(k.VSList_count_get(switches))]
    k.delete_VSList(switches)
    return names


def print_switches(names: list[str]) -> None:
    """A table of the switches, read through one record."""
    table = Table("Switch", "MTU", "VLANs", "Active ports", "Ports at most", title="Switches")
    info = k.alloc_vs_info()
    assert info is not None
    for name in names:
        check(k.VSZEL_GetVSInfo(name, info), f"switch {name}")
        vlans = f"{k.VSInfo_minValidVlan_get(info)} to {k.VSInfo_maxValidVlan_get(info)}"
        active, most = k.VSInfo_activePorts_get(info), k.VSInfo_maxPorts_get(info)
        table.add_row(name, str(k.VSInfo_mtu_get(info)), vlans, str(active), str(most))
    k.free_vs_info(info)
    console.print(table)


def print_uplinks(name: str) -> None:
    """The uplinks of a switch with their link state."""
    status, uplinks = k.VSZEL_GetUplinks(name)
    check(status, f"uplinks of {name}")
    table = Table("Uplink", "Link", title=f"Uplinks of {name}")
    for i in range(k.VSUplinks___len__(uplinks)):
        nic = k.VSUplinks___getitem__(uplinks, i)
        status, state = k.VSZEL_GetUplinkLinkState(name, nic)
        check(status, f"uplink {nic}")
        table.add_row(nic, "up" if state == k.ZEL_LINK_STATE_UP else "down")
    check(k.VSZEL_FreeMemory(uplinks), "release of the uplinks")
    console.print(table)


def print_lags(name: str) -> None:
    """The link aggregation groups of a switch, walked entry by entry through their packed table."""
    status, lags = k.VSZEL_GetLAGTable(name)
    check(status, f"LAGs of {name}")
    table = Table("LAG", "State", "Uplinks (up in bold)", title=f"Link aggregation of {name}")
    lag = k.VSLAGTable_vs_lag_table_first_lag(lags)
    for _ in range(k.VSLAGTable_numLAGs_get(lags)):
        assert lag is not None
        up = k.VSLAGStatus_uplinkLinkupBitmap_get(lag)
        members = [str(k.VSLAGStatus_get_uplink_name(lag, i)) for i in range(k.VSLAGStatus_numUplinks_get(lag))]
        shown = ", ".join(f"[bold]{m}[/]" if up >> i & 1 else m for i, m in enumerate(members))
        state = "up" if k.VSLAGStatus_state_get(lag) == k.ZEL_LINK_STATE_UP else "down"
        table.add_row(k.VSLAGStatus_get_name(lag), state, shown)
        lag = k.VSLAGStatus_vs_lag_table_next_lag(lag)
    check(k.VSZEL_FreeMemory(lags), "release of the LAG table")
    console.print(table)


def print_macs(name: str) -> None:
    """Where the switch has seen which address."""
    status, macs = k.VSZEL_GetMACTable(name, k.VS_MAC_ADDR_TYPE_ALL)
    check(status, f"MAC table of {name}")
    kinds = {
        k.VS_MAC_ADDR_TYPE_STATIC: "static",
        k.VS_MAC_ADDR_TYPE_USER: "user",
        k.VS_MAC_ADDR_TYPE_LEARNED: "learned",
    }
    table = Table("VLAN", "Address", "Port", "Kind", "Age (s)", title=f"MAC table of {name}")
    first = k.VSMACTable_macEntries_get(macs)
    for i in range(k.VSMACTable_numEntries_get(macs)):
        entry = k.VSMACEntry___getitem__(first, i)
        assert entry is not None
        address = ctypes.string_at(int(k.VSMACEntry_macAddress_get(entry)), k.ZEL_ETH_ADDR_LENGTH).hex(":")
        kind, age = kinds[k.VSMACEntry_macAddrType_get(entry)], k.VSMACEntry_elapsed_get(entry)
        port, vlan = k.VSMACEntry_portID_get(entry), k.VSMACEntry_vid_get(entry)
        table.add_row(str(vlan), address, f"0x{port:08x}", kind, str(age))
        k.delete_VSMACEntry(entry)
    check(k.VSZEL_FreeMemory(macs), "release of the MAC table")
    console.print(table)


def vlan_ranges(first: object, count: int) -> list[str]:
    """The VLAN ranges of a policy; each is two 16-bit words in memory."""
    width = 4
    raw = ctypes.string_at(int(first), width * count)  # type: ignore[call-overload]
    return ["{}-{}".format(*struct.unpack_from("<HH", raw, width * i)) for i in range(count)]


def vlan_policy(switch: str, port: str) -> str:
    """A port's VLAN policy in words."""
    status, policy, _ = k.VSDVS_GetPortVLANPolicy(switch, port)
    check(status, f"VLAN policy of {port}")
    flags, vlan = k.VSPortVlanPolicy_flags_get(policy), k.VSPortVlanPolicy_vlanID_get(policy)
    ranges = k.VSPortVlanPolicy_vidRanges_get(policy)
    shown = ", ".join(vlan_ranges(ranges, k.VSPortVlanPolicy_numRanges_get(policy)))
    check(k.VSDVS_FreeMemory(policy), "release of the policy")
    if flags & k.VSPORT_VLAN_GUEST_TAGGING:
        return f"trunk of {shown}"
    if flags & k.VSPORT_VLAN_PVLAN_ENABLED:
        return f"private VLAN {vlan}"
    return f"access, VLAN {vlan}"


def change_vlan(switch: str, port: str) -> None:
    """Moves a port to VLAN 200, then makes it a trunk of two ranges."""
    table = Table("Step", "Policy", title=f"VLAN policy of port {port} on {switch}")
    table.add_row("before", vlan_policy(switch, port))

    check(k.VSDVS_SetPortVLANPolicy(switch, port, 200, 0, 0, 0, None, 0), "access VLAN 200")
    table.add_row("access VLAN 200", vlan_policy(switch, port))

    wanted = [(100, 199), (300, 399)]
    ranges, entry = k.new_vidrangeArray(len(wanted)), k.new_zel_VDSPortVIDRange()
    for i, (low, high) in enumerate(wanted):
        k.zel_VDSPortVIDRange_minVID_set(entry, low)
        k.zel_VDSPortVIDRange_maxVID_set(entry, high)
        k.vidrangeArray_setitem(ranges, i, entry)
    trunk = k.VSPORT_VLAN_GUEST_TAGGING
    check(k.VSDVS_SetPortVLANPolicy(switch, port, 0, trunk, 0, 0, ranges, len(wanted)), "trunk")
    table.add_row("trunk of two ranges", vlan_policy(switch, port))
    k.delete_zel_VDSPortVIDRange(entry)
    k.delete_vidrangeArray(ranges)

    refused = k.VSDVS_SetPortVLANPolicy(switch, port, 5000, 0, 0, 0, None, 0)
    table.add_row("access VLAN 5000", f"refused: {k.ZEL_ReturnStatusToString(refused)}")
    table.add_row("after", vlan_policy(switch, port))
    console.print(table)


def main() -> None:
    """Runs the script."""
    names = switch_names()
    print_switches(names)
    for name in names:
        print_uplinks(name)
        print_lags(name)
        print_macs(name)
    change_vlan(names[0], PORT)

    info = platform_info()
    kind = "the embedded host" if info.embedded else "this host's own libraries"
    console.print(f"Ran on {kind}, libkestrel {info.version}, {info.interpreter} on {info.machine}:")
    for library in info.libraries:
        console.print(f"  {library.soname}  {library.path}", soft_wrap=True)


if __name__ == "__main__":
    main()
