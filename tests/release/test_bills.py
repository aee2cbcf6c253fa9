# SPDX-License-Identifier: MIT
"""The bill of materials of a package names what its programs were made of, as dpkg of this machine knows it."""
import copy
import json
import os
import shutil
import subprocess

import pytest
import spdx
from conftest import BUILD, SOURCE


def package(directory, *programs):
    """A package with these programs, stripped as those of a release are."""
    root = directory / "root"
    (root / "DEBIAN").mkdir(parents=True)
    (root / "DEBIAN/control").write_text(
        "Package: try\nVersion: 1.0\nArchitecture: amd64\nSection: libs\nMaintainer: a <a@b.invalid>\nDescription: a try\n")
    (root / "usr/lib").mkdir(parents=True)
    for program in programs:
        if program.suffix == ".a":
            shutil.copy(program, root / "usr/lib")
        else:
            subprocess.run(["strip", "-o", root / "usr/lib" / program.name, program], check=True)
    deb = directory / "try_1.0_amd64.deb"
    subprocess.run(["dpkg-deb", "--build", "--root-owner-group", root, deb], check=True, capture_output=True)
    return deb


def bill(deb):
    return subprocess.run(["/usr/bin/python3", "-B", SOURCE / "packaging/sbom/sbom.py", BUILD, deb], check=False, capture_output=True, text=True,
                          env={**os.environ, "SOURCE_DATE_EPOCH": "1795219200"})


@pytest.fixture(scope="module")
def document(tmp_path_factory):
    directory = tmp_path_factory.mktemp("bill")
    deb = package(directory, BUILD / "libvos.so.1.0.0" if (BUILD / "libvos.so.1.0.0").exists() else (BUILD / "libvos.so").resolve(),
                  BUILD / "tools/vosctl", BUILD / "libvos.a")
    done = bill(deb)
    assert done.returncode == 0, done.stderr
    return json.loads(deb.with_suffix(".spdx.json").read_text())


def of(document, file, kind):
    """The packages to which a file has this relation."""
    names = {each["SPDXID"]: each["name"] for each in document["packages"]}
    return {names[each["relatedSpdxElement"]] for each in document["relationships"]
            if each["spdxElementId"].endswith(file) and each["relationshipType"] == kind}


def used(document, name):
    (found,) = [each for each in document["packages"] if each["name"] == name]
    return found


def test_the_library_needs_the_c_library_only(document):
    (library,) = [each["fileName"] for each in document["files"] if "libvos.so" in each["fileName"]]
    assert of(document, library.split("/")[-1], "DYNAMIC_LINK") == {"libc6"}


def test_the_tool_has_the_header_only_libraries_in_it_and_needs_the_one_of_cpp(document):
    assert of(document, "vosctl", "DYNAMIC_LINK") >= {"libc6", "libstdc++6"}
    assert of(document, "vosctl", "GENERATED_FROM") >= {"libcli11-dev", "nlohmann-json3-dev", "libstdc++-12-dev"}
    assert of(document, "vosctl", "STATIC_LINK") >= {"libc6-dev", "libgcc-12-dev"}  # what starts a program


def test_the_static_library_names_its_headers_and_not_those_of_the_tool(document):
    assert "libstdc++-12-dev" in of(document, "libvos.a", "GENERATED_FROM")
    assert "libcli11-dev" not in of(document, "libvos.a", "GENERATED_FROM")


def test_versions_and_licences_are_those_of_this_machine(document):
    for name in ("libc6", "libcli11-dev", "nlohmann-json3-dev"):
        version = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", name], check=True, capture_output=True, text=True).stdout
        assert used(document, name)["versionInfo"] == version
    assert used(document, "libcli11-dev")["licenseDeclared"] == "BSD-3-Clause"
    assert used(document, "nlohmann-json3-dev")["licenseDeclared"] == "MIT"
    # Debian's file about the C library is free text, so the document has all of it.
    reference = used(document, "libc6")["licenseDeclared"]
    (text,) = [each["extractedText"] for each in document["hasExtractedLicensingInfos"] if each["licenseId"] == reference]
    assert "GNU Lesser General Public" in text


def test_a_program_of_which_the_build_has_no_record_is_refused(tmp_path):
    shutil.copy("/bin/true", tmp_path / "foreign")
    done = bill(package(tmp_path, tmp_path / "foreign"))
    assert done.returncode == 1 and "the build has no record of usr/lib/foreign" in done.stderr


def without(*path):
    def change(document):
        for name in path[:-1]:
            document = document[name]
        del document[path[-1]]
    return change


def with_value(value, *path):
    def change(document):
        for name in path[:-1]:
            document = document[name]
        document[path[-1]] = value
    return change


@pytest.mark.parametrize("change", [
    without("documentNamespace"), without("creationInfo", "created"), without("packages", 1, "downloadLocation"),
    without("packages", 1, "versionInfo"), without("packages", 0, "packageVerificationCode"), without("files", 0, "checksums"),
    with_value("SPDX-2.2", "spdxVersion"), with_value("no such licence", "packages", 1, "licenseDeclared"),
    with_value("LicenseRef-nowhere", "packages", 1, "licenseDeclared"), with_value("SPDXRef-nowhere", "relationships", 0, "relatedSpdxElement"),
    with_value("SPDXRef-DOCUMENT", "packages", 0, "SPDXID"), with_value("BUILT_BY", "relationships", 1, "relationshipType"),
    with_value([], "packages"),
])
def test_a_document_that_breaks_the_standard_is_refused(document, change):
    spdx.check(document)
    broken = copy.deepcopy(document)
    change(broken)
    with pytest.raises(spdx.Invalid):
        spdx.check(broken)
