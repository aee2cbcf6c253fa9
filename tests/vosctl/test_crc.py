# SPDX-License-Identifier: MIT
"""vosctl crc."""
import binascii
import pathlib
import re
import subprocess
import zlib

import pytest
from stores import on_terminal, write


def test_both_checksums(vosctl):
    path = write("/tmp/digits", b"123456789")
    assert vosctl("--json", "crc", path).ok().json == {
        "file": str(path), "bytes": 9, "crc32": 0xCBF43926, "partition": 0x869031C3}
    assert "0xCBF43926" in vosctl("crc", path).ok().stdout.upper().replace("0X", "0x")


def test_standard_input_and_an_empty_file(vosctl):
    assert vosctl("--json", "crc", "-", stdin="123456789").ok().json["crc32"] == 0xCBF43926
    assert vosctl("--json", "crc", write("/tmp/empty", b"")).ok().json["crc32"] == 0


def test_a_file_is_read_in_parts(vosctl, binary):
    data = bytes(range(251)) * 5000
    told = vosctl("--json", "crc", write("/tmp/long", data)).ok().json
    assert told["bytes"] == len(data) and told["crc32"] == zlib.crc32(data)
    assert told["partition"] & 0xFFFF == binascii.crc_hqx(data, 0)
    assert vosctl("--json", "crc", "-", stdin=data).ok().json == {**told, "file": "-"}


def test_a_long_file_takes_no_memory_of_its_length(binary):
    if any(name in pathlib.Path(binary).read_bytes() for name in (b"__asan_init", b"__tsan_init")):
        pytest.skip("a sanitizer needs more address space than the limit")
    with open("/tmp/sparse", "wb") as sparse:
        sparse.truncate(1 << 29)
    for command, status in ((["crc", "/tmp/sparse"], 0), (["image", "info", "/tmp/sparse"], 1)):
        done = subprocess.run(["sh", "-c", "ulimit -v 300000; exec \"$@\"", "sh", binary, *command], capture_output=True, check=False)
        assert done.returncode == status and b"unexpected" not in done.stderr and b"memory" not in done.stderr, done


def test_a_file_that_is_too_long_is_refused_before_it_is_read(vosctl):
    with open("/tmp/huge", "wb") as huge:
        huge.truncate(1 << 33)
    assert "/tmp/huge has 8589934592 bytes, and at most 4294967295 are taken" in vosctl("crc", "/tmp/huge").failed()


def test_what_is_no_file(vosctl):
    assert "/tmp/none cannot be opened" in vosctl("crc", "/tmp/none").failed()
    assert "/tmp is a directory" in vosctl("crc", "/tmp").failed()
    assert vosctl("crc").failed(2)


def test_a_terminal_shows_how_far_a_long_file_is_read_and_keeps_only_the_result(binary):
    with open("/tmp/sparse", "wb") as sparse:
        sparse.truncate(128 << 20)
    status, shown = on_terminal(binary, "crc", "/tmp/sparse")
    steps = [int(step) for step in re.findall(r"reading /tmp/sparse, (\d+) %", shown)]
    assert status == 0 and steps[0] == 25 and steps == sorted(set(steps)) and steps[-1] >= 99, shown
    progress, result = shown.rsplit("\r\x1b[K", 1)
    assert "CRC-32" not in progress and "CRC-32" in result and "%" not in result
    assert "reading" not in on_terminal(binary, "crc", write("/tmp/short", b"x"))[1]
    assert subprocess.run([binary, "crc", "/tmp/sparse"], capture_output=True, check=True).stderr == b""
