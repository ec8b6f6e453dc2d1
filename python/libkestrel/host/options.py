"""Runtime options of the host, by name."""

from __future__ import annotations

import struct
from collections.abc import Iterable, Iterator, Mapping
from functools import cache
from typing import Any

import _libkestrel as flat

from libkestrel import records
from libkestrel.host import _cells
from libkestrel.host._objects import Changes, HostObject, Undo, unknown

OptionValue = int | str
"""Most options are numbers of 32 bits, without a sign; the others are texts."""


@cache
def option_codes() -> dict[str, int]:
    """The type codes of the options, by name."""
    headers = (records.VSRuntimeOptionHeader(type=code, length=4) for code in range(flat.VS_NUM_RT_OPT))
    return {str(flat.VSRuntimeOptionHeader_get_option_name(header)): header.type for header in headers}


def _value_of(header: Any) -> OptionValue:
    data = bytes(header.data)
    if header.type < flat.NUM_RUNTIME_INT_OPTIONS:
        return int.from_bytes(data[:4], "little")
    return data.split(b"\0", 1)[0].decode(errors="surrogateescape")


def _data_of(name: str, value: OptionValue) -> bytes:
    """What an option's entry holds. TypeError and OverflowError for a value that is none."""
    if option_codes()[name] < flat.NUM_RUNTIME_INT_OPTIONS:
        if not isinstance(value, int):
            raise TypeError(f"option {name} is an int, not {type(value).__name__}")
        if not 0 <= value < 2**32:
            raise OverflowError(f"option {name} is a number of 32 bits, not {value}")
        return struct.pack("<I", value)
    if not isinstance(value, str):
        raise TypeError(f"option {name} is a str, not {type(value).__name__}")
    data = value.encode(errors="surrogateescape")
    if b"\0" in data or len(data) >= flat.VS_CHARDEV_MAX_RUNTIME_STRING_OPTION_LENGTH:
        raise ValueError(f"option {name} is a text of at most 127 bytes without zeros")
    return data + b"\0"


class RuntimeOptions(HostObject):
    """The runtime options of the host by name: a mapping whose values can be set. They last until a restart.

    Setting one raises NotFound (KeyError) for a name that is none, TypeError for a value of the wrong kind, BadParam
    for one out of the option's range.
    """

    def __init__(self, changes: Changes) -> None:
        super().__init__(changes, "runtime options of the host")

    def __iter__(self) -> Iterator[str]:
        return iter(option_codes())

    def __len__(self) -> int:
        return len(option_codes())

    def __contains__(self, name: object) -> bool:
        return name in option_codes()

    def __getitem__(self, name: str) -> OptionValue:
        return self.read([name])[name]

    def keys(self) -> list[str]:
        """The names of the options."""
        return list(option_codes())

    def items(self) -> list[tuple[str, OptionValue]]:
        """Names and values of all options, from one reading."""
        return list(self.read(option_codes()).items())

    def values(self) -> list[OptionValue]:
        """The values of all options, from one reading."""
        return list(self.read(option_codes()).values())

    def __setitem__(self, name: str, value: OptionValue) -> None:
        self.update({name: value})

    def _known(self, names: Iterable[str]) -> list[str]:
        found = list(names)
        for name in found:
            if name not in option_codes():
                self._check(flat.ZEL_NOT_FOUND, f"find option {name}")
        return found

    def read(self, names: Iterable[str]) -> dict[str, OptionValue]:
        """The values of some options, from one reading."""
        wanted = self._known(names)
        if not wanted:
            return {}
        cells, _memory = _cells.shorts([option_codes()[name] for name in wanted])
        result = flat.VSZEL_GetRuntimeOptions(cells, len(wanted))
        with self._kept(result, "read runtime options", flat.VSZEL_FreeMemory) as table:
            found = {header.type: _value_of(header) for header in table}
        return {name: found[option_codes()[name]] for name in wanted}

    def update(self, values: Mapping[str, OptionValue]) -> None:
        """Sets several options, all or none."""
        wanted = {name: values[name] for name in self._known(values)}
        data = {name: _data_of(name, value) for name, value in wanted.items()}
        if wanted:
            self._change(
                f"set {', '.join(wanted)}",
                lambda: self._write(data),
                before=self.read(wanted),
                after=wanted,
                undo=lambda: self._restoring(wanted),
                topic=(self.place, tuple(wanted)),
            )

    def ensure(self, values: Mapping[str, OptionValue]) -> bool:
        """Sets those options that have other values. Returns whether there were any."""
        present = self.read(values)
        expected = self._changes.expected((self.place, tuple(values)))
        if isinstance(expected, dict) and expected is not unknown():
            present.update(expected)
        others = {name: value for name, value in values.items() if present[name] != value}
        self.update(others)
        return bool(others)

    def _write(self, data: Mapping[str, bytes]) -> None:
        headers = [
            records.VSRuntimeOptionHeader(type=option_codes()[name], length=4 + len(value), data=value)
            for name, value in data.items()
        ]
        self._check(flat.VSZEL_SetRuntimeOptions(records.VSRuntimeOptions(options=headers)), "set runtime options")

    def _restoring(self, names: Iterable[str]) -> Undo:
        before = {name: _data_of(name, value) for name, value in self.read(names).items()}
        return lambda: self._write(before)
