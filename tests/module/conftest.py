"""These tests look at what reaches the platform, so the recorder has to stand in its place."""

from __future__ import annotations

import ctypes
from collections.abc import Iterator

import _libkestrel
import pytest

from headers import model
from support import classes
from support.recorder import Recorder, library_path


def pytest_configure() -> None:
    path = library_path("libmorrow.so")
    if path is None or b"recorder_log" not in path.read_bytes():
        pytest.exit(
            f"{_libkestrel.__file__} runs on {path}: "
            "run `make test-module`, which puts the recorder in the platform's place",
            returncode=3,
        )
    classes.register(model.read())


@pytest.fixture(autouse=True)
def _printed_text_stays_with_its_test() -> Iterator[None]:
    """What C code printed leaves its buffer before the next test looks at standard output."""
    yield
    ctypes.CDLL(None).fflush(None)


@pytest.fixture
def recorder() -> Iterator[Recorder]:
    """The recorder, without notes and answers."""
    instance = Recorder()
    instance.reset()
    yield instance
    instance.reset()
