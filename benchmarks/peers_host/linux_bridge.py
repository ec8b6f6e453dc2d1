"""The kernel's bridge through pyroute2, in a network namespace made for the purpose."""

from __future__ import annotations

import ctypes
import errno
import importlib
import itertools
import os
import socket
import time
from collections.abc import Callable
from pathlib import Path
from typing import Any

from benchmarks.peers_host import peer
from benchmarks.peers_host.peer import Peer, UnavailableError

_NEW_USER, _NEW_NET = 0x10000000, 0x40000000
_GROUP = 7
"""The group of links by which ports are removed at once."""
_ETHERTYPE = b"\x88\xb5"
_PASSES = 10
_AGEING = 10_000_000
"""In hundredths of a second: longer than anything takes here."""
_TAG_FLAGS = ["untagged", "pvid"]


class LinuxBridge(Peer):
    """Netlink requests, one after the other, as pyroute2 offers them."""

    title = "Linux bridge, pyroute2"
    durability = "none: the kernel's memory"

    def start(self, folder: Path) -> None:
        """Leave the machine's network, for good, and look whether bridges are there."""
        del folder
        library = ctypes.CDLL(None, use_errno=True)
        if library.unshare(_NEW_NET) and library.unshare(_NEW_USER | _NEW_NET):
            raise UnavailableError(f"no network namespace: {os.strerror(ctypes.get_errno())}")
        pyroute2: Any = importlib.import_module("pyroute2")
        self._refusal = pyroute2.NetlinkError
        self._netlink = pyroute2.IPRoute()
        try:
            self._netlink.link("add", ifname="probe", kind="bridge")
        except self._refusal as error:
            raise UnavailableError(f"the kernel makes no bridges: {error}") from error
        self._netlink.link("del", index=self._index("probe"))
        self._has_vlans = self._probe_vlans()

    def version(self) -> str:
        """The kernel is told with the machine."""
        return "" if self._has_vlans else "no VLANs: this kernel's bridge has no VLAN filtering"

    def stop(self) -> None:
        """The namespace ends with the process."""
        if hasattr(self, "_netlink"):
            self._netlink.close()

    def _probe_vlans(self) -> bool:
        try:
            self._netlink.link("add", ifname="probe", kind="bridge", br_vlan_filtering=1)
        except self._refusal as error:
            if error.code in (errno.EOPNOTSUPP, errno.EINVAL):
                return False
            raise
        self._netlink.link("del", index=self._index("probe"))
        return True

    def _index(self, name: str) -> int:
        return int(self._netlink.link_lookup(ifname=name)[0])

    def _create(self, switch: str) -> None:
        filtering = {"br_vlan_filtering": 1} if self._has_vlans else {}
        self._netlink.link("add", ifname=switch, kind="bridge", br_ageing_time=_AGEING, **filtering)

    def operations(self, switch: str, round_: int, count: int) -> dict[str, Callable[[], object]]:
        """A port is a pair of virtual interfaces, of which one end is the bridge's; VLANs where the kernel has them."""
        netlink = self._netlink

        def add() -> None:
            bridge = self._index(switch)
            for i in range(count):
                name = peer.port(i)
                netlink.link("add", ifname=name, kind="veth", peer={"ifname": f"{name}x"}, master=bridge, group=_GROUP)

        def destroy() -> None:
            netlink.link("del", group=_GROUP)
            netlink.link("del", index=self._index(switch))

        def list_switches() -> list[str]:
            return [link.get_attr("IFLA_IFNAME") for link in netlink.get_links(kind="bridge")]

        found: dict[str, Callable[[], object]] = {
            peer.CREATE: lambda: self._create(switch),
            peer.ADD_PORTS: add,
            peer.LIST: list_switches,
            peer.DESTROY: destroy,
        }
        if self._has_vlans:
            found |= self._vlan_operations(round_, count)
        return found

    def _vlan_operations(self, round_: int, count: int) -> dict[str, Callable[[], object]]:
        netlink = self._netlink
        changes = itertools.count()

        def tag(index: int, vlan: int) -> None:
            netlink.vlan_filter("add", index=index, vlan_info={"vid": vlan, "flags": _TAG_FLAGS})

        def names() -> dict[int, str]:
            return {link["index"]: link.get_attr("IFLA_IFNAME") for link in netlink.get_links(group=_GROUP)}

        def set_vlans() -> None:
            indexes = {name: index for index, name in names().items()}
            for i in range(count):
                tag(indexes[peer.port(i)], peer.vlan(i, round_))

        def read_vlans() -> dict[str, int]:
            known = names()
            found = {}
            for link in netlink.get_vlans():
                for _, info in link.get_attr("IFLA_AF_SPEC")["attrs"]:
                    if link["index"] in known and info["flags"] & 2:  # the VLAN of untagged frames
                        found[known[link["index"]]] = info["vid"]
            return found

        def change() -> None:
            number = next(changes)
            tag(self._index(peer.port(number % count)), 2000 + number % 2000)

        return {peer.SET_VLANS: set_vlans, peer.READ_VLANS: read_vlans, peer.CHANGE: change}

    def learn(self, switch: str, count: int) -> None:
        """Let frames in through a port, from every address."""
        netlink = self._netlink
        self._create(switch)
        port, outside = f"{switch}p", f"{switch}x"
        netlink.link("add", ifname=port, kind="veth", peer={"ifname": outside}, master=self._index(switch))
        for name in (switch, port, outside):
            netlink.link("set", index=self._index(name), state="up")
        destination = bytes((0x02, 0x76, 0, 0, 0, 0))
        read = self.reading(switch)[peer.READ_MACS]
        with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as sender:
            sender.bind((outside, 0))
            # A port that was just plugged in does not learn yet, and a busy machine drops frames.
            for _ in range(_PASSES):
                for i in range(count):
                    sender.send(destination + peer.mac(i) + _ETHERTYPE + bytes(46))
                time.sleep(0.2)
                if len(read()) == count:
                    return
        raise RuntimeError(f"the bridge does not learn {count} addresses")

    def reading(self, switch: str) -> dict[str, Callable[[], list[tuple[object, ...]]]]:
        """All entries that netlink dumps, but those of the interfaces themselves."""
        netlink = self._netlink
        bridge = self._index(switch)

        def rows() -> list[tuple[object, ...]]:
            found: list[tuple[object, ...]] = []
            for entry in netlink.fdb("dump"):
                address = entry.get_attr("NDA_LLADDR")
                if entry.get_attr("NDA_MASTER") == bridge and address.startswith("02:77:"):
                    found.append(
                        (bytes.fromhex(address.replace(":", "")), entry.get_attr("NDA_VLAN"), entry["ifindex"])
                    )
            return found

        return {peer.READ_MACS: rows}
