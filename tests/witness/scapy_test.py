"""Drives the reflector with packets that Scapy builds and dissects, down to the IP header.

    OLV_TWAMPCTL=build/dev/apps/twampctl python3 tests/witness/scapy_test.py

The layouts are those of RFC 5357 sections 4.1.2 and 4.2.1 and RFC 8762 section 4.2.1. Where raw sockets are not
allowed, a UDP socket carries what Scapy builds; TTL and traffic class are then given to it.
"""
import functools
import os
import socket
import time
import unittest

from scapy.arch.linux import L3PacketSocket
from scapy.config import conf
from scapy.fields import ByteField, ShortField, StrField, XIntField, XLongField, XShortField
from scapy.packet import Packet
from scapy.supersocket import L3RawSocket

from datagram_socket import Datagram, DatagramSocket, raw_socket_is_allowed
from packets import ip_packet
from programs import ControlProgram

ANSWER_SECONDS = 20
SECONDS_1900_TO_1970 = 2208988800


class TestRequest(Packet):
    name = "TWAMP-Test request"
    fields_desc = [XIntField("sequence", 0), XLongField("timestamp", 0x0123456789ABCDEF),
                   XShortField("error_estimate", 0xA51F), StrField("padding", b"")]


class TestReply(Packet):
    name = "TWAMP-Test reply"
    fields_desc = [XIntField("sequence", 0), XLongField("timestamp", 0), XShortField("error_estimate", 0),
                   ShortField("zero_14", None), XLongField("receive_timestamp", 0), XIntField("sender_sequence", 0),
                   XLongField("sender_timestamp", 0), XShortField("sender_error_estimate", 0),
                   ShortField("zero_38", None), ByteField("sender_ttl", 0), StrField("padding", b"")]


class Sender:
    """A session sender at a UDP port of its own. The socket takes the replies, whoever sent the requests."""

    def __init__(self, family, port):
        self.family = family
        self.port = port
        self.socket = DatagramSocket(family)
        self.raw = None
        if os.environ.get("OLV_WIRE") != "udp" and raw_socket_is_allowed(socket.AF_INET, socket.IPPROTO_RAW):
            # What is sent to 127.0.0.1 below the IP layer is never delivered; Scapy has no IPv6 raw socket.
            kind = L3RawSocket if family == 4 else L3PacketSocket
            self.raw = kind(iface=conf.loopback_name)

    def close(self):
        self.socket.close()
        if self.raw is not None:
            self.raw.close()

    def send(self, request, ttl=255, traffic_class=0):
        if self.raw is None:
            self.socket.send(bytes(request), self.port, ttl, traffic_class)
        else:
            datagram = Datagram(bytes(request), self.socket.port, self.port, ttl, traffic_class)
            self.raw.send(ip_packet(self.family, datagram))

    def exchange(self, request, **network):
        """Send a request. Returns the next reply and the datagram that it came in."""
        self.send(request, **network)
        datagram = self.socket.receive(ANSWER_SECONDS)
        return TestReply(datagram.payload), datagram


@functools.cache
def control_with(*options):
    control = ControlProgram(*options)
    unittest.addModuleCleanup(control.close)
    return control


class Reflector:
    """The tests, for one family each."""
    family = 0

    def sender_to(self, *options):
        """A sender to the twampctl with these options."""
        sender = Sender(self.family, control_with(*options).ports[self.family])
        self.addCleanup(sender.close)
        return sender

    def test_returns_what_the_request_said(self):
        sender = self.sender_to("--clock", "state")
        request = TestRequest(sequence=0xCAFE0001, timestamp=0xE1E2E3E4F1F2F3F4, error_estimate=0xBFFE,
                              padding=bytes(range(0x20, 0x3B)) + b"rest")
        self.assertEqual(bytes(request).hex(), "cafe0001" "e1e2e3e4f1f2f3f4" "bffe"
                         "202122232425262728292a2b2c2d2e2f303132333435363738393a" "72657374")
        before = time.time()
        reply, datagram = sender.exchange(request, ttl=97)
        payload = datagram.payload
        self.assertEqual(len(payload), 45)
        self.assertEqual(payload[0:4].hex(), "00000000")     # the reflector's own sequence number
        self.assertEqual(payload[12:16].hex(), "1601" "0000")  # S 0, Z 0, scale 22, multiplier 1; zero
        self.assertEqual(payload[24:].hex(), "cafe0001" "e1e2e3e4f1f2f3f4" "bffe" "0000" "61" "20212223")
        for stamp in (reply.receive_timestamp, reply.timestamp):
            seconds = stamp / 2**32 - SECONDS_1900_TO_1970
            self.assertGreater(seconds, before - 1)
            self.assertLess(seconds, time.time() + 1)
        self.assertLessEqual(reply.receive_timestamp, reply.timestamp)
        self.assertEqual(datagram.source, sender.port)
        self.assertEqual(datagram.ttl, 255)

    def test_answers_in_the_lengths_of_the_layouts(self):
        sender = self.sender_to()
        padding = bytes(octet % 251 + 1 for octet in range(1386))
        sender.send(b"\1" * 13)  # dropped: what comes back first is the reply to the next one
        # Octets of the request and of the reply, and what stands behind the 41 octets of its header.
        for number, (asked, answered, rest) in enumerate((
                (14, 41, b""), (15, 41, b""), (41, 41, b""), (42, 42, padding[:1]), (44, 44, b"\0\0\0"),
                (45, 45, padding[:4]), (100, 100, padding[:59]), (1400, 1400, padding[:1359]))):
            with self.subTest(octets=asked):
                reply, datagram = sender.exchange(TestRequest(sequence=number, padding=padding[:asked - 14]))
                self.assertEqual(len(datagram.payload), answered)
                self.assertEqual(reply.padding, rest)
                self.assertEqual((reply.sequence, reply.sender_sequence), (number, number))
                self.assertEqual((reply.zero_14, reply.zero_38), (0, 0))
                self.assertEqual(reply.sender_timestamp, 0x0123456789ABCDEF)
                self.assertEqual(reply.sender_error_estimate, 0xA51F)

    def test_copies_every_dscp_and_no_ecn_bit(self):
        sender = self.sender_to()
        for dscp in range(64):
            with self.subTest(dscp=dscp):
                _, datagram = sender.exchange(TestRequest(sequence=dscp), traffic_class=dscp * 4 + dscp % 4)
                self.assertEqual(datagram.traffic_class, dscp * 4)

    def test_counts_for_itself_where_the_senders_numbers_wrap(self):
        sender = self.sender_to()
        for own, senders in enumerate((0xFFFFFFFD, 0xFFFFFFFE, 0xFFFFFFFF, 0, 1, 0x7FFFFFFF, 0x80000000)):
            with self.subTest(sequence=senders):
                reply, _ = sender.exchange(TestRequest(sequence=senders))
                self.assertEqual((reply.sequence, reply.sender_sequence), (own, senders))

    def test_numbers_stamp_replies_as_their_requests_when_stateless(self):
        sender = self.sender_to("--stamp-mode", "stateless")
        for sequence in (7, 0xFFFFFFFF, 0):
            reply, _ = sender.exchange(TestRequest(sequence=sequence, padding=bytes(30)))
            self.assertEqual((reply.sequence, reply.sender_sequence), (sequence, sequence))


class OverIPv4(Reflector, unittest.TestCase):
    family = 4


class OverIPv6(Reflector, unittest.TestCase):
    family = 6


if __name__ == "__main__":
    unittest.main()
