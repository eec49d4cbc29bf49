#!/usr/bin/env python3
"""Holds every #include of the sources against the direction in which the folders may know each other.

    check_includes.py [--self-test] ROOT

Looks at ROOT/src and ROOT/tests; prints each violation and ends with 1 where there is one. With --self-test it first
shows on made-up trees that it finds what it is there for.
"""

import pathlib
import re
import sys
import tempfile

# Each folder of src/ and the folders that its files may include beside their own.
TABLES = {"base", "platform", "runtime"}
CONNECTION = TABLES | {"net", "transfer/connection"}
CONVERSATIONS = CONNECTION | {"transfer/http", "transfer/ftp"}
CORE = CONVERSATIONS | {"store", "storage", "transfer/job", "bt", "bt/peer", "bt/swarm", "bt/web", "ed2k", "meta", "engine"}
CLI = CORE | {"app/terminal", "app/process"}
ALLOWED = {
    "base": set(),
    "platform": {"base"},
    "runtime": {"base", "platform"},
    "net": TABLES,
    "store": TABLES,
    "storage": TABLES | {"store"},
    "transfer/connection": TABLES | {"net"},
    "transfer/http": CONNECTION,
    "transfer/ftp": CONNECTION,
    "transfer/job": CONVERSATIONS | {"store", "storage"},
    "bt": CONNECTION | {"transfer/http", "store", "storage"},
    "bt/peer": {"base", "bt"},
    "bt/swarm": {"base", "platform", "net", "storage", "bt", "bt/peer"},
    "bt/web": CONNECTION | {"transfer/http", "store", "storage", "bt", "bt/peer"},
    "ed2k": {"base"},
    "media": {"base", "platform"},
    "meta": {"base"},
    "engine": CORE - {"engine"},
    "rpc": {"base"},
    "app/terminal": {"base", "platform", "transfer/job"},
    "app/process": CORE | {"app/terminal"},
    "app/cli": CLI,
    "app/cli/get": CLI | {"app/cli"},
    "app/cli/store": CLI | {"app/cli"},
    "app/cli/tools": CLI | {"app/cli", "media"},
    "app/window/model": CLI,
    "app/rpc": CLI | {"app/cli", "rpc"},
    "app/resident": CLI | {"app/cli", "app/cli/store", "app/rpc", "rpc"},
    "app/browser": CLI | {"app/cli", "app/cli/store", "app/resident"},
    "app/window": CLI | {"app/window/model", "media"},
    "app": CLI | {"app/window", "app/cli", "app/cli/get", "app/cli/store", "app/cli/tools", "app/resident", "app/rpc", "app/browser"},
}
# Files that others may include of a folder that they must not know otherwise: what an address is.
SHARED = {"transfer/http": {"store/address.h"}}
# What a library that is loaded at run time is made of: its own folder, the declarations that it exports, and what two of
# them share.
LIBRARY_MAY = ("runtime/operations.h", "runtime/login/", "base/mutex.h")

