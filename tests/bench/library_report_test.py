"""What is read from the report of the library's benchmarks, and which ratios are refused.

    PYTHONPATH=bench python3 tests/bench/library_report_test.py
"""
import unittest

from library_report import failures, medians, table


FAMILIES = ["create/library", "lookup/library", "create/floor", "lookup/floor"]


def run(name, nanoseconds, kind="iteration"):
    return {
        "name": name,
        "family_index": FAMILIES.index(name.removesuffix("/manual_time")),
        "run_name": name,
        "run_type": kind,
        "items_per_second": 1e9 / nanoseconds,
    }


REPORT = {
    "context": {"num_cpus": 2},
    "benchmarks": [
        run("lookup/floor/manual_time", 40),
        run("lookup/library/manual_time", 48),
        run("create/library/manual_time", 575),
        run("create/floor/manual_time", 500),
        run("create/library/manual_time", 9000),
        run("create/library/manual_time", 400),
        run("create/floor/manual_time", 499),
        run("create/floor/manual_time", 5000),
        run("create/floor/manual_time", 1, kind="aggregate"),
    ],
}
TIMES = {"create": {"library": 575.0, "floor": 500.0}, "lookup": {"library": 48.0, "floor": 40.0}}


class Ratios(unittest.TestCase):
    def test_the_medians_of_the_repetitions_count(self):
        read = medians(REPORT)
        self.assertEqual(list(read), ["create", "lookup"])
        for operation, sides in TIMES.items():
            for side, expected in sides.items():
                self.assertAlmostEqual(read[operation][side], expected)

    def test_a_run_that_failed_is_told(self):
        failed = run("create/floor", 1) | {"error_occurred": True, "error_message": "create"}
        with self.assertRaisesRegex(ValueError, "create/floor: create failed"):
            medians({"benchmarks": [failed]})

    def test_up_to_the_limit_is_taken_and_more_refused(self):
        self.assertEqual(failures(TIMES), ["lookup: 1.200 times its floor, the limit is 1.15"])

    def test_the_table_has_a_line_for_each_operation(self):
        self.assertEqual(
            table(TIMES),
            "operation       library      floor   ratio\n"
            "create         575.0 ns   500.0 ns   1.150\n"
            "lookup          48.0 ns    40.0 ns   1.200",
        )


if __name__ == "__main__":
    unittest.main()
