# SPDX-License-Identifier: MIT
"""Completion: what vosctl offers, and that each shell takes it."""
import os
import pathlib
import pty
import re
import subprocess

import pytest
from conftest import SOCKETS

SCRIPTS = pathlib.Path(__file__).parents[2] / "tools" / "vosctl" / "completion"


@pytest.fixture
def words(vosctl):
    return lambda *arguments: vosctl("complete", "words", "--", *arguments).ok().stdout.split()


@pytest.fixture
def shell(binary, tmp_path):
    """Runs a script in a shell that finds vosctl."""

    def run(*command):
        done = subprocess.run(command, stdout=subprocess.PIPE, check=False,
                              env={**os.environ, "HOME": str(tmp_path),
                                   "PATH": f"{os.path.dirname(binary)}:{os.environ['PATH']}"})
        return done.stdout.decode().split()

    return run


def test_commands(words):
    assert {"ps", "send", "doctor"} <= set(words(""))
    assert "complete" not in words("")
    assert words("pin") == ["ping"]


def test_names_are_those_that_can_be_reached(words, vosctl, agent, stale):
    agent("oltd")
    agent("mgmtd")
    stale("old")
    assert words("send", "") == ["mgmtd", "oltd"]
    assert words("send", "o") == ["oltd"]
    assert words("--json", "send", "--timeout", "5", "m") == ["mgmtd"]
    assert vosctl("complete", "names").ok().stdout == "mgmtd\noltd\n"


def test_an_options_value_is_not_offered_names(words, agent):
    agent("oltd")
    assert words("send", "--timeout", "") == []


@pytest.mark.parametrize("command", ["get", "set", "dump"])
def test_items(words, command):
    assert words("item", command, "ip-") == ["ip-address", "ip-gate", "ip-mask"]
    assert len(words("item", command, "")) == 20
    assert words("item", command, "ztp", "") == []


def test_levels_come_behind_the_name(words):
    assert words("debug", "oltd", "e") == ["error", "event"]
    assert words("debug", "oltd", "error", "t") == ["trace"]
    assert words("log", "oltd", "no") == ["no-timeouts", "none"]


def test_options_of_the_command_and_of_all(words):
    assert {"--high", "--timeout", "--json", "--help"} <= set(words("send", "oltd", "--"))
    assert words("send", "--no-") == ["--no-wait"]


def test_nothing_to_offer_is_no_failure(words):
    assert words("frobnicate", "x") == []
    assert words() != []


def test_a_directory_that_cannot_be_read_is_no_failure(words):
    SOCKETS.write_text("")
    assert words("send", "") == []


def test_bash(shell, agent):
    agent("oltd")
    script = (f"source '{SCRIPTS}/vosctl.bash'; COMP_WORDS=(vosctl send ol) COMP_CWORD=2; _vosctl; "
              'echo "${COMPREPLY[@]}"; complete -p vosctl')
    assert shell("bash", "-c", script)[0] == "oltd"


def test_zsh(shell, agent):
    agent("oltd")
    script = ("compadd() { print -l -- ${(P)2} }; _files() { print files }; "
              f"words=(vosctl send ol) CURRENT=3; source '{SCRIPTS}/vosctl.zsh'; "
              f"words=(vosctl send oltd tex) CURRENT=4; source '{SCRIPTS}/vosctl.zsh'")
    assert shell("zsh", "-f", "-c", script) == ["oltd", "files"]


def test_fish(shell, agent):
    agent("oltd")
    script = f"source '{SCRIPTS}/vosctl.fish'; complete -C 'vosctl send ol'; complete -C 'vosctl doc'"
    assert shell("fish", "--no-config", "-c", script) == ["oltd", "doctor"]


def test_colours_on_a_terminal_only(binary):
    child, terminal = pty.fork()
    if child == 0:
        os.environ["TERM"] = "xterm"
        os.environ.pop("NO_COLOR", None)
        os.execv(binary, [binary, "doctor"])
    shown = b""
    try:
        while part := os.read(terminal, 4096):
            shown += part
    except OSError:  # the other side is closed
        pass
    os.waitpid(child, 0)
    assert re.search(rb"\033\[3[13]m", shown)
