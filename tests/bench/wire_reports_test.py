"""What the reports of the fast path on the wire have to hold to.

    PYTHONPATH=bench python3 tests/bench/wire_reports_test.py
"""
import unittest

from reports import Limit
from wire_reports import clock_limits, reflect_limits, workers_limits


def case(**changes):
    return {
        "window": 256,
        "sessions": 1000,
        "octets": 44,
        "servers": {
            "plain echo": {"replies_per_second": 400.0},
            "batched echo": {"replies_per_second": 500.0},
            "reflector": {"replies_per_second": 450.0},
        },
        "module_sessions": 1000,
        "targets": [
            {"target": "replies per second at least 0.95 of the batched echo's", "value": 0.9, "met": False},
            {"target": "no request lost", "value": 3.0, "met": False},
        ],
    } | changes


def workers(**changes):
    return {
        "workers": 2,
        "cores": 2,
        "replies_by_one_worker": 1.2,
        "targets": [
            {"target": "share of each worker at least 0.5 of its due", "value": 0.97, "met": True},
            {"target": "no request lost", "value": 1.0, "met": False},
        ],
    } | changes


def clock(**changes):
    return {
        "largest_error_us": 19.999,
        "reversed": 0,
        "rows": [{"begin_seconds": 0.0, "replies": 5}, {"begin_seconds": 10.0, "replies": 6}],
    } | changes


class Reflect(unittest.TestCase):
    def test_targets_are_those_of_the_report_and_a_loss_is_no_matter_of_timing(self):
        self.assertEqual(
            reflect_limits({"cases": [case()]}),
            [
                Limit("every server replies", "so in 1 cases", True),
                Limit("the module counts every session", "so in 1 cases", True),
                Limit(
                    "window 256, 1,000 session(s), 44 octets: replies per second at least 0.95 of the batched echo's",
                    "0.900",
                    False,
                    timing=True,
                ),
                Limit("window 256, 1,000 session(s), 44 octets: no request lost", "3.000", False),
            ],
        )

    def test_a_server_that_does_not_reply_and_a_session_not_counted_are_told(self):
        silent = case(window=1, servers={"plain echo": {"replies_per_second": 0.0}}, module_sessions=999, targets=[])
        self.assertEqual(
            reflect_limits({"cases": [case(), silent]})[:2],
            [
                Limit("every server replies", "not with window 1, 1,000 session(s), 44 octets", False),
                Limit("the module counts every session", "not with window 1, 1,000 session(s), 44 octets", False),
            ],
        )

    def test_no_case_is_not_enough(self):
        for report in ({}, {"cases": None}, {"cases": []}):
            self.assertEqual([limit.met for limit in reflect_limits(report)], [False, False])


class Workers(unittest.TestCase):
    def test_several_have_to_be_worth_it_and_targets_are_those_of_the_report(self):
        targets = [
            Limit("share of each worker at least 0.5 of its due", "0.970", True, timing=True),
            Limit("no request lost", "1.000", False),
        ]
        gain = "2 workers on 2 cores: at least 1.2 of one worker's replies"
        self.assertEqual(workers_limits(workers()), [*targets, Limit(gain, "1.200", True, timing=True)])
        self.assertEqual(
            workers_limits(workers(replies_by_one_worker=1.1994)), [*targets, Limit(gain, "1.199", False, timing=True)]
        )


class Clock(unittest.TestCase):
    def test_within_all_limits(self):
        self.assertEqual(
            clock_limits(clock()),
            [
                Limit("there are replies in every row", "2", True),
                Limit("no T3 is before its T2", "0", True),
                Limit("time stamps are less than 20 us from the wall clock", "19.999", True, timing=True),
            ],
        )

    def test_each_limit_can_be_missed(self):
        for place, changes in enumerate(({"rows": None}, {"reversed": 1}, {"largest_error_us": 20.0})):
            with self.subTest(changes):
                met = [True, True, True]
                met[place] = False
                self.assertEqual([limit.met for limit in clock_limits(clock(**changes))], met)

    def test_a_row_without_replies_is_told(self):
        rows = [{"begin_seconds": 0.0, "replies": 5}, {"begin_seconds": 10.0, "replies": 0}]
        self.assertFalse(clock_limits(clock(rows=rows))[0].met)


if __name__ == "__main__":
    unittest.main()
