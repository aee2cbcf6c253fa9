# SPDX-License-Identifier: MIT
"""vos-faults."""
import os
import re
import signal
import subprocess

import pytest
from conftest import EXAMPLES, KIT, PATIENCE, PROGRAMS, eventually, run

FAULTS, CLIENT, FRAGILE = KIT / "vos-faults", EXAMPLES / "client", PROGRAMS / "fragile"


def faults(*words, **options):
    return run(FAULTS, *words, **options)


def refused(outcome, *parts):
    assert outcome.status == 125, outcome
    assert outcome.stderr.startswith("vos-faults: ") and outcome.stderr.count("\n") == 1, outcome
    for part in parts:
        assert part in outcome.stderr, outcome


@pytest.mark.parametrize("rule, said", [
    ("vosMsgSned", 'no call "vosMsgSned"; did you mean "vosMsgSend"'),
    ("nonsense", 'no call "nonsense"'),
    ("no*such", 'no call "no*such"'),
    ("=5", "begins with the name"),
    ("write@", 'behind "@"'),
    ("write@" + "x" * 64, 'behind "@"'),
    ("write#", 'behind "#"'),
    ("write#0", 'behind "#"'),
    ("write#-1", 'behind "#"'),
    ("write#99999999999999999999", 'behind "#"'),
    ("write#3..2", "ends before it begins"),
    ("write%0", 'behind "%"'),
    ("write%101", 'behind "%"'),
    ("write+", 'behind "+"'),
    ("write+5", "unit"),
    ("write+5h", "unit"),
    ("write=", 'behind "="'),
    ("write=EBLUE", "EBLUE"),
    ("write=-1:EBLUE", "EBLUE"),
    ("write=-1:", "no errno"),
    ("write=99999999999999999999", "no number"),
    ("write=short:x", "number of bytes"),
    ("vosMsgSend=short:3", "moves no bytes"),
    ("open=short:3", "moves no bytes"),
    ("write#1x", "cannot be read"),
    ("vosSleep", "not known how vosSleep fails"),
    ("vosSleep=EIO", "not known how vosSleep fails"),
    ("write" + "x" * 100, "up to 95 characters"),
])
def test_a_rule_that_cannot_be_read_is_refused(rule, said):
    refused(faults(rule, "--", "true"), said)
    refused(run(CLIENT, env={"VOS_FAULTS": rule, "LD_PRELOAD": str(KIT / "libvosfaults.so.1")}), said)


def test_too_many_rules_are_refused():
    refused(faults(*["write#1"] * 65, "--", "true"), "more than 64")


@pytest.mark.parametrize("words, said", [
    ([], "no command"),
    (["write"], "no command"),
    (["write", "--"], "no command"),
    (["--", "true"], "no rule"),
    (["--each"], "no command"),
    (["--each", "write", "--", "true"], "makes its own rules"),
    (["--calls", "x", "write", "--", "true"], "belong to --each"),
    (["--calls"], "needs a value"),
    (["--blue"], 'no option "--blue"'),
    (["--each", "--most", "x", "--", "true"], "no number"),
    ([" ", "", "--", "true"], "no rule"),
    (["--each", "--most", "", "--", "true"], "no number"),
    (["--each", "--time-limit", "5", "--", "true"], "a time is"),
    (["--each", "--time-limit", "0s", "--", "true"], "no limit"),
    (["--seed", "-1", "write", "--", "true"], "no number"),
    (["--each", "--", "true"], "no call of libvos.so"),
    (["--each", "--", "/no/such/command"], "not there"),
    (["--each", "--", "false"], "ends with status 1 without a fault"),
    (["--each", "--calls", "vosShell", "--", str(FRAGILE)], "none of the chosen calls"),
])
def test_a_wrong_command_line_is_refused(words, said):
    refused(faults(*words), said)


def test_a_call_of_the_application_fails_and_libvos_is_not_reached(server):
    outcome = faults("-v", "vosMsgSend=-1:ETIMEDOUT", "--", CLIENT)
    assert outcome.status == 1 and "server does not answer" in outcome.stdout
    assert "vosMsgSend=-1:ETIMEDOUT struck vosMsgSend#1 in client" in outcome.stderr
    assert "errno" not in outcome.stdout


def test_a_call_of_libvos_fails_with_the_error(server):
    outcome = faults("connect=ECONNRESET", "--", CLIENT)
    assert outcome.status == 1 and "failed errno:104(Connection reset by peer)" in outcome.stdout and outcome.stderr == ""


def test_a_rule_that_did_not_strike_is_told(server):
    outcome = faults("vosMsgSend#2", "--", CLIENT)
    assert outcome.status == 0 and outcome.stderr == "vos-faults: vosMsgSend#2 did not strike\n"


@pytest.mark.parametrize("rule, strikes", [
    ("vosMsgSend@server", True), ("vosMsgSend@serve", False), ("vosMsgSend@client", False),
    ("connect@server", True), ("connect@/tmp/vos", True), ("connect@/tmp/vo", False), ("connect@/tmp/vos/server", True),
    ("sendmsg@server", True), ("unlink@/tmp", True), ("unlink@/", True), ("unlink@/flash", False)])
def test_a_peer_or_a_path_chooses(server, rule, strikes):
    assert ("did not strike" in faults(rule + "+1us", "--", CLIENT).stderr) == (not strikes)


def test_a_call_waits(server):
    outcome = faults("vosMsgSend+1s", "--", "sh", "-c", f'before=$(date +%s%N); {CLIENT}; echo $((($(date +%s%N) - before) / 1000000))')
    assert outcome.status == 0 and int(outcome.stdout.split()[-1]) >= 1000


