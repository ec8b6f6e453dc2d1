"""Makes the wheels of the last commit, one for each processor, into dist, and shows that each installs and runs.

python -m release.wheels [processor...]
"""

from __future__ import annotations

import hashlib
import json
import shutil
import sys
from pathlib import Path

from release.project import (
    BUILD,
    DIST,
    NATIVE,
    PROCESSORS,
    ROOT,
    ReleaseError,
    commit_time,
    export,
    run,
    uncommitted,
    version,
)

ARM64_PYTHON = ROOT / "build" / "arm64-python"
"""Where tools/arm64-python unpacks."""


def build(processor: str, sources: Path, into: Path, environment: dict[str, str] | None = None) -> Path:
    """Makes the wheel of some sources for a processor, under its name, in a folder that has nothing else: the wheel."""
    shutil.rmtree(into, ignore_errors=True)
    environment = {"SOURCE_DATE_EPOCH": str(commit_time()), **(environment or {})}
    options = ["-C", f"build-dir={sources}/build"]
    if processor != NATIVE:
        if processor != "aarch64":
            raise ReleaseError(f"a wheel for {processor} can be made there only")
        run("tools/arm64-python", ARM64_PYTHON)
        environment |= {"_PYTHON_HOST_PLATFORM": f"linux-{processor}"}  # what Python's own tools for cross builds set
        for name, value in (
            ("CMAKE_TOOLCHAIN_FILE", sources / "cmake" / "aarch64-linux-gnu.cmake"),
            ("KESTREL_ARM64_PYTHON", ARM64_PYTHON),
        ):
            options += ["-C", f"cmake.define.{name}={value}"]
    # Not isolated: what builds is what requirements.lock says, to the byte.
    pip = (sys.executable, "-m", "pip", "wheel", "--quiet", "--no-deps", "--no-build-isolation", "--wheel-dir", into)
    run(*pip, *options, ".", folder=sources, environment=environment)
    (made,) = into.glob("*.whl")
    # The wheel is named after the oldest systems that it runs on, by the symbols that it asks of the C library.
    told = run(sys.executable, "-m", "auditwheel", "show", "--json", made)
    tag = json.loads(told[told.index("{") : told.rindex("}") + 1])["overall_tag"]
    if not tag.startswith("manylinux") or not tag.endswith(processor):
        raise ReleaseError(f"{made.name} asks for what not every Linux on {processor} has; auditwheel calls it {tag}")
    tags = (sys.executable, "-m", "wheel", "tags", "--remove", "--platform-tag", tag, made)
    run(*tags, environment=environment)
    (named,) = into.glob("*.whl")
    return named


def try_out(wheel: Path, processor: str) -> str:
    """Installs a wheel, and what it requires at the lock's versions, into a folder and uses it: what it says."""
    folder = BUILD / processor / "installed"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    requirements = folder.with_name("requirements.txt")
    itself = f"{wheel} --hash=sha256:{hashlib.sha256(wheel.read_bytes()).hexdigest()}\n"
    requirements.write_text(run("tools/requirements", "run") + itself, encoding="utf-8")
    foreign: list[str] = (
        [] if processor == NATIVE else ["--platform", wheel.stem.rsplit("-", 1)[-1], "--python-version", "3.11"]
    )
    pip = [sys.executable, "-m", "pip", "install", "--quiet", "--only-binary=:all:", "--target", str(folder), *foreign]
    run(*pip, "--require-hashes", "--requirement", requirements)
    # Not the environment's interpreter, which finds other packages beside.
    python: list[str | Path] = [Path(sys.base_prefix) / "bin" / "python3.11"]
    if processor != NATIVE:
        python = ["qemu-aarch64-static", "-L", ARM64_PYTHON, "-E", f"PYTHONHOME={ARM64_PYTHON}/usr",
                  ARM64_PYTHON / "usr" / "bin" / "python3.11"]  # fmt: skip
    interpreter = " ".join(map(str, python))
    smoke = ("tools/release/smoke", version(), folder.with_name("smoke"), ROOT / "examples")
    return run(*smoke, f"{interpreter} {folder}/bin/kestrel", interpreter, environment={"PYTHONPATH": str(folder)})


def main(processors: list[str]) -> None:
    """Makes those of some processors, or of all."""
    DIST.mkdir(exist_ok=True)
    if left_out := uncommitted():
        print(f"not in the wheels, since it is not committed: {', '.join(line[3:] for line in left_out)}")
    for processor in processors or PROCESSORS:
        sources = export(BUILD / processor / "libkestrel")
        made = build(processor, sources, BUILD / processor / "wheel")
        for old in DIST.glob(f"libkestrel-*_{processor}.whl"):
            old.unlink()
        wheel = DIST / made.name
        shutil.copyfile(made, wheel)
        print(try_out(wheel, processor), end="")
        print(f"{wheel.relative_to(ROOT)}: {wheel.stat().st_size} bytes")


if __name__ == "__main__":
    try:
        main(sys.argv[1:])
    except ReleaseError as error:
        sys.exit(str(error))
