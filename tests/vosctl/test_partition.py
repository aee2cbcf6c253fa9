# SPDX-License-Identifier: MIT
"""vosctl partition."""
import os
import pathlib
import subprocess

import pytest
from stores import flipped, on_terminal, write

FACTORY = pathlib.Path("/app/factory")
SYSTEM = pathlib.Path("/flash/sysdata")


@pytest.fixture
def fresh(vosctl):
    vosctl("partition", "init", "all").ok()


def test_fresh_partitions_are_valid(vosctl, fresh):
    assert (FACTORY.stat().st_size, SYSTEM.stat().st_size) == (1400, 984)
    told = vosctl("--json", "partition", "check").ok().json["partitions"]
    assert [(each["name"], each["path"], each["valid"], each["reason"], each["bytes"]) for each in told] == [
        ("factory", "/app/factory", True, None, 1400), ("system", "/flash/sysdata", True, None, 984)]
    assert all(each["storedChecksum"] == each["computedChecksum"] for each in told)


@pytest.mark.parametrize("damage, reason", [
    (lambda data: b"", "the file is empty"),
    (lambda data: data[:983], "the file has 983 bytes, the partition 984"),
    (lambda data: flipped(data, 4), "its magic word is"),
    (lambda data: flipped(data, 500), "its checksum is"),
    (lambda data: data[:8] + b"\xff" * 4 + data[12:], "its checksum word is erased"),
])
def test_damage_is_named(vosctl, fresh, damage, reason):
    SYSTEM.write_bytes(damage(SYSTEM.read_bytes()))
    told = vosctl("partition", "check", "system")
    assert told.status == 1 and reason in told.stdout and "vosctl partition init system" in told.stdout
    assert vosctl("partition", "check", "factory").ok()


def test_a_missing_partition(vosctl):
    told = vosctl("--json", "partition", "check", "factory")
    assert told.status == 1 and "cannot be opened" in told.json["partitions"][0]["reason"]


def test_what_lies_behind_the_last_byte_is_ignored(vosctl, fresh):
    SYSTEM.write_bytes(SYSTEM.read_bytes() + b"tail")
    vosctl("partition", "check", "system").ok()


def test_init_renews_only_the_partition_that_is_named(vosctl, fresh):
    FACTORY.write_bytes(b"damaged")
    SYSTEM.write_bytes(b"damaged too")
    vosctl("partition", "init", "system", "--yes").ok()
    assert FACTORY.read_bytes() == b"damaged"
    vosctl("partition", "check", "system").ok()


def test_init_asks(vosctl, binary, fresh):
    vosctl("item", "set", "ztp", "5").ok()
    assert "--yes" in vosctl("partition", "init", "system").failed()
    status, shown = on_terminal(binary, "partition", "init", "system", answer="n")
    assert status == 1 and "nothing was changed" in shown
    assert vosctl("item", "get", "ztp").ok().stdout == "5\n"
    assert on_terminal(binary, "partition", "init", "system", answer="y")[0] == 0
    assert "erased" in vosctl("item", "get", "ztp").failed()


def test_init_of_all_erases_nothing_unless_every_answer_is_yes(vosctl, binary, fresh):
    vosctl("item", "set", "oem-number", "5").ok()
    status, shown = on_terminal(binary, "partition", "init", "all", answer="y\nn")
    assert status == 1 and "nothing was changed" in shown and shown.count("[y/N]") == 2
    assert vosctl("item", "get", "oem-number").ok().stdout == "5\n"


def test_init_where_there_is_no_directory(vosctl, tmp_path):
    assert "could not be made" in vosctl("--root", tmp_path, "partition", "init", "system").failed()


