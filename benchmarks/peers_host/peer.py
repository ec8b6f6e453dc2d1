"""What every switch that is measured has to do: the same work, told in the words of each."""

from __future__ import annotations

from abc import ABC, abstractmethod
from collections.abc import Callable, Mapping
from pathlib import Path
from typing import ClassVar

CREATE = "create a switch"
ADD_PORTS = "add its ports in one commit"
SET_VLANS = "set all their VLANs in one commit"
READ_VLANS = "read all their VLANs"
CHANGE = "change one VLAN, a commit of its own"
LIST = "list the switches"
READ_MACS = "read the MAC table as tuples"
READ_COLUMNS = "read the MAC table as columns"
DESTROY = "remove the switch with its ports"

CHANGES = 20
"""How many changes are made one after the other, for the cost of each."""


class UnavailableError(Exception):
    """Why a peer or one of its operations cannot be measured here."""


def mac(number: int) -> bytes:
    """The address of an entry, scattered as real ones are."""
    return bytes((0x02, 0x77)) + (number * 2654435761 % 2**32).to_bytes(4, "big")


def vlan(number: int, round_: int) -> int:
    """The VLAN of a port; another one every round, since nobody writes down what is so already."""
    return 1 + (number + round_) % 1000


def port(number: int) -> str:
    """The name of a port, good as a network interface's."""
    return f"p{number}"


class Peer(ABC):
    """A switch with a way to speak to it, in a process and a folder of its own."""

    title: ClassVar[str]
    durability: ClassVar[str]
    """What a commit means here."""

    @abstractmethod
    def start(self, folder: Path) -> None:
        """Bring it up with all its files in the folder; UnavailableError where that cannot be."""

    def stop(self) -> None:  # noqa: B027 - most leave nothing behind
        """Leave nothing running."""

    def version(self) -> str:
        """Which it is."""
        return ""

    @abstractmethod
    def operations(self, switch: str, round_: int, count: int) -> dict[str, Callable[[], object]]:
        """The operations of a round on a switch of its own with `count` ports, in the order of their names above.

        READ_VLANS answers VLAN by port, READ_MACS all entries as tuples that begin with six bytes; CHANGE is one.
        """

    def learn(self, switch: str, count: int) -> None:
        """Make entries of the MAC table, as fast as it can be done."""
        raise UnavailableError(f"{self.title} has no MAC table for {switch} and {count} entries")

    def reading(self, switch: str) -> Mapping[str, Callable[[], object]]:
        """The ways to read the MAC table."""
        raise UnavailableError(f"{self.title} has no MAC table for {switch}")
