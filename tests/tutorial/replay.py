"""Types what the tutorial says, in its order."""

import re
import subprocess
import tempfile
import time
from collections.abc import Callable
from contextlib import ExitStack
from pathlib import Path

from ports import KeptPorts, senders_to
from terminals import Commands, Session
from transcript import SESSION_PROMPT, Names, Step

# From one terminal to the other; a packet that nobody answers has been counted by then.
SECONDS_TO_TURN = 0.1
SECONDS_TO_BEGIN = 60
SECONDS_TO_LOOK = 0.01

Check = Callable[[Step, list[str]], None]


def senders_of(command: str) -> set[int]:
    """Ports from which programs send to the address in the command now."""
    address = re.search(r"127\.0\.0\.1:(\d+)", command)
    return senders_to(int(address[1])) if address is not None else set()


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

        self._ports = KeptPorts()
        self._cleanup.callback(self._ports.close)
        self._senders: set[int] = set()

    def run(self, steps: list[Step]) -> None:
        with self._cleanup:
            for step in steps:
                self._ports.keep(self._names.ports() | self._senders)
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
            self._look_for_senders(command, process)
            self._check(step, self._commands.result(process))
            time.sleep(SECONDS_TO_TURN)

    def _wait_for_sender(self, command: str) -> None:
        """Until a program sends to the address in the command: what is typed next shows its packets."""
        deadline = time.monotonic() + SECONDS_TO_BEGIN
        while not (found := senders_of(command)):
            assert time.monotonic() < deadline, f"'{command}' has not begun to send"
            time.sleep(SECONDS_TO_LOOK)
        self._senders |= found

    def _look_for_senders(self, command: str, process: subprocess.Popen[str]) -> None:
        """Until the command is over."""
        while process.poll() is None:
            self._senders |= senders_of(command)
            time.sleep(SECONDS_TO_LOOK)

    def _finish_meanwhile(self) -> None:
        if self._meanwhile is not None:
            step, process = self._meanwhile
            self._meanwhile = None
            self._check(step, self._commands.result(process))
