# SPDX-License-Identifier: MIT
"""vosctl with a library that uses a journal, after another program was interrupted while it saved."""
import os
import pathlib
import shutil
import struct
import zlib

import pytest
from stores import APPLICATION, image, install_first, write

FACTORY = pathlib.Path("/app/factory")
SYSTEM = pathlib.Path("/flash/sysdata")
SAVED = pathlib.Path("/flash/zebcfg")
JOURNAL = pathlib.Path("/flash/journal")
VERSION = pathlib.Path("/app/hostImage.bin.ver")


@pytest.fixture
def journaled(vosctl):
    """Runs vosctl with a library that has a journal."""

    def run(*arguments, **options):
        return vosctl(*arguments, env={"LD_PRELOAD": os.path.join(os.environ["PROGRAMS"], "refusing.so"),
                                       "JOURNAL": str(JOURNAL), "ASAN_OPTIONS": "verify_asan_link_order=0"}, **options)

    JOURNAL.mkdir()
    return run


def entry_of(path, content, before=None):
    """Puts the entry of an interrupted save into the journal: of a partition when its content before is given."""
    name = os.fsencode(path) + b"\0"
    digest = 0xCBF29CE484222325
    for byte in name[:-1]:
        digest = (digest ^ byte) * 0x100000001B3 % (1 << 64)
    head = struct.pack(">7I", 0x4A524E4C, 1, before is not None, len(name), len(content), before is not None,
                       zlib.crc32(before or b""))
    return write(JOURNAL / f"{digest:016x}.save",
                 head + struct.pack(">I", zlib.crc32(head + name + content)) + name + content)


@pytest.fixture
def interrupted(vosctl, journaled):
    """A fresh system partition, and the journal's entry of a save that was to set ztp to 7 and has not begun."""
    vosctl("partition", "init", "all").ok()
    fresh = SYSTEM.read_bytes()
    vosctl("item", "set", "ztp", "7").ok()
    wanted = SYSTEM.read_bytes()
    SYSTEM.write_bytes(fresh)
    return fresh, wanted, entry_of(SYSTEM, wanted, fresh)


def test_an_earlier_save_does_not_undo_a_fresh_partition(journaled, interrupted):
    fresh, _, entry = interrupted
    journaled("partition", "init", "system", "--yes").ok()
    assert not entry.exists()
    assert "erased" in journaled("item", "get", "ztp").failed()
    assert SYSTEM.read_bytes() == fresh


def test_an_earlier_save_does_not_undo_a_copy_that_was_put_back(journaled, interrupted):
    fresh, _, entry = interrupted
    journaled("partition", "restore", write("/tmp/copy", fresh), "--yes").ok()
    assert not entry.exists()
    assert "erased" in journaled("item", "get", "ztp").failed()


def test_items_are_written_to_the_completed_partition(journaled, interrupted):
    _, _, entry = interrupted
    journaled("item", "set", "ip-address", "10.0.0.1").ok()
    assert not entry.exists()
    assert journaled("item", "get", "ztp").ok().stdout == "7\n"
    assert journaled("item", "get", "ip-address").ok().stdout == "10.0.0.1\n"


@pytest.mark.parametrize("command", [["partition", "check", "system"], ["item", "get", "ztp"], ["item", "set", "ip-address", "10.0.0.1"],
                                     ["partition", "save", "/tmp/copy", "system"], ["item", "export", "-"]])
def test_a_torn_partition_is_completed_first(journaled, interrupted, command):
    fresh, wanted, entry = interrupted
    SYSTEM.write_bytes(wanted[:500] + fresh[500:900])
    journaled(*command).ok()
    assert not entry.exists()
    assert journaled("item", "get", "ztp").ok().stdout == "7\n"


def test_a_partition_has_its_whole_size_as_soon_as_it_is_completed(journaled, interrupted):
    SYSTEM.write_bytes(b"short")
    assert journaled("--json", "partition", "check", "system").ok().json["partitions"][0]["bytes"] == 984


