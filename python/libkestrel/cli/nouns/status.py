"""`kestrel status`: what the platform answers."""

from __future__ import annotations

from typing import Any

import click

from libkestrel.cli.commands import noun
from libkestrel.cli.exits import NOT_FOUND, CommandError, code_of_status
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import NUMBER, TEXT, Field, optional, sheet, table

_FIELDS = (
    Field("code", TEXT, "The status in hexadecimal digits."),
    Field("name", TEXT, "Its name."),
    Field("text", TEXT, "What it says."),
)
STATUSES = table("statuses", *_FIELDS)
STATUS = sheet(
    "status",
    *_FIELDS,
    Field("error", optional(TEXT), "The class that scripts catch, in libkestrel.errors."),
    Field("exit_code", NUMBER, "The exit code of a command that meets it."),
)


@noun("status")
def command() -> None:
    """What the platform's statuses mean."""


def _known() -> dict[int, str]:
    """The statuses that have names."""
    import _libkestrel as flat

    from libkestrel import errors

    return {
        value: name
        for name, value in vars(flat).items()
        if name.startswith("ZEL_") and isinstance(value, int) and errors.status_name(value) == name
    }


def _row(status: int) -> dict[str, Any]:
    import _libkestrel as flat

    from libkestrel import errors

    sentence = str(flat.ZEL_ReturnStatusToString(_signed(status)))
    return STATUSES.row(f"0x{status & 0xFFFFFFFF:08x}", errors.status_name(status), sentence)


def _signed(status: int) -> int:
    return status - 2**32 if status >= 2**31 else status


@command.command("list")
@pass_session
def list_(session: Session) -> None:
    """List all statuses."""
    session.show(STATUSES, [_row(status) for status in sorted(_known())])


@command.command()
@click.argument("status")
@pass_session
def explain(session: Session, status: str) -> None:
    """Explain a status, by its number (0x0bad0003) or its name (ZEL_NOT_FOUND, or not_found)."""
    from libkestrel import errors

    number = _number(status)
    row = _row(number)
    kind = None if number == 0 else errors.class_of(number).__name__
    session.show(STATUS, STATUS.row(*row.values(), kind, 0 if number == 0 else code_of_status(number)))


def _number(status: str) -> int:
    names = {name: number for number, name in _known().items()}
    wanted = status.upper().replace("-", "_")
    for name in (wanted, f"ZEL_{wanted}"):
        if name in names:
            return names[name]
    try:
        number = int(status, 0)
    except ValueError:
        from difflib import get_close_matches

        near = get_close_matches(f"ZEL_{wanted.removeprefix('ZEL_')}", names)
        hint = f"; similar names: {', '.join(near)}" if near else ""
        raise CommandError(f"there is no status {status!r}{hint}", NOT_FOUND) from None
    if not -(2**31) <= number < 2**32:
        raise click.UsageError(f"{status} is no number of 32 bits")
    return _signed(number)
