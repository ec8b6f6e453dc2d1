"""The state store as objects: switches, ports, handles, images, collections."""

from __future__ import annotations

import copy
import gc
import pickle
from collections.abc import Iterator

import _libkestrel
import pytest

from libkestrel import Host, errors, host, lab
from libkestrel.host import PropertyCollection, PropertyKind
from support.bench import BENCH, BENCH_ID, PORTS


@pytest.fixture
def images() -> Iterator[None]:
    """For tests of images: skips where the platform has none, and brings the host back to what it was."""
    try:
        Host().store.image()
    except errors.NotSupported:
        pytest.skip("this platform has no images")
    with lab.scratch():
        yield


def test_the_store_knows_switches(bench: host.Switch) -> None:
    store = Host().store
    assert [switch.name for switch in store] == ["dvs-prod", "dvs-storage", BENCH]
    switch = store.switch(BENCH)
    assert switch == bench.stored
    assert (switch.id, switch.class_name, switch.version) == (BENCH_ID, "cswitch", _libkestrel.DVS_VERSION_70)
    assert switch.max_ports == 8
    assert switch.ensure_max_ports(9) is True
    assert switch.ensure_max_ports(9) is False
    with pytest.raises(errors.Busy):
        switch.max_ports = 1
    assert switch.ensure_version(_libkestrel.DVS_VERSION_66) is True
    assert bench.properties.read(_libkestrel.ZEL_VDSPROP_SWITCH_VERSION, int) == _libkestrel.DVS_VERSION_66
    with pytest.raises(errors.NotFound):
        store.switch("nowhere")


def test_the_store_knows_names(bench: host.Switch) -> None:
    store = Host().store
    assert store.knows_alias(BENCH) is store.knows_alias(BENCH, of_all_types=True) is True
    assert store.knows_alias("nowhere") is store.knows_alias("nowhere", of_all_types=True) is False
    assert store.knows_portset(bench.portset) is True
    assert store.knows_portset(BENCH) is False


def test_the_store_knows_ports(bench: host.Switch) -> None:
    ports = bench.stored.ports()
    assert {port.id for port in ports} == set(bench.ports)
    port = bench.stored.port("p1")
    assert port in ports
    assert port == bench.port("p1").stored
    assert port.exists is True
    assert port.alias is None
    bench.port("p1").alias = "first"
    assert port.alias == "first"
    with pytest.raises(errors.NotFound):
        bench.stored.port("nothing")
    bench.ports.remove("p1")
    assert port.exists is False
    assert port.alias is None
    assert port.handle is None


def test_ports_and_switches_are_added_through_the_store(bench: host.Switch) -> None:
    bench.stored.add_port("p9")
    assert "p9" in bench.ports
    with pytest.raises(errors.Exists):
        bench.stored.add_port("p9")
    bench.stored.remove_port("p9")
    assert set(bench.ports) >= set(PORTS)
    assert "p9" not in bench.ports
    store = Host().store
    store.add_switch("made-id", "made", max_ports=4)
    assert store.switch("made").id == "made-id"
    store.remove_switch("made-id")
    assert not store.knows_alias("made")


def test_a_port_of_another_controller_is_found_by_its_id(bench: host.Switch) -> None:
    with pytest.raises(errors.NotFound):
        bench.stored.port_of_external_id("outside")


@pytest.mark.usefixtures("images")
def test_images_bring_ports_back(bench: host.Switch) -> None:
    port = bench.port("p1")
    port.vlan = host.AccessVlan(77)
    image = port.stored.image()
    assert image
    assert port.stored.saved_image()
    with Host().plan() as plan:
        plan.switch(BENCH).ports.remove("p1")
        assert "p1" not in plan.switch(BENCH).ports
        plan.switches.create(BENCH, "another")
    with pytest.raises(host.PlanError) as caught:
        plan.apply(transaction=None)
    assert caught.value.leftover == ()
    assert port.vlan == host.AccessVlan(77)
    bench.ports.remove("p1")
    bench.stored.add_port("p1", image)
    assert port.vlan == host.AccessVlan(77)


@pytest.mark.usefixtures("images")
def test_images_bring_the_state_back(bench: host.Switch) -> None:
    store = Host().store
    bench.mtu = 2000
    live, saved = store.image(), store.saved_image()
    assert live
    bench.mtu = 3000
    store.start_from(live)
    assert bench.mtu == 2000
    bench.mtu = 3000
    store.configure_from(saved)
    assert bench.mtu == 2000
    for damaged in (live[:-1], b"nothing", b""):
        with pytest.raises(errors.KestrelError):
            store.start_from(damaged)
    assert bench.mtu == 2000


