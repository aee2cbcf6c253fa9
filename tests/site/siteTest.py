# SPDX-License-Identifier: MIT
"""scripts/site makes a page of README.md, of every document and of every manual page. All can be reached from the first
page. It fails when a link is broken.

    siteTest.py SOURCE-DIRECTORY
"""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

source = pathlib.Path(sys.argv[1])
failures = []


def expect(true, what):
    if not true:
        failures.append(what)


def run(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def whole_site(site):
    made = run(source / "scripts/site", site)
    expect(made.returncode == 0, f"scripts/site ended with {made.returncode}:\n{made.stdout}")
    found = {file.relative_to(site).as_posix() for file in site.rglob("*") if file.is_file()}
    wanted = {"index.html", "CONTRIBUTING.html", "SECURITY.html", "CHANGELOG.html", "style.css", "search.js", "search-index.js", "manual/vosctl.1.html",
              "manual/vosMsgSend.3.html", "manual/VOS_MSG_PEER.3.html"}
    wanted |= {f"manual/{header.stem}.3.html" for header in (source / "include").glob("*.h")}
    for file in (source / "docs").rglob("*.md"):
        page = file.relative_to(source).with_suffix(".html").as_posix()
        wanted.add(page.replace("README.html", "index.html"))
    wanted |= {file.relative_to(source).as_posix() for file in (source / "docs").rglob("*.svg")}
    expect(not wanted - found, f"missing: {sorted(wanted - found)}")

    first = (site / "index.html").read_text(encoding="utf-8") if "index.html" in found else ""
    overview = {f"manual/{header.stem}.3.html" for header in (source / "include").glob("*.h")}
    listed = "".join((site / page).read_text(encoding="utf-8") for page in overview)
    for page in sorted(name for name in found if name.endswith(".html")):
        text = (site / page).read_text(encoding="utf-8")
        by_name = page.startswith("manual/") and page not in overview and f'href="{page.removeprefix("manual/")}"' in listed
        is_source = not (page.startswith("manual/") or page in wanted)
        expect(f'href="{page}"' in first or by_name or is_source, f"neither the first page nor an overview leads to {page}")
        expect(not re.search(r'<(script|link|img)[^>]*"\w+:', text), f"{page} needs the network")
        expect(not re.search(r'href="(?!\w+:)[^"]*\.md\b', text), f"{page} leads to a source of a page")
        expect(len(text) > 1500 and text.rstrip().endswith("</html>"), f"{page} is not whole")
    print(made.stdout, end="")


def broken_link(scratch, name, link, complaint):
    """A copy of the sources with one broken link is refused."""
    tree = scratch / name
    shutil.copytree(source / "docs", tree / "docs")
    for entry in ("CHANGELOG.md", "CMakeLists.txt", "CONTRIBUTING.md", "SECURITY.md", "examples", "include", "testkit", "vos"):
        (tree / entry).symlink_to(source / entry)
    text = (source / "README.md").read_text(encoding="utf-8")
    (tree / "README.md").write_text(f"{text}\n{link}\n", encoding="utf-8")
    made = run(sys.executable, "-B", source / "docs/site/site.py", tree, scratch / f"{name}-site")
    expect(made.returncode == 1, f"{link}: ended with {made.returncode}")
    expect(f"broken link: index.html: {complaint}" in made.stdout, f"{link}: said {made.stdout}")


with tempfile.TemporaryDirectory() as directory:
    scratch = pathlib.Path(directory)
    whole_site(scratch / "site")
    broken_link(scratch, "page", "[x](docs/none.md)", "docs/none.md is not there")
    broken_link(scratch, "anchor", "[x](docs/size.md#none)", "docs/size.html#none has no such anchor")
    broken_link(scratch, "own", "[x](#none)", "#none has no such anchor")
    broken_link(scratch, "picture", "![x](docs/none.svg)", "docs/none.svg is not there")
    broken_link(scratch, "away", "![x](https://example.org/x.svg)", "https://example.org/x.svg would need the network")
    broken_link(scratch, "outside", "[x](../none)", "../none is not there")

    (scratch / "full").mkdir()
    (scratch / "full/mine").touch()
    refused = run(source / "scripts/site", scratch / "full")
    expect(refused.returncode == 1 and (scratch / "full/mine").exists(), "a directory of something else was replaced")

for failure in failures:
    print("FAILED:", failure)
sys.exit(bool(failures))
