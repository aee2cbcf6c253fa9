# SPDX-License-Identifier: MIT
"""vosctl listen."""
import json
import os
import signal
import subprocess

import pytest
from conftest import PATIENCE, SOCKETS


@pytest.fixture
def listen(background, binary):
    def start(*arguments, name="box"):
        return background(binary, *arguments, "listen", name, name=name)

    return start


def messages(process):
    return [json.loads(line) for line in process.output.splitlines()]


def test_messages_are_shown_and_sent_back(vosctl, listen):
    process = listen("--json")
    assert vosctl("--json", "send", "box", "hello").ok().json["text"] == "hello"
    vosctl("send", "box", "--high", "--no-wait", "--hex", "00ff").ok()
    process.await_output("00ff").signal(signal.SIGINT)
    assert process.finish() == 0
    first, second = messages(process)
    assert first.pop("from").startswith("/tmp/vos/clientp")
    assert first == {"socket": "normal", "answerWanted": True, "answered": True, "bytes": 5, "text": "hello",
                     "hex": "68656c6c6f"}
    second.pop("from")
    assert second == {"socket": "high", "answerWanted": False, "answered": False, "bytes": 2, "text": None, "hex": "00ff"}


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_it_ends_cleanly(listen, number):
    process = listen().await_output("Listening as box; Ctrl-C ends it.")
    assert process.signal(number).finish() == 0
    assert os.listdir(SOCKETS) == []


@pytest.mark.parametrize("size", [64535, 64536, 64537, 64568])
def test_the_length_of_a_large_message_is_right(vosctl, listen, size):
    process = listen("--json")
    assert vosctl("--json", "send", "box", "--file", "-", stdin=b"x" * size).ok().json["bytes"] == size
    process.await_output("\n")
    assert messages(process)[0]["bytes"] == size


def test_a_closed_pipe_takes_both_paths_along(vosctl, binary):
    listening = subprocess.Popen([binary, "listen", "box"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    listening.stdout.readline()
    listening.stdout.close()
    vosctl("send", "box", "x").ok()
    listening.wait(PATIENCE)
    listening.stderr.close()
    assert os.listdir(SOCKETS) == []


@pytest.mark.parametrize("code", ["2147483648", "-2147483649", "x", ""])
def test_a_bad_code_is_a_usage_error(vosctl, code):
    vosctl("listen", "box", "--code", code).failed(2)


def test_code_and_text_of_the_answer_can_be_given(vosctl, background, binary):
    background(binary, "listen", "box", "--code", "-7", "--answer", "no", name="box")
    document = vosctl("--json", "send", "box", "question").ok().json
    assert (document["code"], document["text"]) == (-7, "no")


def test_it_ends_after_the_count(vosctl, background, binary):
    process = background(binary, "listen", "box", "-c", "2", name="box")
    vosctl("send", "box", "one").ok()
    vosctl("send", "box", "two").ok()
    assert process.finish() == 0
    assert "normal, 3 bytes from /tmp/vos/clientp" in process.output


def test_it_obeys_debug_messages_and_goes_on(vosctl, listen):
    process = listen()
    vosctl("debug", "box", "trace").ok()
    vosctl("send", "box", "x").ok()
    assert process.signal(signal.SIGINT).finish() == 0


def test_a_running_processs_name_is_not_taken_over(vosctl, agent):
    agent()
    assert "/tmp/vos/agent belongs to a running process" in vosctl("listen", "agent").failed()
    vosctl("send", "agent", "x").ok()


def test_a_file_in_the_way_is_not_removed(vosctl):
    SOCKETS.mkdir()
    (SOCKETS / "boxHigh").write_text("precious")
    assert "/tmp/vos/boxHigh is not a socket" in vosctl("listen", "box").failed()
    assert (SOCKETS / "boxHigh").read_text() == "precious"


def test_a_stale_name_is_taken_over(vosctl, stale, listen):
    stale("box")
    listen()
    vosctl("send", "box", "x").ok()


def test_a_name_that_is_too_long(vosctl):
    assert "too long" in vosctl("listen", "n" * 95).failed()
    assert not SOCKETS.exists() or os.listdir(SOCKETS) == []


def test_a_name_taken_by_another_meanwhile_is_left_to_it(vosctl, listen, agent):
    process = listen()
    agent("box")
    assert process.signal(signal.SIGINT).finish() == 0
    vosctl("send", "box", "x").ok()
