# SPDX-License-Identifier: MIT
"""vosctl listen --script."""
import json
import os
import signal
import subprocess

import pytest
from conftest import PATIENCE, SOCKETS


@pytest.fixture
def play(background, binary, tmp_path):
    def start(text, *options):
        path = tmp_path / "script"
        path.write_text(text)
        return background(binary, *options, "listen", "box", "--script", path, name="box")

    return start


def test_a_script_is_played_to_its_end(vosctl, play):
    process = play('expect "one"\n answer 1 "first"\nexpect any high\n answer -2 echo\n', "--json")
    assert vosctl("--json", "send", "box", "one").ok().json["text"] == "first"
    answer = vosctl("--json", "send", "box", "two", "--high").ok().json
    assert (answer["code"], answer["text"]) == (-2, "two")
    assert process.finish() == 0
    first, second = [json.loads(line) for line in process.output.splitlines()]
    assert first.pop("from").startswith("/tmp/vos/clientp")
    assert first == {"socket": "normal", "type": 8, "answerWanted": True, "expected": True, "fate": "answered with 1",
                     "bytes": 3, "text": "one", "hex": "6f6e65"}
    assert second["socket"] == "high"
    assert os.listdir(SOCKETS) == []


def test_what_is_not_expected_is_told_at_the_end(vosctl, play):
    process = play('expect "one"\n answer 1\n')
    assert vosctl("--json", "send", "box", "other").ok().json["code"] == -1
    vosctl("send", "box", "one").ok()
    assert process.finish() == 1
    assert 'vosctl: unexpected: "other"; compare' in process.output


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_what_has_not_come_is_told_when_a_signal_ends_it(play, number):
    process = play('expect any repeatedly\n\nexpect "one" times 2\n').await_output("Ctrl-C ends it.")
    assert process.signal(number).finish() == 1
    assert 'did not come: line 3, "one", 2 times' in process.output
    assert os.listdir(SOCKETS) == []


def test_a_signal_ends_a_delay(vosctl, play):
    process = play("expect any\n wait 1000s\n answer 0\nexpect any\n")
    vosctl("send", "box", "x", "--no-wait").ok()
    assert process.signal(signal.SIGINT).finish() == 1


def test_a_played_process_can_die(vosctl, play):
    process = play("expect any\n die\n")
    vosctl("send", "box", "x", "--no-wait").ok()
    assert process.finish() == 0
    assert sorted(os.listdir(SOCKETS)) == ["box", "boxHigh"]
    vosctl("send", "box", "x").failed()


@pytest.mark.parametrize("text, said", [
    ("", "expects nothing"), ("expect", ":1: behind"), ("expect any\nfly\n", ':2: "fly" is not known'),
    ("expect any\nanswer \x1b[31m\n", "no code"), ("\r\n\r\n", "expects nothing")])
def test_a_script_that_cannot_be_read_is_refused(vosctl, tmp_path, text, said):
    (tmp_path / "script").write_text(text)
    line = vosctl("listen", "box", "--script", tmp_path / "script").failed()
    assert said in line and "\x1b" not in line
    assert not SOCKETS.exists()


def test_files_that_are_none(vosctl, tmp_path):
    vosctl("listen", "box", "--script", tmp_path).failed()
    vosctl("listen", "box", "--script", tmp_path / "none").failed()
    vosctl("listen", "box", "--script", "").failed()
    (tmp_path / "long").write_text("#" * (1 << 20) + "\nexpect any\n")
    vosctl("listen", "box", "--script", tmp_path / "long").failed()


@pytest.mark.parametrize("option", [["--answer", "x"], ["--count", "1"]])
def test_options_that_a_script_takes_the_place_of(vosctl, tmp_path, option):
    (tmp_path / "script").write_text("expect any\n")
    vosctl("listen", "box", "--script", tmp_path / "script", *option).failed(2)


def test_a_running_processs_name_is_not_taken_over(vosctl, agent, tmp_path):
    agent()
    (tmp_path / "script").write_text("expect any\n")
    assert "/tmp/vos/agent belongs to a running process" in vosctl("listen", "agent", "--script", tmp_path / "script").failed()
    vosctl("send", "agent", "x").ok()


def test_a_closed_pipe_takes_both_paths_along(vosctl, binary, tmp_path):
    (tmp_path / "script").write_text("expect any\n answer 0\nexpect any\n")
    with subprocess.Popen([binary, "listen", "box", "--script", tmp_path / "script"], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as listening:
        listening.stdout.readline()
        listening.stdout.close()
        vosctl("send", "box", "x").ok()
        listening.wait(PATIENCE)
    assert os.listdir(SOCKETS) == []


def test_the_script_can_come_from_standard_input(vosctl):
    assert "expects nothing" in vosctl("listen", "box", "--script", "-", stdin="# nothing\n").failed()
