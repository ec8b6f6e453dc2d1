"""Open vSwitch: its database server and its switch on the dummy datapath, in a folder of their own.

Nothing of the machine's own Open vSwitch is touched: database, sockets, process files and logs lie in the folder, and
the switch has no way to the kernel's datapath.
"""

from __future__ import annotations

import itertools
import json
import os
import shutil
import socket
import subprocess
import time
from collections.abc import Callable, Mapping
from pathlib import Path
from typing import Any

from benchmarks.peers_host import peer
from benchmarks.peers_host.peer import Peer, UnavailableError

_UNPACKED = Path(__file__).resolve().parents[2] / "build" / "openvswitch"
_PLACES = ("usr/bin", "usr/sbin", "usr/lib/openvswitch-switch")
_PATIENCE = 60.0

Operation = Mapping[str, object]
"""A part of a transaction, as RFC 7047 spells it."""


def program(name: str) -> str:
    """Find a program of Open vSwitch: unpacked by tools/openvswitch, or the machine's own."""
    for root in (_UNPACKED, Path("/")):
        for place in _PLACES:
            if (found := root / place / name).exists():
                return str(found)
    raise UnavailableError(f"{name} is not installed (tools/openvswitch brings it)")


class Connection:
    """A connection to a server that speaks JSON-RPC over a socket of the file system."""

    def __init__(self, path: Path) -> None:
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(str(path))
        self._decoder = json.JSONDecoder()
        self._numbers = itertools.count()
        self._rest = b""

    def call(self, method: str, *parameters: object) -> Any:
        """The result of a method; RuntimeError with the server's words."""
        number = next(self._numbers)
        request = {"method": method, "params": list(parameters), "id": number}
        self._socket.sendall(json.dumps(request).encode())
        while True:
            answer = self._receive()
            if answer.get("method") == "echo":
                self._socket.sendall(json.dumps({"result": answer["params"], "error": None, "id": "echo"}).encode())
            elif answer.get("id") == number:
                if answer["error"] is not None:
                    raise RuntimeError(str(answer["error"]))
                return answer["result"]

    def close(self) -> None:
        """Hang up."""
        self._socket.close()

    def _receive(self) -> dict[str, Any]:
        """One message. They follow each other without anything in between, so it is complete when it can be read."""
        parts = [self._rest]
        while True:
            # Nothing but the end of an object can end a message.
            if parts[-1].endswith(b"}"):
                data = b"".join(parts)
                try:
                    message, end = self._decoder.raw_decode(data.decode())
                except json.JSONDecodeError:
                    parts = [data]
                else:
                    self._rest = data.decode()[end:].encode()
                    assert isinstance(message, dict)
                    return message
            part = self._socket.recv(1 << 20)
            if not part:
                raise ConnectionError("the server has hung up")
            parts.append(part)


class Servers:
    """The database server, and the switch where it is wanted."""

    def __init__(self, folder: Path, *, with_switch: bool) -> None:
        self._folder = folder
        self._processes: list[subprocess.Popen[bytes]] = []
        self.database = folder / "db.sock"
        self.control = folder / "vswitchd.ctl"
        self._environment = os.environ | {
            name: str(folder) for name in ("OVS_RUNDIR", "OVS_LOGDIR", "OVS_DBDIR", "OVS_SYSCONFDIR")
        }
        schema = next((p for p in (_share(), Path("/usr/share/openvswitch")) if (p / _SCHEMA).exists()), None)
        if schema is None:
            raise UnavailableError(f"{_SCHEMA} is not installed (tools/openvswitch brings it)")
        file = folder / "conf.db"
        subprocess.run([program("ovsdb-tool"), "create", str(file), str(schema / _SCHEMA)], check=True)
        database, control = self.database, folder / "ovsdb.ctl"
        self._run("ovsdb-server", str(file), f"--remote=punix:{database}", f"--unixctl={control}", wait=database)
        self.vsctl("--no-wait", "init")
        if with_switch:
            # In a network namespace of its own, so that no interface of the machine's can be meant.
            apart = ["unshare", "--net"] if os.geteuid() == 0 and shutil.which("unshare") else []
            dummy = ("--enable-dummy", "--disable-system", "--disable-system-route")
            self._run(
                "ovs-vswitchd", f"unix:{database}", *dummy, f"--unixctl={self.control}", wait=self.control, apart=apart
            )

    def _run(self, name: str, *arguments: str, wait: Path, apart: list[str] | None = None) -> None:
        command = [*(apart or []), program(name), *arguments, f"--log-file={self._folder / name}.log", "-vconsole:off"]
        with (self._folder / f"{name}.out").open("wb") as output:
            process = subprocess.Popen(command, env=self._environment, stdout=output, stderr=output)
        self._processes.append(process)
        limit = time.monotonic() + _PATIENCE
        while not wait.exists():
            if process.poll() is not None or time.monotonic() > limit:
                raise UnavailableError(f"{name} does not start: {(self._folder / f'{name}.out').read_text().strip()}")
            time.sleep(0.01)

    def vsctl(self, *arguments: str) -> str:
        """Run ovs-vsctl in a process, on this database alone."""
        command = [program("ovs-vsctl"), f"--db=unix:{self.database}", *arguments]
        done = subprocess.run(command, env=self._environment, check=True, capture_output=True, text=True)
        return done.stdout

    def appctl(self, *arguments: str) -> str:
        """Run ovs-appctl in a process, on this switch alone."""
        command = [program("ovs-appctl"), "-t", str(self.control), *arguments]
        done = subprocess.run(command, env=self._environment, check=True, capture_output=True, text=True)
        return done.stdout

    def stop(self) -> None:
        """End the servers, the switch first."""
        for process in reversed(self._processes):
            process.terminate()
        for process in reversed(self._processes):
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()


