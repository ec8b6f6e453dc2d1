"""The installed distribution: what it holds, how it finds its libraries, and that others can take their place."""

from __future__ import annotations

import os
import re
import shutil
import subprocess
import sys
from importlib import metadata
from pathlib import Path

import _libkestrel
import pytest

import libkestrel

ROOT = Path(__file__).resolve().parents[2]
SONAMES = ["libkestrel.so", "libmorrow.so", "libpraxa.so"]


def run(code: str, **environment: str) -> str:
    done = subprocess.run(
        [sys.executable, "-c", code],
        env=os.environ | environment,
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 0, done.stderr
    return done.stdout


def dynamic(file: Path) -> dict[str, list[str]]:
    """The entries of a file's dynamic section that matter here."""
    listing = subprocess.run(["readelf", "-d", str(file)], capture_output=True, text=True, check=True).stdout
    found: dict[str, list[str]] = {"NEEDED": [], "RUNPATH": [], "RPATH": [], "SONAME": []}
    for tag, value in re.findall(r"\((\w+)\)[^\[\n]*\[([^\]]*)\]", listing):
        if tag in found:
            found[tag].append(value)
    return found


def test_the_wheel_holds_the_module_the_libraries_and_the_package() -> None:
    files = {str(f) for f in metadata.files("libkestrel") or []}
    assert any(re.fullmatch(r"_libkestrel\.cpython-311-\w+-linux-gnu\.so", f) for f in files)
    assert {f"libkestrel/lib/{name}" for name in SONAMES} <= files
    package = ROOT / "python"
    assert {str(path.relative_to(package)) for path in (package / "libkestrel").rglob("*.py")} <= files
    assert "libkestrel/py.typed" in files
    assert any(re.fullmatch(r"libkestrel/_records\.cpython-311-\w+-linux-gnu\.so", f) for f in files)
    assert {"_libkestrel-stubs/__init__.pyi", "libkestrel/records.pyi", "libkestrel/enums.pyi"} <= files
    assert any(f.endswith("LICENSE") for f in files)
    strays = {
        f for f in files if not f.startswith(("libkestrel/", "_libkestrel.", "_libkestrel-stubs/", "libkestrel-"))
    }
    assert {f for f in strays if "__pycache__" not in f} == {"../../../bin/kestrel"}
    scenarios = {f"libkestrel/scenarios/{path.name}" for path in (ROOT / "examples" / "scenarios").glob("*.toml")}
    assert scenarios
    assert scenarios | {"libkestrel/cli/answers-1.json"} <= files


def test_what_is_tested_is_what_is_installed() -> None:
    installed = Path(str(metadata.distribution("libkestrel").locate_file("")))
    assert {Path(m.__file__ or "").parents[n] for m, n in ((libkestrel, 1), (_libkestrel, 0))} == {installed}
    assert not Path(libkestrel.__file__).is_relative_to(ROOT / "python")
    for path in (ROOT / "python" / "libkestrel").rglob("*.py*"):
        if path.suffix in (".py", ".pyi"):
            assert (installed / path.relative_to(ROOT / "python")).read_bytes() == path.read_bytes(), path


def test_the_version_stands_in_one_place() -> None:
    stated = re.search(r"project\(libkestrel VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())
    assert stated is not None
    assert metadata.version("libkestrel") == stated[1] == libkestrel.platform_info().version


def test_libraries_are_found_by_a_relative_run_path() -> None:
    entries = dynamic(Path(_libkestrel.__file__))
    assert entries["RUNPATH"] == ["$ORIGIN/libkestrel/lib"]
    assert entries["RPATH"] == []
    assert set(SONAMES) <= set(entries["NEEDED"])
    for name in SONAMES:
        library = Path(libkestrel.__file__).parent / "lib" / name
        entries = dynamic(library)
        assert entries["SONAME"] == [name]
        assert entries["RUNPATH"] == ["$ORIGIN"]


def test_the_embedded_host_answers_where_nothing_else_is_said() -> None:
    info = libkestrel.platform_info()
    assert info.embedded
    assert [library.soname for library in info.libraries] == ["libkestrel.so", "libpraxa.so", "libmorrow.so"]
    assert info.module == Path(_libkestrel.__file__)
    assert info.interpreter.startswith("CPython 3.11")


REPORT = "import libkestrel; i = libkestrel.platform_info(); print(i.embedded, *(l.path for l in i.libraries))"


def test_other_libraries_take_the_platforms_place(tmp_path: Path) -> None:
    for name in SONAMES:
        shutil.copy(Path(libkestrel.__file__).parent / "lib" / name, tmp_path / name)
    report = run(REPORT, LD_LIBRARY_PATH=str(tmp_path)).split()
    assert report[0] == "False"
    assert {Path(path).parent for path in report[1:]} == {tmp_path}


def install_into(folder: Path, *options: str) -> None:
    command = [sys.executable, "-m", "pip", "install", "--quiet", "--no-deps", "--target", str(folder), *options]
    done = subprocess.run([*command, str(ROOT)], capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr


def test_it_works_from_a_target_folder(tmp_path: Path) -> None:
    install_into(tmp_path)
    report = run(REPORT, PYTHONPATH=str(tmp_path)).split()
    assert report[0] == "True"
    assert {Path(path).parent for path in report[1:]} == {tmp_path / "libkestrel" / "lib"}


def test_a_build_for_a_hosts_own_libraries_brings_none(tmp_path: Path) -> None:
    libraries = Path(libkestrel.__file__).parent / "lib"
    install_into(
        tmp_path,
        "-C",
        "cmake.define.KESTREL_PLATFORM=system",
        "-C",
        f"cmake.define.KESTREL_PLATFORM_DIR={libraries}",
    )
    assert not (tmp_path / "libkestrel" / "lib").exists()
    (module,) = tmp_path.glob("_libkestrel.*.so")
    entries = dynamic(module)
    assert set(SONAMES) <= set(entries["NEEDED"])
    assert entries["RUNPATH"] == []
    report = run(REPORT, PYTHONPATH=str(tmp_path), LD_LIBRARY_PATH=str(libraries)).split()
    assert report[0] == "False"
    assert {Path(path).parent for path in report[1:]} == {libraries}


@pytest.mark.parametrize("name", ["_libkestrel", "libkestrel", "libkestrel.lab", "libkestrel.lab.scenario"])
def test_importing_prints_nothing(name: str) -> None:
    assert run(f"import {name}") == ""
