# SPDX-License-Identifier: MIT
"""vosctl on a flash that is full, that cannot be written, and on which writes are incomplete."""
import os
import pathlib
import resource
import subprocess

import pytest
from stores import APPLICATION, image, write

SYSTEM = pathlib.Path("/flash/sysdata")
FACTORY = pathlib.Path("/app/factory")
SAVED = pathlib.Path("/flash/zebcfg")
VERSION = pathlib.Path("/app/hostImage.bin.ver")
BACKUP = pathlib.Path("/flash/hostImage.bin.last")
BACKUP_VERSION = pathlib.Path("/flash/hostImage.bin.last.ver")


class Flash:
    """A small file system on one of the device's directories."""

    def __init__(self, directory):
        self.directory = directory
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", directory], check=True)

    def fill(self):
        with open(f"{self.directory}/filler", "wb", buffering=0) as filler:
            with pytest.raises(OSError, match="No space left"):
                while True:
                    filler.write(bytes(4096))

    def protect(self):
        subprocess.run(["mount", "-o", "remount,bind,ro", self.directory], check=True)

    def names(self):
        return set(os.listdir(self.directory)) - {"filler"}

    def remove(self):
        subprocess.run(["umount", self.directory], check=True)


@pytest.fixture
def flash():
    made = Flash("/flash")
    yield made
    made.remove()


@pytest.fixture
def app():
    made = Flash("/app")
    yield made
    made.remove()


@pytest.fixture
def cut(binary):
    """Runs vosctl with a limit for the size of files, and returns its line on standard error."""

    def run(size, *arguments):
        done = subprocess.run(
            [binary, *map(str, arguments)], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (size, size)))
        line = done.stderr.decode()
        assert done.returncode == 1 and line.startswith("vosctl: ") and "; " in line and line.count("\n") == 1, done
        return line

    return run


def test_an_item_needs_no_room(vosctl, flash):
    vosctl("partition", "init", "system").ok()
    flash.fill()
    vosctl("item", "set", "ztp", "5").ok()
    assert vosctl("item", "get", "ztp").ok().stdout == "5\n"


def test_an_item_on_a_protected_flash(vosctl, flash):
    vosctl("partition", "init", "system").ok()
    before = SYSTEM.read_bytes()
    flash.protect()
    assert "/flash/sysdata cannot be written: Read-only file system, and nothing was changed; " in vosctl(
        "item", "set", "ztp", "5").failed()
    assert SYSTEM.read_bytes() == before


def test_an_item_that_is_written_only_in_part(vosctl, cut):
    vosctl("partition", "init", "system").ok()
    before = SYSTEM.read_bytes()
    line = cut(100, "item", "set", "ztp", "5")
    assert "ztp could not be written to /flash/sysdata: only 100 of 984 bytes were taken, and all is as it was; " in line
    assert SYSTEM.read_bytes() == before


def test_an_import_that_is_written_only_in_part_changes_neither_partition(vosctl, cut):
    vosctl("partition", "init", "all").ok()
    before = FACTORY.read_bytes(), SYSTEM.read_bytes()
    line = cut(900, "item", "import", write("/tmp/items", b"ztp=5\noem-number=5\n"), "--yes")
    assert "2 items could not be written to /app/factory: only 900 of 1400 bytes were taken, and all is as it was; " in line
    assert (FACTORY.read_bytes(), SYSTEM.read_bytes()) == before


@pytest.mark.parametrize("there", [False, True])
@pytest.mark.parametrize("trouble, reason", [
    ("full", "only 0 of 984 bytes could be written"), ("protected", "/flash/sysdata cannot be created: Read-only file system")])
def test_a_partition_that_cannot_be_made_anew(vosctl, flash, trouble, reason, there):
    if there:
        vosctl("partition", "init", "system").ok()
        vosctl("item", "set", "ztp", "5").ok()
    flash.fill() if trouble == "full" else flash.protect()
    line = vosctl("partition", "init", "system", "--yes").failed()
    assert f"the system partition /flash/sysdata could not be made: {reason}, and it is as it was; see that" in line
    assert flash.names() == ({"sysdata"} if there else set())
    if there:
        assert vosctl("item", "get", "ztp").ok().stdout == "5\n"