def test_a_file_that_its_user_may_not_read_is_not_replaced_and_the_line_says_why(binary, vosctl, fresh, tmp_path):
    copy = tmp_path / "copy"
    vosctl("partition", "save", copy, "system").ok()
    before = SYSTEM.read_bytes()
    SYSTEM.chmod(0)
    # Without the rights of root, who is allowed everything.
    plain = ["setpriv", "--bounding-set=-all", "--inh-caps=-all", "--", binary, "partition"]
    try:
        for command in (["init", "system", "--yes"], ["restore", str(copy), "--yes"]):
            done = subprocess.run([*plain, *command], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
            assert done.returncode == 1
            assert ("the system partition /flash/sysdata could not be made: its file has mode 0000 and this user may not read and"
                    " write it: Permission denied, and it is as it was; run it as a user who may") in done.stderr
    finally:
        SYSTEM.chmod(0o644)
    assert SYSTEM.read_bytes() == before and os.listdir("/flash") == ["sysdata"]


def test_show_prints_every_byte(vosctl, fresh):
    assert vosctl("--json", "partition", "show", "system").ok().json["partitions"][0]["hex"] == SYSTEM.read_bytes().hex()
    assert "16 98 86 26" in vosctl("partition", "show", "system").ok().stdout
    assert vosctl("partition", "show", "third").failed(2)


def test_only_content_that_is_wrong_is_to_be_replaced(vosctl, fresh, tmp_path):
    (tmp_path / "flash/sysdata").mkdir(parents=True)
    told = vosctl("--root", tmp_path, "partition", "check", "system")
    assert told.status == 1 and "is a directory" in told.stdout and "partition init" not in told.stdout
    SYSTEM.write_bytes(b"damaged")
    assert "vosctl partition init system" in vosctl("partition", "check", "system").stdout
    remedy = vosctl("--json", "partition", "check", "system").json["partitions"][0]["remedy"]
    assert "vosctl partition restore FILE" in remedy


def test_init_keeps_permissions_and_follows_a_link(vosctl, fresh):
    SYSTEM.rename("/flash/elsewhere")
    os.symlink("elsewhere", SYSTEM)
    os.chmod("/flash/elsewhere", 0o600)
    vosctl("partition", "init", "system", "--yes").ok()
    assert SYSTEM.is_symlink() and os.stat("/flash/elsewhere").st_mode & 0o777 == 0o600
    vosctl("partition", "check", "system").ok()
    assert sorted(os.listdir("/flash")) == ["elsewhere", "sysdata"]


def test_a_partition_is_read_no_further_than_it_goes(vosctl, fresh):
    with open(SYSTEM, "ab") as system:
        system.truncate(1 << 40)
    assert vosctl("--json", "partition", "check", "system").ok().json["partitions"][0]["bytes"] == 1 << 40


@pytest.mark.parametrize("name, path, item", [("factory", FACTORY, "oem-number"), ("system", SYSTEM, "ztp")])
def test_a_copy_can_be_put_back(vosctl, fresh, name, path, item):
    vosctl("item", "set", item, "5").ok()
    assert vosctl("--json", "partition", "save", "/tmp/copy", *([] if name == "factory" else [name])).ok().json == {
        "name": name, "path": str(path), "file": "/tmp/copy", "bytes": path.stat().st_size}
    assert os.stat("/tmp/copy").st_mode & 0o777 == 0o600
    for damage in (b"damaged", None):
        path.write_bytes(damage) if damage else path.unlink()
        vosctl("partition", "restore", "/tmp/copy", "--yes").ok()
        assert vosctl("item", "get", item).ok().stdout == "5\n"
    assert "--yes" in vosctl("partition", "restore", "/tmp/copy").failed()


@pytest.mark.parametrize("damage, reason", [
    (lambda data: data[:-1], "it has 983 bytes"), (lambda data: flipped(data, 500), "its checksum is"),
    (lambda data: data * 2, "1968 bytes, and at most 1400"), (lambda data: b"", "it has 0 bytes")])
def test_what_is_no_copy_is_not_put_back(vosctl, fresh, damage, reason):
    before = SYSTEM.read_bytes()
    assert reason in vosctl("partition", "restore", write("/tmp/copy", damage(before)), "--yes").failed()
    assert SYSTEM.read_bytes() == before


def test_a_partition_that_is_not_valid_is_not_copied(vosctl, fresh):
    SYSTEM.write_bytes(b"damaged")
    copy = write("/tmp/copy", b"earlier")
    assert "is not valid" in vosctl("partition", "save", copy, "system").failed()
    assert copy.read_bytes() == b"earlier"


def test_doctor_says_when_there_is_no_copy_of_the_factory_partition(vosctl, fresh):
    def told():
        return next(each for each in vosctl("--json", "doctor").json["checks"] if each["check"] == "factory-copy")

    assert told()["verdict"] == "warning" and "vosctl partition save /flash/factory.copy" in told()["remedy"]
    vosctl("partition", "save", "/flash/factory.copy").ok()
    assert told()["verdict"] == "good"
    write("/flash/factory.copy", b"damaged")
    assert told()["verdict"] == "warning"
