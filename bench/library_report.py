#!/usr/bin/env python3
"""Prints what the library's operations cost beside their floors, and fails where one costs too much.

    python3 bench/library_report.py REPORT

REPORT is Google Benchmark's, as JSON, of repeated runs named OPERATION/library and OPERATION/floor. The figure of an
operation is the ratio of the two medians.
"""
import json
import statistics
import sys
from pathlib import Path

LIMIT = 1.15


def medians(report):
    """Median in nanoseconds for one operation, by operation and side, in the order in which they were
    registered: that of the report is the order of the repetitions."""
    runs = {}
    for run in sorted(report["benchmarks"], key=lambda run: run["family_index"]):
        if run.get("error_occurred"):
            raise ValueError(f"{run['name']}: {run['error_message']} failed")
        if run["run_type"] == "iteration":
            operation, side = run["run_name"].split("/")[:2]
            runs.setdefault(operation, {}).setdefault(side, []).append(1e9 / run["items_per_second"])
    return {
        operation: {side: statistics.median(times) for side, times in sides.items()}
        for operation, sides in runs.items()
    }


def ratio(sides):
    return sides["library"] / sides["floor"]


def table(times):
    lines = [f"{'operation':12} {'library':>10} {'floor':>10} {'ratio':>7}"]
    for operation, sides in times.items():
        lines.append(
            f"{operation:12} {sides['library']:7.1f} ns {sides['floor']:7.1f} ns {ratio(sides):7.3f}"
        )
    return "\n".join(lines)


def failures(times):
    return [
        f"{operation}: {ratio(sides):.3f} times its floor, the limit is {LIMIT}"
        for operation, sides in times.items()
        if ratio(sides) > LIMIT
    ]


def main():
    if len(sys.argv) != 2:
        print("usage: library_report.py REPORT", file=sys.stderr)
        return 2
    times = medians(json.loads(Path(sys.argv[1]).read_text(encoding="utf-8")))
    print(table(times))
    found = failures(times)
    for failure in found:
        print(f"bench: {failure}", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
