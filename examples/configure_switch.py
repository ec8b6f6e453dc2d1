"""Configures a switch from nothing: ports and uplinks, VLAN and teaming, a mirror session, options, properties.

Every value shown is read back from the platform. The switch is destroyed at the end, so that the script can run again.
"""

from __future__ import annotations

import ctypes
import struct
import sys

import _libkestrel as k
from rich.console import Console
from rich.table import Table

console = Console()

SWITCH, SWITCH_ID = "dvs-lab", "5e1f0c9a-7d24-4b83-a6f1-20c3b58d9e64"
WEB, ANALYSER = "web", "analyser"
UPLINKS = ["east", "west"]


def check(status: int, what: str) -> None:
    """Ends the script with the status's own words if a call failed."""
    if status != k.ZEL_OK:
        sys.exit(f"{what}: {k.ZEL_ReturnStatusToString(status)} (0x{status:08x})")


def create_switch() -> None:
    """A switch for up to 16 ports, with two of its own and two uplinks."""
    status = k.VSDVS_CreateVSwitch(SWITCH, SWITCH_ID, k.PS_CLASS_NAME, 8, 0, 16, 1500, k.DVS_VERSION_70)
    check(status, f"switch {SWITCH}")
    for number, port in enumerate((WEB, ANALYSER)):
        check(k.VSDVS_AddDVPort(SWITCH, port, number), f"port {port}")
    for uplink in UPLINKS:
        check(k.VSDVS_AddSwitchUplinkPort(SWITCH, uplink), f"uplink {uplink}")


def print_switch() -> None:
    """What the switch is, through its handle, and which uplink ports it has."""
    handle = k.DVSState_SwitchFindByAlias(SWITCH)
    table = Table("Switch", "Id", "Class", "Version", "Ports at most", title="The new switch")
    facts = (k.DVS_Version(handle), k.DVS_GetMaxPorts(handle))
    table.add_row(k.DVS_SwitchName(handle), k.DVS_SwitchId(handle), k.DVS_ClassName(handle), *map(str, facts))
    console.print(table)

    status, names, ids = k.VSDVS_GetSwitchUplinkPorts(SWITCH)
    check(status, "uplink ports")
    table = Table("Uplink", "Port", title="Uplink ports")
    for i in range(k.VSUplinkPorts___len__(names)):
        table.add_row(k.VSUplinkPorts___getitem__(names, i), k.VSUplinkPortIds___getitem__(ids, i))
    check(k.VSDVS_FreeMemory(names), "release of the names")
    check(k.VSDVS_FreeMemory(ids), "release of the port ids")
    console.print(table)


def vlan_of(port: str) -> str:
    """The VLAN policy of an access port in words."""
    status, policy, _ = k.VSDVS_GetPortVLANPolicy(SWITCH, port)
    check(status, f"VLAN policy of {port}")
    vlan = k.VSPortVlanPolicy_vlanID_get(policy)
    check(k.VSDVS_FreeMemory(policy), "release of the policy")
    return f"access, VLAN {vlan}"


def set_teaming() -> None:
    """Sends everything through "west" and keeps "east" for the day that it fails."""
    policy = k.new_VSTeamPolicy()
    k.VSTeamPolicy_loadBalance_set(policy, k.TEAM_FRP_TYPE_FO_EXPLICIT)
    k.VSTeamPolicy_linkCriteria_set(policy, k.TEAM_FRP_CRIT_LINK_STATE)
    k.VSTeamPolicy_numActive_set(policy, 1)
    k.VSTeamPolicy_numStandby_set(policy, 1)
    k.VSTeamPolicy___setitem__(policy, 0, "west")
    k.VSTeamPolicy___setitem__(policy, 1, "east")
    check(k.VSDVS_SetTeamingPolicy(SWITCH, policy), "teaming policy")
    k.delete_VSTeamPolicy(policy)


def teaming_of(port: str) -> str:
    """The teaming policy that holds for a port, in words."""
    policy = k.new_VSTeamPolicy()
    check(k.VSDVS_GetPortTeamingPolicy(SWITCH, port, policy), f"teaming policy of {port}")
    active, standby = k.VSTeamPolicy_numActive_get(policy), k.VSTeamPolicy_numStandby_get(policy)
    names = [str(k.VSTeamPolicy___getitem__(policy, i)) for i in range(active + standby)]
    k.delete_VSTeamPolicy(policy)
    return f"active {', '.join(names[:active])}, standby {', '.join(names[active:])}"


