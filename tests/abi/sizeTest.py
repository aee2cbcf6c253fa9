# SPDX-License-Identifier: MIT
"""The flash, memory and stack that the library needs stay below the ceilings in docs/size.md."""
import pathlib
import re
import subprocess
import sys
import tempfile

library, source, objects, processor = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3]), sys.argv[4]
readelf, strip, footprint = sys.argv[5], sys.argv[6], sys.argv[7:]


def output(*command) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def stripped_size() -> int:
    with tempfile.NamedTemporaryFile() as stripped:
        subprocess.run([strip, "-o", stripped.name, library], check=True)
        return pathlib.Path(stripped.name).stat().st_size


def section(name: str) -> int:
    return int(re.search(rf" {re.escape(name)} +\w+ +\w+ \w+ (\w+)", output(readelf, "-SW", library)).group(1), 16)


def relocations() -> int:
    return len(re.findall(r"^[0-9a-f]{12,}\b", output(readelf, "-rW", library), flags=re.M))


class Calls:
    """The compiler's own record of who calls whom with what stack frame (-fcallgraph-info=su). Calls into the C
    library and through pointers, which are the application's handlers, are not in it."""

    def __init__(self):
        self.frames, self.callees = {}, {}
        for file in (source / "vos").rglob("*.cpp"):
            text = (objects / f"{file.relative_to(source)}.ci").read_text()
            for title, size in re.findall(r'node: \{ title: "([^"]*)" label: "[^"]*?(\d+) bytes \(', text):
                self.frames[title] = int(size)
            for caller, callee in re.findall(r'edge: \{ sourcename: "([^"]*)" targetname: "([^"]*)"', text):
                self.callees.setdefault(caller, set()).add(callee)

    def deepest(self, without: str = " ") -> tuple[int, list[str]]:
        known: dict[str, tuple[int, list[str]]] = {}

        def depth(name: str, above: tuple) -> tuple[int, list[str]]:
            if name not in known:
                # A function that calls itself is counted once.
                below = [depth(each, (*above, name)) for each in self.callees.get(name, ())
                         if each in self.frames and each != name and each not in above and without not in each]
                size, path = max(below, default=(0, []))
                known[name] = (self.frames[name] + size, [name, *path])
            return known[name]

        return max(depth(name, ()) for name in self.frames if without not in name)


calls = Calls()
deepest, path = calls.deepest()
print("deepest calls:", " > ".join(path), "and", " > ".join(calls.deepest("answerConfigObject")[1]))

measured = {
    "stripped libvos.so": stripped_size(),
    "relocations": relocations(),
    "`.data`": section(".data"),
    "`.data.rel.ro`": section(".data.rel.ro"),
    "`.bss`": section(".bss"),
    "stack of the deepest call": deepest,
    "stack of the deepest other call": calls.deepest("answerConfigObject")[0],
    "stack of one level of `vosDirDelete`": calls.frames["vosDirDelete"],
}
if footprint:  # under an emulator it would be that of the emulator
    pages = dict(re.findall(r"^(loaded|initialised) (\d+)$", output(*footprint), flags=re.M))
    measured["private memory, loaded"] = 1024 * int(pages["loaded"])
    measured["private memory, initialised"] = 1024 * int(pages["initialised"])

# A row: | what | x86_64 | ceiling | aarch64 | ceiling |
columns = {"x86_64": 0, "aarch64": 2}
ceilings = {}
for row in re.findall(r"^\| (.*) \|$", (source / "docs/size.md").read_text(), flags=re.M):
    what, *figures = [cell.strip() for cell in row.split("|")]
    if len(figures) == 4 and figures[columns[processor] + 1].isdigit():
        ceilings[what] = int(figures[columns[processor] + 1])

failures = [f"docs/size.md has no ceiling for: {what}" for what in measured.keys() - ceilings.keys()]
failures += [f"nothing is measured for this row of docs/size.md: {what}" for what in ceilings.keys() - measured.keys()]
for what, size in measured.items():
    ceiling = ceilings.get(what, 0)
    print(f"{what}: {size}, ceiling {ceiling}")
    if size == 0:
        failures.append(f"{what} cannot be nothing")
    if what in ceilings and size > ceiling:
        failures.append(f"{what} is {size}, above the ceiling of {ceiling}")
    if what in ceilings and size < 0.7 * ceiling:
        failures.append(f"{what} is {size}: the ceiling of {ceiling} is too high to find anything, lower it")
for failure in failures:
    print("FAILED:", failure)
sys.exit(bool(failures))
