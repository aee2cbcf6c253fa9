# SPDX-License-Identifier: MIT
"""vosctl package."""
import os
import pathlib
import struct

import pytest
from stores import MAGIC, image, install_first, on_terminal, write

TARGET = pathlib.Path("/app/oem/a")


def entry(kind, name, data=b"", operation=0, mode=0o644, magic=MAGIC):
    return struct.pack(">6I8x", magic, operation, kind, len(name), len(data), mode) + name + data


def package(*entries, count=None, less=0, magic=MAGIC):
    body = b"".join(entries)
    return image(3, struct.pack(">3I4x", magic, len(body) - less, len(entries) if count is None else count) + body)


@pytest.fixture
def made(vosctl):
    install_first()
    vosctl("partition", "init", "all").ok()
    local = write("/tmp/local", b"hi")
    os.chmod(local, 0o640)
    vosctl("package", "make", "/tmp/package", "dir:/app/oem", f"file:/app/oem/a={local}", "oem:1=SN").ok()
    return pathlib.Path("/tmp/package")


def test_a_made_package_has_the_documented_format(made):
    oem = struct.pack(">3I", MAGIC, 1, 2) + b"SN"
    assert made.read_bytes() == package(
        entry(1, b"/app/oem\0", mode=0o755), entry(0, b"/app/oem/a\0", b"hi", mode=0o640), entry(2, b"", oem))


def test_list(vosctl, made):
    assert vosctl("--json", "package", "list", made).ok().json == {"entries": [
        {"operation": "add", "kind": "directory", "mode": "0755", "bytes": 0, "permitted": True, "path": "/app/oem",
         "climbs": False},
        {"operation": "add", "kind": "file", "mode": "0640", "bytes": 2, "permitted": True, "path": "/app/oem/a",
         "climbs": False},
        {"operation": "add", "kind": "oem", "mode": "0644", "bytes": 14, "permitted": True, "path": "", "climbs": False}]}


def test_apply(vosctl, made):
    vosctl("package", "apply", made, "--yes").ok()
    assert TARGET.read_bytes() == b"hi" and TARGET.stat().st_mode & 0o777 == 0o640
    assert vosctl("item", "get", "oem-number").ok().stdout == "1\n"
    assert pathlib.Path("/app/factory").read_bytes()[128 + 48 + 144:][:3] == b"SN\0"
    vosctl("package", "make", made, "delete-file:/app/oem/a", "delete-dir:/app/oem").ok()
    vosctl("image", "install", made, "--yes").ok()
    assert not TARGET.parent.exists()


def test_apply_asks(vosctl, binary, made):
    assert "--yes" in vosctl("package", "apply", made).failed()
    assert on_terminal(binary, "package", "apply", made, answer="n")[0] == 1 and not TARGET.exists()
    assert on_terminal(binary, "package", "apply", made, answer="y")[0] == 0 and TARGET.exists()


@pytest.mark.parametrize("data, reason", [
    (package(magic=1), "its magic word is missing"),
    (package(entry(1, b"/app/oem\0"), less=1), "not as long as the package's length word says"),
    (package(entry(1, b"/app/oem\0", magic=1)), "entry 1 of"),
    (package(entry(1, b"/app/oem\0"), count=2), "entry 2 of"),
    (package(entry(0, b"/app/oem/a")), "has no path"),
    (package(entry(0, b"/app/oem/a\0", b"data"))[:-1], "not as long"),
    (image(2, b"second"), "is no package but an image of type application"),
])
def test_faulty_packages(vosctl, data, reason):
    install_first()
    path = write("/tmp/package", data)
    assert reason in vosctl("package", "list", path).failed()
    line = vosctl("package", "apply", path, "--yes").failed()
    assert reason in line or "does not match its CRC-32" in line


@pytest.mark.parametrize("data, code, reason", [
    (package(magic=1), -15, "its magic word is missing"),
    (package(entry(1, b"/app/oem\0", magic=1)), -15, "entry 1 of /tmp/package does not begin with the magic word"),
    (package(entry(1, b"/app/oem\0"), less=1), -16, "not as long as the package's length word says"),
    (package(entry(0, b"/app/oem/a")), -1, "entry 1 of /tmp/package has no path"),
])
def test_the_check_looks_into_packages(vosctl, data, code, reason):
    install_first()
    told = vosctl("--json", "image", "check", write("/tmp/package", data))
    assert told.status == 1 and told.json["accepted"] is False and told.json["code"] == code
    assert reason in told.json["reason"] and told.json["nextStep"] == "make the package again"


def record(field, value, magic=MAGIC, length=None):
    return struct.pack(">3I", magic, field, len(value) if length is None else length) + value