def print_policies() -> None:
    """Sets VLAN and teaming and shows, port by port, what holds now."""
    check(k.VSDVS_SetPortVLANPolicy(SWITCH, WEB, 120, 0, 0, 0, None, 0), "access VLAN 120")
    set_teaming()
    table = Table("Port", "VLAN", "Teaming", title="Policies of the ports")
    for port in (WEB, ANALYSER):
        table.add_row(port, vlan_of(port), teaming_of(port))
    console.print(table)


def set_mirror() -> None:
    """Copies what the web server sends and receives to the analyser."""
    table = k.alloc_dvmirror_session_table(1, 2)
    k.DVMirrorSessionTable_version_set(table, k.VS_DVMIRROR_VERSION_V4)
    k.DVMirrorSessionTable_numSessions_set(table, 1)
    k.DVMirrorSessionTable_numEntities_set(table, 2)
    session = k.DVMirrorSessionTable___getitem__(table, 0)
    k.DVMirrorSession_sid_set(session, "watch-web")
    k.DVMirrorSession_dname_set(session, "Traffic of the web server")
    k.DVMirrorSession_type_set(session, k.VS_DVMIRROR_SESSIONTYPE_DVPORT)
    k.DVMirrorSession_snapLen_set(session, 256)
    k.DVMirrorSession_samplingRate_set(session, 1)
    k.DVMirrorSession_numDstEntities_set(session, 1)
    k.DVMirrorSession_numSrcInEntities_set(session, 1)
    entity = k.DVMirrorSessionTable_get_first_session_entity(table, 0)
    for port in (ANALYSER, WEB):  # destinations stand before sources
        k.DVMirrorEntity_type_set(entity, k.MIRROR_ENTTYPE_DVPORT)
        k.DVMirrorEntity_set_entity(entity, port)
        entity = k.DVMirrorEntity___next__(entity)
    check(k.VSDVS_SetDVMirrorSessions(SWITCH, WEB, table), "mirror session")
    k.free_dvmirror_session_table(table)


def print_mirrors() -> None:
    """The mirror sessions of the web server's port."""
    status, sessions = k.VSDVS_GetDVMirrorSessions(SWITCH, WEB)
    check(status, "mirror sessions")
    table = Table("Session", "Name", "From", "To", "Bytes of a packet", title="Mirror sessions")
    for i in range(k.DVMirrorSessionTable_numSessions_get(sessions)):
        session = k.DVMirrorSessionTable___getitem__(sessions, i)
        assert session is not None
        counts = k.DVMirrorSession_numDstEntities_get(session), k.DVMirrorSession_numSrcInEntities_get(session)
        first = k.DVMirrorSession_startIdx_get(session)
        ports = [
            str(k.DVMirrorEntity_get_entity(k.DVMirrorSessionTable_get_first_session_entity(sessions, first + slot)))
            for slot in range(sum(counts))
        ]
        to, source = ", ".join(ports[: counts[0]]), ", ".join(ports[counts[0] :])
        name, kept = k.DVMirrorSession_dname_get(session), k.DVMirrorSession_snapLen_get(session)
        table.add_row(k.DVMirrorSession_sid_get(session), name, source, to, str(kept))
    check(k.VSDVS_FreeMemory(sessions), "release of the mirror sessions")
    console.print(table)


OPTIONS: dict[str, int | str] = {"IGMPQueryInterval": 60, "MLDRouterIP": "fe80::1"}
"""The runtime options that the script sets; they hold for the whole host."""


