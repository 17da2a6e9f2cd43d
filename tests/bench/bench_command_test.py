"""What scripts/bench.sh has run, and what it makes of it: in a folder whose programs only write reports.

    python3 tests/bench/bench_command_test.py
"""
import json
import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
NAMES = ("create", "statistics", "delete", "bind", "lookup", "unbind")
PROGRAMS = ("library/library_bench", "scale/scale_bench", "reflect/reflect_bench", "reflect/clock_error")
# By report, the folder of the program that writes it.
FOLDERS = {
    "library_bench": "library",
    "scale_bench": "scale",
    "reflect_bench": "reflect",
    "workers_bench": "reflect",
    "clock_error": "reflect",
}
# Writes down how it is called, and the report that lies beside it, if one does, to where it is asked for.
PROGRAM = """#!/usr/bin/env bash
echo "$(basename "$0") $*" >>"$CALLS"
for word; do
  case $word in
    *.json) cp "$(dirname "$0")/${word##*/}" "${word#*=}" 2>/dev/null || { echo "no report" >&2; exit 2; } ;;
  esac
done
"""
IN_TURNS = (
    "--benchmark_enable_random_interleaving=true --benchmark_repetitions={} --benchmark_min_time={} "
    "--benchmark_display_aggregates_only=true --benchmark_out=build/bench/{}.json --benchmark_out_format=json"
)
FULL_CALLS = [
    "cmake --preset bench",
    "cmake --build --preset bench --target library_bench scale_bench reflect_bench clock_error",
    "library_bench " + IN_TURNS.format(51, 0.003, "library_bench"),
    "scale_bench " + IN_TURNS.format(21, 0.01, "scale_bench") + " --responders 1,1000,1000000,16000000",
    "reflect_bench --json build/bench/reflect_bench.json",
    "reflect_bench --workers 2 --json build/bench/workers_bench.json",
    "clock_error --seconds 300 --json build/bench/clock_error.json",
]
QUICK_CALLS = [
    *FULL_CALLS[:2],
    "library_bench " + IN_TURNS.format(3, 0.001, "library_bench") + " --benchmark_context=quick=true",
    "scale_bench "
    + IN_TURNS.format(3, 0.003, "scale_bench")
    + " --benchmark_context=quick=true --responders 1,1000,100000",
    "reflect_bench --quick --json build/bench/reflect_bench.json",
    "reflect_bench --workers 2 --quick --json build/bench/workers_bench.json",
    "clock_error --quick --json build/bench/clock_error.json",
]


def runs(*names):
    figures = {"run_type": "iteration", "family_index": 0, "items_per_second": 1e6}
    memory = {"library_bytes": 32.0, "platform_bytes": 120.0}
    return [figures | memory | {"run_name": name} for name in names]


def reports(quick, most):
    """Reports that meet all limits."""
    context = {"quick": "true"} if quick else {}
    servers = {name: {"replies_per_second": 5.0} for name in ("plain echo", "batched echo", "reflector")}
    targets = [{"target": "no request lost", "value": 0.0, "met": True}]
    case = {"window": 256, "sessions": 1, "octets": 44, "servers": servers, "module_sessions": 1, "targets": targets}
    return {
        "library_bench": {
            "context": context,
            "benchmarks": runs(*(f"{name}/{side}" for name in NAMES for side in ("library", "floor"))),
        },
        "scale_bench": {
            "context": context,
            "benchmarks": runs(
                *(f"{name}/{way}/{count}" for name in NAMES for way in ("in_turn", "at_random") for count in most)
            ),
        },
        "reflect_bench": {"quick": quick, "cases": [case]},
        "workers_bench": {
            "quick": quick, "workers": 2, "cores": 2, "targets": targets, "replies_by_one_worker": 1.25
        },
        "clock_error": {"quick": quick, "largest_error_us": 1.0, "reversed": 0, "rows": [{"replies": 5}]},
    }


FULL = reports(False, (1, 1000, 1_000_000, 16_000_000))
QUICK = reports(True, (1, 1000, 100_000))


