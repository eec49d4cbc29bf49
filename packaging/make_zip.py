#!/usr/bin/env python3
"""make_zip.py BUILD FOLDER: a zip of a Windows build that runs from where it is unpacked; prints its path.

The same build gives the same bytes."""

import pathlib
import re
import subprocess
import sys
import time
import zipfile

import origins

ROOT = pathlib.Path(__file__).resolve().parents[1]
LIBRARIES = ["libssl.dll", "libssh.dll", "libsecur.dll", "libcrypto5.dll", "libnames.dll", "libBTDHT.dll", "libportmap.dll"]


# What somebody reads who uses the program; the other pages are for those who change it.
PAGES = ["guide", "settings", "browser", "ftp", "tls", "torrents", "proxy-list", "remote", "threats", "database"]


def page_for_windows(text):
    """A page of docs/ without pictures and what only other systems have, its links as names of the text files."""
    text = re.sub(r"!\[[^\]]*\]\([^)]*\)\n+", "", text)
    text = re.sub(r"<!-- not for Windows -->\n.*?<!-- end -->\n", "", text, flags=re.S)
    return re.sub(r"(?:\[[^\]]*\]\()?\b([\w-]+)\.md\b\)?", r"\1.txt", text)


def windows_text(text):
    return text.replace("\r\n", "\n").replace("\n", "\r\n").encode()


def versions_text(version, packages):
    lines = [f"Vantlow {version}, licence: LICENSE.txt", "", "Parts of these packages are inside the programs:", ""]
    lines += [f"    {p.name} {p.version}, licence: licences\\{licence_name(p)}" for p in packages]
    return "\n".join([*lines, "", origins.RELINK.format(preset="windows-release")])


def licence_name(package):
    # Packages of one source have one text, under the name of the folder that it stands in.
    path = package.copyright
    return (path.parent.name if path.name == "copyright" else path.stem) + ".txt"


def contents(build, version):
    """Everything in the zip: name to bytes."""
    beside = ["vantlow-desktop.exe", *LIBRARIES]
    programs = ["vantlow.exe", *(n for n in beside if (build / "bin" / n).exists())]
    packages = origins.packages_inside(build, [f"bin/{name}" for name in programs])
    files = {name: (build / "bin" / name).read_bytes() for name in programs}
    files |= {f"languages/{path.name}": path.read_bytes() for path in (ROOT / "languages").glob("*.lng")}
    extension = ROOT / "browser/extension"
    parts = [path for path in extension.rglob("*") if path.is_file()]
    files |= {f"browser/{path.relative_to(extension).as_posix()}": path.read_bytes() for path in parts}
    texts = {
        "README.txt": pathlib.Path(__file__).with_name("windows.txt"),
        "LICENSE.txt": ROOT / "LICENSE",
        "CHANGELOG.txt": ROOT / "CHANGELOG.md",
    }
    texts |= {f"licences/{licence_name(p)}": p.copyright for p in packages}
    texts |= {f"licences/common/{path.name}.txt": path for path in origins.common_licences(packages)}
    files |= {name: windows_text(path.read_text(encoding="utf-8", errors="replace")) for name, path in texts.items()}
    for name in PAGES:
        text = (ROOT / f"docs/{name}.md").read_text(encoding="utf-8")
        files[f"docs/{name}.txt"] = windows_text(page_for_windows(text))
    files["VERSIONS.txt"] = windows_text(versions_text(version, packages))
    return files


def build_package(build, folder):
    version, seconds = origins.version_of(ROOT), origins.source_date(ROOT)
    folder.mkdir(parents=True, exist_ok=True)
    name = f"vantlow-{version}-windows-x86_64"
    new = folder / f"{name}.zip.new"
    with zipfile.ZipFile(new, "w") as archive:
        for path, data in sorted(contents(build, version).items()):
            entry = zipfile.ZipInfo(f"{name}/{path}", time.gmtime(seconds)[:6])
            entry.create_system = 0  # FAT: no rights of another system
            archive.writestr(entry, data, zipfile.ZIP_DEFLATED, 9)
    return new.replace(folder / f"{name}.zip")


if __name__ == "__main__":
    try:
        print(build_package(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2])))
    except subprocess.CalledProcessError as error:
        sys.exit(f"{error}\n{error.stderr}")
