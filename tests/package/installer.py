#!/usr/bin/env python3
"""installer.py BUILD WINE: makes the installer of a Windows build and tries it: made twice, installed and removed without a
question in a fresh Wine prefix, where a job stays.

WINE is the command that runs a Windows program."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

import trial

SERVER = "/usr/lib/wine/wineserver64"
SKIPPED = 77
KEY = r"HKCU\Software\Microsoft\Windows\CurrentVersion\Uninstall\Vantlow"
MAGNET = r"HKCU\Software\Classes\magnet\shell\open\command"


def names_below(folder):
    return {path.relative_to(folder).as_posix() for path in folder.rglob("*") if path.is_file()}


def faults_of_installing(wine, package, prefix, expected):
    folder = prefix / "drive_c/Own/Vantlow"
    status, output = trial.run(*wine, package, "/S", "/MAGNET", r"/D=C:\Own\Vantlow")
    if status:
        yield f"the installer ends with {status}: {output}"
    if missing := expected - names_below(folder):
        yield f"not installed: {sorted(missing)}"
    for key, text in ((KEY, "Uninstall.exe"), (MAGNET, "vantlow-desktop.exe")):
        if text not in trial.run(*wine, "reg", "query", key, "/s")[1]:
            yield f"{key} does not name {text}"
    trial.run(*wine, folder / "vantlow.exe", "add", "--paused", "http://127.0.0.1:9/a")
    jobs = names_below(folder) - expected - {"Uninstall.exe"}
    if not any(name.endswith(".database") for name in jobs):
        yield f"no job stands beside the program: {sorted(jobs)}"
    # Told where it stands, it works in its place and can be waited for.
    status, output = trial.run(*wine, folder / "Uninstall.exe", "/S", r"_?=C:\Own\Vantlow")
    if status:
        yield f"Uninstall.exe ends with {status}: {output}"
    left = names_below(folder) - {"Uninstall.exe"}
    if left != jobs:
        yield f"left behind or lost: {sorted(left ^ jobs)}"
    for key in (KEY, MAGNET):
        if "vantlow" in trial.run(*wine, "reg", "query", key, "/s")[1].lower():
            yield f"{key} is still there"


def main(build, *wine):
    if shutil.which("makensis") is None:
        print("skipped: there is no makensis")
        return SKIPPED
    with tempfile.TemporaryDirectory() as work:
        package, faults = trial.make_twice("make_installer.py", build, work)
        sys.path.insert(0, str(trial.ROOT / "packaging"))
        import make_zip
        import origins

        expected = set(make_zip.contents(pathlib.Path(build), origins.version_of(trial.ROOT)))
        prefix = pathlib.Path(work, "prefix")
        os.environ["WINEPREFIX"] = str(prefix)
        try:
            trial.run(*wine, "wineboot", "-i")
            faults += faults_of_installing(wine, package, prefix, expected)
        finally:
            subprocess.run([SERVER, "-k"], check=False)
            subprocess.run([SERVER, "-w"], check=True)
    return trial.report(faults)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
