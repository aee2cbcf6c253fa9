# SPDX-License-Identifier: MIT
"""vosctl item."""
import os
import pathlib
import pty
import subprocess
import time

import pytest
from conftest import PATIENCE
from stores import write

FACTORY = pathlib.Path("/app/factory")
SYSTEM = pathlib.Path("/flash/sysdata")


@pytest.fixture(autouse=True)
def partitions(vosctl):
    vosctl("partition", "init", "all").ok()


@pytest.mark.parametrize("item, value, file, offset, stored", [
    ("sys-mac", "02:00:00:00:00:01", FACTORY, 0, bytes.fromhex("020000000001")),
    ("default-mac", "02:00:00:00:00:0a", FACTORY, 6, bytes.fromhex("02000000000a")),
    ("oem-number", "4294967295", FACTORY, 12, b"\xff" * 4),
    ("serial-number", "SN-0001", FACTORY, 16, b"SN-0001" + bytes(25)),
    ("serial-number", "x" * 32, FACTORY, 16, b"x" * 32),
    ("ip-address", "192.0.2.1", SYSTEM, 4, bytes([192, 0, 2, 1])),
    ("ip-mask", "255.255.254.0", SYSTEM, 8, bytes([255, 255, 254, 0])),
    ("BSP_IP_GATE", "192.0.2.254", SYSTEM, 12, bytes([192, 0, 2, 254])),
    ("8", "115200", SYSTEM, 16, b"\x00\xc2\x01\x00"),
    ("admin-password", "p" * 36, SYSTEM, 20, b"p" * 36),
    ("privmode-password", "secret", SYSTEM, 668, b"secret" + bytes(30)),
    ("privmode-encrypt", "255", SYSTEM, 704, b"\xff"),
    ("privmode-encrypt", "1", SYSTEM, 704, b"\x01"),
    ("softflag", "305419896", SYSTEM, 552, bytes.fromhex("7856341200000000")),
    ("stack", bytes(range(20)).hex(), SYSTEM, 568, bytes(range(20)) + bytes.fromhex("a55aa55a")),
    ("user", "ab" * 476, SYSTEM, 72, b"\xab" * 476),
    ("oem-info", "cd" * 1024, FACTORY, 48, b"\xcd" * 1024),
    ("ztp", "7", SYSTEM, 664, b"\x07\0\0\0"),
])
def test_a_value_is_stored_at_its_place_and_read_back(vosctl, item, value, file, offset, stored):
    vosctl("item", "set", item, value).ok()
    assert file.read_bytes()[128 + offset:][:len(stored)] == stored
    if set(stored) == {0xFF}:
        assert "erased" in vosctl("item", "get", item).failed()
    else:
        assert vosctl("item", "get", item).ok().stdout == value + "\n"


@pytest.mark.parametrize("item, value, limit", [
    ("sys-mac", "02:00:00:00:00", "a MAC address of one device"),
    ("sys-mac", "02:00:00:00:00:0g", "a MAC address of one device"),
    ("sys-mac", "01:00:00:00:00:01", "a MAC address of one device"),
    ("ip-address", "192.0.2.256", "an IPv4 address"),
    ("ip-mask", "255.0.255.0", "its ones in front"),
    ("oem-number", "4294967296", "0 to 4294967295"),
    ("oem-number", "-1", "0 to 4294967295"),
    ("oem-number", "", "0 to 4294967295"),
    ("privmode-encrypt", "256", "0 to 255"),
    ("serial-number", "x" * 33, "at most 32"),
    ("serial-number", "a\tb", "at most 32"),
    ("admin-password", "p" * 37, "at most 36"),
    ("stack", "00" * 19, "exactly 20 bytes"),
    ("user", "abc", "exactly 476 bytes"),
])
def test_a_value_that_does_not_fit_is_refused_and_changes_nothing(vosctl, item, value, limit):
    before = FACTORY.read_bytes(), SYSTEM.read_bytes()
    line = vosctl("item", "set", "--", item, value).failed(2)
    assert limit in line and item in line
    assert (FACTORY.read_bytes(), SYSTEM.read_bytes()) == before


