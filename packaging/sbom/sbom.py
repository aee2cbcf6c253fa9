# SPDX-License-Identifier: MIT
"""Writes the bill of materials of Debian packages, FILE.spdx.json next to each FILE.deb: SPDX 2.3 in JSON, with the versions and
licences of what was linked to a program or compiled into it.

    sbom.py BUILD-DIRECTORY PACKAGE.deb...

The build must have been made with VOS_RECORD_LINKS. SOURCE_DATE_EPOCH gives the time in the document.
"""
import dataclasses
import datetime
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

import installed as dpkg
import spdx
from inputs import Build, is_elf

# A file of a package and another package.
DYNAMIC, STATIC, COMPILED = "DYNAMIC_LINK", "STATIC_LINK", "GENERATED_FROM"
SAID = {
    DYNAMIC: "needed at run time; this is the version that the build linked with",
    STATIC: "objects and archives that the linker read; an archive may have contributed nothing",
    COMPILED: "headers that the compiler read",
}


def identifier(kind, name):
    """An identifier of SPDX, which has no other characters; "/" and "-" become one, others do not."""
    known = re.sub(r"[^A-Za-z0-9.]", lambda each: f"-{ord(each[0]):x}-" if each[0] not in "/-" else "-", name)
    return f"{kind}-{known}"


def digest(path, algorithm):
    return hashlib.new(algorithm, pathlib.Path(path).read_bytes()).hexdigest()


def field(deb, name):
    return subprocess.run(["dpkg-deb", "-f", deb, name], check=True, capture_output=True, text=True).stdout.strip()


def named(files):
    """The licences that the used files name themselves, as expressions of SPDX; None among them for a file that names none."""
    found = set()
    for path in files:
        with open(path, encoding="utf-8", errors="replace") as file:
            told = re.search(r"SPDX-License-Identifier:\s*(.+?)\s*(?:\*/)?\s*$", file.read(4000), flags=re.M)
        found.add(dpkg.expression(told[1]) if told else None)
    return found


