"""`kestrel mirror`: copies of frames."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import click

from libkestrel.cli import completing
from libkestrel.cli.commands import Change, noun, port_argument, switch_argument, switch_argument_or_all
from libkestrel.cli.exits import NOT_FOUND, CommandError
from libkestrel.cli.reading import chosen
from libkestrel.cli.session import Session, pass_session
from libkestrel.cli.shapes import NUMBER, TEXT, Field, optional, several, sheet, table
from libkestrel.cli.values import ParamType, Word, bits, entity_text, word

if TYPE_CHECKING:
    from libkestrel.host import MirrorSession, Plan, Switch

_FIELDS = (
    Field("switch", TEXT, "The switch."),
    Field("id", TEXT, "The identifier of the session.", "ID"),
    Field("port", TEXT, "The port that carries the session."),
    Field("kind", TEXT, "What the destinations are."),
    Field("to", several(TEXT), "Where copies go: port:11, uplink:vmnic1, ip:192.0.2.1, ..."),
    Field("incoming", several(TEXT), "Whose frames into the switch are copied.", "IN"),
    Field("outgoing", several(TEXT), "Whose frames from the switch are copied.", "OUT"),
)
MIRRORS = table("mirrors", *_FIELDS)
MIRROR = sheet(
    "mirror",
    *_FIELDS,
    Field("name", TEXT, "Its name for people."),
    Field("flags", several(TEXT), "Further properties."),
    Field("snap_length", optional(NUMBER), "Bytes kept of each frame; null for all."),
    Field("sampling", NUMBER, "One frame of so many is copied."),
    Field("encapsulation", TEXT, "How copies travel over the network, of an encapsulated mirror."),
    Field("matched", NUMBER, "Frames that the session took."),
    Field("mirrored", NUMBER, "Copies that were delivered."),
    Field("failed", NUMBER, "Copies that were not."),
)


@noun("mirror")
def command() -> None:
    """Mirror sessions: copies of frames for those who watch."""


class Entity(ParamType):
    """A source or destination: "port:11", or a port's id alone."""

    name = "entity"
    KINDS = ("port", "uplink", "vlan", "ip", "mac", "number")

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> Any:
        """A MirrorEntity."""
        from libkestrel.host import MirrorEntity

        if not isinstance(value, str):
            return value
        kind, colon, rest = value.partition(":")
        if not colon or kind not in self.KINDS:
            kind, rest = "port", value
        try:
            return getattr(MirrorEntity, kind)(int(rest) if kind in ("vlan", "number") else rest)
        except ValueError:
            self.fail(f"{value!r} is no {kind}", param, ctx)


def sessions(switch: Switch) -> list[tuple[str, MirrorSession]]:
    """The sessions of a switch, each with the port that carries it."""
    return [(port.id, session) for port in switch.ports.values() for session in port.mirror_sessions]


def _row(switch: Switch, port: str, mirror: MirrorSession) -> dict[str, Any]:
    ends = (mirror.destinations, mirror.sources_in, mirror.sources_out)
    texts = [[entity_text(entity) for entity in entities] for entities in ends]
    return MIRRORS.row(switch.name, mirror.id, port, word("MIRROR_KINDS", mirror.type), *texts)


@command.command("list")
@switch_argument_or_all
@pass_session
def list_(session: Session, switch: str | None) -> None:
    """List the mirror sessions of a switch, or of all."""
    session.show(
        MIRRORS,
        [_row(found, port, mirror) for found in chosen(session.host(), switch) for port, mirror in sessions(found)],
    )


@command.command()
@switch_argument
@click.argument("mirror", metavar="ID", shell_complete=completing.mirrors)
@pass_session
def show(session: Session, switch: str, mirror: str) -> None:
    """Show a mirror session and its traffic."""
    from libkestrel.host import COMPLETE

    found = session.host().switch(switch)
    for port, each in sessions(found):
        if each.id == mirror:
            statistics = found.mirror_statistics(mirror)
            more = {
                "name": each.name,
                "flags": bits("MIRROR_FLAGS", each.flags),
                "snap_length": None if each.snap_length == COMPLETE else each.snap_length,
                "sampling": each.sampling_rate,
                "encapsulation": word("ENCAPSULATIONS", each.encapsulation),
                "matched": statistics.matched,
                "mirrored": statistics.mirrored,
                "failed": statistics.failed,
            }
            session.show(MIRROR, _row(found, port, each) | more)
            return
    raise CommandError(f"switch {switch} has no mirror session {mirror}", NOT_FOUND)


@command.command(cls=Change)
@port_argument
@click.argument("mirror", metavar="ID")
@click.option("--to", type=Entity(), multiple=True, required=True, help="Where copies go: a port, ip:ADDRESS, ...")
@click.option("--in", "incoming", type=Entity(), multiple=True, help="Copy what comes into the switch from there.")
@click.option("--out", "outgoing", type=Entity(), multiple=True, help="Copy what the switch sends there.")
@click.option("--kind", type=Word("MIRROR_KINDS"), default="port", show_default=True, help="What the destinations are.")
@click.option("--name", "title", default="", help="A name for people.")
@click.option("--flags", type=Word("MIRROR_FLAGS", several=True), default=0, help="Further properties.")
@click.option("--snap-length", type=click.IntRange(1, 65535), help="Bytes kept of each frame. [all]")
@click.option("--sampling", type=click.IntRange(1, 2**32 - 1), default=1, help="Copy one frame of so many.")
@click.option("--encapsulation", type=Word("ENCAPSULATIONS"), default="gre", help="Of an encapsulated mirror.")
@pass_session
def create(
    session: Session, switch: str, port: str, mirror: str, to: tuple[Any, ...], incoming: tuple[Any, ...],
    outgoing: tuple[Any, ...], kind: int, title: str, flags: int, snap_length: int | None, sampling: int,
    encapsulation: int,
) -> int:  # fmt: skip
    """Create a mirror session carried by a port, or make the one of that ID what is given."""
    from libkestrel import enums
    from libkestrel.host import COMPLETE, MirrorFlags, MirrorSession

    wanted = MirrorSession(
        id=mirror,
        destinations=to,
        sources_in=incoming,
        sources_out=outgoing,
        name=title,
        type=enums.DVMirrorSessionType(kind),
        snap_length=COMPLETE if snap_length is None else snap_length,
        sampling_rate=sampling,
        flags=MirrorFlags(flags),
        encapsulation=enums.DVMirrorEncapType(encapsulation),
    )
    return session.change(lambda plan: plan.switch(switch).port(port).ensure_mirror_session(wanted))


@command.command(cls=Change)
@switch_argument
@click.argument("mirror", metavar="ID", shell_complete=completing.mirrors)
@pass_session
def delete(session: Session, switch: str, mirror: str) -> int:
    """Delete a mirror session, if there is one of that ID."""

    def collect(plan: Plan) -> None:
        found = plan.switch(switch)
        for port, each in sessions(found):
            if each.id == mirror:
                found.port(port).remove_mirror_session(mirror)

    return session.change(collect)


@command.command(cls=Change)
@port_argument
@pass_session
def clear(session: Session, switch: str, port: str) -> int:
    """Delete all mirror sessions of a port."""
    return session.change(lambda plan: plan.switch(switch).port(port).ensure_default("mirror_sessions"))
