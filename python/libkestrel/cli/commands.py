"""What commands are made of: groups and verbs with the options that all of them have, and their common arguments."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any, TypeVar

import click

from libkestrel.cli import completing
from libkestrel.cli.group import Group
from libkestrel.cli.session import Session

F = TypeVar("F", bound=Callable[..., Any])


def _note(attribute: str, value: bool) -> Callable[[click.Context, click.Parameter, bool], None]:
    """Notes in the session that a flag was given."""

    def callback(ctx: click.Context, _param: click.Parameter, given: bool) -> None:
        if given:
            setattr(ctx.ensure_object(Session), attribute, value)

    return callback


def _flag(name: str, attribute: str, value: bool, text: str) -> click.Option:
    return click.Option([name], is_flag=True, expose_value=False, callback=_note(attribute, value), help=text)


class Verb(click.Command):
    """A command that answers: --json and --no-headings may stand behind it as well as before the noun."""

    def __init__(self, *arguments: Any, **details: Any) -> None:
        super().__init__(*arguments, **details)
        self.params += [
            _flag("--json", "json", True, "Answer in JSON."),
            _flag("--no-headings", "headings", False, "Leave out the headings of the table."),
        ]


class Change(click.Command):
    """A command that changes something, unless it is so already."""

    def __init__(self, *arguments: Any, **details: Any) -> None:
        super().__init__(*arguments, **details)
        self.params += [
            _flag("--check", "check", True, "Change nothing; exit with 6 if something would change."),
            _flag("--exit-code", "exit_code", True, "Exit with 6 if something has changed."),
            _flag("--json", "json", True, "Answer in JSON."),
        ]


class Action(click.Command):
    """A command that does something each time."""

    def __init__(self, *arguments: Any, **details: Any) -> None:
        super().__init__(*arguments, **details)
        self.params += [_flag("--json", "json", True, "Answer in JSON.")]


class Noun(Group):
    """A noun with its verbs, in the order in which they are written."""

    command_class = Verb

    def list_commands(self, ctx: click.Context) -> list[str]:  # noqa: ARG002
        """The verbs."""
        return list(self.commands)


def noun(name: str) -> Callable[[Callable[..., Any]], Noun]:
    """Makes a noun of a function whose docstring tells what it is about."""
    return click.group(name=name, cls=Noun)


def switch_argument(function: F) -> F:
    """An argument SWITCH."""
    return click.argument("switch", shell_complete=completing.switches)(function)


def port_argument(function: F) -> F:
    """Arguments SWITCH and PORT."""
    return switch_argument(click.argument("port", shell_complete=completing.ports)(function))


def switch_argument_or_all(function: F) -> F:
    """An argument SWITCH that may be left out."""
    return click.argument("switch", required=False, shell_complete=completing.switches)(function)
