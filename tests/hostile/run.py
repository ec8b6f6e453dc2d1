"""Hostile calls in a process of their own: as many as wanted, noted before they are made, their memory watched.

    python -m hostile.run KIND CALLS [SEED]

KIND is flat, the module's functions; records or objects, what the companion package publishes; or package, both of
these in turn. A process that dies has the seed and its last calls told, and memory that grows with the calls is an
error.
"""

from __future__ import annotations

import ctypes
import gc
import json
import mmap
import os
import resource
import signal
import subprocess
import sys
import tempfile
import time
from collections import Counter
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Protocol

_SLOTS, _SLOT = 32, 256
WINDOWS = 10
"""Parts of a run, at the ends of which memory is measured."""
_SETTLED = 4
"""Windows after which the process has what it keeps for itself."""
BLOCKS, BYTES = 20_000, 16 << 20
"""By how much the interpreter's blocks and the process may differ between the windows behind those."""
ROOM = 2 << 30
"""Bytes that the process may have: what asks for more gets a MemoryError, as it should."""
SANITIZED = "libasan" in os.environ.get("LD_PRELOAD", "")
"""Whether a sanitizer watches the memory. It takes more than that for itself, and keeps long what was freed."""
_ROOT = Path(__file__).resolve().parents[2]


class Journal:
    """The last calls, in a file that outlives the process."""

    def __init__(self, path: Path) -> None:
        with path.open("r+b") as file:
            self._memory = mmap.mmap(file.fileno(), _SLOTS * _SLOT)
        self.number = 0

    def note(self, call: str) -> None:
        """What is about to be called."""
        self.number += 1
        place = self.number % _SLOTS * _SLOT
        text = f"{self.number} {call}".encode(errors="backslashreplace")[: _SLOT - 1]
        self._memory[place : place + _SLOT] = text.ljust(_SLOT)

    @staticmethod
    def read(path: Path) -> list[str]:
        """The calls noted, the last one last."""
        content = path.read_bytes()
        slots = [content[i : i + _SLOT].strip(b" \0").decode(errors="replace") for i in range(0, len(content), _SLOT)]
        return sorted(filter(None, slots), key=lambda slot: int(slot.split()[0]))


class Caller(Protocol):
    """What makes the calls."""

    every: int
    """Calls after which the world begins anew."""

    def step(self) -> int:
        """Makes a call; how many it was, 0 or 1."""

    def begin_anew(self) -> None:
        """The world is as it was at first; raises where it is not."""

    def finish(self) -> None:
        """What is to be looked at when all calls are made; raises where something is wrong."""

    def counts(self) -> dict[str, dict[str, int]]:
        """What there was, for people."""


# ---- The kinds ----


class _Flat:
    every = 10_000

    def __init__(self, seed: int, journal: Journal) -> None:
        from hostile.flat import Flat
        from hostile.worlds import world

        self.calls = Flat(seed, world(), journal.note)

    def step(self) -> int:
        before = self.calls.number
        self.calls.step()
        return self.calls.number - before

    def begin_anew(self) -> None:
        self.calls.begin_anew()

    def finish(self) -> None:
        self.calls.finish()
        if missing := self.calls.missing():
            raise AssertionError(f"not called with success and refused: {missing}")
        self.calls.end()

    def counts(self) -> dict[str, dict[str, int]]:
        return self.calls.counts()


class _Package:
    """What the two kinds of the companion package have in common."""

    calls: Any

    def __init__(self, journal: Journal) -> None:
        self.journal = journal
        self.outcomes: Counter[str] = Counter()

    def step(self) -> int:
        self.journal.note("step")
        self.outcomes[self.calls.attempt()] += 1
        return 1

    def begin_anew(self) -> None:
        self.calls.begin_anew()

    def finish(self) -> None:
        self.calls.pool.clear()

    def counts(self) -> dict[str, dict[str, int]]:
        return {"outcomes": dict(self.outcomes)}


class _Records(_Package):
    every = 20_000

    def __init__(self, seed: int, journal: Journal) -> None:
        from hostile.records import Generator

        super().__init__(journal)
        self.calls = Generator(seed)


class _Objects(_Package):
    def __init__(self, seed: int, journal: Journal) -> None:
        from hostile import objects

        super().__init__(journal)
        os.chdir(tempfile.mkdtemp(dir=os.environ["TMPDIR"]))
        self.every = objects.MOST
        self.calls = objects.Caller(seed)
        self.calls.begin_anew()

    def begin_anew(self) -> None:
        super().begin_anew()
        self.calls.check()

    def counts(self) -> dict[str, dict[str, int]]:
        return super().counts() | {"reached": {"members": len(self.calls.did)}}


KINDS: dict[str, Callable[[int, Journal], Caller]] = {"flat": _Flat, "records": _Records, "objects": _Objects}
PACKAGE = {"records": 0.5, "objects": 0.5}
"""How the package's calls are shared out."""


# ---- The process that calls ----


def _resident() -> int:
    return int(Path("/proc/self/statm").read_text().split()[1]) * mmap.PAGESIZE


def _measure() -> tuple[int, int]:
    gc.collect()
    ctypes.CDLL(None).malloc_trim(0)
    return sys.getallocatedblocks(), _resident()


