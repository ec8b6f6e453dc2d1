"""Checking files: host files, state images, scenarios. The file itself is only read."""

from __future__ import annotations

import os
import sqlite3
import tempfile
from collections.abc import Iterator
from contextlib import closing, contextmanager
from dataclasses import dataclass, field
from pathlib import Path

from libkestrel.cli import images, places

_SQLITE = b"SQLite format 3\0"
_APPLICATION = 0x6B657374
_LAYOUT = 1
_SHOWN = 10


@dataclass
class Verified:
    """What was found."""

    what: str
    problems: list[str] = field(default_factory=list)
    contents: list[str] = field(default_factory=list)


def verified(path: Path) -> Verified:
    """Checks a file of any kind."""
    if path.is_dir():
        return Verified("unknown", ["is a folder"])
    with path.open("rb") as file:
        head = file.read(len(_SQLITE))
    if head == _SQLITE or (not head and path.suffix == ".kestrel"):
        return _host_file(path)
    if head.startswith(images.MAGIC[:4]):
        return _image(path.read_bytes())
    if path.suffix == ".toml":
        return _scenario(path)
    return Verified("unknown", ["is neither a host file nor a state image nor a scenario"])


def _count(number: int, what: str) -> str:
    plural = f"{what}es" if what.endswith("ch") else f"{what}s"
    return f"{number} {what if number == 1 else plural}"


# ---- Host files ----


def _host_file(path: Path) -> Verified:
    """The database first, on its own; then the host in a copy of it."""
    found = Verified("host file")
    with tempfile.TemporaryDirectory(prefix="kestrel-") as folder:
        copy = Path(folder) / "host.kestrel"
        try:
            found.problems += _database_problems(path, copy)
        except sqlite3.DatabaseError as error:
            found.problems.append(f"is damaged: {error}")
        if not found.problems:
            _read_host(found, copy)
    return found


def _database_problems(path: Path, copy: Path) -> list[str]:
    problems: list[str] = []
    with closing(_reading(path)) as database:
        application = database.execute("PRAGMA application_id").fetchone()[0]
        layout = database.execute("PRAGMA user_version").fetchone()[0]
        if application != _APPLICATION:
            problems.append("is a database of another program")
        elif layout > _LAYOUT:
            problems.append(f"was written by a later version: its tables have layout {layout}, not {_LAYOUT}")
        faults = [row[0] for row in database.execute(f"PRAGMA integrity_check({_SHOWN})")]
        problems += [f"is damaged: {line}" for fault in faults if fault != "ok" for line in fault.splitlines()]
        if not problems:
            with closing(sqlite3.connect(copy)) as target:
                database.backup(target)
    return problems


def _reading(path: Path) -> sqlite3.Connection:
    """A connection that only reads. Where the folder cannot be written, the log beside the file is left out."""
    uri = path.absolute().as_uri()
    try:
        database = sqlite3.connect(f"{uri}?mode=ro", uri=True)
        database.execute("SELECT count(*) FROM sqlite_master").fetchone()
    except sqlite3.OperationalError:
        database = sqlite3.connect(f"{uri}?immutable=1", uri=True)
    return database


def _read_host(found: Verified, copy: Path) -> None:
    """Reads everything through the platform, as a process does that opens the file."""
    from libkestrel._kestrel_error import KestrelError

    os.environ[places.VARIABLE] = str(copy)
    try:
        from libkestrel import Host

        switches = Host().switches.values()
        ports = 0
        for switch in switches:
            switch.info()
            ports += len(switch.ports)
            switch.mac_table().release()
            for port in switch.ports.values():
                _ = port.vlan, port.teaming, port.security
        Host().store.image()
        found.contents += [_count(len(switches), "switch"), _count(ports, "port")]
    except KestrelError as error:
        found.problems.append(f"cannot be read as a host: {error.text} ({error.name})")


# ---- Images ----


def _image(data: bytes) -> Verified:
    found = Verified("state image")
    contents = images.read(data)
    found.problems += contents.problems
    if not contents.problems and contents.kind == "state":
        found.contents += [_count(len(contents.switches), "switch"), _count(contents.ports, "port")]
        _try_image(found, data, contents)
    elif not contents.problems:
        found.contents.append(f"of kind {contents.kind}")
    return found


def _try_image(found: Verified, data: bytes, contents: images.Contents) -> None:
    """Puts the image into a host in memory that has the NICs that it names."""
    from libkestrel import Host, lab
    from libkestrel._kestrel_error import KestrelError

    try:
        with _host_in_memory():
            lab.reset()
            for nic in contents.nics:
                lab.plug(nic)
            Host().store.start_from(data)
    except KestrelError as error:
        found.problems.append(f"is refused by the host: {error.text} ({error.name})")
    except lab.NotEmbeddedError:
        found.contents.append("not tried on a host")


@contextmanager
def _host_in_memory() -> Iterator[None]:
    os.environ.pop(places.VARIABLE, None)
    yield


# ---- Scenarios ----


def _scenario(path: Path) -> Verified:
    from libkestrel.lab.scenario import ScenarioError, read_scenario

    found = Verified("scenario")
    try:
        scenario = read_scenario(path)
    except ScenarioError as error:
        found.problems += [str(problem) for problem in error.problems]
    else:
        found.contents += [
            _count(len(scenario.nic), "NIC"),
            _count(len(scenario.switch), "switch"),
            _count(sum(port.count for switch in scenario.switch for port in switch.port), "port"),
        ]
    return found
