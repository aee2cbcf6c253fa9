# SPDX-License-Identifier: MIT
"""Pages of the C++ headers: what each of them declares, with its comment."""
import re

from manPage import escape, heading, literal, prose, see_also

# The comment of a declaration, and what is declared: up to its body or its end.
DOCUMENTED = re.compile(r"/\*\*(?!<)(?P<text>.*?)\*/\s*(?P<code>(?:template <[^{;]*?>\s+)?[^;{]*?)\s*(?:[;{]|\n\s*:)", re.DOTALL)
HIDDEN = re.compile(r"^namespace detail \{$.*?^\}  // namespace detail$", re.M | re.S)


def lines_of(text):
    lines = [re.sub(r"^\s*\* ?", "", line).rstrip() for line in text.strip("\n").splitlines()]
    lines = [re.sub(r"@(param|return|threads)\b", lambda tag: tag[1].capitalize() + ":", line).strip() if "@" in line else line
             for line in lines]
    return [line for line in lines if "@file" not in line]


def declared(code):
    flat = " ".join(code.split()).replace("[[nodiscard]] ", "")
    return re.sub(r"^(\[\[.*?\]\] |inline |static |friend )+|__attribute__\(\(.*?\)\)\) ", "", flat)


def page(header, number, headers):
    text = HIDDEN.sub("", header.read_text(encoding="utf-8"))
    about = lines_of(re.search(r"/\*\*(.*?)\*/", text, re.S)[1])
    while not about[0].strip():
        about.pop(0)
    summary = re.split(r"(?<=[.:;])\s", " ".join(about).removeprefix("C++: "))[0].rstrip(".:;")
    out = [heading(header.name, 3, number), ".SH NAME", escape(f"{header.name} - {summary}")]
    out += [".SH SYNOPSIS", *literal(["#include <vos.hpp>"], indent=False)]
    out += [".SH DESCRIPTION", *prose(about)]
    found = [each for each in DOCUMENTED.finditer(text) if "@file" not in each["text"] and declared(each["code"])]
    if found:
        out.append(".SH DECLARATIONS")
    for each in found:
        body = prose(lines_of(each["text"]))
        # A paragraph stays below its declaration. A block of code has an indentation of its own.
        body = [".IP" if line == ".PP" and not after.startswith(".") else line for line, after in zip(body, [*body[1:], ""])]
        out += [".TP", f".B {escape(declared(each['code']))}", *body]
    out += [".SH SEE ALSO", *see_also([*((other.name, 3) for other in headers if other != header), ("vosMsg", 3)])]
    return "\n".join(line for line in out if line) + "\n"


def write(source, output, number):
    headers = sorted((source / "include").glob("*.hpp"))
    for header in headers:
        (output / f"{header.name}.3").write_text(page(header, number, headers), encoding="utf-8")
