# SPDX-License-Identifier: MIT
"""vosctl image."""
import os
import pathlib
import shutil
import subprocess
import zlib

import pytest
from stores import APPLICATION, flipped, image, install_first, on_terminal, write

VERSION = pathlib.Path("/app/hostImage.bin.ver")
BACKUP = pathlib.Path("/flash/hostImage.bin.last")


def test_info(vosctl):
    path = write("/tmp/image", image(2, b"hello"))
    assert vosctl("--json", "image", "info", path).ok().json == {
        "file": "/tmp/image", "type": "application", "bytes": 21, "payloadBytes": 5, "compatA": 1, "compatB": 2,
        "crc32": 0x3610A686, "crcMatches": True}
    write(path, image(1, b"\0\0\0\2 a boot loader"))
    assert vosctl("--json", "image", "info", path).ok().json["type"] == "boot"


@pytest.mark.parametrize("data, reason", [
    (b"", "it has 0 bytes"), (b"x" * 15, "it has 15 bytes"), (b"x" * 40, "neither end of it is an image header")])
def test_what_is_no_image(vosctl, data, reason):
    for command in ("info", "check", "install"):
        assert reason in vosctl("image", command, write("/tmp/image", data)).failed()


@pytest.mark.parametrize("kind", [1, 2])
def test_a_fitting_image(vosctl, kind):
    install_first()
    told = vosctl("--json", "image", "check", write("/tmp/image", image(kind, b"second"))).ok().json
    assert told["accepted"] is True and told["code"] == 0 and told["reason"] is None


@pytest.mark.parametrize("data, arguments, code, reason", [
    (flipped(image(2, b"second")), (), -14, "does not match its CRC-32"),
    (image(2, b"second")[:-1], (), -14, "does not match its CRC-32"),
    (image(2, b"second", (1, 3)), (), -13, "its compatibility words are 0x00000001 and 0x00000003, those of the "
                                           "installed application 0x00000001 and 0x00000002"),
    (image(2, b"second"), ("--type", "package"), -12, "it is an image of type application, not package"),
])
def test_refusals_in_words(vosctl, data, arguments, code, reason):
    install_first()
    path = write("/tmp/image", data)
    told = vosctl("--json", "image", "check", path, *arguments)
    assert told.status == 1 and told.json["code"] == code and reason in told.json["reason"]
    assert reason in vosctl("image", "check", path, *arguments).stdout
    if not arguments:
        before = APPLICATION.read_bytes()
        assert reason in vosctl("image", "install", path, "--yes", "--version", "2").failed()
        assert APPLICATION.read_bytes() == before


@pytest.mark.parametrize("code, reason", [
    (-5, "there is not enough memory"),
    (-15, "does not begin with the magic word"),
    (-16, "length word does not match its length"),
])
def test_refusals_of_the_library_in_words(vosctl, code, reason):
    install_first()
    # The loader takes a blank in LD_PRELOAD as the end of a name, and the directory of the programs may have blanks.
    shutil.copy(os.path.join(os.environ["PROGRAMS"], "refusing.so"), "/tmp/refusing.so")
    refused = {"LD_PRELOAD": "/tmp/refusing.so", "REFUSAL": str(code),
               "ASAN_OPTIONS": "verify_asan_link_order=0"}
    path = write("/tmp/image", image(2, b"second"))
    told = vosctl("--json", "image", "check", path, env=refused)
    assert told.status == 1 and told.json["code"] == code and reason in told.json["reason"] and told.json["nextStep"]
    assert reason in vosctl("image", "install", path, "--yes", env=refused).failed()


def test_a_device_without_an_application(vosctl):
    path = write("/tmp/image", image(2, b"second"))
    assert "there is no application image at /app/hostImage.bin" in vosctl("image", "install", path, "--yes").failed()
    told = vosctl("--json", "image", "check", path)
    assert told.status == 1 and told.json["code"] == -1


@pytest.mark.parametrize("kind, number", [("boot", 1), ("application", 2)])
def test_a_made_image_is_accepted(vosctl, kind, number):
    install_first()
    payload = write("/tmp/payload", b"second")
    vosctl("image", "make", payload, "/tmp/image", "--type", kind).ok()
    assert pathlib.Path("/tmp/image").read_bytes() == image(number, b"second")
    vosctl("image", "check", "/tmp/image").ok()
    vosctl("image", "make", payload, "/tmp/image", "--type", kind, "--compat", "7", "0x8").ok()
    assert pathlib.Path("/tmp/image").read_bytes() == image(number, b"second", (7, 8))


def test_making_fails(vosctl):
    payload = write("/tmp/payload", b"second")
    make = ("image", "make", payload, "/tmp/image", "--type", "boot")
    assert "no application image" in vosctl(*make).failed()
    assert vosctl(*make, "--compat", "1").failed(2)
    assert vosctl(*make, "--compat", "1", "x").failed(2)
    assert "cannot be created" in vosctl(
        "image", "make", payload, "/tmp/none/image", "--type", "boot", "--compat", "1", "2").failed()
    assert "/tmp is a directory" in vosctl("image", "make", payload, "/tmp", "--type", "boot", "--compat", "1", "2").failed()


