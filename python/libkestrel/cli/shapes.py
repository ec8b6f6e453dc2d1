"""What answers consist of: a command's kind of answer is declared once; its table and its JSON follow from that."""

from __future__ import annotations

from collections.abc import Iterable
from dataclasses import dataclass
from typing import Any

from libkestrel.cli.envelopes import VERSION

Type = dict[str, Any]
TEXT: Type = {"type": "string"}
NUMBER: Type = {"type": "integer"}
RATIONAL: Type = {"type": "number"}
FLAG: Type = {"type": "boolean"}


def optional(kind: Type) -> Type:
    """A value that may be null."""
    return {"anyOf": [kind, {"type": "null"}]}


def several(kind: Type) -> Type:
    """A list of values."""
    return {"type": "array", "items": kind}


def one_of(words: Iterable[str]) -> Type:
    """One of some words."""
    return {"enum": sorted(words)}


def record(fields: Iterable[Field]) -> Type:
    """A value with members of its own."""
    members = list(fields)
    return {
        "type": "object",
        "properties": {member.name: {"description": member.meaning, **member.type} for member in members},
        "required": [member.name for member in members],
    }


@dataclass(frozen=True)
class Field:
    """A member of an answer, and a column of its table."""

    name: str
    type: Type
    meaning: str
    heading: str | None = None
    """The column's heading, the name in capitals where nothing is said; "" keeps the member out of tables."""

    @property
    def title(self) -> str:
        """The heading as it is shown."""
        return self.name.replace("_", " ").upper() if self.heading is None else self.heading


@dataclass(frozen=True)
class Shape:
    """A kind of answer: rows of fields, or one row where `many` is False."""

    kind: str
    fields: tuple[Field, ...]
    many: bool = True

    def __post_init__(self) -> None:
        SHAPES[self.kind] = self

    def row(self, *values: Any) -> dict[str, Any]:
        """A row with the values of the fields in order."""
        return {field.name: value for field, value in zip(self.fields, values, strict=True)}

    @property
    def columns(self) -> list[Field]:
        """The fields that tables show."""
        return [field for field in self.fields if field.title]


SHAPES: dict[str, Shape] = {}
"""All kinds by name."""


def table(kind: str, *fields: Field) -> Shape:
    """Declares an answer of many rows."""
    return Shape(kind, fields)


def sheet(kind: str, *fields: Field) -> Shape:
    """Declares an answer that is one row, shown with a line for each field."""
    return Shape(kind, fields, many=False)


def json_schema() -> dict[str, Any]:
    """The JSON Schema of all answers that have been declared so far."""
    kinds = []
    for shape in sorted(SHAPES.values(), key=lambda shape: shape.kind):
        row = record(shape.fields)
        kinds.append(
            {
                "title": shape.kind,
                "type": "object",
                "properties": {
                    "schema_version": {"const": VERSION},
                    "kind": {"const": shape.kind},
                    "data": several(row) if shape.many else row,
                },
                "required": ["schema_version", "kind", "data"],
            }
        )
    return {
        "$schema": "https://json-schema.org/draft/2020-12/schema",
        "title": f"Answers of kestrel in JSON, version {VERSION}",
        "oneOf": kinds,
    }
