"""Types what the tutorial says, in its order."""

import re
import subprocess
import tempfile
import time
from collections.abc import Callable
from contextlib import ExitStack
from pathlib import Path

from terminals import Commands, Session
from transcript import SESSION_PROMPT, Names, Step

# From one terminal to the other; a packet that nobody answers has been counted by then.
SECONDS_TO_TURN = 0.1
SECONDS_TO_BEGIN = 20

Check = Callable[[Step, list[str]], None]


class Replay:
    """Calls `check` for each step with what was printed; names that it learns count for what is typed after it."""

    def __init__(self, root: Path, programs: str, names: Names, check: Check) -> None:
        self._names = names
        self._check = check
        self._programs = programs
        self._meanwhile: tuple[Step, subprocess.Popen[str]] | None = None
        self._session: Session | None = None
        self._cleanup = ExitStack()
        self._folder = self._cleanup.enter_context(tempfile.TemporaryDirectory())
        (Path(self._folder) / "docs").symlink_to(root / "docs")
        self._commands = Commands(programs, self._folder)
        self._cleanup.callback(self._commands.end)

    def run(self, steps: list[Step]) -> None:
        with self._cleanup:
            for step in steps:
                command = self._names.in_command(step.command)
                if step.prompt == SESSION_PROMPT:
                    self._type_in_session(step, command)
                elif command == "twampctl shell":
                    self._begin_session(step)
                else:
                    self._run(step, command)
            self._finish_meanwhile()
            assert self._session is None, "the page leaves a session open"

    def _begin_session(self, step: Step) -> None:
        self._session = Session(self._programs, self._folder)
        self._cleanup.callback(self._session.end)
        self._check(step, self._session.greeting())

    def _type_in_session(self, step: Step, command: str) -> None:
        assert self._session is not None, f"line {step.line}: no session was begun"
        self._check(step, self._session.type(command))
        if command == "quit":
            assert self._session.exit_status() == 0, "the session did not end well"
            self._session = None

    def _run(self, step: Step, command: str) -> None:
        self._finish_meanwhile()
        process = self._commands.start(command)
        if step.meanwhile:
            self._meanwhile = (step, process)
            self._wait_for_sender(command)
        else:
            self._check(step, self._commands.result(process))
            time.sleep(SECONDS_TO_TURN)

    def _wait_for_sender(self, command: str) -> None:
        """Until a program sends to the address in the command: what is typed next shows its packets."""
        port = re.search(r"127\.0\.0\.1:(\d+)", command)
        assert port is not None, f"'{command}' has no address"
        peer = f" 0100007F:{int(port[1]):04X} 01 "  # connected
        deadline = time.monotonic() + SECONDS_TO_BEGIN
        while peer not in Path("/proc/net/udp").read_text(encoding="ascii"):
            assert time.monotonic() < deadline, f"'{command}' has not begun to send"
            time.sleep(0.01)

    def _finish_meanwhile(self) -> None:
        if self._meanwhile is not None:
            step, process = self._meanwhile
            self._meanwhile = None
            self._check(step, self._commands.result(process))
