# SPDX-License-Identifier: MIT
"""vosctl log: redirection, level, and that both are restored whatever ends it."""
import json
import os
import pathlib
import pty
import re
import signal
import subprocess

import pytest
from conftest import PATIENCE, eventually


def output_of(process):
    return os.readlink(f"/proc/{process.pid}/fd/1")


@pytest.fixture
def log(background, binary):
    """Attaches to the agent and waits until it prints to the terminal of vosctl."""

    def start(process, *arguments, **options):
        logging = background(binary, *arguments, **options)
        eventually(lambda: output_of(process).startswith("/dev/pts/"))
        return logging

    return start


def words(vosctl):
    return vosctl("--json", "send", "agent", "words").ok().json["text"]


def test_the_output_is_shown_and_output_and_level_are_restored(vosctl, agent, log):
    process = agent()
    before = output_of(process)
    logging = log(process, "log", "agent", "trace")
    eventually(lambda: words(vosctl) == f"6 {0x805}")
    logging.await_output(") vosMsgRecv:receive VOS_MSG_TYPE_SELF.").signal(signal.SIGINT)
    assert logging.finish() == 0
    assert output_of(process) == before
    assert words(vosctl) == f"2 {0x805}"
    assert "VOS_MSG_TYPE_SELF" not in process.output


def test_without_a_level_the_word_is_not_changed(vosctl, agent, log):
    process = agent()
    vosctl("debug", "agent", "event").ok()
    logging = log(process, "log", "agent")
    assert logging.signal(signal.SIGINT).finish() == 0
    assert words(vosctl) == f"34 {0x805}"


def test_the_level_afterwards_can_be_given(vosctl, agent, log):
    process = agent()
    logging = log(process, "log", "agent", "event", "--after", "none")
    eventually(lambda: words(vosctl) == f"34 {0x805}")
    assert logging.signal(signal.SIGINT).finish() == 0
    assert words(vosctl) == f"0 {0x805}"


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT])
def test_signals_that_end_it_restore_output_and_level(vosctl, agent, log, number):
    process = agent()
    before = output_of(process)
    logging = log(process, "log", "agent", "trace")
    eventually(lambda: words(vosctl) == f"6 {0x805}")
    assert logging.signal(number).finish() == 0
    assert output_of(process) == before
    assert words(vosctl) == f"2 {0x805}"


def test_a_kill_restores_output_and_level(vosctl, agent, log):
    process = agent()
    before = output_of(process)
    logging = log(process, "log", "agent", "trace")
    eventually(lambda: words(vosctl) == f"6 {0x805}")
    assert logging.signal(signal.SIGKILL).finish() == -signal.SIGKILL
    eventually(lambda: output_of(process) == before)
    eventually(lambda: words(vosctl) == f"2 {0x805}")


def test_a_lost_terminal_restores_output_and_level(vosctl, agent, binary):
    process = agent()
    before = output_of(process)
    child, terminal = pty.fork()
    if child == 0:
        os.execv(binary, [binary, "log", "agent", "trace"])
    eventually(lambda: output_of(process) != before)
    eventually(lambda: words(vosctl) == f"6 {0x805}")
    os.close(terminal)
    os.waitpid(child, 0)
    eventually(lambda: output_of(process) == before)
    eventually(lambda: words(vosctl) == f"2 {0x805}")


