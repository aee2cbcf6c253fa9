# SPDX-License-Identifier: MIT
"""A core dump shows the whole stack when the library's debug file is there, although the library has no unwinding tables
for some of its files.

    coreDumpTest.py PROGRAM LIBRARY GDB OBJCOPY READELF    LIBRARY has its debug information
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

program, library, gdb, objcopy, readelf = sys.argv[1:]
failures = []


def output(*command, **options) -> str:
    return subprocess.run([str(each) for each in command], check=True, capture_output=True, text=True, **options).stdout


def expect(holds, text: str):
    print("ok:" if holds else "FAILED:", text)
    if not holds:
        failures.append(text)


def install(folder: pathlib.Path) -> pathlib.Path:
    """As the packages do: the library without debug information, which is in a file that the library names."""
    installed, debug = folder / "libvos.so.1", folder / "libvos.so.1.debug"
    output(objcopy, "--only-keep-debug", library, debug)
    output(objcopy, "--strip-all", f"--add-gnu-debuglink={debug}", library, installed)
    return debug


def stack(folder: pathlib.Path, case: str) -> list[str]:
    """The functions of the dumped stack, the innermost first."""
    core = folder / "core"
    with_library = ["-ex", f"set environment LD_LIBRARY_PATH {folder}"]
    # The kernel's own dumps go where the machine is set up to put them.
    output(gdb, "-nx", "-batch", *with_library, "-ex", f"run {case}", "-ex", f"generate-core-file {core}", program)
    shown = output(gdb, "-nx", "-batch", "-ex", f"set solib-search-path {folder}", "-ex", "backtrace", program, core)
    core.unlink()
    return re.findall(r"^#\d+ +(?:0x\w+ in )?([^(]*\S) \(", shown.replace("(anonymous namespace)", "{anonymous}"), flags=re.M)


def expect_stack(folder: pathlib.Path, case: str, *functions: str):
    shown = stack(folder, case)
    print(f"{case}:", " < ".join(shown))
    places = [next((i for i, name in enumerate(shown) if re.search(rf"\b{each}$", name)), -1) for each in functions]
    expect(-1 not in places and places == sorted(places), f"{case}: {' < '.join(functions)}")
    expect(shown and shown[-1] == "main", f"{case}: the stack ends with main")


os.environ["DEBUGINFOD_URLS"] = ""
with tempfile.TemporaryDirectory() as scratch:
    folder = pathlib.Path(scratch)
    debug = install(folder)
    # Else the tables in the library itself would answer, and nothing would be shown about the debug file.
    expect(".debug_frame" in output(readelf, "-SW", debug), "the debug file has tables of its own")
    expect_stack(folder, "callback", "crash", "runTimers", "vosMsgRecv", "main")
    expect_stack(folder, "argument", "vosSysConfigDataSet", "main")
sys.exit(bool(failures))
