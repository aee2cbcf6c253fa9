# SPDX-License-Identifier: MIT
"""vosctl config-of, object, debug and smd."""
import os
import pty
import signal
import socket
import subprocess

import pytest
from conftest import SOCKETS, eventually


def words(vosctl, name="agent"):
    return vosctl("--json", "send", name, "words").ok().json["text"]


def test_the_running_configuration(vosctl, agent):
    agent()
    assert vosctl("config-of", "agent").ok().stdout == "first 0\nsecond 0\n"
    assert vosctl("--json", "config-of", "agent", "--arg1", "7", "--arg2", "0x10").ok().json == {
        "name": "agent", "bytes": 18, "text": "first 7\nsecond 16\n", "hex": b"first 7\nsecond 16\n".hex()}


def test_a_builder_that_refuses(vosctl, agent):
    agent()
    assert "agent refused to report its running configuration with code 42" in vosctl(
        "config-of", "agent", "--arg1", "42").failed()


def test_a_process_without_a_builder(vosctl, agent):
    agent("simple", "plain")
    assert "simple has no running configuration to report" in vosctl("config-of", "simple").failed()


@pytest.mark.parametrize("command", [["config-of"], ["object", "OBJECT"], ["debug"], ["smd", "1"], ["log"]])
def test_an_unknown_and_a_stale_name(vosctl, stale, command):
    stale("old")
    stale("oldHigh")
    command, *rest = command
    assert "no process is reachable as nobody" in vosctl(command, "nobody", *rest).failed()
    assert "nobody receives under old" in vosctl(command, "old", *rest).failed()


def test_a_configuration_objects_description(vosctl, agent):
    agent()
    document = vosctl("--json", "object", "agent", "short", "--arg", "77").ok().json
    assert document == {"name": "agent", "object": "short", "out1": 77, "out2": 2, "out3": 3, "out4": 4, "out5": 5,
                        "out6": 6, "table": [100, 101, 102]}


def test_the_last_outputs_follow_a_full_table(vosctl, agent):
    agent()
    document = vosctl("--json", "object", "agent", "full").ok().json
    assert document["table"] == list(range(100, 132))
    assert [document[f"out{number}"] for number in (8, 9, 10)] == [8, 9, 10]


def test_an_object_that_is_not_there(vosctl, agent):
    agent()
    assert "agent answered about the object none with code -7 and errno 2 (No such file or directory)" in vosctl(
        "object", "agent", "none").failed()


def test_an_objects_name_that_is_too_long(vosctl, agent):
    agent()
    assert "the object's name has 70000 characters" in vosctl("object", "agent", "n" * 70000).failed()


def test_a_process_without_a_describer(vosctl, agent, background, binary):
    agent("simple", "plain")
    process = background(binary, "object", "simple", "x")
    eventually(lambda: list(SOCKETS.glob("client*")))
    assert process.signal(signal.SIGINT).finish() == -signal.SIGINT
    assert list(SOCKETS.glob("client*")) == []


@pytest.mark.parametrize("levels, word", [
    (["error"], 2), (["trace"], 6), (["event", "error"], 34), (["no-timeouts"], 3), (["none"], 0), (["4"], 4),
    (["0xFFFFFFFF"], 0xFFFFFFFF), (["38"], 38), (["none", "0x40", "trace"], 0x44)])
def test_the_debug_word_arrives(vosctl, agent, levels, word):
    agent()
    assert vosctl("--json", "debug", "agent", *levels).ok().json == {"name": "agent", "word": word}
    assert words(vosctl) == f"{word} {0x805}"


def test_a_name_alone_changes_nothing_and_says_what_can_be_set(vosctl, agent):
    agent()
    vosctl("debug", "agent", "event").ok()
    document = vosctl("--json", "debug", "agent").ok().json
    assert {level["level"]: level["word"] for level in document["levels"]} == {
        "none": 0, "error": 2, "trace": 4, "event": 32, "no-timeouts": 1}
    text = vosctl("debug", "agent").ok().stdout
    assert "Nothing is changed." in text and "0x00000020  a line per packet" in text
    assert words(vosctl) == f"34 {0x805}"


@pytest.mark.parametrize("command", [["config-of", "agent"], ["object", "agent", "short"]])
def test_a_stopped_process_is_waited_for_until_the_time_out(vosctl, agent, command):
    process = agent().signal(signal.SIGSTOP)
    try:
        assert "no answer from agent within 50 ms" in vosctl(*command, "--timeout", "50").failed()
    finally:
        process.signal(signal.SIGCONT)
    assert list(SOCKETS.glob("client*")) == []


def test_a_full_queue_is_waited_for_until_the_time_out(vosctl, agent):
    agent("mute", "mute")
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.setblocking(False)
        with pytest.raises(BlockingIOError):
            while True:
                sender.sendto(b"x", "/tmp/vos/mute")
        assert "the queue of mute is full" in vosctl("debug", "mute", "trace", "--timeout", "50").failed()


def test_a_wait_is_reported_on_a_terminal(binary, agent):
    process = agent().signal(signal.SIGSTOP)
    child, terminal = pty.fork()
    if child == 0:
        os.execv(binary, [binary, "config-of", "agent", "--timeout", "60000"])
    shown = b""
    while b"\n" not in shown:
        shown += os.read(terminal, 4096)
    process.signal(signal.SIGCONT)
    assert shown.startswith(b"Waiting for the answer of agent, at most 60000 ms; Ctrl-C ends it")
    os.waitpid(child, 0)
    os.close(terminal)


def test_a_configuration_that_is_not_utf8_is_printed_without_loss(vosctl, agent):
    agent()
    document = vosctl("--json", "config-of", "agent", "--arg1", "43").ok().json
    assert document == {"name": "agent", "bytes": 8, "text": "pw \\xFF\\xFE\x1b[m", "hex": b"pw \xff\xfe\x1b[m".hex()}


def test_a_configuration_is_escaped_on_a_terminal_and_unchanged_elsewhere(binary, agent):
    agent()
    piped = subprocess.run([binary, "config-of", "agent", "--arg1", "43"], stdout=subprocess.PIPE, check=True)
    assert piped.stdout == b"pw \xff\xfe\x1b[m"
    child, terminal = pty.fork()
    if child == 0:
        os.execv(binary, [binary, "config-of", "agent", "--arg1", "43"])
    assert os.read(terminal, 4096) == b"pw \\xFF\\xFE\\x1B[m"
    os.waitpid(child, 0)
    os.close(terminal)


@pytest.mark.parametrize("level", ["loud", "0x100000000", "-1", "0x", "", "2 "])
def test_a_bad_level_is_a_usage_error(vosctl, agent, level):
    agent()
    vosctl("debug", "agent", level).failed(2)
    assert words(vosctl) == f"2 {0x805}"


def test_the_second_debug_word_arrives(vosctl, agent):
    agent()
    assert vosctl("smd", "agent", "0xABCD").ok().stdout == "name       agent\nword sent  0x0000ABCD\n"
    assert words(vosctl) == f"2 {0xABCD}"


@pytest.mark.parametrize("word", ["error", "4294967296", "1.5"])
def test_a_bad_word_is_a_usage_error(vosctl, word):
    vosctl("smd", "agent", word).failed(2)


def test_the_word_is_required(vosctl):
    assert "WORD" in vosctl("smd", "agent").failed(2)
