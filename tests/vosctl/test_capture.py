# SPDX-License-Identifier: MIT
"""vosctl capture: files in the format pcapng, their rotation, and how they end."""
import json
import os
import pathlib
import signal
import socket
import stat
import struct
import subprocess
import threading
import time

import pytest
from captures import COPY, Copy, blocks, message, options, started
from conftest import PATIENCE, eventually
from test_dissector import DISSECTOR
from test_monitor import peer, sendto, sockets, taps  # noqa: F401 (a fixture)

FILE = pathlib.Path("/tmp/messages.pcapng")
SECTION, INTERFACE, STATISTICS, PACKET = 0x0A0D0D0A, 1, 5, 6


@pytest.fixture
def capturing(background, binary, vosctl):
    """Starts a capture, and waits until it has the messages of a process. A file of an earlier test may be there."""

    def start(name, *arguments, file=FILE):
        def number():
            return file.stat().st_ino if file.exists() else None

        earlier = number()
        process = background(binary, "--json", "capture", "-w", file, *arguments)
        eventually(lambda: vosctl("send", name, "hello").ok() and number() not in (None, earlier) and b"hello" in file.read_bytes())
        return process

    return start


def copies(file=FILE):
    """What the packets of a file say: (what, stage, process, number, lost, interface)."""
    found = []
    for type, body in blocks(file.read_bytes()):
        if type == PACKET:
            interface, _, _, captured, _ = struct.unpack_from("=IIIII", body)
            copy, _, _, what, stage, _, _, _, pid = struct.unpack_from("=IHHBBBBiI", body, 20)
            number, lost = struct.unpack_from("=QQ", body, 20 + 32)
            assert copy == COPY and captured >= 304
            found.append((what, stage, pid, number, lost, interface))
    return found


def test_a_capture_has_a_section_interfaces_packets_and_counters(vosctl, peer, capturing):
    server, client = peer("server"), peer("client")
    process = capturing("client")
    eventually(lambda: vosctl("send", "client", "ask server hi", "--nul").ok() and len({pid for _, _, pid, *_ in copies()}) == 2)
    assert process.signal(signal.SIGINT).finish() == 0
    found = blocks(FILE.read_bytes())
    assert found[0][0] == SECTION and [type for type, _ in found].count(SECTION) == 1
    names = {}
    for type, body in found:
        if type == INTERFACE:
            values = options(body, 8)
            assert struct.unpack_from("=H", body) == (147,) and values[9] == b"\x09"
            names[values[2].decode()] = values[3].decode()
    assert names == {"server": f"pid {server.pid}", "client": f"pid {client.pid}"}
    told = json.loads(process.output)
    received = copies()
    assert told == {"file": str(FILE), "files": 1, "copies": len(received), "lost": sum(
        struct.unpack("=Q", options(body, 12)[5])[0] for type, body in found if type == STATISTICS)}
    counters = [struct.unpack("=Q", options(body, 12)[4])[0] for type, body in found if type == STATISTICS]
    assert found[-1][0] == STATISTICS and sum(counters) == len(received) and len(counters) == 2
    times = [struct.unpack_from("=II", body, 4) for type, body in found if type == PACKET]
    assert all(abs((high << 32 | low) - time.time_ns()) < 3600 * 10**9 for high, low in times)


def test_the_numbers_of_the_copies_have_no_gap_that_is_not_counted(vosctl, peer, capturing):
    peer("server"), peer("client", "server")
    process = capturing("client")
    eventually(lambda: vosctl("send", "client", "times 1", "--nul").ok() and len({pid for _, _, pid, *_ in copies()}) == 2)
    vosctl("send", "client", "times 500", "--nul", "--timeout", "60000").ok()
    assert process.signal(signal.SIGINT).finish() == 0
    by_process = {}
    for what, _, pid, number, lost, _ in copies():
        if what < 3:
            by_process.setdefault(pid, []).append((number, lost))
    assert len(by_process) == 2
    for numbers in by_process.values():
        last, lost = max(numbers)
        assert len({number for number, _ in numbers}) == len(numbers)  # each copy once
        first, lost_before = min(numbers)
        assert last - first + 1 - len(numbers) == lost - lost_before  # and the others are counted