def test_a_share_is_the_same_for_the_same_seed(server):
    def statuses(seed):
        words = ["sh", "-c", "; ".join([f"{CLIENT} >/dev/null; echo $?"])]
        return [faults("--seed", seed + each, "vosMsgSend%50", "--", *words).stdout for each in range(12)]
    assert statuses(1) == statuses(1)
    assert len(set(statuses(1))) == 2


def test_a_process_is_killed_at_the_call(server):
    outcome = faults("sendmsg=kill", "--", CLIENT)
    assert outcome.status == 128 + signal.SIGKILL


def test_other_programs_are_left_alone(server):
    assert faults("--program", "other", "vosMsgSend", "--", CLIENT).status == 0
    assert faults("--program", "client", "vosMsgSend", "--", "sh", "-c", f"exec {CLIENT}").status == 1


def test_the_environment_is_enough(server):
    assert run(CLIENT, env={"VOS_FAULTS": "vosMsgSend", "LD_PRELOAD": str(KIT / "libvosfaults.so.1")}).status == 1
    assert run(CLIENT, env={"VOS_FAULTS": "", "LD_PRELOAD": str(KIT / "libvosfaults.so.1")}).status == 0


@pytest.mark.parametrize("words, status", [(["true"], 0), (["sh", "-c", "exit 7"], 7), (["/no/such"], 127),
                                           (["sh", "-c", "kill -SEGV $$"], 139), (["/dev/null"], 126)])
def test_the_status_is_the_commands(words, status):
    assert faults("write", "--", *words).status == status


def verdicts(outcome):
    return {found[1]: found[2] for found in re.finditer(r"^(\S+)(?: in \S+)?  +(.*)$", outcome.stdout, re.M)}


@pytest.mark.parametrize("weakness, verdict, status", [
    ("", "ended well", 0),
    ("crashes", "crashed: signal 11 (Segmentation fault)", 1),
    ("hangs", "hung: killed after 1000 ms", 1),
    ("loses a descriptor", "ended well, but leaked 1 descriptor", 1),
    ("loses memory", "ended well, but leaked 1 heap block", 1),
    ("ends early", "ended with status 7", 0)])
def test_each_call_fails_once_and_the_end_is_told(weakness, verdict, status):
    outcome = faults("--each", "--time-limit", "1s", "--", FRAGILE, weakness)
    assert verdicts(outcome)["vosMalloc#1"] == verdict and outcome.status == status, outcome
    assert verdicts(outcome)["malloc#1"].startswith(verdict.split(",")[0]), outcome
    if weakness == "":
        assert ", 0 hung, 0 crashed, 0 leaked, 0 were not reached" in outcome.stdout


def test_each_call_of_a_request_can_fail(server):
    outcome = faults("--each", "--", CLIENT)
    assert outcome.status == 0 and "0 were not reached" in outcome.stdout, outcome
    found = verdicts(outcome)
    assert {found[call] for call in ("vosMsgSend#1", "socket#1", "bind#1", "connect#1", "sendmsg#1", "recvmsg#1")} == \
        {"ended with status 1"}
    assert found["close#1"] == "ended well"


def test_each_tells_the_programs_apart_and_takes_a_choice(server):
    outcome = faults("--each", "--calls", "vos*", "--", "sh", "-c", f"{FRAGILE}; {CLIENT}")
    assert "vosMalloc#1 in fragile" in outcome.stdout and "vosMsgSend#1 in client" in outcome.stdout
    assert "socket" not in outcome.stdout
    outcome = faults("--each", "--program", "client", "--calls", "setsockopt", "--most", "2", "--", "sh", "-c", f"{FRAGILE}; {CLIENT}")
    assert list(verdicts(outcome)) == ["setsockopt#1", "setsockopt#2"], outcome


def test_nothing_of_a_run_is_left_behind():
    outcome = faults("--each", "--calls", "vosMalloc", "--", "sh", "-c", f"sleep 1234321 & setsid sleep 1234321 & {FRAGILE}")
    assert outcome.status == 0
    assert subprocess.run(["pgrep", "-f", "sleep 1234321"], check=False, capture_output=True).stdout == b""


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_ends_it_and_the_command(number):
    with subprocess.Popen([FAULTS, "--each", "--time-limit", "100s", "--", FRAGILE, "hangs"], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as process:
        process.stdout.readline()
        eventually(lambda: subprocess.run(["pgrep", "fragile"], check=False, capture_output=True).stdout)
        process.send_signal(number)
        assert process.wait(PATIENCE) == 125
        assert b"interrupted" in process.stderr.read()
    assert subprocess.run(["pgrep", "fragile"], check=False, capture_output=True).stdout == b""


def test_a_signal_reaches_the_command(server):
    with subprocess.Popen([FAULTS, "write#1", "--", "sh", "-c", "trap 'echo ended; exit 3' TERM; echo ready; while :; do sleep 0.01; done"],
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as process:
        process.stdout.readline()
        process.send_signal(signal.SIGTERM)
        assert process.stdout.read() == b"ended\n" and process.wait(PATIENCE) == 3


def test_a_closed_pipe_ends_it():
    reader, writer = os.pipe()
    os.close(reader)
    outcome = faults("--each", "--", FRAGILE, stdout=writer, preexec_fn=lambda: signal.signal(signal.SIGPIPE, signal.SIG_IGN))
    os.close(writer)
    refused(outcome, "cannot be written")


def test_the_list_has_every_kind_of_call():
    outcome = faults("--list")
    assert outcome.status == 0
    for name in ("vosMsgSend", "vosSleep  (name a result)", "write", "malloc", "vosSysConfigDataSet"):
        assert f"\n  {name}\n" in outcome.stdout
