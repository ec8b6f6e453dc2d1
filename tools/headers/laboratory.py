"""Reads `include/kestrel/lab.h` and generates from it what the Python side of the laboratory calls by.

The laboratory is the embedded host's own: the module knows nothing of it, and Python reaches it through ctypes.
"""

from __future__ import annotations

import argparse
import re
from dataclasses import dataclass
from functools import cache
from pathlib import Path

from pycparser import c_ast, c_parser

from headers import model

OUTPUT = model.INCLUDE.parent / "python" / "libkestrel" / "lab" / "_declarations.py"
_WIDTH = 120
_PREFIX = "KestrelLab"

_NAMES = {
    "zel_uint8": "c_uint8",
    "zel_uint16": "c_uint16",
    "zel_uint32": "c_uint32",
    "zel_int32": "c_int32",
    "zel_uint64": "c_uint64",
    "zel_Bool": "c_char",
    "ZEL_ReturnStatus": "c_int",
    "int": "c_int",
    "size_t": "c_size_t",
    "char": "c_char",
    "zel_SwitchPortID": "c_uint32",
}


@dataclass(frozen=True)
class Field:
    """A member of a record; `type` is spelled in ctypes."""

    name: str
    type: str


@dataclass(frozen=True)
class Record:
    """A record, whose name is without the prefix that C needs."""

    name: str
    doc: str
    fields: tuple[Field, ...]


@dataclass(frozen=True)
class Function:
    """A function; the types are spelled in ctypes, None for no result."""

    name: str
    returns: str
    parameters: tuple[str, ...]


@dataclass(frozen=True)
class Enumerator:
    """A constant of an enumeration of the header."""

    name: str
    value: int


@dataclass(frozen=True)
class Laboratory:
    """Everything that the header declares."""

    version: int
    enumerators: tuple[Enumerator, ...]
    records: tuple[Record, ...]
    functions: tuple[Function, ...]


class _Reader:
    def __init__(self, compiler: str, include: Path) -> None:
        header = include / "kestrel" / model.LABORATORY
        self.text = header.read_text()
        self.lines = self.text.splitlines()
        self.ast = c_parser.CParser().parse(model.preprocess(compiler, include, [header]))
        self.enumerations: set[str] = set()

    def read(self) -> Laboratory:
        records, functions, enumerators = [], [], []
        for node in self.ast.ext:
            if isinstance(node, c_ast.Typedef) and isinstance(node.type.type, c_ast.Enum):
                # The platform's enumerations can be types of the laboratory's parameters.
                self.enumerations.add(node.name)
                if self._is_ours(node):
                    enumerators += [Enumerator(e.name, int(e.value.value)) for e in node.type.type.values.enumerators]
            elif not self._is_ours(node):
                continue
            elif isinstance(node, c_ast.Typedef):
                fields = tuple(Field(_python_name(d.name), self._type(d.type)) for d in node.type.type.decls)
                start = self.lines.index(f"typedef struct {node.name} {{") + 1
                doc = model.documentation(self.lines, start)
                records.append(Record(node.name.removeprefix(_PREFIX), doc, fields))
            else:
                parameters = node.type.args.params
                types = tuple(self._type(p.type) for p in parameters if isinstance(p, c_ast.Decl))
                functions.append(Function(node.name, self._type(node.type.type), types))
        found = re.search(r"^#define KESTREL_LAB_VERSION (\d+)$", self.text, re.MULTILINE)
        assert found is not None
        return Laboratory(int(found[1]), tuple(enumerators), tuple(records), tuple(functions))

    def _is_ours(self, node: c_ast.Node) -> bool:
        return Path(node.coord.file).name == model.LABORATORY

    def _type(self, node: c_ast.Node) -> str:
        if isinstance(node, c_ast.TypeDecl):
            name = " ".join(node.type.names)
            if name == "void":
                return "None"
            if name in self.enumerations:
                return "c_int"
            return _NAMES.get(name) or name.removeprefix(_PREFIX)
        if isinstance(node, c_ast.ArrayDecl):
            return f"{self._type(node.type)} * {node.dim.value}"
        inner = self._type(node.type)
        return {"None": "c_void_p", "c_char": "c_char_p"}.get(inner) or f"POINTER({inner})"


@cache
def read(compiler: str = "cc", include: Path = model.INCLUDE) -> Laboratory:
    """Reads the header with `compiler` as preprocessor."""
    return _Reader(compiler, include).read()


def _python_name(name: str) -> str:
    """A member's name as Python writes names."""
    return re.sub(r"[A-Z]", lambda letter: f"_{letter[0].lower()}", name)


def _python_type(spelled: str) -> str:
    """What a member is in Python."""
    if spelled.startswith("c_char"):
        return "bytes"
    if " * " in spelled:
        return f"Array[{spelled.split(' * ')[0]}]"
    return "int" if spelled.startswith("c_") else spelled


def _import_order(name: str) -> tuple[int, list[tuple[str, int]]]:
    """Where a name stands among imports: constants, classes, the rest, and numbers in names by their value."""
    kind = 0 if name.isupper() else 1 if name[0].isupper() else 2
    return kind, [(letters, int(digits or 0)) for letters, digits in re.findall(r"(\D+)(\d*)", name)]


def _signature(function: Function) -> list[str]:
    """The entry of a function, laid out as ruff does."""
    types = ", ".join(function.parameters) + ("," if len(function.parameters) == 1 else "")
    line = f'    "{function.name}": ({function.returns}, ({types})),'
    if len(line) <= _WIDTH:
        return [line]
    return [f'    "{function.name}": (', f"        {function.returns},", f"        ({types}),", "    ),"]


def generate(laboratory: Laboratory) -> str:
    """The Python module of declarations."""
    lines = [f"{e.name.removeprefix('KESTREL_LAB_')} = {e.value}" for e in laboratory.enumerators]
    for record in laboratory.records:
        lines += ["", "", f"class {record.name}(Structure):", f'    """{record.doc}"""', ""]
        lines += [f"    {field.name}: {_python_type(field.type)}" for field in record.fields]
        lines += ["", "    _fields_ = ["]
        lines += [f'        ("{field.name}", {field.type}),' for field in record.fields]
        lines += ["    ]"]
    lines += ["", "", "FUNCTIONS: dict[str, tuple[Any, tuple[Any, ...]]] = {"]
    for function in laboratory.functions:
        lines += _signature(function)
    lines += ["}", '"""The result and the parameters of each function."""']
    text = "\n".join(lines)
    used = sorted(set(re.findall(r"\b(?:c_\w+|POINTER|Structure|Array)\b", text)), key=_import_order)
    head = [
        '"""What the laboratory\'s library declares. Generated from its header by tools/headers/laboratory.py."""',
        "",
        "from __future__ import annotations",
        "",
        "from ctypes import (",
        *(f"    {name}," for name in used),
        ")",
        "from typing import Any",
        "",
        f"VERSION = {laboratory.version}",
    ]
    return "\n".join(head) + "\n" + text + "\n"


def main() -> None:
    """Writes the module anew."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--compiler", default="cc")
    parser.add_argument("--output", type=Path, default=OUTPUT)
    options = parser.parse_args()
    options.output.write_text(generate(read(options.compiler)))


if __name__ == "__main__":
    main()
