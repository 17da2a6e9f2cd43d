"""Compares what a program says of itself with its manual page, and has mandoc check the page.

OLV_PROGRAM is the program, OLV_MANUAL its page. A program with commands is asked for the help of each; what its page
says of an option is found below the command, whose item begins with ".It Cm".
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


# ------------------------------------------------------------------------------------------------------------
# The program
# ------------------------------------------------------------------------------------------------------------


def help_of(words: list[str]) -> str:
    return subprocess.run(
        [os.environ["OLV_PROGRAM"], *words, "--help"], check=True, capture_output=True, text=True
    ).stdout


def listed_below(heading: str, text: str) -> list[list[str]]:
    """The words of each item of a list: "  NAME (optional)   Its name" below "Positionals:"."""
    _, _, rest = text.partition(f"\n{heading}:\n")
    return [line.split() for line in rest.split("\n\n")[0].splitlines() if re.match(r" {2}\S", line)]


def read_help(words: list[str], into: dict[str, Command]) -> None:
    """Take down what the command that these words name takes, and the commands below it."""
    text = help_of(words)
    below = listed_below("Commands", text) + listed_below("Subcommands", text)
    for item in below:
        read_help([*words, item[0]], into)
    if not below:
        into[" ".join(words)] = Command(
            options={name for item in listed_below("Options", text) for name in item[0].split(",")},
            arguments={item[0].lower() for item in listed_below("Positionals", text)},
        )


def commands_of_help() -> dict[str, Command]:
    commands: dict[str, Command] = {}
    read_help([], commands)
    return commands


# ------------------------------------------------------------------------------------------------------------
# The page
# ------------------------------------------------------------------------------------------------------------


def options_in(line: str) -> set[str]:
    """".It Fl h , -help", ".It Fl -count Ar packets"."""
    return {"-" + name for name in re.findall(r"(?:Fl|,) (-?[0-9a-z][0-9a-z-]*)", line)}


def names_in(line: str) -> list[str]:
    """".It Cm responder list", ".It Cm bind | unbind Ar module"."""
    words = re.split(r" (?:Ar|Op) ", line.removeprefix(".It Cm "))[0]
    return [name.strip() for name in words.split("|")]


def arguments_in(line: str) -> set[str]:
    """".It Cm responder delete Op Ar name ..."."""
    return set(re.findall(r" Ar (\S+)", line))


def commands_of_page() -> dict[str, Command]:
    commands = {"": Command()}
    described = [""]
    with open(os.environ["OLV_MANUAL"], encoding="utf-8") as page:
        for line in page:
            if line.startswith(".It Cm "):
                described = names_in(line)
                commands.update({name: Command(arguments=arguments_in(line)) for name in described})
            elif line.startswith(".It Fl "):
                for name in described:
                    commands[name].options |= options_in(line)
            elif line.startswith(".It Nm "):
                described = [""]
    return commands


def without_the_whole(commands: dict[str, Command]) -> dict[str, Command]:
    """The commands of a program that has some. That each takes --help is said once, in a text."""
    return {
        name: Command(command.options - {"-h", "--help"}, command.arguments)
        for name, command in commands.items()
        if name != ""
    }


class Manual(unittest.TestCase):
    def test_every_option_is_in_the_page(self) -> None:
        found = commands_of_help()[""].options
        self.assertIn("--help", found)
        self.assertEqual(found - commands_of_page()[""].options, set())

    def test_every_option_of_the_page_exists(self) -> None:
        found = commands_of_page()[""].options
        self.assertIn("--help", found)
        self.assertEqual(found - commands_of_help()[""].options, set())

    def test_the_page_has_nothing_to_complain_about(self) -> None:
        check = subprocess.run(
            ["mandoc", "-Tlint", "-W", "warning", os.environ["OLV_MANUAL"]],
            check=False,
            capture_output=True,
            text=True,
        )
        self.assertEqual(check.stdout + check.stderr, "")
        self.assertEqual(check.returncode, 0)


class Commands(unittest.TestCase):
    """The page of a program with commands."""

    maxDiff = None

    def setUp(self) -> None:
        self.in_help = without_the_whole(commands_of_help())
        self.in_page = without_the_whole(commands_of_page())

    def test_every_command_is_in_the_page(self) -> None:
        self.assertIn("responder create", self.in_help)
        self.assertEqual(self.in_help.keys() - self.in_page.keys(), set())

    def test_every_command_of_the_page_exists(self) -> None:
        self.assertIn("responder create", self.in_page)
        self.assertEqual(self.in_page.keys() - self.in_help.keys(), set())

    def test_every_option_stands_with_its_command(self) -> None:
        self.assertIn("--sessions", self.in_page["responder create"].options)
        self.assertEqual(
            {name: command.options for name, command in self.in_page.items()},
            {name: command.options for name, command in self.in_help.items()},
        )

    def test_every_argument_stands_with_its_command(self) -> None:
        self.assertEqual(self.in_page["responder create"].arguments, {"name"})
        self.assertEqual(
            {name: command.arguments for name, command in self.in_page.items()},
            {name: command.arguments for name, command in self.in_help.items()},
        )


if __name__ == "__main__":
    unittest.main()
