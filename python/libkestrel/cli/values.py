"""Values of the host as people write and read them, and as data."""

from __future__ import annotations

from collections.abc import Mapping
from dataclasses import fields, is_dataclass
from enum import Enum, Flag
from functools import cache
from typing import TYPE_CHECKING, Any

import click

if TYPE_CHECKING:
    from libkestrel.host import Change, MirrorEntity, MirrorSession, TeamingPolicy, VlanPolicy

    ParamType = click.ParamType[Any]
else:
    ParamType = click.ParamType
    """The base of kinds of arguments, which takes no types in brackets in older versions of click."""


# ---- For people ----


def said(value: Any) -> str:
    """A value in a sentence such as "MTU: 1500 -> 9000"."""
    from libkestrel.host import AccessVlan, MirrorSession, PrivateVlan, SecurityPolicy, TeamingPolicy, TrunkVlan

    if isinstance(value, bool):
        return "yes" if value else "no"
    if isinstance(value, (AccessVlan, TrunkVlan, PrivateVlan)):
        return vlan_text(value)
    if isinstance(value, TeamingPolicy):
        return team_text(value)
    if isinstance(value, SecurityPolicy):
        allowed = [word for word, is_allowed in security_words(value).items() if is_allowed]
        return f"{', '.join(allowed)} allowed" if allowed else "nothing allowed"
    if isinstance(value, (bytes, bytearray)):
        return bytes_text(bytes(value))
    if isinstance(value, MirrorSession):
        return mirror_text(value)
    if isinstance(value, Enum):
        return word_of(value)
    if isinstance(value, Mapping):
        return ", ".join(f"{key} {said(each)}" for key, each in value.items()) or "none"
    if isinstance(value, (list, tuple)):
        return "; ".join(said(each) for each in value) or "none"
    if is_dataclass(value):
        members = ((field, getattr(value, field.name)) for field in fields(value))
        return ", ".join(
            f"{field.name.replace('_', ' ')} {said(member)}" for field, member in members if member != field.default
        )
    return str(value)


def said_after(change: Change) -> str:
    """What a change leaves behind; clearing leaves the default."""
    from libkestrel.host import ABSENT

    return "default" if change.after is ABSENT and change.operation.startswith("clear ") else said(change.after)


def word_of(value: Enum) -> str:
    """An enumerator as a word, flags as words with commas."""
    if isinstance(value, Flag):
        return ", ".join(str(each.name).lower().replace("_", "-") for each in value) or "none"
    return str(value.name).lower().replace("_", "-")


def words_of(value: Flag) -> list[str]:
    """Flags as words."""
    return [str(each.name).lower().replace("_", "-") for each in value]


def bytes_text(value: bytes) -> str:
    """Bytes as a quoted text where they are one, else in hexadecimal digits."""
    body = value[:-1] if value.endswith(b"\0") and len(value) > 1 else value
    try:
        text = body.decode()
    except UnicodeDecodeError:
        text = ""
    if len(text) > 1 and text.isprintable():
        return f'"{text}"'
    return f"0x{value.hex()}" if value else "empty"


# ---- VLANs ----


def vlan_text(policy: VlanPolicy) -> str:
    """A VLAN policy as `kestrel vlan` shows it: "10", "untagged", "trunk 5,10-19", "private 155"."""
    from libkestrel.host import AccessVlan, TrunkVlan

    priority = " with priority" if policy.set_priority else ""
    if isinstance(policy, TrunkVlan):
        return f"trunk {ranges_text(policy.ranges)}{priority}"
    if isinstance(policy, AccessVlan):
        return f"{policy.vlan or 'untagged'}{priority}"
    return f"private {policy.secondary}{priority}"


def ranges_text(ranges: tuple[tuple[int, int], ...]) -> str:
    """Ranges of VLANs: "5,10-19"."""
    return ",".join(str(low) if low == high else f"{low}-{high}" for low, high in ranges)


class Ranges(ParamType):
    """Ranges of VLANs, written as "5,10-19"."""

    name = "ranges"

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> Any:
        """Pairs of first and last."""
        if not isinstance(value, str):
            return value
        try:
            pairs = [part.split("-", 1) for part in value.split(",")]
            return tuple((int(pair[0]), int(pair[-1])) for pair in pairs)
        except ValueError:
            self.fail(f"{value!r} is no list of VLANs and ranges, such as 5,10-19", param, ctx)


