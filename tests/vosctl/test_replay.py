# SPDX-License-Identifier: MIT
"""vosctl listen --script with a capture: a recorded process is played to the same client."""
import json
import signal
import struct
import time

import pytest
from captures import HIGH, ONE_WAY, PLAIN, RECEIVED, SENT, STARTED, Copy, capture, exchange, interface, message, packet, section, started
from conftest import SOCKETS, eventually
from test_capture import FILE, copies
from test_monitor import peer  # noqa: F401 (a fixture)

WORDS = (["code -3", "--nul"], ["bytes", "--high"], ["--hex", "00ff"], ["", "--nul"], ["x" * 200], ["once", "--no-wait"],
         ["slow 300", "--nul"], ["last", "--high", "--nul"])


@pytest.fixture
def play(background, binary, tmp_path):
    """Plays a process as a capture says, a file or its bytes."""

    def start(file, *options, name="oltd"):
        if isinstance(file, bytes):
            (tmp_path / "capture").write_bytes(file)
            file = tmp_path / "capture"
        return background(binary, "--json", *(word for word in ("listen", name, "--script", file, *options)), name=name)

    return start


@pytest.fixture
def refuse(vosctl, tmp_path):
    """A capture that cannot be played: the line that says so."""

    def start(content, name="oltd"):
        (tmp_path / "capture").write_bytes(content)
        line = vosctl("listen", name, "--script", tmp_path / "capture").failed()
        assert not SOCKETS.exists()
        return line

    return start


@pytest.fixture
def send(vosctl):
    """Sends a message; what comes back without the time it took."""

    def start(name, *words):
        answer = vosctl("--json", "send", name, *words).ok().json
        answer.pop("roundTripMs", None)
        return answer

    return start


@pytest.fixture
def capturing(background, binary):
    """Starts a capture of one process, and waits until its tap has begun."""

    def start(name, *arguments):
        FILE.unlink(missing_ok=True)  # of an earlier test
        process = background(binary, "capture", "-w", FILE, name, *arguments)
        eventually(lambda: FILE.exists() and any(what == STARTED for what, *_ in copies()))
        return process

    return start


def captured(number):
    """Waits until the file has so many messages: a tap holds few that are not read yet, and the rest is lost."""
    eventually(lambda: sum(what in (SENT, RECEIVED) for what, *_ in copies()) >= number)


def record(peer, capturing, send):
    """A real server is asked by a real client while it is captured. Returns the answers."""
    server = peer("oltd")
    process = capturing("oltd")
    answers, messages = [], 0
    for words in WORDS:
        answers.append(send("oltd", *words))
        messages += 1 if "--no-wait" in words else 2
        captured(messages)
    server.stop()
    assert process.signal(signal.SIGINT).finish() == 0
    return answers


def test_the_same_client_gets_the_same_answers_in_the_same_order(peer, capturing, send, play):
    answers = record(peer, capturing, send)
    played = play(FILE)
    assert [send("oltd", *words) for words in WORDS] == answers
    assert played.finish() == 0, played.output
    lines = [json.loads(line) for line in played.output.splitlines()]
    assert len(lines) == len(WORDS) and all(each["expected"] for each in lines)
    assert [each["answerWanted"] for each in lines] == ["--no-wait" not in words for words in WORDS]
    assert [each["socket"] for each in lines] == ["high" if "--high" in words else "normal" for words in WORDS]


def test_its_answers_are_as_late_as_they_were_when_that_is_asked_for(peer, capturing, send, play):
    record(peer, capturing, send)
    played = play(FILE, "--delays")
    for words in WORDS[:-2]:
        send("oltd", *words)
    begin = time.monotonic()
    send("oltd", *WORDS[-2])
    assert time.monotonic() - begin >= 0.3
    send("oltd", *WORDS[-1])
    assert played.finish() == 0, played.output


def test_another_client_is_told_apart(peer, capturing, send, play):
    record(peer, capturing, send)
    played = play(FILE)
    assert send("oltd", "other")["code"] == -1
    assert played.signal(signal.SIGINT).finish() == 1
    assert 'unexpected: "other", did not come: expectation 1, "code -3' in played.output


def test_payloads_that_were_not_captured_are_told(peer, capturing, send, vosctl):
    peer("oltd")
    process = capturing("oltd", "--bytes", "10")
    send("oltd", "a longer text")
    captured(2)
    assert process.signal(signal.SIGINT).finish() == 0
    line = vosctl("listen", "oltd", "--script", FILE).failed()
    assert "holds only a part of a message of 45 bytes; capture with the whole payload" in line


def test_a_capture_of_the_requesters_alone_is_enough(peer, capturing, send, play):
    server, _ = peer("oltd"), peer("mgmtd", "oltd")
    process = capturing("mgmtd")
    answer = send("mgmtd", "ask oltd code -7", "--nul")
    assert answer["code"] == -7
    captured(4)
    assert process.signal(signal.SIGINT).finish() == 0
    server.stop()
    played = play(FILE)
    assert send("mgmtd", "ask oltd code -7", "--nul") == answer
    assert played.finish() == 0, played.output


# Captures that are written by hand.

def with_change(index, **change):
    four = exchange()
    for name, value in change.items():
        setattr(four[index], name, value)
    return four


VOS_MSG_TAP = 0x766F7301


def types(played):
    return [json.loads(line)["type"] for line in played.output.splitlines()]


def ask(send, text="show"):
    answer = send("oltd", text)
    return answer["code"], answer["text"]


def test_of_both_sides_that_of_the_process_counts(send, play):
    played = play(capture(*exchange(code=-4, answer=b"busy")))
    assert ask(send) == (-4, "busy")
    assert played.finish() == 0