def test_installing_keeps_the_old_and_sets_the_version(vosctl):
    install_first()
    first = APPLICATION.read_bytes()
    VERSION.write_bytes(b"1.0\0")
    path = write("/tmp/image", image(2, b"second"))
    assert vosctl("--json", "image", "install", path, "--yes", "--version", "2.0").ok().json == {
        "file": "/tmp/image", "type": "application", "bytes": 22, "installed": True}
    assert APPLICATION.read_bytes() == path.read_bytes() and VERSION.read_bytes() == b"2.0\0"
    assert BACKUP.read_bytes() == first and pathlib.Path("/flash/hostImage.bin.last.ver").read_bytes() == b"1.0\0"


def test_installing_asks_and_shows_progress_on_a_terminal_only(vosctl, binary):
    install_first()
    first = APPLICATION.read_bytes()
    path = write("/tmp/image", image(2, b"second"))
    assert "--yes" in vosctl("image", "install", path, "--version", "2").failed()
    status, shown = on_terminal(binary, "image", "install", path, "--version", "2", answer="n")
    assert status == 1 and "checking /tmp/image, 22 bytes ..." in shown and "writing" not in shown
    assert APPLICATION.read_bytes() == first and "which has no version and is not kept" in shown
    status, shown = on_terminal(binary, "image", "install", path, "--version", "2", answer="y")
    assert status == 0 and "writing the image ..." in shown and APPLICATION.read_bytes() == path.read_bytes()


def test_a_boot_loader_goes_to_its_device(vosctl, tmp_path):
    for directory in ("app", "flash", "dev"):
        (tmp_path / directory).mkdir()
    (tmp_path / "app/hostImage.bin").write_bytes(image(2, b"first"))
    path = write("/tmp/image", image(1, b"loader"))
    assert "/dev/mtdblock0 cannot be written: No such file or directory, and nothing was changed; " in vosctl(
        "--root", tmp_path, "image", "install", path, "--yes").failed()
    (tmp_path / "dev/mtdblock0").write_bytes(b"\xff" * 64)
    vosctl("--root", tmp_path, "image", "install", path, "--yes").ok()
    assert (tmp_path / "dev/mtdblock0").read_bytes() == path.read_bytes() + b"\xff" * 42
    assert "has no version" in vosctl("--root", tmp_path, "image", "install", path, "--version", "1").failed()


def test_a_tree_elsewhere_has_a_backup_of_its_own(vosctl, tmp_path):
    for directory in ("app", "flash"):
        (tmp_path / directory).mkdir()
    first = image(2, b"first")
    (tmp_path / "app/hostImage.bin").write_bytes(first)
    (tmp_path / "app/hostImage.bin.ver").write_bytes(b"1\0")
    path = write("/tmp/image", image(2, b"second"))
    vosctl("--root", tmp_path, "image", "install", path, "--yes", "--version", "2").ok()
    assert (tmp_path / "flash/hostImage.bin.last").read_bytes() == first
    assert (tmp_path / "flash/hostImage.bin.last.ver").read_bytes() == b"1\0"
    assert (tmp_path / "app/hostImage.bin").read_bytes() == path.read_bytes() and not BACKUP.exists()


def test_a_boot_loader_that_is_longer_than_its_device_changes_nothing(vosctl, tmp_path):
    for directory in ("app", "flash", "dev"):
        (tmp_path / directory).mkdir()
    (tmp_path / "app/hostImage.bin").write_bytes(image(2, b"first"))
    device = tmp_path / "dev/mtdblock0"
    device.write_bytes(b"\xff" * 64)
    path = write("/tmp/image", image(1, b"l" * 49))
    assert "/tmp/image has 65 bytes, and " in vosctl("--root", tmp_path, "image", "install", path, "--yes").failed()
    assert device.read_bytes() == b"\xff" * 64
    vosctl("--root", tmp_path, "image", "install", write(path, image(1, b"l" * 48)), "--yes").ok()
    assert device.read_bytes() == path.read_bytes()
    device.unlink()
    os.mkfifo(device)
    assert "is no block device" in vosctl("--root", tmp_path, "image", "install", path, "--yes").failed()


def test_an_application_needs_a_version(vosctl):
    install_first()
    VERSION.write_bytes(b"1.0\0")
    path = write("/tmp/image", image(2, b"second"))
    assert "needs a version; name it with --version TEXT" in vosctl("image", "install", path, "--yes").failed()
    for version in ("", "x" * 512, "2.0\n", "a\x1b"):
        assert "the version" in vosctl("image", "install", path, "--yes", "--version", version).failed(2)
    assert VERSION.read_bytes() == b"1.0\0" and APPLICATION.read_bytes() == image(2, b"first")
    vosctl("image", "install", path, "--yes", "--version", "x" * 511).ok()
    assert VERSION.read_bytes() == b"x" * 511 + b"\0"


