"""What each mutation operator makes of a line of code.

    python3 tests/mutation/operators_test.py
"""
import unittest

from operators import OPERATORS, Project
from source import Source

DECLARATIONS = """
enum {
    OLV_STATUS_OK = 0,
    OLV_STATUS_BAD = 1,
};
enum class module_tree : uint8_t { responder, bind };
inline constexpr const char *first_function = "first";
inline constexpr const char *second_function = "second";
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
    def expect(self, operator, body, *mutated):
        self.assertEqual(mutations(operator, body), list(mutated))

    def test_status(self):
        self.expect("status", "return OLV_STATUS_OK;", "return OLV_STATUS_BAD;")
        self.expect("status", "return OLV_STATUS_BAD;", "return OLV_STATUS_OK;")

    def test_constant(self):
        self.expect("constant", "x = 0x7F + 1u;", "x = 0x80 + 1u;", "x = 0x7F + 2u;")
        self.expect("constant", "x = 1e-6;", "x = 2e-6;")
        self.expect("constant", "x = OLV_LOG_STATE;", "x = (OLV_LOG_STATE + 1);")
        self.expect("constant", "static_assert(x == 1); // 2")

    def test_comparison(self):
        self.expect("comparison", "if (a == b) { f<int>(a < b); }", "if (a != b) { f<int>(a < b); }",
                    "if (a == b) { f<int>(a <= b); }")

    def test_arithmetic_and_logic(self):
        self.expect("arithmetic", "x = a >> 3;", "x = a << 3;")
        self.expect("arithmetic", "const T &x = y;")
        self.expect("logic", "x = a && b;", "x = a || b;")
        self.expect("removed-not", "x = !a;", "x = a;")

    def test_conditions(self):
        declared = "if (const int s = g()) { return s; }"
        self.expect("negated-condition", declared, "if (const int s = g(); !s) { return s; }")
        self.expect("condition-never", declared, "if (const int s = g(); false) { return s; }")
        self.expect("condition-always", "if (a) { h(); }", "if ((a) || true) { h(); }")
        self.expect("negated-condition", "if (a == b) { h(); }")
        self.expect("exchanged-branches", "x = a ? b(1, 2) : c;", "x = a ? c : b(1, 2);")

    def test_removals(self):
        self.expect("removed-call", "a.g(1); x = 1; (void)h();", "; x = 1; (void)h();", "a.g(1); x = 1; ;")
        self.expect("removed-statement", "g(); x = 1;", "g(); ;")
        self.expect("removed-call", "run([=](int b) { h(b); });", "run([=](int b) { ; });", ";")

    def test_swaps(self):
        self.expect("swapped-statements", "g(); x = 1; y = 2;", "x = 1; g(); y = 2;")
        self.expect("swapped-arguments", "g(a, b, b);", "g(b, a, b);")

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
        self.expect("exchanged-name", "g(module_tree::bind, first_function);",
                    "g(module_tree::responder, first_function);", "g(module_tree::bind, second_function);")
        self.expect("severity", 'TWAMP_FAIL(call, error, s, "a");', 'TWAMP_FAIL(call, info, s, "a");')
        self.expect("severity", "TWAMP_HERE(entry);", "TWAMP_HERE(exit);")

    def test_returned_success(self):
        self.expect("returned-success", "return g(1);", "return (static_cast<void>(g(1)), 0);")
        self.expect("returned-success", "return OLV_STATUS_OK;")


if __name__ == "__main__":
    unittest.main()
