"""What the commands of one process share: the host file, how answers are written, how changes are made."""

from __future__ import annotations

import os
import signal
import sys
from collections.abc import Callable, Iterator
from contextlib import contextmanager, nullcontext
from pathlib import Path
from typing import TYPE_CHECKING, Any

import click

from libkestrel.cli import exits, output, places
from libkestrel.cli.exits import CommandError
from libkestrel.cli.shapes import FLAG, TEXT, Field, Shape, record, several, sheet

if TYPE_CHECKING:
    from libkestrel.host import Host, Plan

CHANGES = sheet(
    "changes",
    Field("changed", FLAG, "Whether there was anything to change."),
    Field("check", FLAG, "Whether it was only looked at, with --check."),
    Field(
        "changes",
        several(
            record(
                [
                    Field("object", TEXT, "What changes."),
                    Field("operation", TEXT, "What is done to it."),
                    Field("before", TEXT, "The value before."),
                    Field("after", TEXT, "The value afterwards."),
                ]
            )
        ),
        "Each change, in order.",
    ),
)


class Session:
    """One command: its global options, its host, its way of answering."""

    def __init__(self, host_file: str | None = None) -> None:
        self.path = Path(places.host_file(host_file))
        """The host file, whether it is there or not."""
        self.json = False
        """Whether answers are written as JSON."""
        self.headings = True
        """Whether tables have headings."""
        self.check = False
        """Whether changes are only looked at."""
        self.exit_code = False
        """Whether a change is told by the exit code."""
        self._host: Host | None = None

    # ---- The host ----

    def ready(self) -> None:
        """Sees to it that there is a host. Where there is none yet, a terminal is asked for a scenario; CommandError
        otherwise.
        """
        if not self.path.exists() and self._is_embedded():
            self._first_run()
        os.environ[places.VARIABLE] = str(self.path)

    def host(self) -> Host:
        """The host, which is ready."""
        if self._host is None:
            self.ready()
            self._host = self._open()
        return self._host

    def new_host(self) -> Host:
        """The host, made where there is none yet; for commands that put something in its place anyway."""
        if self._is_embedded():
            self.path.parent.mkdir(mode=0o700, parents=True, exist_ok=True)
        self._host = self._open()
        return self._host

    def _open(self) -> Host:
        from libkestrel.host import Host

        os.environ[places.VARIABLE] = str(self.path)
        return Host()

    def _is_embedded(self) -> bool:
        from libkestrel import lab

        try:
            lab.require()
        except lab.NotEmbeddedError:
            return False
        return True

    def _first_run(self) -> None:
        from libkestrel.cli import scenarios

        names = scenarios.shipped()
        hint = f"`kestrel lab run {names[0]}` makes one; `kestrel lab scenarios` tells what there is"
        if not (sys.stdin.isatty() and sys.stderr.isatty()):
            raise CommandError(f"there is no host at {self.path} yet: {hint}", exits.NOT_FOUND)
        click.echo(f"There is no host at {self.path} yet. Ready scenarios:", err=True)
        for name in names:
            click.echo(f"  {name:16} {scenarios.described(name)}", err=True)
        chosen = click.prompt("Load", type=click.Choice([*names, "none"]), default=names[0], err=True)
        if chosen == "none":
            raise CommandError(f"there is no host yet: {hint}", exits.NOT_FOUND)
        scenarios.load(self, chosen)

    # ---- Answers ----

    def show(self, shape: Shape, data: Any) -> None:
        """Writes an answer: rows, or one row for a sheet."""
        output.write(shape, data, as_json=self.json, headings=self.headings)

    def note(self, text: str) -> None:
        """A line for people that is no answer: what has been done. Nothing in JSON."""
        if not self.json:
            click.echo(text)

    # ---- Changes ----

    def change(self, collect: Callable[[Plan], object], *, show_each: bool = True) -> int:
        """Makes the changes that `collect` notes in a plan, all of them or none; the exit code.

        What is read and what is changed go together: no other process comes between.
        """
        from libkestrel.cli import progress

        host = self.host()
        with self.all_or_nothing() as embedded, host.plan() as plan:
            collect(plan)
            changes = list(plan)
            if changes and not self.check:
                with progress.shown(f"{len(changes)} changes"):
                    if embedded or len(changes) == 1:  # which happens or does not, and need not be taken back
                        plan.apply(transaction=nullcontext())
                    else:
                        plan.apply()
        return self.tell(changes, show_each=show_each)

    @contextmanager
    def all_or_nothing(self) -> Iterator[bool]:
        """A block of changes that happen together, or not at all when it ends with an exception, Ctrl-C included.

        Once they have happened, Ctrl-C is ignored for what is left of the command: it would say that nothing has
        changed.
        Gives False on a platform that has no such transactions. Nothing is begun where changes are only looked at.
        """
        from libkestrel import lab

        if self.check or not self._is_embedded():
            yield False
            return
        before = signal.getsignal(signal.SIGINT)
        try:
            with lab.transaction():
                yield True
                # From here on it is done: a Ctrl-C no longer finds anything to take back.
                signal.signal(signal.SIGINT, signal.SIG_IGN)
        except BaseException:
            signal.signal(signal.SIGINT, before)
            raise

    def tell(self, changes: list[Any], *, show_each: bool = True) -> int:
        """Writes what has changed, or with --check what would; the exit code."""
        from libkestrel.cli.values import said, said_after

        if self.json:
            rows = [
                {
                    "object": change.object,
                    "operation": change.operation,
                    "before": said(change.before),
                    "after": said_after(change),
                }
                for change in changes
            ]
            self.show(CHANGES, CHANGES.row(bool(changes), self.check, rows))
        else:
            for change in changes if show_each else ():
                line = f"{change.object}: {change.operation}: {said(change.before)} -> {said_after(change)}"
                click.echo(output.one_line(line))
            if not changes:
                click.echo("nothing to change")
            elif self.check or not show_each:
                number = f"{len(changes)} change{'s' if len(changes) > 1 else ''}"
                click.echo(f"{number} would be made" if self.check else f"{number} made")
        return exits.CHANGED if changes and (self.check or self.exit_code) else exits.SUCCESS


pass_session = click.make_pass_decorator(Session)
"""Gives a command the session as its first argument."""
