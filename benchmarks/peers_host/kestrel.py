"""The embedded host: through the companion package, through the flat module, and by its command line."""

from __future__ import annotations

import importlib
import itertools
import json
import os
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path
from typing import Any

from benchmarks.peers_host import peer
from benchmarks.peers_host.peer import Peer, UnavailableError

_LEARNED_BY_PORT = 4000
_MAX_PORTS = 1000


class KestrelObjects(Peer):
    """The companion package on a host file."""

    title = "libkestrel"
    durability = "a commit is synchronised before the call returns"
    in_file = True

    def start(self, folder: Path) -> None:
        """Choose the host before the library looks for it."""
        os.environ.pop("KESTREL_HOST", None)
        if self.in_file:
            os.environ["KESTREL_HOST"] = str(folder / "host.kestrel")
        from libkestrel import AccessVlan, Host, lab

        self._access = AccessVlan
        self._host = Host()
        self._lab = lab
        lab.reset()

    def operations(self, switch: str, round_: int, count: int) -> dict[str, Callable[[], object]]:
        """Every operation is a plan or a single change."""
        host, access = self._host, self._access
        ports = [peer.port(i) for i in range(count)]

        def add() -> None:
            with host.plan() as plan:
                added = plan.switch(switch).ports
                for port in ports:
                    added.add(port)
            plan.apply()

        def set_vlans() -> None:
            with host.plan() as plan:
                planned = plan.switch(switch).ports
                for i, port in enumerate(ports):
                    planned[port].vlan = access(peer.vlan(i, round_))
            plan.apply()

        def read_vlans() -> dict[str, int]:
            return {name: port.vlan.vlan for name, port in host.switch(switch).ports.items()}  # type: ignore[union-attr]

        changes = itertools.count()

        def change() -> None:
            number = next(changes)
            host.switch(switch).port(ports[number % count]).vlan = access(2000 + number % 2000)

        return {
            peer.CREATE: lambda: host.switches.create(switch, f"id-{switch}", max_ports=2 * count),
            peer.ADD_PORTS: add,
            peer.SET_VLANS: set_vlans,
            peer.READ_VLANS: read_vlans,
            peer.CHANGE: change,
            peer.LIST: lambda: list(host.switches),
            peer.DESTROY: lambda: host.switches.destroy(switch),
        }

    def learn(self, switch: str, count: int) -> None:
        """Enter addresses by hand, as many as each port takes."""
        from libkestrel.host.mac_learning import SwitchLearning
        from libkestrel.records import MacAddress

        made = self._host.switches.create(switch, f"id-{switch}", max_ports=_MAX_PORTS)
        made.mac_learning = SwitchLearning(aging_time=1_000_000, limit=2 * count)
        with self._lab.transaction():
            for first in range(0, count, _LEARNED_BY_PORT):
                port = made.ports.add(peer.port(first))
                for i in range(first, min(count, first + _LEARNED_BY_PORT)):
                    port.add_mac(MacAddress(peer.mac(i)), i % 100)

    def reading(self, switch: str) -> dict[str, Callable[[], object]]:
        """Rows, and columns with numpy."""
        found = self._host.switch(switch)
        numpy: Any = importlib.import_module("numpy")

        def rows() -> list[Any]:
            with found.mac_table() as table:
                return list(table.rows())

        def columns() -> dict[str, Any]:
            with found.mac_table() as table:
                return {name: numpy.array(column) for name, column in table.columns().items()}

        return {peer.READ_MACS: rows, peer.READ_COLUMNS: columns}


class KestrelInMemory(KestrelObjects):
    """The companion package on a host in memory."""

    title = "libkestrel, in memory"
    durability = "a commit ends with the process"
    in_file = False