# Without barrier, latch, semaphore and stop_token: where the C++ library has no futex to wait on (the Windows build), their
# waits lose wake-ups.
STANDARD = set(
    """algorithm any array atomic bit bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes
    climits clocale cmath codecvt compare complex concepts condition_variable coroutine csetjmp csignal cstdarg cstddef
    cstdint cstdio cstdlib cstring ctime cuchar cwchar cwctype deque exception execution filesystem forward_list fstream
    functional future initializer_list iomanip ios iosfwd iostream istream iterator limits list locale map memory
    memory_resource mutex new numbers numeric optional ostream queue random ranges ratio regex scoped_allocator
    set shared_mutex source_location span sstream stack stdexcept streambuf string string_view syncstream
    system_error thread tuple type_traits typeindex typeinfo unordered_map unordered_set utility valarray variant vector
    version""".split()
)
C_STANDARD = {"stddef.h", "stdint.h"}
BEAST = ["endpoint_beast.cpp", "endpoint_http.cpp", "endpoint_parts.h", "endpoint_tls.h", "endpoint_websocket.cpp", "openssl/endpoint_tls.cpp"]
# Headers of others, and the files (or folders, ending in "/") that may include them.
ASIO = ["asio_parts.h", "datagrams_asio.cpp", "listener_asio.cpp", "loop_asio.cpp", "stream_asio.cpp"]
THIRD_PARTY = {
    "gcrypt.h": ["base/digest.cpp"],
    "CLI/": ["app/cli/"],
    "nlohmann/": ["app/cli/", "app/browser/", "app/rpc/", "rpc/"],
    "boost/": [f"net/{name}" for name in ASIO] + [f"app/rpc/{name}" for name in BEAST],
    "openssl/": ["app/rpc/openssl/certificate.cpp"],
    "wx/": ["app/window/"],
}
# The toolkit stays out of what the window shows, and what it lacks stands in one file for each system.
WITHOUT_OTHERS = "app/window/model/"
LACKING = {"app/window/gtk/system.cpp", "app/window/msw/system.cpp"}

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)')
CONDITION = re.compile(r"^\s*#\s*(?:if|ifdef|ifndef|elif)\b(.*)")
SYSTEM_MACRO = re.compile(
    r"\b(?:_?WIN(?:32|64)|__WIN(?:32|64)(?:__)?|__MINGW\w*|_MSC_VER|__linux(?:__)?|__unix(?:__)?|__gnu_linux__|_POSIX\w*"
    r"|__APPLE__|__CYGWIN__|__GLIBC__)\b"
)


def without_comments(text):
    """The text with comments blanked, its lines kept."""
    pattern = r"""'(?:\\.|[^'\\\n])'|"(?:\\.|[^"\\\n])*"|//[^\n]*|/\*.*?\*/"""
    keep = lambda m: m[0] if m[0][0] in "'\"" else "\n" * m[0].count("\n")
    return re.sub(pattern, keep, text, flags=re.S)


def folder_of(path):
    """The folder of the table that a path below src/ belongs to; "" for the libraries' own folders."""
    if re.match(r"runtime/[^/]+/", path):
        return ""
    return max((f for f in ALLOWED if path.startswith(f + "/")), key=len, default=None)


def may_know_the_system(path):
    return path.startswith("platform/") or folder_of(path) == "" or path in LACKING


def fault_of_own_include(path, target, exists):
    if not exists:
        return f'"{target}" does not exist'
    here, there = folder_of(path), folder_of(target)
    if here == "":
        library = path.split("/")[1]
        if target.startswith((*LIBRARY_MAY, f"runtime/{library}/")):
            return None
        return f'a run-time library includes "{target}"'
    if here is None or there is None:
        return f'"{path}" or "{target}" stands in no known folder'
    if there != here and there not in ALLOWED[here] and target not in SHARED.get(here, ()):
        return f'{here} must not know "{target}"'
    return None


def fault_of_foreign_include(path, header):
    if header in STANDARD or may_know_the_system(path):
        return None
    if header in C_STANDARD and path == "runtime/operations.h":
        return None
    for prefix, places in THIRD_PARTY.items():
        if header.startswith(prefix):
            allowed = not path.startswith(WITHOUT_OTHERS) and any(path == p or (p.endswith("/") and path.startswith(p)) for p in places)
            return None if allowed else f"<{header}> belongs elsewhere"
    return f"<{header}> is not of the C++ library"


def read_sources(folder):
    files = [p for p in folder.rglob("*") if p.suffix in (".h", ".cpp")] if folder.is_dir() else []
    return {p.relative_to(folder).as_posix(): without_comments(p.read_text(encoding="utf-8")) for p in files}


