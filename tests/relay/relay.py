"""Two hosts and a link between them that delays, drops, copies and overtakes packets as it is told, and knows what it
did. The hosts are network namespaces with a TUN device each; nothing is left of them when the process ends."""
import ctypes
import fcntl
import heapq
import ipaddress
import os
import select
import struct
import subprocess
import threading
import time
from dataclasses import dataclass, field

CLONE_NEWNET = 0x40000000
TUNSETIFF = 0x400454CA
IFF_TUN, IFF_NO_PI = 0x0001, 0x1000
UDP = 17

libc = ctypes.CDLL(None, use_errno=True)


def check(result):
    if result != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))


class Host:
    """A network of its own, with one device."""

    def __init__(self, *interfaces):
        self.addresses = {ipaddress.ip_interface(each).version: each.split("/")[0] for each in interfaces}
        self.failure = None
        # A network belongs to a thread: this one makes it and ends, the descriptors keep it.
        maker = threading.Thread(target=self.make, args=(interfaces,))
        maker.start()
        maker.join()
        if self.failure:
            raise self.failure

    def make(self, interfaces):
        try:
            check(libc.unshare(CLONE_NEWNET))
            self.network = os.open("/proc/thread-self/ns/net", os.O_RDONLY | os.O_CLOEXEC)
            self.device = os.open("/dev/net/tun", os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC)
            fcntl.ioctl(self.device, TUNSETIFF, struct.pack("16sH22x", b"link", IFF_TUN | IFF_NO_PI))
            for command in ("link set lo up", "link set dev link up",
                            *(f"address add {each} dev link nodad" if ":" in each else f"address add {each} dev link"
                              for each in interfaces)):
                subprocess.run(["ip", *command.split()], check=True)
        except (OSError, subprocess.SubprocessError) as error:
            self.failure = error

    def enter(self):
        """In a child process, before its program begins."""
        check(libc.setns(self.network, CLONE_NEWNET))

    def close(self):
        os.close(self.device)
        os.close(self.network)


@dataclass
class Passage:
    """What became of a test packet. Times are seconds."""
    sequence: int  # the sender's
    arrived: float
    left: list = field(default_factory=list)

    @property
    def delays(self):
        return [left - self.arrived for left in self.left]


@dataclass
class Way:
    """One direction, and what is done to the test packets that go there."""
    sequence_at: int             # octet of the UDP payload
    delay: callable              # seconds, of a sequence number
    plan: dict = field(default_factory=dict)  # sequence number: delays of what leaves; of a number's first packet
    routers: int = 0             # that seem to be passed
    congested: frozenset = frozenset()        # sequence numbers of packets marked as having met congestion
    passages: list = field(default_factory=list)

    def treat(self, sequence):
        is_first = all(each.sequence != sequence for each in self.passages)
        return self.plan[sequence] if is_first and sequence in self.plan else (self.delay(sequence),)


def without_ttl(packet, routers, is_congested):
    """The packet some routers later."""
    octets = bytearray(packet)
    if octets[0] >> 4 == 6:
        octets[7] -= routers
        octets[1] |= 0x30 if is_congested else 0
        return bytes(octets)
    octets[8] -= routers
    octets[1] |= 0x03 if is_congested else 0
    octets[10:12] = bytes(2)
    length = (octets[0] & 15) * 4
    total = sum(struct.unpack(f"!{length // 2}H", octets[:length]))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    octets[10:12] = struct.pack("!H", total ^ 0xFFFF)
    return bytes(octets)


def test_payload(packet):
    """What a UDP datagram carries; nothing for other packets."""
    version = packet[0] >> 4
    if packet[6 if version == 6 else 9] != UDP:
        return b""
    return packet[48:] if version == 6 else packet[(packet[0] & 15) * 4 + 8:]


class Link:
    """Carries packets between two hosts until it is closed. `forward` goes from the first to the second."""

    def __init__(self, sender, reflector, forward, backward):
        self.ways = {sender.device: (forward, reflector.device), reflector.device: (backward, sender.device)}
        self.waiting = []
        self.numbers = 0
        self.wake, self.stop = os.pipe()
        self.thread = threading.Thread(target=self.carry)
        self.thread.start()

    def close(self):
        os.close(self.stop)
        self.thread.join()
        os.close(self.wake)

    def carry(self):
        while True:
            left = max(0, self.waiting[0][0] - time.monotonic()) if self.waiting else None
            readable = select.select([*self.ways, self.wake], [], [], left)[0]
            self.deliver()
            if self.wake in readable:
                return
            for device in readable:
                self.take(device)

    def take(self, device):
        packet = os.read(device, 65536)
        arrived = time.monotonic()
        way, out = self.ways[device]
        payload = test_payload(packet)
        if len(payload) < way.sequence_at + 4:
            os.write(out, packet)
            return
        sequence, = struct.unpack_from("!I", payload, way.sequence_at)
        delays = way.treat(sequence)
        passage = Passage(sequence, arrived)
        way.passages.append(passage)
        later = without_ttl(packet, way.routers, sequence in way.congested)
        for delay in delays:
            self.numbers += 1  # tells apart what leaves at the same time
            heapq.heappush(self.waiting, (arrived + delay, self.numbers, passage, later, out))

    def deliver(self):
        while self.waiting and self.waiting[0][0] <= time.monotonic():
            _, _, passage, packet, out = heapq.heappop(self.waiting)
            passage.left.append(time.monotonic())
            os.write(out, packet)
