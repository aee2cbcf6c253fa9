# SPDX-License-Identifier: MIT
"""vosctl with a library that uses a journal, after another program was interrupted while it saved."""
import os
import pathlib
import struct
import zlib

import pytest
from stores import write

FACTORY = pathlib.Path("/app/factory")
SYSTEM = pathlib.Path("/flash/sysdata")
SAVED = pathlib.Path("/flash/zebcfg")
JOURNAL = pathlib.Path("/flash/journal")


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
