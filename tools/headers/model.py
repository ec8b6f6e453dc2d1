"""Reads `include/kestrel/` into plain data: records with their members, constants, functions.

pycparser reads the preprocessed headers. What the preprocessor drops is taken from the source lines it points back
to: the offset comments behind members, the record announcements, and the spelling of array bounds.
"""

from __future__ import annotations

import re
import subprocess
from dataclasses import dataclass, field
from functools import cache
from pathlib import Path

from pycparser import c_ast, c_parser

INCLUDE = Path(__file__).resolve().parents[2] / "include"
SUPPORT = INCLUDE.parent / "src"
LABORATORY = "lab.h"
"""The header of the embedded host's laboratory, which is no part of the platform; see headers.laboratory."""

_MEMBER_PLACE = re.compile(r"//\s*@(?P<offset>\d+)(?::(?P<low>\d+)(?:\.\.(?P<high>\d+))?)?\s*(?P<note>.*)$")
_RECORD = re.compile(r"^KESTREL_RECORD\((?P<name>\w+), (?P<size>\d+)\)$")
_LIBRARY = re.compile(r"\A/\* lib(\w+)\.so:")
_ROW = re.compile(r"^KESTREL_(?P<kind>[A-Z0-9_]+)\((?P<arguments>.*)\)$")

# Widths in bytes of C's own types on both processors, and the conversion class of each.
_PRIMITIVES: dict[str, tuple[int, str]] = {
    "char": (1, "flag"),
    "unsigned char": (1, "u8"),
    "unsigned short": (2, "u16"),
    "unsigned int": (4, "u32"),
    "unsigned long long": (8, "u64"),
    "long unsigned int": (8, "size"),
    "int": (4, "s32"),
}
_POINTER_WIDTH = 8
_HANDED_BACK = ("tableOut", "secondTableOut", "mapOut", "valueOut", "flagOut", "textOut")
_FUNCTION_POINTER = "function pointer"


@dataclass(frozen=True)
class Member:
    """A member of a record, as scripts reach it."""

    name: str
    type: str
    """The declared type as messages spell it: "zel_uint8 [6]", "struct zel_ListLinks *"."""
    kind: str
    """u8, u16, u32, u64, s32, e8 (one-byte enumeration), flag, text, owned_text, pointer, record, array, trailing."""
    offset: int
    width: int
    """In bytes; of the storage unit for a bit-field."""
    bits: tuple[int, int] | None
    """First and last bit of a bit-field within the storage unit at `offset`."""
    dimensions: tuple[int, ...]
    element: str
    """The type of an array's innermost elements, else the type itself without bounds."""
    read_only: bool
    note: str

    @property
    def value_type(self) -> str:
        """The type that the writer's messages name: records by value cross as pointers."""
        return f"{self.type} *" if self.kind == "record" else self.type


@dataclass(frozen=True)
class Record:
    """A record of the platform: layout and members."""

    name: str
    size: int
    header: str
    doc: str
    tagged: bool
    """Declared as `struct X`, which is how messages then name it, and not only as a type name."""
    members: tuple[Member, ...]

    @property
    def self_type(self) -> str:
        """The type that messages name for the record argument of accessors and methods."""
        return f"struct {self.name} *" if self.tagged else f"{self.name} *"


@dataclass(frozen=True)
class Parameter:
    """A parameter of a platform function."""

    name: str
    type: str

    @property
    def handed_back(self) -> bool:
        """Whether the wrapper supplies it and hands its value back; the interface has a rule for each such name."""
        return self.name in _HANDED_BACK


@dataclass(frozen=True)
class Function:
    """A function as its header declares it, and the library that holds it; none for the module's own."""

    name: str
    library: str
    header: str
    returns: str
    parameters: tuple[Parameter, ...]
    variadic: bool
    doc: str


@dataclass(frozen=True)
class Constant:
    """A published constant: an int, or a text."""

    name: str
    value: int | str
    run: int
    """How many of the variables stand before it in publication order."""
    enumeration: str | None
    text: str | None
    """The sentence of a status code."""


