"""Packets that no socket sends, as a network may bring them: fragments, options, missing or wrong check sums, strange
addresses. OLV_TWAMPCTL is the program. The test is the network of the reflector's host."""
import os
import select
import time
import unittest

from scapy.layers.inet import IP, UDP, IPOption_Router_Alert, IPOption_RR, fragment
from scapy.layers.inet6 import (IPv6, IPv6ExtHdrDestOpt, IPv6ExtHdrFragment, IPv6ExtHdrHopByHop, RouterAlert,
                                fragment6)
from scapy.packet import Raw

from reflector import PATIENCE, Reflector
from relay import Host

HERE = {4: "10.0.0.2", 6: "fd00::2"}
PEER = {4: "10.0.0.1", 6: "fd00::1"}
PORT = 862
PEER_PORT = 20000
UDP_HEADER = 8  # octets
SENDER_TTL = 40  # its octet in a reply


def datagram(size=41, number=7, source_port=PEER_PORT, destination_port=PORT, **fields):
    payload = number.to_bytes(4, "big") + bytes(8) + b"\x0a\x01" + bytes(max(0, size - 14))
    return UDP(sport=source_port, dport=destination_port, **fields) / Raw(payload[:size])


def ipv4(content, **fields):
    return IP(**{"src": PEER[4], "dst": HERE[4], "ttl": 200, **fields}) / content


def ipv6(content, extension=None, **fields):
    header = IPv6(**{"src": PEER[6], "dst": HERE[6], "hlim": 200, **fields})
    return header / content if extension is None else header / extension / content


def pieces(version, size):
    if version == 4:
        return fragment(ipv4(datagram(size)), fragsize=800)
    return fragment6(ipv6(datagram(size), IPv6ExtHdrFragment(id=7)), 800)


def with_options(version):
    if version == 4:
        return [ipv4(datagram(), options=[IPOption_Router_Alert()]),
                ipv4(datagram(), options=[IPOption_RR(length=11, pointer=4, routers=["0.0.0.0", "0.0.0.0"])])]
    return [ipv6(datagram(), IPv6ExtHdrHopByHop(options=[RouterAlert()])), ipv6(datagram(), IPv6ExtHdrDestOpt())]


# What it is: the packets, the octets of each reply.
ANSWERED = {
    "IPv4": ([ipv4(datagram())], [41]),
    "IPv6": ([ipv6(datagram())], [41]),
    "IPv4 in fragments": (pieces(4, 2000), [2000]),
    "IPv6 in fragments": (pieces(6, 2000), [2000]),
    "IPv4 in fragments, the last one first": (pieces(4, 2000)[::-1], [2000]),
    "IPv4 with options": (with_options(4), [41, 41]),
    "IPv6 with extension headers": (with_options(6), [41, 41]),
    "IPv4 without a UDP check sum": ([ipv4(datagram(chksum=0))], [41]),
    "with the last TTL": ([ipv4(datagram(), ttl=1)], [41]),
    "with the last hop limit": ([ipv6(datagram(), hlim=1)], [41]),
    "of the largest port": ([ipv4(datagram(source_port=65535))], [41]),
}
NOT_ANSWERED = {
    "no payload": [ipv4(datagram(0)), ipv6(datagram(0))],
    "13 octets": [ipv4(datagram(13)), ipv6(datagram(13))],
    "IPv6 without a UDP check sum": [ipv6(datagram(chksum=0))],
    "a wrong UDP check sum": [ipv4(datagram(chksum=0x1234)), ipv6(datagram(chksum=0x1234))],
    "a UDP length below its header": [ipv4(datagram(len=4)), ipv6(datagram(len=4))],
    "a UDP length beyond the packet": [ipv4(datagram(len=4000)), ipv6(datagram(len=4000))],
    "a fragment alone": [pieces(4, 2000)[0], pieces(6, 2000)[0]],
    "source port 0": [ipv4(datagram(source_port=0)), ipv6(datagram(source_port=0))],
    "the reflector's own source": [ipv4(datagram(source_port=PORT), src=HERE[4]),
                                   ipv6(datagram(source_port=PORT), src=HERE[6])],
    "a source that is a group": [ipv4(datagram(), src="224.0.0.1"), ipv6(datagram(), src="ff02::1")],
    "a source that is all hosts": [ipv4(datagram(), src="255.255.255.255")],
    "a source that is this host": [ipv4(datagram(), src="127.0.0.1"), ipv6(datagram(), src="::1")],
    "no source": [ipv4(datagram(), src="0.0.0.0"), ipv6(datagram(), src="::")],
}

