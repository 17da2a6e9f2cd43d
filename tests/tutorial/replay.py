"""Types what the tutorial says, in its order."""

import re
import socket
import subprocess
import tempfile
from collections.abc import Callable
from contextlib import ExitStack, suppress
from pathlib import Path

from terminals import PATIENCE, Session, environment, has_sender_to, wait_until
from transcript import SESSION_PROMPT, Names, Step


class Replay:
    """Calls `check` for each step with what was printed; names that it learns count for what is typed after it."""

    def __init__(self, root: Path, programs: str, names: Names, check: Callable[[Step, list[str]], None]) -> None:
        self._names = names
        self._check = check
        self._programs = programs
        self._meanwhile: tuple[Step, subprocess.Popen[str]] | None = None
        self._session: Session | None = None
        self._cleanup = ExitStack()
        self._folder = self._cleanup.enter_context(tempfile.TemporaryDirectory())
        (Path(self._folder) / "docs").symlink_to(root / "docs")
        self._taken: set[tuple[int, int]] = set()

    def run(self, steps: list[Step]) -> None:
        with self._cleanup:
            for step in steps:
                self._keep_ports()
                command = self._names.in_command(step.command)
                if step.prompt == SESSION_PROMPT:
                    self._type_in_session(step, command)
                elif command == "twampctl shell":
                    self._begin_session(step)
                else:
                    self._run(step, command)
            self._finish_meanwhile()
            assert self._session is None, "the page leaves a session open"

    def _keep_ports(self) -> None:
        """The page has another port for each program. The system may give one again that is free: take it."""
        for kind in (socket.SOCK_DGRAM, socket.SOCK_STREAM):
            for port in self._names.ports():
                if (kind, port) not in self._taken:
                    taken = self._cleanup.enter_context(socket.socket(socket.AF_INET, kind))
                    with suppress(OSError):  # a program has it still
                        taken.bind(("127.0.0.1", port))
                        self._taken.add((kind, port))

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
        """In the system's shell."""
        self._finish_meanwhile()
        process = subprocess.Popen(
            ["bash", "-c", command], cwd=self._folder, env=environment(self._programs), text=True,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        )
        self._cleanup.callback(process.communicate)
        self._cleanup.callback(process.kill)
        self._meanwhile = (step, process)
        if not step.meanwhile:
            self._finish_meanwhile()
            if self._session is not None:
                self._session.wait_until_idle()
            return
        address = re.search(r"127\.0\.0\.1:(\d+)", command)
        assert address is not None, f"line {step.line}: nothing is sent to an address"
        wait_until(lambda: has_sender_to(int(address[1])), f"'{command}' begins to send")

    def _finish_meanwhile(self) -> None:
        if self._meanwhile is not None:
            step, process = self._meanwhile
            self._meanwhile = None
            self._check(step, process.communicate(timeout=PATIENCE)[0].splitlines())
