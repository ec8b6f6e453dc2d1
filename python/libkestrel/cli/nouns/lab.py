"""`kestrel lab`: what is done to the embedded host from outside."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import click

from libkestrel.cli import completing
from libkestrel.cli.commands import Action, noun, port_argument, switch_argument
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import FLAG, NUMBER, RATIONAL, TEXT, Field, one_of, optional, several, sheet, table
from libkestrel.cli.values import HEX, MAC, VLAN

if TYPE_CHECKING:
    from collections.abc import Sequence

    from libkestrel.lab import Frame, Nic
    from libkestrel.records import MacAddress

SCENARIOS = table(
    "scenarios",
    Field("name", TEXT, "What `kestrel lab run` calls it."),
    Field("description", TEXT, "What it shows."),
    Field("file", TEXT, "Its file.", ""),
)
LOADED = sheet(
    "loaded",
    Field("scenario", TEXT, "What it is called."),
    Field("host_file", TEXT, "The host file that it was put into."),
    Field("switches", several(TEXT), "The switches of the host."),
)
NICS = table(
    "nics",
    Field("nic", TEXT, "The name of the NIC.", "NIC"),
    Field("link", one_of(["up", "down"]), "The link, as far as the cable goes."),
    Field("enabled", FLAG, "Whether the host has not taken the link down."),
    Field("speed", NUMBER, "In Mbit/s."),
    Field("duplex", one_of(["full", "half", "auto"]), "Its duplex mode."),
    Field("mac", TEXT, "Its address.", "MAC"),
    Field("lacp", one_of(["none", "passive", "active"]), "How the far end speaks LACP.", "LACP"),
    Field("blocked", FLAG, "Whether the far end blocks its port."),
    Field("numa_node", NUMBER, "The NUMA node that it is near to.", "NUMA"),
)
CLIENTS = table(
    "clients",
    Field("switch", TEXT, "The switch."),
    Field("port", TEXT, "The distributed-port id."),
    Field("kind", one_of(["machine", "service", "nic"]), "What is plugged in."),
    Field("name", TEXT, "Its name."),
    Field("mac", TEXT, "The address of its hardware.", "MAC"),
    Field("used_mac", TEXT, "The address that its frames come from.", "USED MAC"),
)
FRAMES = table(
    "frames",
    Field("switch", TEXT, "The switch."),
    Field("port", TEXT, "The port where it passed."),
    Field("time", RATIONAL, "When, in seconds of the host's clock."),
    Field("direction", one_of(["in", "out"]), "into the switch, or out of it."),
    Field("source", TEXT, "Where it comes from."),
    Field("destination", TEXT, "Where it goes."),
    Field("vlan", optional(NUMBER), "The VLAN of its outermost tag.", "VLAN"),
    Field("type", TEXT, "The type of its payload."),
    Field("length", NUMBER, "Its length in bytes."),
    Field("data", TEXT, "Its bytes in hexadecimal digits.", ""),
)
CLOCK = sheet("clock", Field("now", RATIONAL, "Seconds since the host was made."))


@noun("lab")
def command() -> None:
    """The laboratory: scenarios, frames, links, clients, time. Of the embedded host alone."""


# ---- Whole hosts ----


@command.command()
@pass_session
def scenarios(session: Session) -> None:
    """List the scenarios that come along."""
    from libkestrel.cli import scenarios as known

    session.show(
        SCENARIOS, [SCENARIOS.row(name, known.described(name), str(known.path_of(name))) for name in known.shipped()]
    )


@command.command(cls=Action)
@click.argument("scenario", shell_complete=completing.scenarios)
@pass_session
def run(session: Session, scenario: str) -> None:
    """Put a scenario in the place of the host: one that comes along, or a TOML file."""
    from libkestrel.cli import scenarios as known

    was_there = session.path.exists()
    loaded = known.load(session, scenario)
    names = [switch.name for switch in loaded.switch]
    if session.json:
        session.show(LOADED, LOADED.row(loaded.name or scenario, str(session.path), names))
        return
    where = f"in the place of what was in {session.path}" if was_there else f"in {session.path}"
    session.note(f"{loaded.name or scenario}: {', '.join(names) or 'no switch'}, {where}")


@command.command(cls=Action)
@click.option("--sample", is_flag=True, help="Begin with the sample host.")
@pass_session
def reset(session: Session, sample: bool) -> None:
    """Put a new host in the place of the one there is: an empty one, or the sample."""
    from libkestrel import lab

    session.new_host()
    with session.all_or_nothing():
        lab.reset(sample=sample)
    session.note("the sample host" if sample else "an empty host")


@command.command(cls=Action)
@pass_session
def restart(session: Session) -> None:
    """Start the host anew, as after a loss of power: on its saved configuration."""
    from libkestrel import lab

    session.host()
    with session.all_or_nothing():
        lab.restart()
    session.note("restarted on the saved configuration")


@command.command()
@click.option("--advance", type=click.FloatRange(0, 1e9), metavar="SECONDS", help="Let so much time pass.")
@pass_session
def clock(session: Session, advance: float | None) -> None:
    """Tell the host's time, which stands still unless it is advanced."""
    from libkestrel import lab
    from libkestrel.cli import progress

    session.host()
    if advance is not None:
        with progress.shown(f"{advance:g} s pass"), session.all_or_nothing():
            lab.clock.advance(advance)
    session.show(CLOCK, CLOCK.row(lab.clock.now()))


