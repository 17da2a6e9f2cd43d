"""What is counted in Callgrind's dumps, and when a count is refused.

    PYTHONPATH=bench python3 tests/bench/instructions_test.py
"""
import contextlib
import io
import json
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

import instructions
from instructions import OPERATIONS, PACKET, count_all, count_operation, count_packet, failures, functions, table

# An operation of 5 + 20 instructions that calls gettimeofday() through its linkage table and the platform directly.
# The platform calls the C library as well, and calls back; the C library calls itself.
DUMP = """\
# callgrind format
version: 1
creator: callgrind-3.19.0
part: 2

desc: Timerange: Basic block 0 - 703416
desc: Trigger: Client Request: create

positions: line
events: Ir
summary: 2921


ob=???
fl=???
fn=0x000000000483e110 [PLT]
0 1
cob=/usr/lib/x86_64-linux-gnu/libc.so.6
cfi=./time/../sysdeps/unix/sysv/linux/gettimeofday.c
cfn=__gettimeofday_syscall
calls=1 34
0 7

fn=0x000000000484f6c0 [PLT]
0 100
cob=/usr/lib/x86_64-linux-gnu/libc.so.6
cfi=./nptl/./nptl/pthread_mutex_lock.c
cfn=pthread_mutex_lock@@GLIBC_2.2.5
calls=4 76
0 128

ob=/build/twamp/libolv-twamp.so.1.0.0
fl=???
fn=olv_twamp_responder_create
0 5
cfi=???
cfn=twamp::work()
calls=1 0
0 1000

fn=twamp::work()
0 12
12 8
cob=/build/sim/libolv-sim.so.1.0.0
cfi=???
cfn=hyx_sem_post
calls=1 0
0 400
cob=???
cfi=???
cfn=0x000000000483e110 [PLT]
calls=1 0
0 8
cob=/usr/lib/x86_64-linux-gnu/libc.so.6
cfi=./string/memset.S
cfn=memset
calls=2 9
0 60

ob=/build/sim/libolv-sim.so.1.0.0
fl=???
fn=hyx_sem_post
0 300
cob=???
cfi=???
cfn=0x000000000484f6c0 [PLT]
calls=1 0
0 60
cob=/build/twamp/libolv-twamp.so.1.0.0
cfi=???
cfn=olv_twamp_table_entry_dump_fn
calls=1 0
0 40

ob=/usr/lib/x86_64-linux-gnu/libc.so.6
fl=./nptl/./nptl/pthread_mutex_lock.c
fn=pthread_mutex_lock@@GLIBC_2.2.5
76 30
cfn=other
calls=1 5
77 50

totals: 2921
"""


# Of packets: 1,000 calls of the reflector, which calls the platform and copies, and the program's own work between.
PACKET_DUMP = """\
# callgrind format
version: 1
creator: callgrind-3.19.0
part: 1

desc: Trigger: Client Request: 1000 packets of 1400 octets

positions: line
events: Ir
summary: 67111

ob=/usr/lib/libolv-sim.so.1.0.0
fl=???
fn=olv_sim::tree_table::lookup(unsigned int) const
0 15000
cfn=olv_sim::words(int*, unsigned int) const
calls=1000 0
0 10111
3 2000

fn=olv_sim::words(int*, unsigned int) const
12 10000
10 100
10 11

ob=/build/packet_instructions
fn=(anonymous namespace)::driver::reflect_batches()
7 20000
cob=/usr/lib/x86_64-linux-gnu/libc.so.6
cfn=__memcpy_evex_unaligned_erms
calls=1000 38
0 5000

ob=/usr/lib/x86_64-linux-gnu/libc.so.6
fn=__memcpy_evex_unaligned_erms
0 5000
"""


def counts(**totals):
    return {operation: {"library": number - 1, "libc": 1} for operation, number in totals.items()}


def packets(copying=0.0, **totals):
    return {f"{name[1:]} octets": {"reflector": number, "copying": copying} for name, number in totals.items()}


