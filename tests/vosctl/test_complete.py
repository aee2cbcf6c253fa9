# SPDX-License-Identifier: MIT
"""Completion: the words that vosctl offers, and that each shell uses them."""
import os
import pathlib
import pty
import re
import shlex
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


@pytest.mark.parametrize("line, expected", [
    (["--color", ""], ["always", "auto", "never"]), (["--json="], ["--json=indented", "--json=short"]),
    (["log", "oltd", "--after", "no"], ["no-timeouts", "none"]), (["partition", "init", "s"], ["system"]),
    (["image", "make", "a", "b", "--type", ""], ["application", "boot"]), (["package", "make", "f", "d"],
    ["delete-dir:", "delete-file:", "dir:"]), (["help", "ima"], ["image"]), (["help", "image", "ins"], ["install"])])
def test_values_and_fixed_words(words, line, expected):
    assert words(*line) == expected


@pytest.mark.parametrize("line, expected", [
    (["send", "oltd", "--file", ""], ["/files"]), (["--root", ""], ["/directories"]), (["send", "oltd", ""], []),
    (["crc", ""], ["/files"]), (["partition", "show", "x"], [])])
def test_files_are_offered_only_where_one_is_wanted(vosctl, line, expected):
    assert vosctl("complete", "words", "--describe", "--", *line).ok().stdout.split() == expected


def test_descriptions(vosctl, agent):
    agent("oltd")
    describe = lambda *line: vosctl("complete", "words", "--describe", "--", *line).ok().stdout.splitlines()
    assert describe("pin")[0].startswith("ping\tMeasure the time")
    assert describe("send", "ol") == ["oltd\tagent"]
    assert describe("debug", "oltd", "tr") == ["trace\tbegin and end of operations, internal messages"]


@pytest.mark.parametrize("command", ["get", "set", "dump"])
def test_items(words, command):
    assert words("item", command, "ip-") == ["ip-address", "ip-gate", "ip-mask"]
    assert len(words("item", command, "")) == 20
    # "get" takes several items
    assert len(words("item", command, "ztp", "")) == (20 if command == "get" else 0)


def test_levels_come_after_the_name(words):
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
    assert bash(shell, "vosctl", "send", "ol") == ["oltd"]


def bash(shell, *words):
    """The candidates that bash gets for the last of the words; with "default" or "dirnames" where files fit too."""
    line = " ".join(shlex.quote(word) for word in words)
    script = (f"source '{SCRIPTS}/vosctl.bash'; compopt() {{ echo $2; }}; COMP_WORDS=({line}) COMP_CWORD={len(words) - 1}; "
              "_vosctl; printf '%s\\n' ${COMPREPLY[@]+\"${COMPREPLY[@]}\"}")
    return shell("bash", "-c", script)


def test_bash_inserts_a_name_as_one_harmless_word(shell, stale, agent):
    agent("$(touch pwned)")
    agent("*")
    assert bash(shell, "vosctl", "send", "") == ["\\$\\(touch\\", "pwned\\)", "\\*"]  # split by the test, at the blank
    assert not pathlib.Path("pwned").exists()


def test_bash_completes_files_and_words_after_an_equals_sign(shell):
    assert bash(shell, "vosctl", "send", "oltd", "--file", "") == ["default"]
    assert bash(shell, "vosctl", "--root", "") == ["dirnames"]
    assert bash(shell, "vosctl", "partition", "init", "") == ["all", "factory", "system"]
    assert bash(shell, "vosctl", "--json", "=", "s") == ["short"]
    assert bash(shell, "vosctl", "--json", "=") == ["indented", "short"]
    assert bash(shell, "vosctl", "package", "make", "f", "di") == ["nospace", "dir:"]


def test_zsh(shell, agent):
    agent("oltd")
    script = ("compadd() { print -l -- ${(P)3} ${(P)5} }; _files() { print files $1 }; "
              f"complete_line() {{ local -a words=(\"$@\"); local CURRENT=$#; source '{SCRIPTS}/vosctl.zsh' }}; "
              "complete_line vosctl send ol; complete_line vosctl send oltd tex; complete_line vosctl crc ''; "
              "complete_line vosctl --root ''")
    assert shell("zsh", "-f", "-c", script) == ["oltd", "--", "agent", "oltd", "files", "files", "-/"]


def test_fish(shell, agent):
    agent("oltd")
    script = f"source '{SCRIPTS}/vosctl.fish'; complete -C 'vosctl send ol'; complete -C 'vosctl doc'"
    assert shell("fish", "--no-config", "-c", script)[:5] == ["oltd", "agent", "doctor", "Tell", "what"]


def test_fish_offers_files_only_where_one_is_wanted(shell, tmp_path):
    (tmp_path / "zfile").write_text("")
    script = (f"source '{SCRIPTS}/vosctl.fish'; cd '{tmp_path}'; complete -C 'vosctl zf'; complete -C 'vosctl send zf'; "
              "complete -C 'vosctl crc zf'")
    assert [word for word in shell("fish", "--no-config", "-c", script) if word.startswith("zf")] == ["zfile"]


def test_colours_on_a_terminal_only(binary):
    child, terminal = pty.fork()
    if child == 0:
        os.environ["TERM"] = "xterm"
        os.environ.pop("NO_COLOR", None)
        os.execv(binary, [binary, "doctor", "--device"])
    shown = b""
    try:
        while part := os.read(terminal, 4096):
            shown += part
    except OSError:  # the other side is closed
        pass
    os.waitpid(child, 0)
    assert re.search(rb"\033\[3[13]m", shown)
