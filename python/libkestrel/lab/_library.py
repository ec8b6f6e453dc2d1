"""The way into the embedded host's library."""

from __future__ import annotations

import ctypes
from collections.abc import Callable
from functools import cache
from typing import Any, TypeVar

import _libkestrel

from libkestrel._platform_info import platform_info
from libkestrel.lab import _declarations
from libkestrel.lab.errors import LabError, NotEmbeddedError

_PREFIX = "kestrel_lab_"
_Record = TypeVar("_Record", bound=ctypes.Structure)
_Item = TypeVar("_Item")


@cache
def _library() -> ctypes.PyDLL:
    """The library that answers in this process, with its functions declared.

    Its functions are called with the interpreter's lock held, as those of the module are.
    """
    info = platform_info()
    paths = [library.path for library in info.libraries if library.soname == "libmorrow.so"]
    library = ctypes.PyDLL(str(paths[0])) if paths else None
    if library is None or not hasattr(library, f"{_PREFIX}version"):
        where = ", ".join(str(path) for path in paths) or "no library"
        raise NotEmbeddedError(
            f"the laboratory belongs to the embedded host, and this process runs on another platform: {where}"
        )
    version = getattr(library, f"{_PREFIX}version")()
    if version != _declarations.VERSION:
        raise NotEmbeddedError(
            f"{paths[0]} has version {version} of the laboratory; this package speaks {_declarations.VERSION}"
        )
    for name, (result, parameters) in _declarations.FUNCTIONS.items():
        getattr(library, name).restype = result
        getattr(library, name).argtypes = parameters
    return library


def require() -> None:
    """Raises NotEmbeddedError where there is no laboratory."""
    _library()


def text(value: str) -> bytes:
    """A text for the library. ValueError for one with a zero in it, which would end it."""
    if not isinstance(value, str):
        raise TypeError(f"a text is wanted, not {type(value).__name__}")
    encoded = str.encode(value)
    if b"\0" in encoded:
        raise ValueError(f"a text with a zero character in it: {value!r}")
    return encoded


def field(value: str, name: str, width: int) -> bytes:
    """A text for a field of a record. ValueError for one that does not fit."""
    encoded = text(value)
    if len(encoded) >= width:
        raise ValueError(f"{name} is longer than {width - 1} bytes")
    return encoded


def _argument(what: str, value: Any, kind: type[Any]) -> Any:
    """An argument for a parameter of a C type, which alone would take null or an address for a text, and any int."""
    if kind is ctypes.c_char_p:
        if isinstance(value, bytes) and b"\0" in value:
            raise ValueError(f"{what}: a text with a zero character in it: {value!r}")
        if not isinstance(value, (str, bytes, ctypes.Array)):
            raise TypeError(f"{what}: a text is wanted, not {type(value).__name__}")
    elif isinstance(value, int) and issubclass(kind, ctypes._SimpleCData) and kind(value).value != value:
        raise OverflowError(f"{what}: {value} is out of range")
    return text(value) if isinstance(value, str) else value


def call(what: str, function: str, *arguments: Any) -> None:
    """Calls a function, named without its prefix; texts are converted.

    LabError for any status but success, TypeError for an argument of a wrong kind, OverflowError for an int that its
    parameter does not hold.
    """
    library = _library()
    entry = getattr(library, _PREFIX + function)
    converted = [_argument(what, *pair) for pair in zip(arguments, entry.argtypes, strict=True)]
    try:
        status = entry(*converted)
    except ctypes.ArgumentError as error:
        if "MemoryError" in str(error):  # ctypes keeps the name of what went wrong, and not the exception
            raise MemoryError from None
        raise TypeError(f"{what}: {error}") from None
    if status != _libkestrel.ZEL_OK:
        raise LabError(what, status, getattr(library, f"{_PREFIX}message")().decode(errors="replace"))


def number(what: str, function: str, *arguments: Any) -> int:
    """Calls a function whose last parameter is a cell for a 64-bit number."""
    cell = ctypes.c_uint64()
    call(what, function, *arguments, ctypes.byref(cell))
    return cell.value


def array(
    what: str, function: str, record: type[_Record], make: Callable[[_Record], _Item], *arguments: Any
) -> list[_Item]:
    """Calls a function that hands out an array of records; each is made into an item before the array goes back."""
    cell = ctypes.POINTER(record)()
    count = ctypes.c_size_t()
    call(what, function, *arguments, ctypes.byref(cell), ctypes.byref(count))
    try:
        return [make(cell[i]) for i in range(count.value)]
    finally:
        free(cell)


def free(memory: Any) -> None:
    """Takes back what the library handed out."""
    getattr(_library(), f"{_PREFIX}free")(memory)