@dataclass(frozen=True)
class Headers:
    """Everything that the headers declare."""

    records: tuple[Record, ...]
    functions: tuple[Function, ...]
    constants: tuple[Constant, ...]
    variables: tuple[str, ...]
    typedefs: dict[str, str] = field(repr=False)
    enumerations: dict[str, str] = field(repr=False)
    """The enumerations in publication order, with what they are."""
    kinds: dict[str, str] = field(repr=False)
    """The conversion class of each named type that is no pointer and no opaque record."""

    def kind(self, spelled: str) -> str:
        """The conversion class of a parameter or result type."""
        if spelled == "void":
            return spelled
        if re.match(r"char (const )?\[", spelled):
            return "text"
        if spelled in ("char const *", "char *"):
            return "text_pointer"
        return "pointer" if spelled.endswith("*") else self.kinds[spelled]

    def record(self, name: str) -> Record:
        """The record of this name."""
        return next(r for r in self.records if r.name == name)


def preprocess(compiler: str, include: Path, headers: list[Path]) -> str:
    """The headers, preprocessed, with line markers; records in the order of the headers that hold them."""
    source = "".join(f'#include "{header}"\n' for header in headers)
    plain = ["-D__attribute__(x)=", "-D__extension__=", "-D__asm__(x)="]
    command = [compiler, "-E", "-std=c11", "-x", "c", f"-I{include}", *plain, "-"]
    return subprocess.run(command, input=source, check=True, capture_output=True, text=True).stdout


def documentation(lines: list[str], line: int) -> str:
    """The text of the `/** ... */` comment that ends on the line before `line` (1-based)."""
    end = line - 2
    if end < 0 or not lines[end].rstrip().endswith("*/"):
        return ""
    start = end
    while start >= 0 and "/**" not in lines[start]:
        start -= 1
    text = " ".join(part.strip() for part in lines[start : end + 1])
    return re.sub(r"\s+\*?\s*", " ", text.removeprefix("/**").removesuffix("*/")).strip()


