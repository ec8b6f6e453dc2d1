"""The recorder platform from Python: what arrived, what to answer, when to jump."""

from __future__ import annotations

import ctypes
from dataclasses import dataclass
from pathlib import Path


def library_path(soname: str) -> Path | None:
    """The file behind a loaded library."""
    for line in Path("/proc/self/maps").read_text().splitlines():
        fields = line.split(maxsplit=5)
        if len(fields) == 6 and Path(fields[5]).name == soname:
            return Path(fields[5])
    return None


@dataclass(frozen=True)
class Call:
    """A call as the platform saw it: integers as int, texts and byte arrays as bytes, addresses as Address."""

    function: str
    arguments: tuple[object, ...]


@dataclass(frozen=True)
class Address:
    value: int


def _argument(text: str) -> object:
    if text == "null":
        return None
    kind, value = text.split(":", 1)
    if kind == "i":
        return int(value)
    if kind == "p":
        return Address(int(value, 16))
    return bytes.fromhex(value)


class Recorder:
    """Controls the recorder that is loaded in the platform's place."""

    def __init__(self) -> None:
        path = library_path("libmorrow.so")
        self._library = ctypes.CDLL(str(path))
        self._library.recorder_log.restype = ctypes.c_char_p
        self._kept: list[object] = []

    def reset(self) -> None:
        """Forgets everything noted and prepared."""
        self._library.recorder_reset()
        self._kept.clear()

    def calls(self) -> list[Call]:
        """The calls that arrived since the last reset."""
        found = []
        for line in self._library.recorder_log().decode("ascii").splitlines():
            name, *arguments = line.split("\t")
            found.append(Call(name, tuple(map(_argument, arguments))))
        return found

    def answer(self, function: str, result: int) -> None:
        """Calls of `function` return `result` from now on."""
        self._library.recorder_answer(function.encode(), ctypes.c_longlong(result))

    def answer_text(self, function: str, text: bytes | None) -> None:
        """Calls of `function` return the address of `text` from now on."""
        if text is None:
            self.answer(function, 0)
            return
        buffer = ctypes.create_string_buffer(text)
        self._kept.append(buffer)
        self.answer(function, ctypes.addressof(buffer))

    def output(self, function: str, parameter: int, data: bytes) -> None:
        """Calls of `function` write `data` through their parameter (from 0) from now on."""
        self._library.recorder_output(function.encode(), parameter, data, ctypes.c_size_t(len(data)))

    def jump(self, function: str, value: int, exception: type[BaseException], message: str) -> None:
        """The next call of `function` jumps back through the exception channel."""
        text = ctypes.create_string_buffer(message.encode())
        self._kept += [exception, text]
        self._library.recorder_jump(function.encode(), value, ctypes.py_object(exception), text)
