#!/usr/bin/env python3
"""What several mirrors bring: one file from one mirror and from four, each of which gives 4 MiB a second to
each connection, one connection for each mirror; and what checking the pieces costs, without any limit.

    bench/mirrors.py --vantlow PROGRAM [--mib N] [--rounds N] [--dir DIR]
"""

import argparse
import hashlib
import os
import resource
import statistics
import subprocess
import tempfile
import time
from contextlib import ExitStack

import servers

PIECE = 1 << 20
LIMITED = "limit_rate 4m;"


def metalink(path, name, content, urls, pieces):
    hashes = "".join(
        f"<hash>{hashlib.sha256(content[at : at + PIECE]).hexdigest()}</hash>" for at in range(0, len(content), PIECE)
    )
    with open(path, "w") as file:
        file.write('<?xml version="1.0"?><metalink xmlns="urn:ietf:params:xml:ns:metalink">')
        file.write(f'<file name="{name}"><size>{len(content)}</size>')
        if pieces:
            file.write(f'<pieces length="{PIECE}" type="sha-256">{hashes}</pieces>')
        file.write("".join(f'<url priority="1">{url}</url>' for url in urls) + "</file></metalink>")


def fetch(options, folder, link, content, connections):
    """Wall and processor seconds; the file is compared."""
    target = os.path.join(folder, "out")
    os.makedirs(target)
    before, begin = resource.getrusage(resource.RUSAGE_CHILDREN), time.monotonic()
    subprocess.run([options.vantlow, "get", "-q", "-n", str(connections), "-d", target, link], check=True)
    wall, after = time.monotonic() - begin, resource.getrusage(resource.RUSAGE_CHILDREN)
    path = os.path.join(target, "file.bin")
    with open(path, "rb") as file:
        if file.read() != content:
            raise SystemExit("FAILED: the file is wrong")
    os.remove(path)
    os.rmdir(target)
    return wall, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vantlow", required=True)
    parser.add_argument("--mib", type=int, default=64)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--dir", default="/dev/shm")
    options = parser.parse_args()
    options.vantlow = os.path.abspath(options.vantlow)
    with tempfile.TemporaryDirectory(dir=options.dir) as folder, ExitStack() as stack:
        os.chmod(folder, 0o755)
        www = os.path.join(folder, "www")
        os.makedirs(www)
        content = os.urandom(options.mib << 20)
        with open(os.path.join(www, "file.bin"), "wb") as file:
            file.write(content)

        def start(name, extra):
            return stack.enter_context(servers.Nginx(os.path.join(folder, name), www, extra))

        slow = [start(f"slow{i}", LIMITED) for i in range(4)]
        fast = [start(f"fast{i}", "") for i in range(4)]
        cases = {
            "one mirror of 4 MiB/s": (slow[:1], True, 1),
            "four mirrors of 4 MiB/s": (slow, True, 4),
            "four fast mirrors, pieces checked": (fast, True, 4),
            "four fast mirrors, nothing checked": (fast, False, 4),
        }
        seen = {name: [] for name in cases}
        for _ in range(options.rounds):
            for name, (who, pieces, connections) in cases.items():
                link = os.path.join(folder, "file.meta4")
                metalink(link, "file.bin", content, [s.base("http") + "file.bin" for s in who], pieces)
                seen[name].append(fetch(options, folder, link, content, connections))
    print(f"{options.mib} MiB, {options.rounds} rounds, medians\n\n| case | wall s | processor s |\n|---|---:|---:|")
    for name, values in seen.items():
        print("| {} | {:.2f} | {:.2f} |".format(name, *(statistics.median(column) for column in zip(*values))))


if __name__ == "__main__":
    main()
