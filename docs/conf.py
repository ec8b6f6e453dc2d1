"""How the site is made of the pages of this folder: `make docs`."""

from __future__ import annotations

import re
from pathlib import Path
from typing import TYPE_CHECKING

from docutils import nodes
from sphinx import addnodes

if TYPE_CHECKING:
    from sphinx.application import Sphinx

PAGES = Path(__file__).resolve().parent

project = "libkestrel"
extensions = ["myst_parser"]
html_theme = "furo"
html_title = "libkestrel"
html_copy_source = False
html_show_copyright = False

nitpicky = True
myst_heading_anchors = 3
"""Headings down to this level can be linked to, by the anchors that the same files have elsewhere."""


def add_navigation(_app: Sphinx, name: str, source: list[str]) -> None:
    """Makes the navigation of the front page's lists: a part for each of its sections, with the pages linked there."""
    if name != "index":
        return
    for section in source[0].split("\n## ")[1:]:
        caption = section.partition("\n")[0]
        pages = "\n".join(dict.fromkeys(re.findall(r"\]\(([\w/-]+)\.md\)", section)))
        source[0] += f"\n```{{toctree}}\n:hidden:\n:caption: {caption}\n\n{pages}\n```\n"


def unlink_sources(_app: Sphinx, document: nodes.document) -> None:
    """Makes plain text of links to files of the repository that are no pages. One to nothing is left to be reported."""
    for link in list(document.findall(nodes.Element)):
        if not isinstance(link, (addnodes.pending_xref, addnodes.download_reference)):
            continue
        if link.get("refdomain") == "doc":  # a page of this folder, or any other one by its whole path
            target = Path(f"{link['reftarget']}.md")
            is_source = target.is_absolute() and target.exists()
        else:
            is_source = ((PAGES / link["refdoc"]).parent / link["reftarget"]).exists()
        if is_source:
            link.replace_self(link.children)


def setup(app: Sphinx) -> None:
    """Adds what the extensions lack."""
    app.connect("source-read", add_navigation)
    app.connect("doctree-read", unlink_sources)
