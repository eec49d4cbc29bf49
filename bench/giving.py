#!/usr/bin/env python3
"""Seeds beside each other: this program and python3-libtorrent in turn give one file in memory to four that take it as fast
as they can (torrent_floor.c, a process each; aria2 does not take four from one address). In a network of its own (needs root);
every file compared. And this program's memory with 200 connections that all ask.

    bench/giving.py --vantlow PROGRAM [--mib N] [--rounds N] [--dir DIR] [--python PYTHON]
"""

import filecmp
import os
import socket
import statistics
import subprocess
import sys
import threading
import time

from servers import memory_kib, process_seconds
from torrents import ADDRESS, CRYPTO, MIB, PIECE, SEED, SETTINGS, Comparison, enter_own_network, options_of, own_folder

TAKERS, PORT, CONNECTIONS = 4, 6990, 200
BLOCK = 16384


class Giving:
    def __init__(self, options, folder):
        self.options, self.folder = options, folder
        self.comparison = Comparison(options, folder)
        self.original, self.info_hash = self.comparison.make("give", options.mib)
        self.settings = os.path.join(folder, "settings.ini")
        with open(self.settings, "w", encoding="utf-8") as file:
            file.write("[Torrent]\nCrypto=1\nDHT=0\nLSD=0\nPortMapping=0\nMaxPeers=300\n")

    def commands(self):
        torrent = self.original + ".seed.torrent"
        return {
            "vantlow": [self.options.vantlow, "--settings", self.settings, "get", "-q", "--seed", f"--port={PORT}", "-d", self.folder, torrent],
            "libtorrent": [self.options.python, "-u", "-c", CRYPTO["plain"] + SETTINGS.replace(":0", f":{PORT}") + SEED, torrent, self.folder, "0"],
        }

    def greeted(self):
        """A connection that has said the handshake and heard that the other side has everything; none before it does."""
        try:
            peer = socket.create_connection((ADDRESS, PORT), 2)
            peer.sendall(b"\x13BitTorrent protocol" + bytes(8) + bytes.fromhex(self.info_hash) + b"-XX0000-" + os.urandom(12))
            peer.settimeout(2)
            heard = b""
            while len(heard) < 68 + 5:
                part = peer.recv(4096)
                if not part:
                    raise OSError("it left")
                heard += part
            return peer
        except OSError:
            return None

    def start(self, name):
        seed = subprocess.Popen(self.commands()[name], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        end = time.monotonic() + 60
        while not (peer := self.greeted()):
            if time.monotonic() > end or seed.poll() is not None:
                sys.exit(f"{name} does not begin to give")
            time.sleep(0.1)
        peer.close()
        return seed

    def give(self, name):
        """Wall seconds until all have it, and the seed's processor seconds; none for a wrong file."""
        seed = self.start(name)
        targets = [os.path.join(self.folder, f"taken{i}") for i in range(TAKERS)]
        try:
            before, begin = process_seconds(seed.pid), time.monotonic()
            takers = [subprocess.Popen([self.comparison.floor, self.info_hash, str(self.options.mib * MIB), str(PIECE),
                                        self.original + ".hashes", target, f"{ADDRESS}:{PORT}"]) for target in targets]
            codes = [taker.wait(300) for taker in takers]
            wall, processor = time.monotonic() - begin, process_seconds(seed.pid) - before
            right = not any(codes) and all(filecmp.cmp(self.original, target, shallow=False) for target in targets)
            return (wall, processor) if right else None
        finally:
            for target in targets:
                if os.path.exists(target):
                    os.remove(target)
            seed.kill()
            seed.wait()

    def hold_many(self):
        """Connections that ask for blocks for ten seconds and read them: how many there are at the end, MiB that came, peak memory."""
        seed = self.start("vantlow")
        came = [0] * CONNECTIONS
        peers = [peer for _ in range(CONNECTIONS) if (peer := self.greeted())]
        end = time.monotonic() + 10

        def ask(number, peer):
            request = b"".join(b"\0\0\0\x0d\x06" + (k % self.options.mib).to_bytes(4, "big") + (k * BLOCK % PIECE).to_bytes(4, "big")
                               + BLOCK.to_bytes(4, "big") for k in range(16))
            try:
                peer.sendall(b"\0\0\0\x01\x02" + request)
                while time.monotonic() < end:
                    part = peer.recv(262144)
                    came[number] += len(part)
                    if len(part) > BLOCK:
                        peer.sendall(request[:17])
            except OSError:
                pass

        threads = [threading.Thread(target=ask, args=each) for each in enumerate(peers)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        peak = memory_kib(seed.pid, "VmHWM") / 1024
        with open("/proc/net/tcp", encoding="ascii") as table:
            here = sum(line.split()[1].endswith(f":{PORT:04X}") and line.split()[3] == "01" for line in table)
        for peer in peers:
            peer.close()
        seed.kill()
        seed.wait()
        return len(peers), here, sum(came) / MIB, peak


def main():
    options = options_of(__doc__, mib=512, rounds=3)
    enter_own_network(options.inside, sys.executable)
    with own_folder(options) as folder:
        giving = Giving(options, folder)
        seen = {}
        for _ in range(options.rounds):
            for name in giving.commands():
                seen.setdefault(name, []).append(giving.give(name))
                print(f"{name}: {seen[name][-1]}", file=sys.stderr, flush=True)
        print(f"\n### {options.mib} MiB from one seed to {TAKERS}, {options.rounds} rounds, medians\n")
        print("| seed | wall s | its processor s |\n|---|---:|---:|")
        for name, values in seen.items():
            medians = None if None in values else [statistics.median(column) for column in zip(*values)]
            print(f"| {name} | FAILED | |" if medians is None else f"| {name} | {medians[0]:.2f} | {medians[1]:.2f} |")
        greeted, here, mib, peak = giving.hold_many()
        print(f"\n{greeted} connections, {here} of them still there after 10 s, {mib:.0f} MiB given: peak memory {peak:.1f} MiB")


if __name__ == "__main__":
    main()
