#!/usr/bin/env python3
"""Shows the figures of a benchmark, and which limits they meet. Exit status 1: not all are met.

    python3 bench/limits.py REPORTS PART

REPORTS is the folder of the reports. PART is one of scripts/bench.sh, or instructions, which are compared with
bench/baseline.json as well. Figures of time are not judged in a quick run.
"""
import operator
import sys
from fnmatch import fnmatchcase
from pathlib import Path
from typing import NamedTuple

from report import load
from tables import HERE, markdown

RELATIONS = {"<=": operator.le, "<": operator.lt, "==": operator.eq, ">": operator.gt, ">=": operator.ge}
BASELINE_PERCENT = 3  # a count of instructions may differ by so much, either way


class Limit(NamedTuple):
    """What a figure of some runs has to hold to."""

    part: str
    runs: str  # pattern of names; {most} is the largest number of responders
    count: int  # of these runs
    figure: str
    relation: str
    bound: float
    always: bool = False  # holds in a quick run as well


LIMITS = (
    Limit("library", "*/library", 6, "nanoseconds/platform_calls", "<=", 1.15),
    Limit("scale", "*/in_turn/{most}", 6, "nanoseconds/1000", "<=", 1.5),
    Limit("scale", "*/{most}", 12, "library_bytes", "<=", 32, always=True),
    Limit("scale", "*/{most}", 12, "platform_bytes", "<=", 160, always=True),
    Limit("reflect", "1/*/reflector", 4, "p50_ns/plain_echo", "<=", 1.05),
    Limit("reflect", "32/*/reflector", 4, "replies_per_second/batched_echo", ">=", 0.95),
    Limit("reflect", "256/*/reflector", 4, "replies_per_second/batched_echo", ">=", 0.95),
    Limit("reflect", "256/*/reflector", 4, "lost", "==", 0, always=True),
    Limit("reflect", "*/reflector", 12, "replies_per_second", ">", 0, always=True),
    Limit("reflect", "*_echo", 24, "replies_per_second", ">", 0, always=True),
    Limit("reflect", "*/module", 12, "sessions_missed", "==", 0, always=True),
    Limit("workers", "workers/all", 1, "replies_per_second/one", ">=", 1.2),
    Limit("workers", "workers/all", 1, "server_ns/apart", "<=", 1.1),
    Limit("workers", "workers/all", 1, "least_share", ">=", 0.5),
    Limit("workers", "workers/*", 3, "lost", "==", 0, always=True),
    Limit("clock", "clock/reflector", 1, "replies", ">", 0, always=True),
    Limit("clock", "clock/reflector", 1, "reversed", "==", 0, always=True),
    Limit("clock", "clock/reflector", 1, "error_us", "<", 20),
    Limit("instructions", "create + delete", 1, "instructions", "<=", 600),
    Limit("instructions", "statistics", 1, "instructions", "<=", 200),
    Limit("instructions", "* octets", 3, "instructions", "<=", 450),
)


def bound(part, figure):
    """The limit of a figure."""
    return next(limit.bound for limit in LIMITS if (limit.part, limit.figure) == (part, figure))


def number(value):
    return f"{value:,.0f}" if abs(value) >= 1000 else f"{value:.4g}"


def verdict(limit, report):
    """A word, and what it is about: the runs that missed the limit, or the one that came nearest to it."""
    judged = limit.always or not report.quick
    pattern = limit.runs.format(most=100_000 if report.quick else 16_000_000)
    values = {name: report.value(name, limit.figure) for name in report.runs if fnmatchcase(name, pattern)}
    text = f"{pattern}: {limit.figure} {limit.relation} {limit.bound:g}"
    if len(values) != limit.count:
        return "MISSED", f"{text}: of {len(values)} runs instead of {limit.count}"
    missed = [name for name, value in values.items() if not RELATIONS[limit.relation](value, limit.bound)]
    nearest = (min if limit.relation.startswith(">") else max)(values, key=values.get)
    shown = missed if judged and missed else [nearest]
    word = "unjudged" if not judged else "MISSED" if missed else "met"
    return word, f"{text}: {', '.join(f'{name} {number(values[name])}' for name in shown)}"


def baseline_verdicts(report, baseline):
    """Of each count; where one is not there it is 0."""
    counts = [{name: run["instructions"][0] for name, run in each.runs.items()} for each in (report, baseline)]
    for name in counts[0] | counts[1]:
        counted, expected = (each.get(name, 0) for each in counts)
        differs = abs(counted - expected) * 100 > BASELINE_PERCENT * expected
        text = f"{name}: {number(counted)} instructions, in the baseline {number(expected)}, ± {BASELINE_PERCENT} %"
        yield "MISSED" if differs else "met", text


def figures(report):
    """All that was measured, as a table."""
    names = list(dict.fromkeys(figure for run in report.runs.values() for figure in run))
    rows = [["", *names]]
    for run, measured in report.runs.items():
        rows.append([run, *(number(report.value(run, name)) if name in measured else "" for name in names)])
    return markdown(rows, 1)


def main(folder, part):
    """Print figures and verdicts."""
    try:
        report = load(Path(folder), part)
        print(figures(report))
        found = [verdict(limit, report) for limit in LIMITS if limit.part == part]
        if part == "instructions":
            found += baseline_verdicts(report, load(HERE, "baseline"))
    except (OSError, KeyError, ValueError, TypeError) as error:
        found = [("MISSED", f"no whole report: {type(error).__name__} {error}")]
    for word, text in found:
        print(f"{word:8}  {text}")
    return 1 if any(word == "MISSED" for word, _ in found) else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
