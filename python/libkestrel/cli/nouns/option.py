"""`kestrel option`: runtime options of the host."""

from __future__ import annotations

import click

from libkestrel.cli import completing
from libkestrel.cli.commands import Change, noun
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import TEXT, Field, sheet, table

_FIELDS = (
    Field("name", TEXT, "The name of the option."),
    Field("value", {"type": ["integer", "string"]}, "Its value: a number of 32 bits or a text."),
)
OPTIONS, OPTION = table("options", *_FIELDS), sheet("option", *_FIELDS)


@noun("option")
def command() -> None:
    """Runtime options of the host; they last until a restart."""


@command.command("list")
@pass_session
def list_(session: Session) -> None:
    """List the options."""
    session.show(OPTIONS, [OPTIONS.row(*item) for item in session.host().options.items()])


@command.command()
@click.argument("name", shell_complete=completing.options)
@pass_session
def show(session: Session, name: str) -> None:
    """Show one option."""
    session.show(OPTION, OPTION.row(name, session.host().options[name]))


@command.command("set", cls=Change)
@click.argument("values", metavar="NAME=VALUE...", nargs=-1, required=True, shell_complete=completing.options)
@pass_session
def set_(session: Session, values: tuple[str, ...]) -> int:
    """Set options, all of them or none."""
    wanted: dict[str, int | str] = {}
    now = session.host().options
    for each in values:
        name, equals, text = each.partition("=")
        if not equals:
            raise click.UsageError(f"{each!r} is not of the form NAME=VALUE")
        wanted[name] = _number(name, text) if isinstance(now[name], int) else text
    return session.change(lambda plan: plan.options.ensure(wanted))


def _number(name: str, text: str) -> int:
    try:
        return int(text, 0)
    except ValueError:
        raise click.UsageError(f"option {name} is a number, not {text!r}") from None
