"""What is read from Callgrind's dumps.

    PYTHONPATH=bench python3 tests/bench/callgrind_test.py
"""
import unittest

from callgrind import costs, own_costs, request_of

DUMP = """\
# callgrind format
version: 1
part: 2

desc: Timerange: Basic block 0 - 703416
desc: Trigger: Client Request: create

positions: line
events: Ir
summary: 2921

ob=/build/first.so
fl=???
fn=first::function(int)
0 5
cob=/build/second.so
cfi=???
cfn=second
calls=1 34
0 1000
cfn=first::inner()
calls=7 1
12 70

fn=first::inner()
1 30
2 40

ob=/build/second.so
fn=second
34 900
cob=/build/first.so
cfn=first::inner()
calls=3 34
35 100

totals: 2921
"""


class Dumps(unittest.TestCase):
    def test_are_named_after_the_request(self):
        self.assertEqual(request_of(DUMP), "create")

    def test_that_nobody_asked_for_are_refused(self):
        with self.assertRaisesRegex(ValueError, "no client request asked for this dump"):
            request_of("desc: Trigger: Program termination\n")

    def test_tell_a_function_s_own_cost_from_that_of_its_calls(self):
        first, inner, second = (
            ("/build/first.so", "first::function(int)"),
            ("/build/first.so", "first::inner()"),
            ("/build/second.so", "second"),
        )
        self.assertEqual(
            list(costs(DUMP)),
            [
                (first, None, 5),
                (first, second, 1000),
                (first, inner, 70),
                (inner, None, 30),
                (inner, None, 40),
                (second, None, 900),
                (second, inner, 100),
            ],
        )

    def test_give_what_each_function_takes_alone(self):
        self.assertEqual(own_costs(DUMP), {"first::function(int)": 5, "first::inner()": 70, "second": 900})

    def test_of_no_function_give_nothing(self):
        self.assertEqual(own_costs("version: 1\nsummary: 0\n"), {})

    def test_with_short_names_or_positions_are_refused(self):
        for line in ("fn=(1582) first::function(int)", "cfn=(1582)", "ob=(8) /build/first.so", "+3 200", "* 11"):
            with self.subTest(line), self.assertRaises(ValueError) as refused:
                list(costs(f"ob=/build/first.so\n{line}\n"))
            self.assertEqual(str(refused.exception), f"a compressed dump: {line}")

    def test_may_have_functions_without_a_name_of_their_own(self):
        self.assertEqual(own_costs("fn=(anonymous namespace)::work()\n0 5\n"), {"(anonymous namespace)::work()": 5})


if __name__ == "__main__":
    unittest.main()
