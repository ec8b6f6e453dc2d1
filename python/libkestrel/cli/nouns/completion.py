"""`kestrel completion`: what shells are told for completion."""

from __future__ import annotations

import click

SHELLS = ("bash", "zsh", "fish")
HOW = {
    "bash": 'eval "$(kestrel completion bash)" in ~/.bashrc',
    "zsh": 'eval "$(kestrel completion zsh)" in ~/.zshrc, behind compinit',
    "fish": "kestrel completion fish > ~/.config/fish/completions/kestrel.fish",
}
"""How each shell takes its script."""


@click.command("completion", epilog="  \b\n".join(f"{shell}: {how}" for shell, how in HOW.items()))
@click.argument("shell", type=click.Choice(SHELLS))
@click.pass_context
def command(ctx: click.Context, shell: str) -> None:
    """Print the completion script of a shell.

    It completes commands, options, and names of the host: switches, ports and the like.
    """
    from click.shell_completion import get_completion_class

    kind = get_completion_class(shell)
    assert kind is not None
    root = ctx.find_root()
    click.echo(kind(root.command, {}, "kestrel", "_KESTREL_COMPLETE").source())
