"""`kestrel mac`: which address is behind which port."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import click

from libkestrel.cli import completing
from libkestrel.cli.commands import Change, noun, port_argument, switch_argument_or_all
from libkestrel.cli.exits import NOT_FOUND, CommandError
from libkestrel.cli.reading import chosen
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import FLAG, NUMBER, TEXT, Field, one_of, table
from libkestrel.cli.values import MAC, VLAN

if TYPE_CHECKING:
    from libkestrel.host import Plan, Switch
    from libkestrel.records import MacAddress

KINDS = ("static", "user", "learned")
MACS = table(
    "macs",
    Field("switch", TEXT, "The switch."),
    Field("vlan", NUMBER, "The VLAN.", "VLAN"),
    Field("mac", TEXT, "The address.", "MAC"),
    Field("port", TEXT, "The distributed-port id of the port that it is behind."),
    Field("kind", one_of(KINDS), "static: a client's own; user: entered by hand; learned: from frames."),
    Field("ageing", FLAG, "Whether it is forgotten in time."),
    Field("age", NUMBER, "Seconds since its last frame."),
    Field("moves", NUMBER, "How often it has moved."),
)
LEARNING_OPTIONS = ("ageing", "limit", "learn_static", "static_mac_allow")


@noun("mac")
def command() -> None:
    """MAC tables and learning."""


def rows(switch: Switch, port: str | None, kind: str | None) -> list[dict[str, Any]]:
    """The MAC table of a switch, or a port's part of it."""
    from libkestrel.host import MacKind

    wanted = MacKind[kind.upper()] if kind else MacKind.ALL
    owner = switch if port is None else switch.port(port)
    # Asking each port for its number takes longer than most tables.
    named = switch.ports.values() if port is None else (switch.port(port),)
    ports = {each.number: each.id for each in named}
    with owner.mac_table(wanted) as table:
        return [
            MACS.row(
                switch.name,
                entry.vid,
                str(entry.macAddress),
                ports.get(entry.portID, f"#{entry.portID}"),
                MacKind(entry.macAddrType).name.lower(),
                bool(entry.aging),
                entry.elapsed,
                entry.macMove,
            )
            for entry in table
        ]


@command.command("list")
@switch_argument_or_all
@click.argument("port", required=False, shell_complete=completing.ports)
@click.option("--vlan", type=VLAN, help="Only addresses of this VLAN.")
@click.option("--kind", type=click.Choice(KINDS), help="Only addresses of this kind.")
@pass_session
def list_(session: Session, switch: str | None, port: str | None, vlan: int | None, kind: str | None) -> None:
    """List the addresses of all switches, of one, or behind one port."""
    found = [row for each in chosen(session.host(), switch) for row in rows(each, port, kind)]
    session.show(MACS, [row for row in found if vlan is None or row["vlan"] == vlan])


@command.command()
@click.argument("address", type=MAC)
@pass_session
def show(session: Session, address: MacAddress) -> None:
    """Find an address: on which switch and behind which port it is."""
    found = [
        row for each in session.host().switches.values() for row in rows(each, None, None) if row["mac"] == str(address)
    ]
    if not found:
        raise CommandError(f"no switch knows {address}", NOT_FOUND)
    session.show(MACS, found)


@command.command(cls=Change)
@port_argument
@click.argument("address", type=MAC)
@click.option("--vlan", type=VLAN, default=0, help="The VLAN.")
@pass_session
def create(session: Session, switch: str, port: str, address: MacAddress, vlan: int) -> int:
    """Enter an address behind a port by hand."""
    return session.change(lambda plan: plan.switch(switch).port(port).ensure_mac(address, vlan))


@command.command(cls=Change)
@port_argument
@click.argument("address", type=MAC)
@click.option("--vlan", type=VLAN, default=0, help="The VLAN.")
@pass_session
def delete(session: Session, switch: str, port: str, address: MacAddress, vlan: int) -> int:
    """Remove an address that was entered by hand."""
    return session.change(lambda plan: plan.switch(switch).port(port).ensure_no_mac(address, vlan))


@command.command("set", cls=Change)
@click.option("--ageing", type=click.IntRange(1, 1_000_000), help="Seconds until a learned address is forgotten.")
@click.option("--limit", type=click.IntRange(0, 2**32 - 1), help="The most addresses of a switch.")
@click.option("--learn-static/--no-learn-static", default=None, help="Learn clients' own addresses on uplinks too.")
@click.option("--static-mac-allow/--no-static-mac-allow", default=None, help="Let ports learn others' own addresses.")
@pass_session
def set_(session: Session, /, **wanted: Any) -> int:
    """Set the host's defaults of learning. A switch's own are set with `kestrel switch set`."""
    names = dict(zip(LEARNING_OPTIONS, ("aging_time", "limit", "learn_static", "static_mac_allow"), strict=True))
    changes = {names[name]: value for name, value in wanted.items() if value is not None}
    if not changes:
        raise click.UsageError("nothing is given to set")

    def collect(plan: Plan) -> None:
        from dataclasses import replace

        plan.ensure_mac_learning(replace(plan.mac_learning, **changes))

    return session.change(collect)
