"""State at the prompt: exported, taken elsewhere, checked."""

from __future__ import annotations

import errno
import os
import sqlite3
import subprocess
from pathlib import Path

import pytest

from libkestrel import AccessVlan, Host
from libkestrel.cli import images
from support.prompt import COMMAND, InProcess, Process, on_terminal


@pytest.fixture
def image(here: InProcess, tmp_path: Path) -> Path:
    path = tmp_path / "office.img"
    assert here("state", "export", str(path)).out == f"{path}: {path.stat().st_size} bytes\n"
    return path


def test_a_state_is_taken_elsewhere_and_is_the_same(office: Process, tmp_path: Path) -> None:
    image = tmp_path / "office.img"
    assert office("state", "export", str(image)).code == 0
    elsewhere = Process(tmp_path / "elsewhere" / "host.kestrel")
    assert elsewhere("lab", "reset").code == 0
    refused = elsewhere("state", "import", str(image))
    assert (refused.code, refused.out) == (3, "")
    assert "the image names NICs that this host lacks: vmnic0, vmnic1; --plug puts them in" in refused.err
    looked = elsewhere("state", "import", str(image), "--plug", "--check")
    assert looked.code == 6
    assert elsewhere("switch", "list", "--json").data == []
    taken = elsewhere("state", "import", str(image), "--plug")
    assert (taken.code, taken.err) == (0, "")
    assert taken.out.splitlines()[0] == "host: plug NIC vmnic0: absent -> present"
    assert elsewhere("port", "list", "dvs-office").out == office("port", "list", "dvs-office").out
    assert elsewhere("state", "import", str(image), "--plug").out == "nothing to change\n"
    again = tmp_path / "again.img"
    assert elsewhere("state", "export", str(again)).code == 0
    assert again.read_bytes() == image.read_bytes()


def test_a_host_is_made_for_a_state_with_its_nics(office: Process, tmp_path: Path) -> None:
    image = tmp_path / "office.img"
    assert office("state", "export", str(image)).code == 0
    elsewhere = Process(tmp_path / "elsewhere" / "host.kestrel")
    looked = elsewhere("state", "import", str(image), "--check")
    assert looked.code == 3
    assert not elsewhere.path.exists()
    assert elsewhere("state", "import", str(image)).code == 0
    assert [row["nic"] for row in elsewhere("lab", "nics", "--json").data] == ["vmnic0", "vmnic1"]
    assert elsewhere("topology").out == office("topology").out


def test_a_state_goes_through_pipes(office: Process, tmp_path: Path) -> None:
    elsewhere = tmp_path / "elsewhere.kestrel"
    line = f"{' '.join(COMMAND)} state export - | {' '.join(COMMAND)} --host {elsewhere} state import - --plug"
    done = subprocess.run(["bash", "-o", "pipefail", "-c", line], env=office.environment(), check=False)
    assert done.returncode == 0
    assert Process(elsewhere)("switch", "list").out == office("switch", "list").out


def test_an_import_can_keep_to_the_configuration(here: InProcess, image: Path) -> None:
    assert here("switch", "set", "dvs-office", "--mtu", "9000").code == 0
    assert here("state", "import", str(image), "--configuration").code == 0
    assert here("switch", "show", "dvs-office", "--json").data["mtu"] == 1500
    assert "router.eth0" in here("port", "list", "dvs-office").out


def test_the_saved_state_is_another_image(here: InProcess, image: Path, tmp_path: Path) -> None:
    saved = tmp_path / "saved.img"
    Host().switch("dvs-office").port("100").set_vlan_for(AccessVlan(77), runtime_only=True)
    assert here("state", "export", str(image)).code == 0
    assert here("state", "export", str(saved), "--saved", "--json").data == {
        "file": str(saved),
        "length": saved.stat().st_size,
        "saved": True,
    }
    assert saved.read_bytes() != image.read_bytes()


