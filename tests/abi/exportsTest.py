# SPDX-License-Identifier: MIT
"""The shared object exports exactly what the public headers declare, the version script names exactly that, and at run
time only the C library is needed."""
import pathlib
import re
import subprocess
import sys

from declarations import declared_names

library, source, clang, readelf = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3], sys.argv[4]


def output(*command) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


failures = []


def expect_same(what: str, found: set[str], wanted: set[str]) -> None:
    for name in sorted(found - wanted):
        failures.append(f"{what}: {name} is too much")
    for name in sorted(wanted - found):
        failures.append(f"{what}: {name} is missing")


declared = declared_names(source / "include", clang)
if len(declared) < 30:
    failures.append(f"only {len(declared)} declarations were found: the headers were not read")

exported = set()
for line in output(readelf, "--dyn-syms", "--wide", library).splitlines():
    fields = line.split()
    if len(fields) == 8 and fields[4] in ("GLOBAL", "WEAK") and fields[6] not in ("UND", "ABS"):
        exported.add(fields[7].split("@")[0])
expect_same("exported", exported, declared)

script = re.sub(r"/\*.*?\*/", "", (source / "vos/vos.map").read_text(), flags=re.S)
expect_same("version script", set(re.findall(r"^\s+(\w+);", script, flags=re.M)), declared)

dynamic = output(readelf, "-d", library)
needed = set(re.findall(r"NEEDED.*\[(.*)\]", dynamic))
# On AArch64 the stack protector's canary is in the dynamic loader, which belongs to the C library.
instrumentation = {name for name in needed if re.match(r"lib(asan|ubsan|tsan|gcov)\.", name)}
expect_same("needed", needed - {"ld-linux-aarch64.so.1"} - instrumentation, {"libc.so.6"})
soname = re.search(r"SONAME.*\[(.*)\]", dynamic)
expect_same("soname", {soname.group(1)} if soname else set(), {"libvos.so.1"})

print(f"{len(declared)} declared, {len(exported)} exported, needs {', '.join(sorted(needed))}")
for failure in failures:
    print("FAILED:", failure)
sys.exit(bool(failures))
