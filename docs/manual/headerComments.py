# SPDX-License-Identifier: MIT
"""Reads the comments of the public headers and the declarations that they describe."""
import re

# A comment behind a member or a constant, /**< so */, is part of the declaration.
COMMENT = re.compile(r"/\*\*(?!<)(?P<text>.*?)\*/(?P<code>.*?)(?=/\*\*(?!<)|\Z)", re.DOTALL)
FUNCTION = re.compile(r"\b(\w+)\s*\([^;{]*\)\s*;")
VARIABLES = re.compile(r"\bextern ([^;{(]*);")
ATTRIBUTE = re.compile(r"\s*__attribute__\(\(\w+\([^)]*\)\)\)\s*;")  # for the compiler, not for the reader
NOISE = re.compile(r"^\s*(#(?!define\b).*|extern \"C\" \{|\}|)$")
TYPES = re.compile(r"typedef [^;{]*?\(\*(\w+)\)|^\}\s*(\w+);|^typedef struct \w+ (\w+);|^typedef [^;{(]* (\w+);", re.M)
CONSTANTS = re.compile(r"^#define (\w+)|^\s+([A-Z]\w+)(?: = [^,]*)?,?\s*$", re.M)


def comment_lines(text):
    """The text of a comment without its stars. The indentation behind them stays."""
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


def without_comments(code):
    return re.sub(r"/\*.*?\*/", "", code, flags=re.DOTALL)


def once(names):
    return list(dict.fromkeys(name for name in names if name))


class Entry:
    """One comment, and the declarations behind it."""

    def __init__(self, header, text, code):
        self.header = header
        self.code = declaration(code).replace("/**<", "/*")
        self.body, self.tags = [], []
        for line in comment_lines(text):
            # in a short comment the tags are on the same line as the text
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
        code = without_comments(self.code)
        return [] if code.startswith("typedef") else once(FUNCTION.findall(code))

    @property
    def variables(self):
        declarators = ",".join(VARIABLES.findall(without_comments(self.code))).split(",")
        return [re.search(r"(\w+)(?:\[.*\])?$", each.strip()).group(1) for each in declarators if each]

    @property
    def types(self):
        return once(name for each in TYPES.findall(without_comments(self.code)) for name in each)

    @property
    def constants(self):
        code = without_comments(self.code)
        if code.startswith("typedef struct") or (self.functions and not code.startswith("enum")):
            return []
        return once(name for each in CONSTANTS.findall(code) for name in each)

    @property
    def names(self):
        """Every name that the declarations give, the most important first."""
        return once([*self.functions, *self.variables, *self.types, *self.constants])

    @property
    def summary(self):
        """The first sentence of the comment, without its full stop."""
        text = " ".join(" ".join(self.body).split())
        first = re.split(r"(?<=[.:;])\s", text)[0].rstrip(".:;")
        return first or f"part of {self.header.name}"

    def tagged(self, kind):
        return [text.strip() for tag, text in self.tags if tag == kind]


def read(header):
    """The comment of a header itself, as lines, and its entries."""
    about, entries = [], []
    for match in COMMENT.finditer(header.read_text(encoding="utf-8")):
        if "@file" in match["text"]:
            about = [line for line in comment_lines(match["text"]) if "@file" not in line]
        else:
            entries.append(Entry(header, match["text"], match["code"]))
    return about, [entry for entry in entries if entry.code and entry.names]
