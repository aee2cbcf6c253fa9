# SPDX-License-Identifier: MIT
"""vosctl crc."""
from stores import write


def test_both_checksums(vosctl):
    path = write("/tmp/digits", b"123456789")
    assert vosctl("--json", "crc", path).ok().json == {
        "file": str(path), "bytes": 9, "crc32": 0xCBF43926, "partition": 0x869031C3}
    assert "0xCBF43926" in vosctl("crc", path).ok().stdout.upper().replace("0X", "0x")


def test_standard_input_and_an_empty_file(vosctl):
    assert vosctl("--json", "crc", "-", stdin="123456789").ok().json["crc32"] == 0xCBF43926
    assert vosctl("--json", "crc", write("/tmp/empty", b"")).ok().json["crc32"] == 0


def test_what_is_no_file(vosctl):
    assert "/tmp/none cannot be opened" in vosctl("crc", "/tmp/none").failed()
    assert "/tmp is a directory" in vosctl("crc", "/tmp").failed()
    assert vosctl("crc").failed(2)
