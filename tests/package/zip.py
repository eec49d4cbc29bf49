#!/usr/bin/env python3
"""zip.py BUILD WINE: makes the zip of a Windows build and tries it: made twice, unpacked, run in a fresh Wine prefix.

WINE is the command that runs a Windows program."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import zipfile

import trial

SERVER = "/usr/lib/wine/wineserver64"


def faults_of_texts(folder):
    versions = (folder / "VERSIONS.txt").read_text(encoding="utf-8")
    has_window = (folder / "vantlow-desktop.exe").is_file()
    window = ["wxwidgets3.2"] if has_window else []
    for package in ["libgcrypt-mingw-w64-dev", "nlohmann-json3-dev", "mingw-w64-x86-64-dev", *window]:
        if package not in versions:
            yield f"VERSIONS.txt does not name {package}"
    for name in re.findall(r"licence: (\S+)", versions):
        if not (folder / name.replace("\\", "/")).is_file():
            yield f"VERSIONS.txt names {name}, which is not there"
    pages = {path.name: path.read_text(encoding="utf-8") for path in (folder / "docs").glob("*.txt")}
    if not (folder / "browser/manifest.json").is_file():
        yield "there is no extension for browsers"
    if not {"guide.txt", "settings.txt", "browser.txt"} <= set(pages):
        yield f"pages are missing: {sorted(pages)}"
    for name, text in pages.items():
        for foreign in re.findall(r"systemctl|\btools/\w+|[\w-]+\.md\b|\bapt\b|<!--", text):
            yield f"{name} is for Windows' users and speaks of {foreign}"
        for other in re.findall(r"\b[a-z-]+\.txt\b", text):
            if other not in pages and other not in ("cookies.txt", "links.txt", "jobs.txt", "log.txt", "trackerlist.txt"):
                yield f"{name} names {other}, which is not there"
    if not (folder / "licences/common/LGPL-2.1.txt").is_file():
        yield "the licence of libgcrypt is not there"


def faults_of_keeping(program, folder, prefix):
    """Jobs beside the program, settings where README.txt says."""
    key = re.search(r'"HKEY_CURRENT_USER\\([^"]*)"', (folder / "README.txt").read_text(encoding="utf-8"))[1]
    before = set(folder.iterdir())
    status, output = trial.run(*program, "add", "--paused", "http://127.0.0.1:9/a")
    new = [path.name for path in set(folder.iterdir()) - before]
    if status or len(new) != 1 or not new[0].endswith("'s temp"):
        yield f"add ends with {status}, {new} is new in the folder: {output}"
    status, output = trial.run(*program, "settings", "set", "Performance/MaxJobs", "7")
    # Wine writes its registry when its server ends.
    subprocess.run([SERVER, "-k"], check=False)
    subprocess.run([SERVER, "-w"], check=True)
    registry = (prefix / "user.reg").read_text(encoding="utf-8", errors="replace").replace("\\\\", "\\")
    if status or f"[{key}\\Performance]" not in registry:
        yield f"settings set ends with {status}: nothing in {key}: {output}"


def main(build, *wine):
    with tempfile.TemporaryDirectory() as work:
        package, faults = trial.make_twice("make_zip.py", build, work)
        with zipfile.ZipFile(package) as archive:
            archive.extractall(work)
        folder, prefix = pathlib.Path(work, package.stem), pathlib.Path(work, "prefix")
        os.environ["WINEPREFIX"] = str(prefix)
        program = [*wine, folder / "vantlow.exe"]
        try:
            trial.run(*wine, "wineboot", "-i")
            faults += faults_of_texts(folder)
            libraries = [path.name for path in folder.glob("*.dll")]
            if not {"libssl.dll", "libssh.dll", "libsecur.dll", "libnames.dll", "libBTDHT.dll", "libportmap.dll"} <= set(libraries):
                faults.append(f"libraries are missing: {libraries}")
            faults += trial.faults_at_work(program, libraries, pathlib.Path(work, "got"), cwd=work)
            faults += faults_of_keeping(program, folder, prefix)
        finally:
            subprocess.run([SERVER, "-k"], check=False)
            subprocess.run([SERVER, "-w"], check=True)
    return trial.report(faults)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
