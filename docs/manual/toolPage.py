#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes vosctl(1), and beside it a page for each group of its commands, through lowdown. Usage, options and examples
are those of the help, which are in vosctl.json beside this file ("vosctl complete tree" prints it). The text is that of
the document.

    toolPage.py DOCUMENT OUTPUT/vosctl.1
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import time

SUMMARY = "see and change what a process or a flash of the device holds"
# The headings of the help, and the page of each group.
PAGES = {"Running processes": ("vosctl-processes", "see, ask and control running processes"),
         "What is saved on flash": ("vosctl-flash", "see and change what is saved on flash"),
         "Images and packages": ("vosctl-images", "make, check and install images and packages"),
         "This machine and vosctl itself": ("vosctl-machine", "look at this machine, and at vosctl itself")}
GENERAL = ["What is shown", "Limits", "What is written", "Completion"]  # of the description of vosctl(1)


def plain(text):
    """Text of the help in Markdown."""
    return re.sub(r"([\\*_`<>\[\]])", r"\\\1", text)


def entries(all_of_them):
    return "".join(f"**{plain(entry['title'])}**\n\n: {plain(entry['text'])}\n\n" for entry in all_of_them)


def examples(commands):
    lines = [f"    {line}" for command in commands for line in command["examples"]]
    return "# EXAMPLES\n\n" + "\n".join(lines) + "\n\n" if lines else ""


def sections(markdown):
    """The introduction, and the text of each section by its title."""
    parts = re.split(r"^## (.*)\n", markdown, flags=re.MULTILINE)
    texts = [re.sub(r"^### ", "#### ", part, flags=re.MULTILINE) for part in parts]
    return re.sub(r"\A# .*\n", "", texts[0]), dict(zip(texts[1::2], texts[2::2]))


def synopsis(commands):
    usages = [f"**vosctl {command['words']}**{plain(command['usage'])}".replace("vosctl **", "vosctl**") for command in commands]
    return "# SYNOPSIS\n\n" + "  \n".join(usages) + "\n\n"


def main_page(introduction, texts, tree):
    root, *commands = tree
    text = f"# NAME\n\nvosctl - {SUMMARY}\n\n" + synopsis([root]) + "# DESCRIPTION\n" + introduction
    for heading, (page, _) in PAGES.items():
        text += f"## {heading}\n\nSee **{page}**(1).\n\n"
        text += entries({"title": each["words"], "text": each["description"]} for each in commands
                        if each["group"] == heading)
    text += "".join(f"## {title}\n{texts[title]}" for title in GENERAL)
    text += "# OPTIONS\n\n" + entries(root["options"]) + re.sub(r"(?s).*\n\n(?=They may)", "", texts["Options"])
    text += "".join(f"# {title.upper()}\n{texts[title]}" for title in ("Exit status", "Files", "Environment"))
    text += "# EXAMPLES\n\n" + "\n".join(f"    {each['examples'][0]}" for each in commands if each["examples"]) + "\n\n"
    return text + "# SEE ALSO\n\n" + ", ".join(f"**{page}**(1)" for page, _ in PAGES.values()) + ", **vosMsg**(3)\n"


def group_page(heading, texts, tree):
    page, summary = PAGES[heading]
    first = [command["words"] for command in tree if command["group"] == heading]
    commands = [command for command in tree if command["words"].split()[:1] and command["words"].split()[0] in first]
    names = ", ".join([page, *(f"vosctl-{word}" for word in first)])
    text = f"# NAME\n\n{names} - {summary}\n\n"
    text += synopsis([command for command in commands if not command["usage"].endswith(" COMMAND")]) + "# DESCRIPTION\n\n"
    for title, body in texts.items():
        if title.split(", ")[0] in first:
            text += f"## {title}\n{body}"
    text += "# OPTIONS\n\nThose of every command are in **vosctl**(1).\n\n"
    for command in commands:
        if command["arguments"] or len(command["options"]) > 1:  # the other one is --help
            text += f"## {command['words']}\n\n{plain(command['description'])}.\n\n"
            text += entries(command["arguments"] + command["options"])
    text += "# EXIT STATUS\n\n" + texts["Exit status"].partition("\n\nWith ")[0] + "\n\n" + examples(commands)
    return text + "# SEE ALSO\n\n" + ", ".join(f"**{each}**(1)" for each in ["vosctl", *(
        other for other, _ in PAGES.values() if other != page)]) + "\n"


def roff(name, markdown):
    day = time.strftime("%Y-%m-%d", time.gmtime(float(os.environ.get("SOURCE_DATE_EPOCH", time.time()))))
    metadata = [word for each in ("section=1", f"title={name}", "source=vos", f"date={day}") for word in ("-M", each)]
    text = markdown.replace("\\|", "/")  # in a cell of a table
    text = subprocess.run(["lowdown", "-s", "--out-no-smarty", "-T", "man", *metadata], input=text, capture_output=True, text=True,
                          check=True).stdout
    text = re.sub(r"^\.S([HS])\n(.*)\n(?:\.LP\n)?", r".S\1 \2\n", text, flags=re.MULTILINE)
    # a list of terms with their meanings, as in other manual pages
    text = re.sub(r'^(?:\.LP\n)?(.*)\n\.if n \\\n\.sp -1v\n\.if t \\\n\.sp -0\.25v\n\.IP "" 5n\n', r".TP\n\1\n", text,
                  flags=re.MULTILINE)
    return text.replace("\\fC", "\\fB")  # a terminal has no typewriter font


def main(document, output):
    tree = json.loads((pathlib.Path(__file__).parent / "vosctl.json").read_text(encoding="utf-8"))
    introduction, texts = sections(document.read_text(encoding="utf-8"))
    output.write_text(roff("vosctl", main_page(introduction, texts, tree)), encoding="utf-8")
    for heading, (page, _) in PAGES.items():
        (output.parent / f"{page}.1").write_text(roff(page, group_page(heading, texts, tree)), encoding="utf-8")


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
