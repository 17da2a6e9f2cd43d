"""Replays the transcripts of docs/tutorial.md, and shows that a line that changes is noticed.

OLV_PROGRAMS is the folder of the programs.
"""

import dataclasses
import os
import unittest
from collections.abc import Iterator
from pathlib import Path

from replay import Replay
from transcript import SESSION_PROMPT, SHELL_PROMPT, Names, Step, difference, steps_of

ROOT = Path(__file__).parent.parent.parent

Printed = list[tuple[Step, list[str]]]


def agree(all_printed: Printed, names: Names | None = None) -> bool:
    names = names or Names()
    return not any(difference(step, printed, names) for step, printed in all_printed)


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
        cls.differences: list[str] = []
        names = Names()

        def check(step: Step, printed: list[str]) -> None:
            cls.printed.append((step, printed))
            cls.differences.append(difference(step, printed, names))

        Replay(ROOT, os.environ["OLV_PROGRAMS"], names, check).run(cls.steps)

    def test_what_is_printed_is_what_the_page_shows(self) -> None:
        self.assertEqual("\n".join(filter(None, self.differences)), "")

    def test_every_step_was_typed(self) -> None:
        self.assertGreater(len(self.steps), 40)
        self.assertEqual(sorted(step.line for step, _ in self.printed), [step.line for step in self.steps])

    def test_a_line_that_changes_is_noticed_on_the_page_and_in_what_is_printed(self) -> None:
        for index, (step, printed) in enumerate(self.printed):
            changed = [(dataclasses.replace(step, output=output), printed) for output in changes_of(step.output)]
            changed += [(step, output) for output in changes_of(printed)]
            for each in changed:
                with self.subTest(page=each[0], printed=each[1]):
                    self.assertFalse(agree([*self.printed[:index], each]))


class Transcript(unittest.TestCase):
    """What the replay relies on."""

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
        with self.assertRaises(ValueError):
            steps_of("```console\nprinted\n$ typed\n```\n")

    def test_takes_for_the_same_what_varies_and_no_more(self) -> None:
        names = Names()
        for agrees, on_page, printed in (
            (True, "received packets: 20", "received packets: 20"),
            (False, "received packets: 20", "received packets: 21"),
            (False, "lost 0 (0.00 %)", "lost 0 (0.01 %)"),
            (False, "ID 0x1", "ID 0x2"),
            (True, "p99.9    102.7    57.5", "p99.9   4712.9   -57.6"),
            (False, "p99.9    102.7    57.5", "p99.9   4712.9"),
            (False, "p99.9    102.7", "p99.8    102.7"),
            (False, "p50    102.7", "p50    102.75"),
            (False, "p50    102.7", "p50    102"),
            (True, "clock is 6.5 us behind, if both ways", "clock is 1.250 s ahead, if both ways"),
            (False, "clock is 6.5 us behind, if both ways", "clock is 6.5 us, if both ways"),
            (True, "its clock not synchronised, wrong by up to 9.6 us", "its clock synchronised, wrong by up to 16.000 s"),
            (False, "its clock not synchronised, wrong by up to 9.6 us", "its clock not synchronised, wrong by up to"),
            (True, "time stamps: kernel", "time stamps: kernel (of 20 requests and 19 replies)"),
            (False, "time stamps: kernel", "time stamps: hardware"),
            (True, "twamp.c:182 [1795275929:00767362] in", "twamp.c:9 [1895275929:00767363] in"),
            (False, "twamp.c:182 in", "twamp_bind.c:182 in"),
            (True, "2026-11-21 15:43:39 UTC", "2027-01-01 00:00:00 UTC"),
            (False, "2026-11-21 15:43:39 UTC", "2027-01-01"),
            (True, "listening at 127.0.0.1:4001", "listening at 127.0.0.1:5001"),
            (True, "packets to 127.0.0.1:4001", "packets to 127.0.0.1:5001"),
            (False, "packets to 127.0.0.1:4001", "packets to 127.0.0.1:5002"),
            (False, "packets to 127.0.0.1:4002", "packets to 127.0.0.1:5001"),
            (True, "TWAMP module 0xa3 up", "TWAMP module 0x32029e50 up"),
            (False, "TWAMP module 0xa3 up", "TWAMP module 0x32029e51 up"),
        ):
            with self.subTest(on_page=on_page, printed=printed):
                self.assertEqual(agree([(Step(1, SESSION_PROMPT, "command", False, [on_page]), [printed])], names), agrees)
        self.assertEqual(names.in_command("twamp-probe 127.0.0.1:4001 --count 20"), "twamp-probe 127.0.0.1:5001 --count 20")

        step = Step(1, SESSION_PROMPT, "watch --count 3", False, ["west   178   99.6"])
        for agrees, printed in ((True, "west  1179  102.0"), (False, "east   178   99.6"), (False, "west   178")):
            self.assertEqual(agree([(step, [printed])]), agrees, printed)


if __name__ == "__main__":
    unittest.main()
