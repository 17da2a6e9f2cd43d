"""Holds docs/messages.md to the sources: every text, every status, and nothing that there is not.

    python3 tests/docs/messages_test.py
"""
import re
import unittest
from pathlib import Path

from cpp_literals import calls, string_literals, tokens

ROOT = Path(__file__).parent.parent.parent

# Not texts: what passes another text on.
CARRIERS = {"", "%s\n", "%.*s"}

REPORTING = {"TWAMP_FAIL", "TWAMP_FAIL_RTE", "TWAMP_FAIL_RTE_AT", "TWAMP_LOG", "TWAMP_LOG_UNKNOWN",
             "TWAMP_LOG_UNKNOWN_AT", "log_unknown"}
SEVERITIES = {"fatal": "FATAL", "error": "ERROR", "info": "info"}


def read(path):
    return (ROOT / path).read_text(encoding="utf-8")


def library_sources():
    """With the names of what the classifier program provides."""
    sources = sorted([*ROOT.glob("twamp/*.cpp"), *ROOT.glob("twamp/*.hpp"), ROOT / "platform/twamp_program.h"])
    assert len(sources) >= 10, sources
    return [source.read_text(encoding="utf-8") for source in sources]


def console_lines(text):
    """The lines that a text makes, without the empty ones."""
    return tuple(line for line in text.split("\n") if line)


def tables(page):
    """(header cells, [row cells]) of each table."""
    for block in re.findall(r"(?:^\|.*\n)+", page, re.MULTILINE):
        header, rule, *rows = [[cell.strip() for cell in line.strip("|\n").split(" | ")] for line in
                               re.sub(r"\| (?=\|)", "|  ", block).splitlines()]
        assert set("".join(rule)) <= {"-", "|"}, rule
        yield header, rows


def quoted_lines(cell):
    """The console lines in a cell. The blanks within the quotes count."""
    return tuple(re.findall(r"`([^`]*)`", cell))


def rows_of_messages(page):
    for header, rows in tables(page):
        if header[0] == "console line":
            for row in rows:
                yield quoted_lines(row[0]), row


def statuses_of_header():
    body = re.search(r"/\*\* Status codes of the module\. \*/\nenum \{(.*?)\n\};", read("include/olv_twamp.h"),
                     re.DOTALL).group(1)
    return dict(re.findall(r"^    (\w+) = (\w+)", body, re.MULTILINE))


def codes_of_platform(prefix):
    return dict(re.findall(rf"^    ({prefix}\w+) = (\w+)", read("sim/olv_sim/statuses.hpp"), re.MULTILINE))


def texts_of(path):
    return dict(re.findall(r'case (\w+):\s+return "([^"]*)";', read(path)))


class Messages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.page = read("docs/messages.md")
        cls.rows = list(rows_of_messages(cls.page))
        cls.on_page = {lines for lines, _ in cls.rows}

    def test_every_text_of_the_library_is_on_the_page(self):
        texts = {text for source in library_sources() for text in string_literals(source)} - CARRIERS
        self.assertGreater(len(texts), 80)
        for text in sorted(texts):
            with self.subTest(text=text):
                self.assertIn(console_lines(text), self.on_page)

    def test_every_text_of_the_page_is_in_the_library(self):
        texts = {console_lines(text) for source in library_sources() for text in string_literals(source)}
        for lines in sorted(self.on_page):
            with self.subTest(lines=lines):
                self.assertIn(lines, texts)

    def test_every_message_has_its_severity_and_its_status(self):
        values = statuses_of_header()
        checked = 0
        for source in library_sources():
            for name, arguments in calls(source, REPORTING):
                texts = [text for kind, text in arguments if kind == "string" and text not in CARRIERS]
                if not texts:
                    continue
                self.assertEqual(len(texts), 1, arguments)
                names = [text for kind, text in arguments if kind == "name"]
                severity = next((SEVERITIES[known] for known in names if known in SEVERITIES), "ERROR")
                if "UNKNOWN" in name.upper():
                    severity = "always"
                statuses = {values[known] for known in names if known in values}
                with self.subTest(text=texts[0]):
                    self.assertTrue(self.has_row(console_lines(texts[0]), severity, statuses), (severity, statuses))
                checked += 1
        self.assertGreater(checked, 40)

    def has_row(self, lines, severity, statuses):
        cells = [row[1] for quoted, row in self.rows if quoted == lines]
        return any(cell.split(",")[0] == severity and statuses <= set(re.findall(r"\w+", cell)) for cell in cells)

    def test_a_row_has_all_its_cells(self):
        for header, rows in tables(self.page):
            for row in rows:
                with self.subTest(row=row[0]):
                    self.assertEqual(len(row), len(header))
                    self.assertNotEqual(row[0], "")

    def test_every_status_of_the_header_has_its_value_and_its_text(self):
        values = statuses_of_header()
        self.assertEqual(len(values), 23)
        texts = texts_of("sim/framework/statuses.cpp")
        rows = next(rows for header, rows in tables(self.page) if header[:3] == ["value", "name", "text"])
        self.assertEqual([(name.strip("`"), value, text) for value, name, text, *_ in rows],
                         [(name, value, texts[name]) for name, value in values.items()])

    def test_every_code_of_the_software_platform_has_its_text(self):
        framework, rte = (rows for header, rows in tables(self.page) if header == ["value", "text"])
        for rows, prefix, path in ((framework, "framework_", "sim/framework/statuses.cpp"),
                                   (rte, "rte_", "sim/rte/statuses.cpp")):
            texts = texts_of(path)
            expected = [[value, texts[name]] for name, value in codes_of_platform(prefix).items() if value != "0"]
            self.assertGreater(len(expected), 7)
            self.assertEqual(rows, expected)

    def test_every_link_within_the_page_leads_somewhere(self):
        headings = re.findall(r"^#+ (.*)$", self.page, re.MULTILINE)
        anchors = {heading.lower().replace(" ", "-") for heading in headings}
        for target in re.findall(r"\]\(#([^)]*)\)", self.page):
            self.assertIn(target, anchors)


class Reader(unittest.TestCase):
    """What the other tests rely on."""

    SOURCE = '''
    #include "not_a_text.h"
    // "nor this"
    TWAMP_FAIL(call, fatal, STATUS, "One "  /* "two" */
               "text\\n", name("inner", 'x'));
    '''

    def test_joins_literals_and_leaves_comments_and_includes_out(self):
        self.assertEqual(string_literals(self.SOURCE), ["One text\n", "inner"])

    def test_finds_the_arguments_of_a_call(self):
        (name, arguments), = calls(self.SOURCE, {"TWAMP_FAIL"})
        self.assertEqual(name, "TWAMP_FAIL")
        self.assertEqual([text for kind, text in arguments if kind == "name"],
                         ["call", "fatal", "STATUS", "name"])

    def test_reads_a_table_with_blanks_in_its_quotes(self):
        page = "| console line | status |\n|---|---|\n| ` a: %d `<br>`b, ` | 1 |\n| `c` | |\n"
        (header, rows), = tables(page)
        self.assertEqual(header, ["console line", "status"])
        self.assertEqual(quoted_lines(rows[0][0]), (" a: %d ", "b, "))
        self.assertEqual(rows[1], ["`c`", ""])

    def test_refuses_a_raw_literal(self):
        with self.assertRaises(ValueError):
            tokens('R"(text)"')


if __name__ == "__main__":
    unittest.main()
