"""Random commands on switches, ports, uplinks, VLANs, properties and addresses, by two interpreters that share a host
file and are begun anew in between, against a plain model of what the host is to be.
"""

from __future__ import annotations

from collections.abc import Iterator
from dataclasses import dataclass, field
from typing import Any

import _libkestrel as k
import pytest
from hypothesis import HealthCheck, settings
from hypothesis import strategies as st
from hypothesis.stateful import (
    RuleBasedStateMachine,
    initialize,
    invariant,
    precondition,
    rule,
    run_state_machine_as_test,
)

from support.interpreters import Interpreter, folder_in_memory

# What the interpreters are asked for; the last one tells all that the model knows of.
PROLOGUE = """
import ctypes
import struct
import _libkestrel as k
from libkestrel import lab

def value(getter, *arguments):
    query = k.alloc_vds_query(256)
    status = getter(*arguments, query, None, 0)
    found = k.VDSQuery_get_val_in_bytes(query) if status == k.ZEL_OK else None
    k.free_vds_query(query)
    return found

def address(function, switch, port, vlan, number):
    entry = k.new_VSMACEntry()
    k.VSMACEntry_set_mac_address(entry, bytes([2, 0, 0, 0, 0, number]))
    k.VSMACEntry_vid_set(entry, vlan)
    k.VSMACEntry_macAddrType_set(entry, k.VS_MAC_ADDR_TYPE_USER)
    status = function(switch, port, entry)
    k.delete_VSMACEntry(entry)
    return status

def addresses(switch):
    status, table = k.VSZEL_GetMACTable(switch, k.VS_MAC_ADDR_TYPE_USER)
    first, found = k.VSMACTable_macEntries_get(table), []
    for i in range(k.VSMACTable_numEntries_get(table)):
        entry = k.VSMACEntry___getitem__(first, i)
        number = ctypes.string_at(int(k.VSMACEntry_macAddress_get(entry)), 6).hex(':')
        found.append((k.VSMACEntry_vid_get(entry), number, k.VSMACEntry_portID_get(entry)))
        k.delete_VSMACEntry(entry)
    k.VSZEL_FreeMemory(table)
    return found

def uplinks(switch):
    status, names, ids = k.VSDVS_GetSwitchUplinkPorts(switch)
    count = k.VSUplinkPorts___len__(names)
    found = [(k.VSUplinkPorts___getitem__(names, i), k.VSUplinkPortIds___getitem__(ids, i)) for i in range(count)]
    k.VSDVS_FreeMemory(names), k.VSDVS_FreeMemory(ids)
    return found

def vlan(switch, port):
    status, policy, _ = k.VSDVS_GetPortVLANPolicy(switch, port)
    found = k.VSPortVlanPolicy_vlanID_get(policy)
    k.VSDVS_FreeMemory(policy)
    return found

def look(switches, ports, keys):
    found = {}
    for switch in switches:
        if k.DVSState_SwitchFindByAlias(switch) is None:
            continue
        (mtu,) = struct.unpack('<I', value(k.VSDVS_GetGlobProp, switch, k.VSPROP_MTU))
        there = {each: k.VSDVS_DvPortIDToPortID(switch, each)[1]
                 for each in ports if k.DVPortExist(switch + '-id', each) == chr(1)}
        names = {number: each for each, number in there.items()}
        found[switch] = {
            'mtu': mtu,
            'ports': {each: vlan(switch, each) for each in there},
            'uplinks': uplinks(switch),
            'addresses': sorted((vid, mac, names[number]) for vid, mac, number in addresses(switch)),
            'properties': {(port, key): each for port in (None, *there) for key in keys
                           if (each := value(k.VSDVS_GetGlobProp, switch, key) if port is None
                               else value(k.VSDVS_GetPortProp, switch, port, key)) is not None},
            'numbers': there,
        }
    return found
"""

SWITCHES, PORTS, UPLINKS = ("s0", "s1"), ("p0", "p1", "p2"), ("u0", "u1")
KEYS = ("com.example.one", "com.example.two")
LIMIT = 4
MOST_BEGINNINGS = 3
"""Interpreters take their time to begin."""
PLACES = st.sampled_from((None, *PORTS))
RUNTIME = st.sampled_from((0, 1))

OK: int = k.ZEL_OK
NOT_FOUND: int = k.ZEL_NOT_FOUND

Place = str | None
"""A port, or none for the switch."""


