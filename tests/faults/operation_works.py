"""Operations of the companion package and the command line, each of which comes to many calls of the platform."""

from __future__ import annotations

import contextlib
import io
import signal
import tempfile
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

from faults.host_view import HostView
from faults.work import Work
from libkestrel import Host, lab
from libkestrel.host import Plan
from libkestrel.lab.scenario import load_scenario
from support.bench import BENCH, BENCH_ID, GROUP, NOTHING, PORT_CASES, PORTS, STATION, SWITCH_CASES, UPLINK_PORTS

EXAMPLES = Path(__file__).resolve().parents[2] / "examples/scenarios"


class _Bench:
    """A host with the tests' switch, and works on it."""

    def __init__(self) -> None:
        lab.reset()
        switch = Host().switches.create(BENCH, BENCH_ID, max_ports=8, mtu=1600)
        for port in PORTS:
            switch.ports.add(port, 7)
        for uplink in UPLINK_PORTS:
            switch.uplink_ports.add(uplink)
        self._fresh, self._view = lab.snapshot(), HostView()

    def work(self, name: str, call: Callable[..., Any], *arguments: Any) -> Work:
        """A work that the host is put right again after."""
        return Work(name, lambda: (call, arguments), state=self._view, restore=self._fresh.restore, in_python=True)


def operations() -> Iterator[Work]:
    """Operations of the package."""
    bench = _Bench()
    yield bench.work("read everything", _read_everything)
    yield bench.work("make a plan", _plan_everything)
    yield bench.work("apply a plan in one transaction", _apply)
    yield bench.work("change things in a transaction", _change_in_a_transaction)
    yield bench.work("load a scenario", load_scenario, EXAMPLES / "small-office.toml")


def stepwise_operations() -> Iterator[Work]:
    """What takes back each of its steps where one fails, which takes memory and the platform's help."""
    yield _Bench().work("apply a plan step by step", _apply_by_steps)


# ---- Reading ----


def _read_everything() -> None:
    found = Host()
    for switch in found.switches.values():
        for case in SWITCH_CASES:
            getattr(switch, case.name)
        for port in switch.ports.values():
            for case in PORT_CASES:
                if case.default is not NOTHING:
                    getattr(port, case.name)
        list(switch.uplink_ports)
        list(switch.uplinks)
        with switch.mac_table() as table:
            list(table)
    dict(found.options)


# ---- Changing ----


def _note_everything(plan: Plan) -> None:
    switch = plan.switch(BENCH)
    for case in SWITCH_CASES:
        for value in case.values:
            setattr(switch, case.name, value)
    for case in PORT_CASES:
        for value in case.values:
            setattr(switch.port("p1"), case.name, value)
    switch.ports.add("p9")
    switch.port("p2").add_mac(STATION, 5)
    switch.port("p2").properties["org.example.note"] = b"text"
    switch.uplink_ports.add("east")
    plan.options.ensure({"IGMPVersion": 2})


def _plan_everything() -> int:
    with Host().plan() as plan:
        _note_everything(plan)
    return len(plan)


def _apply() -> int:
    with Host().plan() as plan:
        _note_everything(plan)
    return plan.apply()


def _apply_by_steps() -> int:
    with Host().plan() as plan:
        _note_everything(plan)
    return plan.apply(transaction=None)


def _change_in_a_transaction() -> None:
    with lab.transaction():
        switch = Host().switches[BENCH]
        switch.mtu = 9000
        switch.ports.remove("p2")
        switch.port("p1").multicast_entries = (GROUP,)
        Host().switches.create("dvs-more", "more", max_ports=8)
        Host().store.add_switch("stored", "dvs-stored", max_ports=8)


# ---- Commands ----

_WANTED = f"""
[[switch]]
name = "{BENCH}"
max-ports = 8
mtu = 9000
uplink = [{{ name = "north" }}, {{ name = "south" }}, {{ name = "east" }}]

[[switch.port]]
id = "p1"
vlan = 12

[[switch.port]]
id = "p3"
trunk = [5, 7]
"""


class RefusedCommandError(Exception):
    """A command ended with another exit code than 0; its text is what the command said of it."""


def command_lines() -> Iterator[Work]:
    """Commands, in this process."""
    bench = _Bench()
    with tempfile.TemporaryDirectory() as folder:
        present, wanted = Path(folder, "host.kestrel"), Path(folder, "wanted.toml")
        present.touch()
        wanted.write_text(_WANTED)
        for line in (
            f"apply {wanted}",
            "switch create dvs-more",
            f"vlan set {BENCH} p1 --trunk 5,7-9",
            "lab run small-office",
        ):
            yield bench.work(line.partition(folder)[0].strip(), _run, "--host", str(present), *line.split())


def _run(*arguments: str) -> None:
    from libkestrel.cli import app

    said = io.StringIO()
    before = signal.getsignal(signal.SIGINT)  # what has changed something ignores it from then on
    with contextlib.redirect_stdout(io.StringIO()), contextlib.redirect_stderr(said):
        code = app.run([*arguments])
    signal.signal(signal.SIGINT, before)
    if code != 0:
        raise RefusedCommandError(f"{code}: {said.getvalue()}")
