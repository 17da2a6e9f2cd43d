"""The programs as one works with them. OLV_TWAMPCTL and OLV_TWAMP_PROBE are their files."""

import os
import re
import signal
import socket
import subprocess
import unittest
from pathlib import Path

from terminal import COLUMNS, ROWS, Terminal

CONTROL_C = "\x03"
CONTROL_D = "\x04"
UP = "\033[A"


TWAMPCTL = os.environ["OLV_TWAMPCTL"]
TWAMP_PROBE = os.environ["OLV_TWAMP_PROBE"]


class Shell(unittest.TestCase):
    def start(self, **options: str) -> Terminal:
        terminal = Terminal(TWAMPCTL, "shell", **options)
        self.addCleanup(terminal.close)
        terminal.wait_for_prompt()
        return terminal

    def test_errors_are_told_in_its_own_way(self) -> None:
        terminal = self.start()
        terminal.run("up")
        for line, error in (
            ("responder stats east", "no responder 'east', nor any other; 'responder create east' creates it"),
            ("statsu", "there is no command 'statsu'; did you mean 'stats'?; try 'help'"),
            ("echo 'a  b", "a quote is not closed, or the line ends in a backslash"),
        ):
            self.assertEqual(" ".join(terminal.run(line)), "error: " + error)

    def test_the_prompt_is_there_when_keys_are_taken_one_by_one(self) -> None:
        # What is typed between the two would be shown twice. On one processor that is the program's only while nobody
        # else wants it, it gets no further than the prompt before the terminal is looked at.
        terminal = self.start()
        processors = os.sched_getaffinity(0)
        self.addCleanup(os.sched_setaffinity, 0, processors)
        for process in (0, terminal.child.pid):
            os.sched_setaffinity(process, {min(processors)})
        os.setpriority(os.PRIO_PROCESS, terminal.child.pid, 19)
        for _ in range(300):
            before = len(terminal.written)
            terminal.type("\r")
            terminal.wait_until(lambda at, before=before: b"twampctl> " in at.written[before:])
            self.assertTrue(terminal.is_editing())

    def test_quit_and_end_of_input_take_everything_down(self) -> None:
        for end in ("quit\r", CONTROL_D):
            with self.subTest(end=end):
                terminal = self.start()
                terminal.run("up")
                terminal.run("responder create west")
                terminal.type(end)
                self.assertEqual(terminal.wait_for_end(), 0)
                rows = [row for row in terminal.lines() if row]
                self.assertEqual(rows[-2:], ["responder west deleted", "module shut down"])

    def test_termination_takes_everything_down(self) -> None:
        for watching in (False, True):
            with self.subTest(watching=watching):
                terminal = self.start()
                terminal.run("up")
                if watching:
                    terminal.type("watch --interval 0.05\r")
                    terminal.wait_until(lambda at: "RESPONDER" in "\n".join(at.lines()))
                terminal.child.kill(signal.SIGTERM)
                self.assertEqual(terminal.wait_for_end(), 1)
                self.assertEqual("error: terminated while watching" in terminal.lines(), watching)
                self.assertIn("module shut down", terminal.lines())

    def test_history_comes_back(self) -> None:
        terminal = self.start()
        terminal.run("echo first")
        terminal.run("echo second")
        terminal.type(UP)
        terminal.wait_for_prompt("echo second")
        terminal.type(UP)
        terminal.wait_for_prompt("echo first")
        terminal.type("\r")
        terminal.wait_until(lambda at: at.lines()[-2:] == ["first", "twampctl>"])
        terminal.type("quit\r")
        self.assertEqual(terminal.wait_for_end(), 0)
        file = Path(terminal.folder, "history")
        self.assertIn("echo\\040second\n", file.read_text(encoding="utf-8"))
        later = self.start(history=str(file))
        later.type(UP + UP)
        later.wait_for_prompt("echo first")

    def test_history_that_cannot_be_saved_is_told(self) -> None:
        terminal = self.start(history="/nonexistent/history")
        terminal.type("quit\r")
        self.assertEqual(terminal.wait_for_end(), 0)
        self.assertIn("the history could not be saved to /nonexistent/history", terminal.lines())

    def test_tab_completes(self) -> None:
        terminal = self.start()
        terminal.run("up")
        for number, name in enumerate(("western", "westward", "Küche", "Köln"), 1):
            self.assertEqual(terminal.run("responder create " + name), [f"responder {name} created: ID 0x{number}"])
        for name in ("setup.twamp", "a folder"):
            Path(terminal.folder, name).touch()
        for begun, completed in (  # what is typed before Tab, the line then: | is its end
            ("responder create --se", "responder create --sessions |"),
            ("responder stats w", "responder stats west|"),
            ("responder stats weste", "responder stats western |"),
            ("responder stats Kü", "responder stats Küche |"),
            ("responder stats K", "responder stats K|"),
            ("processor use m", "processor use main |"),
            ("script se", "script setup.twamp |"),
            ("script a", "script a\\ folder |"),
            ("log level ", "log level |"),
            ("echo 'a", "echo 'a|"),
        ):
            with self.subTest(begun=begun):
                terminal.type(begun + "\t|")
                terminal.wait_for_prompt(completed)
                terminal.type(CONTROL_C)
                terminal.wait_for_prompt()

    def test_tab_lists_several(self) -> None:
        terminal = self.start()
        terminal.type("responder st\t")
        terminal.wait_for_prompt("responder stat")
        terminal.type("\t")
        terminal.wait_until(lambda at: at.lines()[-2:] == ["state  stats", "twampctl> responder stat"])
        terminal.type("\x15\t")  # an empty line: all commands
        terminal.wait_until(lambda at: "violations" in "\n".join(at.lines()))
        self.assertTrue(all(len(row) <= COLUMNS for row in terminal.lines()))

    def test_control_c_drops_the_line(self) -> None:
        terminal = self.start()
        terminal.type("responder delete --all" + CONTROL_C)
        terminal.wait_until(lambda at: "^C" in "\n".join(at.lines()))
        terminal.wait_for_prompt()
        self.assertEqual(terminal.run("echo on"), ["on"])

    def test_interrupt_at_the_prompt_changes_nothing(self) -> None:
        terminal = self.start()
        terminal.run("up")
        terminal.child.kill(signal.SIGINT)
        terminal.wait_until(lambda at: at.lines()[-2:] == ["twampctl>", "twampctl>"])
        self.assertEqual(terminal.run("echo on"), ["on"])

    def test_control_c_ends_a_command(self) -> None:
        terminal = self.start()
        terminal.type("wait 60\r")
        terminal.wait_until(lambda at: at.lines()[-1] == "" and not at.is_editing())
        terminal.type(CONTROL_C)
        terminal.wait_until(lambda at: "error: interrupted while waiting" in at.lines())
        terminal.wait_for_prompt()
        self.assertEqual(terminal.run("echo on"), ["on"])
        terminal.type("watch --interval 0.05\r")
        terminal.wait_until(lambda at: "REPLIES" in "\n".join(at.lines()))
        terminal.type(CONTROL_C)
        terminal.wait_for_prompt()
        self.assertEqual(terminal.run("echo on"), ["on"])

    def test_watch_stays_in_its_place(self) -> None:
        terminal = self.start()
        for line in ("up", "bind ipv4", "responder create west"):
            terminal.run(line)
        terminal.type("responder create --count 40\r")
        terminal.wait_until(lambda at: "responder 40 created: ID 0x29" in at.lines())
        terminal.wait_for_prompt()
        listening = terminal.run("listen 127.0.0.1:0 --responder west")[0]
        for _ in range(30):  # a session each, as all are open at once
            sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            self.addCleanup(sender.close)
            sender.settimeout(60)
            sender.sendto(bytes(41), ("127.0.0.1", int(listening.rpartition(":")[2])))
            self.assertEqual(len(sender.recv(100)), 41)
        before, scrolled = len(terminal.written), len(terminal.screen.history.top)
        terminal.type("watch --interval 0.1 --count 4\r")
        terminal.wait_until(lambda at: at.written[before:].count(b" s, Ctrl-C ends") == 4)
        terminal.wait_for_prompt()
        self.assertLessEqual(len(terminal.screen.history.top) - scrolled, ROWS)  # for four screens
        rows = terminal.lines()
        self.assertEqual(sum("RESPONDER" in row and "RECEIVED/S" in row for row in rows), 1)
        for row in ("total    received 30  sent 30  dropped 0", "and 35 more", "and 23 more"):
            self.assertIn(row, rows)
        for line in terminal.written[before:].split(b"\r\n"):
            self.assertLessEqual(len(re.sub(rb"\033\[[0-9?]*[A-Za-z]", b"", line)), COLUMNS)


    def test_no_escapes_go_to_a_dumb_terminal(self) -> None:
        terminal = self.start(kind="dumb")
        terminal.run("up")
        terminal.type("responder st\t\t")
        terminal.wait_until(lambda at: "state  stats" in at.lines())
        terminal.type(CONTROL_C)
        terminal.wait_for_prompt()
        terminal.type("echo wo\x01\x06\x06\x06\x06\x06t\x05 three\r")  # to its start, into its middle, to its end
        terminal.wait_until(lambda at: b"\r\ntwo three\r\n" in at.written)
        terminal.wait_for_prompt()
        terminal.type("watch --interval 0.05 --count 2\r")
        terminal.wait_until(lambda at: at.written.count(b"Z  received 0.0/s") == 2)
        terminal.wait_for_prompt()
        terminal.type("quit\r")
        self.assertEqual(terminal.wait_for_end(), 0)
        self.assertNotIn(b"\033", terminal.written)


