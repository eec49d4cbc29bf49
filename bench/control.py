#!/usr/bin/env python3
"""The control API under load.

    control.py PROGRAM [--jobs N] [--seconds S] [--clients N] [--idle N]

Files N jobs (10,000) in a data folder of its own, then keeps N clients (4), each a process, busy for S seconds (10) with tellStatus over
connections that stay, while N WebSockets (500) are open and idle. Prints one line of JSON: how long adding a thousand in one request and
listing a thousand takes, requests a second, the time of 50, 99 and 99.9 of 100 of them, the processor time that the program spent on each
and in a second of idle WebSockets, and its memory. The processor's times hold on a machine that does other things, too. Needs nothing
but Python.
"""

import argparse
import http.client
import json
import multiprocessing
import os
import pathlib
import socket
import subprocess
import sys
import tempfile
import time


def open_websocket(port):
    opened = socket.create_connection(("127.0.0.1", port))
    opened.sendall(f"GET /jsonrpc HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                   "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n".encode())
    if b" 101 " not in opened.recv(4096):
        raise RuntimeError("no WebSocket")
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


def load(port, token, gids, until):
    client, times = Client(port, token), []
    while (began := time.perf_counter()) < until:
        client.call("aria2.tellStatus", gids[len(times) % len(gids)], ["gid", "status", "totalLength", "completedLength"])
        times.append(time.perf_counter() - began)
    return times


def memory(process):
    lines = pathlib.Path(f"/proc/{process}/status").read_text().splitlines()
    return next(int(line.split()[1]) for line in lines if line.startswith("VmRSS:"))


def processor_seconds(process):
    fields = pathlib.Path(f"/proc/{process}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def measure(options, root):
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    process = subprocess.Popen([options.program, "--data-dir", str(root / "data"), "--settings", str(root / "settings.ini"), "serve", "--foreground",
                                "-q", "--rpc-listen", f"127.0.0.1:{port}", "--rpc-secret", "bench"],
                               env=os.environ | {"HOME": str(root), "XDG_RUNTIME_DIR": str(root)})
    try:
        for _ in range(300):
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", port)) == 0:
                    break
            time.sleep(0.1)
        client = Client(port, "token:bench")
        gids, adding = [], []
        while len(gids) < options.jobs:
            calls = [{"methodName": "aria2.addUri", "params": [client.token, [f"http://h.invalid/{len(gids) + i}"], {"pause": "true", "dir": str(root)}]}
                     for i in range(1000)]
            began = time.perf_counter()
            gids += [one[0] for one in client.call("system.multicall", calls)]
            adding.append(time.perf_counter() - began)
        began = time.perf_counter()
        client.call("aria2.tellWaiting", 0, 1000)
        listing = time.perf_counter() - began
        idle = [open_websocket(port) for _ in range(options.idle)]
        before = processor_seconds(process.pid)
        time.sleep(2)
        resting = (processor_seconds(process.pid) - before) / 2
        before = processor_seconds(process.pid)
        with multiprocessing.Pool(options.clients) as pool:
            until = time.perf_counter() + options.seconds
            times = pool.starmap(load, [(port, client.token, gids, until)] * options.clients)
        spent = processor_seconds(process.pid) - before
        all_times = sorted(sum(times, []))
        at = lambda share: round(all_times[min(int(len(all_times) * share), len(all_times) - 1)] * 1000, 2)
        return {"jobs": len(gids), "addThousandSeconds": round(sorted(adding)[len(adding) // 2], 3), "listThousandSeconds": round(listing, 3),
                "requestsPerSecond": round(len(all_times) / options.seconds), "milliseconds": {"50": at(0.5), "99": at(0.99), "99.9": at(0.999)},
                "processorMicroseconds": round(spent / len(all_times) * 1e6), "idleShare": round(resting, 4), "idleWebSockets": len(idle), "memoryKiB": memory(process.pid)}
    finally:
        process.terminate()
        process.wait(60)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program")
    for name, standard in (("jobs", 10000), ("seconds", 10), ("clients", 4), ("idle", 500)):
        parser.add_argument(f"--{name}", type=int, default=standard)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        print(json.dumps(measure(options, pathlib.Path(folder))))


if __name__ == "__main__":
    sys.exit(main())
