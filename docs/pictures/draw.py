# SPDX-License-Identifier: MIT
"""Draws the pictures of the documents: SVG from docs/pictures/*.dot (Graphviz) and *.msc (mscgen), for light and dark
backgrounds.

    draw.py SOURCE-DIRECTORY OUTPUT-DIRECTORY
"""
import pathlib
import re
import subprocess
import sys
import tempfile

# A picture follows the colours that the reader's browser asks for, also where it is shown as an image.
STYLE = """<style>
svg { --ink: #1d2126; --paper: #ffffff; --box: #eef3f8; --files: #f6f0e2; --kernel: #e6f2e6; --person: #f3e8f3; --line: #5b6570; }
@media (prefers-color-scheme: dark) {
svg { --ink: #d8dee4; --paper: #14181c; --box: #22303d; --files: #3a3322; --kernel: #20361f; --person: #38263a; --line: #98a3ae; }
}
text { fill: var(--ink); font-family: system-ui, sans-serif; }
.paper { fill: var(--paper); stroke: none; }
.node path, .node polygon, .node ellipse { stroke: var(--line); fill: var(--box); }
.files path, .files polygon { fill: var(--files); }
.kernel path { fill: var(--kernel); }
.person path { fill: var(--person); }
.cluster path, .cluster polygon { stroke: var(--line); fill: none; stroke-dasharray: 4 3; }
.edge path { stroke: var(--line); fill: none; }
.edge polygon { stroke: var(--line); fill: var(--line); }
.msc line, .msc path { stroke: var(--line); fill: none; }
.msc polygon { fill: var(--paper); stroke: none; }
.msc text { font-size: 10.5px; }
.msc polygon.tip { fill: var(--line); }
</style>
"""


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def graph(file):
    svg = run("dot", "-T", "svg", str(file))
    svg = svg[svg.index("<svg"):]
    svg = re.sub(r'<polygon fill="white" stroke="transparent"', '<polygon class="paper"', svg, count=1)
    svg = re.sub(r'<polygon fill="white" stroke="none"', '<polygon class="paper"', svg, count=1)
    svg = re.sub(r' (?:fill|stroke|font-family)="[^"]*"', "", svg)
    svg = re.sub(r"<title>.*?</title>\n?", "", svg)
    return re.sub(r"<!--.*?-->\n?", "", svg, flags=re.S)


def sequence(file):
    with tempfile.NamedTemporaryFile(suffix=".svg") as made:
        run("mscgen", "-T", "svg", "-i", str(file), "-o", made.name)
        svg = pathlib.Path(made.name).read_text(encoding="utf-8")
    svg = svg[svg.index("<svg"):]
    # mscgen paints a white ground behind each text, and black tips of arrows.
    svg = re.sub(r'<polygon fill="black"', '<polygon class="tip"', svg)
    svg = re.sub(r' (?:fill|stroke)="(?:black|white)"', "", svg)
    svg = re.sub(r' font-family="[^"]*"', "", svg)
    svg = re.sub(r' textLength="[^"]*"', "", svg)
    return svg.replace("<svg ", '<svg class="msc" ', 1)


def labels(svg):
    """The texts of a picture, in order."""
    return re.findall(r"<text[^>]*>\s*([^<]*?)\s*</text>", svg)


def main(source, output):
    output.mkdir(parents=True, exist_ok=True)
    for file in sorted((source / "docs/pictures").iterdir()):
        if file.suffix in (".dot", ".msc"):
            svg = (graph if file.suffix == ".dot" else sequence)(file)
            svg = re.sub(r"(<svg[^>]*>\n?)", lambda start: start.group(1) + STYLE, svg, count=1)
            (output / f"{file.stem}.svg").write_text(svg, encoding="utf-8")


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))
