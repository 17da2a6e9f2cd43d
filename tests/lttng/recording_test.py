"""What LTTng records of the software platform, read with babeltrace2.

    OLV_BUILD=build/dev python3 -B tests/lttng/recording_test.py
"""
import os
import re
import signal
import subprocess
import unittest
from pathlib import Path

from session_daemon import ENDS_WITH_US, PATIENCE, SessionDaemon, become_nobody_s, plain, wait_for

BUILD = Path(os.environ["OLV_BUILD"])
TWAMPCTL = BUILD / "apps/twampctl"
TWAMP_PROBE = BUILD / "apps/twamp-probe"
EVERY_EVENT = BUILD / "tests/lttng/every_event"

ENTRY = 'severity = ( "entry" : container = 8 ), level = 8, module = "twamp", '
EXIT = 'severity = ( "exit" : container = 9 ), level = 9, module = "twamp", '
INFO = 'severity = ( "info" : container = 0 ), level = 0, module = "twamp", '
STATE = 'severity = ( "state" : container = 27 ), level = 27, module = "twamp", '
LEARNT = 'severity = ( "learnt" : container = 15 ), level = 15, module = "twamp", '
REMOVED = 'severity = ( "removed" : container = 16 ), level = 16, module = "twamp", '


def framed(file, function, *within):
    """An operation that sends nothing but these events between its entry and its exit."""
    site = f'file = "{file}", line = N, function = "{function}"'
    return [f"function_entry: {ENTRY}{site}", *within, f"function_exit: {EXIT}{site}"]


def entry(event, severity, file, tree, key, action):
    return (f'{event}: {severity}file = "{file}", line = N, tree = "olv_twamp.{tree}", key = {key}, '
            f"key_width = 24, pattern = [ P, 0x18, 0x0 ], action = [ {action} ]")


def message(file, text):
    return f'message: {INFO}file = "{file}", line = N, text = "{text}"'


RESPONDER = ("twamp_responder.c", "twamp_responder_lookup")
BIND = ("twamp_bind.c", "twamp_bind_to_next_module")
CALL_IPV4 = "0x1, 0x401, 0x0"
CALL_IPV6 = "0x1, 0x601, 0x0"
DEFINED = "0x0, 0x0, 0x0"

# "twampctl run" with two listeners, --log-level 15 and --tables
RUN = [
    *framed("twamp.c", "olv_twamp_init",
            f'state_write: {STATE}file = "twamp.c", line = N, namespace_id = 0x7008C1, index = 0, '
            f'_bytes_length = 128, bytes = [ {", ".join(["0x0"] * 128)} ]',
            message("twamp.c", "Profile - OLV_KORVA_PROFILE_2"),
            message("twamp.c", "Succefully initialized TWAMP module")),
    *framed("twamp.c", "olv_twamp_sys_log", message("twamp.c", "TWAMP module ADDRESS log-level set to 0xf")),
    *framed("twamp_responder.c", "olv_twamp_responder_create",
            entry("entry_learnt", LEARNT, *RESPONDER, "0x1", DEFINED)),
    *framed("twamp_responder.c", "olv_twamp_responder_create",
            entry("entry_learnt", LEARNT, *RESPONDER, "0x2", DEFINED)),
    *framed("twamp_bind.c", "olv_twamp_custom_bind",
            entry("entry_learnt", LEARNT, *BIND, "0x4", CALL_IPV4),
            message("twamp_bind.c", "Custom Bind Successfully done.")),
    *framed("twamp_bind.c", "olv_twamp_custom_bind",
            entry("entry_learnt", LEARNT, *BIND, "0x6", CALL_IPV6),
            message("twamp_bind.c", "Custom Bind Successfully done.")),
    *framed("twamp_responder.c", "olv_twamp_responder_stats_get"),
    *framed("twamp_responder.c", "olv_twamp_responder_stats_get"),
    *framed("twamp.c", "olv_twamp_global_stats_get"),
    *framed("twamp.c", "olv_twamp_tables_dump",
            # Has no exit line when it succeeds.
            f'function_entry: {ENTRY}file = "twamp_internal.c", line = N, function = "olv_twamp_dump_tables"'),
    *framed("twamp_bind.c", "olv_twamp_custom_unbind",
            entry("entry_removed", REMOVED, *BIND, "0x6", CALL_IPV6),
            message("twamp_bind.c", "Custom Un Bind Successfully done.")),
    *framed("twamp_bind.c", "olv_twamp_custom_unbind",
            entry("entry_removed", REMOVED, *BIND, "0x4", CALL_IPV4),
            message("twamp_bind.c", "Custom Un Bind Successfully done.")),
    *framed("twamp_responder.c", "olv_twamp_responder_delete",
            entry("entry_removed", REMOVED, *RESPONDER, "0x2", DEFINED)),
    *framed("twamp_responder.c", "olv_twamp_responder_delete",
            entry("entry_removed", REMOVED, *RESPONDER, "0x1", DEFINED)),
    message("twamp.c", "TWAMP module ADDRESS shutdown"),
]

