"""`kestrel port`: the distributed ports of a switch."""

from __future__ import annotations

from collections.abc import Callable
from typing import TYPE_CHECKING, Any

import click

from libkestrel.cli import completing
from libkestrel.cli.commands import Change, noun, port_argument, switch_argument, switch_argument_or_all
from libkestrel.cli.reading import chosen
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import FLAG, NUMBER, TEXT, Field, Shape, optional, several, sheet, table
from libkestrel.cli.values import security_words, vlan_text, word_of

if TYPE_CHECKING:
    from libkestrel.host import Plan, Port
    from libkestrel.lab import Client

PORTS = table(
    "ports",
    Field("switch", TEXT, "The switch."),
    Field("port", TEXT, "The distributed-port id."),
    Field("vlan", TEXT, "The VLAN policy."),
    Field("client", optional(TEXT), "Who is plugged in, as far as the platform tells."),
    Field("mac", optional(TEXT), "The address of the client."),
    Field("blocked", FLAG, "Whether it passes nothing."),
)
PORT = sheet(
    "port",
    Field("switch", TEXT, "The switch."),
    Field("port", TEXT, "The distributed-port id."),
    Field("number", NUMBER, "The switch port identifier, by which tables of the platform name it."),
    Field("alias", optional(TEXT), "Its alias."),
    Field("vlan", TEXT, "The VLAN policy."),
    Field("nested_tagging", FLAG, "Whether the client may tag inside of the port's VLAN."),
    Field("client", optional(TEXT), "Who is plugged in, as far as the platform tells."),
    Field("mac", optional(TEXT), "The address of the client."),
    Field("blocked", FLAG, "Whether it passes nothing."),
    Field("sink", FLAG, "Whether it receives what nobody else wants."),
    Field("allowed", several(TEXT), "What the security policy allows: promiscuous, mac-changes, forged."),
    Field("learning", FLAG, "Whether it learns addresses."),
    Field("flooding", FLAG, "Whether it receives frames for addresses that nobody knows."),
    Field("mac_limit", NUMBER, "How many addresses it learns."),
    Field("at_limit", TEXT, "What becomes of frames from further addresses."),
    Field("uplink", optional(TEXT), "The uplink port that it is tied to."),
    Field("follows", optional(TEXT), "The named teaming policy that it follows."),
    Field("always_uplink", FLAG, "Whether frames leave through an uplink even for clients of the switch."),
    Field("mirrors", several(TEXT), "Its mirror sessions."),
)

SETTINGS = {
    "vlan": "vlan",
    "nested-tagging": "nested_tagging",
    "block": "blocked",
    "alias": "alias",
    "security": "security",
    "learning": "mac_learning",
    "filter": "ethernet_filter",
    "teaming": "teaming",
    "uplink": "teaming_override",
    "follow": "named_teaming",
    "always-uplink": "always_uplink",
    "multicast": "multicast_entries",
    "mirrors": "mirror_sessions",
}
"""What can be cleared, and the settings of the object."""


@noun("port")
def command() -> None:
    """The ports of a switch."""


def clients_of(switch: str) -> dict[str, Client]:
    """Who is plugged into the ports of a switch; nobody on a platform that does not tell."""
    from libkestrel import lab

    try:
        return {client.port: client for client in lab.clients(switch)}
    except lab.NotEmbeddedError:
        return {}


def listed(shape: Shape, port: Port, client: Client | None) -> dict[str, Any]:
    """A port as a row."""
    return shape.row(
        port.switch,
        port.id,
        vlan_text(port.vlan),
        client.name if client else None,
        client.used_mac if client else None,
        port.blocked,
    )


@command.command("list")
@switch_argument_or_all
@click.option("--vlan", type=click.IntRange(0, 4094), help="Only ports whose policy has this VLAN.")
@pass_session
def list_(session: Session, switch: str | None, vlan: int | None) -> None:
    """List the ports of a switch, or of all."""
    rows = []
    for found in chosen(session.host(), switch):
        clients = clients_of(found.name)
        ports = [port for port in found.ports.values() if vlan is None or _has_vlan(port, vlan)]
        rows += [listed(PORTS, port, clients.get(port.id)) for port in ports]
    session.show(PORTS, rows)


def _has_vlan(port: Port, vlan: int) -> bool:
    from libkestrel.host import AccessVlan, TrunkVlan

    policy = port.vlan
    if isinstance(policy, TrunkVlan):
        return any(low <= vlan <= high for low, high in policy.ranges)
    return vlan == (policy.vlan if isinstance(policy, AccessVlan) else policy.secondary)


@command.command()
@port_argument
@pass_session
def show(session: Session, switch: str, port: str) -> None:
    """Show one port in full."""
    from libkestrel.cli.reading import or_none

    found = session.host().switch(switch).port(port)
    client = clients_of(found.switch).get(port)
    learning = found.mac_learning
    session.show(
        PORT,
        PORT.row(
            found.switch,
            found.id,
            found.number,
            or_none(lambda: found.alias),
            vlan_text(found.vlan),
            found.nested_tagging,
            client.name if client else None,
            client.used_mac if client else None,
            found.blocked,
            found.sink,
            [word for word, is_allowed in security_words(found.security).items() if is_allowed],
            learning.learning,
            learning.flooding,
            learning.limit,
            word_of(learning.beyond),
            or_none(lambda: found.teaming_override),
            or_none(lambda: found.named_teaming),
            found.always_uplink,
            [session.id for session in found.mirror_sessions],
        ),
    )


