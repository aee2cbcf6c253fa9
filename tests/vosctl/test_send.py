# SPDX-License-Identifier: MIT
"""vosctl send and ping."""
import os
import re
import signal
import socket
import subprocess

import pytest
from conftest import PATIENCE, SOCKETS, eventually


def answer(vosctl, *arguments, **options):
    return vosctl("--json", "send", *arguments, **options).ok().json


def test_the_answer_is_shown_with_its_code_and_its_time(vosctl, agent):
    agent()
    document = answer(vosctl, "agent", "hello")
    assert 0 < document.pop("roundTripMs") < 10000
    assert document == {"name": "agent", "socket": "normal", "sentBytes": 5, "code": -3, "bytes": 5, "text": "hello",
                        "hex": "68656c6c6f"}


def test_as_text_too(vosctl, agent):
    agent()
    lines = vosctl("send", "agent", "hello").ok().stdout.splitlines()
    assert lines[:3] == ["name        agent", "socket      normal", "sent        5 bytes"]
    assert re.fullmatch(r"round trip  \d+\.\d{3} ms", lines[3])
    assert lines[4:] == ["answer      5 bytes", "hello", "answer's code  -3"]


def test_lines_of_a_dump_that_repeat_are_folded_and_the_last_one_is_printed(vosctl, agent):
    agent()
    lines = vosctl("send", "agent", "--hex", "ff" * 16 + "00" * 64).ok().stdout.splitlines()
    dump = [line.split("  ")[0] for line in lines[5:-1]]
    assert dump == ["000000" + " ff" * 16, "000010" + " 00" * 16, "*", "000040" + " 00" * 16]
    assert lines[-1] == "answer's code  -3"


def test_the_code_of_the_answer_is_the_exit_status_when_asked_for(vosctl, agent):
    agent()
    vosctl("send", "agent", "words", "--status").ok()  # code 0
    vosctl("send", "agent", "x").ok()
    outcome = vosctl("--json", "send", "agent", "x", "--status")
    assert "agent answered with code -3" in outcome.failed()
    assert outcome.json["text"] == "x"


def test_a_thread_channel_is_a_name(vosctl, agent):
    agent()
    document = answer(vosctl, "agent3", "x")
    assert (document["text"], document["code"]) == ("thread", 5)


def test_the_high_priority_socket(vosctl, agent):
    agent()
    document = answer(vosctl, "agent", "--high", "x")
    assert (document["socket"], document["text"]) == ("high", "x")


def test_hexadecimal_digits(vosctl, agent):
    agent()
    assert answer(vosctl, "agent", "--hex", "00 fF:41")["hex"] == "00ff41"
    assert "000000 00 ff 41 " in vosctl("send", "agent", "--hex", "00ff41").ok().stdout


@pytest.mark.parametrize("text", ["0", "zz", "00 f", "0x00", "00 ff é"])
def test_bad_hexadecimal_digits_are_a_usage_error(vosctl, agent, text):
    agent()
    assert "hexadecimal" in vosctl("send", "agent", "--hex", text).failed(2)


def test_a_nul_behind_the_text(vosctl, agent):
    agent()
    assert answer(vosctl, "agent", "--nul", "hello")["hex"] == "68656c6c6f00"


def test_an_empty_message(vosctl, agent):
    agent()
    assert answer(vosctl, "agent")["bytes"] == 0


@pytest.mark.parametrize("size", [1, 4096, 64536, 64537, 64567, 64568])
def test_a_file_of_each_size(vosctl, agent, tmp_path, size):
    agent()
    content = bytes(index * 7 % 251 for index in range(size))
    (tmp_path / "file").write_bytes(content)
    assert answer(vosctl, "agent", "--high", "--file", tmp_path / "file")["hex"] == content.hex()


def test_standard_input(vosctl, agent):
    agent()
    assert answer(vosctl, "agent", "--file", "-", stdin=b"\x00\x01")["hex"] == "0001"


def test_a_file_that_is_too_large_is_refused(vosctl, agent, tmp_path):
    agent()
    (tmp_path / "file").write_bytes(bytes(64569))
    assert "has 64569 bytes, and at most 64568 are taken" in vosctl("send", "agent", "--file", tmp_path / "file").failed()


def test_a_file_without_an_end_is_read_up_to_the_limit_only(vosctl, agent):
    agent()
    assert "/dev/zero has more than 64568 bytes" in vosctl("send", "agent", "--file", "/dev/zero").failed()


def test_an_empty_file_name_is_a_usage_error_and_sends_nothing(vosctl, agent, background, binary):
    box = background(binary, "--json", "listen", "box", name="box")
    assert "FILE is empty" in vosctl("send", "box", "--file", "").failed(2)
    vosctl("send", "box", "after").ok()
    box.await_output("after")
    assert box.output.count("\n") == 1


def test_a_directory_instead_of_a_file(vosctl, agent, tmp_path):
    agent()
    assert f"{tmp_path} is a directory" in vosctl("send", "agent", "--file", tmp_path).failed()


def test_a_file_that_is_not_there(vosctl, agent):
    agent()
    assert "/nowhere cannot be opened: No such file" in vosctl("send", "agent", "--file", "/nowhere").failed()


def test_text_and_file_together_are_a_usage_error(vosctl):
    vosctl("send", "agent", "text", "--file", "/dev/null").failed(2)


def test_without_an_answer(vosctl, agent):
    agent("quiet", "silent")
    document = answer(vosctl, "quiet", "--no-wait", "xyz")
    assert document == {"name": "quiet", "socket": "normal", "sentBytes": 3}


