"""Compares what a program says of itself with its manual page, and has mandoc check the page.

OLV_PROGRAM is the program, OLV_MANUAL its page. What the page says of a command's option is found below the command,
whose item begins with ".It Cm".
"""

import os
import re
import subprocess
import unittest
from dataclasses import dataclass, field


@dataclass
class Command:
    """What one command takes; that of a program without commands has no name."""

    options: set[str] = field(default_factory=set)
    arguments: set[str] = field(default_factory=set)


def output_of(*words: str, script: list[str] | None = None) -> str:
    lines = "\n".join(script or [])
    return subprocess.run(
        [os.environ["OLV_PROGRAM"], *words], input=lines, check=True, capture_output=True, text=True
    ).stdout


def listed_below(heading: str, text: str) -> list[str]:
    """First words of a list's items: "  NAME (optional)   Its name" below "Positionals:"."""
    _, _, rest = text.partition(f"\n{heading}:\n")
    return [line.split()[0] for line in rest.split("\n\n")[0].splitlines() if re.match(r" {2}\S", line)]


def help_of(names: list[str]) -> dict[str, str]:
    """The help of commands, from one run of the program: each has its line "Usage: NAME [OPTIONS]"."""
    texts = output_of("script", "-", script=[f"help {name}" for name in names]).split("Usage: ")[1:]
    return {text.partition(" [")[0]: text for text in texts}


def commands_of_help() -> dict[str, Command]:
    overview = output_of("--help")
    if "\nCommands:\n" in overview:
        texts = help_of([name for name in listed_below("Commands", overview) if name != "run"])
        below = [f"{group} {name}" for group, text in texts.items() for name in listed_below("Subcommands", text)]
        texts = {name: text for name, text in texts.items() if not listed_below("Subcommands", text)}
        texts |= help_of(below) | {"run": output_of("run", "--help")}
    else:
        texts = {"": overview}
    return {
        name: Command(
            options={option for item in listed_below("Options", text) for option in item.split(",")},
            arguments={item.lower() for item in listed_below("Positionals", text)},
        )
        for name, text in texts.items()
    }


def commands_of_page() -> dict[str, Command]:
    commands = {"": Command()}
    described = [""]
    with open(os.environ["OLV_MANUAL"], encoding="utf-8") as page:
        for line in page:
            if line.startswith(".It Cm "):  # ".It Cm bind | unbind Ar module", ".It Cm responder delete Op Ar name ..."
                names = re.split(r" (?:Ar|Op) ", line.removeprefix(".It Cm "))[0]
                described = [name.strip() for name in names.split("|")]
                commands |= {name: Command(arguments=set(re.findall(r" Ar (\S+)", line))) for name in described}
            elif line.startswith(".It Fl "):  # ".It Fl h , -help", ".It Fl -count Ar packets"
                for name in described:
                    options = re.findall(r"(?:Fl|,) (-?[0-9a-z][0-9a-z-]*)", line)
                    commands[name].options |= {"-" + option for option in options}
            elif line.startswith(".It Nm "):
                described = [""]
            elif line.startswith(".Ar "):
                commands[""].arguments.add(line.removeprefix(".Ar ").replace(" ", "").strip())
    return commands


class Manual(unittest.TestCase):
    maxDiff = None

    def test_the_page_has_what_the_help_has(self) -> None:
        in_help, in_page = commands_of_help(), commands_of_page()
        if len(in_help) > 1:  # that each command takes --help is said once, in a text
            del in_page[""]
            for command in in_help.values():
                command.options -= {"-h", "--help"}
        known = in_help.get("responder create", in_help.get(""))
        self.assertIn("--sessions" if len(in_help) > 1 else "--help", known.options)
        self.assertEqual(in_page, in_help)

    def test_the_page_has_nothing_to_complain_about(self) -> None:
        lint = ["mandoc", "-Tlint", "-W", "warning", os.environ["OLV_MANUAL"]]
        check = subprocess.run(lint, check=False, capture_output=True, text=True)
        self.assertEqual((check.returncode, check.stdout + check.stderr), (0, ""))


if __name__ == "__main__":
    unittest.main()