class Counting(unittest.TestCase):
    def test_counts_the_library_with_its_linkage_and_the_c_library_where_it_calls_that(self):
        self.assertEqual(count_operation(DUMP), {"library": 5 + 12 + 8 + 1, "libc": 7 + 60})

    def test_a_library_without_linkage_table_calls_the_c_library_itself(self):
        direct = DUMP.replace("cob=???\ncfi=???\ncfn=0x000000000483e110 [PLT]\ncalls=1 0\n0 8\n", "")
        self.assertEqual(count_operation(direct), {"library": 5 + 12 + 8, "libc": 60})

    def test_a_packet_is_counted_without_the_program_that_measures_and_copying_apart(self):
        self.assertEqual(count_packet(PACKET_DUMP, 1000), {"reflector": 27.1, "copying": 5.0})

    def test_dumps_are_counted_as_what_they_are_named_after(self):
        short = PACKET_DUMP.replace("1000 packets of 1400 octets", "100 packets of 41 octets")
        counted = count_all([PACKET_DUMP, DUMP, short])
        self.assertEqual(
            counted,
            {
                "library_instructions": {"create": {"library": 26, "libc": 67}},
                "packet_instructions": {
                    "41 octets": {"reflector": 271.1, "copying": 50.0},
                    "1400 octets": {"reflector": 27.1, "copying": 5.0},
                },
            },
        )
        self.assertEqual(list(counted["packet_instructions"]), ["41 octets", "1400 octets"])

    def test_functions_are_shown_with_the_dearest_first(self):
        self.assertEqual(
            functions(PACKET_DUMP),
            "1000 packets of 1400 octets\n"
            "      20.0  (anonymous namespace)::driver::reflect_batches()\n"
            "      17.0  olv_sim::tree_table::lookup(unsigned int) const\n"
            "      10.1  olv_sim::words(int*, unsigned int) const\n"
            "       5.0  __memcpy_evex_unaligned_erms",
        )


class ComparingOperations(unittest.TestCase):
    BASELINE = counts(create=300, delete=200, statistics=100)

    def expect(self, counted, *expected):
        self.assertEqual(failures(OPERATIONS, counted, self.BASELINE), list(expected))

    def test_up_to_three_percent_is_the_same(self):
        self.expect(counts(create=300, delete=200, statistics=100))
        self.expect(counts(create=309, delete=206, statistics=103))
        self.expect(counts(create=291, delete=194, statistics=97))

    def test_more_is_refused_with_the_limit(self):
        self.expect(
            counts(create=310, delete=200, statistics=104),
            "create: 310 instructions, the baseline is 300, the limit 309",
            "statistics: 104 instructions, the baseline is 100, the limit 103",
        )

    def test_less_has_to_become_the_baseline(self):
        self.expect(
            counts(create=290, delete=200, statistics=100),
            "create: 290 instructions, better than the baseline of 300: run --update",
        )

    def test_both_have_the_same_operations(self):
        self.expect(
            counts(create=300, delete=200, bind=5),
            "bind: not in the baseline: run --update",
            "statistics: in the baseline, but was not run: run --update",
        )

    def test_what_has_a_limit_has_to_be_run(self):
        self.assertEqual(
            failures(OPERATIONS, {}, {}),
            [
                "create: has a limit, but was not run",
                "delete: has a limit, but was not run",
                "statistics: has a limit, but was not run",
            ],
        )

    def test_the_limits_stand_whatever_the_baseline(self):
        at_limit = counts(create=350, delete=250, statistics=200)
        self.assertEqual(failures(OPERATIONS, at_limit, at_limit), [])
        above = counts(create=350, delete=251, statistics=201)
        self.assertEqual(
            failures(OPERATIONS, above, above),
            [
                "create + delete: 601 instructions, the limit is 600",
                "statistics: 201 instructions, the limit is 200",
            ],
        )

    def test_the_table_has_both_shares_the_baseline_and_the_limit(self):
        self.assertEqual(
            table(OPERATIONS, counts(create=310, delete=200, statistics=100, bind=50), self.BASELINE),
            "operation          library      libc     count  baseline     limit\n"
            "create                 309         1       310       300\n"
            "delete                 199         1       200       200\n"
            "statistics              99         1       100       100       200\n"
            "bind                    49         1        50         -\n"
            "create + delete                            510       500       600",
        )


