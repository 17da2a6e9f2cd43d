"""What the benchmarks' reports have in common."""
import dataclasses
import json
import statistics

OPERATIONS = ("create", "statistics", "delete", "bind", "lookup", "unbind")

# By part of scripts/bench.sh, in its order.
FILES = {
    "library": "library_bench.json",
    "scale": "scale_bench.json",
    "reflect": "reflect_bench.json",
    "workers": "workers_bench.json",
    "clock": "clock_error.json",
}


@dataclasses.dataclass(frozen=True)
class Limit:
    """Something that a report has to hold to."""

    text: str
    value: str  # what was measured
    met: bool
    timing: bool = False  # says something of a machine that does nothing else, in a run that is not a quick one


def load(folder, part):
    return json.loads((folder / FILES[part]).read_text(encoding="utf-8"))


def is_quick(report):
    """Whether a report is of a run that was to show that the benchmark works, and no more."""
    return report.get("quick", False) or report.get("context", {}).get("quick") == "true"


def obstacle(reports, part):
    """Why a part says nothing that may be shown; nothing: it does."""
    try:
        quick = is_quick(load(reports, part))
    except FileNotFoundError:
        return f"no {reports / FILES[part]}"
    except ValueError:
        return f"{reports / FILES[part]} is not whole"
    return f"{reports / FILES[part]} is of a quick run, whose figures say nothing" if quick else None


def medians(report, parts):
    """Median nanoseconds for one operation, by the parts of a run's name, which are as many as this; from a report of
    Google Benchmark. In the order in which the runs were registered: that of the report is the order in which they
    took turns."""
    runs = {}
    for run in sorted(report["benchmarks"], key=lambda run: run["family_index"]):
        if run.get("error_occurred"):
            raise ValueError(f"{run['name']}: {run['error_message']} failed")
        if run["run_type"] == "iteration":
            name = tuple(run["run_name"].split("/")[:parts])
            runs.setdefault(name, []).append(1e9 / run["items_per_second"])
    return {name: statistics.median(times) for name, times in runs.items()}


def wholeness(text, expected, found):
    """The limit that nothing is missing."""
    missing = sorted(set(expected) - set(found))
    return Limit(text, "none missing" if not missing else f"missing: {', '.join(missing)}", not missing)
