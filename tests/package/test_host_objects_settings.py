"""Every setting of switches and ports: set, read, ensured, cleared, planned, taken back."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import _libkestrel
import pytest

from libkestrel import AccessVlan, Host, errors, host, lab
from libkestrel.host._objects import Setting, setting_of
from support.bench import BENCH, NOTHING, PORT_CASES, SWITCH_CASES, Case

Find = Callable[[Any], Any]


def find_switch(top: Any) -> Any:
    return top.switch(BENCH)


def find_port(top: Any) -> Any:
    return top.switch(BENCH).port("p1")


ALL = [pytest.param(find_switch, case, id=f"switch.{case.name}") for case in SWITCH_CASES]
ALL += [pytest.param(find_port, case, id=f"port.{case.name}") for case in PORT_CASES]
REFUSING = [param for param in ALL if any(isinstance(v, Case) and v.error for v in param.values)]


def value_of(found: Any, name: str) -> Any:
    try:
        return getattr(found, name)
    except errors.NotFound:
        return NOTHING


def ensure(found: Any, name: str, value: Any) -> bool:
    changed = getattr(found, f"ensure_{name}")(value)
    assert isinstance(changed, bool)
    return changed


@pytest.mark.parametrize(("kind", "cases"), [(host.Switch, SWITCH_CASES), (host.Port, PORT_CASES)])
def test_every_setting_is_tried(kind: type[Any], cases: tuple[Case, ...]) -> None:
    settings = {name for name in dir(kind) if isinstance(getattr(kind, name), Setting)}
    assert settings == {case.name for case in cases}
    assert all(callable(getattr(kind, f"ensure_{name}")) for name in settings)


@pytest.mark.usefixtures("bench")
@pytest.mark.parametrize(("find", "case"), ALL)
def test_a_setting_keeps_what_it_is_given(find: Find, case: Case) -> None:
    found = find(Host())
    before = value_of(found, case.name)
    if case.default is not None:
        assert before == case.default
    for value in case.values:
        setattr(found, case.name, value)
        assert value_of(find(Host()), case.name) == value
        assert type(value_of(found, case.name)) is type(value)


@pytest.mark.usefixtures("bench")
@pytest.mark.parametrize(("find", "case"), ALL)
def test_ensuring_tells_whether_it_changed_anything(find: Find, case: Case) -> None:
    found = find(Host())
    for value in case.values:
        assert ensure(found, case.name, value) is True
        assert value_of(found, case.name) == value
        assert ensure(found, case.name, value) is False


@pytest.mark.usefixtures("bench")
@pytest.mark.parametrize(("find", "case"), REFUSING)
def test_a_refused_value_changes_nothing(find: Find, case: Case) -> None:
    assert case.error is not None
    found = find(Host())
    for value in (None, *case.values):
        if value is not None:
            setattr(found, case.name, value)
        before = value_of(found, case.name)
        with pytest.raises(case.error):
            setattr(found, case.name, case.refused)
        assert value_of(found, case.name) == before


@pytest.mark.usefixtures("bench")
@pytest.mark.parametrize(("find", "case"), ALL)
def test_clearing_brings_the_default_back(find: Find, case: Case) -> None:
    found = find(Host())
    if case.name == "mtu":
        assert found.ensure_default("mtu") is True  # the bench was made with one
    if case.name == "sink":
        found.sink = True
        with pytest.raises(errors.ReadOnly):
            del found.sink  # a flag of the filter, cleared with that
        return
    assert found.ensure_default(case.name) is False
    before = value_of(found, case.name)
    for value in case.values:
        setattr(found, case.name, value)
        assert found.ensure_default(case.name) is True
        assert value_of(found, case.name) == before
        with pytest.raises(errors.NotFound):
            delattr(found, case.name)


@pytest.mark.usefixtures("bench")
@pytest.mark.parametrize(("find", "case"), ALL)
def test_a_planned_value_is_read_back_within_the_plan_alone(find: Find, case: Case) -> None:
    before = value_of(find(Host()), case.name)
    with Host().plan() as plan:
        for value in case.values:
            assert ensure(find(plan), case.name, value) is True
            assert value_of(find(plan), case.name) == value
            assert ensure(find(plan), case.name, value) is False
    assert len(plan) == len(case.values)
    assert value_of(find(Host()), case.name) == before
    assert plan.apply() == len(case.values)
    if case.values:
        assert value_of(find(Host()), case.name) == case.values[-1]


@pytest.mark.usefixtures("bench")
@pytest.mark.parametrize("first", ["unset", "set"])
@pytest.mark.parametrize(("find", "case"), ALL)
def test_a_plan_that_fails_takes_a_setting_back(find: Find, case: Case, first: str) -> None:
    found = find(Host())
    if first == "set" and case.values:
        setattr(found, case.name, case.values[0])
    before = value_of(found, case.name)
    was_set = setting_of(type(found), case.name)._is_set(found)
    with Host().plan() as plan:
        for value in case.values[::-1]:
            setattr(find(plan), case.name, value)
        plan.switches.create(BENCH, "another id")
    with pytest.raises(host.PlanError) as caught:
        plan.apply(transaction=None)
    assert isinstance(caught.value.error, errors.Exists)
    assert caught.value.leftover == ()
    assert value_of(found, case.name) == before
    assert setting_of(type(found), case.name)._is_set(found) is was_set


def test_there_is_no_default_for_what_is_no_setting(bench: host.Switch) -> None:
    for name in ("id", "nothing", "ports"):
        with pytest.raises(AttributeError):
            bench.ensure_default(name)


def test_a_followed_policy_keeps_its_name(bench: host.Switch) -> None:
    bench.named_teaming = (host.NamedTeamingPolicy("gold", active=("north",)),)
    port = bench.port("p1")
    assert port.ensure_named_teaming("gold") is True
    assert port.ensure_named_teaming("gold") is False
    assert port.named_teaming == port.named_teaming_in_use() == "gold"
    assert bench.named_teaming_in_use() == bench.named_teaming
    with pytest.raises(errors.Busy):
        bench.named_teaming = ()
    del port.named_teaming
    assert bench.ensure_named_teaming(()) is True


def test_teaming_is_the_switchs_until_a_port_has_its_own(bench: host.Switch) -> None:
    port = bench.port("p1")
    assert bench.teaming.active == ("north", "south")
    assert port.teaming == bench.teaming == bench.teaming_by_id()
    bench.teaming = host.TeamingPolicy(active=("south",), speed=10000, percent_error=5)
    assert port.teaming == bench.teaming
    port.teaming = host.TeamingPolicy(active=("north",))
    assert port.teaming != bench.teaming
    with pytest.raises(IndexError):
        bench.teaming = host.TeamingPolicy(active=("north",) * 33)


def test_a_policy_can_be_for_the_running_state_only(bench: host.Switch) -> None:
    port = bench.port("p1")
    port.vlan = host.AccessVlan(5)
    port.set_vlan_for(host.AccessVlan(6), runtime_only=True)
    assert port.vlan == host.AccessVlan(6)
    Host().store.load()
    assert port.vlan == host.AccessVlan(5)


def test_trunks_are_made_of_what_people_write() -> None:
    assert host.TrunkVlan.of(5, (7, 9), range(20, 30)).ranges == ((5, 5), (7, 9), (20, 29))
    for wrong in (range(5, 5), range(1, 9, 2)):
        with pytest.raises(ValueError, match="range of VLANs"):
            host.TrunkVlan.of(wrong)


def test_a_private_vlan_port_is_in_its_secondary_vlan(bench: host.Switch) -> None:
    kinds = host.PrivateVlanKind
    bench.private_vlans = (
        host.PrivateVlanEntry(100, 100, kinds.PROMISCUOUS),
        host.PrivateVlanEntry(100, 101, kinds.ISOLATED),
    )
    bench.port("p1").vlan = host.PrivateVlan(101)
    assert bench.port("p1").vlan == host.PrivateVlan(101)
    assert Host().switch("dvs-prod").port("14").vlan == host.PrivateVlan(1101)


def test_sink_mode_counts(bench: host.Switch) -> None:
    bench.port("p1").sink = True
    assert bench.info().sink_ports == bench.mac_learning_state().sink_ports == 1
    assert bench.port("p1").ethernet_filter.flags == host.EthernetFilterFlags.SINK


def test_the_hosts_defaults_reach_its_switches(bench: host.Switch) -> None:
    top = Host()
    before = top.mac_learning
    wanted = host.HostLearning(42, before.limit, learn_static=True, static_mac_allow=False)
    assert top.ensure_mac_learning(wanted) is True
    assert top.ensure_mac_learning(wanted) is False
    assert bench.mac_learning.aging_time == bench.mac_learning_state().aging_time == 42
    assert (bench.learn_static, bench.static_mac_allow) == (True, False)
    with pytest.raises(errors.BadParam):
        top.mac_learning = host.HostLearning(2_000_000, 1, learn_static=False, static_mac_allow=False)
    assert top.mac_learning == wanted
    top.mac_learning = before


def test_a_setting_belongs_to_a_class_that_is_complete() -> None:
    for decorate in (host.Switch.mtu.writes, host.Switch.mtu.clears):
        with pytest.raises(TypeError, match="mtu belongs to a class that is complete"):
            decorate(lambda *_arguments: None)


def test_a_platform_that_is_busy_is_no_lack_of_a_value(bench: host.Switch) -> None:
    port = bench.port("p1")
    with lab.fault("VSDVS_GetPortVLANPolicy", status=_libkestrel.ZEL_BUSY), pytest.raises(errors.Busy):
        port.ensure_vlan(AccessVlan(5))
    with lab.fault("VSDVS_IsSinkPortEnabled", status=_libkestrel.ZEL_BUSY), pytest.raises(errors.Busy):
        port.ensure_default("sink")
    with lab.fault("VSDVS_GetSwitchUplinkPorts", status=_libkestrel.ZEL_BUSY), pytest.raises(errors.Busy):
        bench.uplink_ports.ensure_added("north")
    assert port.vlan == AccessVlan(0)


def test_of_what_has_gone_there_is_nothing_to_clear_or_remove(bench: host.Switch) -> None:
    port = bench.port("p1")
    bench.ports.remove("p1")
    assert port.ensure_default("sink", "vlan", "blocked") is False
    Host().switches.destroy(BENCH)
    assert bench.ports.ensure_removed("p2") is False
    assert bench.uplink_ports.ensure_removed("north") is False
