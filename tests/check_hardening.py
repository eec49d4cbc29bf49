#!/usr/bin/env python3
"""Holds the programs and libraries of a build against what is to protect them.

    check_hardening.py [--self-test COMPILER] BUILD

Looks at everything in BUILD/bin, and at how BUILD/compile_commands.json says that the sources are compiled; prints
each fault and ends with 1 where there is one. With --self-test it first makes programs that lack one thing each, and
shows that it finds them.
"""

import json
import pathlib
import platform
import re
import struct
import subprocess
import sys
import tempfile

STACK_PROTECTOR = "no stack protector"
RELOCATIONS = "no relocations: it can only be loaded at its one address"


def faults_of_elf(path):
    words = ["readelf", "--wide", "--file-header", "--segments", "--dynamic", "--dyn-syms", str(path)]
    text = subprocess.run(words, check=True, capture_output=True, text=True).stdout
    segments = {m[1]: m[2] for m in re.finditer(r"^ +(GNU_RELRO|GNU_STACK) .* (R?[W ][E ]) +0x", text, re.M)}
    if not re.search(r"^ *Type: +DYN ", text, re.M):
        yield "not position-independent"
    if path.suffix != ".so" and not re.search(r"\(FLAGS_1\).*\bPIE\b", text):
        yield "not a position-independent program"
    if "GNU_RELRO" not in segments:
        yield "no relro"
    if not re.search(r"\(FLAGS(_1)?\).*\b(BIND_)?NOW\b", text):
        yield "symbols are bound late: relro is not full"
    if "E" in segments.get("GNU_STACK", "E"):
        yield "executable stack"
    if re.search(r"^ +LOAD .* RWE ", text, re.M):
        yield "memory that is writable and executable"
    if "(TEXTREL)" in text:
        yield "relocations in the code"
    if re.search(r"\((RPATH|RUNPATH)\)", text) and not path.name.startswith("test_"):
        yield "looks for libraries in a folder of this machine"
    if "__stack_chk_fail" not in text:
        yield STACK_PROTECTOR
    # Small libraries may have nothing whose size is not known while compiling.
    if path.suffix != ".so" and not re.search(r" UND __(?!stack_)\w+_chk\b", text):
        yield "no checked C functions (_FORTIFY_SOURCE)"


def faults_of_pe(path):
    data = path.read_bytes()
    header = struct.unpack_from("<I", data, 0x3C)[0]
    sections, flags = struct.unpack_from("<H", data, header + 6)[0], struct.unpack_from("<H", data, header + 22)[0]
    optional = header + 24
    if struct.unpack_from("<H", data, optional)[0] != 0x20B:
        yield "no 64-bit program"
        return
    base = struct.unpack_from("<Q", data, optional + 24)[0]
    abilities = struct.unpack_from("<H", data, optional + 70)[0]
    for bit, lacking in ((0x20, "no high-entropy addresses"), (0x40, "no dynamic base"), (0x100, "no NX")):
        if not abilities & bit:
            yield lacking
    if flags & 1 or struct.unpack_from("<I", data, optional + 112 + 5 * 8 + 4)[0] == 0:
        yield RELOCATIONS
    if base < 1 << 32:
        yield "based below 4 GiB: few addresses to choose from"
    table = optional + struct.unpack_from("<H", data, header + 20)[0]
    for at in range(table, table + 40 * sections, 40):
        if struct.unpack_from("<I", data, at + 36)[0] & 0xA0000000 == 0xA0000000:
            yield "memory that is writable and executable"
    # Names of linked functions are stripped; what the protector says at the end is there where it is.
    if b"stack smashing detected" not in data:
        yield STACK_PROTECTOR


def faults_of_program(path):
    magic = path.read_bytes()[:4]
    if magic == b"\x7fELF":
        return list(faults_of_elf(path))
    return list(faults_of_pe(path)) if magic[:2] == b"MZ" else ["neither ELF nor PE"]


def faults_of_commands(commands):
    """Of how our own sources are compiled: each must be protected, whatever the others of its program are."""
    wanted = [r"-fstack-protector-strong", r"-D_FORTIFY_SOURCE=[23]", r"-O[23]"]
    if not any("mingw" in c["command"] for c in commands):
        wanted += [r"-fstack-clash-protection", r"-fPI[CE]"]
        if platform.machine() == "x86_64":
            wanted.append(r"-fcf-protection=full")
    for entry in commands:
        if not entry["file"].endswith(".cpp") or "/third_party/" in entry["file"]:
            continue
        if re.search(r"check_links|/googletest/", entry["file"]):
            continue
        for option in wanted:
            if not re.search(rf"(^|\s){option}(\s|$)", entry["command"]):
                yield f"{entry['file']}: compiled without {option}"


