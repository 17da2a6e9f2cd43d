"""What tshark's dissector, which knows nothing of this project, reads in the packets of the two programs.

    OLV_TWAMPCTL=build/dev/apps/twampctl OLV_TWAMP_PROBE=build/dev/apps/twamp-probe \\
        python3 tests/witness/tshark_test.py

The layouts are those of RFC 5357 section 4.2.1 and RFC 4656 section 4.1.2.
"""
import calendar
import dataclasses
import os
import subprocess
import tempfile
import time
import unittest

import capture
from datagram_socket import DatagramSocket
from programs import ControlProgram, kernel_clock_is_synchronized, required_tool, run_probe

FIELDS = (
    "frame.time_epoch", "ip.src", "ipv6.src", "ip.dst", "ipv6.dst", "ip.ttl", "ipv6.hlim", "ip.dsfield.dscp",
    "ipv6.tclass.dscp", "udp.srcport", "udp.dstport", "udp.length", "udp.payload",
    *("twamp.test." + name for name in (
        "seq_number", "timestamp", "error_estimate", "error_estimate.s", "error_estimate.z", "error_estimate.scale",
        "error_estimate.multiplier", "mbz1", "receive_timestamp", "sender_seq_number", "sender_timestamp",
        "sender_error_estimate", "mbz2", "sender_ttl", "padding")))


@dataclasses.dataclass(frozen=True)
class Run:
    """One measurement and what has to be seen of it."""
    family: int
    options: tuple
    count: int
    dscp: int
    request_octets: int
    reply_octets: int
    reply_padding: int


# Replies are 41 octets and what is left of the padding; STAMP packets are 44 octets both ways.
RUNS = (
    Run(4, ("--size", "100", "--dscp", "46"), 20, 46, 100, 100, 59),
    Run(6, ("--stamp", "--dscp", "10"), 20, 10, 44, 44, 3),
    Run(4, ("--size", "14"), 5, 0, 14, 41, 0),
    Run(6, ("--size", "14", "--dscp", "63"), 5, 63, 14, 41, 0),
    Run(4, ("--size", "41"), 5, 0, 41, 41, 0),
    Run(4, ("--stamp", "--dscp", "8"), 5, 8, 44, 44, 3),
    Run(6, ("--size", "1400", "--dscp", "34"), 5, 34, 1400, 1400, 1359),
)
PACKETS = 130  # the requests and replies of the 65 above


def dissect(path, ports):
    """One dictionary for each packet of the file. Fields that the dissector did not find are empty."""
    command = [required_tool("tshark"), "-n", "-r", path, "-T", "fields", "-E", "separator=/t", "-E", "occurrence=a",
               "-E", "aggregator=;"]
    for port in ports.values():
        command += ["-d", f"udp.port=={port},twamp.test"]
    for field in FIELDS:
        command += ["-e", field]
    # A folder of its own in place of the user's: no preferences but these.
    settings = os.path.dirname(path)
    environment = {**os.environ, "TZ": "UTC", "LC_ALL": "C", "HOME": settings, "XDG_CONFIG_HOME": settings}
    done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False, env=environment)
    if done.returncode != 0:
        raise RuntimeError(f"tshark: {done.returncode} {done.stderr}")
    return [dict(zip(FIELDS, line.split("\t"), strict=True)) for line in done.stdout.splitlines()]


def seconds(text):
    """Seconds since 1970 of a time as tshark prints it: Nov 21, 2026 14:42:54.538733705 UTC"""
    whole, _, rest = text.rpartition(".")
    fraction = int(rest.split()[0])
    return calendar.timegm(time.strptime(whole, "%b %d, %Y %H:%M:%S")) + fraction * 1e-9


def estimate(packet, number):
    """S, Z, scale and multiplier of a packet's first or second error estimate."""
    names = ("s", "z", "scale", "multiplier")
    parts = [packet["twamp.test.error_estimate." + name].split(";")[number] for name in names]
    return tuple({"False": 0, "True": 1}[part] if part.isalpha() else int(part) for part in parts)


