"""`kestrel pvlan`: the private VLAN map of a switch."""

from __future__ import annotations

from typing import TYPE_CHECKING

import click

from libkestrel.cli.commands import Change, noun, switch_argument, switch_argument_or_all
from libkestrel.cli.reading import chosen
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import NUMBER, TEXT, Field, one_of, table
from libkestrel.cli.values import word_of

if TYPE_CHECKING:
    from libkestrel.host import Plan

KINDS = ("promiscuous", "isolated", "community")
PAIRS = table(
    "pvlans",
    Field("switch", TEXT, "The switch."),
    Field("primary", NUMBER, "The primary VLAN."),
    Field("secondary", NUMBER, "The secondary VLAN; the primary itself where it is promiscuous."),
    Field("kind", one_of(KINDS), "Who hears whom in the secondary VLAN."),
)
VLAN = click.IntRange(1, 4094)


@noun("pvlan")
def command() -> None:
    """Private VLANs of a switch."""


@command.command("list")
@switch_argument_or_all
@pass_session
def list_(session: Session, switch: str | None) -> None:
    """List the pairs of private VLAN maps."""
    session.show(
        PAIRS,
        [
            PAIRS.row(found.name, entry.primary, entry.secondary, word_of(entry.kind))
            for found in chosen(session.host(), switch)
            for entry in found.private_vlans
        ],
    )


@command.command(cls=Change)
@switch_argument
@click.argument("primary", type=VLAN)
@click.argument("secondary", type=VLAN)
@click.argument("kind", type=click.Choice(KINDS))
@pass_session
def create(session: Session, switch: str, primary: int, secondary: int, kind: str) -> int:
    """Enter a pair, with the primary VLAN's own where that is not there yet."""

    def collect(plan: Plan) -> None:
        from libkestrel.host import PrivateVlanEntry, PrivateVlanKind

        found = plan.switch(switch)
        wanted = PrivateVlanEntry(primary, secondary, PrivateVlanKind[kind.upper()])
        entries = [e for e in found.private_vlans if e.secondary != secondary or e == wanted]
        own = PrivateVlanEntry(primary, primary, PrivateVlanKind.PROMISCUOUS)
        entries += [e for e in dict.fromkeys((own, wanted)) if e not in entries]
        found.ensure_private_vlans(entries)

    return session.change(collect)


@command.command(cls=Change)
@switch_argument
@click.argument("secondary", type=VLAN)
@pass_session
def delete(session: Session, switch: str, secondary: int) -> int:
    """Remove the pair of a secondary VLAN; for a primary VLAN its whole family."""

    def collect(plan: Plan) -> None:
        found = plan.switch(switch)
        found.ensure_private_vlans(e for e in found.private_vlans if secondary not in (e.secondary, e.primary))

    return session.change(collect)


@command.command(cls=Change)
@switch_argument
@pass_session
def clear(session: Session, switch: str) -> int:
    """Empty the private VLAN map."""
    return session.change(lambda plan: plan.switch(switch).ensure_default("private_vlans"))
