# SPDX-License-Identifier: MIT
"""Every point at which a save by way of the journal can be cut, and every point at which its recovery can be cut: the
guest records its saves on a flash in memory, and tries the flash as it was after each word. The work is cut into units;
a campaign writes down each unit that is done, and a later run goes on from there."""
import concurrent.futures
import contextlib
import json
import pathlib
import random
import re
import shlex
import tempfile
import threading

import fetch
from fetch import Unavailable
from machine import CROSS, OUT, Machine, device_module, disprove, prove
from suite import BUILD, build

PROGRAM = BUILD / "device/guest/journalCuts"
COUNTS = ("points", "states", "examined", "recoveries", "old", "new", "torn", "empty", "missing")
GUESTS = 2
SAVES = 14  # two of each of seven stores
UNITS_PER_GUEST = 40  # a guest that is ended loses the unit at work only
FIRST_CUTS = 8  # of one unit, with every cut of their recoveries
THRICE = 200  # points of one unit of three cuts in a row


def guest(machine, job, order, size, show):
    """Runs the program in a guest with the recording flash."""
    module = device_module(fetch.kernel()).with_name("recordingflash.ko")
    fetch.run(f"{CROSS}strip", "-g", "-o", job / "recordingflash.ko", module)
    script = "insmod /job/recordingflash.ko || exit 1\n" + shlex.join(["exec", str(PROGRAM), order, str(size), "/job"])
    status, output = machine.run(script, job=job, patience=24 * 3600, show=show, words=["flash=no"])
    if status != 0:
        raise Unavailable("something was not as described:\n" + "\n".join(output[-20:]))
    return output


def record(machine, directory, size):
    """The recorded saves, as NAME.save, and how many steps each has."""
    known = directory / "saves.json"
    if known.exists():
        saves = json.loads(known.read_text())
        if saves["size"] != size:
            raise Unavailable(f"{directory} holds a campaign with saves of {saves['size']} bytes")
        return saves["steps"]
    output = guest(machine, directory, "record", size, None)
    # The first one is behind the library's own words, which end without a new line.
    told = (re.search(r"recorded ([a-z, ]+)\t(\d+)$", line) for line in output)
    steps = {each.group(1): int(each.group(2)) for each in told if each}
    if len(steps) != SAVES:
        raise Unavailable(f"{len(steps)} saves were recorded, not {SAVES}:\n" + "\n".join(output[-20:]))
    known.write_text(json.dumps({"size": size, "steps": steps}, indent=1))
    return steps


def units(steps, every, chance):
    """All units of work, mixed, so that a campaign that ends early has tried something of everything."""
    work = []
    for name, count in steps.items():
        stride = FIRST_CUTS * every
        for first in range(0, count + 1, stride):
            work.append(f"cut\t{name}\t{first} {min(first + stride, count + 1)} {every} {every}")
        for seed in range(max(1, 20 // every)):
            work.append(f"thrice\t{name}\t{seed} {THRICE if every == 1 else 5}")
    chance.shuffle(work)
    return work


class Results:
    """What the units found, one line of JSON each."""

    def __init__(self, path):
        self.path, self.lock, self.done = path, threading.Lock(), {}
        if path.exists():
            for line in path.read_text().splitlines():
                result = json.loads(line)
                self.done[result["unit"]] = result

    def write(self, text):
        """Takes the console of a guest."""
        told = re.fullmatch(r"cuts (\w+\t[^\t]+\t[\d ]+)\t(.*)", text)
        if told is None:
            if "NOT SO" in text:
                print(text, flush=True)
            return
        counts = dict(each.split(" ") for each in told.group(2).split("\t"))
        result = {"unit": told.group(1), **{name: int(counts[name]) for name in COUNTS}}
        with self.lock, self.path.open("a") as file:
            self.done[result["unit"]] = result
            file.write(json.dumps(result) + "\n")

    def flush(self):
        pass

    def total(self, prefix=""):
        chosen = [result for result in self.done.values() if result["unit"].startswith(prefix)]
        return {name: sum(result[name] for result in chosen) for name in COUNTS}


def attempt(machine, directory, size, work, results):
    with tempfile.TemporaryDirectory(prefix="vos-device-") as scratch:
        job = pathlib.Path(scratch)
        (job / "units").write_text("\n".join(work) + "\n")
        for name in {unit.split("\t")[1] for unit in work}:
            (job / f"{name}.save").write_bytes((directory / f"{name}.save").read_bytes())
        guest(machine, job, "cut", size, results)


def summarise(steps, results, work):
    for name in steps:
        cut, thrice = results.total(f"cut\t{name}\t"), results.total(f"thrice\t{name}\t")
        print(f"{name}: {steps[name]} steps; {cut['points']} points with one and two cuts, {thrice['points']} with three")
    total = results.total()
    print(f"before the recovery: {', '.join(f'{total[kind]} {kind}' for kind in COUNTS[4:])}")
    done = sum(unit in results.done for unit in work)
    print(f"{total['points']} points, {done} of {len(work)} units; started up at {total['examined']}, recovered at {total['recoveries']}")
    print("no point was found at which a store was torn, empty or lost after the recovery")


def keep(arguments, results, work, failed):
    """A campaign takes days, so the proof shows what it has found so far."""
    if not arguments.campaign or arguments.every != 1 or failed:
        return
    points, done = results.total()["points"], sum(unit in results.done for unit in work)
    prove("replay-journal", f"{points:,} points, {done} of {len(work)} units of the campaign; old or new at each of them",
          "recorded saves and recoveries, cut after each word; in one run or more, kept in build/device/journal-cuts/results.jsonl")


def replay(arguments):
    build()
    machine = Machine()
    with contextlib.ExitStack() as stack:
        if arguments.campaign:
            directory = OUT / "journal-cuts"
            directory.mkdir(parents=True, exist_ok=True)
        else:
            directory = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="vos-device-")))
        steps = record(machine, directory, arguments.size)
        results = Results(directory / "results.jsonl")
        work = units(steps, arguments.every, random.Random(1))
        left = [unit for unit in work if unit not in results.done]
        batches = [left[at : at + UNITS_PER_GUEST] for at in range(0, len(left), UNITS_PER_GUEST)]
        with concurrent.futures.ThreadPoolExecutor(GUESTS) as pool:
            runs = [pool.submit(attempt, machine, directory, arguments.size, batch, results) for batch in batches]
            failed = None
            for run in concurrent.futures.as_completed(runs):
                if run.cancelled() or run.exception() is None:
                    keep(arguments, results, work, failed)
                    continue
                failed = failed or run.exception()
                for each in runs:
                    each.cancel()
        if failed:
            disprove("replay-journal")
            raise failed
        if any(unit not in results.done for unit in work):
            raise Unavailable("a unit has no result")
        summarise(steps, results, work)
    return 0
