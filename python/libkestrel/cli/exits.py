"""How a command ends: its exit code, and the sentence on standard error. docs/exit-codes.md is made of `CODES`."""

from __future__ import annotations

from typing import Any

SUCCESS, FAILED, USAGE, NOT_FOUND, REFUSED, BUSY, CHANGED = range(7)
INTERRUPTED, BROKEN_PIPE = 128 + 2, 128 + 13

CODES: dict[int, tuple[str, str]] = {
    SUCCESS: ("success", "It is done, or was so already."),
    FAILED: ("failed", "Something around the host went wrong: a file, a missing program, a check that found faults."),
    USAGE: ("usage", "The command line cannot be understood, or holds a value that no host could take."),
    NOT_FOUND: ("no such object", "A switch, port, key or file that the command names is not there."),
    REFUSED: ("refused", "The host says no, and why; nothing has changed."),
    BUSY: ("busy", "Something is in use, or others kept the host for too long. Trying again may help."),
    CHANGED: ("changed", "With --check: something would change. With --exit-code: something has changed."),
    INTERRUPTED: ("interrupted", "Ctrl-C; what was being changed is as it was before."),
    BROKEN_PIPE: ("broken pipe", "Whoever read the output has gone."),
}
"""The name of each exit code and what it says."""

INTERRUPTION = "kestrel: interrupted; nothing has changed"
"""What is said after Ctrl-C."""


class CommandError(Exception):
    """A command cannot go on, for a reason of the command line's own."""

    def __init__(self, message: str, code: int = FAILED) -> None:
        super().__init__(message)
        self.code = code


def code_of_status(status: int) -> int:
    """The exit code for what the platform answered."""
    import _libkestrel as flat

    if status == flat.ZEL_NOT_FOUND:
        return NOT_FOUND
    if status in (flat.ZEL_BUSY, flat.ZEL_TIMEOUT, flat.ZEL_WOULD_BLOCK):
        return BUSY
    return REFUSED


def _hint(error: Any) -> str:
    """What helps further: the names that there are, or the command that tells more."""
    import _libkestrel as flat

    if error.status in (flat.ZEL_INVALID_METADATA, flat.ZEL_INVALID_TARGET, flat.ZEL_CHECKSUM_MISMATCH):
        return "; `kestrel state verify` tells more about a file"
    if error.status == flat.ZEL_NOT_FOUND and getattr(error, "operation", "") == "find switch":
        from libkestrel.cli import quick

        names = [row["name"] for row in quick.switches()]
        return f"; there is {', '.join(names)}" if names else "; there is no switch"
    return ""


def ending(error: Exception) -> tuple[int, str]:
    """The exit code and the sentence for an error."""
    from libkestrel._kestrel_error import KestrelError
    from libkestrel.host.plan import PlanError
    from libkestrel.lab.errors import LabError, NotEmbeddedError
    from libkestrel.lab.scenario.problems import ScenarioError

    cause: Any = error.error if isinstance(error, PlanError) else error
    if isinstance(error, CommandError):
        return error.code, str(error)
    if isinstance(cause, (KestrelError, LabError)):
        return code_of_status(cause.status), f"{cause}{_hint(cause)}"
    if isinstance(error, ScenarioError):
        refused = isinstance(error.__cause__, Exception) and not isinstance(error.__cause__, OSError)
        return REFUSED if refused else USAGE, str(error)
    if isinstance(cause, NotEmbeddedError):
        return FAILED, str(cause)
    if isinstance(cause, (ValueError, OverflowError, IndexError)):  # what no call can carry
        return USAGE, str(cause)
    if isinstance(cause, OSError):
        where = f"{cause.filename}: " if cause.filename else ""
        code = NOT_FOUND if isinstance(cause, FileNotFoundError) else FAILED
        return code, f"{where}{cause.strerror or cause}"
    return FAILED, f"{type(cause).__name__}: {error}"
