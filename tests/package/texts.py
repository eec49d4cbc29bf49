#!/usr/bin/env python3
"""texts.py PROGRAM: the man page and the completions know every command and option of the program, and work.

What they have to know is looked for in the program's help with other means than those that they are made with.
"""

import os
import pathlib
import pty
import re
import select
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGING = ROOT / "packaging"


def make(script, *words):
    words = [sys.executable, str(PACKAGING / script), *words]
    return subprocess.run(words, check=True, capture_output=True, text=True, timeout=60).stdout


def everything(program, path=()):
    """(words that lead to a command, its options) for every command, as its help has them."""
    text = subprocess.run([program, *path, "--help"], check=True, capture_output=True, text=True).stdout
    if f"Usage: {' '.join(['vantlow', *path])} " not in text or (path and "Global options:" not in text):
        raise RuntimeError(f"the help of {path} names neither the command nor the global options: {text}")
    own = text.split("Subcommands:")[0].split("Global options:")[0]
    yield path, {m[0] for m in re.finditer(r"(?<![\w-])--?[a-z][a-z0-9-]*(?=[ ,\n])", own)}
    for name in re.findall(r"^  ([a-z0-9][a-z0-9-]*)", text.partition("Subcommands:")[2], re.M):
        yield from everything(program, (*path, name))


def missing_in_page(known, page):
    """What the page does not tell, each command's options looked for behind its own heading."""
    plain = page.replace("\\-", "-")
    sections = dict(re.findall(r"^\.SS \\fBvantlow ([^\\]*)\\fR.*\n((?:(?!\.S[SH]).*\n)*)", plain, re.M))
    whole = re.search(r"^\.SH OPTIONS\n((?:(?!\.SH).*\n)*)", plain, re.M)[1]
    for path, options in known:
        name = " ".join(path)
        if name not in sections and not any(p[: len(path)] == path and len(p) > len(path) for p, _ in known):
            yield f"the page has no command '{name}'"
        for option in options - {"-h", "--help"} if path else options:
            if f"\\fB{option}\\fR" not in sections.get(name, "" if path else whole):
                yield f"the page has no '{option}' of '{name}'"


def missing_in_bash(known, script):
    # Every proposal of one bash, a line for each.
    cases = [(*path, mark) for path, options in known for mark in ([""] if len(path) < 2 else []) + sorted(options)]
    answers = propose_in_bash(script, cases)
    for case, answer in zip(cases, answers):
        if case[-1] and case[-1] not in answer:
            yield f"bash does not propose '{case[-1]}' of '{' '.join(case[:-1])}'"
    for path, _ in known:
        if path and path[-1] not in answers[cases.index((*path[:-1], ""))]:
            yield f"bash does not propose '{' '.join(path)}'"


def propose_in_bash(script, cases, folder="/"):
    lines = [script, "complete() { :; }"]
    for case in cases:
        words = " ".join("'" + word + "'" for word in ("vantlow", *case))
        lines.append(f"COMP_WORDS=({words}); COMP_CWORD={len(case)}; _vantlow; printf '%s\\n' \"${{COMPREPLY[*]}}\"")
    run = subprocess.run(["bash", "-u"], input="\n".join(lines), capture_output=True, text=True, cwd=folder, timeout=60)
    if run.stderr or run.returncode:
        raise RuntimeError(run.stderr)
    return [line.split() for line in run.stdout.splitlines()]


def faults_of_bash(script):
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(folder, "some.torrent").touch()
        pathlib.Path(folder, "sub").mkdir()
        for words, expected in {
            ("get", "--overwrite", ""): ["rename", "overwrite", "cancel"],
            ("get", "-n", ""): [],
            ("get", "--dir", "s"): ["sub"],
            ("get", "http://host/a", "--no-r"): ["--no-resume"],
            ("--data-dir", "get", "torrent", "sh"): ["show"],
            ("torrent", "show", "some"): ["some.torrent"],
            ("quit", ""): [],
            ("http://host/a", "ge"): [],
        }.items():
            found = propose_in_bash(script, [words], folder)[0]
            if found != expected:
                yield f"bash proposes {found} after {' '.join(words)!r}, not {expected}"


