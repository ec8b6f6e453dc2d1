"""What the tests of the command line share."""

from __future__ import annotations

import os
import signal
from collections.abc import Iterator
from pathlib import Path

import pytest

from libkestrel import lab
from support.prompt import InProcess, Process

# What is started in the background ignores interruptions, and so would the commands that the tests interrupt.
signal.signal(signal.SIGINT, signal.default_int_handler)


@pytest.fixture
def kestrel(tmp_path: Path) -> Process:
    """`kestrel` as processes of their own, on a host file of the test's own that is not there yet."""
    return Process(tmp_path / "state" / "host.kestrel")


@pytest.fixture
def office(kestrel: Process) -> Process:
    """The same with the small office on its host."""
    assert kestrel("lab", "run", "small-office").code == 0
    return kestrel


@pytest.fixture
def here(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> Iterator[InProcess]:
    """`kestrel` in this process, which is quicker: on the small office, and what it does is undone."""
    path = tmp_path / "present.kestrel"
    path.touch()
    environment = dict(os.environ)
    lab.nics()  # the host of this process is the one it has, whatever commands say
    with lab.scratch():
        running = InProcess(path, capsys)
        assert running("lab", "run", "small-office").code == 0
        try:
            yield running
        finally:
            os.environ.clear()
            os.environ.update(environment)
