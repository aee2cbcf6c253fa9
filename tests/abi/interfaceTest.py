# SPDX-License-Identifier: MIT
"""The exported interface, down to argument types and the fields of records, is the one in libvos.abi: a change of it is never
an accident. The values of constants are not in that file."""
import pathlib
import re
import subprocess
import sys
import tempfile

library, source, abidiff = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3]
baseline = (source / "tests/abi/libvos.abi").read_text()


def difference(before: str) -> str:
    """The differences between the library and a description; empty when there are none."""
    with tempfile.NamedTemporaryFile("w", suffix=".abi") as file:
        file.write(before)
        file.flush()
        done = subprocess.run([abidiff, "--fail-no-debug-info", "--harmless", "--redundant", file.name, library],
                              check=False, capture_output=True, text=True)
    if done.returncode < 0 or done.returncode & 3:  # it could not compare
        sys.exit(f"FAILED: abidiff says {done.stdout}{done.stderr}")
    return done.stdout if done.returncode else ""


found = difference(baseline)
if found:
    print(found)
    sys.exit("FAILED: the interface is not that of tests/abi/libvos.abi. If that is meant: ninja -C build/release abi-baseline, and "
             "say why in the commit's message")


def must_differ(what: str, pattern: str, replacement: str) -> None:
    """The check can fail: it must find a changed baseline."""
    changed = re.sub(pattern, replacement, baseline, count=1, flags=re.S)
    if changed == baseline or not difference(changed):
        sys.exit(f"FAILED: it would not be seen: {what}")


must_differ("an added function", r"<elf-symbol name='vosMsgSend' [^\n]*\n", "")
must_differ("a removed function", r"(<elf-symbol name='vosMsg)(Send' [^\n]*\n)", r"\1\2\1Re\2")
must_differ("arguments in another order", r"(<function-decl name='vosMsgSend' [^\n]*\n)([^\n]*\n)([^\n]*\n)", r"\1\3\2")
must_differ("a moved field", r"(<class-decl name='VOS_MSG_PEER'.*?layout-offset-in-bits=')928'", r"\g<1>944'")
must_differ("a renamed field", r"(<class-decl name='VOS_MSG_PEER'.*?<var-decl name=')stAddr'", r"\1stWho'")
print("the interface is that of the baseline")
