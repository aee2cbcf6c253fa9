# SPDX-License-Identifier: MIT
"""vosctl ps: names, sockets, owners, queues."""
import ctypes
import errno
import json
import os
import pathlib
import platform
import socket
import struct
import subprocess

import pytest
from conftest import SOCKETS, eventually


def names(vosctl, *arguments):
    return {name["name"]: name for name in vosctl("--json", "ps", *arguments).ok().json["names"]}


def states(name):
    return {(each["kind"], each.get("thread")): each["state"] for each in name["sockets"]}


def test_without_a_directory_no_process_is_reachable(vosctl):
    assert vosctl("ps").ok().stdout == "No process is reachable.\n"
    assert vosctl("--json", "ps").ok().json == {"names": []}


def test_a_process_is_shown_with_its_pid_program_and_all_its_sockets(vosctl, agent):
    process = agent("oltd")
    name = names(vosctl)["oltd"]
    assert (name["pid"], name["program"]) == (process.pid, "agent")
    assert states(name) == {("normal", None): "reachable", ("high", None): "reachable", ("thread", 3): "reachable",
                            ("thread-high", 3): "reachable", ("thread", 12): "reachable"}
    assert all(each["pids"] == [process.pid] for each in name["sockets"])
    assert name["sockets"][0]["path"] == "/tmp/vos/oltd"


def test_the_text_has_one_line_per_socket_in_the_order_normal_high_threads(vosctl, agent):
    agent("oltd")
    lines = vosctl("ps").ok().stdout.splitlines()
    assert [line.split()[:2] for line in lines[:3]] == [["NAME", "SOCKET"], ["oltd", "normal"], ["oltd", "high"]]
    assert [" ".join(line.split()[1:4]).split(" high")[0] for line in lines[3:]][0].startswith("thread 3")
    assert lines[5].startswith("oltd  thread 12")
    assert all(not line.endswith(" ") for line in lines)


def test_numbered_names_of_two_processes_are_no_thread_channels(vosctl, agent):
    first, second = agent("olt"), agent("olt3x")
    assert names(vosctl)["olt"]["pid"] == first.pid
    assert names(vosctl)["olt3x"]["pid"] == second.pid


def test_a_name_with_a_number_that_is_another_process_is_a_name(vosctl, background, binary):
    background(binary, "listen", "box", name="box")
    other = background(binary, "listen", "box7", name="box7")
    assert names(vosctl)["box7"]["pid"] == other.pid
    assert states(names(vosctl)["box"]) == {("normal", None): "reachable", ("high", None): "reachable"}


def test_a_path_left_behind_is_marked_stale(vosctl, stale):
    stale("old")
    name = names(vosctl)["old"]
    assert name["pid"] is None
    assert name["sockets"] == [{"kind": "normal", "path": "/tmp/vos/old", "state": "stale", "pids": [],
                                "queuedAtLeast": None, "nextBytes": None, "limit": None}]
    assert "stale" in vosctl("ps").ok().stdout


def test_a_killed_process_leaves_stale_paths(vosctl, agent):
    agent("gone").stop()
    assert set(states(names(vosctl)["gone"]).values()) == {"stale"}


def test_what_is_no_socket_is_not_listed(vosctl):
    SOCKETS.mkdir()
    (SOCKETS / "file").write_text("x")
    (SOCKETS / "directory").mkdir()
    assert names(vosctl) == {}


def test_waiting_datagrams_are_counted_and_measured(vosctl, agent):
    agent("mute", "mute")
    senders = [socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) for _ in range(3)]
    for index, sender in enumerate(senders):
        sender.connect("/tmp/vos/mute")
        sender.send(bytes(40 + index))
    normal, high = names(vosctl)["mute"]["sockets"][:2]
    assert (normal["queuedAtLeast"], normal["nextBytes"]) == (3, 40)
    assert (high["queuedAtLeast"], high["nextBytes"]) == (0, 0)
    assert " 3+ " in vosctl("ps").ok().stdout


def test_messages_of_senders_that_have_ended_count_as_at_least_one(vosctl, agent):
    agent("mute", "mute")
    for _ in range(2):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            sender.sendto(bytes(99), "/tmp/vos/mute")
    normal = names(vosctl)["mute"]["sockets"][0]
    assert (normal["queuedAtLeast"], normal["nextBytes"]) == (1, 99)


def test_a_name_that_is_asked_for_decides_the_exit_status(vosctl, agent, stale):
    agent("oltd")
    agent("mgmtd")
    stale("old")
    assert set(names(vosctl, "oltd")) == {"oltd"}
    assert len(names(vosctl, "oltd")["oltd"]["sockets"]) == 5
    assert [each["kind"] for each in names(vosctl, "oltd3")["oltd"]["sockets"]] == ["thread"]
    assert "no process is reachable as nobody" in vosctl("ps", "nobody").failed()
    assert "nobody receives under old" in vosctl("ps", "old").failed()


