"""Whatever is done to records, in whatever order, from wherever: exceptions, and nothing else."""

from __future__ import annotations

import threading

import pytest

from hostile.records import Generator


@pytest.mark.parametrize("seed", range(4))
def test_random_calls_raise_at_most(seed: int) -> None:
    generator = Generator(seed)
    generator.run(20_000)
    assert generator.calls == 20_000


def test_random_calls_from_several_threads_raise_at_most() -> None:
    generators = [Generator(100 + i) for i in range(4)]
    shared = generators[0].pool
    for generator in generators:
        generator.pool = shared
    threads = [threading.Thread(target=generator.run, args=(8_000,)) for generator in generators]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert [generator.calls for generator in generators] == [8_000] * 4
