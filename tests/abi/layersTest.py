# SPDX-License-Identifier: MIT
"""The layer rule: a module includes only what is below it.

In the library a module sees of another module only its public header; base/ is the one internal module that all share. In
vosctl the folders are the layers, and the internal headers of a lower folder may be included.
"""
import os
import pathlib
import re
import sys

source = pathlib.Path(sys.argv[1])

# Each module of the library, from the lowest up, with its public headers and the modules below it. The log needs the
# process's name and the process's identity needs the log: these two share one layer, and base's log and assertion calls
# need both.
OWN = {"vosDebug": "vosDebug.h", "vosProcess": "vosProcess.h", "vosList": "vosList.h", "vosSys": "vosSys.h",
       "vosMsg": "vosMsg.h vosMsgChannel.h vosMsgTap.h", "vosFile": "vosFile.h", "vosSysConfig": "vosSysConfig.h"}
BELOW = {
    "base": ["vosDebug", "vosProcess"],
    "vosDebug": ["vosProcess"],
    "vosProcess": ["vosDebug"],
    "vosList": ["vosDebug", "vosProcess"],
    "vosSys": ["vosDebug", "vosProcess", "vosList"],
    "vosMsg": ["vosDebug", "vosProcess", "vosList", "vosSys"],
    "vosFile": ["vosDebug", "vosProcess", "vosList", "vosSys"],
    "vosSysConfig": ["vosDebug", "vosProcess", "vosList", "vosSys", "vosFile"],
    "vosInit": ["vosDebug", "vosProcess", "vosList", "vosSys", "vosMsg", "vosFile", "vosSysConfig"],
}
# The highest layer of vosFile: a package writes device data.
INSTALLATION = re.compile(r"vosFile/(image\w*|install|package|oem)\.(cpp|h)$")

# The folders of vosctl, each with the folders below it. main.cpp may include all.
TOOL_BELOW = {
    "base": [],
    "terminal": ["base"],
    "processes": ["base", "terminal"],
    "flash": ["base", "terminal"],
    "commands": ["base", "terminal", "processes", "flash"],
    "vosctl": ["base", "terminal", "processes", "flash", "commands"],
}


def includes(text: str) -> list[str]:
    return re.findall(r'^\s*#\s*include\s+"([^"]+)"', text, flags=re.M)


def allowed_headers(file: pathlib.Path) -> set[str]:
    module = file.parent.name
    modules = BELOW[module] + [module] + (["vosSysConfig"] if INSTALLATION.search(str(file)) else [])
    return {"vosTypes.h"} | {header for each in modules for header in OWN.get(each, "").split()}


def library_problems(file: pathlib.Path, text: str):
    where = file.relative_to(source)
    if file.parent.name not in BELOW:
        yield f"{where} is in a module that has no layer"
        return
    for name in includes(text):
        if name.startswith("vos") and "/" not in name and (source / "include" / name).exists():
            if name not in allowed_headers(file):
                yield f"{where} includes {name}, which is above it"
        elif name.startswith("../base/"):
            if not (file.parent / name).exists():
                yield f"{where} includes {name}, which does not exist"
        elif "/" in name or not (file.parent / name).exists():
            yield f"{where} includes {name}: neither of its own module, nor of base, nor public"


def tool_problems(file: pathlib.Path, text: str):
    where = file.relative_to(source)
    folder = file.parent.name
    if folder not in TOOL_BELOW:
        yield f"{where} is in a folder that has no layer"
        return
    for name in includes(text):
        if "/" not in name and not (file.parent / name).exists() and (source / "include" / name).exists():
            continue  # a public header of the library
        target = pathlib.Path(os.path.normpath(file.parent / name))
        if not target.exists():
            yield f"{where} includes {name}, which does not exist"
        elif target.parent.name != folder and target.parent.name not in TOOL_BELOW[folder]:
            yield f"{where} includes {name}, which is above it"


def read(folder: str, problems):
    files = sorted(p for p in (source / folder).rglob("*") if p.suffix in (".h", ".cpp"))
    return files, [problem for file in files for problem in problems(file, file.read_text())]


# The check can fail: an upward include, another module's internal header.
probe = source / "vos/linux/vosDebug/probe.cpp"
assert list(library_problems(probe, '#include "vosMsg.h"\n')) and list(library_problems(probe, '#include "../vosMsg/message.h"\n'))
assert not list(library_problems(probe, '#include "vosDebug.h"\n#include "../base/log.h"\n'))
assert list(library_problems(source / "vos/linux/nowhere/probe.cpp", ""))
probe = source / "tools/vosctl/flash/probe.cpp"
assert list(tool_problems(probe, '#include "../commands/commands.h"\n')) and list(tool_problems(probe, '#include "../processes/names.h"\n'))
assert not list(tool_problems(probe, '#include "../base/failure.h"\n#include "store.h"\n#include "vosFile.h"\n'))

library_files, found = read("vos/linux", library_problems)
tool_files, more = read("tools/vosctl", tool_problems)
found += more

print(f"{len(library_files)} files of the library and {len(tool_files)} of vosctl read")
for problem in found:
    print("FAILED:", problem)
sys.exit(bool(found) or len(library_files) < 10 or len(tool_files) < 10)
