#!/usr/bin/env python3
"""make_deb.py BUILD FOLDER: the Debian packages of a Linux build, into the folder; prints their paths, the main one last.

The program and the libraries that it loads stand in /usr/lib/vantlow: it looks for them beside itself, and for the one
with the window, which is a package of its own, so that a server needs no toolkit. The same build gives the same bytes."""

import gzip
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

import completions
import man_page
import origins
import words

ROOT = pathlib.Path(__file__).resolve().parents[1]
REVISION = "1"
MAINTAINER = "{} <{}>".format(
    os.environ.get("DEBFULLNAME", "The Vantlow developers"), os.environ.get("DEBEMAIL", "vantlow@vantlow.invalid")
)
LIBRARIES = ["libssl.so", "libssh.so", "libsecur.so", "libcrypto5.so", "libnames.so", "libBTDHT.so", "libportmap.so"]
DESCRIPTION = """\
download manager that never gives a wrong file
 Vantlow fetches files over HTTP, HTTPS, FTP, FTPS and SFTP: over several
 connections and from several mirrors at once, across crashes and bad
 networks. What was interrupted goes on, also after a kill or a power cut;
 a finished name only ever shows the finished file.
 .
 It works in the terminal (vantlow get LINK) and as a resident program that
 keeps a list of jobs and runs them: in a user's session, or as a service."""

DESKTOP_DESCRIPTION = """\
window of the download manager Vantlow
 Categories and lists of downloads, their segments and logs, a histogram of
 the speed, dialogs for new downloads and settings. "vantlow" without a
 command opens it where there is a display."""
ENTRY = """\
[Desktop Entry]
Type=Application
Name=Vantlow
GenericName=Download manager
GenericName[de]=Download-Manager
GenericName[zh_CN]=下载管理器
Exec=vantlow %U
Icon=emblem-downloads
Terminal=false
Categories=Network;FileTransfer;
StartupNotify=true
"""


def write(path, data, mode=0o644):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(data.encode() if isinstance(data, str) else data)
    path.chmod(mode)


def packed(text):
    return gzip.compress(text.encode(), 9, mtime=0)


def place_stripped(build, tree, names):
    """Copies programs and libraries, without what only debuggers read."""
    for name in names:
        target = tree / "usr/lib/vantlow" / name
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(build / "bin" / name, target)
        origins.run("strip", "--strip-unneeded", "--remove-section=.comment", "--remove-section=.note", target)
        target.chmod(0o644 if target.suffix == ".so" else 0o755)


def place_programs(build, tree):
    names = ["vantlow", *(n for n in LIBRARIES if (build / "bin" / n).exists())]
    place_stripped(build, tree, names)
    for path in sorted((ROOT / "languages").glob("*.lng")):
        write(tree / "usr/lib/vantlow/languages" / path.name, path.read_bytes())
    extension = ROOT / "browser/extension"
    for path in sorted(p for p in extension.rglob("*") if p.is_file()):
        write(tree / "usr/lib/vantlow/browser" / path.relative_to(extension), path.read_bytes())
    (tree / "usr/bin").mkdir(parents=True)
    (tree / "usr/bin/vantlow").symlink_to("../lib/vantlow/vantlow")
    return names


def dependencies(tree, names):
    with tempfile.TemporaryDirectory() as folder:
        write(pathlib.Path(folder, "debian/control"), "Source: vantlow\n\nPackage: vantlow\nArchitecture: any\n")
        files = [f"-e{tree}/usr/lib/vantlow/{name}" for name in names]
        return origins.run("dpkg-shlibdeps", "-O", *files, cwd=folder).strip().removeprefix("shlibs:Depends=")


def copyright_text(packages, depends):
    lines = ["Vantlow's own sources:", "", (ROOT / "LICENSE").read_text(encoding="utf-8"), ""]
    lines += ["Parts of these packages are inside the programs; their own texts follow below:", ""]
    lines += [f"    {p.name} {p.version}" for p in packages]
    lines += ["", "It loads shared libraries of the system, under the terms in /usr/share/doc/PACKAGE/copyright:", ""]
    lines += [f"    {d}" for d in depends.split(", ")]
    lines += ["", origins.RELINK.format(preset="linux-release")]
    texts = {}
    for p in packages:
        texts.setdefault(p.copyright, []).append(p)
    for path, those in texts.items():
        lines += ["=" * 78, ", ".join(f"{p.name} {p.version}" for p in those), "=" * 78, ""]
        lines += [path.read_text(encoding="utf-8", errors="replace"), ""]
    return "\n".join(lines)


def place_legal_texts(build, tree, package, version, seconds, names, depends):
    """What every package has beside its programs; the packages that are inside these."""
    documents = tree / "usr/share/doc" / package
    packages = origins.packages_inside(build, [f"bin/{name}" for name in names])
    write(documents / "copyright", copyright_text(packages, depends))
    write(documents / "changelog.gz", packed((ROOT / "CHANGELOG.md").read_text(encoding="utf-8")))
    date = time.strftime("%a, %d %b %Y %H:%M:%S +0000", time.gmtime(seconds))
    entry = f"{package} ({version}-{REVISION}) unstable; urgency=medium\n\n  * Version {version}: see changelog.gz.\n"
    write(documents / "changelog.Debian.gz", packed(f"{entry}\n -- {MAINTAINER}  {date}\n"))
    return packages


