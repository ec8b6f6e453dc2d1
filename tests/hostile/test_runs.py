"""Short runs of the calls that `make hostile` makes by the million."""

from __future__ import annotations

from pathlib import Path

import pytest

from hostile.calls import calls
from hostile.rules import TRUSTED
from hostile.run import BLOCKS, BYTES, DiedError, Journal, run


@pytest.mark.parametrize("seed", (1, 2))
def test_every_function_of_the_flat_module_returns_and_raises(seed: int) -> None:
    done = run("flat", 12_000, seed)
    assert done.calls == 12_000
    assert set(done.counts["reached"].values()) == {len(calls())}
    assert set(done.counts["not made, by rule"]) <= set(TRUSTED)
    blocks, size = done.growth
    assert blocks < BLOCKS and size < BYTES


def test_a_process_that_dies_tells_of_its_last_calls() -> None:
    with pytest.raises(DiedError, match=r"^no such kind, seed 1, 10 calls: exit code 1"):
        run("no such kind", 10, 1)


def test_the_journal_outlives_its_writer(tmp_path: Path) -> None:
    path = tmp_path / "journal"
    path.write_bytes(bytes(32 * 256))
    journal = Journal(path)
    for number in range(100):
        journal.note(f"call {number} \ud800" + "x" * 300)
    found = Journal.read(path)
    assert [line.split()[0] for line in found] == [str(number) for number in range(69, 101)]
    assert found[-1].startswith("100 call 99 \\ud800")
