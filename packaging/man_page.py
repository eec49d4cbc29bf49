#!/usr/bin/env python3
"""man_page.py PROGRAM VERSION SECONDS: the manual page on standard output, of vantlow.1.in and the program's own words.

SECONDS (since 1970) is the date that it bears."""

import datetime
import pathlib
import sys

import words


def escape(text):
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq").replace('"', "\\(dq")
    return "\\&" + text if text.startswith((".", "'")) else text


def bold(text):
    return f"\\fB{escape(text)}\\fR"


def italic(text):
    return f"\\fI{escape(text)}\\fR"


def option_lines(option):
    head = ", ".join(bold(name) for name in option.names)
    if option.takes_value:
        head += " " + italic(option.value) + (" ..." if option.is_repeatable else "")
    text = option.text
    if option.bounds:
        text += f" ({option.bounds[0]} to {option.bounds[1]})"
    return [".TP", head, escape(text) or "\\&"]


def positional_lines(positional):
    return [".TP", italic(positional.names[0]), escape(positional.text) or "\\&"]


def command_lines(command):
    usage = command.usage.replace("SUBCOMMAND", "COMMAND")
    lines = [f".SS {bold(' '.join(['vantlow', *command.path]))} {escape(usage)}", escape(command.text) + "."]
    for positional in command.positionals:
        if positional.text:
            lines += positional_lines(positional)
    for option in command.options:
        if "--help" not in option.names:
            lines += option_lines(option)
    return lines


def does_something(command):
    """It does, or only its commands do."""
    return not command.commands or any("--help" not in option.names for option in command.options)


def page(program, version, seconds):
    root = words.read_command(program)
    template = pathlib.Path(__file__).with_name("vantlow.1.in").read_text(encoding="utf-8")
    commands = [line for c in root.walk() if c.path and does_something(c) for line in command_lines(c)]
    options = [line for option in root.options for line in option_lines(option)]
    date = datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc).date().isoformat()
    for name, value in (
        ("@COMMANDS@", "\n".join(commands)),
        ("@OPTIONS@", "\n".join(options)),
        ("@VERSION@", version),
        ("@DATE@", date),
    ):
        template = template.replace(name, value)
    return template


if __name__ == "__main__":
    sys.stdout.write(page(sys.argv[1], sys.argv[2], int(sys.argv[3])))
