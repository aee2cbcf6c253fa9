# SPDX-License-Identifier: MIT
"""The test suite inside the guest: the same programs and sandboxes as everywhere else, on a real AArch64 kernel."""
import concurrent.futures
import json
import pathlib
import re
import shlex
import subprocess
import tempfile

from fetch import Unavailable
from machine import HERE, TREE, Machine, disprove, prove

BUILD = TREE / "build" / "aarch64"


def patterns(path):
    """The patterns of a list of tests that cannot run somewhere; lines with # are the reasons."""
    lines = path.read_text(encoding="utf-8").splitlines()
    return [line for line in lines if line and not line.startswith("#")]


def build():
    for command in (["cmake", "--preset", "aarch64"], ["cmake", "--build", "--preset", "aarch64", "--", "--quiet"]):
        done = subprocess.run(command, cwd=TREE, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Unavailable(f"{' '.join(command)}:\n{(done.stdout + done.stderr)[-3000:]}")


def without_emulator(command):
    """The command line without the emulator of a single process, which is not needed here."""
    words = list(command)
    for at, word in enumerate(words):
        if pathlib.PurePath(word).name.startswith("qemu-aarch64"):
            del words[at : at + (3 if words[at + 1] == "-L" else 1)]
            break
    return words


def tests(only):
    """Names and command lines of all tests that run programs of the device."""
    told = subprocess.run(["ctest", "--show-only=json-v1"], cwd=BUILD, capture_output=True, text=True, check=True)
    skipped = re.compile("|".join(f"(?:{each})" for each in patterns(HERE / "tests.skip")) or "(?!)")
    chosen, left = [], []
    for each in json.loads(told.stdout)["tests"]:
        command = without_emulator(each["command"])
        if command == each["command"] or skipped.match(each["name"]):
            left.append(each["name"])
        elif re.match(only, each["name"]):
            chosen.append((each["name"], shlex.join(command)))
    return chosen, left


def run_share(machine, share, cpus, show):
    """Runs some of the tests in a guest of their own: passed, failed, skipped."""
    with tempfile.TemporaryDirectory(prefix="vos-device-") as scratch:
        job = pathlib.Path(scratch) / "job"
        job.mkdir()
        (job / "tests").write_text("".join(f"{name}\t{command}\n" for name, command in share), encoding="utf-8")
        script = f"exec {shlex.quote(str(HERE))}/guest/runTests {cpus} {shlex.quote(str(BUILD))}"
        status, output = machine.run(script, cpus=cpus, job=job, patience=1800, show=None)
    results = {"passed": 0, "FAILED": 0, "skipped": 0}
    for line in output:
        told = re.match(r"(passed|FAILED|skipped) ", line)
        if told:
            results[told.group(1)] += 1
        if show or not re.match(r"passed ", line):
            print(line, flush=True)
    if sum(results.values()) != len(share):
        print("\n".join(output[-40:]))
        raise Unavailable(f"of {len(share)} tests {sum(results.values())} were reported; exit status {status}")
    return results


def run_all(machine, chosen, cpus, show):
    """One processor: two guests at the same time, each with half of the tests. Two processors: one guest."""
    shares = [chosen[0::2], chosen[1::2]] if cpus == 1 and len(chosen) > 1 else [chosen]
    with concurrent.futures.ThreadPoolExecutor() as pool:
        results = list(pool.map(lambda share: run_share(machine, share, cpus, show), shares))
    return {key: sum(result[key] for result in results) for key in results[0]}


def test(arguments):
    build()
    machine = Machine()
    chosen, left = tests(arguments.only)
    if not chosen:
        raise Unavailable("no such test")
    print(f"left to the host (they run no program of the device, or are listed in device/tests.skip): {len(left)}")
    failed, figures = 0, []
    for cpus in [arguments.cpus] if arguments.cpus else [1, 2]:
        results = run_all(machine, chosen, cpus, arguments.verbose)
        failed += results["FAILED"]
        print(f"with {cpus} processor{'s' if cpus > 1 else ''}:")
        print(f"{results['passed']} passed, {results['FAILED']} failed, {results['skipped']} skipped", flush=True)
        figures.append(f"{results['passed']} passed, {results['skipped']} skipped with {cpus} processor{'s' if cpus > 1 else ''}")
    if failed:
        disprove("tests-device")
    elif not arguments.only and not arguments.cpus:
        prove("tests-device", "; ".join(figures), f"on Debian's kernel in the emulated device; {len(left)} tests are left to the host")
    return 1 if failed else 0
