"""What is read from reports, judged, written into tables and drawn.

    PYTHONPATH=bench /usr/bin/python3 tests/bench/reports_test.py
"""
import contextlib
import io
import json
import tempfile
import unittest
from pathlib import Path

import limits
import plots
import tables
from report import Report

PAGE = Path(__file__).resolve().parents[2] / "docs/performance.md"
NAMES = ("create", "statistics", "delete", "bind", "lookup", "unbind")
CASES = [f"{window}/{rest}" for window in (1, 32, 256) for rest in ("1/44", "1/1400", "9/44", "9/1400")]


def google(name, nanoseconds, **figures):
    run = {"run_name": f"{name}/manual_time", "run_type": "iteration", "iterations": 9, "family_index": 1}
    return run | {"items_per_second": 1e9 / nanoseconds} | figures


def own(name, *names, **figures):
    return [{"run_name": name.format(*words)} | figures for words in names or ((),)]


def document(runs, quick=False):
    return {"context": {"quick": "true" if quick else "false"}, "benchmarks": runs}


def whole(part, quick=False):
    """A report of all runs, whose times are equal."""
    counts = (1, 1000, 100_000) if quick else (1, 1000, 1_000_000, 16_000_000)
    orders = [f"{name}/{order}" for name in NAMES for order in ("in_turn", "at_random")]
    servers = [(case, server) for case in CASES for server in ("plain_echo", "batched_echo", "reflector")]
    who = [("one",), ("all",), ("apart",)]
    row = {"replies": 5, "reversed": 0, "error_us": 19.9, "outside_us": 0.1, "uncertainty_us": 1.0}
    runs = {
        "library": [google(f"{name}/{side}", 1) for name in NAMES for side in ("library", "platform_calls")],
        "scale": [google(f"{each}/{n}", 1, library_bytes=32, platform_bytes=160) for each in orders for n in counts],
        "reflect": own("{}/{}", *servers, replies_per_second=1, p50_ns=1, lost=0, kernel_drops=0)
        + own("{}/module", *((case,) for case in CASES), sessions_missed=0),
        "workers": own("workers/{}", *who, replies_per_second=1, server_ns=1, least_share=1, lost=0),
        "clock": [run for at in (0, 10) for run in own("clock/reflector", begin_seconds=at, offset_us=at / 10, **row)],
    }
    return document(runs[part], quick)


