#!/usr/bin/env python3
"""Writes inputs of fuzz_library by hand: every operation, alone and with a fault at each of its platform calls.

    tests/fuzz/library/write_seeds.py DIRECTORY

A fuzzer starts from them when the tables of calls.cpp and changes.cpp have changed and the corpus no longer means what it did.
"""
import pathlib
import re
import sys

FAULT_POINTS = 14
FOREVER = 3  # place in fault_counts
SECOND, ALIEN, FOREIGN, NULL = 4, 5, 6, 7  # places in the choices of any_module()


def step_numbers():
    tables = (pathlib.Path(__file__).with_name(name).read_text() for name in ("calls.cpp", "changes.cpp"))
    names = re.findall(r'^    {"(\w+)",', "".join(tables), re.MULTILINE)
    return {name: number for number, name in enumerate(names)}


STEPS = step_numbers()


def step(name, *arguments):
    return bytes([STEPS[name], *arguments])


def create(module=0, slot=0, info=0):
    return step("create", module, slot, info, 0x12, 0x34, 0xFF, 0xFF)


def bind(name="bind", source=0, destination=0, kind=0, subtype=0, path=0, locations=(0, 0), key=1, custom=0, info=0,
         system=0):
    return step(name, source, destination, kind, subtype, path, *locations, key, custom, info, system)


def any_fault(skip, count=0):
    return step("plan_any_fault", skip, skip % 8, count, 0)


LOUD = step("set_log_words", 0, 0, 0, 0)
CLOCKS = step("set_clocks", *range(1, 11), 0, 0, 7, 161, 32, *range(1, 9))
UP = LOUD + step("init", 0)
WITH_RESPONDER = UP + create()
WITH_BIND = UP + bind()
COUNTERS = b"".join(step("set_state", 0, entry, word, 0, 0, word, 7) for entry in (0, 1) for word in range(16))
ODD_ENTRIES = b"".join(step("learn_entry", 0, tree, width, value, value, 9, word)
                       for tree in (0, 1) for width, value, word in ((0, 1, 2), (2, 0, 0), (3, 2, 0), (4, 5, 1), (5, 3, 1)))

# What stands before the operation, and the operation.
OPERATIONS = {
    "init": (LOUD, step("init", 0)),
    "init_quiet": (b"", step("init", 0)),
    "init_again": (UP, step("init", 0)),
    "init_second": (UP, step("init", SECOND)),
    "init_alien": (LOUD, step("init", ALIEN)),
    "shutdown": (UP, step("shutdown", 0)),
    "shutdown_twice": (UP + step("shutdown", 0), step("shutdown", 0) + step("init", 0)),
    "update": (UP, step("update", 0)),
    "update_unregistered": (UP + step("shutdown", 0), step("update", 0)),
    "sys_log": (UP, step("sys_log", 0, 4)),
    "sys_log_bad": (UP, step("sys_log", 0, 5)),
    "map_sys_log": (UP, step("map_sys_log", 0, 2) + step("map_sys_log", 0, 6)),
    "create": (UP + CLOCKS, create()),
    "create_no_info": (WITH_RESPONDER, create(info=255)),
    "create_no_slot": (UP, create(slot=6)),
    "create_exhausted": (UP + create() + create(slot=1) + create(slot=2) + create(slot=3), create(slot=4)),
    "create_second": (UP + step("init", SECOND) + create(), create(module=SECOND, slot=1)),
    "delete": (WITH_RESPONDER, step("remove", 0, 0)),
    "delete_twice": (WITH_RESPONDER + step("remove", 0, 0), step("remove", 0, 0)),
    "delete_null": (WITH_RESPONDER, step("remove", 0, 6)),
    "delete_stale": (WITH_RESPONDER + step("free_responder", 0), step("remove", 0, 0)),
    "delete_wrong_magic": (WITH_RESPONDER + step("set_responder_magic", 0, 1), step("remove", 0, 0)),
    "delete_foreign_id": (WITH_RESPONDER + step("set_responder_id", 0, 4), step("remove", 0, 0)),
    "stats_get": (WITH_RESPONDER + COUNTERS, step("stats_get", 0, 0, 0)),
    "stats_get_null": (WITH_RESPONDER, step("stats_get", 0, 0, 255)),
    "stats_print": (WITH_RESPONDER + COUNTERS, step("stats_print", 0, 0)),
    "global_stats_get": (UP + COUNTERS, step("global_stats_get", 0, 0)),
    "global_stats_get_null": (UP, step("global_stats_get", 0, 255)),
    "global_stats_print": (UP + COUNTERS, step("global_stats_print", 0)),
    "bind": (UP, bind()),
    "bind_twice": (WITH_BIND, bind()),
    "bind_default_entry_point": (UP + step("set_destination", 0, 1, 0, 1), bind()),
    "unbind": (WITH_BIND, bind("unbind")),
    "unbind_absent": (UP, bind("unbind")),
    "unbind_not_custom": (WITH_BIND, bind("unbind", custom=255)),
    "unbind_other_module": (UP, bind("unbind", destination=2)),
    "unbind_null": (UP, bind("unbind", info=255)),
    "unbind_no_system": (UP, bind("unbind", system=5)),
    "get_imc": (UP, step("get_imc", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)),
    "get_imc_cpu": (UP, step("get_imc", 0, 0, 0, 0, 0, 0, 3, 0, 0, 0)),
    "get_imc_other": (UP, step("get_imc", 0, 0, 2, 0, 0, 0, 0, 0, 0, 0)),
    "null_pointers": (UP, b"".join(step("null_pointers", number) for number in range(8))),
    "tables_dump": (WITH_RESPONDER + bind() + ODD_ENTRIES, step("tables_dump", 0, 0)),
    "tables_dump_bad_group": (UP, step("tables_dump", 0, 3) + step("tables_dump", 0, 4)),
    "dump_tables": (WITH_RESPONDER + bind(), step("dump_tables", 0, 3)),
}
for name, change in {"ipv6": {"destination": 1}, "other_module": {"destination": 2}, "no_entry_point": {"destination": 3},
                     "lookup_fails": {"destination": 4}, "path": {"path": 3}, "type": {"kind": 3},
                     "not_custom": {"custom": 255}, "null": {"info": 255}, "no_system": {"system": 5},
                     "other_system": {"system": 3}}.items():
    OPERATIONS[f"bind_{name}"] = (UP, bind(**change))
