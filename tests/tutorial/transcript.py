"""Transcripts of a page, and whether something that was printed is what the page shows.

A fenced block that begins with ```console holds a transcript: lines that begin with a prompt are typed, the lines below
them are printed. "```console meanwhile" is typed and not waited for: what it prints is looked at before the next command
of the same terminal is typed.

Printed lines have to be the page's, but for what is another one each time:

  2026-11-21 15:43:39 UTC, [1795275929:00767362]   an instant
  15.1                      a number with as many decimals, and blanks before it as its column has them; no percentage
  twamp.c:182               the number of a line
  6.5 us behind, not synchronised, wrong by up to 976.6 us, time stamps: kernel   what is said of clocks and stamps
  127.0.0.1:43364, module 0x32029e50   a port, the address of the module record: one of the page stands for one of the
                            program, the same one everywhere, also in what is typed
  what `watch` prints       any number, as packets go on coming
"""

import re
from dataclasses import dataclass, field
from functools import cache
from itertools import zip_longest

SHELL_PROMPT = "$ "
SESSION_PROMPT = "twampctl> "


@dataclass
class Step:
    """Something typed, and what is printed then."""

    line: int
    prompt: str
    command: str
    meanwhile: bool
    output: list[str] = field(default_factory=list)


def steps_of(page: str) -> list[Step]:
    steps: list[Step] = []
    fence = None  # what stands behind the opening fence; nothing outside a block
    for number, line in enumerate(page.splitlines(), 1):
        if line.startswith("```"):
            fence = line.removeprefix("```") if fence is None else None
            is_first = True
            continue
        if fence is None or fence.split()[:1] != ["console"]:
            continue
        prompt = next((each for each in (SHELL_PROMPT, SESSION_PROMPT) if line.startswith(each)), None)
        if prompt is not None:
            steps.append(Step(number, prompt, line.removeprefix(prompt), fence == "console meanwhile"))
        elif is_first:
            raise ValueError(f"line {number}: a transcript begins with a prompt")
        else:
            steps[-1].output.append(line)
        is_first = False
    return steps


VARYING = re.compile(
    r"""
    (?P<date>    \d{4}-\d\d-\d\d\ \d\d:\d\d:\d\d\ UTC )
  | (?P<instant> \[\d+:\d{8}\] )
  | (?P<source>  (?<=\.c:)\d+ )
  | (?P<side>    (?<=[ ])(?:ahead|behind)(?=,\ if\ both\ ways) )
  | (?P<state>   (?<=its\ clock\ )(?:not\ synchronised|synchronised(?:\ at\ times)?) )
  | (?P<error>   (?:(?<=clock\ is\ )|(?<=wrong\ by\ up\ to\ ))\d+\.\d+\ (?:us|ms|s) )
  | (?P<stamps>  (?<=^time\ stamps:\ )(?:user|kernel)(?:\ \(of\ \d+\ requests\ and\ \d+\ replies\))? )
  | (?P<name>    (?<=127\.0\.0\.1:)\d+ | (?<=\ module\ )0x[0-9a-f]+ )
  | (?P<fraction>(?<![a-z\d.])\ *-?\d+\.(?P<decimals>\d+)(?![\d.]|\ %) )
    """,
    re.VERBOSE,
)
ALL_OF_A_KIND = {
    "date": r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d UTC",
    "instant": r"\[\d+:\d{8}\]",
    "source": r"\d+",
    "side": r"(?:ahead|behind)",
    "state": r"(?:not synchronised|synchronised(?: at times)?)",
    "error": r"\d+\.\d+ (?:us|ms|s)",
    "stamps": r"(?:user|kernel)(?: \(of \d+ requests and \d+ replies\))?",
}
ANY_NUMBER = re.compile(r" *\d+(?:\.\d+)?")


class Names:
    """Which port or address of the program one of the page stands for."""

    def __init__(self) -> None:
        self._actual: dict[str, str] = {}

    def in_command(self, command: str) -> str:
        return re.sub(r"\b\d{4,5}\b", lambda found: self._actual.get(found[0], found[0]), command)

    def ports(self) -> set[int]:
        return {int(name) for name in self._actual.values() if name.isdecimal()}

    def stands_for(self, of_page: str, actual: str) -> bool:
        """Learns what is new. Two of the page are two of the program."""
        if of_page not in self._actual and actual not in self._actual.values():
            self._actual[of_page] = actual
        return self._actual.get(of_page) == actual


@cache
def pattern_of(line: str, is_watch: bool) -> tuple[re.Pattern[str], list[str]]:
    """What matches the lines that this one of the page stands for, and the names in its groups."""
    text, names, end = "", [], 0
    for found in (ANY_NUMBER if is_watch else VARYING).finditer(line):
        text += re.escape(line[end : found.start()])
        end = found.end()
        blanks = " +" if found[0].startswith(" ") else ""
        if is_watch:
            text += blanks + r"\d+(?:\.\d+)?(?!\d)"
        elif found["name"] is not None:
            text += r"(0x[0-9a-f]+|\d+)"
            names.append(found["name"])
        elif found["fraction"] is not None:
            text += rf"{blanks}-?\d+\.\d{{{len(found['decimals'])}}}"
        else:
            text += next(pattern for kind, pattern in ALL_OF_A_KIND.items() if found[kind] is not None)
    return re.compile(text + re.escape(line[end:])), names


def line_agrees(expected: str, printed: str, names: Names, is_watch: bool) -> bool:
    pattern, of_page = pattern_of(expected, is_watch)
    found = pattern.fullmatch(printed)
    return found is not None and all(map(names.stands_for, of_page, found.groups()))


def difference(step: Step, printed: list[str], names: Names) -> str:
    """Where what was printed is not what the page shows; empty: nowhere. Learns names from what agrees."""
    is_watch = step.command.startswith("watch")
    for offset, (expected, found) in enumerate(zip_longest(step.output, printed)):
        if expected is None or found is None or not line_agrees(expected.rstrip(), found.rstrip(), names, is_watch):
            where = f"docs/tutorial.md:{step.line + 1 + offset}: below '{step.command}'"
            return f"{where}:\n  page:    {expected!r}\n  printed: {found!r}"
    return ""
