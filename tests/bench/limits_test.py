"""Which limits are listed as met or missed, and what the exit status is.

    PYTHONPATH=bench python3 tests/bench/limits_test.py
"""
import contextlib
import io
import json
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

import limits


class Limits(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def write(self, name, report):
        (self.folder / name).write_text(json.dumps(report), encoding="utf-8")

    def write_clock(self, error, **more):
        rows = [{"begin_seconds": 0.0, "replies": 5}]
        self.write("clock_error.json", {"largest_error_us": error, "reversed": 0, "rows": rows} | more)

    def list_limits(self, *parts):
        """Status and lines."""
        with (
            mock.patch.object(sys, "argv", ["limits.py", str(self.folder), *parts]),
            contextlib.redirect_stdout(io.StringIO()) as output,
        ):
            status = limits.main()
        return status, output.getvalue().splitlines()

    def test_all_met_is_success(self):
        self.write_clock(11.5)
        self.assertEqual(
            self.list_limits("clock"),
            (
                0,
                [
                    "met       clock    there are replies in every row: 1",
                    "met       clock    no T3 is before its T2: 0",
                    "met       clock    time stamps are less than 20 us from the wall clock: 11.500",
                    "bench: 3 limits met, 0 missed",
                ],
            ),
        )

    def test_one_missed_is_failure(self):
        self.write_clock(20.5)
        status, lines = self.list_limits("clock")
        self.assertEqual(status, 1)
        self.assertEqual(
            lines[2:],
            [
                "MISSED    clock    time stamps are less than 20 us from the wall clock: 20.500",
                "bench: 2 limits met, 1 missed",
            ],
        )

    def test_timing_is_not_judged_in_a_quick_run_which_is_said(self):
        self.write_clock(20.5, quick=True)
        status, lines = self.list_limits("clock")
        self.assertEqual(status, 0)
        self.assertEqual(
            lines[2:],
            [
                "unjudged  clock    time stamps are less than 20 us from the wall clock: 20.500",
                "bench: 2 limits met, 0 missed",
                "bench: a quick run: 1 limits of timing were not judged, and none of its figures says anything; "
                "scripts/bench.sh without --quick measures",
            ],
        )

    def test_facts_are_judged_in_a_quick_run(self):
        self.write_clock(11.5, quick=True, reversed=1)
        status, lines = self.list_limits("clock")
        self.assertEqual((status, lines[1]), (1, "MISSED    clock    no T3 is before its T2: 1"))

    def test_a_quick_run_of_google_benchmark_is_known_by_its_context(self):
        run = {"family_index": 0, "run_type": "iteration", "items_per_second": 1e6}
        runs = [run | {"run_name": "create/library"}, run | {"run_name": "create/floor", "items_per_second": 1e7}]
        self.write("library_bench.json", {"context": {}, "benchmarks": runs})
        self.assertIn("MISSED    library  create: at most 1.15 times its floor: 10.000", self.list_limits("library")[1])
        self.write("library_bench.json", {"context": {"quick": "true"}, "benchmarks": runs})
        self.assertIn("unjudged  library  create: at most 1.15 times its floor: 10.000", self.list_limits("library")[1])

    def test_a_report_that_is_not_there_is_missed(self):
        status, lines = self.list_limits("reflect", "scale")
        self.assertEqual(status, 1)
        self.assertEqual(
            lines,
            [
                f"MISSED    reflect  there is a report: no {self.folder}/reflect_bench.json",
                f"MISSED    scale    there is a report: no {self.folder}/scale_bench.json",
                "bench: 0 limits met, 2 missed",
            ],
        )

    def test_a_report_that_breaks_off_is_missed(self):
        (self.folder / "clock_error.json").write_text('{"rows": [', encoding="utf-8")
        self.write("scale_bench.json", {"benchmarks": []})
        self.write("library_bench.json", {})
        status, lines = self.list_limits("clock", "scale", "library")
        self.assertEqual(status, 1)
        self.assertTrue(lines[0].startswith("MISSED    clock    the report is whole: JSONDecodeError: "), lines)
        self.assertTrue(lines[1].startswith("MISSED    scale    the report is whole: "), lines)
        self.assertEqual(lines[2], "MISSED    library  the report is whole: KeyError: 'benchmarks'")

    def test_parts_have_to_be_known(self):
        with contextlib.redirect_stderr(io.StringIO()) as errors:
            self.assertEqual(self.list_limits("clocks"), (2, []))
        self.assertEqual(
            errors.getvalue(), "usage: limits.py REPORTS PART..., parts are library, scale, reflect, workers, clock\n"
        )


if __name__ == "__main__":
    unittest.main()
