"""`kestrel apply`: make the host what a file says."""

from __future__ import annotations

from pathlib import Path

import click

from libkestrel.cli.commands import Change
from libkestrel.cli.session import Session, pass_session


@click.command("apply", cls=Change)
@click.argument("file", type=click.Path(path_type=Path))
@click.option("--diff", is_flag=True, help="Tell each change.")
@click.option("--prune", is_flag=True, help="Remove ports and uplinks of its switches that the file does not name.")
@pass_session
def command(session: Session, file: Path, diff: bool, prune: bool) -> int:
    """Make the host what a file says, all of it or nothing.

    The file has the tables of a scenario (docs/scenarios.md), without what the laboratory arranges. What it does not
    mention stays as it is. Where all is so already, nothing is changed.
    """
    from libkestrel.cli import desired

    wanted, written = desired.read(file)
    return session.change(lambda plan: desired.collect(plan, wanted, written, prune=prune), show_each=diff)
