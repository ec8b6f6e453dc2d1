"""Writes man pages: one of `kestrel`, and one of each noun with its verbs.

python -m commands.man_pages <folder>
"""

from __future__ import annotations

import sys
from pathlib import Path

from commands import tree
from libkestrel._platform_info import version
from libkestrel.cli import exits

_FILES = {
    "$XDG_STATE_HOME/kestrel/host.kestrel": "The host file; ~/.local/state in place of an unset XDG_STATE_HOME.",
}
_VARIABLES = {"KESTREL_HOST": "The host file.", "NO_COLOR": "Where it is set, there are no colours."}


def escaped(text: str) -> str:
    """A text in which roff finds no requests."""
    found = text.replace("\\", "\\e").replace("-", "\\-").replace("`", "\\(ga").replace("'", "\\(aq")
    return "\n".join(f"\\&{line}" if line.startswith(".") else line for line in found.splitlines())


def _definitions(pairs: list[tuple[str, str]]) -> list[str]:
    lines = []
    for term, meaning in pairs:
        lines += [".TP", f"\\fB{escaped(term)}\\fR", escaped(meaning) or "\\&"]
    return lines


def _paragraph(text: str) -> list[str]:
    if not text.startswith("\b"):
        return [".PP", escaped(text)]
    return [".PP", ".nf", *(escaped(line) for line in text.splitlines()[1:]), ".fi"]


def _head(name: str, summary: str) -> list[str]:
    return [
        f'.TH {name.upper()} 1 "" "kestrel {version()}" "libkestrel"',
        ".ad l",
        ".SH NAME",
        f"{escaped(name)} \\- {escaped(summary.rstrip('.'))}",
        ".SH SYNOPSIS",
    ]


def main_page() -> str:
    """kestrel(1)."""
    root = tree.root()
    lines = [*_head("kestrel", root.summary), escaped(root.usage), ".SH DESCRIPTION"]
    for text in root.paragraphs:
        lines += _paragraph(text)
    lines += [".SH COMMANDS"]
    lines += _definitions(
        [(f"{child.name} (see kestrel-{child.path[-1]}(1))", child.summary) for child in tree.children(root)]
    )
    lines += [".SH OPTIONS", *_definitions(root.options)]
    codes = [(f"{code} {name}", meaning) for code, (name, meaning) in exits.CODES.items()]
    lines += [".SH EXIT STATUS", *_definitions(codes)]
    lines += [".SH FILES", *_definitions(list(_FILES.items()))]
    lines += [".SH ENVIRONMENT", *_definitions(list(_VARIABLES.items()))]
    return "\n".join(lines) + "\n"


def noun_page(noun: tree.Entry) -> str:
    """kestrel-switch(1) and its like."""
    verbs = list(tree.children(noun)) or [noun]
    lines = _head("-".join(noun.path), noun.summary)
    for i, entry in enumerate(verbs):
        lines += [".br"] * (i > 0) + [escaped(entry.usage)]
    lines += [".SH DESCRIPTION"]
    for text in noun.paragraphs:
        lines += _paragraph(text)
    if verbs != [noun]:
        lines += [".SH COMMANDS"]
    for entry in verbs:
        if entry is not noun:
            lines += [f'.SS "{escaped(entry.usage)}"']
            for text in entry.paragraphs:
                lines += _paragraph(text)
        else:
            lines += [".SH OPTIONS"]
        lines += _definitions(entry.options)
    lines += [".SH SEE ALSO", ".BR kestrel (1)"]
    return "\n".join(lines) + "\n"


def pages() -> dict[str, str]:
    """All pages by the names of their files."""
    root = tree.root()
    found = {"kestrel.1": main_page()}
    for noun in tree.children(root):
        found[f"{'-'.join(noun.path)}.1"] = noun_page(noun)
    return found


def main(folder: Path) -> None:
    """Writes them all."""
    folder.mkdir(parents=True, exist_ok=True)
    for name, text in pages().items():
        (folder / name).write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main(Path(sys.argv[1]))
