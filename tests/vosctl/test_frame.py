# SPDX-License-Identifier: MIT
"""What holds for every command: usage, exit statuses, where results and failures go."""
import json
import os
import re


def test_without_a_command_it_is_a_usage_error(vosctl):
    assert "--help" in vosctl().failed(2)


def test_an_unknown_command_is_a_usage_error_that_names_it(vosctl):
    assert "frobnicate" in vosctl("frobnicate").failed(2)


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


def test_the_version_is_a_number(vosctl):
    assert vosctl("--version").ok().stdout == "vosctl 1.0.0\n"


def test_a_device_tree_that_is_not_a_directory_is_refused(vosctl):
    assert "/nowhere is not a directory" in vosctl("--root", "/nowhere", "debug", "name").failed()


def test_a_failure_is_a_json_object_too(vosctl):
    outcome = vosctl("--json", "debug", "nobody")
    line = outcome.failed()
    error = outcome.json["error"]
    assert line == f"vosctl: {error['what']}; {error['nextStep']}\n"


def test_the_global_options_are_understood_behind_the_command(vosctl):
    assert "error" in vosctl("debug", "nobody", "--json").json


def test_results_that_cannot_be_written_are_a_failure(vosctl, example):
    example("server")
    with open("/dev/full", "w") as full:
        outcome = vosctl("debug", "server", stdout=full)
    assert "standard output cannot be written: No space left on device" in outcome.failed()


def test_a_closed_standard_output_is_a_failure(binary):
    assert os.WEXITSTATUS(os.system(f"'{binary}' debug nobody >&- 2>/tmp/stderr")) == 1
    with open("/tmp/stderr") as stderr:
        assert stderr.read().startswith("vosctl: there is no standard output")


def test_text_from_outside_cannot_steer_the_terminal(vosctl):
    outcome = vosctl("--json", "debug", "a\x1b[31mb")
    assert "\\x1B[31m" in outcome.failed()
    assert "\x1b" not in outcome.stdout


def test_the_librarys_log_lines_appear_on_demand_on_standard_error(vosctl):
    with open("/flash/sysdata", "wb") as partition:
        partition.write(b"nonsense")
    assert vosctl("doctor").stderr == ""
    outcome = vosctl("-v", "doctor", "--json")
    assert re.search(r"vosctl\(\d+\) vosSysConfigDataGet:", outcome.stderr)
    assert outcome.json["checks"]


def test_the_librarys_log_lines_are_not_among_the_results(vosctl, example):
    example("server")
    assert json.loads(vosctl("--json", "debug", "server", "trace").ok().stdout)["word"] == 4
