#!/usr/bin/env python3
"""Lets one resident vantlow fetch from a network that misbehaves, for minutes, and looks at what it leaves.

    bench/soak.py --vantlow build/linux-release/bin/vantlow [--minutes 5] [--jobs 200] [--seed N] [--folder DIR]

A server of its own on loopback answers late and out of order, stalls, resets connections, ends answers early, refuses
connections and says 503. Round after round so many jobs are handed to the resident program at once; each file is held
against its SHA-256. Memory, threads and descriptors of the process are sampled twice a second, and once it is idle after
each round. Ends with 1 when a file is wrong or missing, or when the program at rest holds more than it did after the
first round.
"""

import argparse
import asyncio
import hashlib
import json
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import threading
import time

REST_SECONDS = 60  # idle connections and threads are given up within less
FIRST_REST_SECONDS = 25
THREADS_AT_REST = 4  # more than after the first round: allowed
DESCRIPTORS_AT_REST = 8
MEMORY_AT_REST = 24 << 20
# Of 100 answers so many get this fault.
FAULTS = {"reset": 8, "truncated": 8, "stall": 3, "busy": 5, "late": 25, "slow": 10, "swapped": 10}


def content(seed, size):
    return random.Random(seed).randbytes(size)


class Server:
    """Range requests over HTTP/1.1, with faults drawn from a seeded generator."""

    def __init__(self, seed, sizes):
        self.random = random.Random(seed)
        self.files = {f"/{i}.bin": content(seed * 1000 + i, size) for i, size in enumerate(sizes)}
        self.digests = {path: hashlib.sha256(data).hexdigest() for path, data in self.files.items()}
        self.counts = dict.fromkeys([*FAULTS, "right", "refused"], 0)
        self.waiting = None  # the answer that waits to be overtaken
        self.calm = False
        self.ready = threading.Event()
        self.port = 0
        threading.Thread(target=lambda: asyncio.run(self.serve()), daemon=True).start()
        self.ready.wait()

    async def serve(self):
        server = await asyncio.start_server(self.converse, "127.0.0.1", 0, backlog=2000, limit=65536)
        self.port = server.sockets[0].getsockname()[1]
        self.ready.set()
        await server.serve_forever()

    def draw(self):
        number = self.random.uniform(0, 100)
        for fault, share in FAULTS.items():
            number -= share
            if number < 0:
                self.counts[fault] += 1
                return fault
        self.counts["right"] += 1
        return ""

    async def converse(self, reader, writer):
        try:
            if self.random.random() < 0.05:
                self.counts["refused"] += 1
                writer.transport.abort()
                return
            while True:
                head = (await reader.readuntil(b"\r\n\r\n")).decode("latin-1")
                if not await self.answer(head, writer):
                    return
        except (ConnectionError, asyncio.IncompleteReadError, asyncio.CancelledError):
            pass
        finally:
            writer.close()

    async def overtaken(self):
        """Waits until another answer went first; two that meet go in the order in which they were not asked."""
        if self.waiting is None:
            self.waiting = asyncio.Event()
            try:
                await asyncio.wait_for(self.waiting.wait(), 2)
            except asyncio.TimeoutError:
                pass
            self.waiting = None
        else:
            asyncio.get_running_loop().call_later(0.02, self.waiting.set)

    async def answer(self, head, writer):
        path = head.split(" ", 2)[1]
        data = self.files[path]
        match = re.search(r"^range: *bytes=(\d+)-(\d*)", head, re.I | re.M)
        first = int(match[1]) if match else 0
        last = min(int(match[2]), len(data) - 1) if match and match[2] else len(data) - 1
        fault = self.draw()
        if fault == "late":
            await asyncio.sleep(self.random.uniform(0.05, 1.5))
        elif fault == "swapped":
            await self.overtaken()
        elif fault == "busy":
            writer.write(b"HTTP/1.1 503 Busy\r\nRetry-After: 1\r\nContent-Length: 0\r\n\r\n")
            await writer.drain()
            return True
        tag = self.digests[path][:16]
        status = f"206 Partial Content\r\nContent-Range: bytes {first}-{last}/{len(data)}" if match else "200 OK"
        writer.write(
            f"HTTP/1.1 {status}\r\nContent-Length: {last + 1 - first}\r\nAccept-Ranges: bytes\r\n"
            f'ETag: "{tag}"\r\n\r\n'.encode()
        )
        end = last + 1
        cut = self.random.randint(first, end) if fault in ("reset", "truncated", "stall") else end
        step = 16384 if fault == "slow" else 65536
        for at in range(first, cut, step):
            writer.write(data[at : min(at + step, cut)])
            await writer.drain()
            if fault == "slow":
                await asyncio.sleep(0.03)
        if fault == "reset":
            writer.transport.abort()
        elif fault == "stall":
            await asyncio.sleep(self.random.uniform(5, 40))
        return fault not in ("reset", "truncated", "stall")