class ComparingPackets(unittest.TestCase):
    BASELINE = packets(_41=400.0, _44=410.0, _1400=420.0)

    def expect(self, counted, *expected):
        self.assertEqual(failures(PACKET, counted, self.BASELINE), list(expected))

    def test_up_to_three_percent_is_the_same_however_much_is_copied(self):
        self.expect(packets(_41=412.0, _44=397.7, _1400=432.6))
        self.expect(packets(_41=388.0, _44=422.3, _1400=407.4, copying=160.0))

    def test_more_and_less_are_refused(self):
        self.expect(
            packets(_41=412.1, _44=397.6, _1400=420.0),
            "41 octets: 412.1 instructions, the baseline is 400.0, the limit 412.0",
            "44 octets: 397.6 instructions, better than the baseline of 410.0: run --update",
        )

    def test_every_length_has_to_be_run(self):
        self.expect(
            packets(_41=400.0, _44=410.0), "1400 octets: in the baseline, but was not run: run --update"
        )

    def test_the_limit_stands_whatever_the_baseline(self):
        at_limit = packets(_41=450.0, _44=450.0, _1400=450.0)
        self.assertEqual(failures(PACKET, at_limit, at_limit), [])
        above = packets(_41=450.1, _44=450.1, _1400=450.1)
        self.assertEqual(
            failures(PACKET, above, above),
            [
                "1400 octets: 450.1 instructions, the limit is 450",
                "41 octets: 450.1 instructions, the limit is 450",
                "44 octets: 450.1 instructions, the limit is 450",
            ],
        )

    def test_the_table_has_copying_apart(self):
        self.assertEqual(
            table(PACKET, packets(_41=400.0, _1400=420.5, copying=160.0), self.BASELINE),
            "packet           reflector   copying     count  baseline     limit\n"
            "41 octets            400.0     160.0     400.0     400.0       450\n"
            "1400 octets          420.5     160.0     420.5     420.0       450",
        )


class Main(unittest.TestCase):
    """A baseline file beside two dumps, of which the operation is alone."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.baseline = Path(folder.name) / "baseline.json"
        self.dump = Path(folder.name) / "dump.1"
        self.dump.write_text(PACKET_DUMP, encoding="utf-8")

    def run_main(self, *options):
        """Status, output, errors."""
        command = ["instructions.py", *options, str(self.baseline), str(self.dump)]
        with (
            mock.patch.object(sys, "argv", command),
            contextlib.redirect_stdout(io.StringIO()) as output,
            contextlib.redirect_stderr(io.StringIO()) as errors,
        ):
            status = instructions.main()
        return status, output.getvalue(), errors.getvalue().splitlines()

    def test_fails_with_a_line_for_each_failure(self):
        status, output, errors = self.run_main()
        self.assertEqual(status, 1)
        self.assertIn("1400 octets           27.1       5.0      27.1         -       450\n", output)
        self.assertEqual(
            errors,
            [
                "instructions: create: has a limit, but was not run",
                "instructions: delete: has a limit, but was not run",
                "instructions: statistics: has a limit, but was not run",
                "instructions: 1400 octets: not in the baseline: run --update",
                "instructions: 41 octets: has a limit, but was not run",
                "instructions: 44 octets: has a limit, but was not run",
            ],
        )
        self.assertFalse(self.baseline.exists())

    def test_update_writes_both_sections_and_leaves_others(self):
        self.baseline.write_text('{"other": 1, "packet_instructions": {"40 octets": {}}}', encoding="utf-8")
        self.run_main("--update")
        self.assertEqual(
            json.loads(self.baseline.read_text(encoding="utf-8")),
            {
                "other": 1,
                "library_instructions": {},
                "packet_instructions": {"1400 octets": {"reflector": 27.1, "copying": 5.0}},
            },
        )

    def test_within_all_limits_is_success(self):
        with mock.patch.object(instructions, "count_all") as counted:
            counted.return_value = {
                "library_instructions": counts(create=300, delete=200, statistics=100),
                "packet_instructions": packets(_41=400.0, _44=410.0, _1400=420.0),
            }
            self.baseline.write_text(json.dumps(counted.return_value), encoding="utf-8")
            status, output, errors = self.run_main()
        self.assertEqual((status, errors), (0, []))
        self.assertTrue(output.endswith("instructions: all within 3 % of the baseline and within their limits\n"))

    def test_shows_functions_on_demand(self):
        self.assertIn("      17.0  olv_sim::tree_table::lookup(", self.run_main("--functions")[1])
        self.assertNotIn("tree_table", self.run_main()[1])


if __name__ == "__main__":
    unittest.main()