def test_tshark_reads_what_was_captured(vosctl, peer, capturing, tmp_path):
    peer("server"), peer("client")
    process = capturing("client")
    eventually(lambda: vosctl("send", "client", "ask server code -4", "--nul").ok() and b"code -4" in FILE.read_bytes())
    eventually(lambda: vosctl("send", "client", "ask server code -4", "--nul").ok() and len({pid for _, _, pid, *_ in copies()}) == 2)
    assert process.signal(signal.SIGINT).finish() == 0
    done = subprocess.run(
        ["tshark", "-r", FILE, "-X", f"lua_script:{DISSECTOR}", "-Y", "vos.code == -4 && vos.what == 1 && vos.to == \"client\"", "-T",
         "fields", "-e", "vos.from", "-e", "vos.to", "-e", "vos.request_in", "-e", "vos.served", "-e", "frame.interface_name"],
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=4 * PATIENCE, check=True, env={**os.environ, "HOME": str(tmp_path)})
    line = done.stdout.decode().splitlines()[-1].split("\t")
    assert line[:2] == ["server", "client"] and int(line[2]) > 0 and float(line[3]) > 0 and line[4] == "server"


def test_monitor_reads_what_was_captured(vosctl, peer, capturing):
    peer("server")
    process = capturing("server")
    vosctl("send", "server", "code -4", "--nul").ok()
    assert process.signal(signal.SIGINT).finish() == 0
    lines = [json.loads(line) for line in vosctl("--json", "monitor", "-r", FILE, "--code", "-4").ok().stdout.splitlines()]
    assert [(each["from"], each["code"], each["text"]) for each in lines if "kind" in each] == [("server", -4, "code -4")]


def test_only_its_owner_can_read_a_capture(vosctl, peer, capturing):
    peer("server")
    FILE.write_text("an earlier file")
    FILE.chmod(0o644)
    capturing("server")
    assert stat.S_IMODE(FILE.stat().st_mode) == 0o600
    assert [each.name for each in pathlib.Path("/tmp").glob("messages.pcapng*")] == ["messages.pcapng"]


def test_a_kill_leaves_a_file_that_can_be_read(vosctl, peer, capturing):
    server = peer("server")
    process = capturing("server")
    assert process.signal(signal.SIGKILL).finish() == -signal.SIGKILL
    assert copies() != []
    vosctl("monitor", "-r", FILE).ok()
    eventually(lambda: taps() == [] and sockets(server.pid) == 2)


