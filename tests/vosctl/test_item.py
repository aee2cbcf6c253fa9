# SPDX-License-Identifier: MIT
"""vosctl item."""
import pathlib

import pytest
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
def test_a_value_goes_to_its_place_and_comes_back(vosctl, item, value, file, offset, stored):
    vosctl("item", "set", item, value).ok()
    assert file.read_bytes()[128 + offset:][:len(stored)] == stored
    shown = "(erased)" if set(stored) == {0xFF} else value
    assert vosctl("item", "get", item).ok().stdout == shown + "\n"


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
def test_what_does_not_fit_is_refused_and_changes_nothing(vosctl, item, value, limit):
    before = FACTORY.read_bytes(), SYSTEM.read_bytes()
    line = vosctl("item", "set", "--", item, value).failed()
    assert limit in line and item in line
    assert (FACTORY.read_bytes(), SYSTEM.read_bytes()) == before


def test_bytes_in_hexadecimal_and_from_a_file(vosctl):
    vosctl("item", "set", "sys-mac", "--hex", "ffffffffffff").ok()
    assert vosctl("item", "get", "sys-mac").ok().stdout == "(erased)\n"
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
    for command in (("get", "nothing"), ("set", "13", "1"), ("dump", "23")):
        assert "there is no item" in vosctl("item", *command).failed()
    assert vosctl("item", "set", "ztp").failed(2)
    assert vosctl("item").failed(2)


def test_a_partition_that_is_not_valid(vosctl):
    SYSTEM.write_bytes(b"x" * 100)
    line = vosctl("item", "get", "ztp").failed()
    assert "/flash/sysdata" in line and "vosctl partition check system" in line
    assert "/flash/sysdata" in vosctl("item", "set", "ztp", "1").failed()
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