class KestrelFlat(KestrelObjects):
    """The flat module on a host file."""

    title = "_libkestrel"

    def operations(self, switch: str, round_: int, count: int) -> dict[str, Callable[[], object]]:
        """The functions of the platform, several in a transaction of the laboratory."""
        flat: Any = importlib.import_module("_libkestrel")
        ports = [peer.port(i) for i in range(count)]

        def require(status: int) -> None:
            if status != flat.ZEL_OK:
                raise RuntimeError(f"status 0x{status:x}")

        def add() -> None:
            with self._lab.transaction():
                for port in ports:
                    require(flat.VSDVS_AddDVPort(switch, port, 0))

        def set_vlan(port: str, vlan: int) -> None:
            require(flat.VSDVS_SetPortVLANPolicy(switch, port, vlan, 0, 0, 0, None, 0))

        def set_vlans() -> None:
            with self._lab.transaction():
                for i, port in enumerate(ports):
                    set_vlan(port, peer.vlan(i, round_))

        def read_vlans() -> dict[str, int]:
            found = {}
            for port in ports:
                status, policy, _length = flat.VSDVS_GetPortVLANPolicy(switch, port)
                require(status)
                found[port] = flat.VSPortVlanPolicy_vlanID_get(policy)
                flat.VSDVS_FreeMemory(policy)
            return found

        changes = itertools.count()

        def change() -> None:
            number = next(changes)
            set_vlan(ports[number % count], 2000 + number % 2000)

        return {
            peer.CREATE: lambda: require(
                flat.VSDVS_CreateVSwitch(
                    switch, f"id-{switch}", flat.PS_CLASS_NAME, 0, 0, 2 * count, 1500, flat.DVS_VERSION_70
                )
            ),
            peer.ADD_PORTS: add,
            peer.SET_VLANS: set_vlans,
            peer.READ_VLANS: read_vlans,
            peer.CHANGE: change,
            peer.DESTROY: lambda: require(flat.VSDVS_DestroyVSwitch(switch)),
        }

    def learn(self, switch: str, count: int) -> None:
        """The flat module reads tables field by field, and has no way to the bytes of an address."""
        raise UnavailableError(f"{self.title} gives no addresses of {switch}, whatever their {count}")


class KestrelProcess(Peer):
    """A process of the command line for each operation, on a host file."""

    title = "kestrel, a process each"
    durability = "a commit is synchronised before the process ends"

    def start(self, folder: Path) -> None:
        """Begin with an empty host."""
        os.environ["KESTREL_HOST"] = str(folder / "host.kestrel")
        subprocess.run(
            [sys.executable, "-c", "from libkestrel import lab; lab.reset()"], check=True, env=os.environ.copy()
        )
        self._folder = folder
        script = Path(sys.executable).with_name("kestrel")
        self._command = [str(script)] if script.exists() else [sys.executable, "-m", "libkestrel.cli"]

    def operations(self, switch: str, round_: int, count: int) -> dict[str, Callable[[], object]]:
        """One command each; many VLANs at once are a file that says what the switch is to be."""
        ports = [peer.port(i) for i in range(count)]
        wanted = self._folder / f"{switch}.toml"
        lines = [f"[[switch]]\nname = '{switch}'\nmax-ports = {2 * count}"]
        lines += [f"[[switch.port]]\nid = '{port}'\nvlan = {peer.vlan(i, round_)}" for i, port in enumerate(ports)]
        wanted.write_text("\n".join(lines) + "\n")
        changes = itertools.count()

        def read_vlans() -> dict[str, int]:
            answer = json.loads(self._run("vlan", "list", switch, "--json"))
            return {port["port"]: port["vlan"] for port in answer["data"]}

        def change() -> None:
            number = next(changes)
            self._run("vlan", "set", switch, ports[number % count], str(2000 + number % 2000))

        return {
            peer.CREATE: lambda: self._run("switch", "create", switch, "--max-ports", str(2 * count)),
            peer.ADD_PORTS: lambda: self._run("port", "create", switch, *ports),
            peer.SET_VLANS: lambda: self._run("apply", str(wanted)),
            peer.READ_VLANS: read_vlans,
            peer.CHANGE: change,
            peer.LIST: lambda: self._run("switch", "list", "--json"),
            peer.DESTROY: lambda: self._run("switch", "delete", switch),
        }

    def learn(self, switch: str, count: int) -> None:
        """Another process enters them, on the same host file."""
        code = (
            "import sys; from pathlib import Path; from benchmarks.peers_host.kestrel import KestrelObjects;"
            "ours = KestrelObjects(); ours.start(Path(sys.argv[1])); ours.learn(sys.argv[2], int(sys.argv[3]))"
        )
        root = str(Path(__file__).resolve().parents[2])
        path = os.pathsep.join([root, os.environ.get("PYTHONPATH", "")])
        command = [sys.executable, "-c", code, str(self._folder), switch, str(count)]
        subprocess.run(command, check=True, env=os.environ | {"PYTHONPATH": path})

    def reading(self, switch: str) -> dict[str, Callable[[], object]]:
        """Tuples of the answer in JSON."""

        def rows() -> list[tuple[object, ...]]:
            data = json.loads(self._run("mac", "list", switch, "--json"))["data"]
            return [(bytes.fromhex(entry["mac"].replace(":", "")), entry["vlan"], entry["port"]) for entry in data]

        return {peer.READ_MACS: rows}

    def _run(self, *arguments: str) -> str:
        done = subprocess.run([*self._command, *arguments], check=True, stdout=subprocess.PIPE, text=True)
        return done.stdout
