"""`kestrel uplink`: uplink ports, the NICs in them, and their links."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import click

from libkestrel.cli import completing
from libkestrel.cli.commands import Change, noun, switch_argument, switch_argument_or_all
from libkestrel.cli.reading import chosen
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import FLAG, TEXT, Field, one_of, optional, sheet, table

if TYPE_CHECKING:
    from libkestrel.host import Plan, Switch

_FIELDS = (
    Field("switch", TEXT, "The switch."),
    Field("uplink", TEXT, "The name of the uplink port."),
    Field("port", TEXT, "Its distributed-port id."),
    Field("nic", optional(TEXT), "The NIC that is plugged in.", "NIC"),
    Field("link", optional(one_of(["up", "down"])), "The link of the NIC."),
    Field("lacp", optional(one_of(["up", "down"])), "Whether LACP has taken it into its group's service.", "LACP"),
    Field("lag", optional(TEXT), "The group that it belongs to.", "LAG"),
)
UPLINKS = table("uplinks", *_FIELDS)
UPLINK = sheet("uplink", *_FIELDS, Field("is_active", FLAG, "Whether the switch's teaming policy has it active."))


@noun("uplink")
def command() -> None:
    """Uplink ports and the links of their NICs."""


def rows(switch: Switch) -> list[dict[str, Any]]:
    """The uplink ports of a switch."""
    nics = {uplink.port: uplink for uplink in switch.uplinks.values()}
    groups = {nic: lag.name for lag in switch.lags for nic in lag.uplinks}
    found = []
    for port in switch.uplink_ports:
        uplink = nics.get(port.port)
        lag = groups.get(uplink.nic) if uplink else None
        found.append(
            UPLINKS.row(
                switch.name,
                port.name,
                port.port,
                uplink.nic if uplink else None,
                _up(uplink.link_up) if uplink else None,
                _up(uplink.lacp_up) if uplink and lag else None,
                lag,
            )
        )
    return found


def _up(is_up: bool) -> str:
    return "up" if is_up else "down"


@command.command("list")
@switch_argument_or_all
@pass_session
def list_(session: Session, switch: str | None) -> None:
    """List the uplinks of a switch, or of all."""
    session.show(UPLINKS, [row for found in chosen(session.host(), switch) for row in rows(found)])


@command.command()
@switch_argument
@click.argument("uplink", shell_complete=completing.uplink_ports)
@pass_session
def show(session: Session, switch: str, uplink: str) -> None:
    """Show one uplink, by its name or that of its NIC."""
    from libkestrel.cli.exits import NOT_FOUND, CommandError

    found = session.host().switch(switch)
    for row in rows(found):
        if uplink in (row["uplink"], row["nic"]):
            session.show(UPLINK, {**row, "is_active": row["uplink"] in found.teaming.active})
            return
    raise CommandError(f"switch {switch} has no uplink {uplink}", NOT_FOUND)


@command.command(cls=Change)
@switch_argument
@click.argument("uplinks", nargs=-1, required=True)
@pass_session
def create(session: Session, switch: str, uplinks: tuple[str, ...]) -> int:
    """Add uplink ports, unless there are some of these names."""

    def collect(plan: Plan) -> None:
        found = plan.switch(switch).uplink_ports
        for uplink in uplinks:
            found.ensure_added(uplink)

    return session.change(collect)


@command.command("set", cls=Change)
@switch_argument
@click.argument("nic", shell_complete=completing.uplinks)
@click.option("--up/--down", default=None, required=True, help="Take the link up or down.")
@pass_session
def set_(session: Session, switch: str, nic: str, up: bool) -> int:
    """Take the link of a NIC up or down, on the host's side."""
    return session.change(lambda plan: plan.switch(switch).uplinks[nic].ensure_admin_up(up))


@command.command(cls=Change)
@switch_argument
@click.argument("uplinks", nargs=-1, required=True, shell_complete=completing.uplink_ports)
@pass_session
def delete(session: Session, switch: str, uplinks: tuple[str, ...]) -> int:
    """Remove uplink ports, those of them that are there."""

    def collect(plan: Plan) -> None:
        found = plan.switch(switch).uplink_ports
        for uplink in uplinks:
            found.ensure_removed(uplink)

    return session.change(collect)
