"""Plans: collected, shown, made together, taken back."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

import _libkestrel
import pytest

from libkestrel import AccessVlan, Host, errors, host, lab
from libkestrel.host.plan import transaction_of_host
from support.bench import BENCH, STATION


def test_a_plan_shows_what_changes_and_changes_nothing_yet(bench: host.Switch) -> None:
    with Host().plan() as plan:
        switch = plan.switch(BENCH)
        switch.mtu = 9000
        switch.ports["p1"].ensure_vlan(AccessVlan(5))
        switch.ports.add("p9").vlan = AccessVlan(6)
        switch.ports.ensure_removed("p2")
    assert plan.show().splitlines() == [
        "switch dvs-bench: set MTU: 1600 -> 9000",
        f"port p1 of switch dvs-bench: set VLAN policy: {AccessVlan()!r} -> {AccessVlan(5)!r}",
        "port p9 of switch dvs-bench: add port: absent -> present",
        f"port p9 of switch dvs-bench: set VLAN policy: absent -> {AccessVlan(6)!r}",
        "port p2 of switch dvs-bench: remove port: present -> absent",
    ]
    assert [str(change) for change in plan] == plan.show().splitlines()
    assert len(plan) == 5
    assert bench.mtu == 1600
    assert "p9" not in bench.ports


def test_a_plan_is_made_once_and_closed(bench: host.Switch) -> None:
    with Host().plan() as plan:
        switch = plan.switch(BENCH)
        switch.mtu = 9000
    with pytest.raises(RuntimeError, match="closed"):
        switch.mtu = 2000
    assert plan.apply() == 1
    assert bench.mtu == 9000
    with pytest.raises(RuntimeError, match="applied"):
        plan.apply()


def test_an_empty_plan_does_nothing(bench: host.Switch) -> None:
    with Host().plan() as plan:
        assert plan.switch(BENCH).ensure_mtu(1600) is False
        assert plan.switch(BENCH).ports.ensure_added("p1") is False
        assert plan.switch(BENCH).uplink_ports.ensure_added("north") is False
        assert plan.switches.ensure_created(BENCH, "x") is False
    assert not plan
    assert plan.show() == "nothing to change"
    assert plan.apply() == 0
    assert bench.mtu == 1600


def test_a_plan_sees_what_it_is_to_make(bench: host.Switch) -> None:
    with Host().plan() as plan:
        assert "new" not in plan.switches
        assert plan.switches.ensure_created("new", "new-id") is True
        assert plan.switches.ensure_created("new", "new-id") is False
        assert plan.switches["new"].ports.ensure_added("a") is True
        assert plan.switch("new").ports.ensure_added("a") is False
        assert plan.switch("new").port("a").ensure_vlan(AccessVlan(3)) is True
        assert plan.switch("new").uplink_ports.ensure_added("u") is True
        assert plan.switch(BENCH).ports.ensure_removed("p1") is True
        assert plan.switch(BENCH).ports.ensure_removed("p1") is False
        assert plan.switch(BENCH).ports.ensure_added("p1") is True
    assert "new" not in Host().switches
    plan.apply(transaction=transaction_of_host() or nothing_around())
    assert Host().switch("new").port("a").vlan == AccessVlan(3)
    assert "p1" in bench.ports
    Host().switches.destroy("new")


@contextmanager
def nothing_around() -> Iterator[None]:
    yield


def test_a_failing_step_takes_the_earlier_ones_back(bench: host.Switch) -> None:
    bench.port("p2").vlan = AccessVlan(8)
    with Host().plan() as plan:
        switch = plan.switch(BENCH)
        switch.mtu = 9000
        switch.ports.add("p9")
        switch.port("p2").vlan = AccessVlan(9)
        switch.port("p1").add_mac(STATION, 5)
        switch.uplink_ports.remove("north")
        switch.uplink_ports.add("east")
        switch.port("p1").add_mirror_session(host.MirrorSession("one", (host.MirrorEntity.port("p2"),)))
        switch.port("p1").vlan = AccessVlan(5000)
        switch.port("p1").nested_tagging = True
    with pytest.raises(host.PlanError) as caught:
        plan.apply(transaction=None)
    error = caught.value
    assert (error.step, error.leftover) == (8, ())
    assert isinstance(error.error, errors.BadVlanid)
    assert error.__cause__ is error.error
    assert str(error).startswith("step 8: port p1 of switch dvs-bench: set VLAN policy: The VLAN identifier is not")
    assert (bench.mtu, bench.port("p2").vlan) == (1600, AccessVlan(8))
    assert "p9" not in bench.ports
    assert len(bench.mac_table()) == 0
    assert {port.name for port in bench.uplink_ports} == {"north", "south"}
    assert bench.port("p1").mirror_sessions == ()
    assert bench.port("p1").nested_tagging is False


def test_what_cannot_be_taken_back_needs_a_transaction(bench: host.Switch) -> None:
    with Host().plan() as plan:
        plan.switch(BENCH).mtu = 9000
        plan.switches.destroy(BENCH)
    with pytest.raises(host.PlanError, match="step 2: switch dvs-bench: destroy switch: it cannot be taken back"):
        plan.apply(transaction=None)
    assert bench.mtu == 1600
    plan.apply(transaction=nothing_around())
    assert BENCH not in Host().switches


def test_a_step_that_is_no_call_of_the_platform_can_fail_too(bench: host.Switch) -> None:
    with Host().plan() as plan:
        plan.switch(BENCH).mtu = 9000
        plan.switch(BENCH).port("p1").vlan = 5  # type: ignore[assignment]
    with pytest.raises(host.PlanError, match="step 2: port p1 of switch dvs-bench: set VLAN policy: a VLAN policy is"):
        plan.apply(transaction=None)
    assert bench.mtu == 1600


def test_changes_that_cannot_be_taken_back_are_told(bench: host.Switch) -> None:
    with Host().plan() as plan:
        plan.switch(BENCH).mtu = 9000

    def vanish() -> None:
        Host().switches.destroy(BENCH)
        raise RuntimeError("gone")

    plan._closed = False
    plan.take(host.Change("switch", "vanish", 1, 2, vanish, lambda: lambda: None))
    with pytest.raises(host.PlanError, match="1 changes could not be taken back") as caught:
        plan.apply(transaction=None)
    assert [change.operation for change in caught.value.leftover] == ["set MTU"]
    assert "dvs-bench" in repr(bench)


class Around:
    """A transaction that notes what happens to it."""

    def __init__(self) -> None:
        self.seen: list[Any] = []

    def __enter__(self) -> None:
        self.seen.append("begin")

    def __exit__(self, kind: Any, error: Any, traceback: Any) -> None:
        self.seen.append(kind)


def test_a_transaction_of_the_callers_goes_around_all_steps(bench: host.Switch) -> None:
    around = Around()
    with Host().plan() as plan:
        plan.switch(BENCH).mtu = 2000
        plan.switch(BENCH).port("p1").vlan = AccessVlan(5)
    assert plan.apply(transaction=around) == 2
    assert around.seen == ["begin", None]
    with Host().plan() as plan:
        plan.switch(BENCH).mtu = 3000
        plan.switch(BENCH).port("p1").vlan = AccessVlan(5000)
    around = Around()
    with pytest.raises(host.PlanError):
        plan.apply(transaction=around)
    assert around.seen == ["begin", host.PlanError]
    assert bench.mtu == 3000  # bringing it back was the transaction's to do


def test_a_plan_is_one_transaction_of_the_embedded_host(bench: host.Switch) -> None:
    with Host().plan() as plan:
        switch = plan.switch(BENCH)
        switch.stored.max_ports = 2000
        for i in range(500):
            switch.ports.add(f"n{i}").vlan = AccessVlan(i + 1)
    assert len(plan) == 1001
    with lab.fault("VSDVS_SetPortVLANPolicy", status=_libkestrel.ZEL_BUSY, at=400), pytest.raises(host.PlanError):
        plan.apply()
    assert "n0" not in bench.ports
    assert bench.stored.max_ports == 8
    assert plan.apply() == 1001
    assert bench.port("n499").vlan == AccessVlan(500)


def test_a_plan_sees_options_and_uplink_ports_that_it_is_to_make(bench: host.Switch) -> None:
    with Host().plan() as plan:
        assert plan.options.ensure({"IGMPVersion": 2}) is True
        assert plan.options.ensure({"IGMPVersion": 2}) is False
        uplinks = plan.switch(BENCH).uplink_ports
        assert ("east" in uplinks, "north" in uplinks) == (False, True)
        uplinks.add("east")
        uplinks.remove("north")
        assert ("east" in uplinks, "north" in uplinks) == (True, False)
    assert "east" not in bench.uplink_ports
    assert Host().options["IGMPVersion"] == 3


@pytest.mark.parametrize("change", ["setting", "property"])
def test_what_was_never_made_is_taken_back_without_a_word(bench: host.Switch, change: str) -> None:
    with Host().plan() as plan:
        port = plan.switch(BENCH).port("p1")
        if change == "setting":
            port.blocked = True
        else:
            port.properties["org.example.note"] = b"text"
    (step,) = plan
    assert step.prepare_undo is not None
    step.prepare_undo()()
    undo = step.prepare_undo()
    step.make()
    with lab.fault("VSDVS_ClearPortProp", status=_libkestrel.ZEL_BUSY), pytest.raises(errors.Busy):
        undo()
    undo()
    assert "org.example.note" not in bench.port("p1").properties
    assert bench.port("p1").blocked is False


# ---- Durability ----

THOUSAND = """
import os, signal
from libkestrel import AccessVlan, Host
from libkestrel.host import Change

