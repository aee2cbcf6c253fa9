# SPDX-License-Identifier: MIT
"""What is the same for every command: usage, exit statuses, where results and failures are printed."""
import json
import os
import re
import signal
import subprocess

import pytest
from conftest import PATIENCE


def test_without_a_command_it_is_a_usage_error(vosctl):
    assert "--help" in vosctl().failed(2)


def test_an_unknown_command_is_a_usage_error_that_names_it(vosctl):
    assert "frobnicate" in vosctl("frobnicate").failed(2)


def test_without_a_command_it_says_so(vosctl):
    assert 'no command is given; see "vosctl --help"' in vosctl().failed(2)
    assert 'no command is given; see "vosctl item --help"' in vosctl("item").failed(2)


@pytest.mark.parametrize("words, guess", [(["sned"], "send"), (["item", "lits"], "list"), (["--jsn", "ps"], "--json"),
                                          (["help", "sedn"], "send"), (["send", "agent", "--timout", "1"], "--timeout")])
def test_what_was_mistyped_is_guessed(vosctl, words, guess):
    assert f"; did you mean {guess}? see " in vosctl(*words).failed(2)


def test_a_word_that_resembles_nothing_is_not_guessed_at(vosctl):
    assert "did you mean" not in vosctl("frobnicate").failed(2)
    assert "did you mean" not in vosctl("p" * 100000).failed(2)


def test_only_the_beginning_of_a_very_long_word_is_shown(vosctl):
    for words in (["send", "n" * 5000, "x"], ["n" * 5000], ["smd", "agent", "9" * 5000]):
        assert len(vosctl(*words).stderr) < 500


def test_an_argument_too_many_is_named(vosctl):
    assert '"more" is one argument too many' in vosctl("ps", "name", "more").failed(2)


def test_an_unknown_option_is_a_usage_error_that_names_the_commands_help(vosctl):
    line = vosctl("debug", "name", "--frobnicate").failed(2)
    assert "--frobnicate" in line
    assert '"vosctl debug --help"' in line


def test_a_missing_argument_is_a_usage_error_that_names_it(vosctl):
    assert "NAME" in vosctl("debug").failed(2)


def test_an_unknown_colour_choice_is_a_usage_error(vosctl):
    vosctl("--color", "mauve", "debug", "name").failed(2)


def test_help_goes_to_standard_output(vosctl):
    outcome = vosctl("--help").ok()
    assert "debug" in outcome.stdout
    assert vosctl("help").ok().stdout == outcome.stdout


def test_help_lists_the_commands_under_headings(vosctl):
    lines = vosctl("--help").ok().stdout.splitlines()
    headings = [line for line in lines if line.endswith(":") and not line.startswith(" ")]
    assert headings == ["Running processes:", "What is saved on flash:", "Images and packages:",
                        "This machine and vosctl itself:", "Options:"]


@pytest.fixture
def tree(vosctl):
    """All commands that are listed, with their help."""
    commands = json.loads(vosctl("complete", "tree").ok().stdout)
    assert len(commands) > 30
    return commands


def test_every_command_has_an_example_that_the_command_line_takes(vosctl, tree):
    for command in tree:
        if command["words"]:
            assert command["examples"], command["words"]
        for example in command["examples"]:
            assert f"vosctl {command['words']}".strip() in example.replace("--json ", ""), example


def test_help_fits_a_terminal_and_names_the_options_of_every_command(vosctl, tree):
    for command in tree:
        words = command["words"].split()
        text = vosctl("help", *words).ok().stdout
        assert text == vosctl(*words, "--help").ok().stdout
        assert text == vosctl("--help", *words).ok().stdout
        assert all(len(line) <= 80 for line in text.splitlines() if not line.startswith("  vosctl ")), text
        assert "--json[=indented|short]" in text and "--root DIR" in text
        for jargon in ("SUBCOMMAND", "REQUIRED", "UINT", "INT", ":{", "TEXT:"):
            assert jargon not in text, text


@pytest.mark.parametrize("option", ["--help", "--version", "-V"])
def test_help_and_version_that_cannot_be_written_are_a_failure(vosctl, option):
    with open("/dev/full", "w") as full:
        outcome = vosctl(option, stdout=full)
    assert "standard output cannot be written: No space left on device" in outcome.failed()


def test_the_version_is_that_of_the_build(vosctl):
    assert re.fullmatch(r"\d+\.\d+\.\d+", os.environ["VERSION"])
    for option in ("--version", "-V"):
        assert vosctl(option).ok().stdout == f"vosctl {os.environ['VERSION']}\n"


@pytest.mark.parametrize("words", [["package", "apply", "p", "--yes", "--version"], ["config", "delete", "--yes", "--version"],
                                   ["ps", "--version"], ["--version", "ps"]])
def test_the_version_behind_a_command_is_a_usage_error(vosctl, words):
    outcome = vosctl(*words)
    outcome.failed(2)
    assert outcome.stdout == ""


