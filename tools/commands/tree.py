"""The tree of commands, walked."""

from __future__ import annotations

from collections.abc import Iterator
from dataclasses import dataclass

import click

from libkestrel.cli.app import command


@dataclass(frozen=True)
class Entry:
    """A command and how it is called."""

    path: tuple[str, ...]
    """The words, "kestrel" first."""
    command: click.Command
    context: click.Context

    @property
    def name(self) -> str:
        """The words with spaces between them."""
        return " ".join(self.path)

    @property
    def usage(self) -> str:
        """How it is called, with its arguments."""
        return " ".join([self.name, *self.command.collect_usage_pieces(self.context)])

    @property
    def summary(self) -> str:
        """Its first sentence."""
        return self.command.get_short_help_str(limit=200)

    @property
    def paragraphs(self) -> list[str]:
        """What its help says; a paragraph that is to be shown as it stands begins with a backspace."""
        text = (self.command.help or "").strip()
        found = [part.strip("\n") for part in text.split("\n\n")]
        return [part if part.startswith("\b") else " ".join(part.split()) for part in found]

    @property
    def options(self) -> list[tuple[str, str]]:
        """Its options: how they are written, and what they do."""
        options = [param for param in self.command.get_params(self.context) if isinstance(param, click.Option)]
        records = (option.get_help_record(self.context) for option in options)
        return [record for record in records if record is not None]


def root() -> Entry:
    """`kestrel` itself."""
    return Entry(("kestrel",), command, _context(command, "kestrel", None))


def children(entry: Entry) -> Iterator[Entry]:
    """The commands of a group, in their order; none of a command that is no group."""
    if not isinstance(entry.command, click.Group):
        return
    for name in entry.command.list_commands(entry.context):
        found = entry.command.get_command(entry.context, name)
        assert found is not None
        yield Entry((*entry.path, name), found, _context(found, name, entry.context))


def leaves(entry: Entry) -> Iterator[Entry]:
    """The commands that do something."""
    if isinstance(entry.command, click.Group):
        for child in children(entry):
            yield from leaves(child)
    else:
        yield entry


def _context(command: click.Command, name: str, parent: click.Context | None) -> click.Context:
    settings = {**command.context_settings, "max_content_width": 120, "terminal_width": 120}
    return click.Context(command, info_name=name, parent=parent, **settings)
