# SPDX-License-Identifier: MIT
"""vosctl config."""
import os
import pathlib

from stores import on_terminal, write

SAVED = pathlib.Path("/flash/zebcfg")
CORE = pathlib.Path("/flash/core-file")


def test_save_and_show_byte_for_byte(vosctl):
    source = write("/tmp/new", b"hostname olt\n\x01 end")
    assert vosctl("--json", "config", "save", source).ok().json == {"path": "/flash/zebcfg", "bytes": 18}
    assert SAVED.read_bytes() == source.read_bytes()
    assert vosctl("config", "show").ok().stdout == "hostname olt\n\x01 end"
    assert vosctl("--json", "config", "show").ok().json == {
        "path": "/flash/zebcfg", "bytes": 18, "text": None, "hex": source.read_bytes().hex()}


def test_saving_asks_before_it_overwrites(vosctl, binary):
    SAVED.write_bytes(b"old")
    source = write("/tmp/new", b"new")
    assert "--yes" in vosctl("config", "save", source).failed()
    status, shown = on_terminal(binary, "config", "save", source, answer="n")
    assert status == 1 and "nothing was changed" in shown and SAVED.read_bytes() == b"old"
    vosctl("config", "save", "-", "--yes", stdin="piped").ok()
    assert SAVED.read_bytes() == b"piped"


def test_deleting(vosctl):
    SAVED.write_bytes(b"old")
    CORE.write_bytes(b"on")
    assert "--yes" in vosctl("config", "delete").failed()
    assert vosctl("--json", "config", "delete", "--yes").ok().json == {"path": "/flash/zebcfg", "existed": True}
    assert not SAVED.exists() and not CORE.exists()
    assert vosctl("--json", "config", "delete").ok().json["existed"] is False


def test_nothing_saved_and_nothing_to_save(vosctl):
    assert "there is no saved configuration at /flash/zebcfg" in vosctl("config", "show").failed()
    assert "cannot be opened" in vosctl("config", "save", "/tmp/none").failed()
    assert "is a directory" in vosctl("config", "save", "/tmp").failed()


def test_a_full_flash(vosctl, tmp_path):
    (tmp_path / "flash").mkdir()
    os.symlink("/dev/full", tmp_path / "flash" / "zebcfg")
    assert "could not be saved whole" in vosctl(
        "--root", tmp_path, "config", "save", write("/tmp/new", b"new"), "--yes").failed()


def test_a_tree_elsewhere_leaves_this_machine_alone(vosctl, tmp_path):
    (tmp_path / "flash").mkdir()
    SAVED.write_bytes(b"here")
    CORE.write_bytes(b"here")
    vosctl("--root", tmp_path, "config", "save", write("/tmp/new", b"there")).ok()
    assert (tmp_path / "flash/zebcfg").read_bytes() == b"there"
    vosctl("--root", tmp_path, "config", "delete", "--yes").ok()
    assert SAVED.read_bytes() == CORE.read_bytes() == b"here" and not (tmp_path / "flash/zebcfg").exists()
