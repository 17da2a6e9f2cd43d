"""Replays the transcripts of docs/tutorial.md, and shows that a line that changes is noticed.

OLV_PROGRAMS is the folder of the programs.
"""

import dataclasses
import os
import unittest
from collections.abc import Iterator
from pathlib import Path

from replay import Replay
from transcript import SESSION_PROMPT, SHELL_PROMPT, Mismatch, Names, Step, compare, steps_of

ROOT = Path(__file__).parent.parent.parent

Printed = list[tuple[Step, list[str]]]


def agree(all_printed: Printed) -> bool:
    names = Names()
    try:
        for step, printed in all_printed:
            compare(step, printed, names)
    except Mismatch:
        return False
    return True


def changes_of(lines: list[str]) -> Iterator[list[str]]:
    """These lines with one of them left out, said twice, or with a word more or less; and with a line more."""
    for index, line in enumerate(lines):
        before, after = lines[:index], lines[index + 1 :]
        yield before + after
        yield [*before, line, line, *after]
        yield [*before, line + " changed", *after]
        if line.split():
            yield [*before, line.rsplit(maxsplit=1)[0] if " " in line.strip() else "", *after]
    yield [*lines, "one line more"]


class Tutorial(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        cls.steps = steps_of((ROOT / "docs" / "tutorial.md").read_text(encoding="utf-8"))
        cls.printed: Printed = []
        cls.mismatches: list[str] = []
        names = Names()

        def check(step: Step, printed: list[str]) -> None:
            cls.printed.append((step, printed))
            try:
                compare(step, printed, names)
            except Mismatch as mismatch:
                cls.mismatches.append(str(mismatch))

        Replay(ROOT, os.environ["OLV_PROGRAMS"], names, check).run(cls.steps)

    def test_what_is_printed_is_what_the_page_shows(self) -> None:
        self.assertEqual("\n".join(self.mismatches), "")

    def test_every_step_was_typed(self) -> None:
        self.assertGreater(len(self.steps), 40)
        self.assertEqual(sorted(step.line for step, _ in self.printed), [step.line for step in self.steps])

    def test_a_line_of_the_page_that_changes_is_noticed(self) -> None:
        for index, (step, printed) in enumerate(self.printed):
            for output in changes_of(step.output):
                with self.subTest(command=step.command, output=output):
                    changed = (dataclasses.replace(step, output=output), printed)
                    self.assertFalse(agree([*self.printed[:index], changed]))

    def test_a_printed_line_that_changes_is_noticed(self) -> None:
        for index, (step, printed) in enumerate(self.printed):
            for output in changes_of(printed):
                with self.subTest(command=step.command, output=output):
                    self.assertFalse(agree([*self.printed[:index], (step, output)]))


class Transcript(unittest.TestCase):
    """What the replay relies on."""

    def agrees(self, on_page: str, printed: str, command: str = "command", names: Names | None = None) -> bool:
        step = Step(1, SESSION_PROMPT, command, False, on_page.splitlines())
        try:
            compare(step, printed.splitlines(), names or Names())
        except Mismatch:
            return False
        return True

    def test_reads_steps_with_their_output(self) -> None:
        page = "text\n```console\n$ one\n1\n\ntwampctl> two\n```\n$ no step\n```\n$ none\n```\n```console meanwhile\n$ three\n```\n"
        self.assertEqual(
            steps_of(page),
            [
                Step(3, SHELL_PROMPT, "one", False, ["1", ""]),
                Step(6, SESSION_PROMPT, "two", False, []),
                Step(13, SHELL_PROMPT, "three", True, []),
            ],
        )

    def test_refuses_output_of_nothing(self) -> None:
        with self.assertRaises(ValueError):
            steps_of("```console\nprinted\n$ typed\n```\n")

    def test_counts_are_literal(self) -> None:
        self.assertTrue(self.agrees("received packets: 20", "received packets: 20"))
        self.assertFalse(self.agrees("received packets: 20", "received packets: 21"))
        self.assertFalse(self.agrees("lost: 0 (0.00 %)", "lost: 0 (0.01 %)"))
        self.assertFalse(self.agrees("ID 0x1", "ID 0x2"))

    def test_measured_times_vary_in_their_number(self) -> None:
        self.assertTrue(self.agrees("p99.9    102.7    57.5", "p99.9   4712.9   -57.6"))
        self.assertFalse(self.agrees("p99.9    102.7    57.5", "p99.9   4712.9"))
        self.assertFalse(self.agrees("p99.9    102.7", "p99.8    102.7"))
        self.assertFalse(self.agrees("p50    102.7", "p50    102.75"))
        self.assertFalse(self.agrees("p50    102.7", "p50    102"))

    def test_times_of_day_and_source_lines_vary(self) -> None:
        self.assertTrue(self.agrees("twamp.c:182 [1795275929:00767362] in", "twamp.c:9 [1895275929:00767363] in"))
        self.assertTrue(self.agrees("2026-11-21 15:43:39 UTC", "2027-01-01 00:00:00 UTC"))
        self.assertFalse(self.agrees("twamp.c:182 in", "twamp_bind.c:182 in"))
        self.assertFalse(self.agrees("2026-11-21 15:43:39 UTC", "2027-01-01"))

    def test_a_port_of_the_page_stands_for_one_of_the_program(self) -> None:
        names = Names()
        self.assertTrue(self.agrees("listening at 127.0.0.1:4001", "listening at 127.0.0.1:5001", names=names))
        self.assertTrue(self.agrees("packets to 127.0.0.1:4001", "packets to 127.0.0.1:5001", names=names))
        self.assertFalse(self.agrees("packets to 127.0.0.1:4001", "packets to 127.0.0.1:5002", names=names))
        self.assertFalse(self.agrees("packets to 127.0.0.1:4002", "packets to 127.0.0.1:5001", names=names))
        self.assertEqual(names.in_command("twamp-probe 127.0.0.1:4001 --count 20"), "twamp-probe 127.0.0.1:5001 --count 20")

    def test_a_record_of_the_page_stands_for_one_of_the_program(self) -> None:
        names = Names()
        self.assertTrue(self.agrees("TWAMP module 0xa3 up", "TWAMP module 0x32029e50 up", names=names))
        self.assertFalse(self.agrees("TWAMP module 0xa3 up", "TWAMP module 0x32029e51 up", names=names))

    def test_numbers_that_are_watched_vary(self) -> None:
        self.assertTrue(self.agrees("west   178   99.6", "west  1179  102.0", command="watch --count 3"))
        self.assertFalse(self.agrees("west   178   99.6", "east   178   99.6", command="watch --count 3"))
        self.assertFalse(self.agrees("west   178   99.6", "west   178", command="watch --count 3"))


if __name__ == "__main__":
    unittest.main()
