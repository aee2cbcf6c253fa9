# SPDX-License-Identifier: MIT
"""What the tests of vosctl share. They run inside the sandbox, against the real binary and real processes.

VOSCTL, EXAMPLES and PROGRAMS in the environment name the binary and the directories of the example programs and of the
tests' own; VOS_TEST_PATIENCE multiplies every deadline.
"""
import dataclasses
import json as jsonlib
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import threading
import time

import pytest

PATIENCE = 20.0 * float(os.environ.get("VOS_TEST_PATIENCE", "1"))
SOCKETS = pathlib.Path("/tmp/vos")

if os.environ.get("VOS_SANDBOX") != "1":
    raise SystemExit("run these tests with testkit/vos-sandbox")


@dataclasses.dataclass
class Outcome:
    """How a run of vosctl ended."""

    status: int
    stdout: str
    stderr: str

    @property
    def json(self):
        return jsonlib.loads(self.stdout)

    def failed(self, status=1):
        """Asserts that the run failed in the documented way, and returns its line: what went wrong; the next step."""
        assert self.status == status, self
        assert self.stderr.startswith("vosctl: ") and self.stderr.count("\n") == 1, self
        assert "; " in self.stderr, self
        return self.stderr

    def ok(self):
        assert self.status == 0, self
        assert self.stderr == "", self
        return self


class Background:
    """A process that runs during the test. Its lines are collected as they come."""

    def __init__(self, command, stdin=None, env=None):
        self.command = command
        self.process = subprocess.Popen(
            command, stdin=stdin or subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            env={**os.environ, **(env or {})}, start_new_session=True)
        self.pid = self.process.pid
        self._output = bytearray()
        self._ended = False
        self._changed = threading.Condition()
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        while chunk := os.read(self.process.stdout.fileno(), 65536):
            with self._changed:
                self._output += chunk
                self._changed.notify_all()
        with self._changed:
            self._ended = True
            self._changed.notify_all()

    @property
    def output(self):
        with self._changed:
            return self._output.decode(errors="replace")

    def await_output(self, text):
        """Waits until the process has printed the text."""
        with self._changed:
            seen = self._changed.wait_for(lambda: text.encode() in self._output or self._ended, PATIENCE)
        assert seen and text in self.output, f"{self.command} did not print {text!r}: {self.output!r}"
        return self

    def signal(self, number):
        self.process.send_signal(number)
        return self

    def finish(self):
        """Waits for the end and returns the exit status."""
        status = self.process.wait(PATIENCE)
        self._reader.join(PATIENCE)
        return status

    def stop(self):
        """Ends it and what it has started."""
        try:
            os.killpg(self.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait(PATIENCE)
        self._reader.join(PATIENCE)
        self.process.stdout.close()


def await_socket(path, process=None):
    """Waits until a process receives on the socket path."""
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        probe = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        try:
            probe.connect(str(path))
            return
        except OSError:
            assert process is None or process.process.poll() is None, f"it ended: {process.output!r}"
            time.sleep(0.002)
        finally:
            probe.close()
    raise AssertionError(f"nobody receives on {path}")


@pytest.fixture(scope="session")
def binary():
    return os.environ["VOSCTL"]


@pytest.fixture
def vosctl(binary):
    """Runs vosctl with the arguments and returns its Outcome."""

    def run(*arguments, stdin="", env=None, timeout=PATIENCE, stdout=None):
        done = subprocess.run(
            [binary, *map(str, arguments)], input=stdin.encode() if isinstance(stdin, str) else stdin,
            stdout=stdout or subprocess.PIPE, stderr=subprocess.PIPE, timeout=timeout, check=False,
            env={**os.environ, **(env or {})})
        return Outcome(done.returncode, (done.stdout or b"").decode(errors="replace"), done.stderr.decode(errors="replace"))

    return run


@pytest.fixture
def background():
    """Starts processes during the test; all have ended when the test is over."""
    started = []

    def start(*command, ready=None, name=None, **options):
        """ready: text that the process prints when it is ready; name: the message name that it receives under."""
        process = Background([str(word) for word in command], **options)
        started.append(process)
        if ready is not None:
            process.await_output(ready)
        if name is not None:
            await_socket(SOCKETS / (name + "High"), process)
        return process

    yield start
    for process in started:
        process.stop()


@pytest.fixture
def example(background):
    """Starts an example program and waits until it is reachable under its name."""

    def start(program, name=None):
        return background(pathlib.Path(os.environ["EXAMPLES"]) / program, name=name or program)

    return start


@pytest.fixture
def agent(background):
    """Starts the program agent.c under a name, in one of its modes."""

    def start(name="agent", *mode, **options):
        return background(pathlib.Path(os.environ["PROGRAMS"]) / "agent", name, *mode, ready="ready", **options)

    return start


@pytest.fixture
def stale():
    """Makes the path of a socket whose process has ended."""
    def make(name):
        SOCKETS.mkdir(exist_ok=True)
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as left:
            left.bind(str(SOCKETS / name))
        return SOCKETS / name

    return make


def eventually(true):
    """Waits until the call returns a true value, and returns it."""
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        if value := true():
            return value
        time.sleep(0.002)
    raise AssertionError("it did not come true in time")


def _empty(directory):
    for entry in pathlib.Path(directory).iterdir() if os.path.isdir(directory) else ():
        if entry.is_dir() and not entry.is_symlink():
            shutil.rmtree(entry)
        else:
            entry.unlink()


@pytest.fixture(autouse=True)
def clean_device():
    """Every test begins with an empty flash, and without a reachable process."""
    for directory in ("/flash", "/app"):
        _empty(directory)
    if SOCKETS.is_dir() and not SOCKETS.is_symlink():
        shutil.rmtree(SOCKETS)
    else:
        SOCKETS.unlink(missing_ok=True)
