#!/usr/bin/env python3
"""Draws the plots of docs/performance.md from what the benchmarks wrote.

    python3 bench/plots.py REPORTS FOLDER

REPORTS is the folder of the benchmarks' JSON; a plot whose report is not there is left as it is.
"""
import json
import statistics
import sys
from pathlib import Path

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "olv-twamp"  # the same figures give the same bytes
from matplotlib import pyplot  # pylint: disable=wrong-import-position

WIDTH, HEIGHT = 7.5, 4.0


def medians(report, parts):
    """Median nanoseconds for one operation, by the parts of a run's name, which are as many as this."""
    runs = {}
    for run in report["benchmarks"]:
        if run["run_type"] == "iteration":
            name = tuple(run["run_name"].split("/")[:parts])
            runs.setdefault(name, []).append(1e9 / run["items_per_second"])
    return {name: statistics.median(times) for name, times in runs.items()}


def figure(title, ylabel):
    drawn, axes = pyplot.subplots(figsize=(WIDTH, HEIGHT), layout="constrained")
    axes.set_title(title)
    axes.set_ylabel(ylabel)
    axes.grid(axis="y", alpha=0.3)
    axes.set_axisbelow(True)
    return drawn, axes


def bars(axes, groups, heights):
    """Bars side by side: heights by series, one for each group."""
    width = 0.8 / len(heights)
    for place, (series, values) in enumerate(heights.items()):
        left = [index - 0.4 + width * (place + 0.5) for index in range(len(groups))]
        axes.bar(left, values, width, label=series)
    axes.set_xticks(range(len(groups)), groups)


def limit(axes, value, text):
    axes.axhline(value, color="black", linewidth=1, linestyle="--", label=text)


def library(report):
    times = medians(report, 2)
    operations = list(dict.fromkeys(operation for operation, _ in times))
    drawn, axes = figure("The library beside its platform calls alone", "times the floor")
    ratios = [times[name, "library"] / times[name, "floor"] for name in operations]
    bars(axes, operations, {"library": ratios})
    limit(axes, 1.15, "limit 1.15")
    return drawn, axes


def scale(report):
    times = medians(report, 3)
    drawn, axes = figure("Cost of an operation beside that with 1,000 responders", "times")
    for order, style in (("in_turn", "-"), ("at_random", ":")):
        axes.set_prop_cycle(None)
        for operation in dict.fromkeys(operation for operation, _, _ in times):
            counts = sorted(int(count) for name, way, count in times if (name, way) == (operation, order))
            base = times[operation, order, "1000"]
            axes.plot(
                counts,
                [times[operation, order, str(count)] / base for count in counts],
                style,
                marker="o",
                label=operation if order == "in_turn" else None,
            )
    limit(axes, 1.5, "limit 1.5, in turn (dotted: at random)")
    axes.set_xscale("log")
    axes.set_yscale("log")
    axes.set_xlabel("responders")
    return drawn, axes


def reflect_groups(report):
    def short(count):
        return f"{count // 1000}k" if count >= 1000 and count % 1000 == 0 else str(count)

    return [f"{case['window']}\n{short(case['sessions'])}\n{case['octets']}" for case in report["cases"]]


def replies(report):
    drawn, axes = figure("Replies per second beside the batched echo", "times the batched echo")
    bars(
        axes,
        reflect_groups(report),
        {
            server: [
                case["servers"][server]["replies_per_second"]
                / case["servers"]["batched echo"]["replies_per_second"]
                for case in report["cases"]
            ]
            for server in report["cases"][0]["servers"]
        },
    )
    limit(axes, 0.95, "target 0.95")
    axes.set_xlabel("window, sessions, octets")
    return drawn, axes


def round_trips(report):
    drawn, axes = figure("Round trip, median, beside the plain echo", "times the plain echo")
    bars(
        axes,
        reflect_groups(report),
        {
            server: [
                case["servers"][server]["round_trip_p50_ns"] / case["servers"]["plain echo"]["round_trip_p50_ns"]
                for case in report["cases"]
            ]
            for server in report["cases"][0]["servers"]
        },
    )
    limit(axes, 1.05, "target 1.05 at window 1")
    axes.set_xlabel("window, sessions, octets")
    return drawn, axes


def clock(report):
    rows = report["rows"]
    drawn, axes = figure("Time stamps beside the wall clock", "microseconds")
    seconds = [row["begin_seconds"] for row in rows]
    axes.errorbar(
        seconds,
        [row["offset_us"] for row in rows],
        yerr=[row["uncertainty_us"] for row in rows],
        fmt="o",
        markersize=3,
        capsize=2,
        label="median offset, with its uncertainty",
    )
    limit(axes, 20, "limit ±20")
    axes.axhline(-20, color="black", linewidth=1, linestyle="--")
    axes.set_xlabel("seconds")
    return drawn, axes


PLOTS = {
    "library": ("library_bench.json", library),
    "scale": ("scale_bench.json", scale),
    "replies": ("reflect_bench.json", replies),
    "round_trips": ("reflect_bench.json", round_trips),
    "clock": ("clock_error.json", clock),
}


def main():
    if len(sys.argv) != 3:
        print("usage: plots.py REPORTS FOLDER", file=sys.stderr)
        return 2
    reports, folder = Path(sys.argv[1]), Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    for name, (file, draw) in PLOTS.items():
        if not (reports / file).exists():
            print(f"plots: no {reports / file}, {name}.svg is left as it is")
            continue
        drawn, axes = draw(json.loads((reports / file).read_text(encoding="utf-8")))
        axes.legend(fontsize="small")
        drawn.savefig(folder / f"{name}.svg", metadata={"Date": None})
        pyplot.close(drawn)
        print(f"plots: {folder / name}.svg")
    return 0


if __name__ == "__main__":
    sys.exit(main())
