"""`kestrel info`: what the command runs on."""

from __future__ import annotations

import sys

import click

from libkestrel.cli.commands import Verb
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import FLAG, NUMBER, TEXT, Field, several, sheet

INFO = sheet(
    "info",
    Field("version", TEXT, "The version of this distribution."),
    Field("platform", TEXT, "Whose libraries answer: the embedded host's, or the host's own."),
    Field("embedded", FLAG, "Whether it is the embedded host."),
    Field("host_file", TEXT, "The host file."),
    Field("host_file_exists", FLAG, "Whether it is there."),
    Field("libraries", several(TEXT), "The files of the platform's libraries."),
    Field("module", TEXT, "The file of the flat module."),
    Field("interpreter", TEXT, "The interpreter and its version."),
    Field("executable", TEXT, "The interpreter's file."),
    Field("machine", TEXT, "The processor."),
    Field("click", TEXT, "The version of click."),
    Field("schema_version", NUMBER, "The version of answers in JSON."),
)


@click.command("info", cls=Verb)
@pass_session
def command(session: Session) -> None:
    """Tell which platform, library files and versions are in use."""
    from importlib import metadata

    from libkestrel._platform_info import platform_info
    from libkestrel.cli.envelopes import VERSION

    info = platform_info()
    session.show(
        INFO,
        INFO.row(
            info.version,
            "embedded host" if info.embedded else "the host's own libraries",
            info.embedded,
            str(session.path),
            session.path.exists(),
            [str(library.path) for library in info.libraries],
            str(info.module),
            info.interpreter,
            sys.executable,
            info.machine,
            metadata.version("click"),
            VERSION,
        ),
    )
