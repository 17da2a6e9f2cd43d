#!/usr/bin/env python3
"""Fills in the tables of docs/performance.md from what the benchmarks wrote.

    python3 bench/tables.py REPORTS BASELINE DOCUMENT

REPORTS is the folder of the benchmarks' JSON, BASELINE the counts of instructions. A table stands between
"<!-- table: NAME -->" and "<!-- end -->"; one whose report is not there, not whole or of a quick run stays as it is.
"""
import json
import re
import sys
from pathlib import Path

import instructions
import library_report
import scale_report
from reports import load, medians, obstacle

TABLE = re.compile(r"(<!-- table: (\w+) -->\n).*?(<!-- end -->)", re.DOTALL)


def markdown(heading, rows):
    """Names to the left, figures to the right."""
    numbers = ["---" if column == 0 else "---:" for column in range(len(heading))]
    lines = [f"| {' | '.join(cells)} |" for cells in (heading, numbers, *rows)]
    return "\n".join(lines) + "\n"


def library(report):
    times = medians(report, 2)
    rows = [[name, f"{library_report.ratio(times, name):.3f}"] for name in library_report.operations(times)]
    return markdown(["operation", "times its floor"], rows)


def counted(baseline):
    rows = []
    for section in instructions.SECTIONS:
        counts = baseline[section.key]
        for names, most in section.limits:
            rows.append([" + ".join(names), f"{section.total(counts, names):g}", str(most)])
        alone = [name for name in counts if (name,) not in dict(section.limits)]
        rows.extend([name, f"{section.total(counts, [name]):g}", ""] for name in alone)
    return markdown(["operation, or packet", "instructions", "limit"], rows)


def scale(report):
    found = scale_report.ratios(report)
    counts = sorted({count for by_count in found.values() for count in by_count})
    rows = [
        [f"{operation}, {order.replace('_', ' ')}", *(f"{by_count[count]:.2f}" for count in counts)]
        for (operation, order), by_count in found.items()
    ]
    return markdown(["operation", *(f"{count:,}" for count in counts)], rows)


def memory(report):
    library_bytes, platform_bytes = scale_report.memory(report)
    rows = [
        ["the library", f"{library_bytes:.1f}", str(scale_report.LIBRARY_BYTES)],
        ["the platform", f"{platform_bytes:.1f}", str(scale_report.PLATFORM_BYTES)],
    ]
    return markdown(["held by", "bytes a responder", "limit"], rows)


def reflect(report):
    rows = []
    for case in report["cases"]:
        reflector = case["servers"]["reflector"]
        rows.append(
            [
                f"{case['window']}",
                f"{case['sessions']:,}",
                str(case["octets"]),
                f"{case['replies_by_batched_echo']:.3f}",
                f"{case['replies_by_plain_echo']:.3f}",
                f"{case['p50_by_plain_echo']:.3f}",
                str(reflector["lost"]),
                str(reflector["kernel_drops"]),
            ]
        )
    heading = ["window", "sessions", "octets", "replies by batched echo", "by plain echo", "round trip by plain echo"]
    return markdown([*heading, "lost", "kernel drops"], rows)


def workers(report):
    rows = [
        [
            beside,
            f"{report[f'replies_by_{key}']:.3f}",
            f"{report[f'server_ns_by_{key}']:.3f}",
        ]
        for beside, key in (("one worker", "one_worker"), ("servers that share nothing", "servers_apart"))
    ]
    return markdown([f"{report['workers']} workers beside", "replies per second", "processor time of a reply"], rows)


def clock(report):
    rows = report["rows"]
    seconds = rows[-1]["begin_seconds"] - rows[0]["begin_seconds"]
    return markdown(
        ["", "figure"],
        [
            ["replies", f"{sum(row['replies'] for row in rows):,}"],
            ["minutes, to the last row", f"{seconds / 60:.1f}"],
            ["farthest that a stamp was outside", f"{max(row['outside_us'] for row in rows):.1f} µs"],
            ["largest offset", f"{max(abs(row['offset_us']) for row in rows):.1f} µs"],
            ["error at most", f"{report['largest_error_us']:.1f} µs"],
            ["drift in an hour", f"{report['drift_us_per_hour']:.1f} µs"],
            ["T3 before T2", str(report["reversed"])],
        ],
    )


# By name: the part of scripts/bench.sh that it is made of, and how.
TABLES = {
    "library": ("library", library),
    "scale": ("scale", scale),
    "memory": ("scale", memory),
    "reflect": ("reflect", reflect),
    "workers": ("workers", workers),
    "clock": ("clock", clock),
}


def filled(document, reports, baseline):
    def fill(found):
        before, name, after = found.groups()
        if name == "instructions":
            return before + counted(baseline) + after
        part, make = TABLES[name]
        return found.group() if obstacle(reports, part) else before + make(load(reports, part)) + after

    return TABLE.sub(fill, document)


def main():
    if len(sys.argv) != 4:
        print("usage: tables.py REPORTS BASELINE DOCUMENT", file=sys.stderr)
        return 2
    reports, baseline, document = (Path(argument) for argument in sys.argv[1:])
    text = document.read_text(encoding="utf-8")
    counts = json.loads(baseline.read_text(encoding="utf-8"))
    document.write_text(filled(text, reports, counts), encoding="utf-8")
    print(f"tables: {document}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
