"""What LTTng records of the software platform, read with babeltrace2.

    OLV_BUILD=build/dev python3 -B tests/lttng/recording_test.py
"""
import os
import re
import signal
import subprocess
import unittest
from pathlib import Path

from session_daemon import ENDS_WITH_US, PATIENCE, SessionDaemon, become_nobody_s, wait_for, without_places

BUILD = Path(os.environ["OLV_BUILD"])
TWAMPCTL = BUILD / "apps/twampctl"
TWAMP_PROBE = BUILD / "apps/twamp-probe"
EVERY_EVENT = BUILD / "tests/lttng/every_event"

SEVERITIES = {"info": 0, "error": 2, "fatal": 4, "entry": 8, "exit": 9, "learnt": 15, "removed": 16, "state": 27}


def event(kind, severity, place, *fields):
    """As babeltrace2 prints it; P is a pattern's word 0, N a line of a source, ADDRESS that of a record."""
    number = SEVERITIES[severity]
    return f'{kind}: ' + ", ".join(
        [f'severity = ( "{severity}" : container = {number} )', f"level = {number}", place, *fields])


def place(module, file, line):
    return f'module = "{module}", file = "{file}", line = {line}'


def entry(change, where, tree, key, action, width=24, pattern="P, 0x18, 0x0"):
    return event(f"entry_{change}", change, where, f'tree = "{tree}"', f"key = {key}", f"key_width = {width}",
                 f"pattern = [ {pattern} ]", f"action = [ {action} ]")


def state(where, namespace, index, octets):
    values = " ".join(["[", *", ".join(octets).split(), "]"])
    return event("state_write", "state", where, f"namespace_id = {namespace}", f"index = {index}",
                 f"_bytes_length = {len(octets)}", f"bytes = {values}")


def of(file):
    """In "twampctl run"."""
    return place("twamp", file, "N")


def framed(file, function, *within):
    """An operation that sends nothing but these events between its entry and its exit."""
    name = f'function = "{function}"'
    return [event("function_entry", "entry", of(file), name), *within, event("function_exit", "exit", of(file), name)]


def said(file, text):
    return event("message", "info", of(file), f'text = "{text}"')


def responder(operation, change):
    file, tree = "twamp_responder.c", "olv_twamp.twamp_responder_lookup"
    return framed(file, f"olv_twamp_responder_{operation}", entry(change, of(file), tree, "0x1", "0x0, 0x0, 0x0"))


def bind(operation, change, text):
    file, tree = "twamp_bind.c", "olv_twamp.twamp_bind_to_next_module"
    return framed(file, f"olv_twamp_custom_{operation}", entry(change, of(file), tree, "0x6", "0x1, 0x601, 0x0"),
                  said(file, text))


# "twampctl run" with --log-level 15
RUN = [
    *framed("twamp.c", "olv_twamp_init", state(of("twamp.c"), "0x7008C1", 0, ["0x0"] * 128),
            said("twamp.c", "Profile - OLV_KORVA_PROFILE_2"),
            said("twamp.c", "Succefully initialized TWAMP module")),
    *framed("twamp.c", "olv_twamp_sys_log", said("twamp.c", "TWAMP module ADDRESS log-level set to 0xf")),
    *responder("create", "learnt"),
    *bind("bind", "learnt", "Custom Bind Successfully done."),
    *framed("twamp_responder.c", "olv_twamp_responder_stats_get"),
    *framed("twamp.c", "olv_twamp_global_stats_get"),
    *bind("unbind", "removed", "Custom Un Bind Successfully done."),
    *responder("delete", "removed"),
    said("twamp.c", "TWAMP module ADDRESS shutdown"),
]


def seven(file, line):
    return place("seven", file, line)


MESSAGES = [
    *(event("message", severity, seven("message.c", 10), rf'text = "level {SEVERITIES[severity]} of \"all\""')
      for severity in ("info", "error", "fatal", "entry")),
    event("message", "info", place("", "", 11), f'text = "{"x" * 5000}"'),
]
FUNCTIONS = [
    event("function_entry", "entry", seven("function.c", 20), 'function = "olv_twamp_init"'),
    event("function_exit", "exit", seven("function.c", 21), 'function = "olv_twamp_init"'),
]
STATE_WRITES = [
    state(seven("state.c", 30), "0xABCDEF", 7, [f"0x{octet:X}" for octet in range(0xC4, 0x100)]),
    state(seven("state.c", 31), "0x1", 4294967295, []),
]
ENTRIES = [
    entry("learnt", seven("entry.c", 40), "a.tree", "0xABCDEF", "0x1, 0x401, 0xFFFFFFFF"),
    entry("removed", seven("entry.c", 41), "a.tree", "0xABCDEF", "0x1, 0x401, 0x0", width=20),
    entry("learnt", seven("entry.c", 42), "a.tree", "0x0", "0x4, 0x5, 0x6", width=0, pattern="0x1, 0x2, 0x3"),
]
FORCED_ERROR = ('forced_error: severity = ( "forced_error" : container = 4294967295 ), file = "forced.c", line = 50, '
                'first_word = 0xFEED, text = "handle 0x00000bad"')


class Recording(unittest.TestCase):
    maxDiff = None

    def run_twampctl(self, daemon):
        """With a measurement, and Ctrl-C."""
        path = daemon.folder / "output"
        with path.open("wb") as output, subprocess.Popen(
                [*ENDS_WITH_US, TWAMPCTL, "run", "--listen", "[::1]:0", "--log-level", "15", "--trace", "lttng"],
                env=daemon.environment, stdout=output, stderr=subprocess.STDOUT) as control:
            try:
                wait_for(lambda: "\nready " in path.read_text() or control.poll() is not None, "ready")
                address = re.search(r"^ready (.*)$", path.read_text(), re.MULTILINE).group(1)
                daemon.run(TWAMP_PROBE, address, "--count", "3", "--interval", "1")
                control.send_signal(signal.SIGINT)
                self.assertEqual(control.wait(PATIENCE), 0, path.read_text())
            finally:
                control.kill()

    def test_everything_of_a_run_is_there_in_order(self):
        with SessionDaemon() as daemon:
            recorded = daemon.record(lambda: self.run_twampctl(daemon), {"all": [["olv_twamp:*"]]})
        self.assertEqual([without_places(line) for line in recorded["all"]], RUN)

    def test_what_is_recorded_of_every_kind_of_event_can_be_chosen(self):
        choices = {
            "all": [["olv_twamp:*"]],
            "by_name": [["olv_twamp:function_*"]],
            "by_key": [["olv_twamp:entry_*", "--filter", "key == 0xABCDEF"]],
            "by_severity": [["olv_twamp:message", "--filter", "severity == 2 || severity == 4"]],
            "errors": [["olv_twamp:*", "--loglevel=ERR"]],
            "no_details": [["olv_twamp:*", "--loglevel=INFO"]],
        }
        with SessionDaemon() as daemon:
            recorded = daemon.record(lambda: daemon.run(EVERY_EVENT), choices)
        self.assertEqual(recorded, {
            "all": MESSAGES + FUNCTIONS + STATE_WRITES + ENTRIES + [FORCED_ERROR],
            "by_name": FUNCTIONS,
            "by_key": ENTRIES[:2],
            "by_severity": MESSAGES[1:3],
            "errors": [FORCED_ERROR],
            "no_details": [*MESSAGES, FORCED_ERROR],
        })


if __name__ == "__main__":
    become_nobody_s()
    unittest.main()
