# SPDX-License-Identifier: MIT
"""Makes a site of HTML from README.md, the documents and the manual pages, and checks every link in it.

    site.py SOURCE-DIRECTORY OUTPUT-DIRECTORY
"""
import collections
import dataclasses
import html
import html.parser
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import urllib.parse

TEMPLATE = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>{title}</title>
<link rel="stylesheet" href="{style}">
</head>
<body>
<nav aria-label="Pages">
{navigation}
</nav>
<main>
{body}
</main>
</body>
</html>
"""
STYLE = "style.css"


@dataclasses.dataclass
class Page:
    path: str  # in the site
    title: str
    body: str
    group: str = ""  # in the navigation; without one the page is not there

    def to(self, path):
        """The link from this page to another file of the site."""
        return urllib.parse.quote(os.path.relpath(path, os.path.dirname(self.path)))

    @property
    def sections(self):
        """Anchor and title of the sections of the second level."""
        found = re.findall(r'<h2[^>]* id="([^"]*)"[^>]*>(.*?)</h2>', self.body, flags=re.S)
        return [(html.unescape(anchor), re.sub(r"<[^>]*>", "", title)) for anchor, title in found]


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def place(path):
    """Where a file of the tree is in the site."""
    if path.endswith("README.md"):
        return path.removesuffix("README.md") + "index.html"
    if path.endswith(".md"):
        return path.removesuffix(".md") + ".html"
    return path if path.endswith(".svg") else path + ".html"


class Site:
    def __init__(self, source, target):
        self.source, self.target = source, target
        self.pages, self.files = [], set()
        self.anchors = {}  # page and anchor of every exported name
        self.manual()
        for path in ("README.md", "CONTRIBUTING.md", "CHANGELOG.md"):
            self.document(path, "vos")
        documents = [path.relative_to(source).as_posix() for path in (source / "docs").rglob("*.md")]
        for path in sorted(documents, key=lambda path: path.removesuffix("/README.md")):
            self.document(path, "Documents")
        for path in sorted(self.files):
            self.file(path)

    def manual(self):
        generators = self.source / "docs/manual"
        with tempfile.TemporaryDirectory() as pages:
            pages = pathlib.Path(pages)
            output(sys.executable, "-B", generators / "headerPages.py", self.source / "include", pages)
            output(sys.executable, "-B", generators / "toolPage.py", self.source / "docs/vosctl.md", pages / "vosctl.1")
            for each in sorted(pages.iterdir(), key=lambda page: (page.suffix, page.stem)):
                body = output("mandoc", "-T", "html", "-O", "fragment,man=%N.%S.html", "-I", "os=vos", each)
                page = Page(f"manual/{each.name}.html", f"{each.stem}({each.suffix[1:]})", body, "Manual")
                self.pages.append(page)
                for anchor, _ in page.sections if each.suffix == ".3" else ():
                    for name in re.findall(r"\w+", anchor):
                        self.anchors.setdefault(name.strip("_"), (page.path, anchor))
        for page in self.pages:
            # a call in the text; not in a heading, a declaration or the markup
            calls = r"<(pre|h\d)\b.*?</\1>|<[^>]*>|\b(\w+)\(\)"
            page.body = re.sub(calls, lambda found: self.named(page, found[2], found[0]), page.body, flags=re.S)

    def named(self, page, name, text):
        """A name of the interface leads to its manual page."""
        if name not in self.anchors:
            return text
        path, anchor = self.anchors[name]
        return f'<a href="{html.escape(page.to(path) + "#" + anchor)}">{text}</a>'

    def document(self, path, group):
        body = output("lowdown", "-T", "html", "--out-no-smarty", self.source / path)
        title = html.unescape(re.search(r"<h1[^>]*>(.*?)</h1>", body).group(1))
        page = Page(place(path), "Overview" if path == "README.md" else title, body, group)

        def link(match):
            attribute, target = match.group(1), html.unescape(match.group(2))
            address, hash_sign, anchor = target.partition("#")
            if not address or urllib.parse.urlsplit(target).scheme:
                return match.group()
            found = os.path.normpath(os.path.join(os.path.dirname(path), urllib.parse.unquote(address)))
            if not (self.source / found).is_file():
                return match.group()  # the check will find it
            if not found.endswith(".md"):
                self.files.add(found)
            return f'{attribute}="{html.escape(page.to(place(found)) + hash_sign + anchor)}"'

        page.body = re.sub(r'\b(href|src)="([^"]*)"', link, page.body)
        names = r"<code>(\w+)(?:\(\))?</code>(?![^<]*</(?:a|h\d)>)"
        page.body = re.sub(names, lambda name: self.named(page, *name.group(1, 0)), page.body)
        # a bar in a cell of a table
        page.body = re.sub(r"<td.*?</td>", lambda cell: cell.group().replace("\\|", "|"), page.body, flags=re.S)
        self.pages.append(page)

    def file(self, path):
        """What a document leads to besides other documents: a picture, or a file of the tree."""
        if path.endswith(".svg"):
            (self.target / path).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(self.source / path, self.target / path)
            return
        text = html.escape((self.source / path).read_text(encoding="utf-8"))
        body = f"<h1><code>{html.escape(path)}</code></h1>\n<pre><code>{text}</code></pre>"
        self.pages.append(Page(place(path), path, body))

    def navigation(self, current):
        out = []
        for group in ("vos", "Documents", "Manual"):
            out.append(f"<h2>{group}</h2>\n<ul>")
            for page in (page for page in self.pages if page.group == group):
                here = ' aria-current="page"' if page is current else ""
                out.append(f'<li><a href="{html.escape(current.to(page.path))}"{here}>{html.escape(page.title)}</a>')
                if here and page.sections:
                    out.append("<ul>")
                    out += [f'<li><a href="#{html.escape(anchor)}">{part}</a></li>' for anchor, part in page.sections]
                    out.append("</ul>")
                out.append("</li>")
            out.append("</ul>")
        return "\n".join(out)

    def write(self):
        shutil.copy(pathlib.Path(__file__).parent / STYLE, self.target / STYLE)
        for page in self.pages:
            title = "vos" if page.path == "index.html" else f"{page.title} - vos"
            file = self.target / page.path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(TEMPLATE.format(title=html.escape(title), style=page.to(STYLE), body=page.body.strip(),
                                            navigation=self.navigation(page)), encoding="utf-8")


class Links(html.parser.HTMLParser):
    """What a page leads to, and the anchors to which others lead."""

    def __init__(self, file):
        super().__init__()
        self.links, self.anchors = [], collections.Counter()
        self.feed(file.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src"):
                self.links.append((name, value or ""))
            if name == "id":
                self.anchors[value] += 1


def broken_links(site):
    pages = {file: Links(file) for file in sorted(site.rglob("*.html"))}
    for file, page in pages.items():
        where = file.relative_to(site)
        yield from (f"{where}: the anchor {anchor} is there {n} times" for anchor, n in page.anchors.items() if n > 1)
        for attribute, link in page.links:
            parts = urllib.parse.urlsplit(link)
            if parts.scheme or parts.netloc:
                if attribute == "src":
                    yield f"{where}: {link} would need the network"
                continue
            target = file
            if parts.path:
                target = pathlib.Path(os.path.normpath(file.parent / urllib.parse.unquote(parts.path)))
            if not target.is_file() or not target.is_relative_to(site):
                yield f"{where}: {link} is not there"
            elif parts.fragment and urllib.parse.unquote(parts.fragment) not in pages[target].anchors:
                yield f"{where}: {link} has no such anchor"


def main(source, target):
    if target.exists() and any(target.iterdir()) and not (target / STYLE).is_file():
        sys.exit(f"{target} holds something else than a site")
    shutil.rmtree(target, ignore_errors=True)
    target.mkdir(parents=True)
    site = Site(source, target)
    site.write()
    broken = list(broken_links(target))
    for each in broken:
        print("broken link:", each, file=sys.stderr)
    print(f"{len(site.pages)} pages, {len(broken)} broken links")
    return bool(broken)


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()))
