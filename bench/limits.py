#!/usr/bin/env python3
"""Lists which limits the benchmarks' figures meet, and which not: exit status 1.

    python3 bench/limits.py REPORTS PART...

REPORTS is the folder of the benchmarks' JSON, PART is one of library, scale, reflect, workers, clock. Ratios of times are not
judged where a report is of a quick run.
"""
import sys
from pathlib import Path

import library_report
import scale_report
import wire_reports
from reports import FILES, Limit, is_quick, load

LIMITS = {
    "library": library_report.limits,
    "scale": scale_report.limits,
    "reflect": wire_reports.reflect_limits,
    "workers": wire_reports.workers_limits,
    "clock": wire_reports.clock_limits,
}


def limits_of(folder, part):
    """The limits of a part, and whether its timings are judged."""
    try:
        report = load(folder, part)
        return LIMITS[part](report), not is_quick(report)
    except FileNotFoundError:
        return [Limit("there is a report", f"no {folder / FILES[part]}", False)], True
    except (KeyError, ValueError, TypeError) as error:
        return [Limit("the report is whole", f"{type(error).__name__}: {error}", False)], True


def verdict(limit, judged):
    if limit.timing and not judged:
        return "unjudged"
    return "met" if limit.met else "MISSED"


def verdicts(folder, parts):
    """Part, verdict and limit, of each limit."""
    found = []
    for part in parts:
        limits, judged = limits_of(folder, part)
        found += [(part, verdict(limit, judged), limit) for limit in limits]
    return found


def summary(found):
    words = [word for _, word, _ in found]
    missed, unjudged = words.count("MISSED"), words.count("unjudged")
    lines = [f"{len(words) - missed - unjudged} limits met, {missed} missed"]
    if unjudged:
        lines.append(
            f"a quick run: {unjudged} limits of timing were not judged, and none of its figures says anything; "
            "scripts/bench.sh without --quick measures"
        )
    return "\n".join(f"bench: {line}" for line in lines)


def main():
    if len(sys.argv) < 3 or not set(sys.argv[2:]) <= FILES.keys():
        print(f"usage: limits.py REPORTS PART..., parts are {', '.join(FILES)}", file=sys.stderr)
        return 2
    found = verdicts(Path(sys.argv[1]), sys.argv[2:])
    for part, word, limit in found:
        print(f"{word:8}  {part:8} {limit.text}: {limit.value}")
    print(summary(found))
    return 1 if any(word == "MISSED" for _, word, _ in found) else 0


if __name__ == "__main__":
    sys.exit(main())
