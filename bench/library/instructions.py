#!/usr/bin/env python3
"""Counts the instructions of the library's operations and compares them with a baseline.

    python3 bench/library/instructions.py [--update] BASELINE DUMP...

Each DUMP is one of Callgrind's, not compressed, named after an operation by the request that triggered it. Counted is
what the library executes itself, its linkage to other libraries included, and what the functions of the C library do
that it calls; not the platform, nor what that calls.
"""
import argparse
import json
import sys
from pathlib import Path

LIBRARY = "libolv-twamp.so"
C_LIBRARY = "libc.so"

SECTION = "library_instructions"
TOLERANCE_PERCENT = 3
# Whatever the baseline says: operations that have a limit together, and the limit.
LIMITS = [(("create", "delete"), 600), (("statistics",), 200)]


def operation_of(dump):
    """The name that a dump was asked for with."""
    request = "desc: Trigger: Client Request: "
    for line in dump.splitlines():
        if line.startswith(request):
            return line[len(request) :]
    raise ValueError("no client request asked for this dump")


def costs(dump):
    """Of each line with a cost: its function, the function called (None: the cost is its own), the cost. A function
    is the name of its object and its own."""
    caller_object = callee_object = function = ""
    callee = None
    for line in dump.splitlines():
        key, _, value = line.partition("=")
        if key == "ob":
            caller_object = callee_object = value
        elif key == "fn":
            function = value
        elif key == "cob":
            callee_object = value
        elif key == "cfn":
            callee = (callee_object, value)
        elif line[:1].isdigit():
            yield (caller_object, function), callee, int(line.split()[1])
            callee_object, callee = caller_object, None


def count(dump):
    """Instructions in a dump: those of the library, and those of the C library's functions that it calls."""
    lines = list(costs(dump))
    # Callgrind knows no object of an entry in a procedure linkage table: it is its caller's.
    linkage = {
        callee for caller, callee, _ in lines if callee and LIBRARY in caller[0] and callee[1].endswith("[PLT]")
    }
    counts = {"library": 0, "libc": 0}
    for caller, callee, cost in lines:
        if LIBRARY in caller[0] or caller in linkage:
            if callee is None:
                counts["library"] += cost
            elif C_LIBRARY in callee[0]:
                counts["libc"] += cost
    return counts


def total(counts, operations):
    """Of the operations that were counted."""
    return sum(sum(counts[operation].values()) for operation in operations if operation in counts)


def failures(counts, baseline):
    """What is wrong with the counts, as one text each."""
    found = []
    for operations, limit in LIMITS:
        if total(counts, operations) > limit:
            found.append(f"{' + '.join(operations)}: {total(counts, operations)} instructions, the limit is {limit}")
    for operation in counts.keys() | baseline.keys():
        if operation not in baseline:
            found.append(f"{operation}: not in the baseline: run --update")
        elif operation not in counts:
            found.append(f"{operation}: in the baseline, but was not run: run --update")
        else:
            found += against_baseline(operation, total(counts, [operation]), total(baseline, [operation]))
    return sorted(found)


def against_baseline(operation, counted, expected):
    if 100 * counted > (100 + TOLERANCE_PERCENT) * expected:
        limit = (100 + TOLERANCE_PERCENT) * expected // 100
        return [f"{operation}: {counted} instructions, the baseline is {expected}, the limit {limit}"]
    if 100 * counted < (100 - TOLERANCE_PERCENT) * expected:
        return [f"{operation}: {counted} instructions, better than the baseline of {expected}: run --update"]
    return []


def table(counts, baseline):
    lines = [f"{'operation':12} {'library':>8} {'libc':>6} {'total':>6} {'baseline':>9}"]
    for operation, parts in counts.items():
        expected = total(baseline, [operation]) if operation in baseline else "-"
        lines.append(
            f"{operation:12} {parts['library']:8} {parts['libc']:6} {total(counts, [operation]):6} {expected:>9}"
        )
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description="Compare instruction counts with the baseline.")
    parser.add_argument("--update", action="store_true", help="write the counts into the baseline")
    parser.add_argument("baseline", type=Path)
    parser.add_argument("dumps", type=Path, nargs="+")
    arguments = parser.parse_args()

    texts = [path.read_text(encoding="utf-8") for path in arguments.dumps]
    counts = {operation_of(text): count(text) for text in texts}
    document = json.loads(arguments.baseline.read_text(encoding="utf-8")) if arguments.baseline.exists() else {}
    if arguments.update:
        document[SECTION] = counts
        arguments.baseline.write_text(json.dumps(document, indent=2) + "\n", encoding="utf-8")
    baseline = document.get(SECTION, {})
    print(table(counts, baseline))
    found = failures(counts, baseline)
    for failure in found:
        print(f"instructions: {failure}", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
