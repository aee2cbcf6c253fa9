#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the manual page of vosctl from its document, through lowdown.

    toolPage.py DOCUMENT OUTPUT
"""
import os
import pathlib
import re
import subprocess
import sys
import time

SUMMARY = "see and change what a process or a flash of the device holds"


def page(markdown):
    text = re.sub(r"\A# vosctl\n", f"# NAME\n\nvosctl - {SUMMARY}\n\n# DESCRIPTION\n", markdown)
    text = re.sub(r"^## (.*)$", lambda match: f"# {match.group(1).upper()}", text, flags=re.MULTILINE)
    text = re.sub(r"^### ", "## ", text, flags=re.MULTILINE)
    text = text.replace("\\|", "/")  # in a cell of a table
    day = time.strftime("%Y-%m-%d", time.gmtime(float(os.environ.get("SOURCE_DATE_EPOCH", time.time()))))
    metadata = [word for each in ("section=1", "title=vosctl", "source=vos", f"date={day}") for word in ("-M", each)]
    command = ["lowdown", "-s", "-T", "man", *metadata]
    roff = subprocess.run(command, input=text, capture_output=True, text=True, check=True).stdout
    roff = re.sub(r"^\.S([HS])\n(.*)\n\.LP\n", r".S\1 \2\n", roff, flags=re.MULTILINE)
    return roff.replace("\\fC", "\\fB")  # a terminal has no typewriter's letters


if __name__ == "__main__":
    document, output = map(pathlib.Path, sys.argv[1:])
    output.write_text(page(document.read_text(encoding="utf-8")), encoding="utf-8")
