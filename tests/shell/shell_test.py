"""The shell of twampctl as one works in it. OLV_TWAMPCTL is the program."""

import os
import re
import signal
import socket
import subprocess
import unittest

from terminal import COLUMNS, ROWS, Terminal

CONTROL_C = "\x03"
CONTROL_D = "\x04"
UP = "\033[A"


class Shell(unittest.TestCase):
    def start(self, *words: str, **options: str) -> Terminal:
        terminal = Terminal(*(words or ("shell",)), **options)
        self.addCleanup(terminal.close)
        if not words:
            terminal.wait_for_prompt()
        return terminal

    def test_greets_and_runs_commands(self) -> None:
        terminal = self.start()
        self.assertEqual(
            terminal.lines(),
            [
                "twampctl on the software platform. 'help' lists the commands, Tab completes",
                "them, 'quit' or Ctrl-D takes everything down and ends.",
                "twampctl>",
            ],
        )
        self.assertEqual(terminal.run("up"), ["module initialised"])
        self.assertEqual(terminal.run("responder create west"), ["responder west created: ID 0x1"])
        self.assertEqual(
            terminal.run("responder stats east"), ["error: no responder 'east'; there are: west"]
        )
        self.assertEqual(
            terminal.run("statsu"), ["error: there is no command 'statsu'; did you mean 'stats'?; try 'help'"]
        )
        self.assertEqual(terminal.run("echo 'a  b"), ["error: a quote is not closed, or the line ends in a backslash"])

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
            while b"twampctl> " not in terminal.written[before:]:
                terminal.read()
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

    def test_termination_at_the_prompt_takes_everything_down(self) -> None:
        terminal = self.start()
        terminal.run("up")
        terminal.child.kill(signal.SIGTERM)
        self.assertEqual(terminal.wait_for_end(), 1)
        self.assertIn("module shut down", terminal.lines())

    def test_termination_while_watching_takes_everything_down(self) -> None:
        terminal = self.start()
        terminal.run("up")
        terminal.type("watch --interval 0.05\r")
        terminal.wait_until(lambda at: "RESPONDER" in "\n".join(at.lines()))
        terminal.child.kill(signal.SIGTERM)
        self.assertEqual(terminal.wait_for_end(), 1)
        self.assertIn("error: terminated while watching", terminal.lines())
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
        file = os.path.join(terminal.folder, "history")
        with open(file, encoding="utf-8") as saved:
            self.assertIn("echo\\040second\n", saved.read())
        later = self.start(history=file)
        later.type(UP + UP)
        later.wait_for_prompt("echo first")

    def test_history_that_cannot_be_saved_is_told(self) -> None:
        terminal = self.start(history="/nonexistent/history")
        terminal.type("quit\r")
        self.assertEqual(terminal.wait_for_end(), 0)
        self.assertIn("the history could not be saved to /nonexistent/history", terminal.lines())

    def expect_completion(self, terminal: Terminal, begun: str, completed: str) -> None:
        terminal.type(begun + "\t")
        terminal.wait_for_prompt(completed)
        terminal.type(CONTROL_C)
        terminal.wait_for_prompt()

    def test_tab_completes(self) -> None:
        terminal = self.start()
        for line in ("up", "responder create western", "responder create westward", "responder create Küche",
                     "responder create Köln"):
            terminal.run(line)
        for name in ("setup.twamp", "a folder"):
            with open(os.path.join(terminal.folder, name), "w", encoding="utf-8"):
                pass
        for begun, completed in (
            ("respo", "responder"),
            ("responder cr", "responder create"),
            ("responder create --se", "responder create --sessions"),
            ("responder stats w", "responder stats west"),
            ("responder stats weste", "responder stats western"),
            ("responder stats Kü", "responder stats Küche"),
            ("responder stats K", "responder stats K"),
            ("fault set hyx_se_state_s", "fault set hyx_se_state_set"),
            ("tree default olv_twamp.twamp_b", "tree default olv_twamp.twamp_bind_to_next_module"),
            ("processor use m", "processor use main"),
            ("script se", "script setup.twamp"),
            ("script a", "script a\\ folder"),
            ("help responder st", "help responder stat"),
            ("nonsense x", "nonsense x"),
            ("log level ", "log level"),
            ("echo 'a", "echo 'a"),
        ):
            with self.subTest(begun=begun):
                self.expect_completion(terminal, begun, completed)

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

    def test_names_beyond_ascii(self) -> None:
        terminal = self.start()
        terminal.run("up")
        self.assertEqual(terminal.run("responder create Zürich"), ["responder Zürich created: ID 0x1"])
        self.assertEqual(terminal.run("responder delete Zürich"), ["responder Zürich deleted"])

    def test_watch_stays_in_its_place(self) -> None:
        terminal = self.start()
        terminal.run("up")
        terminal.run("bind ipv4")
        terminal.run("responder create west")
        terminal.type("responder create --count 40\r")
        terminal.wait_until(lambda at: "responder 40 created: ID 0x29" in at.lines())
        terminal.wait_for_prompt()
        address = re.search(r"listening at 127\.0\.0\.1:(\d+)", terminal.run("listen 127.0.0.1:0 --responder west")[0])
        self.assertIsNotNone(address)
        for _ in range(30):  # a session each, as all are open at once
            sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            self.addCleanup(sender.close)
            sender.sendto(bytes(41), ("127.0.0.1", int(address[1])))
        terminal.type("watch --interval 0.3 --count 8\r")
        terminal.wait_until(lambda at: at.lines()[-2:] == ["and 24 more", ""])  # a whole screen
        self.assertIn("and 35 more", terminal.lines())
        scrolled = len(terminal.screen.history.top)
        start = len(terminal.written)
        terminal.wait_until(lambda at: at.written[start:].count(b"every 0.3 s") >= 2 or at.lines()[-1] == "twampctl>")
        terminal.wait_for_prompt()
        self.assertLessEqual(len(terminal.screen.history.top) - scrolled, 1)
        rows = terminal.lines()
        top = next(number for number, row in enumerate(rows) if row.startswith("processor main, module up, every "))
        self.assertLessEqual(len(rows) - top, ROWS)
        self.assertEqual(sum("RESPONDER" in row and "RECEIVED/S" in row for row in rows), 1)
        self.assertIn("total    received 30  sent 30  dropped 0", rows)
        for line in terminal.written[start:].split(b"\r\n"):
            self.assertLessEqual(len(re.sub(rb"\033\[[0-9?]*[A-Za-z]", b"", line)), COLUMNS)


class Help(unittest.TestCase):
    def program(self, *words: str) -> str:
        finished = subprocess.run(
            [os.environ["OLV_TWAMPCTL"], *words], check=True, capture_output=True, text=True, timeout=100
        )
        return finished.stdout

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
        self.assertEqual(texts, self.helps([["help", *words] for words in commands]))
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
