# SPDX-License-Identifier: MIT
"""vosctl wait."""
import signal

from conftest import SOCKETS


def test_a_name_that_is_reachable_is_not_waited_for(vosctl, agent):
    agent("oltd")
    document = vosctl("--json", "wait", "oltd").ok().json
    assert document.pop("waitedMs") >= 0
    assert document == {"name": "oltd", "reachable": True}
    assert vosctl("wait", "oltd", "--high").ok().stdout == ""


def test_it_ends_when_the_name_becomes_reachable(vosctl, agent, background, binary):
    waiting = background(binary, "wait", "oltd", "--timeout", "0")
    agent("oltd")
    assert waiting.finish() == 0


def test_it_ends_when_the_process_has_ended_also_if_its_path_is_left_behind(agent, background, binary):
    process = agent("oltd")
    waiting = background(binary, "wait", "oltd", "--gone", "--timeout", "0")
    process.stop()
    assert waiting.finish() == 0
    assert (SOCKETS / "oltd").exists()


def test_a_name_that_is_not_reachable_is_gone_at_once(vosctl):
    vosctl("wait", "nobody", "--gone").ok()


def test_a_time_out_says_what_did_not_happen(vosctl, agent, stale):
    agent("oltd")
    stale("old")
    assert "after 30 ms no process is reachable as nobody: there is no /tmp/vos/nobody;" in vosctl(
        "wait", "nobody", "--timeout", "30").failed()
    assert "nobody receives under old" in vosctl("wait", "old", "--timeout", "30").failed()
    assert "oltd has not gone within 30 ms" in vosctl("wait", "oltd", "--gone", "--timeout", "30").failed()


def test_a_name_that_can_never_be_reachable_is_refused_at_once(vosctl):
    assert "too long" in vosctl("wait", "n" * 200, "--timeout", "0").failed()


def test_a_signal_ends_it(background, binary):
    waiting = background(binary, "wait", "nobody", "--timeout", "0")
    assert waiting.signal(signal.SIGTERM).finish() == -signal.SIGTERM
