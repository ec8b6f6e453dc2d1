"""Where the host file lies."""

from __future__ import annotations

import os

VARIABLE = "KESTREL_HOST"


def host_file(given: str | None) -> str:
    """The path of the host file: the one that is given, else KESTREL_HOST's, else that in the user's state folder."""
    path = given or os.environ.get(VARIABLE)
    if path:
        return path
    state = os.environ.get("XDG_STATE_HOME", "")
    if not state.startswith("/"):  # relative ones are to be ignored
        state = os.path.expanduser("~/.local/state")  # noqa: PTH111  # as in quick.py, where time counts
    return f"{state}/kestrel/host.kestrel"
