#!/usr/bin/env python3
"""What the library's operations cost beside their floors.

    python3 bench/library_report.py REPORT

REPORT is Google Benchmark's, as JSON, of repeated runs named OPERATION/library and OPERATION/floor. The figure of an
operation is the ratio of the two medians.
"""
import json
import sys
from pathlib import Path

from reports import OPERATIONS, Limit, medians, wholeness

LIMIT = 1.15
SIDES = ("library", "floor")


def operations(times):
    """Those of which both sides were measured, in their order."""
    names = dict.fromkeys(operation for operation, _ in times)
    return [name for name in names if all((name, side) in times for side in SIDES)]


def ratio(times, operation):
    return times[operation, "library"] / times[operation, "floor"]


def table(report):
    times = medians(report, 2)
    lines = [f"{'operation':12} {'library':>10} {'floor':>10} {'ratio':>7} {'limit':>7}"]
    for name in operations(times):
        library, floor = (times[name, side] for side in SIDES)
        lines.append(f"{name:12} {library:7.1f} ns {floor:7.1f} ns {ratio(times, name):7.3f} {LIMIT:7.2f}")
    return "\n".join(lines)


def limits(report):
    times = medians(report, 2)
    expected = [f"{operation}/{side}" for operation in OPERATIONS for side in SIDES]
    return [
        wholeness("every operation and its floor are there", expected, ["/".join(name) for name in times]),
        *(
            Limit(
                f"{name}: at most {LIMIT} times its floor",
                f"{ratio(times, name):.3f}",
                ratio(times, name) <= LIMIT,
                timing=True,
            )
            for name in operations(times)
        ),
    ]


def main():
    if len(sys.argv) != 2:
        print("usage: library_report.py REPORT", file=sys.stderr)
        return 2
    print(table(json.loads(Path(sys.argv[1]).read_text(encoding="utf-8"))))
    return 0


if __name__ == "__main__":
    sys.exit(main())
