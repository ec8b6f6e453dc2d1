"""The pages for people, and the blocks of code on them.

A block says by its language what it is:

- `console`: commands behind `$ `, continued behind `> `, each with the output that it gives
- `sh`: commands alone
- `python`: goes on where the page's Python blocks before it ended
- `text` right behind one of these three: what it prints
- `toml` and any other language: a file, named in the first line by a comment with nothing else in it; a Python block
  can be one too. Later blocks use it. TOML without a name is read only.

In an output `...` stands for anything: alone on a line for any lines, else for a part of its line. A comment
`<!-- not run: REASON -->` right before a block says why it is for reading alone.
"""

from __future__ import annotations

import re
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from markdown_it import MarkdownIt
from markdown_it.token import Token

ROOT = Path(__file__).resolve().parents[2]
GENERATED = ROOT / "docs" / "reference"

_MARKER = re.compile(r"<!-- not run: (\S.*) -->\n?")
_FILE_NAME = re.compile(r"(?:#|//) (?:\S*/)?(\w[\w.-]*\.[a-z]+)")


@dataclass(frozen=True)
class Block:
    """A block of code."""

    page: str
    """The page's path, from the root of the repository."""
    line: int
    """The line of the page where it begins, from 1."""
    language: str
    """Empty where the block names none or is one by indentation."""
    text: str
    not_run: str | None
    """Why it is for reading alone."""
    output: str | None
    """What it prints, where a block behind it tells."""

    @property
    def where(self) -> str:
        """Its place, as editors jump to."""
        return f"{self.page}:{self.line}"

    @property
    def file(self) -> str | None:
        """The name of the file that it is."""
        first = self.text.partition("\n")[0].rstrip()
        named = _FILE_NAME.fullmatch(first)
        return named[1] if named and self.language not in ("console", "sh") else None


@dataclass(frozen=True)
class Command:
    """A command of a console block, and the output shown behind it."""

    text: str
    output: str


def pages() -> list[Path]:
    """The README and the pages of docs/."""
    return [ROOT / "README.md", *sorted((ROOT / "docs").rglob("*.md"))]


def tokens(page: Path) -> list[Token]:
    """What a page consists of."""
    return MarkdownIt("commonmark").enable("table").parse(page.read_text())


def blocks(page: Path) -> list[Block]:
    """The blocks of a page in order."""
    name = str(page.relative_to(ROOT)) if page.is_relative_to(ROOT) else page.name
    parts = tokens(page)
    found: list[Block] = []
    for number, part in enumerate(parts):
        if part.type not in ("fence", "code_block"):
            continue
        before = parts[number - 1] if number else None
        behind = parts[number + 1] if number + 1 < len(parts) else None
        marker = _MARKER.fullmatch(before.content) if before and before.type == "html_block" else None
        language = part.info.split()[0] if part.info else ""
        assert part.map is not None
        found.append(
            Block(
                name,
                part.map[0] + 1,
                language,
                part.content,
                marker[1] if marker else None,
                behind.content if behind and _tells_output(part, behind) else None,
            )
        )
    return found


def _tells_output(part: Token | None, behind: Token | None) -> bool:
    return (
        part is not None
        and behind is not None
        and part.type == behind.type == "fence"
        and part.info in ("sh", "python")
        and behind.info == "text"
    )


def markers(page: Path) -> int:
    """How many comments of a page look like the one that keeps a block from running."""
    return len(re.findall(r"<!--[^>]*not\s+run", page.read_text()))


def inline_codes(page: Path) -> list[str]:
    """Code within the sentences of a page."""
    return [c.content for part in tokens(page) for c in part.children or [] if c.type == "code_inline"]


def commands(text: str) -> list[Command]:
    """The commands of a console block. ValueError where it does not begin with one."""
    found: list[Command] = []
    for line in text.splitlines():
        if line.startswith("$ "):
            found.append(Command(line[2:], ""))
        elif not found:
            raise ValueError(f"{line!r} stands before the first command")
        elif line.startswith("> ") and not found[-1].output:
            found[-1] = Command(f"{found[-1].text}\n{line[2:]}", "")
        else:
            found[-1] = Command(found[-1].text, f"{found[-1].output}{line}\n")
    return found


def fits(shown: str, told: str) -> bool:
    """Whether an output is the one that a page shows. Spaces at the ends of lines do not count."""
    pattern = "".join(
        r"(?:.*\n)*" if line.strip() == "..." else re.escape(line.rstrip()).replace(r"\.\.\.", ".*") + "\n"
        for line in shown.splitlines()
    )
    return re.fullmatch(pattern, "".join(f"{line.rstrip()}\n" for line in told.splitlines())) is not None


def files_used(found: Sequence[Block], number: int) -> bool:
    """Whether a later block speaks of the file that a block is."""
    name = found[number].file
    return any(name in later.text for later in found[number + 1 :] if later.not_run is None) if name else False