# ---- NICs ----


def _nic_row(nic: Nic) -> dict[str, Any]:
    link = "up" if nic.up else "down"
    mode = nic.partner.mode
    return NICS.row(nic.name, link, nic.enabled, nic.speed, nic.duplex, nic.mac or "", mode, nic.blocked, nic.numa_node)


@command.command()
@pass_session
def nics(session: Session) -> None:
    """List the NICs of the host."""
    from libkestrel import lab

    session.host()
    session.show(NICS, [_nic_row(nic) for nic in lab.nics()])


@command.command(cls=Action)
@click.argument("nic")
@click.option("--speed", type=click.IntRange(0, 400_000), default=10_000, show_default=True, help="In Mbit/s.")
@click.option("--mac", type=MAC, help="Its address. [one made from its name]")
@click.option("--uplink", nargs=2, metavar="SWITCH UPLINK", help="The uplink that it goes into.")
@pass_session
def plug(session: Session, nic: str, speed: int, mac: MacAddress | None, uplink: tuple[str, str] | None) -> None:
    """Plug a NIC into the host, and into an uplink."""
    from libkestrel import lab

    session.host()
    with session.all_or_nothing():
        lab.plug(nic, speed=speed, mac=None if mac is None else str(mac))
        if uplink:
            lab.connect_nic(*uplink, nic)
    session.note(f"{nic} is plugged in{f', in {uplink[1]} of {uplink[0]}' if uplink else ''}")


@command.command(cls=Action)
@click.argument("nic", shell_complete=completing.nics)
@pass_session
def pull(session: Session, nic: str) -> None:
    """Take a NIC away, out of the uplink that it may be in."""
    from libkestrel import lab

    session.host()
    with session.all_or_nothing():
        lab.pull(nic)
    session.note(f"{nic} is gone")


@command.command(cls=Action)
@click.argument("nic", shell_complete=completing.nics)
@click.option("--up/--down", "up", default=None, help="The cable is in, or out.")
@click.option("--speed", type=click.IntRange(0, 400_000), help="In Mbit/s.")
@click.option("--errors", "error_percent", type=click.IntRange(0, 100), help="The share of damaged frames.")
@click.option("--blocked/--no-blocked", default=None, help="Whether the far end blocks its port.")
@click.option("--beacons/--no-beacons", default=None, help="Whether beacons of the other NICs reach it.")
@click.option("--driver/--no-driver", default=None, help="Whether its driver is there.")
@click.option("--lacp", type=click.Choice(["none", "passive", "active"]), help="How the far end speaks LACP.")
@pass_session
def link(session: Session, /, nic: str, lacp: str | None, **given: Any) -> None:
    """Change a NIC's link, or the far end of it."""
    from dataclasses import replace

    from libkestrel import lab

    changes = {name: value for name, value in given.items() if value is not None}
    if not changes and lacp is None:
        raise click.UsageError("nothing is given to change")
    session.host()
    with session.all_or_nothing():
        if lacp is not None:
            changes["partner"] = replace(lab.nic(nic).partner, mode=lacp)
        changed = lab.change_nic(nic, **changes)
    session.show(NICS, [_nic_row(changed)])


# ---- Clients ----


@command.command()
@switch_argument
@pass_session
def clients(session: Session, switch: str) -> None:
    """List who is plugged into a switch."""
    from libkestrel import lab

    name = session.host().switch(switch).name
    session.show(CLIENTS, [CLIENTS.row(name, c.port, c.kind, c.name, c.mac, c.used_mac) for c in lab.clients(name)])


@command.command(cls=Action)
@port_argument
@click.argument("name")
@click.option("--kind", type=click.Choice(["machine", "service"]), default="machine", help="What it is.")
@click.option("--mac", type=MAC, help="Its address. [one made from the port]")
@pass_session
def connect(session: Session, switch: str, port: str, name: str, kind: str, mac: MacAddress | None) -> None:
    """Plug a client into a port."""
    from libkestrel import lab

    session.host()
    with session.all_or_nothing():
        client = lab.connect(switch, port, name, kind=kind, mac=None if mac is None else str(mac))
    session.note(f"{name} is at port {port} of {switch} with {client.mac}")


