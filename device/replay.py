# SPDX-License-Identifier: MIT
"""Every point at which a save can be cut: the emulator records each word that a save writes to the flash and each block
that it erases; the guest then mounts and checks the flash as it was after each of these steps."""
import concurrent.futures
import pathlib
import re
import shlex
import struct
import subprocess
import tempfile

import fetch
from fetch import Unavailable
from machine import CROSS, FLASH_SIZE, PARTITIONS, Machine, disprove, erased_flash, flash_drivers, prove
from suite import BUILD, build

PROGRAM = BUILD / "device/guest/replay"
CONTENT = 3000  # bytes of a configuration, a syslog, a file of a package, an image
BLOCK = 256 << 10
CLEAN_MARKER = 12
USED = PARTITIONS[-1][1] + PARTITIONS[-1][2]
MARKS = 1 << 20
EVENTS = ("pflash_data_write", "pflash_data_write_block", "pflash_write_block_erase")


def read_trace(path):
    """What was done to the flash, in order: (offset, value, bytes), 4 bytes being a word and more an erased block."""
    steps = []
    pattern = re.compile(r"(\w+) \S+: (?:data|block erase) offset:0x(\w+) (?:size:(\d+) value:0x(\w+)|bytes:0x(\w+))")
    with open(path, encoding="ascii") as file:
        for line in file:
            told = pattern.match(line)
            if told is None:
                raise Unavailable(f"the emulator's record has an unknown line: {line}")
            if told.group(5):
                steps.append((int(told.group(2), 16), 0, int(told.group(5), 16)))
            elif told.group(3) == "4":
                steps.append((int(told.group(2), 16), int(told.group(4), 16), 4))
            else:
                raise Unavailable(f"a write of another size than a word: {line}")
    return steps


def apply(flash, step):
    at, value, size = step
    flash[at : at + size] = struct.pack("<I", value) if size == 4 else b"\xff" * size


def record(machine, scratch):
    """Makes everything, and saves each store. Returns what was saved, and the writes to the flash."""
    flash = erased_flash(scratch / "flash")
    job = scratch / "job"
    job.mkdir()
    (job / "script").write_text(shlex.join(["exec", str(PROGRAM), "save", str(CONTENT)]) + "\n")
    extra = [word for event in EVENTS for word in ("-trace", event)] + ["-D", scratch / "trace"]
    done = subprocess.run(
        ["nice", *machine.command(job, flash, extra=extra)],
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        timeout=600,
        check=False,
    )
    if "vos-device: exit 0" not in done.stdout:
        raise Unavailable(f"the saves to be recorded failed\n{done.stdout[-3000:]}{done.stderr[-1000:]}")
    names = []
    for told in re.finditer(r"^save (\d+) (\D+?)((?: \d+)+)\r?$", done.stdout, re.MULTILINE):
        names.append((told.group(2), told.group(3).split()))
    steps = read_trace(scratch / "trace")
    whole = bytearray(b"\xff" * FLASH_SIZE)
    for step in steps:
        apply(whole, step)
    if whole != flash.read_bytes():
        raise Unavailable("the record does not lead to the flash that the emulator left")
    return names, steps


def split(names, steps):
    """The steps of each save, which are those between its mark and the next one; and those before all."""
    parts = [[]]
    for step in steps:
        if step[2] == 4 and MARKS <= step[0] < MARKS + 4 * (len(names) + 1) and step[1] == len(parts) - 1:
            parts.append([])
        else:
            parts[-1].append(step)
    if len(parts) != len(names) + 2:
        raise Unavailable(f"{len(names)} saves, and {len(parts) - 2} of them are marked")
    return parts[0], parts[1:-1]


def crosses(part, name):
    """Whether a save wrote its data to the end of one block and the beginning of the next."""
    where = dict((label, (at, size)) for label, at, size in PARTITIONS)["app" if name == "factory" else "flash"]
    # An erased block is marked at its beginning; that is no data of a save.
    data = [at for at, _, size in part if size == 4 and where[0] <= at < where[0] + where[1] and at % BLOCK >= CLEAN_MARKER]
    return len({at // BLOCK for at in data}) > 1


def chosen(names, parts):
    """One save of each store, and one of each partition that the end of a block has split."""
    choice, seen = [], set()
    for number, (name, _) in enumerate(names):
        kinds = [name] + ([f"{name}, split"] if name in ("system", "factory") and crosses(parts[number], name) else [])
        fresh = [kind for kind in kinds if kind not in seen]
        if fresh:
            choice.append((fresh[-1], number))
        seen.update(fresh)
    for kind in ("system, split", "factory, split"):
        if kind not in seen:
            raise Unavailable(f"no save was that: {kind}")
    return choice


def prepare(scratch, names, steps, wanted):
    """A directory for each save that is to be tried: the flash before it, and its steps."""
    before, parts = split(names, steps)
    flash = bytearray(b"\xff" * USED)
    for step in before:
        apply(flash, step)
    choice = {number: kind for kind, number in chosen(names, parts) if not wanted or kind in wanted}
    jobs = []
    for number, (name, generations) in enumerate(names):
        if number in choice:
            job = scratch / f"save-{number}"
            job.mkdir()
            (job / "before").write_bytes(flash)
            (job / "steps").write_bytes(b"".join(struct.pack("<III", *step) for step in parts[number]))
            (job / "save").write_text(f"{name}\t{' '.join(generations)}\n")
            jobs.append((choice[number], job, len(parts[number])))
        for step in parts[number]:
            apply(flash, step)
    return jobs


def attempt(machine, kind, job, every):
    module = flash_drivers(fetch.kernel()) / "mtdram.ko"
    fetch.run(f"{CROSS}strip", "-g", "-o", job / "mtdram.ko", module)
    script = f"insmod /job/mtdram.ko total_size={USED >> 10} erase_size={BLOCK >> 10} || exit 1\n"
    script += shlex.join(["exec", str(PROGRAM), "cut", str(CONTENT), "/job", str(every)])
    status, output = machine.run(script, job=job, patience=3600, show=None, words=["flash=no"])
    for line in output:
        told = re.match(r"(\d+) (points|states) of", line)
        if told or line.startswith("NOT SO: ") or status != 0:
            print(f"{kind}: {line}", flush=True)
    return status


def replay(arguments):
    build()
    machine = Machine()
    with tempfile.TemporaryDirectory(prefix="vos-device-") as scratch:
        scratch = pathlib.Path(scratch)
        names, steps = record(machine, scratch)
        jobs = prepare(scratch, names, steps, arguments.store)
        for kind, _, count in jobs:
            print(f"{kind}: {count} steps", flush=True)
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            results = list(pool.map(lambda job: attempt(machine, job[0], job[1], arguments.every), jobs))
    if not jobs or any(results):
        disprove("replay")
        print("replay: something was not as described" if jobs else "replay: there is no such save")
        return 1
    how = "every step" if arguments.every == 1 else f"one step in {arguments.every}"
    print(f"{len(jobs)} saves, {how}: no outcome outside what is described")
    if arguments.every == 1 and not arguments.store:
        prove("replay", f"{sum(count for _, _, count in jobs)} points of {len(jobs)} saves, no outcome outside what is described", "the emulator's record of each save, cut after each step")
    return 0