def test_an_export_replaces_a_file_whole_and_keeps_its_mode(here: InProcess, image: Path) -> None:
    image.write_bytes(b"old")
    image.chmod(0o640)
    assert here("state", "export", str(image)).code == 0
    assert image.read_bytes().startswith(images.MAGIC)
    assert image.stat().st_mode & 0o777 == 0o640
    assert not list(image.parent.glob(".office*"))


def test_an_export_goes_into_what_is_no_file(here: InProcess) -> None:
    null = Path("/dev/null")
    assert here("state", "export", str(null)).code == 0
    assert null.is_char_device()
    full = here("state", "export", "/dev/full")
    assert (full.code, full.err) == (1, "kestrel: No space left on device\n")


def test_an_export_that_fails_leaves_the_old_file_alone(
    here: InProcess, image: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    def refusing(_file: int) -> None:
        raise OSError(errno.ENOSPC, os.strerror(errno.ENOSPC))

    image.write_bytes(b"old")
    monkeypatch.setattr(os, "fsync", refusing)
    answer = here("state", "export", str(image))
    assert (answer.code, answer.err) == (1, "kestrel: No space left on device\n")
    assert image.read_bytes() == b"old"
    assert not list(image.parent.glob(".office*"))


def test_an_image_is_not_written_to_a_terminal(office: Process) -> None:
    code, seen = on_terminal(office, "state", "export", "-")
    assert code == 1
    assert seen == "kestrel: an image is no text for a terminal; give a file, or read it through a pipe\n"


# ---- Whole hosts ----


def test_the_saved_configuration_can_be_loaded_and_everything_reset(here: InProcess) -> None:
    assert here("state", "load").code == 0
    assert here("state", "sanitize").code == 0
    assert here("state", "reset", "--yes").code == 0
    assert here("vlan", "show", "dvs-office", "100", "--json").data["is_default"] is True


def test_resetting_is_asked_about_on_a_terminal(office: Process) -> None:
    code, seen = on_terminal(office, "state", "reset", typed="n\n")
    assert code == 1
    assert "kestrel: not confirmed; nothing has changed" in seen
    assert office("vlan", "show", "dvs-office", "100", "--json").data["vlan"] == 10
    code, seen = on_terminal(office, "state", "reset", typed="\x04")  # the end of what is typed
    assert code == 130
    code, seen = on_terminal(office, "state", "reset", typed="y\n")
    assert code == 0
    assert office("vlan", "show", "dvs-office", "100", "--json").data["vlan"] == 0


def test_a_restart_and_a_new_host(office: Process) -> None:
    assert office("lab", "restart").out == "restarted on the saved configuration\n"
    assert office("mac", "list", "--kind", "learned", "--json").data == []
    assert office("lab", "reset", "--sample").out == "the sample host\n"
    assert [row["name"] for row in office("switch", "list", "--json").data] == ["dvs-prod", "dvs-storage"]


# ---- Checking ----


def problems(kestrel: InProcess | Process, path: Path) -> list[str]:
    answer = kestrel("state", "verify", str(path), "--json")
    assert answer.code == 1
    told = kestrel("state", "verify", str(path))
    assert (told.code, told.err) == (1, "")
    assert told.out.splitlines() == [f"{path}: {problem}" for problem in answer.data["problems"]]
    assert answer.data["sound"] is False
    found: list[str] = answer.data["problems"]
    return found


def test_sound_files_are_told_what_they_are(office: Process, tmp_path: Path) -> None:
    image = tmp_path / "office.img"
    office("state", "export", str(image))
    before = office.path.read_bytes()
    assert office("state", "verify").out == f"{office.path}: a sound host file: 1 switch, 22 ports\n"
    assert office.path.read_bytes() == before
    assert office("state", "verify", str(image)).out == f"{image}: a sound state image: 1 switch, 22 ports\n"
    scenario = Path(__file__).resolve().parents[2] / "examples" / "scenarios" / "small-office.toml"
    assert office("state", "verify", str(scenario)).out.endswith("a sound scenario: 2 NICs, 1 switch, 20 ports\n")


def test_damage_to_an_image_is_told(office: Process, tmp_path: Path) -> None:
    path = tmp_path / "office.img"
    office("state", "export", str(path))
    sound = path.read_bytes()
    for data, problem in {
        sound[:10]: "is 10 bytes long, too short for an image, whose head alone has 24",
        sound[:100]: f"says that it has {len(sound)} bytes, and has 100: the end is missing",
        sound + b"more": f"says that it has {len(sound)} bytes, and has {len(sound) + 4}: something follows it",
        sound[:50] + b"X" + sound[51:]: "has a wrong checksum: some of its bytes have changed",
        sound.replace(b"\r\n", b"\n"): "does not begin as an image does; a transfer as text may have damaged it",
        sound[:8] + b"\2" + sound[9:]: "is of format 2; this version reads format 1",
    }.items():
        path.write_bytes(data)
        assert problem in problems(office, path)
    path.write_bytes(checked(sound[:24] + b"\x09" + sound[25:]))  # sections are of kinds 1 to 4
    assert problems(office, path)[0].startswith("is refused by the host: ")
    path.write_bytes(checked(sound[:10] + b"\x09\0" + sound[12:]))
    assert problems(office, path) == ["is of kind 9, which is none"]
    path.write_bytes(checked(sound[:28] + (2**31).to_bytes(4, "little") + sound[32:]))  # longer than all there is
    assert problems(office, path) == ["has contents that cannot be read"]


def checked(image: bytes) -> bytes:
    """An image with the checksum of what it holds."""
    return image[:20] + images.crc32c(image[:20] + image[24:]).to_bytes(4, "little") + image[24:]


def test_images_of_ports_and_empty_ports_are_told(here: InProcess, tmp_path: Path) -> None:
    port = tmp_path / "port.img"
    port.write_bytes(Host().switch("dvs-office").port("100").stored.image())
    assert here("state", "verify", str(port)).out == f"{port}: a sound state image: of kind port\n"
    assert here("port", "create", "dvs-office", "900").code == 0
    whole = tmp_path / "whole.img"
    assert here("state", "export", str(whole)).code == 0
    contents = images.read(whole.read_bytes())
    assert (contents.ports, contents.nics) == (23, ["vmnic0", "vmnic1"])


def test_damage_to_a_host_file_is_told(office: Process, tmp_path: Path) -> None:
    sound = office.path.read_bytes()
    path = tmp_path / "copy.kestrel"
    path.write_bytes(sound[: len(sound) // 2])
    assert any(problem.startswith("is damaged: ") for problem in problems(office, path))
    path.write_bytes(sound[:4096] + b"\xff" * 4096 + sound[8192:])
    assert any(problem.startswith("is damaged: ") for problem in problems(office, path))


def changed(sound: bytes, path: Path, statement: str) -> None:
    path.write_bytes(sound)
    with sqlite3.connect(path) as database:
        database.execute(statement)
    database.close()


def test_other_databases_and_later_versions_are_told(office: Process, tmp_path: Path) -> None:
    sound, path = office.path.read_bytes(), tmp_path / "copy.kestrel"
    changed(sound, path, "PRAGMA application_id = 5")
    assert problems(office, path) == ["is a database of another program"]
    changed(sound, path, "PRAGMA user_version = 9")
    assert problems(office, path) == ["was written by a later version: its tables have layout 9, not 1"]
    changed(sound, path, "UPDATE ports SET switch = 77")
    assert problems(office, path)[0].startswith("cannot be read as a host: ")


def test_what_is_nothing_of_ours_is_told(office: Process, tmp_path: Path) -> None:
    path = tmp_path / "notes.txt"
    path.write_text("hello")
    assert problems(office, path) == ["is neither a host file nor a state image nor a scenario"]
    folder = office("--host", str(tmp_path), "state", "verify")
    assert (folder.code, folder.out) == (1, f"{tmp_path}: is a folder\n")
    path = tmp_path / "wrong.toml"
    path.write_text("colour = 1")
    assert problems(office, path)[0].startswith("colour: unknown key")


def test_the_checksum_is_the_published_one() -> None:
    assert images.crc32c(b"123456789") == 0xE3069283