class Address(ParamType):
    """An Ethernet address."""

    name = "mac"

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> Any:
        """A MacAddress."""
        from libkestrel.records import MacAddress

        try:
            return MacAddress(value)
        except ValueError:
            self.fail(f"{value!r} is no Ethernet address, such as 02:00:00:00:00:01", param, ctx)


class Hexadecimal(ParamType):
    """Bytes in hexadecimal digits."""

    name = "hex"

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> Any:
        """The bytes."""
        if isinstance(value, bytes):
            return value
        try:
            return bytes.fromhex(value.removeprefix("0x"))
        except ValueError:
            self.fail(f"{value!r} are no bytes in hexadecimal digits", param, ctx)


VLAN = click.IntRange(0, 4094)
MAC, RANGES, HEX = Address(), Ranges(), Hexadecimal()


# ---- Words that scenarios have too ----


@cache
def words(table: str) -> dict[str, int]:
    """The words of scenarios for a value, such as "BALANCES", with what they stand for."""
    from libkestrel.lab.scenario import format as scenario

    found: dict[str, int] = getattr(scenario, table)
    return found


def word(table: str, value: int) -> str:
    """The word for a number; the number where it has none."""
    return next((name for name, number in words(table).items() if number == value), str(int(value)))


def bits(table: str, value: int) -> list[str]:
    """The words for the bits of a number."""
    return [name for name, number in words(table).items() if value & number]


class Word(ParamType):
    """One of the words of scenarios for a value, or several with commas between them."""

    def __init__(self, table: str, *, several: bool = False) -> None:
        self.table, self.several = table, several
        self.name = "words" if several else "word"

    def get_metavar(self, param: click.Parameter, ctx: click.Context | None = None) -> str:  # noqa: ARG002
        """The words. Older versions of click give no context."""
        return f"[{'|'.join(words(self.table))}]{',...' if self.several else ''}"

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> Any:
        """The number; of several words their sum."""
        if isinstance(value, int):
            return value
        known = words(self.table)
        given = [each for each in value.split(",") if each] if self.several else [value]
        unknown = [each for each in given if each not in known]
        if unknown:
            self.fail(f"{unknown[0]!r} is none of {', '.join(known)}", param, ctx)
        return sum({known[each] for each in given})

    def shell_complete(
        self,
        ctx: click.Context,  # noqa: ARG002
        param: click.Parameter,  # noqa: ARG002
        incomplete: str,
    ) -> list[click.shell_completion.CompletionItem]:
        """The words."""
        from click.shell_completion import CompletionItem

        done, comma, begun = incomplete.rpartition(",") if self.several else ("", "", incomplete)
        return [CompletionItem(f"{done}{comma}{each}") for each in words(self.table) if each.startswith(begun)]


# ---- Policies ----


def team_text(policy: TeamingPolicy) -> str:
    """A teaming policy in a sentence."""
    parts = [word("BALANCES", policy.balance), f"active {', '.join(policy.active) or 'none'}"]
    if policy.standby:
        parts.append(f"standby {', '.join(policy.standby)}")
    parts.append(f"criteria {', '.join(bits('CRITERIA', policy.criteria)) or 'none'}")
    parts.append(f"flags {', '.join(bits('TEAM_FLAGS', policy.flags)) or 'none'}")
    return "; ".join(parts)


def security_words(policy: Any) -> dict[str, bool]:
    """What a security policy allows, by the words of the command line."""
    return {
        "promiscuous": policy.promiscuous,
        "mac-changes": policy.mac_changes,
        "forged": policy.forged_transmits,
    }


def mirror_text(mirror: MirrorSession) -> str:
    """A mirror session in a sentence."""
    parts = [mirror.id]
    for title, entities in (
        ("to", mirror.destinations),
        ("in", mirror.sources_in),
        ("out", mirror.sources_out),
    ):
        parts += [f"{title} {', '.join(entity_text(entity) for entity in entities)}"] if entities else []
    return " ".join(parts)


def entity_text(entity: MirrorEntity) -> str:
    """A source or destination as the command line takes it: "port:11"."""
    kind = str(entity.kind.name).removeprefix("MIRROR_ENTTYPE_").lower()
    return f"{ {'dvport': 'port', 'port': 'number'}.get(kind, kind) }:{entity.value}"
