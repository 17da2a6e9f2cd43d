"""What twamp-probe says of a network, beside what the network did. OLV_TWAMPCTL and OLV_TWAMP_PROBE are the programs."""
import csv
import io
import json
import os
import statistics
import subprocess
import unittest

from reflector import Reflector
from relay import Host, Link, Way

COUNT = 200
INTERVAL = 0.005
PATIENCE = 60
REFLECTOR = {4: "10.0.0.2:862", 6: "[fd00::2]:862"}
# What the system takes to hand a packet to the link and back, on a machine that does other things as well.
SLACK = 0.005


def forward_delay(sequence):
    return 0.020 + sequence * 7919 % 30 / 10000  # up to 3 ms more: nothing is overtaken


def backward_delay(sequence):
    return 0.030 + sequence * 104729 % 20 / 10000


# Delays of what leaves, by sequence number. 12 ms more let two packets overtake, at intervals of 5 ms.
FORWARD_PLAN = {10: (), 11: (), 50: (), 30: (0.020, 0.021), 70: (0.034,), 110: (0.034,)}
BACKWARD_PLAN = {20: (), 60: (), 61: (), 62: (), 40: (0.030, 0.031), 41: (0.030, 0.031, 0.032), 90: (0.045,)}
FORWARD_ROUTERS, BACKWARD_ROUTERS = 3, 5


def late(numbers):
    """How many of a row of numbers, each counted when it first comes, are below the one that is expected next
    (RFC 4737)."""
    count = expected = 0
    for number in dict.fromkeys(numbers):
        count += number < expected
        expected = max(expected, number + 1)
    return count


class Truth:
    """What a link did to one measurement."""

    def __init__(self, forward, backward):
        self.requests, self.replies = forward.passages, backward.passages
        self.sent = len(self.requests)
        self.received = sum(len(each.left) for each in self.replies)
        self.answered = {each.sequence for each in self.replies if each.left}
        self.lost = self.sent - len(self.answered)
        self.lost_forward = sum(not each.left for each in self.requests)
        self.lost_backward = self.lost - self.lost_forward
        self.duplicates_forward = sum(max(0, len(each.left) - 1) for each in self.requests)
        self.duplicates_backward = sum(max(0, len(each.left) - 1) for each in self.replies)
        self.reordered_forward = late(self.order_of_departure(self.requests))
        numbers = {id(each): number for number, each in enumerate(self.replies)}
        self.reordered_backward = late(self.order_of_departure(self.replies, lambda each: numbers[id(each)]))
        self.reordered = late(self.order_of_departure(self.replies))

    @staticmethod
    def order_of_departure(passages, number_of=lambda each: each.sequence):
        """Numbers of what left, by when it first did."""
        return [number_of(each) for each in sorted((each for each in passages if each.left),
                                                   key=lambda each: each.left[0])]

    def delays(self, passages):
        """Seconds, by sequence number, of the first packet of each that came back."""
        first = {}
        for each in passages:
            if each.left and each.sequence in self.answered:
                first.setdefault(each.sequence, each.delays[0])
        return first


class TruthTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.sender, cls.reflector = Host("10.0.0.1/24", "fd00::1/64"), Host("10.0.0.2/24", "fd00::2/64")
        cls.addClassCleanup(cls.reflector.close)
        cls.addClassCleanup(cls.sender.close)
        control = Reflector(cls.reflector, "--listen", REFLECTOR[4], "--listen", REFLECTOR[6])
        cls.addClassCleanup(control.close)

    def measure(self, family, output, *options, forward_plan=None, backward_plan=None):
        """What twamp-probe says, and the truth."""
        forward = Way(0, forward_delay, FORWARD_PLAN if forward_plan is None else forward_plan, FORWARD_ROUTERS)
        backward = Way(24, backward_delay, BACKWARD_PLAN if backward_plan is None else backward_plan, BACKWARD_ROUTERS)
        link = Link(self.sender, self.reflector, forward, backward)
        try:
            done = subprocess.run(
                [os.environ["OLV_TWAMP_PROBE"], REFLECTOR[family], "--count", str(COUNT), "--interval",
                 str(INTERVAL * 1000), "--timeout", "2", "--format", output, *options],
                preexec_fn=self.sender.enter, capture_output=True, text=True, timeout=PATIENCE, check=False)
        finally:
            link.close()
        self.assertEqual(done.stderr, "")
        return done.stdout, Truth(forward, backward)

    def test_counts(self):
        for family in REFLECTOR:
            with self.subTest(family=family):
                said, truth = self.measure(family, "json")
                total = json.loads(said)["total"]
                expected = {"sent": truth.sent, "received": truth.received, "lost": truth.lost,
                            "duplicates": truth.duplicates_forward + truth.duplicates_backward,
                            "reordered": truth.reordered}
                self.assertEqual({name: total[name] for name in expected}, expected)
                self.assertEqual(total["reflector_numbers"], "session")
                for name in ("lost", "duplicates", "reordered"):
                    self.assertEqual(total[name + "_by_way"],
                                     {"forward": getattr(truth, name + "_forward"),
                                      "backward": getattr(truth, name + "_backward"), "unknown": 0}, name)
                # So that nothing is compared with nothing:
                self.assertEqual((truth.sent, truth.lost_forward, truth.lost_backward), (COUNT, 3, 4))
                self.assertEqual((truth.duplicates_forward, truth.duplicates_backward), (1, 3))
                self.assertGreaterEqual(min(truth.reordered_forward, truth.reordered_backward), 1)
                self.assertEqual((total["hops_forward"]["min"], total["hops_forward"]["max"]), (3, 3))
                self.assertEqual((total["hops_backward"]["min"], total["hops_backward"]["max"]), (5, 5))

    def test_losses_at_the_end_are_of_no_way(self):
        last = {number: () for number in range(COUNT - 3, COUNT)}
        for plans in ((last, {}), ({}, last)):
            said, truth = self.measure(4, "json", forward_plan=plans[0], backward_plan=plans[1])
            self.assertEqual(truth.lost, 3)
            self.assertEqual(json.loads(said)["total"]["lost_by_way"], {"forward": 0, "backward": 0, "unknown": 3})

    def test_delays_of_each_packet(self):
        for family in REFLECTOR:
            with self.subTest(family=family):
                said, truth = self.measure(family, "csv")
                rows = {int(row["sequence"]): row for row in csv.DictReader(io.StringIO(said))}
                self.assertEqual(len(rows), COUNT)
                self.assertEqual({number for number, row in rows.items() if row["result"] != "lost"}, truth.answered)
                for column, passages in (("forward_us", truth.requests), ("backward_us", truth.replies)):
                    beyond = [float(rows[number][column]) / 1e6 - delay
                              for number, delay in truth.delays(passages).items()]
                    self.assertGreaterEqual(min(beyond), -1e-6, column)
                    self.assertLess(statistics.median(beyond), SLACK, column)

    def test_distributions(self):
        for family in REFLECTOR:
            with self.subTest(family=family):
                said, truth = self.measure(family, "json")
                total = json.loads(said)["total"]
                for name, passages in (("forward_us", truth.requests), ("backward_us", truth.replies)):
                    delays = sorted(truth.delays(passages).values())
                    delay = total[name]["delay"]
                    self.assertEqual(delay["count"], len(delays))
                    for figure, true in (("min", delays[0]), ("p50", delays[(len(delays) + 1) // 2 - 1]),
                                         ("mean", statistics.mean(delays)), ("max", delays[-1])):
                        self.assertGreaterEqual(delay[figure] / 1e6, true - 1e-6, (name, figure))
                        if figure in ("min", "p50"):  # the others show a moment when the link had no processor
                            self.assertLess(delay[figure] / 1e6, true + SLACK, (name, figure))


if __name__ == "__main__":
    unittest.main(verbosity=2)