def place_texts(build, tree, version, seconds, names, depends):
    program = build / "bin/vantlow"
    share = tree / "usr/share"
    root = words.read_command(program)
    write(share / "man/man1/vantlow.1.gz", packed(man_page.page(program, version, seconds)))
    write(share / "bash-completion/completions/vantlow", completions.bash(root))
    write(share / "zsh/vendor-completions/_vantlow", completions.zsh(root))
    for folder, unit in (("user", "vantlow.service"), ("system", "vantlow@.service")):
        write(tree / "usr/lib/systemd" / folder / unit, (ROOT / "packaging/systemd" / unit).read_bytes())
    documents = share / "doc/vantlow"
    packages = place_legal_texts(build, tree, "vantlow", version, seconds, names, depends)
    if any(p.name == "libssh2" for p in packages):
        reason = "# Built in where the system's own cannot log in with RSA keys at servers of today (tools/recipes/ssh2.sh)."
        tag = "vantlow: embedded-library libssh2 [usr/lib/vantlow/libssh.so]"
        write(share / "lintian/overrides/vantlow", f"{reason}\n{tag}\n")
    docs = ROOT / "docs"
    for path in [ROOT / "README.md", *sorted(docs.glob("*.md")), *sorted((docs / "pictures").glob("*.png"))]:
        write(documents / path.relative_to(ROOT), path.read_bytes())


def write_control(tree, version, **fields):
    files = sorted(p for p in tree.rglob("*") if p.is_file() and not p.is_symlink())
    size = sum(-(-p.stat().st_size // 1024) for p in files)
    control = {
        "Package": fields["Package"],
        "Version": f"{version}-{REVISION}",
        "Section": "net",
        "Priority": "optional",
        "Architecture": origins.run("dpkg", "--print-architecture").strip(),
        "Maintainer": MAINTAINER,
        "Installed-Size": str(size),
        **fields,
    }
    sums = origins.run("md5sum", *(p.relative_to(tree) for p in files), cwd=tree)
    write(tree / "DEBIAN/md5sums", sums)
    write(tree / "DEBIAN/control", "".join(f"{name}: {value}\n" for name, value in control.items()))
    return f"{control['Package']}_{control['Version']}_{control['Architecture']}.deb"


def pack(tree, folder, name, seconds):
    for path in sorted(tree.rglob("*"), reverse=True):
        if path.is_dir():
            path.chmod(0o755)
        os.utime(path, (seconds, seconds), follow_symlinks=False)
    # One thread: how the data is cut up for several would show in the bytes.
    surroundings = os.environ | {"SOURCE_DATE_EPOCH": str(seconds), "DPKG_DEB_THREADS_MAX": "1"}
    new = folder / (name + ".new")
    origins.run("dpkg-deb", "--root-owner-group", "-Zxz", "--build", tree, new, env=surroundings)
    return new.replace(folder / name)


def build_desktop_package(build, folder, version, seconds, tree):
    names = ["vantlow-desktop"]
    place_stripped(build, tree, names)
    depends = dependencies(tree, names)
    place_legal_texts(build, tree, "vantlow-desktop", version, seconds, names, depends)
    write(tree / "usr/share/applications/vantlow.desktop", ENTRY)
    name = write_control(
        tree,
        version,
        Package="vantlow-desktop",
        Depends=f"vantlow (= {version}-{REVISION}), {depends}",
        Description=DESKTOP_DESCRIPTION,
    )
    return pack(tree, folder, name, seconds)


def build_main_package(build, folder, version, seconds, tree):
    names = place_programs(build, tree)
    depends = dependencies(tree, names)
    place_texts(build, tree, version, seconds, names, depends)
    name = write_control(
        tree,
        version,
        Package="vantlow",
        Depends=depends,
        Recommends="ca-certificates",
        Suggests="vantlow-desktop",
        Description=DESCRIPTION,
    )
    return pack(tree, folder, name, seconds)


def build_packages(build, folder):
    version, seconds = origins.version_of(ROOT), origins.source_date(ROOT)
    folder.mkdir(parents=True, exist_ok=True)
    makers = [build_main_package]
    if (build / "bin/vantlow-desktop").exists():
        makers.insert(0, build_desktop_package)
    for maker in makers:
        with tempfile.TemporaryDirectory() as work:
            tree = pathlib.Path(work, "tree")
            tree.mkdir(mode=0o755)
            print(maker(build, folder, version, seconds, tree))


if __name__ == "__main__":
    os.umask(0o022)
    try:
        build_packages(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]))
    except subprocess.CalledProcessError as error:
        sys.exit(f"{error}\n{error.stderr}")
