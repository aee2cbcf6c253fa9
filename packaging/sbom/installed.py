# SPDX-License-Identifier: MIT
"""What dpkg of this machine knows about a file: its package, its version and its licences."""
import collections
import dataclasses
import functools
import os
import pathlib
import re
import subprocess

from debian.copyright import Copyright, NotMachineReadableError
from license_expression import ExpressionError, get_spdx_licensing

SPDX = get_spdx_licensing()
# The short names of Debian that differ from those of SPDX by more than upper and lower case. "GPL-2+" is handled apart.
SHORT_NAMES = {"expat": "MIT", "bsd-3-clause": "BSD-3-Clause", "bsd-2-clause": "BSD-2-Clause", "zlib": "Zlib", "public-domain": None}


def expression(text):
    """The licence expression in the spelling of SPDX; None when a part of it is unknown."""
    try:
        return str(SPDX.parse(text, validate=True)) if text else None
    except ExpressionError:
        return None


def spdx_of(short_name):
    """The SPDX expression for a short name of debian/copyright; None when there is none."""
    if short_name.lower() in SHORT_NAMES:
        return SHORT_NAMES[short_name.lower()]
    gnu = re.fullmatch(r"([AL]?GPL)-(\d)(?:\.(\d))?(\+?)", short_name)
    if gnu:
        return expression(f"{gnu[1]}-{gnu[2]}.{gnu[3] or 0}-{'or-later' if gnu[4] else 'only'}")
    return expression(short_name)


def declared(text):
    """The licence of most of the files that a debian/copyright is about, as an SPDX expression; None if the text has no fields for it."""
    try:
        known = Copyright(text.splitlines(keepends=True), strict=False)
    except (NotMachineReadableError, ValueError):
        return None
    main = [each for each in known.all_files_paragraphs() if each.files == ("*",) and each.license]
    return spdx_of(main[0].license.synopsis) if main else None


@dataclasses.dataclass(frozen=True)
class Package:
    name: str
    version: str
    architecture: str
    source: str
    homepage: str
    maintainer: str

    @property
    def purl(self):
        return f"pkg:deb/debian/{self.name}@{self.version}?arch={self.architecture}".replace("+", "%2B")

    @functools.cached_property
    def copyright_text(self):
        path = pathlib.Path("/usr/share/doc", self.name, "copyright")
        if not path.exists():
            raise SystemExit(f"sbom: {path} is missing: this machine has removed the licences of its packages")
        return path.read_text(encoding="utf-8", errors="replace")

@functools.lru_cache(None)
def package(name):
    fields = ("Package", "Version", "Architecture", "source:Package", "Homepage", "Maintainer")
    told = subprocess.run(["dpkg-query", "-W", "-f", "".join(f"${{{each}}}\n" for each in fields), name],
                          check=True, capture_output=True, text=True).stdout.splitlines()
    return Package(*told[: len(fields)])


def owners(paths):
    """The package of each file; files that no package owns are left out."""
    names = collections.defaultdict(list)
    for path in sorted(set(paths)):
        real = os.path.realpath(path)
        for spelling in {path, real, real.removeprefix("/usr") if real.startswith("/usr/lib") else real}:
            names[os.path.normpath(spelling)].append(path)
    # dpkg's exit status is 1 when one of them has no owner.
    told = subprocess.run(["dpkg", "-S", *names], check=False, capture_output=True, text=True, env={**os.environ, "LC_ALL": "C"})
    found = {}
    for line in told.stdout.splitlines():
        owner, _, path = line.partition(": ")
        if path in names and not line.startswith("diversion "):
            found.update((asked, package(owner.split(", ")[0])) for asked in names[path])
    return found
