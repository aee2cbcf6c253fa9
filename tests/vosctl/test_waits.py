# SPDX-License-Identifier: MIT
"""vosctl waits: who waits for whom, for how long, and in circles."""
import os
import pathlib
import signal
import subprocess

import pytest
from conftest import SOCKETS, eventually
from test_ps import without_diagnostics


@pytest.fixture
def peer(background):
    def start(name, *arguments):
        return background(pathlib.Path(os.environ["PROGRAMS"]) / "peer", name, *arguments, ready="ready")

    return start


@pytest.fixture
def ask(background, binary):
    """Sends a text in the background; it is not waited for."""
    return lambda name, text: background(binary, "send", name, text, "--nul", "--timeout", "0")


def waits(vosctl, *arguments):
    return vosctl("--json", "waits", *arguments).ok().json


def edges(document):
    return sorted((each["from"]["name"] or each["from"]["program"], each["to"]["name"], each["phase"]) for each in document["waits"])


def test_when_nobody_waits_it_says_so(vosctl, peer):
    peer("idle")
    assert vosctl("waits").ok().stdout == "Nobody waits for an answer.\n"
    assert waits(vosctl) == {"waits": [], "circles": []}


def test_a_chain_is_a_tree_with_the_one_that_waits_for_nobody_above(vosctl, peer, ask):
    last, middle = peer("last"), peer("middle")
    asker = ask("middle", "ask last slow 60000")
    served = [("middle", "last", "served"), ("vosctl", "middle", "served")]
    found = eventually(lambda: edges(all := waits(vosctl)) == served and all)
    assert found["circles"] == []
    first = [each for each in found["waits"] if each["to"]["name"] == "last"][0]
    assert first["from"] == {"name": "middle", "pid": middle.pid, "program": "peer", "thread": middle.pid}
    assert first["to"] == {"name": "last", "pid": last.pid, "program": "peer"} and first["path"] == "/tmp/vos/last"
    assert first["requester"].startswith(f"/tmp/vos/clientp{middle.pid}t")
    lines = vosctl("waits").ok().stdout.splitlines()
    assert lines[0] == f"last (pid {last.pid})" and len(lines) == 3
    assert lines[1].startswith(f"  <- middle (pid {middle.pid})  ") and lines[1].endswith(" s, being served")
    assert lines[2].startswith(f"    <- vosctl (pid {asker.pid})  ")


def test_the_time_of_a_wait_grows(vosctl, peer, ask):
    peer("last")
    ask("last", "slow 60000")
    first = eventually(lambda: waits(vosctl)["waits"])[0]["waitedMs"]
    assert eventually(lambda: waits(vosctl)["waits"][0]["waitedMs"] > first + 50)


def test_a_request_behind_another_is_queued(vosctl, peer, ask):
    peer("last")
    ask("last", "slow 60000")
    eventually(lambda: edges(waits(vosctl)) == [("vosctl", "last", "served")])
    ask("last", "hello")
    eventually(lambda: edges(waits(vosctl)) == [("vosctl", "last", "queued"), ("vosctl", "last", "served")])
    assert "in the queue" in vosctl("waits").ok().stdout


def test_a_circle_of_processes_with_one_thread_is_certain(vosctl, peer, ask):
    one, other = peer("one"), peer("other")
    ask("one", "ask other ask one")
    found = eventually(lambda: (all := waits(vosctl))["circles"] and all)
    assert len(found["circles"]) == 1 and found["circles"][0]["certain"] is True
    assert {each["pid"] for each in found["circles"][0]["processes"]} == {one.pid, other.pid}
    lines = vosctl("waits").ok().stdout.splitlines()
    assert lines[0].startswith("CIRCLE: ") and lines[0].count(" waits for ") == 2
    assert any("vosctl" in line for line in lines)  # who waits for one of them is below
    assert "\033[31m" in vosctl("--color", "always", "waits").ok().stdout


def test_a_process_that_asks_itself_is_a_circle(vosctl, peer, ask):
    peer("self")
    ask("self", "ask self")
    found = eventually(lambda: (all := waits(vosctl))["circles"] and all)
    assert [each["name"] for each in found["circles"][0]["processes"]] == ["self"]


def test_a_circle_through_a_process_with_another_thread_is_possible_only(vosctl, peer, ask):
    peer("one"), peer("other")
    ask("other", "slow 3000")
    eventually(lambda: edges(waits(vosctl)) == [("vosctl", "other", "served")])
    ask("other", "ask one slow 60000")
    eventually(lambda: ("vosctl", "other", "queued") in edges(waits(vosctl)))
    ask("one", "thread other")  # behind it in the queue
    found = eventually(lambda: (all := waits(vosctl))["circles"] and all)
    assert found["circles"][0]["certain"] is False
    assert vosctl("waits").ok().stdout.startswith("Possible circle: ")


def test_a_name_limits_it_to_what_concerns_that_process(vosctl, peer, ask):
    peer("last"), peer("middle"), peer("apart")
    ask("middle", "ask last slow 60000")
    ask("apart", "slow 60000")
    eventually(lambda: len(waits(vosctl)["waits"]) == 3)
    assert edges(waits(vosctl, "middle")) == [("middle", "last", "served"), ("vosctl", "middle", "served")]
    assert edges(waits(vosctl, "apart")) == [("vosctl", "apart", "served")]
    assert "apart" not in vosctl("waits", "last").ok().stdout
    assert "nobody" in vosctl("waits", "nobody").failed()


def test_a_stopped_process_keeps_its_requesters_in_the_queue(vosctl, peer, ask):
    stopped = peer("stopped").signal(signal.SIGSTOP)
    ask("stopped", "hello")
    assert eventually(lambda: edges(waits(vosctl))) == [("vosctl", "stopped", "queued")]
    stopped.signal(signal.SIGCONT)
    eventually(lambda: waits(vosctl)["waits"] == [])


def test_paths_that_are_left_behind_are_no_waits(vosctl, stale):
    stale("clientp1t2v3")
    stale("gone")
    assert waits(vosctl) == {"waits": [], "circles": []}


def test_without_the_diagnostics_it_fails_and_says_why(binary, peer):
    peer("idle")
    done = subprocess.run([binary, "waits"], stderr=subprocess.PIPE, check=False, preexec_fn=without_diagnostics)
    assert done.returncode == 1 and b"CONFIG_UNIX_DIAG" in done.stderr
    assert SOCKETS.is_dir()
