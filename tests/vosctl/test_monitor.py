# SPDX-License-Identifier: MIT
"""vosctl monitor: the messages of running processes, joined from both sides, and those of captures."""
import json
import os
import pathlib
import random
import re
import signal
import socket
import subprocess

import pytest
from captures import (ANSWER, ONE_WAY, RECEIVED, REQUEST, REQUESTER, SENT, Copy, block, capture, exchange, interface, message,
                      packet, section, started)
from conftest import PATIENCE, SOCKETS, eventually


@pytest.fixture
def peer(background):
    def start(name, *arguments):
        return background(pathlib.Path(os.environ["PROGRAMS"]) / "peer", name, *arguments, ready="ready")

    return start


def taps():
    return list(SOCKETS.glob("vosctlTap*"))


@pytest.fixture
def monitor(background, binary, vosctl):
    """Starts a monitor, and waits until it shows the messages of a process: of every new text until one is seen."""

    def start(name, *arguments, json_lines=True):
        process = background(binary, *(["--json"] if json_lines else []), "monitor", *arguments)

        def seen():
            vosctl("send", name, "hello", "--nul").ok()
            return "hello" in process.output

        eventually(seen)
        return process

    return start


def documents(process):
    lines = [json.loads(line) for line in process.output.splitlines(keepends=True) if line.endswith("\n")]
    return [line for line in lines if "kind" in line]


def found(process, kind, text):
    """The first message of a kind with that text, when it is there."""
    return next((each for each in documents(process) if each["kind"] == kind and each["text"] == text), None)


def test_a_message_between_two_watched_processes_is_joined_from_both_sides(vosctl, peer, monitor):
    server, client = peer("server"), peer("client")
    watching = monitor("client")
    eventually(lambda: vosctl("send", "client", "ask server slow 30", "--nul").ok() and found(watching, "answer", "slow 30"))
    request, answer = found(watching, "request", "slow 30"), found(watching, "answer", "slow 30")
    assert (request["from"], request["to"], request["socket"], request["bytes"]) == ("client", "server", "normal", 256)
    assert (request["fromPid"], request["toPid"], request["code"]) == (client.pid, server.pid, None)
    assert (answer["from"], answer["to"], answer["code"], answer["type"]) == ("server", "client", 0, "app")
    assert 30 <= answer["servedMs"] <= answer["totalMs"] and answer["queuedMs"] >= 0
    assert answer["totalMs"] >= answer["queuedMs"] + answer["servedMs"] - 0.001
    assert answer["monotonicNs"] > request["monotonicNs"]


def test_the_text_has_one_line_per_message(vosctl, peer, monitor):
    peer("server")
    watching = monitor("server", json_lines=False)
    line = r'^\d\d:\d\d:\d\d\.\d{6}  server   > vosctl    normal  answer -4     256  served [\d.]+ [mu]?s  "code -4"$'
    # A sender that has ended before its message is shown has no name, so there may have to be another one.
    eventually(lambda: vosctl("send", "server", "code -4", "--nul").ok() and re.search(line, watching.output, re.MULTILINE))


def test_a_message_without_an_answer_is_one_way(vosctl, peer, monitor):
    peer("server"), peer("client")
    watching = monitor("client", "--kind", "one-way", "--kind", "request")
    vosctl("send", "client", "tell server", "--nul").ok()
    told = eventually(lambda: found(watching, "one-way", "hello"))
    assert (told["from"], told["to"]) == ("client", "server")


def test_filters_by_kind_code_text_and_time(vosctl, peer, monitor):
    peer("server")
    coded = monitor("server", "--kind", "answer")
    for text in ("code -4", "slow 50"):
        vosctl("send", "server", text, "--nul").ok()
    eventually(lambda: found(coded, "answer", "slow 50"))
    assert {each["kind"] for each in documents(coded)} == {"answer"}
    assert found(coded, "answer", "code -4")["code"] == -4
    assert coded.signal(signal.SIGINT).finish() == 0


def test_ctrl_c_leaves_nothing_switched_on(vosctl, peer, monitor):
    server = peer("server")
    watching = monitor("server")
    assert taps() != [] and watching.signal(signal.SIGINT).finish() == 0
    assert taps() == []
    vosctl("send", "server", "hello").ok()  # the request to stop has been taken before it
    eventually(lambda: sockets(server.pid) == 2)


def sockets(pid):
    """Sockets that a process has open: its two, and one for each tap."""
    count = 0
    for fd in os.listdir(f"/proc/{pid}/fd"):
        try:
            count += os.readlink(f"/proc/{pid}/fd/{fd}").startswith("socket:")
        except FileNotFoundError:
            pass
    return count


