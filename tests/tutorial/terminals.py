"""The first terminal of the tutorial, and what the system knows of its programs."""

import os
import re
import time
from collections.abc import Callable
from pathlib import Path

import pexpect

from transcript import SESSION_PROMPT

# A screen that is drawn in the place of the one before: the page shows the last one.
DRAWN_AGAIN = re.compile(r".*\x1b\[\d+A\x1b\[J", re.DOTALL)
PATIENCE = 60
PEER, QUEUES, INODE = 2, 4, 9  # fields of the system's table of sockets


def wait_until(holds: Callable[[], bool], what: str) -> None:
    deadline = time.monotonic() + PATIENCE
    while not holds():
        assert time.monotonic() < deadline, f"in vain: {what}"
        time.sleep(0.005)


def udp_sockets() -> list[list[str]]:
    return [line.split() for line in Path("/proc/net/udp").read_text(encoding="ascii").splitlines()[1:]]


def has_sender_to(port: int) -> bool:
    """Whether a program has a socket that is connected to 127.0.0.1:PORT."""
    return any(each[PEER] == f"0100007F:{port:04X}" for each in udp_sockets())


def environment(programs: str) -> dict[str, str]:
    return {
        **os.environ,
        "PATH": f"{programs}:{os.environ['PATH']}",
        "TERM": "xterm",  # screens are drawn in place
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
            timeout=PATIENCE,
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

    def wait_until_idle(self) -> None:
        """Until the packets that were sent to it are counted: none waits in a socket, and no thread runs."""
        process = Path(f"/proc/{self._terminal.pid}")

        def is_idle() -> bool:
            own = {os.readlink(each) for each in (process / "fd").iterdir()}
            full = [each for each in udp_sockets() if not each[QUEUES].endswith(":00000000")]
            stats = [(task / "stat").read_text(encoding="ascii") for task in (process / "task").iterdir()]
            sleeps = all(stat.rpartition(")")[2].split()[0] == "S" for stat in stats)
            return sleeps and not any(f"socket:[{each[INODE]}]" in own for each in full)

        wait_until(is_idle, "the session has counted what was sent")

    def exit_status(self) -> int | None:
        """After its end; nothing: a signal ended it."""
        self._terminal.close()
        return self._terminal.exitstatus

    def end(self) -> None:
        self._terminal.close(force=True)
