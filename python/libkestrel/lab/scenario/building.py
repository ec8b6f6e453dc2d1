"""Making a host what a scenario says."""

from __future__ import annotations

import os
import uuid
from collections.abc import Callable, Iterator
from contextlib import AbstractContextManager, contextmanager
from pathlib import Path
from typing import Any

import _libkestrel as k

from libkestrel.lab import equipment, frames, life, traffic, wiring
from libkestrel.lab.errors import LabError
from libkestrel.lab.scenario import policies
from libkestrel.lab.scenario.format import Client, Nic, Partner, Policies, Port, Scenario, Switch, Traffic
from libkestrel.lab.scenario.problems import Problem, ScenarioError
from libkestrel.lab.scenario.reading import parse_scenario, read_scenario
from libkestrel.lab.scenario.references import NUMBER, port_ids, uplink_ports
from libkestrel.lab.timekeeping import clock

_IDS = uuid.UUID("6f2b8a64-0d0b-5d8e-9a3c-3a1f0c5e7b21")
"""The name space of the ids that switches are given."""


def load_scenario(path: str | os.PathLike[str], *, transaction: AbstractContextManager[Any] | None = None) -> Scenario:
    """Makes the host of this process what a scenario's file says, and sends the scenario's traffic.

    Whatever the host was before is gone. ScenarioError tells what is wrong with the scenario, or what the host
    refused; the host is as it was then, to the last counter. A context manager as `transaction` is entered in place of
    `lab.transaction()`, and has to do the same.
    """
    scenario = read_scenario(path)
    _load(scenario, str(path), Path(path).parent, transaction)
    return scenario


def load_scenario_text(text: str, source: str = "scenario") -> Scenario:
    """The same for the text of a scenario, whose pcap files are found from the current folder."""
    scenario = parse_scenario(text, source)
    _load(scenario, source, Path())
    return scenario


class _RefusedError(Exception):
    """The host refused something."""

    def __init__(self, place: str, message: str) -> None:
        self.problem = Problem(place, message)
        super().__init__(place, message)


def _load(
    scenario: Scenario, source: str, folder: Path, transaction: AbstractContextManager[Any] | None = None
) -> None:
    try:
        with life.transaction() if transaction is None else transaction:
            life.reset()
            _build(scenario, folder)
    except _RefusedError as refused:
        raise ScenarioError(source, [refused.problem]) from refused


@contextmanager
def _at(place: str) -> Iterator[Callable[[int], None]]:
    """Tells where in the scenario a refusal comes from, of the laboratory or by a status that is handed in."""

    def check(status: int) -> None:
        if status != k.ZEL_OK:
            raise LabError("refused", status)

    try:
        yield check
    except LabError as error:
        detail = f" ({error.detail})" if error.detail else ""
        raise _RefusedError(place, f"the host refuses it: {error.text}{detail}") from error


def _build(scenario: Scenario, folder: Path) -> None:
    if scenario.options:
        with _at("options") as check:
            check(_set_options(scenario.options))
    if scenario.learning is not None:
        members = {"agingTime": scenario.learning.ageing, "macLimit": scenario.learning.limit}
        with _at("learning") as check, policies.record("VSMACLearningGlobalProps") as props:
            check(k.VSZEL_GetGlobalMACLearningProps(props))
            for name, value in members.items():
                getattr(k, f"VSMACLearningGlobalProps_{name}_set")(props, value)
            check(k.VSZEL_SetGlobalMACLearningProps(props))
    for index, nic in enumerate(scenario.nic):
        with _at(f"nic[{index}]"):
            _plug(nic)
    for index, switch in enumerate(scenario.switch):
        _build_switch(switch, f"switch[{index}]")
    for index, step in enumerate(scenario.traffic):
        with _at(f"traffic[{index}]"):
            _send(step, folder)


def _set_options(options: dict[str, int | str]) -> int:
    with policies.record("VSRuntimeOptions", k.VS_CHARDEV_MAX_RUNTIME_OPTIONS_LENGTH) as packed:
        entry = k.VSRuntimeOptions_get_first_option(packed)
        assert entry is not None
        # At once: where functions give records, one for a place that holds anything yet is gone with the next.
        start = int(entry)
        for name, value in options.items():
            code = k.get_runtime_option_type_from_name(name)
            if isinstance(value, str):
                entry = k.VSRuntimeOptions_add_str_option(packed, entry, name, code, value)
            else:
                entry = k.VSRuntimeOptions_add_int_option(packed, entry, name, code, value)
            assert entry is not None
        k.VSRuntimeOptions_set_options_length(packed, int(entry) - start)
        return int(k.VSZEL_SetRuntimeOptions(packed))


