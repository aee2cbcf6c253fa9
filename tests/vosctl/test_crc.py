# SPDX-License-Identifier: MIT
"""vosctl crc."""
import binascii
import subprocess
import zlib

from stores import write


def test_both_checksums(vosctl):
    path = write("/tmp/digits", b"123456789")
    assert vosctl("--json", "crc", path).ok().json == {
        "file": str(path), "bytes": 9, "crc32": 0xCBF43926, "partition": 0x869031C3}
    assert "0xCBF43926" in vosctl("crc", path).ok().stdout.upper().replace("0X", "0x")


def test_standard_input_and_an_empty_file(vosctl):
    assert vosctl("--json", "crc", "-", stdin="123456789").ok().json["crc32"] == 0xCBF43926
    assert vosctl("--json", "crc", write("/tmp/empty", b"")).ok().json["crc32"] == 0


def test_a_file_is_taken_part_by_part(vosctl, binary):
    data = bytes(range(251)) * 5000
    told = vosctl("--json", "crc", write("/tmp/long", data)).ok().json
    assert told["bytes"] == len(data) and told["crc32"] == zlib.crc32(data)
    assert told["partition"] & 0xFFFF == binascii.crc_hqx(data, 0)
    assert vosctl("--json", "crc", "-", stdin=data).ok().json == {**told, "file": "-"}


def test_a_long_file_takes_no_memory_of_its_length(binary):
    with open("/tmp/sparse", "wb") as sparse:
        sparse.truncate(1 << 30)
    for command in (["crc", "/tmp/sparse"], ["image", "info", "/tmp/sparse"]):
        done = subprocess.run(["sh", "-c", "ulimit -v 300000; exec \"$@\"", "sh", binary, *command], capture_output=True, check=False)
        assert b"please report" not in done.stderr, done
        assert done.returncode == (0 if command[0] == "crc" else 1), done


def test_a_file_that_is_too_long_is_refused_before_it_is_read(vosctl):
    with open("/tmp/huge", "wb") as huge:
        huge.truncate(1 << 33)
    assert "/tmp/huge has 8589934592 bytes, and at most 4294967295 are taken" in vosctl("crc", "/tmp/huge").failed()


def test_what_is_no_file(vosctl):
    assert "/tmp/none cannot be opened" in vosctl("crc", "/tmp/none").failed()
    assert "/tmp is a directory" in vosctl("crc", "/tmp").failed()
    assert vosctl("crc").failed(2)
