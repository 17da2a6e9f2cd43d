#!/usr/bin/env python3
"""Counts instructions, of the library's operations and of the reflector's packets: a report on standard output.

    python3 bench/instructions.py [--functions] DUMP...

Each DUMP is one of Callgrind's, made with --compress-strings=no --compress-pos=no and named by the request that
triggered it: "N packets of L octets", or an operation. Of an operation, what the library executes itself is counted and
what the functions of the C library do that it calls; not the platform. Of packets, what the reflector's pure part takes
for one; copying its octets, which differs between processors, is counted apart. --functions shows what each function
takes instead.
"""
import collections
import json
import re
import sys
from pathlib import Path

LIBRARY = "libolv-twamp.so"
C_LIBRARY = "libc.so"
PACKETS = re.compile(r"(\d+) packets of (\d+) octets")
COPYING = re.compile(r"mem(cpy|move|set)")
DRIVER = re.compile(r"\bdriver::")  # what the measuring program itself does between two packets
COMPRESSED = re.compile(r"(c?fn=|c?ob=)\(\d+\)|[+\-*]")


def costs(dump):
    """Of each line with a cost: the object and the function, those called (None: the cost is its own), the cost."""
    caller_object = callee_object = function = ""
    callee = None
    for line in dump.splitlines():
        key, _, value = line.partition("=")
        if COMPRESSED.match(line):
            raise ValueError(f"a compressed dump: {line}")
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


def own_costs(dump):
    """Cost of each function alone, by its name."""
    own = collections.Counter()
    for (_, function), callee, cost in costs(dump):
        if callee is None:
            own[function] += cost
    return own


def run_of(dump):
    """What a dump says, as a run of a report."""
    (request,) = re.findall(r"^desc: Trigger: Client Request: (.*)$", dump, re.MULTILINE)
    packets = PACKETS.fullmatch(request)
    if not packets:
        library = [(callee, cost) for caller, callee, cost in costs(dump) if LIBRARY in caller[0]]
        counted = sum(cost for callee, cost in library if callee is None or C_LIBRARY in callee[0])
        return {"run_name": request, "instructions": counted}
    measured = {name: cost for name, cost in own_costs(dump).items() if not DRIVER.search(name)}
    copying = sum(cost for name, cost in measured.items() if COPYING.search(name))
    return {
        "run_name": f"{packets[2]} octets",
        "instructions": round((sum(measured.values()) - copying) / int(packets[1]), 1),
        "copying": round(copying / int(packets[1]), 1),
    }


def report_of(dumps):
    """What all dumps say, and what a responder's creation and deletion take together."""
    runs = [run_of(dump) for dump in dumps]
    both = sum(run["instructions"] for run in runs if run["run_name"] in ("create", "delete"))
    return {"context": {}, "benchmarks": [*runs, {"run_name": "create + delete", "instructions": both}]}


def functions(dump):
    """What each function takes, the dearest first."""
    lines = [f"{cost:10}  {name}" for name, cost in own_costs(dump).most_common()]
    return "\n".join([run_of(dump)["run_name"], *lines])


def main(*arguments):
    show_functions = arguments[0] == "--functions"
    dumps = [Path(path).read_text(encoding="utf-8") for path in arguments[show_functions:]]
    print("\n\n".join(map(functions, dumps)) if show_functions else json.dumps(report_of(dumps), indent=1))


if __name__ == "__main__":
    main(*sys.argv[1:])
