"""Reads what a benchmark wrote: Google Benchmark's JSON, and that of this project's own programs, which is alike."""
import json
import statistics

# Of Google Benchmark's, what is no figure.
BOOKKEEPING = {"family_index", "per_family_instance_index", "repetitions", "repetition_index", "threads", "iterations"}
BOOKKEEPING |= {"real_time", "cpu_time", "items_per_second"}

# How the repetitions of a figure become one, where that is not their median.
TOGETHER = dict.fromkeys(("lost", "kernel_drops", "sessions_missed", "replies", "reversed"), sum)
TOGETHER |= dict.fromkeys(("begin_seconds", "outside_us", "error_us"), max)
TOGETHER |= {"offset_us": lambda values: max(values, key=abs)}


class Report:
    """The runs of a report by name. Of each figure, the values of all repetitions."""

    def __init__(self, document):
        self.quick = document["context"].get("quick") == "true"
        self.runs = {}
        # As they were registered: a report of Google Benchmark has them in the order in which they took turns.
        for run in sorted(document["benchmarks"], key=lambda run: run.get("family_index", 0)):
            if run.get("error_occurred"):
                raise ValueError(f"{run['run_name']}: {run['error_message']} failed")
            if run.get("run_type") != "aggregate":
                self._add(run)
        for figures in self.runs.values():
            if len(figures.get("offset_us", ())) > 1:
                slope = statistics.linear_regression(figures["begin_seconds"], figures["offset_us"]).slope
                figures["drift_us_per_hour"] = [slope * 3600]

    def _add(self, run):
        if "items_per_second" in run:
            run["nanoseconds"] = 1e9 / run["items_per_second"]
        figures = self.runs.setdefault(run["run_name"].removesuffix("/manual_time"), {})
        for figure, value in run.items():
            if isinstance(value, (int, float)) and figure not in BOOKKEEPING:
                figures.setdefault(figure, []).append(value)

    def value(self, name, figure):
        """A figure of a run. FIGURE:WORD is that of the run of the same name but for the last word. FIGURE/WORD is the
        ratio to that of that run: the median of the ratios in each repetition."""
        figure, _, beside = figure.partition("/")
        figure, _, word = figure.partition(":")
        values = self._values(name, figure, word)
        if not beside:
            return TOGETHER.get(figure, statistics.median)(values)
        others = self._values(name, figure, beside)
        return statistics.median(value / other for value, other in zip(values, others, strict=True))

    def _values(self, name, figure, word):
        return self.runs["/".join([*name.split("/")[:-1], word]) if word else name][figure]


def load(folder, part):
    """The report of a part of scripts/bench.sh, or of scripts/instructions.sh."""
    return Report(json.loads((folder / f"{part}.json").read_text(encoding="utf-8")))


def obstacle(folder, part):
    """Why nothing may be shown of a part; None: it may."""
    path = folder / f"{part}.json"
    try:
        quick = load(folder, part).quick
    except FileNotFoundError:
        return f"there is no {path}"
    except (KeyError, ValueError, TypeError) as error:
        return f"{path} is not whole: {type(error).__name__} {error}"
    return f"{path} is of a quick run, whose figures say nothing" if quick else None