def test_a_reader_that_is_gone_ends_it(agent, binary):
    process = agent()
    before = output_of(process)
    logging = subprocess.Popen([binary, "log", "agent"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    eventually(lambda: output_of(process) != before)
    logging.stdout.close()
    logging.wait(PATIENCE)
    logging.stderr.close()
    eventually(lambda: output_of(process) == before)


def test_a_flood_of_lines_does_not_keep_the_process_redirected(vosctl, agent, log):
    process = agent()
    before = output_of(process)
    logging = log(process, "log", "agent", "trace")
    eventually(lambda: words(vosctl) == f"6 {0x805}")
    vosctl("ping", "agent", "-c", "500").ok()
    assert logging.signal(signal.SIGINT).finish() == 0
    assert output_of(process) == before
    assert logging.output.count("VOS_MSG_TYPE_SELF") >= 500


def test_lines_as_json(vosctl, agent, log):
    process = agent()
    logging = log(process, "--json", "log", "agent", "trace")
    eventually(lambda: words(vosctl) == f"6 {0x805}")
    logging.await_output("VOS_MSG_TYPE_SELF").signal(signal.SIGINT)
    assert logging.finish() == 0
    lines = [json.loads(line)["line"] for line in logging.output.splitlines()]
    assert f"agent({process.pid}) vosMsgRecv:receive VOS_MSG_TYPE_SELF." in lines


def test_the_open_line_is_shown_after_a_pause(vosctl, agent, log):
    process = agent()
    logging = log(process, "--json", "log", "agent", "event")
    eventually(lambda: words(vosctl) == f"34 {0x805}")
    vosctl("send", "agent", "say").ok()  # one line, which only the next one would end
    logging.await_output('"said"}')
    assert logging.signal(signal.SIGINT).finish() == 0


def test_lines_with_their_time(vosctl, agent, log):
    process = agent()
    logging = log(process, "log", "agent", "--time")
    vosctl("send", "agent", "say").ok()
    logging.await_output("said")
    assert re.search(r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d{4} said$", logging.output, re.M)
    assert logging.signal(signal.SIGINT).finish() == 0


def test_it_says_on_a_terminal_that_it_listens_and_how_it_ends(agent, binary):
    agent()
    child, terminal = pty.fork()
    if child == 0:
        os.execv(binary, [binary, "log", "agent"])
    assert os.read(terminal, 4096).startswith(b"Showing what agent prints from now on; Ctrl-C ends it.")
    os.kill(child, signal.SIGINT)
    assert os.waitpid(child, 0)[1] == 0
    os.close(terminal)


def test_the_end_of_the_process_ends_it(vosctl, agent, log):
    process = agent()
    logging = log(process, "log", "agent")
    vosctl("send", "agent", "--no-wait", "stop").ok()
    assert logging.finish() == 1
    assert "vosctl: agent has ended; start it again" in logging.output


def test_a_process_that_does_not_receive_is_reported(vosctl, agent):
    agent("mute", "mute")
    assert "mute did not begin to print here within 3 s" in vosctl("log", "mute").failed()


def test_a_stopped_process_is_reported_and_handles_the_messages_later(agent, log):
    process = agent()
    before = output_of(process)
    logging = log(process, "log", "agent")
    process.signal(signal.SIGSTOP)
    assert logging.signal(signal.SIGINT).finish() == 1
    assert "vosctl: agent could not be told to print where it printed before; " in logging.output
    process.signal(signal.SIGCONT)
    eventually(lambda: output_of(process) == before)


def test_a_container_with_terminals_of_its_own_is_reported(vosctl, background):
    program = pathlib.Path(os.environ["PROGRAMS"]) / "agent"
    background("unshare", "--mount", "sh", "-c", f"mount -t devpts devpts /dev/pts && exec '{program}' boxed", ready="ready")
    vosctl("debug", "boxed", "event").ok()
    assert "boxed is in a container with terminals of its own" in vosctl("log", "boxed", "trace").failed()
    assert vosctl("--json", "send", "boxed", "words").ok().json["text"] == f"34 {0x805}"  # nothing was changed


def test_the_last_line_is_ended(vosctl, agent, log):
    process = agent()
    logging = log(process, "log", "agent", "trace")
    eventually(lambda: words(vosctl) == f"6 {0x805}")
    logging.signal(signal.SIGINT)
    assert logging.finish() == 0
    assert logging.output.endswith(".\n")


def test_two_at_the_same_time_end_with_the_first_output(agent, log, background, binary):
    process = agent()
    before = output_of(process)
    first = log(process, "log", "agent")
    where = output_of(process)
    second = background(binary, "log", "agent")
    eventually(lambda: output_of(process) != where)
    assert second.signal(signal.SIGINT).finish() == 0
    assert output_of(process) == before
    assert first.signal(signal.SIGINT).finish() == 0
    assert output_of(process) == before


def test_a_bad_level_is_a_usage_error(vosctl):
    vosctl("log", "agent", "loud").failed(2)
