"""`kestrel team`: teaming policies of switches and ports, and those that ports follow by name."""

from __future__ import annotations

from collections.abc import Callable
from typing import TYPE_CHECKING, Any, TypeVar

import click

from libkestrel.cli import completing
from libkestrel.cli.commands import Change, noun, switch_argument, switch_argument_or_all
from libkestrel.cli.reading import chosen
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import FLAG, NUMBER, TEXT, Field, optional, several, sheet, table
from libkestrel.cli.values import Word, bits, word

if TYPE_CHECKING:
    from libkestrel.host import NamedTeamingPolicy, Plan, TeamingPolicy

F = TypeVar("F", bound=Callable[..., Any])

_COMMON = (
    Field("balance", TEXT, "How the active ones share the load."),
    Field("active", several(TEXT), "Uplinks and groups in use, in order."),
    Field("standby", several(TEXT), "Those that take over, in order."),
    Field("criteria", several(TEXT), "What makes one fail."),
    Field("flags", several(TEXT), "Further properties."),
)
TEAMS = table(
    "teams",
    Field("switch", TEXT, "The switch."),
    Field("name", optional(TEXT), "The name of the policy; null for the switch's own."),
    *_COMMON,
)
TEAM = sheet(
    "team",
    Field("switch", TEXT, "The switch."),
    Field("port", optional(TEXT), "The port; null for the switch's own policy."),
    *_COMMON,
    Field("speed", NUMBER, "The speed that the speed criteria ask for, in Mbit/s."),
    Field("full_duplex", FLAG, "The duplex mode that the duplex criterion asks for."),
    Field("error_percent", NUMBER, "The share of errors that the errors criterion allows."),
    Field("in_use", optional(TEXT), "The NIC that the port's frames leave through at the moment."),
)


@noun("team")
def command() -> None:
    """Teaming: through which uplinks frames leave."""


def _common(policy: TeamingPolicy | NamedTeamingPolicy) -> tuple[Any, ...]:
    return (
        word("BALANCES", policy.balance),
        list(policy.active),
        list(policy.standby),
        bits("CRITERIA", policy.criteria),
        bits("TEAM_FLAGS", policy.flags),
    )


@command.command("list")
@switch_argument_or_all
@pass_session
def list_(session: Session, switch: str | None) -> None:
    """List the policies of a switch and its named ones, or of all switches."""
    rows = []
    for found in chosen(session.host(), switch):
        rows.append(TEAMS.row(found.name, None, *_common(found.teaming)))
        rows += [TEAMS.row(found.name, team.name, *_common(team)) for team in found.named_teaming]
    session.show(TEAMS, rows)


@command.command()
@switch_argument
@click.argument("port", required=False, shell_complete=completing.ports)
@pass_session
def show(session: Session, switch: str, port: str | None) -> None:
    """Show the teaming policy of a switch or of a port."""
    from libkestrel.cli.reading import or_none

    found = session.host().switch(switch)
    policy = found.teaming if port is None else found.port(port).teaming
    session.show(
        TEAM,
        TEAM.row(
            found.name,
            port,
            *_common(policy),
            policy.speed,
            bool(policy.full_duplex),
            policy.percent_error,
            None if port is None else or_none(found.port(port).uplink_in_use),
        ),
    )


def _policy_options(function: F) -> F:
    """The options of a policy."""
    names = "NAME,..."
    for option in (
        click.option("--flags", type=Word("TEAM_FLAGS", several=True), help="Further properties."),
        click.option("--criteria", type=Word("CRITERIA", several=True), help="What makes one fail."),
        click.option("--standby", metavar=names, help="Those that take over, in order."),
        click.option("--active", metavar=names, help="Uplinks and groups in use, in order."),
        click.option("--balance", type=Word("BALANCES"), help="How the active ones share the load."),
    ):
        function = option(function)
    return function


def _changed(given: dict[str, Any]) -> dict[str, Any]:
    """The members of a policy that options give."""
    from libkestrel.host import LinkCriteria, LoadBalance, TeamingFlags

    kinds: dict[str, Callable[[Any], Any]] = {
        "balance": LoadBalance,
        "criteria": LinkCriteria,
        "flags": TeamingFlags,
        "active": _names,
        "standby": _names,
    }
    return {name: kinds.get(name, lambda same: same)(value) for name, value in given.items() if value is not None}


def _names(text: str) -> tuple[str, ...]:
    return tuple(name for name in text.split(",") if name)


@command.command("set", cls=Change)
@switch_argument
@click.argument("port", required=False, shell_complete=completing.ports)
@_policy_options
@click.option("--speed", type=click.IntRange(0, 65535), help="What the speed criteria ask for, in Mbit/s.")
@click.option("--error-percent", "percent_error", type=click.IntRange(0, 100), help="What the errors criterion allows.")
@pass_session
def set_(session: Session, /, switch: str, port: str | None, **given: Any) -> int:
    """Set what is given of the policy of a switch or a port, and leave the rest."""
    changes = _changed(given)
    if not changes:
        raise click.UsageError("nothing is given to set")

    def collect(plan: Plan) -> None:
        from dataclasses import replace

        found = plan.switch(switch)
        owner = found if port is None else found.port(port)
        owner.ensure_teaming(replace(owner.teaming, **changes))

    return session.change(collect)


@command.command(cls=Change)
@switch_argument
@click.argument("port", required=False, shell_complete=completing.ports)
@pass_session
def clear(session: Session, switch: str, port: str | None) -> int:
    """Bring a policy back to its default: all uplinks for a switch, the switch's policy for a port."""

    def collect(plan: Plan) -> None:
        found = plan.switch(switch)
        (found if port is None else found.port(port)).ensure_default("teaming")

    return session.change(collect)


@command.command(cls=Change)
@switch_argument
@click.argument("name")
@_policy_options
@pass_session
def create(session: Session, /, switch: str, name: str, **given: Any) -> int:
    """Create a named policy, or set what is given of it. Ports follow it with `kestrel port set --follow`."""

    def collect(plan: Plan) -> None:
        from dataclasses import replace

        from libkestrel.host import NamedTeamingPolicy

        found = plan.switch(switch)
        policies = {policy.name: policy for policy in found.named_teaming}
        policies[name] = replace(policies.get(name, NamedTeamingPolicy(name)), **_changed(given))
        found.ensure_named_teaming(policies.values())

    return session.change(collect)


@command.command(cls=Change)
@switch_argument
@click.argument("name", shell_complete=completing.named_teams)
@pass_session
def delete(session: Session, switch: str, name: str) -> int:
    """Delete a named policy, if there is one of that name."""

    def collect(plan: Plan) -> None:
        found = plan.switch(switch)
        found.ensure_named_teaming(policy for policy in found.named_teaming if policy.name != name)

    return session.change(collect)
