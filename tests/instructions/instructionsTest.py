# SPDX-License-Identifier: MIT
"""No call of the library needs more instructions than its ceiling in ceilings.txt.

    instructionsTest.py PROGRAM VALGRIND

A processor's time depends on the machine and its load; the number of instructions does not. A count is the difference
between a run with twice the number of calls and a run with that number, so neither the start of the process nor what is
done once is in it. Runs in the sandbox of the tests.
"""
import collections
import pathlib
import re
import subprocess
import sys
import tempfile

program, valgrind = sys.argv[1:]
table = pathlib.Path(__file__).with_name("ceilings.txt")
# A multiple of 127: a requester's path contains a number from 1 to 127, whose digits are instructions too.
CALLS = 2 * 127

ADVICE = """
A count above its ceiling: the call has become slower. See where the instructions are:
    testkit/vos-sandbox valgrind --tool=callgrind --dump-instr=yes --callgrind-out-file=build/calls.out \\
        build/release/tests/programs/repeated WHAT 1000      (for "request" and "serve" start the other one as well)
    callgrind_annotate build/calls.out
Take them out of the path, or, where the change is worth its price, raise the ceiling in tests/instructions/ceilings.txt
in the same commit, and give the reason in its message. A count far below its ceiling: lower the ceiling, so that the gain is kept.
"""


def by_object(profile: pathlib.Path) -> collections.Counter:
    """The instructions in each object file, callees not included."""
    counts, names, current, inclusive = collections.Counter(), {}, "", False
    for line in profile.read_text().splitlines():
        if match := re.match(r"ob=(\(\d+\))(?: (.*))?$", line):
            current = names.setdefault(match[1], match[2])
        elif match := re.match(r"cob=(\(\d+\)) (.*)$", line):
            names.setdefault(match[1], match[2])
        elif line.startswith("calls="):
            inclusive = True  # of the next line: the callee's instructions
        elif match := re.match(r"[+*-]?(?:0x)?[0-9a-f]* (\d+)$", line):
            if not inclusive:
                counts[current] += int(match[1])
            inclusive = False
    return counts


def run(what: str, calls: int, counted: list):
    """Makes the calls; `counted` runs the side whose instructions are counted. The other side of an exchange runs without it."""
    if what not in ("request", "serve"):
        subprocess.run([*counted, program, what, str(calls)], check=True, stdout=subprocess.DEVNULL)
        return
    sides = {side: [*(counted if side == what else []), program, side, str(calls)] for side in ("request", "serve")}
    with subprocess.Popen(sides["serve"], stdout=subprocess.PIPE, text=True) as server:
        for line in server.stdout:
            if line.endswith("ready\n"):  # lines of the library begin, not end, with a line break
                break
        try:
            subprocess.run(sides["request"], check=True)
        except subprocess.CalledProcessError:
            server.kill()  # it would wait for requests for ever
            raise
    if server.returncode != 0:
        sys.exit(f"FAILED: the server ended with {server.returncode}")


def instructions(what: str, calls: int) -> tuple[int, int]:
    """In libvos, and in all of the process."""
    with tempfile.TemporaryDirectory() as scratch:
        profile = pathlib.Path(scratch) / "profile"
        run(what, calls, [valgrind, "--tool=callgrind", f"--callgrind-out-file={profile}", "--log-file=/dev/null"])
        counts = by_object(profile)
        summary = int(re.search(r"^(?:totals|summary): (\d+)$", profile.read_text(), flags=re.M)[1])
    # Else a wrong reading of the file could pass as a gain.
    assert sum(counts.values()) == summary, "the profile was not read as it was written"
    return sum(count for name, count in counts.items() if "/libvos.so" in name), summary


def main():
    failures = []
    for row in table.read_text().splitlines():
        if not row or row.startswith("#"):
            continue
        what, *ceilings = row.split()
        first, second = instructions(what, CALLS), instructions(what, 2 * CALLS)
        for where, few, many, ceiling in zip(("libvos", "all"), first, second, map(int, ceilings), strict=True):
            each = (many - few) / CALLS
            print(f"{what}, {where}: {each:.1f} instructions, ceiling {ceiling}")
            if each > ceiling:
                failures.append(f"{what}, {where}: {each:.1f} instructions, above the ceiling of {ceiling}")
            if each < 0.8 * ceiling - 2:
                failures.append(f"{what}, {where}: {each:.1f} instructions, far below the ceiling of {ceiling}")
    for failure in failures:
        print("FAILED:", failure)
    if failures:
        print(ADVICE)
    sys.exit(bool(failures))


main()