def worker(kind: str, calls: int, seed: int, journal: Path) -> None:
    """Makes the calls, and tells of them as JSON; what others print goes nowhere."""
    answers = os.fdopen(os.dup(sys.stdout.fileno()), "w")
    if not SANITIZED:
        resource.setrlimit(resource.RLIMIT_AS, (ROOM, ROOM))
    nowhere = os.open(os.devnull, os.O_WRONLY)
    os.dup2(nowhere, 1)
    if "HOSTILE_LOUD" not in os.environ:
        os.dup2(nowhere, 2)
    caller = KINDS[kind](seed, Journal(journal))
    made, due, windows = 0, caller.every, []
    begin = time.monotonic()
    told: dict[str, Any] = {}
    try:
        for window in range(WINDOWS):
            while made < calls * (window + 1) // WINDOWS:
                made += caller.step()
                if made >= due:
                    due += caller.every
                    caller.begin_anew()
            caller.begin_anew()
            windows.append(_measure())
        seconds = time.monotonic() - begin
        caller.finish()
        told = {"seconds": seconds, "windows": windows, "counts": caller.counts()}
    except BaseException as error:
        told = {"error": f"{type(error).__name__}: {error}"}
        if "HOSTILE_LOUD" in os.environ:
            raise
    print(json.dumps({"calls": made, **told}), file=answers, flush=True)


# ---- The process that watches ----


@dataclass
class Run:
    """How a run went."""

    kind: str
    seed: int
    calls: int
    seconds: float
    windows: list[tuple[int, int]]
    """Blocks and resident bytes at the ends of the windows."""
    counts: dict[str, dict[str, int]] = field(default_factory=dict)

    @property
    def growth(self) -> tuple[int, int]:
        """Of blocks and bytes, from when the process had settled to the end."""
        first, last = self.windows[_SETTLED - 1], self.windows[-1]
        return last[0] - first[0], last[1] - first[1]

    def told(self) -> str:
        """For people."""
        blocks, size = self.growth
        made = f"{self.calls:,} calls with seed {self.seed}, {self.calls / self.seconds:,.0f} a second"
        grown = f"over the last {WINDOWS - _SETTLED} of {WINDOWS} parts {blocks:+,} blocks and {size / 1024:+,.0f} KiB"
        lines = [f"{self.kind}: {made}; {grown}"]
        for name, counts in self.counts.items():
            lines.append(f"  {name}: " + ", ".join(f"{what} {number:,}" for what, number in counts.items()))
        return "\n".join(lines)


class DiedError(AssertionError):
    """A process that hostile calls have killed, or that found something wrong."""


def run(kind: str, calls: int, seed: int) -> Run:
    """Makes calls in a process of their own. Raises DiedError with its last calls where it dies or complains."""
    with tempfile.TemporaryDirectory(prefix="hostile-") as folder:
        journal = Path(folder) / "journal"
        journal.write_bytes(bytes(_SLOTS * _SLOT))
        host = Path(folder) / "host.kestrel"
        environment = os.environ | {"TMPDIR": folder, "PYTHONHASHSEED": "0", "KESTREL_HOST": str(host)}
        if kind != "flat":
            del environment["KESTREL_HOST"]
        paths = [str(_ROOT / name) for name in ("tools", "tests")]
        environment["PYTHONPATH"] = os.pathsep.join([*paths, *filter(None, [os.environ.get("PYTHONPATH")])])
        environment["MALLOC_ARENA_MAX"] = "1"
        command = [sys.executable, "-m", "hostile.run", "--worker", kind, str(calls), str(seed), str(journal)]
        done = subprocess.run(command, env=environment, stdout=subprocess.PIPE, text=True, check=False)
        answer = json.loads(done.stdout) if done.stdout else {}
        if done.returncode or "error" in answer:
            died = signal.strsignal(-done.returncode) if done.returncode < 0 else f"exit code {done.returncode}"
            last = "\n  ".join(Journal.read(journal)[-6:])
            told = answer.get("error", died)
            raise DiedError(f"{kind}, seed {seed}, {calls} calls: {told}\nthe last calls:\n  {last}")
        if host.exists():
            audit = [sys.executable, "-c", f"from hostile.worlds import audit\nprint(*audit({str(host)!r}))"]
            problems = subprocess.run(
                audit, env=environment, stdout=subprocess.PIPE, text=True, check=True
            ).stdout.strip()
            if problems:
                raise DiedError(f"{kind}, seed {seed}: the host file is damaged: {problems}")
        return Run(kind, seed, **answer)


def main() -> None:
    """What is described above."""
    if sys.argv[1] == "--worker":
        worker(sys.argv[2], int(sys.argv[3]), int(sys.argv[4]), Path(sys.argv[5]))
        return
    kind, calls = sys.argv[1], int(sys.argv[2])
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else time.time_ns() % 1_000_000
    shares = PACKAGE if kind == "package" else {kind: 1.0}
    for one, share in shares.items():
        done = run(one, int(calls * share), seed)
        print(done.told(), flush=True)
        blocks, size = done.growth
        if not SANITIZED and (blocks > BLOCKS or size > BYTES):
            sys.exit(f"{one}: memory grows with the calls: {done.windows}")


if __name__ == "__main__":
    main()
