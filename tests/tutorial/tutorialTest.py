# SPDX-License-Identifier: MIT
"""docs/tutorial.md matches the programs: each C block is part of the program that the text names last, every program of
examples/tutorial is named, and the commands of the page do what it says. Runs in the sandbox.

    tutorialTest.py SOURCE-DIRECTORY BUILD-DIRECTORY [cpp]

With "cpp" the programs are those of examples/cpp/tutorial, which do the same.
"""
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import time

source, build = map(pathlib.Path, sys.argv[1:3])
programs = build / "examples" / "".join(sys.argv[3:])
page = (source / "docs/tutorial.md").read_text(encoding="utf-8")
PATIENCE = 60 * float(os.environ.get("VOS_TEST_PATIENCE", "1"))
environment = {**os.environ, "PATH": f"{programs}:{build}/tools:{os.environ['PATH']}"}


def expect(true, what):
    if not true:
        sys.exit(f"FAILED: {what}")


def run(command):
    print("$", command, flush=True)
    said = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, "text": True}
    ended = subprocess.run(["bash", "-c", command], env=environment, stdin=subprocess.DEVNULL, timeout=PATIENCE, **said)
    expect(ended.returncode == 0, f"{command} ended with {ended.returncode}:\n{ended.stdout}")
    return ended.stdout


def eventually(true, what):
    deadline = time.monotonic() + PATIENCE
    while not true():
        expect(time.monotonic() < deadline, what)
        time.sleep(0.01)


class Greeter:
    """One of the tutorial's programs, and what it prints."""

    def __init__(self, step):
        self.log = pathlib.Path(f"/tmp/greeter-{step}.log")
        with self.log.open("wb") as output:
            self.process = subprocess.Popen([f"tutorial-{step}"], stdout=output, env=environment)
        eventually(self.answers, f"step {step} is not reachable")

    def answers(self):
        said = subprocess.run(["vosctl", "ps"], env=environment, capture_output=True, text=True).stdout
        return re.search(rf"^greeter\b.*\b{self.process.pid}\b", said, flags=re.M)

    def prints(self, text):
        eventually(lambda: text in self.log.read_text(encoding="utf-8"), f"the greeter does not print {text!r}")

    def end(self):
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(PATIENCE)


def sources():
    """The C blocks of the page are excerpts of the files that it names."""
    named, file, blocks = set(), None, 0
    for match in re.finditer(r"`(examples/tutorial/[\w.-]+)`|^```c\n(.*?)^```$", page, flags=re.M | re.S):
        if match[1]:
            file = source / match[1]
            named.add(match[1])
        else:
            blocks += 1
            expect(match[2] in file.read_text(encoding="utf-8"), f"{file.name} does not hold\n{match[2]}")
    there = {file.relative_to(source).as_posix() for file in (source / "examples/tutorial").iterdir()}
    expect(named == there, f"named and there differ: {named ^ there}")
    expect(blocks >= 8, f"only {blocks} blocks of C")


def code(said):
    return int(re.search(r"code\s+(-?\d+)", said)[1])


def large_buffers():
    """Whether this machine's ceilings are those of a device, so that there is no line about them."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as datagrams:
        datagrams.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 6 << 20)
        return datagrams.getsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF) >= 12 << 20


def steps():
    greeter = Greeter(1)
    said = run("vosctl send greeter hi")
    expect(code(said) == 1 and "64 bytes" in said and "hello" in said, said)
    if not large_buffers():
        expect("KERNEL_NET_MEM_MAX" in greeter.log.read_text(encoding="utf-8"), "the first lines are not those of the page")
    greeter.end()

    greeter = Greeter(2)
    run("vosctl send greeter hi; vosctl send greeter hi")
    greeter.prints("greeted 2")
    greeter.end()

    greeter = Greeter(3)
    run('vosctl send greeter "set guten Tag"')
    expect(run("vosctl config-of greeter") == "greeting guten Tag\n", "the running configuration")
    expect("guten Tag" in run("vosctl config show"), "the saved configuration")
    greeter.end()

    greeter = Greeter(4)  # the greeting was saved by another program
    expect("guten Tag" in run("vosctl send greeter hi"), "the greeting was not kept")
    said = run("vosctl send greeter --high count")
    expect(code(said) == 1 and "count" in said, said)
    greeter.end()

    greeter = Greeter(5)
    shown = pathlib.Path("/tmp/shown")
    with shown.open("wb") as output:
        log = subprocess.Popen(["vosctl", "log", "greeter", "trace"], stdout=output, stderr=subprocess.DEVNULL, env=environment)

    def traced():
        run("vosctl send greeter hi")
        return b"greeted with guten Tag." in shown.read_bytes()

    eventually(traced, "vosctl log shows nothing")
    log.send_signal(signal.SIGINT)
    expect(log.wait(PATIENCE) == 0, f"vosctl log ended with {log.returncode}")
    expect(greeter.end() == 0, "the greeter does not end with status 0")
    greeter.prints("greeter ends")

    os.unlink("/flash/zebcfg")
    expect("all tests have passed" in run(source / "examples/tutorial/test.sh"), "the tutorial's own test")


sources()
steps()
print("six steps")
