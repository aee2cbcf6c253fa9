# SPDX-License-Identifier: MIT
"""Makes a site of HTML from README.md, the documents and the manual pages, and checks every link in it.

    site.py SOURCE-DIRECTORY OUTPUT-DIRECTORY
"""
import collections
import dataclasses
import html
import html.parser
import json
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
<link rel="stylesheet" href="{root}style.css">
</head>
<body data-root="{root}">
<header id="site-top">
<a class="brand" href="{root}index.html">vos</a>
<div class="search" role="search">
<input id="site-query" type="search" placeholder="Search (press /)" aria-label="Search all pages" autocomplete="off">
<ol id="site-results" hidden></ol>
</div>
<a class="menu" href="#site-pages">Pages</a>
</header>
<nav id="site-pages" aria-label="Pages">
<a class="close" href="#site-top">Close</a>
{navigation}
</nav>
<main>
{body}
</main>
<script src="{root}search-index.js"></script>
<script src="{root}search.js"></script>
</body>
</html>
"""
STATIC = ("style.css", "search.js")
GROUPS = ("vos", "Learn", "Use", "Formats and limits", "How it is built", "Manual")
# The documents that are no part of "How it is built".
GROUP_OF = {
    "README.md": "vos", "CONTRIBUTING.md": "vos", "CHANGELOG.md": "vos", "SECURITY.md": "vos",
    "docs/tutorial.md": "Learn", "docs/cpp.md": "Learn", "docs/porting.md": "Learn", "docs/glossary.md": "Learn", "docs/calls.md": "Learn",
    "docs/vosctl.md": "Use", "docs/seeing-messages.md": "Use", "docs/troubleshooting.md": "Use", "docs/board.md": "Use", "docs/security.md": "Use",
    "docs/install.md": "Use", "docs/versions.md": "Use", "docs/release.md": "Use", "docs/error-codes.md": "Use", "docs/power-cuts.md": "Use", "docs/time-zone.md": "Use",
    "docs/testkit.md": "Use",
    "docs/wire-format.md": "Formats and limits", "docs/flash-formats.md": "Formats and limits", "docs/size.md": "Formats and limits",
    "docs/performance.md": "Formats and limits", "docs/benchmarks/README.md": "Formats and limits",
}


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
        self.manual_pages = {}  # page of every name of the manual
        self.manual()
        for path in ("README.md", "CONTRIBUTING.md", "CHANGELOG.md", "SECURITY.md"):
            self.document(path)
        documents = [path.relative_to(source).as_posix() for path in (source / "docs").rglob("*.md")]
        order = list(GROUP_OF)
        for path in sorted(documents, key=lambda path: (order.index(path) if path in order else len(order), path)):
            self.document(path)
        for path in sorted(self.files):
            self.file(path)

    def manual(self):
        generators = self.source / "docs/manual"
        with tempfile.TemporaryDirectory() as directory:
            man = pathlib.Path(directory)
            output(sys.executable, "-B", generators / "headerPages.py", self.source, man / "man3")
            output(sys.executable, "-B", generators / "toolPage.py", self.source / "docs/vosctl.md", man / "vosctl.1")
            output(sys.executable, "-B", generators / "kitPages.py", self.source, man)
            for file in sorted((man / "man3").iterdir()):
                text = file.read_text(encoding="utf-8")
                name = re.fullmatch(r"\.so man3/(.*)\.3\n", text)
                self.manual_pages[file.stem] = f"manual/{name.group(1) if name else file.stem}.3.html"
                if not name:
                    self.manual_page(file)
            for file in sorted(man.glob("*.1"), key=lambda file: (file.stem != "vosctl", file.stem)):
                self.manual_page(file)
        for page in self.pages:
            page.body = re.sub(r"<b>([\w\-\\]+)</b>\s*\((\d)\)", lambda found: self.reference(page, *found.group(1, 2, 0)), page.body)
            # a call in the text; not in a heading, a declaration or the markup
            calls = r"<(pre|h\d|a)\b.*?</\1>|<[^>]*>|\b(\w+)\(\)"
            page.body = re.sub(calls, lambda found: self.named(page, found[2], found[0]), page.body, flags=re.S)

    def manual_page(self, file):
        body = output("mandoc", "-T", "html", "-O", "fragment", file)
        body = re.sub(r"\n<br/>\n", "\n", body)  # a line of a declaration
        body = re.sub(r"<(/?)h([12])\b", lambda tag: f"<{tag[1]}h{int(tag[2]) + 1}", body)
        body = f"<h1>{file.stem}</h1>\n{body}"
        # The overview of a header and the tool's page are in the navigation, the pages of single names are not.
        group = "Manual" if (self.source / "include" / f"{file.stem}.h").exists() or file.stem.endswith(".hpp") or file.suffix == ".1" else ""
        self.pages.append(Page(f"manual/{file.name}.html", f"{file.stem}({file.suffix[1:]})", body, group))

    def reference(self, page, name, section, text):
        """Makes a link of a reference of the manual, such as name(3)."""
        target = f"manual/{name}.1.html" if section == "1" and name.startswith("vosctl") else self.manual_pages.get(name)
        return f'<a href="{html.escape(page.to(target))}">{text}</a>' if target and target != page.path else text

    def named(self, page, name, text):
        """Makes a link from a name of the interface to its manual page."""
        target = self.manual_pages.get(name)
        return f'<a href="{html.escape(page.to(target))}">{text}</a>' if target and target != page.path else text

    def document(self, path):
        body = output("lowdown", "-T", "html", "--out-no-smarty", self.source / path)
        title = html.unescape(re.search(r"<h1[^>]*>(.*?)</h1>", body).group(1))
        group = GROUP_OF.get(path, "How it is built")
        page = Page(place(path), "Overview" if path == "README.md" else title, body, group)

        def link(match):
            attribute, target = match.group(1), html.unescape(match.group(2))
            address, hash_sign, anchor = target.partition("#")
            if not address or urllib.parse.urlsplit(target).scheme:
                return match.group()
            found = os.path.normpath(os.path.join(os.path.dirname(path), urllib.parse.unquote(address)))
            if not (self.source / found).is_file():
                return match.group()  # the check of links reports it
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
            if not (self.target / path).exists():  # those of docs/pictures are drawn
                shutil.copy(self.source / path, self.target / path)
            return
        text = html.escape((self.source / path).read_text(encoding="utf-8"))
        body = f"<h1><code>{html.escape(path)}</code></h1>\n<pre><code>{text}</code></pre>"
        self.pages.append(Page(place(path), path, body))

    def navigation(self, current):
        out = []
        for group in GROUPS:
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
        for name in STATIC:
            shutil.copy(pathlib.Path(__file__).parent / name, self.target / name)
        index = [[page.title, page.path, *searched(page.body)] for page in self.pages]
        text = json.dumps(index, ensure_ascii=False, separators=(",", ":"))
        (self.target / "search-index.js").write_text(f"const searchIndex={text};\n", encoding="utf-8")
        for page in self.pages:
            title = "vos" if page.path == "index.html" else f"{page.title} - vos"
            file = self.target / page.path
            file.parent.mkdir(parents=True, exist_ok=True)
            root = page.to(".") + "/" if "/" in page.path else ""
            file.write_text(TEMPLATE.format(title=html.escape(title), root=root, body=page.body.strip(),
                                            navigation=self.navigation(page)), encoding="utf-8")


def searched(body):
    """The text that the search uses: the headings of a page, and its words, each once, in their order."""
    headings = " ".join(re.findall(r"<h[1-3][^>]*>(.*?)</h[1-3]>", body, flags=re.S))
    plain = [html.unescape(re.sub(r"<[^>]*>", " ", text)) for text in (headings, body)]
    words = dict.fromkeys(word.lower() for word in re.findall(r"[\w/.\-]{2,}", plain[1]))
    first = re.search(r"<p\b[^>]*>(.*?)</p>", body, flags=re.S)
    summary = " ".join(html.unescape(re.sub(r"<[^>]*>", "", first.group(1) if first else "")).split())
    return " ".join(plain[0].lower().split()), summary[:120], " ".join(words)


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
    if target.exists() and any(target.iterdir()) and not (target / STATIC[0]).is_file():
        sys.exit(f"{target} holds something else than a site")
    shutil.rmtree(target, ignore_errors=True)
    target.mkdir(parents=True)
    output(sys.executable, "-B", source / "docs/pictures/draw.py", source, target / "docs/pictures")
    site = Site(source, target)
    site.write()
    broken = list(broken_links(target))
    for each in broken:
        print("broken link:", each, file=sys.stderr)
    print(f"{len(site.pages)} pages, {len(broken)} broken links")
    return bool(broken)


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()))