def test_bytes_in_hexadecimal_and_from_a_file(vosctl):
    vosctl("item", "set", "sys-mac", "--hex", "ffffffffffff").ok()
    told = vosctl("item", "get", "sys-mac")
    assert "nothing is set for sys-mac: erased" in told.failed() and told.stdout == ""
    told = vosctl("--json", "item", "get", "sys-mac")
    assert told.status == 1 and told.json["erased"] is True and told.json["value"] is None
    vosctl("item", "set", "user", "--file", write("/tmp/user", b"u" * 476)).ok()
    assert SYSTEM.read_bytes()[200:676] == b"u" * 476
    assert "exactly 476 bytes" in vosctl("item", "set", "user", "--file", write("/tmp/user", b"u" * 475)).failed()
    assert "cannot be opened" in vosctl("item", "set", "user", "--file", "/tmp/none").failed()


def test_json(vosctl):
    vosctl("item", "set", "ip-address", "192.0.2.1").ok()
    assert vosctl("--json", "item", "get", "ip-address").ok().json == {
        "number": 5, "name": "ip-address", "constant": "BSP_IP_ADDRESS", "partition": "system", "form": "ipv4",
        "size": 4, "limit": "an IPv4 address, such as 192.0.2.1", "erased": False, "value": "192.0.2.1",
        "hex": "c0000201"}


def test_the_list_names_all_and_hides_passwords(vosctl):
    vosctl("item", "set", "admin-password", "secret").ok()
    listed = vosctl("item", "list").ok().stdout
    assert "secret" not in listed and len(listed.splitlines()) == 21
    items = {each["name"]: each for each in vosctl("--json", "item", "list").ok().json["items"]}
    assert len(items) == 20 and items["admin-password"]["value"] is None and not items["admin-password"]["erased"]
    assert "736563726574" in vosctl("item", "dump", "admin-password").ok().stdout
    assert len(vosctl("--json", "item", "dump").ok().json["items"]) == 20


def test_an_unknown_item(vosctl):
    for command in (("get", "nothing"), ("set", "13", "1"), ("dump", "23"), ("get", "ztp", "nothing"), ("erase", "x")):
        assert "there is no item" in vosctl("item", *command).failed(2)
    assert vosctl("item", "set", "ztp").failed(2)
    assert vosctl("item").failed(2)
    assert 'there is no item "ip-adress" (did you mean ip-address?);' in vosctl("item", "get", "ip-adress").failed(2)
    assert len(vosctl("item", "get", "x" * 5000).failed(2)) < 300


def test_a_partition_that_is_not_valid(vosctl):
    SYSTEM.write_bytes(b"x" * 100)
    line = vosctl("item", "get", "ztp").failed()
    assert "/flash/sysdata" in line and "vosctl partition check system" in line
    assert "/flash/sysdata" in vosctl("item", "set", "ztp", "1").failed()
    assert SYSTEM.read_bytes() == b"x" * 100
    listed = vosctl("--json", "item", "list")
    assert listed.status == 1
    assert {each["partition"] for each in listed.json["items"] if "error" in each} == {"system"}


def test_a_tree_elsewhere(vosctl, tmp_path):
    (tmp_path / "app").mkdir()
    (tmp_path / "flash").mkdir()
    vosctl("--root", tmp_path, "partition", "init", "all").ok()
    before = FACTORY.read_bytes()
    vosctl("--root", tmp_path, "item", "set", "serial-number", "there").ok()
    assert vosctl("--root", tmp_path, "item", "get", "serial-number").ok().stdout == "there\n"
    assert FACTORY.read_bytes() == before


def test_an_empty_file_name_is_a_file_that_cannot_be_opened(vosctl):
    before = FACTORY.read_bytes()
    assert "FILE is empty" in vosctl("item", "set", "serial-number", "--file", "").failed(2)
    assert FACTORY.read_bytes() == before


def test_several_items_are_printed_with_their_names(vosctl):
    vosctl("item", "set", "ztp", "7").ok()
    vosctl("item", "set", "ip-address", "192.0.2.1").ok()
    assert vosctl("item", "get", "ztp", "ip-address").ok().stdout == "ztp=7\nip-address=192.0.2.1\n"
    told = vosctl("item", "get", "ztp", "ip-mask", "ip-gate")
    assert told.stdout == "ztp=7\n" and "nothing is set for ip-mask and ip-gate: erased" in told.failed()
    assert [each["name"] for each in vosctl("--json", "item", "get", "ztp", "5").ok().json["items"]] == ["ztp", "ip-address"]


