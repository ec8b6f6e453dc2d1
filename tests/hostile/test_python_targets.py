"""The fuzz targets in Python over what is kept of them, and over changes of that by hypothesis."""

from __future__ import annotations

import importlib
import sys
from collections.abc import Callable
from pathlib import Path

import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from libkestrel.cli import scenarios

FUZZ = Path(__file__).resolve().parents[1] / "fuzz"
sys.path.insert(0, str(FUZZ))
TARGETS: dict[str, Callable[[bytes], None]] = importlib.import_module("python_targets").TARGETS
sys.path.remove(str(FUZZ))

SHIPPED = [path.read_bytes() for path in sorted(scenarios.folder().glob("*.toml"))]
SEEDS = {
    "scenario": SHIPPED,
    "desired_state": SHIPPED,
    "image_file": [b"KSTI"],
    "option_values": [b"5,10-19", b"02:00:00:00:00:01", b"0x00ff"],
    "arguments": [b"vlan\0set\0dvs-prod\x0010\x0020", b"--json\0switch\0list", b"--host\0x\0mac\0-h"],
}
"""What each begins with, beside what is kept in tests/fuzz/corpus."""


def kept(name: str) -> list[bytes]:
    return [*SEEDS[name], *(path.read_bytes() for path in sorted((FUZZ / "corpus" / name).glob("*")))]


@pytest.mark.parametrize("name", TARGETS)
def test_what_is_kept_is_read_or_refused(name: str) -> None:
    for data in kept(name):
        TARGETS[name](data)


LINES = sorted({line for data in SHIPPED for line in data.splitlines() if line.strip()})
VALUES = st.sampled_from(
    (
        *(b'""', b'"x"', b'"\\u0000"', b'"' + b"x" * 300 + b'"'),
        *(b"-1", b"0", b"4095", b"0x7fffffffffffffff", b"9" * 20, b"9" * 5000, b"1e400", b"nan"),
        *(b"true", b"1979-05-27", b"[]", b"{}", b"[[]]", b'["1-"]', b'[1, "x"]'),
    )
)


def changed(line: bytes, value: bytes) -> bytes:
    """A line of a file with another value behind its key."""
    key, equals, _ = line.partition(b"=")
    return key + equals + b" " + value if equals else line


FILES = st.lists(
    st.one_of(
        st.sampled_from(LINES),
        st.builds(changed, st.sampled_from(LINES), VALUES),
        st.builds(lambda a, b: a + b" = " + b, st.sampled_from([b"name", b"port", b"vlan", b"x", b'"\\n"']), VALUES),
        st.binary(max_size=12),
    ),
    max_size=30,
).map(b"\n".join)
SPLICED = st.builds(
    lambda data, place, cut, more: data[: place % (len(data) + 1)] + more + data[place % (len(data) + 1) + cut :],
    st.sampled_from(SHIPPED),
    st.integers(0, 10**5),
    st.integers(0, 20),
    st.one_of(VALUES, st.binary(max_size=8)),
)


@pytest.mark.parametrize("name", ["scenario", "desired_state"])
@settings(max_examples=60, deadline=None, suppress_health_check=list(HealthCheck))
@given(data=st.one_of(FILES, SPLICED))
def test_files_of_changed_lines_are_read_or_refused(name: str, data: bytes) -> None:
    TARGETS[name](data)


@pytest.mark.parametrize("name", ["image_file", "option_values", "arguments"])
@settings(max_examples=200, deadline=None, suppress_health_check=list(HealthCheck))
@given(data=st.data())
def test_any_bytes_are_read_or_refused(name: str, data: st.DataObject) -> None:
    words = st.sampled_from([b"switch", b"list", b"--json", b"-h", b"vlan", b"set", b"port", b"--", b"-", b"\xff", b""])
    some = st.one_of(st.binary(max_size=60), st.lists(words, max_size=6).map(b"\0".join), st.sampled_from(SEEDS[name]))
    TARGETS[name](data.draw(some))
