#!/usr/bin/env python3
"""Swarms of this program and others, in a network of its own (needs root): who has everything when, and whether it is right.

    bench/mixed_swarm.py --vantlow PROGRAM [--only mixed,seed,many] [--mib N] [--many N] [--python PYTHON]

mixed: one libtorrent seed of 8 MiB/s, and one of each program that is installed (Transmission, aria2, qBittorrent,
libtorrent, this one) fetches and gives at the same time. seed: this program alone has the files, all others fetch them.
many: 20 of one kind fetch from a seed of 16 MiB/s; once this program, once libtorrent. A folder of files of all sizes; the
end is when a tracker hears "completed". Ends with 1 when somebody's files are wrong or late.
"""

import filecmp
import json
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse

from torrents import MIB, TrackerRequest, Trackers, enter_own_network, options_of

QUIET = """
import sys, time
import libtorrent as lt
session = lt.session({"listen_interfaces": sys.argv[1] + ":6881", "enable_dht": False, "enable_lsd": False, "enable_upnp": False,
    "enable_natpmp": False, "enable_outgoing_utp": False, "enable_incoming_utp": False})
handle = session.add_torrent({"ti": lt.torrent_info(sys.argv[2]), "save_path": sys.argv[3]})
handle.set_upload_limit(int(sys.argv[4]))
time.sleep(3600)
"""
PATIENCE = 180


class Tracker(TrackerRequest):
    """Names everybody to everybody, and keeps the time at which each was complete."""

    peers, completed, changed = {}, {}, threading.Condition()

    def do_GET(self):
        asked = dict(urllib.parse.parse_qsl(urllib.parse.urlsplit(self.path).query, encoding="latin-1"))
        peer = (self.client_address[0], int(asked.get("port", 0)))
        with self.changed:
            if asked.get("event") == "stopped":
                self.peers.pop(peer, None)
            else:
                self.peers[peer] = True
            if asked.get("event") == "completed":
                self.completed[peer] = time.monotonic()
                self.changed.notify_all()
            others = [one for one in self.peers if one != peer]
        self.name(others, b"8:intervali5e12:min intervali2e")


