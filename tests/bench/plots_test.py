"""What is drawn from which reports, and from which not.

    PYTHONPATH=bench python3 tests/bench/plots_test.py
"""
import contextlib
import importlib.util
import io
import json
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

import plots


def run(name, family, per_second):
    return {
        "run_type": "iteration",
        "run_name": f"{name}/manual_time",
        "family_index": family,
        "items_per_second": per_second,
    }


def case(window, sessions, octets, rate):
    servers = {
        "plain echo": {"replies_per_second": 100.0, "round_trip_p50_ns": 4000.0},
        "batched echo": {"replies_per_second": 200.0, "round_trip_p50_ns": 5000.0},
        "reflector": {"replies_per_second": rate, "round_trip_p50_ns": 3000.0},
    }
    return {"window": window, "sessions": sessions, "octets": octets, "servers": servers}


LIBRARY = {
    "context": {},
    "benchmarks": [
        run("create/library", 0, 1e6),
        run("lookup/library", 1, 2e6),
        run("create/floor", 2, 1.25e6),
        run("lookup/floor", 3, 2e6),
    ],
}
SCALE = {
    "context": {},
    "benchmarks": [
        run(f"create/{order}/{count}", 0, rate)
        for order in ("in_turn", "at_random")
        for count, rate in ((1, 4e6), (1000, 2e6), (16_000_000, 1e6))
    ],
}
REFLECT = {"quick": False, "cases": [case(1, 1, 44, 150.0), case(256, 100_000, 1400, 250.0)]}
CLOCK = {
    "rows": [
        {"begin_seconds": 0.0, "offset_us": 0.5, "uncertainty_us": 1.0},
        {"begin_seconds": 10.0, "offset_us": -0.5, "uncertainty_us": 2.0},
    ]
}
REPORTS = {
    "library_bench.json": LIBRARY,
    "scale_bench.json": SCALE,
    "reflect_bench.json": REFLECT,
    "clock_error.json": CLOCK,
}
SVGS = ["clock.svg", "library.svg", "replies.svg", "round_trips.svg", "scale.svg"]


class Figures(unittest.TestCase):
    def test_operations_are_drawn_by_their_floors(self):
        self.assertEqual(plots.library_bars(LIBRARY), (["create", "lookup"], {"library": [1.25, 1.0]}))

    def test_cases_are_named_by_window_sessions_and_octets(self):
        self.assertEqual(plots.reflect_groups(REFLECT), ["1\n1\n44", "256\n100k\n1400"])

    def test_servers_are_drawn_by_an_echo_of_the_same_case(self):
        self.assertEqual(
            plots.reflect_bars(REFLECT, "replies_per_second", "batched echo"),
            {"plain echo": [0.5, 0.5], "batched echo": [1.0, 1.0], "reflector": [0.75, 1.25]},
        )


class Plots(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.reports = Path(folder.name)
        self.drawn = self.reports / "drawn"

    def write(self, **changes):
        """All reports, but for those that are None; others with changes."""
        for name, report in REPORTS.items():
            change = changes.get(name.split("_", maxsplit=1)[0], {})
            if change is not None:
                (self.reports / name).write_text(json.dumps(report | change), encoding="utf-8")

    def draw(self):
        """Status, and what is told of what is not drawn."""
        with (
            mock.patch.object(sys, "argv", ["plots.py", str(self.reports), str(self.drawn)]),
            contextlib.redirect_stdout(io.StringIO()),
            contextlib.redirect_stderr(io.StringIO()) as errors,
        ):
            status = plots.main()
        return status, errors.getvalue().splitlines()

    def saved(self):
        return sorted(path.name for path in self.drawn.glob("*"))

    @contextlib.contextmanager
    def without_drawing(self):
        """A plot is an empty file."""
        with mock.patch.object(plots, "save", lambda name, _draw, _report, folder: (folder / f"{name}.svg").touch()):
            yield

    def test_all_reports_give_all_plots(self):
        self.write()
        with self.without_drawing():
            self.assertEqual(self.draw(), (0, []))
        self.assertEqual(self.saved(), SVGS)

    def test_a_report_that_is_not_there_is_told_and_the_others_are_drawn(self):
        self.write(reflect=None)
        with self.without_drawing():
            self.assertEqual(
                self.draw(),
                (
                    0,
                    [
                        f"plots: no {self.reports}/reflect_bench.json: replies.svg and round_trips.svg as before; "
                        "'scripts/bench.sh reflect' measures"
                    ],
                ),
            )
        self.assertEqual(self.saved(), ["clock.svg", "library.svg", "scale.svg"])

    def test_without_any_report_there_is_nothing_to_draw(self):
        status, told = self.draw()
        self.assertEqual((status, len(told)), (1, 4))
        self.assertFalse(self.drawn.exists())

    def test_quick_runs_are_refused(self):
        quick = {"quick": True}
        of_google_benchmark = {"context": {"quick": "true"}}
        self.write(library=of_google_benchmark, scale=of_google_benchmark, reflect=quick, clock=quick)
        status, told = self.draw()
        self.assertEqual(status, 1)
        self.assertEqual(
            told[0],
            f"plots: {self.reports}/library_bench.json is of a quick run, whose figures say nothing: "
            "library.svg as before; 'scripts/bench.sh library' measures",
        )
        self.assertEqual(len(told), 4)
        self.assertFalse(self.drawn.exists())

    def test_one_quick_run_among_others_is_refused_and_the_others_are_drawn(self):
        self.write(clock={"quick": True})
        with self.without_drawing():
            status, told = self.draw()
        self.assertEqual((status, len(told)), (1, 1))
        self.assertEqual(self.saved(), ["library.svg", "replies.svg", "round_trips.svg", "scale.svg"])

    def test_a_report_that_breaks_off_is_told(self):
        self.write()
        (self.reports / "clock_error.json").write_text('{"rows": [', encoding="utf-8")
        with self.without_drawing():
            self.assertEqual(
                self.draw(),
                (
                    1,
                    [
                        f"plots: {self.reports}/clock_error.json is not whole: clock.svg as before; "
                        "'scripts/bench.sh clock' measures"
                    ],
                ),
            )

    @unittest.skipUnless(importlib.util.find_spec("matplotlib"), "there is no Matplotlib to draw with")
    def test_plots_are_pictures_with_their_limits_the_same_each_time(self):
        self.write()
        self.assertEqual(self.draw(), (0, []))
        self.assertEqual(self.saved(), SVGS)
        limits = {
            "clock": "limit ±20",
            "library": "limit 1.15",
            "replies": "target 0.95",
            "round_trips": "target 1.05 at window 1",
            "scale": "limit 1.5, in turn (dotted: at random)",
        }
        first = {}
        for name, text in limits.items():
            first[name] = (self.drawn / f"{name}.svg").read_text(encoding="utf-8")
            self.assertIn("<svg", first[name])
            self.assertIn(f"<!-- {text} -->", first[name])
        self.draw()
        for name, picture in first.items():
            self.assertEqual((self.drawn / f"{name}.svg").read_text(encoding="utf-8"), picture)


if __name__ == "__main__":
    unittest.main()
