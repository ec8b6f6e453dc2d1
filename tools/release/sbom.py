"""Writes the bill of materials of each wheel in dist beside it, in CycloneDX's JSON.

python -m release.sbom [processor...]

What it says is read, not known: files and what they link from the wheel, versions and hashes of packages from the lock,
licences from the packages' metadata, SQLite's version from the header that the build used.
"""

from __future__ import annotations

import hashlib
import io
import json
import re
import sys
import uuid
import zipfile
from dataclasses import dataclass
from datetime import UTC, datetime
from importlib import metadata
from pathlib import Path
from typing import Any

from cyclonedx.schema import SchemaVersion
from cyclonedx.validation.json import JsonStrictValidator
from elftools.elf.dynamic import DynamicSection
from elftools.elf.elffile import ELFFile

from release.project import DIST, NATIVE, PROCESSORS, ROOT, ReleaseError, commit_time, run, version, wheel_for

Component = dict[str, Any]
SCHEMA = SchemaVersion.V1_6
GCC_LICENCE = "GPL-3.0-or-later WITH GCC-exception-3.1"
SYSTEM_LICENCES = {"libstdc++.so": GCC_LICENCE, "libgcc_s.so": GCC_LICENCE}
"""Of libraries that the system provides; those of the C library have its own."""
C_LIBRARY_LICENCE = "LGPL-2.1-or-later"


@dataclass(frozen=True)
class Package:
    """An entry of the lock."""

    name: str
    version: str
    hashes: list[str]
    needed_by: list[str]


def locked(purpose: str) -> list[Package]:
    """What the lock has for a purpose."""
    found = []
    for entry in re.findall(r"^[a-z0-9].*\n(?: +.*\n?)*", run("tools/requirements", purpose), re.MULTILINE):
        name, number = entry.split()[0].split("==")
        needed_by = re.findall(r"[a-z0-9][a-z0-9-]*", entry.partition("# via")[2])
        found.append(Package(name, number, re.findall(r"sha256:(\w+)", entry), needed_by))
    return found


def licence_of(package: str) -> list[dict[str, Any]]:
    """The licence that a package's metadata states."""
    stated = metadata.metadata(package)
    if "License-Expression" in stated:
        return [{"expression": stated["License-Expression"]}]
    named = [each.rpartition(" :: ")[2] for each in stated.get_all("Classifier", []) if each.startswith("License ::")]
    name = stated["License"] if "License" in stated else " and ".join(named)
    if not name:
        raise ReleaseError(f"the metadata of {package} states no licence")
    return [{"license": {"name": name.splitlines()[0]}}]


def hashes(*found: str) -> list[dict[str, str]]:
    """SHA-256 sums as the format has them."""
    return [{"alg": "SHA-256", "content": each} for each in found]


def python_component(package: Package) -> Component:
    """A package from PyPI. Each of its distributions there has a hash of its own."""
    return {
        "type": "library",
        "bom-ref": package.name,
        "name": package.name,
        "version": package.version,
        "scope": "required",
        "purl": f"pkg:pypi/{package.name}@{package.version}",
        "hashes": hashes(*package.hashes),
        "licenses": licence_of(package.name),
        "properties": [{"name": "libkestrel:link", "value": "imported; required by the wheel's metadata"}],
    }


def compiler(processor: str) -> str:
    """The version of the compiler for a processor, which is that of its libraries too."""
    return run("g++" if processor == NATIVE else f"{processor}-linux-gnu-g++", "-dumpfullversion").strip()


def linked_in(processor: str) -> list[Component]:
    """What is part of the wheel's libraries: linked statically."""
    tree = Path("/") if processor == NATIVE else ROOT / "build" / "arm64-python"
    header = (tree / "usr" / "include" / "sqlite3.h").read_text(encoding="utf-8")
    number = re.search(r'#define SQLITE_VERSION\s+"([\d.]+)"', header)
    if number is None:
        raise ReleaseError("sqlite3.h states no version")
    archive = tree / "usr" / "lib" / f"{processor}-linux-gnu" / "libsqlite3.a"
    runtime = compiler(processor)
    return [
        {
            "type": "library",
            "bom-ref": "sqlite",
            "name": "sqlite",
            "version": number[1],
            "scope": "required",
            "purl": f"pkg:generic/sqlite@{number[1]}",
            "hashes": hashes(hashlib.sha256(archive.read_bytes()).hexdigest()),
            "licenses": [{"license": {"id": "blessing"}}],
            "properties": [
                {"name": "libkestrel:link", "value": f"static, in libmorrow.so, from Debian's {archive.name}"}
            ],
        },
        {
            "type": "library",
            "bom-ref": "libstdc++",
            "name": "libstdc++",
            "version": runtime,
            "scope": "required",
            "purl": f"pkg:generic/libstdc%2B%2B@{runtime}",
            "licenses": [{"expression": GCC_LICENCE}],
            "properties": [{"name": "libkestrel:link", "value": "static, where the extension modules use it"}],
        },
    ]


