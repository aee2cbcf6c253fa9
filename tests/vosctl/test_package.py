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


def test_what_is_made_is_the_documented_format(made):
    oem = struct.pack(">3I", MAGIC, 1, 2) + b"SN"
    assert made.read_bytes() == package(
        entry(1, b"/app/oem\0", mode=0o755), entry(0, b"/app/oem/a\0", b"hi", mode=0o640), entry(2, b"", oem))


def test_list(vosctl, made):
    assert vosctl("--json", "package", "list", made).ok().json == {"entries": [
        {"operation": "add", "kind": "directory", "mode": "0755", "bytes": 0, "permitted": True, "path": "/app/oem"},
        {"operation": "add", "kind": "file", "mode": "0640", "bytes": 2, "permitted": True, "path": "/app/oem/a"},
        {"operation": "add", "kind": "oem", "mode": "0644", "bytes": 14, "permitted": True, "path": ""}]}


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


@pytest.mark.parametrize("entries, reason", [
    ([entry(7, b"")], "of a kind that the device does not know"),
    ([entry(0, b"/etc/a\0", b"x")], "the device could not do it"),
])
def test_what_the_device_refuses_while_it_applies(vosctl, entries, reason):
    install_first()
    line = vosctl("package", "apply", write("/tmp/package", package(*entries)), "--yes").failed()
    assert "was not applied to its end" in line and reason in line
    assert not pathlib.Path("/etc/a").exists()


@pytest.mark.parametrize("word, reason", [
    ("dir:/etc", "the device refuses the path"), ("nothing", "cannot be understood"), ("link:/app/oem", "cannot be"),
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