def faults_of_source(path, text, sources):
    for number, line in enumerate(text.splitlines(), 1):
        fault = None
        if include := INCLUDE.match(line):
            own, foreign = include.groups()
            fault = fault_of_own_include(path, own, own in sources) if own else fault_of_foreign_include(path, foreign)
        elif (condition := CONDITION.match(line)) and SYSTEM_MACRO.search(condition[1]):
            fault = None if may_know_the_system(path) else f"asks for the system: {line.strip()}"
        if fault:
            yield f"src/{path}:{number}: {fault}"


def faults_of_test(path, text):
    """Tests may include all of src/, but leave the system to their support and to those of one system."""
    if path.startswith("support/") or "/win32/" in path or "/posix/" in path:
        return
    for number, line in enumerate(text.splitlines(), 1):
        include, condition = INCLUDE.match(line), CONDITION.match(line)
        header = include[2] if include else None
        if header and header not in STANDARD and not header.startswith(("gtest/", "nlohmann/")):
            yield f"tests/{path}:{number}: <{header}> is not of the C++ library"
        if condition and SYSTEM_MACRO.search(condition[1]):
            yield f"tests/{path}:{number}: asks for the system: {line.strip()}"


def find_circle(edges):
    """Some circle among the files as a list, the first file again at its end; none where there is none."""
    done = set()

    def walk(node, trail):
        if node in trail:
            return trail[trail.index(node) :] + [node]
        if node in done:
            return None
        for target in edges.get(node, ()):
            if circle := walk(target, trail + [node]):
                return circle
        done.add(node)
        return None

    return next(filter(None, (walk(node, []) for node in sorted(edges))), None)


def joined(edges, name):
    """The same edges among groups of files: `name` gives a file's group, or "" for one that counts in none."""
    groups = {}
    for path, targets in edges.items():
        if here := name(path):
            groups.setdefault(here, set()).update(there for t in targets if (there := name(t)) and there != here)
    return groups


def file_pair(path):
    """A header and the source of its name are one, inside app/."""
    return path.rsplit(".", 1)[0] if path.startswith("app/") else ""


def faults_of_circles(edges):
    """One circle a kind at most: of files, of folders, and inside app/ of files with their headers."""
    if circle := find_circle(edges):
        yield "include circle: " + " -> ".join(circle)
    elif circle := find_circle(joined(edges, file_pair)):
        yield "circle of files inside app/: " + " -> ".join(circle)
    if circle := find_circle(joined(edges, lambda path: folder_of(path) or "")):
        yield "circle of folders: " + " -> ".join(circle)


def check(root):
    sources = read_sources(root / "src")
    faults = []
    edges = {}
    for path, text in sorted(sources.items()):
        faults += faults_of_source(path, text, sources)
        includes = (INCLUDE.match(line) for line in text.splitlines())
        edges[path] = [m[1] for m in includes if m and m[1] in sources]
    # A wrong direction mostly closes a circle, too; it is named once, as the direction.
    faults = faults or list(faults_of_circles(edges))
    for path, text in sorted(read_sources(root / "tests").items()):
        faults += faults_of_test(path, text)
    return faults, len(sources)


