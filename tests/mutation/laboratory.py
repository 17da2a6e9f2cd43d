"""Where mutants are built and tested: the commands come from a build of the project, everything is written below a
folder of its own.

Mutants are compiled without warnings, and optimised: a change that makes no difference often compiles to the same
code. Only what a mutant changes is compiled again. The tests are those of the build, with the mutant's library in
place of theirs; those that are likely to fail run first, and the first that fails is the last.
"""
import functools
import hashlib
import json
import math
import os
import re
import resource
import shlex
import shutil
import signal
import subprocess
from pathlib import Path

DROPPED = re.compile(r"-W(?!l,).*|-g\d?|-O.|-M[MD]*|-c|-fstack-usage|-ffile-prefix-map=.*")
DROPPED_WITH_VALUE = {"-MT", "-MF", "-o"}
LIBRARY = "libolv-twamp.so.1"
SOURCES = ("twamp", "include", "platform")
OUTPUT_LIMIT = 64 << 20
MEMORY_LIMIT = 2 << 30

# What becomes of a mutant.
NOT_COMPILED = "did not compile"
SAME_CODE = "same code"
SURVIVED = "survived"
FAILED_TEST = "failed test"
CRASH = "crash"
TIME_OUT = "time-out"

HUNG = (-signal.SIGALRM, -signal.SIGXCPU)


