#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the manual's section 3 from the comments of the public headers: a page for every declaration, under each of its
names, and an overview for every header.

    headerPages.py SOURCE-DIRECTORY OUTPUT-DIRECTORY
"""
import pathlib
import re
import sys

import cppPages
import headerComments
from manPage import bullets, declarations, escape, heading, literal, members, prose, see_also, sentences

LIBRARY = "The operating-system layer of the device (libvos, -lvos)."
LONGEST_EXAMPLE = 40  # lines


class Examples:
    """The functions of the example programs, by the calls that they make."""

    DEFINITION = re.compile(r"^(?:/\*[^\n]*\*/\n)?(?:static )?[a-z_]\w*[ *][^\n;]*\) \{\n.*?^\}\n", re.M | re.S)

    def __init__(self, source):
        self.of = {}
        for file in sorted((source / "examples").rglob("*.c")):
            for code in self.DEFINITION.findall(file.read_text(encoding="utf-8")):
                for name in set(re.findall(r"\b(\w+)\(", code)):
                    self.of.setdefault(name, []).append((code.count("\n"), file.relative_to(source).as_posix(), code))

    def find(self, names):
        """The shortest function that uses one of the names, and its file."""
        found = sorted(example for name in names for example in self.of.get(name, ()) if example[0] <= LONGEST_EXAMPLE)
        return found[0][1:] if found else None


def version(source):
    return re.search(r"project\(\s*vos\s+VERSION\s+([0-9.]+)", (source / "CMakeLists.txt").read_text(encoding="utf-8")).group(1)


def split_results(texts):
    """Splits @return into the results of a success and those of a failure."""
    good, bad = [], []
    for text in texts:
        for part in (each.strip() for each in text.split(";")):
            if part:
                (bad if re.match(r"(VOS_ERR|-\d|a negative)", part) else good).append(part)
    return good, bad


def sentence(text):
    return text if text.endswith((".", "!", ":")) else text + "."


def related(entry, entries):
    """The pages of the types and constants that an entry's declaration names, and of the calls that use its types."""
    words = set(re.findall(r"\w+", " ".join([entry.code, *entry.body, *(text for _, text in entry.tags)])))
    for other in entries:
        if other is entry:
            continue
        uses = words & set(other.names)
        used = set(entry.types) & set(re.findall(r"\w+", other.code)) if not entry.functions else set()
        if uses or used:
            yield other.names[0]


def entry_page(entry, everything, examples, number):
    names = entry.names
    out = [heading(names[0], 3, number), ".SH NAME"]
    summary = entry.summary
    out.append(escape(f"{', '.join(names)} - {summary[0].lower() + summary[1:] if summary[1:2].islower() else summary}"))
    out += [".SH LIBRARY", escape(LIBRARY)]
    out += [".SH SYNOPSIS", *literal([f"#include <{entry.header.name}>", "", *declarations(entry.code)], indent=False)]
    out += [".SH DESCRIPTION", *prose(entry.body), *members(entry.code)]
    parameters = entry.tagged("param")
    if parameters:
        for text in parameters:
            name, _, rest = text.partition(" ")
            out += [".TP", f".I {escape(name)}", *sentences([rest])]
    good, bad = split_results(entry.tagged("return"))
    if good:
        out += [".SH RETURN VALUE", *(sentences([sentence(good[0])]) if len(good) == 1 else bullets(map(sentence, good)))]
    if bad:
        out += [".SH ERRORS", *bullets(map(sentence, bad))]
    threads = entry.tagged("threads")
    if threads:
        out += [".SH THREADS", *sentences([sentence(text[0].upper() + text[1:]) for text in threads])]
    example = examples.find(entry.functions)
    if example:
        file, code = example
        out += [".SH EXAMPLES", f"From {escape(file)}:", ".PP", *literal(code.splitlines())]
    others = dict.fromkeys([entry.header.stem, *related(entry, everything)])
    others = [name for name in others if name not in names]
    out += [".SH SEE ALSO", *see_also((name, 3) for name in others)]
    return "\n".join(line for line in out if line) + "\n"


def header_page(header, about, entries, headers, number):
    first = re.split(r"(?<=[.:;])\s", " ".join(about).strip())[0].rstrip(".:;")
    out = [heading(header.stem, 3, number), ".SH NAME", escape(f"{header.stem} - {first[0].lower() + first[1:]}")]
    out += [".SH LIBRARY", escape(LIBRARY), ".SH SYNOPSIS", *literal([f"#include <{header.name}>"], indent=False)]
    out += [".SH DESCRIPTION", *prose(about)]
    kinds = (("Calls", lambda entry: entry.functions), ("Variables", lambda entry: entry.variables),
             ("Types", lambda entry: entry.types), ("Constants", lambda entry: entry.constants))
    listed = set()
    for title, names_of in kinds:
        rows = [entry for entry in entries if names_of(entry) and id(entry) not in listed]
        if rows:
            out.append(f".SS {title}")
        for entry in rows:
            listed.add(id(entry))
            out += [".TP", f".BR {escape(entry.names[0])} (3)"]
            also = entry.names[1:]
            out += sentences([sentence(entry.summary)] + ([f"Also {', '.join(also)}."] if also else []))
    out += [".SH SEE ALSO", *see_also([("vosctl", 1), *((each.stem, 3) for each in headers if each != header)])]
    return "\n".join(line for line in out if line) + "\n"


def main(source, output):
    output.mkdir(parents=True, exist_ok=True)
    number, examples = version(source), Examples(source)
    headers = sorted((source / "include").glob("*.h"))
    contents = {header: headerComments.read(header) for header in headers}
    everything = [entry for _, entries in contents.values() for entry in entries]
    for header, (about, entries) in contents.items():
        (output / f"{header.stem}.3").write_text(header_page(header, about, entries, headers, number), encoding="utf-8")
        for entry in entries:
            first, *others = entry.names
            (output / f"{first}.3").write_text(entry_page(entry, everything, examples, number), encoding="utf-8")
            for name in others:
                (output / f"{name}.3").write_text(f".so man3/{first}.3\n", encoding="utf-8")
    cppPages.write(source, output, number)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))