CLEAN = {
    "src/base/text.h": "#include <string>\n// #include <windows.h>\n",
    "src/base/digest.cpp": '#include "base/text.h"\n#include <gcrypt.h>\n',
    "src/platform/file.h": '#include "base/text.h"\n',
    "src/platform/posix/file.cpp": '#include "platform/file.h"\n#include <unistd.h>\n#ifdef __linux__\n#endif\n',
    "src/runtime/operations.h": "#include <stddef.h>\n",
    "src/runtime/ssh/zip.cpp": '#include "runtime/operations.h"\n#include <zlib.h>\n#ifdef _WIN32\n#endif\n',
    "src/store/job.h": '#include "platform/file.h"\n',
    "src/net/asio_parts.h": "#include <boost/asio/io_context.hpp>\n",
    "src/transfer/connection/socket.h": '#include "platform/file.h"\n',
    "src/store/address.h": "",
    "src/transfer/http/head.h": '#include "transfer/connection/socket.h"\n#include "store/address.h"\n',
    "src/transfer/job/main_thread.h": '#include "store/job.h"\n#include "transfer/http/head.h"\n',
    "src/engine/engine.h": '#include "transfer/job/main_thread.h"\n',
    "src/app/terminal/lines.h": '#include "base/text.h"\n',
    "src/app/process/exit.h": '#include "engine/engine.h"\n#include "app/terminal/lines.h"\n',
    "src/app/cli/words.h": '#include "app/process/exit.h"\n#include <CLI/CLI.hpp>\n',
    "src/app/cli/store/list.h": '#include "app/cli/words.h"\n',
    "src/app/cli/store/list.cpp": '#include "app/cli/store/list.h"\n',
    "src/rpc/call.h": '#include "base/text.h"\n#include <nlohmann/json.hpp>\n',
    "src/app/rpc/api.h": '#include "app/cli/words.h"\n#include "rpc/call.h"\n',
    "src/app/rpc/endpoint_beast.cpp": "#include <boost/beast/core.hpp>\n",
    "src/app/resident/serve.h": '#include "app/cli/store/list.h"\n#include "app/rpc/api.h"\n',
    "src/app/window/model/rows.h": '#include "engine/engine.h"\n',
    "src/app/window/frame.h": "",
    "src/app/window/frame.cpp": '#include "app/window/model/rows.h"\n#include <wx/frame.h>\n',
    "src/app/window/msw/system.cpp": "#include <windows.h>\n#ifdef _WIN32\n#endif\n",
    "src/app/main.cpp": '#include "app/resident/serve.h"\n',
    "tests/app/main_test.cpp": '#include "app/cli/words.h"\n#include <gtest/gtest.h>\n',
    "tests/support/run.cpp": "#include <windows.h>\n#ifdef _WIN32\n#endif\n",
}
# A file to add to the clean tree, what it holds, and what must then be said.
PLANTED = [
    ("src/base/bad.h", '#include "store/job.h"', "base must not know"),
    ("src/platform/bad.h", '#include "runtime/operations.h"', "platform must not know"),
    ("src/store/bad.h", '#include "transfer/http/head.h"', "store must not know"),
    ("src/storage/bad.h", '#include "transfer/job/main_thread.h"', "storage must not know"),
    ("src/transfer/connection/bad.h", '#include "transfer/http/head.h"', "transfer/connection must not know"),
    ("src/transfer/http/bad.cpp", '#include "store/job.h"', "transfer/http must not know"),
    ("src/transfer/http/bad.h", '  #  include "transfer/job/main_thread.h"', "transfer/http must not know"),
    ("src/transfer/job/bad.h", '#include "engine/engine.h"', "transfer/job must not know"),
    ("src/engine/bad.h", '#include "app/process/exit.h"', "engine must not know"),
    ("src/app/terminal/bad.h", '#include "app/process/exit.h"', "app/terminal must not know"),
    ("src/app/cli/bad.h", '#include "app/cli/store/list.h"', "app/cli must not know"),
    ("src/app/cli/get/bad.h", '#include "app/cli/store/list.h"', "app/cli/get must not know"),
    ("src/app/cli/store/bad.h", '#include "app/resident/serve.h"', "app/cli/store must not know"),
    ("src/rpc/bad.h", '#include "engine/engine.h"', "rpc must not know"),
    ("src/engine/bad.h", '#include "rpc/call.h"', "engine must not know"),
    ("src/app/rpc/bad.h", '#include "app/cli/store/list.h"', "app/rpc must not know"),
    ("src/app/rpc/bad.h", "#include <boost/beast/core.hpp>", "belongs elsewhere"),
    ("src/app/window/model/bad.h", '#include "app/cli/words.h"', "app/window/model must not know"),
    ("src/app/process/bad.cpp", "#include <CLI/CLI.hpp>", "belongs elsewhere"),
    ("src/store/bad.cpp", '#include "store/none.h"', "does not exist"),
    ("src/attic/bad.h", '#include "base/text.h"', "no known folder"),
    ("src/runtime/ssh/bad.cpp", '#include "platform/file.h"', "a run-time library includes"),
    ("src/app/bad.cpp", "#include <windows.h>", "not of the C++ library"),
    ("src/base/bad.cpp", "#include <unistd.h>", "not of the C++ library"),
    ("src/base/bad.cpp", "#include <gcrypt.h>", "belongs elsewhere"),
    ("src/net/bad.h", "#include <boost/asio/io_context.hpp>", "belongs elsewhere"),
    ("src/net/bad.h", '#include "transfer/connection/socket.h"', "net must not know"),
    ("src/transfer/job/bad.cpp", "#include <nlohmann/json.hpp>", "belongs elsewhere"),
    ("src/app/window/model/bad.cpp", "#include <wx/string.h>", "belongs elsewhere"),
    ("src/app/window/model/bad.h", '#include "app/window/frame.h"', "app/window/model must not know"),
    ("src/app/window/bad.cpp", "#include <windows.h>", "not of the C++ library"),
    ("src/app/bad.cpp", "#include <wx/string.h>", "belongs elsewhere"),
    ("src/runtime/bad.cpp", "#ifdef _WIN32\n#endif", "asks for the system"),
    ("src/app/bad.cpp", "int a;\n#if 1 && defined(__linux__)\n#endif", "src/app/bad.cpp:2: asks for the system"),
    ("src/base/text.h", '#include "base/other.h"', None),
    ("src/base/other.h", '#include "base/text.h"', "base/text.h -> base/other.h -> base/text.h"),
    ("src/app/cli/store/steer.h", '#include "app/cli/store/list.h"', None),
    (
        "src/app/cli/store/list.cpp",
        '#include "app/cli/store/list.h"\n#include "app/cli/store/steer.h"',
        "app/cli/store/list -> app/cli/store/steer -> app/cli/store/list",
    ),
    ("src/store/self.h", '#include "store/self.h"', "store/self.h -> store/self.h"),
    ("tests/app/bad.cpp", "#include <unistd.h>", "tests/app/bad.cpp:1"),
    ("tests/app/bad.cpp", "#ifdef _WIN32\n#endif", "tests/app/bad.cpp:1"),
]


