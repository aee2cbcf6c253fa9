# SPDX-License-Identifier: MIT
"""Checks a bill of materials. Debian 12 has no validator of SPDX documents and no copy of their schema, so the mandatory fields, the
types, the references within the document and the licence expressions are checked here against the standard, SPDX 2.3.

    spdx.py FILE.spdx.json...
"""
import json
import pathlib
import re
import sys

from license_expression import get_spdx_licensing

SPDX = get_spdx_licensing()
NO_LICENCE = ("NOASSERTION", "NONE")
LENGTHS = {"SHA1": 40, "SHA256": 64}
RELATIONSHIPS = {"DESCRIBES", "CONTAINS", "DYNAMIC_LINK", "STATIC_LINK", "GENERATED_FROM"}


class Invalid(Exception):
    """The document is not what the standard asks for."""


def need(holds, what):
    if not holds:
        raise Invalid(what)


def text(of, name, pattern=r"(?s).+"):
    need(isinstance(of.get(name), str) and re.fullmatch(pattern, of[name]), f"{of.get('SPDXID', 'a member')}: {name} is {of.get(name)!r}")


def licence(of, name, references):
    text(of, name)
    if of[name] in NO_LICENCE:
        return
    own = set(re.findall(r"LicenseRef-[A-Za-z0-9.-]+", of[name]))
    need(own <= references, f"{of['SPDXID']}: {name} names {own - references}, whose text is not there")
    rest = re.sub(r"LicenseRef-[A-Za-z0-9.-]+", "MIT", of[name])
    need(not SPDX.validate(rest).errors, f"{of['SPDXID']}: {name} is no expression of SPDX: {of[name]!r}")


def checksums(of, wanted):
    found = {each.get("algorithm"): each.get("checksumValue") for each in of.get("checksums", ())}
    need(wanted in found, f"{of['SPDXID']}: has no {wanted}")
    for algorithm, value in found.items():
        need(re.fullmatch(f"[0-9a-f]{{{LENGTHS.get(algorithm, 0)}}}", value or ""), f"{of['SPDXID']}: {algorithm} is {value!r}")


def check_package(package, references):
    for name in ("name", "versionInfo", "downloadLocation", "copyrightText"):
        text(package, name)
    text(package, "supplier", r"(Person|Organization): .+|NOASSERTION")
    licence(package, "licenseConcluded", references)
    licence(package, "licenseDeclared", references)
    need(isinstance(package.get("filesAnalyzed"), bool), f"{package['SPDXID']}: filesAnalyzed is not said")
    if package["filesAnalyzed"]:
        text(package.get("packageVerificationCode", {}), "packageVerificationCodeValue", "[0-9a-f]{40}")
    for each in package.get("externalRefs", ()):
        need(each.get("referenceCategory") in ("SECURITY", "PACKAGE-MANAGER", "PERSISTENT-ID", "OTHER"), f"{package['SPDXID']}: {each}")
        text(each, "referenceType")
        text(each, "referenceLocator", r"pkg:\S+")


def check(document):
    """Raises Invalid."""
    text(document, "spdxVersion", r"SPDX-2\.3")
    text(document, "dataLicense", r"CC0-1\.0")
    text(document, "SPDXID", "SPDXRef-DOCUMENT")
    text(document, "name")
    text(document, "documentNamespace", r"[a-z]+://[^#\s]+")
    creation = document.get("creationInfo", {})
    text(creation, "created", r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ")
    need(creation.get("creators"), "it names no creator")
    for each in creation["creators"]:
        need(re.fullmatch(r"(Person|Organization|Tool): .+", each), f"a creator is {each!r}")
    extracted = document.get("hasExtractedLicensingInfos", [])
    for each in extracted:
        text(each, "licenseId", r"LicenseRef-[A-Za-z0-9.-]+")
        text(each, "extractedText")
    references = {each["licenseId"] for each in extracted}
    need(document.get("packages"), "it has no package")
    for package in document["packages"]:
        check_package(package, references)
    for file in document.get("files", ()):
        text(file, "fileName", r"\./.+")
        checksums(file, "SHA1")
        licence(file, "licenseConcluded", references)
    elements = [document, *document["packages"], *document.get("files", ())]
    for each in elements:
        text(each, "SPDXID", r"SPDXRef-[A-Za-z0-9.-]+")
    known = {each["SPDXID"] for each in elements}
    need(len(known) == len(elements), "two elements have the same SPDXID")
    for each in document.get("relationships", ()):
        need({each.get("spdxElementId"), each.get("relatedSpdxElement")} <= known, f"a relationship names an unknown element: {each}")
        need(each.get("relationshipType") in RELATIONSHIPS, f"an unknown relationship: {each}")
    need(any(each["relationshipType"] == "DESCRIBES" for each in document.get("relationships", ())), "it describes nothing")


def main():
    for path in map(pathlib.Path, sys.argv[1:]):
        try:
            check(json.loads(path.read_text(encoding="utf-8")))
        except (Invalid, ValueError) as error:
            sys.exit(f"{path}: {error}")


if __name__ == "__main__":
    main()
