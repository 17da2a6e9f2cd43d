"""A session daemon of LTTng for one test: its files lie in a folder of the test's, it ends with the test, and
neither the machine's daemon nor one of the user's is reached.
"""
import grp
import os
import re
import shutil
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
    family = descendants(process.pid)
    process.terminate()
    try:
        process.wait(PATIENCE)
        wait_for(lambda: not any(map(is_alive, family)), "end of the children")
    except (subprocess.TimeoutExpired, AssertionError):
        process.kill()
        process.wait()
        for each in filter(is_alive, family):
            os.kill(each, 9)
        raise


class SessionDaemon:
    """To be used with `with`. `environment` is what programs need that are to be traced."""

    def __init__(self):
        self.folder = None
        self.environment = None
        self.process = None
        self.log = None

    def __enter__(self):
        self.folder = Path(tempfile.mkdtemp(prefix="olv-lttng-"))
        self.environment = {**os.environ, "LTTNG_HOME": str(self.folder), "LTTNG_UST_REGISTER_TIMEOUT": str(PATIENCE * 1000)}
        try:
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        try:
            if self.process is not None:
                end(self.process)
        finally:
            if self.log is not None:
                self.log.close()
            shutil.rmtree(self.folder)
            remove_wait_file()

    def start(self):
        self.log = (self.folder / "daemon.log").open("wb")
        self.process = subprocess.Popen(
            [*ENDS_WITH_US, "lttng-sessiond", "--no-kernel"], env=self.environment, stdout=self.log,
            stderr=self.log, stdin=subprocess.DEVNULL)
        wait_for(self.answers, "answer of the session daemon")

    def answers(self):
        if self.process.poll() is not None:
            raise AssertionError("the session daemon has ended: " + (self.folder / "daemon.log").read_text())
        return self.lttng_command("list").returncode == 0

    def lttng_command(self, *arguments):
        return subprocess.run(["lttng", "--no-sessiond", *arguments], env=self.environment, capture_output=True,
                              text=True, timeout=PATIENCE, check=False)

    def lttng(self, *arguments):
        done = self.lttng_command(*arguments)
        if done.returncode != 0:
            raise AssertionError(f"lttng {' '.join(arguments)}: {done.stdout}{done.stderr}")

    def record(self, work, *choices):
        """Does some work and returns the events that it sent, as lines of text. Each choice is what
        `lttng enable-event` is told."""
        self.lttng("create", "test", f"--output={self.folder / 'trace'}")
        self.lttng("enable-channel", "--userspace", "channel", "--subbuf-size=64k", "--num-subbuf=4")
        for choice in choices:
            self.lttng("enable-event", "--userspace", "--channel=channel", *choice)
        self.lttng("start")
        work()
        self.lttng("stop")
        self.lttng("destroy")
        return self.read()

    def read(self):
        done = subprocess.run(["babeltrace2", "--no-delta", str(self.folder / "trace")], env=self.environment,
                              capture_output=True, text=True, timeout=PATIENCE, check=False)
        if done.returncode != 0 or "discarded" in done.stderr:
            raise AssertionError(f"babeltrace2: {done.stderr}")
        return done.stdout.splitlines()


def plain(line):
    """An event's line without time, machine and processor, and its arrays as their values alone."""
    line = re.sub(r"^\[[0-9:.]+\] (?:\(\+[0-9.?]+\) )?\S+ olv_twamp:(\w+): \{ cpu_id = \d+ \}, \{ (.*?)(?: \})?$",
                  r"\1: \2", line)
    return re.sub(r"\[(\d+)\] = ", "", line)