def test_an_unknown_name(vosctl):
    assert "no process is reachable as nobody: there is no /tmp/vos/nobody" in vosctl("send", "nobody", "x").failed()


def test_a_stale_name(vosctl, stale):
    stale("old")
    assert "nobody receives under old" in vosctl("send", "old", "x").failed()


def test_a_name_that_is_too_long(vosctl):
    name = "n" * 99
    assert "its path has 108 characters and an address has room for 107" in vosctl("send", name, "x").failed()


def test_the_longest_name(vosctl, background, binary):
    name = "n" * 94  # with "High" behind it
    background(binary, "listen", name, name=name)
    assert answer(vosctl, name, "--high", "x")["text"] == "x"


def test_an_empty_name_is_a_usage_error(vosctl):
    assert "the name is empty" in vosctl("send", "", "x").failed(2)
    assert "the name is empty" in vosctl("send", "directory/", "x").failed(2)


def test_only_the_part_after_the_last_slash_counts(vosctl, agent):
    agent()
    assert answer(vosctl, "/usr/bin/agent", "x")["text"] == "x"


@pytest.mark.parametrize("kind", ["file", "directory", "stream"])
def test_what_is_no_message_socket(vosctl, kind):
    SOCKETS.mkdir()
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as stream:
        if kind == "file":
            (SOCKETS / "thing").write_text("")
        elif kind == "directory":
            (SOCKETS / "thing").mkdir()
        else:
            stream.bind("/tmp/vos/thing")
            stream.listen()
        assert "/tmp/vos/thing is not a message socket" in vosctl("send", "thing", "x").failed()


def test_a_process_that_does_not_answer(vosctl, agent):
    agent("quiet", "silent")
    outcome = vosctl("send", "quiet", "x", "--timeout", "50")
    assert "no answer from quiet within 50 ms" in outcome.failed()
    assert list(SOCKETS.glob("client*")) == []


def test_a_full_queue_is_reported(vosctl, agent):
    agent("mute", "mute")
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.setblocking(False)
        with pytest.raises(BlockingIOError):
            while True:
                sender.sendto(b"x", "/tmp/vos/mute")
        assert "the queue of mute is full" in vosctl("send", "mute", "x", "--timeout", "50").failed()


@pytest.mark.parametrize("timeout", ["-1", "x", "4294967296"])
def test_a_bad_timeout_is_a_usage_error(vosctl, timeout):
    vosctl("send", "agent", "x", "--timeout", timeout).failed(2)


def test_a_number_that_begins_with_zero_is_decimal(vosctl, agent):
    agent()
    assert vosctl("--json", "ping", "agent", "-c", "010").ok().json["sent"] == 10
    assert "within 100 ms" in vosctl("send", agent("quiet", "silent") and "quiet", "--timeout", "0100").failed()
    vosctl("smd", "agent", "010").ok()
    assert answer(vosctl, "agent", "words")["text"] == "2 10"


def test_a_closed_pipe_also_removes_the_path_of_the_request(agent, binary, tmp_path):
    agent()
    (tmp_path / "large").write_bytes(bytes(60000))
    for _ in range(3):
        reader, writer = os.pipe()
        os.close(reader)
        sent = subprocess.run([binary, "send", "agent", "--file", tmp_path / "large"], stdout=writer, stderr=subprocess.PIPE,
                              timeout=PATIENCE, check=False)
        os.close(writer)
        assert (sent.returncode, sent.stderr) == (-signal.SIGPIPE, b"")
        assert list(SOCKETS.glob("client*")) == []


def test_a_mistyped_name_is_guessed(vosctl, agent):
    agent("oltd")
    assert "; did you mean oltd? list the names" in vosctl("send", "otld", "x").failed()


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_an_interrupted_request_leaves_no_path_behind(agent, background, binary, number):
    agent("quiet", "silent")
    process = background(binary, "send", "quiet", "x", "--timeout", "0")
    eventually(lambda: list(SOCKETS.glob("client*")))
    assert process.signal(number).finish() == -number
    assert list(SOCKETS.glob("client*")) == []


def test_ping_measures(vosctl, agent):
    agent()
    document = vosctl("--json", "ping", "agent", "-c", "200").ok().json
    assert (document["name"], document["sent"], document["answered"]) == ("agent", 200, 200)
    assert 0 < document["minMs"] <= document["medianMs"] <= document["p99Ms"] <= document["maxMs"]


def test_ping_as_text(vosctl, agent):
    agent()
    titles = [line.split("  ")[0] for line in vosctl("ping", "agent", "-c", "2", "--size", "1000").ok().stdout.splitlines()]
    assert titles == ["name", "sent", "answered", "min", "median", "p99", "max"]


def test_ping_of_a_silent_process_stops_at_the_first(vosctl, agent):
    agent("quiet", "silent")
    assert "no answer from quiet within 50 ms" in vosctl("ping", "quiet", "-c", "1000", "--timeout", "50").failed()


def test_ping_reports_how_many_were_answered_before_one_was_not(vosctl, background, binary):
    box = background(binary, "listen", "box", "--count", "3", name="box")
    outcome = vosctl("--json", "ping", "box", "-c", "9", "--timeout", "2000")
    assert box.finish() == 0  # the fourth finds no process, or gets no answer
    outcome.failed()
    assert (outcome.json["sent"], outcome.json["answered"]) == (4, 3)
    assert outcome.json["maxMs"] > 0


@pytest.mark.parametrize("count", ["0", "-1", "x"])
def test_a_bad_count_is_a_usage_error(vosctl, count):
    vosctl("ping", "agent", "-c", count).failed(2)
