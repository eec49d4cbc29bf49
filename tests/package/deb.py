#!/usr/bin/env python3
"""deb.py BUILD: makes the Debian package of a build and tries it: made twice, unpacked, installed, run, removed.

It is installed by dpkg into a folder, with a copy of this system's list of packages: what it depends on must be here,
and nothing of this system is changed."""

import configparser
import os
import pathlib
import shlex
import shutil
import subprocess
import sys
import tempfile

import trial


def faults_of_lintian(package):
    status, output = trial.run("lintian", "--allow-root", "--fail-on", "error", package)
    if status:
        yield f"lintian: {output}"


def faults_of_texts(tree):
    documents = tree / "usr/share/doc/vantlow"
    text = (documents / "copyright").read_text(encoding="utf-8")
    version = trial.run("dpkg-query", "-W", "-f=${Version}", "libgcrypt20-dev")[1]
    for part in (f"libgcrypt20-dev {version}", "nlohmann-json3-dev", "libcli11-dev", "GNU Lesser General Public"):
        if part not in text:
            yield f"the copyright file does not name {part!r}"
    for name in ("changelog.gz", "changelog.Debian.gz", "README.md"):
        if not (documents / name).is_file():
            yield f"no {name}"
    if not (tree / "usr/lib/vantlow/browser/manifest.json").is_file():
        yield "no extension for browsers"
    for name in ("man/man1/vantlow.1.gz", "bash-completion/completions/vantlow", "zsh/vendor-completions/_vantlow"):
        if not (tree / "usr/share" / name).is_file():
            yield f"no {name}"


def faults_of_desktop(packages, folder):
    """The window's package, beside the main one."""
    desktop = next(packages.glob("vantlow-desktop_*.deb"), None)
    if desktop is None:
        print("this build has no window: its package is not tried")
        return
    tree = pathlib.Path(folder, "desktop")
    subprocess.run(["dpkg-deb", "-x", desktop, tree], check=True)
    for name in ("lib/vantlow/vantlow-desktop", "share/applications/vantlow.desktop"):
        if not (tree / "usr" / name).is_file():
            yield f"the window's package has no {name}"
    needs = subprocess.run(["dpkg-deb", "-f", desktop, "Depends"], capture_output=True, text=True, check=True).stdout
    if "vantlow (= " not in needs or "libwxgtk" not in needs:
        yield f"the window's package depends on {needs}"
    yield from faults_of_lintian(desktop)


def units_of(tree):
    """The [Service] section of every unit, by its path."""
    for path in sorted((tree / "usr/lib/systemd").rglob("*.service")):
        unit = configparser.ConfigParser(interpolation=None, strict=False)
        unit.optionxform = str
        unit.read_string(path.read_text(encoding="utf-8"))
        yield path, unit["Service"]


def faults_of_units(tree):
    """Each unit's command starts the program, which answers, and its end by systemd counts as a good one."""
    names = [path.name for path, _ in units_of(tree)]
    if names != ["vantlow@.service", "vantlow.service"]:
        yield f"the units are {names}"
    for path, service in units_of(tree):
        program, *words = shlex.split(service["ExecStart"])
        command = [tree / program.lstrip("/")]
        running = subprocess.Popen([*command, *words], stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        told = running.stderr.readline()
        status, output = trial.run(*command, "list")
        if f"process {running.pid}" not in told or status:
            yield f"{path.name}: list ends with {status}: {output}{told}"
        running.terminate()
        rest = running.communicate(timeout=60)[1]
        if str(running.returncode) not in service["SuccessExitStatus"].split():
            yield f"{path.name}: its end has the status {running.returncode}: {rest}"


def faults_of_installing(package, libraries, folder):
    if os.geteuid() != 0:
        print("only root can install: not tried")
        return
    root, admin = pathlib.Path(folder, "root"), pathlib.Path(folder, "admin")
    for path in (root, admin / "info", admin / "updates", admin / "triggers"):
        path.mkdir(parents=True)
    shutil.copy("/var/lib/dpkg/status", admin / "status")
    (admin / "available").touch()
    dpkg = ["dpkg", f"--instdir={root}", f"--admindir={admin}", f"--log={folder}/log"]
    status, output = trial.run(*dpkg, "--install", package)
    if status:
        yield f"dpkg --install ends with {status}: {output}"
        return
    yield from trial.faults_at_work([root / "usr/bin/vantlow"], libraries, pathlib.Path(folder, "got"))
    for action in ("--verify", "--remove", "--purge"):
        status, output = trial.run(*dpkg, action, "vantlow")
        if status or (action == "--verify" and output):
            yield f"dpkg {action} ends with {status}: {output}"
    if left := [str(p.relative_to(root)) for p in root.rglob("*")]:
        yield f"what was installed leaves behind: {left}"


def main(build):
    with tempfile.TemporaryDirectory() as folder:
        package, faults = trial.make_twice("make_deb.py", build, folder)
        tree, home = pathlib.Path(folder, "tree"), pathlib.Path(folder, "home")
        home.mkdir()
        os.environ |= {"HOME": str(home), "XDG_CONFIG_HOME": "", "XDG_DATA_HOME": ""}
        subprocess.run(["dpkg-deb", "-x", package, tree], check=True)
        libraries = [path.name for path in (tree / "usr/lib/vantlow").glob("*.so")]
        if not {"libssl.so", "libssh.so", "libsecur.so", "libnames.so", "libBTDHT.so", "libportmap.so"} <= set(libraries):
            faults.append(f"libraries are missing: {libraries}")
        faults += trial.faults_at_work([tree / "usr/bin/vantlow"], libraries, pathlib.Path(folder, "unpacked"))
        faults += faults_of_texts(tree)
        faults += faults_of_units(tree)
        faults += faults_of_installing(package, libraries, folder)
        faults += faults_of_lintian(package)
        faults += faults_of_desktop(package.parent, folder)
    return trial.report(faults)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
