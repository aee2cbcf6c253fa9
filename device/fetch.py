# SPDX-License-Identifier: MIT
"""Debian's packages for the emulated device: fetched once, kept outside the tree, never installed.

They are of another architecture, so apt works here with a configuration, lists and a status of its own: this machine's
are only asked where Debian is to be had. Nothing here knows a version: whatever Debian offers when the cache is filled
is taken, and `scripts/device build --update` asks again.
"""
import fcntl
import glob
import os
import pathlib
import re
import shutil
import subprocess

CACHE = pathlib.Path(
    os.environ.get("VOS_DEVICE_CACHE")
    or pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "vos-device"
)
USERLAND = (
    "bash bubblewrap coreutils dash diffutils findutils gawk grep gzip hostname iproute2 kmod libc-bin libstdc++6 mount"
    " procps sed tar tzdata util-linux"
).split()
DRIVERS = ("drivers/mtd/chips", "drivers/mtd/devices", "drivers/mtd/maps")

CONFIGURATION = """\
APT::Architecture "arm64";
APT::Architectures {{ "arm64"; "amd64"; }};
APT::Install-Recommends "false";
APT::Sandbox::User "root";
Acquire::Languages "none";
Dir::State "{apt}/state";
Dir::State::status "{apt}/status";
Dir::Cache "{apt}/cache";
Dir::Etc::sourcelist "{apt}/sources.list";
Dir::Etc::sourceparts "{apt}/none";
"""


class Unavailable(Exception):
    """Something that the device needs is not available."""


def run(*command, **options):
    """Runs a command; its output is shown only when it fails."""
    done = subprocess.run(
        [str(word) for word in command],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        check=False,
        **options,
    )
    if done.returncode != 0:
        raise Unavailable(f"{' '.join(map(str, command[:4]))}: status {done.returncode}\n{done.stdout[-3000:]}")
    return done.stdout


class Apt:
    """apt for the device's architecture."""

    def __init__(self, directory):
        self.directory = directory
        for each in ("state/lists/partial", "cache/archives/partial", "none"):
            (directory / each).mkdir(parents=True, exist_ok=True)
        (directory / "status").touch()
        (directory / "sources.list").write_text(debian_sources(), encoding="utf-8")
        configuration = directory / "apt.conf"
        configuration.write_text(CONFIGURATION.format(apt=directory), encoding="utf-8")
        self.environment = {**os.environ, "APT_CONFIG": str(configuration), "DEBIAN_FRONTEND": "noninteractive"}

    def __call__(self, *words):
        return run(*words, env=self.environment, cwd=self.directory)

    def dependency(self, package, pattern):
        for line in self("apt-cache", "depends", package).splitlines():
            match = re.match(rf"\s*Depends: ({pattern})$", line)
            if match:
                return match.group(1)
        raise Unavailable(f"{package} depends on nothing like {pattern}")

    def fetch(self, packages, into):
        """These packages alone, unpacked."""
        self("apt-get", "download", "-q", *packages)
        for package in packages:
            name = package.split(":")[0]
            (archive,) = self.directory.glob(f"{name}_*.deb")
            run("dpkg", "-x", archive, into)
            archive.unlink()

    def fetch_with_dependencies(self, packages, into):
        self("apt-get", "install", "-q", "-y", "--download-only", *packages)
        for archive in self.directory.glob("cache/archives/*.deb"):
            run("dpkg", "-x", archive, into)


def debian_sources():
    """Where this machine gets Debian from, as one list."""
    entries = []
    for path in ["/etc/apt/sources.list", *sorted(glob.glob("/etc/apt/sources.list.d/*"))]:
        if not os.path.isfile(path):
            continue
        with open(path, encoding="utf-8") as file:
            text = file.read()
        if path.endswith(".sources"):
            entries += deb822(text)
        elif path.endswith(".list"):
            entries += [line for line in text.splitlines() if re.match(r"deb\s", line)]
    entries = [entry for entry in entries if re.search(r"\s(bookworm|stable|oldstable)", entry) and " main" in entry]
    entries = [entry for entry in entries if "/debian" in entry]
    if not entries:
        raise Unavailable("no Debian archive is configured on this machine")
    return "\n".join(entries) + "\n"


def deb822(text):
    entries = []
    for paragraph in re.split(r"\n\s*\n", text):
        fields = dict(re.findall(r"^([A-Za-z-]+):[ \t]*(.*)$", paragraph, re.MULTILINE))
        if "deb" not in fields.get("Types", "").split():
            continue
        key = f"[signed-by={fields['Signed-By']}] " if fields.get("Signed-By", "").startswith("/") else ""
        for uri in fields["URIs"].split():
            for suite in fields["Suites"].split():
                entries.append(f"deb {key}{uri} {suite} {fields.get('Components', '')}")
    return entries


def fetch_kernel(apt, into):
    """The kernel, what builds modules for it, and the drivers that are built from its source."""
    image = apt.dependency("linux-image-arm64", r"linux-image-[\w.-]+-arm64")
    headers = image.replace("-image-", "-headers-")
    common = apt.dependency(headers, r"linux-headers-[\w.-]+-common")
    kbuild = apt.dependency(headers, r"linux-kbuild-[\w.]+")
    source = kbuild.replace("-kbuild-", "-source-")
    apt.fetch([image, headers, common, f"{kbuild}:amd64", source], into)
    (makefile,) = into.glob("usr/src/linux-headers-*-arm64/Makefile")
    makefile.write_text(makefile.read_text().replace("/usr/src/", f"{into}/usr/src/"))
    (archive,) = into.glob("usr/src/linux-source-*.tar.xz")
    members = [f"{archive.name.removesuffix('.tar.xz')}/{each}/*" for each in DRIVERS]
    run("tar", "-xf", archive, "-C", into, "--strip-components=1", "--wildcards", *members)
    archive.unlink()


def fetch_userland(apt, into):
    apt.fetch_with_dependencies(USERLAND, into)
    for bulk in ("usr/share/doc", "usr/share/man", "usr/share/locale", "usr/share/info", "var/cache"):
        shutil.rmtree(into / bulk, ignore_errors=True)


def fetched(name, fetch, update=False):
    """The directory that a fetch fills; complete, or not there."""
    CACHE.mkdir(parents=True, exist_ok=True)
    target = CACHE / name
    with open(CACHE / "lock", "w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if target.exists() and not update:
            return target
        print(f"device: fetching {name} (once)", flush=True)
        apt = Apt(CACHE / "apt")
        apt("apt-get", "update", "-q")
        shutil.rmtree(target, ignore_errors=True)
        part = CACHE / f"{name}.part"
        shutil.rmtree(part, ignore_errors=True)
        part.mkdir()
        fetch(apt, part)
        if name == "kernel":  # the absolute path in it is that of the complete directory
            (makefile,) = part.glob("usr/src/linux-headers-*-arm64/Makefile")
            makefile.write_text(makefile.read_text().replace(str(part), str(target)))
        part.rename(target)
    return target


def kernel(update=False):
    return fetched("kernel", fetch_kernel, update)


def userland(update=False):
    return fetched("userland", fetch_userland, update)
