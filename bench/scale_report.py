#!/usr/bin/env python3
"""What operations cost beside more and more responders, and what memory those take.

    python3 bench/scale_report.py REPORT

REPORT is Google Benchmark's, as JSON, of repeated runs named OPERATION/ORDER/RESPONDERS. Figures are ratios of medians
to those with 1,000 responders.
"""
import json
import sys
from pathlib import Path

from reports import OPERATIONS, Limit, is_quick, medians, wholeness

BASE = 1_000
POPULATIONS = (1, BASE, 1_000_000, 16_000_000)
QUICK_POPULATIONS = (1, BASE, 100_000)
LIMIT = 1.5  # of an operation with the most responders, that are visited in turn
ORDERS = ("in_turn", "at_random")
LIBRARY_BYTES = 32  # a responder's record
PLATFORM_BYTES = 160


def populations(report):
    return QUICK_POPULATIONS if is_quick(report) else POPULATIONS


def ratios(report):
    """By operation and order, by responders."""
    times = medians(report, 3)
    found = {}
    for (operation, order, responders), time in times.items():
        if (operation, order, str(BASE)) in times:
            by_count = found.setdefault((operation, order), {})
            by_count[int(responders)] = time / times[operation, order, str(BASE)]
    return found


def memory(report):
    """Bytes for each of the most responders: the library's own, the platform's."""
    runs = [run for run in report["benchmarks"] if run["run_type"] == "iteration"]
    run = max(runs, key=lambda run: int(run["run_name"].split("/")[2]))
    return run["library_bytes"], run["platform_bytes"]


def table(report):
    found = ratios(report)
    counts = sorted({count for by_count in found.values() for count in by_count})
    lines = [f"{'operation':12} {'order':10}" + "".join(f"{count:>12,}" for count in counts) + f" {'limit':>7}"]
    for (operation, order), by_count in found.items():
        cells = "".join(f"{by_count[count]:12.2f}" if count in by_count else f"{'-':>12}" for count in counts)
        lines.append(f"{operation:12} {order:10}{cells}" + (f" {LIMIT:7.1f}" if order == ORDERS[0] else ""))
    library_bytes, platform_bytes = memory(report)
    lines.append(
        f"bytes a responder: {library_bytes:.1f} of the library, limit {LIBRARY_BYTES}; "
        f"{platform_bytes:.1f} of the platform, limit {PLATFORM_BYTES}"
    )
    return "\n".join(lines)


def limits(report):
    found = ratios(report)
    expected = populations(report)
    most = expected[-1]
    library_bytes, platform_bytes = memory(report)
    return [
        wholeness(
            f"every operation is there, in both orders, with up to {most:,} responders",
            [f"{name}/{order}/{count}" for name in OPERATIONS for order in ORDERS for count in expected],
            ["/".join(name) for name in medians(report, 3)],
        ),
        *(
            Limit(
                f"{operation}: with {most:,} responders at most {LIMIT} times as long",
                f"{by_count[most]:.2f}",
                by_count[most] <= LIMIT,
                timing=True,
            )
            for (operation, order), by_count in found.items()
            if order == ORDERS[0] and most in by_count
        ),
        Limit(
            f"the library holds at most {LIBRARY_BYTES} bytes a responder",
            f"{library_bytes:.1f}",
            library_bytes <= LIBRARY_BYTES,
        ),
        Limit(
            f"the platform takes at most {PLATFORM_BYTES} bytes a responder",
            f"{platform_bytes:.1f}",
            platform_bytes <= PLATFORM_BYTES,
        ),
    ]


def main():
    if len(sys.argv) != 2:
        print("usage: scale_report.py REPORT", file=sys.stderr)
        return 2
    print(table(json.loads(Path(sys.argv[1]).read_text(encoding="utf-8"))))
    return 0


if __name__ == "__main__":
    sys.exit(main())
