"""Tells of each class and function of the package's objects and laboratory: `docs/reference/objects.md`.

The sources are read, not imported: their texts are the page.
"""

from __future__ import annotations

import ast
from collections.abc import Iterator
from dataclasses import dataclass, field
from itertools import pairwise
from pathlib import Path

PACKAGE = Path(__file__).resolve().parents[2] / "python" / "libkestrel"

INTRODUCTION = (
    "Everything that `libkestrel`, `libkestrel.host`, `libkestrel.lab` and `libkestrel.testing` publish.\n"
    "[Objects](../objects.md) and [the laboratory](../laboratory.md) are the tours; what raises an error of a status\n"
    "raises the class that [package.md](package.md) names. An attribute that can be set is marked with `=`, one that\n"
    "can be deleted, so that its default holds again, with `del`."
)

_ROOMS = {"host": "libkestrel.host", "lab": "libkestrel.lab"}
_HIDDEN = {"cli", "scenario", "_declarations.py"}


@dataclass
class Class:
    """A class of the sources."""

    node: ast.ClassDef
    bases: list[str] = field(default_factory=list)


@dataclass
class Room:
    """What the modules of a folder define, by name."""

    classes: dict[str, Class] = field(default_factory=dict)
    functions: dict[str, ast.FunctionDef] = field(default_factory=dict)
    values: dict[str, str] = field(default_factory=dict)


def _text(node: ast.stmt | None) -> str | None:
    """The text that a statement is."""
    if isinstance(node, ast.Expr) and isinstance(node.value, ast.Constant) and isinstance(node.value.value, str):
        return node.value.value.strip()
    return None


def _paragraph(text: str) -> str:
    """The first paragraph of a text, on one line."""
    return " ".join(text.split("\n\n", 1)[0].split())


def _documented(body: list[ast.stmt]) -> Iterator[tuple[ast.stmt, str]]:
    """Statements with the text behind them."""
    for here, after in pairwise(body):
        text = _text(after)
        if text is not None:
            yield here, text


def _read(paths: list[Path]) -> Room:
    room = Room()
    for path in paths:
        tree = ast.parse(path.read_text())
        for node in tree.body:
            if isinstance(node, ast.ClassDef):
                room.classes[node.name] = Class(node, [ast.unparse(base) for base in node.bases])
            elif isinstance(node, ast.FunctionDef):
                room.functions[node.name] = node
        for node, text in _documented(tree.body):
            if isinstance(node, ast.Assign):
                room.values[ast.unparse(node.targets[0])] = text
            elif isinstance(node, ast.AnnAssign):
                room.values[ast.unparse(node.target)] = text
    return room


def _published(module: Path) -> list[str]:
    """The names in a module's `__all__`."""
    for node in ast.parse(module.read_text()).body:
        if isinstance(node, ast.Assign) and ast.unparse(node.targets[0]) == "__all__":
            return [str(name) for name in ast.literal_eval(node.value)]
    raise LookupError(f"{module} publishes nothing")


def _signature(node: ast.FunctionDef, *, method: bool) -> str:
    arguments = node.args
    if method and not any(ast.unparse(d) == "staticmethod" for d in node.decorator_list):
        arguments = ast.arguments(**{**dict(ast.iter_fields(arguments)), "args": arguments.args[1:]})
    result = f" -> {ast.unparse(node.returns)}" if node.returns else ""
    return f"{node.name}({ast.unparse(arguments)}){result}"


def _ways(node: ast.FunctionDef, decorators: list[str]) -> str:
    """What can be done to a setting besides reading it: one that stands for a property can be cleared."""
    (made,) = [d for d in node.decorator_list if isinstance(d, ast.Call)]
    ways = ["="] if f"{node.name}.writes" in decorators else []
    ways += ["del"] if len(made.args) > 1 or f"{node.name}.clears" in decorators else []
    return f" ({', '.join(ways)})" if ways else ""


