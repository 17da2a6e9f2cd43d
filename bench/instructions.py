#!/usr/bin/env python3
"""Counts instructions, of the library's operations and the reflector's packets, and compares them with a baseline.

    python3 bench/instructions.py [--update] [--functions] BASELINE DUMP...

Each DUMP is one of Callgrind's, not compressed, named by the request that triggered it: "N packets of L octets", or an
operation. Of an operation, what the library executes itself is counted, its linkage to other libraries included, and
what the functions of the C library do that it calls; not the platform, nor what that calls. Of packets, what the
reflector's pure part takes for one; copying its octets, which differs between processors, is shown and not compared.
"""
import argparse
import dataclasses
import json
import re
import sys
from pathlib import Path

from callgrind import costs, own_costs, request_of

LIBRARY = "libolv-twamp.so"
C_LIBRARY = "libc.so"
PACKETS = re.compile(r"(\d+) packets of (\d+) octets")
COPYING = re.compile(r"mem(cpy|move|set)")
DRIVER = re.compile(r"\bdriver::")  # what the measuring program itself does between two packets

TOLERANCE_PERCENT = 3


@dataclasses.dataclass(frozen=True)
class Section:
    """Things that are counted alike."""

    key: str  # in the baseline
    title: str
    parts: tuple  # of a count
    compared: tuple  # the parts whose sum is the count
    limits: tuple  # whatever the baseline says: things that have a limit together, and the limit

    def total(self, counts, names):
        """Of the things that were counted."""
        return round(sum(counts[name][part] for name in names if name in counts for part in self.compared), 1)


OPERATIONS = Section(
    key="library_instructions",
    title="operation",
    parts=("library", "libc"),
    compared=("library", "libc"),
    limits=((("create", "delete"), 600), (("statistics",), 200)),
)
PACKET = Section(
    key="packet_instructions",
    title="packet",
    parts=("reflector", "copying"),
    compared=("reflector",),
    limits=((("41 octets",), 450), (("44 octets",), 450), (("1400 octets",), 450)),
)
SECTIONS = (OPERATIONS, PACKET)


def count_operation(dump):
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


def count_packet(dump, packets):
    """Instructions of one packet: the reflector's but copying, and copying."""
    measured = {name: cost for name, cost in own_costs(dump).items() if not DRIVER.search(name)}
    copying = sum(cost for name, cost in measured.items() if COPYING.search(name))
    return {
        "reflector": round((sum(measured.values()) - copying) / packets, 1),
        "copying": round(copying / packets, 1),
    }


def count_all(dumps):
    """Counts by section's key, by name."""
    counts = {section.key: {} for section in SECTIONS}
    for dump in dumps:
        request = request_of(dump)
        packets = PACKETS.fullmatch(request)
        if packets:
            counts[PACKET.key][f"{packets[2]} octets"] = count_packet(dump, int(packets[1]))
        else:
            counts[OPERATIONS.key][request] = count_operation(dump)
    # Dumps are numbered without leading zeros: 10 comes before 2.
    counts[PACKET.key] = dict(sorted(counts[PACKET.key].items(), key=lambda item: int(item[0].split()[0])))
    return counts


def failures(section, counts, baseline):
    """What is wrong with the counts of a section, as one text each."""
    found = []
    for names, limit in section.limits:
        counted = section.total(counts, names)
        if counted > limit:
            found.append(f"{' + '.join(names)}: {counted} instructions, the limit is {limit}")
    for name in counts.keys() | baseline.keys():
        if name not in baseline:
            found.append(f"{name}: not in the baseline: run --update")
        elif name not in counts:
            found.append(f"{name}: in the baseline, but was not run: run --update")
        else:
            found += against_baseline(name, section.total(counts, [name]), section.total(baseline, [name]))
    for name in {name for names, _ in section.limits for name in names} - counts.keys() - baseline.keys():
        found.append(f"{name}: has a limit, but was not run")
    return sorted(found)


def against_baseline(name, counted, expected):
    if 100 * counted > (100 + TOLERANCE_PERCENT) * expected:
        limit = (100 + TOLERANCE_PERCENT) * expected // 100
        return [f"{name}: {counted} instructions, the baseline is {expected}, the limit {limit}"]
    if 100 * counted < (100 - TOLERANCE_PERCENT) * expected:
        return [f"{name}: {counted} instructions, better than the baseline of {expected}: run --update"]
    return []


def table(section, counts, baseline):
    """A line for each thing that was counted, and for each limit that several have together."""
    alone = {names[0]: limit for names, limit in section.limits if len(names) == 1}
    together = [(names, limit) for names, limit in section.limits if len(names) > 1]
    lines = [f"{section.title:16}" + "".join(f"{head:>10}" for head in (*section.parts, "count", "baseline", "limit"))]
    for name, parts in counts.items():
        cells = [parts[part] for part in section.parts]
        cells += [section.total(counts, [name]), section.total(baseline, [name]) if name in baseline else "-"]
        lines.append(f"{name:16}" + "".join(f"{cell:>10}" for cell in (*cells, alone.get(name, ""))))
    for names, limit in together:
        cells = ["", "", section.total(counts, names), section.total(baseline, names) if baseline else "-", limit]
        lines.append(f"{' + '.join(names):16}" + "".join(f"{cell:>10}" for cell in cells))
    return "\n".join(line.rstrip() for line in lines)


def functions(dump):
    """What each function takes, for whoever looks for instructions to save."""
    request = request_of(dump)
    packets = PACKETS.fullmatch(request)
    one = int(packets[1]) if packets else 1
    return "\n".join([request, *(f"{cost / one:10.1f}  {name}" for name, cost in own_costs(dump).most_common())])


def main():
    parser = argparse.ArgumentParser(description="Compare instruction counts with the baseline.")
    parser.add_argument("--update", action="store_true", help="write the counts into the baseline")
    parser.add_argument("--functions", action="store_true", help="show what each function takes, too")
    parser.add_argument("baseline", type=Path)
    parser.add_argument("dumps", type=Path, nargs="+")
    arguments = parser.parse_args()

    dumps = [path.read_text(encoding="utf-8") for path in arguments.dumps]
    counts = count_all(dumps)
    if arguments.functions:
        print("\n\n".join(functions(dump) for dump in dumps), end="\n\n")
    document = json.loads(arguments.baseline.read_text(encoding="utf-8")) if arguments.baseline.exists() else {}
    if arguments.update:
        document |= counts
        arguments.baseline.write_text(json.dumps(document, indent=2) + "\n", encoding="utf-8")
    found = []
    for section in SECTIONS:
        baseline = document.get(section.key, {})
        print(table(section, counts[section.key], baseline), end="\n\n")
        found += failures(section, counts[section.key], baseline)
    for failure in found:
        print(f"instructions: {failure}", file=sys.stderr)
    if not found:
        print(f"instructions: all within {TOLERANCE_PERCENT} % of the baseline and within their limits")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