def test_a_torn_configuration_is_completed_before_it_is_shown(journaled):
    SAVED.write_bytes(b"host")
    entry_of(SAVED, b"hostname a\n")
    assert journaled("config", "show").ok().stdout == "hostname a\n"
    assert os.listdir(JOURNAL) == []


def test_an_earlier_save_does_not_undo_a_configuration(journaled):
    SAVED.write_bytes(b"")
    entry_of(SAVED, b"hostname a\n")
    journaled("config", "save", "-", "--yes", stdin="host").ok()
    assert journaled("config", "show").ok().stdout == "host"


def test_a_file_that_cannot_be_completed_is_not_shown(journaled):
    SAVED.write_bytes(b"host")
    entry_of(SAVED, b"hostname a\n" * 1000)
    journal = JOURNAL.rename("/flash/elsewhere")
    JOURNAL.symlink_to("journal")  # a link to itself, so that it is not known whether an entry exists
    assert "its save was interrupted" in journaled("config", "show").failed()
    JOURNAL.unlink()
    journal.rename(JOURNAL)
    assert journaled("config", "show").ok().stdout == "hostname a\n" * 1000


def test_a_tree_elsewhere_leaves_the_journal_of_this_machine_alone(journaled, tmp_path):
    JOURNAL.rmdir()
    (tmp_path / "flash").mkdir()
    (tmp_path / "app").mkdir()
    journaled("--root", tmp_path, "partition", "init", "all").ok()
    journaled("--root", tmp_path, "config", "save", "-", stdin="host").ok()
    assert not JOURNAL.exists() and not (tmp_path / "flash/journal").exists()


def with_journal(vosctl, *arguments, **options):
    return vosctl("--journal", str(JOURNAL), *arguments, **options)


def checked(vosctl, *arguments):
    """What doctor says of the journal. Other checks may find something in the sandbox."""
    told = vosctl("--json", *arguments, "doctor").json["checks"]
    return next(each for each in told if each["check"] == "journal")


def test_the_option_names_an_absolute_directory_and_excludes_another_root(vosctl):
    for directory in ("", "journal", "/" + "d" * 255):
        assert "DIR" in vosctl("--journal", directory, "item", "list").failed(2)
    assert "--journal" in vosctl("--journal", "/flash/journal", "--root", "/tmp", "item", "list").failed(2)


def test_saves_go_by_way_of_the_journal(vosctl):
    with_journal(vosctl, "partition", "init", "all").ok()
    with_journal(vosctl, "config", "save", "-", stdin="host").ok()
    with_journal(vosctl, "item", "set", "ztp", "7").ok()
    assert os.listdir(JOURNAL) == [] and JOURNAL.stat().st_mode & 0o777 == 0o700
    assert with_journal(vosctl, "item", "get", "ztp").ok().stdout == "7\n"


def test_an_item_is_not_set_where_the_journal_cannot_be_written(vosctl):
    vosctl("partition", "init", "all").ok()
    before = SYSTEM.read_bytes()
    JOURNAL.mkdir()
    name = entry_of(SYSTEM, before, before)
    name.unlink()
    name.with_suffix(".new").mkdir()
    assert "the journal /flash/journal cannot be written" in with_journal(vosctl, "item", "set", "ztp", "7").failed()
    assert SYSTEM.read_bytes() == before


def test_doctor_tells_whether_the_journal_is_on_and_what_lies_in_it(vosctl):
    assert checked(vosctl)["found"].startswith("off: ")
    on = ("--journal", str(JOURNAL))
    assert "on, in /flash/journal; the first save makes the directory" in checked(vosctl, *on)["found"]
    JOURNAL.mkdir()
    assert checked(vosctl, *on)["found"] == "on, in /flash/journal; it is empty"
    SAVED.write_bytes(b"host")
    entry = entry_of(SAVED, b"hostname a\n")
    told = checked(vosctl, *on)
    assert told["verdict"] == "warning" and "a sound entry for /flash/zebcfg" in told["found"]
    sound = entry_of(SAVED, b"hostname a\n").read_bytes()
    entry.write_bytes(sound[:-1])
    told = checked(vosctl, *on)
    assert told["verdict"] == "warning" and f"a torn entry {entry.name}" in told["found"]


