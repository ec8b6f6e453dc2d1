"""What both levels of commands are: groups that need a word more."""

from __future__ import annotations

import click


class HelpNeeded(click.UsageError):
    """A group stands alone on the command line. The message is its help."""


class Group(click.Group):
    """A group of commands; alone it is wrong usage, whichever version of click there is."""

    def parse_args(self, ctx: click.Context, args: list[str]) -> list[str]:
        """Refuses no arguments with the help; versions before 8.2 would call it a success."""
        if not args and not ctx.resilient_parsing:
            raise HelpNeeded(ctx.get_help(), ctx)
        return super().parse_args(ctx, args)