def test_erase(vosctl):
    for item, value in (("ztp", "7"), ("softflag", "1"), ("stack", "11" * 20), ("oem-number", "3")):
        vosctl("item", "set", item, value).ok()
    assert "--yes" in vosctl("item", "erase", "ztp").failed()
    assert vosctl("--json", "item", "erase", "ztp", "softflag", "stack", "oem-number", "ztp", "--yes").ok().json == {
        "erased": ["ztp", "softflag", "stack", "oem-number"]}
    body = SYSTEM.read_bytes()[128:]
    assert body[664:668] == b"\xff" * 4 and body[552:560] == b"\xff" * 8 and body[568:592] == b"\xff" * 24
    assert FACTORY.read_bytes()[140:144] == b"\xff" * 4
    vosctl("partition", "check").ok()


def test_exported_items_can_be_imported(vosctl):
    for item, value in (("ip-address", "192.0.2.1"), ("admin-password", "a b=c "), ("serial-number", "(erased)"), ("ztp", "7"),
                        ("softflag", "5"), ("stack", "22" * 20)):
        vosctl("item", "set", item, value).ok()
    vosctl("item", "set", "privmode-password", "--hex", "01" * 36).ok()
    vosctl("item", "export", "/tmp/items").ok()
    assert os.stat("/tmp/items").st_mode & 0o777 == 0o600
    lines = pathlib.Path("/tmp/items").read_text().splitlines()
    assert len(lines) == 21 and "ip-address=192.0.2.1" in lines and "admin-password=a b=c " in lines
    assert "privmode-password=hex:" + "01" * 36 in lines and "ip-gate=(erased)" in lines
    assert "serial-number=hex:" + b"(erased)".hex() + "00" * 24 in lines
    assert vosctl("item", "export", "-").ok().stdout.splitlines() == lines
    before = FACTORY.read_bytes(), SYSTEM.read_bytes()
    vosctl("partition", "init", "all", "--yes").ok()
    assert "--yes" in vosctl("item", "import", "/tmp/items").failed()
    assert vosctl("--json", "item", "import", "/tmp/items", "--yes").ok().json == {"file": "/tmp/items", "items": 20}
    assert (FACTORY.read_bytes(), SYSTEM.read_bytes()) == before
    vosctl("item", "get", "ztp").ok()


@pytest.mark.parametrize("text, reason", [
    ("ztp=5\nnothing=1\n", 'line 2 of /tmp/items: there is no item "nothing"'), ("ztp=5\nip-mask=255.0.255.0", "line 2"),
    ("ztp=5\n# comment\n\nztp=6\n", "line 4 of /tmp/items: ztp is there twice"), ("ztp 5", "there is no = in it"),
    ("user=hex:00", "exactly 476 bytes"), ("# nothing\n", "has no items"), ("", "has no items")])
def test_an_import_with_a_mistake_changes_nothing(vosctl, text, reason):
    before = FACTORY.read_bytes(), SYSTEM.read_bytes()
    assert reason in vosctl("item", "import", write("/tmp/items", text.encode()), "--yes").failed()
    assert (FACTORY.read_bytes(), SYSTEM.read_bytes()) == before


def test_an_import_into_a_partition_that_is_not_valid_changes_none(vosctl):
    SYSTEM.write_bytes(b"damaged")
    before = FACTORY.read_bytes()
    assert "the system partition /flash/sysdata is not valid" in vosctl(
        "item", "import", write("/tmp/items", b"oem-number=5\nztp=5\n"), "--yes").failed()
    assert FACTORY.read_bytes() == before and SYSTEM.read_bytes() == b"damaged"


def test_bytes_that_are_no_text_have_no_value(vosctl):
    vosctl("item", "set", "serial-number", "--hex", "01" * 32).ok()
    told = vosctl("--json", "item", "get", "serial-number").ok().json
    assert told["form"] == "text" and told["value"] is None and told["hex"] == "01" * 32
    assert vosctl("item", "get", "serial-number").ok().stdout == "\\x01" * 32 + "\n"