@pytest.mark.usefixtures("images")
def test_the_configuration_is_reset(bench: host.Switch) -> None:
    bench.mtu = 3000
    Host().store.reset_configuration()
    assert bench.mtu == 1500


@pytest.mark.usefixtures("images")
def test_the_state_is_released_and_loaded() -> None:
    store = Host().store
    store.sanitize()
    store.clean_up()
    assert Host().store.switches() == []
    store.load()
    assert [switch.name for switch in store] == ["dvs-prod", "dvs-storage"]


@pytest.mark.usefixtures("images")
def test_collections_of_properties(bench: host.Switch) -> None:
    with Host().store.collection() as collection:
        empty = collection.image()
        collection.update("org.example.note", "text")
        assert b"text" in collection.image() != empty
        collection.update("org.example.note", b"other", PropertyKind.RUNTIME)
    with pytest.raises(ReferenceError):
        collection.image()
    collection.release()
    bench.stored.properties["org.example.note"] = b"x"
    for made in (
        bench.stored.vendor_properties,
        bench.stored.vendor_host_properties,
        bench.stored.extra_properties,
        bench.port("p1").stored.vendor_properties,
        bench.port("p1").stored.extra_properties,
    ):
        with made() as found:
            assert isinstance(found, PropertyCollection)
            assert found.image()
    del found, collection
    gc.collect()


def test_a_command_that_no_switch_knows_is_refused(bench: host.Switch) -> None:
    with pytest.raises(NotImplementedError):
        bench.stored.command("nothing", b"input")


def test_membership_of_a_switch_is_planned_and_taken_back(bench: host.Switch) -> None:
    stored = bench.stored
    with pytest.raises(errors.IsConnected):
        stored.associate()
    with Host().plan() as plan:
        plan.switch(BENCH).stored.dissociate()
        plan.switch(BENCH).stored.dissociate()
    with pytest.raises(host.PlanError) as caught:
        plan.apply(transaction=None)
    assert (caught.value.step, caught.value.leftover) == (2, ())
    with pytest.raises(errors.IsConnected):  # again, since the first step was taken back
        stored.associate()
    stored.dissociate()
    with pytest.raises(errors.IsDisconnected):
        stored.dissociate()
    stored.associate()


def test_offloaded_properties_are_read_level_by_level(bench: host.Switch) -> None:
    uplinks = bench.stored.uplink_properties(1)
    for level in (bench.stored.properties, bench.stored.host_properties, bench.port("p1").stored.properties, uplinks):
        with pytest.raises((errors.NotFound, errors.NotSupported)):
            level.read_offloaded("org.example.none")


def test_properties_of_an_uplink_come_back_when_a_plan_fails(bench: host.Switch) -> None:
    key = "org.example.note"
    number = bench.port("north").number if "north" in bench.ports else 1
    properties = bench.stored.uplink_properties(number)
    with pytest.raises(errors.NotSupported):
        properties.list()
    properties[key] = b"first"
    with Host().plan() as plan:
        plan.switch(BENCH).stored.uplink_properties(number)[key] = b"second"
        plan.switch(BENCH).mtu = 1
    with pytest.raises(host.PlanError) as caught:
        plan.apply(transaction=None)
    assert (caught.value.step, caught.value.leftover) == (2, ())
    assert properties[key] == b"first"


def test_a_collection_is_released_once_and_never_copied() -> None:
    with Host().store.collection() as collection:
        for how in (copy.copy, copy.deepcopy, pickle.dumps):
            with pytest.raises(TypeError, match="cannot be copied"):
                how(collection)


def test_a_command_gives_its_output(bench: host.Switch) -> None:
    assert b'alias "dvs-bench"\n' in bench.stored.command("show")


def test_what_is_handed_out_as_nothing_is_empty(bench: host.Switch, monkeypatch: pytest.MonkeyPatch) -> None:
    def nothing(*_arguments: object) -> int:
        return int(_libkestrel.ZEL_OK)

    stored = bench.stored
    for function in ("VSZEL_GetSwitches", "DVSZEL_SwitchPortList", "DVSZEL_GlobalPropGet"):
        monkeypatch.setattr(_libkestrel, function, nothing)
    monkeypatch.setattr(_libkestrel, "VSDVS_GetPrivateVLANMap", lambda *_arguments: [nothing(), None, 0])
    assert list(Host().switches) == []
    assert stored.connections() == {}
    assert stored.properties["org.example.note"] == b""
    assert bench.private_vlans == ()