def read_options(names: list[str]) -> dict[str, int | bytes]:
    """The values of runtime options by name."""
    # An array of 16-bit numbers for the platform: the words of an IPv6 address make one of eight.
    words = k.new_zel_SocketIPv6AddressAddr___u6_addr()
    codes = k.zel_SocketIPv6AddressAddr___u6_addr___u6_addr16_get(words)
    cells = (ctypes.c_uint16 * 8).from_address(int(codes))
    for i, name in enumerate(names):
        cells[i] = k.get_runtime_option_type_from_name(name)
    status, options = k.VSZEL_GetRuntimeOptions(codes, len(names))
    k.delete_zel_SocketIPv6AddressAddr___u6_addr(words)
    check(status, "runtime options")
    values: dict[str, int | bytes] = {}
    entry = k.VSRuntimeOptions_get_first_option(options)
    while entry is not None and len(values) < len(names):
        values[str(k.VSRuntimeOptionHeader_get_option_name(entry))] = k.VSRuntimeOptionHeader_get_option_value(entry)
        entry = k.VSRuntimeOptions_get_next_option(options, entry)
    check(k.VSZEL_FreeMemory(options), "release of the options")
    return values


def write_options(values: dict[str, int | str]) -> None:
    """Applies runtime options by name, all of them or none."""
    options = k.new_VSRuntimeOptions(k.VS_CHARDEV_MAX_RUNTIME_OPTIONS_LENGTH)
    first = entry = k.VSRuntimeOptions_get_first_option(options)
    for name, value in values.items():
        code = k.get_runtime_option_type_from_name(name)
        if isinstance(value, str):
            entry = k.VSRuntimeOptions_add_str_option(options, entry, name, code, value)
        else:
            entry = k.VSRuntimeOptions_add_int_option(options, entry, name, code, value)
    assert first is not None
    assert entry is not None
    k.VSRuntimeOptions_set_options_length(options, int(entry) - int(first))
    status = k.VSZEL_SetRuntimeOptions(options)
    k.delete_VSRuntimeOptions(options)
    check(status, "runtime options")


def print_options() -> None:
    """Runtime options before and after."""
    before = read_options(list(OPTIONS))
    write_options(OPTIONS)
    after = read_options(list(OPTIONS))
    table = Table("Option", "Before", "After", title="Runtime options")
    for name in OPTIONS:
        table.add_row(name, *(str(v.decode() if isinstance(v, bytes) else v) for v in (before[name], after[name])))
    console.print(table)
    write_options({name: v.decode() if isinstance(v, bytes) else v for name, v in before.items()})


def property_of_switch(key: str) -> bytes:
    """The value of a property of the switch."""
    query = k.alloc_vds_query(4096)
    check(k.VSDVS_GetGlobProp(SWITCH, key, query, None, 0), key)
    value = k.VDSQuery_get_val_in_bytes(query)
    k.free_vds_query(query)
    assert isinstance(value, bytes)
    return value


def shown_mtu() -> int:
    """The MTU that the switch says it has."""
    info = k.alloc_vs_info()
    assert info is not None
    check(k.VSZEL_GetVSInfo(SWITCH, info), f"switch {SWITCH}")
    mtu = k.VSInfo_mtu_get(info)
    k.free_vs_info(info)
    return int(mtu)


def print_properties() -> None:
    """The MTU by both of its doors, a key of the script's own, and a refusal."""
    table = Table("Step", "MTU of the switch", "Property", title=f"The property {k.VSPROP_MTU}")

    def row(step: str) -> None:
        (stored,) = struct.unpack("<I", property_of_switch(k.VSPROP_MTU))
        table.add_row(step, str(shown_mtu()), str(stored))

    row("as created")
    jumbo = struct.pack("<I", 9000)
    check(k.VSDVS_SetGlobProp(SWITCH, k.VSPROP_MTU, jumbo, len(jumbo), None, 0), "MTU as a property")
    row("written as a property")
    check(k.VSDVS_SetMTU(SWITCH, 4000), "MTU")
    row("set by its function")
    refused = k.VSDVS_SetMTU(SWITCH, 100)
    row(f"set to 100: {k.ZEL_ReturnStatusToString(refused)}")
    console.print(table)

    note = b"Set up by the example script"
    check(k.VSDVS_SetGlobProp(SWITCH, "org.example.note", note, len(note), None, 0), "note")
    console.print(f"Note on {SWITCH}: {property_of_switch('org.example.note').decode()}")


def main() -> None:
    """Runs the script."""
    create_switch()
    try:
        print_switch()
        print_policies()
        set_mirror()
        print_mirrors()
        print_options()
        print_properties()
    finally:
        check(k.VSDVS_DestroyVSwitch(SWITCH), f"end of switch {SWITCH}")


if __name__ == "__main__":
    main()
