# SPDX-License-Identifier: MIT
"""The documents and manual pages describe the commands as their help does."""
import pathlib
import re

DOCUMENTS = pathlib.Path(__file__).parents[2] / "docs"


def test_the_manual_pages_are_made_from_the_help_of_today(vosctl):
    """After a change: vosctl complete tree >docs/manual/vosctl.json"""
    assert vosctl("complete", "tree").ok().stdout == (DOCUMENTS / "manual" / "vosctl.json").read_text()


def test_every_command_has_its_section_in_the_document(vosctl):
    titles = re.findall(r"^## (.*)$", (DOCUMENTS / "vosctl.md").read_text(), re.M)
    described = {word for title in titles for word in title.split(", ")}
    commands = re.findall(r"^  (\S+)  ", vosctl("--help").ok().stdout.partition("\nOptions:")[0], re.M)
    assert len(commands) > 15 and not set(commands) - described