def test_doctor_tells_foreign_and_unfinished_files_and_a_journal_that_is_no_directory(vosctl):
    on = ("--journal", str(JOURNAL))
    JOURNAL.mkdir()
    (JOURNAL / "x").write_bytes(b"any")
    (JOURNAL / ("0" * 16 + ".new")).write_bytes(b"any")
    (JOURNAL / ("1" * 16 + ".save")).symlink_to("/dev/zero")
    told = checked(vosctl, *on)["found"]
    assert "a file x, which is ignored" in told and "an unfinished entry 0000000000000000.new" in told
    assert "a torn entry 1111111111111111.save" in told
    shutil.rmtree(JOURNAL)
    JOURNAL.write_bytes(b"")
    told = checked(vosctl, *on)
    assert told["verdict"] == "error" and "/flash/journal cannot be read" in told["found"]


def test_status_tells_which_image_an_installation_has_left(vosctl):
    install_first()
    first = APPLICATION.read_bytes()
    VERSION.write_bytes(b"1.0\0")
    assert with_journal(vosctl, "--json", "image", "status").json["installation"] is None
    second = image(2, b"second")
    with_journal(vosctl, "image", "install", write("/tmp/image", second), "--yes", "--version", "2.0").ok()

    def found():
        return with_journal(vosctl, "--json", "image", "status").json["installation"]["found"]

    assert found() == "new"
    for bytes_there, expected in ((first, "old"), (second[:-1], "broken"), (b"", "broken"), (image(2, b"third"), "other")):
        APPLICATION.write_bytes(bytes_there)
        assert found() == expected
    assert vosctl("--json", "image", "status").json["installation"] is None  # without the journal


def test_status_recognises_the_old_application_without_its_version(vosctl):
    install_first()
    VERSION.write_bytes(b"1.0\0")
    first = APPLICATION.read_bytes()
    with_journal(vosctl, "image", "install", write("/tmp/image", image(2, b"second")), "--yes", "--version", "2.0").ok()
    APPLICATION.write_bytes(first)  # as a cut between the removal of the version and the opening of the image leaves it
    VERSION.unlink()
    told = with_journal(vosctl, "--json", "image", "status").ok().json
    assert told["installation"]["found"] == "old" and "the same as its backup" in told["remedy"]


def test_a_record_that_is_not_sound_tells_nothing(vosctl):
    install_first()
    with_journal(vosctl, "image", "install", write("/tmp/image", image(2, b"second")), "--yes", "--version", "2.0").ok()
    (record,) = JOURNAL.iterdir()
    sound = record.read_bytes()
    for at in range(len(sound)):
        record.write_bytes(sound[:at] + bytes([sound[at] ^ 1]) + sound[at + 1:])
        if at % 8 == 0:
            assert with_journal(vosctl, "--json", "image", "status").json["installation"] is None, at
    record.write_bytes(sound)
    assert with_journal(vosctl, "--json", "image", "status").json["installation"]["found"] == "new"


def test_status_tells_a_torn_boot_loader(vosctl):
    install_first()
    device = pathlib.Path("/dev/mtdblock0")
    device.write_bytes(b"\xff" * 64)
    try:
        new = write("/tmp/image", image(1, b"boot loader"))
        with_journal(vosctl, "image", "install", new, "--yes").ok()
        told = with_journal(vosctl, "--json", "image", "status").ok().json["bootLoader"]
        assert (told["path"], told["state"]) == (str(device), "whole")
        whole = device.read_bytes()
        for torn in (whole[:5] + b"\xff" * 59, whole[:20], b""):
            device.write_bytes(torn)
            told = with_journal(vosctl, "--json", "image", "status")
            assert told.status == 1 and told.json["bootLoader"]["state"] == "broken"
        assert "Install it again before the next restart" in with_journal(vosctl, "image", "status").stdout
    finally:
        device.unlink()
