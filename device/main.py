# SPDX-License-Identifier: MIT
"""The emulated AArch64 device.

    scripts/device build [--update]   fetches (once) and builds everything that a run needs
    scripts/device run COMMAND...     runs a command of the shell in the guest, with its exit status
    scripts/device test               the whole test suite in the guest, with one and with two processors
    scripts/device demo               the demo device in the guest: the scenario of scripts/demo, and what only a device has
    scripts/device powercut           cuts the power at random moments while everything is being saved
    scripts/device powercut --journal the same while everything is saved by way of the journal
    scripts/device replay             cuts every save after each word that it writes
    scripts/device replay --journal   the same for saves by way of the journal, and for their recoveries
    scripts/device shell              opens the guest's console; "exit" switches it off
"""
import argparse
import os
import pathlib
import sys
import tempfile

import demo
import powercut
import replay
import replayJournal
import suite
from fetch import Unavailable
from machine import Machine, erased_flash


def run(arguments):
    status, _ = Machine().run(" ".join(arguments.command), cpus=arguments.cpus)
    if status is None:
        raise Unavailable("the guest ended without an exit status: it restarted, or it crashed")
    return status


def shell(arguments):
    machine = Machine()
    with tempfile.TemporaryDirectory(prefix="vos-device-") as scratch:
        scratch = pathlib.Path(scratch)
        (scratch / "job").mkdir()
        flash = erased_flash(scratch / "flash")
        return os.spawnvp(
            os.P_WAIT,
            "qemu-system-aarch64",
            machine.command(scratch / "job", flash, arguments.cpus, serial="mon:stdio", words=["shell=1"]),
        )


def build(arguments):
    Machine(arguments.update)
    return 0


def main():
    parser = argparse.ArgumentParser(
        prog="scripts/device", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    commands = parser.add_subparsers(required=True, metavar="COMMAND")

    def command(name, function):
        added = commands.add_parser(name)
        added.set_defaults(function=function)
        return added

    command("build", build).add_argument("--update", action="store_true", help="take what Debian offers today")
    for name, function in (("run", run), ("shell", shell)):
        added = command(name, function)
        added.add_argument("--cpus", type=int, choices=(1, 2), default=1)
        if name == "run":
            added.add_argument("command", nargs=argparse.REMAINDER)
    command("demo", demo.demo)
    added = command("test", suite.test)
    added.add_argument("--cpus", type=int, choices=(1, 2), help="only with so many processors")
    added.add_argument("--only", default="", metavar="REGEX", help="only tests whose names begin like this")
    added.add_argument("--verbose", action="store_true", help="name the tests that passed, too")
    added = command("powercut", powercut.powercut)
    added.add_argument("--cycles", type=int, default=powercut.CYCLES, metavar="N", help=f"so many cuts ({powercut.CYCLES})")
    added.add_argument("--seed", type=int, help="repeats the moments of an earlier campaign")
    added.add_argument("--journal", action="store_true", help="everything is saved by way of the journal")
    added = command("replay", lambda arguments: (replayJournal if arguments.journal else replay).replay(arguments))
    added.add_argument("--every", type=int, default=1, metavar="N", help="looks after one step in N only")
    added.add_argument("--store", action="append", metavar="NAME", help='only this one ("system", "system, split", ...)')
    added.add_argument("--journal", action="store_true", help="saves by way of the journal; each recovery is cut, too")
    added.add_argument("--size", type=int, default=1000, metavar="BYTES", help="of content, with --journal (1000)")
    added.add_argument(
        "--campaign", action="store_true", help="with --journal: keeps the results, and goes on where it was ended"
    )
    arguments = parser.parse_args()
    try:
        return arguments.function(arguments)
    except Unavailable as error:
        print(f"device: {error}", file=sys.stderr)
        return 125


if __name__ == "__main__":
    sys.exit(main())
