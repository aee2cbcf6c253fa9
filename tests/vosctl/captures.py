# SPDX-License-Identifier: MIT
"""Captures of messages, written by hand from the description of the format."""
import dataclasses
import struct

COPY = 0x766F7302
SENT, RECEIVED, STARTED, STOPPED, REFUSED = range(1, 6)
PLAIN, REQUEST, ANSWER, ONE_WAY = range(4)
NORMAL, HIGH, SECOND, SECOND_HIGH, THREAD, NETLINK, REQUESTER, OTHER = range(1, 9)
WALL = 1_795_000_000_000_000_000  # in 2026
LINK_TYPE = 147


def message(payload=b"", type=8, no_return=0, code=0, values=(0, 0, 0, 0)):
    return struct.pack("=IIiIIIII", type, no_return, code, *values, len(payload)) + payload


@dataclasses.dataclass
class Copy:
    """The header of a copy; moments are nanoseconds since the begin of the capture."""

    what: int = SENT
    stage: int = REQUEST
    socket: int = NORMAL
    fd: int = 5
    pid: int = 100
    tid: int = 100
    result: int = None
    errno: int = 0
    number: int = 1
    lost: int = 0
    moment: int = 0
    message: bytes = b""
    whole: int = None
    head_at: int = 0
    own: bytes = b""
    peer: bytes = b""

    def bytes(self):
        whole = len(self.message) if self.whole is None else self.whole
        result = whole if self.result is None else self.result
        return struct.pack(
            "=IHHBBBBiIIiiQQQQIIIIHH110s110s", COPY, 1, 304, self.what, self.stage, self.socket, 0, self.fd, self.pid, self.tid,
            result, self.errno, self.number, self.lost, WALL + self.moment, 5_000_000_000 + self.moment, whole,
            len(self.message), self.head_at, 0, len(self.own), len(self.peer), self.own, self.peer) + self.message


def started(pid, name):
    return Copy(STARTED, PLAIN, 0, pid=pid, number=0, own=b"/tmp/vos/" + name)


def exchange(request=b"show", answer=b"on", code=0, at=0, queued=1_000_000, served=20_000_000, back=500_000, client=(200, b"mgmtd"),
             server=(100, b"oltd"), sequence=1):
    """The four copies of a request and its answer, in the order of their moments."""
    requester = b"/tmp/vos/clientp%dt139v%d" % (client[0], sequence)
    path = b"/tmp/vos/" + server[1]
    asked, answered = message(request, values=(254, 0, 0, 0)), message(answer, code=code, values=(255, 0, 0, 0))
    mine = dict(pid=client[0], tid=client[0], socket=REQUESTER, own=requester, peer=path)
    its = dict(pid=server[0], tid=server[0], socket=NORMAL, own=path, peer=requester)
    return [
        Copy(SENT, REQUEST, moment=at, message=asked, **mine),
        Copy(RECEIVED, REQUEST, moment=at + queued, message=asked, **its),
        Copy(SENT, ANSWER, moment=at + queued + served, message=answered, **its),
        Copy(RECEIVED, ANSWER, moment=at + queued + served + back, message=answered, **mine),
    ]


def block(type, body):
    body += bytes(-len(body) % 4)
    return struct.pack("=II", type, len(body) + 12) + body + struct.pack("=I", len(body) + 12)


def section():
    return block(0x0A0D0D0A, struct.pack("=IHHq", 0x1A2B3C4D, 1, 0, -1))


def interface(link_type=LINK_TYPE):
    return block(1, struct.pack("=HHI", link_type, 0, 0) + struct.pack("=HHB3xHH", 9, 1, 9, 0, 0))


def packet(datagram, ns=WALL):
    return block(6, struct.pack("=IIIII", 0, ns >> 32, ns & 0xFFFFFFFF, len(datagram), len(datagram)) + datagram)


def capture(*copies):
    """A file of these copies, or of these datagrams."""
    datagrams = [each.bytes() if isinstance(each, Copy) else each for each in copies]
    times = [WALL + each.moment if isinstance(each, Copy) else WALL for each in copies]
    return section() + interface() + b"".join(map(packet, datagrams, times))


def blocks(content):
    """The blocks of a file as (type, body); each length is checked, and that nothing is left."""
    found = []
    while content:
        type, length = struct.unpack_from("=II", content)
        assert length % 4 == 0 and 12 <= length <= len(content)
        assert struct.unpack_from("=I", content, length - 4) == (length,)
        found.append((type, content[8:length - 4]))
        content = content[length:]
    return found


def options(body, begin):
    """The options of a block's body that begin there: values by their numbers."""
    found = {}
    while True:
        number, length = struct.unpack_from("=HH", body, begin)
        if number == 0:
            return found
        found[number] = body[begin + 4:begin + 4 + length]
        begin += 4 + (length + 3) // 4 * 4
