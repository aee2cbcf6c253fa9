# SPDX-License-Identifier: MIT
"""Power cuts at random moments: a program in the guest saves one store after the other, the emulator is killed, and the
next start examines what is left on the flash, starts up, and repairs what an application can repair."""
import collections
import pathlib
import random
import re
import shlex
import signal
import subprocess
import tempfile
import threading

from fetch import Unavailable
from machine import Machine, disprove, erased_flash, prove
from suite import BUILD, build

PROGRAM = BUILD / "device/guest/powerCut"
CONTENT = 20000  # bytes of a configuration, a syslog, a file of a package, an image
CYCLES = 60  # of a whole campaign
LONGEST = 2.5  # seconds from the first save to the cut
PATIENCE = 600  # seconds for a start and its cut, on a host that does something else, too


def words(journal, *command):
    setting = ["env", "JOURNAL=/flash/journal"] if journal else []
    return shlex.join([*setting, str(PROGRAM), *map(str, command)])


def start_and_cut(machine, flash, job, commands, wait):
    """Runs commands in the guest, and kills the emulator some time after it has begun to save. The result: its
    output until then."""
    (job / "script").write_text(commands + "\n")
    process = subprocess.Popen(
        ["nice", *machine.command(job, flash)],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
    )
    late = threading.Timer(PATIENCE, process.kill)
    late.start()
    output, cut = [], None
    for line in process.stdout:
        line = line.decode(errors="replace").replace("\r", "").rstrip("\n")
        output.append(line)
        if line == "saving" and cut is None:
            cut = threading.Timer(wait, process.kill)
            cut.start()
    process.wait()
    if not late.is_alive():
        raise Unavailable(f"the guest did not come to save, and to its cut, within {PATIENCE} s\n" + "\n".join(output[-20:]))
    late.cancel()
    if cut is None or process.returncode != -signal.SIGKILL:
        raise Unavailable("the guest ended before its power was cut\n" + "\n".join(output[-20:]))
    return output


def tally(output, outcomes, cut):
    """Counts the outcomes that an examination has printed. The result: the number of failed checks."""
    broken = [line for line in output if line.startswith("NOT SO: ")]
    told = [line for line in output if line.startswith("cut ")]
    if len(told) != 1:
        raise Unavailable(f"after cut {cut} nothing was found out\n" + "\n".join(output[-20:]))
    for line in told:
        outcomes[line.removeprefix("cut while ")] += 1
    for line in broken:
        print(f"after cut {cut}: {line}", flush=True)
    return len(broken)


def powercut(arguments):
    build()
    machine = Machine()
    seed = arguments.seed if arguments.seed is not None else random.randrange(1 << 32)
    print(f"seed {seed}: {arguments.cycles} power cuts", flush=True)
    chance = random.Random(seed)
    outcomes, broken, recovered = collections.Counter(), 0, 0
    with tempfile.TemporaryDirectory(prefix="vos-device-") as scratch:
        scratch = pathlib.Path(scratch)
        job = scratch / "job"
        job.mkdir()
        flash = erased_flash(scratch / "flash")
        for cycle in range(arguments.cycles + 1):
            first = words(arguments.journal, "make" if cycle == 0 else "look", CONTENT, "/job/progress")
            hammer = words(arguments.journal, "hammer", CONTENT, "/job/progress", chance.randrange(1 << 32))
            wait = chance.uniform(0, LONGEST)
            if cycle < arguments.cycles:
                output = start_and_cut(machine, flash, job, f"{first} || echo 'NOT SO: that failed'\n{hammer}", wait)
            else:
                _, output = machine.run(first, flash=flash, job=job, show=None)
            if cycle > 0:
                broken += tally(output, outcomes, cycle)
                recovered += "recovered" in output
    for outcome, count in sorted(outcomes.items()):
        print(f"{count:5} {re.sub(r'^cut ', '', outcome)}")
    if arguments.journal:
        print(f"{recovered} of the cuts left something that was restored from the journal")
    print(f"{arguments.cycles} cuts; {broken} outcomes outside what is described")
    name, option = ("powercut-journal", " --journal") if arguments.journal else ("powercut", "")
    if broken:
        disprove(name)
    elif arguments.cycles >= CYCLES:
        prove(name, f"{arguments.cycles} cuts, no outcome outside what is described", f"scripts/device powercut{option} --cycles {arguments.cycles} --seed {seed}")
    return 1 if broken else 0
