# SPDX-License-Identifier: MIT
"""The stairs rule: a room of the library includes only what stands below it, and of another area only public headers."""
import pathlib
import re
import sys

source = pathlib.Path(sys.argv[1])

# Each room, from the ground up, with the public headers of the rooms below it. The log needs the process's name and the
# process's identity needs the log: these two share one step, and the kit's log and assertion calls stand on them.
OWN = {"vosDebug": "vosDebug.h", "vosProcess": "vosProcess.h", "vosList": "vosList.h", "vosSys": "vosSys.h",
       "vosMsg": "vosMsg.h vosMsgChannel.h", "vosFile": "vosFile.h", "vosSysConfig": "vosSysConfig.h"}
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
# The top step of vosFile: a package writes device data.
INSTALLATION = re.compile(r"vosFile/(image\w*|install|package|oem)\.(cpp|h)$")


def allowed_headers(file: pathlib.Path) -> set[str]:
    room = file.parent.name
    rooms = BELOW[room] + [room] + (["vosSysConfig"] if INSTALLATION.search(str(file)) else [])
    return {"vosTypes.h"} | {header for each in rooms for header in OWN.get(each, "").split()}


def problems(file: pathlib.Path, text: str):
    room = file.parent.name
    for name in re.findall(r'^\s*#\s*include\s+"([^"]+)"', text, flags=re.M):
        if name.startswith("vos") and "/" not in name and (source / "include" / name).exists():
            if name not in allowed_headers(file):
                yield f"{file.relative_to(source)} includes {name}, which stands above it"
        elif name.startswith("../base/"):
            if not (file.parent / name).exists():
                yield f"{file.relative_to(source)} includes {name}, which does not exist"
        elif "/" in name or not (file.parent / name).exists():
            yield f"{file.relative_to(source)} includes {name}: neither of its own room, nor of base, nor public"
    if room not in BELOW:
        yield f"{file.relative_to(source)} stands in a room that is not on the stairs"


files = sorted(p for p in (source / "vos/linux").rglob("*") if p.suffix in (".h", ".cpp"))
found = [problem for file in files for problem in problems(file, file.read_text())]

# The check can fail: an upward include, another area's internal header.
probe = source / "vos/linux/vosDebug/probe.cpp"
assert list(problems(probe, '#include "vosMsg.h"\n')) and list(problems(probe, '#include "../vosMsg/message.h"\n'))
assert not list(problems(probe, '#include "vosDebug.h"\n#include "../base/log.h"\n'))

print(f"{len(files)} files read")
for problem in found:
    print("FAILED:", problem)
sys.exit(bool(found) or len(files) < 10)