def test_a_broken_application_does_not_take_the_place_of_a_whole_backup(vosctl):
    APPLICATION.write_bytes(image(2, b"first")[:-1])
    VERSION.write_bytes(b"1.1\0")
    BACKUP.write_bytes(image(2, b"backup"))
    vosctl("image", "install", write("/tmp/image", image(2, b"second")), "--yes", "--version", "2.0").ok()
    assert BACKUP.read_bytes() == image(2, b"backup")


def test_status(vosctl):
    told = vosctl("--json", "image", "status")
    assert told.status == 1 and told.json["application"]["state"] == "missing" and told.json["cutOff"] is False
    install_first()
    VERSION.write_bytes(b"1.0\0")
    vosctl("image", "install", write("/tmp/image", image(2, b"second")), "--yes", "--version", "2.0").ok()
    told = vosctl("--json", "image", "status").ok().json
    assert told["application"]["version"] == "2.0" and told["application"]["state"] == "whole"
    assert told["application"]["compatA"] == 1 and told["application"]["crc32"] == zlib.crc32(b"second")
    assert told["backup"]["version"] == "1.0" and told["backup"]["path"] == str(BACKUP) and told["remedy"] is None
    assert "2.0" in vosctl("image", "status").ok().stdout
    APPLICATION.write_bytes(b"")
    VERSION.unlink()
    told = vosctl("--json", "image", "status")
    assert told.status == 1 and told.json["cutOff"] is True and "image restore" in told.json["remedy"]


@pytest.mark.parametrize("now", [None, b"", image(2, b"second")[:-3], image(2, b"second")])
def test_restore_puts_the_backup_back(vosctl, now):
    BACKUP.write_bytes(image(2, b"backup"))
    pathlib.Path(str(BACKUP) + ".ver").write_bytes(b"1.0\0")
    if now is not None:
        APPLICATION.write_bytes(now)
    assert "--yes" in vosctl("image", "restore").failed()
    assert vosctl("--json", "image", "restore", "--yes").ok().json == {
        "path": "/app/hostImage.bin", "version": "1.0", "bytes": 22}
    assert APPLICATION.read_bytes() == image(2, b"backup") and VERSION.read_bytes() == b"1.0\0"
    assert BACKUP.read_bytes() == image(2, b"backup")


@pytest.mark.parametrize("backup, reason", [(None, "there is no backup"), (image(2, b"backup")[:-1], "is broken")])
def test_restore_without_a_whole_backup_changes_nothing(vosctl, backup, reason):
    install_first()
    if backup is not None:
        BACKUP.write_bytes(backup)
    assert reason in vosctl("image", "restore", "--yes").failed()
    assert APPLICATION.read_bytes() == image(2, b"first")


def test_a_made_image_goes_to_standard_output_and_devices(vosctl, binary):
    payload = write("/tmp/payload", b"second")
    make = (binary, "image", "make", str(payload), "-", "--type", "boot", "--compat", "1", "2")
    assert subprocess.run(make, capture_output=True, check=True).stdout == image(1, b"second")
    made = subprocess.run([*make[:4], "/dev/stdout", *make[5:]], capture_output=True, check=True)
    assert made.stdout == image(1, b"second")
    assert not os.path.exists("-")
    assert "standard output holds the result" in vosctl("--json", *make[1:]).failed()
    vosctl("image", "make", payload, "/dev/null", "--type", "boot", "--compat", "1", "2").ok()
    assert not os.path.isfile("/dev/null")


def test_a_link_and_permissions_of_an_output_file_stay(vosctl):
    target = write("/tmp/target", b"earlier")
    os.chmod(target, 0o600)
    pathlib.Path("/tmp/link").unlink(missing_ok=True)
    os.symlink(target, "/tmp/link")
    vosctl("image", "make", write("/tmp/payload", b"second"), "/tmp/link", "--type", "boot", "--compat", "1", "2").ok()
    assert os.path.islink("/tmp/link") and target.read_bytes() == image(1, b"second")
    assert target.stat().st_mode & 0o777 == 0o600


def test_an_application_that_is_no_file_is_not_waited_for(vosctl):
    os.mkfifo(APPLICATION)
    path = write("/tmp/image", image(2, b"second"))
    for command in (("check", path), ("install", path, "--yes", "--version", "2"), ("status",), ("restore", "--yes")):
        assert "/app/hostImage.bin is no regular file" in vosctl("image", *command).failed()


def test_a_name_with_control_characters_is_shown_harmless(vosctl):
    install_first()
    told = vosctl("image", "check", write("/tmp/s\x1b[31mx", image(2, b"second"))).ok().stdout
    assert told == "/tmp/s\\x1B[31mx fits this device\n"