def of_the_system(files: dict[str, bytes], symbols: dict[str, list[str]]) -> list[Component]:
    """Libraries that the wheel's files ask for and do not bring, with the newest symbols that they ask of each."""
    needed: set[str] = set()
    for content in files.values():
        dynamic = ELFFile(io.BytesIO(content)).get_section_by_name(".dynamic")
        assert isinstance(dynamic, DynamicSection)
        needed |= {tag.needed for tag in dynamic.iter_tags("DT_NEEDED")}
    own = {Path(name).name for name in files}
    found = []
    for soname in sorted(needed - own):
        base = soname.partition(".so")[0] + ".so"
        component: Component = {
            "type": "library",
            "bom-ref": soname,
            "name": soname,
            "scope": "required",
            "licenses": [{"expression": SYSTEM_LICENCES.get(base, C_LIBRARY_LICENCE)}],
            "properties": [{"name": "libkestrel:link", "value": "dynamic; the system's"}],
        }
        versions: dict[str, str] = {}
        for symbol in sorted(symbols.get(soname, []), key=lambda each: [int(n) for n in re.findall(r"\d+", each)]):
            versions[symbol.partition("_")[0]] = symbol
        component["properties"] += [{"name": "libkestrel:newest-symbols", "value": each} for each in versions.values()]
        found.append(component)
    return found


def bill(wheel: Path, processor: str) -> dict[str, Any]:
    """The bill of materials of a wheel."""
    with zipfile.ZipFile(wheel) as archive:
        files = {name: archive.read(name) for name in sorted(archive.namelist()) if name.endswith(".so")}
    told = run(sys.executable, "-m", "auditwheel", "show", "--json", wheel)
    symbols = json.loads(told[told.index("{") : told.rindex("}") + 1])["versioned_symbols"]
    digest = hashlib.sha256(wheel.read_bytes()).hexdigest()
    packages = locked("run")
    native = [*linked_in(processor), *of_the_system(files, symbols)]
    tools = [each for each in locked("build") if each.name not in {package.name for package in packages}]
    itself: Component = {
        "type": "library",
        "bom-ref": "libkestrel",
        "name": "libkestrel",
        "version": version(),
        "purl": f"pkg:pypi/libkestrel@{version()}?file_name={wheel.name}",
        "hashes": hashes(digest),
        "licenses": [{"license": {"id": "Apache-2.0"}}],
        "components": [
            {
                "type": "file",
                "bom-ref": name,
                "name": name,
                "hashes": hashes(hashlib.sha256(content).hexdigest()),
            }
            for name, content in files.items()
        ],
    }
    needs = {package.name: sorted(p.name for p in packages if package.name in p.needed_by) for package in packages}
    direct = re.findall(r"^[A-Za-z0-9-]+", run("tools/requirements", "run", "--direct"), re.MULTILINE)
    needs["libkestrel"] = sorted(direct + [component["bom-ref"] for component in native])
    return {
        "$schema": "http://cyclonedx.org/schema/bom-1.6.schema.json",
        "bomFormat": "CycloneDX",
        "specVersion": SCHEMA.to_version(),
        "serialNumber": f"urn:uuid:{uuid.uuid5(uuid.NAMESPACE_URL, f'{wheel.name}#{digest}')}",
        "version": 1,
        "metadata": {
            "timestamp": datetime.fromtimestamp(commit_time(), UTC).isoformat().replace("+00:00", "Z"),
            "lifecycles": [{"phase": "build"}],
            "component": itself,
            "tools": {
                "components": [
                    {"type": "application", "name": name, "version": number}
                    for name, number in [*((tool.name, tool.version) for tool in tools), ("g++", compiler(processor))]
                ]
            },
        },
        "components": [*(python_component(package) for package in packages), *native],
        "dependencies": [{"ref": ref, "dependsOn": on} for ref, on in sorted(needs.items())],
    }


def faults(text: str) -> str | None:
    """What the schema has to say against a bill, None where it has nothing."""
    found = JsonStrictValidator(SCHEMA).validate_str(text)
    return None if found is None else str(found)


def main(processors: list[str]) -> None:
    """Writes those of some processors, or of all."""
    for processor in processors or PROCESSORS:
        wheel = wheel_for(processor)
        text = json.dumps(bill(wheel, processor), indent=2) + "\n"
        if found := faults(text):
            raise ReleaseError(f"the bill of {wheel.name} is not as CycloneDX has it: {found}")
        path = DIST / f"{wheel.stem}.cdx.json"
        path.write_text(text, encoding="utf-8")
        print(f"{path.relative_to(ROOT)}: {len(json.loads(text)['components'])} components")


if __name__ == "__main__":
    try:
        main(sys.argv[1:])
    except ReleaseError as error:
        sys.exit(str(error))
