"""Reflectors as others build them: each makes a reply of a request, as octets. What they do is written from their
behaviour and from the RFCs; docs/peers.md has the same list."""
import itertools
import socket
import struct
import threading
import time

NTP_1970 = 2208988800
ESTIMATE = struct.pack("!H", 0x9203)  # synchronised, 3 * 2^18 * 2^-32 s


def ntp(now=None):
    seconds, nanoseconds = divmod(time.time_ns() if now is None else now, 1000000000)
    return struct.pack("!II", (seconds + NTP_1970) % 2**32, (nanoseconds << 32) // 1000000000)


def ptp(ahead=0):
    seconds, nanoseconds = divmod(time.time_ns(), 1000000000)
    return struct.pack("!II", seconds + ahead, nanoseconds)


class Peer:
    """What a reflector makes of a request, field by field: TWAMP Light as RFC 5357 has it. Others differ in what they
    override."""
    estimate = ESTIMATE
    zero_14 = zero_38 = bytes(2)
    ttl = 255

    def __init__(self):
        self.numbers = itertools.count()

    def number(self, request):  # pylint: disable=unused-argument
        return next(self.numbers)

    def times(self):
        """When the request came, when the reply leaves."""
        return ntp(), ntp()

    def sender(self, request):
        """The copy of the sender's number, stamp and estimate."""
        return request[:14]

    def rest(self, request):
        """Behind the sender's TTL."""
        return request[14:max(14, len(request) - 27)]

    def reply(self, request):
        arrived, left = self.times()
        head = struct.pack("!I", self.number(request) % 2**32) + left + self.estimate + self.zero_14
        return head + arrived + self.sender(request) + self.zero_38 + bytes([self.ttl]) + self.rest(request)


class StampStateless(Peer):
    """A STAMP reflector that keeps no session (RFC 8762 section 4.3)."""

    def number(self, request):
        return struct.unpack_from("!I", request)[0]

    def rest(self, request):
        return bytes(3) + request[44:]


class SsidInBothPlaces(StampStateless):
    """Puts a session identifier of its own into both zero fields."""
    zero_14 = zero_38 = b"\x12\x34"


class ShortHeader(Peer):
    """Leaves the sender's TTL and the padding out: 38 octets. Both stamps are the same."""

    def times(self):
        now = ntp()
        return now, now

    def reply(self, request):
        return super().reply(request)[:38]


class NoMultiplier(Peer):
    """An error estimate that says nothing."""
    estimate = bytes(2)


class NoTtl(Peer):
    """Cannot read the TTL of requests, and says 0."""
    ttl = 0


class ZeroPadding(Peer):
    """Pads with zeros, whatever came."""

    def rest(self, request):
        return bytes(max(0, len(request) - 41))


class ShortReply(Peer):
    """Replies have 41 octets, whatever the length of the request."""

    def rest(self, request):
        return b""


class LongReply(Peer):
    """Keeps all the padding of the request: 27 octets more."""

    def rest(self, request):
        return request[14:]


class PtpUtc(Peer):
    """PTP time stamps that count UTC, marked as such."""
    estimate = struct.pack("!H", 0xD203)

    def times(self):
        return ptp(), ptp()


class PtpTai(PtpUtc):
    """PTP time stamps that count TAI, 37 s ahead."""

    def times(self):
        return ptp(37), ptp(37)


class PtpUnmarked(PtpUtc):
    """PTP time stamps that pretend to be NTP ones."""
    estimate = ESTIMATE


class NtpMarkedAsPtp(Peer):
    """NTP time stamps that pretend to be PTP ones."""
    estimate = PtpUtc.estimate


class StampBase(Peer):
    """Answers with 44 octets, whatever came."""

    def rest(self, request):
        return bytes(3)


class ZeroStamps(Peer):
    """Has no clock."""

    def times(self):
        return bytes(8), bytes(8)


class UptimeStamps(Peer):
    """Counts from its start."""

    def times(self):
        return ntp(time.monotonic_ns()), ntp(time.monotonic_ns())


class SentBeforeReceived(Peer):
    """Says that it sent before it received."""

    def times(self):
        return ntp(), ntp(time.time_ns() - 5000000)


class HeldTooLong(Peer):
    """Says that it held the packet for longer than that was away."""

    def times(self):
        return ntp(time.time_ns() - 2000000000), ntp()


class StampNotCopied(Peer):
    """Zeros where the sender's stamp has to be."""

    def sender(self, request):
        return request[:4] + bytes(8) + request[12:14]


class EstimateNotCopied(Peer):
    """Its own estimate in place of the sender's."""

    def sender(self, request):
        return request[:12] + self.estimate


class Restarts(Peer):
    """Forgets the session after 40 packets."""

    def __init__(self):
        super().__init__()
        self.numbers = itertools.cycle(range(40))


class OneCounter(Peer):
    """Counts all that it sends, to whomever."""

    def __init__(self):
        super().__init__()
        self.numbers = itertools.count(100000, 3)


class Echo(Peer):
    """The echo service: sends back what came."""

    def reply(self, request):
        return request


class Serving(threading.Thread):
    """A reflector at a port of this host, in the background."""

    def __init__(self, peer, answer_from_another_port=False):
        super().__init__(daemon=True)
        self.peer = peer
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind(("127.0.0.1", 0))
        self.out = self.socket
        if answer_from_another_port:
            self.out = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            self.out.bind(("127.0.0.1", 0))
        self.start()

    @property
    def address(self):
        return f"127.0.0.1:{self.socket.getsockname()[1]}"

    def run(self):
        while True:
            request, sender = self.socket.recvfrom(65536)
            if not request:
                return
            self.out.sendto(self.peer.reply(request), sender)

    def close(self):
        self.out.sendto(b"", self.socket.getsockname())
        self.join()
        self.socket.close()
        self.out.close()
