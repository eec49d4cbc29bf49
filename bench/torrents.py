#!/usr/bin/env python3
"""Torrents of one file: this program beside python3-libtorrent and aria2, where they are installed, in interleaved
rounds and in a network of its own (needs root), every file compared. The floor asks the same seeds,
receives, hashes and writes on one thread.

    bench/torrents.py --vantlow PROGRAM [--only one,four,...] [--mib N] [--rounds N] [--dir DIR] [--python PYTHON]
"""

import argparse
import contextlib
import filecmp
import hashlib
import http.server
import os
import queue
import resource
import shutil
import socket
import socketserver
import statistics
import subprocess
import sys
import tempfile
import threading
import time

ADDRESS = "10.77.0.1"
MIB = 1 << 20
PIECE = MIB
# Peers speak TCP alone: over a loopback, libtorrent's uTP takes minutes for a gibibyte.
SETTINGS = """
import sys, time
import libtorrent as lt
session = lt.session({"listen_interfaces": "10.77.0.1:0", "enable_dht": False, "enable_lsd": False, "enable_upnp": False,
    "enable_natpmp": False, "enable_outgoing_utp": False, "enable_incoming_utp": False, "unchoke_slots_limit": 50,
    "allow_multiple_connections_per_ip": True, **CRYPTO})
"""
# enc_policy 0: forced, 2: off; level 2: RC4.
CRYPTO = {
    "plain": 'CRYPTO = {"out_enc_policy": 2, "in_enc_policy": 1}\n',
    "rc4": 'CRYPTO = {"out_enc_policy": 0, "in_enc_policy": 0, "allowed_enc_level": 2, "prefer_rc4": True}\n',
}
SEED = """
handle = session.add_torrent({"ti": lt.torrent_info(sys.argv[1]), "save_path": sys.argv[2], "flags": lt.torrent_flags.seed_mode})
handle.set_upload_limit(int(sys.argv[3]))
print(session.listen_port(), flush=True)
time.sleep(3600)
"""
LEECH = """
handle = session.add_torrent({"ti": lt.torrent_info(sys.argv[1]), "save_path": sys.argv[2]})
while str(handle.status().state).startswith("checking"):
    time.sleep(0.005)
for port in sys.argv[3:]:
    handle.connect_peer(("10.77.0.1", int(port)))
while not handle.status().is_seeding:
    time.sleep(0.005)
"""


class Scenario:
    def __init__(self, title, seeds=1, limit=0, crypto="plain", mib=None, away=0):
        self.title, self.seeds, self.limit, self.crypto, self.mib, self.away = title, seeds, limit, crypto, mib, away


SCENARIOS = {
    "one": Scenario("one seed"),
    "four": Scenario("four seeds", seeds=4),
    "slow": Scenario("four seeds of 4 MiB/s each", seeds=4, limit=4 * MIB, mib=128),
    "rc4": Scenario("one seed, RC4", crypto="rc4"),
    "far": Scenario("one seed of 8 MiB/s that is 100 ms away", limit=8 * MIB, mib=128, away=0.1),
}


class TrackerRequest(http.server.BaseHTTPRequestHandler):
    def name(self, peers, times):
        """Answers with these peers, addresses and ports, behind the bencoded times."""
        compact = b"".join(bytes(int(part) for part in host.split(".")) + port.to_bytes(2, "big") for host, port in peers)
        self.send_response(200)
        self.end_headers()
        self.wfile.write(b"d%s5:peers%d:%se" % (times, len(compact), compact))

    def log_message(self, *_):
        pass


class Tracker(TrackerRequest):
    """Names the seeds to whoever asks."""

    ports = []

    def do_GET(self):
        self.name([(ADDRESS, port) for port in self.ports], b"8:intervali900e")


