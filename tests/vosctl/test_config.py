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


def test_a_store_that_is_no_file_is_not_waited_for(vosctl, tmp_path):
    os.mkfifo(SAVED)
    for command in (("show",), ("save", write("/tmp/new", b"new"), "--yes"), ("diff", "nobody")):
        assert "/flash/zebcfg is no regular file" in vosctl("config", *command).failed()
    (tmp_path / "flash/zebcfg").mkdir(parents=True)
    assert "zebcfg is a directory" in vosctl("--root", tmp_path, "config", "show").failed()


def test_only_a_regular_file_is_deleted(vosctl):
    SAVED.mkdir()
    assert "/flash/zebcfg is a directory" in vosctl("config", "delete", "--yes").failed()
    SAVED.rmdir()  # it is still there
    os.mkfifo(SAVED)
    assert "/flash/zebcfg is no regular file" in vosctl("config", "delete", "--yes").failed()
    SAVED.unlink()


def test_an_empty_pipe_does_not_empty_what_is_saved(vosctl):
    SAVED.write_bytes(b"before")
    assert "the configuration of standard input is empty, and nothing was changed" in vosctl(
        "config", "save", "-", "--yes", stdin="").failed()
    assert "is empty" in vosctl("config", "save", write("/tmp/new", b""), "--yes").failed()
    assert SAVED.read_bytes() == b"before"
    vosctl("config", "save", "-", "--yes", "--empty", stdin="").ok()
    assert SAVED.read_bytes() == b""


def test_a_running_configuration_is_saved_and_compared(vosctl, example):
    example("oltd")
    running = vosctl("config-of", "oltd").ok().stdout
    assert vosctl("config", "save", "--from", "oltd").ok()
    assert SAVED.read_text() == running
    assert vosctl("--json", "config", "diff", "oltd").ok().json == {
        "name": "oltd", "path": "/flash/zebcfg", "same": True, "lines": []}
    first, second = running.splitlines()[:2]
    SAVED.write_text(f"before\n{running}".replace(f"{second}\n", "changed\x1b\n"))
    told = vosctl("config", "diff", "oltd")
    assert told.status == 1 and told.stdout.splitlines() == [
        "--- /flash/zebcfg (saved)", "+++ oltd (running)", "@@ saved line 1, running line 1 @@", "-before",
        "@@ saved line 3, running line 2 @@", "-changed\\x1B", f"+{second}"], first
    told = vosctl("--json", "config", "diff", "oltd")
    assert told.status == 1 and told.json["same"] is False and told.json["lines"][0] == {
        "where": "saved", "savedLine": 1, "runningLine": 1, "text": "before"}


def test_nothing_is_saved_from_a_process_without_a_running_configuration(vosctl):
    SAVED.write_bytes(b"before")
    assert vosctl("config", "save", "--from", "nobody", "--yes").failed()
    assert SAVED.read_bytes() == b"before"
    assert vosctl("config", "save", "--from", "").failed(2) and vosctl("config", "save").failed(2)
    assert vosctl("config", "save", "/tmp/new", "--from", "oltd").failed(2)


def test_a_file_that_has_no_room_is_refused_before_it_is_read(vosctl):
    with open("/tmp/huge", "wb") as huge:
        huge.truncate(1 << 50)
    SAVED.write_bytes(b"before")
    assert "bytes, and at most" in vosctl("config", "save", "/tmp/huge", "--yes").failed()
    assert SAVED.read_bytes() == b"before"


def test_an_empty_root_is_a_mistake_and_not_this_machine(vosctl):
    SAVED.write_bytes(b"before")
    assert "DIR is empty" in vosctl("--root", "", "config", "delete", "--yes").failed(2)
    assert vosctl("--root=", "config", "delete", "--yes").failed(2)
    assert SAVED.read_bytes() == b"before"


def test_a_tree_elsewhere_leaves_this_machine_alone(vosctl, tmp_path):
    (tmp_path / "flash").mkdir()
    SAVED.write_bytes(b"here")
    CORE.write_bytes(b"here")
    vosctl("--root", tmp_path, "config", "save", write("/tmp/new", b"there")).ok()
    assert (tmp_path / "flash/zebcfg").read_bytes() == b"there"
    vosctl("--root", tmp_path, "config", "delete", "--yes").ok()
    assert SAVED.read_bytes() == CORE.read_bytes() == b"here" and not (tmp_path / "flash/zebcfg").exists()
