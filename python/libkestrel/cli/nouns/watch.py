"""`kestrel watch`: links and counters, again and again."""

from __future__ import annotations

import itertools
import sys
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import TYPE_CHECKING, Any

import click

from libkestrel.cli import completing, output
from libkestrel.cli.commands import Verb, switch_argument_or_all
from libkestrel.cli.exits import SUCCESS
from libkestrel.cli.reading import chosen
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import FLAG, NUMBER, TEXT, Field, one_of, optional, table

if TYPE_CHECKING:
    from libkestrel.cli.counters import Key, Sample

COUNTERS = table(
    "counters",
    Field("switch", TEXT, "The switch."),
    Field("port", TEXT, "The distributed-port id."),
    Field("client", optional(TEXT), "Who is plugged in."),
    Field("link", optional(one_of(["up", "down"])), "The link of an uplink's NIC."),
    Field("in_frames", NUMBER, "Frames into the switch.", "IN"),
    Field("in_bytes", NUMBER, "Their bytes."),
    Field("in_dropped", NUMBER, "Those of them that were dropped.", "DROPPED IN"),
    Field("out_frames", NUMBER, "Frames out of the switch.", "OUT"),
    Field("out_bytes", NUMBER, "Their bytes."),
    Field("out_dropped", NUMBER, "Frames that were dropped on their way out.", "DROPPED OUT"),
    Field("new_in", NUMBER, "Frames into the switch since the last time.", "+IN"),
    Field("new_out", NUMBER, "Frames out of the switch since the last time.", "+OUT"),
    Field("link_changed", FLAG, "Whether the link has changed since the last time.", ""),
)


@click.command("watch", cls=Verb)
@switch_argument_or_all
@click.argument("ports", nargs=-1, shell_complete=completing.ports)
@click.option("--interval", type=click.FloatRange(0.05, 3600), default=1, show_default=True, metavar="SECONDS")
@click.option("--count", type=click.IntRange(1), help="End after so many times. [go on until Ctrl-C]")
@click.option("--all", "idle", is_flag=True, help="Also ports that nothing has passed and that have no link.")
@pass_session
def command(
    session: Session, switch: str | None, ports: tuple[str, ...], interval: float, count: int | None, idle: bool
) -> int:
    """Watch links and counters of ports. Other processes' doing is seen, too.

    In JSON each time is one line.
    """
    from libkestrel.cli import counters

    host = session.host()
    if switch is not None:
        found = host.switch(switch)
        for port in ports:
            found.port(port)
    before: dict[Key, Sample] = {}
    try:
        with _screen(session) as write:
            for number in itertools.count(1):
                switches = list(chosen(host, switch))
                now = counters.sample(switches, {each.name: list(ports) for each in switches} if ports else {})
                write([_row(key, each, before.get(key)) for key, each in now.items() if idle or ports or _lives(each)])
                before = now
                if number == count:
                    break
                time.sleep(interval)
    except KeyboardInterrupt:  # how watching ends
        pass
    return SUCCESS


def _lives(sample: Sample) -> bool:
    return bool(sample.link or sample.in_frames or sample.out_frames or sample.in_dropped or sample.out_dropped)


def _row(key: Key, now: Sample, before: Sample | None) -> dict[str, Any]:
    return COUNTERS.row(
        *key,
        now.client,
        now.link,
        now.in_frames,
        now.in_bytes,
        now.in_dropped,
        now.out_frames,
        now.out_bytes,
        now.out_dropped,
        now.in_frames - before.in_frames if before else 0,
        now.out_frames - before.out_frames if before else 0,
        bool(before and now.link != before.link),
    )


@contextmanager
def _screen(session: Session) -> Iterator[Callable[[list[dict[str, Any]]], None]]:
    """What writes the rows: in place on a terminal, one after another elsewhere."""
    if session.json or not sys.stdout.isatty():

        def one_after_another(rows: list[dict[str, Any]]) -> None:
            session.show(COUNTERS, rows)
            sys.stdout.flush()

        yield one_after_another
        return
    from rich.live import Live

    with Live(auto_refresh=False) as live:

        def in_place(rows: list[dict[str, Any]]) -> None:
            live.update(output.rendered(COUNTERS, rows, headings=session.headings), refresh=True)

        yield in_place
