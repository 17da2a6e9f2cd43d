"""What is made of the report of operations with many responders.

    PYTHONPATH=bench python3 tests/bench/scale_report_test.py
"""
import unittest

import scale_report
from reports import Limit


def run(name, per_second, **memory):
    return {
        "run_type": "iteration",
        "run_name": name + "/manual_time",
        "family_index": 0,
        "items_per_second": per_second,
        "library_bytes": 32.0,
        "platform_bytes": 120.0,
    } | memory


def report(*runs, **context):
    aggregate = {"run_type": "aggregate", "run_name": "create/in_turn/1000", "family_index": 0}
    return {"context": context, "benchmarks": [*runs, aggregate]}


FULL = report(
    run("create/in_turn/1000", 1e6),
    run("create/in_turn/1000", 1e7),
    run("create/in_turn/1000", 1e8),
    run("create/in_turn/16000000", 5e6),
    run("create/at_random/1000", 1e7),
    run("create/at_random/16000000", 1e6),
    run("lookup/in_turn/1000", 3e6),
    run("lookup/in_turn/16000000", 2e6),
)
NAMES = ("create", "statistics", "delete", "bind", "lookup", "unbind")


def of_every_operation(*populations):
    return [
        run(f"{name}/{order}/{count}", 1e6)
        for name in NAMES
        for order in ("in_turn", "at_random")
        for count in populations
    ]


class Scale(unittest.TestCase):
    def test_figures_are_ratios_of_medians(self):
        self.assertEqual(
            scale_report.ratios(FULL),
            {
                ("create", "in_turn"): {1000: 1.0, 16_000_000: 2.0},
                ("create", "at_random"): {1000: 1.0, 16_000_000: 10.0},
                ("lookup", "in_turn"): {1000: 1.0, 16_000_000: 1.5},
            },
        )

    def test_the_table_has_a_column_for_each_number_of_responders(self):
        self.assertEqual(
            scale_report.table(FULL),
            "operation    order            1,000  16,000,000   limit\n"
            "create       in_turn           1.00        2.00     1.5\n"
            "create       at_random         1.00       10.00\n"
            "lookup       in_turn           1.00        1.50     1.5\n"
            "bytes a responder: 32.0 of the library, limit 32; 120.0 of the platform, limit 160",
        )

    def test_slow_operations_in_turn_miss_their_limit(self):
        self.assertEqual(
            scale_report.limits(FULL)[1:3],
            [
                Limit("create: with 16,000,000 responders at most 1.5 times as long", "2.00", False, timing=True),
                Limit("lookup: with 16,000,000 responders at most 1.5 times as long", "1.50", True, timing=True),
            ],
        )

    def test_memory_is_that_of_the_most_responders_and_limited(self):
        def limits(library_bytes, platform_bytes):
            return scale_report.limits(
                report(
                    run("create/in_turn/1000", 1.0, library_bytes=99.0, platform_bytes=164.0),
                    run("create/in_turn/16000000", 1.0, library_bytes=library_bytes, platform_bytes=platform_bytes),
                )
            )[-2:]

        library, platform = (
            "the library holds at most 32 bytes a responder",
            "the platform takes at most 160 bytes a responder",
        )
        self.assertEqual(limits(32.0, 160.0), [Limit(library, "32.0", True), Limit(platform, "160.0", True)])
        self.assertEqual(limits(32.1, 160.1), [Limit(library, "32.1", False), Limit(platform, "160.1", False)])

    def test_a_report_of_every_operation_is_whole(self):
        self.assertEqual(
            scale_report.limits(report(*of_every_operation(1, 1000, 1_000_000, 16_000_000)))[0],
            Limit("every operation is there, in both orders, with up to 16,000,000 responders", "none missing", True),
        )

    def test_what_was_not_measured_is_missing(self):
        runs = of_every_operation(1, 1000, 1_000_000, 16_000_000)
        del runs[3], runs[0]
        self.assertEqual(
            scale_report.limits(report(*runs))[0],
            Limit(
                "every operation is there, in both orders, with up to 16,000,000 responders",
                "missing: create/in_turn/1, create/in_turn/16000000",
                False,
            ),
        )

    def test_a_quick_run_has_fewer_responders(self):
        runs = of_every_operation(1, 1000, 100_000)
        self.assertEqual(
            scale_report.limits(report(*runs, quick="true"))[0],
            Limit("every operation is there, in both orders, with up to 100,000 responders", "none missing", True),
        )
        self.assertFalse(scale_report.limits(report(*runs))[0].met)


if __name__ == "__main__":
    unittest.main()