def of_each_pair(check):
    """A test of each request with its reply, which is the one that carries the request's sequence number."""
    def test(self):
        self.assertEqual(sum(len(requests) for requests, _ in self.flows), PACKETS // 2)
        for run, (requests, replies) in zip(RUNS, self.flows, strict=True):
            answers = {reply["twamp.test.sender_seq_number"]: reply for reply in replies}
            for request in requests:
                sequence = request["twamp.test.seq_number"]
                with self.subTest(family=run.family, options=run.options, sequence=sequence):
                    check(self, run, request, answers[sequence])

    return test


class Dissection(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.began = time.time()
        with tempfile.TemporaryDirectory() as folder:
            control = ControlProgram("--separate-replies")
            cls.addClassCleanup(control.close)
            taken = capture.begin(os.path.join(folder, "capture.pcap"), control.ports, PACKETS)
            cls.addClassCleanup(taken.close)
            for run in RUNS:
                port = run_probe(run.family, taken.ports[run.family], "--count", str(run.count), *run.options)
                cls.addClassCleanup(DatagramSocket(run.family, port).close)  # no later probe gets it
            taken.finish()
            control.stop()
            cls.ended = time.time()
            cls.packets = dissect(taken.path, taken.ports)
        cls.flows = cls.split(cls.packets, taken.ports)

    @staticmethod
    def split(packets, ports):
        """Requests and replies of each run: each probe has a port of its own, and they ran one after the other."""
        flows = {}
        for packet in packets:
            family = 4 if packet["ip.src"] else 6
            request = int(packet["udp.dstport"]) == ports[family]
            probe = packet["udp.srcport" if request else "udp.dstport"]
            flows.setdefault((family, probe), ([], []))[0 if request else 1].append(packet)
        return list(flows.values())

    def test_every_request_has_one_reply(self):
        self.assertEqual(len(self.packets), PACKETS)
        self.assertEqual(len(self.flows), len(RUNS))
        for run, (requests, replies) in zip(RUNS, self.flows, strict=True):
            with self.subTest(run=run.options):
                numbers = [str(number) for number in range(run.count)]
                self.assertEqual([packet["twamp.test.seq_number"] for packet in requests], numbers)
                self.assertEqual([packet["twamp.test.seq_number"] for packet in replies], numbers)
                self.assertEqual([packet["twamp.test.sender_seq_number"] for packet in replies], numbers)

    @of_each_pair
    def test_addresses_and_ports_are_swapped(self, run, request, reply):
        loopback = "127.0.0.1" if run.family == 4 else "::1"
        for packet in (request, reply):
            self.assertEqual(packet["ip.src"] or packet["ipv6.src"], loopback)
            self.assertEqual(packet["ip.dst"] or packet["ipv6.dst"], loopback)
        self.assertEqual(reply["udp.srcport"], request["udp.dstport"])
        self.assertEqual(reply["udp.dstport"], request["udp.srcport"])

    @of_each_pair
    def test_lengths_are_those_of_the_layouts(self, run, request, reply):
        self.assertEqual(int(request["udp.length"]), 8 + run.request_octets)
        self.assertEqual(int(reply["udp.length"]), 8 + run.reply_octets)
        self.assertEqual(len(bytes.fromhex(reply["twamp.test.padding"])), run.reply_padding)

    def test_a_request_of_14_octets_has_no_field_of_a_reply(self):
        flows = [requests for run, (requests, _) in zip(RUNS, self.flows, strict=True) if run.request_octets == 14]
        short = [request for requests in flows for request in requests]
        self.assertEqual(len(short), 10)
        for request in short:
            for field in ("mbz1", "receive_timestamp", "sender_seq_number", "sender_ttl", "padding"):
                self.assertEqual(request["twamp.test." + field], "", field)

    @of_each_pair
    def test_error_estimates_are_read_as_they_are_meant(self, _, request, reply):
        # Z 0: NTP format; 1 * 2^22 * 2^-32 seconds. Longer requests look like replies to the dissector.
        self.assertEqual(int(request["twamp.test.error_estimate"]), 0x1601)
        self.assertEqual(reply["twamp.test.sender_error_estimate"], request["twamp.test.error_estimate"])
        for packet, number in ((request, 0), (reply, 1)):
            self.assertEqual(estimate(packet, number), (0, 0, 22, 1))
        synchronized, ptp, _, multiplier = estimate(reply, 0)
        self.assertEqual((synchronized, ptp), (int(kernel_clock_is_synchronized()), 0))
        self.assertIn(multiplier, range(128, 256))  # the smallest estimate that covers the error

    @of_each_pair
    def test_what_must_be_zero_is_zero(self, _, __, reply):
        self.assertEqual(int(reply["twamp.test.mbz1"], 0), 0)
        self.assertEqual(int(reply["twamp.test.mbz2"], 0), 0)

    @of_each_pair
    def test_replies_carry_the_senders_time_and_ttl(self, _, request, reply):
        self.assertEqual(request["ip.ttl"] or request["ipv6.hlim"], "255")
        self.assertEqual(reply["twamp.test.sender_ttl"], "255")
        self.assertEqual(reply["ip.ttl"] or reply["ipv6.hlim"], "255")
        self.assertEqual(reply["twamp.test.sender_timestamp"], request["twamp.test.timestamp"])

    @of_each_pair
    def test_dscp_comes_back(self, run, request, reply):
        for packet in (request, reply):
            self.assertEqual(int(packet["ip.dsfield.dscp"] or packet["ipv6.tclass.dscp"]), run.dscp)

    @of_each_pair
    def test_time_stamps_are_instants_of_the_run(self, _, request, reply):
        sent = seconds(request["twamp.test.timestamp"])
        received = seconds(reply["twamp.test.receive_timestamp"])
        answered = seconds(reply["twamp.test.timestamp"])
        for instant in (sent, received, answered):
            self.assertGreater(instant, self.began - 1)
            self.assertLess(instant, self.ended + 1)
        self.assertLessEqual(received, answered)
        # Against the clock of the capture.
        self.assertAlmostEqual(sent, float(request["frame.time_epoch"]), delta=10)
        self.assertAlmostEqual(answered, float(reply["frame.time_epoch"]), delta=10)

    @of_each_pair
    def test_padding_is_the_requests(self, run, request, reply):
        sent = bytes.fromhex(request["udp.payload"].replace(":", ""))[14:]
        returned = bytes.fromhex(reply["twamp.test.padding"])
        self.assertEqual(returned, sent[:run.reply_padding])
        if "--stamp" in run.options:
            self.assertEqual(returned, b"\0\0\0")


if __name__ == "__main__":
    unittest.main()
