#!/usr/bin/env python3
"""Prints what operations cost beside more and more responders, and fails where they cost too much there.

    python3 bench/scale_report.py REPORT

REPORT is Google Benchmark's, as JSON, of repeated runs named OPERATION/ORDER/RESPONDERS. Figures are ratios of medians
to those with 1,000 responders.
"""
import json
import statistics
import sys
from pathlib import Path

BASE = 1_000
MOST = 16_000_000
LIMIT = 1.5  # of an operation with MOST responders that are visited in turn
LIBRARY_BYTES = 32  # a responder's record
PLATFORM_BYTES = 160


def medians(report):
    """Nanoseconds for one operation: by operation and order, by responders."""
    runs = {}
    for run in sorted(report["benchmarks"], key=lambda run: run["family_index"]):
        if run["run_type"] == "iteration":
            operation, order, responders = run["run_name"].split("/")[:3]
            times = runs.setdefault((operation, order), {}).setdefault(int(responders), [])
            times.append(1e9 / run["items_per_second"])
    return {
        name: {count: statistics.median(times) for count, times in counts.items()} for name, counts in runs.items()
    }


def ratios(times):
    return {name: {count: time / counts[BASE] for count, time in counts.items()} for name, counts in times.items()}


def memory(report):
    """Bytes for each of MOST responders: the library's own, the platform's."""
    run = next(run for run in report["benchmarks"] if run["run_name"].split("/")[2] == str(MOST))
    return run["library_bytes"], run["platform_bytes"]


def table(found):
    counts = sorted(next(iter(found.values())))
    lines = [f"{'operation':12} {'order':10}" + "".join(f"{count:>12,}" for count in counts)]
    for (operation, order), by_count in found.items():
        lines.append(f"{operation:12} {order:10}" + "".join(f"{by_count[count]:12.2f}" for count in counts))
    return "\n".join(lines)


def failures(found, library_bytes, platform_bytes):
    told = [
        f"{operation}: {by_count[MOST]:.2f} times as long with {MOST:,} responders, the limit is {LIMIT}"
        for (operation, order), by_count in found.items()
        if order == "in_turn" and by_count[MOST] > LIMIT
    ]
    if library_bytes > LIBRARY_BYTES:
        told.append(f"the library holds {library_bytes:.1f} bytes a responder, its record has {LIBRARY_BYTES}")
    if platform_bytes > PLATFORM_BYTES:
        told.append(f"the platform takes {platform_bytes:.1f} bytes a responder, the limit is {PLATFORM_BYTES}")
    return told


def main():
    if len(sys.argv) != 2:
        print("usage: scale_report.py REPORT", file=sys.stderr)
        return 2
    report = json.loads(Path(sys.argv[1]).read_text(encoding="utf-8"))
    found = ratios(medians(report))
    library_bytes, platform_bytes = memory(report)
    print(table(found))
    print(f"bytes a responder: {library_bytes:.1f} of the library, {platform_bytes:.1f} of the platform")
    told = failures(found, library_bytes, platform_bytes)
    for failure in told:
        print(f"scale: {failure}", file=sys.stderr)
    return 1 if told else 0


if __name__ == "__main__":
    sys.exit(main())
