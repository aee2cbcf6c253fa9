# SPDX-License-Identifier: MIT
"""The documents and manual pages describe the commands as their help does."""
import pathlib
import re

import pytest

DOCUMENTS = pathlib.Path(__file__).parents[2] / "docs"


def test_the_manual_pages_are_made_from_the_help_of_today(vosctl):
    """After a change: vosctl complete tree >docs/manual/vosctl.json"""
    assert vosctl("complete", "tree").ok().stdout == (DOCUMENTS / "manual" / "vosctl.json").read_text()


def test_every_command_has_its_section_in_the_document(vosctl):
    titles = re.findall(r"^## (.*)$", (DOCUMENTS / "vosctl.md").read_text(), re.M)
    described = {word for title in titles for word in title.split(", ")}
    commands = re.findall(r"^  (\S+)  ", vosctl("--help").ok().stdout.partition("\nOptions:")[0], re.M)
    assert len(commands) > 15 and not set(commands) - described


@pytest.mark.parametrize("words", ["config save", "syslog save", "crc", "image make --type boot", "image make --type boot pay",
                                   "image install", "image info", "image check", "item export", "item import", "package list",
                                   "package make", "package apply", "partition save", "partition restore"])
def test_the_empty_word_of_a_shell_variable_that_is_not_set_is_no_file(vosctl, words):
    assert "is empty" in vosctl(*words.split(), "", *(["dir:/app/oem"] if words == "package make" else [])).failed(2)


def test_a_value_may_be_the_name_of_another_command(vosctl):
    """vosctl declares only the commands that the words of a command line name."""
    commands = re.findall(r"^  (\S+)  ", vosctl("--help").ok().stdout.partition("\nOptions:")[0], re.M)
    for command in commands:
        for value in ("ps", "image"):
            assert vosctl(command, value, "--help").stdout == vosctl(command, "--help").ok().stdout, (command, value)
    for value in commands:
        assert "did you mean monitor?" in vosctl("--root", value, "moniter").failed(2), value
    assert vosctl("--root", "crc", "--help").ok().stdout == vosctl("--help").ok().stdout
