# SPDX-License-Identifier: MIT
"""Text to the macros of a manual page, man(7)."""
import os
import re
import textwrap
import time

WIDTH = 72  # of a declaration: with its indentation it fits into 80 columns


def escape(line):
    line = line.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + line if line.startswith((".", "'")) else line


def quoted(text):
    return '"' + text.replace('"', '""') + '"'


def heading(name, section, version):
    day = time.strftime("%Y-%m-%d", time.gmtime(float(os.environ.get("SOURCE_DATE_EPOCH", time.time()))))
    return f".TH {quoted(name)} {section} {day} {quoted('vos ' + version)} {quoted('vos manual')}"


def sentences(lines):
    """Each sentence begins a line, as the formatter wants it."""
    text = " ".join(" ".join(lines).split())
    return [escape(each) for each in re.split(r"(?<=[.?!])\s+(?=\S)", text)]


def literal(lines, indent=True):
    text = [escape(line) or "\\&" for line in textwrap.dedent("\n".join(lines)).splitlines()]
    block = [".nf", *text, ".fi"]
    return [".RS 4", *block, ".RE"] if indent else block


def bullets(items):
    return [line for item in items for line in (".IP \\(bu 2", *sentences([item]))]


def prose(lines):
    """Paragraphs, lists and, where a line is indented, literal text."""
    out, block, kind = [], [], None

    def flush():
        if not block:
            return
        if kind == "literal":
            while block and not block[-1].strip():
                block.pop()
            out.extend([".PP", *literal(block)])
        elif kind == "list":
            out.extend(bullets(" ".join(item.split("\n")) for item in re.split(r"^- ", "\n".join(block), flags=re.M)[1:]))
        else:
            out.extend([".PP", *sentences(block)])
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
            "literal" if line.startswith("  ") else "text")
        if new != kind:
            flush()
            kind = new
        block.append(line)
    flush()
    return out[1:] if out[:1] == [".PP"] else out


def prototype(code):
    """The declaration of one function, wrapped at WIDTH."""
    flat = " ".join(code.split())
    if len(flat) <= WIDTH:
        return [flat]
    start, _, rest = flat.partition("(")
    indent = len(start) + 1 if len(start) < 34 else 8
    lines, line = [], start + "("
    for word in re.findall(r"[^,]+,?", rest):
        word = word.strip()
        if len(line) + 1 + len(word) > WIDTH and not line.endswith("("):
            lines.append(line)
            line = " " * indent + word
        else:
            line += word if line.endswith("(") else " " + word
    return [*lines, line]


def declarations(code):
    """Declarations for a synopsis: functions wrapped, records and constants line by line, without their comments."""
    out, statement, depth = [], [], 0
    for line in re.sub(r"[ \t]*/\*.*?\*/", "", code, flags=re.DOTALL).splitlines():
        if not line.strip():
            continue
        statement.append(re.sub(r"(?<=\S) {2,}", " ", line.rstrip()))
        depth += line.count("{") - line.count("}")
        if depth == 0 and (line.rstrip().endswith(";") or line.startswith("#define")):
            text = "\n".join(statement)
            out += text.splitlines() if "{" in text or line.startswith("#define") else prototype(text)
            statement = []
    return out + statement


def members(code):
    """A list of the members, constants or variables that have a comment of their own behind them."""
    out = []
    for declared, comment in re.findall(r"([^\n;,{]*)[;,]?[ \t]*/\*(.*?)\*/", code, flags=re.DOTALL):
        value = re.match(r"\s*(\w+)\s*=\s*(\S+)", declared)
        name = re.search(r"\(\*(\w+)\)|(\w+)(?:\[[^\]]*\])*\s*$", declared)
        if value or name:
            title = f"{value[1]} ({value[2]})" if value else name[1] or name[2]
            out += [".TP", f".B {escape(title)}", *sentences([comment])]
    return out


def see_also(names):
    """References to other pages: pairs of a name and a section."""
    names = list(names)
    return [f".BR {escape(name)} ({section}){',' if place < len(names) - 1 else ''}"
            for place, (name, section) in enumerate(names)]
