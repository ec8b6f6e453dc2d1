"""The header reader: what it makes of the platform's headers, and that it refuses what it cannot read."""

from __future__ import annotations

from pathlib import Path

import pytest

from headers import layout_assertions, model, recorder

HEADERS = model.read()


def test_counts() -> None:
    assert len(HEADERS.records) == 117
    assert sum(len(r.members) for r in HEADERS.records) == 573
    assert HEADERS.variables == ("zel_ModuleCurrentID", "runtimeOptionNames")


@pytest.mark.parametrize(
    ("record", "member", "kind", "spelled", "offset", "width", "bits"),
    [
        ("VSInfo", "numSinkPorts", "u16", "zel_uint16", 208, 2, None),
        ("VSMACEntry", "macAddrType", "e8", "VSMACAddrType", 6, 1, None),
        ("VSMACEntry", "portID", "u32", "zel_SwitchPortID", 7, 4, None),
        ("LSTeamPolicy", "name", "text", "char [(32*4) +8]", 0, 136, None),
        ("zel_MgmtInstances", "instanceNames", "array", "zel_Name [32]", 264, 1024, None),
        ("VSTeamPolicy", "uplinkPortName", "array", "char [32][81]", 24, 2592, None),
        ("VSList", "switches", "trailing", "char [0]", 8, 0, None),
        ("VDSQuery", "propValue", "owned_text", "char *", 4, 8, None),
        ("zel_ListLinks", "nextPtr", "pointer", "struct zel_ListLinks *", 8, 8, None),
        ("zel_FenceHdr", "fenceID", "u32", "zel_uint32", 0, 4, (8, 31)),
        ("zel_VLANHdr", "dropEligible", "u8", "zel_uint8", 0, 1, (4, 4)),
        ("VSPMACManagement", "portMACLearning", "record", "VSPMACLearning", 1, 10, None),
        ("zel_LinkStatus", "duplex", "s32", "zel_LinkDuplex", 8, 4, None),
    ],
)
def test_a_member_is_read_as_declared(
    record: str, member: str, kind: str, spelled: str, offset: int, width: int, bits: tuple[int, int] | None
) -> None:
    found = next(m for m in HEADERS.record(record).members if m.name == member)
    assert (found.kind, found.type, found.offset, found.width, found.bits) == (kind, spelled, offset, width, bits)


def test_records_without_a_tag_are_named_without_struct() -> None:
    untagged = {r.name for r in HEADERS.records if not r.tagged}
    assert untagged == {
        "zel_String",
        "zel_LinkStatus",
        "VSPortInfo_vlan",
        "VSPortInfo_ethFrpAccepted",
        "VSUplinks_entries",
        "zel_SocketIPv6AddressAddr___u6_addr",
    }


def test_every_record_and_constant_row_is_documented() -> None:
    assert [r.name for r in HEADERS.records if len(r.doc) < 10] == []
    assert [c.name for c in HEADERS.constants if c.text is not None and not c.text] == []


@pytest.mark.parametrize("constant", [c for c in HEADERS.constants if c.text is not None], ids=lambda c: c.name)
def test_a_status_sentence_is_short_and_plain(constant: model.Constant) -> None:
    assert constant.text
    assert constant.text.isascii()
    assert constant.text[0].isupper()
    assert not constant.text.endswith(".")
    assert len(constant.text) <= 80


def folder(tmp_path: Path, header: str, table: str = "") -> Path:
    (tmp_path / "kestrel").mkdir()
    (tmp_path / "kestrel" / "example.h").write_text(header)
    (tmp_path / "kestrel" / "constants.def").write_text(table)
    return tmp_path


RECORD_MACROS = "#define KESTREL_RECORD(name, size)\n#define KESTREL_READ_ONLY(member) member\n"


def test_a_member_without_offset_is_refused(tmp_path: Path) -> None:
    header = RECORD_MACROS + "KESTREL_RECORD(Thing, 4)\ntypedef struct Thing {\n  int count;\n} Thing;\n"
    with pytest.raises(ValueError, match="member count carries no offset"):
        model.read(include=folder(tmp_path, header))


def test_an_announced_record_has_to_follow(tmp_path: Path) -> None:
    with pytest.raises(ValueError, match="announced but not declared"):
        model.read(include=folder(tmp_path, RECORD_MACROS + "KESTREL_RECORD(Thing, 4)\ntypedef int Other;\n"))


def test_a_function_needs_a_library(tmp_path: Path) -> None:
    with pytest.raises(ValueError, match="does not open with its library"):
        model.read(include=folder(tmp_path, "int count(void);\n"))


def test_an_example_is_read_whole(tmp_path: Path) -> None:
    header = (
        "/* libthing.so: things. */\n"
        + RECORD_MACROS
        + "/** A thing. */\nKESTREL_RECORD(Thing, 8)\ntypedef struct Thing {\n"
        + "  unsigned int low : 4;  // @0:0..3 a note\n"
        + "  KESTREL_READ_ONLY(char text[4]);  // @4\n} Thing;\n"
        + "int thing_count(const char *name, Thing *thing, ...);\n"
    )
    read = model.read(include=folder(tmp_path, header, 'KESTREL_STATUS(OK, 0x10, "Well, fine")\n'))
    (thing,) = read.records
    assert (thing.doc, thing.size, thing.self_type) == ("A thing.", 8, "struct Thing *")
    low, text = thing.members
    assert (low.kind, low.bits, low.note, low.read_only) == ("u32", (0, 3), "a note", False)
    assert (text.kind, text.width, text.read_only) == ("text", 4, True)
    (function,) = read.functions
    assert (function.library, function.returns, function.variadic) == ("thing", "int", True)
    assert [p.type for p in function.parameters] == ["char const *", "Thing *"]
    (constant,) = read.constants
    assert (constant.name, constant.value, constant.text) == ("OK", 16, "Well, fine")


def test_layout_assertions_state_size_offset_and_width() -> None:
    text = layout_assertions.generate(HEADERS)
    assert "static_assert(sizeof(VSInfo) == 210);" in text
    assert "static_assert(offsetof(VSInfo, numSinkPorts) == 208);" in text
    assert "static_assert(sizeof(VSInfo::numSinkPorts) == 2);" in text
    assert "offsetof(zel_FenceHdr" not in text


def test_the_recorder_covers_every_function_once() -> None:
    libraries = {f.library for f in HEADERS.functions}
    assert libraries == {"morrow", "kestrel", "praxa"}
    text = "".join(recorder.generate(HEADERS, library) for library in sorted(libraries))
    for function in HEADERS.functions:
        assert text.count(f'recorder_begin("{function.name}");') == 1
