# SPDX-License-Identifier: MIT
"""The public headers leak no macro beyond their guards and documented constants."""
import pathlib
import re
import subprocess
import sys

source, clang = pathlib.Path(sys.argv[1]), sys.argv[2]
include = source / "include"

CONSTANTS = {"VOS_PRINTF_HEAD_LEN", "VOS_MSG_BUFFER_LEN", "ZEB_LONGBYTES", "VOS_WAIT_FOREVER", "VOS_NO_WAIT", "VOS_PACKAGE_MAGIC",
             "VOS_PARTITION_MAGIC", "VOS_STACK_VALID_MAGIC",
             "VOS_SHELL_PLAIN", "VOS_SHELL_INTERACTIVE", "VOS_REBOOT_MARK", "VOS_REBOOT_NOW", "VOS_SEM_TAKEN", "VOS_SEM_FREE",
             "VOS_TIMER_ONE_SHOT", "VOS_TIMER_PERIODIC"}

headers = sorted(include.glob("*.h"))
defined = set()
for header in headers:
    text = subprocess.run([clang, "-E", "-dD", "-x", "c", f"-I{include}", header], check=True, capture_output=True, text=True).stdout
    current = ""
    for line in text.splitlines():
        marker = re.match(r'# \d+ "(.*?)"', line)
        if marker:
            current = marker.group(1)
        found = re.match(r"#define (\w+)", line)
        if found and current.startswith(str(include)):
            defined.add(found.group(1))
unexpected = {name for name in defined - CONSTANTS if not re.fullmatch(r"VOS(_[A-Z]+)*_H", name)}
print(f"{len(headers)} headers define {len(defined)} macros")
for name in sorted(unexpected):
    print("FAILED:", name, "leaks")
sys.exit(bool(unexpected) or len(defined) < len(headers))
