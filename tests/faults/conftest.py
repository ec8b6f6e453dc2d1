"""What the tests of faults share: the libraries that make them, and the table of how many points were hit."""

from __future__ import annotations

import signal
from collections.abc import Iterator
from pathlib import Path

import pytest

from faults.table import TABLE
from support.processes import sanitized

# What is started in the background ignores interruptions, and so would the commands that the tests interrupt.
signal.signal(signal.SIGINT, signal.default_int_handler)


@pytest.fixture(scope="session", autouse=True)
def _unsanitized() -> None:
    if sanitized():
        pytest.skip("a sanitizer's allocator and the one that fails on demand cannot both stand first")


@pytest.fixture(scope="session")
def bytecode(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Path]:
    """A folder where interpreters keep what they have compiled: compiling is the interpreter's, and no fault is tried
    on it.
    """
    yield tmp_path_factory.mktemp("bytecode")


def pytest_terminal_summary(terminalreporter: pytest.TerminalReporter) -> None:
    """Tells how many points were hit."""
    lines = TABLE.lines()
    if lines:
        terminalreporter.section("faults")
        for line in lines:
            terminalreporter.line(line)