@dataclass
class Settings:
    """What is set at a switch or a port: VLANs under their own key."""

    in_use: dict[tuple[Place, str], bytes | int] = field(default_factory=dict)
    saved: dict[tuple[Place, str], bytes | int] = field(default_factory=dict)

    def put(self, place: Place, key: str, value: bytes | int, runtime_only: int) -> None:
        self.in_use[place, key] = value
        if not runtime_only:
            self.saved[place, key] = value

    def clear(self, place: Place, key: str, runtime_only: int) -> int:
        found = (place, key) in self.in_use or (not runtime_only and (place, key) in self.saved)
        self.in_use.pop((place, key), None)
        if not runtime_only:
            self.saved.pop((place, key), None)
        return OK if found else NOT_FOUND

    def forget(self, place: Place) -> None:
        for values in (self.in_use, self.saved):
            for each in [each for each in values if each[0] == place]:
                del values[each]


@dataclass
class Switch:
    """A switch as it is to be."""

    settings: Settings = field(default_factory=Settings)
    ports: list[str] = field(default_factory=list)
    uplinks: list[tuple[str, str]] = field(default_factory=list)
    addresses: dict[tuple[int, int], str] = field(default_factory=dict)

    def is_full(self) -> bool:
        return len(self.ports) + len(self.uplinks) >= LIMIT

    def shown(self) -> dict[str, Any]:
        values = self.settings.in_use
        return {
            "mtu": values.get((None, "mtu"), 1500),
            "ports": {port: values.get((port, "vlan"), 0) for port in PORTS if port in self.ports},
            "uplinks": self.uplinks,
            "addresses": sorted(
                (vlan, f"02:00:00:00:00:{number:02x}", port) for (vlan, number), port in self.addresses.items()
            ),
            "properties": {place: value for place, value in values.items() if place[1] in KEYS},
        }