def test_only_the_requesters_side(send, play):
    four = exchange(answer=b"yes")
    played = play(capture(four[0], four[3]))
    assert ask(send) == (0, "yes")
    assert played.finish() == 0


def test_copies_in_another_order_than_their_moments(send, play):
    played = play(capture(*reversed(exchange(at=10**9, request=b"two", sequence=2) + exchange(request=b"one"))))
    assert ask(send, "one") == (0, "on") and ask(send, "two") == (0, "on")
    assert played.finish() == 0


def test_an_answer_belongs_to_the_request_of_its_requester(send, play):
    first, second = exchange(request=b"one", answer=b"1", sequence=1), exchange(request=b"two", answer=b"2", at=5_000_000, sequence=2)
    first[2].moment = second[2].moment + 1  # the later request is answered first
    played = play(capture(*first, *second))
    assert ask(send, "one") == (0, "1") and ask(send, "two") == (0, "2")
    assert played.finish() == 0


def test_an_answer_of_another_process_to_the_same_path_is_none_of_it(vosctl, play):
    others = exchange(request=b"else", answer=b"wrong", at=10**9, server=(101, b"other"))
    played = play(capture(*exchange()[:2], *others))
    vosctl("send", "oltd", "show", "--timeout", "100").failed()
    assert played.finish() == 0 and json.loads(played.output)["fate"] == "not answered"


def test_a_request_without_an_answer_is_not_answered(vosctl, play):
    played = play(capture(*exchange()[:2]))
    vosctl("send", "oltd", "show", "--timeout", "100").failed()
    assert played.finish() == 0 and json.loads(played.output)["fate"] == "not answered"


def test_an_answer_that_lies_about_its_length_is_played_as_it_was(send, play):
    lie = message(b"on", values=(255, 0, 0, 0))[:28] + struct.pack("=I", 1000) + b"on"
    play(capture(*with_change(2, message=lie)))
    assert send("oltd", "show")["bytes"] == 2


def test_an_answer_with_unusual_words_or_without_a_header_is_played_byte_by_byte(vosctl, play):
    played = play(capture(*with_change(2, message=b"abc")))
    assert "answered with 3 bytes" in vosctl("send", "oltd", "show").failed()
    assert played.finish() == 0


def test_control_messages_are_left_out(send, play):
    control = Copy(RECEIVED, ONE_WAY, message=message(b"", type=5, no_return=1), own=b"/tmp/vos/oltd")
    played = play(capture(control, *exchange(at=10**9)))
    assert ask(send) == (0, "on") and played.finish() == 0


def test_the_high_socket_is_another_one(vosctl, send, play):
    played = play(capture(*with_change(1, own=b"/tmp/vos/oltdHigh", socket=HIGH)[:3]))
    assert send("oltd", "show")["code"] == -1
    assert send("oltd", "show", "--high")["code"] == 0
    assert played.finish() == 1


def test_a_played_process_may_itself_be_watched(background, binary, play, send):
    played = play(capture(*exchange()))
    watching = background(binary, "monitor", "oltd")
    eventually(lambda: VOS_MSG_TAP in types(played))
    assert watching.signal(signal.SIGINT).finish() == 0
    assert ask(send) == (0, "on")
    assert played.finish() == 0, played.output


@pytest.mark.parametrize("content, said", [
    (capture(), "holds no request to oltd; name a process"),
    (capture(started(1, b"oltd")), "holds no request to oltd; name a process"),
    (capture(*exchange(server=(1, b"other"))), "holds no request to oltd; it holds some to other; name a process"),
    (capture(*exchange())[:-5], "is cut off in its last block; capture again"),
    (capture(*exchange()) + b"\x06", "is cut off in its last block; capture again"),
    (capture(*with_change(1, whole=100)), "holds only a part of a message of 100 bytes; capture with"),
    (capture(*with_change(2, whole=100)), "holds only a part of a message of 100 bytes; capture with"),
    (capture(*with_change(1, message=b"")), "holds no request to oltd"),
    (capture(*exchange(), *[Copy(RECEIVED, pid=100, lost=3, moment=10**9, message=message(b"x"), own=b"/tmp/vos/oltd")]),
     "is not complete: 3 copies were lost"),
    (capture(*with_change(1, lost=2)), "is not complete: 2 copies were lost"),  # before its first copy
    (capture(*exchange(), Copy(STARTED, PLAIN, 0, pid=100, number=9, lost=4, moment=10**9, own=b"/tmp/vos/oltd")),
     "is not complete: 4 copies were lost"),
    (capture(exchange()[1].bytes()[:200]), "holds a packet that is no whole copy of a message"),
    (capture(exchange()[1].bytes()[:320]), "holds only a part of a message"),
    (capture(b"nonsense"), "holds a packet that is no whole copy of a message"),
    (section()[:8] + b"\x1a\x2b\x3c\x4d" + section()[12:], "other byte order"),
    (section() + struct.pack("=II", 6, 7), "is damaged: a block has a length of 7"),
    (section() + interface(1) + packet(exchange()[1].bytes()), "holds no request to oltd"),
    (b"\x0a\x0d\x0d\x0a" + bytes(100), "is damaged"),
    (b"\x0a\x0d\x0d\x0a", "is empty"),
])
def test_a_capture_that_cannot_be_played_is_refused(refuse, content, said):
    assert said in refuse(content)


def test_delays_belong_to_a_capture(vosctl, tmp_path):
    (tmp_path / "script").write_text("expect any\n")
    assert "is no capture" in vosctl("listen", "box", "--script", tmp_path / "script", "--delays").failed(2)
    vosctl("listen", "box", "--delays").failed(2)


def test_a_capture_can_come_through_a_pipe(vosctl):
    assert "standard input holds no request to box" in vosctl("listen", "box", "--script", "-", stdin=capture()).failed()
