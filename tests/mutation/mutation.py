"""Mutation testing of the library: makes small wrong changes in twamp/, one at a time, and runs the library's tests
with each. A change that no test notices survives: a test is missing, or the change is equivalent, which
equivalent.json says with the reason.

    scripts/mutation.sh                          every mutant
    scripts/mutation.sh --sample 40 --seed 1     some, drawn at random
    scripts/mutation.sh --operator status        those of an operator
    scripts/mutation.sh --only status-1a2b3c4d   one, with the change and what became of it
    scripts/mutation.sh --list                   names them

Mutants that do not compile, or compile to the same code, are left out of the count. An interrupted run goes on where
it ended: build/mutation-results holds what became of mutants, for as long as library and tests are the same. Exit
status: 0 if no mutant survived but those listed, 1 if one did or if the list is wrong, 2 if nothing could be tested.
"""
import argparse
import concurrent.futures
import fcntl
import hashlib
import json
import os
import queue
import random
import re
import sys
import time
from collections import Counter
from pathlib import Path

import laboratory
from operators import OPERATORS
from project import Project
from source import Source

ROOT = Path(__file__).resolve().parents[2]
FOLDER = ROOT / "build/mutation"
RESULTS = ROOT / "build/mutation-results"
HEADERS = ("include/olv_twamp.h", "platform/twamp_program.h")
EQUIVALENT = Path(__file__).with_name("equivalent.json")

KILLED = (laboratory.FAILED_TEST, laboratory.CRASH, laboratory.TIME_OUT)
WITHOUT_TEST = (laboratory.NOT_COMPILED, laboratory.SAME_CODE)
EQUIVALENT_FATE = "equivalent"


class Mutant:
    """A change of a file. It is known by what it does where, not by a line number."""

    def __init__(self, operator, source, begin, end, replacement):
        self.operator = operator
        self.path = source.path
        self.line = source.line_number(begin)
        self.place = f"{Path(source.path).name} {source.function_at(begin)}".strip()
        self.text = source.text[:begin] + replacement + source.text[end:]
        first, last = source.lines_around(begin, end)
        before, after = in_one_line(source.text[first:begin]).lstrip(), in_one_line(source.text[end:last])
        original, mutated = in_one_line(source.text[begin:end]), in_one_line(replacement).strip()
        self.difference = f"    - {before}{original}{after}\n    + {before}{mutated}{after}"
        change = f"{{{shortened(original, 60)} -> {shortened(mutated, 60)}}}"
        self.name = f"{operator} {self.place}: {before[-60:]}{change}{after[:30].rstrip()}"

    @property
    def id(self):
        return f"{self.operator}-{hashlib.sha256(self.name.encode()).hexdigest()[:8]}"

    def __str__(self):
        return f"{self.id}  {self.path}:{self.line}\n    {json.dumps(self.name)}\n{self.difference}"


def in_one_line(text):
    return re.sub(r"(?:\n#line \d+\n|\s)+", " ", text)


def shortened(text, length):
    return text if len(text) <= length else text[: length - 3] + "..."


def all_mutants():
    paths = [*sorted((ROOT / "twamp").glob("*.[ch]pp")), *(ROOT / name for name in HEADERS)]
    texts = [path.read_text(encoding="utf-8") for path in paths]
    project = Project(texts + [(ROOT / "platform/olv.h").read_text(encoding="utf-8")])
    mutants = []
    alike = Counter()
    for path, text in zip(paths, texts):
        source = Source(str(path.relative_to(ROOT)), text)
        for name, operator in OPERATORS.items():
            if path.suffix == ".h" and name not in ("constant", "message-letter"):
                continue  # of the headers, the values
            for change in sorted(set(operator(source, project))):
                mutant = Mutant(name, source, *change)
                alike[mutant.name] += 1
                if alike[mutant.name] > 1:
                    mutant.name += f" #{alike[mutant.name]}"
                mutants.append(mutant)
    return mutants


def equivalent_names():
    """The listed mutants. Each stands once, under the reason."""
    names = [name for group in json.loads(EQUIVALENT.read_text(encoding="utf-8")).values() for name in group]
    if len(names) != len(set(names)):
        raise SystemExit(f"mutation: listed twice in {EQUIVALENT.name}: {Counter(names).most_common(1)[0][0]}")
    return set(names)


def chosen(mutants, arguments):
    """The mutants to test, in the order to test them in."""
    if arguments.only:
        mutants = [mutant for mutant in mutants if mutant.id in arguments.only]
    if arguments.operator:
        mutants = [mutant for mutant in mutants if mutant.operator in arguments.operator]
    if arguments.sample:
        mutants = random.Random(arguments.seed).sample(mutants, len(mutants))
    return mutants


class Results:
    """What became of mutants, in a file. It stands as long as library and tests are the same, so that an interrupted
    run goes on where it ended; and it tells which tests are likely to fail with a mutant."""

    def __init__(self, fingerprint):
        self.fingerprint = fingerprint
        self.known = {}  # ID -> fate and test
        self.tests = {}  # ID or place -> how many mutants a test failed with
        lines = RESULTS.read_text(encoding="utf-8").splitlines() if RESULTS.exists() else []
        for known, *result in map(json.loads, lines):
            self._note(*result)
            if known == fingerprint:
                self.known[result[0]] = tuple(result[2:])

    def enter(self, mutant, fate, test):
        self._note(mutant.id, mutant.place, fate, test)
        with open(RESULTS, "a", encoding="utf-8") as stream:
            print(json.dumps([self.fingerprint, mutant.id, mutant.place, fate, test]), file=stream)

    def likely(self, mutant):
        """The tests to run first: what failed with this mutant, with others at this place, in this file."""
        keys = (mutant.id, mutant.place, mutant.place.split()[0])
        return list(dict.fromkeys(test for key in keys for test, _ in self.tests.get(key, Counter()).most_common(3)))

    def _note(self, mutant, place, fate, test):
        for key in (mutant, place, place.split()[0]) if fate in KILLED else ():
            self.tests.setdefault(key, Counter())[test] += 1


