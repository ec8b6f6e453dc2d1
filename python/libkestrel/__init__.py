"""Companion of the flat module `_libkestrel`: what people use on top of it.

- `Host`: the host as objects, with everything on it; its values, such as `AccessVlan`, live in `host`
- `errors`: what is raised when the platform refuses something
- `lab`: what is done to the embedded host from outside
- `records`: a class for each record of the platform, with natural values
- `enums`: the platform's enumerations
- `platform_info`: which platform libraries answer in this process

Everything is imported when it is first asked for.
"""

from __future__ import annotations

TYPE_CHECKING = False  # as typing has it, without the time that importing it takes
if TYPE_CHECKING:
    from typing import Any

    from libkestrel import enums, errors, host, lab, records
    from libkestrel._platform_info import Library, PlatformInfo, platform_info
    from libkestrel.host import (
        AccessVlan,
        Host,
        MirrorEntity,
        MirrorSession,
        PlanError,
        PrivateVlan,
        SecurityPolicy,
        TeamingPolicy,
        TrunkVlan,
    )

__all__ = [
    "AccessVlan",
    "Host",
    "Library",
    "MirrorEntity",
    "MirrorSession",
    "PlanError",
    "PlatformInfo",
    "PrivateVlan",
    "SecurityPolicy",
    "TeamingPolicy",
    "TrunkVlan",
    "enums",
    "errors",
    "host",
    "lab",
    "platform_info",
    "records",
]

_MODULES = ("enums", "errors", "host", "lab", "records")
_PLATFORM_INFO = ("Library", "PlatformInfo", "platform_info")
_HOMES = {name: "_platform_info" if name in _PLATFORM_INFO else "host" for name in __all__ if name not in _MODULES}
"""Names that live in a module of the package; the others are modules."""


def __getattr__(name: str) -> Any:
    if name not in __all__:
        raise AttributeError(f"module 'libkestrel' has no attribute '{name}'")
    import importlib

    home = importlib.import_module(f"libkestrel.{_HOMES.get(name, name)}")
    value = getattr(home, name) if name in _HOMES else home
    globals()[name] = value
    return value


def __dir__() -> list[str]:
    return sorted({*globals(), *__all__})
