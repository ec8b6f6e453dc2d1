"""`kestrel switch`: the virtual switches."""

from __future__ import annotations

import uuid
from typing import TYPE_CHECKING, Any

import click

from libkestrel.cli import quick
from libkestrel.cli.commands import Change, noun, switch_argument
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import FLAG, NUMBER, TEXT, Field, several, sheet, table
from libkestrel.cli.values import Word, word, word_of

if TYPE_CHECKING:
    from libkestrel.host import Plan, Switch

SWITCHES = table(
    "switches",
    Field("name", TEXT, "The alias."),
    Field("id", TEXT, "The id of the distributed switch."),
    Field("mtu", NUMBER, "The longest payload of a frame, in bytes."),
    Field("active_ports", NUMBER, "Ports with a client or NIC.", "ACTIVE"),
    Field("max_ports", NUMBER, "The most ports that it can have.", "MAX PORTS"),
)
SWITCH = sheet(
    "switch",
    Field("name", TEXT, "The alias."),
    Field("id", TEXT, "The id of the distributed switch."),
    Field("portset", TEXT, "The name of the portset behind it."),
    Field("version", TEXT, "The version of the distributed switch."),
    Field("mtu", NUMBER, "The longest payload of a frame, in bytes."),
    Field("ports", NUMBER, "Its ports."),
    Field("active_ports", NUMBER, "Ports with a client or NIC."),
    Field("max_ports", NUMBER, "The most ports that it can have."),
    Field("forwarding", FLAG, "Whether it takes traffic."),
    Field("multicast", TEXT, "How multicast frames are filtered."),
    Field("ageing", NUMBER, "Seconds until a learned address is forgotten."),
    Field("mac_limit", NUMBER, "The most addresses that are learned."),
    Field("learned", NUMBER, "Addresses that are learned at the moment."),
    Field("uplinks", several(TEXT), "The uplink ports, in order."),
    Field("lags", several(TEXT), "The link aggregation groups."),
)

SETTINGS = {
    "mtu": "mtu",
    "forwarding": "forwarding_disabled",
    "learning": "mac_learning",
    "learn-static": "learn_static",
    "static-mac-allow": "static_mac_allow",
}
"""What can be cleared, and the settings of the object."""


@noun("switch")
def command() -> None:
    """The virtual switches of the host."""


@command.command("list")
@pass_session
def list_(session: Session) -> None:
    """List the switches."""
    session.ready()
    session.show(SWITCHES, quick.switches())


@command.command()
@switch_argument
@pass_session
def show(session: Session, switch: str) -> None:
    """Show one switch in full."""
    session.show(SWITCH, described(session.host().switch(switch)))


def described(switch: Switch) -> dict[str, Any]:
    """A switch as its sheet."""
    info, learning = switch.info(), switch.mac_learning_state()
    return SWITCH.row(
        switch.name,
        info.id,
        switch.portset,
        word("VERSIONS", switch.stored.version),
        info.mtu,
        len(switch.ports),
        info.active_ports,
        info.max_ports,
        not switch.forwarding_disabled,
        word_of(switch.multicast_mode),
        learning.aging_time,
        learning.limit,
        learning.learned,
        [port.name for port in switch.uplink_ports],
        [lag.name for lag in switch.lags],
    )


@command.command(cls=Change)
@click.argument("name")
@click.option("--id", "switch_id", metavar="ID", help="Its id. [a new UUID]")
@click.option("--mtu", type=click.IntRange(1280, 9000), help="The longest payload of a frame, in bytes. [1500]")
@click.option("--max-ports", type=click.IntRange(1, 60000), default=128, show_default=True, help="How many ports.")
@click.option("--version", type=Word("VERSIONS"), default="7.0", show_default=True, help="Its version.")
@click.option("--uplink", "uplinks", multiple=True, metavar="NAME", help="An uplink port; several in order.")
@pass_session
def create(
    session: Session, name: str, switch_id: str | None, mtu: int | None, max_ports: int, version: int,
    uplinks: tuple[str, ...],
) -> int:  # fmt: skip
    """Create a switch, unless there is one of that name."""

    def collect(plan: Plan) -> None:
        if plan.switches.ensure_created(
            name, switch_id or str(uuid.uuid4()), max_ports=max_ports, mtu=mtu or 1500, version=version
        ):
            for uplink in uplinks:
                plan.switches[name].uplink_ports.add(uplink)

    return session.change(collect)


@command.command("set", cls=Change)
@switch_argument
@click.option("--mtu", type=click.IntRange(1280, 9000), help="The longest payload of a frame, in bytes.")
@click.option("--max-ports", type=click.IntRange(1, 60000), help="The most ports that it can have.")
@click.option("--version", type=Word("VERSIONS"), help="Its version.")
@click.option("--forwarding/--no-forwarding", default=None, help="Whether it takes traffic.")
@click.option("--ageing", type=click.IntRange(1, 1_000_000), help="Seconds until a learned address is forgotten.")
@click.option("--mac-limit", type=click.IntRange(0, 2**32 - 1), help="The most addresses that are learned.")
@click.option("--learn-static/--no-learn-static", default=None, help="Learn clients' own addresses on uplinks too.")
@click.option("--static-mac-allow/--no-static-mac-allow", default=None, help="Let ports learn others' own addresses.")
@pass_session
def set_(session: Session, /, switch: str, **wanted: Any) -> int:
    """Set what is given, and leave the rest."""
    _something(wanted)

    def collect(plan: Plan) -> None:
        from libkestrel.host import SwitchLearning

        found = plan.switch(switch)
        ensure = {
            "mtu": found.ensure_mtu,
            "max_ports": found.stored.ensure_max_ports,
            "version": found.stored.ensure_version,
            "forwarding": lambda on: found.ensure_forwarding_disabled(not on),
            "learn_static": found.ensure_learn_static,
            "static_mac_allow": found.ensure_static_mac_allow,
        }
        for name, value in wanted.items():
            if value is not None and name in ensure:
                ensure[name](value)
        if wanted["ageing"] is not None or wanted["mac_limit"] is not None:
            now = found.mac_learning
            ageing = now.aging_time if wanted["ageing"] is None else wanted["ageing"]
            limit = now.limit if wanted["mac_limit"] is None else wanted["mac_limit"]
            found.ensure_mac_learning(SwitchLearning(ageing, limit))

    return session.change(collect)


def _something(wanted: dict[str, Any]) -> None:
    if all(value is None for value in wanted.values()):
        raise click.UsageError("nothing is given to set")


@command.command(cls=Change)
@switch_argument
@click.argument(
    "settings", metavar=f"[{'|'.join(SETTINGS)}]...", nargs=-1, required=True, type=click.Choice(list(SETTINGS))
)
@pass_session
def clear(session: Session, switch: str, settings: tuple[str, ...]) -> int:
    """Bring settings back to their defaults."""
    names = [SETTINGS[setting] for setting in settings]
    return session.change(lambda plan: plan.switch(switch).ensure_default(*names))


@command.command(cls=Change)
@switch_argument
@pass_session
def delete(session: Session, switch: str) -> int:
    """Delete a switch, if there is one of that name."""
    return session.change(lambda plan: plan.switches.ensure_destroyed(switch))
