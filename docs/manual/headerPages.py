#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes a manual page of section 3 for every public header, from its comments.

    headerPages.py HEADERS-DIRECTORY OUTPUT-DIRECTORY
"""
import os
import pathlib
import re
import sys
import textwrap
import time

# A comment that belongs to what stands before it on its line, /**< so */, is part of the code.
COMMENT = re.compile(r"/\*\*(?!<)(?P<text>.*?)\*/(?P<code>.*?)(?=/\*\*(?!<)|\Z)", re.DOTALL)
FUNCTION = re.compile(r"\b(\w+)\s*\([^;{]*\)\s*;")
VARIABLES = re.compile(r"\bextern ([^;{(]*);")
ATTRIBUTE = re.compile(r"\s*__attribute__\(\(\w+\([^)]*\)\)\)\s*;")  # for the compiler, not for the reader
NOISE = re.compile(r"^\s*(#(?!define\b).*|extern \"C\" \{|\}|)$")


def comment_lines(text):
    """The text of a comment without its stars; the indentation behind them stays."""
    lines = [re.sub(r"^\s*\* ?", "", line).rstrip() for line in text.splitlines()]
    return lines[1:] if lines and not lines[0].strip() else [lines[0].strip(), *lines[1:]]


def declaration(code):
    """The declarations behind a comment, up to the first blank line outside of braces."""
    lines, depth = [], 0
    for line in code.strip("\n").splitlines():
        if not line.strip() and depth == 0 and lines:
            break
        if depth == 0 and NOISE.match(line):
            continue
        depth += line.count("{") - line.count("}")
        lines.append(line.rstrip())
    return ATTRIBUTE.sub(";", "\n".join(lines))


class Entry:
    """What one comment says, and the declarations it stands before."""

    def __init__(self, text, code):
        self.code = declaration(code).replace("/**<", "/*")
        self.body, self.tags = [], []
        for line in comment_lines(text):
            # a short comment has its tags on the line of its text
            for part in re.split(r"(?<!\w)(?=@(?:param|return|threads)\b)", line):
                tag = re.match(r"@(param|return|threads)\s*(.*)", part)
                if tag:
                    self.tags.append([tag.group(1), tag.group(2)])
                elif self.tags and not re.match(r"@", part):
                    if part.strip():
                        self.tags[-1][1] += " " + part.strip()
                elif not self.tags:
                    self.body.append(part)

    @property
    def functions(self):
        return [name for name in FUNCTION.findall(strip_comments(self.code)) if not self.code.startswith("typedef")]

    @property
    def variables(self):
        declarators = ",".join(VARIABLES.findall(strip_comments(self.code))).split(",")
        return [re.search(r"(\w+)(?:\[.*\])?$", each.strip()).group(1) for each in declarators if each]

    @property
    def title(self):
        if self.functions:
            return ", ".join(f"{name}()" for name in self.functions)
        if self.variables:
            return ", ".join(self.variables)
        named = re.findall(
            r"#define (\w+)|typedef .*?\(\*(\w+)\)|\}\s*(\w+);|struct (\w+);|typedef [^;{]* (\w+);",
            strip_comments(self.code),
        )
        names = [next(name for name in each if name) for each in named]
        # constants without a name of their own: what their comment begins with
        return ", ".join(names) or re.split(r"[.,:;]", " ".join(self.body).strip())[0]


def strip_comments(code):
    return re.sub(r"/\*.*?\*/", "", code, flags=re.DOTALL)


def escape(line):
    line = line.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + line if line.startswith((".", "'")) else line


def sentences(lines):
    """Each sentence begins a line, as the formatter wants it."""
    text = " ".join(" ".join(lines).split())
    return [escape(each) for each in re.split(r"(?<=[.?!])\s+(?=\S)", text)]


def literal(lines, indent=False):
    text = textwrap.dedent("\n".join(lines)).splitlines()
    return [f".Bd -literal{' -offset indent' if indent else ''}", *[escape(line) or "\\&" for line in text], ".Ed"]


def prose(lines):
    """Paragraphs, lists and, where a line is indented, literal text."""
    out, block, kind = [], [], None

    def flush():
        if not block:
            return
        if kind == "literal":
            while block and not block[-1].strip():
                block.pop()
            out.extend(literal(block, indent=True))
        elif kind == "list":
            out.extend([".Bl -bullet -compact"])
            for item in re.split(r"^- ", "\n".join(block), flags=re.MULTILINE)[1:]:
                out.extend([".It", *sentences(item.split("\n"))])
            out.append(".El")
        else:
            if out and out[-1] != ".Pp":
                out.append(".Pp")
            out.extend(sentences(block))
        block.clear()

    within_code = False
    for line in lines:
        if line.strip() in ("@code", "@endcode"):
            flush()
            within_code = line.strip() == "@code"
            kind = "literal" if within_code else None
            continue
        if within_code:
            block.append(line)
            continue
        if not line.strip():
            if kind == "literal" and block:
                block.append("")
                continue
            flush()
            kind = None
            continue
        is_item = line.startswith("- ")
        new = "list" if is_item or (kind == "list" and line.startswith("  ")) else (
            "literal" if line.startswith("  ") else "text"
        )
        if new != kind:
            flush()
            kind = new
        block.append(line)
    flush()
    return out


def tags(entry):
    out = []
    parameters = [text for tag, text in entry.tags if tag == "param"]
    if parameters:
        out += [".Bl -tag -width Ds"]
        for text in parameters:
            name, _, rest = text.strip().partition(" ")
            out += [f".It Fa {name}", *sentences([rest])]
        out.append(".El")
    for tag, title in (("return", "Returns"), ("threads", "Threads:")):
        for text in (text for each, text in entry.tags if each == tag):
            out += [".Pp", *sentences([f"{title} {text}".rstrip().rstrip(".") + "."])]
    return out


def page(header, entries, about, all_headers):
    name = header.stem
    exported = [each for entry in entries for each in entry.functions + entry.variables]
    date = time.strftime("%B %-d, %Y", time.gmtime(float(os.environ.get("SOURCE_DATE_EPOCH", header.stat().st_mtime))))
    first = re.split(r"(?<=[.:;])\s", " ".join(about).strip())[0].rstrip(".:;")
    names = [name, *exported]
    out = [f".Dd {date}", f".Dt {name.upper()} 3", ".Os", ".Sh NAME"]
    out += [f".Nm {each} ," for each in names[:-1]] + [f".Nm {names[-1]}", f".Nd {escape(first[0].lower() + first[1:])}"]
    out += [".Sh LIBRARY", "The operating\\-system layer of the device", "(libvos, \\-lvos)"]
    out += [".Sh SYNOPSIS", f".In vos/{header.name}"]
    declarations = [entry.code for entry in entries if entry.functions or entry.variables]
    if declarations:
        out += literal("\n".join(declarations).splitlines())
    out += [".Sh DESCRIPTION", *prose(about)]
    for entry in entries:
        if not entry.code:
            continue
        out += [f".Ss {escape(entry.title)}", *literal(entry.code.splitlines())]
        body = prose(entry.body)
        out += ([".Pp"] if body and body[0] != ".Pp" else []) + body + tags(entry)
    others = sorted(each.stem for each in all_headers if each != header)
    out += [".Sh SEE ALSO", ".Xr vosctl 1 ,", *[f".Xr {each} 3 ," for each in others[:-1]], f".Xr {others[-1]} 3"]
    return "\n".join(line for line in out if line) + "\n"


def main(headers, output):
    output.mkdir(parents=True, exist_ok=True)
    everything = sorted(headers.glob("*.h"))
    for header in everything:
        entries, about = [], []
        for match in COMMENT.finditer(header.read_text(encoding="utf-8")):
            if "@file" in match["text"]:
                about = [line for line in comment_lines(match["text"]) if "@file" not in line]
            else:
                entries.append(Entry(match["text"], match["code"]))
        (output / f"{header.stem}.3").write_text(page(header, entries, about, everything), encoding="utf-8")


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))