def examine_all(bench, results, mutants, arguments):
    """Yield mutants with their fates, in their order, until the sample is complete."""
    workplaces = queue.SimpleQueue()
    for number in range(arguments.jobs):
        workplaces.put(FOLDER / f"worker-{number}")

    def examine(mutant, likely):
        workplace = workplaces.get()
        try:
            return bench.examine(workplace, mutant.path, mutant.text, likely)
        finally:
            workplaces.put(workplace)

    left = arguments.sample or len(mutants)
    pending = []
    waiting = iter(mutants)
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        while left > 0:
            while len(pending) < 4 * arguments.jobs and (mutant := next(waiting, None)) is not None:
                is_known = mutant.id in results.known and not arguments.only
                pending.append((mutant, None if is_known else pool.submit(examine, mutant, results.likely(mutant))))
            if not pending:
                return
            mutant, future = pending.pop(0)
            fate, test = results.known[mutant.id] if future is None else future.result()
            if future is not None:
                results.enter(mutant, fate, test)
            left -= not (arguments.sample and fate in WITHOUT_TEST)
            yield mutant, fate, test


class Report:
    def __init__(self, equivalent):
        self.equivalent = equivalent
        self.fates = {}  # operator -> how many of each fate
        self.survivors = []
        self.wrongly_listed = []

    def enter(self, mutant, fate):
        listed = mutant.name in self.equivalent
        if fate == laboratory.SURVIVED and listed:
            fate = EQUIVALENT_FATE
        elif fate == laboratory.SURVIVED:
            self.survivors.append(mutant)
        elif fate in KILLED and listed:
            self.wrongly_listed.append(mutant)
        self.fates.setdefault(mutant.operator, Counter())[fate] += 1
        return fate

    @property
    def total(self):
        return sum(self.fates.values(), Counter())

    def print_table(self):
        columns = [*WITHOUT_TEST, *KILLED, EQUIVALENT_FATE, laboratory.SURVIVED]
        print(f"{'operator':<20} {'mutants':>8}" + "".join(f" {column:>15}" for column in columns))
        for name, fates in [*self.fates.items(), ("all", self.total)]:
            mutants = sum(fates.values()) - sum(fates[fate] for fate in WITHOUT_TEST)
            print(f"{name:<20} {mutants:>8}" + "".join(f" {fates[column]:>15}" for column in columns))


def print_conclusion(report, stale):
    total = report.total
    killed = sum(total[fate] for fate in KILLED)
    lists = {"Survivors": report.survivors, "Listed as equivalent, but killed": report.wrongly_listed}
    for title, mutants in lists.items():
        if mutants:
            print(f"\n== {title}")
            print(*mutants, sep="\n")
    if stale:
        print(f"\n== Stale entries of {EQUIVALENT.name}: no such mutants")
        print(*stale, sep="\n")
    print(f"\n{killed} killed of {killed + total[laboratory.SURVIVED]} that are not equivalent")


def parsed_arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=ROOT / "build/dev", help="build tree with the library's tests")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="mutants tested at a time")
    parser.add_argument("--list", action="store_true", help="print the mutants and test none")
    parser.add_argument("--only", action="append", metavar="ID", help="test this mutant; may be repeated")
    parser.add_argument("--operator", action="append", choices=OPERATORS, help="test its mutants; may be repeated")
    parser.add_argument("--sample", type=int, metavar="N", help="test N mutants that compile")
    parser.add_argument("--seed", type=int, default=1, help="choice of the sample")
    parser.add_argument("--verbose", action="store_true", help="print every mutant and what became of it")
    return parser.parse_args()


def lock_folder():
    """Keep other runs out of the folder until the program ends. Returns nothing where one is under way."""
    FOLDER.parent.mkdir(exist_ok=True)
    lock = open(f"{FOLDER}.lock", "w", encoding="utf-8")  # pylint: disable=consider-using-with
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        return None
    return lock


def main():
    arguments = parsed_arguments()
    mutants = all_mutants()
    equivalent = equivalent_names()
    stale = sorted(equivalent - {mutant.name for mutant in mutants})
    mutants = chosen(mutants, arguments)
    if arguments.list:
        print(*mutants, sep="\n")
        return 0
    if not mutants:
        print("mutation: there is no such mutant", file=sys.stderr)
        return 2

    lock = lock_folder()
    if lock is None:
        print("mutation: another run is under way in this tree", file=sys.stderr)
        return 2
    begin = time.monotonic()
    bench = laboratory.Laboratory(ROOT, arguments.build.resolve(), FOLDER)
    bench.prepare()
    report = Report(equivalent)
    results = Results(bench.fingerprint())
    for number, (mutant, fate, test) in enumerate(examine_all(bench, results, mutants, arguments), start=1):
        fate = report.enter(mutant, fate)
        if number % 250 == 0:
            print(f"{number} of {len(mutants)}", flush=True)
        if fate == laboratory.SURVIVED or arguments.verbose or arguments.only:
            print(f"{fate}{': ' if test else ''}{test}: {mutant}", flush=True)
    print()
    report.print_table()
    print_conclusion(report, stale)
    print(f"{time.monotonic() - begin:.0f} seconds with {arguments.jobs} jobs")
    return 1 if report.survivors or report.wrongly_listed or stale else 0


if __name__ == "__main__":
    sys.exit(main())