class Progress(unittest.TestCase):
    def start(self, *options: str, **kind: str) -> Terminal:
        silent = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(silent.close)
        silent.bind(("127.0.0.1", 0))
        terminal = Terminal(TWAMP_PROBE, f"127.0.0.1:{silent.getsockname()[1]}", *options, **kind)
        self.addCleanup(terminal.close)
        return terminal

    def test_of_the_probe_is_redrawn_in_place_and_wiped_away(self) -> None:
        terminal = self.start("--count=1000", "--interval=60000")
        terminal.wait_until(lambda at: at.written.count(b" s, sent 1 of 1000, received 0") >= 2)
        self.assertRegex("\n".join(terminal.lines()), r"^1000 packets of 41 .*\n[0-9.]+ s, sent 1 of 1000, received 0$")
        terminal.child.kill(signal.SIGINT)
        self.assertEqual(terminal.wait_for_end(), 1)
        self.assertNotIn(" of 1000, received 0", "\n".join(terminal.lines()))
        self.assertIn("twamp-probe: interrupted", terminal.lines())

    def test_of_the_probe_is_not_shown_on_a_dumb_terminal(self) -> None:
        terminal = self.start("--count=1", "--timeout=0.7", kind="dumb")  # time for three of them
        self.assertEqual(terminal.wait_for_end(), 1)
        self.assertNotIn(b"\033", terminal.written)
        self.assertNotIn(b" s, sent 1 of 1", terminal.written)


