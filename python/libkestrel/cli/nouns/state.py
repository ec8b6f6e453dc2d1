"""`kestrel state`: the host's state as a whole: images, and checks of files."""

from __future__ import annotations

import sys
from contextlib import suppress
from pathlib import Path
from typing import TYPE_CHECKING, Any

import click

from libkestrel.cli.commands import Action, Change, noun
from libkestrel.cli.exits import FAILED, NOT_FOUND, SUCCESS, CommandError
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import FLAG, NUMBER, TEXT, Field, one_of, several, sheet

if TYPE_CHECKING:
    from libkestrel.host import Plan

EXPORT = sheet(
    "export",
    Field("file", TEXT, "The file that was written."),
    Field("length", NUMBER, "Its length in bytes."),
    Field("saved", FLAG, "Whether it holds the saved state and not the one in use."),
)
VERIFICATION = sheet(
    "verification",
    Field("file", TEXT, "The file."),
    Field("what", one_of(["host file", "state image", "scenario", "unknown"]), "What it is."),
    Field("sound", FLAG, "Whether nothing is wrong with it."),
    Field("problems", several(TEXT), "What is wrong with it."),
    Field("contents", several(TEXT), "What is in it, as far as it can be read."),
)

_FILE = click.Path(path_type=Path, dir_okay=False)


@noun("state")
def command() -> None:
    """The state as a whole: export, import, verify."""


@command.command(cls=Action)
@click.argument("file", type=click.Path(path_type=Path, allow_dash=True))
@click.option("--saved", is_flag=True, help="The saved state, not the one in use.")
@pass_session
def export(session: Session, file: Path, saved: bool) -> None:
    """Write an image of the switches to a file, "-" for standard output."""
    store = session.host().store
    image = store.saved_image() if saved else store.image()
    if str(file) == "-":
        if sys.stdout.isatty():
            raise CommandError("an image is no text for a terminal; give a file, or read it through a pipe")
        sys.stdout.buffer.write(image)
        return
    from libkestrel.cli.files import write_whole

    write_whole(file, image)
    if session.json:
        session.show(EXPORT, EXPORT.row(str(file), len(image), saved))
    else:
        session.note(f"{file}: {len(image)} bytes")


@command.command("import", cls=Change)
@click.argument("file", type=click.Path(path_type=Path, allow_dash=True))
@click.option("--configuration", is_flag=True, help="Take its saved side as configuration; clients stay plugged in.")
@click.option("--plug", is_flag=True, help="Plug in NICs that the image names and the host lacks. Embedded host alone.")
@pass_session
def import_(session: Session, file: Path, configuration: bool, plug: bool) -> int:
    """Put the state of an image in the place of all switches. "-" reads standard input.

    Where there is no host yet one is made, with the NICs that the image names.
    """
    data = sys.stdin.buffer.read() if str(file) == "-" else file.read_bytes()

    def collect(plan: Plan) -> None:
        from libkestrel.cli import images, steps

        lacking = images.lacking_nics(data)
        if lacking and not (plug or is_new):
            raise CommandError(
                f"the image names NICs that this host lacks: {', '.join(lacking)}; --plug puts them in", NOT_FOUND
            )
        for nic in lacking:
            plan.take(steps.plug(nic))
        store = plan.store
        if configuration:
            store.configure_from(data)
        elif store_image() != data:
            store.start_from(data)

    def store_image() -> bytes:
        return session.host().store.image()

    is_new = not session.path.exists() and not session.check
    if is_new:
        _begin_empty(session)
    return session.change(collect)


def _begin_empty(session: Session) -> None:
    """Makes a host without anything on it, where hosts are made."""
    from libkestrel import lab

    session.new_host()
    with suppress(lab.NotEmbeddedError):
        lab.reset()


@command.command(cls=Action)
@click.argument("file", type=_FILE, required=False)
@pass_session
def verify(session: Session, file: Path | None) -> int:
    """Check a host file, an image or a scenario, and tell what is wrong with it. Nothing is changed.

    Without FILE it is the host file in use.
    """
    from libkestrel.cli import progress, verifying

    path = session.path if file is None else file
    if not path.exists():
        raise CommandError(f"{path}: there is no such file", NOT_FOUND)
    with progress.shown(f"checking {path}"):
        found = verifying.verified(path)
    row: dict[str, Any] = VERIFICATION.row(
        str(path), found.what, not found.problems, list(found.problems), list(found.contents)
    )
    if session.json:
        session.show(VERIFICATION, row)
    else:
        for problem in found.problems:
            click.echo(f"{path}: {problem}")
        if not found.problems:
            click.echo(f"{path}: a sound {found.what}: {', '.join(found.contents) or 'empty'}")
    return FAILED if found.problems else SUCCESS


@command.command(cls=Change)
@pass_session
def load(session: Session) -> int:
    """Load the saved configuration in place of the one in use."""
    return session.change(lambda plan: plan.store.load())


@command.command(cls=Change)
@pass_session
def sanitize(session: Session) -> int:
    """Drop what nothing refers to any more."""
    return session.change(lambda plan: plan.store.sanitize())


@command.command(cls=Change)
@click.option("--yes", is_flag=True, help="Do not ask.")
@pass_session
def reset(session: Session, yes: bool) -> int:
    """Bring every property of every switch and port back to its default, running and saved."""
    if not yes and not session.check:
        if not sys.stdin.isatty():
            raise click.UsageError("resetting everything has to be confirmed with --yes")
        if not click.confirm("Bring every setting back to its default?", err=True):
            raise CommandError("not confirmed; nothing has changed")
    return session.change(lambda plan: plan.store.reset_configuration())
