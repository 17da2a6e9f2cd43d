"""The two programs as the witnesses run them: bounded in time, and stopped by their own process IDs."""
import ctypes
import json
import os
import re
import select
import shutil
import signal
import subprocess
import time

PATIENCE = 30  # seconds


def required_tool(name):
    """The path of a tool that a test cannot do without."""
    path = shutil.which(name)
    if path is None:
        raise RuntimeError(f"{name} is missing; scripts/install-packages.sh test installs it")
    return path


class Program:
    """A program that has begun, as it has said: `said` is what it wrote up to this pattern."""

    def __init__(self, command, pattern, **pipes):
        self.process = subprocess.Popen(command, **pipes)  # pylint: disable=consider-using-with
        try:
            self.said = self.read_until(self.process.stdout or self.process.stderr, pattern)
        except BaseException:
            self.close()
            raise

    def read_until(self, stream, pattern):
        deadline = time.monotonic() + PATIENCE
        text = ""
        while not re.search(pattern, text, re.MULTILINE):
            left = max(0, deadline - time.monotonic())
            piece = os.read(stream.fileno(), 4096) if select.select([stream], [], [], left)[0] else b""
            if not piece:
                raise RuntimeError(f"{self.process.args[0]} has not begun: {text!r}")
            text += piece.decode()
        return text

    def close(self):
        """Leave nothing behind, whatever happened."""
        if self.process.poll() is None:
            self.process.kill()
        self.process.communicate()


class ControlProgram(Program):
    """twampctl, answering test packets over both families until it is stopped."""

    def __init__(self, *options):
        # Ends by itself after --duration should this test be killed.
        super().__init__([os.environ["OLV_TWAMPCTL"], "run", "--listen", "127.0.0.1:0", "--listen", "[::1]:0",
                          "--duration", "120", *options],
                         r"^ready .*\n", stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.ports = dict(zip((4, 6), map(int, re.findall(r":(\d+)(?= |$)", self.said.splitlines()[-1]))))

    def stop(self):
        """Let it end as an operator would."""
        self.process.send_signal(signal.SIGINT)
        output, _ = self.process.communicate(timeout=PATIENCE)
        if self.process.returncode != 0:
            raise RuntimeError(f"twampctl: {self.process.returncode} {output!r}")


def run_probe(family, port, *options):
    """One measurement of twamp-probe; every packet has to come back valid. Returns the port that it had."""
    address = f"127.0.0.1:{port}" if family == 4 else f"[::1]:{port}"
    command = [os.environ["OLV_TWAMP_PROBE"], address, "--interval", "2", "--format", "json", *options]
    done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{command}: {done.returncode} {done.stdout} {done.stderr}")
    return int(json.loads(done.stdout)["senders"][0]["address"].rpartition(":")[2])


def kernel_clock_is_synchronized():
    """Whether adjtimex(2) says so; asked for nothing else, it writes what it knows and changes nothing."""
    unsynchronized = 5
    libc = ctypes.CDLL(None, use_errno=True)
    return libc.adjtimex(ctypes.create_string_buffer(512)) != unsynchronized
