"""The tree of commands, and how one of them is run to its exit code."""

from __future__ import annotations

import importlib
import io
import os
import sys
from typing import Any

import click

from libkestrel.cli import exits
from libkestrel.cli.group import Group, HelpNeeded
from libkestrel.cli.session import Session

NOUNS = (
    "switch", "port", "uplink", "lag", "mac", "vlan", "pvlan", "team", "mirror", "mcast", "option", "prop", "state",
    "lab", "status", "apply", "watch", "topology", "info", "completion",
)  # fmt: skip
"""The commands of the first level: each is `command` in the module of its name, and is imported when it is used."""


_DEBUG = "KESTREL_DEBUG"
"""The variable with which errors show where they come from."""


class Nouns(Group):
    """The first level."""

    def list_commands(self, ctx: click.Context) -> list[str]:  # noqa: ARG002
        """The nouns, in the order in which people meet them."""
        return list(NOUNS)

    def get_command(self, ctx: click.Context, cmd_name: str) -> click.Command | None:  # noqa: ARG002
        """A noun's command."""
        if cmd_name not in NOUNS:
            return None
        found: click.Command = importlib.import_module(f"libkestrel.cli.nouns.{cmd_name}").command
        return found

    def resolve_command(
        self, ctx: click.Context, args: list[str]
    ) -> tuple[str | None, click.Command | None, list[str]]:
        """The command of the first word. An unknown one is told with those that resemble it."""
        if not ctx.resilient_parsing and args[0] not in NOUNS and not args[0].startswith("-"):
            from difflib import get_close_matches

            near = get_close_matches(args[0], NOUNS)
            hint = f"; did you mean {' or '.join(near)}?" if near else ""
            raise click.UsageError(f"there is no command {args[0]!r}{hint}", ctx)
        return super().resolve_command(ctx, args)

    def format_epilog(self, ctx: click.Context, formatter: click.HelpFormatter) -> None:  # noqa: ARG002
        """The exit codes."""
        with formatter.section("Exit codes"):
            formatter.write_dl([(str(code), name) for code, (name, _meaning) in exits.CODES.items()])


def _version(ctx: click.Context, _param: click.Parameter, wanted: bool) -> None:
    if wanted and not ctx.resilient_parsing:
        from libkestrel._platform_info import version

        click.echo(f"kestrel {version()}")
        ctx.exit()


@click.group(cls=Nouns, context_settings={"help_option_names": ["-h", "--help"], "max_content_width": 100})
@click.option("--host", "host_file", metavar="FILE", help="The host file. [KESTREL_HOST, or the user's own]")
@click.option("--json", "as_json", is_flag=True, help="Answer in JSON.")
@click.option("--no-headings", is_flag=True, help="Leave out the headings of tables.")
@click.option("--version", is_flag=True, is_eager=True, expose_value=False, callback=_version, help="Tell the version.")
@click.pass_context
def command(ctx: click.Context, host_file: str | None, as_json: bool, no_headings: bool) -> None:
    """See and change the virtual switches of a host.

    Commands are a noun and a verb: `kestrel switch list`, `kestrel vlan set dvs-office 100 20`. What creates, sets,
    clears and deletes does nothing where all is so already.
    """
    session = Session(host_file)
    session.json, session.headings = as_json, not no_headings
    ctx.obj = session


def run(arguments: list[str]) -> int:
    """Runs a command; its exit code. Errors are one sentence on standard error."""
    if sys.stdout is None:  # closed by whoever started the process
        sys.stdout = open(os.devnull, "w")  # noqa: PTH123, SIM115  # for as long as the process lives
    if isinstance(sys.stdout, io.TextIOWrapper):
        sys.stdout.reconfigure(errors="replace")  # names and lines of trees that the terminal has no characters for
    if "_KESTREL_COMPLETE" in os.environ:
        command.main(arguments, prog_name="kestrel", complete_var="_KESTREL_COMPLETE")
    try:
        code = _invoke(arguments)
        sys.stdout.flush()
    except BrokenPipeError:
        _forget_output()
        return exits.BROKEN_PIPE
    except OSError as error:
        _forget_output()
        code, sentence = exits.ending(error)
        click.echo(f"kestrel: {sentence}", err=True)
        return code
    except (KeyboardInterrupt, click.Abort):
        click.echo(exits.INTERRUPTION, err=True)
        return exits.INTERRUPTED
    return code


def _invoke(arguments: list[str]) -> int:
    try:
        with command.make_context("kestrel", list(arguments)) as ctx:
            result: Any = command.invoke(ctx)
            return result if isinstance(result, int) else exits.SUCCESS
    except click.exceptions.Exit as ended:
        return ended.exit_code
    except HelpNeeded as error:
        click.echo(error.format_message(), err=True)
        return exits.USAGE
    except click.UsageError as error:
        where = f" (see {error.ctx.command_path} --help)" if error.ctx else ""
        click.echo(f"kestrel: {error.format_message().rstrip('.')}{where}", err=True)
        return exits.USAGE
    except (BrokenPipeError, click.Abort):
        raise
    except Exception as error:
        if _DEBUG in os.environ:
            raise
        code, sentence = exits.ending(error)
        click.echo(f"kestrel: {sentence}", err=True)
        return code


def _forget_output() -> None:
    """Keeps the interpreter from complaining that the rest of the output could not be written."""
    nowhere = os.open(os.devnull, os.O_WRONLY)
    os.dup2(nowhere, sys.stdout.fileno())