class _Reader:
    def __init__(self, compiler: str, include: Path, support: Path | None) -> None:
        self.include = include
        self.support = support
        headers = sorted(h for h in (include / "kestrel").glob("*.h") if h.name != LABORATORY)
        if support:
            # The channel's header is about the interpreter and declares no function.
            headers += sorted(h for h in support.glob("*.h") if "Python.h" not in h.read_text())
        self.ast = c_parser.CParser().parse(preprocess(compiler, include, headers))
        self.lines = {path.name: path.read_text().splitlines() for path in headers}
        self.announced = self._announced_records()
        self.constants_table = (include / "kestrel" / "constants.def").read_text()
        self.byte_enumerations = re.findall(r"^KESTREL_ENUM8_BEGIN\((\w+)\)$", self.constants_table, re.MULTILINE)
        self.types: dict[str, c_ast.Node] = {}

    def _announced_records(self) -> dict[str, tuple[int, str, str]]:
        found = {}
        for header, lines in self.lines.items():
            for number, line in enumerate(lines, start=1):
                if match := _RECORD.match(line):
                    found[match["name"]] = (int(match["size"]), header, documentation(lines, number))
        return found

    def read(self) -> Headers:
        records: list[Record] = []
        functions: list[Function] = []
        for node in self.ast.ext:
            if isinstance(node, c_ast.Typedef) and (node.name == "size_t" or self._is_ours(node)):
                self.types[node.name] = node.type
                if node.name in self.announced:
                    records.append(self._record(node))
            elif isinstance(node, c_ast.Decl) and isinstance(node.type, c_ast.FuncDecl) and self._is_ours(node):
                functions.append(self._function(node))
        missing = set(self.announced) - {r.name for r in records}
        if missing:
            raise ValueError(f"announced but not declared: {sorted(missing)}")
        constants, variables = self._constants()
        typedefs = {name: self._spell(node) for name, node in self.types.items()}
        kinds = {name: kind for name, (_, kind) in _PRIMITIVES.items()}
        kinds |= {name: self._classify(name)[1] for name in self.types if not self._is_opaque(name)}
        return Headers(tuple(records), tuple(functions), constants, variables, typedefs, self._enumerations(), kinds)

    def _is_ours(self, node: c_ast.Node) -> bool:
        file = Path(node.coord.file)
        return file.is_relative_to(self.include) or (self.support is not None and file.is_relative_to(self.support))

    # ---- Types -------------------------------------------------------------------------------------------------

    def _spell(self, node: c_ast.Node) -> str:
        """A type as SWIG spells it, array bounds left out."""
        if isinstance(node, c_ast.PtrDecl):
            if isinstance(node.type, c_ast.FuncDecl):
                return _FUNCTION_POINTER
            inner = self._spell(node.type)
            return f"{inner}*" if inner.endswith("*") else f"{inner} *"
        if isinstance(node, c_ast.ArrayDecl):
            return self._spell(node.type)
        if isinstance(node, c_ast.TypeDecl):
            inner = self._spell(node.type)
            return f"{inner} const" if "const" in node.quals else inner
        if isinstance(node, c_ast.IdentifierType):
            return " ".join(node.names)
        if isinstance(node, (c_ast.Struct, c_ast.Union, c_ast.Enum)):
            return f"{type(node).__name__.lower()} {node.name}"
        raise TypeError(f"no spelling for {type(node).__name__}")

    def _classify(self, spelled: str) -> tuple[int, str]:
        """Width and conversion class of a type that is no array."""
        if spelled.endswith("*"):
            return _POINTER_WIDTH, "owned_text" if spelled == "char *" else "pointer"
        if spelled == _FUNCTION_POINTER:
            return _POINTER_WIDTH, "callback"
        if spelled in _PRIMITIVES:
            return _PRIMITIVES[spelled]
        if spelled in self.announced:
            return self.announced[spelled][0], "record"
        node = self.types[spelled]
        inner = node.type if isinstance(node, c_ast.TypeDecl) else node
        if isinstance(inner, c_ast.Enum):
            return (1, "e8") if spelled in self.byte_enumerations else (4, "s32")
        return self._classify(self._spell(node))

    # ---- Records -----------------------------------------------------------------------------------------------

    def _record(self, node: c_ast.Typedef) -> Record:
        size, header, doc = self.announced[node.name]
        body = node.type.type
        members = tuple(self._members(body))
        return Record(node.name, size, header, doc, body.name is not None, members)

    def _members(self, body: c_ast.Node) -> list[Member]:
        found: list[Member] = []
        for decl in body.decls:
            if decl.name is None:
                found += self._members(decl.type)
            else:
                found.append(self._member(decl))
        return found

    def _member(self, decl: c_ast.Decl) -> Member:
        line = self.lines[Path(decl.coord.file).name][decl.coord.line - 1]
        place = _MEMBER_PLACE.search(line)
        if not place:
            raise ValueError(f"{decl.coord}: member {decl.name} carries no offset")
        bounds = re.search(rf"\b{decl.name}((?:\[[^\]]*\])*)", line)
        assert bounds is not None
        spelled_bounds = bounds[1]
        dimensions = tuple(_bound(text) for text in re.findall(r"\[([^\]]*)\]", spelled_bounds))
        element = self._spell(decl.type)
        width, kind = self._classify_member(element, dimensions)
        bits = None
        if place["low"]:
            low = int(place["low"])
            bits = (low, int(place["high"] or low))
        return Member(
            name=decl.name,
            type=f"{element} {spelled_bounds}" if spelled_bounds else element,
            kind=kind,
            offset=int(place["offset"]),
            width=width,
            bits=bits,
            dimensions=dimensions,
            element=element,
            read_only="KESTREL_READ_ONLY(" in line,
            note=place["note"].strip(),
        )

    def _classify_member(self, element: str, dimensions: tuple[int, ...]) -> tuple[int, str]:
        if element not in self.types and element not in _PRIMITIVES and not element.endswith("*"):
            raise ValueError(f"unknown type {element}")
        if self._is_opaque(element):
            return 0, "opaque"
        width, kind = self._classify(element)
        for bound in dimensions:
            width *= bound
        if not dimensions:
            return width, kind
        if dimensions[0] == 0:
            return 0, "trailing"
        return width, "text" if element == "char" and len(dimensions) == 1 else "array"

    def _is_opaque(self, element: str) -> bool:
        """A record type that scripts do not see into."""
        if element in self.announced:
            return False
        node = self.types.get(element)
        inner = node.type if isinstance(node, c_ast.TypeDecl) else None
        return isinstance(inner, (c_ast.Struct, c_ast.Union))

    # ---- Functions and constants -------------------------------------------------------------------------------

    def _function(self, decl: c_ast.Decl) -> Function:
        header = Path(decl.coord.file).name
        library = _LIBRARY.match("\n".join(self.lines[header]))
        if not library and Path(decl.coord.file).is_relative_to(self.include):
            raise ValueError(f"{header} declares functions and does not open with its library")
        arguments = decl.type.args.params if decl.type.args else []
        parameters = tuple(
            Parameter(p.name, self._spell(p.type) + _parameter_bounds(p.type))
            for p in arguments
            if isinstance(p, c_ast.Decl)
        )
        variadic = any(isinstance(p, c_ast.EllipsisParam) for p in arguments)
        return Function(
            name=decl.name,
            library=library[1] if library else "",
            header=header,
            returns=self._spell(decl.type.type),
            parameters=parameters,
            variadic=variadic,
            doc=self._shared_documentation(self.lines[header], decl.coord.line),
        )

    def _shared_documentation(self, lines: list[str], line: int) -> str:
        """The comment before a declaration or before the first of the declarations that stand together with it."""
        while line > 1 and lines[line - 2].strip() and not lines[line - 2].rstrip().endswith("*/"):
            line -= 1
        return documentation(lines, line)

    def _enumerations(self) -> dict[str, str]:
        lines = self.constants_table.splitlines()
        begins = ((i, _ROW.match(line)) for i, line in enumerate(lines, start=1))
        return {
            row["arguments"]: documentation(lines, i)
            for i, row in begins
            if row and row["kind"] in ("ENUM_BEGIN", "ENUM8_BEGIN")
        }

    def _constants(self) -> tuple[tuple[Constant, ...], tuple[str, ...]]:
        constants: list[Constant] = []
        variables: list[str] = []
        enumeration: str | None = None
        for line in self.constants_table.splitlines():
            row = _ROW.match(line)
            if not row:
                continue
            kind, arguments = row["kind"], row["arguments"]
            if kind == "VARIABLE":
                variables.append(arguments)
            elif kind in ("ENUM_BEGIN", "ENUM8_BEGIN"):
                enumeration = arguments
            elif kind == "ENUM_END":
                enumeration = None
            else:
                name, rest = arguments.split(", ", 1)
                value: int | str
                text = None
                if kind == "STR":
                    value = rest.removeprefix('"').removesuffix('"')
                elif kind == "STATUS":
                    number, text = rest.split(", ", 1)
                    value, text = int(number, 0), text.strip('"')
                else:
                    value = int(rest, 0)
                constants.append(Constant(name, value, len(variables), enumeration, text))
        return tuple(constants), tuple(variables)


def _bound(text: str) -> int:
    """The value of an array bound: a number or a product and sum of numbers."""
    if not re.fullmatch(r"[0-9()*+ ]+", text):
        raise ValueError(f"array bound '{text}' is not plain arithmetic")
    return int(eval(text))  # only digits and arithmetic are left


def _parameter_bounds(node: c_ast.Node) -> str:
    if isinstance(node, c_ast.ArrayDecl):
        return f" [{node.dim.value if node.dim else ''}]"
    return ""


@cache
def read(compiler: str = "cc", include: Path = INCLUDE, support: Path | None = None) -> Headers:
    """Reads the headers below `include` with `compiler` as preprocessor.

    With `support`, the headers of that folder too: their functions have no library.
    """
    return _Reader(compiler, include, support).read()