def die():
    os.kill(os.getpid(), signal.SIGKILL)

with Host().plan() as plan:
    switch = plan.switches.create("dvs-many", "many", max_ports=1000)
    for i in range(500):
        switch.ports.add(f"n{i}").vlan = AccessVlan(i + 1)
        if i == STOP:
            plan.take(Change("process", "end", 1, 2, die))
print(len(plan), flush=True)
plan.apply()
die()
"""
LOOK = """
from libkestrel import Host
switches = Host().switches
vlans = [port.vlan.vlan for port in switches["dvs-many"].ports.values()] if "dvs-many" in switches else []
print(len(vlans), sum(vlans))
"""


def run_on(file: Path, code: str) -> tuple[int, str]:
    """How an interpreter with its host in a file ends, and what it prints."""
    environment = {**os.environ, "KESTREL_HOST": str(file)}
    done = subprocess.run([sys.executable, "-c", code], env=environment, capture_output=True, text=True, check=False)
    assert done.stderr == ""
    return done.returncode, done.stdout.strip()


def commits(file: Path) -> int:
    """How many transactions the log beside a host file holds: pages that say how long the file is after them."""
    log = file.with_name(f"{file.name}-wal").read_bytes()
    page = int.from_bytes(log[8:12], "big")
    salt = log[16:24]
    frames = [log[start : start + 24] for start in range(32, len(log), 24 + page)]
    return sum(frame[4:8] != bytes(4) for frame in frames if frame[8:16] == salt)


@pytest.mark.parametrize(("stop", "found"), [(-1, "500 125250"), (250, "0 0")])
def test_a_thousand_changes_outlive_the_process_or_none_does(tmp_path: Path, stop: int, found: str) -> None:
    file = tmp_path / "host"
    assert run_on(file, LOOK) == (0, "0 0")
    status, told = run_on(file, THOUSAND.replace("STOP", str(stop)))
    assert status == -signal.SIGKILL
    assert told == ("1001" if stop < 0 else "1002")
    if stop < 0:
        assert commits(file) == 1
    assert run_on(file, LOOK) == (0, found)
