# SPDX-License-Identifier: MIT
"""The Wireshark dissector, as Debian's tshark runs it. A run takes long, so each reads a capture of many cases."""
import os
import pathlib
import random
import subprocess

import pytest
from captures import (ANSWER, NETLINK, ONE_WAY, RECEIVED, REQUEST, REQUESTER, SENT, Copy, capture, exchange, message, started)
from conftest import PATIENCE

DISSECTOR = pathlib.Path(__file__).parents[2] / "tools/wireshark/vos.lua"
FIELDS = ["what", "stage", "socket", "fd", "pid", "tid", "result", "errno", "number", "lost", "monotonic", "whole", "copied", "own",
          "peer", "from", "to", "type", "no_return", "code", "value1", "value2", "value3", "value4", "length", "payload", "text",
          "request_in", "answer_in", "queued", "served", "total"]


def tshark(directory, copies, *arguments):
    """Runs tshark on these copies, and returns its lines."""
    file = directory / "messages.pcapng"
    file.write_bytes(capture(*copies))
    done = subprocess.run(
        ["tshark", "-r", file, "-X", f"lua_script:{DISSECTOR}", *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
        timeout=4 * PATIENCE, check=False, env={**os.environ, "HOME": str(directory)})
    errors = [line for line in done.stderr.decode().splitlines() if "as user" not in line]
    assert done.returncode == 0 and errors == [], done
    assert b"Lua Error" not in done.stdout, done.stdout
    return done.stdout.decode().splitlines()


def frames(directory, copies, *arguments):
    """The fields of each frame, by their names; without those that are not there."""
    names = ["frame.number", *(f"vos.{name}" for name in FIELDS), "_ws.expert.message"]
    selected = [word for name in names for word in ("-e", name)]
    lines = tshark(directory, copies, "-T", "fields", "-E", "separator=|", *selected, *arguments)
    return [{name.replace("vos.", ""): value for name, value in zip(names, line.split("|"), strict=True) if value}
            for line in lines]


NAMES = [started(100, b"oltd"), started(200, b"mgmtd")]
BY_HAND = Copy(SENT, ANSWER, fd=7, pid=101, tid=102, number=3, lost=0, moment=5, own=b"/tmp/vos/box",
               peer=b"/tmp/vos/clientp900t9v1", message=message(b"on", type=3, no_return=9, code=-4, values=(1, 2, 3, 4)))
UNKNOWN = Copy(SENT, REQUEST, REQUESTER, pid=7, own=b"/tmp/vos/clientp7t1v1", peer=b"/tmp/vos/listHigh", message=message())
TRAPPED = Copy(RECEIVED, ONE_WAY, NETLINK, message=bytes(16) + message(type=2, values=(1, 2, 3, 0)), head_at=16)
CUT = Copy(message=message(b"x" * 10)[:36], whole=42, pid=1001)
LOST = Copy(message=message(), lost=5, pid=1001)
FIRST, AGAIN = exchange(client=(301, b"a")), exchange(client=(301, b"a"), at=10**9)  # one path, which is used again
CASES = {
    "whole": [*NAMES, *exchange()],
    "by hand": [BY_HAND],
    "unknown": [UNKNOWN],
    "netlink": [TRAPPED],
    "losses": [CUT, LOST],
    "disorder": [FIRST[1], FIRST[0], FIRST[3], FIRST[2], AGAIN[1], AGAIN[0], AGAIN[2], AGAIN[3]],
    "one side": exchange(client=(302, b"b"))[1:3],
    "two": sorted([*exchange(client=(303, b"c")), *exchange(at=100, client=(304, b"d"))], key=lambda copy: copy.moment),
}


@pytest.fixture(scope="module")
def cases(tmp_path_factory):
    """The frames of each case. The numbers of linked frames count from the begin of the case."""
    read = frames(tmp_path_factory.mktemp("cases"), [copy for case in CASES.values() for copy in case], "-2")
    found, begin = {}, 0
    for name, copies in CASES.items():
        found[name] = read[begin:begin + len(copies)]
        for frame in found[name]:
            frame.update({link: int(frame[link]) - begin for link in ("request_in", "answer_in") if link in frame})
        begin += len(copies)
    return found


def test_the_fields_of_both_headers_have_their_names(cases):
    frame = cases["by hand"][0]
    names = [*FIELDS[:FIELDS.index("from")], *FIELDS[FIELDS.index("type"):FIELDS.index("request_in")]]
    assert [frame[name] for name in names] == [
        "1", "2", "1", "7", "101", "102", "34", "0", "3", "0", "5000000005", "34", "34", "/tmp/vos/box", "/tmp/vos/clientp900t9v1",
        "0x00000003", "9", "-4", "1", "2", "3", "4", "2", "6f6e", "on"]


def test_a_request_has_no_code(cases):
    assert "code" not in cases["whole"][2] and cases["whole"][4]["code"] == "0"


def test_what_is_not_known_of_a_process_is_taken_from_the_paths(cases):
    assert (cases["unknown"][0]["from"], cases["unknown"][0]["to"]) == ("pid 7", "list")


def test_an_answer_is_linked_with_its_request_and_tells_its_times(cases):
    sent, received = cases["whole"][4:]
    assert (sent["request_in"], sent["queued"], sent["served"]) == (4, "0.001", "0.02")
    assert (received["request_in"], received["queued"], received["served"], received["total"]) == (3, "0.001", "0.02", "0.0215")


def test_a_request_is_linked_with_its_answer_where_tshark_reads_twice(cases):
    assert [frame["answer_in"] for frame in cases["whole"][2:4]] == [6, 5]


def test_copies_in_another_order_are_linked_all_the_same(cases):
    assert [frame.get("request_in") for frame in cases["disorder"]] == [None, None, 2, 1, None, None, 5, 6]


def test_without_the_copies_of_one_side_the_times_of_the_other_are_told(cases):
    request, answer = cases["one side"]
    assert answer["request_in"] == 1 and answer["served"] == "0.02" and "total" not in answer and "queued" not in answer


def test_two_requesters_at_the_same_time_are_told_apart(cases):
    received = [frame for frame in cases["two"] if frame["stage"] == "2" and frame["what"] == "2"]
    assert [(frame["pid"], frame["request_in"]) for frame in received] == [("303", 1), ("304", 2)]


def test_a_netlink_header_is_before_the_messages_header(cases):
    assert (cases["netlink"][0]["type"], cases["netlink"][0]["value2"]) == ("0x00000002", "2")


def test_losses_and_cut_messages_are_told(cases):
    assert [frame["_ws.expert.message"] for frame in cases["losses"]] == [
        "The message goes on behind the copy", "Copies were lost before this one: 5"]


THREE = [*NAMES, *exchange(), *exchange(code=-4, at=10**9, sequence=2, served=40_000_000, answer=b"slow"),
         *exchange(code=4, at=2 * 10**9, sequence=3)]


def test_processes_are_the_addresses(tmp_path):
    lines = tshark(tmp_path, THREE)
    assert [line.split()[2:5] for line in lines[2:6]] == 2 * [["mgmtd", "→", "oltd"]] + 2 * [["oltd", "→", "mgmtd"]]
    assert lines[5].endswith("answer received, code 0, 2 bytes, in all 21.500 ms: on")


@pytest.mark.parametrize("filter, numbers", [
    ("vos.code == -4", "9 10"), ("vos.code == 0 && vos.what == 2", "6"), ("vos.total > 0.03", "10"),
    ('vos.text contains "slo" && vos.from == "oltd"', "9 10")])
def test_filters_find_codes_times_texts_and_names(tmp_path, filter, numbers):
    assert tshark(tmp_path, THREE, "-Y", filter, "-T", "fields", "-e", "frame.number") == numbers.split()


def test_conversations_count_each_message_once(tmp_path):
    lines = tshark(tmp_path, THREE, "-q", "-o", "vos.conversations:TRUE")
    assert lines[0].split() == ["from", "to", "requests", "answers", "code!=0", "bytes", "served", "ms", "longest", "ms"]
    assert [line.split() for line in lines[1:] if line] == [["mgmtd", "oltd", "3", "3", "2", "20", "26.667", "40.000"]]


def changed(offset, content):
    datagram = bytearray(Copy(message=message(b"hello"), own=b"/tmp/vos/oltd").bytes())
    datagram[offset:offset + len(content)] = content
    return bytes(datagram)


WHOLE = changed(0, b"")
NO_COPIES = [*(WHOLE[:length] for length in (1, 4, 8, 303)), changed(0, bytes(4)), changed(4, b"\2\0"), changed(6, b"\xff\xff"),
             changed(6, b"\x20\0")]
WRONG = [*(WHOLE[:length] for length in (304, 305, 335)), changed(68, b"\xff" * 4), changed(72, b"\xff" * 4), changed(80, b"\xff\xff"),
         changed(82, b"\xff\xff")]
HARMLESS = [changed(8, b"\xff"), changed(9, b"\xff"), changed(10, b"\xff"), changed(56, b"\xff" * 8), changed(40, b"\xff" * 8)]


def test_lengths_and_numbers_that_lie_do_no_harm(tmp_path):
    found = frames(tmp_path, [*NO_COPIES, *WRONG, *HARMLESS, *exchange()])
    assert len(found) == len(NO_COPIES) + len(WRONG) + len(HARMLESS) + 4
    for frame in found[:len(NO_COPIES)]:
        assert frame["_ws.expert.message"] == "No copy of a message" and "what" not in frame
    for frame in found[len(NO_COPIES):len(NO_COPIES) + len(WRONG)]:
        assert "_ws.expert.message" in frame and frame["what"] == "1", frame
    assert found[-2]["served"] == "0.02"


def test_any_bytes_do_no_harm(tmp_path):
    numbers = random.Random(18)
    whole = Copy(message=message(b"hello"), own=b"/tmp/vos/oltd", peer=b"/tmp/vos/clientp1t2v3").bytes()
    datagrams = []
    for _ in range(300):
        datagram = bytearray(whole[:numbers.randrange(9, len(whole) + 1)])
        for _ in range(numbers.randrange(8)):
            datagram[numbers.randrange(8, len(datagram))] = numbers.randrange(256)
        datagrams.append(bytes(datagram))
    assert len(frames(tmp_path, datagrams, "-2")) == 300


def test_control_characters_do_not_reach_the_terminal(tmp_path):
    copy = Copy(message=message(b"\x1b[31mred"), own=b"/tmp/vos/a\x1bb")
    lines = tshark(tmp_path, [copy], "-V")
    assert any("a\\x1Bb" in line for line in lines) and not any("\x1b" in line for line in lines)
