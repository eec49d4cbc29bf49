#!/usr/bin/python3
"""What the window costs, on a screen that nobody sees.

    bench/window.py --programs build/linux-release/bin [--jobs 100000] [--running 200] [--seconds 20]

Measures the start with so many jobs until the window is there and a command is answered (both are one thread's work); the
processor time of the window while so many jobs run, their bytes coming four times a second, as the difference of the thread
that window and engine share to the same thread without a window (transfers and saving have threads of their own, and cost
now more, now less); how long commands wait meanwhile; and the memory at rest with 1,000 jobs. Prints what it measured
and ends with 1 when a bound is broken.
"""

import argparse
import asyncio
import contextlib
import pathlib
import signal
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/support"))
import display  # noqa: E402
from display import until, windows  # noqa: E402
from servers import memory_kib, process_seconds  # noqa: E402

START, SHARE, WAIT, MEMORY = 1.5, 5.0, 0.05, 80  # seconds, per cent of a core, seconds, MiB
PIECE = 4096
SIZE = 1 << 30


class Dripping:
    """Sends every connection a small piece four times a second."""

    def __init__(self):
        self.port = 0
        ready = threading.Event()
        threading.Thread(target=lambda: asyncio.run(self.serve(ready)), daemon=True).start()
        ready.wait()

    async def serve(self, ready):
        server = await asyncio.start_server(self.answer, "127.0.0.1", 0, backlog=1000)
        self.port = server.sockets[0].getsockname()[1]
        ready.set()
        async with server:
            await server.serve_forever()

    async def answer(self, reader, writer):
        with contextlib.suppress(OSError, asyncio.IncompleteReadError):
            await reader.readuntil(b"\r\n\r\n")
            writer.write(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\nAccept-Ranges: bytes\r\nETag: \"1\"\r\n\r\n" % SIZE)
            while not writer.is_closing():
                writer.write(bytes(PIECE))
                await writer.drain()
                await asyncio.sleep(0.25)
        writer.close()


class Resident(display.Vantlow):
    """The program with a store of its own, started in front."""

    def __init__(self, programs, folder, *settings):
        super().__init__(programs, folder)
        self.set("Window/Welcomed=1", *settings)
        self.environment["NO_AT_BRIDGE"] = "1"  # no screen reader listens
        self.own = None

    def file(self, count):
        lines = ['TextDelimiter="', "ColumnDelimiter=,", "ExtraFields=StartMode,Folder"]
        lines += [f'"http://host{n % 50}.example.com/a/path/file-{n}.bin","0","{self.folder}/files"' for n in range(count)]
        (self.folder / "list.txt").write_text("\r\n".join(lines) + "\r\n")
        assert self.run("import", str(self.folder / "list.txt")).stdout == f"{count} jobs\n"

    def begin(self, window=True):
        """Seconds until a command is answered, behind the window's being there."""
        words = [str(self.programs / "vantlow-desktop"), *self.words, *([] if window else ["--no-window"])]
        start = time.monotonic()
        self.own = subprocess.Popen(words, env=self.environment, stderr=subprocess.DEVNULL)
        if window:
            until(lambda: windows("^Vantlow$"), "the window", 60)
        until(lambda: self.run("questions").returncode == 0, "an answer", 60)
        return time.monotonic() - start

    def end(self):
        self.run("quit")
        self.own.wait(60)

    def processor_time(self):
        return process_seconds(self.own.pid)

    def thread_time(self):
        """Of the thread of engine and window."""
        return int(pathlib.Path(f"/proc/{self.own.pid}/task/{self.own.pid}/schedstat").read_text().split()[0]) / 1e9

    def memory(self, name):
        return memory_kib(self.own.pid, name) / 1024


def measure_start(programs, jobs):
    with tempfile.TemporaryDirectory() as folder:
        resident = Resident(programs, folder)
        resident.file(jobs)
        times, processor = [], []
        for _ in range(3):
            times.append(resident.begin())
            processor.append(resident.processor_time())
            memory = resident.memory("VmRSS")
            resident.end()
        print(f"start with {jobs} jobs to window and answer: {min(times):.2f} s at best, {max(times):.2f} s at worst "
              f"({min(processor):.2f} s of processor time); {memory:.0f} MiB")
        return min(times) <= START


def run_jobs(programs, server, jobs, running, seconds, window):
    """Shares of a core in per cent, of the window's thread and of the process, and the longest wait of a command."""
    with tempfile.TemporaryDirectory() as folder:
        resident = Resident(programs, folder, f"Performance/MaxJobs={running}", "Connection/MaxPerServer=0")
        resident.file(jobs)
        resident.begin(window)
        links = [f"http://127.0.0.1:{server.port}/{n}.bin" for n in range(running)]
        resident.run("add", "--connections", "1", "--dir", folder + "/files", *links)
        time.sleep(5)  # all of them run
        before, waits, start = (resident.thread_time(), resident.processor_time()), [], time.monotonic()
        while time.monotonic() < start + seconds:
            time.sleep(0.5)
            asked = time.monotonic()
            resident.run("questions")
            waits.append(time.monotonic() - asked)
        took = time.monotonic() - start
        thread, all_threads = resident.thread_time() - before[0], resident.processor_time() - before[1]
        resident.end()
        return thread / took * 100, all_threads / took * 100, max(waits)


def measure_running(programs, server, jobs, running, seconds):
    without, process_without, usual = run_jobs(programs, server, jobs, running, seconds, False)
    share, process, wait = run_jobs(programs, server, jobs, running, seconds, True)
    print(f"{running} jobs running among {jobs}: the window's thread takes {share:.1f} % of a core, {without:.1f} % without "
          f"a window; the process {process:.1f} %, {process_without:.1f} % without; "
          f"a command took {wait * 1000:.0f} ms at worst, {usual * 1000:.0f} ms without")
    return share - without <= SHARE and wait <= usual + WAIT


def measure_memory(programs):
    with tempfile.TemporaryDirectory() as folder:
        resident = Resident(programs, folder)
        resident.file(1000)
        resident.begin()
        time.sleep(5)
        resident_size, anonymous = resident.memory("VmRSS"), resident.memory("RssAnon")
        resident.end()
        print(f"memory at rest with 1000 jobs: {resident_size:.0f} MiB, {anonymous:.0f} of them the program's own")
        return resident_size <= MEMORY


def main():
    words = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    words.add_argument("--programs", required=True, type=lambda p: str(pathlib.Path(p).resolve()))
    words.add_argument("--jobs", type=int, default=100_000)
    words.add_argument("--running", type=int, default=200)
    words.add_argument("--seconds", type=float, default=20)
    asked = words.parse_args()
    if lacking := display.missing():
        sys.exit("there is no " + ", ".join(lacking))
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    display.on_a_session_bus()
    server = Dripping()
    with display.display():
        good = [
            measure_start(asked.programs, asked.jobs),
            measure_running(asked.programs, server, asked.jobs, asked.running, asked.seconds),
            measure_memory(asked.programs),
        ]
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
