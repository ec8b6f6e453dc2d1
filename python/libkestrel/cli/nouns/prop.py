"""`kestrel prop`: properties, bytes under keys."""

from __future__ import annotations

from collections.abc import Callable
from typing import TYPE_CHECKING, Any, TypeVar

import click

from libkestrel.cli import completing
from libkestrel.cli.commands import Change, noun, switch_argument
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import NUMBER, TEXT, Field, optional, several, sheet, table
from libkestrel.cli.values import HEX, bytes_text, words_of

if TYPE_CHECKING:
    from libkestrel.host import Host, Plan, Properties, Switch

F = TypeVar("F", bound=Callable[..., Any])

_FIELDS = (
    Field("switch", TEXT, "The switch."),
    Field("port", optional(TEXT), "The port, of a port's property."),
    Field("key", TEXT, "The key."),
    Field("value", TEXT, "The bytes in hexadecimal digits.", ""),
    Field("text", TEXT, "The bytes as people read them."),
    Field("length", NUMBER, "How many bytes they are."),
)
PROPERTIES = table("properties", *_FIELDS, Field("kinds", several(TEXT), "Where it comes from and how long it lasts."))
PROPERTY = sheet("property", *_FIELDS)


@noun("prop")
def command() -> None:
    """Properties of switches and ports: bytes under keys."""


def _place_options(function: F) -> F:
    """Whose properties."""
    of_host = click.option("--host-part", is_flag=True, help="Of this host's part of the switch.")
    return click.option("--port", shell_complete=completing.ports, help="Of this port.")(of_host(function))


def _properties(switch: Switch, port: str | None, host_part: bool) -> Properties:
    if port is not None and host_part:
        raise click.UsageError("one of --port and --host-part is given, not both")
    if port is not None:
        return switch.port(port).properties
    return switch.host_properties if host_part else switch.properties


def _of(host: Host | Plan, switch: str, port: str | None, host_part: bool) -> Properties:
    return _properties(host.switch(switch), port, host_part)


@command.command("list")
@switch_argument
@_place_options
@pass_session
def list_(session: Session, switch: str, port: str | None, host_part: bool) -> None:
    """List the properties that are set."""
    found = _of(session.host(), switch, port, host_part).list()
    rows = [
        PROPERTIES.row(switch, port, p.key, p.value.hex(), bytes_text(p.value), len(p.value), words_of(p.kind))
        for p in found
    ]
    session.show(PROPERTIES, rows)


@command.command()
@switch_argument
@click.argument("key")
@_place_options
@pass_session
def show(session: Session, switch: str, key: str, port: str | None, host_part: bool) -> None:
    """Show a property, or the default where it has one."""
    value = _of(session.host(), switch, port, host_part)[key]
    session.show(PROPERTY, PROPERTY.row(switch, port, key, value.hex(), bytes_text(value), len(value)))


@command.command("set", cls=Change)
@switch_argument
@click.argument("key")
@click.argument("text", required=False)
@click.option("--hex", "data", type=HEX, help="The value as bytes in hexadecimal digits.")
@click.option("--int", "number", type=int, help="The value as a number in four bytes.")
@_place_options
@pass_session
def set_(
    session: Session, switch: str, key: str, text: str | None, data: bytes | None, number: int | None,
    port: str | None, host_part: bool,
) -> int:  # fmt: skip
    """Set a property to a text, or to --hex bytes, or to an --int number."""
    given = [value for value in (text, data, number) if value is not None]
    if len(given) != 1:
        raise click.UsageError("one of TEXT, --hex and --int is given")
    return session.change(lambda plan: _of(plan, switch, port, host_part).ensure(key, given[0]))


@command.command(cls=Change)
@switch_argument
@click.argument("keys", nargs=-1, required=True)
@_place_options
@pass_session
def clear(session: Session, switch: str, keys: tuple[str, ...], port: str | None, host_part: bool) -> int:
    """Clear properties, so that their defaults hold."""

    def collect(plan: Plan) -> None:
        found = _of(plan, switch, port, host_part)
        for key in keys:
            found.ensure_cleared(key)

    return session.change(collect)
