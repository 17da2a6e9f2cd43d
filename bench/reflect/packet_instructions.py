#!/usr/bin/env python3
"""Instructions that the pure part of the fast path takes for a packet of a known session.

    bench/reflect/packet_instructions.py build/bench/bench/reflect/packet_instructions

runs the program under callgrind for requests of 41, 44 and 1400 octets and prints the instructions of each
packet, the copying of its octets apart. Exit status 1: more than the limit.
"""
import argparse
import collections
import pathlib
import re
import subprocess
import sys
import tempfile

LENGTHS = (41, 44, 1400)
LIMIT = 450
COPYING = re.compile(r"mem(cpy|move|set)")
DRIVER = re.compile(r"\bdriver::")  # what the program itself does between two packets


def counts_of(text):
    """The instructions of each function alone, from a file that callgrind wrote."""
    names = {}
    counts = collections.Counter()
    function = None
    is_call = False
    for line in text.splitlines():
        named = re.match(r"(c?fn)=\((\d+)\)(?: (.*))?$", line)
        if named:
            kind, number, name = named.groups()
            if name is not None:
                names[number] = name
            if kind == "fn":
                function = number
        elif line.startswith("calls="):
            is_call = True  # the next line is what the called function counts itself
        elif function is not None and re.match(r"[+\-*\d]", line):
            if not is_call:
                counts[function] += int(line.split()[1])
            is_call = False
    return collections.Counter({names[number]: count for number, count in counts.items()})


def packets_of(output):
    """The packets that the program says it measured."""
    return int(re.match(r"(\d+) packets", output).group(1))


def split(counts, packets):
    """Instructions of a packet: the fast path's but copying, and copying."""
    measured = {name: count for name, count in counts.items() if not DRIVER.search(name)}
    copying = sum(count for name, count in measured.items() if COPYING.search(name))
    return (sum(measured.values()) - copying) / packets, copying / packets


def measure(program, length):
    """Counts by function and packets of a run of the program."""
    with tempfile.TemporaryDirectory() as folder:
        dump = pathlib.Path(folder) / "callgrind"
        run = subprocess.run(
            ["valgrind", "--tool=callgrind", "--collect-atstart=no", f"--callgrind-out-file={dump}",
             program, str(length)], check=True, capture_output=True, text=True)
        # Dumped on the program's request, thus the first part.
        return counts_of(dump.with_name("callgrind.1").read_text()), packets_of(run.stdout)


def main():
    """Measure each length and say whether all are within the limit."""
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program", help="packet_instructions")
    parser.add_argument("--limit", type=int, default=LIMIT, help="instructions of a packet (%(default)s)")
    parser.add_argument("--functions", action="store_true", help="show what each function takes")
    chosen = parser.parse_args()
    within = True
    for length in LENGTHS:
        counts, packets = measure(chosen.program, length)
        own, copying = split(counts, packets)
        within = within and own <= chosen.limit
        print(f"{length:5} octets: {own:6.1f} instructions, and {copying:.1f} to copy; limit {chosen.limit}")
        if chosen.functions:
            for name, count in counts.most_common():
                print(f"    {count / packets:8.1f}  {name}")
    return 0 if within else 1


if __name__ == "__main__":
    sys.exit(main())
