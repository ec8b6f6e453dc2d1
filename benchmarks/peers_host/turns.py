"""Lets peers take turns, each in a process of its own, and collects what they took."""

from __future__ import annotations

import multiprocessing
import tempfile
import time
import traceback
from collections.abc import Iterator
from contextlib import contextmanager
from multiprocessing.connection import Connection
from pathlib import Path
from typing import Any

from benchmarks import report
from benchmarks.peers_host import peer
from benchmarks.peers_host.peer import CHANGE, CHANGES, READ_MACS, READ_VLANS, Peer, UnavailableError
from benchmarks.timing import Spread, spread

_SWITCH = "bench"
_MAC_SWITCH = "macs"


class Worker:
    """A peer's process, from here."""

    def __init__(self, kind: type[Peer], folder: Path) -> None:
        self.title = kind.title
        self.durability = kind.durability
        context = multiprocessing.get_context("spawn")
        self._end, other = context.Pipe()
        self._process = context.Process(target=_serve, args=(kind, folder, other), daemon=True)
        self._process.start()
        other.close()

    def ask(self, *request: object) -> Any:
        """What the peer answers; UnavailableError with its reason."""
        self._end.send(request)
        try:
            answer = self._end.recv()
        except EOFError:
            raise UnavailableError(f"{self.title}: its process has ended") from None
        if isinstance(answer, UnavailableError):
            raise answer
        if isinstance(answer, Exception):
            raise answer
        return answer

    def end(self) -> None:
        """Let it leave nothing behind."""
        try:
            self._end.send(("stop",))
            self._process.join(30)
        except (BrokenPipeError, ConnectionError):
            pass
        if self._process.is_alive():
            self._process.terminate()


def _serve(kind: type[Peer], folder: Path, end: Connection) -> None:
    """What happens in a peer's process."""
    one = kind()
    try:
        while True:
            request: tuple[Any, ...] = end.recv()
            if request[0] == "stop":
                return
            try:
                end.send(_answer(one, folder, *request))
            except UnavailableError as reason:
                end.send(reason)
            except Exception:
                end.send(RuntimeError(f"{kind.title}: {traceback.format_exc()}"))
    except EOFError:
        pass
    finally:
        one.stop()


def _answer(one: Peer, folder: Path, what: str, count: int = 0, number: int = 0) -> object:
    if what == "start":
        one.start(folder)
        return one.version()
    if what == "round":
        return _round(one, count, number)
    if what == "learn":
        one.learn(f"{_MAC_SWITCH}{count}", count)
        return None
    return _read(one, count)


def _round(one: Peer, count: int, number: int) -> dict[str, float]:
    """Nanoseconds of each operation, on a switch that comes and goes."""
    taken: dict[str, float] = {}
    for operation, work in one.operations(_SWITCH, number, count).items():
        times = CHANGES if operation == CHANGE else 1
        start = time.perf_counter_ns()
        for _ in range(times):
            answer = work()
        taken[operation] = (time.perf_counter_ns() - start) / times
        if operation == READ_VLANS:
            wanted = {peer.port(i): peer.vlan(i, number) for i in range(count)}
            if answer != wanted:
                raise RuntimeError(f"other VLANs than were set: {str(answer)[:200]}")
    return taken


def _read(one: Peer, count: int) -> dict[str, float]:
    taken: dict[str, float] = {}
    for operation, work in one.reading(f"{_MAC_SWITCH}{count}").items():
        start = time.perf_counter_ns()
        answer: Any = work()
        taken[operation] = time.perf_counter_ns() - start
        if operation == READ_MACS:
            found = {bytes(row[0]) for row in answer}
            if found != {peer.mac(i) for i in range(count)}:
                raise RuntimeError(f"{len(found)} addresses, and not the {count} that were entered")
    return taken


@contextmanager
def workers(kinds: list[type[Peer]], folder: Path) -> Iterator[list[Worker]]:
    """The peers that can be measured here, in folders of their own below `folder`; prints why others cannot."""
    ready: list[Worker] = []
    with tempfile.TemporaryDirectory(prefix="peers-", dir=folder) as own:
        try:
            for kind in kinds:
                place = Path(own) / kind.__name__
                place.mkdir()
                worker = Worker(kind, place)
                ready.append(worker)
                try:
                    version = worker.ask("start")
                except UnavailableError as reason:
                    report.progress(f"  left out: {kind.title}: {reason}")
                    ready.remove(worker)
                    worker.end()
                else:
                    report.progress(f"  {kind.title}{f' ({version})' if version else ''}: {kind.durability}")
            yield ready
        finally:
            for worker in ready:
                worker.end()


def measure(ready: list[Worker], ports: int, rounds: int) -> dict[str, dict[str, Spread]]:
    """Nanoseconds by operation and peer. A first round, which fills caches, is not counted."""
    samples: dict[str, dict[str, list[float]]] = {}
    for number in range(rounds + 1):
        spent: dict[str, float] = {}
        for worker in ready:
            start = time.monotonic()
            for operation, taken in worker.ask("round", ports, number).items():
                if number:
                    samples.setdefault(operation, {}).setdefault(worker.title, []).append(taken)
            spent[worker.title] = time.monotonic() - start
        report.progress("  round: " + ", ".join(f"{title} {taken:.1f} s" for title, taken in spent.items()))
    return _in_order(samples, ready)


def measure_macs(ready: list[Worker], entries: int, rounds: int) -> dict[str, dict[str, Spread]]:
    """Nanoseconds of reading the MAC tables, by way and peer."""
    able = []
    for worker in ready:
        try:
            worker.ask("learn", entries)
        except UnavailableError:
            continue
        able.append(worker)
    samples: dict[str, dict[str, list[float]]] = {}
    for _ in range(rounds):
        for worker in able:
            for operation, taken in worker.ask("read", entries).items():
                samples.setdefault(operation, {}).setdefault(worker.title, []).append(taken)
    return _in_order(samples, ready)


def _in_order(samples: dict[str, dict[str, list[float]]], ready: list[Worker]) -> dict[str, dict[str, Spread]]:
    """Every row with the peers in their order."""
    titles = [worker.title for worker in ready]
    return {
        operation: {title: spread(row[title]) for title in titles if title in row} for operation, row in samples.items()
    }