SEVEN = 'module = "seven", file = '
BYTES = ("0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xCB, 0xCC, 0xCD, 0xCE, 0xCF, "
         "0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9, 0xDA, 0xDB, 0xDC, 0xDD, 0xDE, 0xDF, "
         "0xE0, 0xE1, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8, 0xE9, 0xEA, 0xEB, 0xEC, 0xED, 0xEE, 0xEF, "
         "0xF0, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF")
LONG = "x" * 5000

# every_event.cpp
MESSAGES = [
    f'message: severity = ( "info" : container = 0 ), level = 0, {SEVEN}"message.c", line = 10, '
    r'text = "level 0 of \"all\""',
    f'message: severity = ( "error" : container = 2 ), level = 2, {SEVEN}"message.c", line = 10, '
    r'text = "level 2 of \"all\""',
    f'message: severity = ( "fatal" : container = 4 ), level = 4, {SEVEN}"message.c", line = 10, '
    r'text = "level 4 of \"all\""',
    f'message: severity = ( "entry" : container = 8 ), level = 8, {SEVEN}"message.c", line = 10, '
    r'text = "level 8 of \"all\""',
    f'message: severity = ( "info" : container = 0 ), level = 0, module = "", file = "", line = 11, text = "{LONG}"',
]
FUNCTIONS = [
    f'function_entry: severity = ( "entry" : container = 8 ), level = 8, {SEVEN}"function.c", line = 20, '
    'function = "olv_twamp_init"',
    f'function_exit: severity = ( "exit" : container = 9 ), level = 9, {SEVEN}"function.c", line = 21, '
    'function = "olv_twamp_init"',
]
STATE_WRITES = [
    f'state_write: severity = ( "state" : container = 27 ), level = 27, {SEVEN}"state.c", line = 30, '
    f"namespace_id = 0xABCDEF, index = 7, _bytes_length = 60, bytes = [ {BYTES} ]",
    f'state_write: severity = ( "state" : container = 27 ), level = 27, {SEVEN}"state.c", line = 31, '
    "namespace_id = 0x1, index = 4294967295, _bytes_length = 0, bytes = [ ]",
]
ENTRIES = [
    f'entry_learnt: severity = ( "learnt" : container = 15 ), level = 15, {SEVEN}"entry.c", line = 40, '
    'tree = "a.tree", key = 0xABCDEF, key_width = 24, pattern = [ P, 0x18, 0x0 ], '
    "action = [ 0x1, 0x401, 0xFFFFFFFF ]",
    f'entry_removed: severity = ( "removed" : container = 16 ), level = 16, {SEVEN}"entry.c", line = 41, '
    'tree = "a.tree", key = 0xABCDEF, key_width = 20, pattern = [ P, 0x18, 0x0 ], action = [ 0x1, 0x401, 0x0 ]',
    f'entry_learnt: severity = ( "learnt" : container = 15 ), level = 15, {SEVEN}"entry.c", line = 42, '
    'tree = "a.tree", key = 0x0, key_width = 0, pattern = [ 0x1, 0x2, 0x3 ], action = [ 0x4, 0x5, 0x6 ]',
]
FORCED_ERROR = ('forced_error: severity = ( "forced_error" : container = 4294967295 ), file = "forced.c", line = 50, '
                'first_word = 0xFEED, text = "handle 0x00000bad"')


