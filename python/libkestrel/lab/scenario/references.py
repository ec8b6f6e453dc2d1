"""What a scenario has to keep to beyond the kinds of its values.

Names that are to be there once are, and names that are spoken of are there.
"""

from __future__ import annotations

from collections.abc import Callable, Iterable, Sequence
from typing import Any

import _libkestrel as k

from libkestrel.lab.scenario.format import AnyTeam, Entity, Policies, Port, Scenario, Switch, Traffic
from libkestrel.lab.scenario.kinds import twice
from libkestrel.lab.scenario.problems import Place

NUMBER = "{n}"
"""What stands for the number of a port among those of its entry."""


def port_ids(port: Port) -> list[str]:
    """The distributed-port ids of an entry."""
    if isinstance(port.id, int):
        return [str(port.id + i) for i in range(port.count)]
    return [port.id]


def uplink_ports(switch: Switch) -> list[str]:
    """The distributed-port ids of the uplinks: those given, and the lowest free numbers."""
    taken = {uplink.port for uplink in switch.uplink}
    free = (str(number) for number in range(len(switch.uplink) * 2) if str(number) not in taken)
    return [uplink.port or next(free) for uplink in switch.uplink]


def check(scenario: Scenario, place: Place) -> None:
    """Notes what is wrong with a scenario whose values are all good."""
    _unique(scenario.nic, place.key("nic"), "name", lambda nic: nic.name)
    _unique(scenario.switch, place.key("switch"), "name", lambda switch: switch.name)
    nics = {nic.name for nic in scenario.nic}
    plugged = [uplink.nic for switch in scenario.switch for uplink in switch.uplink if uplink.nic]
    for index, switch in enumerate(scenario.switch):
        _check_switch(switch, place.key("switch").item(index), nics, plugged)
    for name, value in (scenario.options or {}).items():
        _check_option(name, value, place.key("options").key(name))
    for index, step in enumerate(scenario.traffic):
        _check_traffic(step, scenario, place.key("traffic").item(index))


def _unique(items: Sequence[Any], place: Place, key: str, name: Callable[[Any], Any]) -> None:
    names = [name(item) for item in items]
    for index in twice(names):
        place.item(index).key(key).wrong(f'"{names[index]}" is there already')


def _known(names: Iterable[str], known: Iterable[str], place: Place, what: str) -> None:
    there = set(known)
    for index, name in enumerate(names):
        if name not in there:
            place.item(index).wrong(f'there is no {what} "{name}"')


def _exactly_one(keys: dict[str, Any], place: Place) -> None:
    given = [name for name, value in keys.items() if value is not None]
    if len(given) != 1:
        place.wrong(f"exactly one of {', '.join(keys)} is given, not {' and '.join(given) or 'none'}")


def _check_switch(switch: Switch, place: Place, nics: set[str], plugged: list[str]) -> None:
    uplinks = [uplink.name for uplink in switch.uplink]
    teamed = uplinks + [lag.name for lag in switch.lag]
    _unique(switch.uplink, place.key("uplink"), "name", lambda uplink: uplink.name)
    for index, uplink in enumerate(switch.uplink):
        where = place.key("uplink").item(index).key("nic")
        if uplink.nic is not None and uplink.nic not in nics:
            where.wrong(f'there is no NIC "{uplink.nic}"')
        elif uplink.nic is not None and plugged.count(uplink.nic) > 1:
            where.wrong(f'NIC "{uplink.nic}" is plugged in more than once')
    members = [member for lag in switch.lag for member in lag.uplinks]
    for index, lag in enumerate(switch.lag):
        where = place.key("lag").item(index)
        _known(lag.uplinks, uplinks, where.key("uplinks"), "uplink")
        if lag.name in teamed[: len(uplinks) + index]:
            where.key("name").wrong(f'"{lag.name}" is there already')
        for member in {member for member in lag.uplinks if members.count(member) > 1}:
            where.key("uplinks").wrong(f'uplink "{member}" is in groups more than once')
    _unique(switch.named_teaming, place.key("named-teaming"), "name", lambda team: team.name)
    if switch.teaming is not None:
        _check_team(switch.teaming, place.key("teaming"), teamed)
    for index, team in enumerate(switch.named_teaming):
        _check_team(team, place.key("named-teaming").item(index), teamed)
    _unique(switch.group, place.key("group"), "name", lambda group: group.name)
    for index, group in enumerate(switch.group):
        _check_policies(group, place.key("group").item(index), switch, teamed)
    _check_ports(switch, place, teamed)
    if len(switch.multicast_addresses) > k.VS_MULTICAST_USER_ENTRIES_MAX:
        place.key("multicast-addresses").wrong(f"more than {k.VS_MULTICAST_USER_ENTRIES_MAX} addresses")
    _check_mirrors(switch, place, uplinks)


def _check_team(team: AnyTeam, place: Place, teamed: list[str]) -> None:
    for key, names in (("active", team.active), ("standby", team.standby)):
        _known(names, teamed, place.key(key), "uplink or group")
    both = team.active + team.standby
    for index in twice(both):
        place.wrong(f'"{both[index]}" is named twice')
    if len(both) > k.ZEL_TEAM_MAX_UPLINKS:
        place.wrong(f"more than {k.ZEL_TEAM_MAX_UPLINKS} uplinks")


