# SPDX-License-Identifier: MIT
"""The emulated device: its parts, and a run of it.

    flash     64 MiB of CFI NOR: boot loader 2 MiB, /flash 8 MiB and /app 16 MiB with JFFS2
    programs  a read-only image of Debian's arm64 userland
    /job      a directory shared with the host: the script that is run, and what it leaves
    TREE      the checkout, read-only, under its own path
"""
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import threading

import fetch
from fetch import Unavailable, run

TREE = pathlib.Path(__file__).resolve().parent.parent
HERE = TREE / "device"
OUT = TREE / "build" / "device"
CROSS = "aarch64-linux-gnu-"
FLASH_SIZE = 64 << 20
FLASH_AT = 0x4000000
PARTITIONS = (("boot", 0, 2 << 20), ("flash", 2 << 20, 8 << 20), ("app", 10 << 20, 16 << 20))

# The drivers for which the distribution's kernel has no modules, in the syntax of kernel make files.
FLASH_DRIVERS = """\
obj-m := cfi_util.o gen_probe.o cfi_probe.o cfi_cmdset_0001.o physmap.o mtdram.o
physmap-y := physmap-core.o
ccflags-y := -DCONFIG_MTD_PHYSMAP_OF=1 -DCONFIG_MTD_CFI_INTELEXT_MODULE=1 -DCONFIG_MTD_CFI_MODULE=1
ccflags-y += -DCONFIG_MTD_CFI_NOSWAP=1 -DCONFIG_MTD_CFI_UTIL_MODULE=1
ccflags-y += -DCONFIG_MTDRAM_TOTAL_SIZE=8192 -DCONFIG_MTDRAM_ERASE_SIZE=256
"""
FLASH_SOURCES = (
    "chips/cfi_util.c chips/gen_probe.c chips/cfi_probe.c chips/cfi_cmdset_0001.c chips/fwh_lock.h"
    " maps/physmap-core.c maps/physmap-*.h devices/mtdram.c"
).split()


def prove(name, figure, measured):
    """Keeps what a whole run has found, for the proof of a release."""
    run(sys.executable, "-B", TREE / "packaging/proof/record.py", name, figure, measured)


def disprove(name):
    """Takes an earlier figure back, because something was not as described now."""
    run(sys.executable, "-B", TREE / "packaging/proof/record.py", "--failed", name)


def made(target, inputs, make):
    """The target. It is made again when its inputs have changed since it was made."""
    digest = hashlib.sha256()
    for each in inputs:
        digest.update(each.read_bytes() if isinstance(each, pathlib.Path) else str(each).encode())
    stamp = target.with_name(target.name + ".of")
    if not (target.exists() and stamp.exists() and stamp.read_text() == digest.hexdigest()):
        OUT.mkdir(parents=True, exist_ok=True)
        stamp.unlink(missing_ok=True)
        make()
        stamp.write_text(digest.hexdigest())
    return target


def build_modules(kernel, directory):
    (headers,) = kernel.glob("usr/src/linux-headers-*-arm64")
    run("make", "-s", "-C", headers, f"M={directory}", "ARCH=arm64", f"CROSS_COMPILE={CROSS}", "modules")


def fresh(directory):
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir(parents=True)
    return directory


def device_module(kernel):
    directory = OUT / "module"

    def make():
        shutil.rmtree(directory, ignore_errors=True)
        shutil.copytree(HERE / "module", directory)
        build_modules(kernel, directory)

    sources = sorted((HERE / "module").iterdir())
    return made(directory, [kernel.stat().st_mtime, *sources], make) / "vosdevice.ko"


def flash_drivers(kernel):
    directory = OUT / "mtd"

    def make():
        fresh(directory)
        for pattern in FLASH_SOURCES:
            for source in (kernel / "drivers/mtd").glob(pattern):
                shutil.copy(source, directory)
        (directory / "Kbuild").write_text(FLASH_DRIVERS)
        build_modules(kernel, directory)

    return made(directory, [kernel.stat().st_mtime, FLASH_DRIVERS], make)


def start_archive(kernel):
    """What the kernel unpacks and starts: the first process and the modules."""
    built = {path.stem: path for path in flash_drivers(kernel).glob("*.ko")}
    built["vosdevice"] = device_module(kernel)
    names = [line for line in (HERE / "modules").read_text().splitlines() if line and not line.startswith("#")]
    archive = OUT / "start.cpio"

    def make():
        root = fresh(OUT / "start")
        for directory in ("dev", "lower", "changes", "root"):
            (root / directory).mkdir()
        run(f"{CROSS}gcc", "-static", "-O2", "-Wall", "-Wextra", "-Werror", "-o", root / "init", HERE / "guest/init.c")
        loaded = []
        for name in names:
            plain = name.strip("[]")
            own = name != plain
            module = built[plain] if own else next(kernel.glob(f"lib/modules/*/kernel/**/{plain}.ko"))
            run(f"{CROSS}strip", "-g", "-o", root / f"{plain}.ko", module)
            loaded.append(f"/{plain}.ko")
        (root / "modules").write_text("\n".join(loaded) + "\n")
        members = "\n".join(str(path.relative_to(root)) for path in sorted(root.rglob("*")))
        with open(archive, "wb") as file:
            command = ["cpio", "-o", "-H", "newc", "--quiet"]
            subprocess.run(command, input=members.encode(), stdout=file, cwd=root, check=True)

    return made(archive, [HERE / "guest/init.c", HERE / "modules", *sorted(built.values())], make)


