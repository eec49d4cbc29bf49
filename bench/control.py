#!/usr/bin/env python3
"""The control API under load.

    control.py PROGRAM [load|rate|transfer]... [--jobs N] [--seconds S] [--clients N] [--idle N] [--rate R] [--speed MIB]

Files N jobs (10,000) in a data folder of its own and opens N WebSockets (500) that hear all notifications. Then, by parts (all of them
where none is named), each of which prints a line of JSON:

load      N clients (4), each a process, ask tellStatus without a pause for S seconds (30), once for four keys, once for all: requests a second, the time
          of 50, 99 and 99.9 of 100 of them. Before: how long it takes to add a thousand in one multicall and in one batch, to list a
          thousand by tellWaiting, and what changed by vantlow.list.
rate      R requests a second (1,000) for 60 seconds at times that are set beforehand, so that a late answer makes the next ones late, too:
          how many failed, the times, and the program's memory before and behind it.
transfer  A file of 512 MiB over loopback, as fast as it goes and at MIB a second (115, a gigabit's), in turn with nothing else to do, with a two notifications
          to all WebSockets ten times a second, and with R requests a second: seconds, processor seconds of the program.

The processor's times hold on a machine that does other things, too. Needs nothing but Python.
"""

import argparse
import http.client
import json
import multiprocessing
import os
import pathlib
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from servers import free_port, memory_kib, process_seconds

FILE_SIZE = 512 * 1024 * 1024


def open_websocket(port, token):
    opened = socket.create_connection(("127.0.0.1", port))
    opened.sendall(f"GET /jsonrpc HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                   "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n".encode())
    if b" 101 " not in opened.recv(4096):
        raise RuntimeError("no WebSocket")
    text = json.dumps({"id": 1, "method": "aria2.getVersion", "params": [token]}).encode()
    opened.sendall(bytes([0x81, 0x80 | len(text), 0, 0, 0, 0]) + text)  # a mask of zeros
    opened.recv(4096)
    return opened


class Client:
    def __init__(self, port, token):
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)
        self.token = token

    def call(self, method, *params):
        params = params if method.startswith("system.") else [self.token, *params]
        self.connection.request("POST", "/jsonrpc", json.dumps({"id": 1, "method": method, "params": params}))
        answer = json.loads(self.connection.getresponse().read())
        if "error" in answer:
            raise RuntimeError(answer["error"])
        return answer["result"]


FEW = [["gid", "status", "totalLength", "completedLength"]]


def load(port, token, gids, keys, until):
    client, times = Client(port, token), []
    while (began := time.perf_counter()) < until:
        client.call("aria2.tellStatus", gids[len(times) % len(gids)], *keys)
        times.append(time.perf_counter() - began)
    return times


def load_at(port, token, gids, rate, first, seconds):
    """Times since each request should have been sent, how many failed, and the processor's seconds that asking took."""
    spent = time.process_time()
    client, times, failed = Client(port, token), [], 0
    for i in range(int(rate * seconds)):
        due = first + i / rate
        time.sleep(max(0, due - time.perf_counter()))
        try:
            client.call("aria2.tellStatus", gids[i % len(gids)], *FEW)
            times.append(time.perf_counter() - due)
        except (OSError, RuntimeError, http.client.HTTPException, ValueError):
            failed += 1
            client = Client(port, token)
    return times, failed, time.process_time() - spent


def milliseconds(times):
    times = sorted(times)
    return {share: round(times[min(int(len(times) * float(share) / 100), len(times) - 1)] * 1000, 2) for share in ("50", "99", "99.9", "100")}


