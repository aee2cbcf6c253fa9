# SPDX-License-Identifier: MIT
"""The demo device on AArch64: the scenario of scripts/demo on the emulated flash, the kernel module, the boot loader's flash, core
files, VRFs, and a restart after which everything on flash is still there."""
import pathlib
import shlex
import tempfile

from fetch import Unavailable, run
from machine import CROSS, HERE, TREE, Machine, erased_flash
from suite import BUILD, build


def demo(_):
    build()
    machine = Machine()
    with tempfile.TemporaryDirectory(prefix="vos-device-") as scratch:
        scratch = pathlib.Path(scratch)
        job = scratch / "job"
        job.mkdir()
        run(f"{CROSS}gcc", "-static", "-O2", "-Wall", "-Wextra", "-Werror", "-o", job / "order", HERE / "guest/order.c")
        flash = erased_flash(scratch / "flash")

        def part(name):
            script = shlex.join(["exec", str(HERE / "guest" / name), str(BUILD), str(TREE)])
            return machine.run(script, flash=flash, job=job)[0]

        status = part("demoBefore")
        if status is not None:
            raise Unavailable(f"the guest ended with {status} where it should have restarted")
        print("(the device restarts)", flush=True)
        return part("demoAfter")
