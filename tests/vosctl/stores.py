# SPDX-License-Identifier: MIT
"""What the tests of the stores share: images and packages byte by byte, and answers on a terminal."""
import os
import pathlib
import pty
import select
import struct
import subprocess
import time
import zlib

from conftest import PATIENCE

APPLICATION = pathlib.Path("/app/hostImage.bin")
MAGIC = 0x53355335


def header(kind, payload, compat=(1, 2)):
    return struct.pack(">4I", kind, *compat, zlib.crc32(payload))


def image(kind, payload, compat=(1, 2)):
    head = header(kind, payload, compat)
    return payload + head if kind == 1 else head + payload


def flipped(data, at=-1):
    """The bytes with one bit of one of them changed."""
    changed = bytearray(data)
    changed[at] ^= 1
    return bytes(changed)


def install_first():
    """Installs an application, with which images are compared."""
    APPLICATION.write_bytes(image(2, b"first"))


def write(path, data):
    path = pathlib.Path(path)
    path.write_bytes(data)
    return path


def on_terminal(binary, *arguments, answer=None):
    """Runs vosctl with a terminal, gives the answer to its question if there is one, and returns status and what the terminal showed."""
    ours, theirs = pty.openpty()
    process = subprocess.Popen([binary, *map(str, arguments)], stdin=theirs, stdout=theirs, stderr=theirs, close_fds=True)
    os.close(theirs)
    shown = b""
    deadline = time.monotonic() + PATIENCE
    answered = answer is None
    while time.monotonic() < deadline and select.select([ours], [], [], PATIENCE)[0]:
        try:
            part = os.read(ours, 4096)
        except OSError:  # the other end is closed
            break
        shown += part
        if not answered and b"[y/N]" in shown:
            os.write(ours, answer.encode() + b"\n")
            answered = True
    os.close(ours)
    assert answered, shown
    return process.wait(PATIENCE), shown.decode()