def type_into_zsh(folder, typed, expected, seconds=20):
    """Whether a zsh at a terminal comes to show a text after these keys."""
    child, terminal = pty.fork()
    if child == 0:
        os.chdir(folder)
        os.execvpe("zsh", ["zsh", "-f", "-i"], os.environ | {"TERM": "dumb", "HOME": folder, "PS1": "ready> "})
    shown = b""
    start = f"fpath=({folder} $fpath); autoload -U compinit; compinit -u -D; echo be''gin\n".encode()
    os.write(terminal, start)
    until = time.monotonic() + seconds
    sent = False
    while time.monotonic() < until and not (sent and expected.encode() in shown):
        if select.select([terminal], [], [], 0.1)[0]:
            try:
                shown += os.read(terminal, 4096)
            except OSError:
                break
        if not sent and b"begin" in shown:
            os.write(terminal, typed.encode())
            sent, shown = True, b""
    os.kill(child, 9)
    os.waitpid(child, 0)
    os.close(terminal)
    return expected.encode() in shown, shown.decode(errors="replace")


def faults_of_zsh(known, script):
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(folder, "_vantlow").write_text(script, encoding="utf-8")
        checked = subprocess.run(["zsh", "-n", pathlib.Path(folder, "_vantlow")], capture_output=True, text=True)
        if checked.returncode or checked.stderr:
            yield f"zsh: {checked.stderr}"
        for typed, expected in {
            "vantlow get --accept-h\t": "--accept-host-key",
            "vantlow torrent ann\t": "announce",
            "vantlow torrent make --piece-l\t": "--piece-length",
            "vantlow --json get --overwrite canc\t": "cancel",
        }.items():
            good, shown = type_into_zsh(folder, typed, expected)
            if not good:
                yield f"zsh does not complete {typed!r}: {shown!r}"
    functions = dict(re.findall(r"^(_vantlow[a-z0-9_-]*)\(\) \{\n(.*?)^\}", script, re.M | re.S))
    for path, options in known:
        body = functions.get("_".join(["_vantlow", *path]), "")
        for option in options:
            if f"){option}[" not in body and f"*{option}[" not in body:
                yield f"zsh does not know '{option}' of '{' '.join(path)}'"


def self_test(known, page, bash, zsh):
    """An option that is left out is missed."""
    for name, found in {
        "page": missing_in_page(known, page.replace("\\-\\-no\\-resume", "\\-\\-other")),
        "page's command": missing_in_page(known, re.sub(r"\.SS \\fBvantlow torrent make", r".SS \\fBvantlow x", page)),
        "bash": missing_in_bash(known, bash.replace("--no-resume", "--other")),
        "bash's command": missing_in_bash(known, bash.replace("'show make announce ", "'show announce ")),
        "zsh": faults_of_zsh(known, zsh.replace("--no-resume", "--other")),
    }.items():
        if not list(found):
            yield f"what is left out in the {name} is not missed"


def faults_of_page(page):
    with tempfile.NamedTemporaryFile("w", suffix=".1", encoding="utf-8") as file:
        file.write(page)
        file.flush()
        shown = subprocess.run(
            ["man", "--warnings=w", "-l", file.name],
            capture_output=True,
            text=True,
            env=os.environ | {"LC_ALL": "C.UTF-8", "MANWIDTH": "100", "MANPAGER": "cat"},
        )
    if shown.returncode or shown.stderr:
        yield f"man: {shown.stderr}"
    if "vantlow torrent make" not in shown.stdout:
        yield "man does not show the page"


def main(program):
    known = list(everything(program))
    page = make("man_page.py", program, "1", "0")
    bash, zsh = make("completions.py", "bash", program), make("completions.py", "zsh", program)
    faults = [*missing_in_page(known, page), *missing_in_bash(known, bash), *faults_of_zsh(known, zsh)]
    faults += [*faults_of_page(page), *faults_of_bash(bash), *self_test(known, page, bash, zsh)]
    for name in names_of_files():
        if not any(name in options for _, options in known):
            faults.append(f"completions.py names '{name}', which no command has")
    for fault in faults:
        print(fault)
    print(f"{len(known)} commands, {sum(len(options) for _, options in known)} options, {len(faults)} faults")
    return 1 if faults or len(known) < 2 else 0


def names_of_files():
    text = (PACKAGING / "completions.py").read_text(encoding="utf-8")
    return re.findall(r'"(--[a-z-]+)"', "".join(re.findall(r"^(?:FILES|FOLDERS) = \{.*\}$", text, re.M)))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
