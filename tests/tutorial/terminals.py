"""The two terminals of the tutorial."""

import os
import re
import subprocess

import pexpect

from transcript import SESSION_PROMPT

# A screen that is drawn in the place of the one before: the page shows the last one.
DRAWN_AGAIN = re.compile(r".*\x1b\[\d+A\x1b\[J", re.DOTALL)


def environment(programs: str) -> dict[str, str]:
    return {
        **os.environ,
        "PATH": f"{programs}:{os.environ['PATH']}",
        "TERM": "dumb",
        "LC_ALL": "C.UTF-8",
        "TWAMPCTL_HISTORY": "",
    }


class Session:
    """twampctl's shell, on a terminal."""

    def __init__(self, programs: str, folder: str) -> None:
        self._terminal = pexpect.spawn(
            "twampctl",
            ["shell"],
            cwd=folder,
            env=environment(programs),
            dimensions=(50, 250),  # no line is broken
            timeout=60,
            encoding="utf-8",
        )

    def greeting(self) -> list[str]:
        self._terminal.expect_exact(SESSION_PROMPT)
        return self._terminal.before.splitlines()

    def type(self, command: str) -> list[str]:
        """What the command prints."""
        self._terminal.sendline(command)
        self._terminal.expect_exact([SESSION_PROMPT, pexpect.EOF])
        echo, _, printed = self._terminal.before.partition("\r\n")
        if echo != command:
            raise AssertionError(f"'{command}' was typed, the terminal shows {echo!r}")
        return DRAWN_AGAIN.sub("", printed).splitlines()

    def exit_status(self) -> int | None:
        """After its end; nothing: a signal ended it."""
        self._terminal.close()
        return self._terminal.exitstatus

    def end(self) -> None:
        self._terminal.close(force=True)


class Commands:
    """The system's shell, command by command."""

    def __init__(self, programs: str, folder: str) -> None:
        self._programs = programs
        self._folder = folder
        self._running: list[subprocess.Popen[str]] = []

    def start(self, command: str) -> subprocess.Popen[str]:
        process = subprocess.Popen(
            ["bash", "-c", command],
            cwd=self._folder,
            env=environment(self._programs),
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
        )
        self._running.append(process)
        return process

    def result(self, process: subprocess.Popen[str]) -> list[str]:
        """What the command has printed when it is over."""
        printed, _ = process.communicate(timeout=60)
        self._running.remove(process)
        return printed.splitlines()

    def end(self) -> None:
        for process in self._running:
            process.kill()
            process.communicate()