def test_a_password_from_standard_input(vosctl):
    vosctl("item", "set", "admin-password", stdin="secret one\n").ok()
    assert SYSTEM.read_bytes()[148:184] == b"secret one" + bytes(26)
    vosctl("item", "set", "ztp", "--stdin", stdin="9").ok()
    assert vosctl("item", "get", "ztp").ok().stdout == "9\n"
    assert "standard input is empty" in vosctl("item", "set", "admin-password", stdin="").failed()
    assert "more than one line" in vosctl("item", "set", "admin-password", stdin="a\nb\n").failed()
    assert "at most 36" in vosctl("item", "set", "admin-password", stdin="x" * 37).failed()
    assert SYSTEM.read_bytes()[148:184] == b"secret one" + bytes(26)
    assert vosctl("item", "set", "ztp").failed(2) and vosctl("item", "set", "ztp", "1", "--stdin").failed(2)


class Terminal:
    """vosctl on a terminal whose answers are given one after the other."""

    def __init__(self, *command):
        self.ours, theirs = pty.openpty()
        self.process = subprocess.Popen(command, stdin=theirs, stdout=theirs, stderr=theirs, start_new_session=True)
        self.theirs = theirs
        self.shown = b""

    def answer(self, question, text):
        deadline = time.monotonic() + PATIENCE
        while question not in self.shown:
            assert time.monotonic() < deadline, self.shown
            self.shown += os.read(self.ours, 4096)
        self.shown = self.shown.split(question, 1)[1]
        os.write(self.ours, text)

    def finish(self):
        status = self.process.wait(PATIENCE)
        os.set_blocking(self.ours, False)
        try:
            self.shown += os.read(self.ours, 65536)
        except BlockingIOError:
            pass
        os.close(self.ours)
        os.close(self.theirs)
        return status


@pytest.mark.parametrize("again, status", [(b"hidden word\n", 0), (b"another\n", 1)])
def test_a_password_on_a_terminal_is_asked_for_twice_and_not_shown(binary, again, status):
    terminal = Terminal(binary, "item", "set", "admin-password")
    terminal.answer(b"new admin-password: ", b"hidden word\n")
    terminal.answer(b"new admin-password again: ", again)
    assert terminal.finish() == status, terminal.shown
    assert b"hidden" not in terminal.shown
    assert (SYSTEM.read_bytes()[148:159] == b"hidden word") == (status == 0)


def test_a_signal_at_the_prompt_restores_the_terminal(binary):
    import termios
    terminal = Terminal(binary, "item", "set", "admin-password")
    terminal.answer(b"new admin-password: ", b"")
    assert not termios.tcgetattr(terminal.theirs)[3] & termios.ECHO
    terminal.process.terminate()
    assert terminal.process.wait(PATIENCE) == -15
    assert termios.tcgetattr(terminal.theirs)[3] & termios.ECHO
    terminal.finish()


@pytest.mark.skipif(os.geteuid() != 0, reason="the rights of another user are needed")
def test_the_cause_is_named(vosctl):
    os.chmod(SYSTEM, 0o400)
    subprocess.run(["mount", "--bind", str(SYSTEM), str(SYSTEM)], check=True)
    subprocess.run(["mount", "-o", "remount,bind,ro", str(SYSTEM)], check=True)
    try:
        assert "/flash/sysdata cannot be written: Read-only file system, and nothing was changed; " in vosctl(
            "item", "set", "ztp", "5").failed()
    finally:
        subprocess.run(["umount", str(SYSTEM)], check=True)


def test_a_store_that_is_no_file_is_not_waited_for(vosctl):
    SYSTEM.unlink()
    os.mkfifo(SYSTEM)
    for command in (("item", "get", "ztp"), ("item", "set", "ztp", "1"), ("partition", "check", "system"),
                    ("partition", "init", "system", "--yes"), ("partition", "save", "/tmp/copy", "system")):
        assert "/flash/sysdata is no regular file" in vosctl(*command).stdout + vosctl(*command).stderr, command
    assert vosctl("item", "list").status == 1
    assert "/flash/sysdata" in vosctl("doctor").stdout
