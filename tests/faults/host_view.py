"""What there is to be seen of the host of this process."""

from __future__ import annotations

import os
from pathlib import Path

from faults.file_reader import FileReader
from libkestrel import Host, lab


class HostView:
    """Tells, when it is called, what the host says of itself, and what others read in its file."""

    def __init__(self) -> None:
        self._host = Host()
        path = os.environ.get("KESTREL_HOST")
        self._file = FileReader(Path(path)) if path else None

    def __call__(self) -> object:
        """What there is to be seen, to be compared."""
        store = self._host.store
        clients = [lab.clients(switch) for switch in self._host.switches]
        contents = self._file.contents() if self._file else None
        return [store.image(), store.saved_image(), lab.nics(), lab.clock.now(), clients, contents]