class BenchCommand(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.calls = self.root / "calls"
        (self.root / "scripts").mkdir()
        shutil.copy(ROOT / "scripts/bench.sh", self.root / "scripts")
        (self.root / "bench").symlink_to(ROOT / "bench")
        self.program("scripts/install-packages.sh", "#!/bin/sh\n")
        self.program("tools/cmake", '#!/bin/sh\necho "cmake $*" >>"$CALLS"\n')

    def program(self, path, text):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text, encoding="utf-8")
        file.chmod(0o755)

    def programs_write(self, documents):
        for path in PROGRAMS:
            self.program(f"build/bench/bench/{path}", PROGRAM)
        for name, document in documents.items():
            report = self.root / f"build/bench/bench/{FOLDERS[name]}/{name}.json"
            report.write_text(json.dumps(document), encoding="utf-8")

    def bench(self, *arguments):
        """Status, output with errors, and what was run."""
        environment = os.environ | {
            "CALLS": str(self.calls),
            "PATH": f"{self.root}/tools:{os.environ['PATH']}",
        }
        self.calls.write_text("", encoding="utf-8")
        done = subprocess.run(
            [self.root / "scripts/bench.sh", *arguments],
            env=environment,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            check=False,
        )
        return done.returncode, done.stdout, self.calls.read_text(encoding="utf-8").splitlines()

    def test_runs_all_parts_and_leaves_their_reports(self):
        self.programs_write(FULL)
        status, output, calls = self.bench()
        self.assertEqual(calls, FULL_CALLS)
        self.assertEqual(status, 0, output)
        self.assertEqual(output.splitlines()[-1], "bench: 24 limits met, 0 missed")
        self.assertNotIn("quick", output)
        for name, report in FULL.items():
            left = self.root / f"build/bench/{name}.json"
            self.assertEqual(json.loads(left.read_text(encoding="utf-8")), report)

    def test_runs_the_parts_that_are_named(self):
        self.programs_write(FULL)
        status, output, calls = self.bench("--clock-seconds", "20", "clock", "library")
        self.assertEqual(
            calls,
            [*FULL_CALLS[:2], "clock_error --seconds 20 --json build/bench/clock_error.json", FULL_CALLS[2]],
        )
        self.assertEqual(status, 0, output)

    def test_quick_runs_are_small_and_say_what_they_are(self):
        self.programs_write(QUICK)
        status, output, calls = self.bench("--quick")
        self.assertEqual(calls, QUICK_CALLS)
        self.assertEqual(status, 0, output)
        self.assertTrue(output.splitlines()[-1].startswith("bench: a quick run: 14 limits of timing were not judged"))

    def test_a_missed_limit_is_failure_after_all_parts_have_run(self):
        self.programs_write(FULL | {"library_bench": {"context": {}, "benchmarks": runs("create/library")}})
        status, output, calls = self.bench()
        self.assertEqual(calls, FULL_CALLS)
        self.assertEqual(status, 1)
        self.assertIn("\nMISSED    library  every operation and its floor are there: missing: bind/floor, ", output)
        self.assertIn("\nmet       clock    no T3 is before its T2: 0\n", output)

    def test_a_program_that_fails_is_failure_after_all_parts_have_run_and_leaves_no_older_report(self):
        self.programs_write({name: report for name, report in FULL.items() if name != "scale_bench"})
        older = self.root / "build/bench/scale_bench.json"
        older.write_text(json.dumps(FULL["scale_bench"]), encoding="utf-8")
        status, output, calls = self.bench()
        self.assertEqual(calls, FULL_CALLS)
        self.assertEqual(status, 1)
        self.assertIn("\nno report\n", output)
        self.assertIn("\nMISSED    scale    there is a report: no build/bench/scale_bench.json\n", output)
        self.assertEqual(output.splitlines()[-1], "bench: failed: scale, see above")
        self.assertFalse(older.exists())

    def test_help_is_success_and_nonsense_is_not_and_neither_runs_anything(self):
        expected = {("--help",): 0, ("clocks",): 2, ("--clock-seconds", "soon"): 2, ("--clock-seconds",): 2}
        for arguments, expected_status in expected.items():
            with self.subTest(arguments):
                status, output, calls = self.bench(*arguments)
                self.assertEqual((status, calls), (expected_status, []))
                self.assertIn("  scripts/bench.sh [--quick] [--clock-seconds SECONDS] [PART]...", output)


if __name__ == "__main__":
    unittest.main()