@dataclasses.dataclass
class Bill:
    """The document of one package."""

    deb: pathlib.Path
    build: Build

    def __post_init__(self):
        self.files, self.relations, self.used = [], set(), {}
        with tempfile.TemporaryDirectory() as root:
            subprocess.run(["dpkg-deb", "-x", self.deb, root], check=True)
            for path in sorted(pathlib.Path(root).rglob("*")):
                if path.is_file() and not path.is_symlink():
                    self.add_file(path, path.relative_to(root).as_posix())

    def add_file(self, path, name):
        known = {
            "SPDXID": identifier("SPDXRef-File", name),
            "fileName": f"./{name}",
            "checksums": [{"algorithm": each.upper(), "checksumValue": digest(path, each)} for each in ("sha1", "sha256")],
            "licenseConcluded": self.build.licence,
            "copyrightText": "NOASSERTION",
        }
        inputs = None
        if name.endswith(".a"):
            inputs = self.build.of_archive(path.name)
        elif is_elf(path):
            inputs = self.build.of_program(path)
        if inputs:
            known["fileTypes"] = ["BINARY"]
            self.add_inputs(known["SPDXID"], inputs)
        elif name.endswith(".a") or is_elf(path):
            raise SystemExit(f"sbom: the build has no record of {name} in {self.deb.name}")
        self.files.append(known)

    def add_inputs(self, file, inputs):
        for kind, paths in ((DYNAMIC, inputs.shared), (STATIC, inputs.static), (COMPILED, inputs.headers)):
            foreign = [each for each in paths if not each.startswith((f"{self.build.source}/", f"{self.build.directory}/"))]
            owners = dpkg.owners(foreign)
            unknown = [each for each in foreign if each not in owners]
            if unknown:
                raise SystemExit(f"sbom: no package of this machine owns {', '.join(unknown[:3])}")
            for path, package in owners.items():
                self.relations.add((file, kind, package.name))
                self.used.setdefault(package, set()).update({path} if kind == COMPILED else ())

    def own_package(self):
        hashes = sorted(each["checksums"][0]["checksumValue"] for each in self.files)
        return {
            "SPDXID": "SPDXRef-Package",
            "name": field(self.deb, "Package"),
            "versionInfo": field(self.deb, "Version"),
            "packageFileName": self.deb.name,
            "supplier": "Organization: vos maintainers",
            "downloadLocation": "NOASSERTION",
            "filesAnalyzed": True,
            "packageVerificationCode": {"packageVerificationCodeValue": hashlib.sha1("".join(hashes).encode()).hexdigest()},
            "checksums": [{"algorithm": "SHA256", "checksumValue": digest(self.deb, "sha256")}],
            "licenseConcluded": self.build.licence,
            "licenseDeclared": self.build.licence,
            "licenseInfoFromFiles": [self.build.licence],
            "copyrightText": "2026 The vos developers",
            "hasFiles": [each["SPDXID"] for each in self.files],
            "primaryPackagePurpose": "LIBRARY" if field(self.deb, "Section") in ("libs", "libdevel") else "APPLICATION",
        }

    def used_package(self, package):
        found = named(self.used[package])
        all_of = " AND ".join(f"({each})" for each in sorted(found - {None}))
        return {
            "SPDXID": identifier("SPDXRef-Used", package.name),
            "name": package.name,
            "versionInfo": package.version,
            "supplier": f"Person: {package.maintainer}",
            "downloadLocation": "NOASSERTION",
            **({"homepage": package.homepage} if package.homepage else {}),
            "sourceInfo": f"Debian's source package {package.source}, {package.architecture}",
            "filesAnalyzed": False,
            "licenseConcluded": dpkg.expression(all_of) if found and None not in found else "NOASSERTION",
            "licenseDeclared": dpkg.declared(package.copyright_text) or identifier("LicenseRef", package.name),
            "licenseComments": "Declared: what the package's file of copyrights says of most of its files, or that file as a whole. "
            "Concluded: what the headers that were used say themselves, if each of them says it."
            + (f" Some of them say: {all_of}." if None in found and all_of else ""),
            "copyrightText": package.copyright_text,
            "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl", "referenceLocator": package.purl}],
        }

    def document(self):
        used = [self.used_package(each) for each in sorted(self.used, key=lambda each: each.name)]
        without_name = [each for each in used if each["licenseDeclared"].startswith("LicenseRef-")]
        moment = datetime.datetime.fromtimestamp(int(os.environ["SOURCE_DATE_EPOCH"]), datetime.timezone.utc)
        described = self.own_package()
        relationships = [("SPDXRef-DOCUMENT", "DESCRIBES", described["SPDXID"], None)]
        relationships += [(described["SPDXID"], "CONTAINS", each["SPDXID"], None) for each in self.files]
        relationships += [(file, kind, identifier("SPDXRef-Used", name), SAID[kind]) for file, kind, name in sorted(self.relations)]
        return {
            "spdxVersion": "SPDX-2.3",
            "dataLicense": "CC0-1.0",
            "SPDXID": "SPDXRef-DOCUMENT",
            "name": self.deb.stem,
            "documentNamespace": f"https://vos.invalid/spdx/{self.deb.stem}-{digest(self.deb, 'sha256')}",
            "creationInfo": {"created": moment.strftime("%Y-%m-%dT%H:%M:%SZ"), "creators": ["Organization: vos maintainers", "Tool: packaging/sbom"]},
            "documentDescribes": [described["SPDXID"]],
            "packages": [described, *used],
            "files": self.files,
            "hasExtractedLicensingInfos": [
                {"licenseId": each["licenseDeclared"], "name": f"Debian's file of copyrights of {each['name']}", "extractedText": each["copyrightText"]}
                for each in without_name
            ],
            "relationships": [
                {"spdxElementId": element, "relationshipType": kind, "relatedSpdxElement": related, **({"comment": said} if said else {})}
                for element, kind, related, said in relationships
            ],
        }


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    build = Build(sys.argv[1])
    for deb in map(pathlib.Path, sys.argv[2:]):
        document = Bill(deb, build).document()
        spdx.check(document)
        deb.with_suffix(".spdx.json").write_text(json.dumps(document, indent=1, ensure_ascii=False) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