def _plug(nic: Nic) -> None:
    far = nic.lacp or Partner()
    partner = equipment.LacpPartner(
        mode=far.mode,
        system=frames.mac_text(far.system),
        system_priority=far.system_priority,
        key=far.group_key,
        collects=far.collects,
        distributes=far.distributes,
        short_timeout=far.short_timeout,
    )
    equipment.plug(
        nic.name,
        up=nic.link,
        speed=nic.speed,
        duplex=nic.duplex,
        mac=None if nic.mac is None else frames.mac_text(nic.mac),
        numa_node=nic.numa_node,
        driver=nic.driver,
        error_percent=nic.error_percent,
        blocked=nic.blocked,
        beacons=nic.beacons,
        partner=partner,
    )


def _build_switch(switch: Switch, place: str) -> None:
    name = switch.name
    with _at(place) as check:
        made = switch.id or str(uuid.uuid5(_IDS, name))
        check(k.VSDVS_CreateVSwitch(name, made, k.PS_CLASS_NAME, 0, 0, switch.max_ports, switch.mtu, switch.version))
    if switch.uplink:
        names = [uplink.name for uplink in switch.uplink]
        with _at(f"{place}.uplink") as check, policies.uplink_ports(names, uplink_ports(switch)) as (first, second):
            check(k.VSDVS_SetSwitchUplinkPorts(name, first, second))
    for index, uplink in enumerate(switch.uplink):
        if uplink.nic is not None:
            with _at(f"{place}.uplink[{index}].nic"):
                wiring.connect_nic(name, uplink.name, uplink.nic)
    for index, lag in enumerate(switch.lag):
        with _at(f"{place}.lag[{index}]"):
            wiring.add_lag(name, lag.name, lag.uplinks, number=index + 1 if lag.id is None else lag.id)
    _set_switch_policies(switch, place)
    groups = {group.name: group for group in switch.group}
    for index, port in enumerate(switch.port):
        _build_ports(name, port, groups.get(port.group or ""), f"{place}.port[{index}]")
    for index, mirror in enumerate(switch.mirror):
        with _at(f"{place}.mirror[{index}]") as check, policies.mirror_table(mirror) as table:
            check(k.VSDVS_AppendDVMirrorSessions(name, mirror.port, table))


def _set_switch_policies(switch: Switch, place: str) -> None:
    name = switch.name
    with _at(f"{place}.multicast") as check:
        check(k.VSDVS_SetMcastFilterMode(name, switch.multicast))
    if switch.multicast_addresses:
        with _at(f"{place}.multicast-addresses") as check, policies.addresses(switch.multicast_addresses) as array:
            check(k.VSDVS_SetMcastUserLegacyEntries(name, len(switch.multicast_addresses), array))
    if switch.learning is not None:
        with _at(f"{place}.learning") as check, policies.learning(switch.learning) as policy:
            check(k.VSDVS_SetMACLearning(name, policy))
    if switch.private_vlan:
        with _at(f"{place}.private-vlan") as check, policies.private_vlans(switch) as array:
            check(k.VSDVS_SetPrivateVLANMap(name, array, len(switch.private_vlan)))
    if switch.teaming is not None:
        with _at(f"{place}.teaming") as check, policies.team_policy(switch.teaming) as policy:
            check(k.VSDVS_SetTeamingPolicy(name, policy))
    if switch.named_teaming:
        with _at(f"{place}.named-teaming") as check, policies.named_teams(switch.named_teaming) as table:
            check(k.VSDVS_SetLSTeamingPolicy(name, table))


def _build_ports(switch: str, port: Port, group: Policies | None, place: str) -> None:
    for index, each in enumerate(port_ids(port)):
        with _at(place) as check:
            check(k.VSDVS_AddDVPort(switch, each, 0))
        _set_port_policies(switch, each, port, group, place)
        if port.client is not None:
            with _at(f"{place}.client"):
                _connect(switch, each, port.client, index)


