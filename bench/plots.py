#!/usr/bin/env python3
"""Draws the plots of docs/performance.md from what the benchmarks wrote.

    python3 bench/plots.py REPORTS FOLDER

REPORTS is the folder of the benchmarks' JSON. A plot whose report is not there, or not whole, is left as it is, and so
is one whose report is of a quick run: its figures say nothing. Exit status 1: there is such a one, or nothing to draw.
"""
import sys
from pathlib import Path

import library_report
import scale_report
from reports import load, medians, obstacle

WIDTH, HEIGHT = 7.5, 4.0


def pyplot():
    """What draws; only here, since reports can be read without it."""
    import matplotlib  # pylint: disable=import-outside-toplevel

    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "olv-twamp"  # the same figures give the same bytes
    from matplotlib import pyplot as drawer  # pylint: disable=import-outside-toplevel

    return drawer


def figure(title, ylabel):
    drawn, axes = pyplot().subplots(figsize=(WIDTH, HEIGHT), layout="constrained")
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


def library_bars(report):
    """Operations; how many times its floor each takes."""
    times = medians(report, 2)
    names = library_report.operations(times)
    return names, {"library": [library_report.ratio(times, name) for name in names]}


def library(report):
    drawn, axes = figure("The library beside its platform calls alone", "times the floor")
    bars(axes, *library_bars(report))
    limit(axes, library_report.LIMIT, f"limit {library_report.LIMIT}")
    return drawn, axes


def scale(report):
    drawn, axes = figure("Cost of an operation beside that with 1,000 responders", "times")
    found = scale_report.ratios(report)
    for order, style in zip(scale_report.ORDERS, ("-", ":")):
        axes.set_prop_cycle(None)
        for operation in (operation for operation, way in found if way == order):
            by_count = sorted(found[operation, order].items())
            label = operation if style == "-" else None
            axes.plot(*zip(*by_count), style, marker="o", label=label)
    limit(axes, scale_report.LIMIT, f"limit {scale_report.LIMIT}, in turn (dotted: at random)")
    axes.set_xscale("log")
    axes.set_yscale("log")
    axes.set_xlabel("responders")
    return drawn, axes


def reflect_groups(report):
    def short(count):
        return f"{count // 1000}k" if count >= 1000 and count % 1000 == 0 else str(count)

    return [f"{case['window']}\n{short(case['sessions'])}\n{case['octets']}" for case in report["cases"]]


def reflect_bars(report, figure_name, echo):
    """A figure of each server by that of an echo server, in each case."""
    return {
        server: [
            case["servers"][server][figure_name] / case["servers"][echo][figure_name] for case in report["cases"]
        ]
        for server in report["cases"][0]["servers"]
    }


def beside_echo(report, title, figure_name, echo, target, where=""):
    drawn, axes = figure(f"{title}, beside the {echo}", f"times the {echo}")
    bars(axes, reflect_groups(report), reflect_bars(report, figure_name, echo))
    limit(axes, target, f"target {target}{where}")
    axes.set_xlabel("window, sessions, octets")
    return drawn, axes


def replies(report):
    return beside_echo(report, "Replies per second", "replies_per_second", "batched echo", 0.95)


def round_trips(report):
    return beside_echo(report, "Round trip, median", "round_trip_p50_ns", "plain echo", 1.05, " at window 1")


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


# By part of scripts/bench.sh.
PLOTS = {
    "library": {"library": library},
    "scale": {"scale": scale},
    "reflect": {"replies": replies, "round_trips": round_trips},
    "clock": {"clock": clock},
}


def save(name, draw, report, folder):
    drawn, axes = draw(report)
    axes.legend(fontsize="small")
    drawn.savefig(folder / f"{name}.svg", metadata={"Date": None})
    pyplot().close(drawn)
    print(f"plots: {folder / name}.svg")


def main():
    if len(sys.argv) != 3:
        print("usage: plots.py REPORTS FOLDER", file=sys.stderr)
        return 2
    reports, folder = Path(sys.argv[1]), Path(sys.argv[2])
    obstacles = {part: obstacle(reports, part) for part in PLOTS}
    for part, why in obstacles.items():
        if why is None:
            folder.mkdir(parents=True, exist_ok=True)
            for name, draw in PLOTS[part].items():
                save(name, draw, load(reports, part), folder)
    left = {part: why for part, why in obstacles.items() if why is not None}
    for part, why in left.items():
        names = " and ".join(f"{name}.svg" for name in PLOTS[part])
        print(f"plots: {why}: {names} as before; 'scripts/bench.sh {part}' measures", file=sys.stderr)
    refused = any(not why.startswith("no ") for why in left.values())
    return 1 if refused or left.keys() == PLOTS.keys() else 0


if __name__ == "__main__":
    sys.exit(main())
