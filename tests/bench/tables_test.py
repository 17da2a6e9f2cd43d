"""The tables of docs/performance.md.

    PYTHONPATH=bench python3 tests/bench/tables_test.py
"""
import json
import tempfile
import unittest
from pathlib import Path

import tables

PROJECT = Path(__file__).resolve().parents[2]
BASELINE = {
    "library_instructions": {
        "create": {"library": 300, "libc": 7},
        "lookup": {"library": 60, "libc": 1},
        "delete": {"library": 200, "libc": 0},
        "statistics": {"library": 129, "libc": 0},
    },
    "packet_instructions": {
        "41 octets": {"reflector": 411.1, "copying": 0.0},
        "44 octets": {"reflector": 413.0, "copying": 0.0},
        "1400 octets": {"reflector": 417.5, "copying": 160.0},
    },
}


def run(name, per_second):
    return {
        "run_type": "iteration",
        "run_name": f"{name}/manual_time",
        "family_index": 0,
        "items_per_second": per_second,
        "library_bytes": 32.0,
        "platform_bytes": 119.96,
    }


class Tables(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.reports = Path(folder.name)

    def write(self, name, report):
        (self.reports / name).write_text(json.dumps(report), encoding="utf-8")

    def filled(self, name):
        document = f"before\n<!-- table: {name} -->\nold\n<!-- end -->\nafter\n"
        text = tables.filled(document, self.reports, BASELINE)
        begin, end = f"before\n<!-- table: {name} -->\n", "<!-- end -->\nafter\n"
        self.assertTrue(text.startswith(begin) and text.endswith(end), text)
        return text.removeprefix(begin).removesuffix(end)

    def test_instructions_have_limits_alone_or_together(self):
        self.assertEqual(
            self.filled("instructions"),
            "| operation, or packet | instructions | limit |\n"
            "| --- | ---: | ---: |\n"
            "| create + delete | 507 | 600 |\n"
            "| statistics | 129 | 200 |\n"
            "| create | 307 |  |\n"
            "| lookup | 61 |  |\n"
            "| delete | 200 |  |\n"
            "| 41 octets | 411.1 | 450 |\n"
            "| 44 octets | 413 | 450 |\n"
            "| 1400 octets | 417.5 | 450 |\n",
        )

    def test_operations_beside_their_floors(self):
        self.write("library_bench.json", {"benchmarks": [run("create/library", 8e6), run("create/floor", 1e7)]})
        self.assertEqual(
            self.filled("library"), "| operation | times its floor |\n| --- | ---: |\n| create | 1.250 |\n"
        )

    def test_many_responders_and_their_memory(self):
        runs = [run("create/in_turn/1000", 2e6), run("create/in_turn/16000000", 1e6)]
        self.write("scale_bench.json", {"benchmarks": runs})
        self.assertEqual(
            self.filled("scale"),
            "| operation | 1,000 | 16,000,000 |\n| --- | ---: | ---: |\n| create, in turn | 1.00 | 2.00 |\n",
        )
        self.assertEqual(
            self.filled("memory"),
            "| held by | bytes a responder | limit |\n"
            "| --- | ---: | ---: |\n"
            "| the library | 32.0 | 32 |\n"
            "| the platform | 120.0 | 160 |\n",
        )

    def test_reflector_beside_echoes(self):
        case = {
            "window": 32,
            "sessions": 100_000,
            "octets": 44,
            "servers": {"reflector": {"lost": 1, "kernel_drops": 2}},
            "replies_by_batched_echo": 0.9512,
            "replies_by_plain_echo": 1.25,
            "p50_by_plain_echo": 0.5,
        }
        self.write("reflect_bench.json", {"cases": [case]})
        self.assertEqual(
            self.filled("reflect"),
            "| window | sessions | octets | replies by batched echo | by plain echo | round trip by plain echo |"
            " lost | kernel drops |\n"
            "| --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: |\n"
            "| 32 | 100,000 | 44 | 0.951 | 1.250 | 0.500 | 1 | 2 |\n",
        )

    def test_workers_beside_one_and_beside_servers_apart(self):
        self.write(
            "workers_bench.json",
            {
                "workers": 2,
                "replies_by_one_worker": 1.4181,
                "server_ns_by_one_worker": 1.28,
                "replies_by_servers_apart": 0.962,
                "server_ns_by_servers_apart": 1.0,
            },
        )
        self.assertEqual(
            self.filled("workers"),
            "| 2 workers beside | replies per second | processor time of a reply |\n"
            "| --- | ---: | ---: |\n"
            "| one worker | 1.418 | 1.280 |\n"
            "| servers that share nothing | 0.962 | 1.000 |\n",
        )

    def test_time_stamps(self):
        row = {"begin_seconds": 0.0, "replies": 1500, "offset_us": 0.5, "outside_us": 1.0}
        last = {"begin_seconds": 90.0, "replies": 500, "offset_us": -1.25, "outside_us": 0.0}
        report = {"largest_error_us": 12.34, "drift_us_per_hour": -3.21, "reversed": 0, "rows": [row, last]}
        self.write("clock_error.json", report)
        self.assertEqual(
            self.filled("clock"),
            "|  | figure |\n"
            "| --- | ---: |\n"
            "| replies | 2,000 |\n"
            "| minutes, to the last row | 1.5 |\n"
            "| farthest that a stamp was outside | 1.0 µs |\n"
            "| largest offset | 1.2 µs |\n"
            "| error at most | 12.3 µs |\n"
            "| drift in an hour | -3.2 µs |\n"
            "| T3 before T2 | 0 |\n",
        )

    def test_a_table_stays_where_nothing_was_measured_or_only_quickly(self):
        self.assertEqual(self.filled("library"), "old\n")
        self.write("reflect_bench.json", {"quick": True, "cases": []})
        self.assertEqual(self.filled("reflect"), "old\n")
        self.write("clock_error.json", [])
        (self.reports / "clock_error.json").write_text('{"rows": [', encoding="utf-8")
        self.assertEqual(self.filled("clock"), "old\n")

    def test_page_has_every_table(self):
        page = (PROJECT / "docs/performance.md").read_text(encoding="utf-8")
        names = [name for _, name, _ in tables.TABLE.findall(page)]
        self.assertEqual(names, ["library", "instructions", "scale", "memory", "reflect", "workers", "clock"])

    def test_page_has_the_instructions_of_the_baseline(self):
        """Where this fails: scripts/plots.sh."""
        page = (PROJECT / "docs/performance.md").read_text(encoding="utf-8")
        baseline = json.loads((PROJECT / "bench/baseline.json").read_text(encoding="utf-8"))
        self.assertIn(tables.counted(baseline), page)


if __name__ == "__main__":
    unittest.main()