def programs(userland):
    image = fetch.CACHE / "programs.squashfs"
    if not image.exists() or image.stat().st_mtime < userland.stat().st_mtime:
        part = image.with_suffix(".part")
        part.unlink(missing_ok=True)
        run("mksquashfs", userland, part, "-quiet", "-no-progress", "-noappend", "-all-root", "-Xcompression-level", "1")
        os.utime(part)
        part.rename(image)
    return image


def device_tree(cpus):
    """The machine's own, with its flash replaced by ours."""
    tree = OUT / f"device-{cpus}.dtb"

    def node(path, properties):
        run("fdtput", "-c", tree, path)
        for name, (kind, *values) in properties.items():
            run("fdtput", "-t", kind, tree, path, name, *values)

    def make():
        run(*EMULATOR, "-M", f"virt,dumpdtb={tree}", "-smp", str(cpus))
        run("fdtput", "-r", tree, "/flash@0")
        flash = f"/flash@{FLASH_AT:x}"
        where = ("x", "0", f"{FLASH_AT:x}", "0", f"{FLASH_SIZE:x}")
        node(flash, {"compatible": ("s", "cfi-flash"), "reg": where, "bank-width": ("x", "4")})
        within = f"{flash}/partitions"
        node(within, {"compatible": ("s", "fixed-partitions"), "#address-cells": ("x", "1"), "#size-cells": ("x", "1")})
        for label, at, size in reversed(PARTITIONS):  # a new node comes first
            node(f"{within}/partition@{at:x}", {"label": ("s", label), "reg": ("x", f"{at:x}", f"{size:x}")})

    return made(tree, [pathlib.Path(__file__)], make)


EMULATOR = "qemu-system-aarch64 -cpu cortex-a53 -m 512 -nodefaults -display none -no-reboot".split()


def erased_flash(path):
    """A new flash: every byte is 0xFF."""
    path.parent.mkdir(parents=True, exist_ok=True)
    with open(path, "wb") as file:
        for _ in range(FLASH_SIZE >> 20):
            file.write(b"\xff" * (1 << 20))
    return path


class Machine:
    """Everything that a run needs, made of what is fetched."""

    def __init__(self, update=False):
        kernel = fetch.kernel(update)
        (self.kernel,) = kernel.glob("boot/vmlinuz-*")
        self.start = start_archive(kernel)
        self.programs = programs(fetch.userland(update))
        self.trees = {cpus: device_tree(cpus) for cpus in (1, 2)}

    def command(self, job, flash, cpus=1, serial="stdio", words=(), extra=()):
        """The emulator's command line."""
        # Sandboxes make and leave many namespaces. The removal of each waits for an RCU grace period of the kernel.
        words = ["console=ttyAMA0", "quiet", "loglevel=1", "rcupdate.rcu_expedited=1", f"share={TREE}", *words]
        command = [*EMULATOR, "-M", "virt", "-accel", "tcg", "-smp", str(cpus), "-serial", serial]
        command += ["-kernel", self.kernel, "-initrd", self.start, "-dtb", self.trees[cpus]]
        command += ["-drive", f"if=pflash,unit=1,format=raw,file={flash}"]
        command += ["-drive", f"if=none,id=programs,format=raw,readonly=on,file={self.programs}"]
        command += ["-device", "virtio-blk-pci,drive=programs,romfile="]
        for name, path, only in (("job", job, ""), ("share", TREE, ",readonly=on")):
            command += ["-fsdev", f"local,id={name},path={path},security_model=none{only}"]
            command += ["-device", f"virtio-9p-pci,fsdev={name},mount_tag={name},romfile="]
        return [str(word) for word in [*command, *extra, "-append", " ".join(words)]]

    def run(self, script, *, cpus=1, flash=None, job=None, patience=600, show=sys.stdout, words=()):
        """Runs a script of the shell in the guest. The result: its exit status, or None when the machine was
        restarted instead of switched off; and what the console showed."""
        with tempfile.TemporaryDirectory(prefix="vos-device-") as scratch:
            scratch = pathlib.Path(scratch)
            flash = flash or erased_flash(scratch / "flash")
            job = job or scratch / "job"
            job.mkdir(parents=True, exist_ok=True)
            (job / "script").write_text(script + "\n")
            process = subprocess.Popen(
                ["nice", *self.command(job, flash, cpus, words=words)],
                stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT,
            )
            try:
                return watch(process, patience, show)
            finally:
                process.kill()
                process.wait()


def watch(process, patience, show):
    """Follows the console until the emulator ends."""
    late = threading.Timer(patience, process.kill)
    late.start()
    status, output = None, []
    for line in process.stdout:
        line = line.decode(errors="replace").replace("\r", "").rstrip("\n")
        ended = re.fullmatch(r"vos-device: exit (\d+)", line)
        if ended:
            status = int(ended.group(1))
        if status is not None:
            continue  # the kernel's good-bye
        output.append(line)
        if show:
            print(line, file=show, flush=True)
    process.wait()
    if not late.is_alive():
        raise Unavailable(f"the guest was not done after {patience} s")
    late.cancel()
    if process.returncode != 0:
        raise Unavailable(f"the emulator ended with {process.returncode}")
    while output and not output[-1]:
        output.pop()
    return status, output
