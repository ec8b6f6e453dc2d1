"""State images, read as far as docs/state-image.md describes them: their head, and what they hold."""

from __future__ import annotations

import struct
from collections.abc import Iterator
from dataclasses import dataclass, field

import _libkestrel as flat

MAGIC = bytes.fromhex("894b53490d0a1a0a")
_HEAD = struct.Struct("<8sHHIII")
_KINDS = {1: "state", 2: "port", 3: "properties"}
_SWITCH, _PORT, _GROUP = 1, 3, 4
_CHECKSUM_AT = 20


@dataclass
class Contents:
    """What an image holds, as far as it could be read."""

    kind: str = "unknown"
    problems: list[str] = field(default_factory=list)
    switches: list[str] = field(default_factory=list)
    ports: int = 0
    nics: list[str] = field(default_factory=list)


def read(data: bytes) -> Contents:
    """Reads an image. What is wrong with it is among its problems."""
    found = Contents()
    if len(data) < _HEAD.size:
        found.problems.append(f"is {len(data)} bytes long, too short for an image, whose head alone has {_HEAD.size}")
        return found
    magic, form, kind, _version, length, checksum = _HEAD.unpack_from(data)
    if magic != MAGIC:
        found.problems.append("does not begin as an image does; a transfer as text may have damaged it")
        return found
    if form != 1:
        found.problems.append(f"is of format {form}; this version reads format 1")
    found.kind = _KINDS.get(kind, "unknown")
    if found.kind == "unknown":
        found.problems.append(f"is of kind {kind}, which is none")
    if length != len(data):
        found.problems.append(f"says that it has {length} bytes, and has {len(data)}: {_cut(length, len(data))}")
    elif crc32c(data[:_CHECKSUM_AT] + data[_HEAD.size :]) != checksum:
        found.problems.append("has a wrong checksum: some of its bytes have changed")
    if not found.problems and found.kind == "state":
        try:
            _read_switches(found, data)
        except (struct.error, UnicodeDecodeError, ValueError):
            found.problems.append("has contents that cannot be read")
    return found


def lacking_nics(data: bytes) -> list[str]:
    """The NICs that an image names and the embedded host lacks; none on another platform and of a damaged image."""
    from libkestrel import lab

    try:
        present = {nic.name for nic in lab.nics()}
    except lab.NotEmbeddedError:
        return []
    return [nic for nic in read(data).nics if nic not in present]


def _cut(said: int, has: int) -> str:
    return "the end is missing" if has < said else "something follows it"


class _Reader:
    """Reads fields one after another."""

    def __init__(self, data: bytes) -> None:
        self._data, self._at = data, 0

    def take(self, count: int) -> bytes:
        if self._at + count > len(self._data):
            raise ValueError("short")
        self._at += count
        return self._data[self._at - count : self._at]

    def u32(self) -> int:
        return int(struct.unpack("<I", self.take(4))[0])

    def text(self) -> str:
        return self.take(self.u32()).decode()

    def sections(self) -> Iterator[tuple[int, _Reader]]:
        while self._at < len(self._data):
            kind = self.u32()
            yield kind, _Reader(self.take(self.u32()))

    def block(self) -> bytes:
        return self.take(self.u32())


def _read_switches(found: Contents, data: bytes) -> None:
    for kind, switch in _Reader(data[_HEAD.size :]).sections():
        if kind != _SWITCH:
            continue
        _id, _portset, alias, _class = (switch.text() for _ in range(4))
        found.switches.append(alias)
        switch.take(4 + 4 + 2 + 2 + 1)
        for inner, port in switch.sections():
            if inner == _PORT:
                found.ports += 1
                _read_port(found, port)


def _read_port(found: Contents, port: _Reader) -> None:
    port.u32()
    for _text in range(3):  # name, external identifier, uplink
        port.text()
    client = port.block()
    if client:
        reader = _Reader(client)
        if reader.u32() == flat.VS_PORT_CLIENT_UPLINK:
            found.nics.append(reader.text())


# ---- The checksum ----


def _table() -> list[int]:
    rows = []
    for byte in range(256):
        value = byte
        for _bit in range(8):
            value = value >> 1 ^ (0x82F63B78 if value & 1 else 0)
        rows.append(value)
    return rows


def crc32c(data: bytes) -> int:
    """CRC-32C (Castagnoli) of bytes."""
    table = _table()
    value = 0xFFFFFFFF
    for byte in data:
        value = value >> 8 ^ table[(value ^ byte) & 0xFF]
    return value ^ 0xFFFFFFFF
