"""Every public name of the package says what it is."""

from __future__ import annotations

import ast
import importlib
import inspect
import pkgutil
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

import libkestrel
from libkestrel import enums, errors, records
from libkestrel.host._objects import Setting
from libkestrel.records import Record, Table

PACKAGE = Path(libkestrel.__file__).parent
MODULES = [
    found.name
    for found in pkgutil.walk_packages(libkestrel.__path__, "libkestrel.")
    if not any(part.startswith("_") for part in found.name.split("."))
]


def published(name: str) -> Iterator[tuple[str, Any]]:
    """The names that a module publishes: those that it lists, else those that it defines."""
    module = importlib.import_module(name)
    listed = getattr(module, "__all__", None)
    for key in listed if listed is not None else dir(module):
        value = getattr(module, key)
        ours = inspect.isclass(value) or inspect.isfunction(value)
        if ours and not key.startswith("_") and (listed or value.__module__ == name):
            yield key, value


def told(value: Any) -> bool:
    """Whether there is a text of its own: not the one that every object has, nor what dataclasses make up."""
    text = inspect.getdoc(value) or "" if not inspect.isclass(value) else str(vars(value).get("__doc__") or "")
    made_up = inspect.isclass(value) and text.startswith(f"{value.__name__}(")
    return bool(text) and not made_up and text not in INHERITED


INHERITED = {(kind.__doc__ or "").strip() for kind in (object, Exception, int, str)}


@pytest.mark.parametrize("name", ["libkestrel", *MODULES])
def test_modules_classes_and_functions_are_documented(name: str) -> None:
    assert told(importlib.import_module(name))
    missing = []
    for key, value in published(name):
        if not told(value):
            missing.append(key)
        if not inspect.isclass(value):
            continue
        for member, found in vars(value).items():
            has_text = isinstance(found, (property, Setting, classmethod, staticmethod)) or inspect.isfunction(found)
            if has_text and not member.startswith("_") and not told(getattr(found, "__func__", found)):
                missing.append(f"{key}.{member}")
    if name != "libkestrel.lab.scenario.kinds":  # where the base class says what each kind's members are
        assert missing == []


def attributes(node: ast.ClassDef) -> Iterator[tuple[str, ast.stmt | None]]:
    """The public attributes of a dataclass, of an enumeration, or that a constructor makes, each with what follows."""
    dataclass = any("dataclass" in ast.unparse(decorator) for decorator in node.decorator_list)
    enumeration = any(ast.unparse(base) in ("IntEnum", "IntFlag", "Enum") for base in node.bases)
    bodies = [node.body, *(f.body for f in node.body if isinstance(f, ast.FunctionDef) and f.name == "__init__")]
    declared = {ast.unparse(n.target) for n in node.body if isinstance(n, ast.AnnAssign)}
    for body in bodies:
        for here, after in zip(body, [*body[1:], None], strict=True):
            if not isinstance(here, (ast.Assign, ast.AnnAssign)):
                continue
            target = here.targets[0] if isinstance(here, ast.Assign) else here.target
            if body is not node.body:
                if isinstance(target, ast.Attribute) and target.attr not in declared:
                    yield target.attr, after
            elif dataclass or (enumeration and isinstance(here, ast.Assign)):
                yield ast.unparse(target), after


SOURCES = [path for path in sorted(PACKAGE.rglob("*.py")) if not {"scenario", "_declarations.py"} & set(path.parts)]
"""Not the format of scenarios, whose keys carry their texts in another way: for its own page."""


@pytest.mark.parametrize("path", SOURCES, ids=lambda path: str(path.relative_to(PACKAGE)))
def test_attributes_are_documented(path: Path) -> None:
    """A string stands behind each."""
    missing = []
    for node in ast.walk(ast.parse(path.read_text())):
        if not isinstance(node, ast.ClassDef) or node.name.startswith("_") or path.stem.startswith("_"):
            continue
        for name, after in attributes(node):
            stands = isinstance(after, ast.Expr) and isinstance(after.value, ast.Constant)
            if not stands and not name.startswith("_"):
                missing.append(f"{node.name}.{name}")
    assert missing == []


def test_record_classes_and_their_members_are_documented() -> None:
    classes = [getattr(records, name) for name in records.__all__]
    classes = [c for c in classes if inspect.isclass(c) and issubclass(c, Record)]
    assert len(classes) == 117 + 2 + 2
    assert [c.__name__ for c in classes if not told(c)] == []
    members = [field for c in classes if c not in (Record, Table) for field in c.__fields__]
    assert len(members) > 500
    assert [field.__qualname__ for field in members if len(field.__doc__ or "") < 10] == []


def test_errors_and_enumerations_are_documented() -> None:
    kinds = [getattr(errors, name) for name in errors.__all__ if name[0].isupper()]
    assert [kind.__name__ for kind in kinds if not told(kind)] == []
    assert [name for name in enums.__all__ if not getattr(enums, name).__doc__] == []