class Relay:
    """Passes connections on to a port, each byte half of `away` seconds later in either direction."""

    def __init__(self, port, away):
        self.to, self.half = port, away / 2
        self.listener = socket.create_server((ADDRESS, 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                near = self.listener.accept()[0]
            except OSError:
                return
            time.sleep(2 * self.half)  # the handshake's way
            far = socket.create_connection((ADDRESS, self.to))
            for source, sink in ((near, far), (far, near)):
                under_way = queue.Queue()
                threading.Thread(target=self.take, args=(source, under_way), daemon=True).start()
                threading.Thread(target=self.give, args=(sink, under_way), daemon=True).start()

    def take(self, source, under_way):
        with contextlib.suppress(OSError):
            while data := source.recv(65536):
                under_way.put((time.monotonic() + self.half, data))
        under_way.put((0, b""))

    def give(self, sink, under_way):
        while data := (part := under_way.get())[1]:
            time.sleep(max(0, part[0] - time.monotonic()))
            try:
                sink.sendall(data)
            except OSError:
                return
        with contextlib.suppress(OSError):
            sink.shutdown(socket.SHUT_WR)


class Trackers(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True

    def handle_error(self, request, client_address):
        pass  # a program that has its file hangs up on the tracker, too


def enter_own_network(is_inside, python):
    """Starts the script once more in a network that has nothing but ADDRESS; returns there. Says so and ends with 77 where
    this user makes none, or that Python has no libtorrent."""
    if not is_inside:
        needed = {"No network of its own can be made here (root may): unshare -n failed.": ["unshare", "-n", "true"],
                  f"{python} has no libtorrent (apt-get install python3-libtorrent; /usr/bin/python3 has it then).":
                      [python, "-c", "import libtorrent"]}
        for lack, words in needed.items():
            if subprocess.run(words, capture_output=True, check=False).returncode:
                print(lack, file=sys.stderr)
                sys.exit(77)
        os.execvp("unshare", ["unshare", "-n", python, *sys.argv, "--inside"])
    for words in (("link", "set", "lo", "up"), ("addr", "add", f"{ADDRESS}/24", "dev", "lo")):
        subprocess.run(["ip", *words], check=True)


def options_of(doc, **defaults):
    """The command line's options: those that all scripts of torrents have, and each script's own with their defaults."""
    parser = argparse.ArgumentParser(description=doc, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vantlow", required=True)
    for name, default in defaults.items():
        parser.add_argument(f"--{name}", type=type(default), default=default)
    parser.add_argument("--dir", default="/dev/shm")
    parser.add_argument("--python", default="/usr/bin/python3", help="one that has libtorrent")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    options.vantlow = os.path.abspath(options.vantlow)
    return options


@contextlib.contextmanager
def own_folder(options):
    """A temporary folder, which is the home of all programs that are started."""
    with tempfile.TemporaryDirectory(dir=options.dir) as folder:
        os.environ |= {"HOME": folder, "XDG_RUNTIME_DIR": folder, "XDG_CONFIG_HOME": "", "XDG_DATA_HOME": ""}
        yield folder


def measure(command, target, original):
    """Wall and processor seconds; None for a wrong file."""
    os.makedirs(target)
    before, begin = resource.getrusage(resource.RUSAGE_CHILDREN), time.monotonic()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, timeout=600)
    end = time.monotonic()
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    made = os.path.join(target, os.path.basename(original))
    right = os.path.exists(made) and filecmp.cmp(original, made, shallow=False)
    shutil.rmtree(target)
    return (end - begin, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime) if right else None


class Comparison:
    def __init__(self, options, folder):
        self.options, self.folder, self.target = options, folder, os.path.join(folder, "out")
        self.floor = os.path.join(folder, "floor")
        source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "torrent_floor.c")
        subprocess.run(["cc", "-O2", "-Wno-deprecated-declarations", "-o", self.floor, source, "-lcrypto"], check=True)
        tracker = Trackers(("0.0.0.0", 0), Tracker)
        threading.Thread(target=tracker.serve_forever, daemon=True).start()
        self.announce = f"http://{ADDRESS}:{tracker.server_address[1]}/announce"
        self.seeds, self.relays = [], []

    def script(self, text, crypto, *words):
        return [self.options.python, "-c", CRYPTO[crypto] + SETTINGS + text, *words]

    def make(self, name, mib):
        """A file of random bytes and its torrent."""
        original = os.path.join(self.folder, f"{name}.bin")
        hashes = b""
        with open(original, "wb") as file:
            for _ in range(mib):
                piece = os.urandom(PIECE)
                hashes += hashlib.sha1(piece).digest()
                file.write(piece)
        base = os.path.basename(original).encode()
        info = b"d6:lengthi%de4:name%d:%s12:piece lengthi%de6:pieces%d:%se" % (
            mib * MIB, len(base), base, PIECE, len(hashes), hashes)
        announce = self.announce.encode()
        with open(original + ".torrent", "wb") as file:
            file.write(b"d8:announce%d:%s4:info%se" % (len(announce), announce, info))
        with open(original + ".seed.torrent", "wb") as file:
            file.write(b"d4:info%se" % info)  # seeds don't look for each other
        with open(original + ".hashes", "wb") as file:
            file.write(hashes)
        return original, hashlib.sha1(info).hexdigest()

    def start_seeds(self, scenario, original):
        Tracker.ports = []
        for _ in range(scenario.seeds):
            command = self.script(SEED, scenario.crypto, original + ".seed.torrent", self.folder, str(scenario.limit))
            seed = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
            self.seeds.append(seed)
            port = int(seed.stdout.readline())
            if scenario.away:
                self.relays.append(Relay(port, scenario.away))
                port = self.relays[-1].port
            Tracker.ports.append(port)

    def end_seeds(self):
        while self.seeds:
            seed = self.seeds.pop()
            seed.kill()
            seed.wait()
            seed.stdout.close()
        while self.relays:
            self.relays.pop().listener.close()

    def commands(self, scenario, original, info_hash):
        """Name: the words to run."""
        torrent, ports = original + ".torrent", [str(port) for port in Tracker.ports]
        crypto = 2 if scenario.crypto == "rc4" else 1
        settings = os.path.join(self.folder, "settings.ini")
        with open(settings, "w", encoding="utf-8") as file:
            file.write(f"[Torrent]\nCrypto={crypto}\nDHT=0\nLSD=0\nPortMapping=0\n")
        made = {}
        if scenario.crypto == "plain":
            size = str(os.path.getsize(original))
            made["floor"] = [self.floor, info_hash, size, str(PIECE), original + ".hashes",
                             os.path.join(self.target, os.path.basename(original)), *(f"{ADDRESS}:{port}" for port in ports)]
        made["vantlow"] = [self.options.vantlow, "--settings", settings, "get", "-q", "-d", self.target, torrent]
        made["libtorrent"] = self.script(LEECH, scenario.crypto, torrent, self.target, *ports)
        if shutil.which("aria2c"):
            quiet = ["--enable-dht=false", "--bt-enable-lpd=false", "--enable-peer-exchange=false", "--allow-overwrite"]
            quiet += ["--bt-require-crypto", "--bt-min-crypto-level=arc4"] if scenario.crypto == "rc4" else []
            made["aria2"] = ["aria2c", "-q", "--seed-time=0", *quiet, "-d", self.target, torrent]
        return made

    def run(self, name, scenario):
        mib = min(self.options.mib, scenario.mib or self.options.mib)
        original, info_hash = self.make(name, mib)
        self.start_seeds(scenario, original)
        try:
            seen = {}
            for _ in range(self.options.rounds):
                for program, command in self.commands(scenario, original, info_hash).items():
                    seen.setdefault(program, []).append(measure(command, self.target, original))
                    print(f"{name} {program}: {seen[program][-1]}", file=sys.stderr, flush=True)
        finally:
            self.end_seeds()
        os.remove(original)
        print(f"\n### {name}: {mib} MiB from {scenario.title}, {self.options.rounds} rounds, medians\n")
        print("| program | wall s | processor s | MiB/s |\n|---|---:|---:|---:|")
        for program, values in seen.items():
            if None in values:
                print(f"| {program} | FAILED | | |")
                continue
            wall, processor = (statistics.median(column) for column in zip(*values))
            print(f"| {program} | {wall:.2f} | {processor:.2f} | {mib / wall:.1f} |", flush=True)


def main():
    options = options_of(__doc__, only=",".join(SCENARIOS), mib=1024, rounds=3)
    enter_own_network(options.inside, sys.executable)
    with own_folder(options) as folder:
        comparison = Comparison(options, folder)
        for name in options.only.split(","):
            comparison.run(name, SCENARIOS[name])


if __name__ == "__main__":
    main()
