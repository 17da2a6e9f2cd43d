"""Types lines and Tab keys in a real Bash and looks at what completion offers and makes of the line.

OLV_PROGRAMS is the folder of the programs, OLV_COMPLETION that of the completion scripts.
"""

import os
import shlex
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

import pexpect

SET_UP = r"""
export PATH=$OLV_PROGRAMS:$PATH HOME=$PWD
source /usr/share/bash-completion/bash_completion
bind 'set bell-style none' 'set enable-bracketed-paste off' 'set completion-query-items 0'
bind 'set page-completions off'
_completion_loader twampctl; _completion_loader twamp-probe
noting_twampctl() { _twampctl "$@"; note; }
noting_twamp_probe() { _twamp_probe "$@"; note; }
note() { printf '%s\n' "${COMPREPLY[@]}" >.reply.new; mv .reply.new .reply; }
complete -F noting_twampctl twampctl; complete -F noting_twamp_probe twamp-probe
bind -x '"\C-xl": printf "%s|\n" "$READLINE_LINE" >.line.new; mv .line.new .line'
PS1='set up> '
"""

TWAMPCTL = [
    # what is typed before Tab, what is offered, the line then: | is its end
    ("twampctl resp", ["responder"], "twampctl responder |"),
    ("twampctl responder s", ["state", "stats"], "twampctl responder stat|"),
    ("twampctl responder create --se", ["--sessions"], "twampctl responder create --sessions |"),
    ("twampctl stats --format ", ["json", "prometheus", "text"], "twampctl stats --format |"),
    ("twampctl stats --format=p", ["prometheus"], "twampctl stats --format=prometheus |"),
    ("twampctl log bits function p", ["pattern"], "twampctl log bits function pattern |"),
    ("twampctl fault set hyx_ptn_le", ["hyx_ptn_learn"], "twampctl fault set hyx_ptn_learn |"),
    ("twampctl tree default olv_twamp.twamp_b", ["olv_twamp.twamp_bind_to_next_module"],
     "twampctl tree default olv_twamp.twamp_bind_to_next_module |"),
    ("twampctl help responder de", ["delete"], "twampctl help responder delete |"),
    ("twampctl sh", ["shell", "show"], "twampctl sh|"),
    ("twampctl shell", ["shell"], "twampctl shell |"),
    ("twampctl nonsense ", [], "twampctl nonsense |"),
    ("twampctl responder create ", [], "twampctl responder create |"),
    # several commands
    ("twampctl up th", ["then"], "twampctl up then |"),
    ("twampctl th", [], "twampctl th|"),
    ("twampctl up then dow", ["down"], "twampctl up then down |"),
    ("twampctl up then responder create west then responder st", ["state", "stats"],
     "twampctl up then responder create west then responder stat|"),
    ("twampctl up then ru", [], "twampctl up then ru|"),
    ("twampctl up then she", ["shell"], "twampctl up then shell |"),
    # what the shell breaks words at
    ("twampctl listen 127.0.0.1:8620 --resp", ["--responder"], "twampctl listen 127.0.0.1:8620 --responder |"),
    ("twampctl listen '[::1]:0' then resp", ["responder"], "twampctl listen '[::1]:0' then responder |"),
    ("twampctl run --listen 127.0.0.1:0 --stamp-mode s", ["stateful", "stateless"],
     "twampctl run --listen 127.0.0.1:0 --stamp-mode state|"),
    ("twampctl run --listen=127.0.0.1:0 --stamp-mode=statel", ["stateless"],
     "twampctl run --listen=127.0.0.1:0 --stamp-mode=stateless |"),
    # files
    ("twampctl script tou", ["tour.twamp"], "twampctl script tour.twamp |"),
    ("twampctl script fol", ["folder"], "twampctl script folder/|"),
    ("twampctl script folder/", ["folder/deep.twamp"], "twampctl script folder/deep.twamp |"),
    ("twampctl script my", ["my tour.twamp"], r"twampctl script my\ tour.twamp |"),
    ("twampctl script ti", ["time:1.twamp"], r"twampctl script time\:1.twamp |"),
    ("twampctl run --config=conf", ["conf.json"], "twampctl run --config=conf.json |"),
    ("twampctl trace to ~/tou", [], "twampctl trace to ~/tour.twamp |"),
]

