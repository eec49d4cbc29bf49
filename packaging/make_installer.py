#!/usr/bin/env python3
"""make_installer.py BUILD FOLDER: an installer of a Windows build with the window; prints its path.

It holds what the zip holds. The same build gives the same bytes."""

import os
import pathlib
import subprocess
import sys
import tempfile

import make_zip
import origins

SCRIPT = pathlib.Path(__file__).with_name("windows.nsi")


def file_macros(names, staged):
    """The lines of the script that install every file, and that remove it, folders behind their files."""
    install, remove, folders = [], [], set()
    for name in sorted(names):
        inside = pathlib.PureWindowsPath(name)
        folder = "$INSTDIR" if inside.parent == pathlib.PureWindowsPath() else f"$INSTDIR\\{inside.parent}"
        folders |= {f"$INSTDIR\\{parent}" for parent in inside.parents if parent.parts}
        install += [f'    SetOutPath "{folder}"', f'    File "{staged / name}"']
        remove.append(f'    Delete "$INSTDIR\\{inside}"')
    # A folder sorts before what stands in it.
    remove += [f'    RMDir "{folder}"' for folder in sorted(folders, reverse=True)]
    return "\n".join(["!macro InstallFiles", *install, "!macroend", "!macro RemoveFiles", *remove, "!macroend", ""])


def build_installer(build, folder):
    version, seconds = origins.version_of(make_zip.ROOT), origins.source_date(make_zip.ROOT)
    files = make_zip.contents(build, version)
    if "vantlow-desktop.exe" not in files:
        sys.exit("The build has no program with a window: there is nothing to install.")
    folder.mkdir(parents=True, exist_ok=True)
    target = folder.resolve() / f"vantlow-{version}-windows-x86_64.exe"
    with tempfile.TemporaryDirectory() as work:
        staged = pathlib.Path(work, "files")
        for name, data in files.items():
            path = staged / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(data)
            os.utime(path, (seconds, seconds))
        macros = pathlib.Path(work, "files.nsh")
        macros.write_text(file_macros(files, staged), encoding="utf-8")
        words = {"VERSION": version, "OUTPUT": pathlib.Path(work, "new.exe"), "FILES": macros,
                 "LICENCE": staged / "LICENSE.txt"}
        browsers = ["-DBROWSERS"] if (make_zip.ROOT / "browser").is_dir() else []
        subprocess.run(
            ["makensis", "-V2", "-WX", "-INPUTCHARSET", "UTF8", *(f"-D{k}={v}" for k, v in words.items()), *browsers, str(SCRIPT)],
            check=True, capture_output=True, text=True, env=dict(os.environ, SOURCE_DATE_EPOCH=str(seconds)),
        )
        target.write_bytes(words["OUTPUT"].read_bytes())
    return target


if __name__ == "__main__":
    try:
        print(build_installer(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2])))
    except subprocess.CalledProcessError as error:
        sys.exit(f"{error}\n{error.stdout}\n{error.stderr}")
