"""A program on a terminal of 80 columns and 24 rows, as a user sees it."""

import os
import signal
import tempfile
import termios
import time

import pexpect
import pyte

PATIENCE = 60.0
COLUMNS = 80
ROWS = 24


class Terminal:
    """A program on a pseudo-terminal, with a screen that shows what it writes."""

    def __init__(self, program: str, *words: str, history: str | None = None, kind: str = "xterm") -> None:
        environment = {**os.environ, "TERM": kind, "LC_ALL": "C.UTF-8"}
        self._folder = tempfile.TemporaryDirectory()  # pylint: disable=consider-using-with
        self.folder = self._folder.name
        environment["TWAMPCTL_HISTORY"] = history or os.path.join(self.folder, "history")
        self.screen = pyte.HistoryScreen(COLUMNS, ROWS, history=10000)
        self._stream = pyte.ByteStream(self.screen)
        self.written = b""
        self.child = pexpect.spawn(program, list(words), dimensions=(ROWS, COLUMNS), env=environment, cwd=self.folder)
        self.child.delaybeforesend = None

    def close(self) -> None:
        """Ends the program in its own way, or else by force."""
        if self.child.isalive():
            self.child.kill(signal.SIGTERM)
            try:
                self.child.expect(pexpect.EOF, timeout=10)
            except pexpect.TIMEOUT:
                self.child.kill(signal.SIGKILL)
        self.child.close()
        self._folder.cleanup()

    def lines(self) -> list[str]:
        """The rows of the screen without the blanks at their ends, down to the cursor."""
        return [row.rstrip() for row in self.screen.display][: self.screen.cursor.y + 1]

    def read(self, seconds: float = 0.1) -> bool:
        """Show what comes. Returns False at the end of the program."""
        try:
            piece = self.child.read_nonblocking(65536, timeout=seconds)
        except pexpect.TIMEOUT:
            return True
        except pexpect.EOF:
            return False
        self.written += piece
        self._stream.feed(piece)
        return True

    def wait_until(self, holds) -> None:
        """Read until this holds of the terminal."""
        deadline = time.monotonic() + PATIENCE
        while not holds(self):
            if not self.read() and not holds(self):
                raise AssertionError("the program ended: " + "\n".join(self.lines()))
            if time.monotonic() > deadline:
                raise AssertionError("never seen: " + "\n".join(self.lines()))

    def wait_for_prompt(self, line: str = "") -> None:
        """Until the last row is the prompt with this behind it."""
        self.wait_until(lambda at: at.lines()[-1] == f"twampctl> {line}".rstrip() and at.is_editing())

    def is_editing(self) -> bool:
        """Whether keys go to the program one by one; until then the terminal shows them itself."""
        return not termios.tcgetattr(self.child.child_fd)[3] & termios.ICANON

    def type(self, text: str) -> None:
        self.child.send(text.encode())

    def run(self, line: str) -> list[str]:
        """Give a command. Returns the rows that it printed, as far as they are on the screen."""
        self.type(line + "\r")
        before = len(self.written)
        self.wait_until(lambda terminal: terminal.written[before:].count(b"\n") > 0)
        self.wait_for_prompt()
        rows = self.lines()
        given = max(number for number, row in enumerate(rows) if row == f"twampctl> {line}")
        return rows[given + 1 : -1]

    def wait_for_end(self) -> int:
        """Read to the end. Returns the exit status, or the negative number of the signal."""
        self.wait_until(lambda at: not at.read())
        self.child.wait()
        return self.child.exitstatus if self.child.exitstatus is not None else -self.child.signalstatus