def test_a_partition_that_is_written_only_in_part(vosctl, cut):
    vosctl("partition", "init", "system").ok()
    vosctl("item", "set", "ztp", "5").ok()
    assert "only 100 of 984 bytes could be written" in cut(100, "partition", "init", "system", "--yes")
    assert vosctl("item", "get", "ztp").ok().stdout == "5\n" and os.listdir("/flash") == ["sysdata"]


def test_the_partition_that_was_made_before_is_reported(vosctl, flash):
    flash.protect()
    line = vosctl("--json", "partition", "init", "all").failed()
    assert "the system partition" in line and ", while the factory partition is fresh; " in line
    vosctl("partition", "check", "factory").ok()


def test_a_file_that_an_earlier_attempt_has_left_is_replaced(vosctl):
    write("/flash/sysdata.new", b"x" * 2000)
    vosctl("partition", "init", "system").ok()
    assert SYSTEM.stat().st_size == 984 and os.listdir("/flash") == ["sysdata"]


STORES = [("config", SAVED, "the configuration"), ("syslog", pathlib.Path("/flash/syslog"), "the syslog")]


@pytest.mark.parametrize("command, path, what", STORES)
@pytest.mark.parametrize("trouble, reason", [
    ("full", "and at most {room} are taken"),
    ("protected", "{path} cannot be written: Read-only file system, and nothing was changed; see that")])
@pytest.mark.parametrize("before, room", [(None, 0), (b"before", 4096)])
def test_content_that_does_not_fit_is_refused_before_anything_is_changed(vosctl, flash, command, path, what, trouble, reason, before, room):
    if before:
        path.write_bytes(before)
    flash.fill() if trouble == "full" else flash.protect()
    line = vosctl(command, "save", write("/tmp/new", b"n" * 9000), "--yes").failed()
    assert reason.format(path=path, room=room) in line
    assert (path.read_bytes() if path.exists() else None) == before


@pytest.mark.parametrize("command, path, what", STORES)
def test_a_pipe_that_has_no_room_is_refused_before_anything_is_changed(vosctl, flash, command, path, what):
    path.write_bytes(b"before")
    assert "more than" in vosctl(command, "save", "-", "--yes", stdin=bytes(70000)).failed()
    assert path.read_bytes() == b"before"


@pytest.mark.parametrize("command, path, what", STORES)
def test_the_earlier_content_is_restored_after_a_partial_write(cut, command, path, what):
    path.write_bytes(b"before")
    line = cut(6, command, "save", write("/tmp/new", b"n" * 100), "--yes")
    assert f"{what} could not be saved whole to {path}: only 6 of 100 bytes arrived, and the one before is still there; " in line
    assert path.read_bytes() == b"before"


@pytest.mark.parametrize("command, path, what", STORES)
def test_a_new_file_is_removed_after_a_partial_write(cut, command, path, what):
    assert "and none is there; " in cut(6, command, "save", write("/tmp/new", b"n" * 100), "--yes")
    assert not path.exists()


@pytest.mark.parametrize("command, path, what", STORES)
def test_a_loss_is_reported(cut, command, path, what):
    path.write_bytes(b"before")
    assert "the one before is lost; " in cut(3, command, "save", write("/tmp/new", b"after"), "--yes")


@pytest.fixture
def released(app):
    """An application with a version on a small file system."""
    APPLICATION.write_bytes(image(2, b"first"))
    VERSION.write_bytes(b"1.0\0")
    return app


SECOND = image(2, b"second" * 2000)


def install(path):
    return "image", "install", path, "--yes", "--version", "2.0"


@pytest.mark.parametrize("trouble, reason", [
    ("full", "/app has room for 4096 bytes, and 16384 are needed; nothing was changed; make room there"),
    ("protected", "/app/hostImage.bin cannot be written: Read-only file system, and nothing was changed; ")])
def test_an_application_that_has_no_room_is_refused_before_anything_is_changed(vosctl, released, trouble, reason):
    BACKUP.write_bytes(b"backup")
    released.fill() if trouble == "full" else released.protect()
    line = vosctl(*install(write("/tmp/image", SECOND))).failed()
    if trouble == "protected":
        assert reason in line
    else:
        assert "/app has room for " in line and "; nothing was changed; make room there" in line
    assert APPLICATION.read_bytes() == image(2, b"first") and VERSION.read_bytes() == b"1.0\0"
    assert released.names() == {"hostImage.bin", "hostImage.bin.ver"} and BACKUP.read_bytes() == b"backup"