def test_an_empty_device_tree_is_a_usage_error(vosctl):
    assert "DIR is empty" in vosctl("--root", "", "doctor").failed(2)


def test_a_device_tree_that_is_not_a_directory_is_refused(vosctl):
    assert "/nowhere is not a directory" in vosctl("--root", "/nowhere", "debug", "name").failed()


def test_a_failure_is_a_json_object_too(vosctl):
    outcome = vosctl("--json", "debug", "nobody")
    line = outcome.failed()
    error = outcome.json["error"]
    assert line == f"vosctl: {error['what']}; {error['nextStep']}\n"


def test_a_document_on_one_line(vosctl):
    assert vosctl("--json=short", "ps").ok().stdout == '{"names":[]}\n'
    assert vosctl("--json", "ps").ok().stdout == vosctl("ps", "--json=indented").ok().stdout == '{\n  "names": []\n}\n'


@pytest.mark.parametrize("form", ["5", "true", "false", "SHORT"])
def test_another_form_of_json_is_a_usage_error(vosctl, form):
    vosctl(f"--json={form}", "ps").failed(2)


def test_too_little_memory_is_a_failure_in_json_too(binary, agent):
    with open(binary, "rb") as program:
        if b"__asan_init" in (code := program.read()) or b"__tsan_init" in code:
            pytest.skip("a sanitizer needs more address space than any limit leaves")
    agent()
    for limit in range(4000, 40000, 100):
        command = f"ulimit -v {limit}; exec '{binary}' --json config-of agent --timeout 500"
        done = subprocess.run(["bash", "-c", command], stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
        if b"not enough memory" in done.stderr:
            assert done.returncode == 1
            assert json.loads(done.stdout)["error"]["what"] == "there is not enough memory"
            return
    raise AssertionError("no limit was met")


def test_the_global_options_are_understood_behind_the_command(vosctl):
    assert "error" in vosctl("debug", "nobody", "--json").json


def test_results_that_cannot_be_written_are_a_failure(vosctl, example):
    example("server")
    with open("/dev/full", "w") as full:
        outcome = vosctl("debug", "server", "error", stdout=full)
    assert "standard output cannot be written: No space left on device" in outcome.failed()


def test_a_closed_standard_output_is_a_failure(binary):
    assert os.WEXITSTATUS(os.system(f"'{binary}' debug nobody >&- 2>/tmp/stderr")) == 1
    with open("/tmp/stderr") as stderr:
        assert stderr.read().startswith("vosctl: there is no standard output")


def test_a_command_works_with_standard_error_closed(binary, agent, tmp_path):
    agent()
    for option in ("", "-v"):
        assert os.WEXITSTATUS(os.system(f"'{binary}' {option} --json send agent x 2>&- >{tmp_path}/out")) == 0
        assert json.loads((tmp_path / "out").read_text())["text"] == "x"


def test_a_closed_standard_input_is_not_taken_for_an_empty_one(binary, agent):
    agent()
    assert os.WEXITSTATUS(os.system(f"'{binary}' send agent --file - <&- 2>/tmp/stderr")) == 1
    with open("/tmp/stderr") as stderr:
        assert "- cannot be read: Bad file descriptor" in stderr.read()


def test_a_reader_that_has_ended_ends_it_without_a_message(binary):
    process = subprocess.Popen([binary, "help"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    process.stdout.close()
    ended = process.wait(PATIENCE)
    assert (ended, process.stderr.read()) in ((-signal.SIGPIPE, b""), (0, b""))  # 0: it had ended before
    process.stderr.close()
    closed = f"exec 3> >(exec <&-; exit); wait $!; '{binary}' help >&3"
    assert subprocess.run(["bash", "-c", closed], stderr=subprocess.PIPE, check=False).stderr == b""


def test_a_document_on_a_terminal_has_no_control_characters(vosctl, stale):
    stale("x\u009b31m\x7f")
    text = vosctl("--json", "ps").ok().stdout
    assert "\\u009b31m\\u007f" in text
    assert json.loads(text)["names"][0]["name"] == "x\u009b31m\x7f"


def test_text_from_outside_is_escaped_on_a_terminal(vosctl):
    outcome = vosctl("--json", "debug", "a\x1b[31mb")
    assert "\\x1B[31m" in outcome.failed()
    assert "\x1b" not in outcome.stdout


def test_the_librarys_log_lines_appear_on_demand_on_standard_error(vosctl):
    assert vosctl("partition", "init", "system", "--yes").ok().stderr == ""
    outcome = vosctl("-v", "partition", "init", "system", "--yes", "--json")
    assert outcome.status == 0
    assert "Initialize system data partition." in outcome.stderr
    assert outcome.json["partitions"]


def test_the_librarys_log_lines_are_not_among_the_results(vosctl, example):
    example("server")
    assert json.loads(vosctl("--json", "debug", "server", "trace").ok().stdout)["word"] == 6
