# SPDX-License-Identifier: MIT
"""Writes what was measured to build/proof, for the proof of a release.

    record.py NAME FIGURE MEASURED [COMMAND]    one figure; NAME is a row of rows.toml
    record.py --failed NAME                     takes the figure back
    record.py --tests PRESET RESULTS.xml        a whole run of the tests of a preset, from the results that ctest has written; after
                                                a failed one, earlier figures of such a run are taken back
"""
import collections
import pathlib
import re
import sys
import xml.etree.ElementTree as xml

import records

TREE = pathlib.Path(__file__).parent.parent.parent
# The kind of a test, by the first part of its name. All others are scenarios of the library.
KINDS = {
    "Vosctl": "files of tests of vosctl",
    "Testkit": "test kit and sandbox", "Sandbox": "test kit and sandbox",
    "Abi": "interface, size and instructions", "Instructions": "interface, size and instructions", "Cpp": "interface, size and instructions",
    "Readme": "documents", "Tutorial": "documents", "Manual": "documents", "Site": "documents", "Pictures": "documents",
    "Version": "documents", "Release": "release",
    "Examples": "examples and installation", "Install": "examples and installation", "Api": "examples and installation",
}
# The rows that a run of the release build fills besides.
FROM_TESTS = ("tests-kinds", "calls-failed", "exchange", "restarts", "kills", "sizes-x86_64", "instructions", "interface")
SCENARIOS, STRESS = "scenarios of the library", "stress"


def state(case):
    """passed, failed or skipped. A test whose program is missing is "not run", which is a failure here as it is for ctest."""
    skipped = case.find("skipped")
    if case.find("failure") is not None or (skipped is not None and not skipped.get("message", "").startswith("SKIP_")):
        return "failed"
    return "passed" if skipped is None else "skipped"


class Run:
    """The results of a run, as ctest has written them."""

    def __init__(self, path):
        self.suite = xml.parse(path).getroot()
        self.cases = {case.get("name"): case for case in self.suite.iter("testcase")}

    def outputs(self, pattern=""):
        return [case.findtext("system-out") or "" for name, case in self.cases.items() if re.match(pattern, name)]

    def total(self, pattern, tests=""):
        """The sum of the numbers that the outputs of these tests tell; None if they tell none."""
        found = [int(each) for output in self.outputs(tests) for each in re.findall(pattern, output)]
        return sum(found) if found else None

    def summary(self):
        states = collections.Counter(map(state, self.cases.values()))
        inner = self.total(r"\b(\d+) passed\b", "Vosctl|Testkit|Release")
        return f"{states['passed']} passed, {states['failed']} failed, {states['skipped']} skipped" + (
            f"; the files of pytest among them have {inner} cases" if inner else "")

    def kinds(self):
        counts = collections.Counter()
        for name in self.cases:
            first = re.split(r"[./]", name)[0]
            counts[STRESS if "Stress" in first else KINDS.get(first, SCENARIOS)] += 1
        return ", ".join(f"{number} {kind}" for kind, number in counts.most_common())


def ceilings(output, unit):
    """The figures of a test that prints "what: figure, ceiling figure"."""
    found = re.findall(r"^(.+): ([\d.]+)(?: instructions)?, ceiling (\d+)$", output, flags=re.M)
    return "; ".join(f"{what} {figure} (ceiling {ceiling})" for what, figure, ceiling in found) + (f" {unit}" if found else "")


def record_outputs(run, processor, write):
    """What tests have printed besides."""
    def sum_of(name, pattern, tests, figure, measured):
        total = run.total(pattern, tests)
        if total:
            write(name, figure.format(f"{total:,}"), measured)

    for output in run.outputs(r"Abi\.SizesStayBelowTheirCeilings"):
        if "FAILED" not in output and (figures := ceilings(output, "bytes, but for relocations")):
            write(f"sizes-{processor}", figures, "Abi.SizesStayBelowTheirCeilings: readelf, strip, the compiler's own record of stack frames")
    if processor != "x86_64":
        return
    for output in run.outputs(r"Instructions\.StayBelowTheirCeilings"):
        if "FAILED" not in output and (figures := ceilings(output, "instructions")):
            write("instructions", figures, "Instructions.StayBelowTheirCeilings: callgrind, the difference of two runs")
    if any("the interface is that of the baseline" in output for output in run.outputs(r"Abi\.TheInterface")):
        write("interface", "no difference", "Abi.TheInterfaceIsThatOfTheBaseline: abidiff against tests/abi/libvos.abi")
    sum_of("calls-failed", r"(?m)^(\d+) calls failed, each in a run of its own$", "", "{} calls failed, one in each run",
           "the test program replaces each call of the library in turn; afterwards descriptors, heap and locks are compared")
    sum_of("exchange", r"(?m)^\d+ processes: (\d+) requests answered$", "RequestStress", "{} requests", "RequestStress, in the run of the tests")
    sum_of("restarts", r"(?m)^(\d+) restarts$", "RequestStress", "{} restarts", "RequestStress, in the run of the tests")
    sum_of("kills", r"(?m)^(\d+) kills, \d+ saves", "FlashStress", "{} kills", "FlashStress, in the run of the tests")


def record_fuzzing(run, write):
    executed = {}
    for name, case in run.cases.items():
        told = re.search(r"number_of_executed_units: (\d+)", case.findtext("system-out") or "")
        if told:
            executed[name.removeprefix("fuzz-")] = int(told[1])
    if len(executed) < len(run.cases):
        sys.exit(f"record: {len(run.cases) - len(executed)} fuzz targets do not tell how many inputs they have run")
    each = ", ".join(f"{name} {number:,}" for name, number in sorted(executed.items()))
    write("fuzz", f"{sum(executed.values()):,} inputs: {each}", "libFuzzer with the address and the undefined-behaviour sanitizer")
    if "dispatch" in executed:
        write("hostile-datagrams", f"{executed['dispatch']:,} inputs", "messages, datagrams of the kernel, and bytes at real sockets and their receive loop: tests/fuzz/dispatchFuzz.cpp")


def record_tests(tree, preset, path, write):
    run = Run(path)
    if "failed" in map(state, run.cases.values()) or not run.cases:
        for name in ["fuzz", "hostile-datagrams"] if preset == "fuzz" else [f"tests-{preset}", *(FROM_TESTS if preset == "release" else ())]:
            records.remove(tree, name)
        return
    if preset == "fuzz":
        record_fuzzing(run, write)
        return
    write(f"tests-{preset}", run.summary(), f"ctest, in the build of the preset {preset}")
    if preset == "release":
        write("tests-kinds", run.kinds(), "ctest's own list; a file of tests of vosctl is one test of ctest")
        record_outputs(run, "x86_64", write)
    elif preset == "aarch64":
        record_outputs(run, "aarch64", write)


def main():
    def write(*words):
        records.write(TREE, *words)

    if len(sys.argv) == 4 and sys.argv[1] == "--tests":
        record_tests(TREE, sys.argv[2], sys.argv[3], write)
    elif len(sys.argv) == 3 and sys.argv[1] == "--failed":
        records.remove(TREE, sys.argv[2])
    elif len(sys.argv) in (4, 5) and not sys.argv[1].startswith("-"):
        write(*sys.argv[1:])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    try:
        main()
    except (KeyError, OSError, ValueError, xml.ParseError) as error:
        sys.exit(f"record: {error}")
