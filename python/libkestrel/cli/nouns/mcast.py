"""`kestrel mcast`: multicast filtering."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import click

from libkestrel.cli import completing
from libkestrel.cli.commands import Change, noun, switch_argument, switch_argument_or_all
from libkestrel.cli.reading import chosen
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import TEXT, Field, one_of, several, sheet, table
from libkestrel.cli.values import MAC, word_of

if TYPE_CHECKING:
    from collections.abc import Callable

    from libkestrel.host import Plan
    from libkestrel.records import MacAddress

MODES = ("legacy", "snooping")
GROUPS = table(
    "groups",
    Field("switch", TEXT, "The switch."),
    Field("port", TEXT, "The distributed-port id."),
    Field("group", TEXT, "A group: an Ethernet address with legacy filtering, an IP address with snooping."),
    Field("by", one_of(["legacy", "igmp", "mld"]), "What let the port have it."),
)
FILTERING = sheet(
    "multicast",
    Field("switch", TEXT, "The switch."),
    Field("mode", one_of(MODES), "How multicast frames are filtered."),
    Field("in_use", one_of(MODES), "The mode in force on the running switch."),
    Field("addresses", several(TEXT), "The addresses that legacy filtering lets through to every port."),
)


@noun("mcast")
def command() -> None:
    """Multicast filtering."""


@command.command("list")
@switch_argument_or_all
@pass_session
def list_(session: Session, switch: str | None) -> None:
    """List the groups that the ports of a switch receive, or of all."""
    rows: list[dict[str, Any]] = []
    for port in (port for found in chosen(session.host(), switch) for port in found.ports.values()):
        for by, read in (
            ("legacy", port.multicast_addresses),
            ("igmp", port.igmp_groups),
            ("mld", port.mld_groups),
        ):
            rows += [GROUPS.row(port.switch, port.id, str(group), by) for group in read()]
    session.show(GROUPS, rows)


@command.command()
@switch_argument
@pass_session
def show(session: Session, switch: str) -> None:
    """Show how a switch filters."""
    found = session.host().switch(switch)
    session.show(
        FILTERING,
        FILTERING.row(
            found.name,
            word_of(found.multicast_mode),
            word_of(found.multicast_mode_in_use()),
            [str(address) for address in found.multicast_entries],
        ),
    )


@command.command("set", cls=Change)
@switch_argument
@click.argument("mode", type=click.Choice(MODES))
@pass_session
def set_(session: Session, switch: str, mode: str) -> int:
    """Set how a switch filters: by adapters' addresses, or by the groups that clients join."""
    from libkestrel.host import MulticastMode

    return session.change(lambda plan: plan.switch(switch).ensure_multicast_mode(MulticastMode[mode.upper()]))


def _edited(switch: str, port: str | None, edit: Callable[[tuple[MacAddress, ...]], Any]) -> Callable[[Plan], None]:
    """Changes the addresses of a switch, or of a port."""

    def collect(plan: Plan) -> None:
        found = plan.switch(switch)
        owner = found if port is None else found.port(port)
        owner.ensure_multicast_entries(edit(owner.multicast_entries))

    return collect


_port_option = click.option("--port", shell_complete=completing.ports, help="Of this port alone. [all ports]")


@command.command(cls=Change)
@switch_argument
@click.argument("address", type=MAC)
@_port_option
@pass_session
def create(session: Session, switch: str, address: MacAddress, port: str | None) -> int:
    """Let an address through legacy filtering."""
    return session.change(_edited(switch, port, lambda now: now if address in now else (*now, address)))


@command.command(cls=Change)
@switch_argument
@click.argument("address", type=MAC)
@_port_option
@pass_session
def delete(session: Session, switch: str, address: MacAddress, port: str | None) -> int:
    """No longer let an address through."""
    return session.change(_edited(switch, port, lambda now: tuple(each for each in now if each != address)))


@command.command(cls=Change)
@switch_argument
@_port_option
@pass_session
def clear(session: Session, switch: str, port: str | None) -> int:
    """No longer let any address through."""

    def collect(plan: Plan) -> None:
        found = plan.switch(switch)
        (found if port is None else found.port(port)).ensure_default("multicast_entries")

    return session.change(collect)
