"""What reads bytes and texts from anywhere in Python: each reads them or refuses them in its own words.

A target takes bytes. What it raises is a defect.
"""

from __future__ import annotations

import contextlib
import io
import tempfile
from collections.abc import Callable, Iterator
from functools import cache
from pathlib import Path
from typing import Any

import click

from libkestrel import Host, lab
from libkestrel.cli import app, desired, images, values
from libkestrel.cli.exits import CommandError
from libkestrel.errors import KestrelError
from libkestrel.host import PlanError
from libkestrel.lab.scenario import ScenarioError, load_scenario_text, parse_scenario

_READERS: tuple[click.ParamType[Any], ...] = (values.MAC, values.RANGES, values.HEX, values.VLAN)
_TABLES = ("BALANCES", "TEAM_FLAGS", "PRIVATE_KINDS", "LACP_MODES")


_IMAGE_LENGTH_AT, _IMAGE_HEAD = 16, 24


@cache
def _folder() -> Path:
    return Path(tempfile.mkdtemp(prefix="kestrel-fuzz-"))


def scenario(data: bytes) -> None:
    """A scenario file, and the host that it makes."""
    text = data.decode(errors="surrogateescape")
    try:
        parse_scenario(text)
        with lab.scratch():
            load_scenario_text(text)
    except ScenarioError as error:
        str(error)


def desired_state(data: bytes) -> None:
    """A desired state, and what it would change."""
    path = _folder() / "desired.toml"
    path.write_bytes(data)
    try:
        wanted, written = desired.read(path)
        with lab.scratch():
            for prune in (False, True):
                with Host().plan() as plan:
                    desired.collect(plan, wanted, written, prune=prune)
                    list(plan)
    except (ScenarioError, CommandError, KestrelError, PlanError, OSError) as error:
        str(error)


def _sealed(data: bytes) -> bytes:
    """The image with its length and its checksum put right, so that a fuzzer gets behind them."""
    if len(data) < _IMAGE_HEAD:
        return data
    head = data[:_IMAGE_LENGTH_AT] + len(data).to_bytes(4, "little")
    checksum = images.crc32c(head + data[_IMAGE_HEAD:])
    return head + checksum.to_bytes(4, "little") + data[_IMAGE_HEAD:]


def image_file(data: bytes) -> None:
    """A state image, as the command line tells what is in it; once more with its length and checksum put right."""
    images.read(data)
    images.lacking_nics(_sealed(data))


def option_values(data: bytes) -> None:
    """What options and arguments of commands take."""
    text = data.decode(errors="surrogateescape")
    readers = [*_READERS, *(values.Word(table, several=several) for table in _TABLES for several in (False, True))]
    for reader in readers:
        try:
            found = reader.convert(text, None, None)
        except click.UsageError as error:
            error.format_message()
            continue
        if reader is values.RANGES:
            values.ranges_text(found)
        elif reader is values.HEX:
            values.bytes_text(found)


def _contexts(arguments: list[str]) -> Iterator[click.Context]:
    """The contexts that words lead through, without running a command."""
    command: click.Command | None = app.command
    name, context = "kestrel", None
    while command is not None:
        context = command.make_context(name, arguments, parent=context)
        yield context
        if not isinstance(command, click.Group):
            return
        arguments = [*context._protected_args, *context.args]
        if not arguments:
            return
        found, command, arguments = command.resolve_command(context, arguments)
        name = found or ""


def arguments(data: bytes) -> None:
    """The words of a command, separated by zero bytes."""
    words = data.decode(errors="surrogateescape").split("\0")
    try:
        with contextlib.redirect_stdout(io.StringIO()):
            for context in _contexts(words):
                context.get_usage()
    except click.ClickException as error:
        error.format_message()
    except click.exceptions.Exit:
        pass


TARGETS: dict[str, Callable[[bytes], None]] = {
    "scenario": scenario,
    "desired_state": desired_state,
    "image_file": image_file,
    "option_values": option_values,
    "arguments": arguments,
}