class Swarm:
    def __init__(self, options, folder):
        self.options, self.folder, self.members, self.number = options, folder, {}, 1
        tracker = Trackers(("0.0.0.0", 0), Tracker)
        threading.Thread(target=tracker.serve_forever, daemon=True).start()
        self.announce = f"http://10.77.0.1:{tracker.server_address[1]}/announce"
        self.make()

    def make(self):
        import libtorrent as lt

        self.files = os.path.join(self.folder, "seed", "files")
        os.makedirs(os.path.join(self.files, "below"))
        rest, number = self.options.mib * MIB, 0
        while rest > 0:
            size = min(rest, random.choice((0, 1, 1000, 70_000, 1 << 20, 9 << 20)))
            with open(os.path.join(self.files, "below" if number % 3 == 0 else "", f"{number:03} ü.bin"), "wb") as file:
                file.write(random.randbytes(size))
            rest, number = rest - size, number + 1
        storage = lt.file_storage()
        lt.add_files(storage, self.files)
        made = lt.create_torrent(storage, 256 * 1024, flags=lt.create_torrent.v1_only)
        made.add_tracker(self.announce)
        lt.set_piece_hashes(made, os.path.dirname(self.files))
        self.torrent = os.path.join(self.folder, "files.torrent")
        with open(self.torrent, "wb") as file:
            file.write(lt.bencode(made.generate()))

    def place(self, name):
        """A folder of its own for a member, and an address for it."""
        self.number += 1
        own, address = os.path.join(self.folder, f"{self.number}-{name}"), f"10.77.0.{self.number}"
        os.makedirs(os.path.join(own, "out"))
        subprocess.run(["ip", "addr", "add", f"{address}/24", "dev", "lo"], check=True)
        return own, address

    def start(self, name, command, own, environment=None):
        places = dict(os.environ, HOME=own, XDG_RUNTIME_DIR=own, **(environment or {}))
        log = open(os.path.join(own, "log"), "wb")
        self.members[own] = (name, subprocess.Popen(command, env=places, stdin=subprocess.DEVNULL, stdout=log, stderr=log))
        log.close()

    # Each starts one member with the torrent; it gives what it has until it is ended.

    def libtorrent(self, limit=0, at=None):
        own, address = self.place("libtorrent")
        script = [self.options.python, "-c", QUIET, address, self.torrent, at or os.path.join(own, "out"), str(limit)]
        self.start("libtorrent", script, own)

    def vantlow(self, at=None):
        own, _ = self.place("vantlow")
        settings = os.path.join(own, "settings.ini")
        with open(settings, "w", encoding="utf-8") as file:
            file.write(f"[Torrent]\nDHT=0\nLSD=0\nPortMapping=0\nPort={6900 + self.number}\n")
        words = ["--settings", settings, "get", "--seed", "--seed-ratio", "1000", "-d", at or os.path.join(own, "out"), self.torrent]
        self.start("vantlow", [self.options.vantlow, *words], own)

    def transmission(self):
        own, address = self.place("transmission")
        os.makedirs(os.path.join(own, "watch"))
        with open(os.path.join(own, "settings.json"), "w", encoding="utf-8") as file:
            json.dump({"bind-address-ipv4": address, "peer-port": 6881, "dht-enabled": False, "lpd-enabled": False,
                       "utp-enabled": False, "port-forwarding-enabled": False, "rpc-enabled": False, "watch-dir-enabled": True,
                       "watch-dir": os.path.join(own, "watch"), "download-dir": os.path.join(own, "out")}, file)
        shutil.copy(self.torrent, os.path.join(own, "watch"))
        self.start("transmission", ["transmission-daemon", "-f", "-g", own], own)

    def aria2(self):
        own, address = self.place("aria2")
        words = ["--seed-time=60", "--seed-ratio=0", "--enable-dht=false", "--bt-enable-lpd=false", f"--interface={address}",
                 "--listen-port=6881", "-d", os.path.join(own, "out"), self.torrent]
        self.start("aria2", ["aria2c", *words], own)

    def qbittorrent(self):
        own, address = self.place("qbittorrent")
        os.makedirs(os.path.join(own, "qBittorrent", "config"))
        session = {"DHTEnabled": "false", "LSDEnabled": "false", "PeXEnabled": "false", "Port": "6881", "InterfaceAddress": address,
                   "Interface": "lo", "InterfaceName": "lo", "BTProtocol": "TCP", "MaxConnectionsPerTorrent": "100"}
        with open(os.path.join(own, "qBittorrent", "config", "qBittorrent.conf"), "w", encoding="utf-8") as file:
            file.write("[LegalNotice]\nAccepted=true\n[Preferences]\nWebUI\\Enabled=false\nConnection\\UPnP=false\n[BitTorrent]\n"
                       + "".join(f"Session\\{key}={value}\n" for key, value in session.items()))
        words = [f"--profile={own}", f"--save-path={own}/out", "--skip-dialog=true", self.torrent]
        self.start("qbittorrent", ["qbittorrent-nox", *words], own, {"QT_QPA_PLATFORM": "offscreen"})

    def wait(self, count):
        """Waits until so many have said that they are complete; the seconds of each."""
        begin = time.monotonic()
        with Tracker.changed:
            Tracker.changed.wait_for(lambda: len(Tracker.completed) >= count, PATIENCE)
            return sorted(at - begin for at in Tracker.completed.values())

    def end(self):
        """Ends everybody; whose files are not those of the seed."""
        for _, process in self.members.values():
            process.send_signal(signal.SIGINT)
        wrong = []
        for own, (name, process) in self.members.items():
            try:
                process.wait(15)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
            made = os.path.join(own, "out", "files")
            if os.path.isdir(os.path.join(own, "out")) and os.listdir(os.path.join(own, "out")) and not same(self.files, made):
                wrong.append(name)
                with open(os.path.join(own, "log"), errors="replace") as log:
                    print(f"{name}: {log.read()[-2000:]}", file=sys.stderr)
            shutil.rmtree(own)
        with Tracker.changed:
            Tracker.peers.clear()
            Tracker.completed.clear()
        self.members.clear()
        return wrong


def same(one, other):
    for folder, _, names in os.walk(one):
        for name in names:
            source, made = os.path.join(folder, name), os.path.join(other, os.path.relpath(os.path.join(folder, name), one))
            if not os.path.exists(made) and os.path.getsize(source) == 0:
                continue  # Transmission makes no empty files
            if not os.path.exists(made) or not filecmp.cmp(source, made, shallow=False):
                return False
    return True


def run(title, swarm, seed, members):
    seed()
    time.sleep(2)  # it looks at its files
    with Tracker.changed:
        Tracker.completed.clear()  # some say so of what they find
    for start in members:
        start()
    names = sorted({name for name, _ in list(swarm.members.values())[1:]})
    times = swarm.wait(len(members))
    wrong = swarm.end()
    print(f"{title}: {', '.join(names)}: complete after {', '.join(f'{one:.1f}' for one in times)} s"
          + (f"; WRONG: {wrong}" if wrong else ""), flush=True)
    return not wrong and len(times) == len(members)


def main():
    options = options_of(__doc__, only="mixed,seed,many", mib=96, many=20)
    enter_own_network(options.inside, options.python)
    good = True
    with tempfile.TemporaryDirectory(dir=options.dir) as folder:
        swarm = Swarm(options, folder)
        others = [start for program, start in (("transmission-daemon", swarm.transmission), ("aria2c", swarm.aria2),
                  ("qbittorrent-nox", swarm.qbittorrent), (options.python, swarm.libtorrent)) if shutil.which(program)]
        have = os.path.dirname(swarm.files)
        for name in options.only.split(","):
            if name == "mixed":
                good &= run("mixed", swarm, lambda: swarm.libtorrent(8 * MIB, have), [swarm.vantlow, *others])
            elif name == "seed":
                good &= run("this program's seed", swarm, lambda: swarm.vantlow(have), others)
            else:
                for member in (swarm.vantlow, swarm.libtorrent):
                    good &= run(f"{options.many} of one kind", swarm, lambda: swarm.libtorrent(16 * MIB, have), [member] * options.many)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
