"""What is in dist, after `make wheels sbom deb`: names, contents, licences, bills of materials."""

from __future__ import annotations

import hashlib
import io
import json
import re
import subprocess
import zipfile
from email.parser import BytesParser
from pathlib import Path
from typing import Any

import pytest
from packaging.requirements import Requirement
from packaging.utils import parse_wheel_filename

from release import project, sbom
from release.reproducible import differences, is_of_this_commit

MACHINES = {"x86_64": "Advanced Micro Devices X86-64", "aarch64": "AArch64"}
WHEELS = {processor: project.wheel_for(processor) for processor in project.PROCESSORS}


@pytest.fixture(params=project.PROCESSORS)
def processor(request: pytest.FixtureRequest) -> str:
    return str(request.param)


@pytest.fixture
def wheel(processor: str) -> zipfile.ZipFile:
    return zipfile.ZipFile(WHEELS[processor])


@pytest.fixture
def bill(processor: str) -> dict[str, Any]:
    found: dict[str, Any] = json.loads(WHEELS[processor].with_suffix(".cdx.json").read_text())
    return found


def dist_info(wheel: zipfile.ZipFile, name: str) -> Any:
    return BytesParser().parsebytes(wheel.read(f"libkestrel-{project.version()}.dist-info/{name}"))


# ---- Wheels ----


def test_a_wheel_is_named_after_what_it_runs_on(processor: str, wheel: zipfile.ZipFile) -> None:
    name, version, _, tags = parse_wheel_filename(WHEELS[processor].name)
    assert (name, str(version)) == ("libkestrel", project.version())
    (tag,) = tags
    assert (tag.interpreter, tag.abi) == ("cp311", "cp311")
    found = re.fullmatch(rf"manylinux_2_(\d+)_{processor}", tag.platform)
    assert found is not None
    assert dist_info(wheel, "WHEEL")["Tag"] == str(tag)
    # No file asks the C library for more than the name says, and one asks for it.
    asked = set()
    for member in wheel.namelist():
        asked |= {
            int(minor) for minor in re.findall(rb"GLIBC_2\.(\d+)", wheel.read(member) if ".so" in member else b"")
        }
    assert max(asked) == int(found[1])


def test_its_files_are_for_its_processor(processor: str, wheel: zipfile.ZipFile, tmp_path: Path) -> None:
    members = [name for name in wheel.namelist() if name.endswith(".so")]
    assert len(members) == 5
    for member in members:
        path = Path(wheel.extract(member, tmp_path))
        header = subprocess.run(["readelf", "-h", str(path)], capture_output=True, text=True, check=True).stdout
        assert re.search(r"Machine: +(.*)", header)[1] == MACHINES[processor]  # type: ignore[index]
        assert "cpython" not in member or f"cpython-311-{processor}-linux-gnu" in member


def test_it_is_of_the_last_commit_and_tells_nothing_of_where_it_was_made(
    processor: str, wheel: zipfile.ZipFile
) -> None:
    assert is_of_this_commit(WHEELS[processor])
    for member in wheel.namelist():
        content = wheel.read(member)
        assert str(project.ROOT).encode() not in content, member
        assert str(Path.home()).encode() + b"/" not in content, member
    for info in wheel.infolist():
        if ".dist-info/" not in info.filename:  # which have the permissions that the backend gives them everywhere
            assert (info.external_attr >> 16) & 0o7022 == 0, info.filename


def test_it_has_its_licence_and_its_entry_points(wheel: zipfile.ZipFile) -> None:
    info = f"libkestrel-{project.version()}.dist-info"
    assert wheel.read(f"{info}/licenses/LICENSE") == (project.ROOT / "LICENSE").read_bytes()
    metadata = dist_info(wheel, "METADATA")
    assert (metadata["License-Expression"], metadata["Requires-Python"]) == ("Apache-2.0", "==3.11.*")
    assert b"kestrel = libkestrel.cli.entry:main" in wheel.read(f"{info}/entry_points.txt")


def test_both_wheels_have_the_same_files_but_for_the_processor() -> None:
    contents = {}
    for processor, path in WHEELS.items():
        with zipfile.ZipFile(path) as wheel:
            contents[processor] = {
                name.replace(processor, "PROCESSOR"): b""
                if name.endswith((".so", "/WHEEL", "/RECORD"))
                else wheel.read(name)
                for name in wheel.namelist()
            }
    assert contents["x86_64"] == contents["aarch64"]


# ---- Bills of materials ----


def test_a_bill_is_as_the_schema_has_it(processor: str) -> None:
    text = WHEELS[processor].with_suffix(".cdx.json").read_text()
    assert sbom.faults(text) is None
    assert sbom.faults(text.replace('"library"', '"libary"')) is not None


def test_it_is_of_the_wheel_and_of_each_of_its_libraries(
    processor: str, wheel: zipfile.ZipFile, bill: dict[str, Any]
) -> None:
    itself = bill["metadata"]["component"]
    (own,) = itself["hashes"]
    assert own["content"] == hashlib.sha256(WHEELS[processor].read_bytes()).hexdigest()
    assert {each["name"]: each["hashes"][0]["content"] for each in itself["components"]} == {
        name: hashlib.sha256(wheel.read(name)).hexdigest() for name in wheel.namelist() if name.endswith(".so")
    }


