"""Properties at every level, runtime options, and the two doors to one value."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import _libkestrel
import pytest

from libkestrel import Host, errors, host, records
from libkestrel.host import Properties, Property, PropertyKind
from support.bench import BENCH

KEY = "org.example.note"
Level = Callable[[host.Switch], Properties]
LEVELS: dict[str, Level] = {
    "switch": lambda switch: switch.properties,
    "host part": lambda switch: switch.host_properties,
    "port": lambda switch: switch.port("p1").properties,
    "stored switch": lambda switch: switch.stored.properties,
    "stored host part": lambda switch: switch.stored.host_properties,
    "stored port": lambda switch: switch.port("p1").stored.properties,
}


@pytest.mark.parametrize("level", LEVELS)
def test_properties_are_a_mapping_of_bytes(level: str, bench: host.Switch) -> None:
    properties = LEVELS[level](bench)
    assert KEY not in properties
    with pytest.raises(KeyError):
        properties[KEY]
    assert properties.get(KEY) is None
    assert properties.get(KEY, b"else") == b"else"
    for value in (b"", b"\0two\0parts\xff", bytes(5000), bytes(2**20)):
        properties[KEY] = value
        assert properties[KEY] == value
        assert KEY in properties
        assert KEY in list(properties.keys())
        assert dict(properties.items())[KEY] == value
    assert Property(KEY, bytes(2**20), PropertyKind.CONFIG) in properties.list()
    assert all(found.key != KEY for found in properties.list(PropertyKind.RUNTIME))
    with pytest.raises(errors.LimitExceeded):
        properties[KEY] = bytes(2**20 + 1)
    with pytest.raises(errors.NameTooLong):
        properties["k" * 256] = b""
    del properties[KEY]
    with pytest.raises(errors.NotFound):
        del properties[KEY]
    assert len(properties) == len(list(properties))


@pytest.mark.parametrize("level", LEVELS)
def test_ensuring_properties(level: str, bench: host.Switch) -> None:
    properties = LEVELS[level](bench)
    assert properties.ensure(KEY, "text") is True
    assert properties.ensure(KEY, b"text") is False
    assert properties.ensure_cleared(KEY) is True
    assert properties.ensure_cleared(KEY) is False


@pytest.mark.parametrize("level", LEVELS)
@pytest.mark.parametrize("before", [None, b"before"])
def test_properties_are_planned_and_taken_back(level: str, before: bytes | None, bench: host.Switch) -> None:
    properties = LEVELS[level](bench)
    if before is not None:
        properties[KEY] = before
    with Host().plan() as plan:
        planned = LEVELS[level](plan.switch(BENCH))
        planned[KEY] = b"after"
        assert planned.ensure(KEY, b"after") is False
        assert planned.ensure_cleared(KEY) is True
        planned["other"] = b"x"
        plan.switch(BENCH).mtu = 1
    assert properties.get(KEY) == before
    with pytest.raises(host.PlanError):
        plan.apply(transaction=None)
    assert properties.get(KEY) == before
    assert "other" not in properties


def test_values_have_types(bench: host.Switch) -> None:
    properties = bench.properties
    for value, kind in ((7, int), (True, bool), ("text", str), (b"\1", bytes)):
        properties[KEY] = value
        assert properties.read(KEY, kind) == value
        assert type(properties.read(KEY, kind)) is kind
    bench.mac_learning = host.SwitchLearning(77, 9)
    assert properties.read(_libkestrel.VSPROP_SWITCH_MAC_LEARNING, records.VSPropMACLearning).agingTime == 77
    assert properties.read(_libkestrel.VSPROP_MTU, int) == 1600
    properties[_libkestrel.VSPROP_SWITCH_MAC_LEARNING] = records.VSPropMACLearning(agingTime=5, macLimit=6)
    assert bench.mac_learning == host.SwitchLearning(5, 6)
    for wrong, error in ((1.5, TypeError), (None, TypeError), (2**32, OverflowError), ([], TypeError)):
        with pytest.raises(error):
            properties[KEY] = wrong  # type: ignore[assignment]
    properties[KEY] = b"abc"
    with pytest.raises(ValueError, match="flag"):
        properties.read(KEY, bool)
    with pytest.raises(TypeError):
        properties.read(KEY, list)


def test_a_key_belongs_to_one_level(bench: host.Switch) -> None:
    with pytest.raises(errors.BadParam):
        bench.port("p1").properties[_libkestrel.VSPROP_MTU] = 1500
    with pytest.raises(errors.ReadOnly):
        bench.properties[_libkestrel.ZEL_VDSPROP_SWITCH_ALIAS] = "other"
    assert bench.properties.read(_libkestrel.ZEL_VDSPROP_SWITCH_ALIAS, str) == BENCH


def test_a_port_tells_its_vlans_as_a_property(bench: host.Switch) -> None:
    port = bench.port("p1")

    def vlans() -> records.zel_VDSPortVlanInfo:
        return port.properties.read(_libkestrel.ZEL_VDSPROP_PORT_VLAN, records.zel_VDSPortVlanInfo)

    assert (vlans().vlanID, len(vlans().vidRanges)) == (0, 0)
    port.vlan = host.AccessVlan(7)
    assert (vlans().vlanID, len(vlans().vidRanges)) == (7, 0)
    port.vlan = host.TrunkVlan(((5, 9), (20, 20)))
    assert [(each.minVID, each.maxVID) for each in vlans().vidRanges] == [(5, 9), (20, 20)]
    with pytest.raises(errors.ReadOnly):
        port.properties[_libkestrel.ZEL_VDSPROP_PORT_VLAN] = bytes(vlans())


def test_passing_values_last_until_the_configuration_is_loaded(bench: host.Switch) -> None:
    bench.properties.set_for(KEY, b"saved")
    bench.properties.set_for(KEY, b"passing", runtime_only=True, component="me")
    bench.host_properties.set_while_running(KEY, b"while")
    assert (bench.properties[KEY], bench.host_properties[KEY]) == (b"passing", b"while")
    Host().store.load()
    assert bench.properties[KEY] == b"saved"
    assert KEY not in bench.host_properties
    bench.properties.clear_for(KEY, runtime_only=True)
    assert KEY not in bench.properties
    Host().store.load()
    assert bench.properties[KEY] == b"saved"


def test_the_store_tells_kinds(bench: host.Switch) -> None:
    properties = bench.stored.properties
    properties.set_as(KEY, b"x", PropertyKind.RUNTIME)
    assert properties.look_up(KEY) == Property(KEY, b"x", PropertyKind.RUNTIME)
    bench.stored.host_properties[KEY] = b"y"
    assert bench.stored.host_properties.look_up(KEY).value == b"y"
    for level in (properties, bench.stored.host_properties):
        with pytest.raises(errors.NotFound):
            level.look_up("nothing")


def test_uplinks_have_properties_by_number(bench: host.Switch) -> None:
    properties = bench.stored.uplink_properties(0)
    assert properties.get(KEY) is None
    properties[KEY] = b"of the first"
    assert properties[KEY] == b"of the first"
    assert bench.stored.uplink_properties(1).get(KEY) is None
    for ask in (properties.list, lambda: properties.read_offloaded(KEY)):
        with pytest.raises(errors.NotSupported):
            ask()
    with pytest.raises(errors.NotSupported):
        del properties[KEY]


# ---- Runtime options ----


@pytest.fixture(autouse=True)
def _options_as_they_were() -> Any:
    options = Host().options
    before = dict(options.items())
    yield
    options.ensure(before)


def test_options_are_a_mapping_by_name() -> None:
    options = Host().options
    assert len(options) == len(list(options)) == _libkestrel.VS_NUM_RT_OPT
    assert list(options.keys()) == [name for name, _ in options.items()]
    assert options["IGMPVersion"] in options.values()
    assert "IGMPVersion" in options
    options["IGMPVersion"] = 2
    assert options["IGMPVersion"] == 2
    options["IGMPRouterIP"] = "192.0.2.9"
    assert options["IGMPRouterIP"] == "192.0.2.9"
    assert options.read(["IGMPVersion", "IGMPRouterIP"]) == {"IGMPVersion": 2, "IGMPRouterIP": "192.0.2.9"}
    assert options.read([]) == {}


def test_options_change_all_or_none() -> None:
    options = Host().options
    before = dict(options.items())
    with pytest.raises(errors.BadParam):
        options.update({"IGMPVersion": 2, "MLDVersion": 99})
    for values, error in (
        ({"IGMPVersion": 2, "nothing": 1}, KeyError),
        ({"IGMPVersion": 2, "IGMPRouterIP": 5}, TypeError),
        ({"IGMPVersion": "2"}, TypeError),
        ({"IGMPVersion": 2**32}, OverflowError),
        ({"IGMPRouterIP": "x" * 128}, ValueError),
        ({"IGMPRouterIP": "a\0b"}, ValueError),
    ):
        with pytest.raises(error):
            options.update(values)
    assert dict(options.items()) == before


def test_options_are_ensured_and_planned() -> None:
    options = Host().options
    before = options["IGMPVersion"]
    assert options.ensure({"IGMPVersion": 2, "MLDVersion": options["MLDVersion"]}) is True
    assert options.ensure({"IGMPVersion": 2}) is False
    with Host().plan() as plan:
        plan.options["IGMPVersion"] = before
        plan.switches.create("dvs-prod", "another id")
    assert "runtime options of the host: set IGMPVersion: {'IGMPVersion': 2} -> " in plan.show()
    with pytest.raises(host.PlanError):
        plan.apply(transaction=None)
    assert options["IGMPVersion"] == 2
