"""`kestrel topology`: a picture of the host."""

from __future__ import annotations

import shutil
import subprocess
from pathlib import Path

import click

from libkestrel.cli.commands import Verb, switch_argument_or_all
from libkestrel.cli.exits import FAILED, CommandError
from libkestrel.cli.reading import chosen
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import FLAG, NUMBER, TEXT, Field, optional, record, several, table

SWITCHES = table(
    "topology",
    Field("switch", TEXT, "The switch."),
    Field("mtu", NUMBER, "The longest payload of a frame, in bytes."),
    Field(
        "uplinks",
        several(
            record(
                [
                    Field("name", TEXT, "The uplink port."),
                    Field("nic", optional(TEXT), "The NIC in it."),
                    Field("up", FLAG, "Whether its link is up."),
                    Field("lag", optional(TEXT), "The group that it belongs to."),
                ]
            )
        ),
        "The uplinks, in order.",
    ),
    Field(
        "ports",
        several(
            record(
                [
                    Field("port", TEXT, "The distributed-port id."),
                    Field("vlan", TEXT, "The VLAN policy."),
                    Field("client", optional(TEXT), "Who is plugged in."),
                    Field("mac", optional(TEXT), "The client's address."),
                ]
            )
        ),
        "The ports that are no uplinks.",
    ),
)


@click.command("topology", cls=Verb)
@switch_argument_or_all
@click.option("--dot", is_flag=True, help="Print the picture in Graphviz's language.")
@click.option("--svg", type=click.Path(path_type=Path, dir_okay=False, allow_dash=True), help="Write it as SVG.")
@click.option("--empty", is_flag=True, help="Also ports that nobody is plugged into.")
@pass_session
def command(session: Session, switch: str | None, dot: bool, svg: Path | None, empty: bool) -> None:
    """Draw the host as a tree, or with Graphviz.

    What is drawn are switches with their uplinks, groups, VLANs and clients.
    """
    from libkestrel.cli import drawing

    if svg is not None and shutil.which("dot") is None:
        raise CommandError("drawing SVG takes Graphviz, whose program `dot` is not there; --dot needs no program")
    found = [drawing.described(each, empty=empty) for each in chosen(session.host(), switch)]
    if svg is not None:
        _write_svg(svg, drawing.dot(found))
    elif dot:
        click.echo(drawing.dot(found), nl=False)
    elif session.json:
        session.show(SWITCHES, found)
    else:
        for line in drawing.tree(found):
            click.echo(line)


def _write_svg(path: Path, text: str) -> None:
    from libkestrel.cli import progress
    from libkestrel.cli.files import write_whole

    with progress.shown("drawing"):
        done = subprocess.run(["dot", "-Tsvg"], input=text.encode(), capture_output=True, check=False)
    if done.returncode:
        raise CommandError(f"dot failed: {done.stderr.decode(errors='replace').strip()}", FAILED)
    if str(path) == "-":
        click.echo(done.stdout.decode(), nl=False)
    else:
        write_whole(path, done.stdout)
