"""Compares a program's --help with its manual page and has mandoc check the page.

OLV_PROGRAM is the program, OLV_MANUAL its page.
"""

import os
import re
import subprocess
import unittest


def options_of_help() -> set[str]:
    """What the lines of the list of options begin with: "  -h,--help  ...", "  --count UINT ..."."""
    help_text = subprocess.run(
        [os.environ["OLV_PROGRAM"], "--help"], check=True, capture_output=True, text=True
    ).stdout
    options: set[str] = set()
    for line in help_text.splitlines():
        if re.match(r" {2}-", line):
            options.update(line.split()[0].split(","))
    return options


def options_of_page() -> set[str]:
    """What the items of the list of options are named: ".It Fl -count Ar packets", ".It Fl h , -help"."""
    options: set[str] = set()
    with open(os.environ["OLV_MANUAL"], encoding="utf-8") as page:
        for line in page:
            if line.startswith(".It Fl "):
                options.update("-" + name for name in re.findall(r"(?:Fl|,) (-?[0-9a-z][0-9a-z-]*)", line))
    return options


class Manual(unittest.TestCase):
    def test_every_option_is_in_the_page(self) -> None:
        found = options_of_help()
        self.assertIn("--help", found)
        self.assertEqual(found - options_of_page(), set())

    def test_every_option_of_the_page_exists(self) -> None:
        found = options_of_page()
        self.assertIn("--help", found)
        self.assertEqual(found - options_of_help(), set())

    def test_the_page_has_nothing_to_complain_about(self) -> None:
        check = subprocess.run(
            ["mandoc", "-Tlint", "-W", "warning", os.environ["OLV_MANUAL"]],
            check=False,
            capture_output=True,
            text=True,
        )
        self.assertEqual(check.stdout + check.stderr, "")
        self.assertEqual(check.returncode, 0)


if __name__ == "__main__":
    unittest.main()
