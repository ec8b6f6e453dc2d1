"""What the package raises when the platform refuses something: KestrelError, and a class for each status.

    from libkestrel import Host, errors

    try:
        Host().switch("dvs-prod").ports.remove("10")
    except errors.Busy as error:
        print(error)      # port 10 of switch dvs-prod: remove port: The object is in use (ZEL_BUSY, 0x0bad0004)

The class of a status has its name without the prefix, in capitalized words: ZEL_NOT_FOUND is NotFound. Where Python has
a fitting exception, the class derives from that too: NotFound is a KeyError, NoMemory a MemoryError. Classes are made
when they are first asked for.
"""

from __future__ import annotations

from functools import cache

import _libkestrel as flat

from libkestrel._kestrel_error import KestrelError, check, error, sentence

_BUILT_INS: dict[str, type[Exception]] = {
    "BadAddrRange": ValueError,
    "BadParam": ValueError,
    "BadVlanid": ValueError,
    "BrokenPipe": BrokenPipeError,
    "BufTooSmall": BufferError,
    "Econnaborted": ConnectionAbortedError,
    "Econnrefused": ConnectionRefusedError,
    "Econnreset": ConnectionResetError,
    "InvalidAddress": ValueError,
    "InvalidName": ValueError,
    "IoError": OSError,
    "IsADirectory": IsADirectoryError,
    "NameTooLong": ValueError,
    "NoAccess": PermissionError,
    "NoLpageMemory": MemoryError,
    "NoMemory": MemoryError,
    "NoMemoryRetry": MemoryError,
    "NoPermission": PermissionError,
    "NotADirectory": NotADirectoryError,
    "NotFound": KeyError,
    "NotImplemented": NotImplementedError,
    "NotSupported": NotImplementedError,
    "ReadError": OSError,
    "ReadOnly": PermissionError,
    "ResultTooLarge": OverflowError,
    "Timeout": TimeoutError,
    "WaitInterrupted": InterruptedError,
    "WouldBlock": BlockingIOError,
    "WriteError": OSError,
}
"""Classes that derive from a built-in exception too."""

_SYSTEM = 0xFFFF0000
"""The part of a status that tells whose it is: the platform's, or, with its number below, the operating system's."""

_STATUSES: dict[int, str] = {
    value: name
    for name, value in vars(flat).items()
    if name.startswith("ZEL_")
    and isinstance(value, int)
    and (flat.ZEL_FAILURE <= value <= flat.ZEL_LAST_ERR or value == flat.ZEL_GENERIC_LINUX_ERROR)
}


def class_name(status_name: str) -> str:
    """The name of a status's class: NotFound for ZEL_NOT_FOUND."""
    return "".join(word.capitalize() for word in status_name.removeprefix("ZEL_").split("_"))


_CLASSES = {class_name(name): name for name in _STATUSES.values()}

__all__ = ["KestrelError", "check", "class_name", "class_of", "error", "sentence", "status_name", *_CLASSES]


def status_name(status: int) -> str:
    """The name of a status, such as ZEL_BUSY; its number in hexadecimal where it has none."""
    return "ZEL_OK" if status == flat.ZEL_OK else _STATUSES.get(status, f"0x{status & 0xFFFFFFFF:08x}")


def class_of(status: int) -> type[KestrelError]:
    """The class of a status; KestrelError where it has none of its own."""
    if status & _SYSTEM == flat.ZEL_GENERIC_LINUX_ERROR:
        status = flat.ZEL_GENERIC_LINUX_ERROR
    return _class(class_name(_STATUSES[status])) if status in _STATUSES else KestrelError


@cache
def _class(name: str) -> type[KestrelError]:
    status = getattr(flat, _CLASSES[name])
    sentence = flat.ZEL_ReturnStatusToString(status)
    bases = (KestrelError, *([_BUILT_INS[name]] if name in _BUILT_INS else []))
    return type(name, bases, {"__module__": __name__, "__doc__": f"{sentence} ({_CLASSES[name]})."})


def __getattr__(name: str) -> type[KestrelError]:
    if name not in _CLASSES:
        raise AttributeError(f"module 'libkestrel.errors' has no attribute '{name}'")
    globals()[name] = _class(name)
    return _class(name)


def __dir__() -> list[str]:
    return sorted({*globals(), *__all__})
