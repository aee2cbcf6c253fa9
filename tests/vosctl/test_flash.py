# SPDX-License-Identifier: MIT
"""vosctl on a flash that is full, that cannot be written, and that takes a part only."""
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
    """Runs vosctl where no file takes more than some bytes, and returns its line on standard error."""

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
    assert "ztp could not be written to /flash/sysdata, and is as it was; " in vosctl("item", "set", "ztp", "5").failed()
    assert SYSTEM.read_bytes() == before


def test_an_item_of_which_a_part_is_taken(vosctl, cut):
    vosctl("partition", "init", "system").ok()
    line = cut(100, "item", "set", "ztp", "5")
    assert "ztp could not be written to /flash/sysdata whole, and the system partition is not valid any more; " in line
    assert "vosctl partition init system" in line
    assert vosctl("partition", "check", "system").status == 1


@pytest.mark.parametrize("there", [False, True])
@pytest.mark.parametrize("trouble, reason", [
    ("full", "only 0 of 984 bytes could be written"), ("protected", "/flash/sysdata.new cannot be created: Read-only file system")])
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


def test_a_partition_of_which_a_part_is_taken(vosctl, cut):
    vosctl("partition", "init", "system").ok()
    vosctl("item", "set", "ztp", "5").ok()
    assert "only 100 of 984 bytes could be written" in cut(100, "partition", "init", "system", "--yes")
    assert vosctl("item", "get", "ztp").ok().stdout == "5\n" and os.listdir("/flash") == ["sysdata"]


def test_the_partition_that_was_made_before_is_told(vosctl, flash):
    flash.protect()
    line = vosctl("--json", "partition", "init", "all").failed()
    assert "the system partition" in line and ", while the factory partition is fresh; " in line
    vosctl("partition", "check", "factory").ok()


def test_what_an_earlier_attempt_has_left_is_no_hindrance(vosctl):
    write("/flash/sysdata.new", b"x" * 2000)
    vosctl("partition", "init", "system").ok()
    assert SYSTEM.stat().st_size == 984 and os.listdir("/flash") == ["sysdata"]


@pytest.mark.parametrize("trouble", ["full", "protected"])
@pytest.mark.parametrize("before, told", [(None, "none is there"), (b"before", "the one before is still there")])
def test_a_configuration_that_cannot_be_saved(vosctl, flash, trouble, before, told):
    if before:
        SAVED.write_bytes(before)
    flash.fill() if trouble == "full" else flash.protect()
    line = vosctl("config", "save", write("/tmp/new", b"n" * 9000), "--yes").failed()
    assert f"the configuration could not be saved whole to /flash/zebcfg, and {told}; see that" in line
    assert (SAVED.read_bytes() if SAVED.exists() else None) == before


def test_a_configuration_that_is_lost_is_told(cut):
    SAVED.write_bytes(b"before")
    assert "the one before is lost; " in cut(3, "config", "save", write("/tmp/new", b"after"), "--yes")


@pytest.fixture
def released(app):
    """An application with a version on a small file system."""
    APPLICATION.write_bytes(image(2, b"first"))
    VERSION.write_bytes(b"1.0\0")
    return app


SECOND = image(2, b"second" * 2000)


@pytest.mark.parametrize("trouble", ["full", "protected"])
def test_an_application_that_cannot_be_written(vosctl, released, trouble):
    released.fill() if trouble == "full" else released.protect()
    line = vosctl("image", "install", write("/tmp/image", SECOND), "--yes", "--version", "2.0").failed()
    assert ("/tmp/image could not be written whole to /app/hostImage.bin, and the earlier application is still there; see with"
            in line)
    assert APPLICATION.read_bytes() == image(2, b"first") and VERSION.read_bytes() == b"1.0\0"
    assert released.names() == {"hostImage.bin", "hostImage.bin.ver"}


@pytest.mark.parametrize("trouble, left", [("full", ", where no backup is now"), ("protected", "")])
def test_an_application_of_which_no_backup_can_be_made(vosctl, released, flash, trouble, left):
    APPLICATION.write_bytes(SECOND)
    if trouble == "protected":
        BACKUP.write_bytes(b"backup")
    flash.fill() if trouble == "full" else flash.protect()
    line = vosctl("image", "install", write("/tmp/image", image(2, b"third")), "--yes").failed()
    assert f"nothing was installed: /app/hostImage.bin could not be kept whole as {BACKUP}{left}; see that /flash" in line
    assert "remove /app/hostImage.bin.ver to install without a backup" in line
    assert APPLICATION.read_bytes() == SECOND and VERSION.read_bytes() == b"1.0\0"
    assert flash.names() == (set() if left else {"hostImage.bin.last"})
    if left:
        VERSION.unlink()
        vosctl("image", "install", "/tmp/image", "--yes").ok()


def test_an_application_that_is_lost_is_told(cut):
    APPLICATION.write_bytes(image(2, b"first"))
    assert "and the earlier application is lost; " in cut(18, "image", "install", write("/tmp/image", SECOND), "--yes")


def test_a_version_that_cannot_be_written(vosctl, app):
    APPLICATION.write_bytes(image(2, b"first"))
    app.fill()
    assert "the image is installed, but its version could not be written to /app/hostImage.bin.ver; " in vosctl(
        "image", "install", write("/tmp/image", image(2, b"second")), "--yes", "--version", "2.0").failed()
