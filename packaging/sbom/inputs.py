# SPDX-License-Identifier: MIT
"""What a built file was made of, from the records of the build: ninja's log of what each compilation read, and the linker's
list of what it read (VOS_RECORD_LINKS). A packaged program is found again by its build identifier."""
import dataclasses
import os
import pathlib
import re
import subprocess

from installed import declared

def run(*command, directory=None):
    return subprocess.run(command, check=True, capture_output=True, text=True, cwd=directory, env={**os.environ, "LC_ALL": "C"}).stdout


def build_id(path):
    told = re.search(r"Build ID: (\w+)", run("readelf", "-nW", path))
    return told[1] if told else None


def dynamic(path, tag):
    """The names of a kind in the dynamic section: NEEDED, SONAME."""
    return re.findall(rf"\({tag}\)[^\[]*\[([^\]]*)\]", run("readelf", "-dW", path))


def is_elf(path):
    with open(path, "rb") as file:
        return file.read(4) == b"\x7fELF"


@dataclasses.dataclass(frozen=True)
class Inputs:
    headers: frozenset  # compiled in
    static: frozenset  # objects and archives that the linker read
    shared: frozenset  # shared libraries that the program needs at run time


class Build:
    def __init__(self, directory):
        self.directory = pathlib.Path(directory).resolve()
        cache = (self.directory / "CMakeCache.txt").read_text(encoding="utf-8")
        self.source = pathlib.Path(re.search(r"^CMAKE_HOME_DIRECTORY:INTERNAL=(.*)$", cache, flags=re.M)[1]).resolve()
        self.licence = declared((self.source / "packaging/debian/copyright").read_text(encoding="utf-8"))
        self.read = self.compilations()
        self.links = [self.link(path) for path in sorted((self.directory / "links").iterdir())]
        self.by_id = {build_id(self.directory / output): inputs for output, inputs in self.links if (self.directory / output).exists()}

    def absolute(self, path):
        return os.path.normpath(self.directory / path)

    def compilations(self):
        """The files that each compilation read."""
        read, current = {}, None
        for line in run("ninja", "-t", "deps", directory=self.directory).splitlines():
            if line.startswith("    "):
                current.add(self.absolute(line.strip()))
            elif ": #deps" in line:
                current = read.setdefault(self.absolute(line.split(": #deps")[0]), set())
        return read

    def link(self, path):
        """Name of what was linked, and the files that the linker read for it."""
        output, _, files = path.read_text(encoding="utf-8").split("\n\n")[0].replace("\\\n", " ").partition(":")
        return output.strip(), [self.absolute(each) for each in files.split("\n")[0].split()]

    def headers_of(self, objects):
        """The files read for these objects, and for the precompiled headers that they need."""
        objects = [each for each in objects if each in self.read]
        if not objects:
            return frozenset()
        needed = run("ninja", "-t", "inputs", *(os.path.relpath(each, self.directory) for each in objects), directory=self.directory)
        precompiled = [self.absolute(each) for each in needed.split() if each.endswith((".gch", ".pch"))]
        found = set().union(*(self.read[each] for each in [*objects, *precompiled]))
        real = map(os.path.realpath, found)  # a directory of links leads to the header-only libraries
        return frozenset(each for each in real if not each.startswith(f"{self.directory}/"))

    def of_program(self, path):
        """What a packaged program or shared library was made of; None if this build has not made it."""
        files = self.by_id.get(build_id(path))
        if files is None:
            return None
        needed = set(dynamic(path, "NEEDED"))
        objects = {each for each in files if each in self.read}
        others = {each for each in files if each not in self.read and os.path.exists(each)}
        shared = {each for each in others if ".so" in os.path.basename(each)}
        libraries = set(map(os.path.realpath, shared))  # the link without a version is of another package
        return Inputs(
            self.headers_of(objects),
            frozenset(each for each in others - shared if re.search(r"\.(a|o)$", each)),
            frozenset(each for each in libraries if is_elf(each) and needed & set(dynamic(each, "SONAME"))),
        )

    def of_archive(self, name):
        """What a static library was compiled of."""
        # Not by looking for files: a test installs into the directory of the build.
        targets = run("ninja", "-t", "targets", "all", directory=self.directory).splitlines()
        made = [each for each in (line.rpartition(": ")[0] for line in targets) if os.path.basename(each) == name]
        if len(made) != 1:
            return None
        told = run("ninja", "-t", "inputs", made[0], directory=self.directory)
        return Inputs(self.headers_of(self.absolute(each) for each in told.split()), frozenset(), frozenset())
