"""Writers and readers of any record, in any order, also from the record itself: each does to the bytes what the headers
say, and what is refused changes none.
"""

from __future__ import annotations

from typing import Any

import _libkestrel
from hypothesis import HealthCheck, settings
from hypothesis import strategies as st
from hypothesis.stateful import RuleBasedStateMachine, initialize, rule

from headers.model import Member
from support import memory
from support.functions import COUNTED, HEADERS, make

WIDTHS = {"u8": 8, "u16": 16, "u32": 32, "u64": 64, "s32": 32, "e8": 32}
VARIABLE = {r.name for r in HEADERS.records if any(m.kind == "trailing" for m in r.members)}
RECORDS = [r for r in HEADERS.records if r.name not in {*VARIABLE, *COUNTED} and r.members]
NUMBERS = st.one_of(
    st.integers(-(2**70), 2**70),
    st.sampled_from([s * 2**n + d for n in (7, 8, 15, 16, 31, 32, 63, 64) for s in (1, -1) for d in (-1, 0, 1)]),
)
ODD: Any = st.one_of(st.none(), st.floats(), st.binary(max_size=9), st.builds(object), st.lists(st.none(), max_size=2))
TEXTS = st.text(st.characters(exclude_categories=()), max_size=140)


def fits(kind: str, value: Any) -> bool:
    """Whether a number of this class is stored."""
    bits = WIDTHS[kind]
    low, high = (-(2 ** (bits - 1)), 2 ** (bits - 1) - 1) if kind in ("s32", "e8") else (0, 2**bits - 1)
    return isinstance(value, int) and low <= value <= high


class Bytes(RuleBasedStateMachine):
    """Two records of one type beside the bytes that they should have."""

    @initialize(record=st.sampled_from(RECORDS))
    def begin(self, record: Any) -> None:
        self.record = record
        self.made = [make(record.name) for _ in range(2)]
        self.model = [bytearray(record.size) for _ in range(2)]

    def write(self, place: int, member: Member, value: Any) -> bool:
        """Writes, and tells whether it was not refused."""
        try:
            getattr(_libkestrel, f"{self.record.name}_{member.name}_set")(self.made[place], value)
        except (TypeError, OverflowError, ValueError):
            return False
        except SystemError:  # a number beyond 64 bits: -1 is stored, and then told
            assert isinstance(value, int) and not -(2**63) <= value < 2**63
            self.number(place, member, -1)
            return False
        return True

    def number(self, place: int, member: Member, value: int) -> None:
        bits = 8 * member.width
        low, high = member.bits or (0, bits - 1)
        unit = int.from_bytes(self.model[place][member.offset : member.offset + member.width], "little")
        mask = ((1 << (high - low + 1)) - 1) << low
        unit = unit & ~mask | value << low & mask
        self.model[place][member.offset : member.offset + member.width] = unit.to_bytes(member.width, "little")

    def member(self, data: Any, *kinds: str) -> Member | None:
        found = [m for m in self.record.members if m.kind in kinds and not m.read_only]
        return data.draw(st.sampled_from(found)) if found else None

    @rule(data=st.data(), place=st.integers(0, 1), value=st.one_of(NUMBERS, NUMBERS, ODD, TEXTS))
    def write_a_number(self, data: Any, place: int, value: Any) -> None:
        if member := self.member(data, *WIDTHS):
            stored = self.write(place, member, value)
            assert stored == fits(member.kind, value)
            if stored:
                self.number(place, member, int(value))

    @rule(data=st.data(), place=st.integers(0, 1), value=st.one_of(TEXTS, TEXTS, ODD))
    def write_a_text(self, data: Any, place: int, value: Any) -> None:
        if member := self.member(data, "text"):
            try:
                encoded = b"" if value is None else value.encode()
                right = len(encoded) < member.width
            except (AttributeError, UnicodeEncodeError):
                right = False
            assert self.write(place, member, value) == right
            if right:
                self.model[place][member.offset : member.offset + member.width] = encoded.ljust(member.width, b"\0")

    @rule(data=st.data(), place=st.integers(0, 1), source=st.integers(0, 1))
    def copy_a_part(self, data: Any, place: int, source: int) -> None:
        if member := self.member(data, "record", "array"):
            part = getattr(_libkestrel, f"{self.record.name}_{member.name}_get")(self.made[source])
            assert self.write(place, member, part)
            span = slice(member.offset, member.offset + member.width)
            self.model[place][span] = bytes(self.model[source][span])

    @rule(data=st.data(), place=st.integers(0, 1), value=ODD)
    def copy_nothing(self, data: Any, place: int, value: Any) -> None:
        if member := self.member(data, "record", "array"):
            assert not self.write(place, member, value)

    @rule(data=st.data(), place=st.integers(0, 1))
    def read(self, data: Any, place: int) -> None:
        if member := self.member(data, *WIDTHS):
            value = getattr(_libkestrel, f"{self.record.name}_{member.name}_get")(self.made[place])
            unit = int.from_bytes(self.model[place][member.offset : member.offset + member.width], "little")
            low, high = member.bits or (0, 8 * member.width - 1)
            expected = unit >> low & ((1 << (high - low + 1)) - 1)
            if member.kind == "s32" and expected >= 2**31:
                expected -= 2**32
            assert value == expected

    def teardown(self) -> None:
        for made, model in zip(getattr(self, "made", []), getattr(self, "model", []), strict=True):
            owned = [m for m in self.record.members if m.kind in ("pointer", "owned_text")]
            if not owned:
                assert memory.read(made, self.record.size) == bytes(model)
            getattr(_libkestrel, f"delete_{self.record.name}")(made)


Bytes.TestCase.settings = settings(
    max_examples=150, stateful_step_count=25, deadline=None, suppress_health_check=list(HealthCheck)
)
TestBytes = Bytes.TestCase