def check_made_up(files):
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        for path, text in files.items():
            (root / path).parent.mkdir(parents=True, exist_ok=True)
            (root / path).write_text(text + "\n", encoding="utf-8")
        return check(root)[0]


def self_test():
    """What this script fails to find, or finds without reason."""
    failures = [f"found in a clean tree: {fault}" for fault in check_made_up(CLEAN)]
    if circle := find_circle(ALLOWED):
        failures.append("the table has a circle: " + " -> ".join(circle))
    # The table forbids one half of each circle of folders, so no tree below has one without another fault.
    circles = list(faults_of_circles({"store/a.h": ["transfer/http/b.h"], "transfer/http/c.h": ["store/d.h"]}))
    if len(circles) != 1 or "circle of folders: store -> transfer/http -> store" not in circles[0]:
        failures.append(f"a circle of folders gives {circles}")
    together = {}
    for path, text, expected in PLANTED:
        together[path] = text
        if expected is None:
            continue  # the first half of the next one
        faults = check_made_up(CLEAN | together)
        if len(faults) != 1 or expected not in faults[0]:
            failures.append(f"{path} with {text!r} gives {faults}, not one fault with {expected!r}")
        together = {}
    return failures


def main(words):
    failures = self_test() if "--self-test" in words else []
    root = pathlib.Path(next(w for w in words if not w.startswith("--")))
    faults, count = check(root)
    if count == 0:
        faults.append(f"no sources below {root}/src")
    for line in failures + faults:
        print(line)
    print(f"{count} files, {len(faults)} faults" + (f", {len(failures)} failures of the check" if failures else ""))
    return 1 if failures or faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