@command.command(cls=Action)
@port_argument
@pass_session
def disconnect(session: Session, switch: str, port: str) -> None:
    """Take whoever is there out of a port."""
    from libkestrel import lab

    session.host()
    with session.all_or_nothing():
        lab.disconnect(switch, port)
    session.note(f"port {port} of {switch} is empty")


# ---- Frames ----


@command.command(cls=Action)
@port_argument
@click.option("--to", type=MAC, help="Where it goes. [to all]")
@click.option("--from", "source", type=MAC, help="Where it comes from. [the client's address]")
@click.option("--vlan", type=VLAN, help="The VLAN of its tag. [no tag]")
@click.option("--type", "kind", type=click.IntRange(0x600, 0xFFFF), default=0x88B5, help="The type of its payload.")
@click.option("--payload", type=HEX, default="", help="Its payload in hexadecimal digits.")
@click.option("--frame", type=HEX, help="The whole frame in hexadecimal digits, in place of all this.")
@click.option("--count", type=click.IntRange(1, 1_000_000), default=1, help="How often it is sent.")
@click.option("--every", type=click.FloatRange(0, 1e6), default=0, metavar="SECONDS", help="Time between two.")
@pass_session
def send(
    session: Session, switch: str, port: str, to: MacAddress | None, source: MacAddress | None, vlan: int | None,
    kind: int, payload: bytes, frame: bytes | None, count: int, every: float,
) -> None:  # fmt: skip
    """Send frames in through a port, all of them or none: from its client, or from the network for an uplink."""
    from libkestrel import lab
    from libkestrel.cli import progress

    session.host()
    with progress.shown(f"sending {count} frames"), session.all_or_nothing():
        if frame is None:
            sender = str(source) if source is not None else lab.client_at(switch, port).used_mac
            frame = lab.ethernet(str(to) if to is not None else "ff:ff:ff:ff:ff:ff", sender, kind, payload, vlan=vlan)
        for number in range(count):
            if number and every:
                lab.clock.advance(every)
            lab.send(switch, port, frame)
    session.note(f"{count} frame{'s' if count > 1 else ''} sent")


@command.command(cls=Action)
@port_argument
@click.argument("file", type=click.Path())
@click.option("--untimed", is_flag=True, help="Let no time pass between frames.")
@pass_session
def play(session: Session, switch: str, port: str, file: str, untimed: bool) -> None:
    """Send the frames of a pcap file in through a port, all of them or none."""
    from libkestrel import lab
    from libkestrel.cli import progress

    session.host()
    with progress.shown(f"playing {file}"), session.all_or_nothing():
        count = lab.play(switch, port, file, timed=not untimed)
    session.note(f"{count} frames sent")


@command.command(cls=Action, context_settings={"ignore_unknown_options": True})
@port_argument
@click.argument("meanwhile", nargs=-1, required=True, type=click.UNPROCESSED, metavar="-- COMMAND...")
@click.option("--direction", type=click.Choice(["out", "in", "both"]), default="out", help="Of the switch.")
@click.option("--write", "file", type=click.Path(dir_okay=False), help="Write the frames to a pcap file.")
@click.pass_context
def capture(
    ctx: click.Context, switch: str, port: str, meanwhile: tuple[str, ...], direction: str, file: str | None
) -> None:
    """Show the frames that pass a port while another command of the laboratory runs.

    \b
        kestrel lab capture dvs-office router -- send dvs-office 100
        kestrel lab capture dvs-office 1 --write failover.pcap -- clock --advance 5
    """  # noqa: D301  # click takes a paragraph that begins with a backspace as it stands
    from libkestrel import lab

    session = ctx.ensure_object(Session)
    session.host()
    with lab.capture(switch, port, direction) as running:
        _run_quietly(ctx, session, meanwhile)
    if file is not None:
        count = running.write_pcap(file)
        session.note(f"{file}: {count} frames")
    if session.json or file is None:
        session.show(FRAMES, _frame_rows(switch, port, running.frames))


def _run_quietly(ctx: click.Context, session: Session, words: Sequence[str]) -> None:
    """Runs a command of the laboratory for what it does, not for what it says."""
    import contextlib
    import io

    name, found, rest = command.resolve_command(ctx, list(words))
    if found is None or found is capture:
        raise click.UsageError("a command of the laboratory other than capture belongs behind --", ctx)
    as_json, session.json = session.json, False
    with contextlib.redirect_stdout(io.StringIO()), found.make_context(name, rest, parent=ctx.parent) as inner:
        found.invoke(inner)
    session.json = as_json


def _frame_rows(switch: str, port: str, frames: list[Frame]) -> list[dict[str, Any]]:
    return [
        FRAMES.row(
            switch,
            port,
            frame.time_ns / 1e9,
            "in" if frame.incoming else "out",
            frame.source,
            frame.destination,
            frame.vlan,
            f"0x{frame.kind:04x}",
            len(frame.data),
            frame.data.hex(),
        )
        for frame in frames
    ]
