# SPDX-License-Identifier: MIT
"""The manual pages can be made, their formatter finds no fault, no declaration is torn apart, and every exported name
is in the NAME section of exactly one page, where apropos looks for it."""
import collections
import pathlib
import re
import subprocess
import sys
import tempfile

source, mandoc = pathlib.Path(sys.argv[1]), sys.argv[2]
failures = []

with tempfile.TemporaryDirectory() as directory:
    pages = pathlib.Path(directory)
    generators, tool = source / "docs/manual", pages / "vosctl.1"
    subprocess.run([sys.executable, "-B", generators / "headerPages.py", source / "include", pages], check=True)
    subprocess.run([sys.executable, "-B", generators / "toolPage.py", source / "docs/vosctl.md", tool], check=True)

    wanted = {f"{header.stem}.3" for header in (source / "include").glob("*.h")} | {tool.name} | {
        f"vosctl-{group}.1" for group in ("processes", "flash", "images", "machine")}
    found = {page.name for page in pages.iterdir()}
    failures += [f"there should be one page for every header, vosctl and each group of its commands: {name}" for name in sorted(wanted ^ found)]

    command = [mandoc, "-T", "lint", "-W", "warning", *sorted(pages.iterdir())]
    lint = subprocess.run(command, capture_output=True, text=True)
    failures += (lint.stdout + lint.stderr).splitlines()
    if lint.returncode != 0 and not failures:
        failures.append(f"{mandoc} ended with {lint.returncode} and said nothing")

    in_pages = collections.defaultdict(list)
    for page in sorted(pages.glob("*.3")):
        text = page.read_text(encoding="utf-8")
        section = re.search(r"^\.Sh NAME\n(.*?)^\.Nd ", text, flags=re.M | re.S)
        for name in re.findall(r"^\.Nm (\w+)", section.group(1), flags=re.M) if section else ():
            in_pages[name].append(page.name)
        for code in re.findall(r"^\.Bd -literal[^\n]*\n(.*?)^\.Ed", text, flags=re.M | re.S):
            if code.count("{") != code.count("}"):
                failures.append(f"{page.name}: this declaration is torn apart:\n{code}")

    sections = ["NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "FILES", "ENVIRONMENT", "EXAMPLES", "SEE ALSO"]
    for page in sorted(pages.glob("*.1")):
        has = re.findall(r'^\.SH "?([A-Z ]+?)"?$', page.read_text(encoding="utf-8"), flags=re.M)
        if has != [each for each in sections if page == tool or each not in ("FILES", "ENVIRONMENT")]:
            failures.append(f"{page.name} has the sections {has}")

exported = re.findall(r"^\s+(\w+);", (source / "vos/vos.map").read_text(encoding="utf-8"), flags=re.M)
if not exported:
    failures.append("vos/vos.map names nothing")
for name in exported:
    if len(in_pages[name]) != 1:
        failures.append(f"{name} is in the NAME section of {' and '.join(in_pages[name]) or 'no page'}")

print(f"{len(found)} pages, {len(exported)} exported names")
for failure in failures:
    print("FAILED:", failure)
sys.exit(bool(failures))