def _set_port_policies(switch: str, port: str, own: Policies, group: Policies | None, place: str) -> None:
    """Sets what a port says itself, and what its group says where it does not."""

    def chosen(key: str) -> Any:
        value = getattr(own, key)
        return getattr(group, key) if value is None and group is not None else value

    # Of the three VLAN modes the one that the port gives stands for all of them.
    source = own if own.vlan is not None or own.trunk or own.private_vlan or group is None else group
    with _at(place) as check:
        check(_set_vlan(switch, port, source, chosen("priority")))
        for key, function in _FLAGS.items():
            if chosen(key) is not None:
                check(function(switch, port, int(chosen(key))))
        if chosen("blocked") is not None:
            check(_set_property(switch, port, k.ZEL_VDSPROP_PORT_BLOCK, bytes([chosen("blocked")])))
        if chosen("priority") is not None:
            check(_set_property(switch, port, k.VSPROP_PORT_PRIORITY, policies.number(chosen("priority"))))
        for key, (make, setter) in _RECORDS.items():
            if chosen(key) is not None:
                with make(chosen(key)) as policy:
                    check(setter(switch, port, policy))
        for key, setter in _NAMES.items():
            if chosen(key) is not None:
                check(setter(switch, port, chosen(key)))
        if chosen("multicast"):
            with policies.addresses(chosen("multicast")) as array:
                check(k.VSDVS_SetPortMcastUserLegacyEntries(switch, port, len(chosen("multicast")), array))


_FLAGS: dict[str, Callable[[str, str, int], int]] = {
    "nested_tags": k.VSDVS_SetPortNestedVLANTagging,
    "sink": k.VSDVS_ConfigureSinkPort,
    "always_uplink": k.VSDVS_SetTxUplinkAlways,
}
_RECORDS: dict[str, tuple[Callable[[Any], AbstractContextManager[Any]], Callable[[str, str, Any], int]]] = {
    "security": (policies.security, k.VSDVS_SetPortSecurity),
    "learning": (policies.port_learning, k.VSDVS_SetPortMACLearning),
    "teaming": (policies.team_policy, k.VSDVS_SetPortTeamingPolicy),
}
_NAMES: dict[str, Callable[[str, str, str], int]] = {
    "follows": k.VSDVS_SetPortLSTeamingPolicy,
    "uplink": k.VSDVS_SetPortTeamingOverride,
}


def _set_vlan(switch: str, port: str, source: Policies, priority: int | None) -> int:
    prioritised = int(priority is not None)
    if source.trunk is not None:
        with policies.ranges(source.trunk) as array:
            mode, count = k.VSPORT_VLAN_GUEST_TAGGING, len(source.trunk)
            return int(k.VSDVS_SetPortVLANPolicy(switch, port, 0, mode, prioritised, 0, array, count))
    if source.private_vlan is not None:
        mode = k.VSPORT_VLAN_PVLAN_ENABLED
        return int(k.VSDVS_SetPortVLANPolicy(switch, port, source.private_vlan, mode, prioritised, 0, None, 0))
    if source.vlan is None and priority is None:
        return int(k.ZEL_OK)
    return int(k.VSDVS_SetPortVLANPolicy(switch, port, source.vlan or 0, 0, prioritised, 0, None, 0))


def _set_property(switch: str, port: str, key: str, value: bytes) -> int:
    return int(k.VSDVS_SetPortProp(switch, port, key, value, len(value), None, 0))


def _connect(switch: str, port: str, client: Client, index: int) -> None:
    mac = None
    if client.mac is not None:
        mac = (int.from_bytes(client.mac, "big") + index).to_bytes(6, "big")
    wiring.plug_client(switch, port, client.name.replace(NUMBER, str(index + 1)), client.kind, mac)


def _send(step: Traffic, folder: Path) -> None:
    clock.advance_ns(step.wait)
    if step.pcap is not None:
        traffic.play(step.switch, step.port, folder / step.pcap)
        return
    frame = step.frame
    if frame is None:
        assert step.to is not None
        source = step.source or wiring.client_at(step.switch, step.port).mac
        frame = frames.ethernet(step.to, source, step.type, step.payload, vlan=step.vlan)
    for number in range(step.count):
        if number:
            clock.advance_ns(step.every)
        traffic.send(step.switch, step.port, frame)
