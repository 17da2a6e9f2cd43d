"""twampctl as it answers packets at a host of its own."""
import json
import os
import signal
import subprocess

PATIENCE = 60  # seconds


class Reflector:
    def __init__(self, host, *options):
        self.process = subprocess.Popen(  # pylint: disable=consider-using-with
            # Ends by itself should this test be killed.
            [os.environ["OLV_TWAMPCTL"], "run", "--duration", "240", *options, "--format", "json"],
            preexec_fn=host.enter, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        said = ""
        for line in self.process.stderr:
            if line.startswith("ready "):
                return
            said += line
        self.close()
        raise RuntimeError(f"twampctl has not begun: {said!r}")

    def close(self):
        """Leave nothing behind, whatever happened. Returns what it wrote since."""
        if self.process.returncode is not None:
            return "", ""
        self.process.kill()
        return self.process.communicate()

    def stop(self):
        """End it as an operator would. Returns its figures."""
        self.process.send_signal(signal.SIGINT)
        output, errors = self.process.communicate(timeout=PATIENCE)
        if self.process.returncode != 0:
            raise RuntimeError(f"twampctl: {self.process.returncode} {errors!r}")
        return json.loads(output)