def test_names_that_are_not_utf8_are_told_apart(vosctl, stale):
    for name in (b"x\xff", b"x\xfe"):
        stale(os.fsdecode(name))
    found = [(name["name"], name["nameHex"]) for name in vosctl("--json", "ps").ok().json["names"]]
    assert found == [("x\\xFE", "78fe"), ("x\\xFF", "78ff")]
    assert "x\\xFE" in vosctl("ps").ok().stdout


def test_help_says_that_the_depth_is_a_lower_bound(vosctl):
    assert "QUEUE is the least number" in vosctl("ps", "--help").ok().stdout


def test_a_full_queue_is_reported(vosctl, agent):
    agent("mute", "mute")
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.setblocking(False)
        with pytest.raises(BlockingIOError):
            while True:
                sender.sendto(b"x", "/tmp/vos/mute")
    assert states(names(vosctl)["mute"])[("normal", None)] == "full"


def test_the_limit_is_the_kernels(vosctl, agent):
    agent("oltd")
    pathlib.Path("/proc/sys/net/unix/max_dgram_qlen").write_text("4096\n")
    try:
        assert {each["limit"] for each in names(vosctl)["oltd"]["sockets"]} == {4096}
    finally:
        pathlib.Path("/proc/sys/net/unix/max_dgram_qlen").write_text("10\n")


def test_requesters_are_listed_on_demand_only(vosctl, agent, background, binary):
    agent("quiet", "silent")
    background(binary, "send", "quiet", "x", "--timeout", "0")
    eventually(lambda: list(SOCKETS.glob("client*")))
    eventually(lambda: "connected" in vosctl("ps", "--all").ok().stdout)
    assert set(names(vosctl)) == {"quiet"}
    requesters = [name for name in names(vosctl, "--all").values() if name["name"].startswith("clientp")]
    assert [states(name) for name in requesters] == [{("requester", None): "connected"}]


def test_a_stale_requester_is_listed(vosctl, stale):
    stale("clientp1t2v3")
    assert names(vosctl)["clientp1t2v3"]["sockets"][0]["kind"] == "requester"


def test_a_path_that_was_taken_over_shows_the_new_process(vosctl, agent):
    agent("oltd")
    second = agent("oltd")
    assert names(vosctl)["oltd"]["pid"] == second.pid


def test_the_opener_of_a_socket_is_listed_before_processes_that_inherited_it(vosctl, background):
    code = ("import os,socket,time\ns=socket.socket(socket.AF_UNIX,socket.SOCK_DGRAM)\nos.makedirs('/tmp/vos',exist_ok=True)\n"
            "s.bind('/tmp/vos/heir')\nc=os.fork()\nprint('ready',c,flush=True) if c else 0\ntime.sleep(600)")
    parent = background("/usr/bin/python3", "-c", code, ready="ready")
    child = int(eventually(lambda: parent.output.split()[1:2])[0])
    assert names(vosctl)["heir"]["sockets"][0]["pids"] == [parent.pid, child]


def test_a_directory_that_cannot_be_read_is_a_failure(vosctl):
    SOCKETS.write_text("not a directory")
    assert "/tmp/vos cannot be read: Not a directory" in vosctl("ps").failed()


def without_diagnostics():
    """In the child: makes socket(AF_NETLINK, ...) fail, as on a kernel without the socket diagnostics."""
    libc = ctypes.CDLL(None, use_errno=True)
    load, equal, answer = 0x20, 0x15, 0x06
    program = [(load, 0, 0, 0), (equal, 0, 3, 41), (load, 0, 0, 16), (equal, 0, 1, 16),
               (answer, 0, 0, 0x00050000 | errno.EPROTONOSUPPORT), (answer, 0, 0, 0x7FFF0000)]
    filters = ctypes.create_string_buffer(b"".join(struct.pack("HBBI", *line) for line in program))
    assert libc.prctl(38, 1, 0, 0, 0) == 0
    assert libc.prctl(22, 2, struct.pack("HxxxxxxP", len(program), ctypes.addressof(filters))) == 0


def test_without_the_diagnostics_the_queues_are_unknown_and_the_owners_known(binary, agent):
    assert platform.machine() == "x86_64", "the filter is written for this machine's system call numbers"
    process = agent("oltd")
    done = subprocess.run([binary, "--json", "ps"], stdout=subprocess.PIPE, check=True, preexec_fn=without_diagnostics)
    name = json.loads(done.stdout)["names"][0]
    assert name["pid"] == process.pid
    assert {each["queuedAtLeast"] for each in name["sockets"]} == {None}
    assert {each["state"] for each in name["sockets"]} == {"reachable"}
