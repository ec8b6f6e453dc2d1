"""Names of the host for shell completion. Nothing is completed where the host cannot be read."""

from __future__ import annotations

from collections.abc import Callable, Iterable
from typing import TYPE_CHECKING

import click

if TYPE_CHECKING:
    from libkestrel.host import Host


Completer = Callable[[click.Context, click.Parameter, str], list[str]]


def _names(find: Callable[[Host, click.Context], Iterable[str]]) -> Completer:
    """A completer of what `find` tells of the host."""

    def complete(ctx: click.Context, _param: click.Parameter, incomplete: str) -> list[str]:
        from libkestrel.cli.session import Session

        root = ctx.find_root()
        session = Session(root.params.get("host_file"))
        if not session.path.exists():
            return []
        try:
            return [name for name in find(session.host(), ctx) if name.startswith(incomplete)]
        except Exception:
            return []

    return complete


def _of_switch(ctx: click.Context) -> str:
    return str(ctx.params["switch"])


switches = _names(lambda host, _ctx: host.switches)
ports = _names(lambda host, ctx: host.switch(_of_switch(ctx)).ports)
uplinks = _names(lambda host, ctx: host.switch(_of_switch(ctx)).uplinks)
uplink_ports = _names(lambda host, ctx: [port.name for port in host.switch(_of_switch(ctx)).uplink_ports])
lags = _names(lambda host, ctx: [lag.name for lag in host.switch(_of_switch(ctx)).lags])
mirrors = _names(lambda host, ctx: host.switch(_of_switch(ctx)).mirror_session_ids())
options = _names(lambda host, _ctx: host.options)
named_teams = _names(lambda host, ctx: [team.name for team in host.switch(_of_switch(ctx)).named_teaming])


def _scenarios(
    _ctx: click.Context, _param: click.Parameter, incomplete: str
) -> list[click.shell_completion.CompletionItem]:
    from click.shell_completion import CompletionItem

    from libkestrel.cli import scenarios as known

    found = [CompletionItem(name) for name in known.shipped() if name.startswith(incomplete)]
    return found or [CompletionItem(incomplete, type="file")]


scenarios = _scenarios


def _nics(_ctx: click.Context) -> list[str]:
    from libkestrel import lab

    return [nic.name for nic in lab.nics()]


nics = _names(lambda _host, ctx: _nics(ctx))
