"""What is read from callgrind's file, and what becomes of it."""
import contextlib
import io
import pathlib
import sys
import unittest
from unittest import mock

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "bench/reflect"))
import packet_instructions  # noqa: E402 (found only now)

DUMP = """# callgrind format
version: 1
creator: callgrind-3.19.0
part: 1

desc: Trigger: Client Request

positions: line
events: Ir
summary: 1168425

ob=(8) /usr/lib/libolv-sim.so.1.0.0
fl=(165) ???
fn=(1582) olv_sim::tree_table::lookup(unsigned int) const
0 15000
cfn=(1616) olv_sim::words(int*, unsigned int) const
calls=1000 0 
0 10000
+3 2000

fn=(1616)
12 10000
-2 100
* 11

fn=(1700) (anonymous namespace)::driver::reflect_batches()
7 20000
cfn=(1800) __memcpy_evex_unaligned_erms
calls=1000 38
0 5000

fn=(1800)
0 5000
"""

COUNTS = {"olv_sim::tree_table::lookup(unsigned int) const": 17000,
          "olv_sim::words(int*, unsigned int) const": 10111,
          "(anonymous namespace)::driver::reflect_batches()": 20000,
          "__memcpy_evex_unaligned_erms": 5000}


class CountsTest(unittest.TestCase):
    def test_are_those_of_each_function_alone(self):
        self.assertEqual(packet_instructions.counts_of(DUMP), COUNTS)

    def test_of_no_function_are_none(self):
        self.assertEqual(packet_instructions.counts_of("version: 1\nsummary: 0\n"), {})


class SplitTest(unittest.TestCase):
    def test_leaves_the_driver_out_and_copying_apart(self):
        own, copying = packet_instructions.split(COUNTS, 1000)
        self.assertAlmostEqual(own, 27.111)
        self.assertAlmostEqual(copying, 5.0)


class PacketsTest(unittest.TestCase):
    def test_are_what_the_program_says(self):
        self.assertEqual(packet_instructions.packets_of("1024 packets of 44 octets\n"), 1024)


class MainTest(unittest.TestCase):
    def run_with(self, *arguments):
        """Status and output of a run whose program is measured as COUNTS."""
        output = io.StringIO()
        measured = packet_instructions.collections.Counter(COUNTS), 100
        with mock.patch.object(packet_instructions, "measure", return_value=measured), \
                mock.patch.object(sys, "argv", ["packet_instructions.py", "program", *arguments]), \
                contextlib.redirect_stdout(output):
            status = packet_instructions.main()
        return status, output.getvalue().splitlines()

    def test_prints_a_line_for_each_length(self):
        status, lines = self.run_with()
        self.assertEqual(status, 0)
        self.assertEqual(lines, [
            "   41 octets:  271.1 instructions, and 50.0 to copy; limit 450",
            "   44 octets:  271.1 instructions, and 50.0 to copy; limit 450",
            " 1400 octets:  271.1 instructions, and 50.0 to copy; limit 450"])

    def test_fails_above_the_limit(self):
        self.assertEqual(self.run_with("--limit", "272")[0], 0)
        self.assertEqual(self.run_with("--limit", "271")[0], 1)

    def test_shows_functions_on_demand(self):
        lines = self.run_with("--functions")[1]
        self.assertEqual(lines[1], "       200.0  (anonymous namespace)::driver::reflect_batches()")
        self.assertEqual(lines[4], "        50.0  __memcpy_evex_unaligned_erms")


if __name__ == "__main__":
    unittest.main()
