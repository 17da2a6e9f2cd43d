"""What is counted in Callgrind's dumps.

    PYTHONPATH=bench python3 tests/bench/instructions_test.py
"""
import unittest

from instructions import functions, report_of, run_of

# An operation of 5 + 20 instructions that calls the platform and the C library. The platform calls the C library as
# well, and calls back; the C library calls itself.
OPERATION = """\
desc: Timerange: Basic block 0 - 703416
desc: Trigger: Client Request: create
summary: 2921

ob=/build/twamp/libolv-twamp.so.1.0.0
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
cfn=hyx_sem_post
calls=1 0
0 400
cob=/usr/lib/x86_64-linux-gnu/libc.so.6
cfn=memset
calls=2 9
0 60

ob=/build/sim/libolv-sim.so.1.0.0
fn=hyx_sem_post
0 300
cob=/usr/lib/x86_64-linux-gnu/libc.so.6
cfn=pthread_mutex_lock
calls=1 0
0 60
cob=/build/twamp/libolv-twamp.so.1.0.0
cfn=olv_twamp_table_entry_dump_fn
calls=1 0
0 40

ob=/usr/lib/x86_64-linux-gnu/libc.so.6
fn=pthread_mutex_lock
76 30
"""

# 1,000 packets: the platform, which the reflector calls, the program's own work between them, and copying.
PACKETS = """\
desc: Trigger: Client Request: 1000 packets of 1400 octets
ob=/usr/lib/libolv-sim.so.1.0.0
fn=olv_sim::lookup(unsigned int) const
0 15000
cfn=olv_sim::words(int*, unsigned int) const
calls=1000 0
0 10111
3 2000
fn=olv_sim::words(int*, unsigned int) const
12 10000
10 111
fn=(anonymous namespace)::driver::reflect_batches()
7 20000
ob=/usr/lib/x86_64-linux-gnu/libc.so.6
fn=__memcpy_evex_unaligned_erms
0 5000
"""


class Instructions(unittest.TestCase):
    def test_are_those_of_the_library_with_the_c_library_it_calls_and_of_packets_all_but_the_driver_s(self):
        deletion = OPERATION.replace("Request: create", "Request: delete")
        self.assertEqual(
            report_of([OPERATION, deletion, PACKETS])["benchmarks"],
            [
                {"run_name": "create", "instructions": 5 + 12 + 8 + 60},
                {"run_name": "delete", "instructions": 85},
                {"run_name": "1400 octets", "instructions": 27.1, "copying": 5.0},
                {"run_name": "create + delete", "instructions": 170},
            ],
        )

    def test_are_shown_by_function_with_the_dearest_first(self):
        lines = functions(PACKETS).splitlines()
        self.assertEqual(lines[0], "1400 octets")
        self.assertEqual(lines[2], "     17000  olv_sim::lookup(unsigned int) const")
        self.assertEqual([int(line.split()[0]) for line in lines[1:]], [20000, 17000, 10111, 5000])

    def test_of_dumps_with_short_names_or_positions_or_without_request_are_refused(self):
        for line in ("fn=(1582) first()", "cfn=(1582)", "ob=(8) /build/first.so", "+3 200", "* 11"):
            with self.subTest(line), self.assertRaisesRegex(ValueError, "a compressed dump"):
                run_of(f"desc: Trigger: Client Request: create\n{line}\n")
        with self.assertRaises(ValueError):
            run_of("desc: Trigger: Program termination\n")


if __name__ == "__main__":
    unittest.main()
