"""What others made and is part of a program: which packages it came in, their versions and licences.

Found, not listed: the linker tells which files it takes, the compiler which headers it read, dpkg whose they are.
"""

import dataclasses
import os
import pathlib
import re
import shlex
import subprocess
import tempfile


@dataclasses.dataclass(frozen=True)
class Package:
    name: str
    version: str
    copyright: pathlib.Path


def run(*words, **more):
    return subprocess.run([str(w) for w in words], check=True, capture_output=True, text=True, **more).stdout


def files_linked(build, target):
    """The archives, objects and shared libraries that the linker takes for a target of the build."""
    command = run("ninja", "-C", build, "-t", "commands", target).splitlines()[-1]
    with tempfile.TemporaryDirectory() as folder:
        # Linked once more, to somewhere else. What follows the linker is not wanted.
        words = shlex.split(command.removeprefix(": && ").split(" && ")[0])
        words[words.index("-o") + 1] = str(pathlib.Path(folder, "program"))
        words = [re.sub(r"-Wl,--out-implib,\S+", f"-Wl,--out-implib,{folder}/import", word) for word in words]
        text = run(*words, "-Wl,--trace", cwd=build)
    for line in text.splitlines():
        # "(ARCHIVE)MEMBER" in older linkers, "ARCHIVE" or "ARCHIVE(MEMBER)" in newer ones.
        path = re.sub(r"^\(([^)]*)\).*|^([^(]*)\(.*", lambda m: m[1] or m[2], line.strip())
        yield pathlib.Path(build, path)


def headers_of_headers_only(build):
    """Headers of libraries that are nothing but headers, as far as they were compiled."""
    for path in set(re.findall(r"\S*third_party/\S+", run("ninja", "-C", build, "-t", "deps"))):
        yield pathlib.Path(build, path)


def forms_of(path):
    """The names that a package may know a file by: as it was found or resolved, with and without /usr."""
    for name in (os.path.normpath(path), os.path.realpath(path)):
        yield from (name, name.removeprefix("/usr"), "/usr" + name)


def owners_of(paths):
    """The packages that files came in, by path; files of none are missing."""
    names = sorted({name for path in paths for name in forms_of(path)})
    found = subprocess.run(["dpkg-query", "-S", *names], capture_output=True, text=True)  # 1: some are of none
    lines = (line.rsplit(": ", 1) for line in found.stdout.splitlines() if not line.startswith("diversion "))
    owners = {name: packages.split(",")[0] for packages, name in lines}
    return {path: owners[name] for path in paths for name in forms_of(path) if name in owners}


def package(name):
    version, bare = run("dpkg-query", "-W", "-f=${Version} ${Package}", name).split()
    return Package(bare, version, pathlib.Path(os.path.realpath(f"/usr/share/doc/{bare}/copyright")))


def own_sources(build):
    """Packages that were built from source beside the build (build/linux-ssh2, build/windows-ssh2)."""
    for versions in sorted(build.parent.glob("*/sources/versions")):
        for line in versions.read_text(encoding="utf-8").splitlines():
            name, version = line.split()
            yield versions.parents[1], Package(name, version, versions.parent / f"{name}.copyright")


def vendored():
    """What others made and stands in this repository: it is inside the page that every program serves."""
    vendor = pathlib.Path(__file__).resolve().parents[1] / "web/vendor"
    for line in (vendor / "versions").read_text(encoding="utf-8").splitlines():
        name, version = line.split()
        yield Package(name, version, vendor / f"{name}.LICENSE")


def packages_inside(build, targets):
    """The packages parts of which are inside these targets, by name. Raises for a file that nobody owns."""
    files = set(headers_of_headers_only(build))
    for target in targets:
        files |= set(files_linked(build, target))
    # A program loads the system's shared libraries; what the build itself made has no owner.
    files = {f for f in files if f.is_file() and not re.search(r"\.so(\.\d+)*$", f.name)}
    own = {folder: [p for f, p in own_sources(build) if f == folder] for folder, _ in own_sources(build)}
    built = {f for f in files if any(f.resolve().is_relative_to(x.resolve()) for x in (build, *own))}
    owners = owners_of(files - built)
    if unknown := files - built - set(owners):
        raise FileNotFoundError(f"parts of the program that no package has: {sorted(map(str, unknown))}")
    found = {p.name: p for p in (*map(package, sorted(set(owners.values()))), *vendored())}
    for folder, packages in own.items():
        if any(f.resolve().is_relative_to(folder.resolve()) for f in built):
            found |= {p.name: p for p in packages}
    return sorted(found.values(), key=lambda p: p.name)


def common_licences(packages):
    """The licence texts that the packages' own texts only name."""
    names = set()
    for p in packages:
        text = p.copyright.read_text(encoding="utf-8", errors="replace")
        names |= {n.rstrip(".") for n in re.findall(r"/usr/share/common-licenses/([\w.+-]+)", text)}
    paths = (pathlib.Path("/usr/share/common-licenses", name) for name in sorted(names))
    return [path for path in paths if path.is_file()]


def version_of(root):
    return re.search(r"project\(vantlow VERSION (\S+)", (root / "CMakeLists.txt").read_text(encoding="utf-8"))[1]


def source_date(root):
    """Seconds since 1970 that everything in a package bears: SOURCE_DATE_EPOCH, else the last commit's."""
    if told := os.environ.get("SOURCE_DATE_EPOCH"):
        return int(told)
    try:
        return int(run("git", "-C", root, "log", "-1", "--format=%ct"))
    except (subprocess.CalledProcessError, FileNotFoundError):
        return int((root / "CHANGELOG.md").stat().st_mtime)


RELINK = """\
libgcrypt and libgpg-error (and libidn2 with its part of libunistring, where it is named above) are linked statically and
are under the GNU Lesser General Public License. To run Vantlow with other versions of them, build it from its sources
with yours (-DVANTLOW_IDN2_LIBRARY=/path/libidn2.a for the last):

    cmake --preset {preset} -DVANTLOW_GCRYPT_LIBRARY=/path/libgcrypt.a -DVANTLOW_GPG_ERROR_LIBRARY=/path/libgpg-error.a
    cmake --build --preset {preset}

or, with yours installed in place of the packages named above, with tools/package. Vantlow's own licence permits this,
and reverse engineering for it.
"""
