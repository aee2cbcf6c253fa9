# SPDX-License-Identifier: MIT
"""vosctl while a signal comes, a pipe is closed or another program has a store locked in the middle of a write."""
import fcntl
import os
import pathlib
import signal
import subprocess
import threading

import pytest
from conftest import PATIENCE
from stores import APPLICATION, image, write

SAVED = pathlib.Path("/flash/zebcfg")
SYSLOG = pathlib.Path("/flash/syslog")
SYSTEM = pathlib.Path("/flash/sysdata")
VERSION = pathlib.Path("/app/hostImage.bin.ver")
BACKUP = pathlib.Path("/flash/hostImage.bin.last")
FIRST, SECOND = image(2, b"first"), image(2, b"second")


@pytest.fixture
def application():
    APPLICATION.write_bytes(FIRST)
    VERSION.write_bytes(b"1.0\0")


def interrupted(vosctl, number, *arguments):
    """Runs vosctl, which gets the signal when the file that it writes is empty."""
    return vosctl(*arguments, env={"LD_PRELOAD": os.path.join(os.environ["PROGRAMS"], "refusing.so"), "SIGNAL": str(int(number)),
                                   "ASAN_OPTIONS": "verify_asan_link_order=0"})


ENDING = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT, signal.SIGPIPE, signal.SIGALRM, signal.SIGUSR1]


@pytest.mark.parametrize("number", ENDING)
def test_a_signal_in_the_middle_of_an_installation_leaves_the_new_application(vosctl, application, number):
    done = interrupted(vosctl, number, "image", "install", write("/tmp/image", SECOND), "--yes", "--version", "2.0")
    assert APPLICATION.read_bytes() == SECOND and VERSION.read_bytes() == b"2.0\0"
    assert BACKUP.read_bytes() == FIRST
    assert done.status == (0 if number == signal.SIGPIPE else -number)
    if number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT):
        assert f"{number.name} came while /tmp/image was being installed; this was completed first" in done.stderr


@pytest.mark.parametrize("number", ENDING)
@pytest.mark.parametrize("command, path", [("config", SAVED), ("syslog", SYSLOG)])
def test_a_signal_in_the_middle_of_a_save_leaves_the_new_content(vosctl, number, command, path):
    path.write_bytes(b"before")
    interrupted(vosctl, number, command, "save", write("/tmp/new", b"after"), "--yes")
    assert path.read_bytes() == b"after"


def test_a_signal_that_is_ignored_from_the_start_is_not_reported(vosctl):
    SAVED.write_bytes(b"before")
    signal.signal(signal.SIGHUP, signal.SIG_IGN)
    try:
        done = interrupted(vosctl, signal.SIGHUP, "config", "save", write("/tmp/new", b"after"), "--yes")
    finally:
        signal.signal(signal.SIGHUP, signal.SIG_DFL)
    assert done.ok() and SAVED.read_bytes() == b"after"


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP, signal.SIGINT])
@pytest.mark.parametrize("path, before, arguments", [
    (APPLICATION, FIRST, ("image", "install", "/tmp/new", "--yes", "--version", "2.0")),
    (SAVED, b"before", ("config", "save", "/tmp/new", "--yes")),
    (SYSLOG, b"before", ("syslog", "save", "/tmp/new", "--yes")),
])
def test_the_wait_for_a_lock_is_reported_and_a_signal_that_ends_it_changes_nothing(
        background, binary, application, number, path, before, arguments):
    path.write_bytes(before)
    write("/tmp/new", SECOND)
    with open(path, "rb") as locked:
        fcntl.flock(locked, fcntl.LOCK_SH)
        tool = background(binary, *arguments, ready=f"waiting for {path}, which another program has locked")
        assert path.read_bytes() == before
        assert tool.signal(number).finish() == -number
    assert path.read_bytes() == before


def test_the_command_goes_on_when_the_lock_is_free(background, binary):
    SAVED.write_bytes(b"before")
    write("/tmp/new", b"after")
    with open(SAVED, "rb") as locked:
        fcntl.flock(locked, fcntl.LOCK_SH)
        tool = background(binary, "config", "save", "/tmp/new", "--yes", ready="waiting for")
    assert tool.finish() == 0 and SAVED.read_bytes() == b"after"


@pytest.mark.parametrize("arguments", [("config", "save", "/tmp/new", "--yes"), ("-v", "config", "save", "/tmp/new", "--yes")])
def test_closed_pipes_lose_nothing(binary, arguments):
    SAVED.write_bytes(b"before")
    write("/tmp/new", b"after")
    reader, writer = os.pipe()
    os.close(reader)
    subprocess.run([binary, *arguments], stdin=subprocess.DEVNULL, stdout=writer, stderr=writer, timeout=PATIENCE, check=False)
    os.close(writer)
    assert SAVED.read_bytes() == b"after"


def test_items_that_several_programs_set_at_the_same_time_are_all_set(vosctl):
    vosctl("partition", "init", "system").ok()
    failures = []

    def setting(item):
        for value in range(12):
            done = vosctl("item", "set", item, value)
            told = vosctl("item", "get", item)
            if done.status != 0 or told.stdout != f"{value}\n":
                failures.append((done, told))

    threads = [threading.Thread(target=setting, args=(item,)) for item in ("ztp", "softflag", "boot-time", "machash-mode")]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not failures
    vosctl("partition", "check", "system").ok()


def test_an_item_that_another_program_sets_meanwhile_is_not_called_damaged(background, binary, vosctl):
    vosctl("partition", "init", "system").ok()
    with open(SYSTEM, "rb") as locked:
        fcntl.flock(locked, fcntl.LOCK_EX)
        tool = background(binary, "item", "set", "ztp", "5", ready="waiting for /flash/sysdata")
    assert tool.finish() == 0, tool.output
    assert vosctl("item", "get", "ztp").ok().stdout == "5\n"
