#!/usr/bin/env python3
"""Kills `vantlow get` of a torrent in the middle, again and again, and looks at the end whether the files are right
and how much was fetched twice: no more than the pieces that were in work at each kill. One libtorrent seed, in a network
of its own (needs root).

    bench/kill_torrent.py --vantlow PROGRAM [--kills N] [--mib N] [--rate MIB] [--seed N]
"""

import argparse
import filecmp
import os
import random
import subprocess
import sys
import tempfile
import time

from torrents import ADDRESS, MIB, enter_own_network

PIECE = 64 * 1024
# Pieces whose blocks were on their way, or waited for the disk, when it was killed.
IN_WORK = 8


def start_seed(torrent, folder, rate):
    import libtorrent as lt

    session = lt.session({
        "listen_interfaces": f"{ADDRESS}:0", "enable_dht": False, "enable_lsd": False, "enable_upnp": False,
        "enable_natpmp": False, "enable_incoming_utp": False, "allow_multiple_connections_per_ip": True})
    handle = session.add_torrent({"ti": lt.torrent_info(torrent), "save_path": folder})
    handle.set_upload_limit(rate)
    while not handle.status().is_seeding:
        time.sleep(0.02)
    return session, handle


def make_torrent(folder, mib):
    """A folder of files of all sizes, pieces of 64 KiB that some of them share."""
    import libtorrent as lt

    source = os.path.join(folder, "files")
    os.makedirs(source)
    rest, number = mib * MIB, 0
    while rest > 0:
        size = min(rest, random.choice((1, 1000, 70000, 1 << 20, 5 << 20)))
        with open(os.path.join(source, f"{number:04}.bin"), "wb") as file:
            file.write(random.randbytes(size))
        rest, number = rest - size, number + 1
    storage = lt.file_storage()
    lt.add_files(storage, source)
    torrent = lt.create_torrent(storage, PIECE, flags=lt.create_torrent.v1_only)
    lt.set_piece_hashes(torrent, folder)
    path = os.path.join(folder, "files.torrent")
    with open(path, "wb") as file:
        file.write(lt.bencode(torrent.generate()))
    return path, lt.torrent_info(path).info_hash()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vantlow", required=True)
    parser.add_argument("--kills", type=int, default=50)
    parser.add_argument("--mib", type=int, default=256)
    parser.add_argument("--rate", type=int, default=16, help="MiB a second that the seed gives")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    enter_own_network(options.inside, "/usr/bin/python3")
    random.seed(options.seed)
    program = os.path.abspath(options.vantlow)
    with tempfile.TemporaryDirectory() as folder:
        os.environ |= {"HOME": folder, "XDG_RUNTIME_DIR": folder, "XDG_CONFIG_HOME": "", "XDG_DATA_HOME": ""}
        torrent, info_hash = make_torrent(folder, options.mib)
        session, handle = start_seed(torrent, folder, options.rate * MIB)
        target = os.path.join(folder, "out")
        magnet = f"magnet:?xt=urn:btih:{info_hash}&x.pe={ADDRESS}:{session.listen_port()}"
        quiet = ["--set=Torrent/DHT=0", "--set=Torrent/LSD=0", "--set=Torrent/DefaultTrackers=", "--set=Torrent/DefaultTracker="]
        command = [program, *quiet, "get", "-q", "-d", target, magnet]
        kills = 0
        while True:
            run = subprocess.Popen(command)
            try:
                span = random.uniform(0.1, 1.0) if kills < options.kills else 600
                code = run.wait(timeout=span)
                break
            except subprocess.TimeoutExpired:
                run.kill()
                run.wait()
                kills += 1
        sent = handle.status().total_payload_upload
        made = os.path.join(target, "files")
        names = sorted(os.listdir(os.path.join(folder, "files")))
        wrong = [n for n in names if not os.path.exists(os.path.join(made, n))
                 or not filecmp.cmp(os.path.join(made, n), os.path.join(folder, "files", n), shallow=False)]
        left = sorted(set(os.listdir(made)) - set(names))
        print(f"{kills} kills, exit status {code}, {len(names)} files, {len(wrong)} wrong or missing, {len(left)} left behind; "
              f"{sent / MIB:.1f} MiB sent for {options.mib} MiB")
        twice = sent - options.mib * MIB
        if twice > (kills + 1) * IN_WORK * PIECE:
            print(f"{twice} bytes came twice: more than {IN_WORK} pieces a kill", file=sys.stderr)
            code = 1
        sys.exit(code != 0 or bool(wrong) or bool(left))


if __name__ == "__main__":
    main()