class Reports(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.enterContext(contextlib.redirect_stdout(io.StringIO()))

    def write(self, part, report):
        (self.folder / f"{part}.json").write_text(json.dumps(report), encoding="utf-8")

    def judge(self, part, report=None):
        """Status, and the lines of limits that are missed."""
        if report is not None:
            self.write(part, report)
        with contextlib.redirect_stdout(io.StringIO()) as output:
            status = limits.main(self.folder, part)
        return status, [line for line in output.getvalue().splitlines() if line.startswith("MISSED")]

    def test_figures_are_medians_or_sums_and_ratios_those_of_each_repetition(self):
        turns = ((100, 10, 1), (300, 20, 0), (600, 50, 2))
        pairs = (own("a/b", rate=a) + own("a/c", rate=b, lost=lost) for a, b, lost in turns)
        report = Report(document([run for pair in pairs for run in pair]))
        self.assertEqual([report.value("a/b", figure) for figure in ("rate", "rate:c", "rate/c")], [300, 20, 12])
        self.assertEqual(report.value("a/c", "lost"), 3)
        self.assertEqual(Report(whole("clock")).value("clock/reflector", "drift_us_per_hour"), 360)

    def test_google_benchmark_s_aggregates_are_no_runs_and_a_run_that_failed_is_told(self):
        aggregate = {"run_name": "bind/library", "run_type": "aggregate", "items_per_second": 1.0}
        runs = [google("lookup/library", 40) | {"family_index": 2}, google("bind/library", 20), aggregate]
        self.assertEqual(list(Report(document(runs)).runs), ["bind/library", "lookup/library"])  # as registered
        self.assertEqual(Report(document(runs)).runs["lookup/library"], {"nanoseconds": [40]})
        with self.assertRaisesRegex(ValueError, "bind failed"):
            Report(document([google("bind/library", 1) | {"error_occurred": True, "error_message": "bind"}]))

    def test_equal_times_meet_all_limits_but_that_two_workers_make_more_replies(self):
        for part in ("library", "scale", "reflect", "clock"):
            self.assertEqual(self.judge(part, whole(part)), (0, []))
            self.assertEqual(self.judge(part, whole(part, quick=True)), (0, []))
        missed = "MISSED    workers/all: replies_per_second/one >= 1.2: workers/all 1"
        self.assertEqual(self.judge("workers", whole("workers")), (1, [missed]))
        self.assertEqual(self.judge("workers", whole("workers", quick=True)), (0, []))

    def test_runs_that_miss_a_limit_are_told_and_one_that_is_not_there_is_missed(self):
        report = whole("library")
        report["benchmarks"][:3:2] = [google("create/library", 1.2), google("statistics/library", 1.151)]
        limit = "MISSED    */library: nanoseconds/platform_calls <= 1.15:"
        self.assertEqual(self.judge("library", report)[1], [f"{limit} create/library 1.2, statistics/library 1.151"])
        del report["benchmarks"][:2]
        self.assertEqual(self.judge("library", report), (1, [f"{limit} of 5 runs instead of 6"]))

    def test_in_a_quick_run_times_are_not_judged_but_loss_and_memory_are(self):
        report = whole("reflect", quick=True)
        report["benchmarks"][35] |= {"lost": 1, "replies_per_second": 0.5}
        missed = "MISSED    256/*/reflector: lost == 0: 256/9/1400/reflector 1"
        self.assertEqual(self.judge("reflect", report), (1, [missed]))
        report = whole("scale", quick=True)
        report["benchmarks"][2] |= {"platform_bytes": 160.5, "items_per_second": 1}
        missed = "MISSED    */100000: platform_bytes <= 160: create/in_turn/100000 160.5"
        self.assertEqual(self.judge("scale", report), (1, [missed]))

    def test_a_report_that_is_not_there_or_not_whole_is_missed(self):
        self.assertRegex(self.judge("clock")[1][0], "^MISSED    no whole report: FileNotFoundError")
        self.assertRegex(self.judge("clock", {"context": {}})[1][0], "^MISSED    no whole report: KeyError")

    def test_counts_of_instructions_are_those_of_the_baseline_within_three_percent_both_ways(self):
        def words(**counts):
            both = (counts, {"a": 300, "b": 400.0})
            runs = ([run for name in each for run in own(name, instructions=each[name])] for each in both)
            return [word for word, _ in limits.baseline_verdicts(*(Report(document(each)) for each in runs))]

        self.assertEqual(words(a=309, b=388.0), ["met", "met"])
        self.assertEqual(words(a=310, b=387.9), ["MISSED", "MISSED"])
        self.assertEqual(words(a=300, c=1), ["met", "MISSED", "MISSED"])  # c is new, b was not run

    def test_tables_are_filled_in_but_not_from_a_quick_run(self):
        page = "<!-- table: scale -->\n<!-- end -->\n"
        self.write("scale", whole("scale", quick=True))
        self.assertEqual(tables.filled(page, self.folder), page)
        self.write("scale", whole("scale"))
        filled = tables.filled(page, self.folder).splitlines()
        self.assertEqual(filled[1], "| operation  | responders |    1 | 1,000 | 1,000,000 | 16,000,000 |")
        self.assertEqual(filled[4], "| create     | at random  | 1.00 |  1.00 |      1.00 |       1.00 |")

    def test_the_page_has_every_table_and_the_counts_of_the_baseline(self):
        """Where this fails: scripts/plots.sh."""
        page = PAGE.read_text(encoding="utf-8")
        self.assertEqual(sorted(name for _, name, _ in tables.PLACE.findall(page)), sorted(tables.TABLES))
        self.assertEqual(tables.filled(page, self.folder), page)

    def test_plots_are_drawn_the_same_each_time_and_quick_runs_refused(self):
        for part in ("library", "scale", "reflect", "clock"):
            self.write(part, whole(part))
        drawn = []
        for folder in (self.folder / "first", self.folder / "second"):
            self.assertEqual(plots.main(self.folder, folder), 0)
            drawn.append({path.name: path.read_bytes() for path in folder.iterdir()})
        first, second = drawn
        self.assertEqual(sorted(first), ["clock.svg", "library.svg", "replies.svg", "round_trips.svg", "scale.svg"])
        self.assertEqual(first, second)
        self.assertIn(b"limit 0.95", first["replies.svg"])
        self.write("scale", whole("scale", quick=True))
        with contextlib.redirect_stderr(io.StringIO()) as errors:
            self.assertEqual(plots.main(self.folder, self.folder / "third"), 1)
        self.assertIn("is of a quick run, whose figures say nothing: scale.svg is not drawn", errors.getvalue())
        self.assertEqual(len(list((self.folder / "third").iterdir())), 4)


if __name__ == "__main__":
    unittest.main()
