"""`kestrel vlan`: the VLAN policies of ports."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import click

from libkestrel.cli.commands import Change, noun, port_argument, switch_argument_or_all
from libkestrel.cli.reading import chosen
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import FLAG, NUMBER, TEXT, Field, one_of, optional, several, sheet, table
from libkestrel.cli.values import RANGES, VLAN, ranges_text

if TYPE_CHECKING:
    from libkestrel.host import Port, VlanPolicy

_FIELDS = (
    Field("switch", TEXT, "The switch."),
    Field("port", TEXT, "The distributed-port id."),
    Field(
        "mode", one_of(["access", "trunk", "private"]), "access: one VLAN; trunk: several; private: a secondary VLAN."
    ),
    Field("vlan", optional(NUMBER), "The VLAN, 0 for untagged; null for a trunk.", ""),
    Field("trunk", several(TEXT), 'VLANs and ranges of a trunk, such as "10-19".', ""),
    Field("vlans", TEXT, "The VLANs in words."),
    Field("set_priority", FLAG, "Whether the port's own priority replaces that of its frames."),
    Field("is_default", FLAG, "Whether nothing is set, so that the default holds."),
)
VLANS, ONE = table("vlans", *_FIELDS), sheet("vlan", *_FIELDS)


@noun("vlan")
def command() -> None:
    """VLANs of ports: access, trunk, private."""


def row(port: Port) -> dict[str, Any]:
    """The VLAN policy of a port as a row."""
    import _libkestrel as flat

    from libkestrel.host import AccessVlan, TrunkVlan

    policy = port.vlan
    is_default = flat.VSPROP_PORT_VLAN not in port.properties
    if isinstance(policy, TrunkVlan):
        trunk = ranges_text(policy.ranges)
        values: tuple[Any, ...] = "trunk", None, trunk.split(","), trunk
    elif isinstance(policy, AccessVlan):
        values = "access", policy.vlan, [], str(policy.vlan) if policy.vlan else "untagged"
    else:
        values = "private", policy.secondary, [], str(policy.secondary)
    return VLANS.row(port.switch, port.id, *values, policy.set_priority, is_default)


@command.command("list")
@switch_argument_or_all
@pass_session
def list_(session: Session, switch: str | None) -> None:
    """List the VLAN policies of a switch's ports, or of all."""
    session.show(VLANS, [row(port) for found in chosen(session.host(), switch) for port in found.ports.values()])


@command.command()
@port_argument
@pass_session
def show(session: Session, switch: str, port: str) -> None:
    """Show the VLAN policy of a port."""
    session.show(ONE, row(session.host().switch(switch).port(port)))


@command.command("set", cls=Change)
@port_argument
@click.argument("vlan", type=VLAN, required=False)
@click.option("--trunk", type=RANGES, help="The VLANs of a trunk, such as 5,10-19.")
@click.option("--private", type=click.IntRange(1, 4094), help="The secondary VLAN of a private VLAN port.")
@click.option("--set-priority", is_flag=True, help="Let the port's own priority replace that of its frames.")
@pass_session
def set_(
    session: Session, switch: str, port: str, vlan: int | None, trunk: Any, private: int | None, set_priority: bool
) -> int:
    """Put a port into a VLAN: its number, or --trunk, or --private."""
    from libkestrel.host import AccessVlan, PrivateVlan, TrunkVlan

    given = [kind for kind, value in (("VLAN", vlan), ("--trunk", trunk), ("--private", private)) if value is not None]
    if len(given) != 1:
        raise click.UsageError(f"one of VLAN, --trunk and --private is given, not {' and '.join(given) or 'none'}")
    policy: VlanPolicy
    if trunk is not None:
        policy = TrunkVlan(trunk, set_priority)
    elif private is not None:
        policy = PrivateVlan(private, set_priority)
    else:
        policy = AccessVlan(vlan or 0, set_priority)
    return session.change(lambda plan: plan.switch(switch).port(port).ensure_vlan(policy))


@command.command(cls=Change)
@port_argument
@pass_session
def clear(session: Session, switch: str, port: str) -> int:
    """Bring the VLAN policy of a port back to its default, untagged."""
    return session.change(lambda plan: plan.switch(switch).port(port).ensure_default("vlan"))