class HostFiles(RuleBasedStateMachine):
    """Two interpreters and the model."""

    interpreters: list[Interpreter]

    @initialize()
    def begin(self) -> None:
        self.switches: dict[str, Switch] = {}
        self.turn = 0
        self.beginnings = 0
        self.numbers: dict[tuple[str, str], int] = {}
        self.used: set[int] = set()
        assert self.interpreters[0].ask("lab.reset()") is None
        # Something to work on, so that most commands find what they are about.
        for switch in SWITCHES:
            self.create(switch)
            for port in PORTS[:2]:
                self.add_port(switch, port)
        self.add_uplink(SWITCHES[0], UPLINKS[0])

    def call(self, function: str, *arguments: object) -> int:
        """Lets the interpreters take turns."""
        self.turn = 1 - self.turn
        status = self.interpreters[self.turn].ask(f"{function}({', '.join(map(repr, arguments))})")
        assert isinstance(status, int)
        return status

    def expect(self, expected: int, function: str, *arguments: object) -> bool:
        status = self.call(function, *arguments)
        assert status == expected, f"{function}{arguments}: 0x{status:08x}, not 0x{expected:08x}"
        return expected == OK

    def missing(self, switch: str, port: str | None = None) -> bool:
        return switch not in self.switches or (port is not None and port not in self.switches[switch].ports)

    @precondition(lambda self: len(self.switches) < len(SWITCHES))
    @rule(switch=st.sampled_from(SWITCHES))
    def create(self, switch: str) -> None:
        expected = k.ZEL_EXISTS if switch in self.switches else OK
        arguments = (switch, f"{switch}-id", k.PS_CLASS_NAME, 0, 0, LIMIT, 1500, k.DVS_VERSION_70)
        if self.expect(expected, "k.VSDVS_CreateVSwitch", *arguments):
            self.switches[switch] = Switch()
            self.switches[switch].settings.put(None, "mtu", 1500, 0)

    @precondition(lambda self: len(self.switches) == len(SWITCHES))
    @rule(switch=st.sampled_from(SWITCHES))
    def destroy(self, switch: str) -> None:
        if self.expect(NOT_FOUND if self.missing(switch) else OK, "k.VSDVS_DestroyVSwitch", switch):
            del self.switches[switch]

    @rule(switch=st.sampled_from(SWITCHES), port=st.sampled_from(PORTS))
    def add_port(self, switch: str, port: str) -> None:
        expected = OK
        if self.missing(switch):
            expected = NOT_FOUND
        elif port in self.switches[switch].ports:
            expected = k.ZEL_EXISTS
        elif self.switches[switch].is_full():
            expected = k.ZEL_LIMIT_EXCEEDED
        if self.expect(expected, "k.VSDVS_AddDVPort", switch, port, 7):
            self.switches[switch].ports.append(port)

    @rule(switch=st.sampled_from(SWITCHES), port=st.sampled_from(PORTS))
    def remove_port(self, switch: str, port: str) -> None:
        expected = NOT_FOUND if self.missing(switch, port) else OK
        if self.expect(expected, "k.VSDVS_RemoveDVPort", switch, port):
            owner = self.switches[switch]
            owner.ports.remove(port)
            owner.settings.forget(port)
            owner.addresses = {key: behind for key, behind in owner.addresses.items() if behind != port}

    @rule(switch=st.sampled_from(SWITCHES), uplink=st.sampled_from(UPLINKS))
    def add_uplink(self, switch: str, uplink: str) -> None:
        expected = OK
        if self.missing(switch):
            expected = NOT_FOUND
        elif uplink in dict(self.switches[switch].uplinks):
            expected = k.ZEL_EXISTS
        elif self.switches[switch].is_full():
            expected = k.ZEL_LIMIT_EXCEEDED
        if self.expect(expected, "k.VSDVS_AddSwitchUplinkPort", switch, uplink):
            taken = {port for _, port in self.switches[switch].uplinks}
            free = next(str(number) for number in range(LIMIT) if str(number) not in taken)
            self.switches[switch].uplinks.append((uplink, free))

    @rule(switch=st.sampled_from(SWITCHES), uplink=st.sampled_from(UPLINKS))
    def remove_uplink(self, switch: str, uplink: str) -> None:
        is_there = not self.missing(switch) and uplink in dict(self.switches[switch].uplinks)
        expected = OK if is_there else NOT_FOUND
        if self.expect(expected, "k.VSDVS_RemoveSwitchUplinkPort", switch, uplink):
            owner = self.switches[switch]
            owner.uplinks = [each for each in owner.uplinks if each[0] != uplink]

    @rule(switch=st.sampled_from(SWITCHES), mtu=st.sampled_from((1279, 1280, 4000, 9000, 9001)))
    def set_mtu(self, switch: str, mtu: int) -> None:
        expected = NOT_FOUND if self.missing(switch) else OK if 1280 <= mtu <= 9000 else k.ZEL_BAD_PARAM
        if self.expect(expected, "k.VSDVS_SetMTU", switch, mtu):
            self.switches[switch].settings.put(None, "mtu", mtu, 0)

    @rule(
        switch=st.sampled_from(SWITCHES),
        port=st.sampled_from(PORTS),
        vlan=st.sampled_from((0, 7, 4094, 4095)),
        runtime_only=RUNTIME,
    )
    def set_vlan(self, switch: str, port: str, vlan: int, runtime_only: int) -> None:
        expected = NOT_FOUND if self.missing(switch, port) else OK
        if vlan > 4094:
            # What cannot be a policy at all is refused before anybody looks for the port.
            status = self.call("k.VSDVS_SetPortVLANPolicy", switch, port, vlan, 0, 0, runtime_only, None, 0)
            assert status in (k.ZEL_BAD_VLANID, expected)
            assert status != OK
        elif self.expect(expected, "k.VSDVS_SetPortVLANPolicy", switch, port, vlan, 0, 0, runtime_only, None, 0):
            self.switches[switch].settings.put(port, "vlan", vlan, runtime_only)

    @rule(switch=st.sampled_from(SWITCHES), port=st.sampled_from(PORTS))
    def clear_vlan(self, switch: str, port: str) -> None:
        expected = NOT_FOUND if self.missing(switch, port) else self.switches[switch].settings.clear(port, "vlan", 0)
        self.expect(expected, "k.VSDVS_ClearPortVLANPolicy", switch, port)

    @rule(
        switch=st.sampled_from(SWITCHES),
        place=PLACES,
        key=st.sampled_from(KEYS),
        value=st.binary(min_size=1, max_size=40),
        runtime_only=RUNTIME,
    )
    def set_property(self, switch: str, place: Place, key: str, value: bytes, runtime_only: int) -> None:
        expected = NOT_FOUND if self.missing(switch, place) else OK
        function, owner = (
            ("k.VSDVS_SetGlobProp", [switch]) if place is None else ("k.VSDVS_SetPortProp", [switch, place])
        )
        if self.expect(expected, function, *owner, key, value, len(value), None, runtime_only):
            self.switches[switch].settings.put(place, key, value, runtime_only)

    @rule(switch=st.sampled_from(SWITCHES), place=PLACES, key=st.sampled_from(KEYS), runtime_only=RUNTIME)
    def clear_property(self, switch: str, place: Place, key: str, runtime_only: int) -> None:
        if self.missing(switch, place):
            expected = NOT_FOUND
        else:
            expected = self.switches[switch].settings.clear(place, key, runtime_only)
        if place is None:
            self.expect(expected, "k.VSDVS_ClearGlobProp", switch, key, None, runtime_only)
        else:
            self.expect(expected, "k.VSDVS_ClearPortProp", switch, place, key, None, runtime_only)

    @rule(
        switch=st.sampled_from(SWITCHES),
        port=st.sampled_from(PORTS),
        vlan=st.sampled_from((0, 7)),
        number=st.integers(1, 3),
    )
    def enter_address(self, switch: str, port: str, vlan: int, number: int) -> None:
        expected = OK
        if self.missing(switch, port):
            expected = NOT_FOUND
        elif (vlan, number) in self.switches[switch].addresses:
            expected = k.ZEL_EXISTS
        if self.expect(expected, "address", _Bare("k.VSZEL_SetPortMACTable"), switch, port, vlan, number):
            self.switches[switch].addresses[vlan, number] = port

    @rule(
        switch=st.sampled_from(SWITCHES),
        port=st.sampled_from(PORTS),
        vlan=st.sampled_from((0, 7)),
        number=st.integers(1, 3),
    )
    def remove_address(self, switch: str, port: str, vlan: int, number: int) -> None:
        is_there = not self.missing(switch, port) and self.switches[switch].addresses.get((vlan, number)) == port
        expected = OK if is_there else NOT_FOUND
        if self.expect(expected, "address", _Bare("k.VSZEL_ClearPortMACTable"), switch, port, vlan, number):
            del self.switches[switch].addresses[vlan, number]

    @precondition(lambda self: any(each.settings.in_use != each.settings.saved for each in self.switches.values()))
    @rule()
    def load_the_saved_configuration(self) -> None:
        assert self.call("k.DVSLoadConfig") == OK
        for switch in self.switches.values():
            switch.settings.in_use = dict(switch.settings.saved)

    @precondition(lambda self: self.beginnings < MOST_BEGINNINGS)
    @rule(which=st.integers(0, 1), killed=st.booleans())
    def begin_anew(self, which: int, killed: bool) -> None:
        self.beginnings += 1
        self.interpreters[which].begin_anew(killed=killed)

    @precondition(lambda self: self.beginnings < MOST_BEGINNINGS)
    @rule(killed=st.booleans())
    def begin_both_anew(self, killed: bool) -> None:
        self.beginnings += 1
        for interpreter in self.interpreters:
            interpreter.end(killed=killed)
        for interpreter in self.interpreters:
            interpreter.begin()

    @invariant()
    def the_other_one_sees_what_the_model_has(self) -> None:
        expected = {name: switch.shown() for name, switch in self.switches.items()}
        # The one that did not give the last command; they take turns.
        seen = self.interpreters[1 - self.turn].ask(f"look({SWITCHES!r}, {PORTS!r}, {KEYS!r})")
        numbers = {(name, port): each for name in seen for port, each in seen[name].pop("numbers").items()}
        assert seen == expected
        self.keep_numbers(numbers)

    def keep_numbers(self, seen: dict[tuple[str, str], int]) -> None:
        """A port keeps its number, which nobody had before it."""
        for port, number in seen.items():
            if port not in self.numbers:
                assert number not in self.used
            assert self.numbers.get(port, number) == number
        self.numbers = seen
        self.used |= set(seen.values())


class _Bare(str):
    """A name in an expression."""

    def __repr__(self) -> str:
        return str(self)


@pytest.fixture
def _interpreters() -> Iterator[None]:
    with folder_in_memory() as folder:
        HostFiles.interpreters = [Interpreter(folder / "host", PROLOGUE) for _ in range(2)]
        yield
        for interpreter in HostFiles.interpreters:
            interpreter.end()


@pytest.mark.usefixtures("_interpreters")
def test_a_host_file_is_what_the_model_says() -> None:
    run_state_machine_as_test(
        HostFiles,
        settings=settings(
            max_examples=25, stateful_step_count=40, deadline=None, suppress_health_check=list(HealthCheck)
        ),
    )
