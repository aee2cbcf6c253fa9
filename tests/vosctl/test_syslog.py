# SPDX-License-Identifier: MIT
"""vosctl syslog."""
import os
import pathlib

from stores import on_terminal, write

SAVED = pathlib.Path("/flash/syslog")


def test_save_and_show(vosctl):
    assert vosctl("--json", "syslog", "save", write("/tmp/log", b"line\n")).ok().json == {
        "path": "/flash/syslog", "bytes": 5}
    assert SAVED.read_bytes() == b"line\n"
    assert vosctl("syslog", "show").ok().stdout == "line\n"
    assert vosctl("--json", "syslog", "show").ok().json["text"] == "line\n"


def test_an_empty_log(vosctl):
    vosctl("syslog", "save", write("/tmp/log", b"")).ok()
    assert vosctl("syslog", "show").ok().stdout == ""


def test_saving_asks_before_it_overwrites(vosctl, binary):
    SAVED.write_bytes(b"old")
    source = write("/tmp/log", b"new")
    assert "--yes" in vosctl("syslog", "save", source).failed()
    assert on_terminal(binary, "syslog", "save", source, answer="n")[0] == 1 and SAVED.read_bytes() == b"old"
    vosctl("syslog", "save", source, "--yes").ok()
    assert SAVED.read_bytes() == b"new"


def test_failures(vosctl, tmp_path):
    assert "there is no saved syslog" in vosctl("syslog", "show").failed()
    assert "cannot be opened" in vosctl("syslog", "save", "/tmp/none").failed()
    (tmp_path / "flash").mkdir()
    os.mkfifo(tmp_path / "flash" / "syslog")
    for command in (("show",), ("save", write("/tmp/log", b"new"), "--yes")):
        assert "syslog is no regular file" in vosctl("--root", tmp_path, "syslog", *command).failed()