class Sampler:
    """Memory, threads and descriptors of a process."""

    def __init__(self, pid):
        self.pid = pid
        self.most = {"memory": 0, "threads": 0, "descriptors": 0}
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def now(self):
        status = pathlib.Path(f"/proc/{self.pid}/status").read_text()
        return {
            "memory": int(re.search(r"^VmRSS:\s+(\d+)", status, re.M)[1]) << 10,
            "threads": int(re.search(r"^Threads:\s+(\d+)", status, re.M)[1]),
            "descriptors": len(os.listdir(f"/proc/{self.pid}/fd")),
        }

    def run(self):
        while not self.ended.wait(0.5):
            for name, value in self.now().items():
                self.most[name] = max(self.most[name], value)

    def stop(self):
        self.ended.set()
        self.thread.join()


class Program:
    def __init__(self, vantlow, folder):
        self.vantlow = vantlow
        self.words = ["--data-dir", str(folder / "data"), "--settings", str(folder / "settings.ini")]
        self.environment = {**os.environ, "XDG_RUNTIME_DIR": str(folder), "HOME": str(folder)}
        for name in ("http_proxy", "all_proxy", "HTTP_PROXY", "ALL_PROXY"):
            self.environment.pop(name, None)
        (folder / "settings.ini").write_text(
            "[Performance]\nMaxJobs=1000\n[Connection]\nMaxPerServer=0\n[Download]\nMoveCompleted=0\n"
        )
        self.process = subprocess.Popen([vantlow, *self.words], env=self.environment, stdin=subprocess.DEVNULL)
        until = time.monotonic() + 20
        while not (folder / "data" / ".lock").exists() or not (folder / "data" / ".lock").read_text():
            if time.monotonic() > until:
                raise RuntimeError("the resident program does not start")
            time.sleep(0.05)

    def ask(self, *words):
        done = subprocess.run(
            [self.vantlow, *self.words, *words], env=self.environment, capture_output=True, text=True, check=True
        )
        return done.stdout


def states(program):
    counts = {}
    for job in json.loads(program.ask("list", "--json")):
        counts[job["state"]] = counts.get(job["state"], 0) + 1
    return counts


def wrong_files(folder, server):
    wrong = []
    for path, digest in server.digests.items():
        file = folder / path[1:]
        if not file.exists() or hashlib.sha256(file.read_bytes()).hexdigest() != digest:
            wrong.append(path)
    leftovers = [entry.name for entry in folder.iterdir() if ".vantlow" in entry.name]
    return wrong + leftovers


def at_rest(sampler, first):
    """What the process holds once it has come to rest: as little as at first, or what it has after a while."""
    until = time.monotonic() + (REST_SECONDS if first else FIRST_REST_SECONDS)
    while True:
        now = sampler.now()
        rested = first and holds_too_much(now, first) == []
        if rested or time.monotonic() > until:
            return now
        time.sleep(0.5)


def holds_too_much(now, first):
    allowed = {"memory": MEMORY_AT_REST, "threads": THREADS_AT_REST, "descriptors": DESCRIPTORS_AT_REST}
    return [name for name in allowed if now[name] > first[name] + allowed[name]]


def shown(values):
    return f"{values['memory'] / 2**20:.1f} MiB, {values['threads']} threads, {values['descriptors']} descriptors"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vantlow", required=True)
    parser.add_argument("--minutes", type=float, default=5)
    parser.add_argument("--jobs", type=int, default=200)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--folder")
    options = parser.parse_args()
    sizes = random.Random(options.seed)
    server = Server(options.seed, [sizes.randint(20_000, 3_000_000) for _ in range(options.jobs)])
    failed = False
    with tempfile.TemporaryDirectory(dir=options.folder) as name:
        folder = pathlib.Path(name)
        program = Program(str(pathlib.Path(options.vantlow).resolve()), folder)
        sampler = Sampler(program.process.pid)
        try:
            print("before:", shown(sampler.now()), flush=True)
            until = time.monotonic() + options.minutes * 60
            first = None
            round_number = 0
            while time.monotonic() < until:
                round_number += 1
                target = folder / f"round{round_number}"
                links = folder / "links.txt"
                links.write_text("".join(f"http://127.0.0.1:{server.port}{path}\n" for path in server.files))
                begun = time.monotonic()
                program.ask("add", "-d", str(target), "-n", "4", "--retry-delay", "1", "-i", str(links))
                while set(counts := states(program)) - {"finished", "failed"}:
                    if time.monotonic() - begun > 300:
                        print("round", round_number, "does not end:", counts)
                        failed = True
                        break
                    time.sleep(1)
                took = time.monotonic() - begun
                wrong = wrong_files(target, server)
                failed = failed or bool(wrong)
                # The store does not grow, so that memory that does is somebody's fault.
                jobs = json.loads(program.ask("list", "--json"))
                program.ask("remove", "--files", *(job["id"] for job in jobs))
                rest = at_rest(sampler, first)
                first = first or rest
                too_much = holds_too_much(rest, first)
                failed = failed or bool(too_much)
                print(f"round {round_number}: {counts}, {took:.0f} s, wrong: {wrong or 'none'}")
                print("  at most:", shown(sampler.most))
                print("  at rest:", shown(rest), f"too much: {too_much}" if too_much else "", flush=True)
            print("faults:", server.counts)
        finally:
            sampler.stop()
            program.process.terminate()
            print("ends with", program.process.wait(60))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
