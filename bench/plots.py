#!/usr/bin/env python3
"""Draws plots from what the benchmarks wrote.

    python3 bench/plots.py REPORTS FOLDER

REPORTS is the folder of the reports, FOLDER where the plots go. A plot whose report is not there, not whole or of a
quick run is not drawn. Exit status 1: none was drawn, or a report was refused.
"""
import sys
from fnmatch import fnmatchcase
from pathlib import Path

import matplotlib

from limits import bound
from report import load, obstacle

matplotlib.use("svg")
matplotlib.rcParams |= {"svg.fonttype": "none", "svg.hashsalt": "olv-twamp"}  # text as text; the same bytes each time
from matplotlib import pyplot  # pylint: disable=wrong-import-position


def bars(runs, figure, *others):
    """A group for each run, with a bar beside each of the others."""

    def draw(axes, report):
        groups = [run for run in report.runs if fnmatchcase(run, runs)]
        width = 0.8 / len(others)
        for place, other in enumerate(others):
            left = [index + (place - (len(others) - 1) / 2) * width for index in range(len(groups))]
            heights = [report.value(run, f"{figure}/{other}") for run in groups]
            axes.bar(left, heights, width, label=f"beside {other.replace('_', ' ')}")
        axes.set_xticks(range(len(groups)), [run.rpartition("/")[0].replace("/", "\n") for run in groups])

    return draw


def scale(axes, report):
    for order, style in (("in_turn", "-"), ("at_random", ":")):
        axes.set_prop_cycle(None)
        for stem in [run.removesuffix("/1000") for run in report.runs if run.endswith(f"/{order}/1000")]:
            counts = [int(run.rpartition("/")[2]) for run in report.runs if run.startswith(f"{stem}/")]
            times = [report.value(f"{stem}/1000", f"nanoseconds:{count}/1000") for count in counts]
            axes.plot(counts, times, style, label=stem.split("/")[0] if style == "-" else None)
    axes.set(xscale="log", yscale="log", xlabel="responders; dotted: visited at random")
    axes.set_xticks(counts, [f"{count:,}" for count in counts])
    axes.set_yticks([0.5, 1, 2, 5, 10], ["0.5", "1", "2", "5", "10"])
    axes.minorticks_off()


def clock(axes, report):
    rows = report.runs["clock/reflector"]
    axes.errorbar(rows["begin_seconds"], rows["offset_us"], yerr=rows["uncertainty_us"], fmt=".", capsize=2)


# By name: the report, the figure whose limit is drawn, what draws the rest, the title with the unit.
PLOTS = {
    "library": (
        *("library", "nanoseconds/platform_calls", bars("*/library", "nanoseconds", "platform_calls")),
        "Time of operations, in times of their platform calls",
    ),
    "scale": ("scale", "nanoseconds/1000", scale, "Time of operations, in times of that with 1,000 responders"),
    "replies": (
        *("reflect", "replies_per_second/batched_echo"),
        bars("*/reflector", "replies_per_second", "batched_echo", "plain_echo"),
        "Replies per second, in times of echo servers' (window, sessions, octets)",
    ),
    "round_trips": (
        *("reflect", "p50_ns/plain_echo", bars("*/reflector", "p50_ns", "batched_echo", "plain_echo")),
        "Median round trip, in times of echo servers' (window, sessions, octets)",
    ),
    "clock": ("clock", None, clock, "Offset of time stamps, with its uncertainty, in µs, over seconds"),
}


def save(name, report, folder):
    part, figure, draw, title = PLOTS[name]
    drawn, axes = pyplot.subplots(figsize=(7.5, 4), layout="constrained")
    draw(axes, report)
    axes.set_title(title)
    if figure:
        axes.axhline(bound(part, figure), color="black", linestyle="--", label=f"limit {bound(part, figure)}")
        axes.legend(fontsize="small")
    folder.mkdir(parents=True, exist_ok=True)
    drawn.savefig(folder / f"{name}.svg", metadata={"Date": None})
    pyplot.close(drawn)
    print(f"plots: {folder / name}.svg")


def main(reports, folder):
    why = {name: obstacle(reports, part) for name, (part, *_) in PLOTS.items()}
    for name, reason in why.items():
        if reason:
            print(f"plots: {reason}: {name}.svg is not drawn", file=sys.stderr)
        else:
            save(name, load(reports, PLOTS[name][0]), folder)
    refused = any(reason and not reason.startswith("there is no ") for reason in why.values())
    return 1 if refused or all(why.values()) else 0


if __name__ == "__main__":
    sys.exit(main(*map(Path, sys.argv[1:])))