def _check_policies(policies: Policies, place: Place, switch: Switch, teamed: list[str]) -> None:
    modes = {"vlan": policies.vlan, "trunk": policies.trunk, "private-vlan": policies.private_vlan}
    if len([mode for mode in modes.values() if mode is not None]) > 1:
        place.wrong(f"more than one of {', '.join(modes)} is given")
    secondaries = [pair.secondary for pair in switch.private_vlan]
    if policies.private_vlan is not None and policies.private_vlan not in secondaries:
        place.key("private-vlan").wrong(f"{policies.private_vlan} is no secondary VLAN of the switch's private-vlan")
    if policies.teaming is not None:
        _check_team(policies.teaming, place.key("teaming"), teamed)
    if policies.follows is not None and policies.follows not in [team.name for team in switch.named_teaming]:
        place.key("follows").wrong(f'there is no named teaming policy "{policies.follows}"')
    if policies.uplink is not None and policies.uplink not in teamed:
        place.key("uplink").wrong(f'there is no uplink or group "{policies.uplink}"')
    if policies.multicast is not None and len(policies.multicast) > k.VS_MULTICAST_USER_ENTRIES_MAX:
        place.key("multicast").wrong(f"more than {k.VS_MULTICAST_USER_ENTRIES_MAX} addresses")


def _check_ports(switch: Switch, place: Place, teamed: list[str]) -> None:
    groups = {group.name for group in switch.group}
    taken = uplink_ports(switch)
    for index in twice(taken):
        place.key("uplink").item(index).key("port").wrong(f'"{taken[index]}" is there already')
    seen = set(taken)
    for index, port in enumerate(switch.port):
        where = place.key("port").item(index)
        if port.count > 1 and not isinstance(port.id, int):
            where.key("id").wrong("the id of several ports has to be a number, to count up from")
        for each in port_ids(port):
            if each in seen:
                where.key("id").wrong(f'port "{each}" is there already')
            seen.add(each)
        if port.count > 1 and port.client is not None and NUMBER not in port.client.name:
            where.key("client").key("name").wrong(f"the name of several clients needs {NUMBER} in it")
        if port.group is not None and port.group not in groups:
            where.key("group").wrong(f'there is no port group "{port.group}"')
        _check_policies(port, where, switch, teamed)
    if len(seen) > switch.max_ports:
        place.key("max-ports").wrong(f"{switch.max_ports} are fewer than the {len(seen)} ports of the switch")


def _check_mirrors(switch: Switch, place: Place, uplinks: list[str]) -> None:
    _unique(switch.mirror, place.key("mirror"), "id", lambda mirror: mirror.id)
    ports = {each for port in switch.port for each in port_ids(port)} | set(uplink_ports(switch))
    for index, mirror in enumerate(switch.mirror):
        where = place.key("mirror").item(index)
        if mirror.port not in ports:
            where.key("port").wrong(f'there is no port "{mirror.port}"')
        for key, entities in (("to", mirror.to), ("incoming", mirror.incoming), ("outgoing", mirror.outgoing)):
            for number, entity in enumerate(entities):
                _check_entity(entity, where.key(key).item(number), ports, uplinks)


def _check_entity(entity: Entity, place: Place, ports: set[str], uplinks: list[str]) -> None:
    _exactly_one({name: getattr(entity, name) for name in ("port", "uplink", "vlan", "ip", "mac")}, place)
    if entity.port is not None and entity.port not in ports:
        place.key("port").wrong(f'there is no port "{entity.port}"')
    if entity.uplink is not None and entity.uplink not in uplinks:
        place.key("uplink").wrong(f'there is no uplink "{entity.uplink}"')


def _check_option(name: str, value: int | str, place: Place) -> None:
    code = k.get_runtime_option_type_from_name(name)
    if code < 0:
        place.wrong("there is no runtime option of that name")
    elif isinstance(value, int) != (code < k.NUM_RUNTIME_INT_OPTIONS):
        place.wrong("the option takes a number" if code < k.NUM_RUNTIME_INT_OPTIONS else "the option takes a text")


def _check_traffic(step: Traffic, scenario: Scenario, place: Place) -> None:
    switches = {switch.name: switch for switch in scenario.switch}
    _exactly_one({"frame": step.frame, "to": step.to, "pcap": step.pcap}, place)
    if step.switch not in switches:
        place.key("switch").wrong(f'there is no switch "{step.switch}"')
        return
    switch = switches[step.switch]
    clients = {each: port.client for port in switch.port for each in port_ids(port)}
    if step.port not in clients and step.port not in uplink_ports(switch):
        place.key("port").wrong(f'there is no port "{step.port}" on switch "{step.switch}"')
    elif step.to is not None and step.source is None and clients.get(step.port) is None:
        place.key("source").wrong("is missing: there is no client at the port whose address would be taken")
    if step.frame is not None and len(step.frame) < _ETHERNET_HEADER:
        place.key("frame").wrong(f"a frame has {_ETHERNET_HEADER} bytes at least")


_ETHERNET_HEADER = 14