@pytest.mark.parametrize("bad, code, reason", [
    (entry(7, b""), -3, "of a kind that the device does not know: 7"),
    (entry(0, b"/etc/evil\0", b"x"), -1, "(/etc/evil) has a path that the device refuses"),
    (entry(1, b"/app\0"), -1, "(/app) has a path that the device refuses"),
    (entry(0, b"\0"), -1, "has a path that the device refuses"),
    (entry(2, b"", record(9, b"x")), -1, "has OEM records that the device refuses"),
    (entry(2, b"", record(1, b"x" * 33)), -1, "has OEM records"),
    (entry(2, b"", record(1, b"x", magic=1)), -1, "has OEM records"),
    (entry(2, b"", record(1, b"x", length=2)), -1, "has OEM records"),
    (entry(2, b"", record(1, b"x") + b"y"), -1, "has OEM records"),
    (entry(2, b"", b""), -1, "has OEM records"),
    (entry(2, b"", record(1, b"x") * 10), -1, "has OEM records"),
])
def test_entries_that_the_device_would_refuse_are_found_before_anything_is_applied(vosctl, bad, code, reason):
    install_first()
    vosctl("partition", "init", "factory").ok()
    path = write("/tmp/package", package(entry(1, b"/app/oem\0", mode=0o755), entry(0, b"/app/oem/a\0", b"x"), bad))
    told = vosctl("--json", "image", "check", path)
    assert told.status == 1 and told.json["accepted"] is False and told.json["code"] == code, told
    assert "entry 3 of /tmp/package" in told.json["reason"] and reason in told.json["reason"]
    assert reason in vosctl("package", "apply", path, "--yes").failed()
    assert not TARGET.parent.exists()


def test_oem_records_without_a_valid_partition_are_refused_before_anything_is_applied(vosctl):
    install_first()
    path = write("/tmp/package", package(entry(1, b"/app/oem\0", mode=0o755), entry(2, b"", record(1, b"x"))))
    assert "the factory partition /app/factory, which is to hold them, is not valid; nothing was changed" in vosctl(
        "package", "apply", path, "--yes").failed()
    assert not TARGET.parent.exists()


def test_an_entry_that_fails_is_named_and_those_before_it_are_counted(vosctl):
    install_first()
    path = write("/tmp/package", package(
        entry(1, b"/app/oem\0", mode=0o755), entry(0, b"/app/oem/a\0", b"x"), entry(0, b"/app/oem/none/b\0", b"y")))
    line = vosctl("package", "apply", path, "--yes").failed()
    assert ("was not applied to its end: entry 3 of /tmp/package (/app/oem/none/b): No such file or directory; "
            "2 of 3 entries were applied") in line
    assert TARGET.read_bytes() == b"x"


def test_a_directory_that_cannot_be_made_is_reported(vosctl):
    install_first()
    TARGET.parent.write_bytes(b"a file")
    line = vosctl("package", "apply", write("/tmp/package", package(entry(1, b"/app/oem\0", mode=0o755))), "--yes").failed()
    assert "0 of 1 entries were applied" in line and TARGET.parent.read_bytes() == b"a file"


CLIMBING = package(entry(1, b"/app/oem\0", mode=0o755), entry(0, b"/app/oem/../evil\0", b"x"))
EVIL = pathlib.Path("/app/evil")


def test_a_path_that_climbs_is_marked_and_asked_about_separately(vosctl, binary):
    install_first()
    path = write("/tmp/package", CLIMBING)
    assert 'yes, but ".."' in vosctl("package", "list", path).ok().stdout
    assert [each["climbs"] for each in vosctl("--json", "package", "list", path).ok().json["entries"]] == [False, True]
    assert 'has a path with "..", which can lead to any file; nothing was changed' in vosctl(
        "package", "apply", path, "--yes").failed()
    assert on_terminal(binary, "package", "apply", path, answer="y\nn")[0] == 1
    assert not EVIL.exists() and not TARGET.parent.exists()
    vosctl("package", "apply", path, "--yes", "--outside").ok()
    assert EVIL.read_bytes() == b"x"


@pytest.mark.parametrize("word, reason", [
    ("dir:/etc", "the device refuses the path"), ("dir:/app/oem/../x", 'has a part ".."'), ("nothing", "cannot be understood"), ("link:/app/oem", "cannot be"),
    ("oem:9=x", "from 0 to 8"), ("oem:1=" + "x" * 33, "at most 32"), ("file:/app/oem/a=/tmp/none", "cannot be opened"),
    ("file:/app/oem/a", "cannot be understood")])
def test_entries_that_cannot_be_made(vosctl, word, reason):
    install_first()
    assert reason in vosctl("package", "make", "/tmp/refused", word).failed()
    assert not pathlib.Path("/tmp/refused").exists()


def test_a_tree_elsewhere_takes_oem_records_only(vosctl, made, tmp_path):
    for directory in ("app", "flash"):
        (tmp_path / directory).mkdir()
    (tmp_path / "app/hostImage.bin").write_bytes(image(2, b"first"))
    vosctl("--root", tmp_path, "partition", "init", "factory").ok()
    assert "would change this machine" in vosctl("--root", tmp_path, "package", "apply", made, "--yes").failed()
    assert not TARGET.exists()
    vosctl("package", "make", made, "oem:1=SN").ok()
    vosctl("--root", tmp_path, "package", "apply", made, "--yes").ok()
    assert vosctl("--root", tmp_path, "item", "get", "oem-number").ok().stdout == "1\n"
