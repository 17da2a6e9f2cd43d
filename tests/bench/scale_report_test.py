"""What is made of the report of operations with many responders."""

import unittest

import scale_report as scale


def run(name, per_second, **memory):
    return {
        "run_type": "iteration",
        "run_name": name + "/manual_time",
        "family_index": 0,
        "items_per_second": per_second,
        "library_bytes": 32.0,
        "platform_bytes": 120.0,
    } | memory


def report(*runs):
    return {"benchmarks": [*runs, {"run_type": "aggregate", "run_name": "create/in_turn/1000", "family_index": 0}]}


class Scale(unittest.TestCase):
    def setUp(self):
        self.report = report(
            run("create/in_turn/1000", 1e6),
            run("create/in_turn/1000", 1e7),
            run("create/in_turn/1000", 1e8),
            run("create/in_turn/16000000", 5e6),
            run("create/at_random/1000", 1e7),
            run("create/at_random/16000000", 1e6),
        )

    def test_figures_are_ratios_of_medians(self):
        self.assertEqual(
            scale.ratios(scale.medians(self.report)),
            {
                ("create", "in_turn"): {1000: 1.0, 16_000_000: 2.0},
                ("create", "at_random"): {1000: 1.0, 16_000_000: 10.0},
            },
        )

    def test_table_has_a_column_for_each_number_of_responders(self):
        self.assertEqual(
            scale.table(scale.ratios(scale.medians(self.report))),
            "operation    order            1,000  16,000,000\n"
            "create       in_turn           1.00        2.00\n"
            "create       at_random         1.00       10.00",
        )

    def test_slow_operations_in_turn_fail(self):
        found = scale.ratios(scale.medians(self.report))
        self.assertEqual(
            scale.failures(found, 32.0, 160.0),
            ["create: 2.00 times as long with 16,000,000 responders, the limit is 1.5"],
        )
        found["create", "in_turn"][16_000_000] = 1.5
        self.assertEqual(scale.failures(found, 32.0, 160.0), [])

    def test_memory_over_its_limits_fails(self):
        self.assertEqual(
            scale.failures({}, 33.0, 161.0),
            [
                "the library holds 33.0 bytes a responder, its record has 32",
                "the platform takes 161.0 bytes a responder, the limit is 160",
            ],
        )

    def test_memory_is_that_of_the_most_responders(self):
        found = report(
            run("create/in_turn/1000", 1.0, platform_bytes=164.0),
            run("create/in_turn/16000000", 1.0, library_bytes=31.0, platform_bytes=121.0),
        )
        self.assertEqual(scale.memory(found), (31.0, 121.0))


if __name__ == "__main__":
    unittest.main()