class Help(unittest.TestCase):
    def program(self, *words: str) -> str:
        return subprocess.run([TWAMPCTL, *words], check=True, capture_output=True, text=True, timeout=100).stdout

    def commands(self) -> list[list[str]]:
        """All commands, as the overview and the completion have them."""
        found = []
        for name, group in re.findall(r"^  ([a-z]+)( \.\.\.)? +[A-Z]", self.program("--help"), re.MULTILINE):
            if name == "run":  # stands alone
                continue
            below = self.program("--complete", name, "").split() if group else []
            found += [[name, each] for each in below] or [[name]]
        return found

    def helps(self, commands: list[list[str]]) -> list[str]:
        """What each of these commands prints, by one program."""
        chain = [word for words in commands for word in (*words, "then", "echo", "<end>", "then")]
        return self.program(*chain[:-1]).split("<end>\n")[:-1]

    def test_of_every_command_fits_and_has_an_example(self) -> None:
        commands = self.commands()
        self.assertIn(["responder", "create"], commands)
        self.assertIn(["watch"], commands)
        texts = self.helps([[*words, "--help"] for words in commands])
        self.assertEqual(texts[:2], self.helps([["help", *words] for words in commands[:2]]))
        self.assertEqual(len(texts), len(commands))
        for words, text in zip(commands, texts):
            with self.subTest(command=words):
                self.assertLessEqual(max(map(len, text.splitlines())), COLUMNS)
                self.assertIn("Usage: twampctl " + " ".join(words), text)
                if "Positionals:" in text:
                    self.assertIn("Examples:\n", text)

    def test_of_all_fits(self) -> None:
        for text in (self.program("--help"), self.program("help"), self.program("run", "--help")):
            self.assertLessEqual(max(map(len, text.splitlines())), COLUMNS)
            self.assertIn("Examples:\n", text)
        self.assertIn("  responder ... Create, delete, list and read responders\n", self.program("help"))


if __name__ == "__main__":
    unittest.main()
