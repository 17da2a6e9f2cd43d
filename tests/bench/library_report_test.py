"""What is read from the report of the library's benchmarks, and which ratios are refused.

    PYTHONPATH=bench python3 tests/bench/library_report_test.py
"""
import unittest

from library_report import limits, table
from reports import Limit

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


class LibraryReport(unittest.TestCase):
    def test_the_table_has_a_line_for_each_operation_with_the_medians_of_the_repetitions(self):
        self.assertEqual(
            table(REPORT),
            "operation       library      floor   ratio   limit\n"
            "create         575.0 ns   500.0 ns   1.150    1.15\n"
            "lookup          48.0 ns    40.0 ns   1.200    1.15",
        )

    def test_a_run_that_failed_is_told(self):
        failed = run("create/floor", 1) | {"error_occurred": True, "error_message": "create"}
        with self.assertRaisesRegex(ValueError, "create/floor: create failed"):
            limits({"benchmarks": [failed]})

    def test_up_to_the_limit_is_taken_and_more_refused(self):
        self.assertEqual(
            limits(REPORT)[1:],
            [
                Limit("create: at most 1.15 times its floor", "1.150", True, timing=True),
                Limit("lookup: at most 1.15 times its floor", "1.200", False, timing=True),
            ],
        )

    def test_what_was_not_measured_is_missing(self):
        del REPORT["benchmarks"][0]
        self.addCleanup(REPORT["benchmarks"].insert, 0, run("lookup/floor/manual_time", 40))
        self.assertEqual(
            limits(REPORT),
            [
                Limit(
                    "every operation and its floor are there",
                    "missing: bind/floor, bind/library, delete/floor, delete/library, lookup/floor, "
                    "statistics/floor, statistics/library, unbind/floor, unbind/library",
                    False,
                ),
                Limit("create: at most 1.15 times its floor", "1.150", True, timing=True),
            ],
        )

    def test_a_report_of_every_operation_is_whole(self):
        names = ["create", "statistics", "delete", "bind", "lookup", "unbind"]
        sides = ("library", "floor")
        runs = [run("create/floor", 100) | {"run_name": f"{name}/{side}"} for name in names for side in sides]
        self.assertEqual(
            limits({"benchmarks": runs})[0], Limit("every operation and its floor are there", "none missing", True)
        )


if __name__ == "__main__":
    unittest.main()
