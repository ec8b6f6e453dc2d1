"""Tells which names of the package cover each function of the platform: `docs/reference/package.md`.

The package's sources are read, not imported. A function is covered by the public names from whose bodies it is reached:
a private method counts for the public ones that call it, a mixin's method for the class that takes it in.
"""

from __future__ import annotations

import ast
from dataclasses import dataclass, field
from pathlib import Path

from headers.model import Headers

PACKAGE = Path(__file__).resolve().parents[2] / "python" / "libkestrel"
FLAT = "flat"
"""The name under which the package's sources import the flat module."""

_SPELLED = {
    "__init__": "{0}()",
    "__getitem__": "{0}[...]",
    "__setitem__": "{0}[...] = value",
    "__delitem__": "del {0}[...]",
    "__iter__": "iter({0})",
    "__len__": "len({0})",
    "__contains__": "... in {0}",
    "__exit__": "with {0}",
}
_MOST = 6
"""Covering names that the page lists of a function; memory is given back from everywhere."""


@dataclass
class Body:
    """A function of the sources: what it refers to."""

    name: str
    owner: str | None
    """The class that it is defined in; None for a function of a module."""
    module: str
    shown: str
    """How users write it, with "{0}" for the object or class."""
    flat: set[str] = field(default_factory=set)
    names: set[str] = field(default_factory=set)

    @property
    def public(self) -> bool:
        """Whether users call it themselves. Functions of modules are the package's own but for those of errors."""
        if self.owner is None:
            return self.module in ("errors", "_kestrel_error") and not self.name.startswith("_")
        return self.name in _SPELLED or not self.name.startswith("_") or self.shown != f"{{0}}.{self.name}"


@dataclass
class Sources:
    """The functions and classes of the package."""

    bodies: list[Body] = field(default_factory=list)
    bases: dict[str, list[str]] = field(default_factory=dict)

    def ancestors(self, name: str) -> set[str]:
        """A class and what it derives from."""
        return {name}.union(*(self.ancestors(base) for base in self.bases.get(name, []) if base in self.bases))

    def related(self, one: str, other: str) -> bool:
        """Whether some class has both among its ancestors, so that methods of the one can call the other's."""
        return any({one, other} <= self.ancestors(name) for name in self.bases)

    def shown_class(self, name: str) -> str:
        """The class that users meet: a mixin's only heir, else the class itself. Plans have a host's verbs."""
        heirs = [c for c in self.bases if name in self.ancestors(c) and c != "Plan"]
        leaves = [c for c in heirs if not any(c in self.ancestors(d) for d in heirs if d != c)]
        return leaves[0] if len(leaves) == 1 else name

    def callers(self, body: Body) -> list[Body]:
        """The functions that refer to one."""
        found = [b for b in self.bodies if b is not body and body.name in b.names]
        if body.owner is None:
            return found
        return [b for b in found if b.owner is not None and self.related(b.owner, body.owner)]


def _shown(node: ast.FunctionDef) -> str:
    """How users write a method: the writers and clearers of settings are assignments and deletions."""
    for decorator in node.decorator_list:
        if isinstance(decorator, ast.Attribute) and isinstance(decorator.value, ast.Name):
            if decorator.attr == "writes":
                return f"{{0}}.{decorator.value.id} = value"
            if decorator.attr == "clears":
                return f"del {{0}}.{decorator.value.id}"
    return _SPELLED.get(node.name, f"{{0}}.{node.name}")


def _read(node: ast.FunctionDef, owner: str | None, module: str) -> Body:
    body = Body(node.name, owner, module, _shown(node))
    for inner in ast.walk(node):
        if isinstance(inner, ast.Attribute):
            if isinstance(inner.value, ast.Name) and inner.value.id == FLAT:
                body.flat.add(inner.attr)
            else:
                body.names.add(inner.attr)
        elif isinstance(inner, ast.Name):
            body.names.add(inner.id)
    return body


def sources(package: Path = PACKAGE) -> Sources:
    """Reads the sources of the package's objects and errors."""
    found = Sources()
    for path in [*sorted((package / "host").glob("*.py")), package / "_kestrel_error.py", package / "errors.py"]:
        for node in ast.parse(path.read_text()).body:
            if isinstance(node, ast.ClassDef):
                found.bases[node.name] = [ast.unparse(base) for base in node.bases]
                methods = [n for n in node.body if isinstance(n, ast.FunctionDef)]
                found.bodies += [_read(method, node.name, path.stem) for method in methods]
            elif isinstance(node, ast.FunctionDef):
                found.bodies.append(_read(node, None, path.stem))
    return found


def _public_ways(package: Sources, body: Body) -> list[Body]:
    """The public functions nearest to one, itself if it is public."""
    found: list[Body] = []
    seen: list[Body] = []
    waiting = [body]
    while waiting:
        here = waiting.pop(0)
        if any(here is other for other in seen):
            continue
        seen.append(here)
        if here.public:
            found.append(here)
        else:
            waiting += package.callers(here)
    return found


def _spelled(package: Sources, way: Body, through: Body) -> str:
    """A public function as users write it. What a base class calls in its heirs is told of the heir."""
    if way.owner is None:
        return f"errors.{way.name}"
    owner = through.owner if through.owner is not None and way.owner in package.ancestors(through.owner) else way.owner
    return way.shown.format(package.shown_class(owner))


def platform_functions(headers: Headers) -> list[str]:
    """The functions to cover: all that a library of the platform holds.

    The module's own (constructors, registration, accessors, conveniences) give access to records, which
    `libkestrel.records` does.
    """
    return [f.name for f in headers.functions if f.library]


def coverage(headers: Headers, package: Sources | None = None) -> dict[str, list[str]]:
    """The public names that cover each function of the platform."""
    package = package or sources()
    found: dict[str, list[str]] = {}
    for name in platform_functions(headers):
        ways = [
            _spelled(package, way, body)
            for body in package.bodies
            if name in body.flat
            for way in _public_ways(package, body)
        ]
        found[name] = sorted(set(ways))
    return found


def _cell(names: list[str]) -> str:
    more = f", and {len(names) - _MOST} more" if len(names) > _MOST else ""
    return ", ".join(f"`{name}`" for name in names[:_MOST]) + more


def body(headers: Headers) -> list[str]:
    """The page, by header."""
    covered = coverage(headers)
    lines: list[str] = []
    headings = {f.name: f.header for f in headers.functions}
    for header in dict.fromkeys(headings[name] for name in covered):
        lines += [f"## {header}", "", "| Function | In the package |", "|---|---|"]
        lines += [f"| `{name}` | {_cell(ways)} |" for name, ways in covered.items() if headings[name] == header]
        lines.append("")
    return lines


INTRODUCTION = (
    "Which names of `libkestrel` cover each function of the platform's libraries.\n"
    "What the flat module adds of its own (constructors, accessors, conveniences) is access to records:\n"
    "[records](../records.md) cover it."
)
