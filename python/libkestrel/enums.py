"""The platform's enumerations, as IntEnum classes (IntFlag where enumerators go together), under their own names.

Each is made when it is first asked for. Members of records read as enumerators; a number that is none of them reads
as int.
"""

from __future__ import annotations

from libkestrel import _records

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

__all__ = list(_records.enumeration_names())


def __getattr__(name: str) -> Any:
    if name not in __all__:
        raise AttributeError(f"module 'libkestrel.enums' has no attribute '{name}'")
    value = _records.enumeration(name)
    globals()[name] = value
    return value


def __dir__() -> list[str]:
    return sorted({*globals(), *__all__})
