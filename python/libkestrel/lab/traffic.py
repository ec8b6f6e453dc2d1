"""Frames into the host, and frames out of it."""

from __future__ import annotations

import ctypes
import os
from collections.abc import Iterator, Sequence
from contextlib import contextmanager

from libkestrel.lab import _declarations, _library
from libkestrel.lab.frames import Frame


def send(switch: str, port: str, frame: bytes) -> None:
    """Lets a frame, without its check sequence, come in through a port: from its client, or from the network for an
    uplink. What the switch makes of it, dropping it included, is no failure.
    """
    content = bytes(memoryview(frame))
    data = (ctypes.c_uint8 * len(content)).from_buffer_copy(content)
    _library.call(f"frame into port {port} of {switch}", "send", switch, port, data, len(content))


def play(switch: str, port: str, path: str | os.PathLike[str], *, timed: bool = True) -> int:
    """Lets the frames of a pcap file come in through a port, all of them or none, and gives how many they were.

    Time passes between them as the file tells, or not at all. Files of the successor format pcapng are refused.
    """
    what = f"{os.fspath(path)} into port {port} of {switch}"
    return _library.number(what, "play", switch, port, os.fspath(path), bytes([timed]))


def write_pcap(path: str | os.PathLike[str], frames: Sequence[Frame]) -> None:
    """Writes frames to a pcap file, each with its time in nanoseconds, in place of a file that is there."""
    # Read once: what is asked again may answer otherwise.
    taken = [(frame.time_ns, bytes(memoryview(frame.data)), bool(frame.incoming)) for frame in frames]
    head = ctypes.sizeof(_declarations.Frame) * len(taken)
    data = b"".join(content for _, content, _ in taken)
    block = ctypes.create_string_buffer(head + len(data))
    records = (_declarations.Frame * len(taken)).from_buffer(block)
    offset = 0
    for record, (time, content, incoming) in zip(records, taken, strict=True):
        record.time, record.offset, record.length = time, offset, len(content)
        record.is_incoming = bytes([incoming])
        offset += len(content)
    ctypes.memmove(ctypes.addressof(block) + head, data, len(data))
    pointer = ctypes.cast(block, ctypes.POINTER(_declarations.Frame))
    _library.call(f"pcap file {os.fspath(path)}", "write_pcap", os.fspath(path), pointer, len(taken), len(data))


class Capture:
    """The frames that pass a port of a switch while the capture runs."""

    def __init__(self, switch: str, port: str, direction: str) -> None:
        self.switch = switch
        """The switch."""
        self.port = port
        """The port's id."""
        self.dropped = 0
        """How many of the oldest frames there was no room for."""
        self._direction = direction
        self._frames: list[Frame] = []
        self._running = True

    @property
    def frames(self) -> list[Frame]:
        """The frames so far, in the order in which they passed."""
        if self._running:
            self._take()
        return list(self._frames)

    def clear(self) -> None:
        """Forgets the frames so far."""
        if self._running:
            self._take()
        self._frames.clear()

    def write_pcap(self, path: str | os.PathLike[str]) -> int:
        """Writes the frames so far to a pcap file and gives how many they are."""
        frames = self.frames
        write_pcap(path, frames)
        return len(frames)

    def __len__(self) -> int:
        return len(self.frames)

    def __iter__(self) -> Iterator[Frame]:
        return iter(self.frames)

    def _take(self) -> None:
        cell = ctypes.POINTER(_declarations.Frame)()
        count, size, dropped = ctypes.c_size_t(), ctypes.c_size_t(), ctypes.c_uint64()
        cells = [ctypes.byref(each) for each in (cell, count, size, dropped)]
        _library.call(f"capture at port {self.port} of {self.switch}", "take_frames", self.switch, self.port, *cells)
        try:
            start = ctypes.cast(cell, ctypes.c_void_p).value or 0
            data = ctypes.string_at(start + count.value * ctypes.sizeof(_declarations.Frame), size.value)
            for i in range(count.value):
                record = cell[i]
                incoming = record.is_incoming != b"\0"
                if not incoming and self._direction == "in":
                    continue
                self._frames.append(Frame(data[record.offset : record.offset + record.length], record.time, incoming))
        finally:
            _library.free(cell)
        self.dropped += dropped.value

    def _stop(self) -> None:
        self._take()
        self._running = False
        _library.call(f"capture at port {self.port} of {self.switch}", "stop_capture", self.switch, self.port)


@contextmanager
def capture(switch: str, port: str, direction: str = "out") -> Iterator[Capture]:
    """Captures the frames at a port for the time of a `with` block; what was captured is there behind it too.

    The direction is that of the switch: "out" for what leaves it through the port, "in" for what comes in, or "both".
    There is one capture a port at a time, in this process alone.
    """
    if direction not in ("out", "in", "both"):
        raise ValueError(f"{direction!r} is none of out, in, both")
    what = f"capture at port {port} of {switch}"
    _library.call(what, "start_capture", switch, port, bytes([direction != "out"]))
    running = Capture(switch, port, direction)
    try:
        yield running
    finally:
        running._stop()