def test_it_has_what_the_wheel_requires_and_what_is_linked(
    processor: str, wheel: zipfile.ZipFile, bill: dict[str, Any], tmp_path: Path
) -> None:
    names = {component["name"] for component in bill["components"]}
    required = [Requirement(line) for line in dist_info(wheel, "METADATA").get_all("Requires-Dist")]
    assert {each.name for each in required if each.marker is None} <= names
    for member in wheel.namelist():
        if member.endswith(".so"):
            path = Path(wheel.extract(member, tmp_path))
            listing = subprocess.run(["readelf", "-d", str(path)], capture_output=True, text=True, check=True).stdout
            needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", listing))
            assert needed <= names | {Path(each).name for each in wheel.namelist()}, processor
    (sqlite,) = (component for component in bill["components"] if component["name"] == "sqlite")
    assert sqlite["version"].encode() in wheel.read("libkestrel/lib/libmorrow.so")
    assert all(component.get("licenses") for component in bill["components"])


def test_what_depends_on_what_names_components(bill: dict[str, Any]) -> None:
    references = {component["bom-ref"] for component in bill["components"]} | {"libkestrel"}
    on = {each["ref"]: set(each["dependsOn"]) for each in bill["dependencies"]}
    assert set(on) | set().union(*on.values()) == references


# ---- The comparison of two builds ----


def test_wheels_that_differ_are_told_apart() -> None:
    first = WHEELS["x86_64"].read_bytes()
    assert list(differences(first, first)) == []
    changed = io.BytesIO()
    with zipfile.ZipFile(io.BytesIO(first)) as archive, zipfile.ZipFile(changed, "w") as copy:
        for info in archive.infolist():
            content = archive.read(info)
            if info.filename == "libkestrel/lib/libpraxa.so":
                at = content.index(b"DVS")
                content = content[:at] + b"XVS" + content[at + 3 :]
            if info.filename == "libkestrel/py.typed":
                info.external_attr = 0o600 << 16
            if info.filename == "libkestrel/__init__.py":
                content += b"# more\n"
            copy.writestr(info, content)
    found = "\n".join(differences(first, changed.getvalue()))
    assert re.search(
        r"^libkestrel/lib/libpraxa.so: section \.\S+ from byte \d+ on: .*DVS.* and .*XVS", found, re.MULTILINE
    )
    assert re.search(r"^libkestrel/py.typed: external_attr is \d+ and \d+$", found, re.MULTILINE)
    assert re.search(r"^libkestrel/__init__.py: @@.*@@; \+# more$", found, re.MULTILINE)
    assert found.count("\n") == 2


# ---- The Debian package ----


def deb() -> Path:
    (found,) = project.DIST.glob(f"python3-libkestrel_{project.version()}-1_*.deb")
    return found


def test_the_debian_package_has_the_files_of_the_wheel(tmp_path: Path) -> None:
    subprocess.run(["dpkg-deb", "--extract", str(deb()), str(tmp_path)], check=True)
    packages = tmp_path / "usr" / "lib" / "python3" / "dist-packages"
    with zipfile.ZipFile(WHEELS[project.NATIVE]) as wheel:
        left_out = set()
        for member in wheel.namelist():
            if (packages / member).exists():
                assert (packages / member).read_bytes() == wheel.read(member), member
            else:
                left_out.add(re.sub(r".*\.dist-info/", "", member))
    assert left_out == {"RECORD", "WHEEL", "licenses/LICENSE"}
    shared = tmp_path / "usr" / "share"
    assert "Apache-2.0" in (shared / "doc" / "python3-libkestrel" / "copyright").read_text()
    assert {"changelog.gz", "changelog.Debian.gz", "copyright", "examples"} == {
        path.name for path in (shared / "doc" / "python3-libkestrel").iterdir()
    }
    assert (shared / "man" / "man1" / "kestrel-switch.1.gz").is_file()
    assert (tmp_path / "usr" / "bin" / "kestrel").stat().st_mode & 0o777 == 0o755


def test_it_depends_on_what_the_wheel_requires() -> None:
    done = subprocess.run(["dpkg-deb", "--field", str(deb()), "Depends"], capture_output=True, text=True, check=True)
    depends = set(done.stdout.strip().split(", "))
    with zipfile.ZipFile(WHEELS[project.NATIVE]) as wheel:
        required = [Requirement(line) for line in dist_info(wheel, "METADATA").get_all("Requires-Dist")]
    for requirement in (each for each in required if each.marker is None):
        for bound in requirement.specifier:
            operator = {"<": "<<", ">=": ">="}[bound.operator]
            assert f"python3-{requirement.name} ({operator} {bound.version})" in depends
    assert {"python3 (>= 3.11)", "python3 (<< 3.12)"} <= depends
    assert any(each.startswith("libc6 (>= ") for each in depends)
