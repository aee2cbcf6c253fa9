# SPDX-License-Identifier: MIT
"""What the tests of the test kit share. They run inside the sandbox, against the built commands.

TESTKIT, EXAMPLES, PROGRAMS and VOSCTL in the environment name the directory of the kit, those of the example programs and of
the tests' own, and the tool.
"""
import dataclasses
import os
import pathlib
import signal
import subprocess
import time

import pytest

PATIENCE = 20.0 * float(os.environ.get("VOS_TEST_PATIENCE", "1"))
KIT = pathlib.Path(os.environ["TESTKIT"])
EXAMPLES = pathlib.Path(os.environ["EXAMPLES"])
PROGRAMS = pathlib.Path(os.environ["PROGRAMS"])

if os.environ.get("VOS_SANDBOX") != "1":
    raise SystemExit("run these tests with testkit/vos-sandbox")


@dataclasses.dataclass
class Outcome:
    """How a command ended."""

    status: int
    stdout: str
    stderr: str


def run(*words, env=None, timeout=PATIENCE, stdout=subprocess.PIPE, **options):
    done = subprocess.run([str(word) for word in words], stdin=subprocess.DEVNULL, stdout=stdout, stderr=subprocess.PIPE,
                          env={**os.environ, **(env or {})}, timeout=timeout, check=False, **options)
    return Outcome(done.returncode, (done.stdout or b"").decode(errors="replace"), done.stderr.decode(errors="replace"))


def eventually(true):
    """Waits until the call returns a true value, and returns it."""
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        if value := true():
            return value
        time.sleep(0.002)
    raise AssertionError("it did not come true in time")


@pytest.fixture
def server():
    """The example server, reachable."""
    with subprocess.Popen([EXAMPLES / "server"], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL) as process:
        eventually(pathlib.Path("/tmp/vos/serverHigh").exists)
        yield process
        process.send_signal(signal.SIGKILL)
    for path in pathlib.Path("/tmp/vos").iterdir():
        path.unlink()
