#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes vos-sandbox(1) and vos-faults(1): the text of docs/testkit.md, and the help of the commands as it is.

    kitPages.py SOURCE-DIRECTORY OUTPUT-DIRECTORY
"""
import pathlib
import re
import sys

from toolPage import roff, sections

SUMMARY = {"vos-sandbox": "run a command in private surroundings like those of a device",
           "vos-faults": "make calls of a command into libvos, or of libvos into the system, fail or wait"}
STATUS = {"vos-sandbox": "That of the command, and 128 and the signal's number when a signal has ended it; 124 after a cut; 125 when there is no "
                         "sandbox or an option is wrong.",
          "vos-faults": "That of the command, and 128 and the signal's number when a signal has ended it; 125 when a rule or an option cannot be "
                        "read, and when a signal has interrupted **--each**. With **--each** 0, or 1 when a run hung, crashed or leaked."}
EXAMPLES = {"vos-sandbox": ["vos-sandbox --shell", "vos-sandbox --keep device --cut-at-write 3 ./daemon", "vosctl --root device partition check"],
            "vos-faults": ["vos-faults vosMsgSend#3=-1:ETIMEDOUT -- ./client", "vos-sandbox vos-faults --each -- ./client"]}
OTHERS = {"vos-sandbox": "**vos-faults**(1), **vosctl**(1)", "vos-faults": "**vos-sandbox**(1), **vosctl**(1)"}


def help_of(name, source):
    if name == "vos-sandbox":
        lines = (source / "testkit/vos-sandbox").read_text(encoding="utf-8").splitlines()[2:]
        return "\n".join(line[2:] for line in lines[:next(i for i, line in enumerate(lines) if not line.startswith("#"))])
    return re.search(r'R"\((.*?)\)"', (source / "testkit/faults/main.cpp").read_text(encoding="utf-8"), re.DOTALL).group(1)


def page(name, source):
    _, texts = sections((source / "docs/testkit.md").read_text(encoding="utf-8"))
    synopsis, options = [], []
    for line in help_of(name, source).splitlines():
        (synopsis if line.startswith(f"    {name}") else options).append(line)
    first = next(i for i, line in enumerate(options) if line.startswith("    "))
    text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", texts[name])
    quoted = "\n".join(line if line.startswith("    ") or not line else "    " + line for line in options[first:]).rstrip()
    return (f"# NAME\n\n{name} - {SUMMARY[name]}\n\n# SYNOPSIS\n\n" + "\n".join(synopsis) + f"\n\n# DESCRIPTION\n{text}"
            f"\n\n# OPTIONS\n\n{quoted}\n\n# EXIT STATUS\n\n{STATUS[name]}\n\n# EXAMPLES\n\n"
            + "\n".join(f"    {line}" for line in EXAMPLES[name]) + f"\n\n# SEE ALSO\n\n{OTHERS[name]}\n")


if __name__ == "__main__":
    source, output = map(pathlib.Path, sys.argv[1:])
    for each in SUMMARY:
        (output / f"{each}.1").write_text(roff(each, page(each, source)), encoding="utf-8")
