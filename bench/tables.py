#!/usr/bin/env python3
"""Fills in the tables of docs/performance.md from what the benchmarks wrote.

    python3 bench/tables.py REPORTS DOCUMENT

REPORTS is the folder of the reports; counts of instructions are those of bench/baseline.json. A table stands between
"<!-- table: NAME -->" and "<!-- end -->". It stays as it is where its report is not there, not whole or of a quick run.
"""
import re
import sys
from fnmatch import fnmatchcase
from pathlib import Path

from report import load, obstacle

HERE = Path(__file__).resolve().parent
PLACE = re.compile(r"(<!-- table: (\w+) -->\n).*?(<!-- end -->)", re.DOTALL)

# By name: report, runs, what the first words of their names are, and the columns: heading, figure, form.
TABLES = {
    "library": (
        *("library", "*/library", ["operation"]),
        [("times its platform calls", "nanoseconds/platform_calls", ".3f")],
    ),
    "instructions": ("baseline", "*", ["operation, or packet"], [("instructions", "instructions", "g")]),
    "scale": (
        *("scale", "*/1000", ["operation", "responders"]),
        [(f"{count:,}", f"nanoseconds:{count}/1000", ".2f") for count in (1, 1000, 1_000_000, 16_000_000)],
    ),
    "memory": (
        *("scale", "statistics/in_turn/16000000", []),
        [("the library's bytes", "library_bytes", ".1f"), ("the platform's bytes", "platform_bytes", ".1f")],
    ),
    "reflect": (
        *("reflect", "*/reflector", ["window", "sessions", "octets"]),
        [
            ("replies by batched echo", "replies_per_second/batched_echo", ".3f"),
            ("by plain echo", "replies_per_second/plain_echo", ".3f"),
            ("round trip by plain echo", "p50_ns/plain_echo", ".3f"),
            ("lost", "lost", ".0f"),
            ("kernel drops", "kernel_drops", ".0f"),
        ],
    ),
    "workers": (
        *("workers", "workers/all", []),
        [
            ("replies by one worker", "replies_per_second/one", ".3f"),
            ("by servers apart", "replies_per_second/apart", ".3f"),
            ("time of a reply by one worker", "server_ns/one", ".3f"),
            ("by servers apart", "server_ns/apart", ".3f"),
        ],
    ),
    "clock": (
        *("clock", "clock/reflector", []),
        [
            ("replies", "replies", ",.0f"),
            ("seconds, to the last row", "begin_seconds", ".0f"),
            ("farthest outside, µs", "outside_us", ".1f"),
            ("largest offset, µs", "offset_us", ".1f"),
            ("error at most, µs", "error_us", ".1f"),
            ("drift in an hour, µs", "drift_us_per_hour", ".1f"),
            ("T3 before T2", "reversed", ".0f"),
        ],
    ),
}


def rows_of(report, pattern, names, columns):
    """The cells of a table, its heading first."""
    yield [*names, *(heading for heading, _, _ in columns)]
    for run in report.runs:
        if fnmatchcase(run, pattern):
            words = [word.replace("_", " ") for word in run.split("/")[: len(names)]]
            yield [*words, *(format(report.value(run, figure), form) for _, figure, form in columns)]


def markdown(rows, names):
    """Lines of a table; so many columns, the first ones, are names and stand to the left."""
    heading, *rows = rows
    widths = [max(len(row[place]) for row in (heading, *rows)) for place in range(len(heading))]

    def line(cells):
        padded = [f"{cell:{'<' if place < names else '>'}{widths[place]}}" for place, cell in enumerate(cells)]
        return f"| {' | '.join(padded)} |\n"

    rule = ["-" * width if place < names else "-" * (width - 1) + ":" for place, width in enumerate(widths)]
    return "".join(map(line, (heading, rule, *rows)))


def filled(document, reports):
    """The document with its tables made anew."""

    def fill(found):
        before, name, after = found.groups()
        part, pattern, names, columns = TABLES[name]
        folder = HERE if part == "baseline" else reports
        why = obstacle(folder, part)
        if why:
            print(f"tables: {why}: the table '{name}' stays")
            return found.group()
        return before + markdown(rows_of(load(folder, part), pattern, names, columns), len(names)) + after

    return PLACE.sub(fill, document)


def main(reports, document):
    document.write_text(filled(document.read_text(encoding="utf-8"), reports), encoding="utf-8")


if __name__ == "__main__":
    main(*map(Path, sys.argv[1:]))
