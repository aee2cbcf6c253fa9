# SPDX-License-Identifier: MIT
"""The manual pages can be made, and their formatter reports no error. Every exported name, every type and every constant
has a page, and the NAME section of exactly one page names it, where apropos looks for it. Every synopsis compiles. No
page is wider than a terminal of 80 columns by itself, and none names an operating system.

    manualTest.py SOURCE-DIRECTORY MANDOC C-COMPILER
"""
import collections
import pathlib
import re
import subprocess
import sys
import tempfile

source, mandoc, compiler = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3]
failures = []


def shown(page):
    """The page as a terminal shows it, without bold and underlined letters."""
    text = subprocess.run([mandoc, "-T", "utf8", "-O", "width=80", page], capture_output=True, text=True, check=True).stdout
    return re.sub(r".\x08", "", text)


def section(text, title):
    found = re.search(rf"^{title}\n(.*?)^(?=\S)", text, flags=re.M | re.S)
    return found.group(1) if found else ""


with tempfile.TemporaryDirectory() as directory:
    man = pathlib.Path(directory)
    generators, pages, tool = source / "docs/manual", man / "man3", man / "vosctl.1"
    subprocess.run([sys.executable, "-B", generators / "headerPages.py", source, pages], check=True)
    subprocess.run([sys.executable, "-B", generators / "toolPage.py", source / "docs/vosctl.md", tool], check=True)
    subprocess.run([sys.executable, "-B", generators / "kitPages.py", source, man], check=True)

    found = sorted(pages.iterdir())
    aliases = {page for page in found if page.read_text(encoding="utf-8").startswith(".so ")}
    for alias in aliases:
        target = man / alias.read_text(encoding="utf-8").removeprefix(".so ").strip()
        if not target.is_file() or target in aliases:
            failures.append(f"{alias.name} leads to {target.name}, which is no page")
    tools = sorted(man.glob("*.1"))
    wanted = {tool.name} | {f"vosctl-{group}.1" for group in ("processes", "flash", "images", "machine")} | {"vos-sandbox.1", "vos-faults.1"}
    if {page.name for page in tools} != wanted:
        failures.append(f"the pages of the commands are {[page.name for page in tools]}")

    written = [page for page in found if page not in aliases]
    lint = subprocess.run([mandoc, "-T", "lint", "-W", "warning", *written, *tools], capture_output=True, text=True)
    failures += (lint.stdout + lint.stderr).splitlines()
    if lint.returncode != 0 and not failures:
        failures.append(f"{mandoc} ended with {lint.returncode} and said nothing")

    named = collections.defaultdict(list)
    checked = 0
    for page in written:
        text = shown(page)
        names, _, summary = " ".join(section(text, "NAME").split()).partition(" - ")
        for name in names.split(", "):
            named[name].append(page.name)
        if len(summary) < 5:
            failures.append(f"{page.name}: its summary is {summary!r}")
        if re.search(r"\bBSD\b|Linux Programmer", text.splitlines()[0] + text.splitlines()[-1]):
            failures.append(f"{page.name}: {text.splitlines()[-1]}")
        code = section(text, "SYNOPSIS")
        failures += [f"{page.name} is too wide: {line}" for line in code.splitlines() if len(line) > 80]
        if code.count("{") != code.count("}"):
            failures.append(f"{page.name}: this declaration is torn apart:\n{code}")
        if "(" not in code or "{" in code or "typedef" in code:
            continue
        checked += 1
        compiled = subprocess.run([compiler, "-std=c11", "-Wall", "-Werror", "-fsyntax-only", "-I", source / "include", "-xc", "-"],
                                  input=code, capture_output=True, text=True)
        if compiled.returncode != 0:
            failures.append(f"{page.name}: its synopsis does not compile:\n{code}{compiled.stderr}")

    existing = {page.stem for page in found}

    sections = ["NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "FILES", "ENVIRONMENT", "EXAMPLES", "SEE ALSO"]
    for page in tools:
        has = re.findall(r'^\.SH "?([A-Z ]+?)"?$', page.read_text(encoding="utf-8"), flags=re.M)
        if has != [each for each in sections if page == tool or each not in ("FILES", "ENVIRONMENT")]:
            failures.append(f"{page.name} has the sections {has}")

exported = re.findall(r"^\s+(\w+);", (source / "vos/vos.map").read_text(encoding="utf-8"), flags=re.M)
types = re.findall(r"^\} (VOS_\w+);", "\n".join(each.read_text(encoding="utf-8") for each in (source / "include").glob("*.h")), flags=re.M)
constants = ["VOS_WAIT_FOREVER", "VOS_ERR_TIMEOUT", "BSP_SERIAL_NUMBER", "VOS_MSG_TYPE_SELF"]
if len(exported) < 100 or len(types) < 5:
    failures.append("vos/vos.map or the headers name almost nothing")
for name in exported + types + constants:
    if len(named[name]) != 1:
        failures.append(f"{name} is in the NAME section of {' and '.join(named[name]) or 'no page'}")
    if name not in existing:
        failures.append(f"there is no page {name}(3)")
if checked < 150:
    failures.append(f"only {checked} synopses were compiled")

print(f"{len(written)} pages, {len(aliases)} further names, {checked} synopses compiled")
for failure in failures:
    print("FAILED:", failure)
sys.exit(bool(failures))