@pytest.mark.parametrize("trouble", ["full", "protected"])
def test_an_application_of_which_no_backup_can_be_made_leaves_the_earlier_backup(vosctl, released, flash, trouble):
    APPLICATION.write_bytes(SECOND)
    BACKUP.write_bytes(b"backup")
    BACKUP_VERSION.write_bytes(b"0.9\0")
    flash.fill() if trouble == "full" else flash.protect()
    line = vosctl(*install(write("/tmp/image", image(2, b"third")))).failed()
    assert "nothing was changed; " in line and "/flash" in line
    if trouble == "full":
        assert "or remove /app/hostImage.bin.ver to install without a backup" in line
    assert APPLICATION.read_bytes() == SECOND and VERSION.read_bytes() == b"1.0\0"
    assert BACKUP.read_bytes() == b"backup" and BACKUP_VERSION.read_bytes() == b"0.9\0"
    VERSION.unlink()
    vosctl(*install("/tmp/image")).ok()
    assert BACKUP.read_bytes() == b"backup"


def test_after_a_partial_write_application_version_and_backup_are_restored(vosctl, cut):
    APPLICATION.write_bytes(image(2, b"first"))
    VERSION.write_bytes(b"1.0\0")
    BACKUP.write_bytes(b"backup")
    line = cut(100, *install(write("/tmp/image", SECOND)))
    assert "only 100 of 12016 bytes arrived, and the earlier application is still there; " in line
    assert APPLICATION.read_bytes() == image(2, b"first") and VERSION.read_bytes() == b"1.0\0"
    assert BACKUP.read_bytes() == b"backup" and not BACKUP_VERSION.exists()


def test_a_lost_application_is_reported(cut):
    APPLICATION.write_bytes(image(2, b"first"))
    assert "and the earlier application is lost; " in cut(18, *install(write("/tmp/image", SECOND)))


def test_after_a_partial_restore_the_application_is_as_before(cut):
    APPLICATION.write_bytes(image(2, b"first"))
    VERSION.write_bytes(b"1.0\0")
    BACKUP.write_bytes(SECOND)
    line = cut(100, "image", "restore", "--yes")
    assert "only 100 of 12016 bytes arrived, and the earlier application is still there; " in line
    assert APPLICATION.read_bytes() == image(2, b"first") and VERSION.read_bytes() == b"1.0\0"


def test_a_version_that_cannot_be_written(cut):
    APPLICATION.write_bytes(image(2, b"first"))
    assert "the image is installed, but its version could not be written to /app/hostImage.bin.ver; " in cut(
        30, "image", "install", write("/tmp/image", image(2, b"second")), "--yes", "--version", "v" * 31)


def test_a_package_file_that_has_no_room_leaves_the_earlier_one(vosctl, app):
    APPLICATION.write_bytes(image(2, b"first"))
    vosctl("package", "make", "/tmp/package", "file:/app/oem.txt=" + str(write("/tmp/local", b"x" * 9000))).ok()
    target = write("/app/oem.txt", b"earlier")
    app.fill()
    assert "nothing was changed" in vosctl("package", "apply", "/tmp/package", "--yes").failed()
    assert target.read_bytes() == b"earlier"


def test_a_package_file_is_restored_after_a_partial_write(vosctl, cut):
    APPLICATION.write_bytes(image(2, b"first"))
    vosctl("package", "make", "/tmp/package", "file:/app/oem.txt=" + str(write("/tmp/local", b"x" * 9000))).ok()
    target = write("/app/oem.txt", b"earlier")
    line = cut(100, "package", "apply", "/tmp/package", "--yes")
    assert "entry 1 of /tmp/package (/app/oem.txt)" in line and "; 0 of 1 entries were applied; " in line
    assert target.read_bytes() == b"earlier"


def test_an_output_file_that_has_no_room_leaves_the_earlier_one(vosctl, flash):
    target = write("/flash/made", b"earlier")
    flash.fill()
    payload = write("/tmp/payload", b"x" * 9000)
    for command in (("image", "make", payload, target, "--type", "boot"), ("package", "make", target, f"file:/app/oem={payload}")):
        line = vosctl(*command, "--compat", "1", "2").failed()
        assert "/flash/made cannot be" in line and "No space left on device; make room" in line
        assert target.read_bytes() == b"earlier" and flash.names() == {"made"}
