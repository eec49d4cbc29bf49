"""The program's own words, read from its --help: what the man page and the completions are made of."""

import dataclasses
import os
import re
import subprocess


@dataclasses.dataclass
class Option:
    names: list  # "-n", "--connections"; of a positional its one name
    kind: str  # "", "TEXT", "INT:INT in [1 - 64]", "TEXT:{a,b}" ...
    text: str

    @property
    def choices(self):
        found = re.search(r"\{([^}]*)\}", self.kind)
        return found[1].split(",") if found else []

    @property
    def takes_value(self):
        return self.kind != ""

    @property
    def is_repeatable(self):
        return "..." in self.kind

    @property
    def value(self):
        """What stands for the value in a text."""
        if self.choices:
            return "|".join(self.choices)
        if ":FILE" in self.kind:
            return "FILE"
        return "N" if re.match(r"U?INT", self.kind) else self.kind.split()[0].split(":")[0]

    @property
    def bounds(self):
        found = re.search(r"\[(-?\d+) - (-?\d+)\]", self.kind)
        return (found[1], found[2]) if found else None


@dataclasses.dataclass
class Command:
    path: list  # the words that lead to it, without the program
    text: str
    usage: str  # what follows the words: "[OPTIONS] [LINK...]"
    positionals: list
    options: list
    commands: list

    def walk(self):
        yield self
        for command in self.commands:
            yield from command.walk()


def help_of(program, path):
    # In the language and width that this is written for, whatever the caller's are.
    surroundings = os.environ | {"LC_ALL": "C.UTF-8", "COLUMNS": "120"}
    words = [str(program), *path, "--help"]
    return subprocess.run(words, check=True, capture_output=True, text=True, env=surroundings, timeout=60).stdout


def entries(lines):
    """A section's entries as (head, text): the text may begin on the head's line or on the next one."""
    found = []
    for line in lines:
        if match := re.match(r"  (\S.*?)(?:\s{2,}(.*?))?\s*$", line):
            found.append([match[1], match[2] or ""])
        elif line.strip():
            found[-1][1] = f"{found[-1][1]} {line.strip()}".strip()
    return found


def option_of(head, text):
    # "--data-dir TEXT (Env:NAME)": where the variable is told is the hand-written part of the page.
    head = re.sub(r"\s*\((Env:[^)]*)\)", "", head)
    names, _, kind = head.partition(" ")
    return Option(names.split(","), kind.strip(), text)


def read_command(program, path=(), ask=help_of):
    sections = {"": []}
    current = ""
    for line in ask(program, path).splitlines():
        if match := re.match(r"([A-Z][A-Za-z ]*):$", line):
            current = match[1]
            sections[current] = []
        else:
            sections[current].append(line)
    # The global options are those of the program.
    unknown = set(sections) - {"", "Positionals", "Options", "Subcommands", "Global options"}
    if unknown:
        raise ValueError(f"the help of {' '.join(path) or 'the program'} has sections that are not known: {unknown}")
    head = [line for line in sections[""] if line.strip()]
    usage = next(line for line in head if line.startswith("Usage: "))
    positionals = [option_of(*entry) for entry in entries(sections.get("Positionals", []))]
    options = [option_of(*entry) for entry in entries(sections.get("Options", []))]
    commands = [read_command(program, (*path, name), ask) for name, _ in entries(sections.get("Subcommands", []))]
    behind = usage.removeprefix("Usage: " + " ".join(["vantlow", *path])).strip()
    return Command(list(path), head[0], behind, positionals, options, commands)