class Bench:
    """The program with its jobs and its WebSockets."""

    def __init__(self, options, root):
        self.options, self.root = options, root
        self.port = free_port()
        (root / "settings.ini").write_text("[Torrent]\nDHT=0\nLSD=0\nPortMapping=0\n")
        self.process = subprocess.Popen([options.program, "--data-dir", str(root / "data"), "--settings", str(root / "settings.ini"), "serve", "--foreground",
                                         "-q", "--rpc-listen", f"127.0.0.1:{self.port}", "--rpc-secret", "bench"],
                                        env=os.environ | {"HOME": str(root), "XDG_RUNTIME_DIR": str(root)})

    def begin(self):
        for _ in range(300):
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    break
            time.sleep(0.1)
        self.client = Client(self.port, "token:bench")
        self.gids, self.adding = [], {"multicall": [], "batch": []}
        while len(self.gids) < self.options.jobs:
            self.add_thousand(self.gids)
        self.idle = [open_websocket(self.port, self.client.token) for _ in range(self.options.idle)]

    def add_thousand(self, gids):
        params = [[self.client.token, [f"http://h.invalid/{len(gids) + i}"], {"pause": "true", "dir": str(self.root)}] for i in range(1000)]
        if len(gids) % 2000 == 0:
            calls = [{"methodName": "aria2.addUri", "params": one} for one in params]
            began = time.perf_counter()
            gids += [one[0] for one in self.client.call("system.multicall", calls)]
            self.adding["multicall"].append(time.perf_counter() - began)
            return
        calls = json.dumps([{"id": i, "method": "aria2.addUri", "params": one} for i, one in enumerate(params)])
        began = time.perf_counter()
        self.client.connection.request("POST", "/jsonrpc", calls)
        answer = self.client.connection.getresponse().read()
        self.adding["batch"].append(time.perf_counter() - began)
        gids += [one["result"] for one in json.loads(answer)]

    def seconds_of(self, method, *params):
        def once():
            began = time.perf_counter()
            self.client.call(method, *params)
            return time.perf_counter() - began
        return round(statistics.median(once() for _ in range(5)), 3)

    def load(self):
        told = {"jobs": len(self.gids), "addThousandSeconds": {how: round(statistics.median(times), 3) for how, times in self.adding.items()},
                "listThousandSeconds": self.seconds_of("aria2.tellWaiting", 0, 1000)}
        known = self.client.call("vantlow.list")
        told["listChangedSeconds"] = self.seconds_of("vantlow.list", {"since": known["revision"], "session": known["session"]})
        before = process_seconds(self.process.pid)
        time.sleep(2)
        told["idleShare"] = round((process_seconds(self.process.pid) - before) / 2, 4)
        for name, keys in (("fourKeys", FEW), ("allKeys", [])):
            before = process_seconds(self.process.pid)
            with multiprocessing.Pool(self.options.clients) as pool:
                until = time.perf_counter() + self.options.seconds
                times = sum(pool.starmap(load, [(self.port, self.client.token, self.gids, keys, until)] * self.options.clients), [])
            spent = process_seconds(self.process.pid) - before
            told[name] = {"requestsPerSecond": round(len(times) / self.options.seconds), "milliseconds": milliseconds(times),
                          "processorMicroseconds": round(spent / len(times) * 1e6)}
        return told | {"memoryKiB": memory_kib(self.process.pid, "VmRSS")}

    def at_rate(self, pool, seconds):
        share = self.options.rate / self.options.clients
        first = time.perf_counter() + 0.2
        return pool.starmap_async(load_at, [(self.port, self.client.token, self.gids, share, first + i / self.options.rate, seconds)
                                            for i in range(self.options.clients)])

    def rate(self):
        before = memory_kib(self.process.pid, "VmRSS"), process_seconds(self.process.pid)
        with multiprocessing.Pool(self.options.clients) as pool:
            self.at_rate(pool, 1).wait()  # the clients' own beginning is not measured
            answers = self.at_rate(pool, 60).get()
        times = sum((one for one, _, _ in answers), [])
        return {"answered": len(times), "failed": sum(failed for _, failed, _ in answers), "milliseconds": milliseconds(times), "webSockets": len(self.idle),
                "processorShare": round((process_seconds(self.process.pid) - before[1]) / 60, 3), "memoryKiB": [before[0], memory_kib(self.process.pid, "VmRSS")]}

    def fetch(self, address):
        watcher = open_websocket(self.port, self.client.token)
        spent, began = process_seconds(self.process.pid), time.perf_counter()
        gid = self.client.call("aria2.addUri", [address], {"dir": str(self.root), "out": "fetched", "split": "1", "allow-overwrite": "true"})
        told = b""
        while b'onDownloadComplete","params":[{"gid":"' + gid.encode() not in told:
            told += watcher.recv(65536)
        took = time.perf_counter() - began, process_seconds(self.process.pid) - spent
        watcher.close()
        self.client.call("vantlow.remove", [gid], "erase")
        return took

    def notify_until(self, stop):
        """Lets a job of a server that never answers begin and stop, and so tells all WebSockets of it."""
        client, accepted = Client(self.port, self.client.token), []
        with socket.create_server(("127.0.0.1", 0)) as silent:
            gid = client.call("aria2.addUri", [f"http://127.0.0.1:{silent.getsockname()[1]}/"], {"pause": "true", "dir": str(self.root)})
            while not stop.wait(0.1):
                client.call("aria2.unpause", gid)
                accepted.append(silent.accept())
                client.call("aria2.pause", gid)
            client.call("vantlow.remove", [gid], "erase")

    def transfer(self):
        told = {}
        for speed in (0, self.options.speed):
            server, address = serve_file(self.root, speed)
            shares = []  # of a core, that the clients themselves take
            with multiprocessing.Pool(self.options.clients) as pool:
                took = {"alone": [], "notifications": [], "requests": []}
                for _ in range(self.options.rounds):
                    took["alone"].append(self.fetch(address))
                    stop = threading.Event()
                    busy = threading.Thread(target=self.notify_until, args=(stop,))
                    busy.start()
                    took["notifications"].append(self.fetch(address))
                    stop.set()
                    busy.join()
                    for one in self.idle:
                        one.recv(1 << 20)
                    seconds = max(2, took["alone"][-1][0] - 0.2)
                    asked = self.at_rate(pool, seconds)
                    took["requests"].append(self.fetch(address))
                    shares.append(sum(spent for _, _, spent in asked.get()) / seconds)
            server.terminate()
            server.join()
            told[f"{speed} MiB/s" if speed else "unlimited"] = {
                name: {"seconds": round(statistics.median(one for one, _ in all_of), 3), "least": round(min(one for one, _ in all_of), 3),
                       "processorSeconds": round(statistics.median(one for _, one in all_of), 3)} for name, all_of in took.items()} | {
                           "clientsShare": round(statistics.median(shares), 3)}
        return told


