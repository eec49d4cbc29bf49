#!/usr/bin/env python3
"""completions.py bash|zsh PROGRAM: the shell's completion on standard output, made of the program's own words."""

import sys

import words

# What the help calls a text is the name of a file or a folder where the option is one of these.
FILES = {"--settings", "--input", "--output", "--ca-file", "--key"}
FOLDERS = {"--data-dir", "--dir", "--folder"}
BASH_ACTIONS = {"files": "-f", "folders": "-d"}
# Positionals that are, or may be, files of this machine.
FILE_POSITIONALS = {"LINK", "FILE", "TORRENT", "PATH", "PIECE"}


def value_kind(option):
    """"files", "folders", a list of words, or None where nothing can be proposed."""
    if option.choices:
        return option.choices
    if FILES & set(option.names):
        return "files"
    return "folders" if FOLDERS & set(option.names) else None


def options_of(root, command):
    """The command's own options and, behind every command, the global ones."""
    if not command.path:
        return command.options
    own = {name for option in command.options for name in option.names}
    return command.options + [o for o in root.options if not own & set(o.names) and "--version" not in o.names]


def bash_case(root, command):
    path = " ".join(command.path)
    options = options_of(root, command)
    names = [name for option in options for name in option.names]
    valued = [name for option in options if option.takes_value for name in option.names]
    yield f"        '{path}')"
    yield f"            commands='{' '.join(c.path[-1] for c in command.commands)}'"
    yield f"            options='{' '.join(names)}'"
    yield f"            valued=' {' '.join(valued)} '"
    files = any(p.names[0] in FILE_POSITIONALS for p in command.positionals)
    yield f"            files={'yes' if files else ''}"
    yield "            ;;"


def bash_value_cases(root):
    cases = {}
    for command in root.walk():
        for option in filter(value_kind, options_of(root, command)):
            kind = value_kind(option)
            if option.takes_value:
                action = f"-W '{' '.join(kind)}'" if isinstance(kind, list) else BASH_ACTIONS[kind]
                for name in option.names:
                    cases.setdefault((name, action), []).append(" ".join(command.path))
    for (name, action), paths in sorted(cases.items()):
        for path in sorted(set(paths)):
            yield f"        '{path}:{name}') mapfile -t COMPREPLY < <(compgen {action} -- \"$current\") ;;"


def bash(root):
    lines = [
        "# bash completion for vantlow",
        "_vantlow_words() {",
        "    case $1 in",
        *(line for command in root.walk() for line in bash_case(root, command)),
        "    esac",
        "}",
        "_vantlow_value() {",
        "    case $1 in",
        *bash_value_cases(root),
        "    esac",
        "}",
        BASH_WALK,
    ]
    return "\n".join(lines)


BASH_WALK = """\
_vantlow() {
    local current=${COMP_WORDS[COMP_CWORD]} path='' word last='' i
    local commands='' options='' valued='' files=''
    COMPREPLY=()
    _vantlow_words ''
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ -n $last ]]; then
            last='' # the value of an option
        elif [[ $valued == *" $word "* ]]; then
            last=$word
        elif [[ " $commands " == *" $word "* ]]; then
            path=${path:+$path }$word
            _vantlow_words "$path"
        elif [[ $word != -* ]]; then
            commands='' # a link, or the like: no command follows
        fi
    done
    if [[ -n $last ]]; then
        _vantlow_value "$path:$last"
    elif [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$current")
        if [[ -n $files ]]; then
            mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$current")
        fi
    fi
}
complete -o filenames -F _vantlow vantlow
"""


def zsh_quote(text):
    return "'" + text.replace("'", "'\\''") + "'"


def zsh_text(text):
    for mark in "\\[]:":
        text = text.replace(mark, "\\" + mark)
    return text


def zsh_action(kind):
    if kind is None:
        return " "
    if isinstance(kind, str):
        return "_files" if kind == "files" else "_files -/"
    return f"({' '.join(kind)})"


def zsh_option(option):
    text = f"[{zsh_text(option.text)}]"
    if option.takes_value:
        text += f":{zsh_text(option.value)}:{zsh_action(value_kind(option))}"
    if option.is_repeatable:
        return " ".join(zsh_quote(f"*{name}{text}") for name in option.names)
    excluded = f"({' '.join(option.names)})"
    return " ".join(zsh_quote(excluded + name + text) for name in option.names)


def zsh_function(root, command):
    name = "_".join(["_vantlow", *command.path])
    yield f"{name}() {{"
    yield "    local curcontext=$curcontext state line"
    yield "    typeset -A opt_args"
    yield "    _arguments -C -s \\"
    for option in options_of(root, command):
        yield f"        {zsh_option(option)} \\"
    if command.commands:
        yield "        '1: :->command' '*:: :->rest'"
        yield "    case $state in"
        yield "        command)"
        yield "            local -a commands=("
        for below in command.commands:
            yield f"                {zsh_quote(below.path[-1] + ':' + zsh_text(below.text))}"
        yield "            )"
        yield "            _describe -t commands 'command' commands"
        if command.positionals:
            yield "            _files"
        yield "            ;;"
        yield "        rest)"
        yield "            case $words[1] in"
        for below in command.commands:
            yield f"                {below.path[-1]}) {'_'.join(['_vantlow', *below.path])} ;;"
        if command.positionals:
            yield "                *) _files ;;"
        yield "            esac"
        yield "            ;;"
        yield "    esac"
    else:
        files = any(p.names[0] in FILE_POSITIONALS for p in command.positionals)
        what = command.positionals[0].names[0] if command.positionals else ""
        yield f"        '*:{what}:{'_files' if files else ' '}'"
    yield "}"


def zsh(root):
    lines = ["#compdef vantlow"]
    for command in root.walk():
        lines += zsh_function(root, command)
    return "\n".join([*lines, '_vantlow "$@"', ""])


if __name__ == "__main__":
    sys.stdout.write({"bash": bash, "zsh": zsh}[sys.argv[1]](words.read_command(sys.argv[2])))
