# SPDX-License-Identifier: MIT
"""Every build that may be delivered is hardened.

    hardeningTest.py library LIBRARY PROCESSOR READELF OBJDUMP    the built library shows each protection
    hardeningTest.py builds SOURCE SCRATCH OBJDUMP                every build type but Debug asks for them
"""
import json
import pathlib
import re
import subprocess
import sys

failures = []
PAGE = 4096


def output(*command) -> str:
    return subprocess.run([str(each) for each in command], check=True, capture_output=True, text=True).stdout


def expect(holds, text: str):
    print("ok:" if holds else "FAILED:", text)
    if not holds:
        failures.append(text)


def expect_touched_stack(objdump: str, file):
    """A frame larger than a page has to touch each of its pages, or it could pass the guard page of a thread's stack."""
    code = output(objdump, "-d", "--no-show-raw-insn", file)
    # The tools of GNU and of LLVM write "sub    $0x1000,%rsp" and "subq	$4096, %rsp".
    steps = [int(size, 0) for size in re.findall(r"subq?\s+\$(-?(?:0x)?[0-9a-f]+), ?%rsp", code)]
    steps = [step for step in steps if 0 < step < 1 << 63]  # a subtracted negative number releases stack
    expect(PAGE in steps, f"{file}: a large frame takes its stack page by page")
    expect(max(steps) <= PAGE + 64, f"{file}: no step of the stack pointer is larger than a page")


def check_library(library: str, processor: str, readelf: str, objdump: str):
    segments = output(readelf, "-lW", library)
    expect("GNU_RELRO" in segments, "what the loader has filled in becomes read-only")
    stack = re.search(r"GNU_STACK.*? (R\w*) ", segments)
    expect(stack and "E" not in stack.group(1), "the stack is not executable")
    dynamic = output(readelf, "-dW", library)
    expect(re.search(r"BIND_NOW|\bNOW\b", dynamic), "all addresses are filled in at the start")
    expect("TEXTREL" not in dynamic, "the code is never written to")
    symbols = output(readelf, "--dyn-syms", "-W", library)
    expect("__stack_chk_fail" in symbols, "overwritten stack frames are found")
    expect(re.search(r"UND +__\w+_chk", symbols), "the C library checks the sizes of buffers")
    if processor == "x86_64":
        expect_touched_stack(objdump, library)
        notes = output(objdump, "-d", "--no-show-raw-insn", library)
        expect(re.search(r"<vosMsgRecv>:\n +\w+:\s+endbr64", notes), "jumps lead only to their targets")


def check_builds(source: pathlib.Path, scratch: pathlib.Path, objdump: str):
    options = ("-D_FORTIFY_SOURCE=2", "-fstack-protector-strong", "-fstack-clash-protection")
    unit = "vos/linux/vosMsg/configObject.cpp"
    for kind in ("Release", "RelWithDebInfo", "MinSizeRel", "None", "Debug"):
        # As in Debian's build: the build type is None and adds no options.
        flags = "-O2" if kind == "None" else ""
        output("cmake", "-G", "Ninja", "-S", source, "-B", scratch / kind, f"-DCMAKE_BUILD_TYPE={kind}", f"-DCMAKE_CXX_FLAGS={flags}")
        commands = json.loads((scratch / kind / "compile_commands.json").read_text())
        command = next(each["command"] for each in commands if each["file"].endswith(unit))
        for option in options:
            expect((option in command) == (kind != "Debug"), f"{kind}: {option} {'is not' if kind == 'Debug' else 'is'} asked for")
    built = f"CMakeFiles/vos_objects.dir/{unit}.o"
    output("ninja", "-C", scratch / "None", built)
    expect_touched_stack(objdump, scratch / "None" / built)


if sys.argv[1] == "library":
    check_library(*sys.argv[2:])
else:
    check_builds(pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3]), sys.argv[4])
sys.exit(bool(failures))
