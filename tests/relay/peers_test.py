"""What twamp-probe says of reflectors that others build. OLV_TWAMP_PROBE is the program. docs/peers.md tells users."""
import json
import os
import subprocess
import unittest

import peers

COUNT = 100
# A reflector, the probe's options: what is said to be odd about each of its replies, which are measured all the same.
MEASURED = (
    (peers.Peer, (), ()),
    (peers.StampStateless, ("--stamp",), ()),
    (peers.StampStateless, (), ("padding",)),
    (peers.SsidInBothPlaces, ("--stamp",), ("must_be_zero",)),
    (peers.ShortHeader, (), ("header",)),
    (peers.NoMultiplier, (), ("error_estimate",)),
    (peers.NoTtl, (), ("sender_ttl",)),
    (peers.ZeroPadding, (), ("padding",)),
    (peers.ShortReply, (), ("length",)),
    (peers.LongReply, (), ("length",)),
    (peers.StampNotCopied, (), ("sender_timestamp",)),
    (peers.EstimateNotCopied, (), ("sender_error_estimate",)),
    (peers.PtpUtc, ("--ptp",), ()),
    (peers.PtpUtc, (), ("other_format",)),
    (peers.PtpTai, (), ("other_format",)),
    (peers.PtpUnmarked, (), ("other_format", "format_mark")),
    (peers.NtpMarkedAsPtp, (), ("format_mark",)),
    (peers.StampBase, (), ("length",)),
    (peers.OneCounter, (), ()),
    (peers.Restarts, (), ()),
)
# Their times cannot be.
NOT_MEASURED = (
    (peers.ZeroStamps, "zero_timestamp"),
    (peers.UptimeStamps, "far_timestamp"),
    (peers.SentBeforeReceived, "timestamps"),
    (peers.HeldTooLong, "reflector_time"),
)
NUMBERS = {peers.OneCounter: "reflector", peers.Restarts: "session"}  # of others a run without loss shows "request"


class PeersTest(unittest.TestCase):
    def measure(self, peer, *options, **serving):
        """The exit status and the figures of a measurement."""
        reflector = peers.Serving(peer(), **serving)
        try:
            done = subprocess.run(
                [os.environ["OLV_TWAMP_PROBE"], reflector.address, "--count", str(COUNT), "--interval", "1", "--format",
                 "json", *options], capture_output=True, text=True, timeout=60, check=False)
        finally:
            reflector.close()
        self.assertEqual(done.stderr, "")
        return done.returncode, json.loads(done.stdout)["total"]

    def test_every_reply_that_can_be_matched_is_measured(self):
        for peer, options, odd in MEASURED:
            with self.subTest(peer=peer.__name__, options=options):
                size = () if "--stamp" in options else ("--size", "100")
                status, total = self.measure(peer, "--timeout", "50", *size, *options)
                self.assertEqual(status, 0)
                self.assertEqual(total["faults"], {fault: COUNT for fault in odd})
                self.assertEqual((total["measured"], total["lost"], total["invalid"]), (COUNT, 0, 0))
                self.assertEqual(total["valid"], 0 if odd else COUNT)
                self.assertEqual(total["reflector_numbers"], NUMBERS.get(peer, "request"))
                # One clock and one host: nothing takes half a minute, nor does anything arrive before it left.
                for way in ("round_trip_us", "forward_us", "backward_us"):
                    self.assertGreaterEqual(total[way]["delay"]["min"], 0, way)
                    self.assertLess(total[way]["delay"]["max"], 30e6, way)

    def test_what_is_odd_is_invalid_where_that_is_asked_for(self):
        for peer in (peers.ShortHeader, peers.NoTtl, peers.LongReply):
            with self.subTest(peer=peer.__name__):
                status, total = self.measure(peer, "--strict", "--size", "100", "--timeout", "50")
                self.assertEqual((status, total["invalid"], total["measured"]), (1, COUNT, 0))
                self.assertIsNone(total["round_trip_us"]["delay"])

    def test_times_that_cannot_be_are_in_no_figure(self):
        for peer, fault in NOT_MEASURED:
            with self.subTest(peer=peer.__name__):
                _, total = self.measure(peer, "--timeout", "50")
                self.assertEqual(total["faults"], {fault: COUNT})
                self.assertEqual((total["lost"], total["measured"]), (0, 0))
                for way in ("round_trip_us", "forward_us", "backward_us"):
                    self.assertIsNone(total[way]["delay"], way)
                self.assertIsNone(total["clock_offset_us"])

    def test_a_reflector_that_begins_anew_is_noticed(self):
        _, total = self.measure(peers.Restarts, "--timeout", "50")
        self.assertEqual([(each["event"], each["sequence"]) for each in total["events"]],
                         [("reflector_restart", 40), ("reflector_restart", 80)])

    def test_what_answers_nothing_is_not_measured(self):
        status, total = self.measure(peers.Echo, "--timeout", "2", "--size", "100")
        self.assertEqual((status, total["lost"], total["faults"]), (1, COUNT, {"echo": COUNT}))
        status, total = self.measure(peers.Peer, "--timeout", "0.2", answer_from_another_port=True)
        self.assertEqual((status, total["lost"], total["received"]), (1, COUNT, 0))


if __name__ == "__main__":
    unittest.main(verbosity=2)
