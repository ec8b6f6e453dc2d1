"""Where the process begins: the commonest question is answered at once, the rest goes to the tree of commands."""

from __future__ import annotations

import signal
import sys


def main() -> None:
    """Runs the command that the arguments ask for, and ends the process with its exit code."""
    try:
        from libkestrel.cli import quick

        if quick.answer(sys.argv[1:]):
            return
        from libkestrel.cli.app import run
    except KeyboardInterrupt:  # before anything has begun
        from libkestrel.cli import exits

        sys.stderr.write(f"{exits.INTERRUPTION}\n")
        sys.exit(exits.INTERRUPTED)
    code = run(sys.argv[1:])
    # What is left is to leave the host file; dying of a Ctrl-C meanwhile would tell of an interruption.
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    sys.exit(code)