# For all who are there.
TO_GROUPS = [ipv4(datagram(), dst="224.0.0.1"), ipv4(datagram(), dst="10.0.0.255"), ipv4(datagram(), dst="255.255.255.255"),
             ipv6(datagram(), dst="ff02::1")]


class PacketsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.host = Host("10.0.0.2/24", "fd00::2/64")
        cls.addClassCleanup(cls.host.close)

    def setUp(self):
        self.start()

    def start(self, *options):
        self.control = Reflector(self.host, "--listen", f":{PORT}", *options)
        self.addCleanup(self.control.close)

    def replies_before(self, packets, port):
        """What comes back before the reply to the packet of this port, which is the last one."""
        for packet in packets:
            os.write(self.host.device, bytes(packet))
        found = []
        deadline = time.monotonic() + PATIENCE
        while select.select([self.host.device], [], [], max(0, deadline - time.monotonic()))[0]:
            octets = os.read(self.host.device, 65536)
            packet = (IPv6 if octets[0] >> 4 == 6 else IP)(octets)
            if UDP in packet and packet[UDP].sport == PORT:
                if packet[UDP].dport == port:
                    return found
                found.append(packet)
        self.fail("the last packet is not answered")

    def replies_to(self, packets):
        # Packets of both families that are answered, once all before them have been dealt with.
        last = [ipv4(datagram(source_port=PEER_PORT + 1)), ipv6(datagram(source_port=PEER_PORT + 2))]
        found = self.replies_before([*packets, *last], PEER_PORT + 2)
        return [each for each in found if each[UDP].dport != PEER_PORT + 1]

    def test_odd_packets_are_answered(self):
        for name, (packets, octets) in ANSWERED.items():
            with self.subTest(name):
                replies = self.replies_to(packets)
                asked = packets[0]
                self.assertEqual([each[UDP].len - UDP_HEADER for each in replies], octets)
                for each in replies:
                    self.assertEqual((each.src, each.dst), (asked.dst, asked.src))
                    ttl = asked.ttl if asked.version == 4 else asked.hlim
                    self.assertEqual(bytes(each[UDP].payload)[SENDER_TTL], ttl)

    def test_bad_packets_are_not_answered(self):
        for name, packets in NOT_ANSWERED.items():
            with self.subTest(name):
                replies = self.replies_to(packets)
                self.assertEqual([each.summary() for each in replies], [])

    def test_requests_to_groups_are_dropped_and_counted(self):
        self.assertEqual(self.replies_to(TO_GROUPS), [])
        listeners = self.control.stop()["listeners"]
        self.assertEqual({each["address"]: each["dropped_packets"]["not_to_this_host"] for each in listeners},
                         {f"0.0.0.0:{PORT}": 3, f"[::]:{PORT}": 1})

    def test_requests_to_groups_are_answered_where_that_is_asked_for(self):
        self.control.stop()
        self.start("--answer-groups")
        replies = self.replies_to(TO_GROUPS)
        self.assertEqual([(each.src, each.dst) for each in replies],
                         [(HERE[4], PEER[4])] * 3 + [(HERE[6], PEER[6])])


if __name__ == "__main__":
    unittest.main(verbosity=2)
