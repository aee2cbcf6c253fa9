# SPDX-License-Identifier: MIT
"""vosctl top: the traffic of each name."""
import json
import os
import pty
import signal
import subprocess

import pytest
from conftest import eventually
from test_monitor import peer, sockets, taps  # noqa: F401 (a fixture)


def intervals(process):
    return [json.loads(line) for line in process.output.splitlines(keepends=True) if line.endswith("\n")]


def line_of(interval, name):
    return next(each for each in interval["names"] if each["name"] == name)


def test_an_interval_has_rates_times_errors_and_the_asker(vosctl, peer, background, binary):
    peer("server"), peer("client")
    watching = background(binary, "--json", "top", "--interval", "300")

    def seen():
        vosctl("send", "client", "ask server slow 20", "--nul").ok()
        vosctl("send", "client", "ask server code -4", "--nul").ok()
        return [each for each in intervals(watching) if any(line["name"] == "server" and line["errors"] > 0 and line["p99Ms"] and
                                                            line["longestMs"] >= 20 for line in each["names"])]

    interval = eventually(seen)[0]
    server, client = line_of(interval, "server"), line_of(interval, "client")
    assert server["asker"] == "client" and server["messagesInPerSecond"] > 0 and server["messagesOutPerSecond"] > 0
    assert server["bytesInPerSecond"] == pytest.approx(256 * server["messagesInPerSecond"])
    assert server["p50Ms"] <= server["p99Ms"] <= server["longestMs"]
    assert server["queuedAtLeast"] <= 1  # the interval may end while a request is being answered
    assert client["messagesOutPerSecond"] > 0 and client["asker"] == "vosctl" or client["asker"].startswith("pid ")
    assert 0.3 <= interval["seconds"] and interval["lost"] == 0
    assert watching.signal(signal.SIGINT).finish() == 0 and taps() == []


def test_once_ends_after_one_interval_and_names_who_is_silent(vosctl, peer):
    server = peer("server")
    document = vosctl("--json", "top", "--once", "--interval", "50").ok().json
    assert [line["name"] for line in document["names"]] == ["server"]
    line = document["names"][0]
    assert (line["messagesInPerSecond"], line["p50Ms"], line["asker"], line["errors"]) == (0.0, None, None, 0)
    assert taps() == []
    eventually(lambda: sockets(server.pid) == 2)


def test_the_text_fits_80_columns(vosctl, peer):
    peer("a-server-with-a-very-long-name"), peer("client", "a-server-with-a-very-long-name")
    lines = vosctl("top", "--once", "--interval", "50").ok().stdout.splitlines()
    assert lines[0].split() == ["NAME", "IN/S", "OUT/S", "B", "IN", "B", "OUT", "QUE", "P50", "P99", "MAX", "ERR", "ASKER"]
    assert all(len(line) <= 80 for line in lines) and lines[1].startswith("a-server-~ ")


def test_columns_sort_the_lines(vosctl, peer):
    peer("b"), peer("a"), peer("c")

    def names(column):
        document = vosctl("--json", "top", "--once", "--interval", "50", "--sort", column).ok().json
        return [line["name"] for line in document["names"]]

    for column in ("name", "in", "out", "bytes-in", "bytes-out", "queue", "p50", "p99", "longest", "errors", "asker"):
        # Equal ones by name. What the tool itself asks for may still wait in a queue, so not each look finds them equal.
        eventually(lambda: names(column) == ["a", "b", "c"])
    assert "COLUMN" in vosctl("top", "--help").ok().stdout
    vosctl("top", "--sort", "colour").failed(2)


def test_the_largest_comes_first(vosctl, peer, background, binary):
    peer("a"), peer("z")
    watching = background(binary, "--json", "top", "--interval", "100", "--sort", "longest")
    eventually(lambda: vosctl("send", "z", "slow 5", "--nul").ok() and [
        each for each in intervals(watching) if each["names"][0]["name"] == "z"])


def test_only_named_processes_are_watched(vosctl, peer):
    peer("a"), peer("b")
    assert [line["name"] for line in vosctl("--json", "top", "--once", "--interval", "50", "b").ok().json["names"]] == ["b"]
    assert "nobody" in vosctl("top", "nobody").failed()


def test_a_terminal_shows_the_last_table_only(peer, binary):
    peer("server")
    child, terminal = pty.fork()
    if child == 0:
        os.execve(binary, [binary, "top", "--interval", "50"], {**os.environ, "TERM": "xterm"})
    output = b""
    while output.count(b"server") < 3:
        output += os.read(terminal, 4096)
    os.kill(child, signal.SIGINT)
    assert os.waitpid(child, 0)[1] == 0
    os.close(terminal)
    assert output.count(b"\x1b[H\x1b[J") >= 2


def test_a_pipe_gets_an_empty_line_between_two_tables(vosctl, peer, background, binary):
    peer("server")
    watching = background(binary, "top", "--interval", "50")
    eventually(lambda: watching.output.count("NAME") >= 2)
    assert "\n\nNAME" in watching.output and "\x1b" not in watching.output


@pytest.mark.parametrize("arguments", [["--interval", "1"], ["--interval", "x"], [""]])
def test_a_wrong_argument_is_refused(vosctl, arguments):
    vosctl("top", *arguments).failed(2)


def test_a_reader_that_is_gone_ends_it(binary, peer):
    peer("server")
    watching = subprocess.Popen([binary, "top", "--interval", "50"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    watching.stdout.readline()
    watching.stdout.close()
    assert watching.wait(60) == -signal.SIGPIPE and watching.stderr.read() == b""
    watching.stderr.close()
    eventually(lambda: taps() == [])
