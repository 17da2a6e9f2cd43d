"""The two programs as the witnesses run them: bounded in time, and stopped by their own process IDs."""
import json
import os
import re
import select
import shutil
import signal
import subprocess
import time

READY_SECONDS = 30
END_SECONDS = 30


def required_tool(name):
    """The path of a tool that a test cannot do without."""
    path = shutil.which(name)
    if path is None:
        raise RuntimeError(f"{name} is missing; scripts/install-packages.sh test installs it")
    return path


class ControlProgram:
    """twampctl, answering test packets over both families until it is stopped."""

    def __init__(self, *options):
        command = [os.environ["OLV_TWAMPCTL"], "run", "--listen", "127.0.0.1:0", "--listen", "[::1]:0",
                   "--duration", "120", *options]
        # Ends by itself after --duration should this test be killed.
        self.process = subprocess.Popen(  # pylint: disable=consider-using-with
            command, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.text = ""
        self.ports = {}
        try:
            ready = self.wait_for_line("ready ")
            self.ports[4], self.ports[6] = (int(port) for port in re.findall(r":(\d+)(?= |$)", ready))
        except BaseException:
            self.close()
            raise

    def wait_for_line(self, start):
        deadline = time.monotonic() + READY_SECONDS
        stream = self.process.stdout.fileno()
        while True:
            for line in self.text.splitlines(keepends=True):
                if line.startswith(start) and line.endswith("\n"):
                    return line.rstrip("\n")
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([stream], [], [], left)[0]:
                raise RuntimeError(f"twampctl printed no line '{start}' in time: {self.text!r}")
            piece = os.read(stream, 4096)
            if not piece:
                raise RuntimeError(f"twampctl ended early: {self.text!r} {self.process.stderr.read()!r}")
            self.text += piece.decode()

    def stop(self):
        """Let it end as an operator would. Returns the exit status and all that it printed."""
        self.process.send_signal(signal.SIGINT)
        output, errors = self.process.communicate(timeout=END_SECONDS)
        self.text += output.decode()
        return self.process.returncode, self.text + errors.decode()

    def close(self):
        """Leave nothing behind, whatever happened."""
        if self.process.poll() is None:
            self.process.kill()
        self.process.communicate()


def figures(output, heading):
    """The lines of one section of twampctl's statistics."""
    section = output.split(heading + "\n", 1)[1].split("\n\n", 1)[0]
    return section.splitlines()


def run_probe(family, port, *options):
    """One measurement of twamp-probe; every packet has to come back valid. Returns the port that it had."""
    address = f"127.0.0.1:{port}" if family == 4 else f"[::1]:{port}"
    command = [os.environ["OLV_TWAMP_PROBE"], address, "--interval", "2", "--format", "json", *options]
    done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{command}: {done.returncode} {done.stdout} {done.stderr}")
    return int(json.loads(done.stdout)["senders"][0]["address"].rpartition(":")[2])