def give_file(listener, path, speed):
    """Gives the file to each that asks, at this many MiB a second; 0: as fast as it goes."""
    while True:
        connection, _ = listener.accept()
        with connection, open(path, "rb") as file:
            connection.recv(65536)
            connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\nConnection: close\r\n\r\n" % FILE_SIZE)
            began, step = time.perf_counter(), 1 << 20
            for at in range(0, FILE_SIZE, step):
                if speed:
                    time.sleep(max(0, began + at / step / speed - time.perf_counter()))
                connection.sendfile(file, at, step)


def serve_file(root, speed):
    path = root / "served"
    if not path.exists():
        path.write_bytes(os.urandom(1 << 20) * (FILE_SIZE >> 20))
    listener = socket.create_server(("127.0.0.1", 0))
    server = multiprocessing.Process(target=give_file, args=(listener, path, speed), daemon=True)
    server.start()
    return server, f"http://127.0.0.1:{listener.getsockname()[1]}/file"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program")
    parser.add_argument("parts", nargs="*", choices=["load", "rate", "transfer"], default=["load", "rate", "transfer"])
    for name, standard in (("jobs", 10000), ("seconds", 30), ("clients", 4), ("idle", 500), ("rate", 1000), ("speed", 115), ("rounds", 5)):
        parser.add_argument(f"--{name}", type=int, default=standard)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(dir="/dev/shm" if os.path.isdir("/dev/shm") else None) as folder:
        bench = Bench(options, pathlib.Path(folder))
        try:
            bench.begin()
            for part in options.parts:
                print(json.dumps({part: getattr(bench, part)()}), flush=True)
        finally:
            bench.process.terminate()
            bench.process.wait(60)


if __name__ == "__main__":
    sys.exit(main())
