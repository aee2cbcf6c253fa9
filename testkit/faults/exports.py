#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes what vos-faults knows about the functions that libvos exports: a line EXPORT(name, parameters, usual failure, kind) for
each. It reads the public headers, and stops at an exported name that is neither a function nor a variable of theirs, so
that none is forgotten.

    exports.py SOURCE-DIRECTORY OUTPUT
"""
import pathlib
import re
import sys

source, output = map(pathlib.Path, sys.argv[1:])
sys.path.insert(0, str(source / "docs/manual"))
from headerComments import COMMENT, Entry, without_comments  # noqa: E402

PROTOTYPE = re.compile(r"^([\w ]+?[ *]+)(\w+)\(([^;{]*)\)\s*(?:__attribute__.*)?;", re.M | re.S)


# Pointers that are null at the end of a list, or before a name was given: no failure.
NULL_IS_NO_FAILURE = re.compile(r"sll(?!Create)|lst|vosProcessGetName")


def failure(name, result, documented, codes):
    """The usual failure of a function, from what its comment says, and 2; 1 when only wrong arguments make it fail; 0 when
    nothing is known of a failure."""
    if result.endswith("*"):
        return 0, 1 if NULL_IS_NO_FAILURE.match(name) else 2 if re.search(r"\bnull\b", documented, re.I) else 0
    if result != "int32_t":
        return 0, 0
    found = [codes[code] if code else -1 for code in re.findall(r"\b(VOS_ERR\w*)\b|(?<![\w.])-1\b", documented)]
    serious = [value for value in found if value != codes["VOS_ERR_PARAM"]]
    return (-1 if -1 in serious else serious[0], 2) if serious else (found[0], 1) if found else (0, 0)


exported = set(re.findall(r"^    (\w+);", (source / "vos/vos.map").read_text(encoding="utf-8"), re.M))
facts, variables = {}, set()
types = (source / "include/vosTypes.h").read_text(encoding="utf-8")
constants = {name: int(value) for name, value in re.findall(r"\b(VOS_(?:OK|ERR\w*)) = (-?\d+)", types)}
for header in sorted((source / "include").glob("*.h")):
    for comment in COMMENT.finditer(header.read_text(encoding="utf-8")):
        entry = Entry(header.name, comment["text"], comment["code"])
        variables.update(entry.variables)
        documented = " ".join(text for tag, text in entry.tags if tag == "return")
        code = re.sub(r"^typedef.*?;", "", without_comments(entry.code), flags=re.M | re.S)
        for result, name, parameters in PROTOTYPE.findall(code):
            if name not in exported:
                continue
            text = documented or " ".join(entry.body)
            twin = re.search(r"\b[Aa]s (vos\w+)\(\)", text)
            facts[name] = (re.sub(r"\s+", " ", parameters), *failure(name, result.strip(), text, constants), twin and twin[1])

missing = exported - set(facts) - variables
if missing:
    sys.exit(f"exports.py: no header declares {', '.join(sorted(missing))}")
lines = []
for name, (parameters, value, kind, twin) in facts.items():
    if kind == 0 and twin in facts:
        value, kind = facts[twin][1:3]
    lines.append(f'EXPORT({name}, "{parameters}", {value}, {kind})')
output.write_text("\n".join(lines) + "\n", encoding="utf-8")
codes = "".join(f'CODE("{name}", {value})\n' for name, value in constants.items())
output.with_suffix(".codes").write_text(codes, encoding="utf-8")