def _methods(cls: ast.ClassDef) -> Iterator[tuple[str, str]]:
    """The public attributes and methods that a class defines itself, as they are used, with their texts."""
    own = [node for node in cls.body if isinstance(node, ast.FunctionDef)]
    decorators = {node: [ast.unparse(d) for d in node.decorator_list] for node in own}
    for node, text in [*_documented(cls.body)]:
        target = node.targets[0] if isinstance(node, ast.Assign) else getattr(node, "target", None)
        kind = f": {ast.unparse(node.annotation)}" if isinstance(node, ast.AnnAssign) else ""
        if isinstance(node, ast.AnnAssign) and isinstance(node.value, ast.Constant):
            kind += f" = {ast.unparse(node.value)}"
        if isinstance(target, ast.Name) and not target.id.startswith("_"):
            yield f"{target.id}{kind}", text
    for node in own:
        if node.name == "__init__":
            for made, text in _documented(node.body):
                target = made.targets[0] if isinstance(made, ast.Assign) else getattr(made, "target", None)
                if isinstance(target, ast.Attribute) and not target.attr.startswith("_"):
                    yield target.attr, text
    for node in own:
        if node.name.startswith("_"):
            continue
        text = ast.get_docstring(node) or ""
        names = decorators[node]
        result = f": {ast.unparse(node.returns)}" if node.returns else ""
        if any(name.startswith("setting(") for name in names):
            yield f"{node.name}{result}{_ways(node, [d for found in decorators.values() for d in found])}", text
        elif "property" in names:
            yield f"{node.name}{result}", text
        else:
            yield _signature(node, method=True), text


def _members(room: Room, name: str, exported: set[str]) -> Iterator[tuple[str, str]]:
    """A class's members, with those of bases that are not told by themselves."""
    seen = set()
    waiting = [name]
    while waiting:
        here = room.classes[waiting.pop(0)]
        for shown, text in _methods(here.node):
            key = shown.split("(")[0].split(":")[0].split(" ")[0]
            if key not in seen:
                seen.add(key)
                yield shown, text
        waiting += [base for base in here.bases if base in room.classes and base not in exported]


def _class(room: Room, name: str, exported: set[str]) -> list[str]:
    cls = room.classes[name]
    bases = [base for base in cls.bases if base in exported or base.endswith(("Error", "Enum", "Flag"))]
    lines = [f"### `{name}`", "", ast.get_docstring(cls.node) or "", ""]
    if bases:
        lines += [f"A {', '.join(f'`{base}`' for base in bases)}.", ""]
    lines += [f"- `{shown}`: {_paragraph(text)}" for shown, text in _members(room, name, exported)]
    return [*lines, ""] if lines[-1] else lines


def _function(node: ast.FunctionDef) -> list[str]:
    return [f"### `{node.name}`", "", f"    {_signature(node, method=False)}", "", ast.get_docstring(node) or "", ""]


def _value(room: Room, name: str) -> list[str]:
    return [f"### `{name}`", "", room.values.get(name, ""), ""]


def published() -> dict[str, list[str]]:
    """The names that the page tells of, by module."""
    found = {module: _published(PACKAGE / room / "__init__.py") for room, module in _ROOMS.items()}
    return {**found, "libkestrel.testing": _published(PACKAGE / "testing.py")}


def body() -> list[str]:
    """The modules with their names."""
    lines: list[str] = []
    for module, names in published().items():
        place = PACKAGE / module.removeprefix("libkestrel.")
        paths = sorted(place.glob("*.py")) if place.is_dir() else [place.with_suffix(".py")]
        room = _read([path for path in paths if path.name not in _HIDDEN])
        lines += [f"## {module}", ""]
        for name in names:
            if name in room.classes:
                lines += _class(room, name, set(names))
            elif name in room.functions:
                lines += _function(room.functions[name])
            else:
                lines += _value(room, name)
    return lines
