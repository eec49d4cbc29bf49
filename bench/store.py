#!/usr/bin/env python3
"""How the job store scales.

    bench/store.py --vantlow PROGRAM [--jobs 100000]

Files so many jobs of 8 segments with the program itself, then measures commands that load the whole store, and ones that
load and save it; what a resident program with them needs for commands on a thousand jobs, and how long it lets others wait
while it saves; 10,000 jobs listed as JSON; and the longest time for which a server that sends as fast as it can is kept
waiting while commands on a store of 10,000 jobs are answered again and again. Prints what it measured and ends with 1
when a bound is broken. What single operations of the store cost, tests/store/large_store_test.cpp measures.
"""

import argparse
import json
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time

SEGMENTS = 8


class Store:
    def __init__(self, program, folder):
        self.program = program
        self.folder = folder
        self.environment = dict(os.environ, HOME=str(folder), XDG_RUNTIME_DIR=str(folder), VANTLOW_DATA_DIR=str(folder / "data"),
                                VANTLOW_SETTINGS=str(folder / "settings.ini"))

    def run(self, *words):
        """Seconds, the most memory in MiB, and the output."""
        with tempfile.TemporaryFile() as output:
            begin = time.monotonic()
            process = subprocess.Popen([self.program, *words], stdout=output, env=self.environment, cwd=self.folder)
            _, status, usage = os.wait4(process.pid, 0)
            seconds = time.monotonic() - begin
            process.returncode = os.waitstatus_to_exitcode(status)
            if process.returncode != 0:
                sys.exit(f"{' '.join(words)} ended with {process.returncode}")
            output.seek(0)
            return seconds, usage.ru_maxrss / 1024, output.read()

    def best(self, *words, times=3):
        runs = [self.run(*words) for _ in range(times)]
        return min(r[0] for r in runs), max(r[1] for r in runs), runs[0][2]

    def fill(self, jobs):
        lines = ["TextDelimiter=\"", "ColumnDelimiter=,", "ExtraFields=Threads,Folder"]
        lines += [f'"http://server{n % 50}.example.com/a/path/of/some/length/file{n}.bin","{SEGMENTS}","/downloads/{n % 20}"'
                  for n in range(jobs)]
        path = self.folder / "list.txt"
        path.write_text("\r\n".join(lines) + "\r\n")
        self.run("import", str(path), "--category", "Completed")
        self.run("stop", "--all")


class FastServer:
    """Sends zeros as fast as they are taken, and remembers the longest wait between two pieces."""

    SIZE = 64 << 30

    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 65536)
        self.port = self.listener.getsockname()[1]
        self.longest = 0.0
        self.sent = 0
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            peer, _ = self.listener.accept()
            threading.Thread(target=self.answer, args=(peer,), daemon=True).start()

    def answer(self, peer):
        peer.recv(65536)
        peer.sendall(f"HTTP/1.1 200 OK\r\nContent-Length: {self.SIZE}\r\n\r\n".encode())
        piece = bytes(65536)
        try:
            last = time.monotonic()
            while True:
                peer.sendall(piece)
                now = time.monotonic()
                self.longest = max(self.longest, now - last)
                self.sent += len(piece)
                last = now
        except OSError:
            pass


def resident_commands(store, tell):
    """Commands on a thousand of the jobs, and the longest answer of the seconds around a save."""
    identities = [job["id"] for job in json.loads(store.run("list", "--json", "--category", "Completed")[2])[:1000]]
    (store.folder / "settings.ini").write_text("[Performance]\nSaveDatabaseInterval=10\n")
    instance = subprocess.Popen([store.program], env=store.environment, cwd=store.folder)
    while not (store.folder / "data/.lock").read_text():
        time.sleep(0.1)
    answer = store.best("category", "list")[0]
    tell("resident: a command that only looks", answer, "s")
    store.run("category", "add", "First")  # the journal is begun
    for words in (["category", "add", "Second"], ["move", "First", *identities], ["remove", *identities]):
        tell(f"resident: {words[0]} {len(words) - 2 if words[0] != 'category' else 1}, on the disk",
             store.run(*words)[0] - answer, "s")
    before = (store.folder / "data/.database").stat().st_mtime_ns
    longest, until = 0.0, time.monotonic() + 30
    while time.monotonic() < until:
        longest = max(longest, store.run("category", "list")[0])
        saved = (store.folder / "data/.database").stat().st_mtime_ns != before
        until = min(until, time.monotonic() + 1) if saved and until - time.monotonic() > 1 else until
    tell("resident: longest answer while it saves", longest, "s", 0.1)
    store.run("quit")
    instance.wait()
    (store.folder / "settings.ini").unlink()


def longest_wait(store, saves):
    """Milliseconds, over some seconds of a transfer, with or without saves meanwhile."""
    server = FastServer()
    target = store.folder / "out"
    instance = subprocess.Popen([store.program], env=store.environment, cwd=store.folder)
    job = store.run("add", "-n", "1", "-d", str(target), f"http://127.0.0.1:{server.port}/zeros")[2].decode().strip()
    time.sleep(1)
    server.longest = 0.0
    count, until = 0, time.monotonic() + 4
    while time.monotonic() < until:
        if saves:
            store.run("category", "add", f"{saves}-{count}")  # is on the disk before it is answered
            count += 1
        time.sleep(0.05)
    longest = server.longest
    store.run("remove", "--files", job)
    store.run("quit")
    instance.wait()
    return longest * 1000, count, server.sent >> 20


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("--vantlow", required=True)
    arguments.add_argument("--jobs", type=int, default=100000)
    options = arguments.parse_args()
    program = str(pathlib.Path(options.vantlow).resolve())
    memory = "/dev/shm" if os.path.isdir("/dev/shm") else None
    broken = []

    def tell(what, value, unit, bound=None):
        over = bound is not None and value > bound
        print(f"{what:58} {value:9.3f} {unit}" + (f"  (at most {bound})" if bound else "") + ("  OVER" if over else ""))
        if over:
            broken.append(what)

    folder = pathlib.Path(tempfile.mkdtemp(prefix="vantlow-store-", dir=memory))
    try:
        store = Store(program, folder)
        store.run("list")
        empty = store.best("category", "list")[0]
        store.fill(options.jobs)
        tell(f"database of {options.jobs} jobs", (folder / "data/.database").stat().st_size / 2**20, "MiB")
        load, memory_used, _ = store.best("category", "list")
        tell("load", load - empty, "s", 1)
        tell("memory, loaded", memory_used, "MiB", 400)
        names = iter(range(100))
        both, memory_used = min(store.run("category", "add", f"c{next(names)}")[:2] for _ in range(3))
        tell("save, with its copy", both - load, "s", 1)
        tell("memory, loaded and saved", memory_used, "MiB", 400)
        resident_commands(store, tell)
        shutil.rmtree(folder / "data")
        store.fill(10000)
        seconds, _, output = store.best("list", "--json")
        assert len(json.loads(output)) == 10000
        tell("list --json of 10,000 jobs", seconds, "s", 0.3)
        without, _, sent = longest_wait(store, "")
        tell(f"longest wait of a transfer without saves ({sent} MiB)", without, "ms")
        with_saves, count, sent = longest_wait(store, "s")
        tell(f"longest wait of a transfer with {count} saves ({sent} MiB)", with_saves, "ms", 50)
    finally:
        shutil.rmtree(folder)
    sys.exit(1 if broken else 0)


if __name__ == "__main__":
    main()