@command.command(cls=Change)
@switch_argument
@click.argument("ports", nargs=-1, required=True)
@click.option("--vlan", type=click.IntRange(0, 4094), help="Their access VLAN.")
@pass_session
def create(session: Session, switch: str, ports: tuple[str, ...], vlan: int | None) -> int:
    """Create ports, unless there are ports of these ids."""

    def collect(plan: Plan) -> None:
        from libkestrel.host import AccessVlan

        found = plan.switch(switch)
        for port in ports:
            found.ports.ensure_added(port)
            if vlan is not None:
                found.port(port).ensure_vlan(AccessVlan(vlan))

    return session.change(collect)


@command.command("set", cls=Change)
@port_argument
@click.option("--block/--no-block", default=None, help="Pass no traffic.")
@click.option("--alias", help="Its alias.")
@click.option("--nested-tagging/--no-nested-tagging", default=None, help="Let the client tag inside of its VLAN.")
@click.option("--promiscuous/--no-promiscuous", default=None, help="Let the client see frames for others.")
@click.option("--mac-changes/--no-mac-changes", default=None, help="Let the client take another address.")
@click.option("--forged/--no-forged", default=None, help="Let the client send from addresses that are not its own.")
@click.option("--learning/--no-learning", default=None, help="Learn addresses behind the port.")
@click.option("--flooding/--no-flooding", default=None, help="Receive frames for addresses that nobody knows.")
@click.option("--mac-limit", type=click.IntRange(0, 4096), help="How many addresses are learned.")
@click.option("--at-limit", type=click.Choice(["allow", "drop"]), help="What becomes of frames beyond the limit.")
@click.option("--sink/--no-sink", default=None, help="Receive what nobody else wants.")
@click.option("--uplink", shell_complete=completing.uplink_ports, metavar="NAME", help="Tie it to an uplink or group.")
@click.option("--follow", shell_complete=completing.named_teams, metavar="NAME", help="Follow a named teaming policy.")
@click.option("--always-uplink/--no-always-uplink", default=None, help="Leave through an uplink always.")
@pass_session
def set_(session: Session, /, switch: str, port: str, **wanted: Any) -> int:
    """Set what is given, and leave the rest."""
    given = {name: value for name, value in wanted.items() if value is not None}
    if not given:
        raise click.UsageError("nothing is given to set")

    def collect(plan: Plan) -> None:
        found = plan.switch(switch).port(port)
        ensure: dict[str, Callable[[Any], object]] = {
            "block": found.ensure_blocked,
            "alias": found.ensure_alias,
            "nested_tagging": found.ensure_nested_tagging,
            "sink": found.ensure_sink,
            "uplink": found.ensure_teaming_override,
            "follow": found.ensure_named_teaming,
            "always_uplink": found.ensure_always_uplink,
        }
        for name, value in given.items():
            if name in ensure:
                ensure[name](value)
        _ensure_security(found, given)
        _ensure_learning(found, given)

    return session.change(collect)


def _ensure_security(port: Port, given: dict[str, Any]) -> None:
    from dataclasses import replace

    members = {"promiscuous": "promiscuous", "mac_changes": "mac_changes", "forged": "forged_transmits"}
    changes = {member: given[name] for name, member in members.items() if name in given}
    if changes:
        port.ensure_security(replace(port.security, **changes))


def _ensure_learning(port: Port, given: dict[str, Any]) -> None:
    from dataclasses import replace

    from libkestrel.host import LimitPolicy

    changes: dict[str, Any] = {name: given[name] for name in ("learning", "flooding") if name in given}
    if "mac_limit" in given:
        changes["limit"] = given["mac_limit"]
    if "at_limit" in given:
        changes["beyond"] = LimitPolicy[given["at_limit"].upper()]
    if changes:
        port.ensure_mac_learning(replace(port.mac_learning, **changes))


@command.command(cls=Change)
@port_argument
@click.argument(
    "settings", metavar=f"[{'|'.join(SETTINGS)}]...", nargs=-1, required=True, type=click.Choice(list(SETTINGS))
)
@pass_session
def clear(session: Session, switch: str, port: str, settings: tuple[str, ...]) -> int:
    """Bring settings back to their defaults."""
    names = [SETTINGS[setting] for setting in settings]
    return session.change(lambda plan: plan.switch(switch).port(port).ensure_default(*names))


@command.command(cls=Change)
@switch_argument
@click.argument("ports", nargs=-1, required=True, shell_complete=completing.ports)
@pass_session
def delete(session: Session, switch: str, ports: tuple[str, ...]) -> int:
    """Delete ports, those of them that are there."""

    def collect(plan: Plan) -> None:
        found = plan.switch(switch)
        for port in ports:
            found.ports.ensure_removed(port)

    return session.change(collect)
