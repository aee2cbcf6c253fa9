# SPDX-License-Identifier: MIT
"""The version of the build is the newest release of the changelog, which has a date, and no other file names a version of its own.

    versionTest.py SOURCE-DIRECTORY VERSION
"""
import pathlib
import re
import sys

source, version = pathlib.Path(sys.argv[1]), sys.argv[2]
headings = re.findall(r"^## (.*)", (source / "CHANGELOG.md").read_text(encoding="utf-8"), flags=re.M)
failures = []
if headings[0] != "Unreleased":
    failures.append(f"CHANGELOG.md begins with {headings[0]!r}, not with Unreleased")
if not re.fullmatch(rf"{re.escape(version)} - \d{{4}}-\d\d-\d\d", headings[1]):
    failures.append(f"the newest release in CHANGELOG.md is {headings[1]!r}, and the build is version {version}")
for text in ("README.md", "docs/install.md", "docs/board.md", "packaging/debian/control", "scripts/package"):
    if re.search(rf"(?<![\d.]){re.escape(version)}(?![\d.])", (source / text).read_text(encoding="utf-8")):
        failures.append(f"{text} names version {version}; it must take it from CMakeLists.txt")
sys.exit("\n".join(failures) or 0)