def test_a_kill_leaves_nothing_switched_on(vosctl, peer, monitor):
    server = peer("server")
    before = sockets(server.pid)
    watching = monitor("server")
    assert watching.signal(signal.SIGKILL).finish() == -signal.SIGKILL
    eventually(lambda: taps() == [])
    eventually(lambda: sockets(server.pid) == before)


def test_a_reader_that_is_gone_ends_it_and_leaves_nothing(binary, vosctl, peer):
    server = peer("server")
    watching = subprocess.Popen([binary, "monitor"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    eventually(lambda: sockets(server.pid) == 3)
    watching.stdout.close()
    vosctl("send", "server", "hello").ok()
    assert watching.wait(PATIENCE) == -signal.SIGPIPE and watching.stderr.read() == b""
    watching.stderr.close()
    eventually(lambda: taps() == [] and sockets(server.pid) == 2)


def test_processes_that_start_later_are_watched_too(vosctl, peer, monitor):
    peer("server")
    watching = monitor("server")
    peer("late")
    eventually(lambda: vosctl("send", "late", "late one", "--nul").ok() and found(watching, "request", "late one"))


def test_a_process_that_is_started_again_is_watched_again(vosctl, peer, monitor):
    first = peer("server")
    watching = monitor("server", "server")
    first.stop()
    peer("server")
    eventually(lambda: vosctl("send", "server", "again", "--nul").ok() and found(watching, "request", "again"))


def test_only_named_processes_are_watched(vosctl, peer, monitor):
    peer("server")
    other = peer("other")
    watching = monitor("server", "server")
    vosctl("send", "other", "hidden", "--nul").ok()
    assert sockets(other.pid) == 2
    vosctl("send", "server", "shown", "--nul").ok()
    eventually(lambda: found(watching, "request", "shown"))
    assert found(watching, "request", "hidden") is None


def test_a_name_that_nobody_has_is_refused(vosctl, peer):
    peer("server")
    assert "serve" in vosctl("monitor", "serve").failed()
    assert taps() == []


def test_without_payload_only_lengths_are_seen(vosctl, peer, background, binary):
    peer("server")
    watching = background(binary, "--json", "monitor", "--no-payload")
    eventually(lambda: vosctl("send", "server", "secret", "--nul").ok() and documents(watching))
    assert "secret" not in watching.output
    assert (documents(watching)[0]["bytes"], documents(watching)[0]["copiedBytes"]) == (7, 0)


def test_it_ends_after_a_number_of_messages(vosctl, peer, background, binary):
    peer("server")
    watching = background(binary, "--json", "monitor", "-c", "3")
    eventually(lambda: vosctl("send", "server", "hello").ok() and watching.process.poll() is not None)
    assert watching.finish() == 0 and len(documents(watching)) == 3


def test_control_characters_of_messages_do_not_reach_the_terminal(vosctl, peer, monitor):
    peer("server")
    watching = monitor("server", json_lines=False)
    vosctl("send", "server", "--hex", "1b5b316d").ok()
    eventually(lambda: "1b5b316d" in watching.output)
    assert "\x1b" not in watching.output


def read(vosctl, content, *arguments):
    pathlib.Path("/tmp/messages.pcapng").write_bytes(content)
    lines = vosctl("--json", "monitor", "-r", "/tmp/messages.pcapng", *arguments).ok().stdout.splitlines()
    return [json.loads(line) for line in lines]


NAMES = [started(100, b"oltd"), started(200, b"mgmtd")]


def test_a_capture_is_read_with_names_times_and_codes(vosctl):
    request, answer = read(vosctl, capture(*NAMES, *exchange(code=-4)))
    assert (request["from"], request["to"], request["text"], request["kind"]) == ("mgmtd", "oltd", "show", "request")
    assert (answer["from"], answer["to"], answer["text"], answer["code"]) == ("oltd", "mgmtd", "on", -4)
    assert (answer["queuedMs"], answer["servedMs"], answer["totalMs"]) == (1.0, 20.0, 21.5)


def test_the_copies_of_both_sides_may_come_in_any_order(vosctl):
    copies = exchange()
    for order in ([1, 0, 3, 2], [1, 0, 2, 3], [0, 1, 3, 2]):
        found = read(vosctl, capture(*NAMES, *(copies[index] for index in order)))
        assert [each["kind"] for each in found] == ["request", "answer"]
        assert found[1]["totalMs"] == 21.5


def test_a_path_that_is_used_again_is_not_mixed_up(vosctl):
    copies = [copy for at in range(5) for copy in exchange(at=at * 100_000, queued=100, served=1000 * (at + 1), back=10)]
    found = read(vosctl, capture(*NAMES, *copies))
    assert [each["servedMs"] for each in found if each["kind"] == "answer"] == [0.001, 0.002, 0.003, 0.004, 0.005]


def test_what_only_one_side_has_seen_is_shown_with_what_is_known(vosctl):
    request, answer = read(vosctl, capture(*NAMES, *exchange()[1:3]))
    assert (request["fromPid"], request["toPid"]) == (None, 100)
    assert (answer["queuedMs"], answer["servedMs"], answer["totalMs"]) == (None, 20.0, None)


def test_an_answer_that_did_not_come_tells_how_long_it_was_waited_for(vosctl):
    copies = exchange()
    late = Copy(RECEIVED, ANSWER, REQUESTER, pid=200, tid=200, own=copies[0].own, peer=copies[0].peer, result=-1, errno=11,
                moment=3_000_000_000)
    request, answer = read(vosctl, capture(*NAMES, *copies[:2], late))
    assert (answer["error"], answer["totalMs"], answer["code"], answer["kind"]) == ("EAGAIN", 3000.0, None, "answer")
    assert len(read(vosctl, capture(*NAMES, *copies[:2], late), "--slower", "2s")) == 1


def test_a_request_that_could_not_be_sent_is_an_error(vosctl):
    copies = [Copy(SENT, REQUEST, REQUESTER, own=b"/tmp/vos/clientp1t2v3", peer=b"/tmp/vos/nobody", message=message(b"hi"), result=-1,
                   errno=2)]
    assert [(each["error"], each["to"]) for each in read(vosctl, capture(*copies))] == [("ENOENT", "nobody")]


def test_messages_without_paths_are_joined_as_well(vosctl):
    word = message(type=5, no_return=1, values=(4, 0, 0, 0))
    copies = [Copy(SENT, ONE_WAY, 8, pid=200, peer=b"/tmp/vos/oltd", message=word, moment=10),
              Copy(RECEIVED, ONE_WAY, 1, pid=100, own=b"/tmp/vos/oltd", message=word, moment=20)]
    found = read(vosctl, capture(*NAMES, *copies))
    assert [(each["from"], each["to"], each["type"]) for each in found] == [("mgmtd", "oltd", "debug")]


def test_a_moment_far_in_the_future_keeps_no_other_message_back(vosctl, peer, background, binary):
    forged = Copy(SENT, REQUEST, pid=4000000, moment=10**18, message=message(b"forged"), own=b"/tmp/vos/clientp1t2v3", peer=b"/tmp/vos/x")
    peer("server")
    watching = background(binary, "--json", "monitor")
    tap = eventually(taps)[0]
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        eventually(lambda: sendto(sender, forged.bytes(), tap))
    eventually(lambda: vosctl("send", "server", "behind it", "--nul").ok() and found(watching, "request", "behind it"))
    assert found(watching, "request", "forged")["to"] == "x"


def test_a_message_of_the_last_of_all_moments_is_shown_at_the_end(vosctl):
    forged = bytearray(exchange()[0].bytes())
    forged[56:64] = b"\xff" * 8
    assert [each["text"] for each in read(vosctl, capture(*NAMES, *exchange(), bytes(forged)))] == ["show", "on", "show"]


def sendto(sender, datagram, path):
    try:
        return sender.sendto(datagram, str(path))
    except OSError:
        return 0


def test_losses_are_told(vosctl):
    copies = exchange()
    copies[2].lost = 7
    lines = read(vosctl, capture(*NAMES, *copies))
    assert [line for line in lines if "lost" in line] == [{"lost": 7, "name": "oltd"}]


def losses(vosctl, *copies):
    return [line["lost"] for line in read(vosctl, capture(*NAMES, *copies)) if "lost" in line]


def test_a_loss_is_told_once_also_when_copies_overtake_each_other(vosctl):
    copies = exchange() + exchange(at=10**9)
    for copy, lost in zip(copies, (0, 7, 6, 7, 7, 7, 7, 8)):
        copy.pid, copy.lost = 100, lost
    assert sum(losses(vosctl, *copies)) == 8


def test_a_tap_that_begins_again_counts_its_losses_from_none(vosctl):
    copies = exchange() + [started(100, b"oltd")] + exchange(at=10**9)
    for copy, lost in zip(copies, (0, 7, 7, 7, 0, 0, 3, 3, 3)):
        copy.pid, copy.lost = 100, lost
    assert sum(losses(vosctl, *copies)) == 10


@pytest.mark.parametrize("arguments, count", [
    (["--slower", "10ms"], 1), (["--slower", "30ms"], 0), (["--slower", "21499us"], 1), (["--slower", "0.0216s"], 0),
    (["--code", "-4"], 1), (["--code", "4"], 0), (["--kind", "answer"], 1), (["--kind", "object"], 0), (["--kind", "app"], 2),
    (["--text", "sho"], 1), (["--text", "nothing"], 0), (["oltd"], 2), (["/any/mgmtd"], 2), (["nobody"], 0), (["-c", "1"], 1)])
def test_each_filter_of_a_capture(vosctl, arguments, count):
    assert len(read(vosctl, capture(*NAMES, *exchange(code=-4)), *arguments)) == count


@pytest.mark.parametrize("arguments", [["--slower", "soon"], ["--slower", "-1ms"], ["--slower", "1h"], ["--slower", "inf"],
                                       ["--slower", "1e300s"], ["--code", "x"], ["--kind", "letter"], ["--text", ""], ["-r", ""],
                                       ["-c", "0"], ["--bytes", "1", "--no-payload"]])
def test_a_wrong_option_is_refused(vosctl, arguments):
    vosctl("monitor", *arguments).failed(2)


def failure(vosctl, content):
    pathlib.Path("/tmp/messages.pcapng").write_bytes(content)
    return vosctl("monitor", "-r", "/tmp/messages.pcapng").failed()


def test_files_that_are_no_captures_are_refused(vosctl):
    assert "is empty" in failure(vosctl, b"")
    assert "is no capture file" in failure(vosctl, b"#!/bin/sh\nexit 0\n")
    foreign = bytes.fromhex("0a0d0d0a0000001c1a2b3c4d00010000ffffffffffffffff0000001c")
    assert "other byte order" in failure(vosctl, foreign)
    assert "cannot be opened" in vosctl("monitor", "-r", "/tmp/nothing").failed()
    assert "cannot be read" in vosctl("monitor", "-r", "/tmp").failed()


@pytest.mark.parametrize("length", [0, 8, 11, 13, 0x7FFFFFFF, 0xFFFFFFFC])
def test_a_block_with_a_length_that_lies_is_refused(vosctl, length):
    broken = bytearray(packet(b"x" * 16))
    broken[4:8] = length.to_bytes(4, "little")
    assert "is damaged" in failure(vosctl, section() + interface() + bytes(broken))


def test_a_file_that_is_cut_shows_what_is_whole_and_says_so(vosctl):
    whole = capture(*NAMES, *exchange())
    pathlib.Path("/tmp/messages.pcapng").write_bytes(whole[:-10])
    done = vosctl("--json", "monitor", "-r", "/tmp/messages.pcapng")
    assert done.status == 1 and "is cut off" in done.stderr and len(done.stdout.splitlines()) == 2


def test_blocks_of_others_are_left_out(vosctl):
    foreign = block(0x0BAD, b"anything") + block(6, b"short") + packet(b"no copy")
    content = section() + interface(1) + packet(NAMES[0].bytes()) + section() + foreign + interface() + foreign
    assert len(read(vosctl, content + capture(*NAMES, *exchange()))) == 2


def test_a_packet_that_says_it_is_longer_than_its_block_is_cut(vosctl):
    lying = bytearray(packet(exchange()[0].bytes()))
    lying[20:24] = b"\xff\xff\xff\xff"
    assert read(vosctl, section() + interface() + bytes(lying))[0]["text"] is not None


def test_a_capture_from_standard_input(vosctl):
    done = vosctl("--json", "monitor", "-r", "-", stdin=capture(*NAMES, *exchange())).ok()
    assert len(done.stdout.splitlines()) == 2


def test_any_bytes_do_no_harm(vosctl):
    numbers = random.Random(18)
    whole = exchange()[0].bytes()
    datagrams = []
    for _ in range(500):
        datagram = bytearray(whole[:numbers.randrange(len(whole) + 1)])
        for _ in range(numbers.randrange(8) if len(datagram) > 8 else 0):
            datagram[numbers.randrange(8, len(datagram))] = numbers.randrange(256)
        datagrams.append(bytes(datagram))
    content = capture(*datagrams, *exchange())
    assert read(vosctl, content) != []
    pathlib.Path("/tmp/messages.pcapng").write_bytes(content)
    assert "\x1b" not in vosctl("monitor", "-r", "/tmp/messages.pcapng").ok().stdout
    for _ in range(20):
        broken = bytearray(content)
        for _ in range(8):
            broken[numbers.randrange(len(broken))] = numbers.randrange(256)
        pathlib.Path("/tmp/messages.pcapng").write_bytes(broken)
        assert vosctl("monitor", "-r", "/tmp/messages.pcapng").status in (0, 1)