_SCHEMA = "vswitch.ovsschema"


def _share() -> Path:
    return _UNPACKED / "usr/share/openvswitch"


class _OpenVSwitch(Peer):
    """What every way to it has in common."""

    with_switch = True

    def start(self, folder: Path) -> None:
        """Bring the servers up."""
        self._servers = Servers(folder, with_switch=self.with_switch)

    def stop(self) -> None:
        """End the servers."""
        self._servers.stop()

    def version(self) -> str:
        """What ovsdb-server says of itself."""
        return subprocess.check_output([program("ovsdb-server"), "--version"], text=True).split("\n")[0]

    def learn(self, switch: str, count: int) -> None:
        """Enter static entries through the switch's control socket."""
        self._servers.vsctl(
            *("add-br", switch, "--", "set", "bridge", switch, "datapath_type=dummy", "fail-mode=standalone"),
            f"other-config:mac-table-size={2 * count}",
        )
        port = f"{switch}p"
        self._servers.vsctl("add-port", switch, port, "--", "set", "interface", port, "type=dummy")
        control = Connection(self._servers.control)
        for i in range(count):
            control.call("fdb/add", switch, port, str(i % 100), peer.mac(i).hex(":"))
        control.close()


def _entries(table: str) -> list[tuple[bytes, int, int, str]]:
    """What `fdb/show` prints, as tuples."""
    lines = table.splitlines()[1:]
    found = []
    for line in lines:
        port, vlan, address, age = line.split()
        found.append((bytes.fromhex(address.replace(":", "")), int(vlan), int(port), age))
    return found


class OvsRpc(_OpenVSwitch):
    """Transactions over the database's own protocol, and its switch has taken each of them over."""

    title = "Open vSwitch, JSON-RPC"
    durability = "each transaction asks for a durable commit; then waits until ovs-vswitchd has taken it over"

    def start(self, folder: Path) -> None:
        """Connect for good."""
        super().start(folder)
        self._connection = Connection(self._servers.database)
        root = self._transact({"op": "select", "table": "Open_vSwitch", "where": [], "columns": ["_uuid"]})
        self._root = root[0]["rows"][0]["_uuid"]

    def stop(self) -> None:
        """Hang up first."""
        if hasattr(self, "_connection"):
            self._connection.close()
        super().stop()

    def _transact(self, *operations: Operation) -> list[Any]:
        answers = self._connection.call("transact", "Open_vSwitch", *operations)
        for answer in answers:
            if isinstance(answer, dict) and answer.get("error"):
                raise RuntimeError(str(answer))
        assert isinstance(answers, list)
        return answers

    def _commit(self, *operations: Operation) -> None:
        """A durable transaction. Where there is a switch, it is told, and waited for."""
        durable = {"op": "commit", "durable": True}
        if not self.with_switch:
            self._transact(*operations, durable)
            return
        here = ["_uuid", "==", self._root]
        count = {"op": "mutate", "table": "Open_vSwitch", "where": [here], "mutations": [["next_cfg", "+=", 1]]}
        read = {"op": "select", "table": "Open_vSwitch", "where": [here], "columns": ["next_cfg"]}
        number = self._transact(*operations, count, read, durable)[-2]["rows"][0]["next_cfg"]
        reached: dict[str, object] = {
            "op": "wait",
            "table": "Open_vSwitch",
            "where": [here],
            "columns": ["cur_cfg"],
            "until": "==",
        }
        self._transact(reached | {"rows": [{"cur_cfg": number}], "timeout": int(_PATIENCE * 1000)})

    def operations(self, switch: str, round_: int, count: int) -> dict[str, Callable[[], object]]:
        """Every operation is one transaction."""
        ports = [peer.port(i) for i in range(count)]
        changes = itertools.count()
        named = [["name", "==", switch]]

        def create() -> None:
            self._commit(
                _insert("Interface", "i", name=switch, type="internal"),
                _insert("Port", "p", name=switch, interfaces=["named-uuid", "i"]),
                _insert(
                    "Bridge",
                    "b",
                    name=switch,
                    datapath_type="dummy",
                    fail_mode="standalone",
                    ports=["named-uuid", "p"],
                ),
                self._mutate_root("insert", ["named-uuid", "b"]),
            )

        def add() -> None:
            operations: list[Operation] = []
            for i, port in enumerate(ports):
                operations.append(_insert("Interface", f"i{i}", name=port, type="dummy"))
                operations.append(_insert("Port", f"p{i}", name=port, interfaces=["named-uuid", f"i{i}"]))
            added = ["set", [["named-uuid", f"p{i}"] for i in range(count)]]
            mutation = {"op": "mutate", "table": "Bridge", "where": named, "mutations": [["ports", "insert", added]]}
            self._commit(*operations, mutation)

        def tag(port: str, vlan: int) -> Operation:
            return {"op": "update", "table": "Port", "where": [["name", "==", port]], "row": {"tag": vlan}}

        def read_vlans() -> dict[str, int]:
            select = {"op": "select", "table": "Port", "where": [], "columns": ["name", "tag"]}
            rows = self._transact(select)[0]["rows"]
            return {row["name"]: row["tag"] for row in rows if row["name"] != switch}

        def change() -> None:
            number = next(changes)
            self._commit(tag(ports[number % count], 2000 + number % 2000))

        def list_switches() -> list[str]:
            rows = self._transact({"op": "select", "table": "Bridge", "where": [], "columns": ["name"]})[0]["rows"]
            return [row["name"] for row in rows]

        def destroy() -> None:
            found = self._transact({"op": "select", "table": "Bridge", "where": named, "columns": ["_uuid"]})
            self._commit(self._mutate_root("delete", found[0]["rows"][0]["_uuid"]))

        return {
            peer.CREATE: create,
            peer.ADD_PORTS: add,
            peer.SET_VLANS: lambda: self._commit(*(tag(port, peer.vlan(i, round_)) for i, port in enumerate(ports))),
            peer.READ_VLANS: read_vlans,
            peer.CHANGE: change,
            peer.LIST: list_switches,
            peer.DESTROY: destroy,
        }

    def _mutate_root(self, how: str, bridge: object) -> Operation:
        where = [["_uuid", "==", self._root]]
        return {"op": "mutate", "table": "Open_vSwitch", "where": where, "mutations": [["bridges", how, bridge]]}

    def reading(self, switch: str) -> dict[str, Callable[[], object]]:
        """The text of `fdb/show`, asked for on the control socket."""
        control = Connection(self._servers.control)
        return {peer.READ_MACS: lambda: _entries(control.call("fdb/show", switch))}


