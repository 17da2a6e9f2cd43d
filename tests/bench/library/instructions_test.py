"""What is counted in Callgrind's dumps, and when a count is refused.

    PYTHONPATH=bench/library python3 tests/bench/instructions_test.py
"""
import unittest

from instructions import count, failures, operation_of, table

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


def counts(**totals):
    return {operation: {"library": number - 1, "libc": 1} for operation, number in totals.items()}


class Counting(unittest.TestCase):
    def test_a_dump_is_named_after_its_request(self):
        self.assertEqual(operation_of(DUMP), "create")

    def test_a_dump_that_nobody_asked_for_is_refused(self):
        with self.assertRaisesRegex(ValueError, "no client request asked for this dump"):
            operation_of("desc: Trigger: Program termination\n")

    def test_counts_the_library_with_its_linkage_and_the_c_library_where_it_calls_that(self):
        self.assertEqual(count(DUMP), {"library": 5 + 12 + 8 + 1, "libc": 7 + 60})

    def test_a_library_without_linkage_table_calls_the_c_library_itself(self):
        direct = DUMP.replace("cob=???\ncfi=???\ncfn=0x000000000483e110 [PLT]\ncalls=1 0\n0 8\n", "")
        self.assertEqual(count(direct), {"library": 5 + 12 + 8, "libc": 60})


class Comparing(unittest.TestCase):
    BASELINE = counts(create=300, delete=200, statistics=100)

    def expect(self, counted, *expected):
        self.assertEqual(failures(counted, self.BASELINE), list(expected))

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

    def test_the_limits_stand_whatever_the_baseline(self):
        at_limit = counts(create=350, delete=250, statistics=200)
        self.assertEqual(failures(at_limit, at_limit), [])
        above = counts(create=350, delete=251, statistics=201)
        self.assertEqual(
            failures(above, above),
            [
                "create + delete: 601 instructions, the limit is 600",
                "statistics: 201 instructions, the limit is 200",
            ],
        )

    def test_the_table_has_both_shares_and_the_baseline(self):
        self.assertEqual(
            table(counts(create=310, bind=50), self.BASELINE),
            "operation     library   libc  total  baseline\n"
            "create            309      1    310       300\n"
            "bind               49      1     50         -",
        )


if __name__ == "__main__":
    unittest.main()
