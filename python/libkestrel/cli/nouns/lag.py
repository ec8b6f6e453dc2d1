"""`kestrel lag`: link aggregation groups."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import click

from libkestrel.cli import completing
from libkestrel.cli.commands import Change, noun, switch_argument, switch_argument_or_all
from libkestrel.cli.exits import NOT_FOUND, CommandError
from libkestrel.cli.reading import chosen
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import NUMBER, TEXT, Field, one_of, several, sheet, table

if TYPE_CHECKING:
    from libkestrel.host import Plan, Switch

_FIELDS = (
    Field("switch", TEXT, "The switch."),
    Field("name", TEXT, "The name of the group."),
    Field("id", NUMBER, "Its number in the switch.", "ID"),
    Field("state", one_of(["up", "down"]), "Whether it carries traffic."),
    Field("nics", several(TEXT), "Its NICs.", "NICS"),
    Field("links_up", several(TEXT), "Those of them whose links are up."),
)
LAGS, LAG = table("lags", *_FIELDS), sheet("lag", *_FIELDS)


@noun("lag")
def command() -> None:
    """Link aggregation groups."""


def rows(switch: Switch) -> list[dict[str, Any]]:
    """The groups of a switch."""
    return [
        LAGS.row(switch.name, lag.name, lag.id, "up" if lag.up else "down", list(lag.uplinks), list(lag.uplinks_up))
        for lag in switch.lags
    ]


@command.command("list")
@switch_argument_or_all
@pass_session
def list_(session: Session, switch: str | None) -> None:
    """List the groups of a switch, or of all."""
    session.show(LAGS, [row for found in chosen(session.host(), switch) for row in rows(found)])


@command.command()
@switch_argument
@click.argument("name", shell_complete=completing.lags)
@pass_session
def show(session: Session, switch: str, name: str) -> None:
    """Show one group."""
    for row in rows(session.host().switch(switch)):
        if row["name"] == name:
            session.show(LAG, row)
            return
    raise CommandError(f"switch {switch} has no link aggregation group {name}", NOT_FOUND)


@command.command(cls=Change)
@switch_argument
@click.argument("name")
@click.argument("uplinks", nargs=-1, required=True, shell_complete=completing.uplink_ports)
@click.option("--id", "number", type=click.IntRange(0, 2**32 - 1), help="Its number. [the lowest free one]")
@pass_session
def create(session: Session, switch: str, name: str, uplinks: tuple[str, ...], number: int | None) -> int:
    """Make a group of uplink ports, unless there is one of that name. Of the embedded host alone."""

    def collect(plan: Plan) -> None:
        from libkestrel.cli import steps

        found = plan.switch(switch)
        if name not in [lag.name for lag in found.lags]:
            plan.take(steps.add_lag(found, name, uplinks, number))

    return session.change(collect)


@command.command(cls=Change)
@switch_argument
@click.argument("name", shell_complete=completing.lags)
@pass_session
def delete(session: Session, switch: str, name: str) -> int:
    """End a group, if there is one of that name. Of the embedded host alone."""

    def collect(plan: Plan) -> None:
        from libkestrel.cli import steps

        found = plan.switch(switch)
        if name in [lag.name for lag in found.lags]:
            plan.take(steps.remove_lag(found, name))

    return session.change(collect)
