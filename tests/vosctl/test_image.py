# SPDX-License-Identifier: MIT
"""vosctl image."""
import os
import pathlib
import shutil

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
        assert reason in vosctl("image", "install", path, "--yes").failed()
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
    assert "--yes" in vosctl("image", "install", path).failed()
    status, shown = on_terminal(binary, "image", "install", path, answer="n")
    assert status == 1 and "checking /tmp/image, 22 bytes ..." in shown and "writing" not in shown
    assert APPLICATION.read_bytes() == first
    status, shown = on_terminal(binary, "image", "install", path, answer="y")
    assert status == 0 and "writing the image ..." in shown and APPLICATION.read_bytes() == path.read_bytes()


def test_a_boot_loader_goes_to_its_device(vosctl, tmp_path):
    for directory in ("app", "flash", "dev"):
        (tmp_path / directory).mkdir()
    (tmp_path / "app/hostImage.bin").write_bytes(image(2, b"first"))
    path = write("/tmp/image", image(1, b"loader"))
    assert "--verbose" in vosctl("--root", tmp_path, "image", "install", path, "--yes").failed()
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
    vosctl("--root", tmp_path, "image", "install", path, "--yes").ok()
    assert (tmp_path / "flash/hostImage.bin.last").read_bytes() == first
    assert (tmp_path / "flash/hostImage.bin.last.ver").read_bytes() == b"1\0"
    assert (tmp_path / "app/hostImage.bin").read_bytes() == path.read_bytes() and not BACKUP.exists()