TWAMP_PROBE = [
    ("twamp-probe --co", ["--count"], "twamp-probe --count |"),
    ("twamp-probe 127.0.0.1:8620 --s", ["--schedule", "--senders", "--size", "--source", "--stamp", "--strict"],
     "twamp-probe 127.0.0.1:8620 --s|"),
    ("twamp-probe '[::1]:8620' --his", ["--histogram"], "twamp-probe '[::1]:8620' --histogram |"),
    ("twamp-probe --format ", ["text", "json", "csv"], "twamp-probe --format |"),
    ("twamp-probe --format=j", ["json"], "twamp-probe --format=json |"),
    ("twamp-probe --padding z", ["zero"], "twamp-probe --padding zero |"),
    ("twamp-probe --count ", [], "twamp-probe --count |"),
    ("twamp-probe --plot del", ["delay.png", "delay.svg"], "twamp-probe --plot delay.|"),
    ("twamp-probe --plot fol", ["folder"], "twamp-probe --plot folder/|"),
    ("twamp-probe --plot tou", [], "twamp-probe --plot tou|"),
    ("twamp-probe -", ["-4", "-6", "--count", "--dont-fragment", "--dscp", "--duration", "--ecn", "--flood", "--forever", "--format",
                       "--help", "--histogram", "--interface", "--interval", "--padding", "--plot", "--ptp",
                       "--report-interval", "--schedule", "--senders", "--size", "--source", "--stamp", "--strict",
                       "--timeout", "--timestamps", "--ttl", "--version", "--window"], "twamp-probe -|"),
]


class TypingShell:
    """Bash on a terminal, in a folder of its own with a few files."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        completions = folder / ".user" / "completions"
        completions.parent.mkdir()
        completions.symlink_to(os.environ["OLV_COMPLETION"])
        for name in ("tour.twamp", "my tour.twamp", "time:1.twamp", "conf.json", "delay.svg", "delay.png"):
            (folder / name).touch()
        (folder / "folder").mkdir()
        (folder / "folder" / "deep.twamp").touch()
        (folder / ".set_up").write_text(SET_UP, encoding="utf-8")
        environment = {**os.environ, "BASH_COMPLETION_USER_DIR": str(folder / ".user"), "TERM": "dumb",
                       "PS1": "$ "}
        self.bash = pexpect.spawn("bash", ["--norc", "--noprofile"], cwd=folder, env=environment,
                                  dimensions=(50, 200), timeout=60)
        self.run("source .set_up")
        self.bash.expect_exact("set up> ")

    def run(self, command: str) -> None:
        self.bash.sendline(command)

    def note(self, name: str) -> str:
        """What the shell writes into a file, when it is there."""
        file = self.folder / name
        deadline = time.monotonic() + 60
        while not file.exists():
            if time.monotonic() > deadline:
                raise TimeoutError(f"{name} was not written")
            time.sleep(0.002)
        text = file.read_text(encoding="utf-8")
        file.unlink()
        return text

    def complete(self, line: str) -> tuple[list[str], str]:
        """What is offered for the end of this line, and what becomes of the line."""
        self.bash.send(line + "\t")
        offered = [each for each in self.note(".reply").splitlines() if each]
        self.bash.send("\x18l")
        completed = self.note(".line").rstrip("\n")
        self.bash.send("\x15")
        return offered, completed

    def close(self) -> None:
        self.bash.close(force=True)


class Completion(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.shell = TypingShell(Path(folder.name))
        self.addCleanup(self.shell.close)

    def check(self, rows: list[tuple[str, list[str], str]]) -> None:
        for typed, offered, completed in rows:
            with self.subTest(typed=typed):
                found = self.shell.complete(typed)
                self.assertEqual((sorted(found[0]), found[1]), (sorted(offered), completed))

    def test_twampctl(self) -> None:
        self.check(TWAMPCTL)

    def test_twamp_probe(self) -> None:
        self.check(TWAMP_PROBE)

    def test_twampctl_where_the_shell_breaks_no_words_at_equals_signs(self) -> None:
        self.shell.run("COMP_WORDBREAKS=${COMP_WORDBREAKS//=}")
        self.check([("twampctl stats --format=p", ["--format=prometheus"], "twampctl stats --format=prometheus |")])

    def test_a_program_by_its_path(self) -> None:
        self.shell.run("ln -s \"$OLV_PROGRAMS/twampctl\" my-twampctl; complete -F noting_twampctl my-twampctl")
        self.check([("./my-twampctl resp", ["responder"], "./my-twampctl responder |"),
                    ("~/my-twampctl resp", ["responder"], "~/my-twampctl responder |")])

    def test_the_values_offered_for_twamp_probe_are_those_that_it_takes(self) -> None:
        program = os.path.join(os.environ["OLV_PROGRAMS"], "twamp-probe")
        for option, values in (
                ("--format", "text json csv"), ("--padding", "random zero"), ("--ecn", "not-ect ect0 ect1 ce"),
                ("--schedule", "periodic poisson"), ("--timestamps", "user kernel hardware"),
                ("--dscp", "CS0 CS7 AF11 AF43 EF VOICE-ADMIT LE DF")):
            refusal = subprocess.run([program, "127.0.0.1:1", option, "none"], check=False, capture_output=True,
                                     text=True)
            self.assertEqual(refusal.returncode, 2)
            for value in shlex.split(values):
                self.assertRegex(refusal.stderr, rf"\b{value}\b")


if __name__ == "__main__":
    unittest.main()
