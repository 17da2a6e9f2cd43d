"""What each mutation operator makes of a line of code.

    python3 tests/mutation/operators_test.py
"""
import unittest

from operators import OPERATORS
from project import Project
from source import Source

DECLARATIONS = """
enum {
    OLV_STATUS_OK = 0,
    OLV_STATUS_BAD = 1,
};
enum class module_tree : uint8_t { responder, bind };
#define FIRST_FUNCTION "first"
#define SECOND_FUNCTION "second"
#define OLV_LOG_STATE 0x80u
#define KEY_BITS 24u
#define DEFINED_MASK (~4u)
struct counters {
    uint32_t received;
    uint32_t transmitted;
};
"""


def mutations(operator, body):
    """The bodies that an operator makes of the body of a function."""
    before, after = "namespace twamp {\nint f(int a)\n{\n", "\n}\n}\n"
    source = Source("twamp/f.cpp", before + body + after)
    changes = OPERATORS[operator](source, Project([DECLARATIONS]))
    texts = (source.text[:begin] + replacement + source.text[end:] for begin, end, replacement in changes)
    return [" ".join(text[len(before) : -len(after)].split()) for text in texts]


class Operators(unittest.TestCase):
    tried = set()

    @classmethod
    def tearDownClass(cls):
        assert cls.tried == set(OPERATORS), f"not tried: {set(OPERATORS) - cls.tried}"

    def expect(self, operator, body, *mutated):
        self.tried.add(operator)
        self.assertEqual(mutations(operator, body), list(mutated))

    def test_status(self):
        self.expect("status", "return OLV_STATUS_OK;", "return OLV_STATUS_BAD;")
        self.expect("status", "return OLV_STATUS_BAD;", "return OLV_STATUS_OK;")

    def test_constant(self):
        self.expect("constant", "x = 0x7F + 1u;", "x = 0x80 + 1u;", "x = 0x7E + 1u;", "x = 0x7F + 2u;",
                    "x = 0x7F + 0u;")
        self.expect("constant", "x = 0;", "x = 1;")
        self.expect("constant", "x = 1e-6;", "x = 2e-6;", "x = 0e-6;")
        self.expect("constant", "x = KEY_BITS;", "x = (KEY_BITS + 1);", "x = (KEY_BITS - 1);")
        self.expect("constant", "x = true;", "x = false;")
        self.expect("constant", "static_assert(x == 1); // 2")

    def test_bound(self):
        self.expect("bound", "while (i < size(t)) { }", "while (i < size(t) + 1) { }", "while (i < size(t) - 1) { }")
        self.expect("bound", "x = a && b >= c.d;", "x = a && b >= c.d + 1;", "x = a && b >= c.d - 1;")
        self.expect("bound", "x = a == 3 || a == KEY_BITS || a == OLV_STATUS_OK || a == nullptr;")

    def test_mask(self):
        self.expect("mask", "x = a & 0x1Cu;", "x = a & 0x18u;", "x = a & 0xCu;")
        self.expect("mask", "x = a & ~0xFu;", "x = a & ~0xEu;", "x = a & ~0x7u;", "x = a & 0xFFFFFFE0u;",
                    "x = a & 0x7FFFFFF0u;")
        self.expect("mask", "x = a & DEFINED_MASK;", "x = a & 0xFFFFFFFAu;", "x = a & 0x7FFFFFFBu;")
        self.expect("mask", "x = {OLV_LOG_STATE, KEY_BITS};", "x = {0x0u, KEY_BITS};")

    def test_relation(self):
        self.expect("relation", "f<int>(a == b);", "f<int>(a != b);", "f<int>(a <= b);", "f<int>(a >= b);")
        self.expect("relation", "x = a != b;", "x = a == b;", "x = a < b;", "x = a > b;")
        self.expect("relation", "x = a < b;", "x = a <= b;", "x = a != b;", "x = a >= b;")
        self.expect("relation", "x = a >= b;", "x = a > b;", "x = a == b;", "x = a < b;")

    def test_arithmetic_and_logic(self):
        self.expect("arithmetic", "x = a >> 3;", "x = a << 3;")
        self.expect("arithmetic", "const T &x = y;")
        self.expect("logic", "x = a && b;", "x = a || b;")
        self.expect("removed-not", "x = !a;", "x = a;")

    def test_dropped_operand(self):
        self.expect("dropped-operand", "return f(a) || b == c;", "return f(a);", "return b == c;")
        self.expect("dropped-operand", "x = a && b && (c | d);", "x = a && (c | d);", "x = b && (c | d);",
                    "x = a && b;", "x = (c | d);", "x = a && b && (c);", "x = a && b && (d);")
        self.expect("dropped-operand", "x = a >> 3 & 7;", "x = a & 7;", "x = 3 & 7;", "x = a >> 3;", "x = 7;")

    def test_conditions(self):
        declared = "if (const int s = g()) { return s; }"
        self.expect("negated-condition", declared, "if (const int s = g(); !s) { return s; }")
        self.expect("condition-never", declared, "if (const int s = g(); false) { return s; }")
        self.expect("condition-always", "if (a) { h(); }", "if ((a) || true) { h(); }")
        self.expect("negated-condition", "if (a == b) { h(); } if (a < b) { }")
        self.expect("exchanged-branches", "x = a ? b(1, 2) : c;", "x = a ? c : b(1, 2);")

    def test_removals(self):
        self.expect("removed-call", "a.g(1); x = 1; (void)h();", "; x = 1; (void)h();", "a.g(1); x = 1; ;")
        self.expect("removed-statement", "g(); x = 1;", "g(); ;")
        self.expect("removed-call", "run([=](int b) { h(b); });", "run([=](int b) { ; });", ";")

    def test_swaps(self):
        self.expect("swapped-statements", "g(); x = 1; return;", "#line 4 x = 1; #line 4 g(); #line 4 return;",
                    "g(); #line 4 return; #line 4 x = 1; #line 4")
        self.expect("swapped-statements", "x = 1; (*y).z = 2;")
        self.expect("swapped-arguments", "g(a, b, b);", "g(b, a, b);")
        self.expect("replaced-argument", "g(a, b + 1);", "g(b + 1, b + 1);", "g(a, a);")

    def test_messages(self):
        self.expect("message-letter", 'g("ab %d\\n");', 'g("xb %d\\n");', 'g("ax %d\\n");')
        self.expect("message-newline", 'g("a b\\n");', 'g("a b");')
        self.expect("message-newline", 'g("a b");', 'g("a b\\n");')
        self.expect("message-conversion", 'g("%d %08x %s");', 'g("%x %08x %s");', 'g("%d %8x %s");',
                    'g("%d %08x %.3s");')

    def test_exchanges(self):
        self.expect("byte-order", "x = hyx_htonl(y);", "x = (y);")
        self.expect("exchanged-field", "s->received = t.transmitted;", "s->transmitted = t.transmitted;",
                    "s->received = t.received;")
        self.expect("exchanged-name", "g(module_tree::bind, FIRST_FUNCTION);",
                    "g(module_tree::responder, FIRST_FUNCTION);", "g(module_tree::bind, SECOND_FUNCTION);")
        self.expect("severity", 'TWAMP_FAIL(call, error, s, "a");', 'TWAMP_FAIL(call, info, s, "a");')
        self.expect("severity", "TWAMP_HERE(entry);", "TWAMP_HERE(exit);")

    def test_returned_success(self):
        self.expect("returned-success", "return g(1);", "return (static_cast<void>(g(1)), 0);")
        self.expect("returned-success", "return OLV_STATUS_OK;")


if __name__ == "__main__":
    unittest.main()