def without_pattern_handles(line):
    """Word 0 of a pattern with a 24-bit key is the platform's own."""
    return re.sub(r"pattern = \[ 0x[0-9A-F]+, 0x18,", "pattern = [ P, 0x18,", line)


def without_lines_and_addresses(line):
    line = re.sub(r"line = [1-9]\d*,", "line = N,", line)
    return re.sub(r"TWAMP module 0x[0-9a-f]{8} ", "TWAMP module ADDRESS ", line)


class Recording(unittest.TestCase):
    maxDiff = None

    def run_twampctl(self, daemon):
        """With two listeners, three packets to each, and Ctrl-C."""
        with (daemon.folder / "output").open("w+b") as output, subprocess.Popen(
                [*ENDS_WITH_US, TWAMPCTL, "run", "--listen", "127.0.0.1:0", "--listen", "[::1]:0", "--log-level", "15",
                 "--tables", "--trace", "lttng"],
                env=daemon.environment, stdout=output, stderr=subprocess.STDOUT) as control:
            try:
                path = daemon.folder / "output"
                wait_for(lambda: "\nready " in path.read_text() or control.poll() is not None, "ready")
                for address in re.search(r"^ready (.*)$", path.read_text(), re.MULTILINE).group(1).split():
                    subprocess.run([TWAMP_PROBE, address, "--count", "3", "--interval", "1"], check=True,
                                   stdout=subprocess.DEVNULL, timeout=PATIENCE)
                control.send_signal(signal.SIGINT)
                self.assertEqual(control.wait(PATIENCE), 0, path.read_text())
            finally:
                control.kill()

    def every_event(self, daemon):
        subprocess.run([EVERY_EVENT], env=daemon.environment, check=True, timeout=PATIENCE)

    def test_everything_of_a_run_is_there_in_order(self):
        with SessionDaemon() as daemon:
            lines = daemon.record(lambda: self.run_twampctl(daemon), ["olv_twamp:*"])
        self.assertEqual([without_lines_and_addresses(without_pattern_handles(plain(line))) for line in lines], RUN)

    def test_every_kind_of_event_has_its_fields(self):
        with SessionDaemon() as daemon:
            lines = daemon.record(lambda: self.every_event(daemon), ["olv_twamp:*"])
        self.assertEqual([without_pattern_handles(plain(line)) for line in lines],
                         MESSAGES + FUNCTIONS + STATE_WRITES + ENTRIES + [FORCED_ERROR])

    def test_what_is_recorded_can_be_chosen(self):
        rows = [
            ("by name", [["olv_twamp:function_*"]], FUNCTIONS),
            ("by key", [["olv_twamp:entry_*", "--filter", "key == 0xABCDEF"]], ENTRIES[:2]),
            ("by severity", [["olv_twamp:message", "--filter", "severity == 2 || severity == 4"]], MESSAGES[1:3]),
            ("errors", [["olv_twamp:*", "--loglevel=ERR"]], [FORCED_ERROR]),
            ("no details", [["olv_twamp:*", "--loglevel=INFO"]], [*MESSAGES, FORCED_ERROR]),
        ]
        for label, choices, expected in rows:
            with self.subTest(label), SessionDaemon() as daemon:
                lines = daemon.record(lambda daemon=daemon: self.every_event(daemon), *choices)
                self.assertEqual([without_pattern_handles(plain(line)) for line in lines], expected)


if __name__ == "__main__":
    become_nobody_s()
    unittest.main()
