"""Makes the wheels of the last commit a second time, elsewhere, and compares them with those in dist byte for byte.

python -m release.reproducible [processor...]

The second build has a folder, a home, a time zone, a language and permissions of its own, and no compiler's cache. What
differs is told file by file, of libraries section by section.
"""

from __future__ import annotations

import difflib
import hashlib
import io
import os
import sys
import tempfile
import time
import zipfile
from collections.abc import Iterator
from pathlib import Path

from elftools.elf.elffile import ELFFile

from release import wheels
from release.project import DIST, PROCESSORS, ReleaseError, commit_time, export, version

ELSEWHERE = {"TZ": "Pacific/Chatham", "LC_ALL": "C", "LANG": "C", "CCACHE_DISABLE": "1", "PYTHONHASHSEED": "2"}
"""What the second build finds in its environment."""


def differences(first: bytes, second: bytes) -> Iterator[str]:
    """How two wheels differ, for people; nothing where they do not."""
    if first == second:
        return
    one, other = (zipfile.ZipFile(io.BytesIO(content)) for content in (first, second))
    if one.namelist() != other.namelist():
        apart = sorted(set(one.namelist()) ^ set(other.namelist()))
        yield f"files are not the same: {', '.join(apart)}" if apart else "the order of the files"
    for name in sorted(set(one.namelist()) & set(other.namelist())):
        for what in ("date_time", "external_attr", "compress_type", "create_system"):
            values = [getattr(archive.getinfo(name), what) for archive in (one, other)]
            if values[0] != values[1]:
                yield f"{name}: {what} is {values[0]} and {values[1]}"
        contents = one.read(name), other.read(name)
        if contents[0] != contents[1]:
            yield f"{name}: {'; '.join(content_differences(*contents))}"


def content_differences(first: bytes, second: bytes) -> Iterator[str]:
    """How two files differ."""
    if first.startswith(b"\x7fELF"):
        sections = [
            {section.name: section.data() for section in ELFFile(io.BytesIO(content)).iter_sections()}
            for content in (first, second)
        ]
        for section in sorted(set(sections[0]) | set(sections[1])):
            data = [each.get(section, b"") for each in sections]
            if data[0] != data[1]:
                at = next((i for i, pair in enumerate(zip(*data, strict=False)) if pair[0] != pair[1]), 0)
                around = [each[max(0, at - 16) : at + 32] for each in data]
                yield f"section {section} from byte {at} on: {around[0]!r} and {around[1]!r}"
        return
    one, other = (content.decode(errors="replace").splitlines() for content in (first, second))
    yield from list(difflib.unified_diff(one, other, lineterm="", n=0))[2:12]


def main(processors: list[str]) -> None:
    """Compares those of some processors, or of all; one that is not there is made first."""
    for processor in processors or PROCESSORS:
        first = next(iter(DIST.glob(f"libkestrel-{version()}-*_{processor}.whl")), None)
        if first is None or not is_of_this_commit(first):
            wheels.main([processor])
            (first,) = DIST.glob(f"libkestrel-{version()}-*_{processor}.whl")
        with tempfile.TemporaryDirectory(prefix="libkestrel-made-again-") as name:
            folder = Path(name)
            os.umask(0o077)
            home = folder / "home"
            home.mkdir()
            second = wheels.build(
                processor, export(folder / "sources"), folder / "wheel", {**ELSEWHERE, "HOME": str(home)}
            )
            contents = first.read_bytes(), second.read_bytes()
            found = [] if first.name == second.name else [f"names: {first.name} and {second.name}"]
            found += differences(*contents)
        if contents[0] != contents[1]:
            raise ReleaseError(
                f"{first.name} came out differently:\n" + "\n".join(found or ["the archive's own bytes"])
            )
        print(f"{first.name}: the same bytes twice, SHA-256 {hashlib.sha256(contents[0]).hexdigest()}")


def is_of_this_commit(wheel: Path) -> bool:
    """Whether a wheel has been made of the last commit, by the time that its files have."""
    with zipfile.ZipFile(wheel) as archive:
        return {info.date_time for info in archive.infolist()} == {zip_time(commit_time())}


def zip_time(seconds: int) -> tuple[int, int, int, int, int, int]:
    """A time as archives have it: to two seconds."""
    year, month, day, hour, minute, second = time.gmtime(seconds)[:6]
    return year, month, day, hour, minute, second // 2 * 2


if __name__ == "__main__":
    try:
        main(sys.argv[1:])
    except ReleaseError as error:
        sys.exit(str(error))