def _insert(table: str, label: str, **row: object) -> Operation:
    return {"op": "insert", "table": table, "uuid-name": label, "row": row}


class OvsDatabase(OvsRpc):
    """The database server alone: configuration is written down and nobody acts on it."""

    title = "ovsdb-server alone, JSON-RPC"
    durability = "each transaction asks for a durable commit; there is no switch to take it over"
    with_switch = False

    def learn(self, switch: str, count: int) -> None:
        """A database learns nothing."""
        del switch, count
        raise UnavailableError("ovsdb-server has no MAC table")


class OvsProcess(_OpenVSwitch):
    """A process of ovs-vsctl for each operation, as its users work."""

    title = "ovs-vsctl, a process each"
    durability = "not synchronised: ovs-vsctl never asks for it; it waits until ovs-vswitchd has taken the change over"

    def operations(self, switch: str, round_: int, count: int) -> dict[str, Callable[[], object]]:
        """Many changes are one command with many parts."""
        vsctl = self._servers.vsctl
        ports = [peer.port(i) for i in range(count)]
        changes = itertools.count()

        def parts(commands: list[list[str]]) -> None:
            vsctl(*(word for command in commands for word in ("--", *command)))

        def add() -> None:
            created = [["add-port", switch, port] for port in ports]
            typed = [["set", "interface", port, "type=dummy"] for port in ports]
            parts([each for pair in zip(created, typed, strict=True) for each in pair])

        def read_vlans() -> dict[str, int]:
            answer = json.loads(vsctl("--format=json", "--columns=name,tag", "list", "Port"))
            return {name: tag for name, tag in answer["data"] if name != switch}

        def change() -> None:
            number = next(changes)
            vsctl("set", "port", ports[number % count], f"tag={2000 + number % 2000}")

        return {
            peer.CREATE: lambda: vsctl(
                *("add-br", switch, "--", "set", "bridge", switch, "datapath_type=dummy", "fail-mode=standalone")
            ),
            peer.ADD_PORTS: add,
            peer.SET_VLANS: lambda: parts(
                [["set", "port", port, f"tag={peer.vlan(i, round_)}"] for i, port in enumerate(ports)]
            ),
            peer.READ_VLANS: read_vlans,
            peer.CHANGE: change,
            peer.LIST: lambda: vsctl("list-br"),
            peer.DESTROY: lambda: vsctl("del-br", switch),
        }

    def reading(self, switch: str) -> dict[str, Callable[[], object]]:
        """The text that ovs-appctl prints."""
        return {peer.READ_MACS: lambda: _entries(self._servers.appctl("fdb/show", switch))}
