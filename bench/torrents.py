#!/usr/bin/env python3
"""One torrent of one file from one seed on this machine, as fast as it goes: this program, encrypted and
plain, beside python3-libtorrent and, where it is installed, aria2, in interleaved rounds.

    bench/torrents.py --vantlow PROGRAM [--mib N] [--rounds N] [--dir DIR] [--python PYTHON]
"""

import argparse
import filecmp
import http.server
import os
import resource
import shutil
import statistics
import subprocess
import tempfile
import threading
import time

SEED = """
import sys, time
import libtorrent as lt
session = lt.session({"listen_interfaces": "127.0.0.1:0", "enable_dht": False, "enable_lsd": False,
    "enable_upnp": False, "enable_natpmp": False, "allow_multiple_connections_per_ip": True})
handle = session.add_torrent({"ti": lt.torrent_info(sys.argv[1]), "save_path": sys.argv[2]})
while not handle.status().is_seeding:
    time.sleep(0.02)
print(session.listen_port(), flush=True)
time.sleep(3600)
"""
LEECH = """
import sys, time
import libtorrent as lt
session = lt.session({"listen_interfaces": "127.0.0.1:0", "enable_dht": False, "enable_lsd": False,
    "enable_upnp": False, "enable_natpmp": False, "allow_multiple_connections_per_ip": True})
handle = session.add_torrent({"ti": lt.torrent_info(sys.argv[1]), "save_path": sys.argv[2]})
while str(handle.status().state).startswith("checking"):
    time.sleep(0.005)
handle.connect_peer(("127.0.0.1", int(sys.argv[3])))
while not handle.status().is_seeding:
    time.sleep(0.005)
"""


class Tracker(http.server.BaseHTTPRequestHandler):
    """Names the seed to whoever asks."""

    port = 0

    def do_GET(self):
        peer = bytes([127, 0, 0, 1]) + self.port.to_bytes(2, "big")
        self.send_response(200)
        self.end_headers()
        self.wfile.write(b"d8:intervali900e5:peers6:" + peer + b"e")

    def log_message(self, *_):
        pass


def measure(command, target, original):
    """Wall and processor seconds; the file is compared."""
    os.makedirs(target)
    before, begin = resource.getrusage(resource.RUSAGE_CHILDREN), time.monotonic()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, timeout=600)
    wall, after = time.monotonic() - begin, resource.getrusage(resource.RUSAGE_CHILDREN)
    if not filecmp.cmp(original, os.path.join(target, os.path.basename(original)), shallow=False):
        raise SystemExit(f"FAILED: {command[0]} made a wrong file")
    shutil.rmtree(target)
    return wall, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def commands(options, torrent, target):
    get = [options.vantlow, "get", "-q", "-d", target, torrent]
    made = {}
    for name, crypto in (("vantlow, encrypted handshake", 0), ("vantlow, plain", 1), ("vantlow, RC4", 2)):
        settings = f"{torrent}.{crypto}.ini"
        with open(settings, "w") as file:
            file.write(f"[Torrent]\nCrypto={crypto}\nDHT=0\nLSD=0\nPortMapping=0\n")
        made[name] = [get[0], "--settings", settings, *get[1:]]
    made["libtorrent"] = [options.python, "-c", LEECH, torrent, target, str(Tracker.port)]
    if shutil.which("aria2c"):
        quiet = ["--enable-dht=false", "--bt-enable-lpd=false", "--enable-peer-exchange=false", "--allow-overwrite"]
        made["aria2"] = ["aria2c", "-q", "--seed-time=0", *quiet, "-d", target, torrent]
    return made


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vantlow", required=True)
    parser.add_argument("--mib", type=int, default=1024)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--dir", default="/dev/shm")
    parser.add_argument("--python", default="/usr/bin/python3", help="one that has libtorrent")
    options = parser.parse_args()
    options.vantlow = os.path.abspath(options.vantlow)
    with tempfile.TemporaryDirectory(dir=options.dir) as folder:
        original, torrent = os.path.join(folder, "file.bin"), os.path.join(folder, "file.bin.torrent")
        with open(original, "wb") as file:
            for _ in range(options.mib):
                file.write(os.urandom(1 << 20))
        tracker = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Tracker)
        threading.Thread(target=tracker.serve_forever, daemon=True).start()
        announce = f"http://127.0.0.1:{tracker.server_address[1]}/announce"
        subprocess.run([options.vantlow, "torrent", "make", original, "--tracker", announce, "-q"], check=True)
        seed = subprocess.Popen([options.python, "-c", SEED, torrent, folder], stdout=subprocess.PIPE, text=True)
        try:
            Tracker.port = int(seed.stdout.readline())
            target = os.path.join(folder, "out")
            cases = commands(options, torrent, target)
            seen = {name: [] for name in cases}
            for _ in range(options.rounds):
                for name, command in cases.items():
                    seen[name].append(measure(command, target, original))
        finally:
            seed.kill()
            seed.wait()
    print(f"{options.mib} MiB from one seed, {options.rounds} rounds, medians\n")
    print("| program | wall s | processor s |\n|---|---:|---:|")
    for name, values in seen.items():
        print("| {} | {:.2f} | {:.2f} |".format(name, *(statistics.median(column) for column in zip(*values))))


if __name__ == "__main__":
    main()
