"""The links of the pages that are no part of the site, whose own links `make docs` follows."""

from __future__ import annotations

import re
from pathlib import Path

import pytest

from support.pages import ROOT, tokens

OUTSIDE = [*sorted(ROOT.glob("*.md")), ROOT / "benchmarks" / "README.md"]


def links(page: Path) -> list[str]:
    """Where the links of a page lead, but for other sites."""
    inner = [child for part in tokens(page) for child in part.children or []]
    targets = [str(child.attrs["href"]) for child in inner if child.type == "link_open"]
    return [target for target in targets if "://" not in target]


def anchors(page: Path) -> set[str]:
    """What one can link to on a page: its headings in small letters, with hyphens for spaces and no marks."""
    parts = tokens(page)
    titles = [parts[i + 1].content for i, part in enumerate(parts) if part.type == "heading_open"]
    return {re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-") for title in titles}


def broken(page: Path) -> list[str]:
    found = []
    for link in links(page):
        path, _, anchor = link.partition("#")
        target = page.parent / path if path else page
        if not target.exists() or (anchor and anchor not in anchors(target)):
            found.append(link)
    return found


@pytest.mark.parametrize("page", OUTSIDE, ids=lambda page: str(page.relative_to(ROOT)))
def test_links_lead_somewhere(page: Path) -> None:
    assert broken(page) == []


def test_broken_links_are_found(tmp_path: Path) -> None:
    page = tmp_path / "page.md"
    page.write_text(
        "# One `two`, three\n\n[a](#one-two-three) [b](#four) [c](page.md) [d](none.md) <https://e.example>\n"
    )
    assert broken(page) == ["#four", "none.md"]