def check(build):
    programs = sorted(p for p in (build / "bin").iterdir() if p.is_file() and not p.suffix == ".manifest")
    faults = [f"{p.name}: {fault}" for p in programs for fault in faults_of_program(p)]
    commands = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    faults += faults_of_commands(commands)
    if not any(p.stem == "vantlow" for p in programs) or not commands:
        faults.append(f"no program in {build}/bin")
    return faults, len(programs), len(commands)


SOURCE = """
#include <stdio.h>
#include <string.h>
int main(int count, char** words) {
    char room[64];
    memcpy(room, words[0], strlen(words[0]));
    return printf(words[0], room, count) < 0;
}
"""
GOOD = {
    "stack": "-fstack-protector-strong",
    "fortify": "-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2",
    "pie": "-fPIE -pie",
    "relro": "-Wl,-z,relro",
    "now": "-Wl,-z,now",
    "nx": "-Wl,-z,noexecstack",
    "path": "",
}
GOOD_PE = {"static": "-static", "stack": "-fstack-protector-strong", "base": "-Wl,--dynamicbase", "nx": "-Wl,--nxcompat"}
GOOD_PE |= {"entropy": "-Wl,--high-entropy-va", "image": "-Wl,--image-base,0x140000000", "code": ""}
# What is made otherwise, and what must then be said.
PLANTED = [
    ("stack", "-fno-stack-protector", {STACK_PROTECTOR}),
    ("fortify", "-U_FORTIFY_SOURCE", {"no checked C functions (_FORTIFY_SOURCE)"}),
    ("pie", "-no-pie", {"not position-independent", "not a position-independent program"}),
    ("relro", "-Wl,-z,norelro", {"no relro"}),
    ("now", "-Wl,-z,lazy", {"symbols are bound late: relro is not full"}),
    ("nx", "-Wl,-z,execstack", {"executable stack"}),
    ("path", "-Wl,-rpath,/opt", {"looks for libraries in a folder of this machine"}),
]
PLANTED_PE = [
    ("stack", "-fno-stack-protector", {STACK_PROTECTOR}),
    ("entropy", "-Wl,--disable-dynamicbase", {"no dynamic base", "no high-entropy addresses"}),
    ("nx", "-Wl,--disable-nxcompat", {"no NX"}),
    ("entropy", "-Wl,--disable-high-entropy-va", {"no high-entropy addresses"}),
    ("image", "-Wl,--image-base,0x400000", {"based below 4 GiB: few addresses to choose from"}),
    ("code", "-Wl,--omagic", {"memory that is writable and executable"}),
    ("code", "-Wl,--disable-reloc-section", {RELOCATIONS, "no dynamic base", "no high-entropy addresses"}),
]


def self_test(compiler):
    """What this script fails to find, or finds without reason."""
    is_pe = "mingw" in compiler
    good, planted = (GOOD_PE, PLANTED_PE) if is_pe else (GOOD, PLANTED)
    with tempfile.TemporaryDirectory() as folder:
        source, program = pathlib.Path(folder, "a.cpp"), pathlib.Path(folder, "a.exe" if is_pe else "a")
        source.write_text(SOURCE, encoding="utf-8")
        for part, options, expected in [("path" if not is_pe else "code", "", set()), *planted]:
            words = " ".join((good | {part: options}).values()).split()
            subprocess.run([compiler, "-w", "-O2", source, "-o", program, *words], check=True)
            found = set(faults_of_program(program))
            if found != expected:
                yield f"{options or 'a good program'} gives {found or 'nothing'}, not {expected or 'nothing'}"
    whole = "c++ -fstack-protector-strong -D_FORTIFY_SOURCE=3 -O2 -fstack-clash-protection -fPIE -fcf-protection=full "
    for option in ["", *whole.split()[1:-1]]:
        command = whole.replace(option, "") if option else whole
        found = list(faults_of_commands([{"file": "a.cpp", "command": command}]))
        if len(found) != (1 if option else 0):
            yield f"a source without {option or 'lacking anything'} gives {found}"


def main(words):
    failures = list(self_test(words[1])) if words[0] == "--self-test" else []
    faults, programs, commands = check(pathlib.Path(words[-1]))
    for line in failures + faults:
        print(line)
    print(f"{programs} programs, {commands} sources, {len(faults)} faults, {len(failures)} failures of the check")
    return 1 if failures or faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
