"""The reference pages: up to date, and with an entry for every function and constant of the module."""

from __future__ import annotations

import re
from pathlib import Path
from types import BuiltinFunctionType

import _libkestrel
import pytest

from headers import coverage, model, object_classes, record_fields, reference

FOLDER = Path(__file__).resolve().parents[2] / "docs" / "reference"
PAGES = reference.pages()
HEADERS = model.read(support=model.SUPPORT)


@pytest.mark.parametrize("name", PAGES)
def test_a_page_is_what_the_headers_say(name: str) -> None:
    assert (FOLDER / name).read_text() == PAGES[name], "run `make reference`"


def test_there_are_no_other_pages() -> None:
    assert {path.name for path in FOLDER.iterdir()} == set(PAGES)


def entries() -> set[str]:
    """The functions that the pages tell of."""
    found = set(re.findall(r"^### `(\w+)`$", PAGES["functions.md"] + PAGES["methods.md"], re.MULTILINE))
    for section in PAGES["records.md"].split("\n## ")[1:]:
        name = section.split("\n", 1)[0]
        found |= set(re.findall(r"`((?:new|delete)_\w+|\w+_swigregister)\(", section))
        for member, access in re.findall(r"^\| `(\w+)` .*\| (read|read, write) \| [^|]*\|$", section, re.MULTILINE):
            found.add(f"{name}_{member}_get")
            if access == "read, write":
                found.add(f"{name}_{member}_set")
    return found


def test_every_function_has_an_entry() -> None:
    functions = {n for n, v in vars(_libkestrel).items() if isinstance(v, BuiltinFunctionType)}
    assert len(functions) == 1774
    assert entries() == functions


def test_every_constant_has_a_row() -> None:
    rows = re.findall(r"^\| `(\w+)` \|", PAGES["constants.md"], re.MULTILINE)
    assert rows == [c.name for c in HEADERS.constants]


def test_every_record_class_has_a_section() -> None:
    sections = re.findall(r"^## (\w+)$", PAGES["record_classes.md"], re.MULTILINE)
    assert sections == [r.name for r in HEADERS.records] + list(record_fields.ARRAYS)
    rows = re.findall(r"^\| `(\w+)` \|", PAGES["record_classes.md"], re.MULTILINE)
    assert rows == [f.name for r in HEADERS.records for f in record_fields.fields(HEADERS, r)] + ["elements"] * 2


def test_every_published_name_of_the_package_has_a_text() -> None:
    sections = re.split(r"^### `(\w+)`$", PAGES["objects.md"], flags=re.MULTILINE)
    told = dict(zip(sections[1::2], sections[2::2], strict=True))
    assert set(told) == {name for names in object_classes.published().values() for name in names}
    assert [name for name, text in told.items() if len(text.strip()) < 10] == []


def test_every_function_is_documented() -> None:
    assert [f.name for f in HEADERS.functions if len(f.doc) < 10] == []


def test_allocated_records_name_their_release() -> None:
    for function in HEADERS.functions:
        if any(p.handed_back and p.type.endswith("**") for p in function.parameters):
            section = PAGES["functions.md"].split(f"### `{function.name}`\n")[1].split("\n### ")[0]
            assert "FreeMemory`" in section


def test_the_host_implements_every_function() -> None:
    assert {f.name for f in HEADERS.functions if f.library} == coverage.defined() & {f.name for f in HEADERS.functions}


def test_coverage_tells_definitions_from_mentions(tmp_path: Path) -> None:
    (tmp_path / "face.cc").write_text(
        "KESTREL_HOST_EXPORT ZEL_ReturnStatus Defined(const char *name) {\n  return Called(name);\n}\n"
        "KESTREL_HOST_EXPORT const char *\nOverTwoLines(void) {\n}\n"
        "// KESTREL_HOST_EXPORT int Commented(void)\n"
        "KESTREL_HOST_EXPORT int a_variable;\nint Inner(int) {\n}\n"
    )
    assert coverage.defined(tmp_path) == {"Defined", "OverTwoLines"}