class Laboratory:
    def __init__(self, root, build, folder):
        self.root = root
        self.build = build
        self.folder = folder
        self.cpu_limit = 60  # seconds of the processor for the tests; set anew by prepare()
        self.tests = build / "tests/library/library_tests"
        self.compile_commands = self._read_compile_commands()
        self.link_command = self._read_link_command()
        self.reference = folder / "reference"
        self.users = {}  # path of a source or header -> the sources that are compiled from it

    def prepare(self):
        """Build the unchanged library as mutants are built and see its tests pass."""
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        self._precompile_headers()
        self._copy_sources(self.reference)
        for source in self.compile_commands:
            if not self._compile(self.reference, source, ["-MMD"]):
                raise RuntimeError(f"{source} does not compile unchanged")
            self._note_users(source)
        if not self._link(self.reference, set()):
            raise RuntimeError("the unchanged library does not link")
        self._expect_loaded(self.reference)
        begin = resource.getrusage(resource.RUSAGE_CHILDREN)
        fate, test = self._run_tests(self.reference, "*")
        if fate != SURVIVED:
            raise RuntimeError(f"the tests do not pass with the unchanged library: {fate}: {test}")
        end = resource.getrusage(resource.RUSAGE_CHILDREN)
        self.cpu_limit = math.ceil(3 + 3 * (end.ru_utime + end.ru_stime - begin.ru_utime - begin.ru_stime))

    def fingerprint(self):
        """The same for the same library, tests and way to build: what became of a mutant stands."""
        loaded = re.findall(r"=> (\S+) ", self._loaded(self.reference))
        paths = [Path(__file__), self.tests, *(Path(name) for name in loaded if name.startswith(str(self.build)))]
        paths += [path for name in SOURCES for path in sorted((self.reference / name).iterdir())]
        digest = hashlib.sha256(repr(self.compile_commands).encode())
        for path in paths:
            digest.update(hashlib.sha256(path.read_bytes()).digest())
        return digest.hexdigest()

    def examine(self, workplace, path, text, likely):
        """The fate of the library with another text of one file, and the test that tells it; likely ones first."""
        if not workplace.exists():
            self._copy_sources(workplace)
        changed = workplace / path
        original = changed.read_text(encoding="utf-8")
        changed.write_text(text, encoding="utf-8")
        try:
            return self._examine_changed(workplace, path, likely)
        finally:
            changed.write_text(original, encoding="utf-8")

    def _examine_changed(self, workplace, path, likely):
        different = set()
        for source in self.users.get(path, ()):
            if not self._compile(workplace, source):
                return NOT_COMPILED, ""
            if self._object(workplace, source).read_bytes() != self._object(self.reference, source).read_bytes():
                different.add(source)
        if not different:
            return SAME_CODE, ""
        if not self._link(workplace, different):
            return NOT_COMPILED, ""
        names = ":".join(likely)
        fate, test = self._run_tests(workplace, names) if likely else (SURVIVED, "")
        return (fate, test) if fate != SURVIVED else self._run_tests(workplace, f"-{names}")

    def _read_compile_commands(self):
        commands = {}
        for entry in json.loads((self.build / "compile_commands.json").read_text(encoding="utf-8")):
            source = Path(entry["directory"], entry["file"]).resolve().relative_to(self.root)
            if source.parts[0] == "twamp":
                commands[str(source)] = self._reduced(shlex.split(entry["command"]), source)
        return commands

    def _reduced(self, command, source):
        kept = []
        words = iter(command)
        for word in words:
            if word in DROPPED_WITH_VALUE:
                next(words)
            elif not DROPPED.fullmatch(word) and not word.endswith(str(source)):
                kept.append(word)
        return kept + ["-O2", "-Werror=return-type"]

    def _read_link_command(self):
        commands = subprocess.run(
            ["ninja", "-C", self.build, "-t", "commands", "olv-twamp"], check=True, capture_output=True, text=True
        ).stdout
        command = next(line for line in commands.splitlines() if LIBRARY in line and "-shared" in line)
        words = shlex.split(command.removeprefix(": && ").removesuffix(" && :"))
        position = words.index("-o")
        return [word for word in words[:position] + words[position + 2 :] if not word.endswith(".o")]

    def _precompile_headers(self):
        """The system's headers take longer to compile than the library."""
        names = set()
        for path in sorted((self.root / "twamp").glob("*.[ch]pp")):
            names.update(re.findall(r"^#include (<\w[^>]*>)", path.read_text(encoding="utf-8"), re.MULTILINE))
        header = self.folder / "system.hpp"
        header.write_text("".join(f"#include {name}\n" for name in sorted(names)), encoding="utf-8")
        command = next(iter(self.compile_commands.values()))
        subprocess.run([*command, "-x", "c++-header", header, "-o", f"{header}.gch"], check=True, cwd=self.folder)

    def _copy_sources(self, workplace):
        for name in SOURCES:
            shutil.copytree(self.root / name, workplace / name)

    def _object(self, workplace, source):
        return workplace / (Path(source).stem + ".o")

    def _compile(self, workplace, source, options=()):
        command = [word.replace(f"-I{self.root}/", f"-I{workplace}/") for word in self.compile_commands[source]]
        command += ["-include", self.folder / "system.hpp", *options]
        command += ["-c", workplace / source, "-o", self._object(workplace, source)]
        return succeeds(command, workplace)

    def _note_users(self, source):
        dependencies = self._object(self.reference, source).with_suffix(".d").read_text(encoding="utf-8")
        for name in dependencies.replace("\\\n", " ").split()[1:]:
            path = Path(name).resolve()
            if path.is_relative_to(self.reference):
                self.users.setdefault(str(path.relative_to(self.reference)), []).append(source)

    def _link(self, workplace, different):
        objects = [
            self._object(workplace if source in different else self.reference, source)
            for source in self.compile_commands
        ]
        return succeeds([*self.link_command, "-o", workplace / LIBRARY, *objects], workplace)

    def _environment(self, workplace):
        return {**os.environ, "LD_LIBRARY_PATH": str(workplace)}

    def _loaded(self, workplace):
        return subprocess.run(["ldd", self.tests], check=True, capture_output=True, text=True,
                              env=self._environment(workplace)).stdout

    def _expect_loaded(self, workplace):
        if f"{LIBRARY} => {workplace / LIBRARY} " not in self._loaded(workplace):
            raise RuntimeError(f"the tests load another library than the one to test:\n{self._loaded(workplace)}")

    def _run_tests(self, workplace, names):
        """Run tests until one fails."""
        output = workplace / "output"
        with open(output, "wb") as stream:
            with subprocess.Popen(
                [self.tests, "--gtest_fail_fast", f"--gtest_filter={names}"], cwd=workplace,
                stdin=subprocess.DEVNULL, stdout=stream, stderr=stream, env=self._environment(workplace),
                start_new_session=True, preexec_fn=functools.partial(limit_resources, self.cpu_limit),
            ) as process:
                status = wait_while_busy(process)
        if status == 0:
            return SURVIVED, ""
        fate = TIME_OUT if status in HUNG else CRASH if status < 0 else FAILED_TEST
        return fate, ended_in(output.read_bytes()) or f"status {status}"


def ended_in(output):
    """The test that failed first, or the last one that began. Those that are skipped after a failure begin, too."""
    failed = re.findall(rb"\[  FAILED  \] (\w+\.\w+)", output)
    begun = re.findall(rb"\[ RUN      \] (\w+\.\w+)", output)
    return (failed[:1] or begun[-1:] or [b""])[0].decode()


def succeeds(command, folder):
    return subprocess.run(command, cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL, check=False).returncode == 0


def wait_while_busy(process):
    """The exit status. A process that waits for what never comes is killed: it has stopped using the processor."""
    used = None
    while True:
        try:
            return process.wait(3)
        except subprocess.TimeoutExpired:
            fields = Path(f"/proc/{process.pid}/stat").read_text(encoding="ascii").split()
            before, used = used, fields[13:15]  # time in the program and in the kernel
            if used == before and fields[2] == "S":
                os.kill(process.pid, signal.SIGALRM)


def limit_resources(cpu_seconds):
    signal.alarm(600)  # even if nobody is left to wait
    resource.setrlimit(resource.RLIMIT_CPU, (cpu_seconds, cpu_seconds + 5))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_FSIZE, (OUTPUT_LIMIT, OUTPUT_LIMIT))
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))
