"""Whatever is done to the objects of a host and to the laboratory, by whomever: exceptions, and nothing else."""

from __future__ import annotations

import sys
import threading
from collections.abc import Iterator
from pathlib import Path

import pytest

from hostile.objects import Caller
from libkestrel import lab


@pytest.fixture
def elsewhere(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Iterator[None]:
    """Files that calls write stay here, and the host comes back as it was."""
    monkeypatch.chdir(tmp_path)
    with lab.scratch():
        yield
        lab.disarm_all()


@pytest.mark.filterwarnings("ignore::DeprecationWarning")
@pytest.mark.usefixtures("elsewhere")
@pytest.mark.parametrize("seed", range(4))
def test_wrong_calls_raise_at_most(seed: int) -> None:
    caller = Caller(seed)
    caller.run(35_000)
    assert caller.calls == 35_000
    assert caller.raised > 10_000
    assert len(caller.did) > 2_000


@pytest.mark.filterwarnings("ignore::DeprecationWarning")
@pytest.mark.usefixtures("elsewhere")
def test_wrong_calls_from_several_threads_raise_at_most() -> None:
    lab.reset(sample=True)
    first = Caller(100)
    callers = [first, *(Caller(100 + i, first.pool) for i in range(1, 4))]
    errors: list[BaseException] = []

    def run(caller: Caller) -> None:
        try:
            caller.run(3_000, fresh=False)
        except BaseException as error:
            errors.append(error)

    before = sys.getswitchinterval()
    sys.setswitchinterval(1e-5)
    try:
        threads = [threading.Thread(target=run, args=(caller,)) for caller in callers]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    finally:
        sys.setswitchinterval(before)
    assert errors == []
    assert [caller.calls for caller in callers] == [3_000] * 4