# Every action, or none, with a pattern of each kind and width.
for name, tree in (("table_entry_dump", (0,)), ("responder_entry_dump", ())):
    for kind in range(4):
        OPERATIONS[f"{name}_{kind}"] = (b"", b"".join(step(name, *tree, action, kind, width, 0, 0, 0, 9)
                                                      for action in range(7) for width in (0, 1, 2)))
# Other processors: one with two IDs, no session namespace, no bind tree, no statistics, a large ID, no tree, no
# state, none at all.
PROCESSORS = {f"processor_{number}": (LOUD + step("move_module", 0, number), step("init", 0) + create() + create(slot=1) +
                                      create(slot=2) + bind() + step("stats_get", 0, 0, 0) + step("remove", 0, 0))
              for number in range(1, 9)}
MOVED = {f"moved_{number}": (WITH_RESPONDER + step("move_module", 0, number),
                             create(slot=1) + bind() + step("stats_get", 0, 0, 0) + step("remove", 0, 0) +
                             step("global_stats_get", 0, 0) + step("tables_dump", 0, 0) + step("shutdown", 0))
         for number in range(1, 9)}
CALLS = ("init shutdown update sys_log map_sys_log create remove stats_get bind unbind get_imc global_stats_get "
         "tables_dump").split()
ARGUMENTS = {"sys_log": (2,), "map_sys_log": (5,), "create": (0, 0, 0, 1, 0, 1), "remove": (0,), "stats_get": (0, 0),
             "bind": (0,) * 10, "unbind": (0,) * 10, "get_imc": (0,) * 9, "global_stats_get": (0,), "tables_dump": (0,)}


def every_call(prelude, module):
    return prelude, b"".join(step(name, module, *ARGUMENTS.get(name, ())) for name in CALLS[1:] + CALLS[:1])


HANDLES = {
    "handles_null": every_call(WITH_RESPONDER, NULL),
    "handles_foreign": every_call(WITH_RESPONDER, FOREIGN),
    "handles_uninitialised": every_call(LOUD, 0),
    "handles_wrong_magic": every_call(WITH_RESPONDER + step("set_module_magic", 0, 1), 0),
    "handles_wrong_context": every_call(WITH_RESPONDER + step("set_context_magic", 0, 1), 0),
    "handles_without_lock": every_call(step("set_lock", 0, 2) + WITH_RESPONDER, 0),
    "handles_unknown_lock": every_call(WITH_RESPONDER + step("set_lock", 0, 3), 0),
    "handles_without_system": every_call(step("set_system", 0, 2) + WITH_RESPONDER, 0),
}


def write(directory, name, content):
    (directory / name).write_bytes(content)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    directory = pathlib.Path(sys.argv[1])
    directory.mkdir(parents=True, exist_ok=True)
    for name, (before, operation) in {**OPERATIONS, **PROCESSORS, **MOVED, **HANDLES}.items():
        write(directory, name, before + operation)
    for name, (before, operation) in OPERATIONS.items():
        for point in range(FAULT_POINTS):
            write(directory, f"{name}-{point}-once", before + any_fault(point) + operation)
            write(directory, f"{name}-{point}-on", before + any_fault(point, FOREVER) + operation)


if __name__ == "__main__":
    main()
