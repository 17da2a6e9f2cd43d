"""What scripts/bench.sh runs, and when it fails: in a folder whose programs copy reports that lie there.

    python3 tests/bench/bench_command_test.py
"""
import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PROGRAMS = ("library/library_bench", "scale/scale_bench", "reflect/reflect_bench")
# Writes down how it is called, and a report to where it is asked for it.
PROGRAM = """#!/usr/bin/env bash
[[ $0 == */cmake ]] || echo "$(basename "$0") $*" >>calls
for word; do
  case $word in *.json) cp "${word##*/}" "${word#*=}" || exit 2 ;; esac
done
"""
CLOCK = """{"context": {"quick": "QUICK"}, "benchmarks": [
{"run_name": "clock/reflector", "replies": 5, "reversed": REVERSED, "error_us": 25.0}]}"""


class BenchCommand(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for path in ("scripts/install-packages.sh", "cmake", *(f"build/bench/bench/{name}" for name in PROGRAMS)):
            file = self.root / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(PROGRAM, encoding="utf-8")
            file.chmod(0o755)
        shutil.copy(ROOT / "scripts/bench.sh", self.root / "scripts")
        (self.root / "bench").symlink_to(ROOT / "bench")

    def bench(self, *arguments):
        """Status, output with errors, and calls of the programs."""
        environment = os.environ | {"PATH": f"{self.root}:{os.environ['PATH']}"}
        command = ["bash", "-c", 'scripts/bench.sh "$@" 2>&1', "bench", *arguments]
        done = subprocess.run(command, cwd=self.root, env=environment, capture_output=True, text=True, check=False)
        calls = self.root / "calls"
        called = calls.read_text(encoding="utf-8").splitlines()[1:] if calls.exists() else []
        return done.returncode, done.stdout, called

    def test_every_part_runs_whatever_becomes_of_the_others_and_no_older_report_is_left(self):
        older = self.root / "build/bench/scale.json"
        older.write_text("{}", encoding="utf-8")
        status, output, calls = self.bench("--clock-seconds", "25")
        self.assertEqual(status, 1)
        self.assertRegex(calls[0], "^library_bench .*--benchmark_out=build/bench/library.json")
        self.assertRegex(calls[1], "^scale_bench .* 1 1000 1000000 16000000$")
        self.assertEqual(calls[2], "reflect_bench reflect --json build/bench/reflect.json")
        self.assertEqual(calls[4], "reflect_bench clock --json build/bench/clock.json --intervals 3")
        self.assertFalse(older.exists())
        self.assertIn("bench: failed, or limits missed: library scale reflect workers clock\n", output)

    def test_a_missed_limit_is_a_failure_and_in_a_quick_run_only_where_it_is_not_of_time(self):
        rows = (((), "false", "0", 1), (("--quick",), "true", "0", 0), (("--quick",), "true", "1", 1))
        for options, quick, reversed_replies, expected in rows:
            with self.subTest(options, reversed=reversed_replies):
                text = CLOCK.replace("QUICK", quick).replace("REVERSED", reversed_replies)
                (self.root / "clock.json").write_text(text, encoding="utf-8")
                status, output, calls = self.bench(*options, "clock")
                self.assertEqual(status, expected, output)
                self.assertEqual("a quick run: its figures say nothing" in output, quick == "true")
                self.assertEqual(calls[-1].endswith(" --quick"), quick == "true")

    def test_help_is_success_and_nonsense_is_not_and_neither_runs_anything(self):
        for arguments, expected in ((["--help"], 0), (["clocks"], 2), (["--clock-seconds", "soon"], 2)):
            status, output, calls = self.bench(*arguments)
            self.assertEqual((status, calls), (expected, []))
            self.assertIn("  scripts/bench.sh [--quick] [--clock-seconds SECONDS] [PART]...", output)


if __name__ == "__main__":
    unittest.main()