def test_standard_output_takes_a_capture_for_a_pipe(binary, vosctl, peer):
    peer("server")
    process = subprocess.Popen([binary, "capture", "-w", "-"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    eventually(lambda: taps() != [])
    reading = subprocess.Popen([binary, "--json", "monitor", "-r", "-", "-c", "2"], stdin=process.stdout, stdout=subprocess.PIPE)
    process.stdout.close()
    eventually(lambda: vosctl("send", "server", "hello").ok() and reading.poll() is not None)
    assert len(reading.communicate()[0].splitlines()) == 2 and reading.returncode == 0
    vosctl("send", "server", "hello").ok()
    assert process.wait(PATIENCE) == -signal.SIGPIPE and process.stderr.read() == b""
    process.stderr.close()
    eventually(lambda: taps() == [])


def test_a_fifo_is_written_to(binary, vosctl, peer, background):
    peer("server")
    os.mkfifo("/tmp/fifo")
    content = []
    reader = threading.Thread(target=lambda: content.append(pathlib.Path("/tmp/fifo").read_bytes()))
    reader.start()
    background(binary, "capture", "-w", "/tmp/fifo", "-c", "3")
    eventually(lambda: vosctl("send", "server", "hello").ok() and not reader.is_alive())
    assert [type for type, _ in blocks(content[0])].count(PACKET) == 3
    assert stat.S_ISFIFO(os.stat("/tmp/fifo").st_mode)


def test_it_ends_when_the_file_is_full(vosctl, peer, background, binary):
    peer("server")
    process = background(binary, "--json", "capture", "-w", FILE, "--max-size", "4K")
    eventually(lambda: vosctl("send", "server", "hello").ok() and process.process.poll() is not None)
    assert process.finish() == 0 and 2048 < FILE.stat().st_size <= 4096
    assert blocks(FILE.read_bytes())[-1][0] == STATISTICS and json.loads(process.output)["files"] == 1


def test_files_are_continued_and_the_oldest_goes(vosctl, peer, background, binary):
    peer("server")
    process = background(binary, "--json", "capture", "-w", FILE, "--max-size", "4K", "--files", "3")
    files = [FILE, pathlib.Path(f"{FILE}.1"), pathlib.Path(f"{FILE}.2")]
    eventually(lambda: vosctl("send", "server", "hello").ok() and files[2].exists())
    oldest = files[2].read_bytes()
    eventually(lambda: vosctl("send", "server", "hello").ok() and files[2].read_bytes() != oldest)
    assert process.signal(signal.SIGINT).finish() == 0
    assert not pathlib.Path(f"{FILE}.3").exists() and json.loads(process.output)["files"] == 3
    numbers = []
    for file in reversed(files):
        assert file.stat().st_size <= 4096
        names = [options(body, 8)[2] for type, body in blocks(file.read_bytes()) if type == INTERFACE]
        assert names == [b"server"]  # each file can be read alone
        numbers += [(number, lost) for what, _, _, number, lost, _ in copies(file) if what < 3]
    for (number, lost), (following, lost_then) in zip(numbers, numbers[1:]):
        assert following - number == 1 + lost_then - lost  # nothing is left out but what was lost


def test_a_full_disk_ends_it_with_a_file_that_can_be_read(vosctl, peer, binary):
    server = peer("server")
    process = subprocess.Popen(["bash", "-c", f"ulimit -f 8; exec {binary} capture -w {FILE}"], stderr=subprocess.PIPE,
                               preexec_fn=lambda: signal.signal(signal.SIGXFSZ, signal.SIG_IGN))
    eventually(lambda: vosctl("send", "server", "x" * 2000).ok() and process.poll() is not None)
    error = process.stderr.read().decode()
    process.stderr.close()
    assert process.returncode == 1 and "cannot be written" in error and error.startswith("vosctl: ")
    assert copies() != [] and taps() == []
    eventually(lambda: sockets(server.pid) == 2)


def test_files_that_cannot_be_made_are_refused_before_anything_is_switched_on(vosctl, peer):
    peer("server")
    assert "is a directory" in vosctl("capture", "-w", "/tmp").failed()
    assert "cannot be created" in vosctl("capture", "-w", "/tmp/nothing/file").failed()
    assert taps() == []


def test_a_limit_ends_a_capture_on_standard_output_too(vosctl, peer, background, binary):
    peer("server")
    with open("/tmp/output", "wb") as output:
        process = subprocess.Popen([binary, "capture", "-w", "-", "--max-size", "4K"], stdout=output)
        eventually(lambda: vosctl("send", "server", "hello").ok() and process.poll() is not None)
    content = pathlib.Path("/tmp/output").read_bytes()
    assert process.returncode == 0 and 2048 < len(content) <= 4096 and blocks(content)[-1][0] == STATISTICS


def test_standard_output_is_not_continued_in_a_file(vosctl):
    assert "standard output cannot be continued" in vosctl("capture", "-w", "-", "--max-size", "4K", "--files", "2").failed(2)
    assert taps() == []


def test_a_loss_is_counted_once_through_all_files(vosctl, background, binary):
    """The copies are forged, so that it is known how many were lost."""
    process = background(binary, "--json", "capture", "-w", FILE, "--max-size", "4K", "--files", "9")
    tap = eventually(taps)[0]
    numbers = [0, 7, 6, 7] + [7] * 20 + [9, 8, 9]
    forged = [Copy(started(4000000, b"x").what, 0, 0, pid=4000000, number=0, own=b"/tmp/vos/x")]
    forged += [Copy(pid=4000000, number=index + 1, lost=lost, message=message(b"x" * 100)) for index, lost in enumerate(numbers)]
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        for copy in forged:
            eventually(lambda: sendto(sender, copy.bytes(), tap))

    def last_number():
        try:
            return copies()[-1][3]
        except (FileNotFoundError, IndexError):  # the next file is being begun
            return None

    eventually(lambda: last_number() == len(numbers))
    assert process.signal(signal.SIGINT).finish() == 0
    assert (json.loads(process.output)["lost"], json.loads(process.output)["copies"]) == (9, len(forged))
    files = [file for file in pathlib.Path("/tmp").glob(f"{FILE.name}*")]
    counted = [struct.unpack("=Q", options(body, 12)[5])[0] for file in files for type, body in blocks(file.read_bytes()) if type == STATISTICS]
    dropped = [options(body, packet_options(body)).get(4) for file in files for type, body in blocks(file.read_bytes()) if type == PACKET]
    assert len(files) > 1 and sum(counted) == 9
    assert sum(struct.unpack("=Q", each)[0] for each in dropped if each) == 9


def packet_options(body):
    """Where the options of a packet begin."""
    (length,) = struct.unpack_from("=I", body, 12)
    return 20 + (length + 3) // 4 * 4


def test_what_is_no_regular_file_is_not_continued_in_another(vosctl):
    assert "no regular file" in vosctl("capture", "-w", "/dev/null", "--max-size", "4K", "--files", "2").failed(2)
    assert taps() == [] and stat.S_ISCHR(os.stat("/dev/null").st_mode)


@pytest.mark.parametrize("arguments", [[], ["-w", ""], ["-w", "f", "--files", "2"], ["-w", "f", "--max-size", "1K"],
                                       ["-w", "f", "--max-size", "x"], ["-w", "f", "--max-size", ""], ["-w", "f", "-c", "0"],
                                       ["-w", "f", "--max-size", "10M", "--files", "0"]])
def test_a_wrong_option_is_refused(vosctl, arguments):
    vosctl("capture", *arguments).failed(2)
    assert not pathlib.Path("f").exists()
