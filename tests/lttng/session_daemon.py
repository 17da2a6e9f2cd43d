"""A session daemon of LTTng for one test: its files lie in a folder of the test's, it ends with the test, and
neither the machine's daemon nor one of the user's is reached.
"""
import contextlib
import grp
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

PATIENCE = 30  # seconds for what takes a moment
NOBODY_S = 64999  # as user: whoever else has it would share LTTng's wait file
ENDS_WITH_US = ["setpriv", "--pdeathsig", "TERM"]  # a program before which this stands
TOOLS = ("babeltrace2", "lttng", "lttng-sessiond", "setpriv", "unshare")


def reaches_the_machine_s_daemon():
    """Whatever the environment says, root does, and whoever is in the group of tracing."""
    try:
        return os.geteuid() == 0 or grp.getgrnam("tracing").gr_gid in os.getgroups()
    except KeyError:
        return False


def become_nobody_s():
    """Run the test again as a user who reaches no daemon but his own, unless that is so already."""
    missing = [tool for tool in TOOLS if shutil.which(tool) is None]
    if missing:
        sys.exit(f"missing: {' '.join(missing)}; scripts/install-packages.sh test")
    if not reaches_the_machine_s_daemon():
        return
    name_space = ["unshare", "--user", f"--map-user={NOBODY_S}", f"--map-group={NOBODY_S}"]
    identity = ["setpriv", f"--reuid={NOBODY_S}", f"--regid={NOBODY_S}", "--clear-groups"]
    for other_user in (name_space, identity):
        if subprocess.run([*other_user, "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0:
            os.execvp(other_user[0], [*other_user, sys.executable, "-B", *sys.argv])
    sys.exit("this user cannot become another one here")


def wait_for(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"{what}: not within {PATIENCE} s")
        time.sleep(0.02)


def descendants(process):
    """Process IDs of the children of a process, and of theirs."""
    try:
        children = [int(child) for child in Path(f"/proc/{process}/task/{process}/children").read_text().split()]
    except FileNotFoundError:
        return []
    return children + [each for child in children for each in descendants(child)]


def is_alive(process):
    try:
        return Path(f"/proc/{process}/stat").read_text().rsplit(")", 1)[1].split()[0] != "Z"
    except FileNotFoundError:
        return False


def remove_wait_file():
    """LTTng-UST's, for a user that only these tests have."""
    if os.geteuid() == NOBODY_S:
        Path(f"/dev/shm/lttng-ust-wait-8-{NOBODY_S}").unlink(missing_ok=True)


def end(process):
    """Ends a program that was started with Popen, and what it has started."""
    family = [process.pid, *descendants(process.pid)]
    process.terminate()
    try:
        wait_for(lambda: process.poll() is not None and not any(map(is_alive, family)), "end of the session daemon")
    except AssertionError:
        for each in filter(is_alive, family):
            os.kill(each, signal.SIGKILL)
        process.wait()
        raise


class SessionDaemon:
    """To be used with `with`. `environment` is what programs need that are to be traced."""

    def __enter__(self):
        with contextlib.ExitStack() as done:
            self.folder = Path(done.enter_context(tempfile.TemporaryDirectory(prefix="olv-lttng-")))
            self.environment = {**os.environ, "LTTNG_HOME": str(self.folder),
                                "LTTNG_UST_REGISTER_TIMEOUT": str(PATIENCE * 1000)}
            done.callback(remove_wait_file)
            log = done.enter_context((self.folder / "daemon.log").open("wb"))
            self.process = subprocess.Popen([*ENDS_WITH_US, "lttng-sessiond", "--no-kernel"], env=self.environment,
                                            stdout=log, stderr=log, stdin=subprocess.DEVNULL)
            done.callback(end, self.process)
            wait_for(self.answers, "answer of the session daemon")
            self.undo = done.pop_all()
        return self

    def __exit__(self, *_):
        self.undo.close()

    def answers(self):
        if self.process.poll() is not None:
            raise AssertionError("the session daemon has ended: " + (self.folder / "daemon.log").read_text())
        return self.finished("lttng", "--no-sessiond", "list").returncode == 0

    def finished(self, *command):
        return subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=PATIENCE,
                              check=False)

    def run(self, *command):
        """Run a program, which has to succeed."""
        done = self.finished(*command)
        if done.returncode != 0:
            raise AssertionError(f"{command}: {done.stdout}{done.stderr}")
        return done

    def lttng(self, *arguments):
        self.run("lttng", "--no-sessiond", *arguments)

    def record(self, work, sessions):
        """Does some work and returns the events that each session has recorded of it, as lines of text. A session's
        choices are what `lttng enable-event` is told."""
        for name, choices in sessions.items():
            self.lttng("create", name, f"--output={self.folder / name}")
            self.lttng("enable-channel", "--userspace", "channel", "--subbuf-size=64k", "--num-subbuf=4")
            for choice in choices:
                self.lttng("enable-event", "--userspace", "--channel=channel", *choice)
            self.lttng("start")
        work()
        for name in sessions:
            self.lttng("stop", name)  # when all of it is in the files
        return {name: self.events_of(name) for name in sessions}

    def events_of(self, session):
        done = self.run("babeltrace2", "--no-delta", str(self.folder / session))
        if "discarded" in done.stderr:
            raise AssertionError(f"babeltrace2: {done.stderr}")
        return [plain(line) for line in done.stdout.splitlines()]


def plain(line):
    """An event's line without time, machine and processor, its arrays as their values alone, word 0 of a pattern, which
    is the platform's own, as P."""
    line = re.sub(r"^\[[0-9:.]+\] (?:\(\+[0-9.?]+\) )?\S+ olv_twamp:(\w+): \{ cpu_id = \d+ \}, \{ (.*?)(?: \})?$",
                  r"\1: \2", line)
    return re.sub(r"pattern = \[ 0x[0-9A-F]+, 0x18,", "pattern = [ P, 0x18,", re.sub(r"\[(\d+)\] = ", "", line))


def without_places(line):
    """Lines of the source as N, addresses of records as ADDRESS."""
    return re.sub(r"(?<= module )0x[0-9a-f]+", "ADDRESS", re.sub(r"(?<=line = )\d+", "N", line))
